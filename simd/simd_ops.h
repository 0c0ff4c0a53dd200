// Our SIMD vocabulary. Kernels use these names, never the SIMD library's, so the register layer
// can be swapped in this one file. The register types are xsimd batches of the variant's arch;
// what xsimd 8.1 lacks or gets wrong (FMA on AVX-512, comparison bit masks, masked partial
// moves, AVX-512 specials) is written here with intrinsics per arch.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "simd/variant.h"

namespace tvx::TVX_VNS::simd {

template <class T>
using vec = xsimd::batch<T, arch>;
template <class T>
using mask = xsimd::batch_bool<T, arch>;

template <class T>
inline constexpr int lanes = static_cast<int>(vec<T>::size);

// Integer lane type of the same width as T.
template <class T>
struct int_of;
template <>
struct int_of<double> {
  using type = std::int64_t;
  using utype = std::uint64_t;
};
template <>
struct int_of<float> {
  using type = std::int32_t;
  using utype = std::uint32_t;
};
template <class T>
using ivec = vec<typename int_of<T>::type>;
template <class T>
using uvec = vec<typename int_of<T>::utype>;

inline constexpr bool kHasFma = (TVX_VARIANT_ID == 3 || TVX_VARIANT_ID == 5);
inline constexpr bool kHasRound = (TVX_VARIANT_ID >= 2);
inline constexpr bool kAvx512 = (TVX_VARIANT_ID == 5);

// ---- loads and stores ---------------------------------------------------------------------------
template <class T>
inline vec<T> loadu(const T* p) {
  return vec<T>::load_unaligned(p);
}
template <class T>
inline void storeu(T* p, const vec<T>& v) {
  v.store_unaligned(p);
}
template <class T>
inline vec<T> splat(T x) {
  return vec<T>(x);
}

// Loads the first `count` (0 < count < lanes) elements of p; the other lanes hold `fill`.
template <class T>
inline vec<T> load_partial(const T* p, int count, T fill) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    const __mmask8 m = static_cast<__mmask8>((1u << count) - 1u);
    return vec<T>(_mm512_mask_loadu_pd(_mm512_set1_pd(fill), m, p));
  } else {
    const __mmask16 m = static_cast<__mmask16>((1u << count) - 1u);
    return vec<T>(_mm512_mask_loadu_ps(_mm512_set1_ps(fill), m, p));
  }
#elif TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    const __m256i idx = _mm256_setr_epi64x(0, 1, 2, 3);
    const __m256i m = _mm256_cmpgt_epi64(_mm256_set1_epi64x(count), idx);
    const __m256d v = _mm256_maskload_pd(p, m);
    return vec<T>(_mm256_blendv_pd(_mm256_set1_pd(fill), v, _mm256_castsi256_pd(m)));
  } else {
    const __m256i idx = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i m = _mm256_cmpgt_epi32(_mm256_set1_epi32(count), idx);
    const __m256 v = _mm256_maskload_ps(p, m);
    return vec<T>(_mm256_blendv_ps(_mm256_set1_ps(fill), v, _mm256_castsi256_ps(m)));
  }
#else
  alignas(64) T buf[lanes<T>];
  for (int j = 0; j < lanes<T>; ++j) buf[j] = j < count ? p[j] : fill;
  return vec<T>::load_aligned(buf);
#endif
}

// Stores the first `count` (0 < count <= lanes) lanes of v to p; nothing past them is touched.
template <class T>
inline void store_partial(T* p, const vec<T>& v, int count) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    _mm512_mask_storeu_pd(p, static_cast<__mmask8>((1u << count) - 1u), v);
  } else {
    _mm512_mask_storeu_ps(p, static_cast<__mmask16>((1u << count) - 1u), v);
  }
#elif TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    const __m256i m = _mm256_cmpgt_epi64(_mm256_set1_epi64x(count), _mm256_setr_epi64x(0, 1, 2, 3));
    _mm256_maskstore_pd(p, m, v);
  } else {
    const __m256i m =
        _mm256_cmpgt_epi32(_mm256_set1_epi32(count), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
    _mm256_maskstore_ps(p, m, v);
  }
#else
  alignas(64) T buf[lanes<T>];
  v.store_aligned(buf);
  for (int j = 0; j < count; ++j) p[j] = buf[j];
#endif
}

// Non-temporal store of a whole register to p, aligned to the register's size: the line goes to
// memory without being read first. Callers end a run of them with stream_fence().
template <class T>
inline void stream(T* p, const vec<T>& v) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    _mm512_stream_pd(p, v);
  } else {
    _mm512_stream_ps(p, v);
  }
