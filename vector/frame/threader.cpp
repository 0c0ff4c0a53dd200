// The threader's cost model: what one fork and join costs on this machine.
#include "vector/frame/threader.h"

#include <atomic>
#include <climits>

namespace {
// The factor, valid once g_logical is non-zero.
std::atomic<float> g_factor{0.0f};
std::atomic<int> g_logical{0};
}  // namespace

extern "C" {

// Fork cost estimate in cycles: crossing NUMA nodes (9000 a unit), sibling hardware threads
// (500000) and the cores of a node (60000), each weighted by its share of the P - 1 other
// processors; the factor is two over the sum, so that one thread pays for each half fork of work.
float tvx_kaz_fork_factor_of(int logical, int numa, int cores_per_numa) {
  const int p = logical;
  const int s = numa < 1 ? 1 : numa;
  const int q = s * (cores_per_numa < 1 ? 1 : cores_per_numa);
  if (p <= 1) return 0.0f;
  const int b = p / q;
  const double d = 1.0 / (p - 1);
  const float a = static_cast<float>((s - 1) * d * (p / s)) * 9000.0f;
  const float x = static_cast<float>((b - 1) * d) * 500000.0f;
  const float y = static_cast<float>((q / s - 1) * b * d) * 60000.0f;
  const float sum = (a + x) + y;
  // A topology with fewer logical processors than cores makes no sense of the model: no team.
  if (!(sum > 0.0f)) return 0.0f;
  return 2.0f / sum;
}

float tvx_kaz_fork_factor(void) {
  if (g_logical.load(std::memory_order_acquire) != 0)
    return g_factor.load(std::memory_order_relaxed);
  const int p = tvx_topology_logical();
  g_factor.store(tvx_kaz_fork_factor_of(p, tvx_topology_numa(), tvx_topology_cores_per_numa()),
                 std::memory_order_relaxed);
  g_logical.store(p, std::memory_order_release);
  return g_factor.load(std::memory_order_relaxed);
}

int tvx_kaz_useful_threads(int threads, int n, float cost, float factor) {
  const float work = static_cast<float>(n) * cost * factor;
  int useful = 1;
  if (work >= static_cast<float>(INT_MAX)) {
    useful = INT_MAX;
  } else if (work >= 1.0f) {
    useful = static_cast<int>(work);
  }
  return threads > useful ? useful : threads;
}

}  // extern "C"
