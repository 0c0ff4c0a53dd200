// The basic generators in every variant copy: known answers from the independent references,
// digests over block cuts, skip-ahead and leapfrog against plain stepping, the uniform
// conversions, the seeding edge cases and the refusals; the hardware source and the AES test
// through the processor probes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "random/rng_copies.h"
#include "random/streams/mt2203_params.h"
#include "random/streams/probes.h"

namespace tvx::test {
namespace {

const std::vector<Kat>& kats() {
  static const std::vector<Kat> k = [] {
    std::vector<Kat> all = read_kats(TVX_KAT_DIR "/basic_generators.txt");
    for (Kat& c : read_kats(TVX_KAT_DIR "/counter_generators.txt")) all.push_back(c);
    for (Kat& c : read_kats(TVX_KAT_DIR "/twister_generators.txt")) all.push_back(c);
    return all;
  }();
  return k;
}

// One stream of one copy, freed at scope end.
class Stream {
 public:
  Stream(const Copy& c, int brng, const std::vector<std::uint32_t>& seeds) : c_(c) {
    status_ = c.new_stream_ex(&s_, brng, static_cast<int>(seeds.size()), seeds.data());
    row_ = c.row(brng);
  }
  ~Stream() {
    if (s_ != nullptr) c_.delete_stream(&s_);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  int status() const { return status_; }
  RudStreamPtr get() const { return s_; }
  const RudBrngProperties& row() const { return *row_; }
  // n output words, each widened to 64 bits.
  std::vector<std::uint64_t> words(int n) {
    std::vector<std::uint64_t> out(static_cast<std::size_t>(n));
    if (row_->WordSize == 8) {
      EXPECT_EQ(row_->iBRng(s_, n, reinterpret_cast<unsigned int*>(out.data())), 0);
    } else {
      std::vector<unsigned int> w(static_cast<std::size_t>(n));
      EXPECT_EQ(row_->iBRng(s_, n, w.data()), 0);
      for (int i = 0; i < n; ++i) out[static_cast<std::size_t>(i)] = w[static_cast<std::size_t>(i)];
    }
    return out;
  }
  std::vector<unsigned char> state_bytes() const {
    const auto* p = reinterpret_cast<const unsigned char*>(s_);
    return {p + 16, p + row_->StreamStateSize};
  }

 private:
  const Copy& c_;
  RudStreamPtr s_ = nullptr;
  const RudBrngProperties* row_ = nullptr;
  int status_ = 0;
};

class Generators : public testing::TestWithParam<Copy> {
 protected:
  void SetUp() override { TVX_SKIP_IF_CPU_LACKS(GetParam()); }
};

double bits_to_double(std::uint64_t b) {
  double d;
  std::memcpy(&d, &b, sizeof d);
  return d;
}

TEST_P(Generators, KnownAnswersOfTheReference) {
  const Copy& c = GetParam();
  int checked = 0;
  for (const Kat& k : kats()) {
    if (k.kind == "digest") continue;
    SCOPED_TRACE(k.text);
    Stream s(c, brng_of(k.generator), k.seeds);
    ASSERT_EQ(s.status(), 0);
    const int count = static_cast<int>(k.number("count"));
    if (k.kind == "skip") {
      ASSERT_EQ(c.skip(s.get(), static_cast<long long>(k.number("nskip"))), 0);
    } else if (k.kind == "skipex") {
      const std::vector<std::uint64_t> w = hex_list(k.params.at("nskip"), ',');
      ASSERT_EQ(
          s.row().InitStream(RUD_INIT_SKIPAHEADEX, s.get(), static_cast<int>(w.size()), w.data()),
          0);
    } else if (k.kind == "leapfrog") {
      ASSERT_EQ(c.leapfrog(s.get(), static_cast<unsigned>(k.number("k")),
                           static_cast<int>(k.number("nstreams"))),
                0);
    }
    if (k.kind == "uniform") {
      const double a = bits_to_double(std::stoull(k.params.at("a"), nullptr, 16));
      const double b = bits_to_double(std::stoull(k.params.at("b"), nullptr, 16));
      std::vector<double> r(static_cast<std::size_t>(count));
      ASSERT_EQ(s.row().dBRng(s.get(), count, r.data(), a, b), 0);
      std::vector<std::uint64_t> bits(r.size());
      std::memcpy(bits.data(), r.data(), r.size() * sizeof(double));
      EXPECT_EQ(bits, k.expected);
    } else {
      EXPECT_EQ(s.words(count), k.expected);
    }
    ++checked;
  }
  EXPECT_GT(checked, 100);
}

// 10^6 words in one call and in blocks of 1, 7 and 1000 words all give the reference digest.
TEST_P(Generators, DigestOfAMillionWordsForEveryCut) {
  const Copy& c = GetParam();
  int checked = 0;
  for (const Kat& k : kats()) {
    if (k.kind != "digest") continue;
    const int total = static_cast<int>(k.number("count"));
    for (int cut : {1, 7, 1000, 1000000}) {
      SCOPED_TRACE(k.text + " cut " + std::to_string(cut));
      Stream s(c, brng_of(k.generator), k.seeds);
      ASSERT_EQ(s.status(), 0);
      Digest d;
      for (int done = 0; done < total; done += cut) {
        for (std::uint64_t w : s.words(std::min(cut, total - done))) d.add(w);
      }
      EXPECT_EQ(d.h, k.expected.at(0));
      ++checked;
    }
  }
  EXPECT_EQ(checked, 56);
}

// Blocks that end one word short of, on, and one past a lane step must not write past n, and
// every word must be written.
TEST_P(Generators, BlocksWriteExactlyTheirWords) {
  const Copy& c = GetParam();
  for (int brng : {RUD_BRNG_MCG31, RUD_BRNG_R250, RUD_BRNG_MRG32K3A, RUD_BRNG_MCG59,
                   RUD_BRNG_PHILOX4X32X10, RUD_BRNG_ARS5, RUD_BRNG_NONDETERM, RUD_BRNG_MT19937,
                   RUD_BRNG_SFMT19937, RUD_BRNG_MT2203 + 2}) {
    SCOPED_TRACE(brng);
    if (brng == RUD_BRNG_NONDETERM && rud::probes::rdrand_supported() == 0) continue;
    for (int n : {0, 1, 3, 15, 16, 17, 31, 32, 33, 47, 64, 65, 127, 128, 129, 250, 251, 1000}) {
      Stream s(c, brng, {20240607u});
      const int word = s.row().WordSize;
      const std::size_t bytes = static_cast<std::size_t>(n + 9) * word + 3;
      std::vector<unsigned char> area(bytes, 0xCA);
      // Odd offset in the 8-byte case: the caller's area need not be aligned to the word.
      unsigned char* base = area.data() + (word == 8 ? 4 : 0);
      ASSERT_EQ(s.row().iBRng(s.get(), n, reinterpret_cast<unsigned int*>(base)), 0);
      const std::size_t used = static_cast<std::size_t>(n) * word;
      for (std::size_t i = used; i < used + 8; ++i) ASSERT_EQ(base[i], 0xCA) << "n " << n;
      // Unwritten words would keep the marker; no generator yields 0xCACACACA twice in a row.
      int markers = 0;
      for (int i = 0; i + 4 <= static_cast<int>(used); i += 4) {
        std::uint32_t w;
        std::memcpy(&w, base + i, 4);
        markers += w == 0xCACACACAu;
      }
      EXPECT_LE(markers, 1) << "n " << n;

      std::vector<double> d(static_cast<std::size_t>(n) + 4, -7.0);
      ASSERT_EQ(s.row().dBRng(s.get(), n, d.data(), 0.0, 1.0), 0);
      for (int i = 0; i < 4; ++i) EXPECT_EQ(d[static_cast<std::size_t>(n + i)], -7.0);
    }
  }
}

// dBRng is a + x s with the generator's scale, sBRng the double value narrowed (MCG59: single
// arithmetic throughout), for blocks long enough to take every vector path.
TEST_P(Generators, UniformsAreTheDocumentedConversionOfTheWords) {
  const Copy& c = GetParam();
  struct Case {
    int brng;
    double scale;
    bool centred;  // m + y s with y the signed word and m the middle of the interval
  };
  const Case cases[] = {{RUD_BRNG_MCG31, 0x1.0000000200000p-31, false},
                        {RUD_BRNG_R250, 0x1p-32, false},
                        {RUD_BRNG_MRG32K3A, 1.0 / 4294967087.0, false},
                        {RUD_BRNG_MCG59, 0x1p-59, false},
                        {RUD_BRNG_PHILOX4X32X10, 0x1p-32, true},
                        {RUD_BRNG_ARS5, 0x1p-32, true},
                        {RUD_BRNG_MT19937, 0x1p-32, false},
                        {RUD_BRNG_MT2203 + 1, 0x1p-32, false},
                        {RUD_BRNG_SFMT19937, 0x1p-32, true}};
  const int n = 3001;
  for (const Case& cs : cases) {
    SCOPED_TRACE(cs.brng);
    for (auto [a, b] : {std::pair{0.0, 1.0}, std::pair{-2.5, 10.0}}) {
      Stream raw(c, cs.brng, {777u}), dbl(c, cs.brng, {777u}), sgl(c, cs.brng, {777u});
      const std::vector<std::uint64_t> x = raw.words(n);
      std::vector<double> d(n);
      std::vector<float> f(n);
      ASSERT_EQ(dbl.row().dBRng(dbl.get(), n, d.data(), a, b), 0);
      ASSERT_EQ(
          sgl.row().sBRng(sgl.get(), n, f.data(), static_cast<float>(a), static_cast<float>(b)), 0);
      const double s = (b - a) * cs.scale;
      const float fs = static_cast<float>((b - a) * cs.scale);
      for (int i = 0; i < n; ++i) {
        const double xi = static_cast<double>(x[i]);
        if (cs.centred) {
          const auto y = static_cast<std::int32_t>(static_cast<std::uint32_t>(x[i]));
          const float fa = static_cast<float>(a), fb = static_cast<float>(b);
          ASSERT_EQ(d[i], (a + b) * 0.5 + static_cast<double>(y) * s) << i;
          ASSERT_EQ(f[i], (fa + fb) * 0.5f + static_cast<float>(y) * ((fb - fa) * 0x1p-32f)) << i;
          ASSERT_GE(d[i], a);
          ASSERT_LT(d[i], b);
          continue;
        }
        ASSERT_EQ(d[i], a + xi * s) << i;
        ASSERT_GE(d[i], a);
        ASSERT_LE(d[i], b);
        if (cs.brng == RUD_BRNG_MCG59) {
          const float xf = static_cast<float>(static_cast<std::int64_t>(x[i]));
          ASSERT_EQ(f[i], static_cast<float>(a) + xf * fs) << i;
        } else {
          ASSERT_EQ(f[i], static_cast<float>(a + xi * s)) << i;
        }
      }
    }
  }
}

// The first uniform of the standard seed 12345 x 6, as published with the generator: 0.12701112.
TEST_P(Generators, Mrg32k3aStandardSeedFirstUniform) {
  const Copy& c = GetParam();
  Stream s(c, RUD_BRNG_MRG32K3A, std::vector<std::uint32_t>(6, 12345u));
  double u[2];
  ASSERT_EQ(s.row().dBRng(s.get(), 2, u, 0.0, 1.0), 0);
  EXPECT_NEAR(u[0], 0.1270111220, 1e-9);
  EXPECT_NEAR(u[1], 0.3185275653, 1e-9);
}

// Skipping k words leaves the stream where drawing k words would: from a fresh stream and from
// part-used ones (the twisters' buffer and 128-bit block, the counters' 4-word block), on either
// side of the lane width and of each threshold (MT19937: stepping up to 0xFFFFF; SFMT19937: plain
// Horner up to 19967, windowed above); the counters' several-word form agrees; a skip of 0
// changes nothing; two twister jumps compose.
TEST_P(Generators, SkipAheadEqualsSteps) {
  const Copy& c = GetParam();
  struct Row {
    std::vector<int> brngs;
    std::vector<std::uint32_t> seeds;
    std::vector<int> drawn;
    std::vector<long long> skips;
    int compared;  // words compared after the skip
  };
  // clang-format off
  const Row rows[] = {
      {{RUD_BRNG_MCG31, RUD_BRNG_MRG32K3A, RUD_BRNG_MCG59, RUD_BRNG_MT19937, RUD_BRNG_SFMT19937},
       {99u, 5u, 6u, 7u, 8u, 9u}, {0}, {0, 1, 2, 3, 15, 16, 17, 33, 1000, 65537}, 100},
      {{RUD_BRNG_MT19937, RUD_BRNG_SFMT19937}, {0xC0FFEEu, 7u}, {0, 1, 5, 623, 624, 1000},
       {1, 3, 19967, 19968, 0xFFFFF, 0x100000, 0x100001}, 1301},
      {{RUD_BRNG_PHILOX4X32X10, RUD_BRNG_ARS5}, {1u, 2u, 3u, 0xFFFFFFFEu, 0xFFFFFFFFu, 6u, 7u, 8u},
       {0, 1, 3, 4, 6}, {0, 1, 2, 3, 4, 5, 7, 8, 9, 63, 64, 65, 129, 100003}, 150},
  };
  // clang-format on
  for (const Row& row : rows) {
    for (int brng : row.brngs) {
      const bool counter = brng == RUD_BRNG_PHILOX4X32X10 || brng == RUD_BRNG_ARS5;
      for (int drawn : row.drawn) {
        for (long long k : row.skips) {
          SCOPED_TRACE(std::to_string(brng) + " after " + std::to_string(drawn) + " skip " +
                       std::to_string(k));
          Stream skipped(c, brng, row.seeds), stepped(c, brng, row.seeds), wide(c, brng, row.seeds);
          skipped.words(drawn);
          stepped.words(drawn + static_cast<int>(k));
          const auto before = skipped.state_bytes();
          ASSERT_EQ(c.skip(skipped.get(), k), 0);
          EXPECT_TRUE(k != 0 || skipped.state_bytes() == before) << "a skip of 0 moved the state";
          const auto expected = stepped.words(row.compared);
          EXPECT_EQ(skipped.words(row.compared), expected);
          if (!counter) continue;
          const std::uint64_t count[3] = {static_cast<std::uint64_t>(k), 0, 0};
          wide.words(drawn);
          ASSERT_EQ(wide.row().InitStream(RUD_INIT_SKIPAHEADEX, wide.get(), 3, count), 0);
          EXPECT_EQ(wide.words(row.compared), expected);
        }
      }
    }
  }
  // 10^15 + 2 x 10^6 + 3 in one jump, or as 10^15 and then 2 x 10^6 + 3 words more.
  for (int brng : {RUD_BRNG_MT19937, RUD_BRNG_SFMT19937}) {
    Stream once(c, brng, {0xC0FFEEu, 7u}), twice(c, brng, {0xC0FFEEu, 7u});
    ASSERT_EQ(c.skip(once.get(), 1000000000000000ll + 2000003ll), 0);
    ASSERT_EQ(c.skip(twice.get(), 1000000000000000ll), 0);
    ASSERT_EQ(c.skip(twice.get(), 2000000ll), 0);
    twice.words(3);
    EXPECT_EQ(once.words(700), twice.words(700));
  }
}

// The several-word skip equals the one-word skip below 2^64, and a count of 2^64 equals two skips
// of 2^63: the table path and the general path agree.
TEST_P(Generators, Mrg32k3aSeveralWordSkip) {
  const Copy& c = GetParam();
  for (std::uint64_t k : {0ull, 1ull, 77ull, 1ull << 40, ~0ull}) {
    Stream a(c, RUD_BRNG_MRG32K3A, {1u, 2u, 3u, 4u, 5u, 6u});
    Stream b(c, RUD_BRNG_MRG32K3A, {1u, 2u, 3u, 4u, 5u, 6u});
    const std::uint64_t words[4] = {k, 0, 0, 0};
    ASSERT_EQ(a.row().InitStream(RUD_INIT_SKIPAHEADEX, a.get(), 4, words), 0);
    ASSERT_EQ(c.skip(b.get(), static_cast<long long>(k)), 0);
    EXPECT_EQ(a.words(8), b.words(8)) << k;
  }
  Stream a(c, RUD_BRNG_MRG32K3A, {}), b(c, RUD_BRNG_MRG32K3A, {}), g(c, RUD_BRNG_MRG32K3A, {});
  const std::uint64_t two64[2] = {0, 1};
  ASSERT_EQ(a.row().InitStream(RUD_INIT_SKIPAHEADEX, a.get(), 2, two64), 0);
  const long long half = static_cast<long long>(1ull << 63);
  ASSERT_EQ(c.skip(b.get(), half), 0);
  ASSERT_EQ(c.skip(b.get(), half), 0);
  // A count with a non-zero fifth word takes the general path: 2^64 + 2^256 in one call equals
  // 2^256 and then 2^64.
  const std::uint64_t general[5] = {0, 1, 0, 0, 1};
  const std::uint64_t only_high[5] = {0, 0, 0, 0, 1};
  ASSERT_EQ(g.row().InitStream(RUD_INIT_SKIPAHEADEX, g.get(), 5, general), 0);
  Stream h(c, RUD_BRNG_MRG32K3A, {});
  ASSERT_EQ(h.row().InitStream(RUD_INIT_SKIPAHEADEX, h.get(), 5, only_high), 0);
  ASSERT_EQ(h.row().InitStream(RUD_INIT_SKIPAHEADEX, h.get(), 2, two64), 0);
  const auto wa = a.words(8);
  EXPECT_EQ(wa, b.words(8));
  EXPECT_EQ(g.words(8), h.words(8));
}

// Stream k of s gives words k, k + s, k + 2s, ... of the plain stream, also through the lanes.
TEST_P(Generators, LeapfrogIsEveryNthWord) {
  const Copy& c = GetParam();
  for (int brng : {RUD_BRNG_MCG31, RUD_BRNG_MCG59}) {
    Stream plain(c, brng, {31337u});
    const std::vector<std::uint64_t> all = plain.words(16 * 200 + 16);
    for (int ns : {1, 2, 3, 7, 16}) {
      for (int k = 0; k < ns; k += (ns > 3 ? 3 : 1)) {
        SCOPED_TRACE(std::to_string(brng) + " " + std::to_string(k) + "/" + std::to_string(ns));
        Stream part(c, brng, {31337u});
        ASSERT_EQ(c.leapfrog(part.get(), static_cast<unsigned>(k), ns), 0);
        const std::vector<std::uint64_t> got = part.words(200);
        for (int i = 0; i < 200; ++i) ASSERT_EQ(got[i], all[k + ns * i]) << i;
      }
    }
    // A leapfrogged stream skips in its own steps: stream 1 of 3 skipped by 5 starts at word 16.
    Stream part(c, brng, {31337u});
    ASSERT_EQ(c.leapfrog(part.get(), 1u, 3), 0);
    ASSERT_EQ(c.skip(part.get(), 5), 0);
    EXPECT_EQ(part.words(1)[0], all[16]);
  }
}

TEST_P(Generators, SeedingEdgeCases) {
  const Copy& c = GetParam();
  {  // Six words of m1: the first component reduces to zeros and is mended, the second to 22644.
    Stream s(c, RUD_BRNG_MRG32K3A, std::vector<std::uint32_t>(6, 4294967087u));
    std::uint32_t st[6];
    std::memcpy(st, s.state_bytes().data(), sizeof st);
    EXPECT_EQ(st[0], 1u);
    EXPECT_EQ(st[1], 0u);
    EXPECT_EQ(st[2], 0u);
    for (int i = 3; i < 6; ++i) EXPECT_EQ(st[i], 22644u);
  }
  {  // A 250-word zero buffer is not conditioned: zeros for ever.
    Stream s(c, RUD_BRNG_R250, std::vector<std::uint32_t>(250, 0u));
    for (std::uint64_t w : s.words(2000)) ASSERT_EQ(w, 0u);
  }
  {  // Below 250 words only the first counts; the conditioned words are linearly independent.
    std::vector<std::uint32_t> seeds(249, 0xDEADBEEFu);
    Stream many(c, RUD_BRNG_R250, seeds), one(c, RUD_BRNG_R250, {0xDEADBEEFu});
    EXPECT_EQ(many.state_bytes(), one.state_bytes());
    std::uint32_t x[250];
    std::memcpy(x, one.state_bytes().data(), sizeof x);
    EXPECT_EQ(x[220], 1u);
    for (int k = 0; k < 32; ++k) EXPECT_EQ(x[3 + 7 * k] >> (31 - k), 1u) << k;
  }
  {  // MT2203 members seeded alike give different words: the published ones and searched ones
     // from both ends of the table.
    EXPECT_EQ(tvx::rud::mt2203_contiguous_rows(), 6023);
    std::vector<std::vector<std::uint64_t>> seen;
    for (int member : {0, 1, 2, 3, 6022, 6023}) {
      Stream m(c, RUD_BRNG_MT2203 + member, {5489u});
      const auto w = m.words(100);
      for (const auto& other : seen) EXPECT_NE(w, other) << member;
      seen.push_back(w);
    }
  }
  // The MCG31 and MCG59 seeds that reduce or mask to zero are among the known answers.
  {  // Philox reads six words, ARS-5 eight: words past them change nothing.
    std::vector<std::uint32_t> nine = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    Stream p6(c, RUD_BRNG_PHILOX4X32X10, {nine.begin(), nine.begin() + 6}),
        p9(c, RUD_BRNG_PHILOX4X32X10, nine), a8(c, RUD_BRNG_ARS5, {nine.begin(), nine.end() - 1}),
        a9(c, RUD_BRNG_ARS5, nine);
    EXPECT_EQ(p6.words(9), p9.words(9));
    EXPECT_EQ(a8.words(9), a9.words(9));
  }
}

// What each generator refuses, and the arguments every generator refuses; a refused or empty call
// leaves the state as it was.
TEST_P(Generators, RefusedOperationsAndArguments) {
  const Copy& c = GetParam();
  struct Row {
    int brng;
    bool leapfrog, skip, skipex;  // allowed
  };
  const Row rows[] = {
      {RUD_BRNG_MCG31, true, true, false},         {RUD_BRNG_R250, false, false, false},
      {RUD_BRNG_MRG32K3A, false, true, true},      {RUD_BRNG_MCG59, true, true, false},
      {RUD_BRNG_PHILOX4X32X10, false, true, true}, {RUD_BRNG_ARS5, false, true, true},
      {RUD_BRNG_NONDETERM, false, false, false},   {RUD_BRNG_MT19937, false, true, false},
      {RUD_BRNG_SFMT19937, false, true, false},    {RUD_BRNG_MT2203, false, false, false}};
  const std::uint64_t one = 1;
  for (const Row& r : rows) {
    SCOPED_TRACE(r.brng);
    Stream s(c, r.brng, {1u});
    const auto before = s.state_bytes();
    // Refused operations only: an allowed one would move the state.
    if (!r.leapfrog) {
      EXPECT_EQ(c.leapfrog(s.get(), 0, 2), RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED);
    }
    if (!r.skip) {
      EXPECT_EQ(c.skip(s.get(), 5), RUD_RNG_ERROR_SKIPAHEAD_UNSUPPORTED);
    }
    if (!r.skipex) {
      EXPECT_EQ(s.row().InitStream(RUD_INIT_SKIPAHEADEX, s.get(), 1, &one),
                RUD_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED);
    }
    EXPECT_EQ(s.row().InitStream(4, s.get(), 0, nullptr), RUD_ERROR_BAD_OPERATION);
    EXPECT_EQ(s.row().InitStream(-1, s.get(), 0, nullptr), RUD_ERROR_BAD_OPERATION);
    unsigned int w[4];
    double d[4];
    float f[4];
    EXPECT_EQ(s.row().iBRng(s.get(), -1, w), RUD_ERROR_BAD_ARGS);
    EXPECT_EQ(s.row().iBRng(s.get(), 4, nullptr), RUD_ERROR_NULL_PTR);
    EXPECT_EQ(s.row().dBRng(s.get(), 4, nullptr, 0.0, 1.0), RUD_ERROR_NULL_PTR);
    EXPECT_EQ(s.row().sBRng(s.get(), -2, f, 0.0f, 1.0f), RUD_ERROR_BAD_ARGS);
    EXPECT_EQ(s.row().dBRng(nullptr, 4, d, 0.0, 1.0), RUD_ERROR_NULL_PTR);
    EXPECT_EQ(s.row().iBRng(s.get(), 0, nullptr), 0);
    EXPECT_EQ(s.state_bytes(), before) << "a refused or empty call moved the state";
    // A leapfrog index at or past the stream count is not refused.
    EXPECT_TRUE(!r.leapfrog || c.leapfrog(s.get(), 5, 2) == 0);
  }
}

// ---- Processor probes --------------------------------------------------------------------------
// Replaces one probe for the life of the object.
template <class F>
class Probe {
 public:
  Probe(F*& slot, F* with) : slot_(slot), saved_(slot) { slot = with; }
  ~Probe() { slot_ = saved_; }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;

