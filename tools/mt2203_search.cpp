// Parameter search for the members of the MT2203 set: Mersenne twisters with 69 words of 32 bits,
// middle word 34 and 5 lower bits, of period 2^2203 - 1.
//
// For member m the twist word is a = 0x80000000 | (15 random bits << 16) | m: the member number
// sits in the low 16 bits, so no two members share a twist word, and as the characteristic
// polynomial is affine in the twist word (below), no two share a characteristic polynomial.
// The random bits come from std::mt19937 seeded with 0x22030000 + m, so each member is found
// the same way whatever chunk it is searched in.
//
// 1. Characteristic polynomial. With u = t^69 + t^34 and v = t^68 + t^33 it is
//      u^27 v^5 + sum_{i<5} a_i u^27 v^(4-i) + sum_{5<=i<32} a_i u^(31-i),
//    a_i being bit i of the twist word. The tool checks this form against
//    Berlekamp-Massey on generator output at start-up and again for every member it finds.
// 2. Sieve: the residues of the 33 terms modulo every irreducible polynomial of degree up to 16
//    are computed once; a candidate whose residue sum is zero for one of them is dropped.
// 3. Primitivity: as 2203 is prime, a polynomial f of degree 2203 is irreducible exactly when
//    x^(2^2203) = x mod f (a root-free f cannot split into factors of degree 1 and 2203 only); as
//    2^2203 - 1 is prime, irreducible is primitive. The 2203 squarings use carry-less
//    multiplication, folding the high half back with the 35 residues x^(2240 + 64 j) mod f.
// 4. Tempering: the masks b (bits 31..7) and c (bits 31..15) are chosen top bit first. At level v
//    the mask bits that first reach the top v output bits are tried in all combinations on each
//    of the four best partial masks so far (by the sum of floor(2203 / v) - k(v), k(v) being the
//    equidistribution dimension of the top v bits; ties in an order drawn from the member's
//    random generator). k(v) is found by lattice reduction over GF(2)[z]
//    with the lattice vectors held as generator states: a vector's degree is minus one minus the
//    index of its first non-zero v-bit output, and k(v) is the smallest such index plus one over
//    a reduced basis (whose indices plus one sum to 2203, which is checked).
//
//   mt2203_search search FIRST COUNT [THREADS]   rows of members FIRST..FIRST+COUNT-1, one line
//                                                each: member aj bj cj tries seconds defect
//   mt2203_search table DATA                     the parameter table (.inc) from the data lines
//   mt2203_search certify TABLE [FIRST COUNT]    full period and distinct polynomials of the rows
//   mt2203_search check DATA FIRST COUNT         searches again and compares with the data lines
//   mt2203_search quality                        k(v) defects of the published rows
//   mt2203_search dims A B C                     k(1) .. k(32) of one row (hex words)
//
// "defect" is the sum over v = 1..32 of floor(2203 / v) - k(v).
#include <immintrin.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kN = 69, kM = 34, kDeg = 2203;
constexpr std::uint32_t kUpper = 0xFFFFFFE0u, kLower = 0x1Fu;
constexpr int kWords = 35;  // 64-bit words of a polynomial of degree below 2240
constexpr int kMembers = 6024;

struct Row {
  std::uint32_t a, b, c;
};
// Published rows of the set: members 0, 1, 2 and the last one.
constexpr Row kPublished[4] = {{0xAF81055Fu, 0xDD7EEF80u, 0xEFD78000u},
                               {0x832604E1u, 0x66AD7F80u, 0xEBD58000u},
                               {0x92F70739u, 0x656D7780u, 0xEFC50000u},
                               {0xE8761D4Bu, 0x72967680u, 0xEFEB0000u}};
constexpr int kPublishedMember[4] = {0, 1, 2, 6023};

using Poly = std::array<std::uint64_t, kWords>;

// ---- GF(2)[t] polynomials
// ------------------------------------------------------------------------
bool bit(const Poly& p, int i) {
  return (p[i >> 6] >> (i & 63)) & 1;
}

Poly shifted(const Poly& p, int s) {
  Poly r{};
  const int w = s >> 6, b = s & 63;
  for (int i = kWords - 1; i >= w; --i) {
    std::uint64_t x = p[i - w] << b;
    if (b != 0 && i - w - 1 >= 0) x |= p[i - w - 1] >> (64 - b);
    r[i] = x;
  }
  return r;
}

