// The road of pack and unpack: argument forms that the threader's even cut understands, and the
// team run of the mask forms, whose dense side starts where the mask of the earlier pieces says.
#pragma once

#include <omp.h>

#include <atomic>
#include <cstdint>

#include "vector/frame/road.h"

namespace tvx::frame {

// An array whose element i of the vector lies `inc` elements on from element i - 1: the piece
// from `offset` starts at p + offset * inc. Found by the threader's cut through argument lookup.
template <class T>
struct Strided {
  T* p;
  long inc;
  explicit operator const void*() const { return p; }
};
template <class T>
inline T* piece(Strided<T> s, long offset) {
  return s.p + offset * s.inc;
}

// An array that every piece sees whole: the gather source of PackV, the scatter target of
// UnpackV.
template <class T>
struct Whole {
  T* p;
  explicit operator const void*() const { return p; }
};
template <class T>
inline T* piece(Whole<T> w, long) {
  return w.p;
}

// Non-zero entries of m[0..n).
inline long count_nonzero(const int* m, int n) {
  long c = 0;
  for (int i = 0; i < n; ++i) c += m[i] != 0;
  return c;
}

// Largest team of a mask-form region: the counts of the pieces live on the caller's stack.
inline constexpr int kMaxMaskTeam = 256;

// Runs a mask-form kernel over a team when the threader's rules give one. Each thread counts the
// mask of its piece, and after a barrier starts its part of the dense array (PackM's destination,
// UnpackM's source) behind the counts of the pieces before it: the mask is read twice, the data
// once. As after any threaded call, the caller's status word is then 0.
template <class T, class Run>
inline void masked_team(int n, float cost, const int* m, Run run) {
  int threads = team_size(n, cost);
  if (threads <= 1) {
    run(n, 0, 0l);
    return;
  }
  if (threads > kMaxMaskTeam) threads = kMaxMaskTeam;
  long counts[kMaxMaskTeam];
#pragma omp parallel num_threads(threads)
  {
    const int team = omp_get_num_threads();
    const int t = omp_get_thread_num();
    const Piece p = cut(n, team, t);
    // The barrier orders these stores before the loads; the release and acquire say so to
    // tools that do not see into the OpenMP runtime.
    std::atomic_ref<long>(counts[t]).store(count_nonzero(m + p.offset, p.length),
                                           std::memory_order_release);
#pragma omp barrier
    long before = 0;
    for (int u = 0; u < t; ++u) {
      before += std::atomic_ref<long>(counts[u]).load(std::memory_order_acquire);
    }
    if (p.length > 0) run(p.length, p.offset, before);
  }
  kazSetErrStatus(0);
}

template <class T>
inline void pack_masked(K_pack_v<T> kernel, int n, float cost, const T* a, const int* m, T* y) {
  masked_team<T>(n, cost, m, [=](int len, int offset, long dense) {
    kernel(len, a + offset, m + offset, y + dense);
  });
}
template <class T>
inline void unpack_masked(K_unpack_v<T> kernel, int n, float cost, const T* a, T* y, const int* m) {
  masked_team<T>(n, cost, m, [=](int len, int offset, long dense) {
    kernel(len, a + dense, y + offset, m + offset);
  });
}

// Steps after the checks for the mask forms: the slot, then the team run.
template <class T>
inline void dispatch_pack_m(const Row<K_pack_v<T>>& row, int n, const T* a, const int* m, T* y) {
  const int slot = select_slot(row, tvx_kaz_variant_index());
  pack_masked<T>(row.kernels[slot], n, row.cost[slot], a, m, y);
}
template <class T>
inline void dispatch_unpack_m(const Row<K_unpack_v<T>>& row, int n, const T* a, T* y,
                              const int* m) {
  const int slot = select_slot(row, tvx_kaz_variant_index());
  unpack_masked<T>(row.kernels[slot], n, row.cost[slot], a, y, m);
}

}  // namespace tvx::frame
