// Order-based groups against a sorted-copy reference: exact quantiles (linear formula), order
// statistics, the sorted copy, the median absolute deviation; over data shapes, storages,
// selections, both precisions, one and two threads and the variant copies; NaN placement.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "runtime/settings.h"
#include "stats/entries.h"
#include "stats/stream.h"
#include "stats/task.h"
#include "tests/support/variants.h"
#include "tvx_stats.h"

namespace {

constexpr int kRows = RUD_SS_STORAGE_VARIABLES_IN_ROWS, kCols = RUD_SS_STORAGE_VARIABLES_IN_COLUMNS;
constexpr long long kQ = RUD_SS_ESTIMATE_QUANTILES, kOS = RUD_SS_ESTIMATE_ORDER_STATISTICS,
                    kSorted = RUD_SS_ESTIMATE_SORTED_OBSERVATIONS,
                    kMad = RUD_SS_ESTIMATE_MEDIAN_ABSOLUTE_DEVIATION;

// Variables in rows; `kind` picks the shape.
std::vector<double> make_values(int kind, int p, int n, unsigned seed) {
  std::mt19937_64 g(seed);
  std::normal_distribution<double> z;
  std::vector<double> x(static_cast<size_t>(p) * n);
  for (int v = 0; v < p; ++v)
    for (int i = 0; i < n; ++i) {
      double e = z(g) * (v + 1) + v;
      if (kind == 1) e = std::floor(e * 1.5);  // many ties
      if (kind == 2 && v == 1) e = -3.5;       // a constant variable
      x[static_cast<size_t>(v) * n + i] = e;
    }
  return x;
}

template <class T>
T ref_quantile(const std::vector<T>& s, double q) {
  const double h = q * static_cast<double>(s.size() - 1);
  const auto k = static_cast<size_t>(h);
  const T lo = s[k], hi = k + 1 < s.size() ? s[k + 1] : s.back();
  return lo + (hi - lo) * static_cast<T>(h - static_cast<double>(k));
}

template <class T>
T ref_mad(std::vector<T> s) {
  std::sort(s.begin(), s.end());
  const T m = ref_quantile(s, 0.5);
  for (T& e : s) e = std::fabs(e - m);
  std::sort(s.begin(), s.end());
  return ref_quantile(s, 0.5);
}

using Compute = int (*)(void*, long long, int);

template <class T>
struct Api;
template <>
struct Api<double> {
  static int make(RudSSTaskPtr* t, int* p, int* n, int* s, double* x, int* sel) {
    return ruddSSNewTask(t, p, n, s, x, nullptr, sel);
  }
  static int edit(RudSSTaskPtr t, int f, double* v) { return ruddSSEditTask(t, f, v); }
};
template <>
struct Api<float> {
  static int make(RudSSTaskPtr* t, int* p, int* n, int* s, float* x, int* sel) {
    return rudsSSNewTask(t, p, n, s, x, nullptr, sel);
  }
  static int edit(RudSSTaskPtr t, int f, float* v) { return rudsSSEditTask(t, f, v); }
};

struct Shape {
  int kind, p, n;
  std::vector<int> sel;  // empty: all
};

// One shape through one compute entry: both layouts of input and output, quantiles alone (the
// selection path) and with order statistics (the sort path), the sorted copy and the median
// absolute deviation, each against the reference.
template <class T>
void check_shape(const Shape& sh, Compute compute, const char* label) {
  int p = sh.p, n = sh.n;
  const std::vector<double> rows = make_values(sh.kind, p, n, 99 + sh.kind);
  std::vector<int> vars;
  for (int v = 0; v < p; ++v)
    if (sh.sel.empty() || sh.sel[v]) vars.push_back(v);
  std::vector<T> orders = {0, 1, 0.5, 0.25, 0.9, 0.001, 0.999, T(1) / 3};
  // Many orders on one shape: more than the selector keeps cuts for.
  for (int k = 0; sh.n == 30000 && k < 100; ++k) orders.push_back(T((k * 37 % 101) / 100.0));
  int m = static_cast<int>(orders.size());
  for (int storage : {kRows, kCols})
    for (int os_storage : {kRows, kCols}) {
      std::vector<T> x(rows.size());
      for (int v = 0; v < p; ++v)
        for (int i = 0; i < n; ++i)
          x[storage == kRows ? size_t(v) * n + i : size_t(i) * p + v] = T(rows[size_t(v) * n + i]);
      std::vector<int> sel = sh.sel;
      RudSSTaskPtr task;
      ASSERT_EQ(Api<T>::make(&task, &p, &n, &storage, x.data(), sel.empty() ? nullptr : sel.data()),
                0);
      const T marker = T(-777);
      std::vector<T> q1(size_t(p) * m, marker), q2(q1), os(size_t(p) * n, marker), sorted(os),
          mad(p, marker);
      rudiSSEditTask(task, RUD_SS_FIELD_QUANTILE_ORDER_COUNT, &m);
      Api<T>::edit(task, RUD_SS_FIELD_QUANTILE_ORDERS, orders.data());
      Api<T>::edit(task, RUD_SS_FIELD_QUANTILES, q1.data());
      ASSERT_EQ(compute(task, kQ, 1), 0) << label;
      Api<T>::edit(task, RUD_SS_FIELD_QUANTILES, q2.data());
      Api<T>::edit(task, RUD_SS_FIELD_ORDER_STATISTICS, os.data());
      rudiSSEditTask(task, RUD_SS_FIELD_ORDER_STATISTICS_STORAGE, &os_storage);
      Api<T>::edit(task, RUD_SS_FIELD_SORTED_OBSERVATIONS, sorted.data());
      rudiSSEditTask(task, RUD_SS_FIELD_SORTED_OBSERVATIONS_STORAGE, &os_storage);
      Api<T>::edit(task, RUD_SS_FIELD_MEDIAN_ABSOLUTE_DEVIATION, mad.data());
      ASSERT_EQ(compute(task, kQ | kOS | kSorted | kMad, 1 | RUD_SS_METHOD_SORT), 0) << label;
      rudSSDeleteTask(&task);
      for (size_t c = 0; c < vars.size(); ++c) {
        const int v = vars[c];
        std::vector<T> s(n);
        for (int i = 0; i < n; ++i) s[i] = T(rows[size_t(v) * n + i]);
        const T want_mad = ref_mad(s);
        std::sort(s.begin(), s.end());
        const auto at = [&](int i) { return os_storage == kRows ? c * n + i : size_t(i) * p + c; };
        for (int i = 0; i < n; ++i) {
          ASSERT_EQ(os[at(i)], s[i]) << label << " order statistic " << i << " var " << v;
          ASSERT_EQ(sorted[at(i)], s[i]) << label << " sorted " << i << " var " << v;
        }
        for (int k = 0; k < m; ++k) {
          const T want = ref_quantile(s, double(orders[k]));
          EXPECT_EQ(q1[c * m + k], want) << label << " selection q " << orders[k] << " var " << v;
          EXPECT_EQ(q2[c * m + k], want) << label << " sorted q " << orders[k] << " var " << v;
        }
        EXPECT_EQ(mad[v], want_mad) << label << " mad var " << v;
      }
      // Compacted: rows past the selected count untouched; unselected MAD untouched.
      for (size_t k = vars.size() * m; k < q1.size(); ++k) EXPECT_EQ(q1[k], marker) << label;
      for (int v = 0; v < p; ++v) {
        if (!sh.sel.empty() && !sh.sel[v]) {
          EXPECT_EQ(mad[v], marker) << label;
        }
      }
    }
}

const Shape kShapes[] = {
    {0, 3, 1001, {}}, {1, 4, 500, {}},   {2, 3, 64, {}},
    {0, 2, 1, {}},    {0, 2, 2, {}},     {1, 6, 37, {0, 0, 1, 0, 0, 1}},
    {0, 1, 5000, {}}, {1, 2, 60000, {}}, {0, 1, 30000, {}},
};

#define TVX_SS_COPY(v) {#v, &rud_ss_compute_d_##v, &rud_ss_compute_s_##v},
const struct {
  const char* name;
  Compute d, s;
} copies[] = {TVX_SS_VARIANTS(TVX_SS_COPY)};
#undef TVX_SS_COPY

TEST(StatsOrder, EveryVariantCopyAgainstSortedReference) {
  for (size_t k = 0; k < std::size(copies); ++k) {
    if (const char* missing = tvx::test::copy_lacks(static_cast<int>(k))) {
      std::printf("skipped %s: the processor lacks %s\n", copies[k].name, missing);
      continue;
    }
    for (const Shape& sh : kShapes) {
      check_shape<double>(sh, copies[k].d, copies[k].name);
      check_shape<float>(sh, copies[k].s, copies[k].name);
    }
  }
}

TEST(StatsThreads, OrderGroupsWithTwoThreads) {
  const int old = tvx_set_num_threads_local(2);
  for (const Shape& sh : kShapes) check_shape<double>(sh, &ruddSSCompute, "two threads");
  tvx_set_num_threads_local(old);
}

// NaN goes after every number (+inf included) in the order statistics and the sorted copy; the
// quantiles and the median absolute deviation of a variable holding one are NaN.
void check_nan(Compute compute) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = HUGE_VAL;
  int p = 2, n = 9, storage = kRows, m = 2, cols = kCols;
  double x[] = {3, nan, -inf, 1, nan, inf, 0, -2, 5,  // variable 0
                4, 1,   3,    2, 9,   8,   7, 6,  5};
  double orders[] = {0, 0.5}, q[4], q2[4], os[18], sorted[18], mad[2];
  RudSSTaskPtr task;
  ASSERT_EQ(ruddSSNewTask(&task, &p, &n, &storage, x, nullptr, nullptr), 0);
  ruddSSEditQuantiles(task, &m, orders, q, nullptr, nullptr);
  ruddSSEditTask(task, RUD_SS_FIELD_MEDIAN_ABSOLUTE_DEVIATION, mad);
  ASSERT_EQ(compute(task, kQ | kMad, 1), 0);
  ruddSSEditQuantiles(task, &m, orders, q2, os, &storage);
  ruddSSEditTask(task, RUD_SS_FIELD_SORTED_OBSERVATIONS, sorted);
  rudiSSEditTask(task, RUD_SS_FIELD_SORTED_OBSERVATIONS_STORAGE, &cols);
  ASSERT_EQ(compute(task, kQ | kOS | kSorted, 1 | RUD_SS_METHOD_SORT), 0);
  rudSSDeleteTask(&task);
  const double want0[] = {-inf, -2, 0, 1, 3, 5, inf};
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(os[i], want0[i]) << i;
    EXPECT_EQ(sorted[2 * i], want0[i]) << i;
  }
  EXPECT_TRUE(std::isnan(os[7]) && std::isnan(os[8]) && std::isnan(sorted[14]) &&
              std::isnan(sorted[16]));
  for (double* r : {q, q2}) {
    EXPECT_TRUE(std::isnan(r[0]) && std::isnan(r[1]));
    EXPECT_EQ(r[2], 1);
    EXPECT_EQ(r[3], 5);
  }
  EXPECT_TRUE(std::isnan(mad[0]));
  EXPECT_EQ(mad[1], 2);
}