Poly& operator^=(Poly& a, const Poly& b) {
  for (int i = 0; i < kWords; ++i) a[i] ^= b[i];
  return a;
}

Poly one() {
  Poly r{};
  r[0] = 1;
  return r;
}

// p * (t^s1 + t^s2)
Poly times_binomial(const Poly& p, int s1, int s2) {
  Poly r = shifted(p, s1);
  r ^= shifted(p, s2);
  return r;
}

// The 33 terms of the characteristic polynomial: terms[32] is the part free of the twist word,
// terms[i] the part that bit i of the twist word switches on.
std::array<Poly, 33> characteristic_terms() {
  std::array<Poly, 33> terms{};
  std::vector<Poly> upow(28), vpow(6);
  upow[0] = one();
  for (int k = 1; k <= 27; ++k) upow[k] = times_binomial(upow[k - 1], 69, 34);
  vpow[0] = one();
  for (int k = 1; k <= 5; ++k) vpow[k] = times_binomial(vpow[k - 1], 68, 33);
  auto mul = [](Poly x, int vexp) {  // x * v^vexp
    for (int k = 0; k < vexp; ++k) x = times_binomial(x, 68, 33);
    return x;
  };
  terms[32] = mul(upow[27], 5);
  for (int i = 0; i < 5; ++i) terms[i] = mul(upow[27], 4 - i);
  for (int i = 5; i < 32; ++i) terms[i] = upow[31 - i];
  return terms;
}

Poly characteristic(const std::array<Poly, 33>& terms, std::uint32_t a) {
  Poly f = terms[32];
  for (int i = 0; i < 32; ++i)
    if ((a >> i) & 1) f ^= terms[i];
  return f;
}

// ---- the generator
// ---------------------------------------------------------------------------------
std::uint32_t temper(std::uint32_t y, std::uint32_t b, std::uint32_t c) {
  y ^= y >> 12;
  y ^= (y << 7) & b;
  y ^= (y << 15) & c;
  return y ^ (y >> 18);
}

std::uint32_t twist(std::uint32_t oldest, std::uint32_t next, std::uint32_t mid, std::uint32_t a) {
  const std::uint32_t y = (oldest & kUpper) | (next & kLower);
  return mid ^ (y >> 1) ^ ((y & 1) ? a : 0u);
}

// Lowest bit of the first `count` raw words from a fixed non-zero start.
std::vector<std::uint8_t> output_bits(std::uint32_t a, int count) {
  std::vector<std::uint32_t> x(kN + count);
  std::uint32_t s = 0x5EED2203u;
  for (int i = 0; i < kN; ++i) x[i] = s = 1812433253u * (s ^ (s >> 30)) + static_cast<unsigned>(i);
  std::vector<std::uint8_t> bits(count);
  for (int k = 0; k < count; ++k) {
    x[k + kN] = twist(x[k], x[k + 1], x[k + kM], a);
    bits[k] = x[k + kN] & 1;
  }
  return bits;
}

