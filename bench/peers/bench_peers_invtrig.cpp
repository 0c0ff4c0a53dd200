// vdAtan2, vdTanh and vdAsinh at each accuracy level (the machine's variant, one thread) beside
// SLEEF's u10 functions, glibc's vector library and glibc's scalar functions, n = 1e5; and the
// same three through their AVX2 cells beside the 4-lane peers. Inputs: Atan2 y and x uniform on
// [-10, 10]; Tanh uniform on [-5, 5] (both the polynomial and the exponential branch); Asinh
// uniform on [-50, 50]. No lane takes a callout.
// Counters: CPU ns per element ("ns/elem").
#include <benchmark/benchmark.h>
#include <immintrin.h>

#include <cmath>
#include <random>
#include <vector>

#include "peer_isa.h"
#include "runtime/settings.h"
#include "tvx_vector.h"
#include "vector/frame/rows.h"

#pragma GCC push_options
#pragma GCC target("avx2,fma,avx512f,avx512dq")
extern "C" {
__m512d Sleef_atan2d8_u10(__m512d, __m512d);
__m512d Sleef_tanhd8_u10(__m512d);
__m512d Sleef_asinhd8_u10(__m512d);
__m512d _ZGVeN8vv_atan2(__m512d, __m512d);
__m512d _ZGVeN8v_tanh(__m512d);
__m512d _ZGVeN8v_asinh(__m512d);
__m256d Sleef_atan2d4_u10(__m256d, __m256d);
__m256d Sleef_tanhd4_u10(__m256d);
__m256d Sleef_asinhd4_u10(__m256d);
__m256d _ZGVdN4vv_atan2(__m256d, __m256d);
__m256d _ZGVdN4v_tanh(__m256d);
__m256d _ZGVdN4v_asinh(__m256d);
}

namespace {
// n is a multiple of the lane count in every case run here.
template <__m512d (*F)(__m512d, __m512d)>
void two8(int n, const double* a, const double* b, double* r) {
  for (int i = 0; i < n; i += 8)
    _mm512_storeu_pd(r + i, F(_mm512_loadu_pd(a + i), _mm512_loadu_pd(b + i)));
}
template <__m512d (*F)(__m512d)>
void one8(int n, const double* a, const double*, double* r) {
  for (int i = 0; i < n; i += 8) _mm512_storeu_pd(r + i, F(_mm512_loadu_pd(a + i)));
}
}  // namespace
#pragma GCC pop_options

#pragma GCC push_options
#pragma GCC target("avx2,fma")
namespace {
template <__m256d (*F)(__m256d, __m256d)>
void two4(int n, const double* a, const double* b, double* r) {
  for (int i = 0; i < n; i += 4)
    _mm256_storeu_pd(r + i, F(_mm256_loadu_pd(a + i), _mm256_loadu_pd(b + i)));
}
template <__m256d (*F)(__m256d)>
void one4(int n, const double* a, const double*, double* r) {
  for (int i = 0; i < n; i += 4) _mm256_storeu_pd(r + i, F(_mm256_loadu_pd(a + i)));
}
}  // namespace
#pragma GCC pop_options

