// Div, Inv and LinearFrac: true divides, and the reciprocal forms that replace the divide by a
// hardware estimate and refinement steps. A zero divisor with a finite dividend is reported as a
// singularity (status 2), 0/0 included; infinite or NaN operands give the IEEE result silently.
// The reciprocal forms trust only divisors and quotients well inside the normal range; the other
// lanes are marked and recomputed by a true divide in the callout, which also does the zero test.
#pragma once

#include <cmath>

#include "vector/kernels/arith_round/common.h"

namespace tvx::TVX_VNS::arith {

// Status of a/b: 2 when b is zero and a is finite (b is then finite too).
template <class T>
inline int div_status(T a, T b) {
  return (b == T(0) && std::fabs(a) <= Lim<T>::kMax) ? KAZ_STATUS_SING : 0;
}

// Environment of the division kernels: the SSE2 copies also pin the x87 unit.
inline constexpr Env kDivEnv = kVariantId <= 1 ? Env::kModeStrictX87 : Env::kMode;

// ---- true divides -------------------------------------------------------------------------------
template <class E>
struct DivExact {
  using T = E;
  static constexpr Env kEnv = kDivEnv;
  static constexpr int kUnroll = kBlockRegs;
  static constexpr bool kStream = true;
  static constexpr const char* kName = pick<T>("vdDiv", "vsDiv");
  static vec<T> vector(const vec<T>& a, const vec<T>& b, std::uint32_t& bad, std::uint32_t) {
    bad = simd::bits((b == vec<T>(0)) & (simd::clear_sign(a) <= vec<T>(Lim<T>::kMax)));
    return a / b;
  }
  static int callout(T a, T b, T* r) {
    *r = a / b;
    return div_status(a, b);
  }
};

template <class E>
struct InvExact {
  using T = E;
  static constexpr Env kEnv = kDivEnv;
  static constexpr int kUnroll = kBlockRegs;
  static constexpr bool kStream = true;
  static constexpr const char* kName = pick<T>("vdInv", "vsInv");
  static vec<T> vector(const vec<T>& b, std::uint32_t& bad, std::uint32_t) {
    bad = simd::bits(b == vec<T>(0));
    return vec<T>(1) / b;
  }
  static int callout(T b, T* r) {
    *r = T(1) / b;
    return div_status(T(1), b);
  }
};

// ---- reciprocal forms ---------------------------------------------------------------------------
// How far a reciprocal is refined.
enum class Rcp {
  kNewton,       // one Newton step r + r*e
  kCubic,        // r + r*(e + e^2)
  kCubicNewton,  // the cubic step, then a Newton step
  kQuintic,      // r + r*(e + e^2 + e^3 + e^4)
};

#if TVX_VARIANT_ID == 2 || TVX_VARIANT_ID == 3
// Double reciprocal seed from the single estimate: the top 20 mantissa bits of b (from its high
// word, shifted into a single in [1, 2)) go through rcpps; the estimate's bits shifted back into a
// double high word, with b's exponent subtracted and 0x77F00000 added, give r ~ 1/b with a zero
// low word and b's sign. Only meaningful for exponent fields 0x002 to 0x7FC.
inline vec<double> seed_from_high_word(const vec<double>& b) {
#if TVX_VARIANT_ID == 3
  const __m256i bi = _mm256_castpd_si256(b);
  const __m256i hi_mask = _mm256_set1_epi64x(static_cast<long long>(0xFFFFFFFF00000000ull));
  const __m256i m = _mm256_or_si256(
      _mm256_and_si256(_mm256_slli_epi32(bi, 3), _mm256_set1_epi64x(0x007FFFF800000000ll)),
      _mm256_set1_epi64x(0x3F80000000000000ll));
  const __m256i e = _mm256_castps_si256(_mm256_rcp_ps(_mm256_castsi256_ps(m)));
  __m256i r = _mm256_sub_epi32(
      _mm256_srli_epi32(e, 3),
      _mm256_and_si256(bi, _mm256_set1_epi64x(static_cast<long long>(0xFFF0000000000000ull))));
  r = _mm256_add_epi32(r, _mm256_set1_epi64x(0x77F0000000000000ll));
  return vec<double>(_mm256_castsi256_pd(_mm256_and_si256(r, hi_mask)));
#else
  const __m128i bi = _mm_castpd_si128(b);
  const __m128i hi_mask = _mm_set1_epi64x(static_cast<long long>(0xFFFFFFFF00000000ull));
  const __m128i m =
      _mm_or_si128(_mm_and_si128(_mm_slli_epi32(bi, 3), _mm_set1_epi64x(0x007FFFF800000000ll)),
                   _mm_set1_epi64x(0x3F80000000000000ll));
  const __m128i e = _mm_castps_si128(_mm_rcp_ps(_mm_castsi128_ps(m)));
  __m128i r = _mm_sub_epi32(
      _mm_srli_epi32(e, 3),
      _mm_and_si128(bi, _mm_set1_epi64x(static_cast<long long>(0xFFF0000000000000ull))));
  r = _mm_add_epi32(r, _mm_set1_epi64x(0x77F0000000000000ll));
  return vec<double>(_mm_castsi128_pd(_mm_and_si128(r, hi_mask)));
#endif
}
#endif

// Estimate of 1/b for the reciprocal forms of this variant.
template <class T>
inline vec<T> seed(const vec<T>& b) {
#if TVX_VARIANT_ID == 2 || TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    return seed_from_high_word(b);
  } else {
    return simd::rcp_estimate(b);
  }
#else
  return simd::rcp_estimate(b);
#endif
}