// Characteristic polynomial of the generator with twist word a by Berlekamp-Massey: the
// reciprocal of the shortest connection polynomial of the output, or an all-zero value when the
// linear complexity is not 2203.
Poly berlekamp_massey(std::uint32_t a) {
  const int n = 2 * kDeg + 64;
  const std::vector<std::uint8_t> s = output_bits(a, n);
  const int words = (n + 64) / 64;
  // rev: the sequence backwards (bit n - 1 - k is s[k]), so that the discrepancy at step i is the
  // parity of c AND rev shifted down by n - 1 - i, taken a word at a time.
  std::vector<std::uint64_t> rev(words + 1, 0);
  for (int k = 0; k < n; ++k)
    if (s[k]) rev[(n - 1 - k) >> 6] |= std::uint64_t{1} << ((n - 1 - k) & 63);
  std::vector<std::uint64_t> c(words, 0), b(words, 0), t(words);
  c[0] = b[0] = 1;
  int length = 0, m = 1;
  for (int i = 0; i < n; ++i) {
    const int off = n - 1 - i, q = off >> 6, r = off & 63;
    std::uint64_t acc = 0;
    for (int w = 0; w <= (length >> 6) && q + w < words; ++w) {
      std::uint64_t x = rev[q + w] >> r;
      if (r != 0) x |= rev[q + w + 1] << (64 - r);
      acc ^= c[w] & x;
    }
    const int d = __builtin_parityll(acc);
    if (d == 0) {
      ++m;
      continue;
    }
    t = c;
    // c ^= b << m
    const int w = m >> 6, sh = m & 63;
    for (int k = words - 1; k >= w; --k) {
      std::uint64_t x = b[k - w] << sh;
      if (sh != 0 && k - w - 1 >= 0) x |= b[k - w - 1] >> (64 - sh);
      c[k] ^= x;
    }
    if (2 * length <= i) {
      length = i + 1 - length;
      b = t;
      m = 1;
    } else {
      ++m;
    }
  }
  Poly f{};
  if (length != kDeg) return f;
  for (int j = 0; j <= length; ++j)
    if ((c[j >> 6] >> (j & 63)) & 1)
      f[(length - j) >> 6] |= std::uint64_t{1} << ((length - j) & 63);
  return f;
}

// ---- sieve by the small irreducible polynomials
// --------------------------------------------------
constexpr int kSieveDegree = 16;

struct Sieve {
  std::vector<std::uint32_t> q;    // irreducible polynomials, by degree
  std::vector<int> first;          // first[d]: index of the first one of degree d
  std::vector<std::uint16_t> res;  // 33 rows of residues, row length `stride`
  int stride = 0;

  explicit Sieve(const std::array<Poly, 33>& terms) {
    first.assign(kSieveDegree + 2, 0);
    std::vector<std::uint32_t> small;
    for (int d = 1; d <= kSieveDegree; ++d) {
      first[d] = static_cast<int>(q.size());
      for (std::uint32_t p = 1u << d; p < (2u << d); ++p) {
        bool irreducible = true;
        for (std::uint32_t g : q) {
          const int dg = 31 - __builtin_clz(g);
          if (2 * dg > d) break;
          std::uint32_t r = p;
          for (int k = d; k >= dg; --k)
            if ((r >> k) & 1) r ^= g << (k - dg);
          if (r == 0) {
            irreducible = false;
            break;
          }
        }
        if (irreducible) q.push_back(p);
      }
    }
    first[kSieveDegree + 1] = static_cast<int>(q.size());
    stride = (static_cast<int>(q.size()) + 31) / 32 * 32;
    res.assign(33 * static_cast<std::size_t>(stride), 0);
    std::vector<std::uint32_t> r(q.size());
    for (int t = 0; t < 33; ++t) {
      std::fill(r.begin(), r.end(), 0u);
      for (int d = 1; d <= kSieveDegree; ++d) {
        const int lo = first[d], hi = first[d + 1];
        std::uint32_t* rr = r.data();
        const std::uint32_t* qq = q.data();
        for (int e = kDeg; e >= 0; --e) {
          const std::uint32_t in = bit(terms[t], e) ? 1u : 0u;
          for (int k = lo; k < hi; ++k) {
            std::uint32_t x = (rr[k] << 1) | in;
            x ^= qq[k] & (0u - ((x >> d) & 1u));
            rr[k] = x;
          }
        }
      }
      for (std::size_t k = 0; k < q.size(); ++k)
        res[t * static_cast<std::size_t>(stride) + k] = static_cast<std::uint16_t>(r[k]);
    }
  }

  const std::uint16_t* row(int t) const {
    return res.data() + t * static_cast<std::size_t>(stride);
  }
};

// ---- primitivity
// -----------------------------------------------------------------------------------
inline void clmul(std::uint64_t x, std::uint64_t y, std::uint64_t& lo, std::uint64_t& hi) {
#if !defined(__PCLMUL__) || !defined(__SSE4_1__)
  lo = hi = 0;  // shift and add, for builds without the carry-less multiply instruction
  for (int i = 0; i < 64; ++i)
    if ((y >> i) & 1) {
      lo ^= x << i;
      if (i != 0) hi ^= x >> (64 - i);
    }
#else
  const __m128i p = _mm_clmulepi64_si128(_mm_cvtsi64_si128(static_cast<long long>(x)),
                                         _mm_cvtsi64_si128(static_cast<long long>(y)), 0);
  lo = static_cast<std::uint64_t>(_mm_cvtsi128_si64(p));
  hi = static_cast<std::uint64_t>(_mm_extract_epi64(p, 1));
#endif
}

