// vdLn and vsLn beside their peers: the library's kernels at each accuracy on this machine's
// variant and in the AVX2 cells, SLEEF at 1.0 and 3.5 ulps on AVX-512 and on AVX2, glibc's scalar
// log and glibc's vector library.
// All single-threaded: the library's kernel is called straight from its dispatch cell.
// After the runs a table of ns per element and of peer / library time ratios is printed.
#include <benchmark/benchmark.h>
#include <immintrin.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "peer_isa.h"
#include "runtime/cpu_type.h"
#include "vector/frame/rows.h"

// The peers' entry points, declared here with the instructions their vector types need (SLEEF's
// header declares them only in a program compiled for those instructions throughout), and their
// kernels, templates over the peer function.
#pragma GCC push_options
#pragma GCC target("avx2,fma,avx512f,avx512dq")
extern "C" {
__m512d Sleef_logd8_u10(__m512d);
__m512d Sleef_logd8_u35(__m512d);
__m512 Sleef_logf16_u10(__m512);
__m512 Sleef_logf16_u35(__m512);
__m256d Sleef_logd4_u10avx2(__m256d);
__m256d Sleef_logd4_u35avx2(__m256d);
__m256 Sleef_logf8_u10avx2(__m256);
__m256 Sleef_logf8_u35avx2(__m256);
__m512d _ZGVeN8v_log(__m512d);
__m512 _ZGVeN16v_logf(__m512);
}

namespace {
template <auto F>
void vec_d(int n, const double* a, double* r) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm512_storeu_pd(r + i, F(_mm512_loadu_pd(a + i)));
  if (i < n) {
    const __mmask8 m = static_cast<__mmask8>((1u << (n - i)) - 1u);
    _mm512_mask_storeu_pd(r + i, m, F(_mm512_mask_loadu_pd(_mm512_set1_pd(1.0), m, a + i)));
  }
}
template <auto F>
void vec_s(int n, const float* a, float* r) {
  int i = 0;
  for (; i + 16 <= n; i += 16) _mm512_storeu_ps(r + i, F(_mm512_loadu_ps(a + i)));
  if (i < n) {
    const __mmask16 m = static_cast<__mmask16>((1u << (n - i)) - 1u);
    _mm512_mask_storeu_ps(r + i, m, F(_mm512_mask_loadu_ps(_mm512_set1_ps(1.0f), m, a + i)));
  }
}
}  // namespace
#pragma GCC pop_options

// The same at AVX2 width, beside the AVX2 cells.
#pragma GCC push_options
#pragma GCC target("avx2,fma")
namespace {
template <auto F>
void vec_d4(int n, const double* a, double* r) {
  int i = 0;
  for (; i + 4 <= n; i += 4) _mm256_storeu_pd(r + i, F(_mm256_loadu_pd(a + i)));
  for (; i < n; ++i) r[i] = std::log(a[i]);
}
template <auto F>
void vec_s8(int n, const float* a, float* r) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(r + i, F(_mm256_loadu_ps(a + i)));
  for (; i < n; ++i) r[i] = std::log(a[i]);
}
}  // namespace
#pragma GCC pop_options

