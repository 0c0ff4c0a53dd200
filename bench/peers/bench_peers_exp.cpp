// vdExp and vsExp at each accuracy level (the machine's variant, one thread) beside SLEEF, glibc's
// scalar exp and glibc's vector library, at n = 1e3, 1e5, 1e7; and vsExp's AVX2 kernels (called
// through their dispatch-row cells) beside the 8-lane SLEEF and glibc functions. Inputs are
// uniform over most of the finite range ([-700, 700] in double, [-87, 87] in single), so no lane
// takes a callout.
// Counters: CPU ns per element ("ns/elem"); the machine is shared, so CPU time is the steadier
// measure.
#include <benchmark/benchmark.h>
#include <immintrin.h>

#include <cmath>
#include <random>
#include <vector>

#include "peer_isa.h"
#include "runtime/settings.h"
#include "tvx_vector.h"
#include "vector/frame/rows.h"

// The peers' entry points, declared here with the instructions their vector types need (SLEEF's
// header declares them only in a program compiled for those instructions throughout).
#pragma GCC push_options
#pragma GCC target("avx2,fma,avx512f,avx512dq")
extern "C" {
__m512d Sleef_expd8_u10(__m512d);
__m512 Sleef_expf16_u10(__m512);
__m256 Sleef_expf8_u10(__m256);
__m512d _ZGVeN8v_exp(__m512d);
__m512 _ZGVeN16v_expf(__m512);
__m256 _ZGVdN8v_expf(__m256);
}

namespace {
void sleef_d8_u10(int n, const double* a, double* r) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm512_storeu_pd(r + i, Sleef_expd8_u10(_mm512_loadu_pd(a + i)));
  for (; i < n; ++i) r[i] = std::exp(a[i]);
}
void sleef_f16_u10(int n, const float* a, float* r) {
  int i = 0;
  for (; i + 16 <= n; i += 16) _mm512_storeu_ps(r + i, Sleef_expf16_u10(_mm512_loadu_ps(a + i)));
  for (; i < n; ++i) r[i] = std::exp(a[i]);
}
void libmvec_d8(int n, const double* a, double* r) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm512_storeu_pd(r + i, _ZGVeN8v_exp(_mm512_loadu_pd(a + i)));
  for (; i < n; ++i) r[i] = std::exp(a[i]);
}
void libmvec_f16(int n, const float* a, float* r) {
  int i = 0;
  for (; i + 16 <= n; i += 16) _mm512_storeu_ps(r + i, _ZGVeN16v_expf(_mm512_loadu_ps(a + i)));
  for (; i < n; ++i) r[i] = std::exp(a[i]);
}
}  // namespace
#pragma GCC pop_options

#pragma GCC push_options
#pragma GCC target("avx2,fma")
namespace {
void sleef_f8_u10(int n, const float* a, float* r) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(r + i, Sleef_expf8_u10(_mm256_loadu_ps(a + i)));
  for (; i < n; ++i) r[i] = std::exp(a[i]);
}
void libmvec_f8(int n, const float* a, float* r) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(r + i, _ZGVdN8v_expf(_mm256_loadu_ps(a + i)));
  for (; i < n; ++i) r[i] = std::exp(a[i]);
}
}  // namespace
#pragma GCC pop_options