// p * x mod f, for p of degree below 2203.
void times_x_mod(Poly& p, const Poly& f) {
  std::uint64_t carry = 0;
  for (int i = 0; i < kWords; ++i) {
    const std::uint64_t w = p[i];
    p[i] = (w << 1) | carry;
    carry = w >> 63;
  }
  if (bit(p, kDeg)) p ^= f;
}

// x^(2^2203) == x mod f, for f of degree 2203 with constant term 1. Residues are kept below degree
// 2240 (35 words) and not fully reduced: after each squaring the 35 high words h_j fold back as
// sum h_j (x^(2240 + 64 j) mod f), and the few bits that this pushes past word 34 fold once more.
bool primitive(const Poly& f) {
  if ((f[0] & 1) == 0) return false;
  alignas(64) static thread_local std::uint64_t fold[kWords][40];
  Poly r = one();
  for (int s = 0; s < 64 * kWords; ++s) times_x_mod(r, f);
  for (int j = 0; j < kWords; ++j) {
    std::copy(r.begin(), r.end(), fold[j]);
    std::fill(fold[j] + kWords, fold[j] + 40, 0);
    for (int s = 0; s < 64; ++s) times_x_mod(r, f);
  }
  alignas(64) std::uint64_t g[40] = {};
  g[0] = 2;  // x
  alignas(64) std::uint64_t t[2 * kWords], e[40], o[40];
  for (int round = 0; round < kDeg; ++round) {
    for (int i = 0; i < kWords; ++i) clmul(g[i], g[i], t[2 * i], t[2 * i + 1]);
#if defined(__AVX512F__) && defined(__VPCLMULQDQ__)
    // Products with even words of a fold row land on word pairs (2k, 2k + 1), those with odd
    // words one word further on: two sets of accumulators, joined at the end.
    __m512i even[5], odd[5];
    for (int k = 0; k < 5; ++k) even[k] = odd[k] = _mm512_setzero_si512();
    for (int j = 0; j < kWords; ++j) {
      const __m512i h = _mm512_set1_epi64(static_cast<long long>(t[kWords + j]));
      for (int k = 0; k < 5; ++k) {
        const __m512i row = _mm512_load_si512(fold[j] + 8 * k);
        even[k] = _mm512_xor_si512(even[k], _mm512_clmulepi64_epi128(h, row, 0x00));
        odd[k] = _mm512_xor_si512(odd[k], _mm512_clmulepi64_epi128(h, row, 0x10));
      }
    }
    for (int k = 0; k < 5; ++k) {
      _mm512_store_si512(e + 8 * k, even[k]);
      _mm512_store_si512(o + 8 * k, odd[k]);
    }
#else
    std::fill(e, e + 40, 0);
    std::fill(o, o + 40, 0);
    for (int j = 0; j < kWords; ++j)
      for (int k = 0; k < kWords; ++k) {
        std::uint64_t lo, hi;
        clmul(t[kWords + j], fold[j][k], lo, hi);
        e[k] ^= lo;
        e[k + 1] ^= hi;
      }
#endif
    g[0] = t[0] ^ e[0];
    for (int w = 1; w <= kWords; ++w) g[w] = (w < kWords ? t[w] : 0) ^ e[w] ^ o[w - 1];
    // Word 35 holds fewer than 27 bits: its product with x^2240 mod f stays below degree 2230.
    const std::uint64_t top = g[kWords];
    g[kWords] = 0;
    std::uint64_t carry = 0;
    for (int k = 0; k < kWords; ++k) {
      std::uint64_t lo, hi;
      clmul(top, fold[0][k], lo, hi);
      g[k] ^= lo ^ carry;
      carry = hi;
    }
    g[kWords] ^= carry;
  }
  // Full reduction of the bits from 2203 up, then the comparison with x.
  Poly p{};
  std::copy(g, g + kWords, p.begin());
  for (int e2 = 64 * kWords - 1; e2 >= kDeg; --e2)
    if (bit(p, e2)) p ^= shifted(f, e2 - kDeg);
  return p == shifted(one(), 1);
}

