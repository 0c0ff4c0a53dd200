// Arithmetic and rounding kernels against the memory floor.
//
// Each case runs one dispatch-row cell (HA accuracy, variant by name) through the threader on
// one or two threads (dynamic adjustment off, so the team is exactly what is asked), at
// n = 1e3, 1e5, 1e7. The floor is a memcpy that moves the same number of bytes (Add, Mul, Div:
// 2n read and n written, a copy of 1.5n elements; Floor: a copy of n elements), split over the
// same number of threads. Rates are bytes per second of the function's own traffic.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "runtime/cpu_type.h"
#include "runtime/settings.h"
#include "tvx_vector.h"
#include "vector/frame/rows.h"
#include "vector/frame/threader.h"

namespace {

constexpr int kVariants[] = {0, 1, 2, 3, 5};
constexpr const char* kVariantNames[] = {"sse2", "sse2b", "sse42", "avx2", "", "avx512"};

// Arrays of the largest size, allocated once and touched so that no page fault is timed.
template <class T>
struct Arrays {
  std::vector<T> a, b, r;
  // 1.5e7 elements: the copy that stands for three streams of 1e7 moves 1.5e7 doubles.
  Arrays() : a(15000000 + 64), b(15000000 + 64), r(15000000 + 64) {
    for (std::size_t i = 0; i < a.size(); ++i) {
      a[i] = static_cast<T>(0.5 + (i % 1000) * 0.001);
      b[i] = static_cast<T>(1.5 - (i % 777) * 0.001);
      r[i] = 0;
    }
  }
};
template <class T>
Arrays<T>& arrays() {
  static Arrays<T> s;
  return s;
}

void setup_team(int threads) {
  tvx_set_dynamic(0);
  tvx_set_num_threads(threads);
}

template <class T, class K>
void bm_binary(benchmark::State& st, K kernel, float cost) {
  const int n = static_cast<int>(st.range(0));
  setup_team(static_cast<int>(st.range(1)));
  auto& m = arrays<T>();
  const T* a = m.a.data();
  const T* b = m.b.data();
  T* r = m.r.data();
  for (auto _ : st) {
    tvx::frame::threaded_call(kernel, n, cost, 0, a, b, r);
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * 3 * static_cast<std::int64_t>(n) * sizeof(T));
}

template <class T, class K>
void bm_unary(benchmark::State& st, K kernel, float cost) {
  const int n = static_cast<int>(st.range(0));
  setup_team(static_cast<int>(st.range(1)));
  auto& m = arrays<T>();
  const T* a = m.a.data();
  T* r = m.r.data();
  for (auto _ : st) {
    tvx::frame::threaded_call(kernel, n, cost, 0, a, r);
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * 2 * static_cast<std::int64_t>(n) * sizeof(T));
}

// memcpy of `streams` / 2 times n doubles: the traffic of a kernel with `streams` arrays.
void bm_memcpy(benchmark::State& st, int streams) {
  const int n = static_cast<int>(st.range(0));
  const int threads = static_cast<int>(st.range(1));
  auto& m = arrays<double>();
  const std::size_t bytes = static_cast<std::size_t>(n) * sizeof(double) * streams / 2;
  char* dst = reinterpret_cast<char*>(m.r.data());
  const char* src = reinterpret_cast<const char*>(m.a.data());
  for (auto _ : st) {
    if (threads == 1 || n < 100) {
      std::memcpy(dst, src, bytes);
    } else {
#pragma omp parallel num_threads(threads)
      {
        const int t = omp_get_thread_num();
        const int team = omp_get_num_threads();
        const std::size_t chunk = (bytes / team) & ~std::size_t(63);
        const std::size_t begin = chunk * t;
        const std::size_t len = t == team - 1 ? bytes - begin : chunk;
        std::memcpy(dst + begin, src + begin, len);
      }
    }
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * static_cast<std::int64_t>(bytes) * 2);
}

void sizes(benchmark::internal::Benchmark* b) {
  for (int threads : {1, 2})
    for (int n : {1000, 100000, 10000000}) b->Args({n, threads});
  b->ArgNames({"n", "threads"});
  b->UseRealTime();
}

const int kRegistered = [] {
  for (int v : kVariants) {
    const int missing = tvx_kaz_variant_missing_feature(v);
    if (missing >= 0) {
      std::printf("note: variant %s skipped, CPU lacks %s\n", kVariantNames[v],
                  tvx_cpu_feature_name(missing));
      continue;
    }
    const int s = v + 6;  // HA row
    const std::string tag = std::string("/") + kVariantNames[v];
    benchmark::RegisterBenchmark(("vdAdd" + tag).c_str(), [s](benchmark::State& st) {
      bm_binary<double>(st, tvx_row_add_d.kernels[s], tvx_row_add_d.cost[s]);
    })->Apply(sizes);
    benchmark::RegisterBenchmark(("vdMul" + tag).c_str(), [s](benchmark::State& st) {
      bm_binary<double>(st, tvx_row_mul_d.kernels[s], tvx_row_mul_d.cost[s]);
    })->Apply(sizes);
    benchmark::RegisterBenchmark(("vdDiv" + tag).c_str(), [s](benchmark::State& st) {
      bm_binary<double>(st, tvx_row_div_d.kernels[s], tvx_row_div_d.cost[s]);
    })->Apply(sizes);
    benchmark::RegisterBenchmark(("vsAdd" + tag).c_str(), [s](benchmark::State& st) {
      bm_binary<float>(st, tvx_row_add_s.kernels[s], tvx_row_add_s.cost[s]);
    })->Apply(sizes);
    benchmark::RegisterBenchmark(("vdFloor" + tag).c_str(), [s](benchmark::State& st) {
      bm_unary<double>(st, tvx_row_floor_d.kernels[s], tvx_row_floor_d.cost[s]);
    })->Apply(sizes);
  }
  benchmark::RegisterBenchmark("memcpy/3streams", [](benchmark::State& st) {
    bm_memcpy(st, 3);
  })->Apply(sizes);
  benchmark::RegisterBenchmark("memcpy/2streams", [](benchmark::State& st) {
    bm_memcpy(st, 2);
  })->Apply(sizes);
  return 0;
}();

}  // namespace