namespace {

constexpr long kSizes[] = {1000, 100000, 10000000};

// Arguments spread over 2^-20 .. 2^20, none special.
template <class T>
const std::vector<T>& inputs(long n) {
  static std::map<long, std::vector<T>> cache;
  auto& v = cache[n];
  if (v.empty()) {
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> e(-20.0, 20.0);
    v.resize(static_cast<std::size_t>(n));
    for (T& x : v) x = static_cast<T>(std::exp2(e(rng)));
  }
  return v;
}

template <class T, class F>
void run(benchmark::State& state, F&& f) {
  const long n = state.range(0);
  const std::vector<T>& a = inputs<T>(n);
  std::vector<T> r(static_cast<std::size_t>(n));
  for (auto _ : state) {
    f(static_cast<int>(n), a.data(), r.data());
    benchmark::DoNotOptimize(r.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * n);
}

// The cell of this machine's variant, or of `variant` when it is given (the AVX2 cells run here
// too when the machine has AVX-512).
template <class T>
void tvx_level(benchmark::State& state, int level, int variant = -1) {
  if (variant >= 0 && skip_unless_variant_runs(state, variant)) return;
  const int slot = (variant < 0 ? tvx_kaz_variant_index() : variant) + 6 * (level - 1);
  if constexpr (sizeof(T) == 8) {
    run<T>(state, tvx_row_ln_d.kernels[slot]);
  } else {
    run<T>(state, tvx_row_ln_s.kernels[slot]);
  }
}

// A peer's kernel, where the instructions it was compiled for can run.
template <class T>
void peer(benchmark::State& state, int variant, void (*kernel)(int, const T*, T*)) {
  if (skip_unless_variant_runs(state, variant)) return;
  run<T>(state, kernel);
}

void register_all() {
  struct D {
    const char* name;
    void (*fn)(benchmark::State&);
  };
  const D list[] = {
      {"vdLn/tvx_LA", [](benchmark::State& s) { tvx_level<double>(s, 1); }},
      {"vdLn/tvx_HA", [](benchmark::State& s) { tvx_level<double>(s, 2); }},
      {"vdLn/tvx_EP", [](benchmark::State& s) { tvx_level<double>(s, 3); }},
      {"vdLn/tvx_avx2_LA", [](benchmark::State& s) { tvx_level<double>(s, 1, kAvx2Variant); }},
      {"vdLn/tvx_avx2_HA", [](benchmark::State& s) { tvx_level<double>(s, 2, kAvx2Variant); }},
      {"vdLn/tvx_avx2_EP", [](benchmark::State& s) { tvx_level<double>(s, 3, kAvx2Variant); }},
      {"vdLn/sleef_u10",
       [](benchmark::State& s) { peer<double>(s, kAvx512Variant, vec_d<Sleef_logd8_u10>); }},
      {"vdLn/sleef_u35",
       [](benchmark::State& s) { peer<double>(s, kAvx512Variant, vec_d<Sleef_logd8_u35>); }},
      {"vdLn/sleef_avx2_u10",
       [](benchmark::State& s) { peer<double>(s, kAvx2Variant, vec_d4<Sleef_logd4_u10avx2>); }},
      {"vdLn/sleef_avx2_u35",
       [](benchmark::State& s) { peer<double>(s, kAvx2Variant, vec_d4<Sleef_logd4_u35avx2>); }},
      {"vdLn/libmvec",
       [](benchmark::State& s) { peer<double>(s, kAvx512Variant, vec_d<_ZGVeN8v_log>); }},
      {"vdLn/glibc_scalar",
       [](benchmark::State& s) {
         run<double>(s, [](int n, const double* a, double* r) {
           for (int i = 0; i < n; ++i) r[i] = std::log(a[i]);
         });
       }},
      {"vsLn/tvx_LA", [](benchmark::State& s) { tvx_level<float>(s, 1); }},
      {"vsLn/tvx_HA", [](benchmark::State& s) { tvx_level<float>(s, 2); }},
      {"vsLn/tvx_EP", [](benchmark::State& s) { tvx_level<float>(s, 3); }},
      {"vsLn/tvx_avx2_LA", [](benchmark::State& s) { tvx_level<float>(s, 1, kAvx2Variant); }},
      {"vsLn/tvx_avx2_HA", [](benchmark::State& s) { tvx_level<float>(s, 2, kAvx2Variant); }},
      {"vsLn/tvx_avx2_EP", [](benchmark::State& s) { tvx_level<float>(s, 3, kAvx2Variant); }},
      {"vsLn/sleef_u10",
       [](benchmark::State& s) { peer<float>(s, kAvx512Variant, vec_s<Sleef_logf16_u10>); }},
      {"vsLn/sleef_u35",
       [](benchmark::State& s) { peer<float>(s, kAvx512Variant, vec_s<Sleef_logf16_u35>); }},
      {"vsLn/sleef_avx2_u10",
       [](benchmark::State& s) { peer<float>(s, kAvx2Variant, vec_s8<Sleef_logf8_u10avx2>); }},
      {"vsLn/sleef_avx2_u35",
       [](benchmark::State& s) { peer<float>(s, kAvx2Variant, vec_s8<Sleef_logf8_u35avx2>); }},
      {"vsLn/libmvec",
       [](benchmark::State& s) { peer<float>(s, kAvx512Variant, vec_s<_ZGVeN16v_logf>); }},
      {"vsLn/glibc_scalar",
       [](benchmark::State& s) {
         run<float>(s, [](int n, const float* a, float* r) {
           for (int i = 0; i < n; ++i) r[i] = std::log(a[i]);
         });
       }},
  };
  for (const D& d : list) {
    auto* b = benchmark::RegisterBenchmark(d.name, d.fn);
    for (long n : kSizes) b->Arg(n);
    b->Unit(benchmark::kMicrosecond);
  }
}

// Keeps ns per element of every run for the summary.
class Collector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred) continue;  // a case this machine cannot run
      if (r.run_type != Run::RT_Iteration && r.aggregate_name != "median") continue;
      const std::string name = r.run_name.function_name;  // vdLn/tvx_HA
      const long n = std::stol(r.run_name.args);
      // CPU time, in the run's unit (microseconds here): the machine is shared, and wall time
      // counts other processes' turns.
      ns_[name][n] = r.GetAdjustedCPUTime() * 1e3 / static_cast<double>(n);
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void summary() const {
    for (const char* fn : {"vdLn", "vsLn"}) {
      std::printf("\n%s: CPU ns per element, single thread, variant %d\n", fn,
                  tvx_kaz_variant_index());
      std::printf("%-20s", "");
      for (long n : kSizes) std::printf("%12ld", n);
      std::printf("\n");
      for (const auto& [name, by_n] : ns_) {
        if (name.rfind(fn, 0) != 0) continue;
        std::printf("%-20s", name.c_str() + 5);
        for (long n : kSizes) {
          auto it = by_n.find(n);
          std::printf("%12.3f", it == by_n.end() ? 0.0 : it->second);
        }
        std::printf("\n");
      }
      std::printf("ratios peer time / library time (above 1: the library is faster)\n");
      const std::pair<const char*, const char*> pairs[] = {
          {"tvx_HA", "sleef_u10"},           {"tvx_LA", "sleef_u35"},
          {"tvx_EP", "sleef_u35"},           {"tvx_HA", "libmvec"},
          {"tvx_avx2_HA", "sleef_avx2_u10"}, {"tvx_avx2_LA", "sleef_avx2_u35"},
          {"tvx_avx2_EP", "sleef_avx2_u35"}, {"tvx_HA", "glibc_scalar"}};
      for (const auto& [ours, peer] : pairs) {
        std::printf("%-11s vs %-15s", ours, peer);
        for (long n : kSizes) {
          const double a = at(std::string(fn) + "/" + ours, n);
          const double b = at(std::string(fn) + "/" + peer, n);
          std::printf("%12.2f", a > 0 && b > 0 ? b / a : 0.0);
        }
        std::printf("\n");
      }
    }
  }

 private:
  double at(const std::string& name, long n) const {
    auto it = ns_.find(name);
    if (it == ns_.end()) return 0;
    auto jt = it->second.find(n);
    return jt == it->second.end() ? 0 : jt->second;
  }
  std::map<std::string, std::map<long, double>> ns_;
};

}  // namespace

int main(int argc, char** argv) {
  register_all();
  benchmark::Initialize(&argc, argv);
  Collector reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.summary();
  benchmark::Shutdown();
  return 0;
}
