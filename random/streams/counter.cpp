// Counter-based generators: Philox4x32-10 and ARS-5. Each output block of four 32-bit words is a
// keyed bijection of a 128-bit counter, so a block depends on nothing but the key and its counter:
// blocks are made many at a time, and skipping ahead is an addition to the counter. Compiled once
// per instruction-set variant.
//
// Stream state: the key, the counter of the next block to make, and the last block made with
// `left` of its words not yet delivered (they go first in the next call). The words are the same
// in every variant and for every cut of the calls: the vector paths compute exactly the integer
// (Philox) or AES (ARS) blocks of the one-block path.
#include <immintrin.h>

#include <cstring>

#include "random/streams/generators.h"
#include "random/streams/lanes.h"
#include "random/streams/probes.h"
#include "runtime/cpu_type.h"

namespace tvx::TVX_VNS::gen {
namespace {

using u128 = unsigned __int128;

struct PhiloxState {
  std::uint32_t key[2];
  std::uint32_t counter[4];  // least significant word first
  std::uint32_t left;
  std::uint32_t block[4];
};
static_assert(sizeof(PhiloxState) + rud::kHeaderBytes <= 64, "catalogue size of the Philox record");

struct ArsState {
  std::uint32_t key[4];
  std::uint32_t counter[4];
  std::uint32_t left;
  std::uint32_t block[4];
};
static_assert(sizeof(ArsState) + rud::kHeaderBytes <= 72, "catalogue size of the ARS-5 record");

inline u128 load_counter(const std::uint32_t (&c)[4]) {
  u128 v;
  std::memcpy(&v, c, sizeof v);
  return v;
}
inline void store_counter(std::uint32_t (&c)[4], u128 v) {
  std::memcpy(c, &v, sizeof v);
}

// ---- Philox4x32-10 ------------------------------------------------------------------------------
// Round: the two 64-bit products m0 c0 and m1 c2 are split into halves and mixed with c1, c3 and
// the key; the key grows by the Weyl increments between rounds.
constexpr std::uint32_t kPhiloxM0 = 0xD2511F53u, kPhiloxM1 = 0xCD9E8D57u;
constexpr std::uint32_t kPhiloxW0 = 0x9E3779B9u, kPhiloxW1 = 0xBB67AE85u;
constexpr int kPhiloxRounds = 10;

void philox_one(const std::uint32_t key[2], u128 counter, std::uint32_t out[4]) {
  std::uint32_t c[4];
  std::memcpy(c, &counter, sizeof c);
  std::uint32_t k0 = key[0], k1 = key[1];
  for (int r = 0; r < kPhiloxRounds; ++r) {
    const std::uint64_t p0 = std::uint64_t{kPhiloxM0} * c[0];
    const std::uint64_t p1 = std::uint64_t{kPhiloxM1} * c[2];
    const std::uint32_t n0 = static_cast<std::uint32_t>(p1 >> 32) ^ c[1] ^ k0;
    const std::uint32_t n2 = static_cast<std::uint32_t>(p0 >> 32) ^ c[3] ^ k1;
    c[0] = n0;
    c[1] = static_cast<std::uint32_t>(p1);
    c[2] = n2;
    c[3] = static_cast<std::uint32_t>(p0);
    k0 += kPhiloxW0;
    k1 += kPhiloxW1;
  }
  std::memcpy(out, c, sizeof c);
}

// Vector path: each register holds word i of kW32 consecutive counters; kGroups independent sets
// keep the multipliers busy. A batch is transposed back to block order when stored.
constexpr int kGroups = 2;
constexpr int kPhiloxBatch = kGroups * lanes::kW32;

// `nblocks` blocks from counter `ctr` on, written to `out`; `ctr` ends past the last one.
void philox_blocks(const std::uint32_t key[2], u128& ctr, std::size_t nblocks, std::uint32_t* out) {
  using namespace lanes;
  std::size_t i = 0;
  if (nblocks >= static_cast<std::size_t>(kPhiloxBatch)) {
    W32 rk0[kPhiloxRounds], rk1[kPhiloxRounds];
    for (int r = 0; r < kPhiloxRounds; ++r) {
      rk0[r] = set1_32(key[0] + static_cast<std::uint32_t>(r) * kPhiloxW0);
      rk1[r] = set1_32(key[1] + static_cast<std::uint32_t>(r) * kPhiloxW1);
    }
    const W32 m0 = set1_32(kPhiloxM0), m1 = set1_32(kPhiloxM1);
    for (; i + kPhiloxBatch <= nblocks; i += kPhiloxBatch) {
      W32 x0[kGroups], x1[kGroups], x2[kGroups], x3[kGroups];
      std::uint32_t w[4];
      std::memcpy(w, &ctr, sizeof w);
      if (w[0] <= 0xFFFFFFFFu - (kPhiloxBatch - 1)) {
        // No carry out of the low word inside the batch: the other words are common.
        for (int g = 0; g < kGroups; ++g) {
          x0[g] = add32(set1_32(w[0] + static_cast<std::uint32_t>(g * kW32)), iota32());
          x1[g] = set1_32(w[1]);
          x2[g] = set1_32(w[2]);
          x3[g] = set1_32(w[3]);
        }
      } else {
        alignas(64) std::uint32_t c[4][kPhiloxBatch];
        for (int j = 0; j < kPhiloxBatch; ++j) {
          const u128 v = ctr + static_cast<u128>(j);
          std::uint32_t cw[4];
          std::memcpy(cw, &v, sizeof cw);
          for (int t = 0; t < 4; ++t) c[t][j] = cw[t];
        }
        for (int g = 0; g < kGroups; ++g) {
          x0[g] = load32(c[0] + g * kW32);
          x1[g] = load32(c[1] + g * kW32);
          x2[g] = load32(c[2] + g * kW32);
          x3[g] = load32(c[3] + g * kW32);
        }
      }
#pragma GCC unroll 10
      for (int r = 0; r < kPhiloxRounds; ++r) {
#pragma GCC unroll 4
        for (int g = 0; g < kGroups; ++g) {
          W32 hi0, lo0, hi1, lo1;
          mulhilo32(x0[g], m0, hi0, lo0);
          mulhilo32(x2[g], m1, hi1, lo1);
          x0[g] = xor32(xor32(hi1, x1[g]), rk0[r]);
          x1[g] = lo1;
          x2[g] = xor32(xor32(hi0, x3[g]), rk1[r]);
          x3[g] = lo0;
        }
      }
      for (int g = 0; g < kGroups; ++g) {
        store_blocks4(out + 4 * (i + static_cast<std::size_t>(g * kW32)), x0[g], x1[g], x2[g],
                      x3[g]);
      }
      ctr += kPhiloxBatch;
    }
  }
  for (; i < nblocks; ++i) {
    philox_one(key, ctr, out + 4 * i);
    ++ctr;
  }
}

// ---- ARS-5 --------------------------------------------------------------------------------------
// Block: s = counter xor key; four AES rounds and a last round, the round key growing by the Weyl
// increments in two 64-bit lanes before each.
constexpr std::uint64_t kArsWeylLo = 0x9E3779B97F4A7C15ull, kArsWeylHi = 0xBB67AE8584CAA73Bull;
constexpr int kArsKeys = 6;  // the key itself and the five round keys

struct ArsKeys {
  alignas(16) std::uint64_t k[kArsKeys][2];
};

ArsKeys ars_keys(const std::uint32_t key[4]) {
  ArsKeys ks;
  std::memcpy(ks.k[0], key, 16);
  for (int r = 1; r < kArsKeys; ++r) {
    ks.k[r][0] = ks.k[r - 1][0] + kArsWeylLo;
    ks.k[r][1] = ks.k[r - 1][1] + kArsWeylHi;
  }
  return ks;
}

__attribute__((target("aes"))) inline __m128i ars_block(const __m128i (&k)[kArsKeys], __m128i c) {
  __m128i s = _mm_xor_si128(c, k[0]);
  s = _mm_aesenc_si128(s, k[1]);
  s = _mm_aesenc_si128(s, k[2]);
  s = _mm_aesenc_si128(s, k[3]);
  s = _mm_aesenc_si128(s, k[4]);
  return _mm_aesenclast_si128(s, k[5]);
}

// Eight blocks in flight hide the latency of the round instruction.
__attribute__((target("aes"))) void ars_blocks_ni(const ArsKeys& ks, u128& ctr, std::size_t nblocks,
                                                  std::uint32_t* out) {
  constexpr int kFlight = 8;
  __m128i k[kArsKeys];
  for (int r = 0; r < kArsKeys; ++r)
    k[r] = _mm_load_si128(reinterpret_cast<const __m128i*>(ks.k[r]));
  std::size_t i = 0;
  for (; i + kFlight <= nblocks; i += kFlight) {
    __m128i s[kFlight];
    for (int j = 0; j < kFlight; ++j) {
      const u128 v = ctr + static_cast<u128>(j);
      std::memcpy(&s[j], &v, sizeof v);
      s[j] = _mm_xor_si128(s[j], k[0]);
    }
    for (int r = 1; r < kArsKeys - 1; ++r) {
      for (int j = 0; j < kFlight; ++j) s[j] = _mm_aesenc_si128(s[j], k[r]);
    }
    for (int j = 0; j < kFlight; ++j) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * (i + j)),
                       _mm_aesenclast_si128(s[j], k[kArsKeys - 1]));
    }
    ctr += kFlight;
  }
  for (; i < nblocks; ++i) {
    __m128i c;
    std::memcpy(&c, &ctr, sizeof c);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * i), ars_block(k, c));
    ++ctr;
  }
}

