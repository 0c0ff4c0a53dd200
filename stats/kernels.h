// Moment kernels of the basic group, written once and compiled per instruction-set variant.
//
// Three families share one signature: one pass (observation-by-observation update of means and
// central sums, optionally of the cross-product matrix), fast (running raw sums) and user mean
// (central sums around the caller's means). Each is a template on the observation layout, the
// presence of weights and the accumulation level, so that no decision is taken inside a loop;
// the driver picks one entry of a 64-entry table per call.
#pragma once

#include <cstdint>
#include <utility>

#include "simd/simd_ops.h"
#include "simd/variant.h"

namespace tvx::TVX_VNS::ss {

using namespace tvx::TVX_VNS::simd;

// Slots of the running vectors.
enum : int { kMean = 0, kRaw2, kRaw3, kRaw4, kCen2, kCen3, kCen4, kVectorCount };

template <class T>
struct KernelArgs {
  std::int64_t begin, end, n, p;
  const T* x;
  const T* w;
  T* acc;              // W, W2 and two spare words
  T* v[kVectorCount];  // running vectors; null where the level keeps none
  T* matrix;           // p by p, upper triangle (i <= j at j*p + i), or null
  T* scratch;          // 3p reals
};

template <class T>
using Kernel = int (*)(const KernelArgs<T>&);

// Runs f(offset, count) over [0, p) in register-sized pieces; count < lanes only in the tail.
template <class T, class F>
inline void over_lanes(std::int64_t p, F&& f) {
  constexpr int L = lanes<T>;
  std::int64_t v = 0;
  for (; v + L <= p; v += L) f(v, L);
  if (v < p) f(v, static_cast<int>(p - v));
}

template <class T>
inline vec<T> ld(const T* p, int count) {
  return count == lanes<T> ? loadu(p) : load_partial(p, count, T(0));
}
template <class T>
inline void st(T* p, const vec<T>& v, int count) {
  if (count == lanes<T>)
    storeu(p, v);
  else
    store_partial(p, v, count);
}

// ---- One pass ----------------------------------------------------------------------------------
// For each observation in order and each variable, with Wo the old W, Wn = Wo + w, r = 1/Wn,
// a = Wo r, b = w r and d = x - mean (old mean):
//   c4 += d^4 ((Wo - w) Wo + w^2) Wo r^2 b + 6 b^2 c2 d^2 - 4 b c3 d
//   c3 += a b (Wo - w) d^3 - 3 b c2 d
//   c2 += w a d^2
//   mean = b x + a mean, raw_k = b x^k + a raw_k
// and, with the matrix, M(i, j) += (a w) d_i d_j for i <= j, before any mean moves. The
// variables are independent, so they are processed a register at a time.
template <class T, bool kCols, bool kWeighted, int kLevel, bool kMatrix>
int one_pass_kernel(const KernelArgs<T>& a) {
  const std::int64_t p = a.p, n = a.n;
  std::int64_t i = a.begin;
  if constexpr (kWeighted) {
    while (i < a.end && a.w[i] == T(0)) ++i;
    if (i == a.end) return 0;
  }
  T W = a.acc[0], W2 = a.acc[1];
  T* gathered = a.scratch;
  T* dev = a.scratch + p;
  T* tdev = a.scratch + 2 * p;
  T* mean = a.v[kMean];
  T *r2 = a.v[kRaw2], *r3 = a.v[kRaw3], *r4 = a.v[kRaw4];
  T *c2 = a.v[kCen2], *c3 = a.v[kCen3], *c4 = a.v[kCen4];
  for (; i < a.end; ++i) {
    const T w = kWeighted ? a.w[i] : T(1);
    const T Wo = W, Wn = Wo + w, r = T(1) / Wn;
    const T A = Wo * r, B = kWeighted ? w * r : r;
    const T* xo;
    if constexpr (kCols) {
      xo = a.x + i * p;
    } else {
      for (std::int64_t v = 0; v < p; ++v) gathered[v] = a.x[v * n + i];
      xo = gathered;
    }
    if constexpr (kMatrix) {
      const T t = kWeighted ? A * w : A;
      const vec<T> tv = splat(t);
      over_lanes<T>(p, [&](std::int64_t v, int c) {
        const vec<T> d = ld(xo + v, c) - ld(mean + v, c);
        st(dev + v, d, c);
        st(tdev + v, tv * d, c);
      });
      for (std::int64_t j = 0; j < p; ++j) {
        const vec<T> dj = splat(dev[j]);
        T* col = a.matrix + j * p;
        over_lanes<T>(j + 1, [&](std::int64_t v, int c) {
          st(col + v, ld(col + v, c) + ld(tdev + v, c) * dj, c);
        });
      }
    }
    // Per-observation coefficients of the central updates.
    const vec<T> va = splat(A), vb = splat(B);
    const vec<T> k2 = splat(w * A);
    const vec<T> k3 = splat(A * B * (Wo - w)), k3b = splat(T(3) * B);
    const vec<T> k4 = splat(((Wo - w) * Wo + w * w) * Wo * (r * r) * B);
    const vec<T> k4b = splat(T(6) * (B * B)), k4c = splat(T(4) * B);
    over_lanes<T>(p, [&](std::int64_t v, int c) {
      const vec<T> x = ld(xo + v, c);
      const vec<T> m = ld(mean + v, c);
      if constexpr (kLevel >= 1) {
        const vec<T> d = x - m;
        const vec<T> d2 = d * d;
        const vec<T> oc2 = ld(c2 + v, c);
        if constexpr (kLevel >= 3) {
          const vec<T> oc3 = ld(c3 + v, c);
          const vec<T> oc4 = ld(c4 + v, c);
          st(c4 + v, oc4 + (((d2 * d2) * k4 + (k4b * oc2) * d2) - (k4c * oc3) * d), c);
          st(c3 + v, oc3 + ((k3 * (d2 * d) - (k3b * oc2) * d)), c);
        }
        st(c2 + v, oc2 + k2 * d2, c);
      }
      st(mean + v, vb * x + va * m, c);
      if constexpr (kLevel >= 2) {
        const vec<T> x2 = x * x;
        st(r2 + v, vb * x2 + va * ld(r2 + v, c), c);
        if constexpr (kLevel >= 3) {
          const vec<T> x3 = x2 * x;
          st(r3 + v, vb * x3 + va * ld(r3 + v, c), c);
          st(r4 + v, vb * (x3 * x) + va * ld(r4 + v, c), c);
        }
      }
    });
    W = Wn;
    W2 = W2 + w * w;
  }
  a.acc[0] = W;
  a.acc[1] = W2;
  return 0;
}

// ---- Sums over a contiguous run
// ------------------------------------------------------------------ The sums of w x^k (k = 1..K)
// over a contiguous run go into kAcc partial sums, element e of the run into partial e mod kAcc,
// and the partials are added by a fixed pairwise tree. The number of partials does not depend on
// the register width, so every variant gives the same bits.
template <class T>
inline constexpr int kAcc = 128 / static_cast<int>(sizeof(T));

template <class T, int K, bool kWeighted, bool kCentred>
inline void run_sums(const T* x, const T* w, std::int64_t count, T centre, T out[K]) {
  constexpr int L = lanes<T>;
  constexpr int R = kAcc<T> / L;
  vec<T> s[K][R];
  for (int k = 0; k < K; ++k)
    for (int q = 0; q < R; ++q) s[k][q] = splat(T(0));
  const vec<T> m = splat(centre);
  auto add = [&](int q, vec<T> xv, vec<T> wv) {
    if constexpr (kCentred) xv = xv - m;
    vec<T> pw = xv;
    for (int k = 0; k < K; ++k) {
      if (k > 0) pw = pw * xv;
      if constexpr (kWeighted)
        s[k][q] = s[k][q] + wv * pw;
      else
        s[k][q] = s[k][q] + pw;
    }
  };
  std::int64_t e = 0;
  for (; e + kAcc<T> <= count; e += kAcc<T>)
    for (int q = 0; q < R; ++q)
      add(q, loadu(x + e + q * L), kWeighted ? loadu(w + e + q * L) : splat(T(0)));
  // Tail: lanes past the end hold x = centre (a zero deviation, or zero when not centred) and
  // w = 0, which add exact zeros.
  for (int q = 0; q < R && e + q * L < count; ++q) {
    const std::int64_t left = count - (e + q * L);
    const int c = left >= L ? L : static_cast<int>(left);
    const vec<T> xv = c == L ? loadu(x + e + q * L) : load_partial(x + e + q * L, c, centre);
    const vec<T> wv = !kWeighted ? splat(T(0))
                      : c == L   ? loadu(w + e + q * L)
                                 : load_partial(w + e + q * L, c, T(0));
    add(q, xv, wv);
  }
  alignas(64) T buf[kAcc<T>];
  for (int k = 0; k < K; ++k) {
    for (int q = 0; q < R; ++q) storeu(buf + q * L, s[k][q]);
    for (int h = kAcc<T> / 2; h >= 1; h /= 2)
      for (int j = 0; j < h; ++j) buf[j] = buf[j] + buf[j + h];
    out[k] = buf[0];
  }
}

// Sum of the weights and of their squares over [begin, end), by the same partial sums.
template <class T>
inline void weight_sums(const T* w, std::int64_t count, T& sw, T& sw2) {
  T out[2];
  run_sums<T, 2, false, false>(w, nullptr, count, T(0), out);
  sw = out[0];
  sw2 = out[1];
}

// ---- Fast ---------------------------------------------------------------------------------------
// Raw sums of orders 1..kLevel+1. Between calls the vectors hold averages: multiplied by W at
// entry, divided by the new W at exit.
template <class T, bool kCols, bool kWeighted, int kLevel>
int fast_kernel(const KernelArgs<T>& a) {
  constexpr int K = kLevel + 1;
  const std::int64_t p = a.p, n = a.n, count = a.end - a.begin;
  if (count <= 0) return 0;
  T W = a.acc[0];
  T* out[4] = {a.v[kMean], a.v[kRaw2], a.v[kRaw3], a.v[kRaw4]};
  if (W > T(0))
    for (int k = 0; k < K; ++k)
      for (std::int64_t v = 0; v < p; ++v) out[k][v] = out[k][v] * W;
  T sw, sw2;
  if constexpr (kWeighted) {
    weight_sums(a.w + a.begin, count, sw, sw2);
  } else {
    sw = static_cast<T>(count);
    sw2 = sw;
  }
  if constexpr (kCols) {
    for (std::int64_t i = a.begin; i < a.end; ++i) {
      const T* xo = a.x + i * p;
      const vec<T> wv = splat(kWeighted ? a.w[i] : T(1));
      over_lanes<T>(p, [&](std::int64_t v, int c) {
        const vec<T> x = ld(xo + v, c);
        vec<T> pw = x;
        for (int k = 0; k < K; ++k) {
          if (k > 0) pw = pw * x;
          st(out[k] + v, ld(out[k] + v, c) + (kWeighted ? wv * pw : pw), c);
        }
      });
    }
  } else {
    for (std::int64_t v = 0; v < p; ++v) {
      T s[K];
      run_sums<T, K, kWeighted, false>(a.x + v * n + a.begin, a.w + (a.w ? a.begin : 0), count,
                                       T(0), s);
      for (int k = 0; k < K; ++k) out[k][v] = out[k][v] + s[k];
    }
  }
  a.acc[0] = W + sw;
  a.acc[1] = a.acc[1] + sw2;
  W = a.acc[0];
  if (W > T(0)) {
    const T rw = T(1) / W;
    for (int k = 0; k < K; ++k)
      for (std::int64_t v = 0; v < p; ++v) out[k][v] = out[k][v] * rw;
  }
  return 0;
}

// ---- User mean ----------------------------------------------------------------------------------
// Central sums of w d^k, d = x - (caller's mean), for k = 2..kLevel+2 (all three at level 3,
// where the raw sums also run as in the fast kernels). The mean is read only.
template <class T, bool kCols, bool kWeighted, int kLevel>
int user_mean_kernel(const KernelArgs<T>& a) {
  constexpr int KC = kLevel >= 2 ? 3 : kLevel + 1;  // central orders kept: 2..KC+1
  const std::int64_t p = a.p, n = a.n, count = a.end - a.begin;
  if (count <= 0) return 0;
  const T Wold = a.acc[0];
  T sw, sw2;
  if constexpr (kWeighted) {
    weight_sums(a.w + a.begin, count, sw, sw2);
  } else {
    sw = static_cast<T>(count);
    sw2 = sw;
  }
  a.acc[0] = Wold + sw;
  a.acc[1] = a.acc[1] + sw2;
  const T* mean = a.v[kMean];
  T* cen[3] = {a.v[kCen2], a.v[kCen3], a.v[kCen4]};
  if constexpr (kCols) {
    for (std::int64_t i = a.begin; i < a.end; ++i) {
      const T* xo = a.x + i * p;
      const vec<T> wv = splat(kWeighted ? a.w[i] : T(1));
      over_lanes<T>(p, [&](std::int64_t v, int c) {
        const vec<T> d = ld(xo + v, c) - ld(mean + v, c);
        vec<T> pw = d * d;
        for (int k = 0; k < KC; ++k) {
          if (k > 0) pw = pw * d;
          st(cen[k] + v, ld(cen[k] + v, c) + (kWeighted ? wv * pw : pw), c);
        }
      });
    }
  } else {
    for (std::int64_t v = 0; v < p; ++v) {
      T s[KC + 1];
      run_sums<T, KC + 1, kWeighted, true>(a.x + v * n + a.begin, a.w + (a.w ? a.begin : 0), count,
                                           mean[v], s);
      for (int k = 0; k < KC; ++k) cen[k][v] = cen[k][v] + s[k + 1];
    }
  }
  if constexpr (kLevel == 3) {
    // Raw moments 2..4 as running averages; the mean slot is the caller's and is not touched.
    T* raw[3] = {a.v[kRaw2], a.v[kRaw3], a.v[kRaw4]};
    if (Wold > T(0))
      for (int k = 0; k < 3; ++k)
        for (std::int64_t v = 0; v < p; ++v) raw[k][v] = raw[k][v] * Wold;
    for (std::int64_t v = 0; v < p; ++v) {
      T s[4];
      if constexpr (kCols) {
        s[1] = s[2] = s[3] = T(0);
        for (std::int64_t i = a.begin; i < a.end; ++i) {
          const T x = a.x[i * p + v], wt = kWeighted ? a.w[i] : T(1);
          const T x2 = x * x, x3 = x2 * x;
          s[1] = s[1] + (kWeighted ? wt * x2 : x2);
          s[2] = s[2] + (kWeighted ? wt * x3 : x3);
          s[3] = s[3] + (kWeighted ? wt * (x3 * x) : x3 * x);
        }
      } else {
        run_sums<T, 4, kWeighted, false>(a.x + v * n + a.begin, a.w + (a.w ? a.begin : 0), count,
                                         T(0), s);
      }
      for (int k = 0; k < 3; ++k) raw[k][v] = raw[k][v] + s[k + 1];
    }
    const T Wn = a.acc[0];
    if (Wn > T(0)) {
      const T rw = T(1) / Wn;
      for (int k = 0; k < 3; ++k)
        for (std::int64_t v = 0; v < p; ++v) raw[k][v] = raw[k][v] * rw;
    }
  }
  return 0;
}

// ---- The table ----------------------------------------------------------------------------------
// One pass: index = cols*16 + weighted*8 + level*2 + matrix; fast: 32 + cols*8 + weighted*4 +
// level; user mean: 48 + the same.
template <class T>
struct KernelTable {
  Kernel<T> k[64];
};

template <class T, int I>
constexpr Kernel<T> table_entry() {
  if constexpr (I < 32) {
    return &one_pass_kernel<T, (I & 16) != 0, (I & 8) != 0, (I >> 1) & 3, (I & 1) != 0>;
  } else if constexpr (I < 48) {
    return &fast_kernel<T, (I & 8) != 0, (I & 4) != 0, I & 3>;
  } else {
    return &user_mean_kernel<T, (I & 8) != 0, (I & 4) != 0, I & 3>;
  }
}

template <class T, int... I>
constexpr KernelTable<T> make_table(std::integer_sequence<int, I...>) {
  return KernelTable<T>{{table_entry<T, I>()...}};
}

template <class T>
inline constexpr KernelTable<T> kKernels = make_table<T>(std::make_integer_sequence<int, 64>{});

inline constexpr int one_pass_index(bool cols, bool weighted, int level, bool matrix) {
  return (cols ? 16 : 0) + (weighted ? 8 : 0) + level * 2 + (matrix ? 1 : 0);
}
inline constexpr int fast_index(bool cols, bool weighted, int level) {
  return 32 + (cols ? 8 : 0) + (weighted ? 4 : 0) + level;
}
inline constexpr int user_mean_index(bool cols, bool weighted, int level) {
  return 48 + (cols ? 8 : 0) + (weighted ? 4 : 0) + level;
}

}  // namespace tvx::TVX_VNS::ss
