// What the Exp and Ln peer programs share: the timing loop, the library's cells called straight
// from their dispatch rows, and a reporter that prints CPU ns per element of every case and the
// peer / library time ratios after the runs.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "peer_isa.h"
#include "runtime/cpu_type.h"

namespace peers {

inline constexpr long kSizes[] = {1000, 100000, 10000000};

// Times f over the inputs of `make` (a function of n returning the argument vector).
template <class T, class Inputs, class F>
void run(benchmark::State& state, Inputs&& make, F&& f) {
  const long n = state.range(0);
  const std::vector<T>& a = make(n);
  std::vector<T> r(static_cast<std::size_t>(n));
  for (auto _ : state) {
    f(static_cast<int>(n), a.data(), r.data());
    benchmark::DoNotOptimize(r.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * n);
}

struct Case {
  const char* name;  // "vdExp/tvx_avx2_HA"
  void (*fn)(benchmark::State&);
};

template <std::size_t N>
void register_all(const Case (&list)[N]) {
  for (const Case& c : list) {
    auto* b = benchmark::RegisterBenchmark(c.name, c.fn);
    for (long n : kSizes) b->Arg(n);
    b->Unit(benchmark::kMicrosecond);
  }
}

// Keeps CPU ns per element of every run (the machine is shared, and wall time counts other
// processes' turns), and prints them with the ratios of the given pairs after the runs.
class Collector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred) continue;  // a case this machine cannot run
      if (r.run_type != Run::RT_Iteration && r.aggregate_name != "median") continue;
      const long n = std::stol(r.run_name.args);
      ns_[r.run_name.function_name][n] = r.GetAdjustedCPUTime() * 1e3 / static_cast<double>(n);
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void summary(const std::vector<const char*>& fns,
               const std::vector<std::pair<const char*, const char*>>& pairs) const {
    for (const char* fn : fns) {
      const std::string prefix = std::string(fn) + "/";
      std::printf("\n%s: CPU ns per element, single thread, machine variant %d\n", fn,
                  tvx_kaz_variant_index());
      std::printf("%-22s", "");
      for (long n : kSizes) std::printf("%12ld", n);
      std::printf("\n");
      for (const auto& [name, by_n] : ns_) {
        if (name.rfind(prefix, 0) != 0) continue;
        std::printf("%-22s", name.c_str() + prefix.size());
        for (long n : kSizes) {
          auto it = by_n.find(n);
          std::printf("%12.3f", it == by_n.end() ? 0.0 : it->second);
        }
        std::printf("\n");
      }
      std::printf("ratios peer time / library time (above 1: the library is faster)\n");
      for (const auto& [ours, peer] : pairs) {
        std::printf("%-12s vs %-16s", ours, peer);
        for (long n : kSizes) {
          const double a = at(prefix + ours, n);
          const double b = at(prefix + peer, n);
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

// Pairs compared at both widths.
inline const std::vector<std::pair<const char*, const char*>> kPairs = {
    {"tvx_HA", "hwy"},
    {"tvx_HA", "sleef_u10"},
    {"tvx_LA", "libmvec"},
    {"tvx_HA", "tvx_LA"},
    {"tvx_HA", "tvx_EP"},
    {"tvx_avx2_HA", "hwy_avx2"},
    {"tvx_avx2_HA", "sleef_avx2_u10"},
    {"tvx_avx2_LA", "libmvec_avx2"},
    {"tvx_avx2_HA", "tvx_avx2_LA"},
    {"tvx_avx2_HA", "tvx_avx2_EP"}};

template <std::size_t N>
int main_with(int argc, char** argv, const Case (&list)[N], std::vector<const char*> fns) {
  register_all(list);
  benchmark::Initialize(&argc, argv);
  Collector reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.summary(fns, kPairs);
  benchmark::Shutdown();
  return 0;
}

}  // namespace peers
