// The vector threader: the cut, the cost model, the fork decision, and what a threaded call hands
// to its workers and brings back (results, status, callback index, mode).
#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <random>
#include <vector>

#include "runtime/settings.h"
#include "support/subprocess.h"
#include "tvx_vector.h"
#include "vector/frame/mode_status.h"
#include "vector/frame/rows.h"
#include "vector/frame/threader.h"

namespace {

using tvx::frame::cut;
using tvx::frame::Piece;

// n of 99 never reaches the settings; n of 100 does. Read-once settings: in a child, forked
// before any other test of this program has read them (suites run in the order written).
TEST(ThreaderSettings, NinetyNineNeverReadsTheSettings) {
  const auto r = tvx::test::run_in_child({{"TVX_NUM_THREADS", "2"}}, [] {
    std::vector<double> a(100, 1.0), r(100);
    vdAdd(99, a.data(), a.data(), r.data());
    if (tvx_settings_parsed() != 0) return 1;
    vdAdd(100, a.data(), a.data(), r.data());
    return tvx_settings_parsed() != 0 ? 0 : 2;
  });
  EXPECT_EQ(r.exit_code, 0);
}

TEST(ThreaderCut, PiecesAreContiguousAndTheFirstOnesLonger) {
  const Piece want[4] = {{0, 3}, {3, 3}, {6, 2}, {8, 2}};
  for (int t = 0; t < 4; ++t) {
    EXPECT_EQ(cut(10, 4, t).offset, want[t].offset) << t;
    EXPECT_EQ(cut(10, 4, t).length, want[t].length) << t;
  }
  for (int t = 0; t < 128; ++t) {
    const Piece p = cut(100, 128, t);
    EXPECT_EQ(p.length, t < 100 ? 1 : 0) << t;
    if (t < 100) {
      EXPECT_EQ(p.offset, t);
    }
  }
  // Any n and team: the pieces tile 0..n-1 in thread order.
  for (int n : {1, 99, 100, 101, 1000, 12345})
    for (int team : {1, 2, 3, 7, 64}) {
      int next = 0;
      for (int t = 0; t < team; ++t) {
        const Piece p = cut(n, team, t);
        if (p.length == 0) continue;
        EXPECT_EQ(p.offset, next) << n << " " << team << " " << t;
        next += p.length;
      }
      EXPECT_EQ(next, n);
    }
}

TEST(ThreaderCost, ForkFactorOfAMachine) {
  // 16 logical processors, 8 cores, one node: a fork costs 89333 cycles.
  EXPECT_NEAR(tvx_kaz_fork_factor_of(16, 1, 8), 2.0f / 89333.33f, 1e-10);
  EXPECT_EQ(tvx_kaz_fork_factor_of(1, 1, 1), 0.0f);
  EXPECT_EQ(tvx_kaz_fork_factor_of(2, 1, 4), 0.0f) << "fewer logical processors than cores";
  // Two nodes of four cores, no siblings: the NUMA and core terms only.
  const double d = 1.0 / 7;
  const float a = static_cast<float>(1 * d * 4) * 9000.0f;
  const float y = static_cast<float>(3 * 1 * d) * 60000.0f;
  EXPECT_FLOAT_EQ(tvx_kaz_fork_factor_of(8, 2, 4), 2.0f / ((a + 0.0f) + y));
}

TEST(ThreaderCost, UsefulThreadsGrowWithWork) {
  const float f = tvx_kaz_fork_factor_of(16, 1, 8);
  EXPECT_EQ(tvx_kaz_useful_threads(16, 1000, 3.444f, f), 1);
  EXPECT_EQ(tvx_kaz_useful_threads(16, 100000, 3.444f, f), 7);
  EXPECT_EQ(tvx_kaz_useful_threads(4, 100000, 3.444f, f), 4);
  EXPECT_EQ(tvx_kaz_useful_threads(16, 100000, 3.444f, 0.0f), 1) << "one processor never forks";
  EXPECT_EQ(tvx_kaz_useful_threads(8, std::numeric_limits<int>::max(), 1e30f, 1.0f), 8);
}

// A kernel that records its arguments: which thread ran which piece, and the scalars it got.
struct Call {
  int n;
  long offset;
  double scalar;
  const double* fixed;
};
std::vector<Call> g_calls;
std::atomic<int> g_call_count{0};
const double* g_base = nullptr;

std::mutex g_calls_lock;  // not an OpenMP critical: the sanitizer sees only real locks

void recording_kernel(int n, const double* a, double s, const double* fixed, double* r) {
  {
    std::lock_guard<std::mutex> hold(g_calls_lock);
    g_calls.push_back({n, static_cast<long>(a - g_base), s, fixed});
  }
  for (int i = 0; i < n; ++i) r[i] = a[i] * s + *fixed;
  ++g_call_count;
}

class Threaded : public ::testing::Test {
 protected:
  void SetUp() override {
    tvx_set_dynamic(0);  // n >= 100 always runs on the requested team
    tvx_set_num_threads(4);
    kazClearErrStatus();
  }
  void TearDown() override {
    tvx_set_dynamic(1);
    kazClearErrStatus();
    kazSetErrorCallBack(nullptr);
  }
};

TEST_F(Threaded, PointersAreCutScalarsAndFixedPassWhole) {
  std::vector<double> a(1001), r(1001, -1);
  for (int i = 0; i < 1001; ++i) a[i] = i;
  const double three = 3.0;
  g_base = a.data();
  g_calls.clear();
  tvx::frame::threaded_call(&recording_kernel, 1001, 1.0f, 0, static_cast<const double*>(a.data()),
                            2.0, tvx::frame::Fixed<const double*>{&three}, r.data());
  ASSERT_EQ(g_calls.size(), 4u);
  long covered = 0;
  for (const Call& c : g_calls) {
    EXPECT_EQ(c.scalar, 2.0);
    EXPECT_EQ(c.fixed, &three);
    covered += c.n;
    EXPECT_TRUE(c.n == 251 || c.n == 250);
  }
  EXPECT_EQ(covered, 1001);
  for (int i = 0; i < 1001; ++i) ASSERT_EQ(r[i], 2.0 * i + 3.0) << i;
}

TEST_F(Threaded, ShortVectorsStayOnTheCallersThreadAndKeepTheStatus) {
  std::vector<double> a(99, 1.0), r(99);
  kazSetErrStatus(7);
  g_base = a.data();
  g_calls.clear();
  const double one = 1.0;
  tvx::frame::threaded_call(&recording_kernel, 99, 1000.0f, 0, static_cast<const double*>(a.data()),
                            1.0, tvx::frame::Fixed<const double*>{&one}, r.data());
  EXPECT_EQ(g_calls.size(), 1u);
  EXPECT_EQ(kazGetErrStatus(), 7);
  // A good threaded call folds the workers' statuses, all 0, into the caller's word.
  std::vector<double> b(100, 1.0), s(100);
  g_base = b.data();
  tvx::frame::threaded_call(&recording_kernel, 100, 1.0f, 0, static_cast<const double*>(b.data()),
                            1.0, tvx::frame::Fixed<const double*>{&one}, s.data());
  EXPECT_EQ(kazGetErrStatus(), 0);
  EXPECT_EQ(kaz_get_element_base(), nullptr);
}

// Every exported function of the family, on 4 threads, against one thread, bit for bit.
TEST_F(Threaded, ResultsBitIdenticalToOneThread) {
  constexpr int kN = 4099;
  std::mt19937_64 gen(5);
  std::uniform_real_distribution<double> u(-50, 50);
  std::vector<double> a(kN), b(kN);
  std::vector<float> as(kN), bs(kN);
  for (int i = 0; i < kN; ++i) {
    a[i] = u(gen);
    b[i] = u(gen);
    as[i] = static_cast<float>(a[i]);
    bs[i] = static_cast<float>(b[i]);
  }
  auto run_both = [&](auto call) {
    std::vector<double> r1(kN), r4(kN), z1(kN), z4(kN);
    tvx_set_num_threads(1);
    call(r1.data(), z1.data());
    tvx_set_num_threads(4);
    call(r4.data(), z4.data());
    EXPECT_EQ(std::memcmp(r1.data(), r4.data(), kN * sizeof(double)), 0);
    EXPECT_EQ(std::memcmp(z1.data(), z4.data(), kN * sizeof(double)), 0);
  };
  for (unsigned acc : {KAZ_LA, KAZ_HA, KAZ_EP}) {
    SCOPED_TRACE(acc);
    run_both([&](double* r, double*) { vmdAdd(kN, a.data(), b.data(), r, acc); });
    run_both([&](double* r, double*) { vmdDiv(kN, a.data(), b.data(), r, acc); });
    run_both([&](double* r, double*) { vmdInv(kN, a.data(), r, acc); });
    run_both([&](double* r, double*) { vmdRound(kN, a.data(), r, acc); });
    run_both([&](double* r, double* z) { vmdModf(kN, a.data(), r, z, acc); });
    run_both(
        [&](double* r, double*) { vmdLinearFrac(kN, a.data(), b.data(), 2, 1, 0.5, 3, r, acc); });
    run_both([&](double* r, double*) {
      vmsDiv(kN, as.data(), bs.data(), reinterpret_cast<float*>(r), acc);
    });
    run_both([&](double* r, double* z) {
      vmsModf(kN, as.data(), reinterpret_cast<float*>(r), reinterpret_cast<float*>(z), acc);
    });
  }
}

// A condition inside a threaded call: the status reaches the caller, the callback runs on the
// worker with the index counted in the whole vector and the caller's mode, and a later good
// threaded call resets the status.
std::atomic<int> g_cb_index{-1};
std::atomic<unsigned> g_cb_mode{0};
std::atomic<int> g_cb_calls{0};
int threaded_cb(kaz_error_record* rec) {
  g_cb_index = rec->index;
  g_cb_mode = kazGetMode();
  ++g_cb_calls;
  return 1;
}

TEST_F(Threaded, DomainConditionReachesTheCallerWithTheGlobalIndex) {
  constexpr int kN = 10000;
  std::vector<double> a(kN, 1.0), b(kN, 2.0), r(kN);
  b[5000] = 0.0;
  kazSetErrorCallBack(threaded_cb);
  const unsigned old = kazSetMode(KAZ_LA);
  g_cb_calls = 0;
  vdDiv(kN, a.data(), b.data(), r.data());
  EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_SING);
  EXPECT_EQ(g_cb_calls, 1);
  EXPECT_EQ(g_cb_index, 5000);
  EXPECT_EQ(g_cb_mode & KAZ_ACCURACY_MASK, KAZ_LA) << "the worker runs in the caller's accuracy";
  EXPECT_EQ(r[5000], std::numeric_limits<double>::infinity());
  EXPECT_EQ(kaz_get_element_base(), nullptr);
  b[5000] = 2.0;
  vdDiv(kN, a.data(), b.data(), r.data());
  EXPECT_EQ(kazGetErrStatus(), 0);
  // The same in the mode form, with a condition in the last piece.
  b[kN - 1] = 0.0;
  vmdInv(kN, b.data(), r.data(), KAZ_EP | KAZ_ERRMODE_CALLBACK);
  EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_SING);
  EXPECT_EQ(g_cb_index, kN - 1);
  EXPECT_EQ(g_cb_mode & KAZ_ACCURACY_MASK, KAZ_EP);
  kazSetMode(old & KAZ_ACCURACY_MASK);
}

TEST_F(Threaded, DynamicCostTestKeepsCheapShortCallsOnOneThread) {
  tvx_set_dynamic(1);
  g_calls.clear();
  std::vector<double> a(1000, 1.0), r(1000);
  g_base = a.data();
  const double one = 1.0;
  // At most as many threads as the cores; a tiny weight never pays for a fork.
  tvx::frame::threaded_call(&recording_kernel, 1000, 1e-6f, 0, static_cast<const double*>(a.data()),
                            1.0, tvx::frame::Fixed<const double*>{&one}, r.data());
  EXPECT_EQ(g_calls.size(), 1u);
}

}  // namespace
