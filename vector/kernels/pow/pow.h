// Pow: x^y = exp(y ln x) with ln x and the product in double length.
//
// Logarithm. x = 2^k m with m in [sqrt(1/2), sqrt(2)), taken from the bits of x less those of
// sqrt(1/2); the top seven bits of that difference pick a row {c, -ln c} (c to 26 bits, c = 1 on
// the row holding 1.0). r = m c - 1 is formed to 2^-80 as a sum r + rr, so that
// ln x = k ln2 + (-ln c) + r - r^2/2 + r^3 P(r) + rr (1 - r). HA and LA add the large terms by
// exact two-sums and carry every rounding error in a low part, so that the result ln x = Lhi + Llo
// holds about 70 bits relative to itself, near x = 1 too; P runs to r^10. EP uses one part,
// r = m c - 1 rounded once and P to r^7.
// Product. T = y Lhi exactly (two-product) plus y Llo.
// Exponential. n = round(128 T / ln2), w = T - n ln2/128 (head exact) + Tlo, 2^(j/128) from a
// table of high and low parts, exp(w) - 1 to degree 5 (HA, LA) or 3 (EP), and 2^(n/128 - j/128)
// added to the exponent field. HA adds the table's low part, LA and EP do not.
// The vector path takes positive normal x, |y| < 2^900 and |T| < 708.39 (the result is then a
// normal number); every other lane goes to the callout, which settles the special values in a
// fixed order, then runs the same steps on |x|, scaling subnormal x and results near the ends of
// the range, and gives the sign of the result.
#pragma once

#include <cmath>
#include <cstdint>

#include "vector/kernels/common/kernel_loop.h"
#include "vector/kernels/pow/pow_common.h"

