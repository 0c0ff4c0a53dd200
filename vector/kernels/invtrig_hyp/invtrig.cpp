// Asin, Acos, Atan and Atan2, compiled once per instruction-set variant.
//
// Atan: |x| is placed in one of five intervals by the thresholds 7/16, 11/16, 19/16 and 39/16,
// with the reference points c = 0, 1/2, 1, 3/2 and infinity; t = (|x| - c) / (1 + c |x|)
// (t = -1/|x| in the last interval) lies within [-7/16, 7/16], and
// atan |x| = atan(c) + t + t^3 g(t^2). HA and LA form the quotient in two parts (the residual of
// the division, exact through a fused or halved product), keep atan(c) in two parts and add the
// large terms as an exact sum, so that the last rounding is the only large one; LA has a shorter
// g. EP rounds the quotient and shortens g to six terms.
//
// Atan2: the same on n/d, the smaller magnitude over the larger, reduced from n and d directly
// (one division for both steps); then pi/2 minus it, pi minus it, and the sign of y, each step as
// an exact sum but at EP.
//
// Asin and Acos: below 1/2, asin x = x + x^3 g(x^2). From 1/2 on, with w = (1 - |x|)/2 (exact)
// and s = sqrt(w): asin |x| = pi/2 - 2 (s + s w g(w)), acos x = 2 (s + s w g(w)) for positive x
// and pi - 2 (...) for negative x. HA carries the root in two parts: a 26-bit head and the
// correction (w - head^2) / (s + head), both exact to the last bit, so the factor 2 and the
// subtraction from pi/2 lose nothing.
//
// No status arises in Atan and Atan2. Lanes with NaN (and for Atan2 zeros, infinities and
// magnitudes past 2^+-250) go to the scalar callouts.
#include "vector/kernels/invtrig_hyp/common.h"

namespace tvx::TVX_VNS::ith {
namespace {

template <Acc A, class H, class L, class E>
constexpr decltype(auto) by_level(const H& h, const L& l, const E& e) {
  if constexpr (A == Acc::HA) {
    return (h);
  } else if constexpr (A == Acc::LA) {
    return (l);
  } else {
    return (e);
  }
}

// atan(n/d) for 0 <= n, 0 < d with n/d < 2^60 and d = 1 or n <= d, as hi + lo. The interval of
// n/d is chosen by comparing n with the thresholds times d, and the reduced argument is formed
// from n and d directly: t = (n - c d) / (d + c n), or -d/n in interval 4, with n - c d exact
// (n and c d lie within a factor 2). Apart from EP the quotient is carried in two parts, from
// one reciprocal: t = num / den to about an ulp, and its residual, exact through a fused or
// halved product, gives the rest.
// kAtMostOne: n <= d always (Atan2), so intervals 3 and 4 never occur.
template <Acc A, bool kAtMostOne = false>
inline void atan_core(const VD& n, const VD& d, VD& hi, VD& lo) {
  using M = simd::mask<double>;
  const M i1 = n >= VD(7.0 / 16) * d, i2 = n >= VD(11.0 / 16) * d;
  const M i3 = kAtMostOne ? M(false) : M(n >= VD(19.0 / 16) * d);
  const M i4 = kAtMostOne ? M(false) : M(n >= VD(39.0 / 16) * d);
  auto pick = [&](const double* v) {
    return simd::select(
        i4, VD(v[4]),
        simd::select(i3, VD(v[3]),
                     simd::select(i2, VD(v[2]), simd::select(i1, VD(v[1]), VD(v[0])))));
  };
  const VD c =
      simd::select(i3, VD(1.5), simd::select(i2, VD(1.0), simd::select(i1, VD(0.5), VD(0.0))));
  const VD ch = pick(kAtanRefHi);
  const VD num = simd::select(i4, -d, n - c * d);
  VD t, tl(0.0);
  if constexpr (A != Acc::EP) {
    VD p, pe, dh, dl;
    two_prod(c, n, p, pe);
    two_sum(d, p, dh, dl);
    dh = simd::select(i4, n, dh);
    dl = simd::select(i4, VD(0.0), dl + pe);
    const VD rcp = VD(1.0) / dh;
    t = num * rcp;
    tl = (residual(num, t, dh) - t * dl) * rcp;
  } else {
    t = num / simd::select(i4, n, simd::madd(c, n, d));
  }
  // Below 2^-27 t^3 g is far below the last bit; 0 stands in, so that nothing underflows.
  const VD tp = simd::select(simd::abs(t) < VD(0x1p-27), VD(0.0), t);
  const VD s = tp * tp;
  const VD z =
      (tp * s) * simd::estrin(s, s * s, by_level<A>(kAtanPolyHa, kAtanPolyLa, kAtanPolyEp));
  if constexpr (A != Acc::EP) {
    VD e;
    fast_two_sum(ch, t, hi, e);
    lo = e + (pick(kAtanRefLo) + (tl + z));
  } else {
    hi = ch;
    lo = t + z;
  }
}

template <Acc A>
struct AtanD {
  static constexpr const char* kNameD = "vdAtan";
  static constexpr const char* kNameS = "vsAtan";
  static constexpr double kSingleLimit = kInfD;

