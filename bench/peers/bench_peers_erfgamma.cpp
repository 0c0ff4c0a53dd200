// The special functions beside their peers, n = 100000, one thread: vdErf, vdErfc, vdErfInv,
// vdCdfNormInv and vdLGamma at each accuracy on this machine's variant; SLEEF (AVX-512), glibc's
// vector library where it has the function, glibc's scalar functions, and for CdfNormInv a loop
// of GSL's gsl_cdf_ugaussian_Pinv. A table of ns per element and of ratios follows the runs.
#include <benchmark/benchmark.h>
#include <gsl/gsl_cdf.h>
#include <immintrin.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "peer_isa.h"
#include "vector/frame/rows.h"

#pragma GCC push_options
#pragma GCC target("avx2,fma,avx512f,avx512dq")
extern "C" {
__m512d Sleef_erfd8_u10(__m512d);
__m512d Sleef_erfcd8_u15(__m512d);
__m512d Sleef_lgammad8_u10(__m512d);
__m512d _ZGVeN8v_erf(__m512d);
__m512d _ZGVeN8v_erfc(__m512d);
}
namespace {
template <auto F>
void vec_d(int n, const double* a, double* r) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm512_storeu_pd(r + i, F(_mm512_loadu_pd(a + i)));
  if (i < n) {
    const __mmask8 m = static_cast<__mmask8>((1u << (n - i)) - 1u);
    _mm512_mask_storeu_pd(r + i, m, F(_mm512_mask_loadu_pd(_mm512_set1_pd(0.5), m, a + i)));
  }
}
}  // namespace
#pragma GCC pop_options

