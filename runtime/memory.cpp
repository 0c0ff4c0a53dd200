// Provisional allocator: aligned blocks with a header, straight from the C heap. The full
// manager (thread caches, statistics, high-bandwidth memory) replaces this file.
#include "runtime/memory.h"

#include <cstdlib>
#include <cstring>

namespace {
struct Header {
  void* raw;
  std::uint64_t total;
  std::uint32_t alignment;
};
}  // namespace

extern "C" {

void* tvx_malloc(std::size_t size, int alignment) {
  std::size_t align = alignment < 64 ? 64 : static_cast<std::size_t>(alignment);
  if ((align & (align - 1)) != 0) return nullptr;
  if (size > SIZE_MAX - align - sizeof(Header)) return nullptr;
  const std::size_t total = size + align + sizeof(Header);
  void* raw = std::malloc(total);
  if (raw == nullptr) return nullptr;
  auto p = (reinterpret_cast<std::uintptr_t>(raw) + align + sizeof(Header)) & ~(align - 1);
  Header* h = reinterpret_cast<Header*>(p) - 1;
  h->raw = raw;
  h->total = total;
  h->alignment = static_cast<std::uint32_t>(align);
  return reinterpret_cast<void*>(p);
}

void* tvx_calloc(std::size_t num, std::size_t size, int alignment) {
  if (size != 0 && num > SIZE_MAX / size) return nullptr;
  void* p = tvx_malloc(num * size, alignment);
  if (p != nullptr) std::memset(p, 0, num * size);
  return p;
}

void* tvx_realloc(void* pointer, std::size_t size) {
  if (pointer == nullptr) return tvx_malloc(size, 64);
  if (size == 0) {
    tvx_free(pointer);
    return nullptr;
  }
  Header* h = reinterpret_cast<Header*>(pointer) - 1;
  const std::size_t old_size =
      h->total - (reinterpret_cast<char*>(pointer) - static_cast<char*>(h->raw));
  void* q = tvx_malloc(size, static_cast<int>(h->alignment));
  if (q == nullptr) return nullptr;
  std::memcpy(q, pointer, old_size < size ? old_size : size);
  tvx_free(pointer);
  return q;
}

void tvx_free(void* pointer) {
  if (pointer == nullptr) return;
  Header* h = reinterpret_cast<Header*>(pointer) - 1;
  std::free(h->raw);
}

void tvx_free_buffers(void) {}
void tvx_thread_free_buffers(void) {}

}  // extern "C"
