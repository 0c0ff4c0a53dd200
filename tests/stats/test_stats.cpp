// Summary statistics: the checks of the editors and of compute in order, and the basic group's
// results against long-double two-pass references, over methods, layouts, weights, selections,
// storage forms, blocks, threads and the five variant copies.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "runtime/settings.h"
#include "stats/entries.h"
#include "stats/task.h"
#include "tests/support/variants.h"
#include "tvx_stats.h"

namespace {

using LD = long double;
constexpr long long kAllBasic = 0x1FE0033FFLL;
constexpr int kRows = RUD_SS_STORAGE_VARIABLES_IN_ROWS, kCols = RUD_SS_STORAGE_VARIABLES_IN_COLUMNS;

// ---- Checks, in the order the editors and compute make them -------------------------------------
struct Fixture {
  int p = 3, n = 4, storage = kRows, cov_storage = RUD_SS_MATRIX_FULL, m = 2;
  int sel[3] = {1, 0, 1}, param_count = 1;
  double x[12] = {1, 2, 3, 4, 2, 4, 6, 9, -1, 0, 1, 5};
  double out[9][9] = {};
  RudSSTaskPtr task = nullptr;
  Fixture() { ruddSSNewTask(&task, &p, &n, &storage, x, nullptr, nullptr); }
  ~Fixture() { rudSSDeleteTask(&task); }
  void reg(int field) { ruddSSEditTask(task, field, out[field % 9]); }
  // Quantile output, orders (zeros) and the count m.
  void quant(int count) {
    m = count;
    ruddSSEditQuantiles(task, &m, out[25 % 9], out[26 % 9], nullptr, nullptr);
  }
  // Stream fields registered in the order compute checks them, the first `upto` of them: output,
  // orders (zeros), order count m, parameter count, eps = 0.1.
  void stream(int upto) {
    double* fields[] = {out[66 % 9], out[65 % 9]};
    for (int k = 0; k < upto && k < 2; ++k) ruddSSEditTask(task, 66 - k, fields[k]);
    if (upto > 2) rudiSSEditTask(task, RUD_SS_FIELD_STREAM_ORDER_COUNT, &m);
    if (upto > 3) rudiSSEditTask(task, RUD_SS_FIELD_STREAM_PARAM_COUNT, &param_count);
    out[63 % 9][0] = 0.1;
    if (upto > 4) ruddSSEditTask(task, RUD_SS_FIELD_STREAM_PARAMS, out[63 % 9]);
  }
  void in_place(int out_storage) {
    m = out_storage;
    ruddSSEditTask(task, RUD_SS_FIELD_SORTED_OBSERVATIONS, x);
    rudiSSEditTask(task, RUD_SS_FIELD_SORTED_OBSERVATIONS_STORAGE, &m);
  }
};

struct CheckRow {
  const char* name;
  std::function<int(Fixture&)> run;
  int expected;
};

const long long kMean = RUD_SS_ESTIMATE_MEAN, kCm2 = RUD_SS_ESTIMATE_CENTRAL_MOMENT_2;
const long long kQ = RUD_SS_ESTIMATE_QUANTILES, kOS = RUD_SS_ESTIMATE_ORDER_STATISTICS,
                kSorted = RUD_SS_ESTIMATE_SORTED_OBSERVATIONS,
                kMad = RUD_SS_ESTIMATE_MEDIAN_ABSOLUTE_DEVIATION,
                kMeanAd = RUD_SS_ESTIMATE_MEAN_ABSOLUTE_DEVIATION;
constexpr int kSort = RUD_SS_METHOD_SORT;
const long long kStream = RUD_SS_ESTIMATE_STREAM_QUANTILES;

// One check per line.
// clang-format off
const CheckRow kChecks[] = {
    // Create.
    {"new: null p", [](Fixture& f) { RudSSTaskPtr t; return ruddSSNewTask(&t, nullptr, &f.n, &f.storage, f.x, nullptr, nullptr); }, -4001},
    {"new: p 0", [](Fixture& f) { RudSSTaskPtr t; int p = 0; return ruddSSNewTask(&t, &p, &f.n, &f.storage, f.x, nullptr, nullptr); }, -4001},
    {"new: null storage", [](Fixture& f) { RudSSTaskPtr t; return ruddSSNewTask(&t, &f.p, &f.n, nullptr, f.x, nullptr, nullptr); }, -4044},
    {"new: bad storage", [](Fixture& f) { RudSSTaskPtr t; int s = 3; return ruddSSNewTask(&t, &f.p, &f.n, &s, f.x, nullptr, nullptr); }, -4003},
    {"new: null n", [](Fixture& f) { RudSSTaskPtr t; return ruddSSNewTask(&t, &f.p, nullptr, &f.storage, f.x, nullptr, nullptr); }, -4002},
    {"new: n 0", [](Fixture& f) { RudSSTaskPtr t; int n = 0; return ruddSSNewTask(&t, &f.p, &n, &f.storage, f.x, nullptr, nullptr); }, -4002},
    {"new: no data, no n", [](Fixture& f) { RudSSTaskPtr t; int s = rudsSSNewTask(&t, &f.p, nullptr, nullptr, nullptr, nullptr, nullptr); rudSSDeleteTask(&t); return s; }, 0},
    {"delete: null", [](Fixture&) { return rudSSDeleteTask(nullptr); }, -4031},
    // Editors.
    {"edit: null task", [](Fixture& f) { return ruddSSEditTask(nullptr, RUD_SS_FIELD_MEAN, f.x); }, -4031},
    {"edit real: code 1", [](Fixture& f) { return ruddSSEditTask(f.task, 1, f.x); }, -3},
    {"edit real: integer code 4", [](Fixture& f) { return ruddSSEditTask(f.task, 4, f.x); }, -3},
    {"edit real: code 78", [](Fixture& f) { return rudsSSEditTask(f.task, 78, reinterpret_cast<float*>(f.x)); }, 0},
    {"edit real: code 79", [](Fixture& f) { return ruddSSEditTask(f.task, 79, f.x); }, -3},
    {"edit int: code 1", [](Fixture& f) { return rudiSSEditTask(f.task, 1, &f.p); }, 0},
    {"edit int: code 78", [](Fixture& f) { return rudiSSEditTask(f.task, 78, &f.p); }, -3},
    {"edit int: code 79", [](Fixture& f) { return rudiSSEditTask(f.task, 79, &f.p); }, 0},
    {"edit int: code 80", [](Fixture& f) { return rudiSSEditTask(f.task, 80, &f.p); }, -3},
    {"edit: null sum", [](Fixture& f) { return ruddSSEditTask(f.task, RUD_SS_FIELD_SUM, nullptr); }, -4006},
    {"edit: null group indices", [](Fixture& f) { return rudiSSEditTask(f.task, RUD_SS_FIELD_GROUP_INDICES, nullptr); }, -4038},
    {"edit: null storage", [](Fixture& f) { return rudiSSEditTask(f.task, RUD_SS_FIELD_COVARIANCE_STORAGE, nullptr); }, -4044},
    {"edit: null cross product", [](Fixture& f) { return ruddSSEditTask(f.task, RUD_SS_FIELD_CROSS_PRODUCT, nullptr); }, -4081},
    {"named: null task", [](Fixture&) { return ruddSSEditMoments(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }, -4031},
    {"named: all null", [](Fixture& f) { return rudsSSEditCovCor(f.task, nullptr, nullptr, nullptr, nullptr, nullptr); }, 0},
    // Compute, common checks.
    {"compute: null task", [](Fixture&) { return ruddSSCompute(nullptr, kMean, 2); }, -4031},
    {"compute: p 0", [](Fixture& f) { f.p = 0; return ruddSSCompute(f.task, kMean, 2); }, -4001},
    {"compute: n 0", [](Fixture& f) { f.n = 0; return ruddSSCompute(f.task, kMean, 2); }, -4002},
    {"compute: bad storage", [](Fixture& f) { f.storage = 0x30000; return ruddSSCompute(f.task, kMean, 2); }, -4003},
    {"compute: empty mask", [](Fixture& f) { return ruddSSCompute(f.task, 0, 0); }, 0},
    {"compute: bit 37 only", [](Fixture& f) { return ruddSSCompute(f.task, 1LL << 37, 0); }, 0},
    // Basic group.
    {"basic: method 0x3", [](Fixture& f) { f.reg(7); return ruddSSCompute(f.task, kMean, 3); }, -4029},
    {"basic: method 0x101", [](Fixture& f) { f.reg(7); return ruddSSCompute(f.task, kMean, 0x101); }, -4029},
    {"basic: method 0", [](Fixture& f) { f.reg(7); return ruddSSCompute(f.task, kMean, 0); }, -4029},
    {"basic: cm2 without mean", [](Fixture& f) { f.reg(8); f.reg(11); return ruddSSCompute(f.task, kCm2, 2); }, -4006},
    {"basic: cm2 without raw 2", [](Fixture& f) { f.reg(7); f.reg(11); return ruddSSCompute(f.task, kCm2, 2); }, -4007},
    {"basic: cm2 missing", [](Fixture& f) { f.reg(7); f.reg(8); return ruddSSCompute(f.task, kCm2, 2); }, -4010},
    {"basic: sum missing", [](Fixture& f) { return ruddSSCompute(f.task, RUD_SS_ESTIMATE_SUM, 2); }, -4074},
    {"basic: conversion of a sum", [](Fixture& f) { f.reg(67); return ruddSSCompute(f.task, RUD_SS_ESTIMATE_SUM, 0x200); }, -4029},
    {"basic: covariance storage", [](Fixture& f) { f.reg(7); f.reg(19); return ruddSSCompute(f.task, RUD_SS_ESTIMATE_COVARIANCE, 2); }, -4044},
    {"basic: user mean needs the mean", [](Fixture& f) { f.reg(8); return ruddSSCompute(f.task, RUD_SS_ESTIMATE_RAW_MOMENT_2, 0x100); }, -4006},
    {"basic: partial bit skips the data checks", [](Fixture& f) { f.reg(7); ruddSSEditTask(f.task, 3, f.x); f.n = 0; return ruddSSCompute(f.task, kMean | RUD_SS_ESTIMATE_PARTIAL_COVARIANCE, 2); }, -4002},
    // Extremes and deviations.
    {"extremes: minimum missing", [](Fixture& f) { return ruddSSCompute(f.task, RUD_SS_ESTIMATE_MINIMUM, 2); }, -4015},
    {"extremes: maximum missing", [](Fixture& f) { f.reg(16); return ruddSSCompute(f.task, 0xC00, 2); }, -4016},
    {"extremes: method", [](Fixture& f) { f.reg(16); return ruddSSCompute(f.task, RUD_SS_ESTIMATE_MINIMUM, 0x100); }, -4029},
    {"mean abs dev: missing", [](Fixture& f) { return ruddSSCompute(f.task, RUD_SS_ESTIMATE_MEAN_ABSOLUTE_DEVIATION, 1); }, -4083},
    {"mean abs dev: method", [](Fixture& f) { f.reg(77); return ruddSSCompute(f.task, RUD_SS_ESTIMATE_MEAN_ABSOLUTE_DEVIATION, 2); }, -4029},
    {"mean abs dev: user mean without mean", [](Fixture& f) { f.reg(77); return ruddSSCompute(f.task, RUD_SS_ESTIMATE_MEAN_ABSOLUTE_DEVIATION, 0x100); }, -4006},
    {"median abs dev: missing", [](Fixture& f) { f.reg(77); return ruddSSCompute(f.task, kMad | kMeanAd, 1); }, -4082},
    {"median abs dev: method", [](Fixture& f) { f.reg(76); return ruddSSCompute(f.task, kMad, 2); }, -4029},
    {"median abs dev: runs before the mean one", [](Fixture& f) { f.reg(76); return ruddSSCompute(f.task, kMad | kMeanAd, 1); }, -4083},
    // Quantiles and order statistics.
    {"quantiles: output missing", [](Fixture& f) { return ruddSSCompute(f.task, kQ, 1); }, -4023},
    {"quantiles: orders missing", [](Fixture& f) { f.reg(26); return ruddSSCompute(f.task, kQ, 1); }, -4021},
    {"quantiles: count missing", [](Fixture& f) { f.reg(26); f.reg(25); return ruddSSCompute(f.task, kQ, 1); }, -4022},
    {"quantiles: count negative", [](Fixture& f) { f.quant(-1); return ruddSSCompute(f.task, kQ, 1); }, -4022},
    {"quantiles: order above 1", [](Fixture& f) { f.quant(2); f.out[25 % 9][1] = 1.5; return ruddSSCompute(f.task, kQ, 1); }, -4022},
    {"quantiles: order below 0", [](Fixture& f) { f.quant(2); f.out[25 % 9][0] = -0.1; return ruddSSCompute(f.task, kQ, 1); }, -4022},
    {"quantiles: order NaN", [](Fixture& f) { f.quant(2); f.out[25 % 9][0] = NAN; return ruddSSCompute(f.task, kQ, 1); }, -4022},
    {"quantiles: order beyond m not read", [](Fixture& f) { f.quant(1); f.out[25 % 9][1] = 7; return ruddSSCompute(f.task, kQ, 1); }, 0},
    {"order stats: output missing", [](Fixture& f) { f.quant(2); return ruddSSCompute(f.task, kQ | kOS, 1); }, -4024},
    {"order stats: storage missing", [](Fixture& f) { f.reg(27); return ruddSSCompute(f.task, kOS, 1); }, -4044},
    {"order stats: storage value", [](Fixture& f) { f.reg(27); f.m = 3; rudiSSEditTask(f.task, 44, &f.m); return ruddSSCompute(f.task, kOS, 1); }, -4003},
    {"quantiles: method", [](Fixture& f) { f.quant(2); return ruddSSCompute(f.task, kQ, 2); }, -4029},
    {"quantiles: m 0", [](Fixture& f) { f.quant(0); f.out[26 % 9][0] = 5; int s = ruddSSCompute(f.task, kQ, 1); return s + (f.out[26 % 9][0] == 5 ? 0 : 1); }, 0},
    {"quantiles: selection 0 and 2", [](Fixture& f) { f.quant(1); rudiSSEditTask(f.task, 5, f.sel); int s = ruddSSCompute(f.task, kQ, 1); return s + (f.out[26 % 9][0] == 1 && f.out[26 % 9][1] == -1 ? 0 : 1); }, 0},
    // Sorted copy.
    {"sorted: output missing", [](Fixture& f) { return ruddSSCompute(f.task, kSorted, kSort); }, -4084},
    {"sorted: storage missing", [](Fixture& f) { f.reg(78); return ruddSSCompute(f.task, kSorted, kSort); }, -4044},
    {"sorted: in place, storages differ", [](Fixture& f) { f.in_place(0x20000); return ruddSSCompute(f.task, kSorted, kSort); }, -4044},
    {"sorted: in place with a selection", [](Fixture& f) { f.in_place(kRows); rudiSSEditTask(f.task, 5, f.sel); return ruddSSCompute(f.task, kSorted, kSort); }, -4085},
    {"sorted: in place, bad storage", [](Fixture& f) { f.storage = kCols; f.in_place(3); return ruddSSCompute(f.task, kSorted, kSort); }, -4003},
    {"sorted: output storage value", [](Fixture& f) { f.reg(78); f.m = 3; rudiSSEditTask(f.task, 79, &f.m); return ruddSSCompute(f.task, kSorted, kSort); }, -4003},
    {"sorted: method", [](Fixture& f) { f.in_place(kRows); return ruddSSCompute(f.task, kSorted, 1); }, -4029},
    {"sorted: in place", [](Fixture& f) { f.in_place(kRows); int s = ruddSSCompute(f.task, kSorted, kSort); return s + (f.x[8] == -1 && f.x[11] == 5 ? 0 : 1); }, 0},
    // Stream quantiles.
    {"stream: n negative", [](Fixture& f) { f.n = -1; return ruddSSCompute(f.task, kStream, 0x40); }, -4002},
    {"stream: bad storage", [](Fixture& f) { f.storage = 3; return ruddSSCompute(f.task, kStream, 0x40); }, -4003},
    {"stream: n 0 reads no data", [](Fixture& f) { f.n = 0; f.storage = 3; f.stream(5); return ruddSSCompute(f.task, kStream, 0x40); }, 0},
    {"stream: output missing", [](Fixture& f) { return ruddSSCompute(f.task, kStream, 0x40); }, -4070},
    {"stream: orders missing", [](Fixture& f) { f.stream(1); return ruddSSCompute(f.task, kStream, 0x40); }, -4068},
    {"stream: count missing", [](Fixture& f) { f.stream(2); return ruddSSCompute(f.task, kStream, 0x40); }, -4069},
    {"stream: count negative", [](Fixture& f) { f.stream(3); f.m = -1; return ruddSSCompute(f.task, kStream, 0x40); }, -4069},
    {"stream: parameter count missing", [](Fixture& f) { f.stream(3); return ruddSSCompute(f.task, kStream, 0x40); }, -4064},
    {"stream: parameter count 2", [](Fixture& f) { f.stream(4); f.param_count = 2; return ruddSSCompute(f.task, kStream, 0x40); }, -4066},
    {"stream: order above 1", [](Fixture& f) { f.stream(4); f.out[65 % 9][1] = 1.01; return ruddSSCompute(f.task, kStream, 0x40); }, -4069},
    {"stream: parameters missing", [](Fixture& f) { f.stream(4); return ruddSSCompute(f.task, kStream, 0x40); }, -4065},
    {"stream: method", [](Fixture& f) { f.stream(5); return ruddSSCompute(f.task, kStream, 1); }, -4029},
    {"stream: eps 0", [](Fixture& f) { f.stream(5); f.out[63 % 9][0] = 0; return ruddSSCompute(f.task, kStream, 0x80); }, -4067},
    {"stream: eps above 1", [](Fixture& f) { f.stream(5); f.out[63 % 9][0] = 1.5; return ruddSSCompute(f.task, kStream, 0x40); }, -4067},
    {"stream: eps too small for memory", [](Fixture& f) { f.stream(5); f.out[63 % 9][0] = 1e-300; return ruddSSCompute(f.task, kStream, 0x40); }, -4000},
    {"stream: eps 1", [](Fixture& f) { f.stream(5); f.out[63 % 9][0] = 1; return ruddSSCompute(f.task, kStream, 0x40); }, 0},
    {"stream: empty selection", [](Fixture& f) { f.stream(5); f.sel[0] = f.sel[2] = 0; rudiSSEditTask(f.task, 5, f.sel); return ruddSSCompute(f.task, kStream, 0x40); }, -4004},
    {"stream: variable added later", [](Fixture& f) { f.stream(5); rudiSSEditTask(f.task, 5, f.sel); ruddSSCompute(f.task, kStream, 0x40); f.sel[1] = 1; return ruddSSCompute(f.task, kStream, 0x40); }, -4004},
    {"stream: variable dropped later", [](Fixture& f) { f.stream(5); ruddSSCompute(f.task, kStream, 0x40); rudiSSEditTask(f.task, 5, f.sel); return ruddSSCompute(f.task, kStream, 0x40); }, 0},
    {"stream: summary only leaves the output", [](Fixture& f) { f.stream(5); f.out[3][0] = 9; int s = ruddSSCompute(f.task, kStream, 0x80); return s + (f.out[3][0] == 9 ? 0 : 1); }, 0},
    // Groups this build lacks are refused, after the groups before them ran.
    {"pooled: not available", [](Fixture& f) { f.reg(7); int s = ruddSSCompute(f.task, kMean | RUD_SS_ESTIMATE_POOLED_MEAN, 2); return s + (f.out[7][0] == 2.5 ? 0 : 1); }, RUD_SS_ERROR_GROUP_NOT_AVAILABLE},
    {"missing values run alone", [](Fixture& f) { return ruddSSCompute(f.task, kMean | RUD_SS_ESTIMATE_MISSING_VALUES, 2); }, RUD_SS_ERROR_GROUP_NOT_AVAILABLE},
    // Lower-case twins.
    {"twin: compute by pointer", [](Fixture& f) { f.reg(7); long long e = kMean; int m = 2; return ruddsscompute(&f.task, &e, &m); }, 0},
    {"twin: edit null task", [](Fixture& f) { int c = 7; return ruddssedittask(nullptr, &c, f.x); }, -4031},
};
// clang-format on

TEST(StatsChecks, EveryCheckInOrder) {
  for (const CheckRow& row : kChecks) {
    Fixture f;
    EXPECT_EQ(row.run(f), row.expected) << row.name;
  }
}

TEST(StatsChecks, EditorsStoreTheGivenPointerAndDeleteClearsTheHandle) {
  Fixture f;
  double m[3];
  ASSERT_EQ(ruddSSEditCovCor(f.task, m, nullptr, &f.cov_storage, nullptr, nullptr), 0);
  auto* t = static_cast<tvx::ss::Task*>(f.task);
  EXPECT_EQ(t->mean, m);
  EXPECT_EQ(t->covariance_storage, &f.cov_storage);
  EXPECT_EQ(t->covariance, nullptr);
  EXPECT_EQ(t->record_kind, 2u);
  EXPECT_EQ(t->real_kind, 1u);
  ASSERT_EQ(rudiSSEditTask(f.task, RUD_SS_FIELD_SORTED_OBSERVATIONS_STORAGE, &f.p), 0);
  EXPECT_EQ(t->sorted_observations_storage, &f.p);
  RudSSTaskPtr copy = f.task;
  EXPECT_EQ(rudSSDeleteTask(&copy), 0);
  EXPECT_EQ(copy, nullptr);
  f.task = nullptr;
}

// ---- Data sets and their long-double references ------------------------------------------------
struct Data {
  const char* name;
  int p, n;
  std::vector<LD> x;  // variables in rows
  std::vector<LD> w;  // empty: unit weights
  std::vector<int> sel;
  bool hard_for_raw_sums = false;  // huge offset, tiny spread
};

Data make_data(int kind) {
  std::mt19937_64 g(1234 + kind);
  std::normal_distribution<double> z;
  Data d{"", 4, 1001, {}, {}, {}};
  switch (kind) {
    case 0:
      d.name = "random";
      break;
    case 1:
      d.name = "weighted";
      break;
    case 2:
      d.name = "selection";
      d.sel = {1, 0, 1, 1};
      break;
    case 3:
      d.name = "offset 1e9";
      d.hard_for_raw_sums = true;
      break;
    case 4:
      d.name = "one observation";
      d.n = 1;
      break;
    case 5:
      d.name = "constant variable";
      break;
    case 6:
      d.name = "eleven variables";
      d.p = 11;
      d.n = 300;
      break;
  }
  d.x.resize(static_cast<size_t>(d.p) * d.n);
  for (int v = 0; v < d.p; ++v)
    for (int i = 0; i < d.n; ++i) {
      double e = z(g) * (1 + v) + 3 * v - 1 + (v > 0 ? 0.5 * d.x[i] : 0);
      if (kind == 3) e = 1e9 + std::ldexp(std::round(std::ldexp(z(g), 20)), -20);
      if (kind == 5 && v == 2) e = 7.25;
      d.x[static_cast<size_t>(v) * d.n + i] = e;
    }
  if (kind == 1) {
    d.w.resize(d.n);
    for (int i = 0; i < d.n; ++i) d.w[i] = (i % 7 == 0) ? 0.0 : 0.25 + (i % 5);
  }
  return d;
}

struct Ref {
  LD W, W2;
  std::vector<LD> mean, raw[3], cs[3], cm[3], kurt, skew, var, cross;  // cross: p*p full
};

Ref reference(const Data& d) {
  Ref r{};
  const int p = d.p, n = d.n;
  auto w = [&](int i) -> LD { return d.w.empty() ? 1.0L : d.w[i]; };
  for (int i = 0; i < n; ++i) r.W += w(i), r.W2 += w(i) * w(i);
  r.mean.assign(p, 0);
  for (auto* v : {&r.raw[0], &r.raw[1], &r.raw[2], &r.cs[0], &r.cs[1], &r.cs[2], &r.cm[0], &r.cm[1],
                  &r.cm[2], &r.kurt, &r.skew, &r.var})
    v->assign(p, 0);
  r.cross.assign(static_cast<size_t>(p) * p, 0);
  auto x = [&](int v, int i) { return d.x[static_cast<size_t>(v) * n + i]; };
  for (int v = 0; v < p; ++v) {
    for (int i = 0; i < n; ++i) {
      r.mean[v] += w(i) * x(v, i);
      for (int k = 0; k < 3; ++k) r.raw[k][v] += w(i) * std::pow(x(v, i), k + 2);
    }
    r.mean[v] /= r.W;
    for (int k = 0; k < 3; ++k) r.raw[k][v] /= r.W;
  }
  for (int v = 0; v < p; ++v) {
    for (int i = 0; i < n; ++i)
      for (int k = 0; k < 3; ++k) r.cs[k][v] += w(i) * std::pow(x(v, i) - r.mean[v], k + 2);
    r.cm[0][v] = r.cs[0][v] * r.W / (r.W * r.W - r.W2);
    r.cm[1][v] = r.cs[1][v] / r.W;
    r.cm[2][v] = r.cs[2][v] / r.W;
    r.kurt[v] = r.cm[2][v] / (r.cm[0][v] * r.cm[0][v]) - 3;
    r.skew[v] = r.cm[1][v] / std::sqrt(r.cm[0][v] * r.cm[0][v] * r.cm[0][v]);
    r.var[v] = std::sqrt(r.cm[0][v]) / r.mean[v];
    for (int u = 0; u < p; ++u)
      for (int i = 0; i < n; ++i)
        r.cross[static_cast<size_t>(v) * p + u] +=
            w(i) * (x(v, i) - r.mean[v]) * (x(u, i) - r.mean[u]);
  }
  return r;
}

// ---- One compute over every output of the basic group ------------------------------------------
template <class T>
struct Outputs {
  std::vector<T> mean, raw[3], cm[3], sum[4], cs[3], kurt, skew, var, cov, cor, cross, acc;
  std::vector<T> mad;
};

constexpr double kMarker = -1234.5;

template <class T>
struct TaskRun {
  const Data& d;
  int storage, method, form;
  int p, n;
  std::vector<T> x, w;
  Outputs<T> o;
  RudSSTaskPtr task = nullptr;
  int cov_form, cor_form, cross_form;

  TaskRun(const Data& data, int st, int m, int f) : d(data), storage(st), method(m), form(f) {
    p = d.p;
    n = d.n;
    cov_form = cor_form = cross_form = f;
    const size_t msize = f == RUD_SS_MATRIX_FULL ? size_t(p) * p : size_t(p) * (p + 1) / 2;
    for (auto* v : {&o.mean, &o.raw[0], &o.raw[1], &o.raw[2], &o.cm[0], &o.cm[1], &o.cm[2],
                    &o.sum[0], &o.sum[1], &o.sum[2], &o.sum[3], &o.cs[0], &o.cs[1], &o.cs[2],
                    &o.kurt, &o.skew, &o.var, &o.mad})
      v->assign(p, T(kMarker));
    for (auto* v : {&o.cov, &o.cor, &o.cross}) v->assign(msize, T(kMarker));
    o.acc.assign(2, T(0));
    if constexpr (sizeof(T) == 8)
      ruddSSNewTask(&task, &p, &n, &storage, nullptr, nullptr,
                    d.sel.empty() ? nullptr : d.sel.data());
    else
      rudsSSNewTask(&task, &p, &n, &storage, nullptr, nullptr,
                    d.sel.empty() ? nullptr : d.sel.data());
    const int fields[] = {7,  8,  9,  10, 11, 12, 13, 67, 68, 69, 70,
                          71, 72, 73, 14, 15, 18, 19, 21, 74, 77};
    std::vector<T>* arrays[] = {&o.mean,  &o.raw[0], &o.raw[1], &o.raw[2], &o.cm[0],  &o.cm[1],
                                &o.cm[2], &o.sum[0], &o.sum[1], &o.sum[2], &o.sum[3], &o.cs[0],
                                &o.cs[1], &o.cs[2],  &o.kurt,   &o.skew,   &o.var,    &o.cov,
                                &o.cor,   &o.cross,  &o.mad};
    for (size_t k = 0; k < std::size(fields); ++k) edit(fields[k], arrays[k]->data());
    rudiSSEditTask(task, RUD_SS_FIELD_COVARIANCE_STORAGE, &cov_form);
    rudiSSEditTask(task, RUD_SS_FIELD_CORRELATION_STORAGE, &cor_form);
    rudiSSEditTask(task, RUD_SS_FIELD_CROSS_PRODUCT_STORAGE, &cross_form);
  }
  ~TaskRun() { rudSSDeleteTask(&task); }
  void edit(int field, T* a) {
    if constexpr (sizeof(T) == 8)
      ruddSSEditTask(task, field, a);
    else
      rudsSSEditTask(task, field, a);
  }
  // Observations [i0, i0 + count) as the current block, in the run's layout.
  void block(int i0, int count) {
    n = count;
    x.resize(size_t(p) * count);
    for (int v = 0; v < p; ++v)
      for (int i = 0; i < count; ++i)
        x[storage == kRows ? size_t(v) * count + i : size_t(i) * p + v] =
            static_cast<T>(d.x[size_t(v) * d.n + i0 + i]);
    edit(RUD_SS_FIELD_OBSERVATIONS, x.data());
    if (!d.w.empty()) {
      w.assign(d.w.begin() + i0, d.w.begin() + i0 + count);
      edit(RUD_SS_FIELD_WEIGHTS, w.data());
    }
  }
  int compute(long long estimates, int (*fn)(void*, long long, int) = nullptr) {
    if (fn) return fn(task, estimates, method);
    if constexpr (sizeof(T) == 8)
      return ruddSSCompute(task, estimates, method);
    else
      return rudsSSCompute(task, estimates, method);
  }
  // Whole data set in `blocks` blocks, accumulated weights registered when more than one.
  int blocks(int count, long long estimates, int (*fn)(void*, long long, int) = nullptr) {
    if (count > 1) edit(RUD_SS_FIELD_ACCUMULATED_WEIGHTS, o.acc.data());
    for (int b = 0; b < count; ++b) {
      const int i0 = int(long(d.n) * b / count), i1 = int(long(d.n) * (b + 1) / count);
      block(i0, i1 - i0);
      if (int s = compute(estimates, fn)) return s;
    }
    return 0;
  }
};

// Element (i, j) of a stored symmetric matrix, or the marker check for a gap.
template <class T>
T element(const std::vector<T>& a, int form, int p, int i, int j) {
  if (form == RUD_SS_MATRIX_FULL) return a[size_t(i) * p + j];
  if (form == RUD_SS_MATRIX_PACKED_ROWS_LOWER) {
    if (j > i) std::swap(i, j);
    return a[size_t(i) * (i + 1) / 2 + j];
  }
  if (j < i) std::swap(i, j);
  return a[size_t(i) * p - size_t(i) * (i - 1) / 2 + j - i];
}

// Relative error with a floor of scale (for values near zero).
bool close(LD got, LD want, LD tol, LD scale) {
  if (std::isnan(static_cast<double>(want))) return std::isnan(static_cast<double>(got));
  if (std::isinf(static_cast<double>(want))) return got == want;
  return std::fabs(got - want) <= tol * std::max(std::fabs(want), scale);
}

testing::AssertionResult close_format(const char*, const char*, const char*, const char*, LD got,
                                      LD want, LD tol, LD scale) {
  if (close(got, want, tol, scale)) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << "got " << static_cast<double>(got) << " want " << static_cast<double>(want)
         << " relative error "
         << static_cast<double>(std::fabs(got - want) / std::max(std::fabs(want), scale));
}

template <class T>
void compare(const TaskRun<T>& r, const Ref& ref, LD tol, const std::string& what) {
  const Data& d = r.d;
  const int p = d.p;
  const bool one = d.n == 1;
  for (int v = 0; v < p; ++v) {
    const bool sel = d.sel.empty() || d.sel[v];
    const std::string at = what + " variable " + std::to_string(v);
    if (!sel) {
      if (r.method != RUD_SS_METHOD_USER_MEAN) {
        EXPECT_EQ(r.o.mean[v], T(kMarker)) << at;
      }
      EXPECT_EQ(r.o.cm[0][v], T(kMarker)) << at;
      for (int u = 0; u < p; ++u) EXPECT_EQ(element(r.o.cov, r.form, p, v, u), T(kMarker)) << at;
      continue;
    }
    // A constant variable's running mean may move by a few ulps: its central quantities are
    // then held to that size instead of to zero.
    const bool constant = ref.cs[0][v] == 0;
    const LD eps = std::numeric_limits<T>::epsilon();
    const bool fast = r.method == RUD_SS_METHOD_FAST;
    const LD sd = !constant ? std::sqrt(ref.cs[0][v] / ref.W)
                  : fast    ? std::fabs(ref.mean[v])  // raw sums: noise of the size of m^k eps
                            : std::fabs(ref.mean[v]) * 16 * eps;
    const LD m = std::fabs(ref.mean[v]) + sd;
    if (r.method != RUD_SS_METHOD_USER_MEAN) {
      EXPECT_PRED_FORMAT4(close_format, (LD)r.o.mean[v], ref.mean[v], tol, m)
          << at << " mean " << r.o.mean[v];
      EXPECT_PRED_FORMAT4(close_format, (LD)r.o.sum[0][v], ref.mean[v] * ref.W, tol, m * ref.W)
          << at << " sum";
    }
    for (int k = 0; k < 3; ++k) {
      const LD scale = std::pow(m, k + 2);
      EXPECT_PRED_FORMAT4(close_format, (LD)r.o.raw[k][v], ref.raw[k][v], tol, scale)
          << at << " raw " << k + 2;
      EXPECT_PRED_FORMAT4(close_format, (LD)r.o.sum[k + 1][v], ref.raw[k][v] * ref.W, tol,
                          scale * ref.W)
          << at;
    }
    // Central quantities, relative to the spread; the fast method is exempt where raw sums
    // cannot hold them.
    if (r.method == RUD_SS_METHOD_FAST && d.hard_for_raw_sums) continue;
    const LD ctol = fast ? tol * std::pow(m / sd, 4) : constant ? 1 : tol;
    for (int k = 0; k < 3; ++k) {
      const LD scale = std::pow(sd, k + 2);
      EXPECT_PRED_FORMAT4(close_format, (LD)r.o.cs[k][v], ref.cs[k][v], ctol, scale * ref.W)
          << at << " cs " << k + 2;
      if (k == 0 && one) {
        EXPECT_TRUE(std::isnan(r.o.cm[0][v])) << at << " cm2 of one observation is 0/0";
        continue;
      }
      EXPECT_PRED_FORMAT4(close_format, (LD)r.o.cm[k][v], ref.cm[k][v], ctol, scale)
          << at << " cm " << k + 2;
    }
    if (one || constant) continue;
    // The user-mean matrix is a raw cross product less W u u' and shares the fast method's limit.
    if (r.method == RUD_SS_METHOD_USER_MEAN && d.hard_for_raw_sums) continue;
    EXPECT_PRED_FORMAT4(close_format, (LD)r.o.kurt[v], ref.kurt[v], ctol * 10, 1)
        << at << " kurtosis";
    EXPECT_PRED_FORMAT4(close_format, (LD)r.o.skew[v], ref.skew[v], ctol * 10, 1)
        << at << " skewness";
    EXPECT_PRED_FORMAT4(close_format, (LD)r.o.var[v], ref.var[v], ctol * 10, 1e-3L)
        << at << " variation";
    for (int u = 0; u < p; ++u) {
      if (!(d.sel.empty() || d.sel[u])) continue;
      const LD cross = ref.cross[size_t(v) * p + u];
      const LD sdu = std::sqrt(std::fabs(ref.cs[0][u]) / ref.W);
      const LD f = 1 / (ref.W - ref.W2 / ref.W);
      if (ref.cs[0][u] == 0) continue;
      const LD scale = sd * sdu * ref.W;
      EXPECT_PRED_FORMAT4(close_format, (LD)element(r.o.cross, r.form, p, v, u), cross, ctol, scale)
          << at << " cross";
      EXPECT_PRED_FORMAT4(close_format, (LD)element(r.o.cov, r.form, p, v, u), cross * f, ctol,
                          scale * f)
          << at;
      const LD cor = u == v ? cross * f : cross / std::sqrt(ref.cs[0][v] * ref.cs[0][u]);
      EXPECT_PRED_FORMAT4(close_format, (LD)element(r.o.cor, r.form, p, v, u), cor, ctol,
                          u == v ? scale * f : 1)
          << at << " correlation with " << u;
    }
  }
}

struct Case {
  int storage, method, form, blocks;
};

// Every data set under one-pass, fast and user-mean, both layouts, the three storage forms and
// 1, 7 and 1000 blocks (the block count capped by n).
template <class T>
void check_all(int (*fn)(void*, long long, int), const std::string& label) {
  const LD tol = sizeof(T) == 8 ? 1e-9L : 2e-3L;
  const Case cases[] = {
      {kRows, RUD_SS_METHOD_ONE_PASS, RUD_SS_MATRIX_FULL, 1},
      {kCols, RUD_SS_METHOD_ONE_PASS, RUD_SS_MATRIX_PACKED_ROWS_LOWER, 7},
      {kRows, RUD_SS_METHOD_ONE_PASS, RUD_SS_MATRIX_PACKED_ROWS_UPPER, 1000},
      {kCols, RUD_SS_METHOD_FAST, RUD_SS_MATRIX_FULL, 1},
      {kRows, RUD_SS_METHOD_FAST, RUD_SS_MATRIX_PACKED_ROWS_UPPER, 7},
      {kCols, RUD_SS_METHOD_FAST, RUD_SS_MATRIX_PACKED_ROWS_LOWER, 1000},
      {kRows, RUD_SS_METHOD_USER_MEAN, RUD_SS_MATRIX_PACKED_ROWS_LOWER, 1},
      {kCols, RUD_SS_METHOD_USER_MEAN, RUD_SS_MATRIX_FULL, 7},
  };
  for (int kind = 0; kind < 7; ++kind) {
    const Data d = make_data(kind);
    const Ref ref = reference(d);
    for (const Case& c : cases) {
      if (sizeof(T) == 4 && d.hard_for_raw_sums) continue;  // 1e9 + noise has no float form
      TaskRun<T> r(d, c.storage, c.method, c.form);
      const std::string what = label + " " + d.name + " storage " + std::to_string(c.storage) +
                               " method " + std::to_string(c.method) + " form " +
                               std::to_string(c.form) + " blocks " + std::to_string(c.blocks);
      if (c.method == RUD_SS_METHOD_USER_MEAN)
        for (int v = 0; v < d.p; ++v) r.o.mean[v] = static_cast<T>(ref.mean[v]);
      const long long mask = kAllBasic | RUD_SS_ESTIMATE_CROSS_PRODUCT;
      ASSERT_EQ(r.blocks(std::min(c.blocks, d.n), mask, fn), 0) << what;
      // Offset data: the deviations carry the rounding of a mean near 1e9 (ulp 1.2e-7).
      compare(r, ref, d.hard_for_raw_sums ? 1e-6L : tol * (c.blocks > 1 ? 10 : 1), what);
    }
  }
}

TEST(StatsBasic, DoubleAgainstLongDoubleReferences) {
  check_all<double>(nullptr, "double");
}

TEST(StatsBasic, SingleAgainstLongDoubleReferences) {
  check_all<float>(nullptr, "single");
}

// The same checks through each variant copy the machine can run; every copy also gives the same
// bits as the first (no FMA, fixed summation trees).
TEST(StatsBasic, EveryVariantCopy) {
  using Fn = int (*)(void*, long long, int);
#define TVX_SS_COPY(v) {#v, &rud_ss_compute_d_##v},
  const std::pair<const char*, Fn> copies[] = {TVX_SS_VARIANTS(TVX_SS_COPY)};
#undef TVX_SS_COPY
  const Data d = make_data(1);
  std::map<std::pair<int, int>, std::vector<double>> first;  // by storage and method
  for (size_t k = 0; k < std::size(copies); ++k) {
    if (const char* missing = tvx::test::copy_lacks(static_cast<int>(k))) {
      std::printf("skipped %s: the processor lacks %s\n", copies[k].first, missing);
      continue;
    }
    check_all<double>(copies[k].second, copies[k].first);
    for (int storage : {kRows, kCols})
      for (int method : {RUD_SS_METHOD_ONE_PASS, RUD_SS_METHOD_FAST, RUD_SS_METHOD_USER_MEAN}) {
        TaskRun<double> r(d, storage, method, RUD_SS_MATRIX_FULL);
        for (int v = 0; v < d.p; ++v) r.o.mean[v] = 1;
        ASSERT_EQ(r.blocks(3, kAllBasic, copies[k].second), 0);
        std::vector<double> all;
        for (const auto* a : {&r.o.mean, &r.o.raw[2], &r.o.cm[1], &r.o.kurt, &r.o.cov})
          all.insert(all.end(), a->begin(), a->end());
        const auto [want, inserted] = first.try_emplace({storage, method}, all);
        EXPECT_TRUE(inserted ||
                    std::memcmp(all.data(), want->second.data(), all.size() * sizeof(double)) == 0)
            << copies[k].first << " storage " << storage << " method " << method;
      }
  }
}

TEST(StatsBasic, ConversionFromSumsAndCrossProduct) {
  const Data d = make_data(1);
  const Ref ref = reference(d);
  TaskRun<double> pass(d, kRows, RUD_SS_METHOD_ONE_PASS, RUD_SS_MATRIX_PACKED_ROWS_UPPER);
  ASSERT_EQ(pass.blocks(1, kAllBasic | RUD_SS_ESTIMATE_CROSS_PRODUCT), 0);
  Outputs<double> sums = pass.o;
  // Clear the moments and convert the sums back into them.
  for (auto* v : {&pass.o.mean, &pass.o.raw[0], &pass.o.cm[0], &pass.o.cm[2], &pass.o.kurt})
    v->assign(d.p, kMarker);
  pass.o.cov.assign(pass.o.cov.size(), kMarker);
  pass.method = RUD_SS_METHOD_FROM_SUMS;
  pass.o.acc = {static_cast<double>(ref.W), static_cast<double>(ref.W2)};
  pass.edit(RUD_SS_FIELD_ACCUMULATED_WEIGHTS, pass.o.acc.data());
  ASSERT_EQ(
      pass.compute(kMean | RUD_SS_ESTIMATE_RAW_MOMENT_2 | kCm2 | RUD_SS_ESTIMATE_CENTRAL_MOMENT_4 |
                   RUD_SS_ESTIMATE_KURTOSIS | RUD_SS_ESTIMATE_COVARIANCE),
      0);
  compare(pass, ref, 1e-9L, "conversion");
  EXPECT_EQ(pass.o.cross, sums.cross);  // only read
}

TEST(StatsBasic, ExtremesAndMeanAbsoluteDeviation) {
  for (int kind : {1, 2}) {
    const Data d = make_data(kind);
    TaskRun<double> r(d, kind == 1 ? kCols : kRows, RUD_SS_METHOD_FAST, 0);
    std::vector<double> mn(d.p, INFINITY), mx(d.p, -INFINITY);
    mn[0] = NAN;  // a NaN start stays
    r.edit(RUD_SS_FIELD_MINIMUM, mn.data());
    r.edit(RUD_SS_FIELD_MAXIMUM, mx.data());
    ASSERT_EQ(r.blocks(3, 0xC00 | RUD_SS_ESTIMATE_MEAN_ABSOLUTE_DEVIATION), 0);
    for (int v = 0; v < d.p; ++v) {
      if (!d.sel.empty() && !d.sel[v]) {
        EXPECT_EQ(r.o.mad[v], kMarker);
        EXPECT_TRUE(std::isinf(mx[v]));
        continue;
      }
      LD lo = INFINITY, hi = -INFINITY;
      for (int i = 0; i < d.n; ++i) {
        lo = std::min(lo, d.x[size_t(v) * d.n + i]);
        hi = std::max(hi, d.x[size_t(v) * d.n + i]);
      }
      if (v == 0)
        EXPECT_TRUE(std::isnan(mn[v]));
      else
        EXPECT_EQ(mn[v], static_cast<double>(lo));
      EXPECT_EQ(mx[v], static_cast<double>(hi));
    }
    // The deviation of the last block only (the group keeps no state between blocks).
    const int i0 = d.n * 2 / 3;
    LD W = 0, m = 0, dev = 0;
    auto w = [&](int i) -> LD { return d.w.empty() ? 1.0L : d.w[i]; };
    for (int i = i0; i < d.n; ++i) W += w(i), m += w(i) * d.x[size_t(2) * d.n + i];
    m /= W;
    for (int i = i0; i < d.n; ++i) dev += w(i) * std::fabs(d.x[size_t(2) * d.n + i] - m);
    EXPECT_NEAR(r.o.mad[2], static_cast<double>(dev / W), 1e-12 * static_cast<double>(dev / W));
  }
}

// Covariance, correlation or cross product registered alone: later blocks rebuild the working
// matrix from that one output (a correlation through its variance diagonal). With 200 variables
// the fast and user-mean methods take the single rank-n update after the threads.
TEST(StatsBasic, MatrixAloneResumesFromItsOwnOutput) {
  Data wide = make_data(0);
  wide.name = "200 variables";
  wide.p = 200;
  wide.n = 300;
  wide.x.resize(size_t(wide.p) * wide.n);
  std::mt19937_64 g(99);
  std::normal_distribution<double> z;
  for (auto& e : wide.x) e = z(g) + 1;
  const Data sets[] = {make_data(1), make_data(2), wide};
  const long long outputs[] = {RUD_SS_ESTIMATE_COVARIANCE, RUD_SS_ESTIMATE_CORRELATION,
                               RUD_SS_ESTIMATE_CROSS_PRODUCT};
  for (const Data& d : sets) {
    const Ref ref = reference(d);
    const LD f = 1 / (ref.W - ref.W2 / ref.W);
    for (int method : {RUD_SS_METHOD_ONE_PASS, RUD_SS_METHOD_FAST, RUD_SS_METHOD_USER_MEAN})
      for (long long out : outputs)
        for (int form : {RUD_SS_MATRIX_FULL, RUD_SS_MATRIX_PACKED_ROWS_LOWER}) {
          TaskRun<double> r(d, kRows, method, form);
          auto* t = static_cast<tvx::ss::Task*>(r.task);
          if (out != RUD_SS_ESTIMATE_COVARIANCE) t->covariance = nullptr;
          if (out != RUD_SS_ESTIMATE_CORRELATION) t->correlation = nullptr;
          if (out != RUD_SS_ESTIMATE_CROSS_PRODUCT) t->cross_product = nullptr;
          for (int v = 0; v < d.p; ++v) r.o.mean[v] = static_cast<double>(ref.mean[v]);
          ASSERT_EQ(r.blocks(7, out), 0);
          const auto& a = out == RUD_SS_ESTIMATE_COVARIANCE    ? r.o.cov
                          : out == RUD_SS_ESTIMATE_CORRELATION ? r.o.cor
                                                               : r.o.cross;
          for (int i = 0; i < d.p; ++i)
            for (int j = 0; j < d.p; ++j) {
              if (!d.sel.empty() && (!d.sel[i] || !d.sel[j])) {
                EXPECT_EQ(element(a, form, d.p, i, j), kMarker);
                continue;
              }
              const LD c = ref.cross[size_t(i) * d.p + j];
              const LD sii = ref.cross[size_t(i) * d.p + i], sjj = ref.cross[size_t(j) * d.p + j];
              const LD want = out == RUD_SS_ESTIMATE_CROSS_PRODUCT ? c
                              : out == RUD_SS_ESTIMATE_COVARIANCE || i == j
                                  ? c * f
                                  : c / std::sqrt(sii * sjj);
              const LD scale =
                  out == RUD_SS_ESTIMATE_CORRELATION && i != j
                      ? 1
                      : std::sqrt(sii * sjj) * (out == RUD_SS_ESTIMATE_CROSS_PRODUCT ? 1 : f);
              EXPECT_PRED_FORMAT4(close_format, (LD)element(a, form, d.p, i, j), want, 1e-9L, scale)
                  << d.name << " method " << method << " output " << out << " form " << form << " ("
                  << i << ", " << j << ")";
            }
        }
  }
}

// A block whose weights are all zero changes nothing: status 0, W and the results kept.
TEST(StatsBasic, BlockOfZeroWeightsChangesNothing) {
  const Data d = make_data(1);
  for (int method : {RUD_SS_METHOD_ONE_PASS, RUD_SS_METHOD_FAST}) {
    TaskRun<double> r(d, kCols, method, RUD_SS_MATRIX_FULL);
    ASSERT_EQ(r.blocks(2, kAllBasic), 0);
    const Outputs<double> before = r.o;
    std::fill(r.w.begin(), r.w.end(), 0.0);
    ASSERT_EQ(r.compute(kAllBasic), 0);
    EXPECT_EQ(r.o.acc, before.acc);
    for (int v = 0; v < d.p; ++v) {
      EXPECT_DOUBLE_EQ(r.o.mean[v], before.mean[v]) << method;
      EXPECT_NEAR(r.o.cm[0][v], before.cm[0][v], 1e-12 * std::fabs(before.cm[0][v])) << method;
    }
  }
}

// Two threads against one: the same results to rounding, for every method, with and without
// weights and the matrix. Runs under ThreadSanitizer.
TEST(StatsThreads, TwoThreadsMatchOne) {
  Data d = make_data(1);
  d.n = 40000;
  d.x.resize(size_t(d.p) * d.n);
  std::mt19937_64 g(7);
  std::normal_distribution<double> z;
  for (auto& e : d.x) e = z(g) + 2;
  d.w.resize(d.n);
  for (int i = 0; i < d.n; ++i) d.w[i] = 0.5 + (i % 3);
  for (int weighted = 0; weighted < 2; ++weighted) {
    Data dd = d;
    if (!weighted) dd.w.clear();
    for (int method : {RUD_SS_METHOD_ONE_PASS, RUD_SS_METHOD_FAST, RUD_SS_METHOD_USER_MEAN}) {
      Outputs<double> out[2];
      for (int threads = 1; threads <= 2; ++threads) {
        const int old = tvx_set_num_threads_local(threads);
        TaskRun<double> r(dd, kCols, method, RUD_SS_MATRIX_FULL);
        for (int v = 0; v < dd.p; ++v) r.o.mean[v] = 2;
        EXPECT_EQ(r.blocks(1, kAllBasic | RUD_SS_ESTIMATE_CROSS_PRODUCT), 0);
        out[threads - 1] = r.o;
        tvx_set_num_threads_local(old);
      }
      for (size_t k = 0; k < out[0].cov.size(); ++k)
        EXPECT_NEAR(out[0].cov[k], out[1].cov[k], 1e-12) << method;
      for (int v = 0; v < dd.p; ++v) {
        EXPECT_NEAR(out[0].mean[v], out[1].mean[v], 1e-13) << method;
        EXPECT_NEAR(out[0].cm[2][v], out[1].cm[2][v], 1e-11) << method;
        EXPECT_NEAR(out[0].skew[v], out[1].skew[v], 1e-11) << method;
      }
    }
  }
}

}  // namespace
