// ErfInv, ErfcInv and CdfNormInv kernels, compiled once per instruction-set variant.
//
// Centre: x (c0 + x^2 R(x^2)) for erfinv on |x| < 1/2 (ErfInv, and ErfcInv on |1 - y| < 1/2)
// and for the normal quantile on |p - 1/2| < 1/8, c0 in two parts and its product exact at HA.
// Tail: the distance to the endpoint, q, is exact (1 - |x|, 2 - y, 1 - p by Sterbenz); the
// first guess of the upper quantile is a polynomial in t = sqrt(-ln q), one for each interval
// of t chosen by its exponent and two leading mantissa bits (relative error below 3e-13).
// EP stops there. LA and HA take one Halley step on erfc (or the normal tail) evaluated with
// the grid tables of the forward functions in double-double form: the residual is exact to
// far below the guess's error, and the step's cubic convergence leaves only the last rounding.
// Lanes outside the vector range (NaN, the endpoints, outside the domain, and arguments below
// 1e-300 from an endpoint) go to the callouts; the deep tail there is solved by Newton's method
// in the x87 extended format.
#include <cfloat>
#include <cmath>

#include "vector/kernels/common/kernel_loop.h"
#include "vector/kernels/erfgamma/erfgamma_common.h"

namespace tvx::TVX_VNS {
namespace {

using simd::ivec;
using simd::vec;
using special::Acc;
using special::d_bits;
using special::opaque;
using special::V;
using I = ivec<double>;

// Least distance to an endpoint kept in the vector path.
constexpr double kTailLimit = 1e-300;
constexpr double kInvSqrt2 = d_bits(0x3FE6A09E667F3BCD);
constexpr double kLn2 = d_bits(0x3FE62E42FEFA39EF);

// -ln q for q in [1e-300, 1/2], to about 1e-12: q = 2^k m with m in [sqrt(1/2), sqrt(2)), and
// ln m = 2 atanh(s), s = (m - 1)/(m + 1), |s| < 0.172, by its series to s^13.
inline V minus_ln(const V& q) {
  const I b = simd::as_ints(q);
  const V eb = simd::from_bits<double>((b >> 52) | I(0x4330000000000000)) - V(0x1p52);
  V m = simd::from_bits<double>((b & I(0x000FFFFFFFFFFFFF)) | I(0x3FF0000000000000));
  const auto big = m > V(d_bits(0x3FF6A09E667F3BCD));
  m = simd::select(big, m * V(0.5), m);
  const V k = simd::select(big, eb - V(1022.0), eb - V(1023.0));
  const V s = (m - V(1.0)) / (m + V(1.0));
  const V s2 = s * s;
  static constexpr double kAtanh[7] = {1.0, 1.0 / 3, 1.0 / 5, 1.0 / 7, 1.0 / 9, 1.0 / 11, 1.0 / 13};
  const V lnm = V(2.0) * s * simd::horner(s2, kAtanh);
  return -(k * V(kLn2) + lnm);
}

// First guess of the upper quantile z with Q(z) = q, q in [1e-300, 3/8].
inline V tail_guess(const V& q) {
  const V t = simd::sqrt(minus_ln(q));
  const I tb = simd::as_ints(t);
  const I idx = ((tb >> 50) - I(1022 << 2)) * I(special::kTailGuessTerms);
  const V v =
      simd::from_bits<double>((tb & I(0x0003FFFFFFFFFFFF)) | I(0x3FF0000000000000)) - V(1.125);
  constexpr int n = special::kTailGuessTerms;
  V acc = simd::lookup(special::kTailGuess + (n - 1), idx);
#pragma GCC unroll 16
  for (int k = n - 2; k >= 0; --k)
    acc = simd::madd(acc, v, simd::lookup(special::kTailGuess + k, idx));
  return acc;
}

// exp(-a) for |a| <= 0.21, to about 1e-12: the density's factor from the grid point to t.
inline V exp_minus_small(const V& a) {
  static constexpr double kC[10] = {1.0,        -1.0,      1.0 / 2,     -1.0 / 6,    1.0 / 24,
                                    -1.0 / 120, 1.0 / 720, -1.0 / 5040, 1.0 / 40320, -1.0 / 362880};
  return simd::horner(a, kC);
}

// One Halley step on value(z) = target for the decreasing tails: erfc (kErfc, density
// derivative factor exp(-(2w + z))) or the normal tail Q (exp(-(w + z/2))). target = 2^128 *
// the tail value sought.
template <bool kErfc>
inline V halley(const V& z0, const V& target) {
  using G = std::conditional_t<kErfc, special::ErfcGrid, special::CdfGrid>;
  const special::Step st = special::grid_value<G, -1, Acc::HA>(z0);
  const V res = (st.hi - target) + st.lo;
  const V a = kErfc ? V(2.0) * st.w + st.z : st.w + V(0.5) * st.z;
  const V delta = res / (st.d * exp_minus_small(a));
  const V half = kErfc ? z0 * delta : V(0.5) * z0 * delta;
  return z0 + delta * (V(1.0) + half);
}

// x (c0 + x^2 R(x^2)) with the leading product exact at HA; x^2 below 2^-512 is not formed.
template <const double* kC0, const double* kR, int kN, Acc A>
inline V centre(const V& x) {
  const auto tiny = simd::abs(x) < V(0x1p-256);
  const V xs = simd::select(tiny, x * V(0x1p200), x);
  const V xn = simd::select(tiny, V(0.0), xs);
  const V x2 = xn * xn;
  V poly(kR[kN - 1]);
#pragma GCC unroll 16
  for (int k = kN - 2; k >= 0; --k) poly = simd::madd(poly, x2, V(kR[k]));
  const V rest = xs * (x2 * poly);
  V y;
  if constexpr (A == Acc::HA || A == Acc::LA) {
    V ph, pl;
    special::two_prod(xs, V(kC0[0]), ph, pl);
    y = ph + ((pl + xs * V(kC0[1])) + rest);
  } else {
    y = simd::madd(xs, V(kC0[0]), rest);
  }
  // The sign of x also on a zero (the sum of the parts of -0 is +0).
  return simd::clear_sign(simd::select(tiny, y * V(0x1p-200), y)) | simd::sign_of(x);
}

template <Acc A>
inline V erfinv_centre(const V& x) {
  return centre<special::kErfInvCentreC0, special::kErfInvCentreR, 16, A>(x);
}

// erfcinv of the tail value y' in [1e-300, 1/2] (positive).
template <Acc A>
inline V erfc_tail(const V& yt) {
  const V z0 = tail_guess(yt * V(0.5)) * V(kInvSqrt2);
  if constexpr (A == Acc::EP) {
    return z0;
  } else {
    return halley<true>(z0, yt * V(special::kScale));
  }
}

template <Acc A>
inline V erfinv_core(const V& x) {
  const V ax = simd::abs(x);
  const auto mid = ax < V(0.5);
  const V yt = simd::select(mid, V(0.5), V(1.0) - ax);
  const V tail = erfc_tail<A>(yt) | simd::sign_of(x);
  return simd::select(mid, erfinv_centre<A>(x), tail);
}

template <Acc A>
inline V erfcinv_core(const V& y) {
  const V d = V(1.0) - y;
  const auto mid = simd::abs(d) < V(0.5);
  const auto low = y < V(1.0);
  const V yt = simd::select(mid, V(0.5), simd::select(low, y, V(2.0) - y));
  const V z = erfc_tail<A>(yt);
  return simd::select(mid, erfinv_centre<A>(d), simd::select(low, z, -z));
}

template <Acc A>
inline V cdfinv_core(const V& p) {
  const V d = p - V(0.5);
  const auto mid = simd::abs(d) < V(0.125);
  const auto low = d < V(0.0);
  const V q = simd::select(mid, V(0.375), simd::select(low, p, V(1.0) - p));
  V z = tail_guess(q);
  if constexpr (A != Acc::EP) z = halley<false>(z, q * V(special::kScale));
  const V c = centre<special::kCdfInvCentreC0, special::kCdfInvCentreR, 11, A>(d);
  return simd::select(mid, c, simd::select(low, -z, z));
}

// ---- scalar callouts ----------------------------------------------------------------------------
// erfcinv(y) for 0 < y < 1e-300 (the result from 26.2 to 27.3): Newton's method on ln erfc in
// the extended format, where erfc of the iterate keeps its relative accuracy.
inline long double erfcinv_deep(long double y) {
  struct X87 {
    std::uint16_t saved;
    X87() {
      asm volatile("fnstcw %0" : "=m"(saved));
      const std::uint16_t cw = 0x037F;
      asm volatile("fldcw %0" : : "m"(cw));
    }
    ~X87() { asm volatile("fnclex\n\tfldcw %0" : : "m"(saved)); }
  } x87;
  const long double ly = logl(y);
  long double z = sqrtl(-ly);
  for (int i = 0; i < 8; ++i) {
    const long double e = erfcl(z);
    const long double dlog =
        2.0L / sqrtl(3.14159265358979323846264338327950288L) * expl(-z * z) / e;
    z += (logl(e) - ly) / dlog;
  }
  return z;
}

template <class T>
inline T domain_error() {
  return opaque(T(0)) / opaque(T(0));
}
template <class T>
inline T pole(bool negative) {
  const T inf = opaque(T(1)) / opaque(T(0));
  return negative ? -inf : inf;
}

template <class T>
inline int erfinv_callout(T x, T* r) {
  if (std::isnan(x)) {
    *r = x + x;
    return 0;
  }
  if (std::fabs(x) > 1) {
    *r = domain_error<T>();
    return KAZ_STATUS_ERRDOM;
  }
  *r = pole<T>(x < 0);  // |x| = 1
  return KAZ_STATUS_SING;
}

// Shared by ErfcInv (ends 0 and 2) and CdfNormInv (ends 0 and 1, kCdf).
template <class T, bool kCdf>
inline int inverse_tail_callout(T x, T* r) {
  const T top = kCdf ? T(1) : T(2);
  if (std::isnan(x)) {
    *r = x + x;
    return 0;
  }
  if (x < 0 || x > top) {
    *r = domain_error<T>();
    return KAZ_STATUS_ERRDOM;
  }
  if (x == 0 || x == top) {
    *r = pole<T>(kCdf ? x == 0 : x == top);
    return KAZ_STATUS_SING;
  }
  // 0 < x < 1e-300 (only double arguments get here).
  const long double w = erfcinv_deep(kCdf ? 2.0L * x : static_cast<long double>(x));
  const long double z = kCdf ? -w * sqrtl(2.0L) : w;
  *r = opaque(static_cast<T>(z)) * opaque(T(1));
  return 0;
}

// ---- kernels ------------------------------------------------------------------------------------
enum class Fn { kErfInv, kErfcInv, kCdfNormInv };

template <Fn F, Acc A>
inline V core(const V& x) {
  if constexpr (F == Fn::kErfInv) {
    return erfinv_core<A>(x);
  } else if constexpr (F == Fn::kErfcInv) {
    return erfcinv_core<A>(x);
  } else {
    return cdfinv_core<A>(x);
  }
}

template <class E, Fn F, Acc A>
struct InvKernel {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = F == Fn::kErfInv ? (sizeof(T) == 8 ? "vdErfInv" : "vsErfInv")
                                       : F == Fn::kErfcInv
                                           ? (sizeof(T) == 8 ? "vdErfcInv" : "vsErfcInv")
                                           : (sizeof(T) == 8 ? "vdCdfNormInv" : "vsCdfNormInv");
  static vec<T> vector(const vec<T>& x, std::uint32_t& bad, std::uint32_t) {
    using VT = vec<T>;
    const auto nan = simd::is_nan(x);
    const VT xq = simd::select(nan, VT(T(0.5)), x);
    // The lanes the vector path takes, by ordered compares on NaN-free values.
    // Both ends of ErfcInv and CdfNormInv are at least 2^-53 away from the largest arguments
    // below them, so only the lower end needs the tail limit.
    constexpr T kLo = sizeof(T) == 8 ? T(kTailLimit) : T(0);
    constexpr T kTop = F == Fn::kCdfNormInv ? T(1) : T(2);
    const auto out = F == Fn::kErfInv ? simd::not_less(simd::abs(xq), VT(T(1)))
                                      : (simd::not_less(xq, VT(kTop)) || !(xq > VT(kLo)));
    const auto in = !(out || nan);
    bad = simd::bits(out || nan);
    const VT xc = simd::select(in, x, VT(T(0.5)));
    if constexpr (sizeof(T) == 8) {
      return core<F, A>(xc);
    } else {
      // Singles: the double first guess is far below their last place.
      return special::through_double(xc, [](const V& v) { return core<F, Acc::EP>(v); });
    }
  }
  static int callout(T x, T* r) {
    if constexpr (F == Fn::kErfInv) {
      return erfinv_callout(x, r);
    } else {
      return inverse_tail_callout<T, F == Fn::kCdfNormInv>(x, r);
    }
  }
};

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;

#define TVX_INV_ENTRY(F, lname, level, A)                                      \
  extern "C" {                                                                 \
  void TVX_ENTRY(kaz_##lname##_d_##level)(int n, const double* a, double* r) { \
    run_v_v<InvKernel<double, F, A>>(n, a, r);                                 \
  }                                                                            \
  void TVX_ENTRY(kaz_##lname##_s_##level)(int n, const float* a, float* r) {   \
    run_v_v<InvKernel<float, F, A>>(n, a, r);                                  \
  }                                                                            \
  }

TVX_INV_ENTRY(Fn::kErfInv, erfinv, ha, Acc::HA)
TVX_INV_ENTRY(Fn::kErfcInv, erfcinv, ha, Acc::HA)
TVX_INV_ENTRY(Fn::kCdfNormInv, cdfnorminv, ha, Acc::HA)
#if TVX_VARIANT_ID != 1
TVX_INV_ENTRY(Fn::kErfInv, erfinv, ep, Acc::EP)
#endif
#if TVX_VARIANT_ID >= 3
TVX_INV_ENTRY(Fn::kErfcInv, erfcinv, ep, Acc::EP)
TVX_INV_ENTRY(Fn::kCdfNormInv, cdfnorminv, ep, Acc::EP)
#endif
