// The vector threader: the cut, the cost model, the fork decision, and what a threaded call hands
// to its workers and brings back (results, status, callback index, mode).
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <random>
#include <thread>
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

TEST(ThreaderCut, PieceCountFollowsTheTeamThenTheData) {
  using tvx::frame::piece_count;
  struct Row {
    int n, team, bytes, pieces;
  } rows[] = {
      {10, 4, 16, 4},           // short: one piece per member, the even cut above
      {100, 128, 16, 100},      // never more pieces than elements
      {4099, 4, 16, 4},         // under 128 KiB a member
      {300001, 2, 16, 37},      // 4.8 MB in 128 KiB pieces, rounded up
      {300001, 2, 24, 55},      // two inputs and one output
      {1 << 30, 2, 32, 262144}  // no overflow on the byte count
  };
  for (const Row& r : rows)
    EXPECT_EQ(piece_count(r.n, r.team, r.bytes), r.pieces) << r.n << " " << r.team;
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
  // 4099: one piece per thread; 300001: many more pieces than threads.
  for (const int kN : {4099, 300001}) {
    SCOPED_TRACE(kN);
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
      run_both([&](double* r, double*) { vmdExp(kN, a.data(), r, acc); });
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

// The team itself: every piece runs exactly once whatever the team, and the folded status is
// that of the highest piece with one, even when a low piece finishes last (piece 0 sleeps).
struct FakeJob {
  std::atomic<int>* runs;
  const int* status;
};
int fake_piece(const void* job, int k) {
  const auto* j = static_cast<const FakeJob*>(job);
  if (k == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  j->runs[k].fetch_add(1);
  return j->status[k];
}

TEST(ThreaderTeam, EveryPieceOnceAndTheHighestStatusWins) {
  for (int team : {1, 2, 4, 8})
    for (int pieces : {1, 3, 64, 1000}) {
      std::vector<std::atomic<int>> runs(pieces);
      std::vector<int> status(pieces, 0);
      status[0] = KAZ_STATUS_ERRDOM;
      if (pieces > 1) status[pieces - 1] = KAZ_STATUS_SING;
      const FakeJob job{runs.data(), status.data()};
      const int got = tvx_kaz_team_run(team, pieces, fake_piece, &job);
      EXPECT_EQ(got, pieces > 1 ? KAZ_STATUS_SING : KAZ_STATUS_ERRDOM) << team << " " << pieces;
      for (int k = 0; k < pieces; ++k)
        ASSERT_EQ(runs[k].load(), 1) << team << " " << pieces << " " << k;
    }
  EXPECT_LE(tvx_kaz_team_helpers(), 7);
}

// Statuses fold in element order: the caller gets the status of the last bad element, as on one
// thread, however the pieces fell on the team. Every bad element reaches the callback once, with
// its index in the whole vector.
std::mutex g_seen_lock;
std::vector<int> g_seen;
int collecting_cb(kaz_error_record* rec) {
  std::lock_guard<std::mutex> hold(g_seen_lock);
  g_seen.push_back(rec->index);
  return 0;
}

TEST_F(Threaded, StatusIsThatOfTheLastBadElementWhateverTheTeam) {
  constexpr int kN = 200000;  // 25 pieces for Ln
  struct Row {
    int first;
    double first_value;
    int second;
    double second_value;
    int status;
  } rows[] = {
      {10, -1.0, kN - 5, 0.0, KAZ_STATUS_SING},  // first and last piece
      {10, 0.0, kN - 5, -1.0, KAZ_STATUS_ERRDOM},
      {100000, -1.0, 100001, 0.0, KAZ_STATUS_SING},  // one piece
      {3, -1.0, 150000, 0.0, KAZ_STATUS_SING},
      {150000, -1.0, 3, 0.0, KAZ_STATUS_ERRDOM},  // listed out of order
  };
  kazSetErrorCallBack(collecting_cb);
  for (const Row& row : rows) {
    std::vector<double> a(kN, 2.0), r(kN);
    a[row.first] = row.first_value;
    a[row.second] = row.second_value;
    for (int threads : {1, 2, 4, 1, 2, 4, 2, 2, 2, 2}) {
      tvx_set_num_threads(threads);
      kazClearErrStatus();
      g_seen.clear();
      vdLn(kN, a.data(), r.data());
      EXPECT_EQ(kazGetErrStatus(), row.status) << row.first << " " << threads;
      std::sort(g_seen.begin(), g_seen.end());
      const std::vector<int> want = {std::min(row.first, row.second),
                                     std::max(row.first, row.second)};
      EXPECT_EQ(g_seen, want) << threads;
    }
  }
}

// No nested team: a caller inside an OpenMP region runs alone (dynamic flag on, even with a
// thread-local team size), several callers at once share one team and each gets exact results,
// and a callback that makes a threaded call from inside a piece runs it on its own thread.
TEST_F(Threaded, NoNestedTeamAndConcurrentCallersGetExactResults) {
  tvx_set_dynamic(1);
  std::vector<double> a(10000, 1.0), r(10000);
  g_base = a.data();
  g_calls.clear();
  const double one = 1.0;
#pragma omp parallel num_threads(2)
  {
    tvx_set_num_threads_local(4);
    std::vector<double> mine(10000);
    tvx::frame::threaded_call(&recording_kernel, 10000, 1000.0f, 0,
                              static_cast<const double*>(a.data()), 1.0,
                              tvx::frame::Fixed<const double*>{&one}, mine.data());
    tvx_set_num_threads_local(0);
  }
  ASSERT_EQ(g_calls.size(), static_cast<std::size_t>(omp_get_max_threads() > 1 ? 2 : 1));
  for (const Call& c : g_calls) EXPECT_EQ(c.n, 10000);

  tvx_set_dynamic(0);
  constexpr int kN = 200000;
  std::vector<double> x(kN), want(kN);
  for (int i = 0; i < kN; ++i) x[i] = -40.0 + 80.0 * i / kN;
  tvx_set_num_threads(1);
  vdExp(kN, x.data(), want.data());
  tvx_set_num_threads(2);
  std::vector<std::thread> callers;
  std::atomic<int> mismatches{0};
  for (int c = 0; c < 3; ++c) {
    callers.emplace_back([&] {
      std::vector<double> got(kN);
      for (int i = 0; i < 10; ++i) {
        vdExp(kN, x.data(), got.data());
        if (std::memcmp(got.data(), want.data(), kN * sizeof(double)) != 0) ++mismatches;
      }
    });
  }
  for (auto& t : callers) t.join();
  EXPECT_EQ(mismatches, 0);

  // A callback that makes a threaded call while its own call holds the team: it runs on the
  // callback's thread, and the outer call's later reports still carry whole-vector indices.
  static std::vector<double>* inner_in;
  static std::vector<double>* inner_out;
  static std::vector<int>* indices;
  std::vector<double> in(5000, 3.0), out(5000);
  std::vector<int> seen;
  inner_in = &in;
  inner_out = &out;
  indices = &seen;
  kazSetErrorCallBack([](kaz_error_record* rec) {
    vdAdd(5000, inner_in->data(), inner_in->data(), inner_out->data());
    indices->push_back(rec->index);
    return 0;
  });
  std::vector<double> num(kN, 1.0), den(kN, 2.0), q(kN);
  den[kN / 2] = 0.0;
  den[kN / 2 + 7] = 0.0;  // the same piece, after the inner call
  vdDiv(kN, num.data(), den.data(), q.data());
  EXPECT_EQ(seen, (std::vector<int>{kN / 2, kN / 2 + 7}));
  EXPECT_EQ(out[4999], 6.0);
  EXPECT_EQ(q[0], 0.5);
  EXPECT_EQ(kaz_get_element_base(), nullptr);
}

}  // namespace
