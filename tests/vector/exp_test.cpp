// Exp and Expm1 kernels on every variant and level, called through their dispatch-row cells:
// range limits and statuses, the no-error shortcut, reports and callbacks, tails, the denormal
// mode and the floating-point environment. Accuracy itself is measured by tvx_accuracy.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include "support/variants.h"
#include "tvx_vector.h"
#include "vector/frame/rows.h"

namespace {

using tvx::test::Variant;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr unsigned kIgnore = KAZ_ERRMODE_IGNORE;

// Restores the thread's mode word and callback after a test changed them.
class ExpKernels : public testing::TestWithParam<std::tuple<Variant, int>> {
 protected:
  void SetUp() override {
    TVX_SKIP_IF_CPU_LACKS(variant());
    saved_mode_ = kazGetMode();
    kazClearErrStatus();
  }
  void TearDown() override {
    kazClearErrorCallBack();
    // A merge cannot clear a field, so put each back explicitly.
    kazSetMode((saved_mode_ & KAZ_FTZDAZ_MASK) ? saved_mode_
                                               : (saved_mode_ | KAZ_FLUSH_DENORMALS_OFF));
    kazSetMode(saved_mode_);
  }
  const Variant& variant() const { return std::get<0>(GetParam()); }
  int level() const { return std::get<1>(GetParam()); }
  int slot() const { return tvx::test::slot(variant().index, level()); }

  template <class T>
  T one(const tvx::frame::Row<tvx::frame::K_v_v<T>>& row, T x, int* status = nullptr) {
    kazClearErrStatus();
    T y;
    std::memset(&y, 0xCA, sizeof y);
    row.kernels[slot()](1, &x, &y);
    if (status != nullptr) *status = kazGetErrStatus();
    return y;
  }