TEST(StatsOrder, NaNSortsLastAndPoisonsQuantiles) {
  for (size_t k = 0; k < std::size(copies); ++k)
    if (tvx::test::copy_lacks(static_cast<int>(k)) == nullptr) {
      SCOPED_TRACE(copies[k].name);
      check_nan(copies[k].d);
    }
}

// In place: variables in rows are sorted where they stand; with variables in columns each column
// is sorted within the matrix.
TEST(StatsOrder, SortInPlace) {
  for (int storage : {kRows, kCols}) {
    int p = 3, n = 50;
    const std::vector<double> rows = make_values(1, p, n, 5);
    std::vector<double> x(rows.size());
    for (int v = 0; v < p; ++v)
      for (int i = 0; i < n; ++i)
        x[storage == kRows ? size_t(v) * n + i : size_t(i) * p + v] = rows[size_t(v) * n + i];
    RudSSTaskPtr task;
    ASSERT_EQ(ruddSSNewTask(&task, &p, &n, &storage, x.data(), nullptr, nullptr), 0);
    ruddSSEditTask(task, RUD_SS_FIELD_SORTED_OBSERVATIONS, x.data());
    rudiSSEditTask(task, RUD_SS_FIELD_SORTED_OBSERVATIONS_STORAGE, &storage);
    ASSERT_EQ(ruddSSCompute(task, kSorted, RUD_SS_METHOD_SORT), 0);
    rudSSDeleteTask(&task);
    for (int v = 0; v < p; ++v) {
      std::vector<double> s(rows.begin() + v * n, rows.begin() + (v + 1) * n);
      std::sort(s.begin(), s.end());
      for (int i = 0; i < n; ++i)
        ASSERT_EQ(x[storage == kRows ? size_t(v) * n + i : size_t(i) * p + v], s[i]) << storage;
    }
  }
}

