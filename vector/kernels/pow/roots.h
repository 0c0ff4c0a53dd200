// Sqrt, InvSqrt, Cbrt, InvCbrt, Pow2o3, Pow3o2 and Hypot kernels. Each is a policy struct for the
// drivers of kernel_loop.h; the single-precision forms run the double algorithms on the two halves
// of a register (every single, subnormals included, is a normal double), so their only large
// rounding is the final conversion.
//
//   Sqrt     the hardware square root: correctly rounded at every level.
//   InvSqrt  HA: y = 1/fl(sqrt x), then one correction from the exact residuals 1 - y s and
//            s^2 - x; LA and EP: 1/fl(sqrt x).
//   Cbrt, InvCbrt, Pow2o3  (the cube-root frame, x^p for p = 1/3, -1/3, 2/3):
//            x = 2^(3q + rem) m, m in [1, 2), rem in 0..2; c = 1/(midpoint of m's 1/32 interval)
//            to 26 bits, r = m c - 1 (|r| < 1/64, computed to 2^-80); x^p = 2^(3pq) T (1 + r)^p
//            with T = (2^rem / c)^p from a 96-row table and the binomial series of (1 + r)^p:
//            HA degree 10 and T in two parts, LA degree 8, EP degree 4.
//   Pow3o2   x fl(sqrt x), HA with the exact residual of the square root carried.
//   Hypot    HA: a^2 + b^2 as an exact double-length sum, its root with one correction step; LA
//            and EP: sqrt(a a + b b). Lanes outside [2^-450, 2^500] are scaled in the callout.
#pragma once

#include <cmath>
#include <cstdint>

#include "vector/kernels/common/kernel_loop.h"
#include "vector/kernels/pow/pow_common.h"

namespace tvx::TVX_VNS::pow_detail {

template <class T>
constexpr const char* pick(const char* d, const char* s) {
  return sizeof(T) == 8 ? d : s;
}

// Lanes whose sign bit is set (NaNs included); no flag for any input.
template <class T>
inline simd::mask<T> sign_set(const vec<T>& v) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    return simd::mask<T>(_mm512_movepi64_mask(_mm512_castpd_si512(v)));
  } else {
    return simd::mask<T>(_mm512_movepi32_mask(_mm512_castps_si512(v)));
  }
#elif TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    return simd::mask<T>(
        _mm256_castsi256_pd(_mm256_cmpgt_epi64(_mm256_setzero_si256(), _mm256_castpd_si256(v))));
  } else {
    return simd::mask<T>(
        _mm256_castsi256_ps(_mm256_cmpgt_epi32(_mm256_setzero_si256(), _mm256_castps_si256(v))));
  }
#else
  if constexpr (sizeof(T) == 8) {
    const __m128i hi = _mm_cmpgt_epi32(_mm_setzero_si128(), _mm_castpd_si128(v));
    return simd::mask<T>(_mm_castsi128_pd(_mm_shuffle_epi32(hi, _MM_SHUFFLE(3, 3, 1, 1))));
  } else {
    return simd::mask<T>(
        _mm_castsi128_ps(_mm_cmpgt_epi32(_mm_setzero_si128(), _mm_castps_si128(v))));
  }
#endif
}

// v with NaN lanes replaced by zero, so that ordered comparisons raise no flag.
template <class T>
inline vec<T> no_nan(const vec<T>& v) {
  return simd::select(simd::is_nan(v), vec<T>(T(0)), v);
}

// Lanes with lo <= |v| < hi; NaN lanes are false.
template <class T>
inline simd::mask<T> abs_in(const vec<T>& v, T lo, T hi) {
  const vec<T> a = simd::abs(no_nan(v));
  return (a >= vec<T>(lo)) & (a < vec<T>(hi));
}

// ---- Sqrt
// ----------------------------------------------------------------------------------------
template <class E>
struct SqrtK {
  using T = E;
  using V = vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = pick<T>("vdSqrt", "vsSqrt");
  static constexpr bool kStream = true;
  static constexpr int kUnroll = 4;
  // Negative non-zero numbers (and negative NaNs) go to the callout; +0, -0, +inf, NaN stay.
  static V vector(const V& x, std::uint32_t& bad, std::uint32_t) {
    const auto neg = sign_set(x) & !(x == V(T(0)));
    bad = simd::bits(neg);
    return simd::sqrt(simd::select(neg, V(T(0)), x));
  }
  static int callout(T x, T* r) {
    if (std::isnan(x)) {
      *r = x + x;
      return 0;
    }
    if (x < 0) {
      *r = make_nan<T>();
      return KAZ_STATUS_ERRDOM;
    }
    *r = std::sqrt(x);  // -0 (or a negative denormal read as zero) gives -0
    return 0;
  }
};

