// Thread and domain settings. The environment is read once per process, so every case that
// depends on it runs in a fresh child with its own variables; the child reports through its
// exit code (0 good) and prints what it saw on failure.
#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "runtime/settings.h"
#include "support/subprocess.h"

namespace {

using tvx::test::run_in_child;

using Env = std::vector<std::pair<std::string, const char*>>;

// Every variable the parser reads, unset, so that the machine's own environment cannot leak in.
Env clean(Env extra) {
  Env e = {{"TVX_NUM_THREADS", nullptr},
           {"TVX_NUM_STRIPES", nullptr},
           {"TVX_DOMAIN_NUM_THREADS", nullptr},
           {"TVX_DYNAMIC", nullptr},
           {"OMP_NUM_THREADS", nullptr},
           {"TVX_MPI_PPN", nullptr},
           {"ORV_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", nullptr},
           {"ORV_MPI_PIN_MAPPING", nullptr},
           {"OMPI_COMM_WORLD_LOCAL_SIZE", nullptr},
           {"MPI_LOCALNRANKS", nullptr},
           {"ORV_MPI_THREAD_LEVEL", nullptr}};
  for (auto& [name, value] : extra) {
    bool found = false;
    for (auto& entry : e)
      if (entry.first == name) {
        entry.second = value;
        found = true;
      }
    if (!found) e.emplace_back(name, value);
  }
  return e;
}

// Runs `check` on the parsed record in a child; `check` returns an empty string when all holds.
template <class F>
void expect_child(const Env& env, F check) {
  const auto r = run_in_child(clean(env), [&]() {
    const std::string err = check(*tvx_settings_record());
    if (!err.empty()) std::printf("%s\n", err.c_str());
    return err.empty() ? 0 : 1;
  });
  EXPECT_EQ(r.exit_code, 0) << r.out;
}

std::string fields(const tvx_thread_settings& s) {
  char b[256];
  std::snprintf(b, sizeof b,
                "all %d blas %d fft %d kaz %d quartz %d stripes %d dyn %d omp %d ppn %d lvl %d",
                s.threads_all, s.threads_blas, s.threads_fft, s.threads_kaz, s.threads_quartz,
                s.num_stripes, s.dynamic, s.omp_threads, s.ranks_per_node, s.mpi_thread_level);
  return b;
}

TEST(ParseUint, DigitsOnlyElseTheDefault) {
  EXPECT_EQ(tvx_parse_uint("42", 2, 7), 42);
  EXPECT_EQ(tvx_parse_uint("4x", 2, 7), 7);
  EXPECT_EQ(tvx_parse_uint("-4", 2, 7), 7);
  EXPECT_EQ(tvx_parse_uint("+4", 2, 7), 7);
  EXPECT_EQ(tvx_parse_uint("", 0, 7), 7);
  EXPECT_EQ(tvx_parse_uint("123", 2, 7), 12) << "only `length` characters count";
  EXPECT_EQ(tvx_parse_uint("99999999999", 11, 7), 7) << "beyond 32 bits";
}

TEST(SettingsEnvironment, DomainListsAndTheFirstWriteWins) {
  expect_child(
      {{"TVX_DOMAIN_NUM_THREADS", "TVX_DOMAIN_ALL=2, TVX_DOMAIN_KAZ=6"}},
      [](const tvx_thread_settings& s) {
        return s.threads_all == 2 && s.threads_kaz == 6 && s.threads_blas == -1 ? "" : fields(s);
      });
  // A space ends the name and the value follows; unknown names are skipped; quotes separate.
  expect_child(
      {{"TVX_DOMAIN_NUM_THREADS", "\"TVX_DOMAIN_FFT 3;TVX_DOMAIN_NONE=9:TVX_DOMAIN_QUARTZ=5'"}},
      [](const tvx_thread_settings& s) {
        return s.threads_fft == 3 && s.threads_quartz == 5 && s.threads_all == -1 ? "" : fields(s);
      });
  expect_child({{"TVX_NUM_THREADS", "8"}, {"TVX_DOMAIN_NUM_THREADS", "TVX_DOMAIN_ALL=2"}},
               [](const tvx_thread_settings& s) { return s.threads_all == 8 ? "" : fields(s); });
  // "4x" is not a number: the parser's default 1 stands in for it, never 4.
  expect_child({{"TVX_NUM_THREADS", "4x"}, {"TVX_NUM_STRIPES", "0"}},
               [](const tvx_thread_settings& s) {
                 return s.threads_all == 1 && s.num_stripes == 0 ? "" : fields(s);
               });
  // A value zero does not count as a team size.
  expect_child({{"TVX_DOMAIN_NUM_THREADS", "TVX_DOMAIN_KAZ=0"}},
               [](const tvx_thread_settings& s) { return s.threads_kaz == -1 ? "" : fields(s); });
}

TEST(SettingsEnvironment, DynamicFlagWords) {
  const std::pair<const char*, int> cases[] = {{nullptr, 1}, {"", 1},          {"FALSE", 0},
                                               {"false", 0}, {" 'false' ", 0}, {"no", 1},
                                               {"False", 1}, {"0", 1}};
  for (const auto& [text, want] : cases) {
    expect_child({{"TVX_DYNAMIC", text}}, [want = want, text = text](const tvx_thread_settings& s) {
      return s.dynamic == want
                 ? ""
                 : std::string("TVX_DYNAMIC=") + (text ? text : "(unset)") + " " + fields(s);
    });
  }
}

TEST(SettingsEnvironment, OmpThreadsRanksPerNodeAndThreadLevel) {
  expect_child({{"OMP_NUM_THREADS", "4,2"}, {"ORV_MPI_THREAD_LEVEL", "7"}},
               [](const tvx_thread_settings& s) {
                 return s.omp_threads == 1 && s.mpi_thread_level == 0 && s.ranks_per_node == -1
                            ? ""
                            : fields(s);
               });
  expect_child(
      {{"TVX_MPI_PPN", "3x"}, {"ORV_MPI_PIN_MAPPING", "4:0 1 2 3"}, {"MPI_LOCALNRANKS", "9"}},
      [](const tvx_thread_settings& s) { return s.ranks_per_node == 4 ? "" : fields(s); });
  expect_child(
      {{"ORV_MPI_PIN_MAPPING", "4"}, {"OMPI_COMM_WORLD_LOCAL_SIZE", "0"}, {"MPI_LOCALNRANKS", "9"}},
      [](const tvx_thread_settings& s) { return s.ranks_per_node == 9 ? "" : fields(s); });
  expect_child({{"TVX_MPI_PPN", "2"}, {"ORV_MPI_THREAD_LEVEL", "2"}},
               [](const tvx_thread_settings& s) {
                 return s.ranks_per_node == 2 && s.mpi_thread_level == 2 ? "" : fields(s);
               });
}

TEST(SettingsEnvironment, SetterBeforeTheFirstReadStands) {
  const auto r = run_in_child(clean({{"TVX_NUM_THREADS", "8"}, {"TVX_DYNAMIC", "false"}}), [] {
    tvx_set_num_threads(3);
    tvx_set_dynamic(1);
    const auto& s = *tvx_settings_record();
    return s.threads_all == 3 && s.dynamic == 1 ? 0 : 1;
  });
  EXPECT_EQ(r.exit_code, 0);
}

// ---- team size ----------------------------------------------------------------------------------
// The child runs `body`, which returns 0 when all holds, on a machine of 4 cores, 8 logical.
template <class F>
void on_four_cores(const Env& env, F body) {
  const auto r = run_in_child(clean(env), [&] {
    tvx_topology_set_for_testing(8, 4, 1);
    return body();
  });
  EXPECT_EQ(r.exit_code, 0) << r.out;
}

TEST(DomainMaxThreads, DynamicCapsAtTheCoresAndMakesNestedCallsSequential) {
  on_four_cores({{"TVX_NUM_THREADS", "8"}}, [] {
    std::atomic<int> inside{-1};
#pragma omp parallel num_threads(2)
    {
#pragma omp single
      inside = tvx_domain_max_threads(TVX_DOMAIN_KAZ);
    }
    std::printf("dynamic: %d inside %d\n", tvx_domain_max_threads(TVX_DOMAIN_KAZ), inside.load());
    return tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 4 && inside == 1 ? 0 : 1;
  });
  on_four_cores({{"TVX_NUM_THREADS", "8"}, {"TVX_DYNAMIC", "false"}}, [] {
    std::atomic<int> inside{-1};
#pragma omp parallel num_threads(2)
    {
#pragma omp single
      inside = tvx_domain_max_threads(TVX_DOMAIN_KAZ);
    }
    std::printf("static: %d inside %d\n", tvx_domain_max_threads(TVX_DOMAIN_KAZ), inside.load());
    return tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 8 && inside == 8 ? 0 : 1;
  });
}

TEST(DomainMaxThreads, DomainFieldThenAllThenOpenMp) {
  on_four_cores({{"TVX_DOMAIN_NUM_THREADS", "TVX_DOMAIN_KAZ=3 TVX_DOMAIN_ALL=2"}}, [] {
    const int kaz = tvx_domain_max_threads(TVX_DOMAIN_KAZ);
    const int blas = tvx_domain_max_threads(TVX_DOMAIN_BLAS);
    const int overall = tvx_get_max_threads();
    const int bad = tvx_domain_max_threads(7);
    std::printf("%d %d %d %d\n", kaz, blas, overall, bad);
    return kaz == 3 && blas == 2 && overall == 2 && bad == 2 ? 0 : 1;
  });
  // Nothing explicit: the OpenMP maximum (the runtime read its variable before the fork, so the
  // child sets it by call), capped by the cores.
  on_four_cores({}, [] {
    omp_set_num_threads(3);
    if (tvx_domain_max_threads(TVX_DOMAIN_KAZ) != 3) return 1;
    omp_set_num_threads(16);
    return tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 4 ? 0 : 2;
  });
  on_four_cores({}, [] {
    return tvx_domain_set_num_threads(2, 3) == 1 && tvx_domain_set_num_threads(2, 5) == 0 &&
                   tvx_domain_set_num_threads(-1, 3) == 0 && tvx_domain_max_threads(3) == 2
               ? 0
               : 1;
  });
}

TEST(DomainMaxThreads, PinnedAndMpiRules) {
  // An MPI job with no thread level and nothing explicit runs one thread per process.
  on_four_cores({{"TVX_MPI_PPN", "2"}, {"OMP_NUM_THREADS", nullptr}},
                [] { return tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 1 ? 0 : 1; });
  // With a thread level, the node's cores are shared among its ranks.
  on_four_cores({{"TVX_MPI_PPN", "2"}, {"ORV_MPI_THREAD_LEVEL", "1"}},
                [] { return tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 2 ? 0 : 1; });
  on_four_cores({{"TVX_MPI_PPN", "8"}, {"ORV_MPI_THREAD_LEVEL", "3"}},
                [] { return tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 1 ? 0 : 1; });
  // An explicit count escapes the MPI rule; a pinned setting overrides both ways.
  on_four_cores({{"TVX_MPI_PPN", "2"}, {"TVX_NUM_THREADS", "3"}}, [] {
    if (tvx_domain_max_threads(TVX_DOMAIN_KAZ) != 3) return 1;
    tvx_set_pinned_parallel(0);
    if (tvx_domain_max_threads(TVX_DOMAIN_KAZ) != 1) return 2;
    tvx_set_pinned_parallel(1);
    return tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 3 ? 0 : 3;
  });
}

TEST(DomainMaxThreads, ThreadLocalOverrideComesFirstAndStaysOnItsThread) {
  on_four_cores({{"TVX_NUM_THREADS", "2"}}, [] {
    if (tvx_set_num_threads_local(6) != 0) return 1;
    if (tvx_domain_max_threads(TVX_DOMAIN_KAZ) != 6) return 2;
    std::atomic<int> other{-1};
#pragma omp parallel num_threads(2)
    {
      if (omp_get_thread_num() == 1) other = tvx_set_num_threads_local(0);
    }
    if (other != 0) return 3;  // a worker had no override of its own
    if (tvx_set_num_threads_local(0) != 6) return 4;
    return tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 2 ? 0 : 5;
  });
}

TEST(Topology, TheRealMachineIsConsistent) {
  const tvx_topology& t = *tvx_topology_record();
  EXPECT_GE(t.logical_count, 1);
  EXPECT_GE(t.core_count, 1);
  EXPECT_LE(t.core_count, t.logical_count);
  EXPECT_GE(t.numa_count, 1);
  EXPECT_EQ(t.cores_per_numa, t.core_count / t.numa_count);
  EXPECT_EQ(t.hyperthreading, t.core_count != t.logical_count ? 1 : 0);
  EXPECT_EQ(tvx_topology_logical(), t.logical_count);
}

// ---- parallel helpers ---------------------------------------------------------------------------
struct Visits {
  std::atomic<int> count[64];
  std::atomic<int> max_team{0};
  std::mutex order_lock;  // the ordered sections must not need it; it only keeps the sanitizer calm
  std::vector<std::int64_t> order;
};

TEST(ParallelHelpers, EveryIndexOnceOrderedSectionsInOrder) {
  tvx_set_num_threads_local(2);
  Visits v;
  for (auto& c : v.count) c = 0;
  tvx_parallel_for_static(64, &v, 8, [](std::int64_t i, int t, int team, void* ctx) {
    auto& w = *static_cast<Visits*>(ctx);
    w.count[i]++;
    if (t >= team) w.count[0] += 1000;
    if (team > w.max_team) w.max_team = team;
  });
  for (int i = 0; i < 64; ++i) EXPECT_EQ(v.count[i], 1) << i;
  EXPECT_EQ(v.max_team, 2) << "a request above the domain maximum gets the maximum";
  tvx_parallel_for_ordered(40, &v, 0, [](std::int64_t i, int t, int team, void* ctx) {
    tvx_parallel_ordered(i, t, team, ctx, [](std::int64_t j, int, int, void* c) {
      auto& w = *static_cast<Visits*>(c);
      std::lock_guard<std::mutex> hold(w.order_lock);
      w.order.push_back(j);
    });
  });
  ASSERT_EQ(v.order.size(), 40u);
  for (int i = 0; i < 40; ++i) EXPECT_EQ(v.order[i], i);
  std::atomic<int> calls{0};
  tvx_parallel_region(&calls, 1, [](std::int64_t, int, int team, void* ctx) {
    *static_cast<std::atomic<int>*>(ctx) += team;
  });
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(tvx_thread_services_table()->thread_limit(), 2);
  tvx_set_num_threads_local(0);
}

}  // namespace