namespace {

// The goals compare one thread with one thread: keep the exports from forking a team.
const int kOneThread = [] {
  tvx_set_num_threads(1);
  tvx_domain_set_num_threads(1, TVX_DOMAIN_KAZ);
  return 1;
}();

template <class T>
const std::vector<T>& inputs(long n) {
  static std::vector<T> v;
  if (static_cast<long>(v.size()) != n) {
    std::mt19937_64 rng(42);
    const double lim = sizeof(T) == 8 ? 700.0 : 87.0;
    std::uniform_real_distribution<double> u(-lim, lim);
    v.resize(static_cast<size_t>(n));
    for (auto& x : v) x = static_cast<T>(u(rng));
  }
  return v;
}

template <class T, class F>
void run(benchmark::State& state, F f) {
  const long n = state.range(0);
  const std::vector<T>& a = inputs<T>(n);
  std::vector<T> r(static_cast<size_t>(n));
  for (auto _ : state) {
    f(static_cast<int>(n), a.data(), r.data());
    benchmark::DoNotOptimize(r.data());
    benchmark::ClobberMemory();
  }
  state.counters["ns/elem"] =
      benchmark::Counter(static_cast<double>(n) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void Tvx_vdExp(benchmark::State& s, unsigned mode) {
  run<double>(s, [mode](int n, const double* a, double* r) { vmdExp(n, a, r, mode); });
}
void Tvx_vsExp(benchmark::State& s, unsigned mode) {
  run<float>(s, [mode](int n, const float* a, float* r) { vmsExp(n, a, r, mode); });
}

// The AVX2 kernel of one level, straight from its cell (variant 3); one thread, no threader.
void Tvx_vsExp_avx2(benchmark::State& s, int level) {
  if (skip_unless_variant_runs(s, kAvx2Variant)) return;
  const auto kernel = tvx_row_exp_s.kernels[kAvx2Variant + 6 * (level - 1)];
  run<float>(s, [kernel](int n, const float* a, float* r) { kernel(n, a, r); });
}

// A peer's kernel, where the instructions it was compiled for can run.
template <class T>
void peer(benchmark::State& s, int variant, void (*kernel)(int, const T*, T*)) {
  if (skip_unless_variant_runs(s, variant)) return;
  run<T>(s, kernel);
}
void Sleef_d8_u10(benchmark::State& s) {
  peer<double>(s, kAvx512Variant, sleef_d8_u10);
}
void Sleef_f16_u10(benchmark::State& s) {
  peer<float>(s, kAvx512Variant, sleef_f16_u10);
}
void Libmvec_d8(benchmark::State& s) {
  peer<double>(s, kAvx512Variant, libmvec_d8);
}
void Libmvec_f16(benchmark::State& s) {
  peer<float>(s, kAvx512Variant, libmvec_f16);
}
void Sleef_f8_u10(benchmark::State& s) {
  peer<float>(s, kAvx2Variant, sleef_f8_u10);
}
void Libmvec_f8(benchmark::State& s) {
  peer<float>(s, kAvx2Variant, libmvec_f8);
}
void Glibc_exp(benchmark::State& s) {
  run<double>(s, [](int n, const double* a, double* r) {
    for (int i = 0; i < n; ++i) r[i] = std::exp(a[i]);
  });
}
void Glibc_expf(benchmark::State& s) {
  run<float>(s, [](int n, const float* a, float* r) {
    for (int i = 0; i < n; ++i) r[i] = std::exp(a[i]);
  });
}

#define SIZES ->Arg(1000)->Arg(100000)->Arg(10000000)
BENCHMARK_CAPTURE(Tvx_vdExp, HA, KAZ_HA) SIZES;
BENCHMARK_CAPTURE(Tvx_vdExp, LA, KAZ_LA) SIZES;
BENCHMARK_CAPTURE(Tvx_vdExp, EP, KAZ_EP) SIZES;
BENCHMARK(Sleef_d8_u10) SIZES;
BENCHMARK(Libmvec_d8) SIZES;
BENCHMARK(Glibc_exp) SIZES;
BENCHMARK_CAPTURE(Tvx_vsExp, HA, KAZ_HA) SIZES;
BENCHMARK_CAPTURE(Tvx_vsExp, LA, KAZ_LA) SIZES;
BENCHMARK_CAPTURE(Tvx_vsExp, EP, KAZ_EP) SIZES;
BENCHMARK(Sleef_f16_u10) SIZES;
BENCHMARK(Libmvec_f16) SIZES;
BENCHMARK(Glibc_expf) SIZES;
BENCHMARK_CAPTURE(Tvx_vsExp_avx2, HA, KAZ_HA) SIZES;
BENCHMARK_CAPTURE(Tvx_vsExp_avx2, LA, KAZ_LA) SIZES;
BENCHMARK_CAPTURE(Tvx_vsExp_avx2, EP, KAZ_EP) SIZES;
BENCHMARK(Sleef_f8_u10) SIZES;
BENCHMARK(Libmvec_f8) SIZES;

}  // namespace
