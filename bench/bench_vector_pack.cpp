// Pack and unpack against the memory floor.
//
// vdPackI with increment 2 and vdUnpackM with a random mask (half the entries set), double, at
// n = 1e5 and 1e7, through the same road as the exports (the increment form through the
// threader, the mask form through its team run), on one or two threads, per variant. The floor is
// a memcpy moving the same traffic, split over the same team: both moves touch 24 bytes of memory
// per element (PackI: the 16-byte span of two source elements read, 8 bytes written; UnpackM: the
// 4-byte mask and on average 4 bytes of source read, the 8-byte destination line read and written),
// which is a copy of 12 bytes per element. Rates are bytes per second of that traffic.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "runtime/cpu_type.h"
#include "runtime/settings.h"
#include "tvx_vector.h"
#include "vector/frame/pack.h"
#include "vector/frame/rows.h"

namespace {

constexpr int kVariants[] = {0, 2, 3, 5};
constexpr const char* kVariantNames[] = {"sse2", "sse2b", "sse42", "avx2", "", "avx512"};
constexpr int kMaxN = 10000000;
constexpr std::int64_t kTraffic = 24;  // bytes per element, see above

// Arrays of the largest size, allocated once and touched so that no page fault is timed.
struct Arrays {
  std::vector<double> a, y;
  std::vector<int> mask;
  Arrays() : a(2 * static_cast<std::size_t>(kMaxN) + 64), y(a.size()), mask(kMaxN) {
    for (std::size_t i = 0; i < a.size(); ++i) {
      a[i] = 0.5 + static_cast<double>(i % 1000);
      y[i] = 0;
    }
    std::mt19937 gen(1);
    for (int& m : mask) m = static_cast<int>(gen() & 1);
  }
};
Arrays& arrays() {
  static Arrays s;
  return s;
}

void setup_team(int threads) {
  tvx_set_dynamic(0);
  tvx_set_num_threads(threads);
}

void bm_pack_i(benchmark::State& st, int slot) {
  const int n = static_cast<int>(st.range(0));
  setup_team(static_cast<int>(st.range(1)));
  auto& m = arrays();
  const auto& row = tvx_row_packi_d;
  for (auto _ : st) {
    tvx::frame::threaded_call(row.kernels[slot], n, row.cost[slot], 0,
                              tvx::frame::Strided<const double>{m.a.data(), 2}, 2, m.y.data());
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * kTraffic * n);
}

void bm_unpack_m(benchmark::State& st, int slot) {
  const int n = static_cast<int>(st.range(0));
  setup_team(static_cast<int>(st.range(1)));
  auto& m = arrays();
  const auto& row = tvx_row_unpackm_d;
  for (auto _ : st) {
    tvx::frame::unpack_masked<double>(row.kernels[slot], n, row.cost[slot], m.a.data(), m.y.data(),
                                      m.mask.data());
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * kTraffic * n);
}

// memcpy of 12 bytes per element: 24 bytes of traffic.
void bm_memcpy(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  const int threads = static_cast<int>(st.range(1));
  auto& m = arrays();
  const std::size_t bytes = static_cast<std::size_t>(n) * kTraffic / 2;
  char* dst = reinterpret_cast<char*>(m.y.data());
  const char* src = reinterpret_cast<const char*>(m.a.data());
  for (auto _ : st) {
    if (threads == 1) {
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
  st.SetBytesProcessed(st.iterations() * kTraffic * n);
}

void sizes(benchmark::internal::Benchmark* b) {
  for (int threads : {1, 2})
    for (int n : {100000, kMaxN}) b->Args({n, threads});
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
    const int s = v + 6;  // HA row; every accuracy runs the same kernel
    const std::string tag = std::string("/") + kVariantNames[v];
    benchmark::RegisterBenchmark(("vdPackI_inc2" + tag).c_str(), [s](benchmark::State& st) {
      bm_pack_i(st, s);
    })->Apply(sizes);
    benchmark::RegisterBenchmark(("vdUnpackM_half" + tag).c_str(), [s](benchmark::State& st) {
      bm_unpack_m(st, s);
    })->Apply(sizes);
  }
  benchmark::RegisterBenchmark("memcpy/12B_per_element", bm_memcpy)->Apply(sizes);
  return 0;
}();

}  // namespace
