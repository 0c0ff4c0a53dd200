// What the power and root kernels share: accuracy levels, exact sums and products of two
// doubles, the widening of single-precision registers to double and back, and the generated
// tables (pow_tables.inc, from tools/gen_pow_tables.cpp).
#pragma once

#include <bit>
#include <cstdint>
#include <limits>

#include "simd/simd_ops.h"

namespace tvx::TVX_VNS::pow_detail {

enum class Acc { LA, HA, EP };

#include "vector/kernels/pow/pow_tables.inc"

using simd::vec;
using VD = vec<double>;
using VF = vec<float>;
using UD = simd::uvec<double>;

constexpr double d_bits(std::uint64_t b) {
  return std::bit_cast<double>(b);
}

template <class T>
inline constexpr T kInf = std::numeric_limits<T>::infinity();

// Hides a value from the optimiser, so that a product meant to overflow or underflow is made at
// run time and raises its flag.
template <class T>
inline T opaque(T v) {
  asm volatile("" : "+x"(v));
  return v;
}

// NaN from an invalid operation (raises the invalid flag).
template <class T>
inline T make_nan() {
  const T z = opaque(T(0));
  return z / z;
}

// ---- exact sums and products --------------------------------------------------------------------
struct DD {
  VD hi, lo;
};

// s + e = a + b exactly, s = fl(a + b) (any order of magnitudes).
inline DD two_sum(const VD& a, const VD& b) {
  const VD s = a + b;
  const VD bb = s - a;
  const VD e = (a - (s - bb)) + (b - bb);
  return {s, e};
}

// p + e = a * b exactly (barring underflow of e), p = fl(a * b). Without a fused multiply-add,
// by Dekker's splitting; |a| and |b| must stay below 2^995 there.
inline DD two_prod(const VD& a, const VD& b) {
  const VD p = a * b;
  if constexpr (simd::kHasFma) {
    return {p, simd::fms(a, b, p)};
  } else {
    const VD k(134217729.0);  // 2^27 + 1
    const VD ta = a * k, tb = b * k;
    const VD ah = ta - (ta - a), bh = tb - (tb - b);
    const VD al = a - ah, bl = b - bh;
    return {p, ((ah * bh - p) + ah * bl + al * bh) + al * bl};
  }
}

// r = m * c - 1 to within a few units of 2^-80, for m in [1/2, 2) and a reciprocal c of at most
// 26 significant bits with m * c near 1. m is split after 26 significant bits, so that mh * c is
// exact and mh * c - 1 too (the product lies in [1/2, 2]).
inline DD mul_minus_one(const VD& m, const VD& c) {
  const VD mh = simd::from_bits<double>(simd::as_bits(m) & UD(0xFFFFFFFFF8000000ull));
  const VD r1 = mh * c - VD(1.0);
  return two_sum(r1, (m - mh) * c);
}

// The same in one part, for the levels that keep no low parts.
inline VD mul_minus_one_fast(const VD& m, const VD& c) {
  if constexpr (simd::kHasFma) {
    return simd::fms(m, c, VD(1.0));
  } else {
    return mul_minus_one(m, c).hi;
  }
}

// Lanes of unsigned bits read as table offsets.
inline simd::ivec<double> as_index(const UD& u) {
  return xsimd::bitwise_cast<simd::ivec<double>>(u);
}

// Small non-negative integers held in the low bits of a lane, as doubles (exact below 2^51).
inline VD small_int_to_double(const UD& i) {
  return simd::from_bits<double>(i | UD(0x4330000000000000ull)) - VD(0x1p52);
}

// ---- single precision through double
// --------------------------------------------------------------
struct WideF {
  VD lo, hi;  // lanes 0 .. L/2 - 1 and L/2 .. L - 1 of a single-precision register
};

inline WideF widen(const VF& v) {
#if TVX_VARIANT_ID == 5
  return {VD(_mm512_cvtps_pd(_mm512_castps512_ps256(v))),
          VD(_mm512_cvtps_pd(_mm512_extractf32x8_ps(v, 1)))};
#elif TVX_VARIANT_ID == 3
  return {VD(_mm256_cvtps_pd(_mm256_castps256_ps128(v))),
          VD(_mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)))};
#else
  return {VD(_mm_cvtps_pd(v)), VD(_mm_cvtps_pd(_mm_movehl_ps(v, v)))};
#endif
}

inline VF narrow(const VD& lo, const VD& hi) {
#if TVX_VARIANT_ID == 5
  return VF(
      _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_cvtpd_ps(lo)), _mm512_cvtpd_ps(hi), 1));
#elif TVX_VARIANT_ID == 3
  return VF(
      _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(lo)), _mm256_cvtpd_ps(hi), 1));
#else
  return VF(_mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi)));
#endif
}

inline constexpr int kHalfF = simd::lanes<float> / 2;

// Runs a double-precision computation f(x, bad) -> VD on the two halves of a single register.
template <class F>
inline VF via_double(const VF& x, std::uint32_t& bad, F&& f) {
  const WideF w = widen(x);
  std::uint32_t b0 = 0, b1 = 0;
  const VD y0 = f(w.lo, b0);
  const VD y1 = f(w.hi, b1);
  bad = b0 | (b1 << kHalfF);
  return narrow(y0, y1);
}
template <class F>
inline VF via_double(const VF& x, const VF& z, std::uint32_t& bad, F&& f) {
  const WideF w = widen(x), v = widen(z);
  std::uint32_t b0 = 0, b1 = 0;
  const VD y0 = f(w.lo, v.lo, b0);
  const VD y1 = f(w.hi, v.hi, b1);
  bad = b0 | (b1 << kHalfF);
  return narrow(y0, y1);
}

// Runs a vector computation on one element (lane 0 of a register holding x everywhere): the
// callouts use it for the range where they follow the vector path, so the bits agree.
template <class F>
inline double on_lane(double x, F&& f) {
  return f(VD(x)).get(0);
}

}  // namespace tvx::TVX_VNS::pow_detail
