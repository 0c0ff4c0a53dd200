// What the allocator decides at its first use, each case in a fresh child of a parent that never
// allocates: the switch of the thread caches, the clean-up list, and the modules loaded at run
// time, replaced by a fake built with the tests: the high-bandwidth memory library (version, page
// kinds, budget, fallbacks) and the companion allocator.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "memory_test_util.h"
#include "runtime/memory.h"
#include "support/subprocess.h"
#include "tvx_random.h"

namespace {

using tvx::test::is_cached;
using tvx::test::run_in_child;

// The fake module's switches and counters, reached through the loader.
struct Fake {
  void* handle = dlopen(TVX_FAKE_ALLOC_MODULE, RTLD_NOW | RTLD_LOCAL);
  int& var(const char* name) { return *static_cast<int*>(dlsym(handle, name)); }
  long& count(const char* name) { return *static_cast<long*>(dlsym(handle, name)); }
};

constexpr const char* kMissing = "libtvx-no-such-module.so";

// The child's exit code is the number of the first failed check, 0 when all pass.
#define CHECK_OR_EXIT(cond, code) \
  do {                            \
    if (!(cond)) return (code);   \
  } while (0)

TEST(MemoryStartup, DisableFastMemoryManagement) {
  auto direct_only = [] {
    void* p = tvx_malloc(1000, 64);
    const bool ok = p != nullptr && !is_cached(p) && tvx_fast_mm_enabled() == 0;
    tvx_free(p);
    return ok ? 0 : 1;
  };
  EXPECT_EQ(run_in_child({{"TVX_DISABLE_FAST_MM", "1"}}, direct_only).exit_code, 0);
  EXPECT_EQ(run_in_child({{"TVX_DISABLE_FAST_MM", "no"}}, direct_only).exit_code, 0)
      << "any non-empty value";
  const auto empty = run_in_child({{"TVX_DISABLE_FAST_MM", ""}}, [] {
    void* p = tvx_malloc(1000, 64);
    const bool ok = is_cached(p) && tvx_fast_mm_enabled() == 1;
    tvx_free(p);
    return ok ? 0 : 1;
  });
  EXPECT_EQ(empty.exit_code, 0) << "an empty value leaves the caches on";
  const auto call = run_in_child({{"TVX_DISABLE_FAST_MM", nullptr}}, [] {
    if (tvx_disable_fast_mm() != 1) return 1;
    if (tvx_disable_fast_mm() != 0) return 2;
    void* p = tvx_malloc(1000, 64);
    const bool cached = is_cached(p);
    tvx_free(p);
    return cached ? 3 : 0;
  });
  EXPECT_EQ(call.exit_code, 0);
  const auto late = run_in_child({{"TVX_DISABLE_FAST_MM", nullptr}}, [] {
    tvx_free(tvx_malloc(10, 64));
    return tvx_disable_fast_mm() == 0 && tvx_fast_mm_enabled() == 1 ? 0 : 1;
  });
  EXPECT_EQ(late.exit_code, 0) << "too late once the allocator has started";
}

std::vector<int> g_cleanup_order;
void cleanup_a() {
  g_cleanup_order.push_back(1);
}
void cleanup_b() {
  g_cleanup_order.push_back(2);
}

TEST(MemoryStartup, CleanupListRunsLastFirst) {
  const auto r = run_in_child({}, [] {
    if (tvx_register_cleanup(nullptr) != 1) return 1;
    if (tvx_register_cleanup(cleanup_a) != 0 || tvx_register_cleanup(cleanup_b) != 0) return 2;
    if (tvx_register_cleanup(cleanup_a) != 1) return 3;  // full
    tvx_free_buffers();
    tvx_free_buffers();
    return g_cleanup_order == std::vector<int>{2, 1, 2, 1} ? 0 : 4;
  });
  EXPECT_EQ(r.exit_code, 0);
}

TEST(MemoryModules, MissingLibraryFallsBackToTheHeap) {
  const auto r = run_in_child({}, [] {
    CHECK_OR_EXIT(tvx_mem_test_set_modules(kMissing, kMissing, 1) == 1, 1);
    void* p = tvx_malloc(1000, 64);
    void* d = tvx_malloc_direct(1 << 20, 4096);
    CHECK_OR_EXIT(p != nullptr && d != nullptr, 2);
    std::memset(p, 0xCA, 1000);
    std::memset(d, 0xCA, 1 << 20);
    tvx_free(p);
    tvx_free(d);
    CHECK_OR_EXIT(tvx_mem_hbw_active() == 0, 3);
    CHECK_OR_EXIT(tvx_set_memory_limit(1, 10) == 0, 4);
    CHECK_OR_EXIT(tvx_mem_test_set_modules(nullptr, nullptr, 0) == 0, 5);  // too late
    return 0;
  });
  EXPECT_EQ(r.exit_code, 0);
}

TEST(MemoryModules, HighBandwidthBlocksAndTheirRelease) {
  const auto r = run_in_child({{"TVX_FAST_MEMORY_LIMIT", nullptr}}, [] {
    Fake fake;
    CHECK_OR_EXIT(fake.handle != nullptr, 1);
    CHECK_OR_EXIT(tvx_mem_test_set_modules(kMissing, TVX_FAKE_ALLOC_MODULE, 1) == 1, 2);
    CHECK_OR_EXIT(tvx_mem_hbw_active() == 1, 3);
    auto* p = static_cast<char*>(tvx_malloc_direct(100000, 4096));
    CHECK_OR_EXIT(p != nullptr && tvx::test::aligned_to(p, 4096), 4);
    CHECK_OR_EXIT(fake.count("fake_huge_calls") == 1, 5);
    std::memset(p, 0xCA, 100000);
    p = static_cast<char*>(tvx_realloc(p, 300000));  // allocate, copy, free
    CHECK_OR_EXIT(p != nullptr && p[99999] == static_cast<char>(0xCA), 6);
    CHECK_OR_EXIT(fake.count("fake_frees") == 1, 7);
    tvx_free(p);
    CHECK_OR_EXIT(fake.count("fake_frees") == 2, 8);
    // Huge pages refused: small pages; both refused: the plain heap.
    fake.var("fake_fail_huge") = 1;
    void* small = tvx_malloc_direct(5000, 64);
    CHECK_OR_EXIT(small != nullptr && fake.count("fake_small_calls") == 1, 9);
    fake.var("fake_fail_small") = 1;
    void* plain = tvx_malloc_direct(5000, 64);
    CHECK_OR_EXIT(plain != nullptr && fake.count("fake_small_calls") == 2, 10);
    tvx_free(plain);
    CHECK_OR_EXIT(fake.count("fake_frees") == 2, 11);  // plain memory goes to the plain free
    tvx_free(small);
    CHECK_OR_EXIT(fake.count("fake_frees") == 3, 12);
    // No budget was given: the first call sets one, the second may not.
    CHECK_OR_EXIT(tvx_set_memory_limit(2, 1) == 0, 13);
    CHECK_OR_EXIT(tvx_set_memory_limit(1, 1) == 1, 14);
    CHECK_OR_EXIT(tvx_set_memory_limit(1, 5) == 0, 15);
    return 0;
  });
  EXPECT_EQ(r.exit_code, 0);
}

TEST(MemoryModules, BudgetLimitsHighBandwidthMemory) {
  const auto r = run_in_child({{"TVX_FAST_MEMORY_LIMIT", "1"}}, [] {
    Fake fake;
    CHECK_OR_EXIT(tvx_mem_test_set_modules(kMissing, TVX_FAKE_ALLOC_MODULE, 1) == 1, 1);
    CHECK_OR_EXIT(tvx_set_memory_limit(1, 100) == 0, 2);  // the variable set it already
    long& huge = fake.count("fake_huge_calls");
    void* a = tvx_malloc_direct(600000, 64);  // fits the MiB
    CHECK_OR_EXIT(a != nullptr && huge == 1, 3);
    void* b = tvx_malloc_direct(600000, 64);  // does not fit what is left: plain memory
    CHECK_OR_EXIT(b != nullptr && huge == 1, 4);
    tvx_free(a);  // gives its bytes back to the budget
    void* c = tvx_malloc_direct(600000, 64);
    CHECK_OR_EXIT(c != nullptr && huge == 2, 5);
    tvx_free(c);
    // Block header 24 + alignment 64 + wrapper header 32: a total of exactly the budget is
    // refused, one byte less is taken.
    void* d = tvx_malloc_direct((1 << 20) - 120, 64);
    CHECK_OR_EXIT(d != nullptr && huge == 2, 6);
    void* e = tvx_malloc_direct((1 << 20) - 121, 64);
    CHECK_OR_EXIT(e != nullptr && huge == 3, 7);
    tvx_free(b);
    tvx_free(d);
    tvx_free(e);
    return 0;
  });
  EXPECT_EQ(r.exit_code, 0);
  const auto none = run_in_child({{"TVX_FAST_MEMORY_LIMIT", "0"}}, [] {
    Fake fake;
    CHECK_OR_EXIT(tvx_mem_test_set_modules(kMissing, TVX_FAKE_ALLOC_MODULE, 1) == 1, 1);
    void* a = tvx_malloc_direct(1000, 64);
    CHECK_OR_EXIT(a != nullptr && fake.count("fake_huge_calls") == 0, 2);
    tvx_free(a);
    return fake.count("fake_frees") == 0 ? 0 : 3;
  });
  EXPECT_EQ(none.exit_code, 0) << "a budget of 0 keeps every block in plain memory";
  const auto unlimited = run_in_child({{"TVX_FAST_MEMORY_LIMIT", "-5"}}, [] {
    Fake fake;
    CHECK_OR_EXIT(tvx_mem_test_set_modules(kMissing, TVX_FAKE_ALLOC_MODULE, 1) == 1, 1);
    void* a = tvx_malloc_direct(50 << 20, 64);
    CHECK_OR_EXIT(a != nullptr && fake.count("fake_huge_calls") == 1, 2);
    tvx_free(a);
    return 0;
  });
  EXPECT_EQ(unlimited.exit_code, 0) << "a negative budget is no limit";
}

TEST(MemoryModules, OldLibraryVersionIsRefused) {
  auto body = [] {
    Fake fake;
    fake.var("fake_version") = 1000999;
    CHECK_OR_EXIT(tvx_mem_test_set_modules(kMissing, TVX_FAKE_ALLOC_MODULE, 1) == 1, 1);
    void* a = tvx_malloc(1000, 64);
    CHECK_OR_EXIT(a != nullptr && tvx_mem_hbw_active() == 0, 2);
    tvx_free(a);
    return fake.count("fake_huge_calls") == 0 ? 0 : 3;
  };
  const auto verbose = run_in_child({{"TVX_VERBOSE", "1"}}, body);
  EXPECT_EQ(verbose.exit_code, 0);
  EXPECT_EQ(verbose.out, "Minimal supported version of the memkind library is 1.1.0\n");
  const auto quiet = run_in_child({{"TVX_VERBOSE", nullptr}}, body);
  EXPECT_EQ(quiet.exit_code, 0);
  EXPECT_EQ(quiet.out, "");
}

TEST(MemoryModules, ProcessorWithoutTheFeaturesNeverLoadsTheLibrary) {
  const auto r = run_in_child({}, [] {
    Fake fake;
    CHECK_OR_EXIT(tvx_mem_test_set_modules(kMissing, TVX_FAKE_ALLOC_MODULE, 0) == 1, 1);
    tvx_free(tvx_malloc_direct(1000, 64));
    return tvx_mem_hbw_active() == 0 && fake.count("fake_huge_calls") == 0 ? 0 : 2;
  });
  EXPECT_EQ(r.exit_code, 0);
}

TEST(MemoryModules, CompanionAllocator) {
  const auto used = run_in_child({}, [] {
    Fake fake;
    CHECK_OR_EXIT(tvx_mem_test_set_modules(TVX_FAKE_ALLOC_MODULE, TVX_FAKE_ALLOC_MODULE, 1) == 1,
                  1);
    long& calls = fake.count("fake_companion_calls");
    void* p = tvx_malloc_direct(1000, 64);
    CHECK_OR_EXIT(p != nullptr && calls == 1, 2);
    p = tvx_realloc(p, 100000);
    CHECK_OR_EXIT(p != nullptr && calls == 2, 3);
    tvx_free(p);
    CHECK_OR_EXIT(calls == 3, 4);
    // A companion takes the place of high-bandwidth memory.
    return tvx_mem_hbw_active() == 0 ? 0 : 5;
  });
  EXPECT_EQ(used.exit_code, 0);
  const auto incomplete = run_in_child({}, [] {
    Fake fake;
    *static_cast<void**>(dlsym(fake.handle, "tvx_companion_realloc")) = nullptr;
    CHECK_OR_EXIT(tvx_mem_test_set_modules(TVX_FAKE_ALLOC_MODULE, kMissing, 0) == 1, 1);
    tvx_free(tvx_malloc_direct(1000, 64));
    return fake.count("fake_companion_calls") == 0 ? 0 : 2;
  });
  EXPECT_EQ(incomplete.exit_code, 0) << "a companion missing one function is not used";
}

// A twister jump that cannot get its memory (the bit array of x^n mod f, the window table) gives
// RUD_ERROR_MEM_FAILURE and leaves the stream as it was; failing each of its allocations in turn.
TEST(MemoryModules, FailedAllocationLeavesATwisterJumpUndone) {
  const auto r = run_in_child({{"TVX_DISABLE_FAST_MM", "1"}}, [] {
    Fake fake;
    CHECK_OR_EXIT(tvx_mem_test_set_modules(TVX_FAKE_ALLOC_MODULE, kMissing, 0) == 1, 1);
    long& calls = fake.count("fake_companion_calls");
    long& fail_at = fake.count("fake_companion_fail_at");
    auto words = [](RudStreamPtr s) {
      std::vector<unsigned> w(2000);
      viRngUniformBits(RUD_RNG_METHOD_UNIFORMBITS_STD, s, 2000, w.data());
      return w;
    };
    const struct {
      int brng;
      long long skip;
    } jumps[] = {{RUD_BRNG_MT19937, 1000000000000000LL},
                 {RUD_BRNG_SFMT19937, 1000000000000000LL},
                 {RUD_BRNG_SFMT19937, 10000}};
    int check = 10;
    for (const auto& j : jumps) {
      RudStreamPtr s = nullptr, twin = nullptr;
      CHECK_OR_EXIT(rudNewStream(&s, j.brng, 7) == RUD_STATUS_OK, check);
      CHECK_OR_EXIT(rudNewStream(&twin, j.brng, 7) == RUD_STATUS_OK, check + 1);
      words(s);
      words(twin);
      // Allocations of one jump: each is freed again, so half the companion calls.
      RudStreamPtr probe = nullptr;
      CHECK_OR_EXIT(rudCopyStream(&probe, s) == RUD_STATUS_OK, check + 2);
      const long before = calls;
      CHECK_OR_EXIT(rudSkipAheadStream(probe, j.skip) == RUD_STATUS_OK, check + 3);
      const long allocations = (calls - before) / 2;
      CHECK_OR_EXIT(allocations >= 1, check + 4);
      for (long k = 1; k <= allocations; ++k) {
        fail_at = k;
        CHECK_OR_EXIT(rudSkipAheadStream(s, j.skip) == RUD_ERROR_MEM_FAILURE, check + 5);
        CHECK_OR_EXIT(fail_at == 0, check + 6);
      }
      CHECK_OR_EXIT(words(s) == words(twin), check + 7);
      // With the memory there, the jump goes through and matches the probe's.
      CHECK_OR_EXIT(rudSkipAheadStream(s, j.skip) == RUD_STATUS_OK, check + 8);
      CHECK_OR_EXIT(rudSkipAheadStream(twin, j.skip) == RUD_STATUS_OK, check + 8);
      CHECK_OR_EXIT(words(s) == words(twin), check + 9);
      rudDeleteStream(&s);
      rudDeleteStream(&twin);
      rudDeleteStream(&probe);
      check += 10;
    }
    return 0;
  });
  EXPECT_EQ(r.exit_code, 0);
}

}  // namespace