  static VD vector(const VD& x, std::uint32_t& bad, std::uint32_t) {
    const auto nan = simd::is_nan(x);
    bad = simd::bits(nan);
    const VD ax = simd::select(nan, VD(1.0), simd::abs(x));
    const auto tiny = ax < VD(0x1p-27);
    const auto huge = ax >= VD(0x1p60);  // pi/2 - 1/|x| rounds to pi/2
    VD hi, lo;
    atan_core<A>(simd::select(tiny || huge, VD(1.0), ax), VD(1.0), hi, lo);
    const VD y = simd::select(huge, VD(kPi2Hi), hi + lo);
    return simd::select(tiny, times_one(x), with_sign(y, sign_bits(x)));
  }
  // Only NaN lanes come here.
  static int callout(double x, double* r) {
    *r = x + x;
    return 0;
  }
};

template <Acc A>
struct Atan2D {
  static constexpr const char* kNameD = "vdAtan2";
  static constexpr const char* kNameS = "vsAtan2";

  static VD vector(const VD& y, const VD& x, std::uint32_t& bad, std::uint32_t) {
    const auto nan = simd::is_nan(x) || simd::is_nan(y);
    const VD ay = simd::select(nan, VD(1.0), simd::abs(y));
    const VD ax = simd::select(nan, VD(1.0), simd::abs(x));
    const VD lo_lim(0x1p-250), hi_lim(0x1p250);
    const auto ok = (ay >= lo_lim) && (ay <= hi_lim) && (ax >= lo_lim) && (ax <= hi_lim);
    bad = simd::bits(!ok || nan);
    const VD ys = simd::select(ok, ay, VD(1.0));
    const VD xs = simd::select(ok, ax, VD(1.0));
    const auto swap = ys > xs;
    VD hi, lo;
    atan_core<A, true>(simd::select(swap, xs, ys), simd::select(swap, ys, xs), hi, lo);
    const auto neg = with_sign(VD(1.0), sign_bits(x)) < VD(0.0);
    if constexpr (A != Acc::EP) {
      VD h1, e1, h2, e2;
      // pi/2 - (hi + lo) where |y| > |x|.
      fast_two_sum(VD(kPi2Hi), -hi, h1, e1);
      const VD l1 = (VD(kPi2Lo) - lo) + e1;
      hi = simd::select(swap, h1, hi);
      lo = simd::select(swap, l1, lo);
      // pi - (hi + lo) where x is negative.
      fast_two_sum(VD(kPiHi), -hi, h2, e2);
      const VD l2 = (VD(kPiLo) - lo) + e2;
      hi = simd::select(neg, h2, hi);
      lo = simd::select(neg, l2, lo);
      return with_sign(hi + lo, sign_bits(y));
    } else {
      VD v = hi + lo;
      v = simd::select(swap, (VD(kPi2Hi) - v) + VD(kPi2Lo), v);
      v = simd::select(neg, (VD(kPiHi) - v) + VD(kPiLo), v);
      return with_sign(v, sign_bits(y));
    }
  }

  // Zeros, infinities, NaN and magnitudes outside [2^-250, 2^250].
  static int callout(double y, double x, double* r) {
    if (x != x || y != y) {
      *r = x + y;
      return 0;
    }
    const double sy = std::copysign(1.0, y);
    const bool xneg = std::signbit(x);
    if (y == 0) {
      *r = xneg ? sy * kPiHi : y * opaque(1.0);
      return 0;
    }
    if (std::isinf(x)) {
      if (std::isinf(y)) {
        *r = sy * (xneg ? 0x1.2d97c7f3321d2p+1 : 0x1.921fb54442d18p-1);  // 3pi/4, pi/4
      } else {
        *r = xneg ? sy * kPiHi : sy * 0.0;
      }
      return 0;
    }
    if (x == 0 || std::isinf(y)) {
      *r = sy * kPi2Hi;
      return 0;
    }
    const int ey = std::ilogb(y), ex = std::ilogb(x);
    if (ey - ex > 60) {  // pi/2 -+ |x/y| rounds to pi/2
      *r = sy * kPi2Hi;
      return 0;
    }
    if (ex - ey > 60) {  // atan(y/x) rounds to y/x; pi - |y/x| rounds to pi
      *r = xneg ? sy * kPiHi : y / x;
      return 0;
    }
    // Both scaled by one power of two into the range of the vector path.
    const int e = ey > ex ? ey : ex;
    std::uint32_t bad = 0;
    alignas(64) double out[8];
    vector(VD(std::ldexp(y, -e)), VD(std::ldexp(x, -e)), bad, 0).store_aligned(out);
    *r = out[0];
    return 0;
  }
};

template <bool kAcos, Acc A>
struct AsinAcosD {
  static constexpr const char* kNameD = kAcos ? "vdAcos" : "vdAsin";
  static constexpr const char* kNameS = kAcos ? "vsAcos" : "vsAsin";
  static constexpr double kSingleLimit = kInfD;

