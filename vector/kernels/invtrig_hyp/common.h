// What the inverse trigonometric and hyperbolic kernels share: the generated constants, exact
// sums, products and square roots in two parts, and the frame that runs a single-precision
// function through its double-precision design.
//
// Single precision: each register of floats is widened into two registers of doubles, the double
// design of a lower level runs on them (HA on the double LA design, LA and EP on the double EP
// design: both are far inside the single-precision goals), and the results are rounded once to
// single. The scalar callouts do the same through the double callouts.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "simd/simd_ops.h"
#include "vector/kernels/common/kernel_loop.h"
#include "vector/kernels/exp_log/exp_common.h"

namespace tvx::TVX_VNS::ith {

#include "vector/kernels/invtrig_hyp/invtrig_tables.inc"

using exp_detail::Acc;
using simd::uvec;
using simd::vec;
using VD = vec<double>;
using VF = vec<float>;
using UD = uvec<double>;

constexpr double bits_d(std::uint64_t b) {
  return std::bit_cast<double>(b);
}

inline constexpr double kInfD = std::numeric_limits<double>::infinity();
inline constexpr double kPi2Hi = kPiPartsHi[0], kPi2Lo = kPiPartsLo[0];
inline constexpr double kPiHi = kPiPartsHi[1], kPiLo = kPiPartsLo[1];

// The level of the double design behind a single-precision kernel.
constexpr Acc double_level_for_single(Acc a) {
  return a == Acc::HA ? Acc::LA : Acc::EP;
}

// Hides a value from the optimiser, so that a flag-raising operation happens at run time.
template <class T>
inline T opaque(T v) {
  asm volatile("" : "+x"(v));
  return v;
}

// x * 1, computed at run time: x itself, but a denormal reads as zero when the mode asks for it.
inline VD times_one(const VD& x) {
  auto one = static_cast<typename VD::register_type>(VD(1.0));
  asm("" : "+v"(one));
  return x * VD(one);
}

// ---- exact two-part arithmetic ------------------------------------------------------------------
// s + e = a + b exactly, for any a, b.
inline void two_sum(const VD& a, const VD& b, VD& s, VD& e) {
  s = a + b;
  const VD bb = s - a;
  e = (a - (s - bb)) + (b - bb);
}
// The same when |a| >= |b| (or a = 0).
inline void fast_two_sum(const VD& a, const VD& b, VD& s, VD& e) {
  s = a + b;
  e = b - (s - a);
}
// High half of a double: 26 significant bits, so that products of two halves are exact.
inline VD upper_half(const VD& a) {
  return simd::from_bits<double>(simd::as_bits(a) & UD(0xFFFFFFFFF8000000ull));
}
// p + e = a * b exactly (fused where the variant has it, else by halves; |a b| < 2^995).
inline void two_prod(const VD& a, const VD& b, VD& p, VD& e) {
  p = a * b;
  if constexpr (simd::kHasFma) {
    e = simd::fms(a, b, p);
  } else {
    const VD ah = upper_half(a), al = a - ah;
    const VD bh = upper_half(b), bl = b - bh;
    e = ((ah * bh - p) + ah * bl + al * bh) + al * bl;
  }
}
// c - a * b with the product exact, rounded once: the residual of a quotient or a root.
inline VD residual(const VD& c, const VD& a, const VD& b) {
  if constexpr (simd::kHasFma) {
    return simd::fnma(a, b, c);
  } else {
    VD p, e;
    two_prod(a, b, p, e);
    return (c - p) - e;
  }
}
// sqrt(wh + wl) as sh + sl, for wh >= 0 with |wl| tiny against wh; sqrt(0) is 0 + 0.
inline void sqrt_two(const VD& wh, const VD& wl, VD& sh, VD& sl) {
  sh = simd::sqrt(wh);
  const VD den = simd::select(sh == VD(0.0), VD(1.0), sh + sh);
  sl = (residual(wh, sh, sh) + wl) / den;
}

// Sign bit of each lane, and x with that sign applied by XOR.
inline VD sign_bits(const VD& x) {
  return simd::from_bits<double>(simd::as_bits(x) & UD(0x8000000000000000ull));
}
inline VD with_sign(const VD& y, const VD& s) {
  return simd::from_bits<double>(simd::as_bits(y) ^ simd::as_bits(s));
}

// ---- single precision through double -----------------------------------------------------------
inline void widen(const VF& v, VD& lo, VD& hi) {
#if TVX_VARIANT_ID == 5
  lo = VD(_mm512_cvtps_pd(_mm512_castps512_ps256(v)));
  hi = VD(_mm512_cvtps_pd(_mm512_extractf32x8_ps(v, 1)));
#elif TVX_VARIANT_ID == 3
  lo = VD(_mm256_cvtps_pd(_mm256_castps256_ps128(v)));
  hi = VD(_mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)));
