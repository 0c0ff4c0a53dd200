// What the error-function kernels share: the generated grid tables and Taylor polynomials, the
// step from a grid point to the argument, exact products, and the widening of single lanes to
// double, through which the single kernels run the double designs.
#pragma once

#include <bit>
#include <cstdint>

#include "simd/simd_ops.h"

namespace tvx::TVX_VNS::special {

using simd::ivec;
using simd::vec;
using V = vec<double>;

#include "vector/kernels/erfgamma/erfgamma_tables.inc"

enum class Acc { LA, HA, EP };

constexpr double d_bits(std::uint64_t b) {
  return std::bit_cast<double>(b);
}

// A grid: its two tables and the polynomials of the full and the short step.
template <const double* kTabP, const double* kLoP, class Full, class Short>
struct Grid {
  static constexpr const double* kTab = kTabP;
  static constexpr const double* kLo = kLoP;
  using PolyFull = Full;
  using PolyShort = Short;
};
using ErfGrid = Grid<kErfTab, kErfLo, ErfPolyFull, ErfPolyShort>;
using ErfcGrid = Grid<kErfcTab, kErfcLo, ErfcPolyFull, ErfcPolyShort>;
using CdfGrid = Grid<kCdfTab, kCdfLo, CdfPolyFull, CdfPolyShort>;

// Scale of the erfc and normal-tail tables, and its inverse.
inline constexpr double kScale = 0x1p128;
inline constexpr double kUnscale = d_bits(0x37F0000000000000);  // 2^-128

template <class P>
constexpr int poly_offset(int a) {
  int s = 0;
  for (int i = 0; i < a; ++i) s += P::kNb[i];
  return s;
}

// Sum over b of c[a][b] z^b (from b0 on, divided by z^b0), by Horner's rule.
template <class P, int a, int b0 = 0>
inline V z_poly(const V& z) {
  constexpr int off = poly_offset<P>(a);
  constexpr int nb = P::kNb[a];
  V acc(P::kC[off + nb - 1]);
#pragma GCC unroll 16
  for (int b = nb - 2; b >= b0; --b) acc = simd::madd(acc, z, V(P::kC[off + b]));
  return acc;
}

template <class P, int a>
inline V w_horner(const V& w, const V& z, V acc) {
  if constexpr (a < 1) {
    return acc;
  } else {
    return w_horner<P, a - 1>(w, z, simd::madd(acc, w, z_poly<P, a>(z)));
  }
}

// P(w, z) - 1: the step's polynomial without its leading 1.
template <class P>
inline V p_minus_one(const V& w, const V& z) {
  constexpr int A = P::kA;
  V z0(0.0);
  if constexpr (P::kNb[0] > 1) z0 = z_poly<P, 0, 1>(z) * z;
  if constexpr (A == 1) {
    return z0;
  } else {
    const V acc = w_horner<P, A - 2>(w, z, z_poly<P, A - 1>(z));
    return simd::madd(acc, w, z0);
  }
}

// a * b = hi + lo exactly.
inline void two_prod(const V& a, const V& b, V& hi, V& lo) {
  hi = a * b;
  if constexpr (simd::kHasFma) {
    lo = simd::fms(a, b, hi);
  } else {
    const V c(134217729.0);  // 2^27 + 1
    const V ca = a * c, cb = b * c;
    const V ah = ca - (ca - a), bh = cb - (cb - b);
    const V al = a - ah, bl = b - bh;
    lo = ((ah * bh - hi) + ah * bl + al * bh) + al * bl;
  }
}

// The value at t (0 <= t within the grid) as hi + lo: value(x0) + kSign * derivative(x0) * r *
// P(x0 r, r^2) with x0 = t rounded to the grid of step 2^-7 and r = t - x0. Without kHa, only
// hi, from the rounded table and the full or short polynomial; with kHa, the product
// derivative * r exact, the low parts of the table, and the leading sum as a two-sum. The step
// also keeps derivative(x0), w and z, from which the inverses take the derivative at t.
struct Step {
  V hi, lo, d, w, z;
};

template <class G, int kSign, Acc A>
inline Step grid_value(const V& t) {
  const V shifter(d_bits(0x42C0000000000000));  // 2^45: the last place of t + 2^45 is 2^-7
  const V u = t + shifter;
  const V x0 = u - shifter;
  const V r = t - x0;
  const ivec<double> j = simd::as_ints(u) & ivec<double>(0xFFFF);
  Step st;
  V e;
  simd::lookup_pair(G::kTab, j, e, st.d);
  const V d = st.d;
  st.w = x0 * r;
  st.z = r * r;
  using P = std::conditional_t<A == Acc::EP, typename G::PolyShort, typename G::PolyFull>;
  const V p1 = p_minus_one<P>(st.w, st.z);
  if constexpr (A != Acc::HA) {
    const V s = simd::madd(r, p1, r);
    st.hi = kSign > 0 ? simd::madd(d, s, e) : e - d * s;
    st.lo = V(0.0);
  } else {
    V el, dl, ph, pl;
    simd::lookup_pair(G::kLo, j, el, dl);
    two_prod(d, r, ph, pl);
    const V small = simd::madd(ph, p1, simd::madd(dl, r, pl));
    if constexpr (kSign > 0) {
      st.hi = e + ph;
      st.lo = el + (small + (ph - (st.hi - e)));
    } else {
      st.hi = e - ph;
      st.lo = el + (((e - st.hi) - ph) - small);
    }
  }
  return st;
}

// c - (hi + lo) rounded once, for c >= hi.
inline V minus_from(double c, const V& hi, const V& lo) {
  const V cv(c);
  const V s = cv - hi;
  return s + (((cv - s) - hi) - lo);
}

// ---- single lanes through double ---------------------------------------------------------------
inline void widen(const vec<float>& f, V& lo, V& hi) {
#if TVX_VARIANT_ID == 5
  lo = V(_mm512_cvtps_pd(_mm512_castps512_ps256(f)));
  hi = V(_mm512_cvtps_pd(_mm256_castpd_ps(_mm512_extractf64x4_pd(_mm512_castps_pd(__m512(f)), 1))));
#elif TVX_VARIANT_ID == 3
  lo = V(_mm256_cvtps_pd(_mm256_castps256_ps128(f)));
  hi = V(_mm256_cvtps_pd(_mm256_extractf128_ps(f, 1)));
#else
  lo = V(_mm_cvtps_pd(f));
  hi = V(_mm_cvtps_pd(_mm_movehl_ps(f, f)));
#endif
}

inline vec<float> narrow(const V& lo, const V& hi) {
#if TVX_VARIANT_ID == 5
  const __m512d l = _mm512_castps_pd(_mm512_castps256_ps512(_mm512_cvtpd_ps(lo)));
  return vec<float>(
      _mm512_castpd_ps(_mm512_insertf64x4(l, _mm256_castps_pd(_mm512_cvtpd_ps(hi)), 1)));
#elif TVX_VARIANT_ID == 3
  return vec<float>(
      _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(lo)), _mm256_cvtpd_ps(hi), 1));
#else
  return vec<float>(_mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi)));
#endif
}

// Runs a double design over the lanes of a single register.
template <class F>
inline vec<float> through_double(const vec<float>& x, F&& f) {
  V lo, hi;
  widen(x, lo, hi);
  return narrow(f(lo), f(hi));
}

// Hides a value from the optimiser, so that an operation on it happens at run time: in the
// kernel's environment (flush mode, flags).
template <class T>
inline T opaque(T v) {
  asm volatile("" : "+x"(v));
  return v;
}

}  // namespace tvx::TVX_VNS::special