#elif TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    _mm256_stream_pd(p, v);
  } else {
    _mm256_stream_ps(p, v);
  }
#else
  if constexpr (sizeof(T) == 8) {
    _mm_stream_pd(p, v);
  } else {
    _mm_stream_ps(p, v);
  }
#endif
}
inline void stream_fence() {
  _mm_sfence();
}

// ---- bit masks of comparisons -------------------------------------------------------------------
// Bit j set when lane j of m is true.
template <class T>
inline std::uint32_t bits(const mask<T>& m) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    return static_cast<__mmask8>(m);
  } else {
    return static_cast<__mmask16>(m);
  }
#elif TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    return static_cast<std::uint32_t>(_mm256_movemask_pd(m));
  } else {
    return static_cast<std::uint32_t>(_mm256_movemask_ps(m));
  }
#else
  if constexpr (sizeof(T) == 8) {
    return static_cast<std::uint32_t>(_mm_movemask_pd(m));
  } else {
    return static_cast<std::uint32_t>(_mm_movemask_ps(m));
  }
#endif
}

// Number of the lowest set bit of a non-zero mask. __builtin_ctz becomes tzcnt, a BMI
// instruction (harmless as rep bsf on older processors, but outside the variant's set), so the
// variants below AVX2 use bsf itself.
inline int lowest_lane(std::uint32_t m) {
#if TVX_VARIANT_ID >= 3
  return __builtin_ctz(m);
#else
  std::uint32_t j;
  asm("bsf %1, %0" : "=r"(j) : "rm"(m) : "cc");
  return static_cast<int>(j);
#endif
}

template <class T>
inline vec<T> select(const mask<T>& m, const vec<T>& a, const vec<T>& b) {
  return xsimd::select(m, a, b);
}

// ---- bit views
// -------------------------------------------------------------------------------------
template <class T>
inline uvec<T> as_bits(const vec<T>& v) {
  return xsimd::bitwise_cast<uvec<T>>(v);
}
template <class T>
inline ivec<T> as_ints(const vec<T>& v) {
  return xsimd::bitwise_cast<ivec<T>>(v);
}
template <class T, class I>
inline vec<T> from_bits(const I& v) {
  return xsimd::bitwise_cast<vec<T>>(v);
}

// ---- arithmetic
// --------------------------------------------------------------------------------------- a * b + c
// rounded once. Only variants 3 and 5 have it; other variants must not call it.
template <class T>
inline vec<T> fma(const vec<T>& a, const vec<T>& b, const vec<T>& c) {
  static_assert(kHasFma || sizeof(T) == 0, "no fused multiply-add on this variant");
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_fmadd_pd(a, b, c));
  } else {
    return vec<T>(_mm512_fmadd_ps(a, b, c));
  }
#elif TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm256_fmadd_pd(a, b, c));
  } else {
    return vec<T>(_mm256_fmadd_ps(a, b, c));
  }
#else
  return a * b + c;
#endif
}
// a * b - c rounded once (variants 3 and 5).
template <class T>
inline vec<T> fms(const vec<T>& a, const vec<T>& b, const vec<T>& c) {
  return fma(a, b, vec<T>(-c));
}
// -(a * b) + c rounded once (variants 3 and 5).
template <class T>
inline vec<T> fnma(const vec<T>& a, const vec<T>& b, const vec<T>& c) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_fnmadd_pd(a, b, c));
  } else {
    return vec<T>(_mm512_fnmadd_ps(a, b, c));
  }
#elif TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm256_fnmadd_pd(a, b, c));
  } else {
    return vec<T>(_mm256_fnmadd_ps(a, b, c));
  }
#else
  return fma(vec<T>(-a), b, c);
#endif
}
// a * b + c with two roundings; the same on every variant.
template <class T>
inline vec<T> mul_add(const vec<T>& a, const vec<T>& b, const vec<T>& c) {
  return a * b + c;
}
// Multiply-add that uses the fused form where the variant has one. Results then differ by
// variant, which only accuracy-level kernels may allow.
template <class T>
inline vec<T> madd(const vec<T>& a, const vec<T>& b, const vec<T>& c) {
  if constexpr (kHasFma) {
    return fma(a, b, c);
  } else {
    return a * b + c;
  }
}

// True for NaN lanes; a quiet test that raises no flag.
template <class T>
inline mask<T> is_nan(const vec<T>& v) {
  return xsimd::isnan(v);
}

