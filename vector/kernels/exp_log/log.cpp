// Logarithms: Ln, Log10 and Log1p in double and single precision, compiled once per variant.
//
// Double precision, variants 0 to 2, and Log1p on variant 3: x = 2^(E - 1023) * (1 + f) is
// mapped to m = 2^-10 (1 + f), an integer c in [512, 1024] close to 1/m is found through the
// single-precision reciprocal, and r = c*m - 1 is exact. Then ln x = E ln 2 + T(c) + log1p(r),
// where the table T(c) folds in the exponent bias. HA keeps T and ln 2 in two parts and forms the
// final sum so that only the last rounding is large; LA and EP use a one-part table with the
// exponent re-centred around 1. Ln and Log10 on variant 3, Ln at HA and LA on variant 5 and Ln
// at EP on variant 2 take no table: one divide, below.
// Variant 5 otherwise takes the significand in [1, 2) and the exponent with the AVX-512
// specials, rounds the 14-bit reciprocal to five fraction bits and reads a 16-entry table held in
// registers.
//
// Single precision, variants 0 to 3, and Ln on variant 5: no table; x = 2^k m with m in
// [2/3, 4/3) and a minimax polynomial in r = m - 1, all in single precision (HA with a compensated
// sum). Variant 5 otherwise follows its double design with a single-precision table.
//
// Log10 multiplies the two-part logarithm by log10(e) with an exact leading product (HA), or the
// one-part result by log10(e) (LA, EP). Log1p forms u = 1 + x with its rounding error e and
// takes the logarithm of u with e carried as a correction to the reduced argument.
//
// Lanes the vector path cannot take (zero, negative, denormal where the path needs normals,
// infinity, NaN where the path would misbehave, huge Log1p arguments) go to the scalar callouts,
// which compute the element from a 65-row table in plain double arithmetic.
#include <bit>
#include <cstdint>
#include <limits>

#include "vector/kernels/common/kernel_loop.h"

