// vdLn and vsLn beside their peers, at AVX-512 width (this machine's variant) and at AVX2 width
// (the library's AVX2 cells and the peers built for AVX2, run here when the machine has AVX2):
// SLEEF (1.0 ulp), Highway's contrib math, glibc's vector library and glibc's scalar log.
// vdLog1p runs beside SLEEF's log1p only (neither Highway's contrib math as built here nor
// glibc's vector library has one).
// All single-threaded: the library's kernel is called straight from its dispatch cell. Inputs are
// 2^u with u uniform on [-20, 20], none special. A table of CPU ns per element and of time ratios
// is printed after the runs.
#include <benchmark/benchmark.h>
#include <immintrin.h>

#include <cmath>
#include <map>
#include <random>
#include <vector>

#include "hwy_peers.h"
#include "peer_loops.h"
#include "peer_report.h"
#include "vector/frame/rows.h"

#pragma GCC push_options
#pragma GCC target("avx2,fma,avx512f,avx512dq")
extern "C" {
__m512d Sleef_logd8_u10(__m512d);
__m512 Sleef_logf16_u10(__m512);
__m256d Sleef_logd4_u10avx2(__m256d);
__m512d Sleef_log1pd8_u10(__m512d);
__m256d Sleef_log1pd4_u10avx2(__m256d);
__m256 Sleef_logf8_u10avx2(__m256);
__m512d _ZGVeN8v_log(__m512d);
__m512 _ZGVeN16v_logf(__m512);
__m256d _ZGVdN4v_log(__m256d);
__m256 _ZGVdN8v_logf(__m256);
}
#pragma GCC pop_options

