// The allocator across threads: blocks freed by a thread that does not own them, caches of
// threads that end with blocks still in use, and a stress run of threads that come and go.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <deque>
#include <mutex>
#include <random>
#include <semaphore>
#include <thread>
#include <vector>

#include "memory_test_util.h"
#include "runtime/memory.h"

namespace {

using tvx::test::held;
using tvx::test::is_cached;

TEST(MemoryThreads, ForeignFreeClearsTheOwnersSlot) {
  tvx_free_buffers();
  const auto h0 = held();
  std::binary_semaphore allocated{0}, freed{0};
  void* block = nullptr;
  void* again = nullptr;
  std::thread owner([&] {
    block = tvx_malloc(5000, 64);
    std::memset(block, 0xCA, 5000);
    allocated.release();
    freed.acquire();
    // The block came back through the other thread: its slot serves the same request again.
    again = tvx_malloc(5000, 64);
    tvx_free(again);
  });
  allocated.acquire();
  const bool cached = is_cached(block);
  tvx_free(block);  // this thread has no slot holding it
  freed.release();
  owner.join();
  EXPECT_TRUE(cached);
  EXPECT_EQ(again, block);
  EXPECT_EQ(held().bytes, h0.bytes) << "the owner's cache went with its thread";
  EXPECT_EQ(held().blocks, h0.blocks);
}

TEST(MemoryThreads, EndedThreadKeepsBlocksUntilFreed) {
  tvx_free_buffers();
  const auto h0 = held();
  void* kept = nullptr;
  void* direct = nullptr;
  std::thread t([&] {
    void* spare = tvx_malloc(300, 64);
    kept = tvx_malloc(1000, 64);
    direct = tvx_malloc_direct(2000, 64);
    tvx_free(spare);
  });
  t.join();
  EXPECT_EQ(held().bytes - h0.bytes, (1000 + 64 + 24) + (2000 + 64 + 24))
      << "the spare slot went at thread end, the block in use and the direct one did not";
  EXPECT_EQ(held().blocks - h0.blocks, 2);
  tvx_free_buffers();  // a retired cache survives a global release
  EXPECT_EQ(held().bytes - h0.bytes, (1000 + 64 + 24) + (2000 + 64 + 24));
  std::memset(kept, 0xCA, 1000);
  tvx_free(kept);
  tvx_free(direct);
  EXPECT_EQ(held().bytes, h0.bytes);
  EXPECT_EQ(held().blocks, h0.blocks);
}

// Threads in waves allocate blocks of mixed sizes and alignments, pass some to a shared pool,
// free blocks made by others, and end; some blocks outlive their maker. Each block carries its
// own tag so that a block handed out twice, or overwritten, shows.
TEST(MemoryThreads, StressWithForeignFreesAndThreadExits) {
  tvx_free_buffers();
  const auto h0 = held();
  struct Block {
    unsigned char* p;
    std::size_t size;
    unsigned char tag;
  };
  std::mutex pool_lock;
  std::deque<Block> pool;
  std::atomic<int> corrupt{0};
  std::atomic<int> failed{0};
  auto check_and_free = [&](const Block& b) {
    for (std::size_t i = 0; i < b.size; i += 61) {
      if (b.p[i] != b.tag) {
        corrupt.fetch_add(1);
        break;
      }
    }
    if (b.p[b.size - 1] != b.tag) corrupt.fetch_add(1);
    tvx_free(b.p);
  };
  auto worker = [&](unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<Block> mine;
    for (int step = 0; step < 400; ++step) {
      const unsigned r = rng();
      const std::size_t size = 1 + (r % 9 == 0 ? (r % 200000) : (r % 3000));
      const int alignment = 16 << (r % 5);
      unsigned char* p = static_cast<unsigned char*>((r & 64) ? tvx_malloc(size, alignment)
                                                              : tvx_malloc_direct(size, alignment));
      if (p == nullptr || (reinterpret_cast<std::uintptr_t>(p) & 63) != 0) {
        failed.fetch_add(1);
        continue;
      }
      const Block b{p, size, static_cast<unsigned char>(r >> 8)};
      std::memset(p, b.tag, size);
      if (r & 1) {
        std::lock_guard<std::mutex> lock(pool_lock);
        pool.push_back(b);
      } else {
        mine.push_back(b);
      }
      if (mine.size() > 6) {
        check_and_free(mine.front());
        mine.erase(mine.begin());
      }
      Block other{nullptr, 0, 0};
      {
        std::lock_guard<std::mutex> lock(pool_lock);
        if (pool.size() > 20) {
          other = pool.front();
          pool.pop_front();
        }
      }
      if (other.p != nullptr) check_and_free(other);
      if (step % 97 == 0) tvx_thread_free_buffers();
    }
    // Half of what is left goes to the pool and outlives this thread.
    for (std::size_t i = 0; i < mine.size(); ++i) {
      if (i % 2 == 0) {
        check_and_free(mine[i]);
      } else {
        std::lock_guard<std::mutex> lock(pool_lock);
        pool.push_back(mine[i]);
      }
    }
  };
  for (int wave = 0; wave < 4; ++wave) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back(worker, 1000u * wave + t);
    if (wave == 2) {
      EXPECT_GT(held().bytes, 0);  // statistics walk the table while it changes
    }
    for (auto& t : threads) t.join();
  }
  for (const Block& b : pool) check_and_free(b);
  EXPECT_EQ(corrupt.load(), 0);
  EXPECT_EQ(failed.load(), 0);
  tvx_free_buffers();
  EXPECT_EQ(held().bytes, h0.bytes);
  EXPECT_EQ(held().blocks, h0.blocks);
}

TEST(MemoryThreads, GlobalReleaseWhileOthersAllocate) {
  std::atomic<bool> stop{false};
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      while (!stop.load()) {
        auto* p = static_cast<unsigned char*>(tvx_malloc(100 + 50 * t, 64));
        if (p == nullptr) {
          bad.fetch_add(1);
          continue;
        }
        std::memset(p, t, 100 + 50 * t);
        if (p[99] != t) bad.fetch_add(1);
        tvx_free(p);
      }
    });
  }
  for (int i = 0; i < 200; ++i) tvx_free_buffers();
  stop = true;
  for (auto& t : threads) t.join();
  EXPECT_EQ(bad.load(), 0);
  tvx_free_buffers();
  EXPECT_EQ(held().bytes, 0);
}

}  // namespace
