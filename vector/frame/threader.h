// The threader: between a wrapper and its kernel, decides whether a call is worth a team and
// runs the kernel once on the whole vector, or on contiguous pieces shared out over a team.
// One template serves every arity class: pointer arguments are cut, scalars pass unchanged, and
// a Fixed<> pointer (the z-type scalar of Powx) passes whole.
#pragma once

#include <omp.h>

#include <cstdint>
#include <tuple>
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

// Runs pieces 0 .. pieces - 1 through run(job, k) on the calling thread and on up to team - 1
// helper threads of the library's pool, and returns the status of the highest piece whose run
// returned non-zero, or 0. The calling thread claims pieces like any helper and waits only for
// pieces that a helper has started. One call holds the pool at a time: a call made while another
// holds it (from another thread, or from a callback inside a piece) runs every piece itself.
int tvx_kaz_team_run(int team, int pieces, int (*run)(const void* job, int k), const void* job);
// Helper threads started so far (they live until the process ends).
int tvx_kaz_team_helpers(void);
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

// Bytes of the cut arrays per element, for the size of a piece.
template <class A>
constexpr int element_bytes() {
  if constexpr (std::is_pointer_v<A>) {
    return static_cast<int>(sizeof(std::remove_pointer_t<A>));
  } else {
    return 0;
  }
}

// Pieces of a threaded call: one per team member at least, and beyond that one per
// tvx::frame::kPieceBytes of data moved (all cut arrays together), never more than n.
inline constexpr long kPieceBytes = 128 * 1024;
constexpr int piece_count(int n, int team, int bytes_per_element) {
  const long by_size = (static_cast<long>(n) * bytes_per_element + kPieceBytes - 1) / kPieceBytes;
  long k = by_size > team ? by_size : team;
  if (k > n) k = n;
  return static_cast<int>(k < 1 ? 1 : k);
}

// What every piece of one call needs: the kernel, the cut, the caller's mode, callback and first
// input, and the arguments. Lives on the caller's stack for the length of the call.
template <class K, class... A>
struct Job {
  K kernel;
  int n;
  int pieces;
  KazErrorCallBack callback;
  unsigned int mode;
  const void* base;
  std::tuple<A...> args;
};

// Runs piece k of a Job on the calling thread under the caller's mode and callback, with the
// element base at the caller's first input (so reports count indices in the whole vector), and
// returns the status that the piece left.
template <class J>
int run_piece(const void* job, int k) {
  const J& j = *static_cast<const J*>(job);
  kazSetErrorCallBack(j.callback);
  kazSetMode(j.mode);
  kaz_set_element_base(j.base);
  tvx_kaz_thread_block()->call_elements = j.n;
  kazSetErrStatus(0);
  const Piece p = cut(j.n, j.pieces, k);
  if (p.length > 0) {
    std::apply([&](auto... a) { run_kernel(j.kernel, p.length, p.offset, a...); }, j.args);
  }
  return kazGetErrStatus();
}

// The team for n elements of `cost` cycles each; 1 means the caller's thread alone. Vectors under
// 100 elements never touch the thread settings.
inline int team_size(int n, float cost) {
  if (n < 100) return 1;
  int threads = tvx_domain_max_threads(TVX_DOMAIN_KAZ);
  if (threads > 1 && tvx_get_dynamic() != 0) {
    // A caller inside an OpenMP region runs alone, whatever its thread-local override says.
    threads =
        omp_in_parallel() ? 1 : tvx_kaz_useful_threads(threads, n, cost, tvx_kaz_fork_factor());
  }
  return threads;
}

// Calls `kernel` on the n elements of `args`; `cost` is the slot's cycles per element, `spare`
// is unused. Vectors under 100 elements never touch the thread settings or the status word.
//
// A threaded call cuts the vector into pieces (piece_count) and runs them on the calling thread
// and on up to T - 1 helpers of the library's team (tvx_kaz_team_run): each thread claims the
// next unclaimed piece until none is left, so the caller never waits for a helper that has not
// started, only for pieces that a helper is running. The caller's status word becomes the status
// of the last piece (in element order) that saw a condition, or 0: the same status whatever the
// team and however the pieces fell.
template <class K, class... A>
inline void threaded_call(K kernel, int n, float cost, std::int64_t spare, A... args) {
  (void)spare;
  const int threads = team_size(n, cost);
  if (threads <= 1) {
    run_kernel(kernel, n, 0, args...);
    return;
  }
  using J = Job<K, A...>;
  const J job{kernel,
              n,
              piece_count(n, threads, (element_bytes<A>() + ...)),
              kazGetErrorCallBack(),
              kazGetMode(),
              first_array(args...),
              {args...}};
  // Null on a caller's own thread; a call made from a callback inside a piece gives its piece's
  // base back, so that the piece's later reports still count in the whole vector.
  kaz_thread_block* block = tvx_kaz_thread_block();
  const void* outer_base = block->element_base;
  const std::int32_t outer_elements = block->call_elements;
  const int status = tvx_kaz_team_run(threads, job.pieces, &run_piece<J>, &job);
  block->element_base = outer_base;
  block->call_elements = outer_elements;
  kazSetErrStatus(status);
}

}  // namespace tvx::frame
