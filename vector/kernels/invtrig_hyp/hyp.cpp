// Sinh, Cosh, Tanh, Asinh, Acosh and Atanh, compiled once per instruction-set variant. They run
// on the reductions of the exponential and logarithm kernels, included from exp_log: the
// hyperbolic functions on the exponential's table frame, the inverse ones on the logarithm's
// cores with a compensated argument.
//
// Sinh and Cosh: E = e^|x| (at HA in two parts, from the N = 64 table with low parts), then
// (E -+ 1/E) / 2 with the large terms added exactly; 1/E is dropped from |x| = 21.49 on, where
// it no longer reaches the last bit. Sinh below |x| = 1 is x + x^3 g(x^2). Lanes from 707.7 on
// go to the callout, which scales e^|x| / 2 itself and reports overflow.
// Tanh: 1 - 2 / (E + 1) with E = e^(2|x|) (the quotient in two parts at HA); below 0.625 the odd
// polynomial; from 20 on exactly +-1. No status.
// Asinh: ln(|x| + sqrt(x^2 + 1)), Acosh: ln(x + sqrt(x^2 - 1)), the square, the root and the sum
// carried in two parts and the low part handed to the logarithm core as its correction; above
// 2^28 ln|x| + ln 2. Atanh: ln((1 + |x|) / (1 - |x|)) / 2 with the quotient in two parts. Near 0
// Asinh (below 1/8) and Atanh (below 1/4) use odd polynomials. EP rounds the arguments instead.
#define TVX_LOG_CORE_ONLY
#include "vector/kernels/exp_log/log.cpp"
#undef TVX_LOG_CORE_ONLY

#include "vector/kernels/exp_log/exp_scalar.h"
#include "vector/kernels/exp_log/exp_table.h"
#if TVX_VARIANT_ID == 5
#include "vector/kernels/exp_log/exp_avx512.h"
#endif
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

constexpr Lv log_level(Acc a) {
  return a == Acc::HA ? Lv::kHA : (a == Acc::LA ? Lv::kLA : Lv::kEP);
}

// e^a for 0 <= a <= 707.7 rounded once, by the level's Exp design (the register tables on
// AVX-512, the memory tables elsewhere).
template <Acc A>
inline VD exp_rounded(const VD& a) {
#if TVX_VARIANT_ID == 5
  return exp_detail::exp_avx512<double, A>(a);
#else
  return exp_detail::exp_table<double, A>(a);
#endif
}

// e^a for 0 <= a <= 707.7: as eh + el with |el| below half an ulp of eh at HA (the HA table design
// of Exp), else one.
template <Acc A>
inline void exp_parts_v(const VD& a, VD& eh, VD& el) {
  if constexpr (A == Acc::HA) {
    using P = exp_detail::ExpTab<double, Acc::HA>;
    const exp_detail::Reduced<double> z = exp_detail::reduce<double, P>(a);
    const VD q = simd::madd(simd::horner(z.r, P::kPoly), z.r * z.r, z.r);
    const VD scale = simd::from_bits<double>(simd::as_ints(VD(1.0)) +
                                             exp_detail::exponent_bits<double, P::kLogN>(z.t));
    // th (1 + q) + tl, renormalised so that el lies below the last bit of eh.
    fast_two_sum(z.th * scale, simd::madd(q, z.th, z.tl) * scale, eh, el);
  } else {
    eh = exp_rounded<A>(a);
    el = VD(0.0);
  }
}

// x + x^3 g(x^2) for |x| below `limit`, with the tiny lanes (below 2^-27) returning x itself;
// lanes outside compute on 0, so that nothing overflows or underflows there.
template <std::size_t N>
inline VD odd_poly(const VD& x, const VD& ax, double limit, const double (&g)[N]) {
  const auto tiny = ax < VD(0x1p-27);
  const VD xp = simd::select(tiny || ax >= VD(limit), VD(0.0), x);
  const VD s = xp * xp;
  return simd::select(tiny, times_one(x), x + (xp * s) * simd::estrin(s, s * s, g));
}

