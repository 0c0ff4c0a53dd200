// What every kernel shares: the floating-point environment on entry and exit, the blocked main
// loop with its bad-lane bit mask, scalar callouts with one report per bad element, and the tail
// run through the same vector algorithm on a partial register padded with the filler 0.75.
//
// A kernel is a policy struct K with
//   using T = float or double;
//   static constexpr Env kEnv;                  // how it treats the floating-point environment
//   static constexpr const char* kName;         // the export's C-form name, for reports
//   static vec<T> vector(args..., std::uint32_t& bad, std::uint32_t mode);
//       computes a whole register; sets bit j of `bad` for a lane that needs the callout
//   static int callout(args..., T* result);     // one element exactly, returns a status 0..4
// and is run by the driver of its arity class: run_v_v<K>(n, a, r), run_vv_v<K>(n, a, b, r),
// run_v_vv<K>(n, a, r1, r2), run_vs_v<K>(n, a, s, r). A kernel may also name
//   static constexpr int kUnroll;               // registers per block of the main loop
//   static constexpr bool kCleanRuns;           // run clean blocks in a call-free loop
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "vector/frame/mode_status.h"
#include "simd/simd_ops.h"

namespace tvx::TVX_VNS {

template <class T>
inline constexpr T kFiller = T(0.75);

// How a kernel treats the floating-point environment.
enum class Env {
  // Reads the mode word: all exceptions masked, round to nearest, flush-to-zero and
  // denormals-are-zero exactly when the mode's denormal field asks for it.
  kMode,
  // Moves bits only: makes sure exceptions are masked and leaves rounding and flush bits alone,
  // so that the caller's rounding mode is honoured.
  kBitsOnly,
  // As kMode, and the x87 unit in double precision, round to nearest, all masked (division and
  // reciprocal kernels of the SSE2 variants).
  kModeStrictX87,
};

class FpGuard {
 public:
  explicit FpGuard(Env env) {
    std::uint16_t cw;
    asm volatile("fnstcw %0" : "=m"(cw));
    saved_cw_ = cw;
    if (env == Env::kModeStrictX87) {
      if ((cw & 0xF3F) != 0x23F) {
        const std::uint16_t ncw = static_cast<std::uint16_t>((cw & ~0xF3F) | 0x23F);
        asm volatile("fnclex\n\tfldcw %0" : : "m"(ncw));
        restore_ |= 1;
      }
    } else if ((cw & 0x3F) != 0x3F) {
      const std::uint16_t ncw = static_cast<std::uint16_t>(cw | 0x3F);
      asm volatile("fnclex\n\tfldcw %0" : : "m"(ncw));
      restore_ |= 1;
    }
    const std::uint32_t csr = _mm_getcsr();
    saved_csr_ = csr;
    if (env == Env::kBitsOnly) {
      if ((csr & 0x1F80) != 0x1F80) {
        _mm_setcsr(csr | 0x1F80);
        restore_ |= 2;
      }
      return;
    }
    mode_ = kazGetMode();
    const std::uint32_t target =
        (mode_ & KAZ_FTZDAZ_MASK) == KAZ_FLUSH_DENORMALS_ON ? 0x9FC0u : 0x1F80u;
    if ((csr & 0xFFC0) != target) {
      _mm_setcsr((csr & 0xFFFF003Fu) | target);
      restore_ |= 2;
    }
  }
  ~FpGuard() {
    if (restore_ & 1) asm volatile("fldcw %0" : : "m"(saved_cw_));
    if (restore_ & 2) _mm_setcsr(saved_csr_ | (_mm_getcsr() & 0x3F));
  }
  FpGuard(const FpGuard&) = delete;
  FpGuard& operator=(const FpGuard&) = delete;

  // The mode word read on entry (0 for kBitsOnly kernels, which do not read it).
  std::uint32_t mode() const { return mode_; }