namespace tvx::TVX_VNS {
namespace {

#include "vector/kernels/exp_log/log_tables.inc"

using simd::uvec;
using simd::vec;
using VD = vec<double>;
using VF = vec<float>;
using UD = uvec<double>;

enum class Fn { kLn, kLog10, kLog1p };
enum class Lv { kLA, kHA, kEP };

constexpr double bd(std::uint64_t b) {
  return std::bit_cast<double>(b);
}
constexpr float bf(std::uint32_t b) {
  return std::bit_cast<float>(b);
}

// ln 2 in one part and as two 36-bit parts (E * part is exact for every exponent E).
constexpr double kLn2 = 0x1.62e42fefa39efp-1;
constexpr double kLn2Hi = 0x1.62e42fefa0000p-1;
constexpr double kLn2Lo = 0x1.cf79abc9e0000p-40;
constexpr float kLn2F = bf(0x3F317218);
constexpr float kLn2HiF = bf(0x3F317200);
constexpr float kLn2LoF = bf(0x35BFBE8E);
// log10(e): rounded, then a 26-bit (12-bit in single) head and the rest.
constexpr double kLog10e = 0x1.bcb7b1526e50ep-2;
constexpr double kLog10eHead = 0x1.bcb7b1p-2;
constexpr double kLog10eTail = 0x1.49b9438ca9aaep-28;
constexpr float kLog10eF = 0x1.bcb7b2p-2f;
constexpr float kLog10eHeadF = 0x1.bcap-2f;
constexpr float kLog10eTailF = 0x1.7b1526p-14f;

template <class T>
inline constexpr T kInf = std::numeric_limits<T>::infinity();

// ================================================================================================
// Scalar path
// ================================================================================================

struct DD {
  double hi, lo;
};

// ln x as an unevaluated sum hi + lo, good to about 2^-63 relative, for a positive normal x;
// `scale` is added to x's exponent (used for denormals brought up by 2^60).
inline DD ln_dd(double x, int scale) {
  const std::uint64_t b = std::bit_cast<std::uint64_t>(x);
  const double e = static_cast<double>(static_cast<int>(b >> 52) - 1023 + scale);
  const double m = std::bit_cast<double>((b & 0x000FFFFFFFFFFFFFull) | 0x3FF0000000000000ull);
  // 2^46 + 1 + m has its last place at 2^-6: the low seven bits give round(64 (m - 1)).
  const double t = m + 70368744177665.0;
  const int j = static_cast<int>(std::bit_cast<std::uint64_t>(t) & 127);
  const double* row = kLnScalar + 3 * j;
  const double c = row[0];
  // m to 31 fraction bits, so that mh * c is exact; c*m - 1 fits in 53 bits, so r is exact.
  const double mh = (m + 2097152.0) - 2097152.0;
  const double r = (mh * c - 1.0) + (m - mh) * c;
  const double a = e * kLn2Hi + row[1];  // exact
  const double s = a + r;
  const double z = s - a;
  const double err = (a - (s - z)) + (r - z);
  // log1p(r) - r by its series to r^13 (|r| < 0.0235).
  double q = -1.0 / 12.0 + r * (1.0 / 13.0);
  q = 1.0 / 11.0 + r * q;
  q = -1.0 / 10.0 + r * q;
  q = 1.0 / 9.0 + r * q;
  q = -1.0 / 8.0 + r * q;
  q = 1.0 / 7.0 + r * q;
  q = -1.0 / 6.0 + r * q;
  q = 1.0 / 5.0 + r * q;
  q = -1.0 / 4.0 + r * q;
  q = 1.0 / 3.0 + r * q;
  q = -0.5 + r * q;
  const double p = (r * r) * q;
  return {s, ((e * kLn2Lo + row[2]) + err) + p};
}

// ln of a positive finite non-zero x, normal or denormal.
inline DD ln_dd_any(double x) {
  if (x < 0x1p-1022) return ln_dd(x * 0x1p60, -60);
  return ln_dd(x, 0);
}

// log1p x for x > -1, finite: ln(u) + e/u with u = 1 + x and e its rounding error.
inline DD log1p_dd(double x) {
  const double u = 1.0 + x;
  const double v = u - x;
  const double e = (1.0 - v) + (x - (u - v));
  DD d = ln_dd_any(u);
  d.lo += e / u;
  return d;
}

// (hi + lo) * log10(e) with an exact leading product.
inline double times_log10e(DD d) {
  const double sh =
      std::bit_cast<double>(std::bit_cast<std::uint64_t>(d.hi) & 0xFFFFFFFFF8000000ull);
  const double sl = d.hi - sh;
  return sh * kLog10eHead + (sl * kLog10eHead + (d.hi * kLog10eTail + d.lo * kLog10e));
}

template <Fn F>
inline double finish(DD d) {
  if constexpr (F == Fn::kLog10) {
    return times_log10e(d);
  } else {
    return d.hi + d.lo;
  }
}

// Callouts. Comparisons, not bit tests, decide zero: with denormals-are-zero on, a denormal
// argument reads as zero here as it does in the vector path.
template <Fn F, class T>
inline int log_callout(T x, T* res) {
  if (x != x) {  // NaN: quieted by arithmetic
    *res = x + x;
    return 0;
  }
  if constexpr (F == Fn::kLog1p) {
    if (x == kInf<T>) {
      *res = x;
      return 0;
    }
    if (x == T(-1)) {
      *res = T(-1) / (x + T(1));  // -inf, raising division by zero
      return KAZ_STATUS_SING;
    }
    if (x < T(-1)) {
      *res = (x - x) / (x - x);  // NaN, raising invalid
      return KAZ_STATUS_ERRDOM;
    }
    if (x == T(0)) {  // only reached with a denormal under denormals-are-zero
      *res = x * T(0);
      return 0;
    }
    *res = static_cast<T>(finish<F>(log1p_dd(static_cast<double>(x))));
    return 0;
  } else {
    if (x == kInf<T>) {
      *res = x;
      return 0;
    }
    if (x == T(0)) {
      *res = T(-1) / (x * x);  // -inf, raising division by zero
      return KAZ_STATUS_SING;
    }
    if (x < T(0)) {
      *res = (x - x) / (x - x);  // NaN, raising invalid
      return KAZ_STATUS_ERRDOM;
    }
    *res = static_cast<T>(finish<F>(ln_dd_any(static_cast<double>(x))));
    return 0;
  }
}

// ================================================================================================
// Vector path
// ================================================================================================

// Result of a logarithm core, hi + lo: for HA the high sum and everything below it, for LA and
// EP the table and exponent term, and the reduced argument with the polynomial.
template <class T>
struct Parts {
  vec<T> hi, lo;
};

// Common HA ending: ln = A + r + B + p with A exact and |A| >= |r| or A = 0; the carry of
// r + A joins the low terms, the high sum is added last.
template <class T>
inline Parts<T> ha_sum(const vec<T>& a, const vec<T>& b, const vec<T>& r, const vec<T>& p) {
  const vec<T> s = r + a;
  const vec<T> err = r - (s - a);
  return {s, (b + err) + p};
}

#if TVX_VARIANT_ID != 5
// ---- double, variants 0 to 3 --------------------------------------------------------------------

// Single-precision reciprocal of each lane.
inline VD rcp_via_float(const VD& m) {
#if TVX_VARIANT_ID == 3
  return VD(_mm256_cvtps_pd(_mm_rcp_ps(_mm256_cvtpd_ps(m))));
#else
  return VD(_mm_cvtps_pd(_mm_rcp_ps(_mm_cvtpd_ps(m))));
#endif
}

// Nearest integer (the values are below 2^11).
inline VD round_int(const VD& y) {
#if TVX_VARIANT_ID == 3
  return VD(_mm256_round_pd(y, 0));
#elif TVX_VARIANT_ID == 2
  return VD(_mm_round_pd(y, 0));
#else
  return (y + VD(0x1.8p52)) - VD(0x1.8p52);
#endif
}

// Table entries at byte offsets: two doubles (high, low) per entry, or one.
inline void load_pair(const double* tab, const UD& off, VD& hi, VD& lo) {
#if TVX_VARIANT_ID == 3
  hi = VD(_mm256_i64gather_pd(tab, off, 1));
  lo = VD(_mm256_i64gather_pd(tab + 1, off, 1));
#else
  const char* base = reinterpret_cast<const char*>(tab);
  const __m128i o = off;
  const __m128d e0 = _mm_load_pd(reinterpret_cast<const double*>(base + _mm_cvtsi128_si64(o)));
  const __m128d e1 = _mm_load_pd(
      reinterpret_cast<const double*>(base + _mm_cvtsi128_si64(_mm_unpackhi_epi64(o, o))));
  hi = VD(_mm_unpacklo_pd(e0, e1));
  lo = VD(_mm_unpackhi_pd(e0, e1));
#endif
}
inline VD load_one(const double* tab, const UD& off) {
#if TVX_VARIANT_ID == 3
  return VD(_mm256_i64gather_pd(tab, off, 1));
#else
  const char* base = reinterpret_cast<const char*>(tab);
  const __m128i o = off;
  const __m128d e0 = _mm_load_sd(reinterpret_cast<const double*>(base + _mm_cvtsi128_si64(o)));
  return VD(_mm_loadh_pd(
      e0, reinterpret_cast<const double*>(base + _mm_cvtsi128_si64(_mm_unpackhi_epi64(o, o)))));
#endif
}

// Degree 5 for log1p(r) - r, |r| < 2^-9.4.
constexpr double kP5[4] = {bd(0xBFDFFFFFFFFFF81F), bd(0x3FD55555555543C5), bd(0xBFD0000148058EE1),
                           bd(0x3FC9999CACDB4D0A)};

// ln u, with e (when kCorr) a small addend to u: ln(u + e).
template <Lv L, bool kCorr>
inline Parts<double> ln_core(const VD& u, const VD& e) {
  const UD bu = simd::as_bits(u);
  const VD m =
      simd::from_bits<double>((bu & UD(0x000FFFFFFFFFFFFFull)) | UD(0x3F50000000000000ull));
  const VD c = round_int(rcp_via_float(m));
  VD r;
  if constexpr (simd::kHasFma) {
    r = simd::fma(c, m, VD(-1.0));
  } else {
    // Both products exact; their sum c*m - 1 fits in 53 bits.
    const VD mh = simd::from_bits<double>(simd::as_bits(m) & UD(0xFFFFFFFFFC000000ull));
    r = (c * mh - VD(1.0)) + c * (m - mh);
  }
  const VD big_e = simd::from_bits<double>((bu >> 52) | UD(0x4330000000000000ull)) - VD(0x1p52);
  VD delta(0.0), rp = r;
  if constexpr (kCorr) {
    // m = u * 2^(1013 - E), so e moves r by c * e * 2^(1013 - E).
    const VD scale =
        simd::from_bits<double>(UD(0x7F40000000000000ull) - (bu & UD(0x7FF0000000000000ull)));
    delta = c * (e * scale);
    rp = r + delta;
  }
  const VD r2 = rp * rp;
  const UD cb = simd::as_bits(c);
  if constexpr (L == Lv::kHA) {
    VD th, tl;
    load_pair(kLnHa, (cb >> 39) - UD(1032ull << 13), th, tl);
    const VD p = simd::madd(simd::madd(VD(kP5[3]), rp, VD(kP5[2])), r2,
                            simd::madd(VD(kP5[1]), rp, VD(kP5[0]))) *
                 r2;
    const VD a = simd::madd(big_e, VD(kLn2Hi), th);
    const VD b = simd::madd(big_e, VD(kLn2Lo), tl);
    return ha_sum<double>(a, kCorr ? b + delta : b, r, p);
  } else {
    const VD t = load_one(kLnLa, (cb >> 40) - UD(1032ull << 12));
    // Re-centre: c above 1024/sqrt(2) means m below sqrt(2) * 2^-10.
    const VD n = big_e - simd::select(c > VD(724.0), VD(1023.0), VD(1022.0));
    VD q;
    if constexpr (L == Lv::kLA) {
      q = simd::madd(simd::madd(VD(kP5[3]), rp, VD(kP5[2])), r2,
                     simd::madd(VD(kP5[1]), rp, VD(kP5[0])));
    } else {
      q = simd::madd(VD(kP5[1]), rp, VD(kP5[0]));
    }
    // r + r^2 q in one step (where fused), the table and exponent term added last.
    VD lo = simd::madd(q, r2, r);
    if constexpr (kCorr) lo = lo + delta;
    return {simd::madd(n, VD(kLn2), t), lo};
  }
}

#endif  // TVX_VARIANT_ID != 5

// ---- single without a table: variants 0 to 3, and Ln on variant 5 ---------------------------
using IF = simd::ivec<float>;

inline VF to_float(const IF& k) {
#if TVX_VARIANT_ID == 5
  return VF(_mm512_cvtepi32_ps(k));
#elif TVX_VARIANT_ID == 3
  return VF(_mm256_cvtepi32_ps(k));
#else
  return VF(_mm_cvtepi32_ps(k));
#endif
}

// log1p(r) = r + r^2 P(r) on [-1/3, 1/3] with P(r) = -1/2 + r Q(r), Q minimax for relative
// error (tools/fit_log_poly.py 7, 6 and 2: 2^-27.4, 2^-24.7, 2^-13.3).
constexpr float kQHa[8] = {bf(0x3EAAAA83), bf(0xBE7FFF78), bf(0x3E4CE814), bf(0xBE2ACEE6),
                           bf(0x3E0F6B8C), bf(0xBDF9889E), bf(0x3E0F335D), bf(0xBE0402C8)};
constexpr float kPLa[8] = {-0.5f,          bf(0x3EAAAA94), bf(0xBE80058E), bf(0x3E4CE190),
                           bf(0xBE28AD37), bf(0x3E0FCB12), bf(0xBE1AD9E3), bf(0x3E0D84EE)};
constexpr float kPEp[4] = {-0.5f, bf(0x3EAA7160), bf(0xBE88E8FE), bf(0x3E612933)};

// r^2 as hi + lo exactly.
inline void square_exact(const VF& r, VF& hi, VF& lo) {
  hi = r * r;
  if constexpr (simd::kHasFma) {
    lo = simd::fms(r, r, hi);
  } else {
    // r has at most 24 bits: the 12-bit head's square and products are exact.
    const VF rh = simd::from_bits<float>(simd::as_ints(r) & IF(-4096));
    const VF rl = r - rh;
    lo = ((rh * rh - hi) + (rh + rh) * rl) + rl * rl;
  }
}

// ln u, or ln(u + e) when kCorr, all in single precision. HA keeps every rounding but the last
// one below the result's last place: k ln2_hi + r is split into its rounded sum and the exact
// error (k ln2_hi is exact and at least as large as r unless k = 0), and the error, k ln2_lo and
// r^2 P join in the low part. Near x = 4/3 2^k the sum cancels; Log10 (kSplit), whose result
// there falls into a lower binade, Log1p (kCorr) and the variants without fused multiply-add
// also take -r^2/2 exactly as two parts, the high one added last to the low part. LA and EP: k ln 2
// + (r + r^2 P).
template <Lv L, bool kCorr, bool kSplit>
inline Parts<float> ln_core_f(const VF& u, const VF& e) {
  const IF iu = simd::as_ints(u);
  // m = u 2^-k lies in [2/3, 4/3) whatever u holds, so bad lanes need no stand-in.
  const IF k = (iu - IF(0x3F2AAAAB)) >> 23;
  const VF m = simd::from_bits<float>(iu - (k << 23));
  const VF r = m - VF(1.0f);  // exact
  const VF kf = to_float(k);
  VF delta(0.0f), rp = r;
  if constexpr (kCorr) {
    delta = e * simd::from_bits<float>((IF(127) - k) << 23);
    rp = r + delta;
  }
  if constexpr (L == Lv::kHA) {
    const VF a = kf * VF(kLn2HiF);  // exact
    const VF s = a + r;
    const VF err = (a - s) + r;
    VF b = simd::madd(kf, VF(kLn2LoF), err);
    if constexpr (kCorr) b = b + delta;
    if constexpr (kSplit || kCorr || !simd::kHasFma) {
      // -(r + delta)^2 / 2 = -r^2/2 - r delta - delta^2/2 (the last below 2^-48): the square
      // is taken of the exact r, since rp is rounded.
      VF r2, r2l;
      square_exact(r, r2, r2l);
      if constexpr (kCorr) b = simd::madd(r, VF(0.0f) - delta, b);
      b = simd::madd(r2l, VF(-0.5f), b);
      const VF lo = simd::madd(r2 * rp, simd::horner(rp, kQHa), b);
      return {s, simd::madd(r2, VF(-0.5f), lo)};
    } else {
      return {s, simd::fma(rp * rp, simd::madd(rp, simd::horner(rp, kQHa), VF(-0.5f)), b)};
    }
  } else {
    const VF r2 = rp * rp;
    VF lo = simd::madd(r2, L == Lv::kLA ? simd::horner(rp, kPLa) : simd::horner(rp, kPEp), r);
    if constexpr (kCorr) lo = lo + delta;
    // Ln and Log1p take the sum finished (kFolded); Log10 scales the parts.
    if constexpr (kSplit) {
      return {kf * VF(kLn2F), lo};
    } else {
      return {simd::madd(kf, VF(kLn2F), lo), VF(0.0f)};
    }
  }
}

#if TVX_VARIANT_ID != 5
// Lanes that are not positive normal numbers (zero, denormal, negative, infinite, NaN), from the
// bits alone and without a floating compare: adding 0x7F800000 takes the positive normals, and
// only them, to signed values below -2^24.
inline std::uint32_t not_positive_normal(const VF& x) {
  const IF t = simd::as_ints(x) + IF(0x7F800000);
#if TVX_VARIANT_ID == 3
  const __m256i ok = _mm256_cmpgt_epi32(IF(-16777216), t);
  return ~static_cast<std::uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(ok))) & 0xFFu;
#else
  const __m128i ok = _mm_cmpgt_epi32(IF(-16777216), t);
  return ~static_cast<std::uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(ok))) & 0xFu;
