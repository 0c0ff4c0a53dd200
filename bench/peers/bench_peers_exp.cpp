// vdExp and vsExp beside their peers, at AVX-512 width (this machine's variant) and at AVX2 width
// (the library's AVX2 cells and the peers built for AVX2, run here when the machine has AVX2):
// SLEEF (1.0 ulp), Highway's contrib math, glibc's vector library and glibc's scalar exp.
// vdExpm1 runs beside SLEEF's expm1 only (neither Highway's contrib math as built here nor
// glibc's vector library has one).
// All single-threaded: the library's kernel is called straight from its dispatch cell. Inputs are
// uniform over most of the finite range ([-700, 700] in double, [-87, 87] in single), so no lane
// takes a callout. A table of CPU ns per element and of time ratios is printed after the runs.
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
__m512d Sleef_expd8_u10(__m512d);
__m512 Sleef_expf16_u10(__m512);
__m256d Sleef_expd4_u10avx2(__m256d);
__m512d Sleef_expm1d8_u10(__m512d);
__m256d Sleef_expm1d4_u10avx2(__m256d);
__m256 Sleef_expf8_u10avx2(__m256);
__m512d _ZGVeN8v_exp(__m512d);
__m512 _ZGVeN16v_expf(__m512);
__m256d _ZGVdN4v_exp(__m256d);
__m256 _ZGVdN8v_expf(__m256);
}
#pragma GCC pop_options

