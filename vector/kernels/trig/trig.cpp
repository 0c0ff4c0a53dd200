// Sin, Cos, SinCos and Tan in double and single precision, compiled once per variant.
//
// Two designs:
//   by pi/2 (HA; SinCos and Tan at every level): x = n pi/2 + r with |r| <= pi/4, and
//     sin r = r + r^3 S(r^2), cos r = 1 - r^2/2 + r^4 C(r^2);
//     the two low bits of n choose between them and the sign; Tan is s/c or -c/s.
//   by pi (Sin and Cos of LA and EP): x = n pi + r with |r| <= pi/2 and one polynomial,
//     sin x = (-1)^n sin r; for Cos n is an integer less one half, cos x = (-1)^(n+1/2) sin r.
// Single precision converts to double, runs the double design with shorter polynomials and
// rounds once at the end.
//
// Reduction, two levels, both in the vector path:
//   |x| <= 2^20: n = round(|x| / period), r = |x| - n (A + B + C + D) with A, B, C of 33 bits,
//     so that the first three products are exact; HA keeps the rounding errors of the
//     subtractions as a low part rl of r.
//   2^20 < |x| < infinity: the significand times 192 bits of 2/pi chosen by the exponent (the
//     generated table), in 32-bit pieces with integer multiplies, gives x 2/pi modulo 4: the
//     quadrant on top and 124 bits of fraction, turned into r = rh + rl. A register runs this
//     only when one of its lanes needs it, so such a lane costs a slower block, not a call.
// Infinities and NaNs go to the scalar callouts.
//
// Polynomials (double; single in parentheses, evaluated in double), from tools/fit_trig_poly.py
// with the relative error of each:
//   HA: S of 7 terms (2^-57), C of 6 (2^-59), the low part rl and the rounding errors of r^2 and
//       r^3 carried, Tan as a quotient of double-double values with one correction step
//       (S 4, C 4: 2^-35, 2^-39). Every level of variants 0 and 1.
//   LA: by pi/2 S and C of 6 terms (2^-55, 2^-59) without rl (3 and 3: 2^-26, 2^-29); by pi
//       8 terms (2^-54.6) (4: 2^-25).
//   EP: by pi/2 S and C of 4 terms (2^-35, 2^-39) (2 and 2: 2^-17, 2^-20); by pi Sin 5 terms
//       (2^-33) (3: 2^-17.7), Cos the LA polynomial, so that cos 0 is exactly 1.
#include <bit>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "vector/kernels/common/kernel_loop.h"