// |x| up to here stays in the vector path of Sinh and Cosh (707.7, high word 0x40861D99).
inline constexpr double kHypLimit = bits_d(0x40861D9A00000000ull);
// From here on e^-|x| is below half an ulp of e^|x| / 2.
inline constexpr double kDropInverse = 21.487562597358306;

template <bool kCosh, Acc A>
struct SinhCoshD {
  static constexpr const char* kNameD = kCosh ? "vdCosh" : "vdSinh";
  static constexpr const char* kNameS = kCosh ? "vsCosh" : "vsSinh";
  // Single lanes from here on may overflow in single: the callout decides.
  static constexpr double kSingleLimit = 89.0;

  static VD vector(const VD& x, std::uint32_t& bad, std::uint32_t) {
    const auto nan = simd::is_nan(x);
    const auto out = nan || simd::select(nan, VD(0.0), simd::abs(x)) >= VD(kHypLimit);
    bad = simd::bits(out);
    const VD xs = simd::select(out, VD(0.0), x);
    const VD a = simd::abs(xs);
    VD eh, el;
    exp_parts_v<A>(a, eh, el);
    const auto drop = a >= VD(kDropInverse);
    const VD inv = simd::select(drop, VD(0.0), VD(1.0) / simd::select(drop, VD(1.0), eh));
    if constexpr (kCosh) {
      if constexpr (A == Acc::HA) {
        VD c, e;
        fast_two_sum(eh, inv, c, e);
        return VD(0.5) * (c + (e + (el - el * inv * inv)));
      } else {
        return VD(0.5) * (eh + inv);
      }
    } else {
      VD big;
      if constexpr (A == Acc::HA) {
        VD s, e;
        fast_two_sum(eh, -inv, s, e);
        big = VD(0.5) * (s + (e + (el + el * inv * inv)));
      } else {
        big = VD(0.5) * (eh - inv);
      }
      const VD small = odd_poly(xs, a, 1.0, by_level<A>(kSinhPolyHa, kSinhPolyLa, kSinhPolyEp));
      return simd::select(a < VD(1.0), small, with_sign(big, sign_bits(xs)));
    }
  }

  // NaN, infinities and |x| from 707.7 on: e^|x| / 2, overflowing from 710.4758600739439 on.
  static int callout(double x, double* r) {
    if (x != x) {
      *r = x * x;
      return 0;
    }
    const double ax = std::fabs(x);
    if (std::isinf(x)) {
      *r = kCosh ? ax : x;
      return 0;
    }
    double y;
    if (ax > 711.0) {
      y = opaque(0x1p1023) * 2.0;
    } else {
      // (hi + lo) 2^(k-1), the last doubling outside so that only it can overflow.
      const exp_detail::ExpParts e = exp_detail::exp_parts(ax);
      y = ((e.hi + e.lo) * exp_detail::pow2(e.k - 2)) * opaque(2.0);
    }
    *r = kCosh ? y : std::copysign(y, x);
    return std::isinf(y) ? KAZ_STATUS_OVERFLOW : 0;
  }
};
template <Acc A>
using SinhD = SinhCoshD<false, A>;
template <Acc A>
using CoshD = SinhCoshD<true, A>;

template <Acc A>
struct TanhD {
  static constexpr const char* kNameD = "vdTanh";
  static constexpr const char* kNameS = "vsTanh";
  static constexpr double kSingleLimit = kInfD;

