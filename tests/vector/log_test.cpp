// Ln, Log10 and Log1p kernels on every variant and accuracy: accuracy against MPFR, special
// values and statuses, tails, the denormal mode, the no-error mode and the exported forms.
#include <gtest/gtest.h>
#include <mpfr.h>

#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "support/mpfr_ulp.h"
#include "support/variants.h"
#include "vector/frame/rows.h"

namespace {

using tvx::test::Variant;

enum Func { kLn, kLog10, kLog1p };
constexpr Func kFuncs[] = {kLn, kLog10, kLog1p};
constexpr const char* kFuncName[] = {"Ln", "Log10", "Log1p"};
constexpr tvx::test::MpfrUnary kMpfr[] = {mpfr_log, mpfr_log10, mpfr_log1p};
constexpr int kLevels[] = {1, 2, 3};  // LA, HA, EP
constexpr const char* kLevelName[] = {"", "LA", "HA", "EP"};

template <class T>
using Kernel = void (*)(int, const T*, T*);

Kernel<double> kernel_of(Func f, int slot, double*) {
  switch (f) {
    case kLn:
      return tvx_row_ln_d.kernels[slot];
    case kLog10:
      return tvx_row_log10_d.kernels[slot];
    default:
      return tvx_row_log1p_d.kernels[slot];
  }
}
Kernel<float> kernel_of(Func f, int slot, float*) {
  switch (f) {
    case kLn:
      return tvx_row_ln_s.kernels[slot];
    case kLog10:
      return tvx_row_log10_s.kernels[slot];
    default:
      return tvx_row_log1p_s.kernels[slot];
  }
}
template <class T>
Kernel<T> kernel(Func f, int variant, int level) {
  return kernel_of(f, tvx::test::slot(variant, level), static_cast<T*>(nullptr));
}

// Runs a kernel on a copy of x into an output prefilled with the marker byte.
template <class T>
std::vector<T> run(Kernel<T> k, const std::vector<T>& x) {
  std::vector<T> y(x.size());
  std::memset(y.data(), 0xCA, y.size() * sizeof(T));
  k(static_cast<int>(x.size()), x.data(), y.data());
  return y;
}

template <class T>
bool same_bits(T a, T b) {
  return std::memcmp(&a, &b, sizeof(T)) == 0 || (std::isnan(a) && std::isnan(b));
}

// Sets fields of the thread's mode word for a scope; restores them on exit (the denormal field
// explicitly, since a merge cannot clear it).
class ModeScope {
 public:
  explicit ModeScope(unsigned mode) : old_(kazSetMode(mode)) {}
  ~ModeScope() {
    unsigned back = old_;
    if ((back & KAZ_FTZDAZ_MASK) == 0) back |= KAZ_FLUSH_DENORMALS_OFF;
    kazSetMode(back);
  }
  ModeScope(const ModeScope&) = delete;
  ModeScope& operator=(const ModeScope&) = delete;