 private:
  std::uint32_t mode_ = 0;
  std::uint32_t saved_csr_ = 0;
  std::uint16_t saved_cw_ = 0;
  int restore_ = 0;
};

// Element reports by type.
inline void report(int st, int i, const double* a1, const double* a2, double* r1, double* r2,
                   const char* name) {
  kaz_report_d(st, i, a1, a2, r1, r2, name);
}
inline void report(int st, int i, const float* a1, const float* a2, float* r1, float* r2,
                   const char* name) {
  kaz_report_s(st, i, a1, a2, r1, r2, name);
}

// Registers per block of the main loop: K::kUnroll when the kernel names one, else 1. The
// registers of a block are computed together and cost one bit-mask test when no lane is bad.
template <class K>
constexpr int unroll_of() {
  if constexpr (requires { K::kUnroll; }) {
    return K::kUnroll;
  } else {
    return 1;
  }
}

// Kernels that only stream memory (K::kStream true) write long vectors with non-temporal stores:
// from this many bytes of output on, the result would not stay in the caches anyway, and the
// stores then skip reading each destination line first. Results are the same either way.
inline constexpr long kStreamBytes = 4l << 20;

template <class K>
constexpr bool stream_of() {
  if constexpr (requires { K::kStream; }) {
    return K::kStream;
  } else {
    return false;
  }
}

// Output bytes that decide on streaming stores: those of the whole threaded call when this
// kernel runs one piece of it (the pieces are small, the call is not), else those of this call.
template <class T>
inline long stream_bytes(int n) {
  const int whole = tvx_kaz_thread_block()->call_elements;
  return static_cast<long>(n > whole ? n : whole) * static_cast<long>(sizeof(T));
}

// Elements to run ahead of the main loop so that r + i is aligned to a register, or -1 when r is
// not even aligned to its element.
template <class T>
inline int peel_to_align(const T* r) {
  constexpr std::uintptr_t kBytes = sizeof(simd::vec<T>);
  const std::uintptr_t mis = reinterpret_cast<std::uintptr_t>(r) % kBytes;
  if (mis % sizeof(T) != 0) return -1;
  return mis == 0 ? 0 : static_cast<int>((kBytes - mis) / sizeof(T));
}

// Stores a whole register: streaming (to an aligned address) or plain.
template <bool kNt, class T>
inline void put(T* p, const simd::vec<T>& v) {
  if constexpr (kNt) {
    simd::stream(p, v);
  } else {
    simd::storeu(p, v);
  }
}

// Every driver below takes, after the arrays, an optional pack of context values `ctx...`
// (the scalar of the vector-and-scalar class, the prepared scalars of LinearFrac) that reach
// K::vector and K::callout unchanged, between the element arguments and the outputs.

// The `count` elements of a block at p as one register: a full load, or a partial one padded
// with the filler; and the way back.
template <class T>
inline simd::vec<T> load_block(const T* p, int count) {
  return count == simd::lanes<T> ? simd::loadu(p) : simd::load_partial(p, count, kFiller<T>);
}
template <class T>
inline void store_block(T* p, const simd::vec<T>& v, int count) {
  if (count == simd::lanes<T>) {
    simd::storeu(p, v);
  } else {
    simd::store_partial(p, v, count);
  }
}

// ---- one in, one out ----------------------------------------------------------------------------
// Results of one register whose mask has bad lanes: callouts in ascending lane order, one report
// per non-zero status, then the register written out (count lanes).
template <class K, class... C>
inline void settle_v_v(const typename K::T* a, typename K::T* r, int i, int count,
                       const simd::vec<typename K::T>& x, const simd::vec<typename K::T>& y,
                       std::uint32_t bad, const C&... ctx) {
  using T = typename K::T;
  constexpr int L = simd::lanes<T>;
  alignas(64) T arg[L];
  alignas(64) T res[L];
  x.store_aligned(arg);
  y.store_aligned(res);
  for (std::uint32_t b = bad; b != 0; b &= b - 1) {
    const int j = simd::lowest_lane(b);
    T out;
    const int st = K::callout(arg[j], ctx..., &out);
    if (st == 0) {
      res[j] = out;
    } else {
      r[i + j] = out;
      report(st, i + j, a, a, r, r, K::kName);
      res[j] = r[i + j];
    }
  }
  for (int j = 0; j < count; ++j) r[i + j] = res[j];
}

template <class K, class... C>
inline void block_v_v(const typename K::T* a, typename K::T* r, int i, int count,
                      std::uint32_t mode, const C&... ctx) {
  using T = typename K::T;
  using V = simd::vec<T>;
  constexpr int L = simd::lanes<T>;
  const V x = load_block(a + i, count);
  std::uint32_t bad = 0;
  V y = K::vector(x, ctx..., bad, mode);
  if (count < L) bad &= (1u << count) - 1u;
  if (bad == 0) {
    store_block(r + i, y, count);
    return;
  }
  settle_v_v<K>(a, r, i, count, x, y, bad, ctx...);
}

template <class K, bool kNt, class... C>
inline int unrolled_v_v(int n, int i, const typename K::T* a, typename K::T* r, std::uint32_t mode,
                        const C&... ctx) {
  using T = typename K::T;
  using V = simd::vec<T>;
  constexpr int L = simd::lanes<T>;
  constexpr int U = unroll_of<K>();
  for (; i + U * L <= n; i += U * L) {
    V x[U], y[U];
    std::uint32_t bad[U];
    std::uint32_t any = 0;
    for (int u = 0; u < U; ++u) x[u] = simd::loadu(a + i + u * L);
    for (int u = 0; u < U; ++u) {
      bad[u] = 0;
      y[u] = K::vector(x[u], ctx..., bad[u], mode);
      any |= bad[u];
    }
    if (any == 0) {
      for (int u = 0; u < U; ++u) put<kNt>(r + i + u * L, y[u]);
      continue;
    }
    for (int u = 0; u < U; ++u) {
      if (bad[u] != 0) {
        settle_v_v<K>(a, r, i + u * L, L, x[u], y[u], bad[u], ctx...);
      } else {
        put<kNt>(r + i + u * L, y[u]);
      }
    }
  }
  return i;
}

// Full blocks from i on, two registers at a time, for as long as no lane needs its callout.
// Returns where it stopped: the first block with such a lane, or the end of the full blocks.
// It makes no call, so the kernel's constants stay in registers; with the callouts in the same
// loop the compiler keeps them on the stack and the loop waits on reloading them.
template <class K, class... C>
[[gnu::noinline]] int clean_blocks_v_v(const typename K::T* a, typename K::T* r, int i, int n,
                                       std::uint32_t mode, const C&... ctx) {
  using V = simd::vec<typename K::T>;
  constexpr int L = simd::lanes<typename K::T>;
  for (; i + 2 * L <= n; i += 2 * L) {
    std::uint32_t bad0 = 0, bad1 = 0;
    const V y0 = K::vector(simd::loadu(a + i), ctx..., bad0, mode);
    const V y1 = K::vector(simd::loadu(a + i + L), ctx..., bad1, mode);
    if ((bad0 | bad1) != 0) {
      if (bad0 != 0) return i;
      simd::storeu(r + i, y0);
      return i + L;
    }
    simd::storeu(r + i, y0);
    simd::storeu(r + i + L, y1);
  }
  if (i + L <= n) {
    std::uint32_t bad = 0;
    const V y = K::vector(simd::loadu(a + i), ctx..., bad, mode);
    if (bad != 0) return i;
    simd::storeu(r + i, y);
    i += L;
  }
  return i;
}

// A kernel may set `static constexpr bool kCleanRuns = true` to have its full blocks run by
// clean_blocks_v_v, leaving the driver only the blocks with callouts and the tail. The results
// are the same bits either way.
template <class K>
inline constexpr bool clean_runs() {
  if constexpr (requires { K::kCleanRuns; }) {
    return K::kCleanRuns;
  } else {
    return false;
  }
}

template <class K, class... C>
inline void run_v_v(int n, const typename K::T* a, typename K::T* r, const C&... ctx) {
  if (n <= 0) return;
  FpGuard env(K::kEnv);
  const std::uint32_t mode = env.mode();
  using T = typename K::T;
  constexpr int L = simd::lanes<T>;
  int i = 0;
  if constexpr (stream_of<K>()) {
    const int peel = peel_to_align(r);
    if (stream_bytes<T>(n) >= kStreamBytes && peel >= 0) {
      if (peel > 0) block_v_v<K>(a, r, 0, peel, mode, ctx...);
      i = unrolled_v_v<K, true>(n, peel, a, r, mode, ctx...);
      simd::stream_fence();
    }
  }
  if constexpr (clean_runs<K>()) {
    while (i + L <= n) {
      i = clean_blocks_v_v<K>(a, r, i, n, mode, ctx...);
      if (i + L > n) break;
      block_v_v<K>(a, r, i, L, mode, ctx...);
      i += L;
    }
  } else {
    i = unrolled_v_v<K, false>(n, i, a, r, mode, ctx...);
    for (; i + L <= n; i += L) block_v_v<K>(a, r, i, L, mode, ctx...);
  }
  if (i < n) block_v_v<K>(a, r, i, n - i, mode, ctx...);
}

// Vector and scalar: the scalar `s` reaches K::vector(x, s, bad, mode) and K::callout(a, s, &r).
template <class K, class S>
inline void run_vs_v(int n, const typename K::T* a, S s, typename K::T* r) {
  run_v_v<K>(n, a, r, s);
}

// ---- two in, one out ----------------------------------------------------------------------------
template <class K, class... C>
inline void settle_vv_v(const typename K::T* a, const typename K::T* b, typename K::T* r, int i,
                        int count, const simd::vec<typename K::T>& x,
                        const simd::vec<typename K::T>& z, const simd::vec<typename K::T>& y,
                        std::uint32_t bad, const C&... ctx) {
  using T = typename K::T;
  constexpr int L = simd::lanes<T>;
  alignas(64) T arg1[L];
  alignas(64) T arg2[L];
  alignas(64) T res[L];
  x.store_aligned(arg1);
  z.store_aligned(arg2);
  y.store_aligned(res);
  for (std::uint32_t m = bad; m != 0; m &= m - 1) {
    const int j = simd::lowest_lane(m);
    T out;
    const int st = K::callout(arg1[j], arg2[j], ctx..., &out);
    if (st == 0) {
      res[j] = out;
    } else {
      r[i + j] = out;
      report(st, i + j, a, b, r, r, K::kName);
      res[j] = r[i + j];
    }
  }
  for (int j = 0; j < count; ++j) r[i + j] = res[j];
}

template <class K, class... C>
inline void block_vv_v(const typename K::T* a, const typename K::T* b, typename K::T* r, int i,
                       int count, std::uint32_t mode, const C&... ctx) {
  using T = typename K::T;
  using V = simd::vec<T>;
  constexpr int L = simd::lanes<T>;
  const V x = load_block(a + i, count);
  const V z = load_block(b + i, count);
  std::uint32_t bad = 0;
  V y = K::vector(x, z, ctx..., bad, mode);
  if (count < L) bad &= (1u << count) - 1u;
  if (bad == 0) {
    store_block(r + i, y, count);
    return;
  }
  settle_vv_v<K>(a, b, r, i, count, x, z, y, bad, ctx...);
}

template <class K, bool kNt, class... C>
inline int unrolled_vv_v(int n, int i, const typename K::T* a, const typename K::T* b,
                         typename K::T* r, std::uint32_t mode, const C&... ctx) {
  using T = typename K::T;
  using V = simd::vec<T>;
  constexpr int L = simd::lanes<T>;
  constexpr int U = unroll_of<K>();
  for (; i + U * L <= n; i += U * L) {
    V x[U], z[U], y[U];
    std::uint32_t bad[U];
    std::uint32_t any = 0;
    for (int u = 0; u < U; ++u) {
      x[u] = simd::loadu(a + i + u * L);
      z[u] = simd::loadu(b + i + u * L);
    }
    for (int u = 0; u < U; ++u) {
      bad[u] = 0;
      y[u] = K::vector(x[u], z[u], ctx..., bad[u], mode);
      any |= bad[u];
    }
    if (any == 0) {
      for (int u = 0; u < U; ++u) put<kNt>(r + i + u * L, y[u]);
      continue;
    }
    for (int u = 0; u < U; ++u) {
      if (bad[u] != 0) {
        settle_vv_v<K>(a, b, r, i + u * L, L, x[u], z[u], y[u], bad[u], ctx...);
      } else {
        put<kNt>(r + i + u * L, y[u]);
      }
    }
  }
  return i;
}

template <class K, class... C>
inline void run_vv_v(int n, const typename K::T* a, const typename K::T* b, typename K::T* r,
                     const C&... ctx) {
  if (n <= 0) return;
  FpGuard env(K::kEnv);
  const std::uint32_t mode = env.mode();
  using T = typename K::T;
  constexpr int L = simd::lanes<T>;
  int i = 0;
  if constexpr (stream_of<K>()) {
    const int peel = peel_to_align(r);
    if (stream_bytes<T>(n) >= kStreamBytes && peel >= 0) {
      if (peel > 0) block_vv_v<K>(a, b, r, 0, peel, mode, ctx...);
      i = unrolled_vv_v<K, true>(n, peel, a, b, r, mode, ctx...);
      simd::stream_fence();
    }
  }
  i = unrolled_vv_v<K, false>(n, i, a, b, r, mode, ctx...);
  for (; i + L <= n; i += L) block_vv_v<K>(a, b, r, i, L, mode, ctx...);
  if (i < n) block_vv_v<K>(a, b, r, i, n - i, mode, ctx...);
}

// ---- one in, two out ----------------------------------------------------------------------------
template <class K, class... C>
inline void block_v_vv(const typename K::T* a, typename K::T* r1, typename K::T* r2, int i,
                       int count, std::uint32_t mode, const C&... ctx) {
  using T = typename K::T;
  using V = simd::vec<T>;
  constexpr int L = simd::lanes<T>;
  const V x = load_block(a + i, count);
  std::uint32_t bad = 0;
  V y1, y2;
  K::vector(x, ctx..., y1, y2, bad, mode);
  if (count < L) bad &= (1u << count) - 1u;
  if (bad == 0) {
    store_block(r1 + i, y1, count);
    store_block(r2 + i, y2, count);
    return;
  }
  alignas(64) T arg[L];
  alignas(64) T res1[L];
  alignas(64) T res2[L];
  x.store_aligned(arg);
  y1.store_aligned(res1);
  y2.store_aligned(res2);
  for (std::uint32_t m = bad; m != 0; m &= m - 1) {
    const int j = simd::lowest_lane(m);
    T o1, o2;
    const int st = K::callout(arg[j], ctx..., &o1, &o2);
    if (st == 0) {
      res1[j] = o1;
      res2[j] = o2;
    } else {
      r1[i + j] = o1;
      r2[i + j] = o2;
      report(st, i + j, a, a, r1, r2, K::kName);
      res1[j] = r1[i + j];
      res2[j] = r2[i + j];
    }
  }
  for (int j = 0; j < count; ++j) {
    r1[i + j] = res1[j];
    r2[i + j] = res2[j];
  }
}

template <class K, class... C>
inline void run_v_vv(int n, const typename K::T* a, typename K::T* r1, typename K::T* r2,
                     const C&... ctx) {
  if (n <= 0) return;
  FpGuard env(K::kEnv);
  const std::uint32_t mode = env.mode();
  constexpr int L = simd::lanes<typename K::T>;
  int i = 0;
  for (; i + L <= n; i += L) block_v_vv<K>(a, r1, r2, i, L, mode, ctx...);
  if (i < n) block_v_vv<K>(a, r1, r2, i, n - i, mode, ctx...);
}

}  // namespace tvx::TVX_VNS