#endif
}

#if TVX_VARIANT_ID == 3
// The same for doubles: adding 0x7FF0000000000000 takes the positive normals, and only them, to
// signed values below -2^53.
inline std::uint32_t not_positive_normal(const VD& x) {
  const __m256i t = _mm256_add_epi64(simd::as_bits(x), _mm256_set1_epi64x(0x7FF0000000000000ll));
  const __m256i ok = _mm256_cmpgt_epi64(_mm256_set1_epi64x(-(1ll << 53)), t);
  return ~static_cast<std::uint32_t>(_mm256_movemask_pd(_mm256_castsi256_pd(ok))) & 0xFu;
}
#endif

#else  // TVX_VARIANT_ID == 5
// ---- variant 5, both types ----------------------------------------------------------------------
namespace x5 = simd::avx512;

// log1p(r) - r for |r| < 2^-5.9: double degree 9 (LA and HA) or 5 (EP), from r^2 up.
constexpr double kPd9[8] = {bd(0xBFDFFFFFFFFFFFC6), bd(0x3FD5555555555466), bd(0xBFD00000000C05BD),
                            bd(0x3FC9999999CC9F5C), bd(0xBFC55553FB28DB06), bd(0x3FC249229CEE81EF),
                            bd(0xBFC007357E93AF62), bd(0x3FBC81CD309D7C70)};
