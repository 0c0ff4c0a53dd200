// Scalar callouts of Exp and Expm1: one element in plain double or single arithmetic, special
// values, overflow and underflow included. They run for the lanes that the vector paths send
// away (NaN, infinities, arguments near or past the range limits) and in the same floating-point
// environment as the kernel, so the flush mode applies to them too.
#pragma once

#include <cstdint>
#include <limits>

#include "tvx_vector.h"
#include "vector/kernels/exp_log/exp_common.h"

namespace tvx::TVX_VNS::exp_detail {

// Hides a value from the optimiser so that an overflowing or underflowing product is computed
// at run time and raises its flags.
template <class T>
inline T opaque(T v) {
  asm volatile("" : "+x"(v));
  return v;
}

// exp(x) = 2^k * (hi + lo) with hi = 2^(j/64) and |lo| small, for |x| below about 746.
struct ExpParts {
  int k;
  double hi;
  double lo;
};

inline ExpParts exp_parts(double x) {
  constexpr double kInvL = d_bits(0x40571547652B82FE);   // 64 / ln 2
  constexpr double kShift = d_bits(0x4338000000000000);  // 1.5 * 2^52
  constexpr double kL1 = d_bits(0x3F862E42FEFA0000);     // ln 2 / 64, high part
  constexpr double kL2 = d_bits(0x3D1CF79ABC9E3B3A);     // ln 2 / 64, the rest
  // exp(r) - 1 - r on |r| <= ln2/128, degree 6, error below 2^-64.
  constexpr double c6 = d_bits(0x3F56C16A1C2A3FFD), c5 = d_bits(0x3F8111123AAF20D3),
                   c4 = d_bits(0x3FA5555555558FCC), c3 = d_bits(0x3FC55555555548F8);
  const double t = x * kInvL + kShift;
  const double n = t - kShift;
  const double r = (n * -kL1 + x) + n * -kL2;
  const std::int64_t m = static_cast<std::int64_t>(n);
  const int j = static_cast<int>(m & 63);
  const double th = kExp2Pairs64[2 * j];
  const double tl = kExp2Pairs64[2 * j + 1];
  const double p = r + r * r * (0.5 + r * (c3 + r * (c4 + r * (c5 + r * c6))));
  return ExpParts{static_cast<int>(m >> 6), th, th * p + tl};
}

// 2^e as a double, for -1022 <= e <= 1023.
inline double pow2(int e) {
  return std::bit_cast<double>(static_cast<std::uint64_t>(e + 1023) << 52);
}

inline int exp_callout(double x, double* res) {
  const std::uint64_t b = std::bit_cast<std::uint64_t>(x);
  const int ef = static_cast<int>((b >> 52) & 0x7FF);
  if (ef == 0x7FF) {
    *res = (x == -std::numeric_limits<double>::infinity()) ? 0.0 : x * x;
    return 0;
  }
  if (ef < 971) {  // |x| < 2^-52
    *res = 1.0 + x;
    return 0;
  }
  if (x > Limits<double>::kOverflow) {
    *res = opaque(0x1p1023) * 2.0;
    return KAZ_STATUS_OVERFLOW;
  }
  if (x < Limits<double>::kUnderflow) {
    *res = opaque(0x1p-1022) * 0x1p-1022;
    return KAZ_STATUS_UNDERFLOW;
  }
  const ExpParts e = exp_parts(x);
  if (x >= Limits<double>::kSubnormal) {
    if (e.k < 1024) {
      *res = (e.hi + e.lo) * pow2(e.k);
    } else {
      const double y = (e.hi + e.lo) * 0x1p1023;
      *res = y + y;
    }
    return 0;
  }
  // Subnormal result: the sum is formed as a normal number 2^60 higher, so that the only
  // rounding to the subnormal grid is the last multiplication.
  *res = ((e.hi + e.lo) * pow2(e.k + 60)) * 0x1p-60;
  return KAZ_STATUS_UNDERFLOW;
}

inline int exp_callout(float x, float* res) {
  const std::uint32_t b = std::bit_cast<std::uint32_t>(x);
  if (((b >> 23) & 0xFF) == 0xFF) {
    *res = (x == -std::numeric_limits<float>::infinity()) ? 0.0f : x * x;
    return 0;
  }
  if (x > Limits<float>::kOverflow) {
    *res = opaque(0x1p127f) * 2.0f;
    return KAZ_STATUS_OVERFLOW;
  }
  if (x < Limits<float>::kUnderflow) {
    *res = opaque(0x1p-126f) * 0x1p-126f;
    return KAZ_STATUS_UNDERFLOW;
  }
  // The double result has 29 bits to spare; the one rounding that matters is the conversion.
  double y;
  exp_callout(static_cast<double>(x), &y);
  *res = static_cast<float>(y);
  return x < Limits<float>::kSubnormal ? KAZ_STATUS_UNDERFLOW : 0;
}

// expm1 in double for any finite x below the overflow limit.
inline double expm1_finite(double x) {
  const double ax = x < 0 ? -x : x;
  if (ax < 0x1p-57) return (x + x) * 0.5;
  if (ax < 0x1p-8) {
    const double* c = kInvFact<double>;
    return x + x * x * (c[0] + x * (c[1] + x * (c[2] + x * (c[3] + x * c[4]))));
  }
  if (x < Limits<double>::kExpm1Saturate) return opaque(0x1p-60) - 1.0;
  const ExpParts e = exp_parts(x);
  if (e.k > 60) {
    double y;
    exp_callout(x, &y);
    return y;
  }
  // 2^k hi - 1 exactly as a sum of two doubles, then the small terms.
  const double s = pow2(e.k);
  const double h = e.hi * s;
  const double u = h - 1.0;
  const double hv = u - h;
  const double err = (h - (u - hv)) + (-1.0 - hv);
  return u + (e.lo * s + err);
}

inline int expm1_callout(double x, double* res) {
  const std::uint64_t b = std::bit_cast<std::uint64_t>(x);
  if (((b >> 52) & 0x7FF) == 0x7FF) {
    *res = (x == -std::numeric_limits<double>::infinity()) ? -1.0 : x * x;
    return 0;
  }
  if (x > Limits<double>::kOverflow) {
    *res = opaque(0x1p1023) * 2.0;
    return KAZ_STATUS_OVERFLOW;
  }
  *res = expm1_finite(x);
  return 0;
}

inline int expm1_callout(float x, float* res) {
  const std::uint32_t b = std::bit_cast<std::uint32_t>(x);
  if (((b >> 23) & 0xFF) == 0xFF) {
    *res = (x == -std::numeric_limits<float>::infinity()) ? -1.0f : x * x;
    return 0;
  }
  if (x > Limits<float>::kOverflow) {
    *res = opaque(0x1p127f) * 2.0f;
    return KAZ_STATUS_OVERFLOW;
  }
  *res = static_cast<float>(expm1_finite(static_cast<double>(x)));
  return 0;
}

}  // namespace tvx::TVX_VNS::exp_detail