 private:
  unsigned old_;
};

// ---- inputs -------------------------------------------------------------------------------------
template <class T>
struct Bits;
template <>
struct Bits<double> {
  using U = std::uint64_t;
  static constexpr U kExpMask = 0x7FF0000000000000ull;
  static constexpr U kMantMask = 0x000FFFFFFFFFFFFFull;
  static constexpr int kDigits = 53;
};
template <>
struct Bits<float> {
  using U = std::uint32_t;
  static constexpr U kExpMask = 0x7F800000u;
  static constexpr U kMantMask = 0x007FFFFFu;
  static constexpr int kDigits = 24;
};

template <class T>
T from_bits(typename Bits<T>::U u) {
  T t;
  std::memcpy(&t, &u, sizeof t);
  return t;
}

// Positive finite values spread over all binades, subnormals, values near 1 at every scale,
// the largest values, and for Log1p the whole of (-1, 0) with the neighbourhoods of -1 and 0.
template <class T>
std::vector<T> accuracy_inputs(Func f, unsigned seed) {
  using B = Bits<T>;
  using U = typename B::U;
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  std::vector<T> x;
  auto random_positive = [&]() {
    U u;
    do {
      u = static_cast<U>(rng()) & (B::kExpMask | B::kMantMask);
    } while ((u & B::kExpMask) == B::kExpMask || (u & B::kExpMask) == 0);
    return from_bits<T>(u);
  };
  for (int i = 0; i < 3000; ++i) x.push_back(random_positive());
  for (int i = 0; i < 300; ++i) x.push_back(from_bits<T>(static_cast<U>(rng()) & B::kMantMask));
  for (int k = 1; k < B::kDigits + 4; ++k) {
    for (int i = 0; i < 40; ++i) x.push_back(static_cast<T>(1.0 + std::ldexp(unit(rng), -k)));
  }
  for (int i = 0; i < 100; ++i) {
    x.push_back(from_bits<T>(static_cast<U>(B::kExpMask - 1 - (rng() % 100000))));
  }
  // Ends of the reduction intervals, where k ln 2 + log1p(r) cancels most.
  for (double p : {4.0 / 3, 2.0 / 3, 8.0 / 3, std::sqrt(2.0), std::sqrt(0.5), 1.5, 0.75}) {
    for (int k = 1; k < B::kDigits; ++k) {
      for (int i = 0; i < 8; ++i)
        x.push_back(static_cast<T>(p * (1.0 + std::ldexp(unit(rng), -k))));
    }
  }
  for (T v : {T(0.5), T(2), T(10), T(1000), T(1e-3), T(0.75)}) x.push_back(v);
  if (f == kLog1p) {
    for (int i = 0; i < 1500; ++i) x.push_back(static_cast<T>(-std::abs(unit(rng))));
    for (int k = 1; k < B::kDigits; ++k) {
      for (int i = 0; i < 20; ++i) {
        x.push_back(static_cast<T>(-1.0 + std::ldexp(std::abs(unit(rng)) + 0.01, -k)));
        x.push_back(static_cast<T>(std::ldexp(unit(rng), -k - 1)));
      }
    }
    for (int i = 0; i < 100; ++i) x.push_back(-from_bits<T>(static_cast<U>(rng()) & B::kMantMask));
  }
  std::vector<T> kept;
  for (T v : x) {
    if (f == kLog1p ? v > T(-1) : v > T(0)) kept.push_back(v);
  }
  return kept;
}

// ---- accuracy
// ------------------------------------------------------------------------------------ HA under 1
// ulp, LA under 4 ulps, EP at least 26 (double) or 11 (single) correct bits.
template <class T>
bool meets_goal(int level, double ulps) {
  if (level == 2) return ulps < 1.0;
  if (level == 1) return ulps < 4.0;
  return tvx::test::correct_bits<T>(ulps) >= (sizeof(T) == 8 ? 26.0 : 11.0);
}

class LogVariant : public testing::TestWithParam<Variant> {};

struct Worst {
  double ulps = 0;
  double x = 0;
  double y = 0;
};

template <class T>
void check_accuracy(const Variant& v) {
  for (Func f : kFuncs) {
    const std::vector<T> x = accuracy_inputs<T>(f, 1234u + f);
    for (int level : kLevels) {
      const std::vector<T> y = run(kernel<T>(f, v.index, level), x);
      Worst w;
      for (std::size_t i = 0; i < x.size(); ++i) {
        const double e = tvx::test::ulp_error<T>(kMpfr[f], x[i], y[i]);
        if (!(e <= w.ulps)) w = {e, static_cast<double>(x[i]), static_cast<double>(y[i])};
      }
      const std::string cell = std::string(sizeof(T) == 8 ? "vd" : "vs") + kFuncName[f] + " " +
                               kLevelName[level] + " on " + v.name;
      const std::string where = " worst at x = " + std::to_string(w.x) + " (" +
                                std::to_string(w.ulps) + " ulp, result " + std::to_string(w.y) +
                                ")";
      EXPECT_TRUE(meets_goal<T>(level, w.ulps)) << cell << where;
    }
  }
}

TEST_P(LogVariant, DoubleAccuracyMeetsTheLevelGoals) {
  TVX_SKIP_IF_CPU_LACKS(GetParam());
  check_accuracy<double>(GetParam());
}

TEST_P(LogVariant, SingleAccuracyMeetsTheLevelGoals) {
  TVX_SKIP_IF_CPU_LACKS(GetParam());
  check_accuracy<float>(GetParam());
}

// ---- special values and statuses ----------------------------------------------------------------
struct Special {
  Func f;
  double x;
  double want;
  int status;
};

template <class T>
void check_specials(const Variant& v) {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Special cases[] = {
      {kLn, 1.0, 0.0, 0},          {kLn, 0.0, -inf, 2},    {kLn, -0.0, -inf, 2},
      {kLn, -1.0, nan, 1},         {kLn, -inf, nan, 1},    {kLn, inf, inf, 0},
      {kLn, nan, nan, 0},          {kLog10, 1.0, 0.0, 0},  {kLog10, 0.0, -inf, 2},
      {kLog10, -0.0, -inf, 2},     {kLog10, -3.0, nan, 1}, {kLog10, inf, inf, 0},
      {kLog10, nan, nan, 0},       {kLog1p, 0.0, 0.0, 0},  {kLog1p, -0.0, -0.0, 0},
      {kLog1p, -1.0, -inf, 2},     {kLog1p, -2.0, nan, 1}, {kLog1p, -inf, nan, 1},
      {kLog1p, inf, inf, 0},       {kLog1p, nan, nan, 0},  {kLog1p, 1e-30, 1e-30, 0},
      {kLog1p, -1e-30, -1e-30, 0},
  };
  ModeScope mode(KAZ_ERRMODE_IGNORE);
  for (const Special& c : cases) {
    for (int level : kLevels) {
      // The special element sits inside a block and again in the tail.
      std::vector<T> x(37, T(2));
      x[3] = static_cast<T>(c.x);
      x[36] = static_cast<T>(c.x);
      kazSetErrStatus(0);
      const std::vector<T> y = run(kernel<T>(c.f, v.index, level), x);
      const std::string what = std::string(kFuncName[c.f]) + "(" + std::to_string(c.x) + ") " +
                               kLevelName[level] + " on " + v.name;
      for (int i : {3, 36}) {
        EXPECT_TRUE(same_bits(y[i], static_cast<T>(c.want))) << what << " gave " << y[i];
      }
      EXPECT_EQ(kazGetErrStatus(), c.status) << what;
      const T two = run(kernel<T>(c.f, v.index, level), {T(2)})[0];
      EXPECT_TRUE(same_bits(y[0], two) && same_bits(y[35], two)) << what << ": neighbours";
    }
  }
  // Results that must come out exact at HA.
  for (int k = -5; k <= 15; ++k) {
    if (sizeof(T) == 4 && k > 10) break;
    const std::vector<T> y =
        run(kernel<T>(kLog10, v.index, 2), {static_cast<T>(std::pow(10.0, k))});
    if (k >= 0) {
      EXPECT_EQ(y[0], static_cast<T>(k)) << "Log10(1e" << k << ") on " << v.name;
    }
  }
}

TEST_P(LogVariant, SpecialValuesAndStatuses) {
  TVX_SKIP_IF_CPU_LACKS(GetParam());
  check_specials<double>(GetParam());
  check_specials<float>(GetParam());
}

// ---- tails --------------------------------------------------------------------------------------
template <class T>
void check_tails(const Variant& v) {
  std::vector<T> x;
  for (int i = 0; i < 71; ++i) x.push_back(static_cast<T>(0.3 + 0.731 * i));
  for (Func f : kFuncs) {
    for (int level : kLevels) {
      const Kernel<T> k = kernel<T>(f, v.index, level);
      const std::vector<T> whole = run(k, x);
      for (std::size_t n = 1; n <= x.size(); n += 7) {
        // The last element of a call of length n stands in a tail for most n.
        std::vector<T> head(x.begin(), x.begin() + static_cast<long>(n));
        const std::vector<T> y = run(k, head);
        EXPECT_TRUE(same_bits(y.back(), whole[n - 1]))
            << kFuncName[f] << " " << kLevelName[level] << " on " << v.name << " n = " << n;
      }
    }
  }
}

TEST_P(LogVariant, TailElementsMatchBlockElements) {
  TVX_SKIP_IF_CPU_LACKS(GetParam());
  check_tails<double>(GetParam());
  check_tails<float>(GetParam());
}

// ---- denormal mode ------------------------------------------------------------------------------
template <class T>
void check_flush(const Variant& v) {
  const T den = std::numeric_limits<T>::denorm_min() * 1000;
  for (int level : kLevels) {
    for (bool flush : {false, true}) {
      ModeScope mode(KAZ_ERRMODE_IGNORE |
                     (flush ? KAZ_FLUSH_DENORMALS_ON : KAZ_FLUSH_DENORMALS_OFF));
      const std::vector<T> x = {den, T(2), -den, den,  T(3), T(4), T(5), T(6), T(7),
                                den, T(2), T(3), T(4), T(5), T(6), T(7), T(8), -den};
      const std::string what = std::string(kLevelName[level]) + " on " + v.name +
                               (flush ? " flushing" : " not flushing");
      kazSetErrStatus(0);
      const std::vector<T> ln = run(kernel<T>(kLn, v.index, level), x);
      const std::vector<T> l10 = run(kernel<T>(kLog10, v.index, level), x);
      const std::vector<T> l1p = run(kernel<T>(kLog1p, v.index, level), x);
      for (std::size_t i = 0; i < x.size(); ++i) {
        if (x[i] > 1) {
          EXPECT_TRUE(meets_goal<T>(level, tvx::test::ulp_error<T>(mpfr_log, x[i], ln[i]))) << what;
          continue;
        }
        const bool neg = x[i] < 0;
        if (flush) {
          EXPECT_TRUE(std::isinf(ln[i]) && ln[i] < 0) << what << " ln " << ln[i];
          EXPECT_TRUE(std::isinf(l10[i]) && l10[i] < 0) << what << " log10 " << l10[i];
          EXPECT_TRUE(l1p[i] == 0 && std::signbit(l1p[i]) == neg) << what << " log1p " << l1p[i];
        } else {
          EXPECT_EQ(std::isnan(ln[i]), neg) << what;
          if (!neg) {
            EXPECT_TRUE(meets_goal<T>(level, tvx::test::ulp_error<T>(mpfr_log, x[i], ln[i])))
                << what;
            EXPECT_TRUE(meets_goal<T>(level, tvx::test::ulp_error<T>(mpfr_log10, x[i], l10[i])))
                << what;
          }
          EXPECT_EQ(l1p[i], x[i]) << what;
        }
      }
      // A flushed negative denormal reads as -0: a singularity, not a domain error.
      EXPECT_EQ(kazGetErrStatus(), flush ? KAZ_STATUS_SING : KAZ_STATUS_ERRDOM) << what;
    }
  }
}

TEST_P(LogVariant, DenormalArgumentsReadAsZeroWhenFlushing) {
  TVX_SKIP_IF_CPU_LACKS(GetParam());
  check_flush<double>(GetParam());
  check_flush<float>(GetParam());
}

// ---- error modes --------------------------------------------------------------------------------
int g_calls = 0;
int g_last_index = -1;
int rewrite(kaz_error_record* rec) {
  ++g_calls;
  g_last_index = rec->index;
  rec->r1 = 42.0;
  return 0;
}

template <class T>
void check_error_modes(const Variant& v) {
  const T inf = std::numeric_limits<T>::infinity();
  std::vector<T> x(29, T(3));
  x[7] = T(0);
  x[26] = T(-5);
  std::vector<T> x1p = x;
  x1p[7] = T(-1);
  for (int level : kLevels) {
    const std::string what = std::string(kLevelName[level]) + " on " + v.name;
    {
      // The callback sees every bad element and its rewrite stands.
      ModeScope mode(KAZ_ERRMODE_CALLBACK);
      kazSetErrorCallBack(rewrite);
      g_calls = 0;
      const std::vector<T> y = run(kernel<T>(kLn, v.index, level), x);
      EXPECT_EQ(g_calls, 2) << what;
      EXPECT_EQ(g_last_index, 26) << what;
      EXPECT_EQ(y[7], T(42)) << what;
      EXPECT_EQ(y[26], T(42)) << what;
      kazClearErrorCallBack();
    }
    {
      // No reports at all: the status stays, the values are still right.
      kazSetErrorCallBack(rewrite);
      ModeScope mode(KAZ_ERRMODE_NOERR);
      g_calls = 0;
      kazSetErrStatus(0);
      for (Func f : kFuncs) {
        const std::vector<T> y = run(kernel<T>(f, v.index, level), f == kLog1p ? x1p : x);
        EXPECT_EQ(y[7], -inf) << kFuncName[f] << " " << what;
        EXPECT_TRUE(std::isnan(y[26])) << kFuncName[f] << " " << what;
      }
      EXPECT_EQ(g_calls, 0) << what;
      EXPECT_EQ(kazGetErrStatus(), 0) << what;
      kazClearErrorCallBack();
    }
  }
}

TEST_P(LogVariant, CallbackAndNoErrorModes) {
  TVX_SKIP_IF_CPU_LACKS(GetParam());
  check_error_modes<double>(GetParam());
  check_error_modes<float>(GetParam());
}

// ---- bad lanes scattered over long blocks -------------------------------------------------------
// Several registers go through the loop together and share one mask test; every bad element of
// such a block must still reach its callout, in ascending order, and the good elements beside
// it keep the bits they have in a clean vector.
std::vector<int> g_reported;
int record(kaz_error_record* rec) {
  g_reported.push_back(rec->index);
  return 0;
}

template <class T>
void check_scattered_bad_lanes(const Variant& v) {
  const T inf = std::numeric_limits<T>::infinity();
  const T nan = std::numeric_limits<T>::quiet_NaN();
  std::vector<T> clean;
  for (int i = 0; i < 203; ++i) clean.push_back(static_cast<T>(0.01 + 0.37 * i));
  // Two bad elements in one register, bad elements in the second and later registers of the
  // first blocks, one at the very end; zero and negatives report, the others do not.
  struct Bad {
    int at;
    T x;
  };
  const Bad bads[] = {{0, T(0)},  {5, T(-2)},    {6, nan},       {9, T(0)}, {17, inf},
                      {24, -inf}, {31, T(-0.0)}, {40, T(-1e-3)}, {63, nan}, {202, T(0)}};
  const std::vector<int> want_reported = {0, 5, 9, 24, 31, 40, 202};
  std::vector<T> x = clean;
  for (const Bad& b : bads) x[b.at] = b.x;
  ModeScope mode(KAZ_ERRMODE_CALLBACK);
  kazSetErrorCallBack(record);
  for (Func f : {kLn, kLog10}) {
    for (int level : kLevels) {
      const std::string what =
          std::string(kFuncName[f]) + " " + kLevelName[level] + " on " + v.name;
      const Kernel<T> k = kernel<T>(f, v.index, level);
      const std::vector<T> good = run(k, clean);
      g_reported.clear();
      const std::vector<T> y = run(k, x);
      EXPECT_EQ(g_reported, want_reported) << what;
      std::size_t b = 0;
      for (int i = 0; i < static_cast<int>(x.size()); ++i) {
        if (b < std::size(bads) && bads[b].at == i) {
          const T xi = bads[b++].x;
          const bool ok = xi == T(0) ? y[i] == -inf : xi == inf ? y[i] == inf : std::isnan(y[i]);
          EXPECT_TRUE(ok) << what << ": element " << i << " gave " << y[i];
        } else {
          EXPECT_TRUE(same_bits(y[i], good[i])) << what << ": element " << i;
        }
      }
    }
  }
  kazClearErrorCallBack();
}

TEST_P(LogVariant, BadLanesAnywhereInABlockReachTheirCallouts) {
  TVX_SKIP_IF_CPU_LACKS(GetParam());
  check_scattered_bad_lanes<double>(GetParam());
  check_scattered_bad_lanes<float>(GetParam());
}

// ---- exception flags ----------------------------------------------------------------------------
// The flags a call leaves are those its elements raise: division by zero for a zero, invalid
// for a negative or a signalling NaN, neither for ordinary arguments, infinity or a quiet NaN
// (in any lane, including the lanes the vector path skips).
template <class T>
void check_flags(const Variant& v) {
  const double inf = std::numeric_limits<double>::infinity();
  struct Case {
    Func f;
    double x;
    int want;
  };
  const Case cases[] = {
      {kLn, 2.5, 0},
      {kLn, 0.0, FE_DIVBYZERO},
      {kLn, -0.0, FE_DIVBYZERO},
      {kLn, -3.0, FE_INVALID},
      {kLn, -inf, FE_INVALID},
      {kLn, inf, 0},
      {kLn, std::numeric_limits<double>::quiet_NaN(), 0},
      {kLog10, 0.0, FE_DIVBYZERO},
      {kLog10, -3.0, FE_INVALID},
      {kLog10, inf, 0},
      {kLog1p, -1.0, FE_DIVBYZERO},
      {kLog1p, -3.0, FE_INVALID},
      {kLog1p, inf, 0},
      {kLog10, std::numeric_limits<double>::quiet_NaN(), 0},
      {kLog1p, std::numeric_limits<double>::quiet_NaN(), 0},
  };
  ModeScope mode(KAZ_ERRMODE_IGNORE);
  for (const Case& c : cases) {
    for (int level : kLevels) {
      std::vector<T> x(53, T(3));
      x[11] = static_cast<T>(c.x);
      x[52] = static_cast<T>(c.x);
      std::feclearexcept(FE_ALL_EXCEPT);
      run(kernel<T>(c.f, v.index, level), x);
      EXPECT_EQ(std::fetestexcept(FE_INVALID | FE_DIVBYZERO), c.want)
          << kFuncName[c.f] << "(" << c.x << ") " << kLevelName[level] << " on " << v.name;
    }
  }
  std::feclearexcept(FE_ALL_EXCEPT);
}

TEST_P(LogVariant, ExceptionFlagsComeFromTheElements) {
  TVX_SKIP_IF_CPU_LACKS(GetParam());
  check_flags<double>(GetParam());
  check_flags<float>(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Variants, LogVariant, testing::ValuesIn(tvx::test::all_variants()),
                         tvx::test::variant_name);

// ---- cells and exports --------------------------------------------------------------------------
TEST(LogRows, CellsFollowTheLevelPattern) {
  // Variants 0 and 1 run one kernel at every level; variant 2's HA cell is variant 0's kernel.
  const auto& row = tvx_row_ln_d;
  for (int v : {0, 1}) {
    EXPECT_EQ(row.kernels[v], row.kernels[v + 6]);
    EXPECT_EQ(row.kernels[v], row.kernels[v + 12]);
  }
  EXPECT_EQ(row.kernels[8], row.kernels[0]);
  EXPECT_NE(row.kernels[2], row.kernels[8]);
  EXPECT_NE(row.kernels[2], row.kernels[14]);
  for (int v : {3, 5}) {
    EXPECT_NE(row.kernels[v], row.kernels[v + 6]);
    EXPECT_NE(row.kernels[v + 6], row.kernels[v + 12]);
  }
}

TEST(LogExports, FourFormsAgreeAndModeFormUsesItsAccuracy) {
  std::vector<double> x;
  for (int i = 1; i < 50; ++i) x.push_back(0.37 * i);
  const int n = static_cast<int>(x.size());
  std::vector<double> a(x.size()), b(x.size()), c(x.size()), d(x.size());
  ModeScope mode(KAZ_HA);
  vdLn(n, x.data(), a.data());
  vdln(&n, x.data(), b.data());
  const unsigned ep = KAZ_EP;
  vmdLn(n, x.data(), c.data(), KAZ_EP);
  vmdln(&n, x.data(), d.data(), &ep);
  EXPECT_EQ(a, b);
  EXPECT_EQ(c, d);
  EXPECT_EQ(kazGetMode() & KAZ_ACCURACY_MASK, KAZ_HA);
  const int variant = tvx_kaz_variant_index();
  EXPECT_EQ(c, run(tvx_row_ln_d.kernels[tvx::test::slot(variant, 3)], x));
  EXPECT_EQ(a, run(tvx_row_ln_d.kernels[tvx::test::slot(variant, 2)], x));
  // Log10 and Log1p reach their own rows.
  std::vector<float> xs(x.begin(), x.end()), ys(x.size());
  vsLog10(n, xs.data(), ys.data());
  EXPECT_FLOAT_EQ(ys[9], std::log10(xs[9]));
  vsLog1p(n, xs.data(), ys.data());
  EXPECT_FLOAT_EQ(ys[9], std::log1p(xs[9]));
}

}  // namespace
