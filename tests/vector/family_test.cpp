// The family test: every row of every vector family (family_harness.h), on every variant and
// accuracy level. For each cell and row: accuracy against the row's truth or reference, the cases'
// results, statuses and flags, the reports and the no-error mode, every length from every offset
// and in place, the denormal mode, and the caller's floating-point environment.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

#include "support/variants.h"
#include "tests/vector/family_harness.h"

namespace tvx::family {
namespace {

using tvx::test::Variant;

constexpr int kMaxLen = 2 * 16 + 1;  // two AVX-512 registers of singles, plus one
constexpr unsigned char kMarker = 0xCA;
constexpr unsigned kCsrDefault = 0x1F80;
constexpr unsigned kCsrFlags = 0x1D;  // invalid, divide-by-zero, overflow, underflow
const char* const kLevelName[] = {"", "LA", "HA", "EP"};

struct Family {
  const char* name;
  Rows<double> (*d)();
  Rows<float> (*s)();
};
const Family kFamilies[] = {{"ExpLog", exp_log_rows<double>, exp_log_rows<float>},
                            {"Arith", arith_rows<double>, arith_rows<float>},
                            {"PowRoot", pow_rows<double>, pow_rows<float>},
                            {"Trig", trig_rows<double>, trig_rows<float>},
                            {"InvTrigHyp", invtrig_rows<double>, invtrig_rows<float>},
                            {"ErfGamma", erfgamma_rows<double>, erfgamma_rows<float>}};

template <class T>
const Rows<T>& rows_of(int family) {
  static std::map<int, Rows<T>> built;
  auto it = built.find(family);
  if (it == built.end()) {
    const Family& f = kFamilies[family];
    Rows<T> rows;
    if constexpr (sizeof(T) == 8) {
      rows = f.d();
    } else {
      rows = f.s();
    }
    it = built.emplace(family, std::move(rows)).first;
  }
  return it->second;
}

template <class T>
bool same_bits(T a, T b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}
template <class T>
T marked() {
  T t;
  std::memset(&t, kMarker, sizeof t);
  return t;
}
template <class T>
std::string show(T x) {
  char buf[48];
  std::snprintf(buf, sizeof buf, "%a", static_cast<double>(x));
  return buf;
}
template <class T>
T flush(T x) {
  return x != 0 && std::fabs(x) < std::numeric_limits<T>::min() ? std::copysign(T(0), x) : x;
}

// Sets fields of the thread's mode word for a scope (the denormal field explicitly on exit, since
// a merge cannot clear a field).
class ModeScope {
 public:
  explicit ModeScope(unsigned mode) : old_(kazSetMode(mode)) {}
  ~ModeScope() { kazSetMode((old_ & KAZ_FTZDAZ_MASK) ? old_ : old_ | KAZ_FLUSH_DENORMALS_OFF); }
  ModeScope(const ModeScope&) = delete;
  ModeScope& operator=(const ModeScope&) = delete;