namespace {

using peers::loop_d4;
using peers::loop_d8;
using peers::loop_s16;
using peers::loop_s8;

double vlog1p_d(double x) {
  return std::log1p(x);
}
double log_d(double x) {
  return std::log(x);
}
float log_s(float x) {
  return std::log(x);
}

template <class T>
const std::vector<T>& inputs(long n) {
  static std::map<long, std::vector<T>> cache;
  auto& v = cache[n];
  if (v.empty()) {
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> u(-20.0, 20.0);
    v.resize(static_cast<std::size_t>(n));
    for (auto& x : v) x = static_cast<T>(std::exp2(u(rng)));
  }
  return v;
}

template <class T>
void timed(benchmark::State& s, void (*kernel)(int, const T*, T*)) {
  peers::run<T>(s, inputs<T>, kernel);
}

// The cell of this machine's variant, or of `variant` when it is given; level 1 LA, 2 HA, 3 EP.
template <class T>
void tvx_level(benchmark::State& s, int level, int variant = -1, bool log1p = false) {
  if (variant >= 0 && skip_unless_variant_runs(s, variant)) return;
  const int slot = (variant < 0 ? tvx_kaz_variant_index() : variant) + 6 * (level - 1);
  if constexpr (sizeof(T) == 8) {
    if (log1p) return timed<T>(s, tvx_row_log1p_d.kernels[slot]);
    timed<T>(s, tvx_row_ln_d.kernels[slot]);
  } else {
    timed<T>(s, tvx_row_ln_s.kernels[slot]);
  }
}

template <class T>
void peer(benchmark::State& s, int variant, void (*kernel)(int, const T*, T*)) {
  if (skip_unless_variant_runs(s, variant)) return;
  timed<T>(s, kernel);
}

constexpr int k2 = kAvx2Variant, k5 = kAvx512Variant;

const peers::Case kCases[] = {
    {"vdLn/tvx_LA", [](benchmark::State& s) { tvx_level<double>(s, 1); }},
    {"vdLn/tvx_HA", [](benchmark::State& s) { tvx_level<double>(s, 2); }},
    {"vdLn/tvx_EP", [](benchmark::State& s) { tvx_level<double>(s, 3); }},
    {"vdLn/sleef_u10",
     [](benchmark::State& s) { peer<double>(s, k5, loop_d8<Sleef_logd8_u10, log_d>); }},
    {"vdLn/hwy", [](benchmark::State& s) { peer<double>(s, k5, kHwyAvx512.log_d); }},
    {"vdLn/libmvec",
     [](benchmark::State& s) { peer<double>(s, k5, loop_d8<_ZGVeN8v_log, log_d>); }},
    {"vdLn/tvx_avx2_LA", [](benchmark::State& s) { tvx_level<double>(s, 1, k2); }},
    {"vdLn/tvx_avx2_HA", [](benchmark::State& s) { tvx_level<double>(s, 2, k2); }},
    {"vdLn/tvx_avx2_EP", [](benchmark::State& s) { tvx_level<double>(s, 3, k2); }},
    {"vdLn/sleef_avx2_u10",
     [](benchmark::State& s) { peer<double>(s, k2, loop_d4<Sleef_logd4_u10avx2, log_d>); }},
    {"vdLn/hwy_avx2", [](benchmark::State& s) { peer<double>(s, k2, kHwyAvx2.log_d); }},
    {"vdLn/libmvec_avx2",
     [](benchmark::State& s) { peer<double>(s, k2, loop_d4<_ZGVdN4v_log, log_d>); }},
    {"vdLn/glibc_scalar",
     [](benchmark::State& s) {
       timed<double>(s, [](int n, const double* a, double* r) {
         for (int i = 0; i < n; ++i) r[i] = std::log(a[i]);
       });
     }},
    {"vsLn/tvx_LA", [](benchmark::State& s) { tvx_level<float>(s, 1); }},
    {"vsLn/tvx_HA", [](benchmark::State& s) { tvx_level<float>(s, 2); }},
    {"vsLn/tvx_EP", [](benchmark::State& s) { tvx_level<float>(s, 3); }},
    {"vsLn/sleef_u10",
     [](benchmark::State& s) { peer<float>(s, k5, loop_s16<Sleef_logf16_u10, log_s>); }},
    {"vsLn/hwy", [](benchmark::State& s) { peer<float>(s, k5, kHwyAvx512.log_s); }},
    {"vsLn/libmvec",
     [](benchmark::State& s) { peer<float>(s, k5, loop_s16<_ZGVeN16v_logf, log_s>); }},
    {"vsLn/tvx_avx2_LA", [](benchmark::State& s) { tvx_level<float>(s, 1, k2); }},
    {"vsLn/tvx_avx2_HA", [](benchmark::State& s) { tvx_level<float>(s, 2, k2); }},
    {"vsLn/tvx_avx2_EP", [](benchmark::State& s) { tvx_level<float>(s, 3, k2); }},
    {"vsLn/sleef_avx2_u10",
     [](benchmark::State& s) { peer<float>(s, k2, loop_s8<Sleef_logf8_u10avx2, log_s>); }},
    {"vsLn/hwy_avx2", [](benchmark::State& s) { peer<float>(s, k2, kHwyAvx2.log_s); }},
    {"vsLn/libmvec_avx2",
     [](benchmark::State& s) { peer<float>(s, k2, loop_s8<_ZGVdN8v_logf, log_s>); }},
    {"vsLn/glibc_scalar",
     [](benchmark::State& s) {
       timed<float>(s, [](int n, const float* a, float* r) {
         for (int i = 0; i < n; ++i) r[i] = std::log(a[i]);
       });
     }},
    {"vdLog1p/tvx_LA", [](benchmark::State& s) { tvx_level<double>(s, 1, -1, true); }},
    {"vdLog1p/tvx_HA", [](benchmark::State& s) { tvx_level<double>(s, 2, -1, true); }},
    {"vdLog1p/tvx_EP", [](benchmark::State& s) { tvx_level<double>(s, 3, -1, true); }},
    {"vdLog1p/sleef_u10",
     [](benchmark::State& s) { peer<double>(s, k5, loop_d8<Sleef_log1pd8_u10, vlog1p_d>); }},
    {"vdLog1p/tvx_avx2_LA", [](benchmark::State& s) { tvx_level<double>(s, 1, k2, true); }},
    {"vdLog1p/tvx_avx2_HA", [](benchmark::State& s) { tvx_level<double>(s, 2, k2, true); }},
    {"vdLog1p/tvx_avx2_EP", [](benchmark::State& s) { tvx_level<double>(s, 3, k2, true); }},
    {"vdLog1p/sleef_avx2_u10",
     [](benchmark::State& s) { peer<double>(s, k2, loop_d4<Sleef_log1pd4_u10avx2, vlog1p_d>); }},
};

}  // namespace

int main(int argc, char** argv) {
  return peers::main_with(argc, argv, kCases, {"vdLn", "vsLn", "vdLog1p"});
}
