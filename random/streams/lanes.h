// Integer lane operations of the block generators, one definition per instruction-set variant.
//
// Vectors hold unsigned 64-bit lanes (2 with SSE2/SSE4.2, 4 with AVX2, 8 with AVX-512) or 32-bit
// words for the shift-register and counter-based generators. Only operations with one exact result
// are offered, so every variant produces the same words.
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
inline W32 set1_32(std::uint32_t x) {
  return _mm512_set1_epi32(static_cast<int>(x));
}
inline W32 iota32() {
  return _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
}
inline W32 add32(W32 a, W32 b) {
  return _mm512_add_epi32(a, b);
}
// High and low halves of the 32 x 32-bit products of every word with the same m.
inline void mulhilo32(W32 a, W32 m, W32& hi, W32& lo) {
  const W32 even = _mm512_mul_epu32(a, m);
  const W32 odd = _mm512_mul_epu32(_mm512_srli_epi64(a, 32), m);
  lo = _mm512_mask_blend_epi32(0xAAAA, even, _mm512_slli_epi64(odd, 32));
  hi = _mm512_mask_blend_epi32(0xAAAA, _mm512_srli_epi64(even, 32), odd);
}
// Four registers, word i of 16 blocks of four words each, stored as 64 words block by block.
inline void store_blocks4(std::uint32_t* p, W32 c0, W32 c1, W32 c2, W32 c3) {
  const W32 t0 = _mm512_unpacklo_epi32(c0, c1), t1 = _mm512_unpacklo_epi32(c2, c3);
  const W32 t2 = _mm512_unpackhi_epi32(c0, c1), t3 = _mm512_unpackhi_epi32(c2, c3);
  // b_r holds blocks r, r + 4, r + 8, r + 12 in its four 128-bit lanes.
  const W32 b0 = _mm512_unpacklo_epi64(t0, t1), b1 = _mm512_unpackhi_epi64(t0, t1);
  const W32 b2 = _mm512_unpacklo_epi64(t2, t3), b3 = _mm512_unpackhi_epi64(t2, t3);
  const W32 u0 = _mm512_shuffle_i32x4(b0, b1, 0x44), u1 = _mm512_shuffle_i32x4(b2, b3, 0x44);
  const W32 u2 = _mm512_shuffle_i32x4(b0, b1, 0xEE), u3 = _mm512_shuffle_i32x4(b2, b3, 0xEE);
  store32(p, _mm512_shuffle_i32x4(u0, u1, 0x88));
  store32(p + 16, _mm512_shuffle_i32x4(u0, u1, 0xDD));
  store32(p + 32, _mm512_shuffle_i32x4(u2, u3, 0x88));
  store32(p + 48, _mm512_shuffle_i32x4(u2, u3, 0xDD));
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
inline W32 set1_32(std::uint32_t x) {
  return _mm256_set1_epi32(static_cast<int>(x));
}
inline W32 iota32() {
  return _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
}
inline W32 add32(W32 a, W32 b) {
  return _mm256_add_epi32(a, b);
}
inline void mulhilo32(W32 a, W32 m, W32& hi, W32& lo) {
  const W32 even = _mm256_mul_epu32(a, m);
  const W32 odd = _mm256_mul_epu32(_mm256_srli_epi64(a, 32), m);
  lo = _mm256_blend_epi32(even, _mm256_slli_epi64(odd, 32), 0xAA);
  hi = _mm256_blend_epi32(_mm256_srli_epi64(even, 32), odd, 0xAA);
}
inline void store_blocks4(std::uint32_t* p, W32 c0, W32 c1, W32 c2, W32 c3) {
  const W32 t0 = _mm256_unpacklo_epi32(c0, c1), t1 = _mm256_unpacklo_epi32(c2, c3);
  const W32 t2 = _mm256_unpackhi_epi32(c0, c1), t3 = _mm256_unpackhi_epi32(c2, c3);
  // b_r holds blocks r and r + 4 in its two 128-bit lanes.
  const W32 b0 = _mm256_unpacklo_epi64(t0, t1), b1 = _mm256_unpackhi_epi64(t0, t1);
  const W32 b2 = _mm256_unpacklo_epi64(t2, t3), b3 = _mm256_unpackhi_epi64(t2, t3);
  store32(p, _mm256_permute2x128_si256(b0, b1, 0x20));
  store32(p + 8, _mm256_permute2x128_si256(b2, b3, 0x20));
  store32(p + 16, _mm256_permute2x128_si256(b0, b1, 0x31));
  store32(p + 24, _mm256_permute2x128_si256(b2, b3, 0x31));
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
inline W32 set1_32(std::uint32_t x) {
  return _mm_set1_epi32(static_cast<int>(x));
}
inline W32 iota32() {
  return _mm_setr_epi32(0, 1, 2, 3);
}
inline W32 add32(W32 a, W32 b) {
  return _mm_add_epi32(a, b);
}
inline void mulhilo32(W32 a, W32 m, W32& hi, W32& lo) {
  const W32 even = _mm_mul_epu32(a, m);
  const W32 odd = _mm_mul_epu32(_mm_srli_epi64(a, 32), m);
  const W32 low_half = _mm_set1_epi64x(0xFFFFFFFFll);
  lo = _mm_or_si128(_mm_and_si128(even, low_half), _mm_slli_epi64(odd, 32));
  hi = _mm_or_si128(_mm_srli_epi64(even, 32), _mm_andnot_si128(low_half, odd));
}
inline void store_blocks4(std::uint32_t* p, W32 c0, W32 c1, W32 c2, W32 c3) {
  const W32 t0 = _mm_unpacklo_epi32(c0, c1), t1 = _mm_unpacklo_epi32(c2, c3);
  const W32 t2 = _mm_unpackhi_epi32(c0, c1), t3 = _mm_unpackhi_epi32(c2, c3);
  store32(p, _mm_unpacklo_epi64(t0, t1));
  store32(p + 4, _mm_unpackhi_epi64(t0, t1));
  store32(p + 8, _mm_unpacklo_epi64(t2, t3));
  store32(p + 12, _mm_unpackhi_epi64(t2, t3));
}
#endif

}  // namespace tvx::TVX_VNS::lanes
