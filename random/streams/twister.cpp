// Mersenne twisters MT19937 and SFMT19937: array seeding, blocks made from a buffer regenerated in
// place with vector lanes, and skip-ahead by stepping for short counts and by a polynomial jump
// over the two-element field for long ones. Compiled once per instruction-set variant; every copy
// produces the same words for every cut of the calls.
#include <immintrin.h>

#include <cstring>

#include "random/streams/generators.h"
#include "random/streams/lanes.h"
#include "runtime/memory.h"

namespace tvx::TVX_VNS::gen {
namespace {

#include "random/streams/twister_polys.inc"

constexpr int kN = 624;
constexpr int kM = 397;
constexpr std::uint32_t kUpper = 0x80000000u;
constexpr std::uint32_t kMatrix = 0x9908B0DFu;
constexpr std::uint64_t kStepLimit = 0xFFFFF;  // up to here a skip steps; above it jumps

struct MtState {
  std::uint32_t mt[kN];
  std::uint32_t mti;  // next word of the buffer; kN means it is used up
};
static_assert(sizeof(MtState) + rud::kHeaderBytes <= 2520, "catalogue size of the MT19937 record");

// Vector of lanes::kW32 words in GCC's generic form: the operations below are exact, so every
// variant computes the same words, only the width differs.
constexpr int kW = lanes::kW32;
typedef std::uint32_t VU __attribute__((vector_size(4 * kW)));

inline VU vload(const std::uint32_t* p) {
  VU v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline void vstore(std::uint32_t* p, VU v) {
  std::memcpy(p, &v, sizeof v);
}

// One new word from the oldest (x), the next (x1) and the middle (xm) words.
template <std::uint32_t Upper, class T>
inline T twist(T x, T x1, T xm, std::uint32_t matrix) {
  const T y = (x & Upper) | (x1 & ~Upper);
  return xm ^ (y >> 1) ^ ((T{} - (y & 1)) & matrix);
}

// Regenerates a buffer of N words in place. The new word k needs the old words k and k + 1 and
// word k + M, which is old for k < N - M and already new above; the two seams and the last word
// (which wraps to the new word 0) go word by word.
template <int N, int M, std::uint32_t Upper>
void regenerate(std::uint32_t* mt, std::uint32_t matrix) {
  int k = 0;
  for (; k + kW <= N - M; k += kW) {
    vstore(mt + k, twist<Upper>(vload(mt + k), vload(mt + k + 1), vload(mt + k + M), matrix));
  }
  for (; k < N - M; ++k) mt[k] = twist<Upper>(mt[k], mt[k + 1], mt[k + M], matrix);
  for (; k + kW <= N - 1; k += kW) {
    vstore(mt + k, twist<Upper>(vload(mt + k), vload(mt + k + 1), vload(mt + k + M - N), matrix));
  }
  for (; k < N - 1; ++k) mt[k] = twist<Upper>(mt[k], mt[k + 1], mt[k + M - N], matrix);
  mt[N - 1] = twist<Upper>(mt[N - 1], mt[0], mt[M - 1], matrix);
}

inline std::uint32_t temper(std::uint32_t y) {
  y ^= y >> 11;
  y ^= (y << 7) & 0x9D2C5680u;
  y ^= (y << 15) & 0xEFC60000u;
  return y ^ (y >> 18);
}

// Writes the next m words, tempered, regenerating the buffer as it runs out.
void mt_words(MtState& st, int m, std::uint32_t* out) {
  while (m > 0) {
    if (st.mti >= kN) {
      regenerate<kN, kM, kUpper>(st.mt, kMatrix);
      st.mti = 0;
    }
    const int take = std::min(m, kN - static_cast<int>(st.mti));
    const std::uint32_t* src = st.mt + st.mti;
    int j = 0;
    for (; j + kW <= take; j += kW) {
      VU y = vload(src + j);
      y ^= y >> 11;
      y ^= (y << 7) & 0x9D2C5680u;
      y ^= (y << 15) & 0xEFC60000u;
      vstore(out + j, y ^ (y >> 18));
    }
    for (; j < take; ++j) out[j] = temper(src[j]);
    st.mti += static_cast<std::uint32_t>(take);
    out += take;
    m -= take;
  }
}

// Array seeding of a buffer of N words; a key of no words stands for the one word 1.
template <int N>
void array_seed(std::uint32_t* mt, int n, const void* params) {
  static const std::uint32_t kOne = 1;
  const auto* key = static_cast<const unsigned char*>(n >= 1 ? params : &kOne);
  const int len = n >= 1 ? n : 1;
  mt[0] = 19650218u;
  for (int i = 1; i < N; ++i) {
    mt[i] = 1812433253u * (mt[i - 1] ^ (mt[i - 1] >> 30)) + static_cast<std::uint32_t>(i);
  }
  int i = 1, j = 0;
  for (int c = std::max(N, len); c > 0; --c) {
    mt[i] = (mt[i] ^ ((mt[i - 1] ^ (mt[i - 1] >> 30)) * 1664525u)) + read_u32(key + 4 * j) +
            static_cast<std::uint32_t>(j);
    if (++i >= N) {
      mt[0] = mt[N - 1];
      i = 1;
    }
    if (++j >= len) j = 0;
  }
  for (int c = N - 1; c > 0; --c) {
    mt[i] =
        (mt[i] ^ ((mt[i - 1] ^ (mt[i - 1] >> 30)) * 1566083941u)) - static_cast<std::uint32_t>(i);
    if (++i >= N) {
      mt[0] = mt[N - 1];
      i = 1;
    }
  }
  mt[0] = 0x80000000u;
}

// ---- Polynomials over the two-element field -------------------------------------------------
// A polynomial of degree below D is a bit array, bit e the coefficient of x^e. The modulus f is
// sparse: the exponents of its terms, ascending, the last being D.
struct Modulus {
  const std::uint32_t* terms;
  int nterms;
  int degree() const { return static_cast<int>(terms[nterms - 1]); }
  int words() const { return (degree() + 63) / 64; }
};

inline std::uint64_t get_bits(const std::uint64_t* a, int pos, int width) {
  const int w = pos >> 6, sh = pos & 63;
  std::uint64_t v = a[w] >> sh;
  if (sh != 0 && sh + width > 64) v |= a[w + 1] << (64 - sh);
  return width == 64 ? v : v & ((std::uint64_t{1} << width) - 1);
}
inline void xor_bits(std::uint64_t* a, int pos, std::uint64_t v, int width) {
  const int w = pos >> 6, sh = pos & 63;
  a[w] ^= v << sh;
  if (sh != 0 && sh + width > 64) a[w + 1] ^= v >> (64 - sh);
}

// Reduces the polynomial in `a` (bits below `top`) mod f, a chunk of high coefficients at a time:
// x^D = r(x), r being f without its top term, moves a chunk down by D - t for each term t of r.
// A chunk is no wider than D minus the degree of r, so what it adds lies below it.
void reduce(std::uint64_t* a, int top, const Modulus& f) {
  const int d = f.degree();
  const int chunk = std::min(64, d - static_cast<int>(f.terms[f.nterms - 2]));
  for (int p = top; p > d;) {
    const int lo = std::max(d, p - chunk);
    const int width = p - lo;
    const std::uint64_t v = get_bits(a, lo, width);
    p = lo;
    if (v == 0) continue;
    xor_bits(a, lo, v, width);
    for (int i = 0; i + 1 < f.nterms; ++i) {
      xor_bits(a, lo - d + static_cast<int>(f.terms[i]), v, width);
    }
  }
}

// Bits of a 16-bit value spread to the even positions of 32: squaring over the field.
constexpr std::uint32_t spread16(std::uint32_t x) {
  std::uint32_t r = 0;
  for (int i = 0; i < 16; ++i) r |= ((x >> i) & 1u) << (2 * i);
  return r;
}
inline std::uint64_t spread32(std::uint32_t x) {
  return spread16(x & 0xFFFFu) | (std::uint64_t{spread16(x >> 16)} << 32);
}

// A dense modulus (thousands of terms) whose degree is a multiple of 64 is reduced a word of high
// coefficients at a time: the word's product with r comes from 16 tables, table j holding the 16
// multiples of r x^(4j) by a nibble, so a word costs at most 16 aligned additions of r's length.
constexpr int kDenseTerms = 1000;
inline bool is_dense(const Modulus& f) {
  return f.nterms > kDenseTerms && f.degree() % 64 == 0;
}
inline int dense_entry_words(const Modulus& f) {
  return (static_cast<int>(f.terms[f.nterms - 2]) + 64) / 64 + 1;
}
inline std::size_t dense_table_words(const Modulus& f) {
  return is_dense(f) ? std::size_t{256} * static_cast<std::size_t>(dense_entry_words(f)) : 0;
}

void build_dense(const Modulus& f, std::uint64_t* t) {
  const std::size_t rw = static_cast<std::size_t>(dense_entry_words(f));
  std::memset(t, 0, sizeof(std::uint64_t) * 256 * rw);
  for (int j = 0; j < 16; ++j) {
    std::uint64_t* row = t + static_cast<std::size_t>(16 * j) * rw;
    for (int i = 0; i < 4; ++i) {
      std::uint64_t* e = row + (std::size_t{1} << i) * rw;
      for (int k = 0; k + 1 < f.nterms; ++k) {
        const int b = static_cast<int>(f.terms[k]) + 4 * j + i;
        e[b >> 6] |= std::uint64_t{1} << (b & 63);
      }
    }
    for (std::size_t k = 3; k < 16; ++k) {
      const std::size_t low = k & (k - 1), bit = k ^ low;
      if (low == 0) continue;
      for (std::size_t w = 0; w < rw; ++w) row[k * rw + w] = row[low * rw + w] ^ row[bit * rw + w];
    }
  }
}

// `a` has coefficients below 2 D; the words from D / 64 up are folded down.
void reduce_dense(std::uint64_t* a, const Modulus& f, const std::uint64_t* t) {
  const std::size_t rw = static_cast<std::size_t>(dense_entry_words(f));
  const int dw = f.degree() / 64;
  for (int w = 2 * dw - 1; w >= dw; --w) {
    const std::uint64_t v = a[w];
    if (v == 0) continue;
    a[w] = 0;
    std::uint64_t* dst = a + (w - dw);
    for (int j = 0; j < 16; ++j) {
      const std::size_t k = (v >> (4 * j)) & 15u;
      if (k == 0) continue;
      const std::uint64_t* src = t + (static_cast<std::size_t>(16 * j) + k) * rw;
      for (std::size_t i = 0; i < rw; ++i) dst[i] ^= src[i];
    }
  }
}

// g = x^e mod f, from the exponent's top bit down; `g` has f.words() words, `work` 2 f.words() + 1;
// `dense` holds the tables of build_dense when is_dense(f), else it is null.
void power_of_x(std::uint64_t e, const Modulus& f, std::uint64_t* g, std::uint64_t* work,
                const std::uint64_t* dense) {
  const int nw = f.words(), d = f.degree();
  std::memset(g, 0, sizeof(std::uint64_t) * static_cast<std::size_t>(nw));
  g[0] = 1;
  for (int bit = 63 - __builtin_clzll(e); bit >= 0; --bit) {
    std::memset(work, 0, sizeof(std::uint64_t) * static_cast<std::size_t>(2 * nw + 1));
    for (int i = 0; i < nw; ++i) {
      work[2 * i] = spread32(static_cast<std::uint32_t>(g[i]));
      work[2 * i + 1] = spread32(static_cast<std::uint32_t>(g[i] >> 32));
    }
    if ((e >> bit) & 1) {  // times x
      for (int i = 2 * nw; i > 0; --i) work[i] = (work[i] << 1) | (work[i - 1] >> 63);
      work[0] <<= 1;
    }
    if (dense != nullptr) {
      reduce_dense(work, f, dense);
    } else {
      reduce(work, 2 * d, f);
    }
    std::memcpy(g, work, sizeof(std::uint64_t) * static_cast<std::size_t>(nw));
  }
}

// ---- Jump -----------------------------------------------------------------------------------
// The state after q steps is g(T) applied to the state, T the generator's step and g = x^q mod f.
// Horner's rule from the top coefficient: step the accumulator and add the state where the
// coefficient is set; windowed, 7 coefficients at a time: step the accumulator 7 places and add
// the combination of the state stepped 0 to 6 places that they select (a table of 128 such
// combinations, built per call). The accumulator is a circular buffer of units (words or blocks)
// whose oldest unit sits at `pos`; the state and the table entries are kept in plain order.
//
// G supplies kUnits, kUnitWords and step(words, pos), which overwrites the oldest unit with the
// new one.
constexpr int kWindow = 7;

template <class G>
struct Circular {
  static constexpr int kWords = G::kUnits * G::kUnitWords;
  std::uint32_t* w;
  int pos;
  const G& gen;
  void step() {
    gen.step(w, pos);
    pos = pos + 1 == G::kUnits ? 0 : pos + 1;
  }
  // this += e, e in plain order
  void add(const std::uint32_t* e) {
    const int first = kWords - pos * G::kUnitWords;
    std::uint32_t* head = w + pos * G::kUnitWords;
    for (int k = 0; k < first; ++k) head[k] ^= e[k];
    for (int k = first; k < kWords; ++k) w[k - first] ^= e[k];
  }
  void copy_out(std::uint32_t* dst) const {
    const int first = kWords - pos * G::kUnitWords;
    std::memcpy(dst, w + pos * G::kUnitWords, sizeof(std::uint32_t) * first);
    std::memcpy(dst + first, w, sizeof(std::uint32_t) * (kWords - first));
  }
};

// Moves the buffer `state` (all units, the next one still to be made) on by q steps; with
// `windowed` false the plain Horner rule is used and no table is built. Returns
// RUD_ERROR_MEM_FAILURE, with `state` untouched, when the working memory isn't there.
template <class G>
int jump(const G& gen, std::uint32_t* state, std::uint64_t q, const Modulus& f, bool windowed) {
  using C = Circular<G>;
  constexpr std::size_t kWords = C::kWords;
  if (q == 0) return RUD_STATUS_OK;
  const int nw = f.words();
  const std::size_t entries = windowed ? std::size_t{1} << kWindow : 0;
  const std::size_t dense_words = dense_table_words(f);
  const std::size_t bytes =
      sizeof(std::uint64_t) * (static_cast<std::size_t>(3 * nw + 1) + dense_words) +
      sizeof(std::uint32_t) * kWords * (entries + 1);
  auto* mem = static_cast<unsigned char*>(tvx_malloc(bytes, 64));
  if (mem == nullptr) return RUD_ERROR_MEM_FAILURE;
  auto* g = reinterpret_cast<std::uint64_t*>(mem);
  std::uint64_t* work = g + nw;
  std::uint64_t* dense = dense_words != 0 ? work + 2 * nw + 1 : nullptr;
  auto* table = reinterpret_cast<std::uint32_t*>(work + 2 * nw + 1 + dense_words);
  std::uint32_t* acc_words = table + kWords * entries;

  if (dense != nullptr) build_dense(f, dense);
  power_of_x(q, f, g, work, dense);

  if (windowed) {  // table[p] = sum over set bits j of p of T^j (state)
    C walker{acc_words, 0, gen};
    std::memcpy(acc_words, state, sizeof(std::uint32_t) * kWords);
    std::memset(table, 0, sizeof(std::uint32_t) * kWords);
    for (int j = 0; j < kWindow; ++j) {
      std::uint32_t* base = table + kWords * (std::size_t{1} << j);
      walker.copy_out(base);
      for (std::size_t p = (std::size_t{1} << j) + 1; p < (std::size_t{2} << j); ++p) {
        std::uint32_t* e = table + kWords * p;
        const std::uint32_t* low = table + kWords * (p - (std::size_t{1} << j));
        for (std::size_t k = 0; k < kWords; ++k) e[k] = base[k] ^ low[k];
      }
      walker.step();
    }
  }

  // The accumulator is zero until the top set coefficient of g: start there.
  int bit = f.degree() - 1;
  while (bit >= 0 && ((g[bit >> 6] >> (bit & 63)) & 1) == 0) --bit;
  C acc{acc_words, 0, gen};
  std::memset(acc_words, 0, sizeof(std::uint32_t) * kWords);
  if (windowed) {
    for (; bit + 1 >= kWindow; bit -= kWindow) {
      for (int s = 0; s < kWindow; ++s) acc.step();
      const std::uint64_t p = get_bits(g, bit + 1 - kWindow, kWindow);
      if (p != 0) acc.add(table + kWords * p);
    }
  }
  for (; bit >= 0; --bit) {
    acc.step();
    if ((g[bit >> 6] >> (bit & 63)) & 1) acc.add(windowed ? table + kWords : state);
  }
  acc.copy_out(state);
  tvx_free(mem);
  return RUD_STATUS_OK;
}

// MT19937 steps one word at a time.
struct MtStep {
  static constexpr int kUnits = kN;
  static constexpr int kUnitWords = 1;
  void step(std::uint32_t* w, int pos) const {
    const int p1 = pos + 1 == kN ? 0 : pos + 1;
    const int pm = pos + kM >= kN ? pos + kM - kN : pos + kM;
    w[pos] = twist<kUpper>(w[pos], w[p1], w[pm], kMatrix);
  }
};

// Skip by n words: the rest of the buffer first; then whole buffers regenerated without
// tempering while n is small, else the jump.
int mt_skip(MtState& st, std::uint64_t n) {
  if (n == 0) return RUD_STATUS_OK;
  if (n <= kStepLimit) {
    while (n > 0) {
      if (st.mti >= kN) {
        regenerate<kN, kM, kUpper>(st.mt, kMatrix);
        st.mti = 0;
      }
      const std::uint64_t take = std::min<std::uint64_t>(n, kN - st.mti);
      st.mti += static_cast<std::uint32_t>(take);
      n -= take;
    }
    return RUD_STATUS_OK;
  }
  // n is above the buffer, so the rest of it is always used up first.
  const Modulus f{kMt19937Poly, kMt19937Terms};
  const int status = jump(MtStep{}, st.mt, n - (kN - st.mti), f, true);
  if (status == RUD_STATUS_OK) st.mti = kN;
  return status;
}

// ---- SFMT19937 --------------------------------------------------------------------------------
// 156 blocks of 128 bits; a new block is made from the oldest (a), the one 122 places on (b) and
// the two newest (c, d): a ^ (a << 8 bits) ^ ((b >> 11 per word) & mask) ^ (c >> 8 bits) ^
// (d << 18 per word), the 128-bit shifts across the whole block, word 0 lowest.
constexpr int kSfmtBlocks = 156;
constexpr int kSfmtWords = 4 * kSfmtBlocks;
constexpr int kSfmtPos = 122;

struct SfmtState {
  std::uint32_t sfmt[kSfmtWords];
  std::uint32_t idx;      // next word of the buffer, always at a block edge; 624: used up
  std::uint32_t tail[3];  // words of the last block that a call left
  std::uint32_t tail_pos, tail_end;
};
static_assert(sizeof(SfmtState) + rud::kHeaderBytes <= 2536, "catalogue size of the SFMT record");

inline __m128i sfmt_mask() {
  return _mm_set_epi32(static_cast<int>(0xBFFFFFF6u), static_cast<int>(0xBFFAFFFFu),
                       static_cast<int>(0xDDFECB7Fu), static_cast<int>(0xDFFFFFEFu));
}
// The newest block d enters last, so that one block waits on the one before through a shift
// and a single xor.
inline __m128i sfmt_new(__m128i a, __m128i b, __m128i c, __m128i d, __m128i mask) {
  const __m128i x = _mm_xor_si128(a, _mm_slli_si128(a, 1));
  const __m128i y = _mm_xor_si128(x, _mm_and_si128(_mm_srli_epi32(b, 11), mask));
  return _mm_xor_si128(_mm_xor_si128(y, _mm_srli_si128(c, 1)), _mm_slli_epi32(d, 18));
}
inline __m128i ld(const std::uint32_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline void st(std::uint32_t* p, __m128i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

// Blocks go two at a time: the part of a new block that comes from the oldest block and the one
// 122 places on does not wait on the recursion, so on AVX2 copies it is made for both blocks in
// one 256-bit step; the chain through the two newest blocks stays in 128 bits. Pairs never
// straddle the seams at 34 and 156 blocks, both even.
struct SfmtPair {
  __m128i c, d;  // the two newest blocks
  // The new blocks from the oldest ones at a (two blocks) and the ones 122 places on at b.
  void next(const std::uint32_t* a, const std::uint32_t* b, std::uint32_t* out) {
#if defined(__AVX2__)
    const __m256i mask = _mm256_broadcastsi128_si256(sfmt_mask());
    const __m256i va = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(a));
    const __m256i vb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b));
    const __m256i x = _mm256_xor_si256(_mm256_xor_si256(va, _mm256_slli_si256(va, 1)),
                                       _mm256_and_si256(_mm256_srli_epi32(vb, 11), mask));
    const __m128i x0 = _mm256_castsi256_si128(x), x1 = _mm256_extracti128_si256(x, 1);
#else
    const __m128i mask = sfmt_mask();
    const __m128i a0 = ld(a), a1 = ld(a + 4);
    const __m128i x0 = _mm_xor_si128(_mm_xor_si128(a0, _mm_slli_si128(a0, 1)),
                                     _mm_and_si128(_mm_srli_epi32(ld(b), 11), mask));
    const __m128i x1 = _mm_xor_si128(_mm_xor_si128(a1, _mm_slli_si128(a1, 1)),
                                     _mm_and_si128(_mm_srli_epi32(ld(b + 4), 11), mask));
#endif
    const __m128i r0 =
        _mm_xor_si128(_mm_xor_si128(x0, _mm_srli_si128(c, 1)), _mm_slli_epi32(d, 18));
    const __m128i r1 =
        _mm_xor_si128(_mm_xor_si128(x1, _mm_srli_si128(d, 1)), _mm_slli_epi32(r0, 18));
    st(out, r0);
    st(out + 4, r1);
    c = r0;
    d = r1;
  }
};

// All 156 blocks regenerated in place; the block 122 places on is old up to block 33, new after.
void sfmt_regenerate(std::uint32_t* s) {
  SfmtPair p{ld(s + 4 * (kSfmtBlocks - 2)), ld(s + 4 * (kSfmtBlocks - 1))};
  int i = 0;
  for (; i < kSfmtBlocks - kSfmtPos; i += 2) p.next(s + 4 * i, s + 4 * (i + kSfmtPos), s + 4 * i);
  for (; i < kSfmtBlocks; i += 2) {
    p.next(s + 4 * i, s + 4 * (i + kSfmtPos - kSfmtBlocks), s + 4 * i);
  }
}

// 156 q blocks made straight into `out`, which the recursion then reads back: the oldest block and
// the one 122 places on come from the buffer while they are older than `out`. The buffer takes
// the last 156 blocks, so it is used up and aligned as after q regenerations.
void sfmt_fill(std::uint32_t* s, std::uint32_t* out, int q) {
  constexpr int kLag = kSfmtBlocks - kSfmtPos;  // 34
  const int blocks = kSfmtBlocks * q;
  SfmtPair p{ld(s + 4 * (kSfmtBlocks - 2)), ld(s + 4 * (kSfmtBlocks - 1))};
  int k = 0;
  for (; k < kLag; k += 2) p.next(s + 4 * k, s + 4 * (k + kSfmtPos), out + 4 * k);
  for (; k < kSfmtBlocks; k += 2) p.next(s + 4 * k, out + 4 * (k - kLag), out + 4 * k);
  for (; k < blocks; k += 2) {
    p.next(out + 4 * (k - kSfmtBlocks), out + 4 * (k - kLag), out + 4 * k);
  }
  std::memcpy(s, out + 4 * (blocks - kSfmtBlocks), sizeof(std::uint32_t) * kSfmtWords);
}

struct SfmtStep {
  static constexpr int kUnits = kSfmtBlocks;
  static constexpr int kUnitWords = 4;
  void step(std::uint32_t* w, int pos) const {
    auto at = [&](int k) {
      return w + 4 * (pos + k >= kSfmtBlocks ? pos + k - kSfmtBlocks : pos + k);
    };
    st(w + 4 * pos, sfmt_new(ld(w + 4 * pos), ld(at(kSfmtPos)), ld(at(kSfmtBlocks - 2)),
                             ld(at(kSfmtBlocks - 1)), sfmt_mask()));
  }
};

// Takes the block at idx (regenerating when the buffer is used up) and keeps its words from
// `from` on in the tail.
void sfmt_keep_tail(SfmtState& s, int from) {
  if (s.idx >= kSfmtWords) {
    sfmt_regenerate(s.sfmt);
    s.idx = 0;
  }
  for (int j = from; j < 4; ++j) s.tail[j - from] = s.sfmt[s.idx + j];
  s.tail_pos = 0;
  s.tail_end = static_cast<std::uint32_t>(4 - from);
  s.idx += 4;
}

void sfmt_words(SfmtState& s, int m, std::uint32_t* out) {
  while (m > 0 && s.tail_pos < s.tail_end) {
    *out++ = s.tail[s.tail_pos++];
    --m;
  }
  while (m >= 4) {
    if (s.idx >= kSfmtWords && m >= kSfmtWords) {  // whole buffers: no copy through the state
      const int q = m / kSfmtWords;
      sfmt_fill(s.sfmt, out, q);
      out += q * kSfmtWords;
      m -= q * kSfmtWords;
      continue;
    }
    if (s.idx >= kSfmtWords) {
      sfmt_regenerate(s.sfmt);
      s.idx = 0;
    }
    const int take = std::min(m & ~3, kSfmtWords - static_cast<int>(s.idx));
    std::memcpy(out, s.sfmt + s.idx, sizeof(std::uint32_t) * static_cast<std::size_t>(take));
    s.idx += static_cast<std::uint32_t>(take);
    out += take;
    m -= take;
  }
  if (m > 0) {  // part of one more block: the rest of it waits in the tail
    if (s.idx >= kSfmtWords) {
      sfmt_regenerate(s.sfmt);
      s.idx = 0;
    }
    for (int j = 0; j < m; ++j) out[j] = s.sfmt[s.idx + j];
    sfmt_keep_tail(s, m);
  }
}

// Skip by n words: the tail first, then the rest of the buffer, then whole blocks by the jump
// (plain Horner for short counts, windowed above), then a part of a block into the tail.
constexpr std::uint64_t kSfmtPlainLimit = 19967;

int sfmt_skip(SfmtState& s, std::uint64_t n) {
  const std::uint64_t from_tail = std::min<std::uint64_t>(n, s.tail_end - s.tail_pos);
  std::uint64_t rest = n - from_tail;
  std::uint64_t blocks = 0;
  std::uint32_t idx = s.idx;
  if (rest + idx > kSfmtWords) {
    rest -= kSfmtWords - idx;
    idx = kSfmtWords;
    blocks = rest / 4;
    rest %= 4;
  } else {
    idx += static_cast<std::uint32_t>(rest & ~std::uint64_t{3});
    rest &= 3;
  }
  if (blocks > 0) {
    const Modulus f{kSfmt19937Poly, kSfmt19937Terms};
    const int status = jump(SfmtStep{}, s.sfmt, blocks, f, n > kSfmtPlainLimit);
    if (status != RUD_STATUS_OK) return status;
  }
  s.tail_pos += static_cast<std::uint32_t>(from_tail);
  s.idx = idx;
  if (rest > 0) {
    sfmt_keep_tail(s, static_cast<int>(rest));
  }
  return RUD_STATUS_OK;
}

}  // namespace

// A loaded state: the buffer position inside the buffer.
bool mt19937_state_ok(const void* state) {
  return static_cast<const MtState*>(state)->mti <= static_cast<std::uint32_t>(kN);
}

int mt19937_init(int op, RudStreamPtr stream, int n, const void* params) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  MtState& st = *rud::state<MtState>(stream);
  switch (op) {
    case RUD_INIT_SEED:
      if (n >= 1 && params == nullptr) return RUD_ERROR_NULL_PTR;
      array_seed<kN>(st.mt, n, params);
      st.mti = kN;
      return RUD_STATUS_OK;
    case RUD_INIT_LEAPFROG:
      return RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED;
    case RUD_INIT_SKIPAHEAD:
      if (params == nullptr) return RUD_ERROR_NULL_PTR;
      return mt_skip(st, read_u64(params));
    case RUD_INIT_SKIPAHEADEX:
      return RUD_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default:
      return RUD_ERROR_BAD_OPERATION;
  }
}