#if TVX_VARIANT_ID == 5
// Four blocks per register with the vector AES instructions, four registers in flight. The low
// 64 bits of the counter must not carry inside a batch; the caller sends such batches to the
// 128-bit path.
constexpr std::size_t kWideBatch = 16;
__attribute__((target("vaes"))) void ars_blocks_wide(const ArsKeys& ks, u128& ctr,
                                                     std::size_t nblocks, std::uint32_t* out) {
  constexpr int kRegs = 4;
  __m512i k[kArsKeys];
  for (int r = 0; r < kArsKeys; ++r) {
    k[r] = _mm512_broadcast_i32x4(_mm_load_si128(reinterpret_cast<const __m128i*>(ks.k[r])));
  }
  const __m512i step = _mm512_setr_epi64(4, 0, 4, 0, 4, 0, 4, 0);
  __m128i c128;
  std::memcpy(&c128, &ctr, sizeof c128);
  __m512i c =
      _mm512_add_epi64(_mm512_broadcast_i32x4(c128), _mm512_setr_epi64(0, 0, 1, 0, 2, 0, 3, 0));
  for (std::size_t i = 0; i < nblocks; i += kWideBatch) {
    __m512i s[kRegs];
    for (int j = 0; j < kRegs; ++j) {
      s[j] = _mm512_xor_si512(c, k[0]);
      c = _mm512_add_epi64(c, step);
    }
    for (int r = 1; r < kArsKeys - 1; ++r) {
      for (int j = 0; j < kRegs; ++j) s[j] = _mm512_aesenc_epi128(s[j], k[r]);
    }
    for (int j = 0; j < kRegs; ++j) {
      _mm512_storeu_si512(out + 4 * (i + 4 * j), _mm512_aesenclast_epi128(s[j], k[kArsKeys - 1]));
    }
  }
  ctr += nblocks;
}
#endif

