// Thread and domain settings: the environment parser, the machine's topology from sysfs, the
// team-size rules of tvx_domain_max_threads, and the parallel helpers over OpenMP.
#include "runtime/settings.h"

#include <dirent.h>
#include <omp.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <bitset>
#include <utility>

#include "runtime/report.h"

namespace {

constexpr int kEnvBuffer = 256;

tvx_thread_settings g_settings = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 1};
tvx_topology g_topology = {1, 1, 1, 1, 0};
volatile std::int32_t g_parse_lock = 0;
std::atomic<int> g_parsed{0};

// Plain 32-bit reads and writes of the record's fields from any thread.
inline int load(const std::int32_t& f) {
  return std::atomic_ref<const std::int32_t>(f).load(std::memory_order_relaxed);
}
inline void store(std::int32_t& f, int v) {
  std::atomic_ref<std::int32_t>(f).store(v, std::memory_order_relaxed);
}
// Parser rule: a field is written only if nothing set it before.
inline void fill(std::int32_t& f, int v) {
  if (load(f) < 0) store(f, v);
}

// Reads a variable into buf; its length, or 0 when unset, empty or too long.
int read_env(const char* name, char* buf) {
  const int len = tvx_getenv(name, buf, kEnvBuffer);
  return len > 0 ? len : 0;
}

bool is_one_of(char c, const char* set) {
  return c != '\0' && std::strchr(set, c) != nullptr;
}

// TVX_DOMAIN_NUM_THREADS: "NAME=value" pairs separated by spaces, commas, semicolons, colons or
// quotes; the equals sign may also be a space.
void parse_domain_list(const char* s) {
  static constexpr std::pair<const char*, int> kDomains[] = {{"TVX_DOMAIN_ALL", 0},
                                                             {"TVX_DOMAIN_BLAS", 1},
                                                             {"TVX_DOMAIN_FFT", 2},
                                                             {"TVX_DOMAIN_KAZ", 3},
                                                             {"TVX_DOMAIN_QUARTZ", 4}};
  std::int32_t* fields[5] = {&g_settings.threads_all, &g_settings.threads_blas,
                             &g_settings.threads_fft, &g_settings.threads_kaz,
                             &g_settings.threads_quartz};
  const char* p = s;
  for (;;) {
    while (is_one_of(*p, " ,;:\"'")) ++p;
    const char* name = p;
    while (*p != '\0' && !is_one_of(*p, "=\"' ")) ++p;
    const int name_len = static_cast<int>(p - name);
    if (name_len == 0) return;
    while (*p == ' ' || *p == '=') ++p;
    const char* value = p;
    while (*p != '\0' && !is_one_of(*p, " ,;:\"'")) ++p;
    const int n = tvx_parse_uint(value, static_cast<int>(p - value), 1);
    if (*p != '\0') ++p;
    for (const auto& [dname, index] : kDomains) {
      if (static_cast<int>(std::strlen(dname)) == name_len &&
          std::strncmp(dname, name, name_len) == 0) {
        if (n >= 1) fill(*fields[index], n);
        break;
      }
    }
  }
}

// TVX_DYNAMIC: "FALSE" or "false" switch it off, anything else (unset included) on.
int parse_dynamic(const char* s, int len) {
  if (len == 0) return 1;
  const char* p = s;
  while (is_one_of(*p, " \"'")) ++p;
  const char* v = p;
  while (*p != '\0' && !is_one_of(*p, " \"'")) ++p;
  const std::size_t n = static_cast<std::size_t>(p - v);
  if (n == 5 && (std::strncmp(v, "FALSE", 5) == 0 || std::strncmp(v, "false", 5) == 0)) return 0;
  return 1;
}

// A whole string as a base-10 number (strtol), or -1.
int whole_number(const char* s) {
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(s, &end, 10);
  if (end == s || *end != '\0' || errno != 0 || v < INT_MIN || v > INT_MAX) return -1;
  return static_cast<int>(v);
}

int lookup_ranks_per_node() {
  char buf[kEnvBuffer];
  const char* plain[] = {"TVX_MPI_PPN", "ORV_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE"};
  for (const char* name : plain) {
    if (read_env(name, buf) > 0) {
      const int v = whole_number(buf);
      if (v >= 1) return v;
    }
  }
  // The pinning map starts with the node's process count and a colon.
  if (read_env("ORV_MPI_PIN_MAPPING", buf) > 0) {
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(buf, &end, 10);
    if (end != buf && *end == ':' && errno == 0 && v >= 1 && v <= INT_MAX)
      return static_cast<int>(v);
  }
  const char* more[] = {"OMPI_COMM_WORLD_LOCAL_SIZE", "MPI_LOCALNRANKS"};
  for (const char* name : more) {
    if (read_env(name, buf) > 0) {
      const int v = whole_number(buf);
      if (v >= 1) return v;
    }
  }
  return -1;
}

