// Runtime services under concurrent use: the spin lock, and first calls of detection racing.
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "fake_cpu.h"
#include "runtime/report.h"

namespace tvx::test {
namespace {

TEST(SpinLock, ExcludesUnderContention) {
  volatile std::int32_t word = 0;
  long counter = 0;  // guarded only by the lock
  constexpr int kThreads = 4;
  constexpr int kRounds = 20000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        tvx_lock(&word);
        const long seen = counter;
        if ((i & 255) == 0) std::this_thread::yield();  // hold the lock long enough to collide
        counter = seen + 1;
        tvx_unlock(&word);
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(counter, long{kThreads} * kRounds);
  EXPECT_EQ(word, 0);
}

TEST(Detection, RacingFirstCallsAgree) {
  for (const auto& [name, value] : clean_env()) unsetenv(name.c_str());
  const FakeCpu cpu = FakeCpu().avx512().vnni();
  for (int round = 0; round < 20; ++round) {
    cpu.install();
    constexpr int kThreads = 4;
    int variant[kThreads], rud[kThreads], base[kThreads], cbwr[kThreads];
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        variant[t] = tvx_kaz_variant_index();
        cbwr[t] = tvx_cbwr_get(-1);
        rud[t] = tvx_rud_cpu_type();
        base[t] = tvx_serv_get_cpu_type();
      });
    }
    for (auto& th : threads) th.join();
    for (int t = 0; t < kThreads; ++t) {
      EXPECT_EQ(variant[t], 5);
      EXPECT_EQ(rud[t], 9);
      EXPECT_EQ(base[t], 7);
      EXPECT_EQ(cbwr[t], 1);
    }
  }
  FakeCpu::uninstall();
}

}  // namespace
}  // namespace tvx::test
