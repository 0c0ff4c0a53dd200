// Provisional thread settings: one team size from the OpenMP runtime for every domain. The full
// settings (environment, domains, topology, parallel helpers) replace this file.
#include "runtime/settings.h"

#include <omp.h>
#include <unistd.h>

namespace {
int g_all = 0;
int g_dynamic = 1;
int g_stripes = 0;
}  // namespace

extern "C" {
int tvx_domain_max_threads(int) { return g_all > 0 ? g_all : omp_get_max_threads(); }
int tvx_get_max_threads(void) { return tvx_domain_max_threads(-1); }
void tvx_set_num_threads(int n) {
  if (n > 0) g_all = n;
}
int tvx_domain_set_num_threads(int n, int domain) { return (n >= 0 && domain >= 0 && domain <= 4); }
void tvx_set_dynamic(int flag) { g_dynamic = flag != 0; }
int tvx_get_dynamic(void) { return g_dynamic; }
void tvx_set_pinned_parallel(int) {}
void tvx_set_num_stripes(int n) {
  if (n >= 0) g_stripes = n;
}
int tvx_get_num_stripes(void) { return g_stripes; }
int tvx_topology_logical(void) { return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)); }
int tvx_topology_numa(void) { return 1; }
int tvx_topology_cores_per_numa(void) { return tvx_topology_logical(); }
int tvx_topology_hyperthreading(void) { return 0; }
}