void ars_blocks(const std::uint32_t key[4], u128& ctr, std::size_t nblocks, std::uint32_t* out) {
  const ArsKeys ks = ars_keys(key);
#if TVX_VARIANT_ID == 5
  if (nblocks >= kWideBatch && tvx_cpu_has_feature(TVX_FEAT_VAES)) {
    // Whole batches up to where the low 64 bits of the counter would wrap.
    const std::uint64_t lo = static_cast<std::uint64_t>(ctr);
    const std::uint64_t room = ~lo;  // blocks that can follow `lo` without a carry
    std::size_t wide = nblocks / kWideBatch * kWideBatch;
    if (room < wide) wide = room / kWideBatch * kWideBatch;
    if (wide > 0) {
      ars_blocks_wide(ks, ctr, wide, out);
      out += 4 * wide;
      nblocks -= wide;
    }
  }
#endif
  ars_blocks_ni(ks, ctr, nblocks, out);
}

// ---- Shared stream logic -----------------------------------------------------------------------
struct Philox {
  using State = PhiloxState;
  static constexpr bool kPhiloxRule = true;
  static void blocks(State& st, std::size_t nblocks, std::uint32_t* out) {
    u128 ctr = load_counter(st.counter);
    philox_blocks(st.key, ctr, nblocks, out);
    store_counter(st.counter, ctr);
  }
  static int available() { return RUD_STATUS_OK; }
};