constexpr double kPd5[4] = {bd(0xBFDFFFFFCA9C9FAF), bd(0x3FD55554DE51032A), bd(0xBFD00355FDA0C953),
                            bd(0x3FC9A19BA80F61AB)};
// Single: the series to r^5 (HA), r^4 (LA), r^3 (EP).
constexpr float kPf5[4] = {-0.5f, 1.0f / 3.0f, -0.25f, 0.2f};
constexpr float kPf4[3] = {-0.5f, 1.0f / 3.0f, -0.25f};
constexpr float kPf3[2] = {-0.5f, 1.0f / 3.0f};

template <class T>
struct RegTables;
template <>
struct RegTables<double> {
  static constexpr const double* full = kLnReg;
  static constexpr const double* hi = kLnRegHi;
  static constexpr const double* lo = kLnRegLo;
  static constexpr double ln2 = kLn2, ln2_hi = kLn2Hi, ln2_lo = kLn2Lo;
  static constexpr std::uint64_t idx_shift = 48;
};
template <>
struct RegTables<float> {
  static constexpr const float* full = kLnRegF;
  static constexpr const float* hi = kLnRegHiF;
  static constexpr const float* lo = kLnRegLoF;
  static constexpr float ln2 = kLn2F, ln2_hi = kLn2HiF, ln2_lo = kLn2LoF;
  static constexpr std::uint32_t idx_shift = 19;
};