#else
  const __m128 x = v;
  lo = VD(_mm_cvtps_pd(x));
  hi = VD(_mm_cvtps_pd(_mm_movehl_ps(x, x)));
#endif
}
inline VF narrow(const VD& lo, const VD& hi) {
#if TVX_VARIANT_ID == 5
  return VF(
      _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_cvtpd_ps(lo)), _mm512_cvtpd_ps(hi), 1));
#elif TVX_VARIANT_ID == 3
  return VF(_mm256_set_m128(_mm256_cvtpd_ps(hi), _mm256_cvtpd_ps(lo)));
#else
  return VF(_mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi)));
#endif
}

inline bool no_error_mode(std::uint32_t mode) {
  return (mode & KAZ_ERRMODE_MASK) == KAZ_ERRMODE_NOERR;
}

// Kernel of one input. D<A> is a double design: static VD vector(const VD&, std::uint32_t& bad,
// std::uint32_t mode) and static int callout(double, double*). Single-precision lanes beyond
// D<A>::kSingleLimit (in magnitude) go to the callout as well, whose double result is then
// rounded to single (overflowing there with status 3, see single_callout).
template <class E, template <Acc> class D, Acc A>
struct Unary {
  using T = E;
  using V = vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = sizeof(T) == 8 ? D<A>::kNameD : D<A>::kNameS;
  static constexpr int kUnroll = TVX_VARIANT_ID >= 3 ? 2 : 1;

  static V vector(const V& x, std::uint32_t& bad, std::uint32_t mode) {
    if constexpr (sizeof(T) == 8) {
      return D<A>::vector(x, bad, mode);
    } else {
      using DS = D<double_level_for_single(A)>;
      VD lo, hi;
      widen(x, lo, hi);
      std::uint32_t b0 = 0, b1 = 0;
      const VD y0 = DS::vector(lo, b0, mode);
      const VD y1 = DS::vector(hi, b1, mode);
      bad = b0 | (b1 << simd::lanes<double>);
      if constexpr (DS::kSingleLimit < kInfD) {
        bad |= simd::bits(simd::not_less(simd::abs(x), V(float(DS::kSingleLimit))));
      }
      return narrow(y0, y1);
    }
  }
  static int callout(T x, T* r) {
    if constexpr (sizeof(T) == 8) {
      return D<A>::callout(x, r);
    } else {
      double y;
      const int st = D<A>::callout(static_cast<double>(x), &y);
      *r = static_cast<float>(y);
      // Finite in double, infinite in single: the single result overflows.
      if (st == 0 && std::isinf(*r) && std::isfinite(y)) {
        return KAZ_STATUS_OVERFLOW;
      }
      return st;
    }
  }
};

// Kernel of two inputs, as Unary (no limits, no statuses beyond the double callout's).
template <class E, template <Acc> class D, Acc A>
struct Binary {
  using T = E;
  using V = vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = sizeof(T) == 8 ? D<A>::kNameD : D<A>::kNameS;
  static constexpr int kUnroll = TVX_VARIANT_ID >= 3 ? 2 : 1;

  static V vector(const V& x, const V& y, std::uint32_t& bad, std::uint32_t mode) {
    if constexpr (sizeof(T) == 8) {
      return D<A>::vector(x, y, bad, mode);
    } else {
      using DS = D<double_level_for_single(A)>;
      VD x0, x1, y0, y1;
      widen(x, x0, x1);
      widen(y, y0, y1);
      std::uint32_t b0 = 0, b1 = 0;
      const VD r0 = DS::vector(x0, y0, b0, mode);
      const VD r1 = DS::vector(x1, y1, b1, mode);
      bad = b0 | (b1 << simd::lanes<double>);
      return narrow(r0, r1);
    }
  }
  static int callout(T x, T y, T* r) {
    if constexpr (sizeof(T) == 8) {
      return D<A>::callout(x, y, r);
    } else {
      double z;
      const int st = D<A>::callout(static_cast<double>(x), static_cast<double>(y), &z);
      *r = static_cast<float>(z);
      return st;
    }
  }
};

}  // namespace tvx::TVX_VNS::ith

// Entry points of a one-argument function in double and single: kaz_<lname>_d_<lv> and
// kaz_<lname>_s_<lv>, each running Unary<T, D, A> over the array.
#define TVX_ITH_V_V(lname, D, A, lv)                                        \
  void TVX_ENTRY(kaz_##lname##_d_##lv)(int n, const double* a, double* r) { \
    run_v_v<Unary<double, D, A>>(n, a, r);                                  \
  }                                                                         \
  void TVX_ENTRY(kaz_##lname##_s_##lv)(int n, const float* a, float* r) {   \
    run_v_v<Unary<float, D, A>>(n, a, r);                                   \
  }
