// AVX-512 designs of Exp and Expm1: the table 2^(j/N) (N = 16 for double, 32 for single) lives
// in two registers and is read with a two-source permute, and vscalef applies the power of two.
// Single Exp takes it at HA only: LA and EP do without a table (exp_f_poly in exp_table.h).
//
// Exp: t = x log2 e + C rounded toward zero, C = 1.5 * 2^p with its last place 1/N, so t's low
// bits hold j and n = t - C = floor(N x log2 e) / N; r = x - n ln2 in [0, ln2/N) in two fused
// parts; exp(x) = scalef(T_j + T_j p(r), n), scalef flooring n.
#pragma once

#include "simd/simd_ops.h"
#include "vector/kernels/exp_log/exp_common.h"
#include "vector/kernels/exp_log/exp_table.h"

namespace tvx::TVX_VNS::exp_detail {

template <class T>
struct Avx512Exp;
template <>
struct Avx512Exp<double> {
  // 1.5 * 2^48 + 1023: last place 2^-4.
  static constexpr double kShift = d_bits(0x42F8000000003FF0);
  static constexpr double kLog2e = d_bits(0x3FF71547652B82FE);
  static constexpr double kL1 = d_bits(0x3FE62E42FEFA39EF), kL2 = d_bits(0x3C7ABC9E3B39803F);
  static constexpr const double* kHi = kExp2Hi16;
  static constexpr const double* kLo = kExp2Lo16;
  static constexpr int kHalf = 8;
  // Upper limit of |x| for the vector path: 707.7033.
  static constexpr double kRange = d_bits(0x40861DA04CBAFE44);
};
template <>
struct Avx512Exp<float> {
  // 1.5 * 2^18: last place 2^-5.
  static constexpr float kShift = f_bits(0x48C00000);
  static constexpr float kLog2e = f_bits(0x3FB8AA3B);
  static constexpr float kL1 = f_bits(0x3F317200), kL2 = f_bits(0x35BFBE8E);
  static constexpr const float* kHi = kExp2fHi32;
  static constexpr const float* kLo = kExp2fLo32;
  static constexpr int kHalf = 16;
  static constexpr float kRange = f_bits(0x42AEAC4F);
};

// p(r) ~ exp(r) - 1 on [0, ln2/N) by type and level (tools/fit_exp_poly.py unless noted). In
// single only HA takes this design; LA and EP have one without a table (exp_f_poly in
// exp_table.h).
template <class T, Acc A>
inline vec<T> avx512_exp_poly(const vec<T>& r) {
  using V = vec<T>;
  if constexpr (sizeof(T) == 4) {
    static_assert(A == Acc::HA, "single LA and EP Exp do not use the register tables");
    // Degree 3, error 2^-30.7.
    static constexpr float c[3] = {1.0f, 0x1.fffd1ap-2f, 0x1.581e96p-3f};
    return simd::horner(r, c) * r;
  } else {
    const V r2 = r * r;
    const V r3 = r2 * r;
    if constexpr (A == Acc::LA) {
      // Degree 6, r's coefficient 1; error about 2^-54. By Horner: one step fewer than the
      // split form, and LA's rounding allows the longer chain.
      static constexpr double c[5] = {d_bits(0x3FE0000000002622), d_bits(0x3FC5555554B508A2),
                                      d_bits(0x3FA555564BB4F5F0), d_bits(0x3F81106603D97C00),
                                      d_bits(0x3F572EB5EF0D213D)};
      return simd::fma(r2, simd::horner(r, c), r);
    } else if constexpr (A == Acc::HA) {
      // Degree 6, error 2^-55.
      const V hi = simd::fma(V(0x1.72eaf90a1d9fcp-10), r, V(0x1.1106619ebcc2bp-7));
      const V mid = simd::fma(V(0x1.555564b7f6b18p-5), r, V(0x1.5555554b53da6p-3));
      const V lo = simd::fma(V(0x1.0000000002610p-1), r2, V(0x1.ffffffffffffap-1) * r);
      return simd::fma(r3, simd::fma(r2, hi, mid), lo);
    } else {
      // Degree 3, error 2^-27.7.
      const V c = simd::fma(V(0x1.5aeed69301eb3p-3), r, V(0x1.fff452dae40ecp-2));
      return simd::fma(r2, c, V(0x1.000001cca5b83p+0) * r);
    }
  }
}

// exp(x) for |x| below the vector range.
template <class T, Acc A>
inline vec<T> exp_avx512(const vec<T>& x) {
  using P = Avx512Exp<T>;
  using V = vec<T>;
  const V shift(P::kShift);
  const V t = simd::fma_rz(x, V(P::kLog2e), shift);
  const V n = t - shift;
  const V r = simd::fnma(n, V(P::kL2), simd::fnma(n, V(P::kL1), x));
  const V p = avx512_exp_poly<T, A>(r);
  const ivec<T> j = simd::as_ints(t);
  const V th = simd::permute2(simd::load_row(P::kHi), j, simd::load_row(P::kHi + P::kHalf));
  V y;
  if constexpr (A == Acc::HA) {
    const V tl = simd::permute2(simd::load_row(P::kLo), j, simd::load_row(P::kLo + P::kHalf));
    y = th + simd::fma(th, p, tl);
  } else {
    y = simd::fma(th, p, th);
  }
  return simd::scalef(y, n);
}

// ---- Expm1 --------------------------------------------------------------------------------------
// Same tables with the reduction rounded to nearest, so |r| <= ln2/(2N); the low parts are kept
// at every level (the subtraction of 1 magnifies their absence). s = scalef(T_j, n) and
// expm1 = (s - 1) + s p + scalef(Tlo_j, n), summed exactly but for the last additions. |x|
// below 2^-4 takes the short Taylor path.
template <class T, Acc A>
struct Avx512Expm1Degrees {
  // Taylor terms after r in p, and after x in the short path.
  static constexpr int kTable = sizeof(T) == 8 ? (A == Acc::EP   ? 3
                                                  : A == Acc::LA ? 6
                                                                 : 7)
                                               : (A == Acc::EP   ? 1
                                                  : A == Acc::LA ? 2
                                                                 : 3);
  static constexpr int kShort = sizeof(T) == 8 ? (A == Acc::EP ? 4 : 8) : (A == Acc::EP ? 2 : 4);
  static constexpr T kShortBound = T(0x1p-4);
};

template <class T, Acc A>
inline vec<T> expm1_avx512(const vec<T>& x) {
  using P = Avx512Exp<T>;
  using D = Avx512Expm1Degrees<T, A>;
  using V = vec<T>;
  const V xc = at_least(x, Limits<T>::kExpm1Saturate);
  const V shift(P::kShift);
  const V t = simd::fma(xc, V(P::kLog2e), shift);
  const V n = t - shift;
  const V r = simd::fnma(n, V(P::kL2), simd::fnma(n, V(P::kL1), xc));
  const V p = simd::fma(r * r, horner_n<D::kTable>(r, kInvFact<T>), r);
  const ivec<T> j = simd::as_ints(t);
  const V th = simd::permute2(simd::load_row(P::kHi), j, simd::load_row(P::kHi + P::kHalf));
  const V tl = simd::permute2(simd::load_row(P::kLo), j, simd::load_row(P::kLo + P::kHalf));
  const V s = simd::scalef(th, n);
  // (s - 1) + s p + s_lo, with the subtraction, the product and their sum kept exact as two-term
  // sums: both terms can be several times the result just above the short path.
  const V ph = s * p;
  const V pl = simd::fms(s, p, ph);
  const V m1(T(-1));
  const V u = s + m1;
  const V ue = (s - (u - (u - s))) + (m1 - (u - s));
  const V v = u + ph;
  const V ve = (u - (v - (v - u))) + (ph - (v - u));
  const V big = v + (((ue + ve) + pl) + simd::scalef(tl, n));
  const V small = expm1_short<T, D::kShort>(xc);
  return simd::select(simd::abs(x) < V(D::kShortBound), small, big);
}

}  // namespace tvx::TVX_VNS::exp_detail