template <class T>
inline vec<T> reg_lookup(const T* tab, const uvec<T>& idx) {
  constexpr int kHalf = simd::lanes<T> < 16 ? 8 : 0;
  const vec<T> lo = vec<T>::load_aligned(tab);
  const vec<T> hi = kHalf != 0 ? vec<T>::load_aligned(tab + kHalf) : lo;
  return x5::lookup16(lo, hi, idx);
}

// ln u (ln(u + e) when kCorr); the lanes of `skip` compute ln 1 instead, whatever u holds there.
// LA and EP return r in the high part when kKeepR (for Log10, whose product by log10(e) is
// exact only for the high part), else in the low part.
template <class T, Lv L, bool kCorr, bool kKeepR>
inline Parts<T> ln_core_v5(const vec<T>& u, const vec<T>& e, std::uint32_t skip) {
  using V = vec<T>;
  using R = RegTables<T>;
  const V m = x5::getmant_1_2_except(u, skip);
  V big_e = x5::getexp_except(u, skip);
  const V c = x5::roundscale<0x58>(x5::rcp14(m));  // five fraction bits, c in [1/2, 1]
  const V r = simd::fma(c, m, V(T(-1)));           // exact
  V delta(T(0)), rp = r;
  if constexpr (kCorr) {
    delta = c * x5::scalef(e, V(T(0)) - big_e);
    rp = r + delta;
  }
  const uvec<T> idx = simd::as_bits(c) >> R::idx_shift;
  // Below 3/4 the table holds -ln(2c) and the exponent takes the extra ln 2.
  big_e = x5::add_where(c < V(T(0.75)), big_e, V(T(1)));
  const V r2 = rp * rp;
  V q;
  if constexpr (sizeof(T) == 8) {
    q = L == Lv::kEP ? simd::estrin(rp, r2, kPd5) : simd::estrin(rp, r2, kPd9);
  } else if constexpr (L == Lv::kHA) {
    q = simd::estrin(rp, r2, kPf5);
  } else if constexpr (L == Lv::kLA) {
    q = simd::estrin(rp, r2, kPf4);
  } else {
    q = simd::estrin(rp, r2, kPf3);
  }
  if constexpr (L == Lv::kHA) {
    const V a = simd::fma(big_e, V(R::ln2_hi), reg_lookup(R::hi, idx));  // exact
    const V b = simd::fma(big_e, V(R::ln2_lo), reg_lookup(R::lo, idx));
    return ha_sum<T>(a, kCorr ? b + delta : b, r, q * r2);
  } else if constexpr (kKeepR) {
    // r joins the table term, so that only the polynomial is rounded in the low part.
    V p = q * r2;
    if constexpr (kCorr) p = p + delta;
    return {simd::fma(big_e, V(R::ln2), reg_lookup(R::full, idx)) + r, p};
  } else {
    // r + r^2 q in one step, the table and exponent term added last.
    V lo = simd::fma(q, r2, r);
    if constexpr (kCorr) lo = lo + delta;
    return {simd::fma(big_e, V(R::ln2), reg_lookup(R::full, idx)), lo};
  }
}
#endif

// ---- double on SSE4.2, AVX2 and AVX-512: no table ---------------------------------------------
// x = 2^k m with m in [sqrt(2)/2, sqrt(2)) (the exponent taken from x + 1 - sqrt(2)/2's high
// word), f = m - 1 exact, s = f / (2 + f), so ln m = 2 atanh s = f - f^2/2 + s (f^2/2 + R(s^2))
// with R(z) = z (Lg1 + Lg2 z + ... + Lg7 z^6), |s| < 0.1716. One divide and no table read: on
// processors whose gathers are slow this beats any table, and it stays close on the others; on
// AVX-512 it also beats the 16-entry register table, whose reduction needs a longer polynomial.
// Only positive normal numbers may enter (the callers send the rest to the callouts).
// HA takes R's classic published minimax set of seven terms (error below 2^-58.45); LA six terms
// fitted for the error in the result's last place (1.2 ulps from the polynomial, where a plain
// six-term fit leaves 4) and EP three terms (2^-28.5), both from tools/fit_log_div_poly.py.
// HA sums as k ln2_hi - ((f^2/2 - (s (f^2/2 + R) + k ln2_lo)) - f), k ln2_hi exact; LA and EP as
// k ln2 + (f - s (f - R)). Ln takes the last sum fused (k ln2_hi + lo is the same rounding, as
// k ln2_hi is exact), and returns it in the high part with a zero low part (kFolded below).
#if TVX_VARIANT_ID >= 2
constexpr bool kDivCore = true;
constexpr double kLg7[7] = {0x1.5555555555593p-1, 0x1.999999997fa04p-2, 0x1.2492494229359p-2,
                            0x1.c71c51d8e78afp-3, 0x1.7466496cb03dep-3, 0x1.39a09d078c69fp-3,
                            0x1.2f112df3e5244p-3};

constexpr double kLgLa[6] = {0x1.5555555553f8dp-1, 0x1.999999a12bf4ep-2, 0x1.2492425441c1ep-2,
                             0x1.c7220143a3f62p-3, 0x1.733ab364d19b9p-3, 0x1.57cd87f3fcc1ep-3};
constexpr double kLgEp[3] = {0x1.55555b7f8de11p-1, 0x1.997c305d84f6dp-2, 0x1.2ee610023bfcfp-2};

