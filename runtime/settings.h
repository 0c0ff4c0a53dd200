// Thread and domain settings, processor topology and the parallel helpers.
//
// One process-wide record says how many threads each domain may use; it is filled from the
// environment once, at the first question (TVX_NUM_THREADS, TVX_NUM_STRIPES,
// TVX_DOMAIN_NUM_THREADS, TVX_DYNAMIC, OMP_NUM_THREADS, the MPI ranks-per-node variables,
// ORV_MPI_THREAD_LEVEL), and the setters below may change it at any time. A value set through a
// setter before the environment is read stands: the parser fills only fields still unset.
// None of this is exported.
#pragma once

#include <cstdint>

extern "C" {

// Domains: -1 the library's overall count, 0 all, 1 BLAS, 2 FFT, 3 vector and random code, 4
// QUARTZ.
enum : int {
  TVX_DOMAIN_ALL = 0,
  TVX_DOMAIN_BLAS = 1,
  TVX_DOMAIN_FFT = 2,
  TVX_DOMAIN_KAZ = 3,
  TVX_DOMAIN_QUARTZ = 4,
};

// The settings record; -1 in a field means "not set".
struct tvx_thread_settings {
  std::int32_t threads_all;
  std::int32_t threads_blas;
  std::int32_t threads_fft;
  std::int32_t threads_kaz;
  std::int32_t threads_quartz;
  std::int32_t num_stripes;
  std::int32_t dynamic;
  std::int32_t omp_threads;
  std::int32_t ranks_per_node;
  std::int32_t mpi_thread_level;
  std::int32_t pinned_parallel;
  std::int32_t needs_parse;
};

// The machine, filled once; every field is at least 1.
struct tvx_topology {
  std::int32_t logical_count;   // active logical processors
  std::int32_t core_count;      // physical cores; also the cap of a dynamic team
  std::int32_t numa_count;      // NUMA nodes
  std::int32_t cores_per_numa;  // core_count / numa_count
  std::int32_t hyperthreading;  // 1 when core_count differs from logical_count
};

// Team size allowed for a domain (0 to 4, or -1), by the thread-local override, the domain's
// field, the overall field or the OpenMP maximum; with the dynamic flag on, 1 inside a parallel
// region and capped by the core count and the MPI ranks on this node.
int tvx_domain_max_threads(int domain);
int tvx_get_max_threads(void);
void tvx_set_num_threads(int n);
// Stores n (>= 0) for a domain 0 to 4 and returns 1; 0 for a bad domain or a negative n.
int tvx_domain_set_num_threads(int n, int domain);
// Thread-local team size read first by tvx_domain_max_threads; 0 or less removes it. Returns
// the previous value.
int tvx_set_num_threads_local(int n);
void tvx_set_dynamic(int flag);
int tvx_get_dynamic(void);
void tvx_set_pinned_parallel(int flag);
void tvx_set_num_stripes(int n);
int tvx_get_num_stripes(void);
int tvx_topology_logical(void);
int tvx_topology_cores(void);
int tvx_topology_numa(void);
int tvx_topology_cores_per_numa(void);
int tvx_topology_hyperthreading(void);

// Decimal value of the first `length` characters of `text`; `fallback` for an empty string, any
// character other than a digit (a sign included), or a value above INT32_MAX.
int tvx_parse_uint(const char* text, int length, int fallback);

// MPI processes of this job on this node, -1 when no launcher variable says; looked up once.
int tvx_ranks_per_node(void);

// The record after parsing, and the topology (for tests and diagnostics).
const tvx_thread_settings* tvx_settings_record(void);
const tvx_topology* tvx_topology_record(void);
// Nonzero once the environment has been read.
int tvx_settings_parsed(void);
// Replaces the topology (all arguments at least 1), for tests of the team-size rules.
void tvx_topology_set_for_testing(int logical, int cores, int numa);

// ---- parallel helpers
// ---------------------------------------------------------------------------- Work callback:
// index, thread number, team size, context.
typedef void (*tvx_parallel_fn)(std::int64_t index, int thread, int team, void* context);
// The team asked for: `requested` if it lies in 1..tvx_domain_max_threads(3), else that maximum.
int tvx_parallel_team(int requested);
// Indexes 0..count-1, static schedule with chunk 1, barrier at the end.
void tvx_parallel_for_static(std::int64_t count, void* context, int requested, tvx_parallel_fn fn);
// Indexes 0..count-1, dynamic schedule; a call of tvx_parallel_ordered inside fn runs its callback
// in index order.
void tvx_parallel_for_ordered(std::int64_t count, void* context, int requested, tvx_parallel_fn fn);
// One call per thread of the team, with the thread number as index.
void tvx_parallel_region(void* context, int requested, tvx_parallel_fn fn);
// Ordered section of the loop of tvx_parallel_for_ordered that is running this index.
void tvx_parallel_ordered(std::int64_t index, int thread, int team, void* context,
                          tvx_parallel_fn fn);

// The five thread services that the statistics groups receive.
struct tvx_thread_services {
  void (*parallel_for)(std::int64_t, void*, int, tvx_parallel_fn);
  void (*parallel_for_ordered)(std::int64_t, void*, int, tvx_parallel_fn);
  void (*parallel_region)(void*, int, tvx_parallel_fn);
  void (*ordered)(std::int64_t, int, int, void*, tvx_parallel_fn);
  int (*thread_limit)(void);
};
const tvx_thread_services* tvx_thread_services_table(void);

}  // extern "C"
