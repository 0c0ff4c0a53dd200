// Vector designs of Exp and Expm1 with memory tables of 2^(j/N), for the SSE2, SSE4.2 and AVX2
// variants. Each is a template on the element type and the accuracy level; where the variant has
// a fused multiply-add (AVX2) every multiply-add of the design is fused.
//
// Reduction: t = x * N/ln2 + 1.5*2^p puts m = round(x N / ln2) in the low bits of t, with
// n = t - 1.5*2^p = m as a float value; r = x - n ln2/N in two parts, |r| <= ln2/(2N). With
// m = k N + j, exp(x) = 2^k * 2^(j/N) * exp(r). The power 2^k is added to the exponent field by
// integer addition of t's bits shifted into place: no multiplication, no conversion.
// These paths assume the lane is in range (|x| under the table limit), where 2^(j/N) exp(r) >= 1
// whenever k is at its lowest, so the result never lands in the subnormal range.
#pragma once

#include "simd/simd_ops.h"
#include "vector/kernels/exp_log/exp_common.h"

namespace tvx::TVX_VNS::exp_detail {

using simd::ivec;
using simd::vec;

// Parameters of one table design. kTable holds pairs (high, low) if kPairs, else high parts
// with a stride of kStride elements. Poly c2, c3, ... of q(r) = r + r^2 (c2 + c3 r + ...).
template <class T, Acc A>
struct ExpTab;

// HA, double: N = 64, high and low parts, degree 5. Polynomial error below 2^-64 on
// |r| <= ln2/128.
template <>
struct ExpTab<double, Acc::HA> {
  static constexpr int kLogN = 6;
  static constexpr bool kPairs = true, kTwoPart = true;
  static constexpr const double* kTable = kExp2Pairs64;
  static constexpr double kInvL = d_bits(0x40571547652B82FE);
  static constexpr double kL1 = d_bits(0x3F862E42FEFA0000), kL2 = d_bits(0x3D1CF79ABC9E3B3A);
  static constexpr double kPoly[4] = {d_bits(0x3FDFFFFFFFFFDB3B), d_bits(0x3FC555555555653E),
                                      d_bits(0x3FA555573F218B93), d_bits(0x3F8111112D9F549B)};
};
// LA, double: N = 1024, one part, degree 3 on |r| <= ln2/2048 (error about 2^-57).
template <>
struct ExpTab<double, Acc::LA> {
  static constexpr int kLogN = 10;
  static constexpr bool kPairs = false, kTwoPart = true;
  static constexpr int kStride = 1;
  static constexpr const double* kTable = kExp2Tab1024;
  static constexpr double kInvL = d_bits(0x40971547652B82FE);
  static constexpr double kL1 = d_bits(0x3F462E42FEC00000), kL2 = d_bits(0x3D5D1CF79ABC9E3B);
  static constexpr double kPoly[2] = {d_bits(0x3FE0000001EBFBE0), d_bits(0x3FC5555555555556)};
};
// EP, double: N = 128, one part, degree 2 (error about 2^-30), single-part reduction.
template <>
struct ExpTab<double, Acc::EP> {
  static constexpr int kLogN = 7;
  static constexpr bool kPairs = false, kTwoPart = false;
  static constexpr int kStride = 2;
  static constexpr const double* kTable = kExp2Pairs128;
  static constexpr double kInvL = d_bits(0x40671547652B82FE);
  static constexpr double kL1 = d_bits(0x3F762E42FEFA39EF), kL2 = 0.0;
  static constexpr double kPoly[1] = {d_bits(0x3FDFFFFC2808F7E8)};
};
// HA, single: N = 128, high and low parts, q = r + r^2/2 (error below 2^-28 on ln2/256).
template <>
struct ExpTab<float, Acc::HA> {
  static constexpr int kLogN = 7;
  static constexpr bool kPairs = true, kTwoPart = true;
  static constexpr const float* kTable = kExp2fPairs128;
  static constexpr float kInvL = f_bits(0x4338AA3B);
  static constexpr float kL1 = f_bits(0x3BB18000), kL2 = f_bits(0xB5DE8083);
  static constexpr float kPoly[1] = {0.5f};
};

template <class T>
inline constexpr T kShifter = sizeof(T) == 8 ? T(d_bits(0x4338000000000000))
                                             : T(f_bits(0x4B400000));

// The reduced argument and the table entry of one register.
template <class T>
struct Reduced {
  vec<T> t;   // carries m in its low bits
  vec<T> r;   // reduced argument
  vec<T> th;  // 2^(j/N), high part
  vec<T> tl;  // low part (zero for one-part tables)
};

template <class T, class P>
inline Reduced<T> reduce(const vec<T>& x) {
  using V = vec<T>;
  Reduced<T> z;
  const V shift(kShifter<T>);
  z.t = simd::madd(x, V(P::kInvL), shift);
  const V n = z.t - shift;
  if constexpr (P::kTwoPart) {
    z.r = simd::madd(n, V(-P::kL2), simd::madd(n, V(-P::kL1), x));
  } else {
    z.r = simd::madd(n, V(-P::kL1), x);
  }
  const ivec<T> j = simd::as_ints(z.t) & ivec<T>((1 << P::kLogN) - 1);
  if constexpr (P::kPairs) {
    simd::lookup_pair(P::kTable, j, z.th, z.tl);
  } else {
    z.th = simd::lookup(P::kTable, P::kStride == 1 ? j : j + j);
    z.tl = V(T(0));
  }
  return z;
}

// Bits of 2^k placed in the exponent field (sign bit included, taken modulo its width).
template <class T, int kLogN>
inline ivec<T> exponent_bits(const vec<T>& t) {
  using I = typename simd::int_of<T>::type;
  constexpr int kShift = Limits<T>::kMantBits - kLogN;
  constexpr I kMask =
      sizeof(T) == 8 ? I(std::int64_t(0xFFF0000000000000ull)) : I(std::int32_t(0xFF800000u));
  return (simd::as_ints(t) << kShift) & ivec<T>(kMask);
}

// exp(x) for lanes in range.
template <class T, Acc A>
inline vec<T> exp_table(const vec<T>& x) {
  using P = ExpTab<T, A>;
  using V = vec<T>;
  const Reduced<T> z = reduce<T, P>(x);
  const V r2 = z.r * z.r;
  const V p = simd::horner(z.r, P::kPoly);
  const V q = simd::madd(p, r2, z.r);
  V y;
  if constexpr (P::kPairs) {
    y = simd::madd(q, z.th, z.tl) + z.th;
  } else {
    y = simd::madd(z.th, q, z.th);
  }
  return simd::from_bits<T>(simd::as_ints(y) + exponent_bits<T, P::kLogN>(z.t));
}

#if TVX_VARIANT_ID == 3
// ---- double on AVX2: a four-entry table held in registers -------------------------------------
// m = round(4 x / ln2) through the shifter, r = x - m ln2/4 (|r| <= ln2/8), m = 4k + j. The table
// 2^(j/4) (high and low parts, the AVX-512 table's every fourth entry) sits in one register each
// and is read by vpermps with the index pair (2j, 2j + 1) in each lane, so no gather runs. The
// polynomial p(r) ~ exp(r) - 1 on [-ln2/8, ln2/8] (tools/fit_exp_poly.py, 4-entry fits): HA and
// LA degree 8, 2^-56.4 (degree 7 is 2^-49.4, above 4 ulps), LA without the low parts; EP degree
// 4, 2^-27.5, with a one-part reduction. 2^k joins by integer addition to the exponent field, as in
// exp_table.
template <Acc A>
struct ExpReg4Poly;
template <>
struct ExpReg4Poly<Acc::HA> {
  static constexpr double kC[8] = {
      0x1.fffffffffffffp-1, 0x1.0000000000000p-1,  0x1.5555555557e5cp-3,  0x1.55555555565bep-5,
      0x1.111110a654945p-7, 0x1.6c16c116b39d0p-10, 0x1.a03038b1c9ec6p-13, 0x1.a02bc735a2addp-16};
};
template <>
struct ExpReg4Poly<Acc::LA> : ExpReg4Poly<Acc::HA> {};
template <>
struct ExpReg4Poly<Acc::EP> {
  static constexpr double kC[4] = {0x1.fffffe07a4949p-1, 0x1.ffffff57e3733p-2, 0x1.5576232bf0774p-3,
                                   0x1.556b33ac5dc6dp-5};
};

// The entries of a four-double register table at the lanes' indices (j in t's low bits).
inline __m256d reg4_lookup(__m256 table, __m256i pairs) {
  return _mm256_castps_pd(_mm256_permutevar8x32_ps(table, pairs));
}
inline __m256 reg4_table(const double* every_fourth) {
  return _mm256_castpd_ps(
      _mm256_set_pd(every_fourth[12], every_fourth[8], every_fourth[4], every_fourth[0]));
}

template <Acc A>
inline vec<double> exp_d_reg4(const vec<double>& x) {
  using V = vec<double>;
  constexpr const double* c = ExpReg4Poly<A>::kC;
  const V shift(kShifter<double>);
  const V t = simd::fma(x, V(0x1.71547652b82fep+2), shift);  // 4/ln2
  const V n = t - shift;
  V r;
  if constexpr (A == Acc::EP) {
    r = simd::fnma(n, V(0x1.62e42fefa39efp-3), x);
  } else {
    // ln2/4 = L1 + L2, L1 with 21 trailing zeros: n L1 is exact for |n| < 2^21.
    r = simd::fnma(n, V(0x1.a39ef35793c76p-35), simd::fnma(n, V(0x1.62e42fee00000p-3), x));
  }
  // Index pairs (2j, 2j + 1) from the low word of t; vpermps reads the low three bits.
  const __m256i lo_words = _mm256_shuffle_epi32(_mm256_castpd_si256(t), 0xA0);
  const __m256i pairs =
      _mm256_add_epi32(_mm256_add_epi32(lo_words, lo_words), _mm256_set1_epi64x(1ll << 32));
  const V th(reg4_lookup(reg4_table(kExp2Hi16), pairs));
  const V r2 = r * r;
  V p;
  if constexpr (A == Acc::EP) {
    p = simd::fma(r2, simd::fma(V(c[3]), r, V(c[2])), simd::fma(V(c[1]), r, V(c[0]))) * r;
  } else if constexpr (A == Acc::LA) {
    p = simd::horner(r, ExpReg4Poly<A>::kC) * r;
  } else {
    const V r4 = r2 * r2;
    const V q01 = simd::fma(V(c[1]), r, V(c[0]));
    const V q23 = simd::fma(V(c[3]), r, V(c[2]));
    const V q45 = simd::fma(V(c[5]), r, V(c[4]));
    const V q67 = simd::fma(V(c[7]), r, V(c[6]));
    const V q = simd::fma(r4, simd::fma(r2, q67, q45), simd::fma(r2, q23, q01));
    p = q * r;
  }
  V y;
  if constexpr (A == Acc::HA) {
    const V tl(reg4_lookup(reg4_table(kExp2Lo16), pairs));
    y = th + simd::fma(th, p, tl);
  } else {
    y = simd::fma(th, p, th);
  }
  return simd::from_bits<double>(simd::as_ints(y) + exponent_bits<double, 2>(t));
}
#endif

// ---- Expm1 --------------------------------------------------------------------------------------
// N = 128 with high and low parts at every level: the final subtraction of 1 magnifies the
// absolute error of 2^(j/N) exp(r), so no level can drop the low parts. Levels differ in the
// degree of q and of the short-argument polynomial.
template <class T>
struct Expm1Tab;
template <>
struct Expm1Tab<double> {
  static constexpr int kLogN = 7;
  static constexpr bool kPairs = true, kTwoPart = true;
  static constexpr const double* kTable = kExp2Pairs128;
  static constexpr double kInvL = d_bits(0x40671547652B82FE);
  static constexpr double kL1 = d_bits(0x3F762E42FEF80000), kL2 = d_bits(0x3D41CF79ABC9E3B4);
};
template <>
struct Expm1Tab<float> {
  static constexpr int kLogN = 7;
  static constexpr bool kPairs = true, kTwoPart = true;
  static constexpr const float* kTable = kExp2fPairs128;
  static constexpr float kInvL = f_bits(0x4338AA3B);
  static constexpr float kL1 = f_bits(0x3BB18000), kL2 = f_bits(0xB5DE8083);
};

// Degrees (number of Taylor terms after r) by type and level: for q on |r| <= ln2/256 and for
// the short path x + x^2 (1/2 + x/6 + ...) on |x| < 2^-7. Above that bound the terms of
// (2^k T - 1) + 2^k T q are at most about the result, so their roundings stay small.
template <class T, Acc A>
struct Expm1Degrees {
  static constexpr int kTable = sizeof(T) == 8 ? (A == Acc::HA   ? 5
                                                  : A == Acc::LA ? 4
                                                                 : 2)
                                               : (A == Acc::EP ? 1 : 2);
  static constexpr int kShort = sizeof(T) == 8 ? (A == Acc::EP ? 3 : 6) : (A == Acc::EP ? 1 : 3);
  static constexpr T kShortBound = T(0x1p-7);
};

// c[0] + x (c[1] + ...) over the first `count` entries of c.
template <int kCount, class T>
inline vec<T> horner_n(const vec<T>& x, const T* c) {
  vec<T> acc(c[kCount - 1]);
  for (int k = kCount - 2; k >= 0; --k) acc = simd::madd(acc, x, vec<T>(c[k]));
  return acc;
}

// expm1(x) for |x| < the short bound: x + x^2 (1/2 + x/6 + ...), and below the tiny bound x
// itself, passed through arithmetic so that the flush mode and the sign of zero hold.
template <class T, int kTerms>
inline vec<T> expm1_short(const vec<T>& x) {
  using V = vec<T>;
  const V p = horner_n<kTerms>(x, kInvFact<T>);
  const V y = simd::madd(x * x, p, x);
  const V tiny = (x + x) * V(T(0.5));
  return simd::select(simd::abs(x) < V(Limits<T>::kExpm1Tiny), tiny, y);
}

// max(x, c) for x without NaN lanes, by compare and blend (GCC 12 warns falsely about the
// AVX-512 max intrinsics in some builds).
template <class T>
inline vec<T> at_least(const vec<T>& x, T c) {
  return simd::select(x < vec<T>(c), vec<T>(c), x);
}

// (hi - 1) + lo with the subtraction kept exact as a two-term sum.
template <class T>
inline vec<T> minus_one(const vec<T>& hi, const vec<T>& lo) {
  using V = vec<T>;
  const V m1(T(-1));
  const V u = hi + m1;
  const V hv = u - hi;
  const V err = (hi - (u - hv)) + (m1 - hv);
  return u + (lo + err);
}

// expm1(x) for x up to the table limit (any x below it, -infinity included).
template <class T, Acc A>
inline vec<T> expm1_table(const vec<T>& x) {
  using P = Expm1Tab<T>;
  using D = Expm1Degrees<T, A>;
  using V = vec<T>;
  const V xc = at_least(x, Limits<T>::kExpm1Saturate);
  const Reduced<T> z = reduce<T, P>(xc);
  const V q = simd::madd(z.r * z.r, horner_n<D::kTable>(z.r, kInvFact<T>), z.r);
  // 2^k as a number: its exponent bits added to those of 1.
  const V scale = simd::from_bits<T>(simd::as_ints(V(T(1))) + exponent_bits<T, P::kLogN>(z.t));
  const V hi = z.th * scale;
  const V lo = simd::madd(z.th, q, z.tl) * scale;
  const V big = minus_one(hi, lo);
  const V small = expm1_short<T, D::kShort>(xc);
  return simd::select(simd::abs(x) < V(D::kShortBound), small, big);
}

// ---- single-precision designs without a table
// ---------------------------------------------------- LA: n = round(x log2 e), r = x - n ln2 in
// two parts, exp(r) by a degree-5 polynomial on |r| <= ln2/2, 2^n added to the exponent.
inline vec<float> exp_f_notable(const vec<float>& x) {
  using V = vec<float>;
  const V shift(f_bits(0x4B400000));
  const V t = simd::madd(x, V(f_bits(0x3FB8AA3B)), shift);
  const V n = t - shift;
  const V r = simd::madd(n, V(-f_bits(0x35BFBE8E)), simd::madd(n, V(-f_bits(0x3F317200)), x));
  static constexpr float kPoly[6] = {1.0f,
                                     f_bits(0x3F7FFFFE),
                                     f_bits(0x3EFFFF34),
                                     f_bits(0x3E2AACAC),
                                     f_bits(0x3D2B8392),
                                     f_bits(0x3C07D9FE)};
  const V p = simd::horner(r, kPoly);
  return simd::from_bits<float>(simd::as_ints(p) + (simd::as_ints(t) << 23));
}

// EP: f = x log2 e - round(x log2 e), 2^f by a degree-3 polynomial on |f| <= 1/2.
inline vec<float> exp_f_pow2(const vec<float>& x) {
  using V = vec<float>;
  const V shift(f_bits(0x4B400000));
  const V u = x * V(f_bits(0x3FB8AA3B));
  const V t = u + shift;
  const V f = u - (t - shift);
  static constexpr float kPoly[4] = {1.0f, f_bits(0x3F317422), f_bits(0x3E77D66A),
                                     f_bits(0x3D63582B)};
  const V p = simd::horner(f, kPoly);
  return simd::from_bits<float>(simd::as_ints(p) + (simd::as_ints(t) << 23));
}

// ---- single precision without a table, for variants with a fused multiply-add
// n = round(x log2 e) through the shifter 1.5 * 2^23, r = x - n ln2 (two fused steps, one at EP),
// so |r| <= ln2/2 up to rounding; exp(r) by a polynomial whose constant term is 1, so exp(0) is
// exactly 1. In single the polynomial is short enough to cost less than a table read: less than
// a gather always, less than the AVX-512 register tables at LA and EP. (At HA, carrying the
// reduction's rounding costs more than the register tables with their low parts.)
// Coefficients from tools/fit_exp_poly.py (relative error of the rounded polynomial on
// [-ln2/2, ln2/2]): HA degree 6, 2^-28.3; LA degree 5, 2^-23.4; EP degree 3, 2^-13.3.
template <Acc A>
struct ExpfPoly;
template <>
struct ExpfPoly<Acc::HA> {
  static constexpr float kC[7] = {1.0f,           1.0f,          0x1.fffffcp-2f, 0x1.555492p-3f,
                                  0x1.5558acp-5f, 0x1.12398p-7f, 0x1.6a519ap-10f};
};
template <>
struct ExpfPoly<Acc::LA> {
  static constexpr float kC[6] = {1.0f,           0x1.fffff6p-1f, 0x1.fffdc6p-2f,
                                  0x1.555a7cp-3f, 0x1.573a2p-5f,  0x1.0fa1cp-7f};
};
template <>
struct ExpfPoly<Acc::EP> {
  static constexpr float kC[4] = {1.0f, 0x1.000cd6p+0f, 0x1.021d82p-1f, 0x1.5249fap-3f};
};

// exp(x) for |x| under the table range, by the polynomials above. The power 2^n goes in by
// vscalef on AVX-512, elsewhere by adding t's low bits (n) to the exponent field, which is exact
// here: in range, n = -126 only comes with r > 0, so the result stays normal.
template <Acc A>
inline vec<float> exp_f_poly(const vec<float>& x) {
  using V = vec<float>;
  const V shift(f_bits(0x4B400000));
  const V t = simd::fma(x, V(f_bits(0x3FB8AA3B)), shift);
  const V n = t - shift;
  constexpr const float* c = ExpfPoly<A>::kC;
  V y;
  if constexpr (A == Acc::EP) {
    y = simd::horner(simd::fnma(n, V(f_bits(0x3F317218)), x), ExpfPoly<A>::kC);
  } else if constexpr (A == Acc::LA) {
    const V r = simd::fnma(n, V(f_bits(0x35BFBE8E)), simd::fnma(n, V(f_bits(0x3F317200)), x));
    y = simd::horner(r, ExpfPoly<A>::kC);
  } else {
    // The rounding of r alone is worth up to 0.4 ulp of the result, so HA keeps what it lost:
    // r_lo (r1 - r is exact). exp(r + r_lo) = 1 + r + (r^2 q(r) + r_lo (1 + r)) to 2^-28, with
    // 1 + r split exactly into hi + e and q = c2 + ... + c6 r^4 in Estrin's order, which
    // shortens the chain of dependent steps.
    const V r1 = simd::fnma(n, V(f_bits(0x3F317200)), x);
    const V l2(f_bits(0x35BFBE8E));
    const V r = simd::fnma(n, l2, r1);
    const V r_lo = simd::fnma(n, l2, r1 - r);
    const V r2 = r * r;
    const V q01 = simd::fma(V(c[3]), r, V(c[2]));
    const V q23 = simd::fma(V(c[5]), r, V(c[4]));
    const V q = simd::fma(simd::fma(V(c[6]), r2, q23), r2, q01);
    const V u = simd::fma(r2, q, simd::fma(r, r_lo, r_lo));
    const V one(1.0f);
    const V hi = one + r;
    const V e = (one - hi) + r;
    y = hi + (e + u);
  }
#if TVX_VARIANT_ID == 5
  return simd::scalef(y, n);
#else
  return simd::from_bits<float>(simd::as_ints(y) + (simd::as_ints(t) << 23));
#endif
}

}  // namespace tvx::TVX_VNS::exp_detail
