// The cached path of the allocator: a routine that asks for the same 64 KiB workspace on every
// call, against the C library's aligned_alloc/free, on one and two threads.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "runtime/memory.h"

namespace {

constexpr std::size_t kBlock = 64 * 1024;

void BM_tvx_malloc_free_64k(benchmark::State& state) {
  for (auto _ : state) {
    void* p = tvx_malloc(kBlock, 64);
    benchmark::DoNotOptimize(p);
    static_cast<char*>(p)[0] = 1;
    tvx_free(p);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_aligned_alloc_free_64k(benchmark::State& state) {
  for (auto _ : state) {
    void* p = std::aligned_alloc(64, kBlock);
    benchmark::DoNotOptimize(p);
    static_cast<char*>(p)[0] = 1;
    std::free(p);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_tvx_malloc_free_64k)->Threads(1)->Threads(2);
BENCHMARK(BM_aligned_alloc_free_64k)->Threads(1)->Threads(2);

}  // namespace