  unsigned saved_mode_ = 0;
};

template <class T>
bool same_bits(T a, T b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST_P(ExpKernels, DoubleLimitsAndStatuses) {
  kazSetMode(kIgnore);
  int st;
  EXPECT_EQ(one(tvx_row_exp_d, 0.0, &st), 1.0);
  EXPECT_EQ(st, 0);
  EXPECT_TRUE(same_bits(one(tvx_row_exp_d, -kInf, &st), 0.0));
  EXPECT_EQ(st, 0) << "-infinity is exact, not an underflow";
  EXPECT_EQ(one(tvx_row_exp_d, kInf, &st), kInf);
  EXPECT_EQ(st, 0) << "+infinity is exact, not an overflow";
  EXPECT_TRUE(std::isnan(one(tvx_row_exp_d, std::nan(""), &st)));
  EXPECT_EQ(st, 0);

  const double top = 709.782712893384;
  EXPECT_TRUE(std::isfinite(one(tvx_row_exp_d, top, &st)));
  EXPECT_EQ(st, 0);
  EXPECT_EQ(one(tvx_row_exp_d, std::nextafter(top, kInf), &st), kInf);
  EXPECT_EQ(st, KAZ_STATUS_OVERFLOW);

  const double low = -745.1332191019411;
  EXPECT_EQ(one(tvx_row_exp_d, low, &st), 0x1p-1074);
  EXPECT_EQ(st, KAZ_STATUS_UNDERFLOW);
  EXPECT_TRUE(same_bits(one(tvx_row_exp_d, std::nextafter(low, -kInf), &st), 0.0));
  EXPECT_EQ(st, KAZ_STATUS_UNDERFLOW);
  // Subnormal results are reported; the smallest normal one is not.
  const double y = one(tvx_row_exp_d, -740.0, &st);
  EXPECT_GT(y, 0.0);
  EXPECT_LT(y, 0x1p-1022);
  EXPECT_EQ(st, KAZ_STATUS_UNDERFLOW);
  EXPECT_GE(one(tvx_row_exp_d, -708.39641853226, &st), 0x1p-1022);
  EXPECT_EQ(st, 0);

  // Expm1: signed zeros, saturation at -1, the same overflow limit.
  EXPECT_TRUE(same_bits(one(tvx_row_expm1_d, -0.0, &st), -0.0));
  EXPECT_TRUE(same_bits(one(tvx_row_expm1_d, 0.0, &st), 0.0));
  EXPECT_EQ(one(tvx_row_expm1_d, -kInf, &st), -1.0);
  EXPECT_EQ(one(tvx_row_expm1_d, -1e300, &st), -1.0);
  EXPECT_EQ(st, 0);
  EXPECT_TRUE(std::isfinite(one(tvx_row_expm1_d, top, &st)));
  EXPECT_EQ(one(tvx_row_expm1_d, std::nextafter(top, kInf), &st), kInf);
  EXPECT_EQ(st, KAZ_STATUS_OVERFLOW);
}

TEST_P(ExpKernels, SingleLimitsAndStatuses) {
  kazSetMode(kIgnore);
  int st;
  const float finf = std::numeric_limits<float>::infinity();
  EXPECT_EQ(one(tvx_row_exp_s, 0.0f, &st), 1.0f);
  EXPECT_TRUE(std::isfinite(one(tvx_row_exp_s, 88.72283f, &st)));
  EXPECT_EQ(st, 0);
  EXPECT_EQ(one(tvx_row_exp_s, 88.7229f, &st), finf);
  EXPECT_EQ(st, KAZ_STATUS_OVERFLOW);
  EXPECT_TRUE(same_bits(one(tvx_row_exp_s, -104.0f, &st), 0.0f));
  EXPECT_EQ(st, KAZ_STATUS_UNDERFLOW);
  const float sub = one(tvx_row_exp_s, -95.0f, &st);
  EXPECT_GT(sub, 0.0f);
  EXPECT_LT(sub, 0x1p-126f);
  EXPECT_EQ(st, KAZ_STATUS_UNDERFLOW);
  EXPECT_EQ(one(tvx_row_exp_s, -finf, &st), 0.0f);
  EXPECT_EQ(st, 0);
  EXPECT_TRUE(same_bits(one(tvx_row_expm1_s, -0.0f, &st), -0.0f));
  EXPECT_EQ(one(tvx_row_expm1_s, -finf, &st), -1.0f);
  EXPECT_EQ(one(tvx_row_expm1_s, 88.7229f, &st), finf);
  EXPECT_EQ(st, KAZ_STATUS_OVERFLOW);
}

// In the no-error mode the lanes past the limits are settled in line: same results, and the
// callout (whose overflow raises the flag) is never entered.
TEST_P(ExpKernels, NoErrorModeSettlesInLine) {
  const std::vector<double> x = {1000.0, 1.0, -1000.0, 2.0, 710.0, -746.0, 0.5, 0.25, 3.0};
  std::vector<double> y(x.size());
  for (unsigned mode : {unsigned{KAZ_ERRMODE_NOERR}, kIgnore}) {
    kazSetMode(mode);
    kazClearErrStatus();
    _mm_setcsr(_mm_getcsr() & ~0x3Fu);
    tvx_row_exp_d.kernels[slot()](static_cast<int>(x.size()), x.data(), y.data());
    const bool overflow_flag = (_mm_getcsr() & 0x08) != 0;
    EXPECT_EQ(y[0], kInf);
    EXPECT_EQ(y[4], kInf);
    EXPECT_TRUE(same_bits(y[2], 0.0));
    EXPECT_TRUE(same_bits(y[5], 0.0));
    EXPECT_NEAR(y[1], std::exp(1.0), 1e-7);
    if (mode == KAZ_ERRMODE_NOERR) {
      EXPECT_FALSE(overflow_flag) << "an overflowing lane reached the callout";
      EXPECT_EQ(kazGetErrStatus(), 0);
    } else {
      EXPECT_TRUE(overflow_flag);
      EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_UNDERFLOW) << "last report wins";
    }
  }
  kazSetMode(KAZ_ERRMODE_NOERR);
  const std::vector<float> xf = {100.0f, -200.0f, 1.0f};
  std::vector<float> yf(3);
  tvx_row_expm1_s.kernels[slot()](3, xf.data(), yf.data());
  EXPECT_EQ(yf[0], std::numeric_limits<float>::infinity());
  EXPECT_EQ(yf[1], -1.0f);
}

// One report per bad element in ascending order, with its index; a callback's rewrite stands.
std::vector<int> g_indices;
int rewrite_callback(kaz_error_record* rec) {
  g_indices.push_back(rec->index * 10 + rec->code);
  rec->r1 = 42.0;
  return 0;
}

TEST_P(ExpKernels, ReportsEachBadElementAndHonoursCallback) {
  std::vector<double> x(37, 0.5);
  x[3] = 800.0;
  x[4] = -800.0;
  x[20] = -740.0;
  x[36] = 1e10;  // in the tail
  std::vector<double> y(x.size());
  g_indices.clear();
  kazSetErrorCallBack(rewrite_callback);
  tvx_row_exp_d.kernels[slot()](static_cast<int>(x.size()), x.data(), y.data());
  EXPECT_EQ(g_indices, (std::vector<int>{33, 44, 204, 363}));
  for (int i : {3, 4, 20, 36}) EXPECT_EQ(y[i], 42.0) << i;
  EXPECT_NEAR(y[0], std::exp(0.5), 1e-7);
}

// Long single vectors, where whole runs of clean blocks go by two registers at a time: bad
// elements in the first and in the second register of a step, in the block right after one, in
// the last full block and in the tail. Each is reported once, in order, the callback's rewrite
// stands, and every other element has the bits of its own one-element call, in place too.
TEST_P(ExpKernels, SingleBadElementsAmongCleanBlocks) {
  kazSetMode(kIgnore);
  std::mt19937 rng(11);
  std::uniform_real_distribution<float> u(-87.0f, 87.0f);
  std::vector<float> x(16 * 7 + 5);
  for (auto& v : x) v = u(rng);
  x[40] = 89.0f;
  x[50] = -95.0f;
  x[64] = std::nanf("");
  x[65] = -110.0f;
  x[100] = 1e30f;
  x[114] = -std::numeric_limits<float>::infinity();  // tail; quiet, +0
  std::vector<float> y(x.size());
  g_indices.clear();
  kazSetErrorCallBack(rewrite_callback);
  tvx_row_exp_s.kernels[slot()](static_cast<int>(x.size()), x.data(), y.data());
  EXPECT_EQ(g_indices, (std::vector<int>{403, 504, 654, 1003}));
  kazClearErrorCallBack();
  for (int i : {40, 50, 65, 100}) EXPECT_EQ(y[i], 42.0f) << i;
  EXPECT_TRUE(std::isnan(y[64]));
  EXPECT_TRUE(same_bits(y[114], 0.0f));
  std::vector<float> inplace = x;
  tvx_row_exp_s.kernels[slot()](static_cast<int>(x.size()), inplace.data(), inplace.data());
  for (size_t i = 0; i < x.size(); ++i) {
    if (i == 40 || i == 50 || i == 65 || i == 100) continue;
    EXPECT_TRUE(same_bits(y[i], one(tvx_row_exp_s, x[i]))) << i;
    EXPECT_TRUE(same_bits(inplace[i], y[i])) << i;
  }
}

// In the no-error mode a long single vector settles its overflow and underflow lanes in line,
// wherever they sit, without a report or a flag.
TEST_P(ExpKernels, SingleNoErrorModeInLongVectors) {
  kazSetMode(KAZ_ERRMODE_NOERR);
  std::vector<float> x(100, 1.5f);
  x[17] = 120.0f;
  x[31] = -150.0f;
  x[48] = 88.9f;
  x[99] = -104.5f;
  std::vector<float> y(x.size());
  kazClearErrStatus();
  _mm_setcsr(_mm_getcsr() & ~0x3Fu);
  tvx_row_exp_s.kernels[slot()](static_cast<int>(x.size()), x.data(), y.data());
  EXPECT_EQ(_mm_getcsr() & 0x18, 0u) << "an overflow or underflow lane reached the callout";
  EXPECT_EQ(kazGetErrStatus(), 0);
  const float finf = std::numeric_limits<float>::infinity();
  EXPECT_EQ(y[17], finf);
  EXPECT_EQ(y[48], finf);
  EXPECT_TRUE(same_bits(y[31], 0.0f));
  EXPECT_TRUE(same_bits(y[99], 0.0f));
  EXPECT_EQ(y[0], y[98]);
  EXPECT_NEAR(y[0], std::exp(1.5f), 4.5f * 0x1p-11f);  // EP's 11 bits
  _mm_setcsr(0x1F80);
}

// A result does not depend on where its element sits: inside a block, in a tail, in place.
TEST_P(ExpKernels, TailsGiveTheBitsOfABlock) {
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> u(-760.0, 760.0);
  std::vector<double> xd(70);
  for (auto& v : xd) v = u(rng);
  xd[5] = std::nan("");
  xd[6] = 1e-310;
  xd[7] = -kInf;
  std::vector<float> xs(xd.size());
  for (size_t i = 0; i < xd.size(); ++i) xs[i] = static_cast<float>(xd[i] / 8.0);
  kazSetMode(kIgnore);
  auto check = [&](const auto& row, const auto& x) {
    using T = std::decay_t<decltype(x[0])>;
    const int n = static_cast<int>(x.size());
    std::vector<T> whole(x.size());
    row.kernels[slot()](n, x.data(), whole.data());
    // Every length up to 2 blocks + 1 (16 covers the widest register) from every start.
    for (int start = 0; start < 3; ++start) {
      for (int len = 0; len <= 33 && start + len <= n; ++len) {
        std::vector<T> part(x.size() + 1);
        std::memset(part.data(), 0xCA, part.size() * sizeof(T));
        row.kernels[slot()](len, x.data() + start, part.data());
        for (int i = 0; i < len; ++i) {
          ASSERT_TRUE(same_bits(part[i], whole[start + i])) << "len " << len << " i " << i;
        }
        unsigned char tail[sizeof(T)];
        std::memcpy(tail, &part[len], sizeof(T));
        for (unsigned char c : tail) ASSERT_EQ(c, 0xCA) << "wrote past the end, len " << len;
      }
    }
    std::vector<T> inplace(x.begin(), x.end());
    row.kernels[slot()](n, inplace.data(), inplace.data());
    for (int i = 0; i < n; ++i) ASSERT_TRUE(same_bits(inplace[i], whole[i])) << i;
  };
  check(tvx_row_exp_d, xd);
  check(tvx_row_expm1_d, xd);
  check(tvx_row_exp_s, xs);
  check(tvx_row_expm1_s, xs);
}

// With the flush field on, denormal arguments read as zero and subnormal results flush, in the
// vector path and in the callout alike; the statuses stay.
TEST_P(ExpKernels, DenormalModeFlushes) {
  kazSetMode(kIgnore);
  int st;
  EXPECT_EQ(one(tvx_row_expm1_d, 0x1p-1060), 0x1p-1060);
  EXPECT_GT(one(tvx_row_exp_d, -740.0), 0.0);
  EXPECT_EQ(one(tvx_row_expm1_s, 0x1p-140f), 0x1p-140f);

  kazSetMode(KAZ_FLUSH_DENORMALS_ON);
  EXPECT_EQ(one(tvx_row_expm1_d, 0x1p-1060), 0.0);
  EXPECT_EQ(one(tvx_row_expm1_s, 0x1p-140f), 0.0f);
  EXPECT_EQ(one(tvx_row_exp_d, -740.0, &st), 0.0);
  EXPECT_EQ(st, KAZ_STATUS_UNDERFLOW);
  EXPECT_EQ(one(tvx_row_exp_s, -95.0f, &st), 0.0f);
  EXPECT_EQ(st, KAZ_STATUS_UNDERFLOW);
  EXPECT_EQ(one(tvx_row_exp_d, -0x1p-1060), 1.0);
  kazSetMode(KAZ_FLUSH_DENORMALS_OFF);
  EXPECT_EQ(one(tvx_row_expm1_d, 0x1p-1060), 0x1p-1060);
}

// Flags of real elements reach the caller; wild arguments raise none; the caller's control bits
// come back.
TEST_P(ExpKernels, FloatingPointEnvironment) {
  kazSetMode(kIgnore);
  const unsigned caller = (_mm_getcsr() & ~0x3Fu & ~0x8040u & ~0x6000u) | 0x8040u;  // FTZ+DAZ
  _mm_setcsr(caller);
  const std::vector<double> quiet = {kInf, -kInf, std::nan(""), 0.5, 1.0, -3.0, 20.0, 1e-3};
  std::vector<double> y(quiet.size());
  tvx_row_exp_d.kernels[slot()](static_cast<int>(quiet.size()), quiet.data(), y.data());
  tvx_row_expm1_d.kernels[slot()](static_cast<int>(quiet.size()), quiet.data(), y.data());
  const unsigned after = _mm_getcsr();
  EXPECT_EQ(after & ~0x3Fu, caller & ~0x3Fu) << "control bits not restored";
  EXPECT_EQ(after & 0x1D, 0u) << "spurious invalid, divide, overflow or underflow flag";
  const double big = 1000.0;
  double r;
  tvx_row_exp_d.kernels[slot()](1, &big, &r);
  EXPECT_NE(_mm_getcsr() & 0x08, 0u) << "overflow of a real element must be visible";

  // Single, long enough for runs of clean blocks, with wild lanes among them.
  const float finf = std::numeric_limits<float>::infinity();
  const std::vector<float> quiet_f = {finf,   -finf, std::nanf(""), 0.5f,  87.5f,
                                      -87.0f, 20.0f, 1e-3f,         -3.0f, 1.0f};
  std::vector<float> xf;
  for (int k = 0; k < 5; ++k) xf.insert(xf.end(), quiet_f.begin(), quiet_f.end());
  std::vector<float> yf(xf.size());
  _mm_setcsr(caller);
  tvx_row_exp_s.kernels[slot()](static_cast<int>(xf.size()), xf.data(), yf.data());
  tvx_row_expm1_s.kernels[slot()](static_cast<int>(xf.size()), xf.data(), yf.data());
  EXPECT_EQ(_mm_getcsr() & 0x1D, 0u) << "spurious flag in single";
  _mm_setcsr(0x1F80);
}

TEST_P(ExpKernels, NonPositiveCountWritesNothing) {
  double x = 1.0, y;
  std::memset(&y, 0xCA, sizeof y);
  tvx_row_exp_d.kernels[slot()](0, &x, &y);
  tvx_row_expm1_d.kernels[slot()](-4, &x, &y);
  unsigned char b[8];
  std::memcpy(b, &y, 8);
  for (unsigned char c : b) EXPECT_EQ(c, 0xCA);
}

std::string cell_name(const testing::TestParamInfo<ExpKernels::ParamType>& info) {
  static const char* kLevels[] = {"", "LA", "HA", "EP"};
  return std::string(std::get<0>(info.param).name) + "_" + kLevels[std::get<1>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Cells, ExpKernels,
                         testing::Combine(testing::ValuesIn(tvx::test::all_variants()),
                                          testing::Values(1, 2, 3)),
                         cell_name);

// The four exported forms share one row and report under the C-form name's row.
TEST(ExpExports, FormsAgree) {
  const std::vector<double> x = {-2.0, 0.1, 3.5, 700.0, -20.0};
  std::vector<double> a(x.size()), b(x.size()), c(x.size()), d(x.size());
  const int n = static_cast<int>(x.size());
  const unsigned la = KAZ_LA;
  const unsigned saved = kazGetMode();
  vmdExp(n, x.data(), a.data(), KAZ_LA);
  vmdexp(&n, x.data(), b.data(), &la);
  kazSetMode(KAZ_LA);
  vdExp(n, x.data(), c.data());
  vdexp(&n, x.data(), d.data());
  kazSetMode(saved);
  for (int i = 0; i < n; ++i) {
    EXPECT_TRUE(same_bits(a[i], b[i]) && same_bits(a[i], c[i]) && same_bits(a[i], d[i])) << i;
    EXPECT_NEAR(a[i], std::exp(x[i]), std::fabs(std::exp(x[i])) * 1e-15);
  }
  kazClearErrStatus();
  vsExpm1(-1, nullptr, nullptr);
  EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_BADSIZE);
}

}  // namespace