std::atomic<int> g_ranks_cache{0};

// ---- topology -----------------------------------------------------------------------------------
// Reads a small sysfs file into buf; false when it cannot be read.
bool read_small_file(const char* path, char* buf, std::size_t size) {
  FILE* f = std::fopen(path, "r");
  if (f == nullptr) return false;
  const std::size_t got = std::fread(buf, 1, size - 1, f);
  std::fclose(f);
  buf[got] = '\0';
  return got > 0;
}

// Processor numbers beyond this are ignored; the sets below live in fixed storage so that reading
// the topology never touches the heap.
constexpr int kMaxCpus = 8192;
using CpuSet = std::bitset<kMaxCpus>;

// CPU numbers of a sysfs list such as "0-3,8-11".
CpuSet parse_cpu_list(const char* s) {
  CpuSet cpus;
  const char* p = s;
  while (*p != '\0') {
    char* end = nullptr;
    const long lo = std::strtol(p, &end, 10);
    if (end == p) break;
    long hi = lo;
    p = end;
    if (*p == '-') {
      hi = std::strtol(p + 1, &end, 10);
      p = end;
    }
    for (long c = lo < 0 ? 0 : lo; c <= hi && c < kMaxCpus; ++c)
      cpus.set(static_cast<std::size_t>(c));
    while (*p == ',' || *p == '\n' || *p == ' ') ++p;
  }
  return cpus;
}

void read_topology() {
  tvx_topology t = {1, 1, 1, 1, 0};
  char buf[4096];
  CpuSet online;
  if (read_small_file("/sys/devices/system/cpu/online", buf, sizeof buf))
    online = parse_cpu_list(buf);
  if (online.none()) {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0) {
      for (int c = 0; c < CPU_SETSIZE && c < kMaxCpus; ++c)
        if (CPU_ISSET(c, &set)) online.set(static_cast<std::size_t>(c));
    }
  }
  if (online.any()) {
    t.logical_count = static_cast<int>(online.count());
    // A core is one (package, core id) pair among the online processors. Read once per process,
    // under the settings lock, so static storage is safe.
    static std::pair<long, long> cores[kMaxCpus];
    int core_count = 0;
    for (int c = 0; c < kMaxCpus; ++c) {
      if (!online.test(static_cast<std::size_t>(c))) continue;
      char path[128];
      long package = 0, core = c;
      std::snprintf(path, sizeof path, "/sys/devices/system/cpu/cpu%d/topology/physical_package_id",
                    c);
      if (read_small_file(path, buf, sizeof buf)) package = std::strtol(buf, nullptr, 10);
      std::snprintf(path, sizeof path, "/sys/devices/system/cpu/cpu%d/topology/core_id", c);
      if (read_small_file(path, buf, sizeof buf)) core = std::strtol(buf, nullptr, 10);
      bool seen = false;
      for (int k = 0; k < core_count && !seen; ++k)
        seen = cores[k] == std::make_pair(package, core);
      if (!seen) cores[core_count++] = {package, core};
    }
    t.core_count = core_count;
  }
  if (DIR* d = opendir("/sys/devices/system/node")) {
    int nodes = 0;
    while (const dirent* e = readdir(d)) {
      if (std::strncmp(e->d_name, "node", 4) == 0 && e->d_name[4] >= '0' && e->d_name[4] <= '9')
        ++nodes;
    }
    closedir(d);
    if (nodes > 0) t.numa_count = nodes;
  }
  if (t.core_count < 1) t.core_count = 1;
  if (t.numa_count > t.core_count) t.numa_count = t.core_count;
  t.cores_per_numa = t.core_count / t.numa_count;
  if (t.cores_per_numa < 1) t.cores_per_numa = 1;
  t.hyperthreading = t.core_count != t.logical_count ? 1 : 0;
  g_topology = t;
}

// ---- the parser ---------------------------------------------------------------------------------
void parse_now() {
  char buf[kEnvBuffer];
  int len = read_env("TVX_NUM_THREADS", buf);
  if (len > 0) {
    const int n = tvx_parse_uint(buf, len, 1);
    if (n >= 1) fill(g_settings.threads_all, n);
  }
  len = read_env("TVX_NUM_STRIPES", buf);
  if (len > 0) {
    const int n = tvx_parse_uint(buf, len, -1);
    if (n >= 0) fill(g_settings.num_stripes, n);
  }
  if (read_env("TVX_DOMAIN_NUM_THREADS", buf) > 0) parse_domain_list(buf);
  if (load(g_settings.dynamic) == -1) {
    len = read_env("TVX_DYNAMIC", buf);
    store(g_settings.dynamic, parse_dynamic(buf, len));
  }
  len = read_env("OMP_NUM_THREADS", buf);
  if (len > 0) {
    const int n = tvx_parse_uint(buf, len, 1);
    if (n > 0) fill(g_settings.omp_threads, n);
  }
  fill(g_settings.ranks_per_node, tvx_ranks_per_node());
  len = read_env("ORV_MPI_THREAD_LEVEL", buf);
  int level = len > 0 ? tvx_parse_uint(buf, len, 0) : 0;
  if (level > 3) level = 0;
  fill(g_settings.mpi_thread_level, level);
  read_topology();
}