namespace tvx::TVX_VNS {
namespace {

#include "vector/kernels/trig/trig_tables.inc"

using simd::uvec;
using simd::vec;
using VD = vec<double>;
using UD = uvec<double>;
using VF = vec<float>;

enum class Fn { kSin, kCos, kTan, kSinCos };
enum class Lv { kLA, kHA, kEP };

constexpr double kShift = 0x1.8p52;    // adding it rounds a double below 2^51 to an integer
constexpr double kFastLimit = 0x1p20;  // the first reduction serves |x| up to here
constexpr double kTiny = 0x1p-30;      // below it sin r = r and cos r = 1 in the type
constexpr std::uint64_t kM32 = 0xFFFFFFFFull;

// Coefficients of S (r^3, r^5, ...) and C (r^4, r^6, ...) by level.
struct DoubleHa {
  static constexpr double kS[] = {
      -0x1.5555555555555p-3,  0x1.1111111111110p-7,  -0x1.a01a01a019938p-13, 0x1.71de3a546095bp-19,
      -0x1.ae645412c560cp-26, 0x1.61217f0b800d5p-33, -0x1.ab17d404de5b3p-41};
  static constexpr double kC[] = {0x1.5555555555555p-5,  -0x1.6c16c16c16967p-10,
                                  0x1.a01a019f4eb01p-16, -0x1.27e4fa17da09ep-22,
                                  0x1.1eeb68e93b64cp-29, -0x1.907da367a37cbp-37};
  static constexpr bool kTail = true;
};
struct DoubleLa {
  static constexpr double kS[] = {-0x1.5555555555555p-3,  0x1.1111111110bb2p-7,
                                  -0x1.a01a019e83aaep-13, 0x1.71de37968a100p-19,
                                  -0x1.ae600b02b6262p-26, 0x1.5e0b19f8b1451p-33};
  static constexpr double kC[] = {0x1.5555555555555p-5,  -0x1.6c16c16c16967p-10,
                                  0x1.a01a019f4eb01p-16, -0x1.27e4fa17da09ep-22,
                                  0x1.1eeb68e93b64cp-29, -0x1.907da367a37cbp-37};
  static constexpr bool kTail = false;
};
struct DoubleEp {
  static constexpr double kS[] = {-0x1.555555545e0acp-3, 0x1.11110def2e1c9p-7,
                                  -0x1.a013a793b98cep-13, 0x1.6dbe0838a06e9p-19};
  static constexpr double kC[] = {0x1.5555555502cf4p-5, -0x1.6c16bf54e7232p-10,
                                  0x1.a015c47d920acp-16, -0x1.25244e23e6e3ap-22};
  static constexpr bool kTail = false;
};
using SingleHa = DoubleEp;
struct SingleLa {
  static constexpr double kS[] = {-0x1.555552a4a4a44p-3, 0x1.110c28a771a24p-7,
                                  -0x1.9ac9b03bb7fbbp-13};
  static constexpr double kC[] = {0x1.5555544178832p-5, -0x1.6c12d2ef379dcp-10,
                                  0x1.9bd89bc2b0a75p-16};
  static constexpr bool kTail = false;
};
struct SingleEp {
  static constexpr double kS[] = {-0x1.55506d8127675p-3, 0x1.0d16096bf36d3p-7};
  static constexpr double kC[] = {0x1.5552e057b4004p-5, -0x1.681a32dbca1ddp-10};
  static constexpr bool kTail = false;
};

// Sin of LA and EP reduces by pi instead: S on |r| <= pi/2 (sin r = r + r^3 S(r^2)).
// Relative errors: double LA 2^-54.6, EP 2^-33; single LA 2^-25, EP 2^-17.7.
template <class T, Lv L>
struct WideSin;
template <>
struct WideSin<double, Lv::kLA> {
  static constexpr double kS[] = {
      -0x1.5555555555555p-3,  0x1.1111111111107p-7,  -0x1.a01a01a018aadp-13, 0x1.71de3a5456716p-19,
      -0x1.ae6455a1d7087p-26, 0x1.6124015b5ee3ap-33, -0x1.ae5138c1216b3p-41, 0x1.89a4866f527ebp-49};
};
template <>
struct WideSin<double, Lv::kEP> {
  static constexpr double kS[] = {-0x1.5555555460530p-3, 0x1.11110fdaaf87bp-7,
                                  -0x1.a01905ba4208ap-13, 0x1.7196917ff9c49p-19,
                                  -0x1.9db1cc2a4cb87p-26};
};
template <>
struct WideSin<float, Lv::kLA> {
  static constexpr double kS[] = {-0x1.55555463d6642p-3, 0x1.11104d384e558p-7,
                                  -0x1.9fb685b3e13aap-13, 0x1.61a18a503012bp-19};
  static constexpr float kSf[] = {float(kS[0]), float(kS[1]), float(kS[2]), float(kS[3])};
};
template <>
struct WideSin<float, Lv::kEP> {
  static constexpr double kS[] = {-0x1.5554ad722b3dep-3, 0x1.10c46c410aa59p-7,
                                  -0x1.8b3e4e47508edp-13};
  static constexpr float kSf[] = {float(kS[0]), float(kS[1]), float(kS[2])};
};

template <class T, Lv L>
struct CoeffsOf;
template <>
struct CoeffsOf<double, Lv::kHA> : DoubleHa {};
template <>
struct CoeffsOf<double, Lv::kLA> : DoubleLa {};
template <>
struct CoeffsOf<double, Lv::kEP> : DoubleEp {};
template <>
struct CoeffsOf<float, Lv::kHA> : SingleHa {};
template <>
struct CoeffsOf<float, Lv::kLA> : SingleLa {};
template <>
struct CoeffsOf<float, Lv::kEP> : SingleEp {};

// ---- bit helpers --------------------------------------------------------------------------------
inline VD dbits(const UD& u) {
  return simd::from_bits<double>(u);
}
// Lanes of a where the mask bits are set, of b elsewhere (the mask lanes are all ones or zero).
inline VD bit_select(const VD& m, const VD& a, const VD& b) {
  return b ^ ((a ^ b) & m);
}
inline UD bit_select(const UD& m, const UD& a, const UD& b) {
  return b ^ ((a ^ b) & m);
}
// All ones in the lanes where m is true.
inline VD lane_mask(const simd::mask<double>& m) {
  return simd::select(m, dbits(UD(~0ull)), VD(0.0));
}

// x - n * p where the product is exact: one fused operation where the variant has it, with the
// same result.
inline VD minus_exact(const VD& x, const VD& n, double p) {
  if constexpr (simd::kHasFma) {
    return simd::fnma(n, VD(p), x);
  } else {
    return x - n * VD(p);
  }
}

// The rounding error of p = a * b, for b with the 26-bit halves bh + bt (needed without FMA).
inline VD product_error(const VD& a, double b, double bh, double bt, const VD& p) {
  if constexpr (simd::kHasFma) {
    return simd::fms(a, VD(b), p);
  } else {
    const VD c = a * VD(0x1p27 + 1);
    const VD ah = c - (c - a);
    const VD al = a - ah;
    return ((ah * VD(bh) - p) + ah * VD(bt) + al * VD(bh)) + al * VD(bt);
  }
}
// The same for two variable factors.
inline VD product_error(const VD& a, const VD& b, const VD& p) {
  if constexpr (simd::kHasFma) {
    return simd::fms(a, b, p);
  } else {
    const VD ca = a * VD(0x1p27 + 1);
    const VD ah = ca - (ca - a);
    const VD al = a - ah;
    const VD cb = b * VD(0x1p27 + 1);
    const VD bh = cb - (cb - b);
    const VD bl = b - bh;
    return ((ah * bh - p) + ah * bl + al * bh) + al * bl;
  }
}

// ---- integer pieces of the large reduction
// ------------------------------------------------------- Low 32 bits of each 64-bit lane of a
// times those of b, as a 64-bit product.
inline UD mul32(const UD& a, const UD& b) {
#if TVX_VARIANT_ID == 5
  return UD(_mm512_mul_epu32(a, b));
#elif TVX_VARIANT_ID == 3
  return UD(_mm256_mul_epu32(a, b));
#else
  return UD(_mm_mul_epu32(a, b));
#endif
}

// Lane j is base[idx[j]].
inline UD gather(const std::uint64_t* base, const UD& idx) {
#if TVX_VARIANT_ID == 5
  return UD(_mm512_i64gather_epi64(idx, reinterpret_cast<const long long*>(base), 8));
#elif TVX_VARIANT_ID == 3
  return UD(_mm256_i64gather_epi64(reinterpret_cast<const long long*>(base), idx, 8));
#else
  alignas(16) std::uint64_t ix[2];
  idx.store_aligned(ix);
  return UD(
      _mm_set_epi64x(static_cast<long long>(base[ix[1]]), static_cast<long long>(base[ix[0]])));
#endif
}

// An integer below 2^52 as a double, exactly.
inline VD to_double(const UD& c) {
  return dbits(c | UD(0x4330000000000000ull)) - VD(0x1p52);
}

// x = n pi/2 + (rh + rl); q holds n mod 4 (as the bits of a double lane, so that it follows the
// same selects).
struct Reduced {
  VD rh, rl, q;
};

// First level, for 0 <= ax <= 2^20: by pi/2 (kPi 1) or by pi (kPi 2); n * part stays exact
// since n < 2^20.
// With kHalf, n is an integer less one half: n = round(x/pi + 1/2) - 1/2 (by pi only).
template <bool kTail, int kPi = 1, bool kHalf = false>
[[gnu::always_inline]] inline Reduced reduce_fast(const VD& ax) {
  constexpr double k = kPi;
  VD t;
  if constexpr (kHalf) {
    if constexpr (simd::kHasFma) {
      t = simd::fma(ax, VD(kTwoOverPi / k), VD(0.5)) + VD(kShift);
    } else {
      t = (xsimd::max(ax, VD(0x1p-100)) * VD(kTwoOverPi / k) + VD(0.5)) + VD(kShift);
    }
  } else if constexpr (simd::kHasFma) {
    t = simd::fma(ax, VD(kTwoOverPi / k), VD(kShift));
  } else {
    // A subnormal product would raise underflow; every |x| below 2^-100 has n = 0 anyway.
    t = xsimd::max(ax, VD(0x1p-100)) * VD(kTwoOverPi / k) + VD(kShift);
  }
  const VD n = kHalf ? (t - VD(kShift)) - VD(0.5) : t - VD(kShift);
  Reduced red;
  red.q = dbits(simd::as_bits(t) & UD(3));
  const VD a = minus_exact(ax, n, kPio2A * k);
  const VD p2 = n * VD(kPio2B * k);
  const VD p3 = n * VD(kPio2C * k);
  const VD p4 = n * VD(kPio2D * k);
  if constexpr (kTail) {
    // Three subtractions, each with its rounding error (|first| >= |second| or exact).
    const VD b = a - p2;
    const VD e0 = (a - b) - p2;
    const VD c = b - p3;
    const VD e1 = (b - c) - p3;
    red.rh = c - p4;
    const VD e2 = (c - red.rh) - p4;
    red.rl = (e0 + e1) + e2;
  } else {
    red.rh = (a - p2) - (p3 + p4);
    red.rl = VD(0.0);
  }
  return red;
}

// Second level, for finite ax > 2^20 (other lanes give harmless values); by pi/2 (kPi 1) or by
// pi (kPi 2).
template <int kPi = 1, bool kHalf = false>
[[gnu::noinline]] Reduced reduce_large(const VD& ax) {
  constexpr int b = kPi - 1;  // by pi the binary point sits one bit further left
  const UD bits = simd::as_bits(ax);
  const UD e = bits >> 52;
  const UD m = (bits & UD(0x000FFFFFFFFFFFFFull)) | UD(1ull << 52);
  const UD row = (e << 1) + e;
  const UD w0 = gather(kTwoOverPiBits, row);
  const UD w1 = gather(kTwoOverPiBits + 1, row);
  const UD w2 = gather(kTwoOverPiBits + 2, row);
  // m = m1 2^32 + m0 times the window a5 ... a0 (32-bit words), modulo 2^192; the two lowest
  // columns only carry, and are left out (an error below 2^-124 in x 2/pi).
  const UD m0 = m & UD(kM32);
  const UD m1 = m >> 32;
  const UD a5 = w0 >> 32, a4 = w0 & UD(kM32), a3 = w1 >> 32, a2 = w1 & UD(kM32);
  const UD a1 = w2 >> 32, a0 = w2 & UD(kM32);
  const UD t1 = mul32(m0, a1), t2 = mul32(m0, a2), t3 = mul32(m0, a3), t4 = mul32(m0, a4),
           t5 = mul32(m0, a5);
  const UD u0 = mul32(m1, a0), u1 = mul32(m1, a1), u2 = mul32(m1, a2), u3 = mul32(m1, a3),
           u4 = mul32(m1, a4);
  const UD c2 = (t2 & UD(kM32)) + (t1 >> 32) + (u1 & UD(kM32)) + (u0 >> 32);
  const UD c3 = (t3 & UD(kM32)) + (t2 >> 32) + (u2 & UD(kM32)) + (u1 >> 32) + (c2 >> 32);
  const UD c4 = (t4 & UD(kM32)) + (t3 >> 32) + (u3 & UD(kM32)) + (u2 >> 32) + (c3 >> 32);
  const UD c5 = (t5 & UD(kM32)) + (t4 >> 32) + (u4 & UD(kM32)) + (u3 >> 32) + (c4 >> 32);
  // x 2/pi mod 4 = (hi 2^-62 + lo 2^-126); round to the nearest integer n by adding one half
  // (by pi: x/pi mod 2 = (hi 2^-63 + lo 2^-127)).
  // With kHalf one half more: n + 1/2 = round(x/pi + 1/2).
  constexpr std::uint64_t kAdd = (1ull << (61 + b)) * (kHalf ? 2 : 1);
  const UD hi = ((c5 << 32) | (c4 & UD(kM32))) + UD(kAdd);
  const UD lo = (c3 << 32) | (c2 & UD(kM32));
  Reduced red;
  red.q = dbits(hi >> (62 + b));
  // f = frac + 1/2 in [0, 1); g = f - 1/2. For g < 0 take |g| as the ones' complement (off by
  // 2^-126), and keep the sign apart.
  const UD f = hi & UD((1ull << (62 + b)) - 1);
  const UD neg = ((f >> (61 + b)) & UD(1)) - UD(1);
  const UD gh = (f ^ neg) & UD((1ull << (61 + b)) - 1);
  const UD gl = lo ^ neg;
  // |g| in three pieces of at most 42 bits, each exact as a double, in units of pi/2.
  const VD d0 = to_double(gh >> (19 + b)) * VD(0x1p-43 * kPi);
  const VD d1 = to_double(((gh & UD((1ull << (19 + b)) - 1)) << (23 - b)) | (gl >> (41 + b))) *
                VD(0x1p-85 * kPi);
  const VD d2 = to_double(gl & UD((1ull << (41 + b)) - 1)) * VD(0x1p-126);
  const VD s = d0 + d1;
  const VD sl = ((d0 - s) + d1) + d2;
  const VD g = s + sl;
  const VD gt = (s - g) + sl;
  // r = g pi/2 (by pi: 2g pi/2) as a double-double value.
  const VD p = g * VD(kPio2Hi);
  const VD pl =
      product_error(g, kPio2Hi, kPio2HiHead, kPio2HiTail, p) + (g * VD(kPio2Lo) + gt * VD(kPio2Hi));
  const VD rh = p + pl;
  const VD rl = (p - rh) + pl;
  const VD sign = dbits(neg << 63);
  red.rh = rh ^ sign;
  red.rl = rl ^ sign;
  return red;
}

// sin and cos of the reduced argument: s = sh + sl, c = ch + cl (the low parts only for HA
// Tan, zero otherwise).
struct SinCosParts {
  VD sh, sl, ch, cl;
};

template <class P, bool kLow>
[[gnu::always_inline]] inline SinCosParts eval(const Reduced& red) {
  const VD& rh = red.rh;
  const VD tiny = lane_mask(simd::abs(rh) < VD(kTiny));
  const VD r = bit_select(tiny, VD(0.0), rh);
  const VD z = r * r;
  const VD sp = simd::horner(z, P::kS);
  const VD cp = simd::horner(z, P::kC);
  const VD hz = VD(0.5) * z;
  const VD w = VD(1.0) - hz;
  SinCosParts o;
  VD sm, ct;
  if constexpr (P::kTail) {
    // sin(rh + rl) = sin rh + rl cos rh, cos(rh + rl) = cos rh - rl sin rh, to second order;
    // the rounding errors of z = r^2 and of r^3 are carried too (that of z alone would cost cos
    // up to half an ulp).
    const VD zl = product_error(r, r, z);
    const VD v = r * z;
    const VD vl = product_error(r, z, v) + r * zl;
    sm = v * sp + (vl * sp + (red.rl - hz * red.rl));
    ct = ((VD(1.0) - w) - hz) + (z * z * cp - (r * red.rl + VD(0.5) * zl));
  } else {
    sm = (r * z) * sp;
    ct = ((VD(1.0) - w) - hz) + z * z * cp;
  }
  o.sh = rh + sm;
  o.ch = w + ct;
  if constexpr (kLow) {
    o.sl = (rh - o.sh) + sm;
    o.cl = (w - o.ch) + ct;
  }
  return o;
}

// The value of Fn at |x| for the reduced argument, before the sign of x is applied. For SinCos
// this is the sine, and `cos_out` receives the cosine.
template <Fn F, class P>
[[gnu::always_inline]] inline VD finish(const Reduced& red, VD* cos_out) {
  constexpr bool kLow = F == Fn::kTan && P::kTail;
  const SinCosParts o = eval<P, kLow>(red);
  const UD q = simd::as_bits(red.q);
  const VD odd = dbits(UD(0) - (q & UD(1)));
  if constexpr (F == Fn::kTan) {
    // tan = s / c for even n, -c / s for odd n.
    const VD num = bit_select(odd, o.ch, o.sh);
    const VD den = bit_select(odd, o.sh, o.ch);
    VD t;
    if constexpr (kLow) {
      const VD numl = bit_select(odd, o.cl, o.sl);
      const VD denl = bit_select(odd, o.sl, o.cl);
      const VD inv = VD(1.0) / den;
      const VD t0 = num * inv;
      const VD p = t0 * den;
      const VD rem = ((num - p) - product_error(t0, den, p)) + (numl - t0 * denl);
      t = t0 + rem * inv;
    } else {
      t = num / den;
    }
    return t ^ dbits(q << 63);
  } else {
    const VD sin_v = bit_select(odd, o.ch, o.sh) ^ dbits((q & UD(2)) << 62);
    if constexpr (F == Fn::kSin) return sin_v;
    const VD cos_v = bit_select(odd, o.sh, o.ch) ^ dbits(((q + UD(1)) & UD(2)) << 62);
    if constexpr (F == Fn::kCos) return cos_v;
    *cos_out = cos_v;
    return sin_v;
  }
}

// The whole double computation for a register whose non-finite lanes are already replaced by 0.
// Sin and Cos of LA and EP: reduction by pi and one polynomial. Sin: x = n pi + r, sin x =
// (-1)^n sin r. Cos: x = (m - 1/2) pi + r, cos x = (-1)^m sin r.
template <class W, bool kCos>
[[gnu::always_inline]] inline VD sin_by_pi(const VD& xs) {
  const VD ax = simd::abs(xs);
  const auto big = ax > VD(kFastLimit);
  Reduced red = reduce_fast<false, 2, kCos>(xsimd::min(ax, VD(kFastLimit)));
  if (simd::bits(big) != 0) {
    const VD bigm = lane_mask(big);
    const Reduced lr = reduce_large<2, kCos>(bit_select(bigm, ax, VD(0.0)));
    red.rh = bit_select(bigm, lr.rh, red.rh);
    red.q = bit_select(bigm, lr.q, red.q);
  }
  const VD tiny = lane_mask(simd::abs(red.rh) < VD(kTiny));
  const VD r = bit_select(tiny, VD(0.0), red.rh);
  const VD z = r * r;
  const VD s = (red.rh + (r * z) * simd::horner(z, W::kS)) ^ dbits(simd::as_bits(red.q) << 63);
  if constexpr (kCos) {
    return s;
  } else {
    return s ^ simd::sign_of(xs);
  }
}

template <Fn F, class P>
[[gnu::always_inline]] inline VD compute(const VD& xs, VD* cos_out) {
  const VD ax = simd::abs(xs);
  const auto big = ax > VD(kFastLimit);
  Reduced red = reduce_fast<P::kTail>(xsimd::min(ax, VD(kFastLimit)));
  if (simd::bits(big) != 0) {
    const VD bigm = lane_mask(big);
    const Reduced lr = reduce_large(bit_select(bigm, ax, VD(0.0)));
    red.rh = bit_select(bigm, lr.rh, red.rh);
    red.rl = bit_select(bigm, lr.rl, red.rl);
    red.q = bit_select(bigm, lr.q, red.q);
  }
  VD y = finish<F, P>(red, cos_out);
  if constexpr (F != Fn::kCos) y = y ^ simd::sign_of(xs);  // sine and tangent are odd
  return y;
}

// ---- single precision: two double registers per single register --------------------------------
inline void widen(const VF& x, VD& lo, VD& hi) {
#if TVX_VARIANT_ID == 5
  lo = VD(_mm512_cvtps_pd(_mm512_castps512_ps256(x)));
  hi = VD(_mm512_cvtps_pd(_mm512_extractf32x8_ps(x, 1)));
#elif TVX_VARIANT_ID == 3
  lo = VD(_mm256_cvtps_pd(_mm256_castps256_ps128(x)));
  hi = VD(_mm256_cvtps_pd(_mm256_extractf128_ps(x, 1)));
#else
  lo = VD(_mm_cvtps_pd(x));
  hi = VD(_mm_cvtps_pd(_mm_movehl_ps(x, x)));
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

template <Fn F, class P, class W = void>
[[gnu::always_inline]] inline VD run_type(const VD& xs, VD* cos_out) {
  if constexpr (std::is_same_v<W, void>) {
    return compute<F, P>(xs, cos_out);
  } else {
    return sin_by_pi<W, F == Fn::kCos>(xs);
  }
}
template <Fn F, class P, class W = void>
[[gnu::always_inline]] inline VF run_type(const VF& xs, VF* cos_out) {
  VD lo, hi, clo, chi;
  widen(xs, lo, hi);
  const VF y = narrow(run_type<F, P, W>(lo, &clo), run_type<F, P, W>(hi, &chi));
  if constexpr (F == Fn::kSinCos) *cos_out = narrow(clo, chi);
  return y;
}

// Single Sin and Cos of LA and EP on the variants with fused multiply-add, for lanes within
// 10000: the same reduction by pi in single precision (pi in three parts of
// 24 bits; the first product is exact inside the fused operation, and 72 bits of pi leave r
// good to 2^-24 relative, since a single below 10000 comes no closer to a multiple of pi than
// about 2^-30) and the polynomial in single.
constexpr float kSingleLimit = 10000.0f;

template <class W, bool kCos>
[[gnu::always_inline]] inline VF sin_by_pi_single(const VF& xs, const VF& ax) {
  using UF = uvec<float>;
  constexpr float kShiftF = 0x1.8p23f;
  constexpr float kInvPiF = 0x1.45f306p-2f;
  VF n;
  VF t;
  if constexpr (kCos) {
    t = simd::fma(ax, VF(kInvPiF), VF(0.5f)) + VF(kShiftF);
    n = (t - VF(kShiftF)) - VF(0.5f);
  } else {
    t = simd::fma(ax, VF(kInvPiF), VF(kShiftF));
    n = t - VF(kShiftF);
  }
  VF r = simd::fnma(n, VF(0x1.921fb6p+1f), ax);
  r = simd::fnma(n, VF(-0x1.777a5cp-24f), r);
  r = simd::fnma(n, VF(-0x1.ee59dap-49f), r);
  const auto tiny = simd::abs(r) < VF(0x1p-12f);
  const VF r0 = simd::select(tiny, VF(0.0f), r);
  const VF z = r0 * r0;
  const VF y = simd::fma(r0 * z, simd::horner(z, W::kSf), r);
  const VF sign = simd::from_bits<float>((simd::as_bits(t) & UF(1)) << 31);
  if constexpr (kCos) {
    return y ^ sign;
  } else {
    return y ^ sign ^ simd::sign_of(xs);
  }
}

// ---- kernels ------------------------------------------------------------------------------------
template <class T>
inline bool finite_bits(T x) {
  using U = typename simd::int_of<T>::utype;
  constexpr U kExp = sizeof(T) == 8 ? U(0x7FF0000000000000ull) : U(0x7F800000u);
  return (std::bit_cast<U>(x) & kExp) != kExp;
}

template <class T>
inline T opaque(T v) {
  asm volatile("" : "+x"(v));
  return v;
}

// NaN and infinite lanes go to the callout; the vector path computes them as 0.
template <class T>
inline vec<T> finite_part(const vec<T>& x, std::uint32_t& bad) {
  const auto out = simd::not_less(simd::abs(x), vec<T>(std::numeric_limits<T>::infinity()));
  bad = simd::bits(out);
  return simd::select(out, vec<T>(T(0)), x);
}

// Callout of a non-finite element: NaN with status 1 for an infinity (the subtraction raises
// invalid), the quieted NaN with status 0 for a NaN.
template <class T>
inline int nonfinite(T x, T* r) {
  if (x != x) {
    *r = x + x;
    return 0;
  }
  *r = opaque(x) - x;
  return KAZ_STATUS_ERRDOM;
}

template <class E, Fn F, Lv L>
struct TrigKernel {
  using T = E;
  using V = vec<T>;
  using P = CoeffsOf<T, L>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = F == Fn::kSin   ? (sizeof(T) == 8 ? "vdSin" : "vsSin")
                                       : F == Fn::kCos ? (sizeof(T) == 8 ? "vdCos" : "vsCos")
                                                       : (sizeof(T) == 8 ? "vdTan" : "vsTan");
  static constexpr bool kCleanRuns = true;

  // Cos of EP takes the LA polynomial: with the shorter one cos 0 would not be exactly 1.
  using W = std::conditional_t<
      F == Fn::kSin && L != Lv::kHA, WideSin<T, L>,
      std::conditional_t<F == Fn::kCos && L != Lv::kHA, WideSin<T, Lv::kLA>, void>>;

  static V vector(const V& x, std::uint32_t& bad, std::uint32_t) {
    const V xs = finite_part(x, bad);
    if constexpr (sizeof(T) == 4 && simd::kHasFma && !std::is_same_v<W, void>) {
      // Lane by lane: within the limit the single path, beyond it the double one, so that an
      // element's result does not depend on its neighbours.
      const V ax = simd::abs(xs);
      const auto far = ax > V(kSingleLimit);
      const V y = sin_by_pi_single<W, F == Fn::kCos>(xs, xsimd::min(ax, V(kSingleLimit)));
      if (simd::bits(far) == 0) return y;
      return simd::select(far, run_type<F, P, W>(xs, nullptr), y);
    }
    return run_type<F, P, W>(xs, nullptr);
  }
  static int callout(T x, T* r) {
    if (!finite_bits(x)) return nonfinite(x, r);
    alignas(64) T buf[simd::lanes<T>];
    std::uint32_t bad = 0;
    vector(V(x), bad, 0).store_aligned(buf);
    *r = buf[0];
    return 0;
  }
};

template <class E, Lv L>
struct SinCosKernel {
  using T = E;
  using V = vec<T>;
  using P = CoeffsOf<T, L>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = sizeof(T) == 8 ? "vdSinCos" : "vsSinCos";

  static void vector(const V& x, V& s, V& c, std::uint32_t& bad, std::uint32_t) {
    s = run_type<Fn::kSinCos, P>(finite_part(x, bad), &c);
  }
  static int callout(T x, T* s, T* c) {
    if (!finite_bits(x)) {
      const int st = nonfinite(x, s);
      *c = *s;
      return st;
    }
    alignas(64) T bs[simd::lanes<T>];
    alignas(64) T bc[simd::lanes<T>];
    std::uint32_t bad = 0;
    V vs, vc;
    vector(V(x), vs, vc, bad, 0);
    vs.store_aligned(bs);
    vc.store_aligned(bc);
    *s = bs[0];
    *c = bc[0];
    return 0;
  }
};

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;

#define TVX_TRIG_ENTRIES(level, L)                                                     \
  extern "C" {                                                                         \
  void TVX_ENTRY(kaz_sin_d_##level)(int n, const double* a, double* r) {               \
    run_v_v<TrigKernel<double, Fn::kSin, L>>(n, a, r);                                 \
  }                                                                                    \
  void TVX_ENTRY(kaz_sin_s_##level)(int n, const float* a, float* r) {                 \
    run_v_v<TrigKernel<float, Fn::kSin, L>>(n, a, r);                                  \
  }                                                                                    \
  void TVX_ENTRY(kaz_cos_d_##level)(int n, const double* a, double* r) {               \
    run_v_v<TrigKernel<double, Fn::kCos, L>>(n, a, r);                                 \
  }                                                                                    \
  void TVX_ENTRY(kaz_cos_s_##level)(int n, const float* a, float* r) {                 \
    run_v_v<TrigKernel<float, Fn::kCos, L>>(n, a, r);                                  \
  }                                                                                    \
  void TVX_ENTRY(kaz_tan_d_##level)(int n, const double* a, double* r) {               \
    run_v_v<TrigKernel<double, Fn::kTan, L>>(n, a, r);                                 \
  }                                                                                    \
  void TVX_ENTRY(kaz_tan_s_##level)(int n, const float* a, float* r) {                 \
    run_v_v<TrigKernel<float, Fn::kTan, L>>(n, a, r);                                  \
  }                                                                                    \
  void TVX_ENTRY(kaz_sincos_d_##level)(int n, const double* a, double* s, double* c) { \
    run_v_vv<SinCosKernel<double, L>>(n, a, s, c);                                     \
  }                                                                                    \
  void TVX_ENTRY(kaz_sincos_s_##level)(int n, const float* a, float* s, float* c) {    \
    run_v_vv<SinCosKernel<float, L>>(n, a, s, c);                                      \
  }                                                                                    \
  }

// The SSE2 copies serve every row; the other variants have a kernel per level.
TVX_TRIG_ENTRIES(ha, Lv::kHA)
#if TVX_VARIANT_ID >= 2
TVX_TRIG_ENTRIES(la, Lv::kLA)
TVX_TRIG_ENTRIES(ep, Lv::kEP)
#endif