// ---- Stream quantiles ---------------------------------------------------------------------------
struct StreamRun {
  std::vector<double> answer, repeat;  // last block's answer; the answer of a following n = 0 call
  std::int64_t epochs = 0, cells = 0;  // summary size of variable 0
};

// Feeds the variables-in-columns matrix x (p x total) in blocks; answers with the last block and
// again with an empty call.
StreamRun run_stream(const std::vector<double>& x, int p, int total, int block, double eps,
                     const std::vector<double>& orders) {
  int n = block, storage = kCols, m = static_cast<int>(orders.size()), one = 1;
  StreamRun r;
  r.answer.assign(size_t(p) * m, -777);
  RudSSTaskPtr task;
  EXPECT_EQ(ruddSSNewTask(&task, &p, &n, &storage, x.data(), nullptr, nullptr), 0);
  ruddSSEditStreamQuantiles(task, &m, orders.data(), r.answer.data(), &one, &eps);
  for (int done = 0; done < total; done += n) {
    n = std::min(block, total - done);
    ruddSSEditTask(task, RUD_SS_FIELD_OBSERVATIONS, x.data() + size_t(done) * p);
    const bool last = done + n == total;
    EXPECT_EQ(
        ruddSSCompute(task, RUD_SS_ESTIMATE_STREAM_QUANTILES,
                      last ? RUD_SS_METHOD_STREAM_WITH_ANSWER : RUD_SS_METHOD_STREAM_SUMMARY_ONLY),
        0);
  }
  r.repeat = r.answer;
  std::fill(r.answer.begin(), r.answer.end(), -777);
  std::swap(r.answer, r.repeat);
  n = 0;
  ruddSSEditTask(task, RUD_SS_FIELD_STREAM_QUANTILES, r.repeat.data());
  EXPECT_EQ(ruddSSCompute(task, RUD_SS_ESTIMATE_STREAM_QUANTILES, RUD_SS_METHOD_STREAM_WITH_ANSWER),
            0);
  const auto* s =
      static_cast<const tvx::ss::StreamSummary*>(static_cast<tvx::ss::Task*>(task)->stream_summary);
  const tvx::ss::StreamDescriptor& d = s->variables[0];
  r.epochs = d.epoch_count;
  for (std::int64_t k = 0; k < d.epoch_count; ++k)
    r.cells += (d.epochs[k].level_limit + 2) * (d.epochs[k].block_size + 1);
  rudSSDeleteTask(&task);
  return r;
}