// ---- equidistribution by lattice reduction on generator states --------------------------------
constexpr int kBuf = 1024;

struct LatticeVector {
  std::uint32_t w[kBuf];
  int pos;  // oldest word of the window w[pos .. pos + 68]
  int n;    // index of the first non-zero output
};

struct Lattice {
  std::uint32_t a = 0, b = 0, c = 0;
  std::vector<LatticeVector> pool = std::vector<LatticeVector>(66);

  std::uint32_t lead(const LatticeVector& x, int v) const {
    return temper(x.w[x.pos + kN - 1], b, c) >> (32 - v);
  }
  void step(LatticeVector& x) const {
    if (x.pos + kN >= kBuf) {
      std::memmove(x.w, x.w + x.pos, kN * sizeof(std::uint32_t));
      x.pos = 0;
    }
    const std::uint32_t* s = x.w + x.pos;
    x.w[x.pos + kN] = twist(s[0], s[1], s[kM], a);
    ++x.pos;
    ++x.n;
  }
  static bool zero(const LatticeVector& x) {
    if ((x.w[x.pos] & kUpper) != 0) return false;
    for (int k = 1; k < kN; ++k)
      if (x.w[x.pos + k] != 0) return false;
    return true;
  }
  static void add(LatticeVector& x, const LatticeVector& y) {
    std::uint32_t* d = x.w + x.pos;
    const std::uint32_t* s = y.w + y.pos;
    for (int k = 0; k < kN; ++k) d[k] ^= s[k];
  }

  // k(v) for the top v bits of the tempered output.
  int dimension(int v) {
    // Words whose tempered value has one of the top v bits: the generators are the states with
    // only such a newest word, and those states stepped once.
    std::uint32_t unit[32];
    untemper_units(unit, v);
    int pivot[32];
    std::fill(pivot, pivot + 32, -1);
    for (int g = 0; g < 2 * v; ++g) {
      LatticeVector& x = pool[g];
      std::memset(x.w, 0, sizeof x.w);
      x.pos = 0;
      x.n = 0;
      x.w[kN - 1] = unit[g % v];
      if (g >= v) {
        step(x);
        x.n = 0;
      }
      insert(g, pivot, v);
    }
    int k = kDeg, total = 0;
    for (int j = 0; j < v; ++j) {
      if (pivot[j] < 0) return -1;
      k = std::min(k, pool[pivot[j]].n + 1);
      total += pool[pivot[j]].n + 1;
    }
    if (total != kDeg) {
      std::fprintf(stderr, "lattice: degrees sum to %d for v = %d\n", total, v);
      std::exit(3);
    }
    return k;
  }

  void insert(int u, int* pivot, int v) {
    for (;;) {
      LatticeVector& x = pool[u];
      std::uint32_t l = lead(x, v);
      if (l == 0 && zero(x)) return;  // stepping never turns a non-zero state into zero
      while (l == 0) {
        step(x);
        if (x.n > 2 * kDeg) {
          std::fprintf(stderr, "lattice: vector never leaves zero output\n");
          std::exit(3);
        }
        l = lead(x, v);
      }
      for (;;) {
        const int top = 31 - __builtin_clz(l);
        const int bitpos = v - 1 - top;  // 0 = top output bit
        const int r = pivot[bitpos];
        if (r < 0) {
          pivot[bitpos] = u;
          return;
        }
        if (pool[u].n <= pool[r].n) {
          add(pool[u], pool[r]);
        } else {
          add(pool[r], pool[u]);
          pivot[bitpos] = u;
          u = r;
        }
        l = lead(pool[u], v);
        if (l == 0) break;
      }
    }
  }

