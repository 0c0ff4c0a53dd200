// OpenMP synchronisation made visible to ThreadSanitizer; compiled only in sanitizer builds.
//
// GCC's OpenMP runtime is not built with the sanitizer, so the fork and join of a parallel region,
// ordered sections and critical sections order memory without the sanitizer seeing it: the
// arguments handed to the workers, and the results read after the join, look like races. The
// runtime's entry points are wrapped here (the compiler calls them for every region of the
// library and of programs linked with it), adding the happens-before edges that the runtime
// guarantees, and the real entry is called through the next definition in the link order.
#if defined(__SANITIZE_THREAD__)
#include <dlfcn.h>

extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);

namespace {

template <class F>
F next_definition(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

// A region's body and data, with the fork edge (caller releases, each worker acquires on entry)
// and the join edge (each worker releases on exit, the caller acquires after the call).
struct Region {
  void (*fn)(void*);
  void* data;
};
void run_region(void* p) {
  auto* r = static_cast<Region*>(p);
  __tsan_acquire(r);
  r->fn(r->data);
  __tsan_release(r);
}

int g_ordered = 0;
int g_critical = 0;

}  // namespace

extern "C" {

void GOMP_parallel(void (*fn)(void*), void* data, unsigned num_threads, unsigned flags) {
  using Real = void (*)(void (*)(void*), void*, unsigned, unsigned);
  static const Real real = next_definition<Real>("GOMP_parallel");
  Region r{fn, data};
  __tsan_release(&r);
  real(run_region, &r, num_threads, flags);
  __tsan_acquire(&r);
}

void GOMP_ordered_start(void) {
  static const auto real = next_definition<void (*)(void)>("GOMP_ordered_start");
  real();
  __tsan_acquire(&g_ordered);
}
void GOMP_ordered_end(void) {
  static const auto real = next_definition<void (*)(void)>("GOMP_ordered_end");
  __tsan_release(&g_ordered);
  real();
}

void GOMP_critical_start(void) {
  static const auto real = next_definition<void (*)(void)>("GOMP_critical_start");
  real();
  __tsan_acquire(&g_critical);
}
void GOMP_critical_end(void) {
  static const auto real = next_definition<void (*)(void)>("GOMP_critical_end");
  __tsan_release(&g_critical);
  real();
}

}  // extern "C"
#endif