// R(z) / z by level, by Horner: the loop runs out of order far enough to hide the longer chain,
// and Estrin's extra multiplies cost throughput (measured at both widths).
template <Lv L>
inline VD r_over_z(const VD& z) {
  if constexpr (L == Lv::kEP) {
    return simd::horner(z, kLgEp);
  } else {
    return L == Lv::kHA ? simd::horner(z, kLg7) : simd::horner(z, kLgLa);
  }
}

// c - a b, fused where the variant can.
inline VD nmadd(const VD& a, const VD& b, const VD& c) {
  if constexpr (simd::kHasFma) {
    return simd::fnma(a, b, c);
  } else {
    return c - a * b;
  }
}

// kSplit (Log10): at HA f joins k ln2_hi in the high part, with its carry in the low part, so
// that the product by log10(e) is exact for the high part; at LA and EP the parts stay apart.
template <Lv L, bool kSplit, bool kCorr = false>
inline Parts<double> ln_core_div(const VD& u, [[maybe_unused]] const VD& e = VD(0.0)) {
  const UD bu = simd::as_bits(u);
  // Adding 1 - sqrt(2)/2 (high word) moves x's exponent up by one where m >= sqrt(2)/2 * 2.
  const UD t = bu + UD(0x3FF0000000000000ull - 0x3FE6A09E00000000ull);
  const VD m = simd::from_bits<double>((t & UD(0x000FFFFFFFFFFFFFull)) + UD(0x3FE6A09E00000000ull));
  // k + 1023 + 2^52 as a double, less the constant: k exactly.
  const VD k =
      simd::from_bits<double>((t >> 52) | UD(0x4330000000000000ull)) - VD(0x1.00000000003ffp52);
  VD f = m - VD(1.0);
  VD corr(0.0);
  if constexpr (kCorr) {
    // ln(u + e) with u + e = 1 + x exactly (Log1p only). Where k = 0, m = u and f + e is x
    // itself, so e goes into f with no rounding. Elsewhere the result is at least
    // ln(sqrt 2) in size and e enters as the first-order term e 2^-k / m, which needs only a
    // few correct bits: the single-precision reciprocal.
    const auto k0 = k == VD(0.0);
    const VD scale = simd::from_bits<double>((UD(2046) - (t >> 52)) << 52);  // 2^-k
#if TVX_VARIANT_ID == 5
    const VD inv_m(_mm512_rcp14_pd(m));
#else
    const VD inv_m = rcp_via_float(m);
#endif
    corr = simd::select(k0, VD(0.0), (e * scale) * inv_m);
    f = simd::select(k0, f + e, f);
  }
  const VD s = f / (f + VD(2.0));
  const VD z = s * s;
  const VD pz = r_over_z<L>(z);
  if constexpr (L == Lv::kHA) {
    const VD hfsq = (VD(0.5) * f) * f;
    const VD hfsq_r = simd::madd(z, pz, hfsq);  // f^2/2 + R
    if constexpr (kSplit) {
      return ha_sum<double>(k * VD(kLn2Hi), k * VD(kLn2Lo), f, simd::fms(s, hfsq_r, hfsq));
    } else {
      const VD klo = kCorr ? simd::madd(k, VD(kLn2Lo), corr) : k * VD(kLn2Lo);
      const VD inner = simd::madd(s, hfsq_r, klo);
      return {simd::madd(k, VD(kLn2Hi), f - (hfsq - inner)), VD(0.0)};
    }
  } else {
    VD lo = nmadd(s, nmadd(z, pz, f), f);  // f - s (f - R)
    if constexpr (kCorr) lo = lo + corr;
    if constexpr (kSplit) {
      return {k * VD(kLn2), lo};
    } else {
      return {simd::madd(k, VD(kLn2), lo), VD(0.0)};
    }
  }
}
#else
constexpr bool kDivCore = false;
#endif

// Whether a core takes the divide: double Ln, Log10 and Log1p on AVX2; on AVX-512 double Ln at
// HA and LA (the register table is faster at EP, where its polynomial is shorter, its Log10 keeps
// more margin below 1 ulp, and its Log1p needs no reciprocal for the correction); on SSE4.2,
// without fused multiply-add, double Ln at EP only (the table core is as fast at LA). With a
// correction (kCorr) only Log1p's takes it (kOnePlusX: u + e = 1 + x exactly, so that where
// k = 0, f + e is exact); other callers' corrections go through the table core.
template <class T, Lv L, bool kCorr, bool kKeepR, bool kOnePlusX = false>
inline constexpr bool kUsesDiv = kDivCore && sizeof(T) == 8 &&
                                 ((TVX_VARIANT_ID == 3 && (!kCorr || kOnePlusX)) ||
                                  (TVX_VARIANT_ID == 5 && !kCorr && !kKeepR && L != Lv::kEP) ||
                                  (TVX_VARIANT_ID == 2 && !kCorr && !kKeepR && L == Lv::kEP));

// Whether the AVX-512 copy takes the single core without a table: for Ln, where its longer
// polynomial costs less than the table core's reduction (and, at HA, its double-length sum).
template <class T, Lv L, bool kCorr, bool kKeepR>
inline constexpr bool kUsesSingleNoTable = TVX_VARIANT_ID == 5 && sizeof(T) == 4 && !kCorr &&
                                           !kKeepR;

// The core for a type and level on this variant. Lanes of `skip` are bad lanes whose argument
// the core may ignore; only variant 5 uses that (the others are given harmless stand-ins).
template <class T, Lv L, bool kCorr, bool kKeepR = false, bool kOnePlusX = false>
inline Parts<T> core(const vec<T>& u, const vec<T>& e, [[maybe_unused]] std::uint32_t skip) {
#if TVX_VARIANT_ID >= 2
  if constexpr (kUsesDiv<T, L, kCorr, kKeepR, kOnePlusX>) {
    return ln_core_div<L, kKeepR, kCorr>(u, e);
  }
#endif
#if TVX_VARIANT_ID == 5
  if constexpr (kUsesSingleNoTable<T, L, kCorr, kKeepR>) return ln_core_f<L, false, false>(u, e);
  return ln_core_v5<T, L, kCorr, kKeepR>(u, e, skip);
#else
  if constexpr (sizeof(T) == 8) {
    return ln_core<L, kCorr>(u, e);
  } else {
    return ln_core_f<L, kCorr, kKeepR>(u, e);
  }
#endif
}

