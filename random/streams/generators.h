// The basic generators of one variant copy: their catalogue entry points and the helpers they
// share. Included only by files compiled per instruction-set variant.
#pragma once

#include <algorithm>
#include <cstdint>

#include "random/streams/catalogue.h"
#include "random/streams/mt2203_params.h"
#include "simd/variant.h"

namespace tvx::TVX_VNS::gen {

#define TVX_RUD_GENERATOR(name)                                             \
  int name##_init(int op, RudStreamPtr stream, int n, const void* params);  \
  int name##_s(RudStreamPtr stream, int n, float r[], float a, float b);    \
  int name##_d(RudStreamPtr stream, int n, double r[], double a, double b); \
  int name##_i(RudStreamPtr stream, int n, unsigned int r[]);
TVX_RUD_GENERATOR(mcg31)
TVX_RUD_GENERATOR(r250)
TVX_RUD_GENERATOR(mrg32k3a)
TVX_RUD_GENERATOR(mcg59)
TVX_RUD_GENERATOR(nondeterm)
TVX_RUD_GENERATOR(ars5)
TVX_RUD_GENERATOR(philox)
TVX_RUD_GENERATOR(mt19937)
TVX_RUD_GENERATOR(sfmt)
TVX_RUD_GENERATOR(mt2203)
#undef TVX_RUD_GENERATOR

// Checks of a state read from an image: true when the bytes could be the state of a live stream
// (indices inside their buffer, values inside the modulus), so that a damaged or hostile image
// can't make the block generators read out of bounds or loop for ever.
bool mcg31_state_ok(const void* state);
bool r250_state_ok(const void* state);
bool mrg32k3a_state_ok(const void* state);
bool mcg59_state_ok(const void* state);
bool philox_state_ok(const void* state);
bool ars5_state_ok(const void* state);
bool mt19937_state_ok(const void* state);
bool sfmt_state_ok(const void* state);
bool mt2203_state_ok(const void* state);

// Member numbers of the MT2203 set (random/streams/mt2203_params.h).
inline constexpr int kMt2203Members = rud::kMt2203Members;

// Argument test shared by the block entry points.
template <class T>
inline int block_args(RudStreamPtr stream, int n, const T* r) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  if (n < 0) return RUD_ERROR_BAD_ARGS;
  if (n > 0 && r == nullptr) return RUD_ERROR_NULL_PTR;
  return RUD_STATUS_OK;
}

// Uniforms from raw words: `words(m, buffer)` writes the next m words, `convert(word)` maps one
// word into the interval. Words go through a small buffer that stays in the first-level cache;
// the conversion loop is a plain loop the compiler vectorises for the variant.
template <class Word, class Out, class Words, class Convert>
inline void uniforms(int n, Out* r, Words&& words, Convert&& convert) {
  constexpr int kChunk = 1024;
  alignas(64) Word buffer[kChunk];
  for (int done = 0; done < n;) {
    const int m = std::min(kChunk, n - done);
    words(m, buffer);
    Out* out = r + done;
    for (int j = 0; j < m; ++j) out[j] = convert(buffer[j]);
    done += m;
  }
}

// Unsigned 64-bit count of a skip-ahead (op 2), or of a leapfrog index (op 1).
inline std::uint64_t read_u64(const void* p) {
  std::uint64_t v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}
inline std::uint32_t read_u32(const void* p) {
  std::uint32_t v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}

}  // namespace tvx::TVX_VNS::gen