// e = 1 - b*r, fused where the variant has fused operations.
template <class T>
inline vec<T> residual_one(const vec<T>& b, const vec<T>& r) {
  if constexpr (simd::kHasFma) {
    return simd::fnma(b, r, vec<T>(1));
  } else {
    return vec<T>(1) - b * r;
  }
}
// r + r*e, fused where possible.
template <class T>
inline vec<T> step(const vec<T>& r, const vec<T>& e) {
  if constexpr (simd::kHasFma) {
    return simd::fma(r, e, r);
  } else {
    return r + r * e;
  }
}
// e + e*e, fused where possible.
template <class T>
inline vec<T> square_up(const vec<T>& e) {
  if constexpr (simd::kHasFma) {
    return simd::fma(e, e, e);
  } else {
    return e + e * e;
  }
}

// Refined reciprocal of b. Relative error, from an estimate within 2^-11.4 (rcpps) or 2^-14
// (vrcp14): Newton ~2^-22.8 / 2^-28; cubic ~2^-34 / 2^-42; cubic then Newton and quintic below
// 2^-53 plus the last roundings.
template <Rcp kR, class T>
inline vec<T> reciprocal(const vec<T>& b) {
  vec<T> r = seed(b);
  vec<T> e = residual_one(b, r);
  if constexpr (kR == Rcp::kNewton) {
    return step(r, e);
  } else if constexpr (kR == Rcp::kQuintic) {
    vec<T> s = e;
    for (int k = 0; k < 3; ++k) s = simd::fma(s, e, e);
    return step(r, s);
  } else {
    r = step(r, square_up(e));
    if constexpr (kR == Rcp::kCubicNewton) r = step(r, residual_one(b, r));
    return r;
  }
}

// Divisor lanes the reciprocal can take: |b| in [kRcpLo, kRcpHi) (not zero, subnormal, huge,
// infinite or NaN).
template <class T>
inline auto divisor_ok(const vec<T>& b) {
  const vec<T> tb = simd::clear_sign(b);
  return (tb >= vec<T>(Lim<T>::kRcpLo)) & (tb < vec<T>(Lim<T>::kRcpHi));
}

// b with the lanes the reciprocal cannot take replaced by 1: those lanes go to the callout, and
// the stand-in keeps the estimate and its refinement from raising flags there (0 * inf, inf - inf,
// an overflowing reciprocal) that the true divide of the callout would not raise.
template <class T>
inline vec<T> safe_divisor(const vec<T>& b) {
  return simd::select(divisor_ok(b), b, vec<T>(T(1)));
}

// Lanes that the reciprocal form must not settle: divisor outside [kRcpLo, kRcpHi) (zero,
// subnormal, huge, infinite, NaN), a subnormal, infinite or NaN dividend, or a non-zero dividend
// whose quotient leaves [kQuoLo, kQuoHi] (the residual step would over- or underflow).
template <class T>
inline std::uint32_t rcp_marks(const vec<T>& a, const vec<T>& b, const vec<T>& q) {
  const vec<T> tq = simd::clear_sign(q);
  const auto b_ok = divisor_ok(b);
  const auto q_ok = (tq >= vec<T>(Lim<T>::kQuoLo)) & (tq <= vec<T>(Lim<T>::kQuoHi)) &
                    (simd::clear_sign(a) >= vec<T>(std::numeric_limits<T>::min()));
  return simd::bits(!(b_ok & (q_ok | (a == vec<T>(0)))));
}