// (hi + lo) * log10(e): the leading product exact (split into halves, or fused), the rest added
// below it.
template <class T>
inline vec<T> times_log10e(const Parts<T>& d) {
  using V = vec<T>;
  constexpr bool kD = sizeof(T) == 8;
  const V full(kD ? T(kLog10e) : T(kLog10eF));
  const V tail(kD ? T(kLog10eTail) : T(kLog10eTailF));
  if constexpr (simd::kHasFma) {
    const V ph = d.hi * full;
    const V pl = simd::fms(d.hi, full, ph);
    const V tail_full(kD ? T(0x1.95355baaafad3p-57) : T(-0x1.5b235ep-27));
    return ph + (pl + simd::madd(d.hi, tail_full, d.lo * full));
  } else {
    const V head(kD ? T(kLog10eHead) : T(kLog10eHeadF));
    using U = uvec<T>;
    const U keep(kD ? U(0xFFFFFFFFF8000000ull) : U(0xFFFFF000u));
    const V sh = simd::from_bits<T>(simd::as_bits(d.hi) & keep);
    const V sl = d.hi - sh;
    return sh * head + (sl * head + (d.hi * tail + d.lo * full));
  }
}

// v, hidden from the optimiser (so that x * 1 is really computed).
template <class T>
inline vec<T> opaque(vec<T> v) {
  auto reg = static_cast<typename vec<T>::register_type>(v);
  asm("" : "+v"(reg));
  return vec<T>(reg);
}

inline bool noerr(std::uint32_t mode) {
  return (mode & KAZ_ERRMODE_MASK) == KAZ_ERRMODE_NOERR;
}

inline bool daz(std::uint32_t mode) {
  return (mode & KAZ_FTZDAZ_MASK) == KAZ_FLUSH_DENORMALS_ON;
}

template <class E, Fn F, Lv L>
struct LogKernel {
  using T = E;
  using V = vec<T>;
  static constexpr std::uint32_t kAll = (1u << simd::lanes<T>)-1u;
  static constexpr Env kEnv = Env::kMode;
  // Two registers per block on AVX2 and AVX-512: their chains interleave and share one mask
  // test. Four ran slower on AVX-512 (the polynomial's registers no longer fit).
  static constexpr int kUnroll = TVX_VARIANT_ID >= 3 ? 2 : 1;
  // Clean stretches run in a loop without calls, which keeps the constants in registers.
  static constexpr bool kCleanRuns = true;
  static constexpr const char* kName = F == Fn::kLn      ? (sizeof(T) == 8 ? "vdLn" : "vsLn")
                                       : F == Fn::kLog10 ? (sizeof(T) == 8 ? "vdLog10" : "vsLog10")
                                                         : (sizeof(T) == 8 ? "vdLog1p" : "vsLog1p");

  static int callout(T x, T* r) { return log_callout<F, T>(x, r); }

  // Always inlined into the loops: left to itself the compiler called Log1p once per register
  // on AVX-512 (a third of its time), and which kernels it inlined changed with unrelated edits.
  [[gnu::always_inline]] static V vector(const V& x, std::uint32_t& bad, std::uint32_t mode) {
    if constexpr (F == Fn::kLog1p) {
      return log1p(x, bad, mode);
    } else {
      return log(x, bad, mode);
    }
  }

  // The single LA and EP cores without a table finish Ln and Log1p themselves (on variant 5
  // only Ln takes them), and so does the double divide core Ln.
  static constexpr bool kFolded =
      (sizeof(T) == 4 && L != Lv::kHA && (TVX_VARIANT_ID != 5 || F == Fn::kLn)) ||
      (kUsesDiv<T, L, F == Fn::kLog1p, false, true> && F != Fn::kLog10);

  static V finish(const Parts<T>& d) {
    if constexpr (F != Fn::kLog10 && kFolded) {
      return d.hi;
    } else if constexpr (F != Fn::kLog10) {
      return d.hi + d.lo;
    } else if constexpr (L == Lv::kEP) {
      return (d.hi + d.lo) * V(sizeof(T) == 8 ? T(kLog10e) : T(kLog10eF));
    } else if constexpr (sizeof(T) == 4 && L == Lv::kHA && TVX_VARIANT_ID != 5) {
      // The single core leaves up to r^2/2 in the low part; renormalised first, so that the
      // rounding of the low products stays far below the result's last place.
      const V hi = d.hi + d.lo;
      return times_log10e<T>({hi, (d.hi - hi) + d.lo});
    } else {
      return times_log10e<T>(d);
    }
  }

  // x for the range comparisons. The ordered comparisons of SSE raise invalid for a quiet NaN, so
  // there NaN lanes are compared as +infinity, which every range check sends to the callout.
  static V comparable(const V& x) {
    if constexpr (TVX_VARIANT_ID <= 2) {
      return simd::select(simd::is_nan(x), V(kInf<T>), x);
    } else {
      return x;
    }
  }