namespace {

const int kOneThread = [] {
  tvx_set_num_threads(1);
  tvx_domain_set_num_threads(1, TVX_DOMAIN_KAZ);
  return 1;
}();

using Kernel = void (*)(int, const double*, const double*, double*);

enum Fn { kAtan2, kTanh, kAsinh };

const std::vector<double>& inputs(Fn f, int which, long n) {
  static std::vector<double> v[3][2];
  std::vector<double>& x = v[f][which];
  if (static_cast<long>(x.size()) != n) {
    std::mt19937_64 rng(42 + which);
    const double lim = f == kAtan2 ? 10.0 : f == kTanh ? 5.0 : 50.0;
    std::uniform_real_distribution<double> u(-lim, lim);
    x.resize(static_cast<size_t>(n));
    for (auto& e : x) e = u(rng);
  }
  return x;
}

template <class F>
void run(benchmark::State& state, Fn f, F kernel) {
  const long n = state.range(0);
  const std::vector<double>& a = inputs(f, 0, n);
  const std::vector<double>& b = inputs(f, 1, n);
  std::vector<double> r(static_cast<size_t>(n));
  for (auto _ : state) {
    kernel(static_cast<int>(n), a.data(), b.data(), r.data());
    benchmark::DoNotOptimize(r.data());
    benchmark::ClobberMemory();
  }
  state.counters["ns/elem"] =
      benchmark::Counter(static_cast<double>(n) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void Tvx_vdAtan2(benchmark::State& s, unsigned mode) {
  run(s, kAtan2,
      [mode](int n, const double* a, const double* b, double* r) { vmdAtan2(n, a, b, r, mode); });
}
void Tvx_vdTanh(benchmark::State& s, unsigned mode) {
  run(s, kTanh,
      [mode](int n, const double* a, const double*, double* r) { vmdTanh(n, a, r, mode); });
}
void Tvx_vdAsinh(benchmark::State& s, unsigned mode) {
  run(s, kAsinh,
      [mode](int n, const double* a, const double*, double* r) { vmdAsinh(n, a, r, mode); });
}

// The AVX2 cells of one level, called straight from the dispatch rows.
void Tvx_avx2(benchmark::State& s, Fn f, int level) {
  if (skip_unless_variant_runs(s, kAvx2Variant)) return;
  const int cell = kAvx2Variant + 6 * (level - 1);
  if (f == kAtan2) {
    run(s, f, tvx_row_atan2_d.kernels[cell]);
  } else {
    const auto k = (f == kTanh ? tvx_row_tanh_d : tvx_row_asinh_d).kernels[cell];
    run(s, f, [k](int n, const double* a, const double*, double* r) { k(n, a, r); });
  }
}

void Peer(benchmark::State& s, Fn f, int variant, Kernel k) {
  if (skip_unless_variant_runs(s, variant)) return;
  run(s, f, k);
}

void Glibc(benchmark::State& s, Fn f) {
  run(s, f, [f](int n, const double* a, const double* b, double* r) {
    for (int i = 0; i < n; ++i)
      r[i] = f == kAtan2 ? std::atan2(a[i], b[i]) : f == kTanh ? std::tanh(a[i]) : std::asinh(a[i]);
  });
}

#define N ->Arg(100000)
BENCHMARK_CAPTURE(Tvx_vdAtan2, HA, KAZ_HA) N;
BENCHMARK_CAPTURE(Tvx_vdAtan2, LA, KAZ_LA) N;
BENCHMARK_CAPTURE(Tvx_vdAtan2, EP, KAZ_EP) N;
BENCHMARK_CAPTURE(Peer, Sleef_atan2d8_u10, kAtan2, kAvx512Variant, two8<Sleef_atan2d8_u10>) N;
BENCHMARK_CAPTURE(Peer, Libmvec_atan2_d8, kAtan2, kAvx512Variant, two8<_ZGVeN8vv_atan2>) N;
BENCHMARK_CAPTURE(Glibc, atan2, kAtan2) N;
BENCHMARK_CAPTURE(Tvx_vdTanh, HA, KAZ_HA) N;
BENCHMARK_CAPTURE(Tvx_vdTanh, LA, KAZ_LA) N;
BENCHMARK_CAPTURE(Tvx_vdTanh, EP, KAZ_EP) N;
BENCHMARK_CAPTURE(Peer, Sleef_tanhd8_u10, kTanh, kAvx512Variant, one8<Sleef_tanhd8_u10>) N;
BENCHMARK_CAPTURE(Peer, Libmvec_tanh_d8, kTanh, kAvx512Variant, one8<_ZGVeN8v_tanh>) N;
BENCHMARK_CAPTURE(Glibc, tanh, kTanh) N;
BENCHMARK_CAPTURE(Tvx_vdAsinh, HA, KAZ_HA) N;
BENCHMARK_CAPTURE(Tvx_vdAsinh, LA, KAZ_LA) N;
BENCHMARK_CAPTURE(Tvx_vdAsinh, EP, KAZ_EP) N;
BENCHMARK_CAPTURE(Peer, Sleef_asinhd8_u10, kAsinh, kAvx512Variant, one8<Sleef_asinhd8_u10>) N;
BENCHMARK_CAPTURE(Peer, Libmvec_asinh_d8, kAsinh, kAvx512Variant, one8<_ZGVeN8v_asinh>) N;
BENCHMARK_CAPTURE(Glibc, asinh, kAsinh) N;
// AVX2 width.
BENCHMARK_CAPTURE(Tvx_avx2, vdAtan2_HA, kAtan2, 2) N;
BENCHMARK_CAPTURE(Peer, Sleef_atan2d4_u10, kAtan2, kAvx2Variant, two4<Sleef_atan2d4_u10>) N;
BENCHMARK_CAPTURE(Peer, Libmvec_atan2_d4, kAtan2, kAvx2Variant, two4<_ZGVdN4vv_atan2>) N;
BENCHMARK_CAPTURE(Tvx_avx2, vdTanh_HA, kTanh, 2) N;
BENCHMARK_CAPTURE(Peer, Sleef_tanhd4_u10, kTanh, kAvx2Variant, one4<Sleef_tanhd4_u10>) N;
BENCHMARK_CAPTURE(Peer, Libmvec_tanh_d4, kTanh, kAvx2Variant, one4<_ZGVdN4v_tanh>) N;
BENCHMARK_CAPTURE(Tvx_avx2, vdAsinh_HA, kAsinh, 2) N;
BENCHMARK_CAPTURE(Peer, Sleef_asinhd4_u10, kAsinh, kAvx2Variant, one4<Sleef_asinhd4_u10>) N;
BENCHMARK_CAPTURE(Peer, Libmvec_asinh_d4, kAsinh, kAvx2Variant, one4<_ZGVdN4v_asinh>) N;

}  // namespace
