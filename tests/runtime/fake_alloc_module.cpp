// A stand-in for the two modules the allocator loads at run time: the high-bandwidth memory
// library (version query, aligned allocation by page kind, free) and the companion allocator
// (four data symbols holding functions). Counters and switches let the tests steer and observe it.
#include <cstddef>
#include <cstdlib>

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

FAKE_EXPORT int fake_version = 1001000;
FAKE_EXPORT int fake_fail_huge = 0;   // refuse 2 MiB pages
FAKE_EXPORT int fake_fail_small = 0;  // refuse 4 KiB pages
FAKE_EXPORT long fake_huge_calls = 0;
FAKE_EXPORT long fake_small_calls = 0;
FAKE_EXPORT long fake_frees = 0;
FAKE_EXPORT long fake_companion_calls = 0;
FAKE_EXPORT long fake_companion_fail_at = 0;  // when positive, the allocation that counts it down
                                              // to zero answers null

FAKE_EXPORT int memkind_get_version() {
  return fake_version;
}

FAKE_EXPORT int hbw_posix_memalign_psize(void** out, std::size_t alignment, std::size_t size,
                                         int page_kind) {
  if (page_kind == 2) {
    ++fake_huge_calls;
    if (fake_fail_huge != 0 || alignment != 0x200000) return 12;
  } else {
    ++fake_small_calls;
    if (fake_fail_small != 0 || page_kind != 1 || alignment != 4096) return 12;
  }
  return posix_memalign(out, alignment, size);
}

FAKE_EXPORT void hbw_free(void* p) {
  ++fake_frees;
  std::free(p);
}

namespace {
bool fail_now() {
  return fake_companion_fail_at > 0 && --fake_companion_fail_at == 0;
}
void* c_malloc(std::size_t n) {
  ++fake_companion_calls;
  return fail_now() ? nullptr : std::malloc(n);
}
void* c_calloc(std::size_t n, std::size_t s) {
  ++fake_companion_calls;
  return fail_now() ? nullptr : std::calloc(n, s);
}
void* c_realloc(void* p, std::size_t n) {
  ++fake_companion_calls;
  return std::realloc(p, n);
}
void c_free(void* p) {
  ++fake_companion_calls;
  std::free(p);
}
}  // namespace

FAKE_EXPORT void* (*tvx_companion_malloc)(std::size_t) = c_malloc;
FAKE_EXPORT void* (*tvx_companion_calloc)(std::size_t, std::size_t) = c_calloc;
FAKE_EXPORT void* (*tvx_companion_realloc)(void*, std::size_t) = c_realloc;
FAKE_EXPORT void (*tvx_companion_free)(void*) = c_free;