 private:
  unsigned old_;
};

// Callback that records every report and either keeps the kernel's result or rewrites it to 42.
struct Report {
  int index, code;
  double a1, a2;
};
thread_local std::vector<Report> t_reports;
thread_local bool t_rewrite = false;
int record(kaz_error_record* rec) {
  t_reports.push_back({rec->index, rec->code, rec->a1, rec->a2});
  if (!t_rewrite) return 1;
  rec->r1 = 42.0;
  return 0;
}
class Recorder {
 public:
  explicit Recorder(bool rewrite) {
    t_reports.clear();
    t_rewrite = rewrite;
    kazSetErrorCallBack(record);
  }
  ~Recorder() { kazClearErrorCallBack(); }
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;
};

// ---- running a cell -----------------------------------------------------------------------------
template <class T>
struct Out {
  T y, z;
  int status;
};

template <class T>
struct Elements {
  std::vector<T> a, b;
};

// The cases' inputs, then the row's.
template <class T>
Elements<T> elements(const FamilyRow<T>& r) {
  Elements<T> e;
  for (const Case<T>& c : r.cases) {
    e.a.push_back(c.a);
    e.b.push_back(c.b);
  }
  e.a.insert(e.a.end(), r.a.begin(), r.a.end());
  e.b.insert(e.b.end(), r.b.begin(), r.b.end());
  e.b.resize(e.a.size(), T(0));
  return e;
}

template <class T>
Elements<T> run(const FamilyRow<T>& r, int slot, const Elements<T>& in) {
  const int n = static_cast<int>(in.a.size());
  Elements<T> out{std::vector<T>(n, marked<T>()), std::vector<T>(n, marked<T>())};
  r.call(slot, n, in.a.data(), in.b.data(), out.a.data(), out.b.data());
  return out;
}

// One element alone, with the status it leaves.
template <class T>
Out<T> single(const FamilyRow<T>& r, int slot, T a, T b) {
  Out<T> o{marked<T>(), marked<T>(), 0};
  kazSetErrStatus(0);
  r.call(slot, 1, &a, &b, &o.y, &o.z);
  o.status = kazGetErrStatus();
  return o;
}

template <class T>
bool is_approx(const FamilyRow<T>& r, int slot) {
  return std::find(r.approx.begin(), r.approx.end(), slot) != r.approx.end();
}

// What every element must give wherever it sits: the reference's bits on an exact cell, else the
// cell's own result for the element alone; the status is that of the element alone.
template <class T>
Out<T> expected(const FamilyRow<T>& r, int slot, T a, T b) {
  Out<T> o = single(r, slot, a, b);
  if (r.exact && !is_approx(r, slot)) r.exact(a, b, o.y, o.z);
  return o;
}

// Bit for bit; without a reference, a NaN stands for any NaN (the callout and the in-line paths
// may give NaNs of different sign).
template <class T>
::testing::AssertionResult same_out(const FamilyRow<T>& r, T y, T z, const Out<T>& want) {
  const bool nan = !r.exact && std::isnan(y) && std::isnan(want.y);
  if ((nan || same_bits(y, want.y)) && (r.outputs == 1 || same_bits(z, want.z)))
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "got " << show(y) << (r.outputs == 2 ? ", " + show(z) : "") << " want " << show(want.y)
         << (r.outputs == 2 ? ", " + show(want.z) : "");
}

// ---- the checks ---------------------------------------------------------------------------------
// Distance in representable numbers.
template <class T>
double ulp_distance(T got, T want) {
  auto key = [](T x) {
    std::conditional_t<sizeof(T) == 8, std::int64_t, std::int32_t> b;
    std::memcpy(&b, &x, sizeof b);
    return b < 0 ? -static_cast<std::int64_t>(b & std::numeric_limits<decltype(b)>::max())
                 : static_cast<std::int64_t>(b);
  };
  const std::int64_t d = key(got) - key(want);
  return static_cast<double>(d < 0 ? -d : d);
}

template <class T>
void check_accuracy(const FamilyRow<T>& r, int slot, int level) {
  if (r.fn != nullptr) {
    std::mt19937_64 rng(17 + level);
    const std::vector<T> x = accuracy::sample_inputs(*r.fn, r.accuracy_points, rng);
    const Elements<T> y = run(r, slot, {x, x});
    double worst = 0;
    T at = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
      const double e = tvx::test::ulp_error<T>(r.fn->truth, x[i], y.a[i]);
      if (!(e <= worst)) worst = e, at = x[i];
    }
    EXPECT_TRUE(accuracy::meets_goal<T>(level, worst)) << worst << " ulps at " << show(at);
  }
  if (is_approx(r, slot)) {
    Elements<T> x{r.quiet_a, r.quiet_b};
    x.b.resize(x.a.size(), T(0));
    const Elements<T> y = run(r, slot, x);
    double worst = 0;
    std::size_t at = 0;
    for (std::size_t i = 0; i < x.a.size(); ++i) {
      T want, z;
      r.exact(x.a[i], x.b[i], want, z);
      const double d = ulp_distance(y.a[i], want);
      if (d > worst) worst = d, at = i;
    }
    const int half = std::numeric_limits<T>::digits - (sizeof(T) == 8 ? 26 : 11);
    const double allowed = r.ulps[level - 1] > 0 ? r.ulps[level - 1] : std::ldexp(1.0, half);
    EXPECT_LE(worst, allowed) << "ulps from the correctly rounded result, at f(" << show(x.a[at])
                              << ", " << show(x.b[at]) << ")";
  }
}

// Each case inside a block of quiet elements and again in the tail: its result, its status and
// the flags of the call.
template <class T>
void check_cases(const FamilyRow<T>& r, int slot, int level) {
  constexpr int kAt[] = {3, 36};
  Elements<T> x{std::vector<T>(37), std::vector<T>(37, T(0))};
  for (int i = 0; i < 37; ++i) {
    x.a[i] = r.quiet_a[i % r.quiet_a.size()];
    if (!r.quiet_b.empty()) x.b[i] = r.quiet_b[i % r.quiet_b.size()];
  }
  for (const Case<T>& c : r.cases) {
    for (int i : kAt) x.a[i] = c.a, x.b[i] = c.b;
    std::feclearexcept(FE_ALL_EXCEPT);
    kazSetErrStatus(0);
    const Elements<T> y = run(r, slot, x);
    const int flags = std::fetestexcept(kFlags);
    for (int i : kAt) {
      const std::string what = "f(" + show(c.a) + (r.inputs == 2 ? ", " + show(c.b) : "") +
                               ") = " + show(y.a[i]) + " at " + std::to_string(i);
      if (c.by_truth || !(c.exact & (1u << level))) {
        EXPECT_TRUE(
            accuracy::meets_goal<T>(level, tvx::test::ulp_error<T>(r.fn->truth, c.a, y.a[i])))
            << what;
      } else if (std::isnan(c.want)) {
        EXPECT_TRUE(std::isnan(y.a[i])) << what;
      } else {
        EXPECT_TRUE(same_bits(y.a[i], c.want)) << what << ", want " << show(c.want);
      }
    }
    EXPECT_EQ(kazGetErrStatus(), c.status) << "f(" << show(c.a) << ")";
    // Pinned on every cell, approximate ones included. A subnormal result that is not reported
    // may be exact or not.
    if (c.flags != kUnchecked) {
      const bool tiny =
          c.status == 0 && y.a[3] != 0 && std::fabs(y.a[3]) < std::numeric_limits<T>::min();
      const int mask = tiny ? kFlags & ~FE_UNDERFLOW : kFlags;
      EXPECT_EQ(flags & mask, c.flags & mask) << "f(" << show(c.a) << "): flags";
    }
  }
  std::feclearexcept(FE_ALL_EXCEPT);
}

// Gaps between the row's elements when they are spread among quiet ones: two in one register,
// neighbours, later registers of a block, runs of clean blocks.
constexpr int kGaps[] = {5, 1, 3, 8, 7, 7, 9, 10, 13, 1, 1, 35};

template <class T>
void check_reports(const FamilyRow<T>& r, int slot) {
  const Elements<T> e = elements(r);
  std::vector<int> at;
  for (std::size_t k = 0, p = 0; k < e.a.size(); p += kGaps[k % std::size(kGaps)], ++k)
    at.push_back(static_cast<int>(p));
  const int n = at.back() + 1;
  Elements<T> x{std::vector<T>(n), std::vector<T>(n, T(0))};
  for (int i = 0; i < n; ++i) {
    x.a[i] = r.quiet_a[i % r.quiet_a.size()];
    if (!r.quiet_b.empty()) x.b[i] = r.quiet_b[i % r.quiet_b.size()];
  }
  for (std::size_t k = 0; k < at.size(); ++k) x.a[at[k]] = e.a[k], x.b[at[k]] = e.b[k];
  std::vector<Out<T>> want;
  std::vector<int> reported;
  for (int i = 0; i < n; ++i) {
    want.push_back(expected(r, slot, x.a[i], x.b[i]));
    if (want.back().status != 0) reported.push_back(i);
  }
  {
    // Each bad element reported once, in order, with its index and arguments; a rewrite stands.
    Recorder rec(true);
    const Elements<T> y = run(r, slot, x);
    ASSERT_EQ(t_reports.size(), reported.size());
    for (std::size_t k = 0; k < reported.size(); ++k) {
      const int i = reported[k];
      const Report& got = t_reports[k];
      EXPECT_EQ(got.index, i);
      EXPECT_EQ(got.code, want[i].status) << "element " << i;
      const double a = x.a[i], b = x.b[i];
      EXPECT_TRUE(same_bits(got.a1, a) && (r.inputs == 1 || same_bits(got.a2, b))) << i;
    }
    for (int i = 0; i < n; ++i) {
      if (want[i].status != 0) {
        EXPECT_EQ(y.a[i], T(42)) << "element " << i;
      } else {
        EXPECT_TRUE(same_out(r, y.a[i], y.b[i], want[i])) << "element " << i;
      }
    }
    Elements<T> p = x;
    std::vector<T> z(n);
    r.call(slot, n, p.a.data(), p.b.data(), p.a.data(), z.data());
    for (int i = 0; i < n; ++i) EXPECT_TRUE(same_bits(p.a[i], y.a[i])) << "in place, " << i;
  }
  // The no-error mode reports nothing and sets no status; the values are the same.
  Recorder rec(true);
  ModeScope noerr(KAZ_ERRMODE_NOERR);
  kazSetErrStatus(0);
  const Elements<T> y = run(r, slot, x);
  EXPECT_TRUE(t_reports.empty());
  EXPECT_EQ(kazGetErrStatus(), 0);
  for (int i = 0; i < n; ++i) EXPECT_TRUE(same_out(r, y.a[i], y.b[i], want[i])) << "element " << i;
  // Lanes past the overflow and underflow limits settle in line, without the callout's flags.
  for (int i : reported) {
    if (!r.noerr_in_line || (want[i].y != 0 && !std::isinf(want[i].y))) continue;
    _mm_setcsr(kCsrDefault);
    single(r, slot, x.a[i], x.b[i]);
    EXPECT_EQ(_mm_getcsr() & 0x18u, 0u) << "f(" << show(x.a[i]) << ") reached the callout";
  }
}

template <class T>
void check_lengths(const FamilyRow<T>& r, int slot) {
  const Elements<T> e = elements(r);
  std::vector<Out<T>> want;
  for (std::size_t k = 0; k < e.a.size(); ++k) want.push_back(expected(r, slot, e.a[k], e.b[k]));
  const int total = static_cast<int>(e.a.size());
  for (int off = 0; off < 3; ++off) {
    const int yo = (off + 1) % 3;  // the output at another alignment
    for (int n = 0; n <= kMaxLen; ++n) {
      for (int start = 0; start + n <= total; start += kMaxLen) {
        Elements<T> x{std::vector<T>(off + n), std::vector<T>(off + n)};
        std::copy_n(e.a.begin() + start, n, x.a.begin() + off);
        std::copy_n(e.b.begin() + start, n, x.b.begin() + off);
        Elements<T> y{std::vector<T>(yo + n + 4, marked<T>()),
                      std::vector<T>(yo + n + 4, marked<T>())};
        r.call(slot, n, x.a.data() + off, x.b.data() + off, y.a.data() + yo, y.b.data() + yo);
        for (int i = 0; i < n; ++i)
          ASSERT_TRUE(same_out(r, y.a[yo + i], y.b[yo + i], want[start + i]))
              << "n " << n << " offset " << off << " element " << i << " of f("
              << show(x.a[off + i]) << ")";
        for (std::size_t i = 0; i < y.a.size(); ++i) {
          if (i >= static_cast<std::size_t>(yo) && i < static_cast<std::size_t>(yo + n)) continue;
          ASSERT_TRUE(same_bits(y.a[i], marked<T>()) && same_bits(y.b[i], marked<T>()))
              << "wrote outside, n " << n << " offset " << off;
        }
        // In place over the first input and over the second.
        Elements<T> p = x;
        std::vector<T> z(off + n);
        r.call(slot, n, p.a.data() + off, x.b.data() + off, p.a.data() + off, z.data() + off);
        if (r.inputs == 2)
          r.call(slot, n, x.a.data() + off, p.b.data() + off, p.b.data() + off, z.data() + off);
        for (int i = 0; i < n; ++i) {
          ASSERT_TRUE(same_out(r, p.a[off + i], z[off + i], want[start + i]))
              << "in place, n " << n;
          if (r.inputs == 2) {
            ASSERT_TRUE(same_bits(p.b[off + i], want[start + i].y)) << "in place over b, n " << n;
          }
        }
      }
    }
  }
  std::vector<T> y(4, marked<T>());
  r.call(slot, -1, e.a.data(), e.b.data(), y.data(), y.data() + 2);
  for (T v : y) EXPECT_TRUE(same_bits(v, marked<T>())) << "a negative count wrote";
}

// With the flush field on, denormal inputs read as zero and subnormal results flush to zero, with
// the reports of the flushed elements.
template <class T>
void check_denormal_mode(const FamilyRow<T>& r, int slot, bool bits_only) {
  Elements<T> x = elements(r);
  using L = std::numeric_limits<T>;
  for (T d : {L::denorm_min(), -L::denorm_min() * 1000, L::min() / 4, -L::min() / 3}) {
    x.a.push_back(d);
    x.b.push_back(r.quiet_b.empty() ? T(0) : r.quiet_b[0]);
    if (r.inputs == 2) x.a.push_back(r.quiet_a[0]), x.b.push_back(d);
  }
  const int n = static_cast<int>(x.a.size());
  std::vector<Out<T>> want;
  std::vector<int> reported;
  for (int i = 0; i < n; ++i) {
    Out<T> o = bits_only ? expected(r, slot, x.a[i], x.b[i])
                         : expected(r, slot, flush(x.a[i]), flush(x.b[i]));
    if (!bits_only) o.y = flush(o.y), o.z = r.outputs == 2 ? flush(o.z) : o.z;
    if (o.status != 0) reported.push_back(i);
    want.push_back(o);
  }
  ModeScope on(KAZ_FLUSH_DENORMALS_ON);
  Recorder rec(false);
  const unsigned csr = _mm_getcsr();
  const Elements<T> y = run(r, slot, x);
  EXPECT_EQ(_mm_getcsr() & ~0x3Fu, csr & ~0x3Fu) << "the caller's flush bits changed";
  for (int i = 0; i < n; ++i)
    EXPECT_TRUE(same_out(r, y.a[i], y.b[i], want[i])) << "f(" << show(x.a[i]) << ")";
  std::vector<int> got;
  for (const Report& rep : t_reports) got.push_back(rep.index);
  EXPECT_EQ(got, reported);
}

// A caller's flush-to-zero, denormals-are-zero, upward rounding and unmasked overflow trap change
// no result; its control bits come back with the flags of the elements.
template <class T>
void check_environment(const FamilyRow<T>& r, int slot, bool bits_only) {
  const Elements<T> x = elements(r);
  const unsigned caller = (kCsrDefault & ~0x0400u) | 0x8040u | 0x4000u;
  _mm_setcsr(kCsrDefault);
  const Elements<T> clean = run(r, slot, x);
  const unsigned clean_flags = _mm_getcsr() & kCsrFlags;
  _mm_setcsr(caller);
  const Elements<T> y = run(r, slot, x);
  const unsigned after = _mm_getcsr();
  _mm_setcsr(kCsrDefault);
  EXPECT_EQ(after & ~0x3Fu, caller) << "control bits not restored";
  if (!bits_only) {
    EXPECT_EQ(after & kCsrFlags, clean_flags) << "flags";
    for (std::size_t i = 0; i < x.a.size(); ++i) {
      const Out<T> want{clean.a[i], clean.b[i], 0};
      EXPECT_TRUE(same_out(r, y.a[i], y.b[i], want)) << "f(" << show(x.a[i]) << ")";
    }
  }
  // A call of no elements leaves everything as it was.
  std::vector<T> out(2, marked<T>());
  _mm_setcsr(caller);
  r.call(slot, 0, x.a.data(), x.b.data(), out.data(), out.data() + 1);
  r.call(slot, -3, x.a.data(), x.b.data(), out.data(), out.data() + 1);
  const unsigned empty = _mm_getcsr();
  _mm_setcsr(kCsrDefault);
  EXPECT_EQ(empty, caller);
  EXPECT_TRUE(same_bits(out[0], marked<T>()) && same_bits(out[1], marked<T>()));
}

// ---- the cells ----------------------------------------------------------------------------------
struct Cell {
  int family;
  Variant variant;
  int level;
};

void PrintTo(const Cell& c, std::ostream* os) {
  *os << kFamilies[c.family].name << " " << c.variant.name << " " << kLevelName[c.level];
}

class FamilyCells : public testing::TestWithParam<Cell> {
 protected:
  void SetUp() override {
    TVX_SKIP_IF_CPU_LACKS(GetParam().variant);
    saved_mode_ = kazGetMode();
    kazClearErrorCallBack();
    kazSetMode(KAZ_ERRMODE_IGNORE | KAZ_FLUSH_DENORMALS_OFF);
    kazClearErrStatus();
  }
  void TearDown() override {
    kazClearErrorCallBack();
    kazSetMode(saved_mode_ & KAZ_FTZDAZ_MASK ? saved_mode_ : saved_mode_ | KAZ_FLUSH_DENORMALS_OFF);
    _mm_setcsr(kCsrDefault);
  }
  // Runs check(row, slot, level, keeps the caller's environment, flushes) for every row.
  template <class F>
  void for_rows(F&& check) {
    const Cell& c = GetParam();
    const int slot = tvx::test::slot(c.variant.index, c.level);
    auto each = [&](const auto& rows) {
      for (const auto& r : rows) {
        SCOPED_TRACE(r.name + " " + kLevelName[c.level] + " on " + c.variant.name);
        check(r, slot, c.level, r.sse2_keeps_caller_env && c.variant.index <= 1, r.flushes);
      }
    };
    each(rows_of<double>(c.family));
    each(rows_of<float>(c.family));
  }
  unsigned saved_mode_ = 0;
};

TEST_P(FamilyCells, Accuracy) {
  for_rows([](const auto& r, int slot, int level, bool, bool) { check_accuracy(r, slot, level); });
}
TEST_P(FamilyCells, CasesResultsStatusesAndFlags) {
  for_rows([](const auto& r, int slot, int level, bool, bool) { check_cases(r, slot, level); });
}
TEST_P(FamilyCells, ReportsInOrderAndNoErrorMode) {
  for_rows([](const auto& r, int slot, int, bool, bool) { check_reports(r, slot); });
}
TEST_P(FamilyCells, EveryLengthFromEveryOffsetAndInPlace) {
  for_rows([](const auto& r, int slot, int, bool, bool) { check_lengths(r, slot); });
}
TEST_P(FamilyCells, DenormalMode) {
  for_rows(
      [](const auto& r, int slot, int, bool b, bool f) { check_denormal_mode(r, slot, b || !f); });
}
TEST_P(FamilyCells, CallersEnvironment) {
  for_rows([](const auto& r, int slot, int, bool b, bool) { check_environment(r, slot, b); });
}

std::vector<Cell> all_cells() {
  std::vector<Cell> cells;
  for (int f = 0; f < static_cast<int>(std::size(kFamilies)); ++f)
    for (const Variant& v : tvx::test::all_variants())
      for (int level = 1; level <= 3; ++level) cells.push_back({f, v, level});
  return cells;
}

INSTANTIATE_TEST_SUITE_P(Cells, FamilyCells, testing::ValuesIn(all_cells()),
                         [](const testing::TestParamInfo<Cell>& info) {
                           return std::string(kFamilies[info.param.family].name) + "_" +
                                  info.param.variant.name + "_" + kLevelName[info.param.level];
                         });

// The C form of a function runs its row's cell for the thread's variant and accuracy.
template <class T>
void check_c_forms(const std::vector<accuracy::Function<T>>& fns) {
  const int slot = tvx::test::slot(tvx_kaz_variant_index(), 2);
  for (const auto& f : fns) {
    std::mt19937_64 rng(5);
    const std::vector<T> x = accuracy::sample_inputs(f, 37, rng);
    std::vector<T> y(x.size()), want(x.size());
    f.c_form(static_cast<int>(x.size()), x.data(), y.data());
    f.row->kernels[slot](static_cast<int>(x.size()), x.data(), want.data());
    for (std::size_t i = 0; i < x.size(); ++i) EXPECT_TRUE(same_bits(y[i], want[i])) << f.name;
  }
}

TEST(FamilyExports, CFormRunsTheRowsCell) {
  ModeScope mode(KAZ_HA | KAZ_ERRMODE_IGNORE);
  check_c_forms(accuracy::double_functions());
  check_c_forms(accuracy::float_functions());
}

}  // namespace
}  // namespace tvx::family