struct Ars {
  using State = ArsState;
  static constexpr bool kPhiloxRule = false;
  static void blocks(State& st, std::size_t nblocks, std::uint32_t* out) {
    u128 ctr = load_counter(st.counter);
    ars_blocks(st.key, ctr, nblocks, out);
    store_counter(st.counter, ctr);
  }
  static int available() {
    return rud::probes::aes_supported() ? RUD_STATUS_OK : RUD_RNG_ERROR_ARS5_NOT_SUPPORTED;
  }
};

// n words: what is left of the last block, then whole blocks straight into r, then one block
// into the state for the tail.
template <class G>
void counter_words(typename G::State& st, int n, std::uint32_t* r) {
  int done = std::min(static_cast<int>(st.left), n);
  for (int j = 0; j < done; ++j) r[j] = st.block[4 - st.left + static_cast<std::uint32_t>(j)];
  st.left -= static_cast<std::uint32_t>(done);
  const int whole = (n - done) / 4;
  if (whole > 0) {
    G::blocks(st, static_cast<std::size_t>(whole), r + done);
    done += 4 * whole;
  }
  if (done < n) {
    G::blocks(st, 1, st.block);
    const int tail = n - done;
    for (int j = 0; j < tail; ++j) r[done + j] = st.block[j];
    st.left = static_cast<std::uint32_t>(4 - tail);
  }
}

// Skip of a count given as `nwords` 64-bit words, least significant first. Within what is left of
// the last block only `left` moves. Otherwise the counter moves past the skipped whole blocks and
// the block holding the next word is made, with `left` counting its words still to come. The two
// generators keep different but equivalent states when the skip ends on a block edge: Philox keeps
// `left` 0 on the block before, ARS-5 the full next block with `left` 4.
template <class G>
void counter_skip(typename G::State& st, const std::uint64_t* words, int nwords) {
  const std::uint32_t left = st.left;
  bool high = false;
  for (int w = 1; w < nwords; ++w) high = high || words[w] != 0;
  const std::uint64_t w0 = nwords > 0 ? words[0] : 0;
  if (!high && w0 <= left) {
    st.left = left - static_cast<std::uint32_t>(w0);
    return;
  }
  // d = count - left (- 1 for Philox), in three words: bits 2 to 129 are the counter step.
  std::uint64_t d[3] = {w0, nwords > 1 ? words[1] : 0, nwords > 2 ? words[2] : 0};
  std::uint64_t sub = left + (G::kPhiloxRule ? 1u : 0u);
  for (int w = 0; w < 3 && sub != 0; ++w) {
    const std::uint64_t before = d[w];
    d[w] = before - sub;
    sub = before < sub ? 1 : 0;
  }
  const u128 step =
      (static_cast<u128>((d[1] >> 2) | (d[2] << 62)) << 64) | ((d[0] >> 2) | (d[1] << 62));
  const std::uint32_t low = static_cast<std::uint32_t>(d[0] & 3);
  store_counter(st.counter, load_counter(st.counter) + step);
  G::blocks(st, 1, st.block);
  st.left = G::kPhiloxRule ? 3 - low : 4 - low;
}

// Conversion of both: m + y s with y the word as a signed integer, m the middle of the interval
// and s its width over 2^32.
constexpr double kSignedScale = 0x1p-32;

