// The distribution frame and the uniform family: every check of the frame with its position and
// status, the same values on every copy and for every cut of a request, the accurate form, the
// integer floor, the bit forms against the generators' words, and goodness of fit.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
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

#include "random/distributions/frame.h"
#include "random/distributions/kernel_rows.h"
#include "random/rng_copies.h"
#include "runtime/cpu_type.h"
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
  // For an export that calls vector kernels: the first kernel a method needs that this build
  // lacks, or null. Such exports are checked for values by the Law table below.
  const char* (*kernels)(int method) = nullptr;
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

namespace kr = ::tvx::dist::rows;
using ::tvx::dist::first_missing;
// The kernels of a chain, as the first of them this build lacks.
#define TVX_NEEDS(first, ...) \
  [](int) { return first_missing(kr::first __VA_OPT__(, ) __VA_ARGS__); }
#define TVX_GAUSS(t)                                                          \
  [](int m) {                                                                 \
    return m == 0   ? first_missing(kr::ln_##t, kr::sqrt_##t, kr::sin_##t)    \
           : m == 1 ? first_missing(kr::ln_##t, kr::sqrt_##t, kr::sincos_##t) \
                    : first_missing(kr::erfinv_##t);                          \
  }
#define TVX_LOGNORMAL(t)                                                                 \
  [](int m) {                                                                            \
    return m == 0 ? first_missing(kr::ln_##t, kr::sqrt_##t, kr::sincos_##t, kr::exp_##t) \
                  : first_missing(kr::erfinv_##t, kr::exp_##t);                          \
  }
// A row of an export with parameters (a, beta > 0), beta at position 6.
#define TVX_ROW2(E, tw, P, T, max, flag, needs)                                                  \
  {                                                                                              \
#E, sizeof(T), max, flag, TVX_CALL(E(m, s, n, P(r), T(kA), T(kB))),                            \
   [](int m, RudStreamPtr s, int n, void* r) {                                                    \
     const T a = T(kA), b = T(kB);                                                                \
     return tw(&m, &s, &n, P(r), &a, &b);                                                         \
   },                                                                                             \
   {{TVX_CALL(E(m, s, n, P(r), 0, 0)), 6}, {TVX_CALL(E(m, s, n, P(r), 5, -1)), 6}},               \
   {TVX_CALL(E(m, s, n, P(r), T(kNaN), 1)), TVX_CALL(E(m, s, n, P(r), 0, T(kNaN)))}, needs \
  }

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
      TVX_ROW2(vdRngGaussian, vdrnggaussian, D, double, 2, false, TVX_GAUSS(d)),
      TVX_ROW2(vsRngGaussian, vsrnggaussian, F, float, 2, false, TVX_GAUSS(s)),
      TVX_ROW2(vdRngExponential, vdrngexponential, D, double, 0, true, TVX_NEEDS(ln_d)),
      TVX_ROW2(vsRngExponential, vsrngexponential, F, float, 0, true, TVX_NEEDS(ln_s)),
      TVX_ROW2(vdRngRayleigh, vdrngrayleigh, D, double, 0, true, TVX_NEEDS(ln_d, kr::sqrt_d)),
      TVX_ROW2(vsRngRayleigh, vsrngrayleigh, F, float, 0, true, TVX_NEEDS(ln_s, kr::sqrt_s)),
      TVX_ROW2(vdRngCauchy, vdrngcauchy, D, double, 0, false, TVX_NEEDS(tan_d)),
      TVX_ROW2(vsRngCauchy, vsrngcauchy, F, float, 0, false, TVX_NEEDS(tan_s)),
      TVX_ROW2(vdRngGumbel, vdrnggumbel, D, double, 0, false, TVX_NEEDS(ln_d)),
      TVX_ROW2(vsRngGumbel, vsrnggumbel, F, float, 0, false, TVX_NEEDS(ln_s)),
      TVX_ROW2(vdRngLaplace, vdrnglaplace, D, double, 0, false, TVX_NEEDS(ln_d)),
      TVX_ROW2(vsRngLaplace, vsrnglaplace, F, float, 0, false, TVX_NEEDS(ln_s)),
      {"vdRngWeibull", 8, 0, true, TVX_CALL(vdRngWeibull(m, s, n, D(r), kB, kA, kB)),
       TVX_CALL(vdrngweibull(&m, &s, &n, D(r), &kB, &kA, &kB)),
       {{TVX_CALL(vdRngWeibull(m, s, n, D(r), 0, 0, 1)), 5}, {TVX_CALL(vdRngWeibull(m, s, n, D(r), 1, 0, 0)), 7},
        {TVX_CALL(vdRngWeibull(m, s, n, D(r), -1, 0, -1)), 5}},
       {TVX_CALL(vdRngWeibull(m, s, n, D(r), kNaN, 0, 1)), TVX_CALL(vdRngWeibull(m, s, n, D(r), 2, 0, kNaN))},
       TVX_NEEDS(ln_d, kr::powx_d)},
      {"vsRngWeibull", 4, 0, true, TVX_CALL(vsRngWeibull(m, s, n, F(r), kBs, kAs, kBs)),
       TVX_CALL(vsrngweibull(&m, &s, &n, F(r), &kBs, &kAs, &kBs)),
       {{TVX_CALL(vsRngWeibull(m, s, n, F(r), 1, 0, -2)), 7}},
       {TVX_CALL(vsRngWeibull(m, s, n, F(r), NAN, 0, 1))}, TVX_NEEDS(ln_s, kr::powx_s)},
      {"vdRngLognormal", 8, 1, true, TVX_CALL(vdRngLognormal(m, s, n, D(r), kA, kB, kA, kB)),
       TVX_CALL(vdrnglognormal(&m, &s, &n, D(r), &kA, &kB, &kA, &kB)),
       {{TVX_CALL(vdRngLognormal(m, s, n, D(r), 0, 0, 0, 1)), 6}, {TVX_CALL(vdRngLognormal(m, s, n, D(r), 0, 1, 0, 0)), 8},
        {TVX_CALL(vdRngLognormal(m, s, n, D(r), 0, -1, 0, -1)), 6}},
       {TVX_CALL(vdRngLognormal(m, s, n, D(r), kNaN, 1, 0, 1)), TVX_CALL(vdRngLognormal(m, s, n, D(r), 0, 1, 0, kNaN))},
       TVX_LOGNORMAL(d)},
      {"vsRngLognormal", 4, 1, true, TVX_CALL(vsRngLognormal(m, s, n, F(r), kAs, kBs, kAs, kBs)),
       TVX_CALL(vsrnglognormal(&m, &s, &n, F(r), &kAs, &kBs, &kAs, &kBs)),
       {{TVX_CALL(vsRngLognormal(m, s, n, F(r), 0, 1, 0, -1)), 8}},
       {TVX_CALL(vsRngLognormal(m, s, n, F(r), 0, NAN, 0, 1))}, TVX_LOGNORMAL(s)},
  };
  return table;
}
// clang-format on

class Frame : public CapturesReports {
 protected:
  // Runs one call and checks its status and the one report it made (position 0: none).
  void expect(const char* name, const char* what, int status, int position,
              const std::function<int()>& call) {
    SCOPED_TRACE(std::string(name) + ": " + what);
    reports().clear();
    EXPECT_EQ(call(), status);
    EXPECT_EQ(taken(),
              (position == 0 ? std::vector<Report>{} : std::vector<Report>{{name, position}}));
  }
};

// Every frame check of every export, in the order the frame makes them: each row is refused by
// its own check although every later argument is bad too.
TEST_F(Frame, ChecksInOrderWithPositionAndStatus) {
  Stream good(RUD_BRNG_MCG59, 7);
  alignas(128) unsigned char dead[64] = {};  // a record whose valid byte is 0
  std::vector<unsigned char> r(64 * 16, 0xCA);
  constexpr int kPast = -2;  // the first method past the export's column
  struct Step {
    const char* what;
    int method;
    RudStreamPtr s;
    int n;
    void* r;
    int status, position;
  };
  const Step steps[] = {
      {"negative method before the stream", -1, nullptr, -1, nullptr, RUD_ERROR_BAD_ARGS, 1},
      {"method word with bit 31", INT32_MIN | kFlag, good, 4, r.data(), RUD_ERROR_BAD_ARGS, 1},
      {"null stream", 0, nullptr, -1, nullptr, RUD_ERROR_NULL_PTR, 2},
      {"dead stream", 0, reinterpret_cast<RudStreamPtr>(dead), -1, nullptr,
       RUD_RNG_ERROR_BAD_STREAM, 2},
      {"negative n", kPast, good, -1, nullptr, RUD_ERROR_BAD_ARGS, 3},
      {"n = 0 looks at nothing more", kPast, good, 0, nullptr, 0, 0},
      {"null r", kPast, good, 4, nullptr, RUD_ERROR_BAD_ARGS, 4},
      {"method out of the column", kPast, good, 4, r.data(), RUD_ERROR_BAD_ARGS, 1},
  };
  for (const Export& e : exports()) {
    const Call& f = e.good;
    for (const Step& st : steps) {
      const int method = st.method == kPast ? e.max_method + 1 : st.method;
      expect(e.name, st.what, st.status, st.position, [&] { return f(method, st.s, st.n, st.r); });
    }
    // A call that reaches the variant function succeeds, or says that a kernel it needs is not in
    // this build.
    auto ran = [&](int method) {
      return e.kernels != nullptr && e.kernels(method) != nullptr ? RUD_ERROR_BAD_OPERATION : 0;
    };
    expect(e.name, "accuracy flag", e.flag ? ran(kFlag) : RUD_ERROR_BAD_ARGS, e.flag ? 0 : 1,
           [&] { return f(kFlag, good, 4, r.data()); });
    expect(e.name, "accepted", ran(e.max_method), 0,
           [&] { return f(e.max_method, good, 4, r.data()); });
    for (const auto& [call, position] : e.refused) {
      expect(e.name, "refused parameter", RUD_ERROR_BAD_ARGS, position,
             [&] { return call(0, good, 4, r.data()); });
      expect(e.name, "n = 0 with a refused parameter", 0, 0,
             [&] { return call(0, good, 0, nullptr); });
    }
    for (const Call& call : e.nan) {
      expect(e.name, "NaN parameter passes", ran(0), 0, [&] { return call(0, good, 4, r.data()); });
    }
    // The twin: the same values from a stream in the same state, and its own null pointers.
    Stream s1(RUD_BRNG_MCG59, 99), s2(RUD_BRNG_MCG59, 99);
    std::vector<unsigned char> x(8 * 100, 0xCA), y(8 * 100, 0xCA);
    expect(e.name, "export", ran(0), 0, [&] { return f(0, s1, 100, x.data()); });
    expect(e.name, "twin", ran(0), 0, [&] { return e.twin(0, s2, 100, y.data()); });
    EXPECT_EQ(x, y) << e.name;
  }
  int zero = 0, n = 4;
  double a = 0, b = 1;
  RudStreamPtr s = good;
  expect("vdRngUniform", "twin null method", RUD_ERROR_BAD_ARGS, 1,
         [&] { return vdrnguniform(nullptr, &s, &n, nullptr, &a, &b); });
  expect("vdRngUniform", "twin null stream", RUD_ERROR_NULL_PTR, 2,
         [&] { return vdrnguniform(&zero, nullptr, &n, nullptr, &a, &b); });
  expect("vdRngUniform", "twin null b", RUD_ERROR_BAD_ARGS, 6,
         [&] { return vdrnguniform(&zero, &s, &n, nullptr, &a, nullptr); });
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
    if (e.kernels != nullptr) continue;  // the Law table below
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
    if (e.kernels != nullptr) continue;  // values within the kernels' accuracy: the Law table
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

// viRngUniform is the floor of the double uniform on [a, b) from the same state; the kernel calls
// it makes leave the caller's mode word as it was.
TEST(Uniform, IntegersAreTheFloorOfTheDoubles) {
  constexpr int kN = 100000;
  const std::pair<int, int> ranges[] = {{-3, 3}, {0, 1}, {-1000000, 7}, {INT32_MIN, INT32_MAX}};
  const unsigned saved = kazGetMode();
  kazSetMode(KAZ_FLUSH_DENORMALS_ON | KAZ_LA | KAZ_ERRMODE_IGNORE);
  const unsigned mode = kazGetMode();
  for (int brng : kAllBrngs) {
    for (auto [a, b] : ranges) {
      SCOPED_TRACE(std::to_string(brng) + " [" + std::to_string(a) + ", " + std::to_string(b) +
                   ")");
      Stream s1(brng, 11), s2(brng, 11);
      std::vector<int> r(kN);
      std::vector<double> d(kN);
      ASSERT_EQ(viRngUniform(0, s1, kN, r.data(), a, b), 0);
      EXPECT_EQ(kazGetMode(), mode);
      ASSERT_EQ(vdRngUniform(0, s2, kN, d.data(), a, b), 0);
      for (int i = 0; i < kN; ++i) ASSERT_EQ(r[i], static_cast<int>(std::floor(d[i]))) << i;
      if (static_cast<long long>(b) - a == 6) {
        for (int v = a; v < b; ++v) EXPECT_GT(std::count(r.begin(), r.end(), v), kN / 8) << v;
      }
    }
  }
  tvx_kaz_thread_block()->mode = saved;
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

// ---- Kernel-based distributions: one table of laws, each with its distribution function ----
using Fn = int (*)(int method, RudStreamPtr s, int n, void* r);
using Calls = std::array<Fn, 6>;  // the export, then the copies sse2 .. avx512
#define TVX_FN(E, P, ...) \
  [](int m, RudStreamPtr s, int n, void* r) { return E(m, s, n, P(r), __VA_ARGS__); }
#define TVX_CALLS_OF(E, P, ...)                                                           \
  Calls {                                                                                 \
    TVX_FN(E, P, __VA_ARGS__), TVX_FN(rud_##E##_sse2, P, __VA_ARGS__),                    \
        TVX_FN(rud_##E##_sse2b, P, __VA_ARGS__), TVX_FN(rud_##E##_sse42, P, __VA_ARGS__), \
        TVX_FN(rud_##E##_avx2, P, __VA_ARGS__), TVX_FN(rud_##E##_avx512, P, __VA_ARGS__)  \
  }
#define TVX_CALLS(Name, ...) \
  (single ? TVX_CALLS_OF(vsRng##Name, F, __VA_ARGS__) : TVX_CALLS_OF(vdRng##Name, D, __VA_ARGS__))
#define TVX_KR1(t, a) kr::a##_##t
#define TVX_KR2(t, a, b) kr::a##_##t, kr::b##_##t
#define TVX_KR3(t, a, b, c) kr::a##_##t, kr::b##_##t, kr::c##_##t
#define TVX_KR4(t, a, b, c, d) kr::a##_##t, kr::b##_##t, kr::c##_##t, kr::d##_##t
#define TVX_KR_N(_1, _2, _3, _4, N, ...) N
#define TVX_KR(t, ...) TVX_KR_N(__VA_ARGS__, TVX_KR4, TVX_KR3, TVX_KR2, TVX_KR1)(t, __VA_ARGS__)
#define TVX_MISSING(...) \
  (single ? first_missing(TVX_KR(s, __VA_ARGS__)) : first_missing(TVX_KR(d, __VA_ARGS__)))

using Cdf = std::pair<double, double> (*)(double z);  // F and 1 - F of the standardised value

struct Law {
  std::string name;
  bool single;
  int method;
  Calls calls;
  const char* missing;  // a kernel this build lacks, or null
  double a, scale;      // standardised value z = (x - a) / scale
  Cdf cdf;
  double mean, var;  // NaN: no moments
  int per;           // uniforms per result; 0: kept pairs (one per result, pairs kept across calls)
  double at_zero;    // first result when the uniforms run 0, 0.25, 0, 0.25 ...; NaN: only finite
};

std::pair<double, double> normal_cdf(double z) {
  return {0.5 * std::erfc(-z / std::sqrt(2.0)), 0.5 * std::erfc(z / std::sqrt(2.0))};
}
std::pair<double, double> lognormal_cdf(double z) {  // z = (x - b) / beta; ln of it ~ N(0.2, 0.5)
  return z <= 0 ? std::pair{0.0, 1.0} : normal_cdf((std::log(z) - 0.2) / 0.5);
}
std::pair<double, double> weibull_cdf(double z, double alpha) {
  const double t = z <= 0 ? 0 : std::pow(z, alpha);
  return {-std::expm1(-t), std::exp(-t)};
}

const std::vector<Law>& laws() {
  static const std::vector<Law> table = [] {
    std::vector<Law> v;
    const double g = 0.5772156649015329, pi = 3.141592653589793;
    for (bool single : {false, true}) {
      const std::string t = single ? "s" : "d";
      const double lz = single ? -103.2789306640625 : -744.4400719213812;
      const double k = single ? 3.8325068950653076 : 5.8635847487551676;
      const Cdf normal = normal_cdf, lognormal = lognormal_cdf;
      const Calls gauss = TVX_CALLS(Gaussian, 1.5, 2.0);
      const double bm0 = 1.5 + 2 * std::sqrt(-2 * lz);
      v.push_back({t + "Gaussian_BoxMuller", single, 0, gauss, TVX_MISSING(ln, sqrt, sin), 1.5, 2,
                   normal, 1.5, 4, 2, bm0});
      v.push_back({t + "Gaussian_BoxMuller2", single, 1, gauss, TVX_MISSING(ln, sqrt, sincos), 1.5,
                   2, normal, 1.5, 4, 0, bm0});
      v.push_back({t + "Gaussian_ICDF", single, 2, gauss, TVX_MISSING(erfinv), 1.5, 2, normal, 1.5,
                   4, 1, 1.5 - k * 2 * std::sqrt(2.0)});
      const Calls logn = TVX_CALLS(Lognormal, 0.2, 0.5, -1.0, 2.0);
      const double lm = -1 + 2 * std::exp(0.2 + 0.125), lv = 4 * std::expm1(0.25) * std::exp(0.65);
      v.push_back({t + "Lognormal_BoxMuller2", single, 0, logn, TVX_MISSING(ln, sqrt, sincos, exp),
                   -1, 2, lognormal, lm, lv, 0, -1 + 2 * std::exp(0.2 + 0.5 * std::sqrt(-2 * lz))});
      for (int m : {1, 1 | kFlag}) {
        v.push_back({t + "Lognormal_ICDF" + (m == 1 ? "" : "_Accurate"), single, m, logn,
                     TVX_MISSING(erfinv, exp), -1, 2, lognormal, lm, lv, 1,
                     -1 + 2 * std::exp(0.2 - 0.5 * k * std::sqrt(2.0))});
      }
      const Cdf expo = [](double z) { return weibull_cdf(z, 1); };
      for (int m : {0, kFlag}) {
        const std::string acc = m == 0 ? "" : "_Accurate";
        v.push_back({t + "Exponential" + acc, single, m, TVX_CALLS(Exponential, -1.0, 3.0),
                     TVX_MISSING(ln), -1, 3, expo, 2, 9, 1, -1 - 3 * lz});
        v.push_back({t + "Rayleigh" + acc, single, m, TVX_CALLS(Rayleigh, 1.0, 2.0),
                     TVX_MISSING(ln, sqrt), 1, 2, [](double z) { return weibull_cdf(z, 2); },
                     1 + std::sqrt(pi), 4 * (1 - pi / 4), 1, 1 + 2 * std::sqrt(-lz)});
      }
      v.push_back({t + "Weibull", single, 0, TVX_CALLS(Weibull, 2.5, 0.5, 1.5),
                   TVX_MISSING(ln, powx), 0.5, 1.5, [](double z) { return weibull_cdf(z, 2.5); },
                   0.5 + 1.5 * std::tgamma(1.4),
                   2.25 * (std::tgamma(1.8) - std::tgamma(1.4) * std::tgamma(1.4)), 1,
                   0.5 + 1.5 * std::pow(-lz, 0.4)});
      v.push_back({t + "Weibull_Alpha1_Accurate", single, kFlag, TVX_CALLS(Weibull, 1.0, 0.5, 1.5),
                   TVX_MISSING(ln), 0.5, 1.5, expo, 2, 2.25, 1, 0.5 - 1.5 * lz});
      v.push_back({t + "Cauchy", single, 0, TVX_CALLS(Cauchy, 2.0, 0.5), TVX_MISSING(tan), 2, 0.5,
                   [](double z) {
                     return std::pair{0.5 + std::atan(z) / M_PI, 0.5 - std::atan(z) / M_PI};
                   },
                   kNaN, kNaN, 1, kNaN});
      v.push_back({t + "Gumbel", single, 0, TVX_CALLS(Gumbel, 1.0, 2.0), TVX_MISSING(ln), 1, 2,
                   [](double z) {
                     return std::pair{-std::expm1(-std::exp(z)), std::exp(-std::exp(z))};
                   },
                   1 - 2 * g, pi * pi * 4 / 6, 1, 1 + 2 * std::log(-lz)});
      v.push_back({t + "Laplace", single, 0, TVX_CALLS(Laplace, -0.5, 1.5), TVX_MISSING(ln), -0.5,
                   1.5,
                   [](double z) {
                     const double h = 0.5 * std::exp(-std::fabs(z));
                     return z < 0 ? std::pair{h, 1 - h} : std::pair{1 - h, h};
                   },
                   -0.5, 2 * 2.25, 2, -0.5 - 1.5 * lz});
    }
    return v;
  }();
  return table;
}

class Laws : public testing::TestWithParam<Law> {
 protected:
  void SetUp() override {
    if (GetParam().missing != nullptr) {
      GTEST_SKIP() << GetParam().name << ": kernel " << GetParam().missing
                   << " is not in this build (its row in functions.def has no kernels)";
    }
  }
  // n results of the law through calls[which], as doubles, cut into calls of the sizes in `cuts`.
  std::vector<double> values(RudStreamPtr s, int n, std::vector<int> cuts = {}, int which = 0) {
    const Law& law = GetParam();
    if (cuts.empty()) cuts = {n};
    std::vector<double> d(static_cast<std::size_t>(n));
    std::vector<float> f(law.single ? d.size() : 0);
    for (int done = 0, k = 0; done < n; ++k) {
      const int m = std::min(cuts[static_cast<std::size_t>(k) % cuts.size()], n - done);
      void* r = law.single ? static_cast<void*>(f.data() + done) : d.data() + done;
      EXPECT_EQ(law.calls[static_cast<std::size_t>(which)](law.method, s, m, r), 0);
      done += m;
    }
    if (law.single) std::copy(f.begin(), f.end(), d.begin());
    return d;
  }
};

std::string law_name(const testing::TestParamInfo<Law>& info) {
  return info.param.name;
}
void PrintTo(const Law& law, std::ostream* os) {
  *os << law.name;
}

// 10^6 values at a fixed seed against the exact distribution function: both tests at 10^-4,
// mean and variance within 5 standard errors.
TEST_P(Laws, GoodnessOfFit) {
  const Law& law = GetParam();
  constexpr int kN = 1000000;
  Stream s(RUD_BRNG_MRG32K3A, 20240611);
  std::vector<double> x = values(s, kN);
  double sum = 0, sum2 = 0, sum4 = 0;
  for (double v : x) sum += v;
  const double mean = sum / kN;
  for (double v : x) {
    const double d = v - law.mean;
    sum2 += d * d;
    sum4 += d * d * d * d;
  }
  std::sort(x.begin(), x.end());
  std::vector<double> lf(kN), ls(kN);
  double dmax = 0;
  for (int i = 0; i < kN; ++i) {
    const auto [f, sf] = law.cdf((x[i] - law.a) / law.scale);
    dmax = std::max({dmax, f - double(i) / kN, double(i + 1) / kN - f});
    lf[i] = std::log(std::max(f, 1e-300));
    ls[i] = std::log(std::max(sf, 1e-300));
  }
  double ad = 0;
  for (int i = 0; i < kN; ++i) ad += (2.0 * i + 1) * (lf[i] + ls[kN - 1 - i]);
  ad = -kN - ad / kN;
  // Upper 10^-4 points of the limit laws of sqrt(n) D (Kolmogorov) and of A^2 (Marsaglia and
  // Marsaglia's approximation of the Anderson-Darling limit law).
  const double ks = std::sqrt(double(kN)) * dmax;
  std::printf("%s: sqrt(n) D = %.3f, A2 = %.3f\n", law.name.c_str(), ks, ad);
  EXPECT_LT(ks, 2.23);
  EXPECT_LT(ad, 8.09);
  if (std::isnan(law.mean)) return;  // Cauchy: no moments
  EXPECT_LT(std::fabs(mean - law.mean), 5 * std::sqrt(law.var / kN));
  const double var = sum2 / kN;
  EXPECT_LT(std::fabs(var - law.var), 5 * std::sqrt((sum4 / kN - var * var) / kN));
}

// The same values for any cut of a request (odd cuts split kept pairs), and the stream where it
// would be after one call; every copy that runs here gives the values within its kernels'
// accuracy and consumes the same uniforms.
TEST_P(Laws, AnyCutAndEveryCopy) {
  const Law& law = GetParam();
  auto next = [](RudStreamPtr s) {
    std::vector<double> u(4);
    EXPECT_EQ(vdRngUniform(0, s, 4, u.data(), 0, 1), 0);
    return u;
  };
  constexpr int kN = 1000000;
  Stream s1(RUD_BRNG_MCG59, 77), s2(RUD_BRNG_MCG59, 77);
  EXPECT_TRUE(values(s1, kN) == values(s2, kN, {1, 7, 1000}));
  EXPECT_EQ(next(s1), next(s2));
  constexpr int kCopyN = 100003;
  const double tol = law.single ? 0x1p-14 : 0x1p-20;
  Stream ref(RUD_BRNG_MCG59, 78);
  const std::vector<double> want = values(ref, kCopyN);
  const std::vector<double> after = next(ref);
  for (const Copy& c : all_copies()) {
    if (const char* missing = lacks(c)) {
      std::printf("copy %s skipped: CPU lacks %s\n", c.name, missing);
      continue;
    }
    Stream s(RUD_BRNG_MCG59, 78);
    const std::vector<double> got = values(s, kCopyN, {kCopyN}, c.index + 1);
    for (int i = 0; i < kCopyN; ++i) {
      ASSERT_LE(std::fabs(got[i] - want[i]),
                tol * (std::fabs(want[i]) + std::fabs(law.a) + law.scale))
          << c.name << " result " << i << ": " << got[i] << " against " << want[i];
    }
    EXPECT_EQ(next(s), after) << c.name;
  }
}

// ---- A registered generator that plays a script of uniforms and counts them ----
struct Script {
  std::vector<double> u;   // played in a loop; empty: a fixed pseudo-random sequence
  long long fail_at = -1;  // draw number at which the generator fails
};
Script& script() {
  static Script s;
  return s;
}
long long& draws(RudStreamPtr s) {
  return *rud::state<long long>(s);
}
template <class T>
int scripted(RudStreamPtr s, int n, T r[], T a, T b) {
  for (int i = 0; i < n; ++i, ++draws(s)) {
    const long long k = draws(s);
    if (k == script().fail_at) return RUD_RNG_ERROR_NO_NUMBERS;
    const double u = script().u.empty() ? double((k * 0x9E3779B97F4A7C15ull) >> 11) * 0x1p-53
                                        : script().u[std::size_t(k) % script().u.size()];
    r[i] = T(a + (b - a) * u);
  }
  return 0;
}
int scripted_init(int, RudStreamPtr s, int, const void*) {
  draws(s) = 0;
  return 0;
}
int scripted_bits(RudStreamPtr, int, unsigned int[]) {
  return RUD_ERROR_BAD_OPERATION;
}
int scripted_brng() {
  static const RudBrngProperties row = {
      24, 1, 1, 4, 32, scripted_init, scripted<float>, scripted<double>, scripted_bits};
  static const int brng = rudRegisterBrng(&row);
  return brng;
}

// Uniforms taken per call: whole rounds, a round's tail and an odd count; kept pairs owe their
// second value to the next call, which then draws nothing for it.
TEST_P(Laws, UniformsConsumed) {
  const Law& law = GetParam();
  script() = {};
  for (int n : {1000, 1025, 2051}) {
    Stream s(scripted_brng(), 1);
    values(s, n);
    const long long want = law.per > 0 ? static_cast<long long>(law.per) * n : n + n % 2;
    EXPECT_EQ(draws(s), want) << "n = " << n;
    values(s, 1);
    EXPECT_EQ(draws(s), want + (law.per > 0 ? law.per : n % 2 ? 0 : 2)) << "then n = 1";
  }
}

int g_caller_calls = 0;
int caller_callback(kaz_error_record*) {
  ++g_caller_calls;
  return 0;
}

// A uniform of 0 gives a finite value (the logarithm of 0 is replaced inside), with no error
// reaching the caller; the caller's mode word and callback are back after the call, also when
// the generator fails half-way.
TEST_P(Laws, ZeroUniformAndCallerState) {
  const Law& law = GetParam();
  script() = {{0.0, 0.25}};
  const unsigned saved = kazGetMode();
  kazSetErrorCallBack(caller_callback);
  kazSetMode(KAZ_LA | KAZ_ERRMODE_ERRNO | KAZ_ERRMODE_CALLBACK | KAZ_FLUSH_DENORMALS_ON);
  const unsigned mode = kazGetMode();
  g_caller_calls = 0;
  errno = 0;
  Stream s(scripted_brng(), 1);
  const std::vector<double> x = values(s, 8);
  for (double v : x) EXPECT_TRUE(std::isfinite(v)) << v;
  if (!std::isnan(law.at_zero)) {
    EXPECT_NEAR(x[0], law.at_zero, 1e-5 * std::fabs(law.at_zero));
  }
  EXPECT_EQ(g_caller_calls, 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(kazGetMode(), mode);
  EXPECT_EQ(kazGetErrorCallBack(), &caller_callback);
  script().fail_at = 1500;
  Stream f(scripted_brng(), 1);
  std::vector<double> r(4000);
  EXPECT_EQ(law.calls[0](law.method, f, 4000, r.data()), RUD_RNG_ERROR_NO_NUMBERS);
  EXPECT_EQ(kazGetMode(), mode);
  EXPECT_EQ(kazGetErrorCallBack(), &caller_callback);
  kazClearErrorCallBack();
  tvx_kaz_thread_block()->mode = saved;
}

INSTANTIATE_TEST_SUITE_P(Continuous, Laws, testing::ValuesIn(laws()), law_name);

// The kept pair: its block (tag 2 for double, 1 for single, u1 and u2 of the pair) goes with the
// stream into copies and saved images, and each continues as the original.
TEST(KeptPair, FollowsTheStreamIntoCopiesAndImages) {
  for (const Law& law : laws()) {
    if (law.per != 0 || law.method != 1) continue;
    SCOPED_TRACE(law.name);
    if (law.missing != nullptr) {
      std::printf("%s skipped: kernel %s is not in this build\n", law.name.c_str(), law.missing);
      continue;
    }
    const std::size_t bytes = law.single ? 4 : 8;
    auto run = [&](RudStreamPtr s, int n) {
      std::vector<unsigned char> r(bytes * n);
      EXPECT_EQ(law.calls[0](1, s, n, r.data()), 0);
      return r;
    };
    script() = {{0.125, 0.375, 0.625, 0.875}};
    Stream s(scripted_brng(), 1), whole(scripted_brng(), 1);
    std::vector<unsigned char> first = run(s, 3);
    const int size = rudGetStreamSize(s);
    EXPECT_EQ(size, 24 + 8 + 24 + static_cast<int>(2 * bytes));
    std::vector<char> image(static_cast<std::size_t>(size));
    ASSERT_EQ(rudSaveStreamM(s, image.data()), 0);
    RudStreamPtr copy = nullptr, loaded = nullptr;
    ASSERT_EQ(rudCopyStream(&copy, s), 0);
    ASSERT_EQ(rudLoadStreamM(&loaded, image.data()), 0);
    // The image holds the pair that the last call cut: draws 2 and 3, scaled to [0, 1).
    const char* tail = image.data() + size - 2 * bytes;
    double kept[2];
    for (int i = 0; i < 2; ++i) {
      float f;
      std::memcpy(law.single ? static_cast<void*>(&f) : &kept[i], tail + i * bytes, bytes);
      if (law.single) kept[i] = f;
    }
    EXPECT_EQ(kept[0], 0.625);
    EXPECT_EQ(kept[1], 0.875);
    const std::vector<unsigned char> rest = run(s, 5);
    first.insert(first.end(), rest.begin(), rest.end());
    EXPECT_TRUE(run(whole, 8) == first);
    EXPECT_TRUE(run(copy, 5) == rest);
    EXPECT_TRUE(run(loaded, 5) == rest);
    rudDeleteStream(&copy);
    rudDeleteStream(&loaded);
  }
}

// Weibull with alpha 1 takes no power and gives the Exponential values; Lognormal's method 1 and
// its accurate form (also the flag alone) take the inverse CDF and agree where no value is below b.
TEST(Paths, SharedChainsGiveTheSameValues) {
  constexpr int kN = 5000;
  std::vector<double> x(kN), y(kN), z(kN);
  if (!kr::ln_d.built()) {
    std::printf("Weibull against Exponential skipped: kernel vdLn is not in this build\n");
  } else {
    Stream s1(RUD_BRNG_MCG59, 9), s2(RUD_BRNG_MCG59, 9);
    ASSERT_EQ(vdRngWeibull(0, s1, kN, x.data(), 1.0, 0.5, 1.5), 0);
    ASSERT_EQ(vdRngExponential(0, s2, kN, y.data(), 0.5, 1.5), 0);
    EXPECT_EQ(x, y);
  }
  if (const char* missing = first_missing(kr::erfinv_d, kr::exp_d)) {
    std::printf("Lognormal paths skipped: kernel %s is not in this build\n", missing);
    return;
  }
  Stream s1(RUD_BRNG_MCG59, 9), s2(RUD_BRNG_MCG59, 9), s3(RUD_BRNG_MCG59, 9);
  ASSERT_EQ(vdRngLognormal(1, s1, kN, x.data(), 0.2, 0.5, -1, 2), 0);
  ASSERT_EQ(vdRngLognormal(kFlag, s2, kN, y.data(), 0.2, 0.5, -1, 2), 0);
  ASSERT_EQ(vdRngLognormal(1 | kFlag, s3, kN, z.data(), 0.2, 0.5, -1, 2), 0);
  EXPECT_EQ(x, y);
  EXPECT_EQ(x, z);
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