// True where a < b is false: a NaN lane, or a >= b. Raises no flag for a quiet NaN (the ordered
// comparisons of SSE would raise invalid, so there the NaN lanes are compared as zero).
template <class T>
inline mask<T> not_less(const vec<T>& a, const vec<T>& b) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    return mask<T>(_mm512_cmp_pd_mask(a, b, _CMP_NLT_UQ));
  } else {
    return mask<T>(_mm512_cmp_ps_mask(a, b, _CMP_NLT_UQ));
  }
#elif TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    return mask<T>(_mm256_cmp_pd(a, b, _CMP_NLT_UQ));
  } else {
    return mask<T>(_mm256_cmp_ps(a, b, _CMP_NLT_UQ));
  }
#else
  const mask<T> nan = is_nan(a);
  return nan || (xsimd::select(nan, vec<T>(T(0)), a) >= b);
#endif
}

template <class T>
inline vec<T> abs(const vec<T>& v) {
  return xsimd::abs(v);
}
template <class T>
inline vec<T> sqrt(const vec<T>& v) {
  return xsimd::sqrt(v);
}

// ---- table lookups
// -------------------------------------------------------------------------------- Lane j of the
// result is base[idx[j]]; idx holds element offsets, not bytes.
template <class T>
inline vec<T> lookup(const T* base, const ivec<T>& idx) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_i64gather_pd(idx, base, 8));
  } else {
    return vec<T>(_mm512_i32gather_ps(idx, base, 4));
  }
#elif TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm256_i64gather_pd(base, idx, 8));
  } else {
    return vec<T>(_mm256_i32gather_ps(base, idx, 4));
  }
#else
  alignas(16) typename int_of<T>::type ix[lanes<T>];
  alignas(16) T out[lanes<T>];
  idx.store_aligned(ix);
  for (int j = 0; j < lanes<T>; ++j) out[j] = base[ix[j]];
  return vec<T>::load_aligned(out);
#endif
}

// Entries of two elements (high part first): hi[j] = base[2 idx[j]], lo[j] = base[2 idx[j] + 1].
template <class T>
inline void lookup_pair(const T* base, const ivec<T>& idx, vec<T>& hi, vec<T>& lo) {
#if TVX_VARIANT_ID == 0 || TVX_VARIANT_ID == 1 || TVX_VARIANT_ID == 2
  if constexpr (sizeof(T) == 8) {
    // One 16-byte load brings a whole entry.
    const __m128i i2 = _mm_add_epi64(idx, idx);
    const __m128d e0 = _mm_loadu_pd(base + _mm_cvtsi128_si64(i2));
    const __m128d e1 = _mm_loadu_pd(base + _mm_cvtsi128_si64(_mm_unpackhi_epi64(i2, i2)));
    hi = vec<T>(_mm_unpacklo_pd(e0, e1));
    lo = vec<T>(_mm_unpackhi_pd(e0, e1));
    return;
  }
#endif
  const ivec<T> i2 = idx + idx;
  hi = lookup(base, i2);
  lo = lookup(base + 1, i2);
}

// ---- AVX-512 specials
// -------------------------------------------------------------------------------
#if TVX_VARIANT_ID == 5
// Two-source permute: lane j takes entry idx[j] (low 4 bits for double, 5 for single) of the
// table whose first half is `t0` and second half `t1`.
template <class T>
inline vec<T> permute2(const vec<T>& t0, const ivec<T>& idx, const vec<T>& t1) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_permutex2var_pd(t0, idx, t1));
  } else {
    return vec<T>(_mm512_permutex2var_ps(t0, idx, t1));
  }
}
// v * 2^floor(e), with overflow and gradual underflow as one rounding.
template <class T>
inline vec<T> scalef(const vec<T>& v, const vec<T>& e) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_scalef_pd(v, e));
  } else {
    return vec<T>(_mm512_scalef_ps(v, e));
  }
}
// a * b + c rounded once toward zero, no exception flags.
template <class T>
inline vec<T> fma_rz(const vec<T>& a, const vec<T>& b, const vec<T>& c) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_fmadd_round_pd(a, b, c, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
  } else {
    return vec<T>(_mm512_fmadd_round_ps(a, b, c, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
  }
}
// x with its magnitude cut to c (c > 0), sign kept; a NaN stays NaN. Raises no flag.
template <class T>
inline vec<T> clamp_abs(const vec<T>& x, T c) {
  // vrange: minimum by magnitude (imm bits 1:0 = 10), sign taken from x (bits 3:2 = 00).
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_range_round_pd(x, _mm512_set1_pd(c), 0x02, _MM_FROUND_NO_EXC));
  } else {
    return vec<T>(_mm512_range_round_ps(x, _mm512_set1_ps(c), 0x02, _MM_FROUND_NO_EXC));
  }
}
// Loads a whole register from a table row (no alignment needed).
template <class T>
inline vec<T> load_row(const T* p) {
  return vec<T>::load_unaligned(p);
}
#endif