namespace {

using peers::loop_d4;
using peers::loop_d8;
using peers::loop_s16;
using peers::loop_s8;

double vexpm1_d(double x) {
  return std::expm1(x);
}
double exp_d(double x) {
  return std::exp(x);
}
float exp_s(float x) {
  return std::exp(x);
}

template <class T>
const std::vector<T>& inputs(long n) {
  static std::map<long, std::vector<T>> cache;
  auto& v = cache[n];
  if (v.empty()) {
    std::mt19937_64 rng(42);
    const double lim = sizeof(T) == 8 ? 700.0 : 87.0;
    std::uniform_real_distribution<double> u(-lim, lim);
    v.resize(static_cast<std::size_t>(n));
    for (auto& x : v) x = static_cast<T>(u(rng));
  }
  return v;
}

template <class T>
void timed(benchmark::State& s, void (*kernel)(int, const T*, T*)) {
  peers::run<T>(s, inputs<T>, kernel);
}

// The cell of this machine's variant, or of `variant` when it is given; level 1 LA, 2 HA, 3 EP.
template <class T>
void tvx_level(benchmark::State& s, int level, int variant = -1, bool expm1 = false) {
  if (variant >= 0 && skip_unless_variant_runs(s, variant)) return;
  const int slot = (variant < 0 ? tvx_kaz_variant_index() : variant) + 6 * (level - 1);
  if constexpr (sizeof(T) == 8) {
    if (expm1) return timed<T>(s, tvx_row_expm1_d.kernels[slot]);
    timed<T>(s, tvx_row_exp_d.kernels[slot]);
  } else {
    timed<T>(s, tvx_row_exp_s.kernels[slot]);
  }
}

template <class T>
void peer(benchmark::State& s, int variant, void (*kernel)(int, const T*, T*)) {
  if (skip_unless_variant_runs(s, variant)) return;
  timed<T>(s, kernel);
}

constexpr int k2 = kAvx2Variant, k5 = kAvx512Variant;

const peers::Case kCases[] = {
    {"vdExp/tvx_LA", [](benchmark::State& s) { tvx_level<double>(s, 1); }},
    {"vdExp/tvx_HA", [](benchmark::State& s) { tvx_level<double>(s, 2); }},
    {"vdExp/tvx_EP", [](benchmark::State& s) { tvx_level<double>(s, 3); }},
    {"vdExp/sleef_u10",
     [](benchmark::State& s) { peer<double>(s, k5, loop_d8<Sleef_expd8_u10, exp_d>); }},
    {"vdExp/hwy", [](benchmark::State& s) { peer<double>(s, k5, kHwyAvx512.exp_d); }},
    {"vdExp/libmvec",
     [](benchmark::State& s) { peer<double>(s, k5, loop_d8<_ZGVeN8v_exp, exp_d>); }},
    {"vdExp/tvx_avx2_LA", [](benchmark::State& s) { tvx_level<double>(s, 1, k2); }},
    {"vdExp/tvx_avx2_HA", [](benchmark::State& s) { tvx_level<double>(s, 2, k2); }},
    {"vdExp/tvx_avx2_EP", [](benchmark::State& s) { tvx_level<double>(s, 3, k2); }},
    {"vdExp/sleef_avx2_u10",
     [](benchmark::State& s) { peer<double>(s, k2, loop_d4<Sleef_expd4_u10avx2, exp_d>); }},
    {"vdExp/hwy_avx2", [](benchmark::State& s) { peer<double>(s, k2, kHwyAvx2.exp_d); }},
    {"vdExp/libmvec_avx2",
     [](benchmark::State& s) { peer<double>(s, k2, loop_d4<_ZGVdN4v_exp, exp_d>); }},
    {"vdExp/glibc_scalar",
     [](benchmark::State& s) {
       timed<double>(s, [](int n, const double* a, double* r) {
         for (int i = 0; i < n; ++i) r[i] = std::exp(a[i]);
       });
     }},
    {"vsExp/tvx_LA", [](benchmark::State& s) { tvx_level<float>(s, 1); }},
    {"vsExp/tvx_HA", [](benchmark::State& s) { tvx_level<float>(s, 2); }},
    {"vsExp/tvx_EP", [](benchmark::State& s) { tvx_level<float>(s, 3); }},
    {"vsExp/sleef_u10",
     [](benchmark::State& s) { peer<float>(s, k5, loop_s16<Sleef_expf16_u10, exp_s>); }},
    {"vsExp/hwy", [](benchmark::State& s) { peer<float>(s, k5, kHwyAvx512.exp_s); }},
    {"vsExp/libmvec",
     [](benchmark::State& s) { peer<float>(s, k5, loop_s16<_ZGVeN16v_expf, exp_s>); }},
    {"vsExp/tvx_avx2_LA", [](benchmark::State& s) { tvx_level<float>(s, 1, k2); }},
    {"vsExp/tvx_avx2_HA", [](benchmark::State& s) { tvx_level<float>(s, 2, k2); }},
    {"vsExp/tvx_avx2_EP", [](benchmark::State& s) { tvx_level<float>(s, 3, k2); }},
    {"vsExp/sleef_avx2_u10",
     [](benchmark::State& s) { peer<float>(s, k2, loop_s8<Sleef_expf8_u10avx2, exp_s>); }},
    {"vsExp/hwy_avx2", [](benchmark::State& s) { peer<float>(s, k2, kHwyAvx2.exp_s); }},
    {"vsExp/libmvec_avx2",
     [](benchmark::State& s) { peer<float>(s, k2, loop_s8<_ZGVdN8v_expf, exp_s>); }},
    {"vsExp/glibc_scalar",
     [](benchmark::State& s) {
       timed<float>(s, [](int n, const float* a, float* r) {
         for (int i = 0; i < n; ++i) r[i] = std::exp(a[i]);
       });
     }},
    {"vdExpm1/tvx_LA", [](benchmark::State& s) { tvx_level<double>(s, 1, -1, true); }},
    {"vdExpm1/tvx_HA", [](benchmark::State& s) { tvx_level<double>(s, 2, -1, true); }},
    {"vdExpm1/tvx_EP", [](benchmark::State& s) { tvx_level<double>(s, 3, -1, true); }},
    {"vdExpm1/sleef_u10",
     [](benchmark::State& s) { peer<double>(s, k5, loop_d8<Sleef_expm1d8_u10, vexpm1_d>); }},
    {"vdExpm1/tvx_avx2_LA", [](benchmark::State& s) { tvx_level<double>(s, 1, k2, true); }},
    {"vdExpm1/tvx_avx2_HA", [](benchmark::State& s) { tvx_level<double>(s, 2, k2, true); }},
    {"vdExpm1/tvx_avx2_EP", [](benchmark::State& s) { tvx_level<double>(s, 3, k2, true); }},
    {"vdExpm1/sleef_avx2_u10",
     [](benchmark::State& s) { peer<double>(s, k2, loop_d4<Sleef_expm1d4_u10avx2, vexpm1_d>); }},
};

}  // namespace

int main(int argc, char** argv) {
  return peers::main_with(argc, argv, kCases, {"vdExp", "vsExp", "vdExpm1"});
}
