// Erf, Erfc and CdfNorm kernels, compiled once per instruction-set variant.
//
// One design for the three: a grid of step 2^-7 with the value and the derivative at each point
// (erfgamma_tables.inc), and the Taylor step to the argument as a polynomial in w = x0*r and
// z = r^2. HA adds the tables' low parts, an exact derivative * r and a two-sum at the end;
// LA drops those; EP also takes the short polynomial. Erf runs every lane in the vector path.
// Erfc and CdfNorm send the lanes whose results leave the normal range (and NaN, infinities)
// to their callouts. Single lanes run the double LA or EP design and round once.
//
// Cells: Erf has LA, HA and EP kernels on SSE4.2, AVX2 and AVX-512 and its HA kernel elsewhere;
// Erfc shares one kernel between LA and HA and has an EP kernel of its own on AVX2 and AVX-512;
// CdfNorm has three levels on every variant but the second SSE2 copy.
#include <cfloat>
#include <cmath>

#include "vector/kernels/common/kernel_loop.h"
#include "vector/kernels/erfgamma/erfgamma_common.h"

namespace tvx::TVX_VNS {
namespace {

using simd::vec;
using special::Acc;
using special::d_bits;
using special::opaque;
using special::V;

// Below this |x|, erf(x) = x * 2/sqrt(pi) to the last bit, and squares of x would underflow.
constexpr double kErfTiny = 0x1p-256;
// The last grid point of the erf table: erf rounds to 1 from 5.9215 on.
constexpr double kErfClamp = d_bits(0x4017F80000000000);  // 5.9921875
// |x| from which Erfc and CdfNorm lanes go to the callout: past these their results (for positive
// x, negative x) are no longer normal numbers, or nearly so.
constexpr double kErfcRange = 26.5;
constexpr double kCdfRange = 37.5;
constexpr float kErfcRangeS = 9.0f;
constexpr float kCdfRangeS = 12.5f;
// Above this erfc(x) rounds to +0; below this Phi(x) rounds to +0.
constexpr double kErfcZero = d_bits(0x403B39DC41E48BFD);  // 27.2262
constexpr double kCdfZero = d_bits(0xC0433E21DC3F3BD7);   // -38.485408335567335

template <Acc A>
inline V erf_core(const V& x) {
  const auto nan = simd::is_nan(x);
  const V t0 = simd::select(nan, V(0.0), simd::abs(x));
  const auto tiny = t0 < V(kErfTiny);
  const V t1 = simd::select(tiny, V(0.0), t0);
  const V t = simd::select(t1 < V(kErfClamp), t1, V(kErfClamp));
  const special::Step st = special::grid_value<special::ErfGrid, 1, A>(t);
  const V y = (st.hi + st.lo) | simd::sign_of(x);
  // Tiny lanes: x * 2/sqrt(pi), with the constant's low part at HA; scaled by 2^200 so that the
  // low product stays normal, and back with one rounding.
  const V xs = simd::select(tiny, x, V(0.0)) * V(0x1p200);
  V ys = xs * V(special::kErfTab[1]);
  if constexpr (A == Acc::HA) ys = simd::madd(xs, V(special::kErfLo[1]), ys);
  return simd::select(nan, x + x, simd::select(tiny, ys * V(0x1p-200), y));
}

// Erfc of lanes with |x| below the range (others cleaned to 0 by the caller).
// Below this |x|, erfc(x) and Phi(x) round to their values at 0, and r^2 may underflow.
constexpr double kTailTiny = 0x1p-60;

inline V without_tiny(const V& x) {
  const V t = simd::abs(x);
  return simd::select(t < V(kTailTiny), V(0.0), t);
}

template <Acc A>
inline V erfc_core(const V& x) {
  const special::Step st = special::grid_value<special::ErfcGrid, -1, A>(without_tiny(x));
  const V pos = (st.hi + st.lo) * V(special::kUnscale);
  const V neg = special::minus_from(2 * special::kScale, st.hi, st.lo) * V(special::kUnscale);
  return simd::select(x < V(0.0), neg, pos);
}

// Phi(x) of lanes with |x| below the range: the upper tail Q(|x|) for x <= 0, 1 - Q(x) above.
template <Acc A>
inline V cdf_core(const V& x) {
  const special::Step st = special::grid_value<special::CdfGrid, -1, A>(without_tiny(x));
  const V neg = (st.hi + st.lo) * V(special::kUnscale);
  const V pos = special::minus_from(special::kScale, st.hi, st.lo) * V(special::kUnscale);
  return simd::select(x > V(0.0), pos, neg);
}

// Single lanes run the double LA design (EP: the double EP design).
constexpr Acc single_level(Acc a) {
  return a == Acc::EP ? Acc::EP : Acc::LA;
}

// ---- scalar callouts ----------------------------------------------------------------------------
// A result computed in extended precision, rounded to double, and taken through an SSE multiply
// so that the flush mode applies to it as to the vector lanes.
inline double to_double(long double v) {
  return opaque(static_cast<double>(v)) * opaque(1.0);
}
inline double underflow_to_zero() {
  return opaque(0x1p-1000) * opaque(0x1p-1000);
}

inline int erfc_callout(double x, double* r) {
  if (std::isnan(x)) {
    *r = x + x;
    return 0;
  }
  if (x < 0 || std::isinf(x)) {
    *r = x < 0 ? 2.0 : 0.0;
    return 0;
  }
  if (x > kErfcZero) {
    *r = underflow_to_zero();
    return KAZ_STATUS_UNDERFLOW;
  }
  const double y = to_double(erfcl(static_cast<long double>(x)));
  *r = y;
  return y < DBL_MIN ? KAZ_STATUS_UNDERFLOW : 0;
}

inline int cdf_callout(double x, double* r) {
  if (std::isnan(x)) {
    *r = x + x;
    return 0;
  }
  if (x > 0 || std::isinf(x)) {
    *r = x > 0 ? 1.0 : 0.0;
    return 0;
  }
  if (x < kCdfZero) {
    *r = underflow_to_zero();
    return KAZ_STATUS_UNDERFLOW;
  }
  // s = -x/sqrt(2) as sh + sl: the rounding of sh alone would cost x^2 * 2^-64 of the result.
  const long double c = 1.0L / sqrtl(2.0L);
  const long double cl = fmal(-2.0L * c, c, 1.0L) / (4.0L * c);
  const long double mx = -static_cast<long double>(x);
  const long double sh = mx * c;
  const long double sl = fmal(mx, c, -sh) + mx * cl;
  // erfc(sh + sl) = erfc(sh) * (1 - sl * (2 sh + 1/sh)) to the first order, sh >= 26.
  const double y = to_double(0.5L * erfcl(sh) * (1.0L - sl * (2.0L * sh + 1.0L / sh)));
  *r = y;
  return y < DBL_MIN ? KAZ_STATUS_UNDERFLOW : 0;
}

// Single callouts: the double function (its HA vector path on one lane, or its callout), rounded
// once to single; a result below the normal range of single reports underflow.
template <class F>
inline int single_callout(float x, float* r, F&& f) {
  if (std::isnan(x)) {
    *r = x + x;
    return 0;
  }
  const float y = static_cast<float>(f(static_cast<double>(x)));
  *r = y;
  return std::fabs(y) < FLT_MIN && !std::isinf(x) ? KAZ_STATUS_UNDERFLOW : 0;
}

inline double first_lane(const V& v) {
  alignas(64) double out[simd::lanes<double>];
  v.store_aligned(out);
  return out[0];
}

inline double erfc_d(double x) {
  double r;
  if (std::fabs(x) < kErfcRange) return first_lane(erfc_core<Acc::HA>(V(x)));
  erfc_callout(x, &r);
  return r;
}
inline double cdf_d(double x) {
  double r;
  if (std::fabs(x) < kCdfRange) return first_lane(cdf_core<Acc::HA>(V(x)));
  cdf_callout(x, &r);
  return r;
}

// ---- kernels ------------------------------------------------------------------------------------
template <class E, Acc A>
struct ErfKernel {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = sizeof(T) == 8 ? "vdErf" : "vsErf";
  static vec<T> vector(const vec<T>& x, std::uint32_t& bad, std::uint32_t) {
    bad = 0;
    if constexpr (sizeof(T) == 8) {
      return erf_core<A>(x);
    } else {
      return special::through_double(x, [](const V& v) { return erf_core<single_level(A)>(v); });
    }
  }
  // Never called: every lane stays in the vector path.
  static int callout(T x, T* r) {
    *r = static_cast<T>(first_lane(erf_core<Acc::HA>(V(static_cast<double>(x)))));
    return 0;
  }
};

template <class E, Acc A>
struct ErfcKernel {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = sizeof(T) == 8 ? "vdErfc" : "vsErfc";
  static vec<T> vector(const vec<T>& x, std::uint32_t& bad, std::uint32_t) {
    const auto out =
        simd::not_less(simd::abs(x), vec<T>(sizeof(T) == 8 ? kErfcRange : kErfcRangeS));
    bad = simd::bits(out);
    const vec<T> xc = simd::select(out, vec<T>(T(0)), x);
    if constexpr (sizeof(T) == 8) {
      return erfc_core<A>(xc);
    } else {
      return special::through_double(xc, [](const V& v) { return erfc_core<single_level(A)>(v); });
    }
  }
  static int callout(T x, T* r) {
    if constexpr (sizeof(T) == 8) {
      return erfc_callout(x, r);
    } else {
      return single_callout(x, r, erfc_d);
    }
  }
};

template <class E, Acc A>
struct CdfNormKernel {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = sizeof(T) == 8 ? "vdCdfNorm" : "vsCdfNorm";
  static vec<T> vector(const vec<T>& x, std::uint32_t& bad, std::uint32_t) {
    const auto out = simd::not_less(simd::abs(x), vec<T>(sizeof(T) == 8 ? kCdfRange : kCdfRangeS));
    bad = simd::bits(out);
    const vec<T> xc = simd::select(out, vec<T>(T(0)), x);
    if constexpr (sizeof(T) == 8) {
      return cdf_core<A>(xc);
    } else {
      return special::through_double(xc, [](const V& v) { return cdf_core<single_level(A)>(v); });
    }
  }
  static int callout(T x, T* r) {
    if constexpr (sizeof(T) == 8) {
      return cdf_callout(x, r);
    } else {
      return single_callout(x, r, cdf_d);
    }
  }
};

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;

#define TVX_SPECIAL_ENTRY(Kernel, lname, level, A)                             \
  extern "C" {                                                                 \
  void TVX_ENTRY(kaz_##lname##_d_##level)(int n, const double* a, double* r) { \
    run_v_v<Kernel<double, A>>(n, a, r);                                       \
  }                                                                            \
  void TVX_ENTRY(kaz_##lname##_s_##level)(int n, const float* a, float* r) {   \
    run_v_v<Kernel<float, A>>(n, a, r);                                        \
  }                                                                            \
  }

TVX_SPECIAL_ENTRY(ErfKernel, erf, ha, Acc::HA)
TVX_SPECIAL_ENTRY(ErfcKernel, erfc, ha, Acc::HA)
TVX_SPECIAL_ENTRY(CdfNormKernel, cdfnorm, ha, Acc::HA)
#if TVX_VARIANT_ID >= 2
TVX_SPECIAL_ENTRY(ErfKernel, erf, la, Acc::LA)
TVX_SPECIAL_ENTRY(ErfKernel, erf, ep, Acc::EP)
#endif
#if TVX_VARIANT_ID != 1
TVX_SPECIAL_ENTRY(CdfNormKernel, cdfnorm, la, Acc::LA)
TVX_SPECIAL_ENTRY(CdfNormKernel, cdfnorm, ep, Acc::EP)
#endif
#if TVX_VARIANT_ID >= 3
TVX_SPECIAL_ENTRY(ErfcKernel, erfc, ep, Acc::EP)
#endif
