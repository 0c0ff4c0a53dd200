// Provisional processor detection: picks the best variant the processor supports. The full
// detection (feature word, classes, environment controls) replaces this file.
#include "runtime/cpu_type.h"

#include <cstdio>

extern "C" {

volatile std::uint64_t tvx_cpu_features[2] = {0, 0};

int tvx_cpu_has_feature(int) { return 0; }
const char* tvx_cpu_feature_name(int) { return nullptr; }

int tvx_serv_get_kaz_cpu_type(void) {
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq")) return 9;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return 7;
  if (__builtin_cpu_supports("sse4.2")) return 5;
  return 0;
}

int tvx_serv_get_cpu_type(void) {
  const int t = tvx_serv_get_kaz_cpu_type();
  return t == 0 ? 0 : t - 2;
}

int tvx_rud_cpu_type(void) { return tvx_serv_get_kaz_cpu_type(); }

int tvx_kaz_variant_index(void) {
  static const int kMap[10] = {0, 1, 0, 0, 0, 2, 2, 3, 4, 5};
  static int cached = -1;
  if (cached >= 0) return cached;
  int t = tvx_serv_get_kaz_cpu_type();
  cached = kMap[t];
  return cached;
}

int tvx_serv_cpu_classify(int* fatal_out) {
  if (fatal_out) *fatal_out = 0;
  return 0;
}
void tvx_serv_enable_instructions(int* limit_out) {
  if (limit_out) *limit_out = -1;
}
int tvx_serv_has_home_vendor(void) { return 1; }
int tvx_cbwr_get(int what) { return what == 1 ? 1 : (what == -1 ? 1 : -2); }
const char* tvx_cbwr_branch_name(int, char* buffer, int size) {
  std::snprintf(buffer, static_cast<size_t>(size), "OFF");
  return buffer;
}
int tvx_rud_variant_of_cpu_type(int cpu_type) {
  static const int kMap[10] = {0, 1, 0, 0, 0, 2, 2, 3, 3, 4};
  return (cpu_type >= 0 && cpu_type < 10) ? kMap[cpu_type] : 0;
}

}  // extern "C"