template <class G>
int counter_init(int op, RudStreamPtr stream, int n, const void* params, int key_words) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  auto& st = *rud::state<typename G::State>(stream);
  switch (op) {
    case RUD_INIT_SEED: {
      if (n >= 1 && params == nullptr) return RUD_ERROR_NULL_PTR;
      std::uint32_t w[8] = {};
      for (int i = 0; i < std::min(n, key_words + 4); ++i) {
        w[i] = read_u32(static_cast<const unsigned char*>(params) + 4 * i);
      }
      std::memcpy(st.key, w, sizeof st.key);
      std::memcpy(st.counter, w + key_words, sizeof st.counter);
      st.left = 0;
      std::memset(st.block, 0, sizeof st.block);
      return RUD_STATUS_OK;
    }
    case RUD_INIT_LEAPFROG:
      return RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED;
    case RUD_INIT_SKIPAHEAD: {
      if (const int a = G::available()) return a;
      if (params == nullptr) return RUD_ERROR_NULL_PTR;
      const std::uint64_t count = read_u64(params);
      counter_skip<G>(st, &count, 1);
      return RUD_STATUS_OK;
    }
    case RUD_INIT_SKIPAHEADEX: {
      if (const int a = G::available()) return a;
      if (n <= 0) return RUD_STATUS_OK;
      if (params == nullptr) return RUD_ERROR_NULL_PTR;
      // Only the low three words can change a 128-bit counter; a fourth word and above only
      // matter for the test against `left`, which any non-zero word fails.
      std::uint64_t w[4] = {};
      const auto* bytes = static_cast<const unsigned char*>(params);
      for (int i = 0; i < n; ++i) {
        const std::uint64_t v = read_u64(bytes + 8 * i);
        if (i < 3) {
          w[i] = v;
        } else {
          w[3] |= v;
        }
      }
      counter_skip<G>(st, w, 4);
      return RUD_STATUS_OK;
    }
    default:
      return RUD_ERROR_BAD_OPERATION;
  }
}

template <class G>
int counter_i(RudStreamPtr stream, int n, unsigned int r[]) {
  if (const int s = block_args(stream, n, r)) return s;
  if (const int a = G::available()) return a;
  counter_words<G>(*rud::state<typename G::State>(stream), n, r);
  return RUD_STATUS_OK;
}

template <class G>
int counter_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  if (const int s = block_args(stream, n, r)) return s;
  if (const int av = G::available()) return av;
  auto& st = *rud::state<typename G::State>(stream);
  const double m = (a + b) * 0.5, s = (b - a) * kSignedScale;
  uniforms<std::uint32_t>(
      n, r, [&](int k, std::uint32_t* w) { counter_words<G>(st, k, w); },
      [m, s](std::uint32_t y) {
        return m + static_cast<double>(static_cast<std::int32_t>(y)) * s;
      });
  return RUD_STATUS_OK;
}

template <class G>
int counter_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  if (const int s = block_args(stream, n, r)) return s;
  if (const int av = G::available()) return av;
  auto& st = *rud::state<typename G::State>(stream);
  const float m = (a + b) * 0.5f, s = (b - a) * static_cast<float>(kSignedScale);
  uniforms<std::uint32_t>(
      n, r, [&](int k, std::uint32_t* w) { counter_words<G>(st, k, w); },
      [m, s](std::uint32_t y) { return m + static_cast<float>(static_cast<std::int32_t>(y)) * s; });
  return RUD_STATUS_OK;
}

}  // namespace

// A loaded counter state may hold any key and counter; only the count of kept words indexes memory.
bool philox_state_ok(const void* state) {
  return static_cast<const PhiloxState*>(state)->left <= 4;
}

bool ars5_state_ok(const void* state) {
  return static_cast<const ArsState*>(state)->left <= 4;
}

int philox_init(int op, RudStreamPtr stream, int n, const void* params) {
  return counter_init<Philox>(op, stream, n, params, 2);
}
int philox_i(RudStreamPtr stream, int n, unsigned int r[]) {
  return counter_i<Philox>(stream, n, r);
}
int philox_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  return counter_d<Philox>(stream, n, r, a, b);
}
int philox_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  return counter_s<Philox>(stream, n, r, a, b);
}

int ars5_init(int op, RudStreamPtr stream, int n, const void* params) {
  return counter_init<Ars>(op, stream, n, params, 4);
}
int ars5_i(RudStreamPtr stream, int n, unsigned int r[]) {
  return counter_i<Ars>(stream, n, r);
}
int ars5_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  return counter_d<Ars>(stream, n, r, a, b);
}
int ars5_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  return counter_s<Ars>(stream, n, r, a, b);
}

}  // namespace tvx::TVX_VNS::gen