  // unit[j]: the word whose tempered value has only the j-th bit from the top set. Each step of
  // the tempering is undone by iterating its fixed point until every bit is settled.
  void untemper_units(std::uint32_t* unit, int v) const {
    for (int j = 0; j < v; ++j) {
      const std::uint32_t z = 0x80000000u >> j;
      std::uint32_t y = z ^ (z >> 18), x = y;
      for (int k = 0; k < 3; ++k) x = y ^ ((x << 15) & c);
      y = x;
      for (int k = 0; k < 5; ++k) x = y ^ ((x << 7) & b);
      y = x;
      for (int k = 0; k < 3; ++k) x = y ^ (x >> 12);
      if (temper(x, b, c) != z) {
        std::fprintf(stderr, "untempering failed\n");
        std::exit(3);
      }
      unit[j] = x;
    }
  }

  int defect() {
    int d = 0;
    for (int v = 1; v <= 32; ++v) d += kDeg / v - dimension(v);
    return d;
  }
};

// Mask bits that first reach output bit `level` (0 = top): c at 31 - level, b at 31 - level and at
// 16 - level, when they matter and were not set before. A beam of the kBeam best partial mask
// pairs (smallest sum of floor(2203 / v) - k(v) so far, ties in the member's random order) is
// carried from level to level.
constexpr int kBeam = 4;

void search_tempering(Lattice& lat, std::mt19937& rng) {
  struct Partial {
    std::uint32_t b, c;
    int loss;
  };
  std::vector<Partial> beam{{0u, 0u, 0}};
  std::uint32_t decided_b = 0, decided_c = 0;
  for (int level = 0; level < 32; ++level) {
    const int p = 31 - level;
    std::vector<std::pair<int, std::uint32_t>> bits;  // (0: b, 1: c), mask
    if (p >= 15 && !(decided_c >> p & 1)) bits.push_back({1, 1u << p});
    if (p >= 7 && !(decided_b >> p & 1)) bits.push_back({0, 1u << p});
    if (p - 15 >= 7 && !(decided_b >> (p - 15) & 1)) bits.push_back({0, 1u << (p - 15)});
    if (bits.empty()) continue;
    std::vector<Partial> next;
    for (const Partial& part : beam)
      for (unsigned combo = 0; combo < (1u << bits.size()); ++combo) {
        Partial q = part;
        for (std::size_t k = 0; k < bits.size(); ++k)
          if ((combo >> k) & 1) (bits[k].first ? q.c : q.b) |= bits[k].second;
        lat.b = q.b;
        lat.c = q.c;
        q.loss += kDeg / (level + 1) - lat.dimension(level + 1);
        next.push_back(q);
      }
    for (std::size_t i = next.size(); i > 1; --i) std::swap(next[i - 1], next[rng() % i]);
    std::stable_sort(next.begin(), next.end(),
                     [](const Partial& x, const Partial& y) { return x.loss < y.loss; });
    if (next.size() > kBeam) next.resize(kBeam);
    beam = next;
    for (const auto& [which, mask] : bits) (which ? decided_c : decided_b) |= mask;
  }
  lat.b = beam[0].b;
  lat.c = beam[0].c;
}

// ---- one member
// --------------------------------------------------------------------------------------
struct Found {
  Row row{};
  long tries = 0;
  double seconds = 0;
  int defect = 0;
};

struct Searcher {
  std::array<Poly, 33> terms = characteristic_terms();
  Sieve sieve{terms};

  Found member(int m) const {
    const auto start = std::chrono::steady_clock::now();
    Found out;
    std::mt19937 rng(0x22030000u + static_cast<std::uint32_t>(m));
    const int stride = sieve.stride;
    std::vector<std::uint16_t> fixed(stride), acc(stride);
    const std::uint32_t base_word = 0x80000000u | static_cast<std::uint32_t>(m);
    std::memcpy(fixed.data(), sieve.row(32), stride * sizeof(std::uint16_t));
    for (int i = 0; i < 32; ++i)
      if ((base_word >> i) & 1) {
        const std::uint16_t* r = sieve.row(i);
        for (int k = 0; k < stride; ++k) fixed[k] ^= r[k];
      }
    const int count = static_cast<int>(sieve.q.size());
    std::uint32_t a = 0;
    for (;;) {
      const std::uint32_t random_bits = (rng() >> 17) << 16;  // bits 16..30
      a = base_word | random_bits;
      ++out.tries;
      std::memcpy(acc.data(), fixed.data(), stride * sizeof(std::uint16_t));
      for (int i = 16; i < 31; ++i)
        if ((a >> i) & 1) {
          const std::uint16_t* r = sieve.row(i);
          for (int k = 0; k < stride; ++k) acc[k] ^= r[k];
        }
      bool divisible = false;
      for (int k = 0; k < count; ++k) divisible |= acc[k] == 0;
      if (divisible) continue;
      if (primitive(characteristic(terms, a))) break;
    }
    if (berlekamp_massey(a) != characteristic(terms, a)) {
      std::fprintf(stderr, "member %d: characteristic polynomial disagrees with the output\n", m);
      std::exit(3);
    }
    Lattice lat;
    lat.a = a;
    search_tempering(lat, rng);
    out.row = {a, lat.b, lat.c};
    out.defect = lat.defect();
    out.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return out;
  }
};