 private:
  F*& slot_;
  F* saved_;
};

int g_reads = 0;       // reads of the simulated instruction
int g_fail_reads = 0;  // reads that fail before one succeeds
int no_probe() {
  return 0;
}
int counted_read(unsigned long long* w) {
  ++g_reads;
  if (g_reads <= g_fail_reads) return 0;
  *w = 0x0123456789ABCDEFull + static_cast<unsigned long long>(g_reads);
  return 1;
}

// The hardware source: words come out; seeding of `retries`; a read is tried retries + 1 times,
// then the call fails with its status; without the instruction every block is refused.
TEST_P(Generators, HardwareSource) {
  const Copy& c = GetParam();
  auto retries_of = [&](std::vector<std::uint32_t> seeds) {
    Stream s(c, RUD_BRNG_NONDETERM, seeds);
    EXPECT_EQ(s.status(), 0);
    std::uint32_t st[2];
    std::memcpy(st, s.state_bytes().data(), sizeof st);
    EXPECT_EQ(st[0], 0u);
    return st[1];
  };
  EXPECT_EQ(retries_of({5u}), 10u);
  EXPECT_EQ(retries_of({5u, 0u}), 10u);
  EXPECT_EQ(retries_of({5u, 3u}), 3u);
  EXPECT_EQ(retries_of({}), 10u);

  if (rud::probes::rdrand_supported() != 0) {
    Stream s(c, RUD_BRNG_NONDETERM, {0u});
    const auto w = s.words(1001);
    EXPECT_GT(std::count_if(w.begin(), w.end(), [&](std::uint64_t x) { return x != w[0]; }), 990);
    std::vector<double> d(999);
    ASSERT_EQ(s.row().dBRng(s.get(), 999, d.data(), -1.0, 3.0), 0);
    for (double x : d) ASSERT_TRUE(x >= -1.0 && x <= 3.0) << x;
  } else {
    std::printf("hardware words not drawn: this CPU lacks the random instruction\n");
  }

  Probe<int(unsigned long long*)> read(rud::probes::rdrand64, counted_read);
  {  // Pairs of words from one read, low half first; an odd last word from a read of its own.
    Stream s(c, RUD_BRNG_NONDETERM, {0u});
    g_reads = 0;
    g_fail_reads = 0;
    unsigned r[3];
    ASSERT_EQ(s.row().iBRng(s.get(), 3, r), 0);
    EXPECT_EQ(g_reads, 2);
    EXPECT_EQ(r[0], 0x89ABCDEFu + 1u);
    EXPECT_EQ(r[1], 0x01234567u);
    EXPECT_EQ(r[2], 0x89ABCDEFu + 2u);
    std::vector<float> f(5);
    ASSERT_EQ(s.row().sBRng(s.get(), 5, f.data(), 0.0f, 1.0f), 0);
  }
  for (std::uint32_t retries : {1u, 3u, 10u}) {
    SCOPED_TRACE(retries);
    Stream s(c, RUD_BRNG_NONDETERM, {0u, retries});
    unsigned r[2];
    double d[2];
    g_reads = 0;
    g_fail_reads = static_cast<int>(retries);  // the last try succeeds
    EXPECT_EQ(s.row().iBRng(s.get(), 2, r), 0);
    EXPECT_EQ(g_reads, static_cast<int>(retries) + 1);
    g_reads = 0;
    g_fail_reads = 1 << 30;
    EXPECT_EQ(s.row().iBRng(s.get(), 2, r), RUD_RNG_ERROR_NONDETERM_RETRIES_EXCEEDED);
    EXPECT_EQ(g_reads, static_cast<int>(retries) + 1);
    EXPECT_EQ(s.row().dBRng(s.get(), 2, d, 0.0, 1.0), RUD_RNG_ERROR_NONDETERM_RETRIES_EXCEEDED);
  }
  Probe<int()> absent(rud::probes::rdrand_supported, no_probe);
  Stream s(c, RUD_BRNG_NONDETERM, {0u});
  ASSERT_EQ(s.status(), 0);
  unsigned r[4];
  double d[4];
  float f[4];
  EXPECT_EQ(s.row().iBRng(s.get(), 4, r), RUD_RNG_ERROR_NONDETERM_NOT_SUPPORTED);
  EXPECT_EQ(s.row().dBRng(s.get(), 4, d, 0.0, 1.0), RUD_RNG_ERROR_NONDETERM_NOT_SUPPORTED);
  EXPECT_EQ(s.row().sBRng(s.get(), 4, f, 0.0f, 1.0f), RUD_RNG_ERROR_NONDETERM_NOT_SUPPORTED);
  EXPECT_EQ(rud::row_availability(13), RUD_RNG_ERROR_NONDETERM_NOT_SUPPORTED);
}

// ARS-5 on a processor without AES: the stream is made, every block and skip is refused, and the
// availability test that loading asks gives the same status.
TEST_P(Generators, Ars5WithoutAes) {
  const Copy& c = GetParam();
  EXPECT_EQ(rud::row_availability(14),
            rud::probes::aes_supported() ? 0 : RUD_RNG_ERROR_ARS5_NOT_SUPPORTED);
  Probe<int()> absent(rud::probes::aes_supported, no_probe);
  Stream s(c, RUD_BRNG_ARS5, {1u, 2u});
  ASSERT_EQ(s.status(), 0);
  const auto before = s.state_bytes();
  unsigned r[4];
  double d[4];
  float f[4];
  const std::uint64_t count = 9;
  EXPECT_EQ(s.row().iBRng(s.get(), 4, r), RUD_RNG_ERROR_ARS5_NOT_SUPPORTED);
  EXPECT_EQ(s.row().dBRng(s.get(), 4, d, 0.0, 1.0), RUD_RNG_ERROR_ARS5_NOT_SUPPORTED);
  EXPECT_EQ(s.row().sBRng(s.get(), 4, f, 0.0f, 1.0f), RUD_RNG_ERROR_ARS5_NOT_SUPPORTED);
  EXPECT_EQ(c.skip(s.get(), 9), RUD_RNG_ERROR_ARS5_NOT_SUPPORTED);
  EXPECT_EQ(s.row().InitStream(RUD_INIT_SKIPAHEADEX, s.get(), 1, &count),
            RUD_RNG_ERROR_ARS5_NOT_SUPPORTED);
  EXPECT_EQ(s.state_bytes(), before);
  EXPECT_EQ(rud::row_availability(14), RUD_RNG_ERROR_ARS5_NOT_SUPPORTED);
  for (int row : {0, 3, 15}) EXPECT_EQ(rud::row_availability(row), 0);
  // Philox needs nothing of the processor.
  Stream p(c, RUD_BRNG_PHILOX4X32X10, {1u, 2u});
  EXPECT_EQ(p.row().iBRng(p.get(), 4, r), 0);
}

INSTANTIATE_TEST_SUITE_P(Copies, Generators, testing::ValuesIn(all_copies()), copy_name);

}  // namespace
}  // namespace tvx::test