int mt19937_i(RudStreamPtr stream, int n, unsigned int r[]) {
  if (const int s = block_args(stream, n, r)) return s;
  mt_words(*rud::state<MtState>(stream), n, r);
  return RUD_STATUS_OK;
}

int mt19937_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  if (const int s = block_args(stream, n, r)) return s;
  MtState& st = *rud::state<MtState>(stream);
  const double scale = (b - a) * 0x1p-32;
  uniforms<std::uint32_t>(
      n, r, [&](int m, std::uint32_t* w) { mt_words(st, m, w); },
      [=](std::uint32_t y) { return a + static_cast<double>(y) * scale; });
  return RUD_STATUS_OK;
}

int mt19937_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  if (const int s = block_args(stream, n, r)) return s;
  MtState& st = *rud::state<MtState>(stream);
  const double da = a, scale = (static_cast<double>(b) - da) * 0x1p-32;
  uniforms<std::uint32_t>(
      n, r, [&](int m, std::uint32_t* w) { mt_words(st, m, w); },
      [=](std::uint32_t y) { return static_cast<float>(da + static_cast<double>(y) * scale); });
  return RUD_STATUS_OK;
}

}  // namespace tvx::TVX_VNS::gen

namespace tvx::TVX_VNS::gen {

// The SFMT words: array seeding (the one word 1 for an empty key), then period certification.
// A loaded state: the position at a block edge inside the buffer, and the kept words of the last
// block within their three.
bool sfmt_state_ok(const void* state) {
  const auto* st = static_cast<const SfmtState*>(state);
  return st->idx <= static_cast<std::uint32_t>(kSfmtWords) && st->idx % 4 == 0 &&
         st->tail_pos <= st->tail_end && st->tail_end <= 3;
}

int sfmt_init(int op, RudStreamPtr stream, int n, const void* params) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  SfmtState& st = *rud::state<SfmtState>(stream);
  switch (op) {
    case RUD_INIT_SEED: {
      if (n >= 1 && params == nullptr) return RUD_ERROR_NULL_PTR;
      static const std::uint32_t kOne = 1;
      const auto* key = static_cast<const unsigned char*>(n >= 1 ? params : &kOne);
      const int len = n >= 1 ? n : 1;
      constexpr int kMid = 306, kLag = 11, N = kSfmtWords;
      std::uint32_t* s = st.sfmt;
      auto f1 = [](std::uint32_t x) { return (x ^ (x >> 27)) * 1664525u; };
      auto f2 = [](std::uint32_t x) { return (x ^ (x >> 27)) * 1566083941u; };
      std::memset(s, 0x8B, sizeof st.sfmt);
      std::uint32_t r = f1(s[0] ^ s[kMid] ^ s[N - 1]);
      s[kMid] += r;
      r += static_cast<std::uint32_t>(len);
      s[kMid + kLag] += r;
      s[0] = r;
      int i = 1;
      const int count = std::max(len, N - 1);
      for (int j = 0; j < count; ++j) {
        r = f1(s[i] ^ s[(i + kMid) % N] ^ s[(i + N - 1) % N]);
        s[(i + kMid) % N] += r;
        r += (j < len ? read_u32(key + 4 * j) : 0u) + static_cast<std::uint32_t>(i);
        s[(i + kMid + kLag) % N] += r;
        s[i] = r;
        i = (i + 1) % N;
      }
      for (int j = 0; j < N; ++j) {
        r = f2(s[i] + s[(i + kMid) % N] + s[(i + N - 1) % N]);
        s[(i + kMid) % N] ^= r;
        r -= static_cast<std::uint32_t>(i);
        s[(i + kMid + kLag) % N] ^= r;
        s[i] = r;
        i = (i + 1) % N;
      }
      st.idx = kSfmtWords;
      st.tail_pos = st.tail_end = 0;
      st.tail[0] = st.tail[1] = st.tail[2] = 0;
      // Period certification against the parity vector (1, 0, 0, 0x13c9e684).
      if ((__builtin_popcount((s[0] & 1u) ^ (s[3] & 0x13C9E684u)) & 1) == 0) s[0] ^= 1u;
      return RUD_STATUS_OK;
    }
    case RUD_INIT_LEAPFROG:
      return RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED;
    case RUD_INIT_SKIPAHEAD:
      if (params == nullptr) return RUD_ERROR_NULL_PTR;
      return sfmt_skip(st, read_u64(params));
    case RUD_INIT_SKIPAHEADEX:
      return RUD_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default:
      return RUD_ERROR_BAD_OPERATION;
  }
}

