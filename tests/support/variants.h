// Which variant code can run on this machine: the one rule every test that calls a cell, calls a
// variant's entry points or forces a CPU type asks. It follows the library's own detection (the
// feature word, ORVANE_ISA_DISABLE applied), so a disabled feature makes the suite behave as on a
// machine without it; isa_traps.cpp makes code that did not ask fault there as it would.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/cpu_type.h"

namespace tvx::test {

// Name of the first feature that code of vector variant `variant` (0..5) needs and the library
// does not report, or null when it runs here.
inline const char* variant_lacks(int variant) {
  const int bit = tvx_kaz_variant_missing_feature(variant);
  return bit < 0 ? nullptr : tvx_cpu_feature_name(bit);
}
// The same for random and statistics copy `copy` (0..4).
inline const char* copy_lacks(int copy) {
  const int bit = tvx_rud_copy_missing_feature(copy);
  return bit < 0 ? nullptr : tvx_cpu_feature_name(bit);
}
// The same for a value of TVX_KAZ_DEBUG_CPU_TYPE in a child: vector code takes the value itself as
// the slot (6, 7 and 9 land on variants 0, 1 and 3 of the next accuracy), random code maps it as a
// CPU type. 8 and values over 9 are rejected, and detection decides.
inline const char* forced_type_lacks(int value) {
  if (value == 8 || value < 0 || value > 9) return nullptr;
  const char* vector = variant_lacks(value % 6);
  return vector != nullptr ? vector : copy_lacks(tvx_rud_variant_of_cpu_type(value));
}

// Slot of a dispatch row: variant + 6 * (accuracy - 1).
inline int slot(int variant, int accuracy) {
  return variant + 6 * (accuracy - 1);
}
inline bool slot_runs(int slot) {
  return variant_lacks(slot % 6) == nullptr;
}

struct Variant {
  int index;
  const char* name;
};

inline const std::vector<Variant>& all_variants() {
  static const std::vector<Variant> v = {
      {0, "sse2"}, {1, "sse2b"}, {2, "sse42"}, {3, "avx2"}, {5, "avx512"}};
  return v;
}
inline const char* lacks(const Variant& v) {
  return variant_lacks(v.index);
}

inline void PrintTo(const Variant& v, std::ostream* os) {
  *os << v.name;
}

inline std::string variant_name(const testing::TestParamInfo<Variant>& info) {
  return info.param.name;
}

// Skips the running test when variant (or copy) `v` cannot run here, naming the missing feature.
#define TVX_SKIP_IF_CPU_LACKS(v)                                                      \
  do {                                                                                \
    if (const char* missing_ = tvx::test::lacks(v))                                   \
      GTEST_SKIP() << "CPU lacks " << missing_ << ", needed by variant " << (v).name; \
  } while (0)

}  // namespace tvx::test