// Evaluates c[0] + x*(c[1] + x*(c[2] + ...)) by Horner's rule with the variant's multiply-add.
template <class T, std::size_t N>
inline vec<T> horner(const vec<T>& x, const T (&c)[N]) {
  vec<T> acc(c[N - 1]);
  for (std::size_t k = N - 1; k-- > 0;) acc = madd(acc, x, vec<T>(c[k]));
  return acc;
}

// The same polynomial by Estrin's scheme, given x2 = x * x: neighbouring coefficients are paired
// with x, the pairs with x^2, those with x^4 and so on. One multiply-add more than Horner for
// some N, but the chain is about log2(N) steps long instead of N - 1, so the evaluations of
// several registers overlap far better.
template <class T, std::size_t N>
inline vec<T> estrin(const vec<T>& x, const vec<T>& x2, const T (&c)[N]) {
  constexpr std::size_t kPairs = (N + 1) / 2;
  vec<T> v[kPairs];
  for (std::size_t k = 0; k < kPairs; ++k) {
    v[k] = 2 * k + 1 < N ? madd(vec<T>(c[2 * k + 1]), x, vec<T>(c[2 * k])) : vec<T>(c[2 * k]);
  }
  vec<T> power = x2;
  for (std::size_t n = kPairs; n > 1;) {
    for (std::size_t k = 0; k < n / 2; ++k) v[k] = madd(v[2 * k + 1], power, v[2 * k]);
    if (n % 2 != 0) v[n / 2] = v[n - 1];
    n = (n + 1) / 2;
    if (n > 1) power = power * power;
  }
  return v[0];
}

// ---- AVX-512 specials for the logarithms -------------------------------------------------------
#if TVX_VARIANT_ID == 5
namespace avx512 {
// Unbiased exponent of each lane as a floating value (denormals included; DAZ reads them as 0).
template <class T>
inline vec<T> getexp(const vec<T>& x) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_getexp_pd(x));
  } else {
    return vec<T>(_mm512_getexp_ps(x));
  }
}
// Significand in [1, 2); NaN for a negative lane.
template <class T>
inline vec<T> getmant_1_2(const vec<T>& x) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_getmant_pd(x, _MM_MANT_NORM_1_2, _MM_MANT_SIGN_nan));
  } else {
    return vec<T>(_mm512_getmant_ps(x, _MM_MANT_NORM_1_2, _MM_MANT_SIGN_nan));
  }
}
// The same two, with the lanes of `skip` set to 1 (significand) and 0 (exponent) without looking
// at x there: one instruction each, and a wild lane raises nothing.
template <class T>
inline vec<T> getmant_1_2_except(const vec<T>& x, std::uint32_t skip) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_mask_getmant_pd(_mm512_set1_pd(1.0), static_cast<__mmask8>(~skip), x,
                                         _MM_MANT_NORM_1_2, _MM_MANT_SIGN_nan));
  } else {
    return vec<T>(_mm512_mask_getmant_ps(_mm512_set1_ps(1.0f), static_cast<__mmask16>(~skip), x,
                                         _MM_MANT_NORM_1_2, _MM_MANT_SIGN_nan));
  }
}
template <class T>
inline vec<T> getexp_except(const vec<T>& x, std::uint32_t skip) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_maskz_getexp_pd(static_cast<__mmask8>(~skip), x));
  } else {
    return vec<T>(_mm512_maskz_getexp_ps(static_cast<__mmask16>(~skip), x));
  }
}
// Reciprocal to 14 bits.
template <class T>
inline vec<T> rcp14(const vec<T>& x) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_rcp14_pd(x));
  } else {
    return vec<T>(_mm512_rcp14_ps(x));
  }
}
// Rounds to kImm >> 4 fraction bits, by the rounding of kImm's low bits.
template <int kImm, class T>
inline vec<T> roundscale(const vec<T>& x) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_roundscale_pd(x, kImm));
  } else {
    return vec<T>(_mm512_roundscale_ps(x, kImm));
  }
}
// a * 2^floor(b), exact up to the final rounding, with overflow and gradual underflow.
template <class T>
inline vec<T> scalef(const vec<T>& a, const vec<T>& b) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_scalef_pd(a, b));
  } else {
    return vec<T>(_mm512_scalef_ps(a, b));
  }
}
// Bit j set when lane j belongs to one of the classes of kImm (vfpclass encoding).
template <int kImm, class T>
inline std::uint32_t fpclass(const vec<T>& x) {
  if constexpr (sizeof(T) == 8) {
    return _mm512_fpclass_pd_mask(x, kImm);
  } else {
    return _mm512_fpclass_ps_mask(x, kImm);
  }
}
// a + b in the lanes where m is true, a elsewhere: one masked add.
template <class T>
inline vec<T> add_where(const mask<T>& m, const vec<T>& a, const vec<T>& b) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_mask_add_pd(a, static_cast<__mmask8>(m), a, b));
  } else {
    return vec<T>(_mm512_mask_add_ps(a, static_cast<__mmask16>(m), a, b));
  }
}
// 16-entry table lookup by the low four bits of each lane of idx (the lane's own width): for
// doubles entries 0-7 sit in lo and 8-15 in hi; for singles all 16 sit in lo.
inline vec<double> lookup16(const vec<double>& lo, const vec<double>& hi, const uvec<double>& idx) {
  return vec<double>(_mm512_permutex2var_pd(lo, idx, hi));
}
inline vec<float> lookup16(const vec<float>& lo, const vec<float>&, const uvec<float>& idx) {
  return vec<float>(_mm512_permutexvar_ps(idx, lo));
}
}  // namespace avx512
#endif