// ---- InvSqrt
// ------------------------------------------------------------------------------------- 1/sqrt(x)
// for positive normal x.
template <Acc A>
inline VD invsqrt_core(const VD& x) {
  const VD s = simd::sqrt(x);
  const VD y = VD(1.0) / s;
  if constexpr (A != Acc::HA) {
    return y;
  } else {
    // With y s = 1 - e1 and s^2 = x + e2 (both exact): 1/sqrt(x) = y (1 + e1 + e2 y^2 / 2) to
    // second order.
    const DD ys = two_prod(y, s);
    const VD e1 = (VD(1.0) - ys.hi) - ys.lo;
    const DD ss = two_prod(s, s);
    const VD e2 = (ss.hi - x) + ss.lo;
    const VD c = e1 + VD(0.5) * e2 * (y * y);
    return y + y * c;
  }
}

template <class E, Acc A>
struct InvSqrtK {
  using T = E;
  using V = vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = pick<T>("vdInvSqrt", "vsInvSqrt");
  static constexpr int kUnroll = 2;
  static VD core_d(const VD& x, std::uint32_t& bad) {
    const auto ok = abs_in(x, 0x1p-960, 0x1p1020) & !sign_set(x);
    bad = simd::bits(!ok);
    return invsqrt_core<A>(simd::select(ok, x, VD(1.0)));
  }
  static V vector(const V& x, std::uint32_t& bad, std::uint32_t) {
    if constexpr (sizeof(T) == 8) {
      return core_d(x, bad);
    } else {
      return via_double(x, bad, [](const VD& d, std::uint32_t& b) {
        const auto ok = abs_in(d, 0x1p-160, kInf<double>) & !sign_set(d);
        b = simd::bits(!ok);
        return VD(1.0) / simd::sqrt(simd::select(ok, d, VD(1.0)));
      });
    }
  }
  static int callout(T x, T* r) {
    if (std::isnan(x)) {
      *r = x + x;
      return 0;
    }
    if (x == 0) {
      *r = T(1) / x;
      return KAZ_STATUS_SING;
    }
    if (x < 0) {
      *r = make_nan<T>();
      return KAZ_STATUS_ERRDOM;
    }
    if (std::isinf(x)) {
      *r = T(0);
      return 0;
    }
    if constexpr (sizeof(T) == 8) {
      // Tiny or huge: 1/sqrt(2^200 x) 2^100, or 1/sqrt(2^-200 x) 2^-100.
      const auto core = [](const VD& v) { return invsqrt_core<A>(v); };
      *r = x < 1.0 ? on_lane(x * 0x1p200, core) * 0x1p100 : on_lane(x * 0x1p-200, core) * 0x1p-100;
    } else {
      *r = static_cast<T>(1.0 / std::sqrt(static_cast<double>(x)));
    }
    return 0;
  }
};

// ---- the cube-root frame
// -------------------------------------------------------------------------
template <int kNum>
struct RootTab;
template <>
struct RootTab<1> {
  static constexpr const double* kRows = kRootCbrt;
  static constexpr const double* kBinom = kBinomCbrt;
};
template <>
struct RootTab<-1> {
  static constexpr const double* kRows = kRootInvCbrt;
  static constexpr const double* kBinom = kBinomInvCbrt;
};
template <>
struct RootTab<2> {
  static constexpr const double* kRows = kRoot2o3;
  static constexpr const double* kBinom = kBinom2o3;
};

template <Acc A>
inline constexpr int kRootDegree = A == Acc::HA   ? 10
                                   : A == Acc::LA ? 8
                                                  : 4;

// x^(kNum/3) for finite normal x of either sign (Pow2o3's result is positive, the others keep
// x's sign).
template <int kNum, Acc A>
inline VD root_core(const VD& x) {
  using P = RootTab<kNum>;
  const VD shift(0x1.8p52);
  const UD b = simd::as_bits(x);
  const UD eb = (b >> 52) & UD(0x7FF);
  const VD ed = small_int_to_double(eb + UD(3));  // e + 1026 for x = 2^e m, positive
  // q' = floor(ed / 3) = round((ed - 1) / 3), rem = ed - 3 q'
  const VD qd = ((ed - VD(1.0)) * VD(1.0 / 3) + shift) - shift;
  const VD rem = ed - VD(3.0) * qd;
  const VD i = small_int_to_double((b >> 47) & UD(31));
  const UD idx = simd::as_bits(rem * VD(32.0) + i + shift) & UD(127);
  const simd::ivec<double> row = as_index(idx + idx + idx);
  const VD c = simd::lookup(P::kRows, row);
  const VD thi = simd::lookup(P::kRows + 1, row);
  const VD m = simd::from_bits<double>((b & UD(0x000FFFFFFFFFFFFFull)) | UD(0x3FF0000000000000ull));
  constexpr int kDeg = kRootDegree<A>;
  VD r, rr(0.0);
  if constexpr (A == Acc::EP) {
    r = mul_minus_one_fast(m, c);
  } else {
    const DD d = mul_minus_one(m, c);
    r = d.hi;
    rr = d.lo;
  }
  VD p(P::kBinom[kDeg - 1]);
  for (int k = kDeg - 2; k >= 0; --k) p = simd::madd(p, r, VD(P::kBinom[k]));
  p = p * r;
  VD y;
  if constexpr (A == Acc::HA) {
    const VD tlo = simd::lookup(P::kRows + 2, row);
    y = thi + (thi * (p + rr * VD(P::kBinom[0])) + tlo);
  } else {
    y = simd::madd(thi, p, thi);
  }
  // 2^(kNum q), q = q' - 342, added to the exponent field.
  const VD scale = VD(double(kNum)) * (qd - VD(342.0)) + shift;
  const UD yb = simd::as_bits(y) + (simd::as_bits(scale) << 52);
  if constexpr (kNum == 2) {
    return simd::from_bits<double>(yb);
  } else {
    return simd::from_bits<double>(yb | (b & UD(0x8000000000000000ull)));
  }
}