int sfmt_i(RudStreamPtr stream, int n, unsigned int r[]) {
  if (const int s = block_args(stream, n, r)) return s;
  sfmt_words(*rud::state<SfmtState>(stream), n, r);
  return RUD_STATUS_OK;
}

// The words are read as signed: m + y s, so word 0 gives the middle of the interval and
// 0x80000000 its lower end.
int sfmt_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  if (const int s = block_args(stream, n, r)) return s;
  SfmtState& st = *rud::state<SfmtState>(stream);
  const double m = (a + b) * 0.5, scale = (b - a) * 0x1p-32;
  uniforms<std::uint32_t>(
      n, r, [&](int k, std::uint32_t* w) { sfmt_words(st, k, w); },
      [=](std::uint32_t y) {
        return m + static_cast<double>(static_cast<std::int32_t>(y)) * scale;
      });
  return RUD_STATUS_OK;
}

int sfmt_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  if (const int s = block_args(stream, n, r)) return s;
  SfmtState& st = *rud::state<SfmtState>(stream);
  const float m = (a + b) * 0.5f, scale = (b - a) * 0x1p-32f;
  uniforms<std::uint32_t>(
      n, r, [&](int k, std::uint32_t* w) { sfmt_words(st, k, w); },
      [=](std::uint32_t y) {
        return m + static_cast<float>(static_cast<std::int32_t>(y)) * scale;
      });
  return RUD_STATUS_OK;
}

}  // namespace tvx::TVX_VNS::gen