// ---- sign and magnitude -------------------------------------------------------------------------
// The sign bit of each lane (all other bits clear).
template <class T>
inline vec<T> sign_of(const vec<T>& v) {
  return v & vec<T>(T(-0.0));
}
// |v| by clearing the sign bit; a NaN keeps its payload and stays signalling if it was.
template <class T>
inline vec<T> clear_sign(const vec<T>& v) {
  using U = typename int_of<T>::utype;
  return v & from_bits<T>(uvec<T>(static_cast<U>(~U(0) >> 1)));
}

// ---- rounding instruction (variants 2, 3, 5) ----------------------------------------------------
// Imm as the round instructions take it: 0 nearest even, 1 down, 2 up, 3 toward zero, +4 the
// current mode instead, +8 no inexact flag. On variant 5 this is vrndscale with scale 0.
template <int Imm, class T>
inline vec<T> round(const vec<T>& v) {
  static_assert(kHasRound || sizeof(T) == 0, "no rounding instruction on this variant");
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    // The merge forms: the plain ones start from an undefined register, which GCC 12 warns on.
    return vec<T>(_mm512_mask_roundscale_pd(v, 0xFF, v, Imm));
  } else {
    return vec<T>(_mm512_mask_roundscale_ps(v, 0xFFFF, v, Imm));
  }
#elif TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm256_round_pd(v, Imm));
  } else {
    return vec<T>(_mm256_round_ps(v, Imm));
  }
#elif TVX_VARIANT_ID == 2
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm_round_pd(v, Imm));
  } else {
    return vec<T>(_mm_round_ps(v, Imm));
  }
#else
  return v;
#endif
}

// ---- reciprocal approximations ------------------------------------------------------------------
// Hardware reciprocal estimate: relative error below 1.5 * 2^-12 (rcpps, single only, variants 0 to
// 3) or below 2^-14 (vrcp14, both types, variant 5). Raises no flag for any input.
template <class T>
inline vec<T> rcp_estimate(const vec<T>& v) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_mask_rcp14_pd(v, 0xFF, v));
  } else {
    return vec<T>(_mm512_mask_rcp14_ps(v, 0xFFFF, v));
  }
#elif TVX_VARIANT_ID == 3
  static_assert(sizeof(T) == 4, "no double reciprocal estimate below AVX-512");
  return vec<T>(_mm256_rcp_ps(v));
#else
  static_assert(sizeof(T) == 4, "no double reciprocal estimate below AVX-512");
  return vec<T>(_mm_rcp_ps(v));
#endif
}

