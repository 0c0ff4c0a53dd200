// The distribution frame and the uniform family: every check of the frame with its position and
// status, the same values on every copy and for every cut of a request, the accurate form, the
// integer floor, the bit forms against the generators' words, and goodness of fit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "random/rng_copies.h"
#include "runtime/cpu_type.h"
#include "runtime/report.h"
#include "runtime/verbose.h"
#include "support/subprocess.h"
#include "tvx_vector.h"
#include "vector/frame/mode_status.h"

namespace tvx::test {
namespace {

constexpr int kBrngs[] = {RUD_BRNG_MCG31, RUD_BRNG_R250, RUD_BRNG_MRG32K3A, RUD_BRNG_MCG59};
// The generators of the tests below that hold for any deterministic generator.
constexpr int kAllBrngs[] = {RUD_BRNG_MCG31,   RUD_BRNG_R250,          RUD_BRNG_MRG32K3A,
                             RUD_BRNG_MCG59,   RUD_BRNG_PHILOX4X32X10, RUD_BRNG_ARS5,
                             RUD_BRNG_MT19937, RUD_BRNG_SFMT19937};
constexpr int kFlag = RUD_RNG_METHOD_ACCURACY_FLAG;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Stream {
  RudStreamPtr s = nullptr;
  Stream(int brng, unsigned seed) { EXPECT_EQ(rudNewStream(&s, brng, seed), 0); }
  ~Stream() { rudDeleteStream(&s); }
  operator RudStreamPtr() const { return s; }
};

// ---- The exports as one table ----
// A call of an export with the frame's arguments and fixed parameters; r is an area of n results.
using Call = std::function<int(int method, RudStreamPtr s, int n, void* r)>;

struct Export {
  const char* name;
  std::size_t bytes;  // of one result; 0: the generator's word
  int max_method;
  bool flag;
  Call good;                                  // acceptable parameters
  Call twin;                                  // the lower-case twin with the same parameters
  std::vector<std::pair<Call, int>> refused;  // one refused parameter each, with its position
  std::vector<Call> nan;                      // NaN parameters, which the frame lets through
};

// One call of an export; `call` may use the frame's arguments m, s, n and the result area r.
#define TVX_CALL(call) [](int m, RudStreamPtr s, int n, void* r) { return call; }
using D = double*;
using F = float*;
using I = int*;
using U = unsigned*;
using U64 = unsigned long long*;
constexpr double kA = -1, kB = 2;  // parameters handed to the twins by pointer
constexpr float kAs = -1, kBs = 2;
constexpr int kAi = -3, kBi = 3;

// clang-format off
const std::vector<Export>& exports() {
  static const std::vector<Export> table = {
      {"vdRngUniform", 8, 0, true, TVX_CALL(vdRngUniform(m, s, n, D(r), kA, kB)),
       TVX_CALL(vdrnguniform(&m, &s, &n, D(r), &kA, &kB)),
       {{TVX_CALL(vdRngUniform(m, s, n, D(r), 1, 1)), 5}, {TVX_CALL(vdRngUniform(m, s, n, D(r), 2, 1)), 5}},
       {TVX_CALL(vdRngUniform(m, s, n, D(r), kNaN, 1)), TVX_CALL(vdRngUniform(m, s, n, D(r), 0, kNaN))}},
      {"vsRngUniform", 4, 0, true, TVX_CALL(vsRngUniform(m, s, n, F(r), kAs, kBs)),
       TVX_CALL(vsrnguniform(&m, &s, &n, F(r), &kAs, &kBs)),
       {{TVX_CALL(vsRngUniform(m, s, n, F(r), 3, -3)), 5}},
       {TVX_CALL(vsRngUniform(m, s, n, F(r), 0, NAN))}},
      {"viRngUniform", 4, 0, false, TVX_CALL(viRngUniform(m, s, n, I(r), kAi, kBi)),
       TVX_CALL(virnguniform(&m, &s, &n, I(r), &kAi, &kBi)),
       {{TVX_CALL(viRngUniform(m, s, n, I(r), 3, 3)), 5}}, {}},
      {"viRngUniformBits", 0, 0, false, TVX_CALL(viRngUniformBits(m, s, n, U(r))),
       TVX_CALL(virnguniformbits(&m, &s, &n, U(r))), {}, {}},
      {"viRngUniformBits32", 4, 0, false, TVX_CALL(viRngUniformBits32(m, s, n, U(r))),
       TVX_CALL(virnguniformbits32(&m, &s, &n, U(r))), {}, {}},
      {"viRngUniformBits64", 8, 0, false, TVX_CALL(viRngUniformBits64(m, s, n, U64(r))),
       TVX_CALL(virnguniformbits64(&m, &s, &n, U64(r))), {}, {}},
  };
  return table;
}
// clang-format on

// ---- Captured parameter reports ----
std::vector<std::pair<std::string, long long>>& reports() {
  static std::vector<std::pair<std::string, long long>> r;
  return r;
}
int capture(const char* name, const std::int64_t* info, int length) {
  reports().emplace_back(std::string(name, static_cast<std::size_t>(length)), *info);
  return 0;
}

class Frame : public testing::Test {
 protected:
  void SetUp() override {
    previous_ = tvx_param_error_set(capture);
    reports().clear();
  }
  void TearDown() override { tvx_param_error_set(previous_); }
  // Runs one call and checks its status and the one report it made (position 0: none).
  void expect(const char* what, const std::function<int()>& call, int status, const char* name,
              int position) {
    SCOPED_TRACE(std::string(name) + ": " + what);
    reports().clear();
    EXPECT_EQ(call(), status);
    if (position == 0) {
      EXPECT_TRUE(reports().empty());
    } else {
      ASSERT_EQ(reports().size(), 1u);
      EXPECT_EQ(reports()[0].first, name);
      EXPECT_EQ(reports()[0].second, position);
    }
  }

