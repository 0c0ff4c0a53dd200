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

using tvx::test::child_ok;
using tvx::test::is_cached;

constexpr const char* kMissing = "libtvx-no-such-module.so";
constexpr const char* kFake = TVX_FAKE_ALLOC_MODULE;

// The fake module's switches and counters, reached through the loader.
struct Fake {
  void* handle = dlopen(kFake, RTLD_NOW | RTLD_LOCAL);
  int& var(const char* name) { return *static_cast<int*>(dlsym(handle, name)); }
  long& count(const char* name) { return *static_cast<long*>(dlsym(handle, name)); }
};

TEST(MemoryStartup, DisableFastMemoryManagement) {
  // Any non-empty value turns the thread caches off; an empty one leaves them on.
  const std::pair<const char*, int> values[] = {{"1", 0}, {"no", 0}, {"", 1}};
  for (const auto& [value, on] : values) {
    EXPECT_TRUE(child_ok({{"TVX_DISABLE_FAST_MM", value}}, [on = on] {
      void* p = tvx_malloc(1000, 64);
      TVX_CHILD_CHECK(p != nullptr && is_cached(p) == (on == 1) && tvx_fast_mm_enabled() == on);
      tvx_free(p);
      return 0;
    })) << value;
  }
  EXPECT_TRUE(child_ok({{"TVX_DISABLE_FAST_MM", nullptr}}, [] {
    TVX_CHILD_CHECK(tvx_disable_fast_mm() == 1);
    TVX_CHILD_CHECK(tvx_disable_fast_mm() == 0);
    void* p = tvx_malloc(1000, 64);
    const bool cached = is_cached(p);
    tvx_free(p);
    TVX_CHILD_CHECK(!cached);
    return 0;
  }));
  // Too late once the allocator has started.
  EXPECT_TRUE(child_ok({{"TVX_DISABLE_FAST_MM", nullptr}}, [] {
    tvx_free(tvx_malloc(10, 64));
    TVX_CHILD_CHECK(tvx_disable_fast_mm() == 0 && tvx_fast_mm_enabled() == 1);
    return 0;
  }));
}

std::vector<int> g_cleanup_order;

TEST(MemoryStartup, CleanupListRunsLastFirst) {
  EXPECT_TRUE(child_ok({}, [] {
    auto a = [] { g_cleanup_order.push_back(1); };
    auto b = [] { g_cleanup_order.push_back(2); };
    TVX_CHILD_CHECK(tvx_register_cleanup(nullptr) == 1);
    TVX_CHILD_CHECK(tvx_register_cleanup(a) == 0 && tvx_register_cleanup(b) == 0);
    TVX_CHILD_CHECK(tvx_register_cleanup(a) == 1);  // full
    tvx_free_buffers();
    tvx_free_buffers();
    TVX_CHILD_CHECK((g_cleanup_order == std::vector<int>{2, 1, 2, 1}));
    return 0;
  }));
}

TEST(MemoryModules, MissingLibraryFallsBackToTheHeap) {
  EXPECT_TRUE(child_ok({}, [] {
    TVX_CHILD_CHECK(tvx_mem_test_set_modules(kMissing, kMissing, 1) == 1);
    void* p = tvx_malloc(1000, 64);
    void* d = tvx_malloc_direct(1 << 20, 4096);
    TVX_CHILD_CHECK(p != nullptr && d != nullptr);
    std::memset(p, 0xCA, 1000);
    std::memset(d, 0xCA, 1 << 20);
    tvx_free(p);
    tvx_free(d);
    TVX_CHILD_CHECK(tvx_mem_hbw_active() == 0);
    TVX_CHILD_CHECK(tvx_set_memory_limit(1, 10) == 0);
    TVX_CHILD_CHECK(tvx_mem_test_set_modules(nullptr, nullptr, 0) == 0);  // too late
    return 0;
  }));
}