#if TVX_VARIANT_ID == 5
// Bit j set when lane j of v is in one of the classes of the class test (vfpclass immediate:
// 0x01 quiet NaN, 0x02 +0, 0x04 -0, 0x08 +inf, 0x10 -inf, 0x20 denormal, 0x40 negative,
// 0x80 signalling NaN).
template <int Imm, class T>
inline std::uint32_t fpclass(const vec<T>& v) {
  if constexpr (sizeof(T) == 8) {
    return _mm512_fpclass_pd_mask(v, Imm);
  } else {
    return _mm512_fpclass_ps_mask(v, Imm);
  }
}
#endif

// ---- moves of selected elements (pack and unpack) ---------------------------------------------
// Loads, gathers, permutes and masked stores only move bits: a value, NaN payloads included,
// arrives as it left. Gathers exist on variants 3 and 5, the compress and expand permutes on
// variant 5. (AVX2 can build both from a permute table and a masked store, but its masked
// stores are slow on some processors, AMD's among them, and lost to plain loops there.)
inline constexpr bool kHasGather = (TVX_VARIANT_ID == 3 || TVX_VARIANT_ID == 5);

#if TVX_VARIANT_ID == 3 || TVX_VARIANT_ID == 5
#if TVX_VARIANT_ID == 3
// All-lanes mask of the AVX2 double gather (its plain form starts from an undefined register,
// which GCC 12 warns on).
inline __m256d all_pd() {
  return _mm256_castsi256_pd(_mm256_set1_epi64x(-1));
}
#endif

// Lane j of the result is base[ix[j]], with lanes<T> signed 32-bit element offsets read from ix.
template <class T>
inline vec<T> gather32(const T* base, const std::int32_t* ix) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    return vec<T>(
        _mm512_i32gather_pd(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(ix)), base, 8));
  } else {
    return vec<T>(_mm512_i32gather_ps(_mm512_loadu_si512(ix), base, 4));
  }
#else
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm256_mask_i32gather_pd(_mm256_setzero_pd(), base,
                                           _mm_loadu_si128(reinterpret_cast<const __m128i*>(ix)),
                                           all_pd(), 8));
  } else {
    return vec<T>(_mm256_mask_i32gather_ps(_mm256_setzero_ps(), base,
                                           _mm256_loadu_si256(reinterpret_cast<const __m256i*>(ix)),
                                           _mm256_castsi256_ps(_mm256_set1_epi32(-1)), 4));
  }
#endif
}

// Bit j set when the 32-bit word m[j] is not zero, for the lanes<T> words from m.
template <class T>
inline std::uint32_t nonzero_bits(const std::int32_t* m) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 8) {
    const __m256i w = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(m));
    return _mm256_test_epi32_mask(w, w);
  } else {
    const __m512i w = _mm512_loadu_si512(m);
    return _mm512_test_epi32_mask(w, w);
  }
#else
  if constexpr (sizeof(T) == 8) {
    const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(m));
    const __m128i z = _mm_cmpeq_epi32(w, _mm_setzero_si128());
    return ~static_cast<std::uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(z))) & 0xFu;
  } else {
    const __m256i w = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(m));
    const __m256i z = _mm256_cmpeq_epi32(w, _mm256_setzero_si256());
    return ~static_cast<std::uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(z))) & 0xFFu;
  }
#endif
}

#endif

#if TVX_VARIANT_ID == 5
// The lanes of v whose bit is set in b, moved to the lowest lanes in order (others unspecified).
template <class T>
inline vec<T> compress(const vec<T>& v, std::uint32_t b) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_maskz_compress_pd(static_cast<__mmask8>(b), v));
  } else {
    return vec<T>(_mm512_maskz_compress_ps(static_cast<__mmask16>(b), v));
  }
}

// The lowest lanes of v, in order, moved up to the lanes whose bit is set in b (others
// unspecified).
template <class T>
inline vec<T> expand(const vec<T>& v, std::uint32_t b) {
  if constexpr (sizeof(T) == 8) {
    return vec<T>(_mm512_maskz_expand_pd(static_cast<__mmask8>(b), v));
  } else {
    return vec<T>(_mm512_maskz_expand_ps(static_cast<__mmask16>(b), v));
  }
}

// Stores the lanes of v whose bit is set in b; memory under the other lanes is not touched.
template <class T>
inline void store_where(T* p, const vec<T>& v, std::uint32_t b) {
  if constexpr (sizeof(T) == 8) {
    _mm512_mask_storeu_pd(p, static_cast<__mmask8>(b), v);
  } else {
    _mm512_mask_storeu_ps(p, static_cast<__mmask16>(b), v);
  }
}
#endif

}  // namespace tvx::TVX_VNS::simd