// Every answer's true rank range meets [qN - eps N, qN + eps N]; the summary holds O(log(eps N))
// epochs of O(log(eps N) / eps) cells per level; an empty call repeats the answer; thread count
// does not change it.
TEST(StatsStream, RankErrorWithinEpsForEveryBlockSize) {
  const int p = 2, total = 200000;
  std::mt19937_64 g(11);
  std::normal_distribution<double> z;
  std::vector<double> x(size_t(p) * total);
  for (int i = 0; i < total; ++i) {
    x[size_t(i) * p] = z(g);
    x[size_t(i) * p + 1] = std::floor(z(g) * 20);  // ties
  }
  std::vector<std::vector<double>> sorted(p);
  for (int v = 0; v < p; ++v) {
    for (int i = 0; i < total; ++i) sorted[v].push_back(x[size_t(i) * p + v]);
    std::sort(sorted[v].begin(), sorted[v].end());
  }
  const std::vector<double> orders = {0, 0.001, 0.1, 0.25, 0.5, 0.75, 0.9, 0.999, 1};
  const int m = static_cast<int>(orders.size());
  for (double eps : {0.1, 0.01, 0.001}) {
    std::vector<double> first;
    for (int block : {1, 1000, 100000}) {
      if (block == 1 && eps != 0.01) continue;  // one-observation blocks: one eps is enough time
      SCOPED_TRACE(testing::Message() << "eps " << eps << " block " << block);
      const StreamRun r = run_stream(x, p, total, block, eps, orders);
      EXPECT_EQ(r.answer, r.repeat);
      // The cut into blocks does not matter, only the order of the observations.
      if (first.empty()) first = r.answer;
      EXPECT_EQ(r.answer, first);
      for (int v = 0; v < p; ++v)
        for (int k = 0; k < m; ++k) {
          const double a = r.answer[size_t(v) * m + k];
          const auto& s = sorted[v];
          const double lo = double(std::lower_bound(s.begin(), s.end(), a) - s.begin()) + 1;
          const double hi = double(std::upper_bound(s.begin(), s.end(), a) - s.begin());
          const double want = orders[k] * total, slack = eps * total;
          EXPECT_TRUE(hi >= lo && lo <= want + slack && hi >= want - slack)
              << "var " << v << " q " << orders[k] << " answer " << a << " ranks " << lo << ".."
              << hi;
        }
      const double l = std::log2(eps * total) + 2;
      EXPECT_LE(r.epochs, static_cast<std::int64_t>(l));
      EXPECT_LE(double(r.cells), r.epochs * (l + 3) * (l / eps + 1));
      if (block == 1000) {
        const int old = tvx_set_num_threads_local(1);
        const StreamRun one = run_stream(x, p, total, block, eps, orders);
        tvx_set_num_threads_local(old);
        EXPECT_EQ(std::memcmp(one.answer.data(), r.answer.data(), r.answer.size() * sizeof(double)),
                  0);
      }
    }
  }
}

}  // namespace
