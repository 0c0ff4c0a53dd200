// Helpers shared by the allocator tests: a view of the 24-byte block header, and what the
// allocator holds.
#pragma once

#include <cstdint>
#include <cstring>

#include "runtime/memory.h"

namespace tvx::test {

struct HeaderView {
  void* raw;
  std::uint64_t total;
  std::uint32_t alignment;
};

inline HeaderView header_of(const void* p) {
  HeaderView h;
  const char* base = static_cast<const char*>(p) - 24;
  std::memcpy(&h.raw, base, 8);
  std::memcpy(&h.total, base + 8, 8);
  std::memcpy(&h.alignment, base + 16, 4);
  return h;
}

inline bool is_cached(const void* p) {
  return header_of(p).raw == nullptr;
}

inline bool aligned_to(const void* p, std::uint64_t a) {
  return (reinterpret_cast<std::uintptr_t>(p) & (a - 1)) == 0;
}

// Bytes and blocks the allocator holds, as tvx_mem_stat counts them.
struct Held {
  std::int64_t bytes;
  int blocks;
};
inline Held held() {
  int n = 0;
  const std::int64_t bytes = tvx_mem_stat(&n);
  return {bytes, n};
}

}  // namespace tvx::test