  static VD vector(const VD& x, std::uint32_t& bad, std::uint32_t) {
    const auto nan = simd::is_nan(x);
    const auto out = nan || (simd::select(nan, VD(0.0), simd::abs(x)) > VD(1.0));
    bad = simd::bits(out);
    const VD xs = simd::select(out, VD(0.0), x);
    const VD ax = simd::abs(xs);
    const auto big = ax >= VD(0.5);
    const auto tiny = ax < VD(0x1p-27);
    const VD w = (VD(1.0) - ax) * VD(0.5);  // exact for |x| in [1/2, 1]
    const VD xp = simd::select(tiny, VD(0.0), xs);
    const VD z = simd::select(big, w, xp * xp);
    const VD g = simd::estrin(z, z * z, by_level<A>(kAsinPolyHa, kAsinPolyLa, kAsinPolyEp));
    // Large arguments: asin(sqrt w) = s + s w g = sh + v.
    const VD s = simd::sqrt(simd::select(big, w, VD(0.0)));
    VD sh = s, v = s * w * g;
    if constexpr (A == Acc::HA) {
      sh = upper_half(s);
      v = v + (w - sh * sh) / simd::select(s == VD(0.0), VD(1.0), s + sh);
    }
    // Small arguments: x^3 g.
    const VD q = (xp * z) * g;
    const VD sgn = sign_bits(xs);
    VD small, large;
    if constexpr (!kAcos) {
      small = xs + q;
      if constexpr (A == Acc::HA) {
        VD r, e;
        fast_two_sum(VD(kPi2Hi), -(sh + sh), r, e);
        large = r + (e + (VD(kPi2Lo) - (v + v)));
      } else {
        large = (VD(kPi2Hi) - VD(2.0) * (sh + v)) + VD(kPi2Lo);
      }
      large = with_sign(large, sgn);
      return simd::select(tiny, times_one(xs), simd::select(big, large, small));
    } else {
      VD neg;
      if constexpr (A == Acc::HA) {
        VD r, e;
        fast_two_sum(VD(kPi2Hi), -xs, r, e);
        small = r + (e + (VD(kPi2Lo) - q));
        fast_two_sum(VD(kPiHi), -(sh + sh), r, e);
        neg = r + (e + (VD(kPiLo) - (v + v)));
      } else {
        small = (VD(kPi2Hi) - (xs + q)) + VD(kPi2Lo);
        neg = (VD(kPiHi) - VD(2.0) * (sh + v)) + VD(kPiLo);
      }
      large = simd::select(xs < VD(0.0), neg, VD(2.0) * (sh + v));
      return simd::select(big, large, small);
    }
  }
  // |x| above 1 and NaN.
  static int callout(double x, double* r) {
    if (x != x) {
      *r = x + x;
      return 0;
    }
    *r = (x - x) / (x - x);  // NaN, raising invalid (x - x is NaN itself for an infinity)
    return KAZ_STATUS_ERRDOM;
  }
};
template <Acc A>
using AsinD = AsinAcosD<false, A>;
template <Acc A>
using AcosD = AsinAcosD<true, A>;

}  // namespace
}  // namespace tvx::TVX_VNS::ith

using namespace tvx::TVX_VNS;
using namespace tvx::TVX_VNS::ith;

#define TVX_ITH_LEVEL(A, lv)                                                             \
  TVX_ITH_V_V(asin, AsinD, A, lv)                                                        \
  TVX_ITH_V_V(acos, AcosD, A, lv)                                                        \
  TVX_ITH_V_V(atan, AtanD, A, lv)                                                        \
  void TVX_ENTRY(kaz_atan2_d_##lv)(int n, const double* a, const double* b, double* r) { \
    run_vv_v<Binary<double, Atan2D, A>>(n, a, b, r);                                     \
  }                                                                                      \
  void TVX_ENTRY(kaz_atan2_s_##lv)(int n, const float* a, const float* b, float* r) {    \
    run_vv_v<Binary<float, Atan2D, A>>(n, a, b, r);                                      \
  }

// Variants 0 and 1 run their HA kernel in every row; variants 2, 3 and 5 have all three levels.
extern "C" {
TVX_ITH_LEVEL(Acc::HA, ha)
#if TVX_VARIANT_ID >= 2
TVX_ITH_LEVEL(Acc::LA, la)
TVX_ITH_LEVEL(Acc::EP, ep)
#endif
}
