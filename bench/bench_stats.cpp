// Summary statistics beside numpy and a hand-written OpenMP loop.
//
// 10 variables x 1e6 observations in double, variables in rows (numpy's C order for an array of
// shape (10, 1e6)), on one and two threads (dynamic adjustment off). Cases: mean, variance
// (central moment 2), covariance and correlation, each by the fast and the one-pass method;
// the OpenMP loop computes the mean and the covariance by two plain passes. Order cases, one
// thread: five exact quantiles, order statistics (the sorted rows), and stream quantiles with
// eps = 0.001 fed in blocks of 1e5 observations. The figure is
// ns_per_element: time per call over p * n. After the benchmarks the program runs the numpy
// script (bench/peers/stats_numpy.py) on the same shape, so one command gives both tables.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "runtime/settings.h"
#include "tvx_stats.h"

namespace {

constexpr int kP = 10, kN = 1000000;

struct Data {
  std::vector<double> x;
  Data() : x(static_cast<size_t>(kP) * kN) {
    std::mt19937_64 g(5);
    std::normal_distribution<double> z;
    for (auto& e : x) e = z(g) + 3;
  }
};
const Data& data() {
  static Data d;
  return d;
}

void team(int threads) {
  tvx_set_dynamic(0);
  tvx_set_num_threads(threads);
  omp_set_num_threads(threads);
}

void per_element(benchmark::State& state) {
  state.counters["ns_per_element"] = benchmark::Counter(
      static_cast<double>(kP) * kN * 1e-9,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_tvx(benchmark::State& state, long long estimate, int method) {
  team(static_cast<int>(state.range(0)));
  int p = kP, n = kN, storage = RUD_SS_STORAGE_VARIABLES_IN_ROWS, form = RUD_SS_MATRIX_FULL;
  std::vector<double> mean(kP), raw2(kP), cm2(kP), cov(kP * kP), cor(kP * kP);
  RudSSTaskPtr task;
  ruddSSNewTask(&task, &p, &n, &storage, data().x.data(), nullptr, nullptr);
  ruddSSEditMoments(task, mean.data(), raw2.data(), nullptr, nullptr, cm2.data(), nullptr, nullptr);
  ruddSSEditCovCor(task, nullptr, cov.data(), &form, cor.data(), &form);
  for (auto _ : state) {
    if (ruddSSCompute(task, estimate, method) != 0) state.SkipWithError("compute failed");
    benchmark::DoNotOptimize(mean.data());
  }
  rudSSDeleteTask(&task);
  per_element(state);
}

// Plain OpenMP loops: mean by a reduction per variable; covariance by means, then the sums of
// products of deviations, observations split over the team and partial matrices added.
void BM_openmp_mean(benchmark::State& state) {
  team(static_cast<int>(state.range(0)));
  const double* x = data().x.data();
  std::vector<double> mean(kP);
  for (auto _ : state) {
    for (int v = 0; v < kP; ++v) {
      double s = 0;
#pragma omp parallel for simd reduction(+ : s)
      for (int i = 0; i < kN; ++i) s += x[static_cast<size_t>(v) * kN + i];
      mean[v] = s / kN;
    }
    benchmark::DoNotOptimize(mean.data());
  }
  per_element(state);
}

void BM_openmp_cov(benchmark::State& state) {
  team(static_cast<int>(state.range(0)));
  const double* x = data().x.data();
  std::vector<double> mean(kP), cov(kP * kP);
  for (auto _ : state) {
    for (int v = 0; v < kP; ++v) {
      double s = 0;
#pragma omp parallel for simd reduction(+ : s)
      for (int i = 0; i < kN; ++i) s += x[static_cast<size_t>(v) * kN + i];
      mean[v] = s / kN;
    }
    std::fill(cov.begin(), cov.end(), 0.0);
#pragma omp parallel
    {
      double local[kP * kP] = {};
      double d[kP];
#pragma omp for
      for (int i = 0; i < kN; ++i) {
        for (int v = 0; v < kP; ++v) d[v] = x[static_cast<size_t>(v) * kN + i] - mean[v];
        for (int a = 0; a < kP; ++a)
          for (int b = a; b < kP; ++b) local[a * kP + b] += d[a] * d[b];
      }
#pragma omp critical
      for (int k = 0; k < kP * kP; ++k) cov[k] += local[k];
    }
    for (int a = 0; a < kP; ++a)
      for (int b = a; b < kP; ++b) cov[b * kP + a] = cov[a * kP + b] = cov[a * kP + b] / (kN - 1);
    benchmark::DoNotOptimize(cov.data());
  }
  per_element(state);
}

// Order-based groups on one thread. Quantiles: orders 0.05, 0.25, 0.5, 0.75, 0.95 (selection,
// no full sort). Order statistics: every variable sorted into its output row. Stream: the whole
// matrix fed in blocks of 1e5 observations into a fresh summary, with the answer at the end.
void BM_tvx_order(benchmark::State& state, long long estimate) {
  team(1);
  int p = kP, n = kN, storage = RUD_SS_STORAGE_VARIABLES_IN_ROWS, m = 5, one = 1;
  double orders[] = {0.05, 0.25, 0.5, 0.75, 0.95}, eps = 0.001;
  std::vector<double> q(kP * m),
      os(estimate == RUD_SS_ESTIMATE_ORDER_STATISTICS ? data().x.size() : 0);
  for (auto _ : state) {
    RudSSTaskPtr task;
    if (estimate == RUD_SS_ESTIMATE_STREAM_QUANTILES) {
      // Variables in columns, so that each block is one contiguous slice of the matrix: the
      // stored rows are read as columns of a matrix of kN x kP (the values differ, not the work).
      int block = 100000, cols = RUD_SS_STORAGE_VARIABLES_IN_COLUMNS;
      ruddSSNewTask(&task, &p, &block, &cols, data().x.data(), nullptr, nullptr);
      ruddSSEditStreamQuantiles(task, &m, orders, q.data(), &one, &eps);
      for (int done = 0; done < kN; done += block) {
        ruddSSEditTask(task, RUD_SS_FIELD_OBSERVATIONS, data().x.data() + size_t(done) * kP);
        const int method = done + block == kN ? RUD_SS_METHOD_STREAM_WITH_ANSWER
                                              : RUD_SS_METHOD_STREAM_SUMMARY_ONLY;
        if (ruddSSCompute(task, estimate, method) != 0) state.SkipWithError("compute failed");
      }
    } else {
      ruddSSNewTask(&task, &p, &n, &storage, data().x.data(), nullptr, nullptr);
      ruddSSEditQuantiles(task, &m, orders, q.data(), os.data(), &storage);
      if (ruddSSCompute(task, estimate, RUD_SS_METHOD_FAST) != 0)
        state.SkipWithError("compute failed");
    }
    rudSSDeleteTask(&task);
    benchmark::DoNotOptimize(q.data());
  }
  per_element(state);
}
BENCHMARK_CAPTURE(BM_tvx_order, quantiles_5, RUD_SS_ESTIMATE_QUANTILES)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_tvx_order, order_statistics, RUD_SS_ESTIMATE_ORDER_STATISTICS)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_tvx_order, stream_quantiles_eps_0_001, RUD_SS_ESTIMATE_STREAM_QUANTILES)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

constexpr long long kMean = RUD_SS_ESTIMATE_MEAN, kVar = RUD_SS_ESTIMATE_CENTRAL_MOMENT_2;
constexpr long long kCov = RUD_SS_ESTIMATE_COVARIANCE, kCor = RUD_SS_ESTIMATE_CORRELATION;
constexpr int kFast = RUD_SS_METHOD_FAST, kOnePass = RUD_SS_METHOD_ONE_PASS;

#define TVX_STATS_CASE(name, e, m)      \
  BENCHMARK_CAPTURE(BM_tvx, name, e, m) \
      ->Arg(1)                          \
      ->Arg(2)                          \
      ->Unit(benchmark::kMillisecond)   \
      ->UseRealTime();
TVX_STATS_CASE(mean_fast, kMean, kFast)
TVX_STATS_CASE(mean_one_pass, kMean, kOnePass)
TVX_STATS_CASE(var_fast, kVar, kFast)
TVX_STATS_CASE(var_one_pass, kVar, kOnePass)
TVX_STATS_CASE(cov_fast, kCov, kFast)
TVX_STATS_CASE(cov_one_pass, kCov, kOnePass)
TVX_STATS_CASE(cor_fast, kCor, kFast)
TVX_STATS_CASE(cor_one_pass, kCor, kOnePass)
BENCHMARK(BM_openmp_mean)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_openmp_cov)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  // numpy on the same shape, one thread in its BLAS.
  std::fflush(stdout);
  const std::string cmd =
      std::string("OPENBLAS_NUM_THREADS=1 ") + TVX_STATS_PYTHON + " " + TVX_STATS_NUMPY_SCRIPT;
  return std::system(cmd.c_str()) == 0 ? 0 : 1;
}