void self_check(const Searcher& s) {
  for (const Row& r : kPublished) {
    if (berlekamp_massey(r.a) != characteristic(s.terms, r.a)) {
      std::fprintf(stderr, "characteristic polynomial form disagrees for %08x\n", r.a);
      std::exit(3);
    }
    if (!primitive(characteristic(s.terms, r.a))) {
      std::fprintf(stderr, "published twist word %08x not primitive\n", r.a);
      std::exit(3);
    }
  }
}

std::vector<Found> search(int first, int count, int threads) {
  Searcher s;
  self_check(s);
  std::vector<Found> found(count);
  std::atomic<int> next{0};
  auto work = [&] {
    for (int i; (i = next.fetch_add(1)) < count;) found[i] = s.member(first + i);
  };
  std::vector<std::thread> pool;
  for (int t = 1; t < threads; ++t) pool.emplace_back(work);
  work();
  for (auto& t : pool) t.join();
  return found;
}

std::map<int, Row> read_data(const char* path) {
  std::map<int, Row> rows;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream ls(line);
    int m;
    std::string a, b, c;
    ls >> m >> a >> b >> c;
    rows[m] = {static_cast<std::uint32_t>(std::stoul(a, nullptr, 16)),
               static_cast<std::uint32_t>(std::stoul(b, nullptr, 16)),
               static_cast<std::uint32_t>(std::stoul(c, nullptr, 16))};
  }
  return rows;
}

