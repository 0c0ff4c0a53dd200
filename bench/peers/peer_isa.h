// Instruction sets in the peer programs. The programs are plain x86-64; each peer's SIMD code is
// compiled for its own instruction set inside a `#pragma GCC target` region, and a case runs only
// where the library's vector variant of that instruction set can run (so ORVANE_ISA_DISABLE
// takes the peers away with the library's cells).
#pragma once

#include <benchmark/benchmark.h>

#include <string>

#include "runtime/cpu_type.h"

constexpr int kAvx2Variant = 3;
constexpr int kAvx512Variant = 5;

// Skips the case, naming the missing feature in its output, when `variant` cannot run here.
inline bool skip_unless_variant_runs(benchmark::State& s, int variant) {
  const int missing = tvx_kaz_variant_missing_feature(variant);
  if (missing < 0) return false;
  s.SkipWithError((std::string("skipped: CPU lacks ") + tvx_cpu_feature_name(missing)).c_str());
  return true;
}