  static VD vector(const VD& x, std::uint32_t& bad, std::uint32_t) {
    const auto nan = simd::is_nan(x);
    bad = simd::bits(nan);
    const VD xs = simd::select(nan, VD(0.0), x);
    const VD a = simd::abs(xs);
    const auto sat = a >= VD(20.0);
    const VD a2 = VD(2.0) * simd::select(sat, VD(1.0), a);
    VD big;
    if constexpr (A == Acc::HA) {
      // E = e^(2|x|) rounded once (the HA Exp design) is enough: its error reaches the result
      // scaled by 2E/(E+1)^2 < 0.45; E + 1 and the quotient are kept in two parts.
      VD dh, dl, r, e;
      const VD eh = exp_rounded<Acc::HA>(a2);
      fast_two_sum(eh, VD(1.0), dh, dl);
      const VD rcp = VD(1.0) / dh;
      const VD q = rcp + rcp;
      const VD ql = (residual(VD(2.0), q, dh) - q * dl) * rcp;
      fast_two_sum(VD(1.0), -q, r, e);
      big = r + (e - ql);
    } else {
      VD eh, el;
      exp_parts_v<A>(a2, eh, el);
      big = VD(1.0) - VD(2.0) / (eh + VD(1.0));
    }
    const VD sgn = sign_bits(xs);
    const VD small = odd_poly(xs, a, 0.625, by_level<A>(kTanhPolyHa, kTanhPolyLa, kTanhPolyEp));
    const VD y = simd::select(a < VD(0.625), small, with_sign(big, sgn));
    return simd::select(sat, with_sign(VD(1.0), sgn), y);
  }
  // Only NaN lanes come here.
  static int callout(double x, double* r) {
    *r = x + x;
    return 0;
  }
};

// ln(u + e) for u >= 1, plus ln 2 in the lanes of `twice`.
template <Acc A>
inline VD ln_plus(const VD& u, const VD& e, const simd::mask<double>& twice) {
  const Parts<double> p = core<double, log_level(A), true>(u, e, 0);
  return p.hi + (p.lo + simd::select(twice, VD(0x1.62e42fefa39efp-1), VD(0.0)));
}

inline constexpr double kLogHuge = 0x1p28;  // from here on, x and sqrt(x^2 -+ 1) agree

template <Acc A>
struct AsinhD {
  static constexpr const char* kNameD = "vdAsinh";
  static constexpr const char* kNameS = "vsAsinh";
  static constexpr double kSingleLimit = kInfD;

  static VD vector(const VD& x, std::uint32_t& bad, std::uint32_t) {
    const auto nan = simd::is_nan(x);
    const auto out = nan || simd::select(nan, VD(0.0), simd::abs(x)) == VD(kInfD);
    bad = simd::bits(out);
    const VD xs = simd::select(out, VD(0.0), x);
    const VD a = simd::abs(xs);
    const auto small = a < VD(0.125);
    const auto huge = a > VD(kLogHuge);
    const VD am = simd::select(small || huge, VD(1.0), a);
    VD uh, ul;
    if constexpr (A == Acc::EP) {
      uh = am + simd::sqrt(am * am + VD(1.0));
      ul = VD(0.0);
    } else {
      VD x2, x2e, wh, wl, sh, sl;
      two_prod(am, am, x2, x2e);
      two_sum(VD(1.0), x2, wh, wl);
      sqrt_two(wh, wl + x2e, sh, sl);
      fast_two_sum(sh, am, uh, ul);
      ul = ul + sl;
    }
    const VD big = ln_plus<A>(simd::select(huge, a, uh), simd::select(huge, VD(0.0), ul), huge);
    const VD sm = odd_poly(xs, a, 0.125, by_level<A>(kAsinhPolyHa, kAsinhPolyLa, kAsinhPolyEp));
    return simd::select(small, sm, with_sign(big, sign_bits(xs)));
  }
  // NaN and infinities: asinh is the argument itself.
  static int callout(double x, double* r) {
    *r = x + x == x ? x : x + x;
    return 0;
  }
};

template <Acc A>
struct AcoshD {
  static constexpr const char* kNameD = "vdAcosh";
  static constexpr const char* kNameS = "vsAcosh";
  static constexpr double kSingleLimit = kInfD;