 private:
  tvx_param_error_fn previous_ = nullptr;
};

// Every frame check of every export, in the order the frame makes them: each row is refused by
// its own check although every later argument is bad too.
TEST_F(Frame, ChecksInOrderWithPositionAndStatus) {
  Stream good(RUD_BRNG_MCG59, 7);
  alignas(128) unsigned char dead[64] = {};  // a record whose valid byte is 0
  RudStreamPtr bad = reinterpret_cast<RudStreamPtr>(dead);
  std::vector<unsigned char> r(64 * 16, 0xCA);
  void* out = r.data();
  for (const Export& e : exports()) {
    const Call& f = e.good;
    expect(
        "negative method before the stream", [&] { return f(-1, nullptr, -1, nullptr); },
        RUD_ERROR_BAD_ARGS, e.name, 1);
    expect(
        "method word with bit 31", [&] { return f(INT32_MIN | kFlag, good, 4, out); },
        RUD_ERROR_BAD_ARGS, e.name, 1);
    expect(
        "null stream", [&] { return f(0, nullptr, -1, nullptr); }, RUD_ERROR_NULL_PTR, e.name, 2);
    expect(
        "dead stream", [&] { return f(0, bad, -1, nullptr); }, RUD_RNG_ERROR_BAD_STREAM, e.name, 2);
    expect(
        "negative n", [&] { return f(e.max_method + 1, good, -1, nullptr); }, RUD_ERROR_BAD_ARGS,
        e.name, 3);
    expect(
        "n = 0 looks at nothing more", [&] { return f(e.max_method + 1, good, 0, nullptr); }, 0,
        e.name, 0);
    expect(
        "null r", [&] { return f(e.max_method + 1, good, 4, nullptr); }, RUD_ERROR_BAD_ARGS, e.name,
        4);
    expect(
        "method out of the column", [&] { return f(e.max_method + 1, good, 4, out); },
        RUD_ERROR_BAD_ARGS, e.name, 1);
    expect(
        "accuracy flag", [&] { return f(kFlag, good, 4, out); }, e.flag ? 0 : RUD_ERROR_BAD_ARGS,
        e.name, e.flag ? 0 : 1);
    expect(
        "accepted", [&] { return f(e.max_method, good, 4, out); }, 0, e.name, 0);
    for (const auto& [call, position] : e.refused) {
      expect(
          "refused parameter", [&] { return call(0, good, 4, out); }, RUD_ERROR_BAD_ARGS, e.name,
          position);
      expect(
          "n = 0 with a refused parameter", [&] { return call(0, good, 0, nullptr); }, 0, e.name,
          0);
    }
    for (const Call& call : e.nan) {
      expect(
          "NaN parameter passes", [&] { return call(0, good, 4, out); }, 0, e.name, 0);
    }
    // The twin: the same values from a stream in the same state, and its own null pointers.
    Stream s1(RUD_BRNG_MCG59, 99), s2(RUD_BRNG_MCG59, 99);
    std::vector<unsigned char> x(8 * 100, 0xCA), y(8 * 100, 0xCA);
    expect(
        "export", [&] { return f(0, s1, 100, x.data()); }, 0, e.name, 0);
    expect(
        "twin", [&] { return e.twin(0, s2, 100, y.data()); }, 0, e.name, 0);
    EXPECT_EQ(x, y) << e.name;
  }
  int zero = 0, n = 4;
  double a = 0, b = 1;
  RudStreamPtr s = good;
  expect(
      "twin null method", [&] { return vdrnguniform(nullptr, &s, &n, nullptr, &a, &b); },
      RUD_ERROR_BAD_ARGS, "vdRngUniform", 1);
  expect(
      "twin null stream", [&] { return vdrnguniform(&zero, nullptr, &n, nullptr, &a, &b); },
      RUD_ERROR_NULL_PTR, "vdRngUniform", 2);
  expect(
      "twin null b", [&] { return vdrnguniform(&zero, &s, &n, nullptr, &a, nullptr); },
      RUD_ERROR_BAD_ARGS, "vdRngUniform", 6);
}

// ---- Same values on every copy and for every cut ----
// n results of an export from a fresh stream,
// cut into calls of the sizes in `cuts` (cycled).
std::vector<unsigned char> draw(const Export& e, int brng, int n, const std::vector<int>& cuts,
                                int* status) {
  Stream s(brng, 2024);
  RudBrngProperties p;
  rudGetBrngProperties(brng, &p);
  const std::size_t bytes = e.bytes != 0 ? e.bytes : static_cast<std::size_t>(p.WordSize);
  std::vector<unsigned char> r(bytes * static_cast<std::size_t>(n), 0xCA);
  *status = 0;
  for (int done = 0, k = 0; done < n && *status == 0; ++k) {
    const int m = std::min(cuts[static_cast<std::size_t>(k) % cuts.size()], n - done);
    *status = e.good(0, s, m, r.data() + bytes * static_cast<std::size_t>(done));
    done += m;
  }
  return r;
}

TEST(Values, AnyCutOfARequestGivesTheSameValues) {
  constexpr int kN = 1000000;
  for (const Export& e : exports()) {
    for (int brng : kAllBrngs) {
      SCOPED_TRACE(std::string(e.name) + " on generator " + std::to_string(brng));
      int whole_status = 0, cut_status = 0;
      const auto whole = draw(e, brng, kN, {kN}, &whole_status);
      const auto cut = draw(e, brng, kN, {1, 7, 1000, 2049}, &cut_status);
      EXPECT_EQ(whole_status, cut_status);
      EXPECT_TRUE(whole == cut);
    }
  }
}

// Digest of every export on every generator, printed by a fresh process of this program that
// the next test starts with a forced CPU type: no choice made earlier in this process carries over.
TEST(Values, DISABLED_DigestOfThisProcess) {
  Digest d;
  for (const Export& e : exports()) {
    for (int brng : kAllBrngs) {
      int status = 0;
      const auto r = draw(e, brng, 100003, {100003}, &status);
      d.add(static_cast<std::uint64_t>(status));
      for (unsigned char byte : r) d.add(byte);
    }
  }
  std::printf("cpu=%d digest=%016llx\n", tvx_rud_cpu_type(), static_cast<unsigned long long>(d.h));
}

TEST(Values, EveryCopyGivesTheSameValues) {
  const char* types[5] = {"0", "1", "5", "7", "9"};  // one CPU type per copy
  std::string first, ran;
  for (const Copy& c : all_copies()) {
    if (const char* missing = forced_type_lacks(std::atoi(types[c.index]))) {
      std::printf("copy %s skipped: CPU lacks %s\n", c.name, missing);
      continue;
    }
    const ChildResult child = run_in_child({{"TVX_KAZ_DEBUG_CPU_TYPE", types[c.index]}}, [] {
      execl("/proc/self/exe", "random_distributions",
            "--gtest_filter=Values.DISABLED_DigestOfThisProcess", "--gtest_also_run_disabled_tests",
            static_cast<char*>(nullptr));
      return 127;
    });
    ASSERT_EQ(child.exit_code, 0) << "copy " << c.name << "\n" << child.out;
    const auto at = child.out.find("cpu=");
    ASSERT_NE(at, std::string::npos) << child.out;
    const std::string line = child.out.substr(at, child.out.find('\n', at) - at);
    EXPECT_EQ(line.substr(0, line.find(' ')), std::string("cpu=") + types[c.index]);
    const std::string digest = line.substr(line.find(' ') + 1);
    if (first.empty()) first = digest;
    EXPECT_EQ(digest, first) << "copy " << c.name;
    ran += std::string(" ") + c.name;
  }
  std::printf("copies compared:%s\n", ran.c_str());
}

// ---- Uniforms ----
// On [a, b) one unit of the last place wide, a + u (b - a) rounds to a or to b: the plain form
// gives b about half the time, the accurate form never.
TEST(Uniform, AccurateFormNeverReachesB) {
  constexpr int kN = 20000;
  for (int brng : kBrngs) {
    SCOPED_TRACE(brng);
    const double ad = 0x1p50, bd = ad + 0.25;
    const float as = 0x1p24f, bs = as + 2.0f;
    std::vector<double> d(kN);
    std::vector<float> s(kN);
    Stream s1(brng, 5), s2(brng, 5), s3(brng, 5), s4(brng, 5);
    ASSERT_EQ(vdRngUniform(0, s1, kN, d.data(), ad, bd), 0);
    EXPECT_GT(std::count(d.begin(), d.end(), bd), kN / 4);
    ASSERT_EQ(vdRngUniform(kFlag, s2, kN, d.data(), ad, bd), 0);
    EXPECT_EQ(std::count(d.begin(), d.end(), ad), kN);
    ASSERT_EQ(vsRngUniform(0, s3, kN, s.data(), as, bs), 0);
    EXPECT_GT(std::count(s.begin(), s.end(), bs), kN / 4);
    ASSERT_EQ(vsRngUniform(kFlag, s4, kN, s.data(), as, bs), 0);
    EXPECT_EQ(std::count(s.begin(), s.end(), as), kN);
    // On an ordinary interval the flag changes nothing but values at b.
    Stream s5(brng, 6), s6(brng, 6);
    std::vector<double> plain(kN), accurate(kN);
    ASSERT_EQ(vdRngUniform(0, s5, kN, plain.data(), -2.5, 7.0), 0);
    ASSERT_EQ(vdRngUniform(kFlag, s6, kN, accurate.data(), -2.5, 7.0), 0);
    for (double& x : plain) x = x >= 7.0 ? std::nextafter(7.0, 0.0) : x;
    EXPECT_EQ(plain, accurate);
  }
}

// viRngUniform is the floor of the double uniform on [a, b) from the same state.
TEST(Uniform, IntegersAreTheFloorOfTheDoubles) {
  constexpr int kN = 100000;
  const std::pair<int, int> ranges[] = {{-3, 3}, {0, 1}, {-1000000, 7}, {INT32_MIN, INT32_MAX}};
  for (int brng : kAllBrngs) {
    for (auto [a, b] : ranges) {
      SCOPED_TRACE(std::to_string(brng) + " [" + std::to_string(a) + ", " + std::to_string(b) +
                   ")");
      Stream s1(brng, 11), s2(brng, 11);
      std::vector<int> r(kN);
      std::vector<double> d(kN);
      ASSERT_EQ(viRngUniform(0, s1, kN, r.data(), a, b), 0);
      ASSERT_EQ(vdRngUniform(0, s2, kN, d.data(), a, b), 0);
      for (int i = 0; i < kN; ++i) ASSERT_EQ(r[i], static_cast<int>(std::floor(d[i]))) << i;
      if (static_cast<long long>(b) - a == 6) {
        for (int v = a; v < b; ++v) EXPECT_GT(std::count(r.begin(), r.end(), v), kN / 8) << v;
      }
    }
  }
}

// The bit forms against the generator's own words from a stream in the same state.
TEST(UniformBits, WordsOfTheGenerator) {
  constexpr int kN = 5003;  // several rounds of the MCG59 handlers and a short last one
  for (int brng : kAllBrngs) {
    SCOPED_TRACE(brng);
    RudBrngProperties p;
    ASSERT_EQ(rudGetBrngProperties(brng, &p), 0);
    const std::size_t words = static_cast<std::size_t>(p.WordSize / 4);
    Stream s1(brng, 3), s2(brng, 3);
    std::vector<unsigned> raw(2 * kN * words), bits(kN * words);
    ASSERT_EQ(p.iBRng(s1, 2 * kN, raw.data()), 0);
    ASSERT_EQ(viRngUniformBits(0, s2, kN, bits.data()), 0);
    EXPECT_TRUE(std::equal(bits.begin(), bits.end(), raw.begin()));
    // The 32- and 64-bit forms take the words that follow.
    std::vector<unsigned> b32(kN, 0xCACACACA);
    std::vector<unsigned long long> b64(kN / 2, 0xCACACACACACACACAull);
    const bool mcg59 = brng == RUD_BRNG_MCG59;
    const bool direct = brng == RUD_BRNG_PHILOX4X32X10 || brng == RUD_BRNG_ARS5 ||
                        brng == RUD_BRNG_MT19937 || brng == RUD_BRNG_SFMT19937;
    const int expected = mcg59 || direct ? 0 : RUD_RNG_ERROR_NO_NUMBER_BITS;
    ASSERT_EQ(viRngUniformBits32(0, s2, kN / 2, b32.data()), expected);
    ASSERT_EQ(viRngUniformBits64(0, s2, kN / 4, b64.data()), expected);
    if (direct) {  // the words themselves; a 64-bit result is two words, the earlier low
      for (std::size_t i = 0; i < kN / 2; ++i) ASSERT_EQ(b32[i], raw[kN + i]) << i;
      for (std::size_t i = 0; i < kN / 4; ++i) {
        const std::size_t w = kN + kN / 2 + 2 * i;
        ASSERT_EQ(b64[i], raw[w] | static_cast<unsigned long long>(raw[w + 1]) << 32) << i;
      }
    }
    if (!mcg59) continue;
    auto top = [&](std::size_t i) {
      std::uint64_t w;
      std::memcpy(&w, &raw[2 * i], 8);
      return static_cast<unsigned>(w >> 27);
    };
    for (std::size_t i = 0; i < kN / 2; ++i) ASSERT_EQ(b32[i], top(kN + i)) << i;
    for (std::size_t i = 0; i < kN / 4; ++i) {
      const std::size_t w = kN + kN / 2 + 2 * i;
      ASSERT_EQ(b64[i], top(w) | static_cast<unsigned long long>(top(w + 1)) << 32) << i;
    }
  }
}

// Pearson's statistic over 1000 equal cells of 10^6 values, for each generator and each uniform
// form, against the upper 10^-3 point of chi-square with 999 degrees of freedom (Wilson-Hilferty).
// The seed is fixed: the verdict is the same on every run.
TEST(Uniform, ChiSquareOfAMillionValues) {
  constexpr int kN = 1000000, kCells = 1000;
  const double df = kCells - 1, z = 3.090232306167813;  // upper 10^-3 point of N(0, 1)
  const double limit = df * std::pow(1 - 2 / (9 * df) + z * std::sqrt(2 / (9 * df)), 3);
  auto chi2 = [&](const std::vector<int>& cell) {
    std::vector<double> count(kCells);
    for (int c : cell) count[static_cast<std::size_t>(c)] += 1;
    const double expected = static_cast<double>(kN) / kCells;
    double sum = 0;
    for (double c : count) sum += (c - expected) * (c - expected) / expected;
    return sum;
  };
  for (int brng : kAllBrngs) {
    std::vector<int> cell(kN);
    std::vector<double> d(kN);
    std::vector<float> f(kN);
    Stream s1(brng, 777), s2(brng, 778), s3(brng, 779);
    ASSERT_EQ(vdRngUniform(0, s1, kN, d.data(), 0.0, 1.0), 0);
    for (int i = 0; i < kN; ++i) cell[i] = std::min(kCells - 1, static_cast<int>(d[i] * kCells));
    EXPECT_LT(chi2(cell), limit) << "vdRngUniform on " << brng;
    ASSERT_EQ(vsRngUniform(0, s2, kN, f.data(), 0.0f, 1.0f), 0);
    for (int i = 0; i < kN; ++i) cell[i] = std::min(kCells - 1, static_cast<int>(f[i] * kCells));
    EXPECT_LT(chi2(cell), limit) << "vsRngUniform on " << brng;
    ASSERT_EQ(viRngUniform(0, s3, kN, cell.data(), 0, kCells), 0);
    EXPECT_LT(chi2(cell), limit) << "viRngUniform on " << brng;
  }
}

// The kernel calls of a distribution leave the caller's mode word as it was.
TEST(Uniform, CallerModeWordIsKept) {
  const unsigned before = kazGetMode();
  kazSetMode(KAZ_FLUSH_DENORMALS_ON | KAZ_LA | KAZ_ERRMODE_IGNORE);
  const unsigned set = kazGetMode();
  Stream s(RUD_BRNG_MCG31, 1);
  std::vector<int> r(3000);
  ASSERT_EQ(viRngUniform(0, s, 3000, r.data(), -5, 5), 0);
  EXPECT_EQ(kazGetMode(), set);
  tvx_kaz_thread_block()->mode = before;
}

TEST(Verbose, OneLinePerAcceptedCall) {
  const ChildResult child = run_in_child({{"TVX_VERBOSE", "1"}}, [] {
    *tvx_verbose_mode() = 1;
    Stream s(RUD_BRNG_MCG59, 1);
    double d[5];
    int i[5];
    unsigned u[10];
    std::printf("stream=%p d=%p i=%p u=%p\n", static_cast<void*>(s.s), static_cast<void*>(d),
                static_cast<void*>(i), static_cast<void*>(u));
    vdRngUniform(kFlag, s, 5, d, -1.5, 2.0);
    viRngUniform(0, s, 5, i, -3, 3);
    viRngUniformBits32(0, s, 5, u);
    vdRngUniform(0, s, 5, d, 2.0, 1.0);  // refused: no line
    return 0;
  });
  ASSERT_EQ(child.exit_code, 0);
  char stream[32], d[32], i[32], u[32];
  const auto at = child.out.find("stream=");
  ASSERT_NE(at, std::string::npos) << child.out;
  ASSERT_EQ(
      std::sscanf(child.out.c_str() + at, "stream=%31s d=%31s i=%31s u=%31s", stream, d, i, u), 4);
  const std::string s = stream;
  for (const std::string& line :
       {"TVX_VERBOSE vdRngUniform(1073741824," + s + ",5," + d + ",-1.500000,2.000000)",
        "TVX_VERBOSE viRngUniform(0," + s + ",5," + i + ",-3,3)",
        "TVX_VERBOSE viRngUniformBits32(0," + s + ",5," + u + ")"}) {
    EXPECT_NE(child.out.find(line), std::string::npos) << line << "\n" << child.out;
  }
  EXPECT_EQ(child.out.find("2.000000,1.000000"), std::string::npos) << child.out;
}

}  // namespace
}  // namespace tvx::test
