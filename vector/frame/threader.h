// The threader: between a wrapper and its kernel, decides whether a call is worth a team and
// runs the kernel once on the whole vector or once per team member on one contiguous piece.
// One template serves every arity class: pointer arguments are cut, scalars pass unchanged, and
// a Fixed<> pointer (the z-type scalar of Powx) passes whole.
#pragma once

#include <omp.h>

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "runtime/settings.h"
#include "vector/frame/mode_status.h"

extern "C" {
// Estimated reciprocal cost of one fork and join on this machine, in the threader's units; 0 on a
// single logical processor. Computed once per process.
float tvx_kaz_fork_factor(void);
// The same formula for a given machine: P logical processors, S NUMA nodes, C cores per node.
float tvx_kaz_fork_factor_of(int logical, int numa, int cores_per_numa);
// Team size after the cost test: min(T, trunc(n * cost * factor)), and at least 1.
int tvx_kaz_useful_threads(int threads, int n, float cost, float factor);
}

namespace tvx::frame {

template <class P>
struct Fixed {
  P p;
};

template <class A>
inline A piece(A a, long offset) {
  if constexpr (std::is_pointer_v<A>) {
    return a + offset;
  } else {
    (void)offset;
    return a;
  }
}
template <class P>
inline P piece(Fixed<P> f, long) {
  return f.p;
}

template <class K, class... A>
inline void run_kernel(K kernel, int n, long offset, A... args) {
  kernel(n, piece(args, offset)...);
}

// The even cut: thread t of a team of `team` takes `length` elements from `offset`; the first
// n mod team pieces are one longer. A thread past the last element gets length 0.
struct Piece {
  int offset;
  int length;
};
constexpr Piece cut(int n, int team, int t) {
  const int q = n / team;
  const int e = n % team;
  if (t < e) return {t * (q + 1), q + 1};
  if (q != 0) return {t * q + e, q};
  return {0, 0};
}

template <class A0, class... A>
inline const void* first_array(A0 a0, A...) {
  return static_cast<const void*>(a0);
}

// Calls `kernel` on the n elements of `args`; `cost` is the slot's cycles per element, `spare`
// is unused. Vectors under 100 elements never touch the thread settings or the status word.
// The team for n elements of `cost` cycles each; 1 means the caller's thread alone. Vectors under
// 100 elements never touch the thread settings.
inline int team_size(int n, float cost) {
  if (n < 100) return 1;
  int threads = tvx_domain_max_threads(TVX_DOMAIN_KAZ);
  if (threads > 1 && tvx_get_dynamic() != 0) {
    threads = tvx_kaz_useful_threads(threads, n, cost, tvx_kaz_fork_factor());
  }
  return threads;
}

template <class K, class... A>
inline void threaded_call(K kernel, int n, float cost, std::int64_t spare, A... args) {
  (void)spare;
  const int threads = team_size(n, cost);
  if (threads <= 1) {
    run_kernel(kernel, n, 0, args...);
    return;
  }
  const KazErrorCallBack callback = kazGetErrorCallBack();
  const unsigned int mode = kazGetMode();
  const void* base = first_array(args...);
  std::int32_t shared_status = 0;
#pragma omp parallel num_threads(threads)
  {
    kazSetErrorCallBack(callback);
    kazSetMode(mode);
    kaz_set_element_base(base);
    kazSetErrStatus(0);
    const Piece p = cut(n, omp_get_num_threads(), omp_get_thread_num());
    if (p.length > 0) run_kernel(kernel, p.length, p.offset, args...);
    const int status = kazGetErrStatus();
    // One plain 32-bit store: the last worker to finish with a condition decides.
    if (status != 0) {
      std::atomic_ref<std::int32_t>(shared_status).store(status, std::memory_order_relaxed);
    }
  }
  kaz_set_element_base(nullptr);
  kazSetErrStatus(std::atomic_ref<std::int32_t>(shared_status).load(std::memory_order_relaxed));
}

}  // namespace tvx::frame