TEST(MemoryModules, HighBandwidthBlocksAndTheirRelease) {
  EXPECT_TRUE(child_ok({{"TVX_FAST_MEMORY_LIMIT", nullptr}}, [] {
    Fake fake;
    TVX_CHILD_CHECK(fake.handle != nullptr);
    TVX_CHILD_CHECK(tvx_mem_test_set_modules(kMissing, kFake, 1) == 1);
    TVX_CHILD_CHECK(tvx_mem_hbw_active() == 1);
    const long &huge = fake.count("fake_huge_calls"), &small_calls = fake.count("fake_small_calls");
    const long& frees = fake.count("fake_frees");
    auto* p = static_cast<char*>(tvx_malloc_direct(100000, 4096));
    TVX_CHILD_CHECK(p != nullptr && tvx::test::aligned_to(p, 4096) && huge == 1);
    std::memset(p, 0xCA, 100000);
    p = static_cast<char*>(tvx_realloc(p, 300000));  // allocate, copy, free
    TVX_CHILD_CHECK(p != nullptr && p[99999] == static_cast<char>(0xCA) && frees == 1);
    tvx_free(p);
    TVX_CHILD_CHECK(frees == 2);
    // Huge pages refused: small pages; both refused: the plain heap.
    fake.var("fake_fail_huge") = 1;
    void* small = tvx_malloc_direct(5000, 64);
    TVX_CHILD_CHECK(small != nullptr && small_calls == 1);
    fake.var("fake_fail_small") = 1;
    void* plain = tvx_malloc_direct(5000, 64);
    TVX_CHILD_CHECK(plain != nullptr && small_calls == 2);
    tvx_free(plain);
    TVX_CHILD_CHECK(frees == 2);  // plain memory goes to the plain free
    tvx_free(small);
    TVX_CHILD_CHECK(frees == 3);
    // No budget was given: the first call sets one, the second may not.
    TVX_CHILD_CHECK(tvx_set_memory_limit(2, 1) == 0);
    TVX_CHILD_CHECK(tvx_set_memory_limit(1, 1) == 1);
    TVX_CHILD_CHECK(tvx_set_memory_limit(1, 5) == 0);
    return 0;
  }));
}

TEST(MemoryModules, BudgetLimitsHighBandwidthMemory) {
  EXPECT_TRUE(child_ok({{"TVX_FAST_MEMORY_LIMIT", "1"}}, [] {
    Fake fake;
    TVX_CHILD_CHECK(tvx_mem_test_set_modules(kMissing, kFake, 1) == 1);
    TVX_CHILD_CHECK(tvx_set_memory_limit(1, 100) == 0);  // the variable set it already
    const long& huge = fake.count("fake_huge_calls");
    void* a = tvx_malloc_direct(600000, 64);  // fits the MiB
    TVX_CHILD_CHECK(a != nullptr && huge == 1);
    void* b = tvx_malloc_direct(600000, 64);  // does not fit what is left: plain memory
    TVX_CHILD_CHECK(b != nullptr && huge == 1);
    tvx_free(a);  // gives its bytes back to the budget
    void* c = tvx_malloc_direct(600000, 64);
    TVX_CHILD_CHECK(c != nullptr && huge == 2);
    tvx_free(c);
    // Block header 24 + alignment 64 + wrapper header 32: a total of exactly the budget is
    // refused, one byte less is taken.
    void* d = tvx_malloc_direct((1 << 20) - 120, 64);
    TVX_CHILD_CHECK(d != nullptr && huge == 2);
    void* e = tvx_malloc_direct((1 << 20) - 121, 64);
    TVX_CHILD_CHECK(e != nullptr && huge == 3);
    for (void* q : {b, d, e}) tvx_free(q);
    return 0;
  }));
  // A budget of 0 keeps every block in plain memory; a negative budget is no limit.
  const std::pair<const char*, long> budgets[] = {{"0", 0}, {"-5", 1}};
  for (const auto& [budget, huge] : budgets) {
    EXPECT_TRUE(child_ok({{"TVX_FAST_MEMORY_LIMIT", budget}}, [huge = huge] {
      Fake fake;
      TVX_CHILD_CHECK(tvx_mem_test_set_modules(kMissing, kFake, 1) == 1);
      void* a = tvx_malloc_direct(50 << 20, 64);
      TVX_CHILD_CHECK(a != nullptr && fake.count("fake_huge_calls") == huge);
      tvx_free(a);
      TVX_CHILD_CHECK(fake.count("fake_frees") == huge);
      return 0;
    })) << budget;
  }
}

TEST(MemoryModules, OldLibraryVersionIsRefused) {
  auto body = [] {
    Fake fake;
    fake.var("fake_version") = 1000999;
    TVX_CHILD_CHECK(tvx_mem_test_set_modules(kMissing, kFake, 1) == 1);
    void* a = tvx_malloc(1000, 64);
    TVX_CHILD_CHECK(a != nullptr && tvx_mem_hbw_active() == 0);
    tvx_free(a);
    TVX_CHILD_CHECK(fake.count("fake_huge_calls") == 0);
    return 0;
  };
  const auto verbose = tvx::test::run_in_child({{"TVX_VERBOSE", "1"}}, body);
  EXPECT_EQ(verbose.exit_code, 0);
  EXPECT_EQ(verbose.out, "Minimal supported version of the memkind library is 1.1.0\n");
  const auto quiet = tvx::test::run_in_child({{"TVX_VERBOSE", nullptr}}, body);
  EXPECT_EQ(quiet.exit_code, 0);
  EXPECT_EQ(quiet.out, "");
}