// a/b by a refined reciprocal; kCorrect adds the residual step q + r*(a - b*q) (fused only).
template <class E, Rcp kR, bool kCorrect>
struct DivRcp {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr int kUnroll = kVariantId == 5 ? 4 : 2;
  static constexpr const char* kName = pick<T>("vdDiv", "vsDiv");
  static vec<T> vector(const vec<T>& a, const vec<T>& b, std::uint32_t& bad, std::uint32_t) {
    const vec<T> bs = safe_divisor(b);
    const vec<T> r = reciprocal<kR>(bs);
    vec<T> q = a * r;
    if constexpr (kCorrect) {
      // The residual step would turn a -0 quotient into +0, and an infinite one into NaN (by
      // inf - inf, raising invalid): those lanes keep a*r, and the step runs on 0 there.
      const auto keep = (a == vec<T>(0)) | !(simd::clear_sign(q) <= vec<T>(Lim<T>::kMax));
      const vec<T> qs = simd::select(keep, vec<T>(T(0)), q);
      q = simd::select(keep, q, simd::fma(r, simd::fnma(bs, qs, a), qs));
    }
    bad = rcp_marks(a, b, q);
    return q;
  }
  static int callout(T a, T b, T* r) {
    *r = a / b;
    return div_status(a, b);
  }
};

template <class E, Rcp kR, bool kCorrect>
struct InvRcp {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr int kUnroll = kVariantId == 5 ? 4 : 2;
  static constexpr const char* kName = pick<T>("vdInv", "vsInv");
  static vec<T> vector(const vec<T>& b, std::uint32_t& bad, std::uint32_t) {
    const vec<T> bs = safe_divisor(b);
    vec<T> q = reciprocal<kR>(bs);
    if constexpr (kCorrect) q = simd::fma(q, residual_one(bs, q), q);
    bad = rcp_marks(vec<T>(1), b, q);
    return q;
  }
  static int callout(T b, T* r) {
    *r = T(1) / b;
    return div_status(T(1), b);
  }
};

// ---- LinearFrac ---------------------------------------------------------------------------------
// y = (scalea*a + shifta) / (scaleb*b + shiftb), each product and sum rounded on its own. The
// scalars are looked at once: scaleb == 0 makes the denominator the constant shiftb, taken as one
// reciprocal c = 1/shiftb (b is then never read, also when scalea is 0 too); scalea == 0 alone
// leaves the numerator shifta. Nothing is reported, not even a zero denominator.
template <class T>
struct LfracScalars {
  T sa, ha, sb, hb;
};

// Numerator times the constant reciprocal of shiftb (scaleb == 0).
template <class E>
struct LfracConst {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr int kUnroll = kBlockRegs;
  static constexpr const char* kName = pick<T>("vdLinearFrac", "vsLinearFrac");
  static vec<T> vector(const vec<T>& a, const LfracScalars<T>& s, const T& c, std::uint32_t&,
                       std::uint32_t) {
    return (vec<T>(s.sa) * a + vec<T>(s.ha)) * vec<T>(c);
  }
  static int callout(T a, const LfracScalars<T>& s, const T& c, T* r) {
    *r = (s.sa * a + s.ha) * c;
    return 0;
  }
};

// General form (kNumConst: scalea == 0, the numerator is shifta), by a true divide or, with
// kRcp, by the refined reciprocal of the denominator and a true divide for the marked lanes.
template <class E, bool kNumConst, bool kRcp>
struct LfracDiv {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr int kUnroll = kRcp ? 2 : kBlockRegs;
  static constexpr const char* kName = pick<T>("vdLinearFrac", "vsLinearFrac");
  static T num(T a, const LfracScalars<T>& s) { return kNumConst ? s.ha : s.sa * a + s.ha; }
  static vec<T> vector(const vec<T>& a, const vec<T>& b, const LfracScalars<T>& s,
                       std::uint32_t& bad, std::uint32_t) {
    const vec<T> n = kNumConst ? vec<T>(s.ha) : vec<T>(s.sa) * a + vec<T>(s.ha);
    const vec<T> d = vec<T>(s.sb) * b + vec<T>(s.hb);
    if constexpr (kRcp) {
      const vec<T> q = n * reciprocal<Rcp::kCubicNewton>(d);
      bad = rcp_marks(n, d, q);
      return q;
    } else {
      return n / d;
    }
  }
  static int callout(T a, T b, const LfracScalars<T>& s, T* r) {
    *r = num(a, s) / (s.sb * b + s.hb);
    return 0;
  }
};

// The whole kernel: the scalar tests ahead of the loop, then one driver. c = 1/shiftb is taken in
// the kernel's environment; the inner driver finds the environment already set.
template <class T, bool kRcp>
inline void linear_frac(int n, const T* a, const T* b, T sa, T ha, T sb, T hb, T* r) {
  if (n <= 0) return;
  FpGuard env(Env::kMode);
  const LfracScalars<T> s{sa, ha, sb, hb};
  if (sb == T(0)) {
    volatile T one = T(1);  // kept out of constant folding: the divide runs in this environment
    const T c = one / hb;
    run_v_v<LfracConst<T>>(n, a, r, s, c);
  } else if (sa == T(0)) {
    run_vv_v<LfracDiv<T, true, kRcp>>(n, a, b, r, s);
  } else {
    run_vv_v<LfracDiv<T, false, kRcp>>(n, a, b, r, s);
  }
}

}  // namespace tvx::TVX_VNS::arith