template <int kNum>
constexpr const char* root_name(bool dbl) {
  if constexpr (kNum == 1) return dbl ? "vdCbrt" : "vsCbrt";
  if constexpr (kNum == -1) return dbl ? "vdInvCbrt" : "vsInvCbrt";
  return dbl ? "vdPow2o3" : "vsPow2o3";
}

template <class E, int kNum, Acc A>
struct RootK {
  using T = E;
  using V = vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = root_name<kNum>(sizeof(T) == 8);
  static constexpr bool kCleanRuns = true;
  static VD core_d(const VD& x, std::uint32_t& bad, double lo) {
    const auto ok = abs_in(x, lo, kInf<double>);
    bad = simd::bits(!ok);
    return root_core<kNum, A>(simd::select(ok, x, VD(1.0)));
  }
  static V vector(const V& x, std::uint32_t& bad, std::uint32_t) {
    if constexpr (sizeof(T) == 8) {
      return core_d(x, bad, std::numeric_limits<double>::min());
    } else {
      // Every non-zero single is a normal double.
      return via_double(x, bad,
                        [](const VD& d, std::uint32_t& b) { return core_d(d, b, 0x1p-160); });
    }
  }
  // Zeros, infinities, NaNs and (double) subnormals.
  static int callout(T x, T* r) {
    if (std::isnan(x)) {
      *r = x + x;
      return 0;
    }
    if (x == 0 || std::isinf(x)) {
      if constexpr (kNum == 1) {
        *r = x * opaque(T(1));  // a denormal read as zero gives a signed zero
        return 0;
      } else if constexpr (kNum == 2) {
        *r = x * x;
        return 0;
      } else {
        *r = T(1) / x;  // 1/(+-0) = +-inf, status 2; 1/(+-inf) = +-0
        return x == 0 ? KAZ_STATUS_SING : 0;
      }
    }
    // A subnormal double: scaled by 2^54, the result by 2^(-18 kNum).
    constexpr double kBack = kNum == 1 ? 0x1p-18 : kNum == -1 ? 0x1p18 : 0x1p-36;
    const double xd = sizeof(T) == 8 ? double(x) * 0x1p54 : double(x);
    const double y = on_lane(xd, [](const VD& v) { return root_core<kNum, A>(v); });
    *r = static_cast<T>(sizeof(T) == 8 ? y * kBack : y);
    return 0;
  }
};

// ---- Pow3o2
// --------------------------------------------------------------------------------------
template <Acc A>
inline VD pow3o2_core(const VD& x) {
  const VD s = simd::sqrt(x);
  if constexpr (A != Acc::HA) {
    return x * s;
  } else {
    // x^1.5 = x s - x (s^2 - x)/(2 s) + ..., and x/s is s to the precision needed.
    const DD p = two_prod(x, s);
    const DD ss = two_prod(s, s);
    const VD e2 = (ss.hi - x) + ss.lo;
    return p.hi + (p.lo - VD(0.5) * e2 * s);
  }
}