TEST(MemoryModules, ProcessorWithoutTheFeaturesNeverLoadsTheLibrary) {
  EXPECT_TRUE(child_ok({}, [] {
    Fake fake;
    TVX_CHILD_CHECK(tvx_mem_test_set_modules(kMissing, kFake, 0) == 1);
    tvx_free(tvx_malloc_direct(1000, 64));
    TVX_CHILD_CHECK(tvx_mem_hbw_active() == 0 && fake.count("fake_huge_calls") == 0);
    return 0;
  }));
}

TEST(MemoryModules, CompanionAllocator) {
  EXPECT_TRUE(child_ok({}, [] {
    Fake fake;
    TVX_CHILD_CHECK(tvx_mem_test_set_modules(kFake, kFake, 1) == 1);
    const long& calls = fake.count("fake_companion_calls");
    void* p = tvx_malloc_direct(1000, 64);
    TVX_CHILD_CHECK(p != nullptr && calls == 1);
    p = tvx_realloc(p, 100000);
    TVX_CHILD_CHECK(p != nullptr && calls == 2);
    tvx_free(p);
    TVX_CHILD_CHECK(calls == 3);
    TVX_CHILD_CHECK(tvx_mem_hbw_active() == 0);  // a companion takes the place of HBW memory
    return 0;
  }));
  // A companion missing one function is not used.
  EXPECT_TRUE(child_ok({}, [] {
    Fake fake;
    *static_cast<void**>(dlsym(fake.handle, "tvx_companion_realloc")) = nullptr;
    TVX_CHILD_CHECK(tvx_mem_test_set_modules(kFake, kMissing, 0) == 1);
    tvx_free(tvx_malloc_direct(1000, 64));
    TVX_CHILD_CHECK(fake.count("fake_companion_calls") == 0);
    return 0;
  }));
}

// A twister jump that cannot get its memory (the bit array of x^n mod f, the window table) gives
// RUD_ERROR_MEM_FAILURE and leaves the stream as it was; failing each of its allocations in turn.
TEST(MemoryModules, FailedAllocationLeavesATwisterJumpUndone) {
  EXPECT_TRUE(child_ok({{"TVX_DISABLE_FAST_MM", "1"}}, [] {
    Fake fake;
    TVX_CHILD_CHECK(tvx_mem_test_set_modules(kFake, kMissing, 0) == 1);
    const long& calls = fake.count("fake_companion_calls");
    long& fail_at = fake.count("fake_companion_fail_at");
    auto words = [](RudStreamPtr s) {
      std::vector<unsigned> w(2000);
      viRngUniformBits(RUD_RNG_METHOD_UNIFORMBITS_STD, s, 2000, w.data());
      return w;
    };
    const std::pair<int, long long> jumps[] = {{RUD_BRNG_MT19937, 1000000000000000LL},
                                               {RUD_BRNG_SFMT19937, 1000000000000000LL},
                                               {RUD_BRNG_SFMT19937, 10000}};
    for (const auto& [brng, skip] : jumps) {
      RudStreamPtr s = nullptr, twin = nullptr, probe = nullptr;
      TVX_CHILD_CHECK(rudNewStream(&s, brng, 7) == RUD_STATUS_OK);
      TVX_CHILD_CHECK(rudNewStream(&twin, brng, 7) == RUD_STATUS_OK);
      words(s);
      words(twin);
      // Allocations of one jump: each is freed again, so half the companion calls.
      TVX_CHILD_CHECK(rudCopyStream(&probe, s) == RUD_STATUS_OK);
      const long before = calls;
      TVX_CHILD_CHECK(rudSkipAheadStream(probe, skip) == RUD_STATUS_OK);
      const long allocations = (calls - before) / 2;
      TVX_CHILD_CHECK(allocations >= 1);
      for (long k = 1; k <= allocations; ++k) {
        fail_at = k;
        TVX_CHILD_CHECK(rudSkipAheadStream(s, skip) == RUD_ERROR_MEM_FAILURE);
        TVX_CHILD_CHECK(fail_at == 0);
      }
      TVX_CHILD_CHECK(words(s) == words(twin));
      // With the memory there, the jump goes through and matches the probe's.
      TVX_CHILD_CHECK(rudSkipAheadStream(s, skip) == RUD_STATUS_OK);
      TVX_CHILD_CHECK(rudSkipAheadStream(twin, skip) == RUD_STATUS_OK);
      TVX_CHILD_CHECK(words(s) == words(twin));
      for (RudStreamPtr* q : {&s, &twin, &probe}) rudDeleteStream(q);
    }
    return 0;
  }));
}

}  // namespace