namespace tvx::TVX_VNS::pow_detail {

inline constexpr double kLn2Hi = kPowConst[0], kLn2Lo = kPowConst[1];
inline constexpr double kInvStep = kPowConst[2], kStepHi = kPowConst[3], kStepLo = kPowConst[4];
// |T| below this keeps exp(T) a normal double in the vector path.
inline constexpr double kPowRangeD = 708.39;
inline constexpr double kPowRangeF = 87.0;

template <Acc A>
inline constexpr int kLogTerms = A == Acc::EP ? 5 : 8;

// ln x for positive normal x, with `kadd` added to x's exponent.
template <Acc A>
inline DD log_core(const VD& x, const VD& kadd) {
  const UD b = simd::as_bits(x);
  const UD z = b + UD(0x00095F619980C433ull);  // the bits of x less those of sqrt(1/2), + bias
  const UD kb = z >> 52;
  const VD k = (small_int_to_double(kb) - VD(1023.0)) + kadd;
  const VD m =
      simd::from_bits<double>(b - (z & UD(0xFFF0000000000000ull)) + UD(0x3FF0000000000000ull));
  const UD i = (z >> 45) & UD(127);
  const simd::ivec<double> row = as_index(i + i + i);
  const VD c = simd::lookup(kPowLog, row);
  const VD lhi = simd::lookup(kPowLog + 1, row);
  constexpr int kN = kLogTerms<A>;
  if constexpr (A == Acc::EP) {
    const VD r = mul_minus_one_fast(m, c);
    VD p(kLog1pPoly[kN - 1]);
    for (int j = kN - 2; j >= 0; --j) p = simd::madd(p, r, VD(kLog1pPoly[j]));
    const VD r2 = r * r;
    const VD t = simd::madd(p, r, VD(-0.5));
    return {simd::madd(k, VD(kLn2Hi + kLn2Lo), lhi) + simd::madd(t, r2, r), VD(0.0)};
  } else {
    const VD llo = simd::lookup(kPowLog + 2, row);
    const DD rd = mul_minus_one(m, c);
    const VD r = rd.hi, rr = rd.lo;
    const DD a = two_sum(k * VD(kLn2Hi), lhi);
    const DD s = two_sum(a.hi, r);
    const DD q = two_prod(r, r);
    const DD u = two_sum(s.hi, VD(-0.5) * q.hi);
    VD p(kLog1pPoly[kN - 1]);
    for (int j = kN - 2; j >= 0; --j) p = simd::madd(p, r, VD(kLog1pPoly[j]));
    // Small terms, smallest first.
    const VD lo =
        ((((k * VD(kLn2Lo) + llo) + (rr - rr * r)) + VD(-0.5) * q.lo) + ((a.lo + s.lo) + u.lo)) +
        (r * q.hi) * p;
    const VD hi = u.hi + lo;
    return {hi, (u.hi - hi) + lo};
  }
}

// y times ln x, as a double-length value (one part at EP).
template <Acc A>
inline DD mul_core(const VD& y, const DD& l) {
  if constexpr (A == Acc::EP) {
    return {y * l.hi, VD(0.0)};
  } else {
    const DD p = two_prod(y, l.hi);
    const VD lo = p.lo + y * l.lo;
    const VD hi = p.hi + lo;
    return {hi, (p.hi - hi) + lo};
  }
}

// exp(thi + tlo) for |thi| < 708.39.
template <Acc A>
inline VD exp_core(const VD& thi, const VD& tlo) {
  const VD shift(0x1.8p52);
  const VD t = simd::madd(thi, VD(kInvStep), shift);
  const VD n = t - shift;
  const VD w = ((thi - n * VD(kStepHi)) - n * VD(kStepLo)) + tlo;
  const UD tb = simd::as_bits(t);
  const simd::ivec<double> j = as_index(tb & UD(127));
  VD th, tl;
  simd::lookup_pair(kPowExp, j, th, tl);
  constexpr int kDeg = A == Acc::EP ? 3 : 5;
  VD p(kExpPoly[kDeg - 1]);
  for (int k = kDeg - 2; k >= 1; --k) p = simd::madd(p, w, VD(kExpPoly[k]));
  p = simd::madd(p, w * w, w);
  VD y;
  if constexpr (A == Acc::HA) {
    y = th + simd::madd(th, p, tl);
  } else {
    y = simd::madd(th, p, th);
  }
  return simd::from_bits<double>(simd::as_bits(y) + ((tb << 45) & UD(0xFFF0000000000000ull)));
}

// The vector path of double x and y; `range` bounds |y ln x| (a normal result in the type).
template <Acc A>
inline VD pow_lanes(const VD& x, const VD& y, std::uint32_t& bad, double xmin, double range) {
  const VD xc = simd::select(simd::is_nan(x), VD(0.0), x);
  const VD yc = simd::select(simd::is_nan(y), VD(0x1p1000), y);
  const auto ok = (xc >= VD(xmin)) & (xc <= VD(std::numeric_limits<double>::max())) &
                  (simd::abs(yc) < VD(0x1p900));
  const DD l = log_core<A>(simd::select(ok, x, VD(1.0)), VD(0.0));
  const DD t = mul_core<A>(simd::select(ok, y, VD(0.0)), l);
  const auto in = ok & (simd::abs(t.hi) < VD(range));
  bad = simd::bits(!in);
  return exp_core<A>(simd::select(in, t.hi, VD(0.0)), simd::select(in, t.lo, VD(0.0)));
}

// 0 for a non-integer (or infinite or NaN) y, 1 for an odd integer, 2 for an even one.
inline int integer_class(double y) {
  const std::uint64_t b = std::bit_cast<std::uint64_t>(y);
  const int e = static_cast<int>((b >> 52) & 0x7FF);
  if ((b << 1) == 0) return 2;
  if (e < 1023 || e == 2047) return 0;
  if (e > 1075) return 2;
  const int frac = 1075 - e;  // fraction bits of y
  const std::uint64_t mant = (b & 0x000FFFFFFFFFFFFFull) | 0x0010000000000000ull;
  if (frac > 0 && (mant & ((std::uint64_t(1) << frac) - 1)) != 0) return 0;
  return ((mant >> frac) & 1) ? 1 : 2;
}

inline constexpr double kHuge = 0x1p1000, kTiny = 0x1p-1000;

// One element of Pow in double, special values in their fixed order. Every level runs the HA
// steps here, so that overflow and the results near the ends of the range agree across levels.
inline int pow_callout(double x, double y, double* res) {
  constexpr Acc A = Acc::HA;
  if (x == 1.0 || y == 0.0) {
    *res = 1.0;
    return 0;
  }
  if (std::isnan(x) || std::isnan(y)) {
    *res = x + y;
    return 0;
  }
  const int cls = integer_class(y);
  const double sign = (cls == 1 && std::signbit(x)) ? -1.0 : 1.0;
  if (x == 0.0) {
    if (y < 0) {
      *res = sign / opaque(x * x);
      return KAZ_STATUS_ERRDOM;
    }
    *res = x * x * sign;
    return 0;
  }
  if (x == -1.0 && (std::isinf(y) || cls != 0)) {
    *res = sign;
    return 0;
  }
  const double ax = std::fabs(x);
  if (std::isfinite(x) && std::isfinite(y)) {
    if (!(x > 0 || cls != 0)) {
      *res = make_nan<double>();
      return KAZ_STATUS_ERRDOM;
    }
  } else if (ax < 1.0 && std::isinf(y)) {
    *res = y > 0 ? 0.0 : y * y;
    return 0;
  } else {
    *res = (y < 0 ? 0.0 : x * x * y) * sign;
    return 0;
  }
  // Finite x (not 0, not 1, not -1 with an integer y) and finite y.
  if (std::fabs(y) >= 0x1p900) {
    if ((ax > 1.0) == (y > 0)) {
      *res = sign * opaque(kHuge) * kHuge;
      return KAZ_STATUS_OVERFLOW;
    }
    *res = sign * opaque(kTiny) * kTiny;
    return 0;
  }
  const bool sub = ax < 0x1p-1022;
  const DD l = log_core<A>(VD(sub ? ax * 0x1p200 : ax), VD(sub ? -200.0 : 0.0));
  const DD t = mul_core<A>(VD(y), l);
  const double thi = t.hi.get(0);
  if (std::fabs(thi) < kPowRangeD) {
    *res = sign * exp_core<A>(t.hi, t.lo).get(0);
    return 0;
  }
  if (thi > 710.0) {
    *res = sign * opaque(kHuge) * kHuge;
    return KAZ_STATUS_OVERFLOW;
  }
  if (thi < -746.0) {
    *res = sign * opaque(kTiny) * kTiny;
    return 0;
  }
  // Near the ends of the range: exp(T -+ 200 ln2) 2^(+-200), rounded once by the last product.
  const double k = thi > 0 ? -200.0 : 200.0;
  const DD s = two_sum(t.hi, VD(k * kLn2Hi));
  const VD lo = (t.lo + s.lo) + VD(k * kLn2Lo);
  const double v = sign * exp_core<A>(s.hi, lo).get(0);
  const double y2 = v * (thi > 0 ? 0x1p200 : 0x1p-200);
  *res = y2;
  return std::isinf(y2) ? KAZ_STATUS_OVERFLOW : 0;
}

template <class T>
constexpr const char* pow_name(bool powx) {
  if (powx) return sizeof(T) == 8 ? "vdPowx" : "vsPowx";
  return sizeof(T) == 8 ? "vdPow" : "vsPow";
}

// Pow of two registers; PowK::callout is the element routine of Pow and of Powx's general case.
template <class E, Acc A, bool kPowx = false>
struct PowK {
  using T = E;
  using V = vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = pow_name<T>(kPowx);
  static V vector(const V& x, const V& y, std::uint32_t& bad, std::uint32_t) {
    if constexpr (sizeof(T) == 8) {
      return pow_lanes<A>(x, y, bad, std::numeric_limits<double>::min(), kPowRangeD);
    } else {
      return via_double(x, y, bad, [](const VD& a, const VD& b, std::uint32_t& bb) {
        return pow_lanes<A>(a, b, bb, 0x1p-160, kPowRangeF);
      });
    }
  }
  // The general case of Powx: y broadcast.
  static V vector(const V& x, T y, std::uint32_t& bad, std::uint32_t mode) {
    return vector(x, V(y), bad, mode);
  }
  static int callout(T x, T y, T* r) {
    if constexpr (sizeof(T) == 8) {
      return pow_callout(x, y, r);
    } else {
      double d;
      int st = pow_callout(x, y, &d);
      const float f = static_cast<float>(d);
      if (st == 0 && std::isinf(f) && !std::isinf(d)) st = KAZ_STATUS_OVERFLOW;
      *r = f;
      return st;
    }
  }
};

}  // namespace tvx::TVX_VNS::pow_detail