int usage() {
  std::fprintf(stderr,
               "usage: mt2203_search search FIRST COUNT [THREADS]\n"
               "       mt2203_search table DATA\n"
               "       mt2203_search check DATA FIRST COUNT\n"
               "       mt2203_search certify TABLE [FIRST COUNT]\n"
               "       mt2203_search quality\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return usage();
  const std::string cmd = argv[1];
  if (cmd == "search" && (argc == 4 || argc == 5)) {
    const int first = std::atoi(argv[2]), count = std::atoi(argv[3]);
    const int threads = argc == 5 ? std::max(1, std::atoi(argv[4])) : 1;
    if (first < 3 || count < 1 || first + count > kMembers - 1) {
      std::fprintf(stderr, "members 3 to 6022 are searched\n");
      return 2;
    }
    int m = first;
    for (const Found& f : search(first, count, threads))
      std::printf("%d %08X %08X %08X %ld %.3f %d\n", m++, f.row.a, f.row.b, f.row.c, f.tries,
                  f.seconds, f.defect);
    return 0;
  }
  if (cmd == "check" && argc == 5) {
    const auto rows = read_data(argv[2]);
    const int first = std::atoi(argv[3]), count = std::atoi(argv[4]);
    if (first < 3 || count < 1 || first + count > kMembers - 1) return usage();
    int bad = 0, m = first;
    for (const Found& f : search(first, count, 1)) {
      const auto it = rows.find(m);
      const bool same = it != rows.end() && it->second.a == f.row.a && it->second.b == f.row.b &&
                        it->second.c == f.row.c;
      std::printf("member %d: %08X %08X %08X %s\n", m, f.row.a, f.row.b, f.row.c,
                  same ? "as recorded" : "DIFFERS");
      bad += !same;
      ++m;
    }
    return bad == 0 ? 0 : 1;
  }
  if (cmd == "table" && argc == 3) {
    std::map<int, Row> rows = read_data(argv[2]);
    for (int i = 0; i < 3; ++i) rows[kPublishedMember[i]] = kPublished[i];
    int contiguous = 0;
    while (contiguous < kMembers - 1 && rows.count(contiguous)) ++contiguous;
    std::printf(
        "// Parameters of the MT2203 members in member order: twist word, then the two tempering "
        "masks.\n// Members 0, 1, 2 and 6023 are the published rows of the set; the others come "
        "from this\n// library's own search (tools/mt2203_search.cpp, rows in "
        "tools/data/mt2203_search.txt).\n// Regenerate: mt2203_search table "
        "tools/data/mt2203_search.txt\n");
    std::printf("// Members 0 to %d, in order.\n", contiguous - 1);
    std::printf("inline constexpr std::uint32_t kMt2203Rows[%d][3] = {\n", contiguous);
    for (int m = 0; m < contiguous; ++m)
      std::printf("    {0x%08Xu, 0x%08Xu, 0x%08Xu},\n", rows[m].a, rows[m].b, rows[m].c);
    std::printf("};\n// The last member, 6023.\n");
    std::printf("inline constexpr std::uint32_t kMt2203Last[3] = {0x%08Xu, 0x%08Xu, 0x%08Xu};\n",
                kPublished[3].a, kPublished[3].b, kPublished[3].c);
    return 0;
  }
  if (cmd == "certify" && (argc == 3 || argc == 5)) {
    // Rows of a parameter table (.inc), and the published last row: each must have a
    // characteristic polynomial of degree 2203 (from the output) that is primitive, and no two
    // may share one.
    std::ifstream in(argv[2]);
    std::stringstream text;
    text << in.rdbuf();
    std::string body = text.str();
    body = body.substr(0, body.find("kMt2203Last"));  // the last row is certified below
    std::vector<Row> rows;
    for (std::size_t at = body.find("{0x"); at != std::string::npos;
         at = body.find("{0x", at + 1)) {
      Row r{};
      if (std::sscanf(body.c_str() + at, "{0x%xu, 0x%xu, 0x%xu}", &r.a, &r.b, &r.c) == 3)
        rows.push_back(r);
    }
    int first = 0, count = static_cast<int>(rows.size());
    if (argc == 5) {
      first = std::max(0, std::atoi(argv[3]));
      count = std::min(std::atoi(argv[4]), static_cast<int>(rows.size()) - first);
    }
    std::vector<std::pair<int, Row>> cases;
    for (int m = first; m < first + count; ++m) cases.push_back({m, rows[m]});
    cases.push_back({kMembers - 1, kPublished[3]});
    std::map<Poly, int> seen;
    int failed = 0;
    const auto start = std::chrono::steady_clock::now();
    for (const auto& [m, r] : cases) {
      const Poly f = berlekamp_massey(r.a);
      const bool ok = f != Poly{} && primitive(f) && (!seen.count(f) || seen[f] == m);
      if (!ok) std::printf("member %d: %08X %08X %08X FAILED\n", m, r.a, r.b, r.c);
      failed += !ok;
      seen.emplace(f, m);
    }
    std::printf("%zu rows certified primitive and distinct, %d failed (%.1f s)\n",
                cases.size() - failed, failed,
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    return failed == 0 ? 0 : 1;
  }
  if (cmd == "dims" && argc == 5) {
    Lattice lat;
    lat.a = static_cast<std::uint32_t>(std::stoul(argv[2], nullptr, 16));
    lat.b = static_cast<std::uint32_t>(std::stoul(argv[3], nullptr, 16));
    lat.c = static_cast<std::uint32_t>(std::stoul(argv[4], nullptr, 16));
    for (int v = 1; v <= 32; ++v) std::printf(" %d", lat.dimension(v));
    std::printf("\n");
    return 0;
  }
  if (cmd == "quality" && argc == 2) {
    Searcher s;
    self_check(s);
    for (int i = 0; i < 4; ++i) {
      Lattice lat;
      lat.a = kPublished[i].a;
      lat.b = kPublished[i].b;
      lat.c = kPublished[i].c;
      std::printf("member %d: defect %d; k(v):", kPublishedMember[i], lat.defect());
      for (int v = 1; v <= 32; ++v) std::printf(" %d", lat.dimension(v));
      std::printf("\n");
    }
    return 0;
  }
  return usage();
}
