// Test parameter over the vector variants: each variant's kernels are reached through the
// dispatch row of a function, so a test can run the same check on every variant the CPU has.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/cpu_type.h"

namespace tvx::test {

struct Variant {
  int index;
  const char* name;
  const char* cpu_feature;  // feature __builtin_cpu_supports must report, or null
};

inline const std::vector<Variant>& all_variants() {
  static const std::vector<Variant> v = {{0, "sse2", nullptr},
                                         {1, "sse2b", nullptr},
                                         {2, "sse42", "sse4.2"},
                                         {3, "avx2", "avx2"},
                                         {5, "avx512", "avx512dq"}};
  return v;
}

inline bool cpu_runs(const Variant& v) {
  if (v.cpu_feature == nullptr) return true;
  __builtin_cpu_init();
  if (v.index == 3) return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  if (v.index == 5) {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
  }
  if (v.index == 2) return __builtin_cpu_supports("sse4.2");  // the builtin takes literals only
  return false;
}

inline std::string variant_name(const testing::TestParamInfo<Variant>& info) {
  return info.param.name;
}

// Slot of a dispatch row: variant + 6 * (accuracy - 1).
inline int slot(int variant, int accuracy) {
  return variant + 6 * (accuracy - 1);
}

#define TVX_SKIP_IF_CPU_LACKS(v)                                                   \
  do {                                                                             \
    if (!tvx::test::cpu_runs(v)) GTEST_SKIP() << "CPU lacks variant " << (v).name; \
  } while (0)

}  // namespace tvx::test