// ---- MT2203 set ---------------------------------------------------------------------------------
// 69 words, the upper 27 bits of the oldest word joined to the lower 5 of the next; the member's
// twist word and tempering masks come from its row of the parameter table.
namespace tvx::TVX_VNS::gen {
namespace {

constexpr int kSetN = 69;
constexpr int kSetM = 34;
constexpr std::uint32_t kSetUpper = 0xFFFFFFE0u;

struct SetState {
  std::uint32_t mt[kSetN];
  std::uint32_t mti;
  std::uint32_t aj, bj, cj;
};
static_assert(sizeof(SetState) + rud::kHeaderBytes <= 312, "catalogue size of the MT2203 record");

void set_words(SetState& st, int m, std::uint32_t* out) {
  const std::uint32_t bj = st.bj, cj = st.cj;
  while (m > 0) {
    if (st.mti >= kSetN) {
      regenerate<kSetN, kSetM, kSetUpper>(st.mt, st.aj);
      st.mti = 0;
    }
    const int take = std::min(m, kSetN - static_cast<int>(st.mti));
    const std::uint32_t* src = st.mt + st.mti;
    int j = 0;
    for (; j + kW <= take; j += kW) {
      VU y = vload(src + j);
      y ^= y >> 12;
      y ^= (y << 7) & bj;
      y ^= (y << 15) & cj;
      vstore(out + j, y ^ (y >> 18));
    }
    for (; j < take; ++j) {
      std::uint32_t y = src[j];
      y ^= y >> 12;
      y ^= (y << 7) & bj;
      y ^= (y << 15) & cj;
      out[j] = y ^ (y >> 18);
    }
    st.mti += static_cast<std::uint32_t>(take);
    out += take;
    m -= take;
  }
}

}  // namespace

// A loaded state: the buffer position inside the buffer.
bool mt2203_state_ok(const void* state) {
  return static_cast<const SetState*>(state)->mti <= static_cast<std::uint32_t>(kSetN);
}

int mt2203_init(int op, RudStreamPtr stream, int n, const void* params) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  SetState& st = *rud::state<SetState>(stream);
  switch (op) {
    case RUD_INIT_SEED: {
      if (n >= 1 && params == nullptr) return RUD_ERROR_NULL_PTR;
      // A member the parameter search has not reached yet has no row.
      const std::uint32_t* row = rud::mt2203_row(rud::brng_member(rud::header(stream)->brng));
      if (row == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
      array_seed<kSetN>(st.mt, n, params);
      st.mti = kSetN;
      st.aj = row[0];
      st.bj = row[1];
      st.cj = row[2];
      return RUD_STATUS_OK;
    }
    case RUD_INIT_LEAPFROG:
      return RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED;
    case RUD_INIT_SKIPAHEAD:  // the members stand in for splitting one sequence
      return RUD_RNG_ERROR_SKIPAHEAD_UNSUPPORTED;
    case RUD_INIT_SKIPAHEADEX:
      return RUD_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default:
      return RUD_ERROR_BAD_OPERATION;
  }
}

int mt2203_i(RudStreamPtr stream, int n, unsigned int r[]) {
  if (const int s = block_args(stream, n, r)) return s;
  set_words(*rud::state<SetState>(stream), n, r);
  return RUD_STATUS_OK;
}

int mt2203_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  if (const int s = block_args(stream, n, r)) return s;
  SetState& st = *rud::state<SetState>(stream);
  const double scale = (b - a) * 0x1p-32;
  uniforms<std::uint32_t>(
      n, r, [&](int m, std::uint32_t* w) { set_words(st, m, w); },
      [=](std::uint32_t y) { return a + static_cast<double>(y) * scale; });
  return RUD_STATUS_OK;
}

int mt2203_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  if (const int s = block_args(stream, n, r)) return s;
  SetState& st = *rud::state<SetState>(stream);
  const double da = a, scale = (static_cast<double>(b) - da) * 0x1p-32;
  uniforms<std::uint32_t>(
      n, r, [&](int m, std::uint32_t* w) { set_words(st, m, w); },
      [=](std::uint32_t y) { return static_cast<float>(da + static_cast<double>(y) * scale); });
  return RUD_STATUS_OK;
}

}  // namespace tvx::TVX_VNS::gen