inline void ensure_parsed() {
  if (g_parsed.load(std::memory_order_acquire) != 0) return;
  tvx_lock(&g_parse_lock);
  if (g_parsed.load(std::memory_order_relaxed) == 0) {
    parse_now();
    store(g_settings.needs_parse, 0);
    g_parsed.store(1, std::memory_order_release);
  }
  tvx_unlock(&g_parse_lock);
}

// ---- thread-local override ----------------------------------------------------------------------
// The slot is created on first use under a lock and deleted at library stop.
struct LocalSlot {
  pthread_key_t key;
  std::int32_t default_value;
  volatile std::int32_t lock;
  std::atomic<std::int32_t> flags;  // bit 0: the key exists
};
LocalSlot g_local = {0, 0, 0, {0}};

void delete_local_slot(void*) {
  if (g_local.flags.load(std::memory_order_acquire) & 1) {
    pthread_key_delete(g_local.key);
    g_local.flags.store(0, std::memory_order_release);
  }
}

bool local_slot_ready(bool create) {
  if (g_local.flags.load(std::memory_order_acquire) & 1) return true;
  if (!create) return false;
  tvx_lock(&g_local.lock);
  if ((g_local.flags.load(std::memory_order_relaxed) & 1) == 0 &&
      pthread_key_create(&g_local.key, nullptr) == 0) {
    g_local.flags.store(1, std::memory_order_release);
    tvx_register_at_stop_late(delete_local_slot, nullptr);
  }
  tvx_unlock(&g_local.lock);
  return (g_local.flags.load(std::memory_order_acquire) & 1) != 0;
}

int local_override() {
  if (!local_slot_ready(false)) return g_local.default_value;
  return static_cast<int>(reinterpret_cast<std::intptr_t>(pthread_getspecific(g_local.key)));
}

}  // namespace