  static VD vector(const VD& x, std::uint32_t& bad, std::uint32_t) {
    const auto nan = simd::is_nan(x);
    const VD xq = simd::select(nan, VD(0.0), x);
    const auto out = nan || xq < VD(1.0) || xq == VD(kInfD);
    bad = simd::bits(out);
    const VD xs = simd::select(out, VD(2.0), xq);
    const auto huge = xs > VD(kLogHuge);
    const VD am = simd::select(huge, VD(2.0), xs);
    VD uh, ul;
    if constexpr (A == Acc::EP) {
      uh = am + simd::sqrt(am * am - VD(1.0));
      ul = VD(0.0);
    } else {
      VD x2, x2e, wh, wl, sh, sl;
      two_prod(am, am, x2, x2e);
      two_sum(x2, VD(-1.0), wh, wl);
      sqrt_two(wh, wl + x2e, sh, sl);
      fast_two_sum(am, sh, uh, ul);
      ul = ul + sl;
    }
    return ln_plus<A>(simd::select(huge, xs, uh), simd::select(huge, VD(0.0), ul), huge);
  }
  static int callout(double x, double* r) {
    if (x != x) {
      *r = x * x;
      return 0;
    }
    if (x == kInfD) {
      *r = x;
      return 0;
    }
    if (x == 1.0) {
      *r = 0.0;
      return 0;
    }
    *r = (x - x) / (x - x);  // NaN, raising invalid
    return KAZ_STATUS_ERRDOM;
  }
};

template <Acc A>
struct AtanhD {
  static constexpr const char* kNameD = "vdAtanh";
  static constexpr const char* kNameS = "vsAtanh";
  static constexpr double kSingleLimit = kInfD;

  static VD vector(const VD& x, std::uint32_t& bad, std::uint32_t) {
    const auto nan = simd::is_nan(x);
    const auto out = nan || simd::select(nan, VD(0.0), simd::abs(x)) >= VD(1.0);
    bad = simd::bits(out);
    const VD xs = simd::select(out, VD(0.0), x);
    const VD a = simd::abs(xs);
    const auto small = a < VD(0.25);
    const VD am = simd::select(small, VD(0.5), a);
    VD q, ql;
    if constexpr (A == Acc::EP) {
      q = (VD(1.0) + am) / (VD(1.0) - am);
      ql = VD(0.0);
    } else {
      VD nh, nl, dh, dl;
      fast_two_sum(VD(1.0), am, nh, nl);
      fast_two_sum(VD(1.0), -am, dh, dl);
      q = nh / dh;
      ql = ((residual(nh, q, dh) + nl) - q * dl) / dh;
    }
    const VD big = VD(0.5) * ln_plus<A>(q, ql, simd::mask<double>(false));
    const VD sm = odd_poly(xs, a, 0.25, by_level<A>(kAtanhPolyHa, kAtanhPolyLa, kAtanhPolyEp));
    return simd::select(small, sm, with_sign(big, sign_bits(xs)));
  }
  static int callout(double x, double* r) {
    if (x != x) {
      *r = x * x;
      return 0;
    }
    if (std::fabs(x) == 1.0) {
      *r = x / opaque(0.0);  // infinity of x's sign, raising division by zero
      return KAZ_STATUS_SING;
    }
    *r = (x - x) / (x - x);  // NaN, raising invalid
    return KAZ_STATUS_ERRDOM;
  }
};

}  // namespace
}  // namespace tvx::TVX_VNS::ith

using namespace tvx::TVX_VNS::ith;

#define TVX_HYP_LEVEL(A, lv)        \
  TVX_ITH_V_V(sinh, SinhD, A, lv)   \
  TVX_ITH_V_V(cosh, CoshD, A, lv)   \
  TVX_ITH_V_V(tanh, TanhD, A, lv)   \
  TVX_ITH_V_V(asinh, AsinhD, A, lv) \
  TVX_ITH_V_V(acosh, AcoshD, A, lv) \
  TVX_ITH_V_V(atanh, AtanhD, A, lv)

// Variants 0 and 1 run their HA kernel in every row; variants 2, 3 and 5 have all three levels.
extern "C" {
TVX_HYP_LEVEL(Acc::HA, ha)
#if TVX_VARIANT_ID >= 2
TVX_HYP_LEVEL(Acc::LA, la)
TVX_HYP_LEVEL(Acc::EP, ep)
#endif
}
