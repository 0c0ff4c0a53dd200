// Integer lane operations of the block generators, one definition per instruction-set variant.
//
// Vectors hold unsigned 64-bit lanes (2 with SSE2/SSE4.2, 4 with AVX2, 8 with AVX-512) or 32-bit
// words for the shift-register generator. Only operations with one exact result are offered, so
// every variant produces the same words.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "simd/variant.h"

namespace tvx::TVX_VNS::lanes {

#if TVX_VARIANT_ID == 5
using V = __m512i;
inline constexpr int kW = 8;  // 64-bit lanes
inline V load(const std::uint64_t* p) {
  return _mm512_loadu_si512(p);
}
inline void store(std::uint64_t* p, V v) {
  _mm512_storeu_si512(p, v);
}
inline V set1(std::uint64_t x) {
  return _mm512_set1_epi64(static_cast<long long>(x));
}
inline V add(V a, V b) {
  return _mm512_add_epi64(a, b);
}
inline V sub(V a, V b) {
  return _mm512_sub_epi64(a, b);
}
inline V band(V a, V b) {
  return _mm512_and_si512(a, b);
}
inline V mul32(V a, V b) {
  return _mm512_mul_epu32(a, b);
}  // low 32 x low 32 -> 64
inline V mullo64(V a, V b) {
  return _mm512_mullo_epi64(a, b);
}
template <int k>
inline V srl(V a) {
  return _mm512_srli_epi64(a, k);
}
// d - m where that is not negative, else d (d, m below 2^63).
inline V sub_if_ge(V d, V m) {
  return _mm512_min_epu64(d, _mm512_sub_epi64(d, m));
}
// d + m where d is negative as a signed lane, else d.
inline V add_if_neg(V d, V m) {
  return _mm512_add_epi64(d, _mm512_and_si512(_mm512_srai_epi64(d, 63), m));
}
// Low 32 bits of each lane, stored contiguously (kW words).
inline void store_lo32(std::uint32_t* p, V v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), _mm512_cvtepi64_epi32(v));
}
inline V bcast(V v, int lane) {
  return _mm512_permutexvar_epi64(_mm512_set1_epi64(lane), v);
}

using W32 = __m512i;
inline constexpr int kW32 = 16;
inline W32 load32(const std::uint32_t* p) {
  return _mm512_loadu_si512(p);
}
inline void store32(std::uint32_t* p, W32 v) {
  _mm512_storeu_si512(p, v);
}
inline W32 xor32(W32 a, W32 b) {
  return _mm512_xor_si512(a, b);
}

#elif TVX_VARIANT_ID == 3
using V = __m256i;
inline constexpr int kW = 4;
inline V load(const std::uint64_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const V*>(p));
}
inline void store(std::uint64_t* p, V v) {
  _mm256_storeu_si256(reinterpret_cast<V*>(p), v);
}
inline V set1(std::uint64_t x) {
  return _mm256_set1_epi64x(static_cast<long long>(x));
}
inline V add(V a, V b) {
  return _mm256_add_epi64(a, b);
}
inline V sub(V a, V b) {
  return _mm256_sub_epi64(a, b);
}
inline V band(V a, V b) {
  return _mm256_and_si256(a, b);
}
inline V mul32(V a, V b) {
  return _mm256_mul_epu32(a, b);
}
template <int k>
inline V srl(V a) {
  return _mm256_srli_epi64(a, k);
}
inline V mullo64(V a, V b) {
  const V cross = _mm256_add_epi64(mul32(srl<32>(a), b), mul32(a, srl<32>(b)));
  return _mm256_add_epi64(mul32(a, b), _mm256_slli_epi64(cross, 32));
}
inline V add_if_neg(V d, V m) {
  return _mm256_add_epi64(d, _mm256_and_si256(_mm256_cmpgt_epi64(_mm256_setzero_si256(), d), m));
}
inline V sub_if_ge(V d, V m) {
  return add_if_neg(_mm256_sub_epi64(d, m), m);
}
inline void store_lo32(std::uint32_t* p, V v) {
  const V packed = _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(packed));
}
inline V bcast(V v, int lane) {
  return _mm256_permutevar8x32_epi32(
      v, _mm256_setr_epi32(2 * lane, 2 * lane + 1, 2 * lane, 2 * lane + 1, 2 * lane, 2 * lane + 1,
                           2 * lane, 2 * lane + 1));
}

using W32 = __m256i;
inline constexpr int kW32 = 8;
inline W32 load32(const std::uint32_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const W32*>(p));
}
inline void store32(std::uint32_t* p, W32 v) {
  _mm256_storeu_si256(reinterpret_cast<W32*>(p), v);
}
inline W32 xor32(W32 a, W32 b) {
  return _mm256_xor_si256(a, b);
}

#else  // SSE2 and SSE4.2: two 64-bit lanes
using V = __m128i;
inline constexpr int kW = 2;
inline V load(const std::uint64_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const V*>(p));
}
inline void store(std::uint64_t* p, V v) {
  _mm_storeu_si128(reinterpret_cast<V*>(p), v);
}
inline V set1(std::uint64_t x) {
  return _mm_set1_epi64x(static_cast<long long>(x));
}
inline V add(V a, V b) {
  return _mm_add_epi64(a, b);
}
inline V sub(V a, V b) {
  return _mm_sub_epi64(a, b);
}
inline V band(V a, V b) {
  return _mm_and_si128(a, b);
}
inline V mul32(V a, V b) {
  return _mm_mul_epu32(a, b);
}
template <int k>
inline V srl(V a) {
  return _mm_srli_epi64(a, k);
}
inline V mullo64(V a, V b) {
  const V cross = _mm_add_epi64(mul32(srl<32>(a), b), mul32(a, srl<32>(b)));
  return _mm_add_epi64(mul32(a, b), _mm_slli_epi64(cross, 32));
}
// The sign of each 64-bit lane spread over the lane: the high dword's sign, copied to both halves.
inline V add_if_neg(V d, V m) {
  const V sign = _mm_shuffle_epi32(_mm_srai_epi32(d, 31), _MM_SHUFFLE(3, 3, 1, 1));
  return _mm_add_epi64(d, _mm_and_si128(sign, m));
}
inline V sub_if_ge(V d, V m) {
  return add_if_neg(_mm_sub_epi64(d, m), m);
}
inline void store_lo32(std::uint32_t* p, V v) {
  _mm_storel_epi64(reinterpret_cast<V*>(p), _mm_shuffle_epi32(v, _MM_SHUFFLE(3, 1, 2, 0)));
}
inline V bcast(V v, int lane) {
  return lane == 0 ? _mm_unpacklo_epi64(v, v) : _mm_unpackhi_epi64(v, v);
}

using W32 = __m128i;
inline constexpr int kW32 = 4;
inline W32 load32(const std::uint32_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const W32*>(p));
}
inline void store32(std::uint32_t* p, W32 v) {
  _mm_storeu_si128(reinterpret_cast<W32*>(p), v);
}
inline W32 xor32(W32 a, W32 b) {
  return _mm_xor_si128(a, b);
}
#endif

}  // namespace tvx::TVX_VNS::lanes
