// The allocator on one thread: alignment and size rules, the slot choice of the thread cache,
// direct blocks, realloc and calloc, statistics, switches read once per process.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "memory_test_util.h"
#include "runtime/memory.h"
#include "support/subprocess.h"

namespace {

using tvx::test::aligned_to;
using tvx::test::header_of;
using tvx::test::held;
using tvx::test::is_cached;
using tvx::test::run_in_child;

// Each test starts from an empty cache on its thread.
class Memory : public ::testing::Test {
 protected:
  void SetUp() override { tvx_thread_free_buffers(); }
  void TearDown() override { tvx_thread_free_buffers(); }
};

TEST_F(Memory, AlignmentRules) {
  struct Case {
    int asked;
    std::uint32_t used;
  };
  const Case cases[] = {{0, 64},    {1, 64},          {63, 64},   {-128, 64},   {100, 64},
                        {96, 64},   {64, 64},         {128, 128}, {4096, 4096}, {1 << 20, 1 << 20},
                        {3000, 64}, {1 << 30 | 1, 64}};
  for (const Case& c : cases) {
    for (int direct = 0; direct < 2; ++direct) {
      void* p = direct ? tvx_malloc_direct(1000, c.asked) : tvx_malloc(1000, c.asked);
      ASSERT_NE(p, nullptr) << c.asked;
      EXPECT_TRUE(aligned_to(p, c.used)) << c.asked;
      EXPECT_EQ(header_of(p).alignment, c.used) << c.asked;
      EXPECT_EQ(is_cached(p), direct == 0) << c.asked;
      std::memset(p, 0xCA, 1000);  // the whole block is writable (ASan checks the bounds)
      tvx_free(p);
    }
  }
}

TEST_F(Memory, ZeroAndOverflowingSizes) {
  EXPECT_EQ(tvx_malloc(0, 64), nullptr);
  // Size plus alignment plus header must not wrap around.
  for (std::size_t size : {SIZE_MAX, SIZE_MAX - 64, SIZE_MAX - 64 - 24 + 1, SIZE_MAX / 2 * 2}) {
    EXPECT_EQ(tvx_malloc(size, 64), nullptr) << size;
    EXPECT_EQ(tvx_malloc_direct(size, 4096), nullptr) << size;
  }
  EXPECT_EQ(tvx_calloc(SIZE_MAX / 2, 3, 64), nullptr);
  EXPECT_EQ(tvx_calloc(3, SIZE_MAX / 2, 64), nullptr);
  // A direct block of zero bytes is a valid block.
  void* empty = tvx_malloc_direct(0, 64);
  ASSERT_NE(empty, nullptr);
  tvx_free(empty);
  tvx_free(nullptr);
}

TEST_F(Memory, CacheCeiling) {
  constexpr std::size_t kCeiling = 0x8000000;
  void* at = tvx_malloc(kCeiling, 64);
  ASSERT_NE(at, nullptr);
  EXPECT_TRUE(is_cached(at));
  static_cast<char*>(at)[kCeiling - 1] = 1;
  tvx_free(at);
  EXPECT_EQ(tvx_malloc(kCeiling, 64), at) << "the buffer stays for the next call";
  tvx_free(at);
  void* above = tvx_malloc(kCeiling + 1, 64);
  ASSERT_NE(above, nullptr);
  EXPECT_FALSE(is_cached(above));
  tvx_free(above);
}

TEST_F(Memory, SlotChoice) {
  // Capacities 4064+64, 2000+64, 3000+64 in slots 0, 1, 2.
  void* a = tvx_malloc(4064, 64);
  void* b = tvx_malloc(2000, 64);
  void* c = tvx_malloc(3000, 64);
  ASSERT_TRUE(a && b && c);
  tvx_free(a);
  tvx_free(b);
  tvx_free(c);
  // Same size and alignment: the same pointer.
  EXPECT_EQ(tvx_malloc(3000, 64), c);
  tvx_free(c);
  // Same need (size + alignment) with another alignment: the exact slot, realigned.
  void* d = tvx_malloc(2000 - 64, 128);
  EXPECT_TRUE(aligned_to(d, 128));
  EXPECT_EQ(header_of(d).alignment, 128u);
  std::memset(d, 0xCA, 2000 - 64);
  tvx_free(d);
  // No exact fit: the smallest larger slot, not the first one.
  void* e = tvx_malloc(1500, 64);
  EXPECT_EQ(e, b);
  // With that slot in use, the next smallest.
  void* f = tvx_malloc(1500, 64);
  EXPECT_EQ(f, c);
  tvx_free(e);
  tvx_free(f);
}

TEST_F(Memory, SixthLiveBlockIsDirect) {
  void* p[6];
  for (int i = 0; i < 6; ++i) {
    p[i] = tvx_malloc(1000 + i, 64);
    ASSERT_NE(p[i], nullptr);
    EXPECT_EQ(is_cached(p[i]), i < 5) << i;
  }
  for (void* q : p) tvx_free(q);
  // Five small free slots: a larger request replaces the first of them in place.
  const auto before = held();
  void* big = tvx_malloc(50000, 64);
  ASSERT_NE(big, nullptr);
  EXPECT_TRUE(is_cached(big));
  std::memset(big, 0xCA, 50000);
  EXPECT_EQ(held().blocks, before.blocks) << "one slot replaced, none added";
  EXPECT_EQ(held().bytes - before.bytes, (50000 + 64) - (1000 + 64));
  // The four other small slots still serve their sizes.
  for (int i = 1; i < 5; ++i) {
    void* q = tvx_malloc(1000 + i, 64);
    EXPECT_EQ(q, p[i]) << i;
    tvx_free(q);
  }
  tvx_free(big);
}

TEST_F(Memory, StatisticsFollowBlocks) {
  EXPECT_EQ(tvx_mem_stat(nullptr), 0);
  const auto h0 = held();
  void* d = tvx_malloc_direct(10000, 256);
  EXPECT_EQ(held().bytes - h0.bytes, 10000 + 256 + 24);
  EXPECT_EQ(held().blocks - h0.blocks, 1);
  void* c = tvx_malloc(777, 64);
  EXPECT_EQ(held().bytes - h0.bytes, 10000 + 256 + 24 + 777 + 64 + 24);
  EXPECT_EQ(held().blocks - h0.blocks, 2);
  tvx_free(d);
  tvx_free(c);
  EXPECT_EQ(held().bytes - h0.bytes, 777 + 64 + 24) << "a free slot is still held";
  tvx_thread_free_buffers();
  EXPECT_EQ(held().bytes, h0.bytes);
  EXPECT_EQ(held().blocks, h0.blocks);
}

TEST_F(Memory, PeakStatistics) {
  EXPECT_EQ(tvx_peak_mem_usage(7), -1);
  EXPECT_EQ(tvx_peak_mem_usage(0), 0);
  EXPECT_EQ(tvx_peak_mem_usage(2), -1) << "off";
  EXPECT_EQ(tvx_peak_mem_usage(-1), -1) << "off";
  EXPECT_EQ(tvx_peak_mem_usage(1), 0);
  EXPECT_EQ(tvx_peak_mem_usage(2), 0);
  void* a = tvx_malloc_direct(1 << 20, 64);
  void* b = tvx_malloc(1 << 16, 64);
  const std::int64_t both = (1 << 20) + 64 + 24 + (1 << 16) + 64 + 24;
  EXPECT_EQ(tvx_peak_mem_usage(2), both);
  tvx_free(a);
  EXPECT_EQ(tvx_peak_mem_usage(2), both) << "the peak stays after a free";
  EXPECT_EQ(tvx_peak_mem_usage(-1), both) << "answers the old peak";
  EXPECT_EQ(tvx_peak_mem_usage(2), (1 << 16) + 64 + 24) << "now the current use";
  tvx_free(b);
  tvx_thread_free_buffers();  // the slot's buffer is credited when released
  EXPECT_EQ(tvx_peak_mem_usage(-1), (1 << 16) + 64 + 24);
  EXPECT_EQ(tvx_peak_mem_usage(2), 0);
  EXPECT_EQ(tvx_peak_mem_usage(0), 0);
  EXPECT_EQ(tvx_peak_mem_usage(2), -1);
}

TEST_F(Memory, ReallocGrowsDirectBlocks) {
  // Null acts as a direct allocation of alignment 64.
  auto* p = static_cast<unsigned char*>(tvx_realloc(nullptr, 100));
  ASSERT_NE(p, nullptr);
  EXPECT_FALSE(is_cached(p));
  EXPECT_EQ(header_of(p).alignment, 64u);
  for (int i = 0; i < 100; ++i) p[i] = static_cast<unsigned char>(i * 7);
  EXPECT_EQ(tvx_realloc(p, 100), p) << "room enough";
  EXPECT_EQ(tvx_realloc(p, 1), p) << "no shrinking";
  // Growing, with an alignment whose offset from the raw pointer changes between buffers.
  for (std::size_t size : {1000u, 100000u, 3000000u}) {
    auto* q = static_cast<unsigned char*>(tvx_realloc(p, size));
    ASSERT_NE(q, nullptr);
    EXPECT_TRUE(aligned_to(q, 64));
    for (int i = 0; i < 100; ++i) ASSERT_EQ(q[i], static_cast<unsigned char>(i * 7)) << size;
    std::memset(q + 100, 0xCA, size - 100);
    p = q;
  }
  EXPECT_EQ(tvx_realloc(p, SIZE_MAX - 10), nullptr);
  EXPECT_EQ(p[99], static_cast<unsigned char>(99 * 7)) << "a failed realloc keeps the block";
  tvx_free(p);

  auto* w = static_cast<unsigned char*>(tvx_malloc_direct(5000, 4096));
  for (int i = 0; i < 5000; ++i) w[i] = static_cast<unsigned char>(i);
  const auto h0 = held();
  auto* w2 = static_cast<unsigned char*>(tvx_realloc(w, 1 << 21));
  ASSERT_NE(w2, nullptr);
  EXPECT_TRUE(aligned_to(w2, 4096));
  EXPECT_EQ(header_of(w2).alignment, 4096u);
  for (int i = 0; i < 5000; ++i) ASSERT_EQ(w2[i], static_cast<unsigned char>(i));
  EXPECT_EQ(held().bytes - h0.bytes, (1 << 21) - 5000);
  EXPECT_EQ(held().blocks, h0.blocks);
  tvx_free(w2);

  // A block of the thread cache cannot be resized and stays valid.
  void* c = tvx_malloc(64, 64);
  ASSERT_TRUE(is_cached(c));
  EXPECT_EQ(tvx_realloc(c, 1 << 20), nullptr);
  std::memset(c, 0xCA, 64);
  tvx_free(c);
}

TEST_F(Memory, CallocZeroesEveryByte) {
  for (std::size_t n : {1u, 3u, 4u, 7u, 33u, 4099u}) {
    // Dirty the heap first so that a block that is not cleared shows.
    void* dirty = tvx_malloc_direct(n * 3, 64);
    std::memset(dirty, 0xCA, n * 3);
    tvx_free(dirty);
    auto* p = static_cast<unsigned char*>(tvx_calloc(n, 3, 64));
    ASSERT_NE(p, nullptr);
    for (std::size_t i = 0; i < n * 3; ++i) ASSERT_EQ(p[i], 0) << n << " " << i;
    tvx_free(p);
  }
}

TEST_F(Memory, ReleaseKeepsBlocksInUse) {
  void* kept = tvx_malloc(4000, 64);
  void* spare = tvx_malloc(8000, 64);
  tvx_free(spare);
  std::memset(kept, 0xCA, 4000);
  tvx_free_buffers();
  // The free slot went; the one in use is still the caller's and still comes back to its slot.
  EXPECT_GE(held().bytes, 4000 + 64 + 24);
  tvx_free(kept);
  EXPECT_EQ(tvx_malloc(4000, 64), kept);
  tvx_free(kept);
  tvx_free_buffers();
  // Everything released: the table starts over and the allocator keeps working.
  EXPECT_EQ(held().bytes, 0);
  EXPECT_EQ(held().blocks, 0);
  void* again = tvx_malloc(4000, 64);
  ASSERT_NE(again, nullptr);
  EXPECT_TRUE(is_cached(again));
  tvx_free(again);
}

TEST_F(Memory, ProtectWholePages) {
  auto* p = static_cast<char*>(tvx_malloc_direct(3 * 4096, 4096));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(tvx_mem_protect(p + 64, 4096, 1), 0) << "not page-aligned";
  EXPECT_EQ(tvx_mem_protect(p, 100, 1), 0) << "no whole page";
  EXPECT_EQ(tvx_mem_protect(nullptr, 4096, 1), 0);
  ASSERT_EQ(tvx_mem_protect(p, 2 * 4096, 1), 1);
  EXPECT_EQ(*static_cast<volatile char*>(p), p[0]);  // still readable
  const auto crashed = run_in_child({}, [p] {
    p[10] = 1;
    return 0;
  });
  EXPECT_NE(crashed.exit_code, 0) << "a write to a read-only page faults";
  const auto beyond = run_in_child({}, [p] {
    p[2 * 4096 + 10] = 1;  // the third page was not touched
    return 0;
  });
  EXPECT_EQ(beyond.exit_code, 0);
  ASSERT_EQ(tvx_mem_protect(p, 2 * 4096, 0), 1);
  p[10] = 1;
  tvx_free(p);
}

TEST(MemorySwitches, NoHighBandwidthMemoryOnThisMachine) {
  // Without the processor features the library is never looked for; blocks come from the heap.
  EXPECT_EQ(tvx_mem_hbw_active(), 0);
  EXPECT_EQ(tvx_set_memory_limit(1, 100), 0);
}

}  // namespace