template <class E, Acc A>
struct Pow3o2K {
  using T = E;
  using V = vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = pick<T>("vdPow3o2", "vsPow3o2");
  static constexpr bool kCleanRuns = true;
  static V vector(const V& x, std::uint32_t& bad, std::uint32_t) {
    if constexpr (sizeof(T) == 8) {
      const auto ok = abs_in(x, 0x1p-600, 0x1p600) & !sign_set(x);
      bad = simd::bits(!ok);
      return pow3o2_core<A>(simd::select(ok, x, VD(1.0)));
    } else {
      // Zeros and single subnormals stay: the conversion rounds the tiny result once.
      return via_double(x, bad, [](const VD& d, std::uint32_t& b) {
        const auto ok = (abs_in(d, 0x1p-160, 0x1p85) & !sign_set(d)) | (d == VD(0.0));
        b = simd::bits(!ok);
        const VD v = simd::select(ok, d, VD(1.0));
        return v * simd::sqrt(v);
      });
    }
  }
  static int callout(T x, T* r) {
    if (std::isnan(x)) {
      *r = x + x;
      return 0;
    }
    if (x == 0) {
      *r = x * x;
      return 0;
    }
    if (x < 0) {
      *r = make_nan<T>();
      return KAZ_STATUS_ERRDOM;
    }
    if (std::isinf(x)) {
      *r = x;
      return 0;
    }
    T y;
    if constexpr (sizeof(T) == 8) {
      // Brought into [2^-600, 2^600) by an even power of two: x^1.5 = (2^-600 x)^1.5 2^900.
      const auto core = [](const VD& v) { return pow3o2_core<A>(v); };
      y = x < 0x1p-600 ? on_lane(x * 0x1p600, core) * 0x1p-900
                       : on_lane(x * 0x1p-600, core) * 0x1p900;
    } else {
      const double d = x;
      y = static_cast<T>(d * std::sqrt(d));
    }
    *r = y;
    return std::isinf(y) ? KAZ_STATUS_OVERFLOW : 0;
  }
};

// ---- Hypot
// ---------------------------------------------------------------------------------------
template <Acc A>
inline VD hypot_core(const VD& a, const VD& b) {
  if constexpr (A != Acc::HA) {
    return simd::sqrt(a * a + b * b);
  } else {
    const DD p = two_prod(a, a), q = two_prod(b, b);
    const DD s = two_sum(p.hi, q.hi);
    const VD sl = s.lo + (p.lo + q.lo);
    const VD h = simd::sqrt(s.hi);
    const DD hh = two_prod(h, h);
    const VD d = ((s.hi - hh.hi) - hh.lo) + sl;
    return h + d / (h + h);
  }
}

template <class E, Acc A>
struct HypotK {
  using T = E;
  using V = vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = pick<T>("vdHypot", "vsHypot");
  static V vector(const V& a, const V& b, std::uint32_t& bad, std::uint32_t) {
    if constexpr (sizeof(T) == 8) {
      const VD m = xsimd::max(simd::abs(no_nan(a)), simd::abs(no_nan(b)));
      const auto ok =
          (m >= VD(0x1p-450)) & (m <= VD(0x1p500)) & !(simd::is_nan(a) | simd::is_nan(b));
      bad = simd::bits(!ok);
      // A side below 2^-28 of the other changes nothing after rounding; dropped, its square
      // cannot underflow.
      const VD tiny = m * VD(0x1p-28);
      const VD x = simd::select(ok & !(simd::abs(no_nan(a)) < tiny), a, VD(0.0));
      const VD y = simd::select(ok & !(simd::abs(no_nan(b)) < tiny), b, VD(0.0));
      return hypot_core<A>(simd::select(ok, x, VD(1.0)), y);
    } else {
      return via_double(a, b, bad, [](const VD& x, const VD& y, std::uint32_t& bb) {
        const auto ok = abs_in(x, 0.0, kInf<double>) & abs_in(y, 0.0, kInf<double>);
        bb = simd::bits(!ok);
        const VD xs = simd::select(ok, x, VD(1.0)), ys = simd::select(ok, y, VD(1.0));
        return simd::sqrt(xs * xs + ys * ys);
      });
    }
  }
  // Infinities (also beside a NaN), NaNs, and magnitudes outside the vector range. No status.
  static int callout(T a, T b, T* r) {
    if (std::isinf(a) || std::isinf(b)) {
      *r = kInf<T>;
      return 0;
    }
    if (std::isnan(a) || std::isnan(b)) {
      *r = a + b;
      return 0;
    }
    if constexpr (sizeof(T) == 4) {
      const double x = a, y = b;
      *r = static_cast<T>(std::sqrt(x * x + y * y));
    } else {
      const double m = std::fmax(std::fabs(a), std::fabs(b));
      if (m == 0) {
        *r = std::fabs(a) + std::fabs(b);
        return 0;
      }
      if (std::fmin(std::fabs(a), std::fabs(b)) < m * 0x1p-28) {
        *r = m;
        return 0;
      }
      const double s = m > 1.0 ? 0x1p-600 : 0x1p700;
      const double x = a * s, y = b * s;
      *r = hypot_core<A>(VD(x), VD(y)).get(0) * (m > 1.0 ? 0x1p600 : 0x1p-700);
    }
    return 0;
  }
};

}  // namespace tvx::TVX_VNS::pow_detail
