// Thread and domain settings. The environment is read once per process, so every case that
// depends on it runs in a fresh child with its own variables.
#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "runtime/settings.h"
#include "support/subprocess.h"

namespace {

using tvx::test::child_ok;
using tvx::test::Env;
using tvx::test::run_in_child;

// Every variable the parser reads, unset, so that the machine's own environment cannot leak in,
// then `extra`.
Env clean(const Env& extra) {
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
  e.insert(e.end(), extra.begin(), extra.end());
  return e;
}

// Every "name value" pair of `expected` is among the pairs the child printed.
::testing::AssertionResult has_pairs(const std::string& printed, const char* expected) {
  std::string line = " " + printed + " ";
  for (char& c : line) c = c == '\n' ? ' ' : c;
  std::istringstream in(expected);
  for (std::string name, value; in >> name >> value;) {
    if (line.find(" " + name + " " + value + " ") == std::string::npos) {
      return ::testing::AssertionFailure() << "no \"" << name << " " << value << "\" in" << line;
    }
  }
  return ::testing::AssertionSuccess();
}

using Case = std::pair<Env, const char*>;

void print_record() {
  const tvx_thread_settings& s = *tvx_settings_record();
  std::printf("all %d blas %d fft %d kaz %d quartz %d stripes %d dyn %d omp %d ppn %d lvl %d",
              s.threads_all, s.threads_blas, s.threads_fft, s.threads_kaz, s.threads_quartz,
              s.num_stripes, s.dynamic, s.omp_threads, s.ranks_per_node, s.mpi_thread_level);
}

// The parsed record as "name value" pairs, printed by a child after `before`.
std::string record(const Env& env, void (*before)() = nullptr) {
  const auto r = run_in_child(clean(env), [&] {
    if (before != nullptr) before();
    print_record();
    return 0;
  });
  return r.out;
}

TEST(ParseUint, DigitsOnlyElseTheDefault) {
  // Only `length` characters count; signs, other characters and values beyond 32 bits give the
  // default 7.
  const std::tuple<const char*, int, int> cases[] = {
      {"42", 2, 42}, {"4x", 2, 7},   {"-4", 2, 7},          {"+4", 2, 7},
      {"", 0, 7},    {"123", 2, 12}, {"99999999999", 11, 7}};
  for (const auto& [text, length, value] : cases) {
    EXPECT_EQ(tvx_parse_uint(text, length, 7), value) << text;
  }
}

TEST(SettingsEnvironment, ParsedRecord) {
  const Case cases[] = {
      {{{"TVX_DOMAIN_NUM_THREADS", "TVX_DOMAIN_ALL=2, TVX_DOMAIN_KAZ=6"}}, "all 2 kaz 6 blas -1"},
      // A space ends the name and the value follows; unknown names are skipped; quotes separate.
      {{{"TVX_DOMAIN_NUM_THREADS", "\"TVX_DOMAIN_FFT 3;TVX_DOMAIN_NONE=9:TVX_DOMAIN_QUARTZ=5'"}},
       "fft 3 quartz 5 all -1"},
      // The first write wins.
      {{{"TVX_NUM_THREADS", "8"}, {"TVX_DOMAIN_NUM_THREADS", "TVX_DOMAIN_ALL=2"}}, "all 8"},
      // "4x" is not a number: the parser's default 1 stands in for it, never 4.
      {{{"TVX_NUM_THREADS", "4x"}, {"TVX_NUM_STRIPES", "0"}}, "all 1 stripes 0"},
      // A value zero does not count as a team size.
      {{{"TVX_DOMAIN_NUM_THREADS", "TVX_DOMAIN_KAZ=0"}}, "kaz -1"},
      // OpenMP threads, ranks per node and the MPI thread level.
      {{{"OMP_NUM_THREADS", "4,2"}, {"ORV_MPI_THREAD_LEVEL", "7"}}, "omp 1 lvl 0 ppn -1"},
      {{{"TVX_MPI_PPN", "3x"}, {"ORV_MPI_PIN_MAPPING", "4:0 1 2 3"}, {"MPI_LOCALNRANKS", "9"}},
       "ppn 4"},
      {{{"ORV_MPI_PIN_MAPPING", "4"},
        {"OMPI_COMM_WORLD_LOCAL_SIZE", "0"},
        {"MPI_LOCALNRANKS", "9"}},
       "ppn 9"},
      {{{"TVX_MPI_PPN", "2"}, {"ORV_MPI_THREAD_LEVEL", "2"}}, "ppn 2 lvl 2"},
  };
  for (const auto& [env, expected] : cases) {
    EXPECT_TRUE(has_pairs(record(env), expected)) << env[0].first << "=" << env[0].second;
  }
  // Only the words FALSE and false, quoted or padded, turn the dynamic flag off.
  const std::pair<const char*, const char*> dynamic[] = {
      {nullptr, "dyn 1"},     {"", "dyn 1"},   {"FALSE", "dyn 0"}, {"false", "dyn 0"},
      {" 'false' ", "dyn 0"}, {"no", "dyn 1"}, {"False", "dyn 1"}, {"0", "dyn 1"}};
  for (const auto& [text, expected] : dynamic) {
    EXPECT_TRUE(has_pairs(record({{"TVX_DYNAMIC", text}}), expected)) << (text ? text : "(unset)");
  }
  // A setter called before the first read stands.
  EXPECT_TRUE(has_pairs(record({{"TVX_NUM_THREADS", "8"}, {"TVX_DYNAMIC", "false"}},
                               [] {
                                 tvx_set_num_threads(3);
                                 tvx_set_dynamic(1);
                               }),
                        "all 3 dyn 1"));
}

// ---- team size ----------------------------------------------------------------------------------
// Every child here runs on a machine of 4 cores, 8 logical.

TEST(DomainMaxThreads, TeamSizes) {
  const Case cases[] = {
      // Dynamic teams stop at the cores and make nested calls sequential.
      {{{"TVX_NUM_THREADS", "8"}}, "kaz 4 inside 1"},
      {{{"TVX_NUM_THREADS", "8"}, {"TVX_DYNAMIC", "false"}}, "kaz 8 inside 8"},
      // The domain's field, then the field for all; a domain that does not exist answers the
      // overall maximum.
      {{{"TVX_DOMAIN_NUM_THREADS", "TVX_DOMAIN_KAZ=3 TVX_DOMAIN_ALL=2"}},
       "kaz 3 blas 2 all 2 bad 2"},
      // An MPI job with no thread level and nothing explicit runs one thread per process; with a
      // thread level, the node's cores are shared among its ranks.
      {{{"TVX_MPI_PPN", "2"}, {"OMP_NUM_THREADS", nullptr}}, "kaz 1"},
      {{{"TVX_MPI_PPN", "2"}, {"ORV_MPI_THREAD_LEVEL", "1"}}, "kaz 2"},
      {{{"TVX_MPI_PPN", "8"}, {"ORV_MPI_THREAD_LEVEL", "3"}}, "kaz 1"},
  };
  for (const auto& [env, expected] : cases) {
    const auto r = run_in_child(clean(env), [&] {
      tvx_topology_set_for_testing(8, 4, 1);
      std::atomic<int> inside{-1};
#pragma omp parallel num_threads(2)
      {
#pragma omp single
        inside = tvx_domain_max_threads(TVX_DOMAIN_KAZ);
      }
      std::printf("kaz %d blas %d all %d bad %d inside %d", tvx_domain_max_threads(TVX_DOMAIN_KAZ),
                  tvx_domain_max_threads(TVX_DOMAIN_BLAS), tvx_get_max_threads(),
                  tvx_domain_max_threads(7), inside.load());
      return 0;
    });
    EXPECT_TRUE(has_pairs(r.out, expected)) << env[0].first << "=" << env[0].second;
  }
}

TEST(DomainMaxThreads, SettersAndTheThreadLocalOverride) {
  // Nothing explicit: the OpenMP maximum (the runtime read its variable before the fork, so the
  // child sets it by call), capped by the cores.
  EXPECT_TRUE(child_ok(clean({}), [] {
    tvx_topology_set_for_testing(8, 4, 1);
    omp_set_num_threads(3);
    TVX_CHILD_CHECK(tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 3);
    omp_set_num_threads(16);
    TVX_CHILD_CHECK(tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 4);
    TVX_CHILD_CHECK(tvx_domain_set_num_threads(2, 3) == 1);
    TVX_CHILD_CHECK(tvx_domain_set_num_threads(2, 5) == 0);
    TVX_CHILD_CHECK(tvx_domain_set_num_threads(-1, 3) == 0);
    TVX_CHILD_CHECK(tvx_domain_max_threads(3) == 2);
    return 0;
  }));
  // An explicit count escapes the MPI rule; a pinned setting overrides both ways.
  EXPECT_TRUE(child_ok(clean({{"TVX_MPI_PPN", "2"}, {"TVX_NUM_THREADS", "3"}}), [] {
    tvx_topology_set_for_testing(8, 4, 1);
    TVX_CHILD_CHECK(tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 3);
    tvx_set_pinned_parallel(0);
    TVX_CHILD_CHECK(tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 1);
    tvx_set_pinned_parallel(1);
    TVX_CHILD_CHECK(tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 3);
    return 0;
  }));
  // The thread-local override comes first and stays on its thread. (A pragma cannot stand inside
  // a macro's argument, so the body is named first.)
  auto local = [] {
    tvx_topology_set_for_testing(8, 4, 1);
    TVX_CHILD_CHECK(tvx_set_num_threads_local(6) == 0);
    TVX_CHILD_CHECK(tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 6);
    std::atomic<int> other{-1};
#pragma omp parallel num_threads(2)
    {
      if (omp_get_thread_num() == 1) other = tvx_set_num_threads_local(0);
    }
    TVX_CHILD_CHECK(other == 0);  // a worker had no override of its own
    TVX_CHILD_CHECK(tvx_set_num_threads_local(0) == 6);
    TVX_CHILD_CHECK(tvx_domain_max_threads(TVX_DOMAIN_KAZ) == 2);
    return 0;
  };
  EXPECT_TRUE(child_ok(clean({{"TVX_NUM_THREADS", "2"}}), local));
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