namespace {

constexpr long kN = 100000;

// Inputs uniform over each function's working range.
const std::vector<double>& inputs(const std::string& fn) {
  static std::map<std::string, std::vector<double>> cache;
  auto& v = cache[fn];
  if (v.empty()) {
    const std::map<std::string, std::pair<double, double>> range = {{"vdErf", {-5, 5}},
                                                                    {"vdErfc", {-5, 25}},
                                                                    {"vdErfInv", {-1, 1}},
                                                                    {"vdCdfNormInv", {0, 1}},
                                                                    {"vdLGamma", {0.01, 100}}};
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> u(range.at(fn).first, range.at(fn).second);
    v.resize(kN);
    for (double& x : v) {
      do x = u(rng);
      while (x == range.at(fn).first);
    }
  }
  return v;
}

using Kernel = void (*)(int, const double*, double*);

void run(benchmark::State& state, const std::string& fn, Kernel k) {
  const std::vector<double>& a = inputs(fn);
  std::vector<double> r(kN);
  for (auto _ : state) {
    k(static_cast<int>(kN), a.data(), r.data());
    benchmark::DoNotOptimize(r.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kN);
}

template <class Row>
void tvx(benchmark::State& s, const std::string& fn, const Row& row, int level) {
  run(s, fn, row.kernels[tvx_kaz_variant_index() + 6 * (level - 1)]);
}
void avx512(benchmark::State& s, const std::string& fn, Kernel k) {
  if (skip_unless_variant_runs(s, kAvx512Variant)) return;
  run(s, fn, k);
}

struct Case {
  const char* name;
  void (*fn)(benchmark::State&);
};

#define TVX_LEVELS(F, row)                                             \
  {F "/tvx_LA", [](benchmark::State& s) { tvx(s, F, row, 1); }},       \
      {F "/tvx_HA", [](benchmark::State& s) { tvx(s, F, row, 2); }}, { \
    F "/tvx_EP", [](benchmark::State& s) { tvx(s, F, row, 3); }        \
  }

const Case kCases[] = {
    TVX_LEVELS("vdErf", tvx_row_erf_d),
    {"vdErf/sleef_u10", [](benchmark::State& s) { avx512(s, "vdErf", vec_d<Sleef_erfd8_u10>); }},
    {"vdErf/libmvec", [](benchmark::State& s) { avx512(s, "vdErf", vec_d<_ZGVeN8v_erf>); }},
    {"vdErf/glibc_scalar",
     [](benchmark::State& s) {
       run(s, "vdErf", [](int n, const double* a, double* r) {
         for (int i = 0; i < n; ++i) r[i] = std::erf(a[i]);
       });
     }},
    TVX_LEVELS("vdErfc", tvx_row_erfc_d),
    {"vdErfc/sleef_u15", [](benchmark::State& s) { avx512(s, "vdErfc", vec_d<Sleef_erfcd8_u15>); }},
    {"vdErfc/libmvec", [](benchmark::State& s) { avx512(s, "vdErfc", vec_d<_ZGVeN8v_erfc>); }},
    {"vdErfc/glibc_scalar",
     [](benchmark::State& s) {
       run(s, "vdErfc", [](int n, const double* a, double* r) {
         for (int i = 0; i < n; ++i) r[i] = std::erfc(a[i]);
       });
     }},
    TVX_LEVELS("vdErfInv", tvx_row_erfinv_d),
    TVX_LEVELS("vdCdfNormInv", tvx_row_cdfnorminv_d),
    {"vdCdfNormInv/gsl_scalar",
     [](benchmark::State& s) {
       run(s, "vdCdfNormInv", [](int n, const double* a, double* r) {
         for (int i = 0; i < n; ++i) r[i] = gsl_cdf_ugaussian_Pinv(a[i]);
       });
     }},
    TVX_LEVELS("vdLGamma", tvx_row_lgamma_d),
    {"vdLGamma/sleef_u10",
     [](benchmark::State& s) { avx512(s, "vdLGamma", vec_d<Sleef_lgammad8_u10>); }},
    {"vdLGamma/glibc_scalar",
     [](benchmark::State& s) {
       run(s, "vdLGamma", [](int n, const double* a, double* r) {
         for (int i = 0; i < n; ++i) r[i] = std::lgamma(a[i]);
       });
     }},
};

// Keeps ns per element (CPU time) of every run for the summary.
class Collector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred) continue;
      if (r.run_type != Run::RT_Iteration && r.aggregate_name != "median") continue;
      ns_[r.run_name.function_name] = r.GetAdjustedCPUTime() * 1e3 / static_cast<double>(kN);
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void summary() const {
    std::printf("\nCPU ns per element, n = %ld, single thread, variant %d\n", kN,
                tvx_kaz_variant_index());
    for (const auto& [name, ns] : ns_) std::printf("%-26s %10.3f\n", name.c_str(), ns);
    std::printf("ratios peer time / library time (above 1: the library is faster)\n");
    const std::pair<const char*, const char*> pairs[] = {
        {"vdErf/tvx_HA", "vdErf/libmvec"},
        {"vdErf/tvx_HA", "vdErf/sleef_u10"},
        {"vdErfc/tvx_HA", "vdErfc/libmvec"},
        {"vdErfc/tvx_HA", "vdErfc/sleef_u15"},
        {"vdCdfNormInv/tvx_HA", "vdCdfNormInv/gsl_scalar"},
        {"vdLGamma/tvx_HA", "vdLGamma/sleef_u10"},
        {"vdLGamma/tvx_HA", "vdLGamma/glibc_scalar"}};
    for (const auto& [ours, peer] : pairs) {
      const auto a = ns_.find(ours), b = ns_.find(peer);
      if (a == ns_.end() || b == ns_.end()) continue;
      std::printf("%-22s vs %-26s %8.2f\n", ours, peer, b->second / a->second);
    }
  }

 private:
  std::map<std::string, double> ns_;
};

}  // namespace

int main(int argc, char** argv) {
  for (const Case& c : kCases)
    benchmark::RegisterBenchmark(c.name, c.fn)->Unit(benchmark::kMicrosecond);
  benchmark::Initialize(&argc, argv);
  Collector reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.summary();
  benchmark::Shutdown();
  return 0;
}