extern "C" {

int tvx_parse_uint(const char* text, int length, int fallback) {
  if (text == nullptr || length <= 0) return fallback;
  long long v = 0;
  for (int i = 0; i < length; ++i) {
    const char c = text[i];
    if (c < '0' || c > '9') return fallback;
    v = v * 10 + (c - '0');
    if (v > INT32_MAX) return fallback;
  }
  return static_cast<int>(v);
}

int tvx_ranks_per_node(void) {
  int v = g_ranks_cache.load(std::memory_order_acquire);
  if (v == 0) {
    v = lookup_ranks_per_node();
    g_ranks_cache.store(v, std::memory_order_release);
  }
  return v;
}

int tvx_domain_max_threads(int domain) {
  const int local = local_override();
  if (local > 0) return local;
  ensure_parsed();
  const int dynamic = load(g_settings.dynamic);
  if (dynamic != 0 && omp_in_parallel()) return 1;
  const std::int32_t* fields[5] = {&g_settings.threads_all, &g_settings.threads_blas,
                                   &g_settings.threads_fft, &g_settings.threads_kaz,
                                   &g_settings.threads_quartz};
  int x;
  bool explicit_count = true;
  if (domain >= 0 && domain <= 4 && load(*fields[domain]) >= 1) {
    x = load(*fields[domain]);
  } else if (load(g_settings.threads_all) >= 1) {
    x = load(g_settings.threads_all);
  } else {
    x = omp_get_max_threads();
    explicit_count = false;
  }
  if (dynamic == 0) return x;
  const int cores = g_topology.core_count;
  if (static_cast<unsigned>(x) > static_cast<unsigned>(cores)) x = cores;
  const int pinned = load(g_settings.pinned_parallel);
  if (pinned == 0) {
    x = 1;
  } else if (pinned < 0) {
    const int ranks = load(g_settings.ranks_per_node);
    if (ranks >= 1 && !explicit_count && load(g_settings.omp_threads) < 1) {
      if (load(g_settings.mpi_thread_level) < 1) {
        x = 1;
      } else {
        const int share = cores / ranks;
        if (share < x) x = share;
        if (x < 1) x = 1;
      }
    }
  }
  return x;
}

int tvx_get_max_threads(void) {
  return tvx_domain_max_threads(-1);
}

void tvx_set_num_threads(int n) {
  if (n > 0) store(g_settings.threads_all, n);
}

int tvx_domain_set_num_threads(int n, int domain) {
  if (n < 0 || domain < 0 || domain > 4) return 0;
  std::int32_t* fields[5] = {&g_settings.threads_all, &g_settings.threads_blas,
                             &g_settings.threads_fft, &g_settings.threads_kaz,
                             &g_settings.threads_quartz};
  store(*fields[domain], n);
  return 1;
}

int tvx_set_num_threads_local(int n) {
  const int old = local_override();
  const int v = n > 0 ? n : 0;
  if (local_slot_ready(v != 0)) {
    pthread_setspecific(g_local.key, reinterpret_cast<void*>(static_cast<std::intptr_t>(v)));
  }
  return old;
}

void tvx_set_dynamic(int flag) {
  store(g_settings.dynamic, flag != 0 ? 1 : 0);
}
int tvx_get_dynamic(void) {
  ensure_parsed();
  return load(g_settings.dynamic);
}
void tvx_set_pinned_parallel(int flag) {
  store(g_settings.pinned_parallel, flag == 1 ? 1 : 0);
}
void tvx_set_num_stripes(int n) {
  if (n >= 0) store(g_settings.num_stripes, n);
}
int tvx_get_num_stripes(void) {
  ensure_parsed();
  return load(g_settings.num_stripes);
}
int tvx_topology_logical(void) {
  ensure_parsed();
  return g_topology.logical_count;
}
int tvx_topology_cores(void) {
  ensure_parsed();
  return g_topology.core_count;
}
int tvx_topology_numa(void) {
  ensure_parsed();
  return g_topology.numa_count;
}
int tvx_topology_cores_per_numa(void) {
  ensure_parsed();
  return g_topology.cores_per_numa;
}
int tvx_topology_hyperthreading(void) {
  ensure_parsed();
  return g_topology.hyperthreading;
}

const tvx_thread_settings* tvx_settings_record(void) {
  ensure_parsed();
  return &g_settings;
}
const tvx_topology* tvx_topology_record(void) {
  ensure_parsed();
  return &g_topology;
}
int tvx_settings_parsed(void) {
  return g_parsed.load(std::memory_order_acquire);
}

void tvx_topology_set_for_testing(int logical, int cores, int numa) {
  ensure_parsed();
  tvx_topology t;
  t.logical_count = logical < 1 ? 1 : logical;
  t.core_count = cores < 1 ? 1 : cores;
  t.numa_count = numa < 1 ? 1 : numa;
  t.cores_per_numa = t.core_count / t.numa_count < 1 ? 1 : t.core_count / t.numa_count;
  t.hyperthreading = t.core_count != t.logical_count ? 1 : 0;
  g_topology = t;
}

// ---- parallel helpers ---------------------------------------------------------------------------
int tvx_parallel_team(int requested) {
  const int max = tvx_domain_max_threads(TVX_DOMAIN_KAZ);
  return (requested >= 1 && requested <= max) ? requested : max;
}

void tvx_parallel_for_static(std::int64_t count, void* context, int requested, tvx_parallel_fn fn) {
  const int team = tvx_parallel_team(requested);
#pragma omp parallel num_threads(team)
  {
    const int t = omp_get_thread_num();
    const int size = omp_get_num_threads();
#pragma omp for schedule(static, 1)
    for (std::int64_t i = 0; i < count; ++i) fn(i, t, size, context);
  }
}

void tvx_parallel_for_ordered(std::int64_t count, void* context, int requested,
                              tvx_parallel_fn fn) {
  const int team = tvx_parallel_team(requested);
#pragma omp parallel num_threads(team)
  {
    const int t = omp_get_thread_num();
    const int size = omp_get_num_threads();
#pragma omp for schedule(dynamic) ordered
    for (std::int64_t i = 0; i < count; ++i) fn(i, t, size, context);
  }
}

void tvx_parallel_region(void* context, int requested, tvx_parallel_fn fn) {
  const int team = tvx_parallel_team(requested);
#pragma omp parallel num_threads(team)
  {
    const int t = omp_get_thread_num();
    fn(t, t, omp_get_num_threads(), context);
  }
}

void tvx_parallel_ordered(std::int64_t index, int thread, int team, void* context,
                          tvx_parallel_fn fn) {
#pragma omp ordered
  fn(index, thread, team, context);
}

static int thread_limit_kaz(void) {
  return tvx_domain_max_threads(TVX_DOMAIN_KAZ);
}

const tvx_thread_services* tvx_thread_services_table(void) {
  static const tvx_thread_services kServices = {tvx_parallel_for_static, tvx_parallel_for_ordered,
                                                tvx_parallel_region, tvx_parallel_ordered,
                                                thread_limit_kaz};
  return &kServices;
}

}  // extern "C"