  // Zero and negative lanes settled in line, for the error mode that never reports; x as
  // comparable() gives it.
  static V settle_noerr(const V& x, const V& at, const V& y, std::uint32_t& bad) {
    const auto sing = x == at;
    const auto dom = x < at;
    bad &= ~(simd::bits<T>(sing) | simd::bits<T>(dom));
    return simd::select(sing, V(-kInf<T>),
                        simd::select(dom, V(std::numeric_limits<T>::quiet_NaN()), y));
  }

#if TVX_VARIANT_ID == 5
  // Whether Ln and Log10 take a core that handles positive normal numbers only.
  static constexpr bool kNormalsOnly =
      kUsesDiv<T, L, false, F == Fn::kLog10> || kUsesSingleNoTable<T, L, false, F == Fn::kLog10>;
#endif

  [[gnu::always_inline]] static V log(const V& x, std::uint32_t& bad, std::uint32_t mode) {
#if TVX_VARIANT_ID == 5
    // Denormals stay in the table core's vector path unless they are to read as zero. The two
    // forms are separate so that each block runs one class test. The cores without a table send
    // denormals to the callouts either way, so they have one form.
    if constexpr (kNormalsOnly) {
      return log_v5<true>(x, bad, mode);
    } else {
      return daz(mode) ? log_v5<true>(x, bad, mode) : log_v5<false>(x, bad, mode);
    }
#else
    if constexpr (sizeof(T) == 4 || TVX_VARIANT_ID == 3) {
      bad = not_positive_normal(x);
    } else {
      const V xc = comparable(x);
      const auto ok =
          (xc >= V(std::numeric_limits<T>::min())) && (xc <= V(std::numeric_limits<T>::max()));
      bad = ~simd::bits<T>(ok) & kAll;
    }
    // Lanes out of range are harmless in the bit arithmetic of both cores.
    V y = finish(core<T, L, false, F == Fn::kLog10>(x, V(T(0)), 0));
    if (bad != 0 && noerr(mode)) y = settle_noerr(comparable(x), V(T(0)), y, bad);
    return y;
#endif
  }

#if TVX_VARIANT_ID == 5
  template <bool kDaz>
  [[gnu::always_inline]] static V log_v5(const V& x, std::uint32_t& bad, std::uint32_t mode) {
    // Zero, negative, infinite (and denormal under kDaz) lanes; the core skips them. The divide
    // core and the single core without a table take positive normals only: denormals and NaN
    // go to the callouts too.
    if constexpr (kNormalsOnly) {
      bad = x5::fpclass<0xFF, T>(x);
    } else {
      bad = kDaz ? x5::fpclass<0x7E, T>(x) : x5::fpclass<0x5E, T>(x);
    }
    V y = finish(core<T, L, false, F == Fn::kLog10>(x, V(T(0)), bad));
    if (bad != 0 && noerr(mode)) y = settle_noerr(x, V(T(0)), y, bad);
    return y;
  }
#endif

  [[gnu::always_inline]] static V log1p(const V& x, std::uint32_t& bad, std::uint32_t mode) {
    constexpr T kNearM1 = sizeof(T) == 8 ? T(-0x1.fffffffffffffp-1) : T(-0x1.fffffep-1);
    constexpr T kHuge = sizeof(T) == 8 ? T(bd(0x7F3FFFFFFFFFF000ull)) : T(bf(0x7E7FFFFFu));
    constexpr T kTiny = sizeof(T) == 8 ? T(0x1p-57) : T(0x1p-30);
    const V xc = comparable(x);
    const V ax = simd::abs(xc);
    const auto ok = (xc > V(kNearM1)) && (ax <= V(kHuge));
    bad = ~simd::bits<T>(ok) & kAll;
    const auto tiny = ax < V(kTiny);
    // Out-of-range and tiny lanes compute on a harmless stand-in.
    const V xs = simd::select(ok && (ax >= V(kTiny)), x, V(T(0.5)));
    const V u = V(T(1)) + xs;
    const V v = u - xs;
    const V e = (V(T(1)) - v) + (xs - (u - v));
    V y = finish(core<T, L, true, false, true>(u, e, 0));
    // log1p x = x below the tiny bound; the product reads a denormal as zero when asked to.
    y = simd::select(tiny, x * opaque(V(T(1))), y);
    if (bad != 0 && noerr(mode)) y = settle_noerr(xc, V(T(-1)), y, bad);
    return y;
  }
};

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;

#define TVX_LOG_ENTRY(lname, t, T, F, L, lv)                          \
  void TVX_ENTRY(kaz_##lname##_##t##_##lv)(int n, const T* a, T* r) { \
    run_v_v<LogKernel<T, F, L>>(n, a, r);                             \
  }
#define TVX_LOG_LEVEL(L, lv)                         \
  TVX_LOG_ENTRY(ln, d, double, Fn::kLn, L, lv)       \
  TVX_LOG_ENTRY(ln, s, float, Fn::kLn, L, lv)        \
  TVX_LOG_ENTRY(log10, d, double, Fn::kLog10, L, lv) \
  TVX_LOG_ENTRY(log10, s, float, Fn::kLog10, L, lv)  \
  TVX_LOG_ENTRY(log1p, d, double, Fn::kLog1p, L, lv) \
  TVX_LOG_ENTRY(log1p, s, float, Fn::kLog1p, L, lv)

// Cells: variants 0 and 1 run their HA kernel at every level; variant 2's HA cell is variant
// 0's kernel, so variant 2 builds LA and EP only. A family that reuses the logarithm cores
// includes this file with TVX_LOG_CORE_ONLY defined and gets them without the entry points.
#ifndef TVX_LOG_CORE_ONLY
extern "C" {
#if TVX_VARIANT_ID != 2
TVX_LOG_LEVEL(Lv::kHA, ha)
#endif
#if TVX_VARIANT_ID >= 2
TVX_LOG_LEVEL(Lv::kLA, la)
TVX_LOG_LEVEL(Lv::kEP, ep)
#endif
}
#endif
