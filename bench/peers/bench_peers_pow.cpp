// Powers and roots beside their peers at n = 1e5, one thread: vdPow and vsPow at each level
// beside SLEEF (u10), glibc's vector library and glibc's scalar pow; vdSqrt, vdInvSqrt, vdCbrt
// and vdHypot beside SLEEF's 8-lane functions and glibc's scalar ones. vdSqrt also runs at
// n = 1e7 beside a memcpy of the same traffic (its floor). Pow's inputs keep |y ln x| below 700
// (no callout); the roots take positive inputs over [2^-20, 2^20].
// Counters: CPU ns per element ("ns/elem").
#include <benchmark/benchmark.h>
#include <immintrin.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "peer_isa.h"
#include "runtime/settings.h"
#include "tvx_vector.h"

#pragma GCC push_options
#pragma GCC target("avx2,fma,avx512f,avx512dq")
extern "C" {
__m512d Sleef_powd8_u10(__m512d, __m512d);
__m512 Sleef_powf16_u10(__m512, __m512);
__m512d Sleef_sqrtd8_u05(__m512d);
__m512d Sleef_cbrtd8_u10(__m512d);
__m512d Sleef_cbrtd8_u35(__m512d);
__m512d Sleef_hypotd8_u05(__m512d, __m512d);
__m512d _ZGVeN8vv_pow(__m512d, __m512d);
__m512 _ZGVeN16vv_powf(__m512, __m512);
}

namespace {
template <__m512d (*F)(__m512d, __m512d)>
void d8_vv(int n, const double* a, const double* b, double* r) {
  for (int i = 0; i + 8 <= n; i += 8)
    _mm512_storeu_pd(r + i, F(_mm512_loadu_pd(a + i), _mm512_loadu_pd(b + i)));
}
template <__m512 (*F)(__m512, __m512)>
void f16_vv(int n, const float* a, const float* b, float* r) {
  for (int i = 0; i + 16 <= n; i += 16)
    _mm512_storeu_ps(r + i, F(_mm512_loadu_ps(a + i), _mm512_loadu_ps(b + i)));
}
template <__m512d (*F)(__m512d)>
void d8_v(int n, const double* a, const double*, double* r) {
  for (int i = 0; i + 8 <= n; i += 8) _mm512_storeu_pd(r + i, F(_mm512_loadu_pd(a + i)));
}
// 1/sqrt from SLEEF's correctly rounded square root and a divide.
__m512d sleef_invsqrt(__m512d x) {
  return _mm512_div_pd(_mm512_set1_pd(1.0), Sleef_sqrtd8_u05(x));
}
}  // namespace
#pragma GCC pop_options

namespace {

const int kOneThread = [] {
  tvx_set_num_threads(1);
  tvx_domain_set_num_threads(1, TVX_DOMAIN_KAZ);
  return 1;
}();

// Pow arguments: x log-uniform over [2^-30, 2^30], y uniform with |y ln x| <= 700; roots and
// Hypot: positive values log-uniform over [2^-20, 2^20].
template <class T>
struct Inputs {
  std::vector<T> a, b;
};
template <class T>
const Inputs<T>& inputs(long n, bool pow) {
  static Inputs<T> v[2];
  Inputs<T>& in = v[pow];
  if (static_cast<long>(in.a.size()) != n) {
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    const double lim = sizeof(T) == 8 ? 700.0 : 85.0;
    in.a.resize(static_cast<size_t>(n));
    in.b.resize(static_cast<size_t>(n));
    for (long i = 0; i < n; ++i) {
      const double e = (pow ? 30 : 20) * u(rng);
      const double x = std::exp2(e);
      in.a[i] = static_cast<T>(x);
      in.b[i] = static_cast<T>(pow ? u(rng) * lim / std::fabs(std::log(x) + 1e-3)
                                   : std::exp2(20 * u(rng)));
    }
  }
  return in;
}

template <class T, class F>
void run(benchmark::State& state, bool pow, F f) {
  const long n = state.range(0);
  const Inputs<T>& in = inputs<T>(n, pow);
  std::vector<T> r(static_cast<size_t>(n));
  for (auto _ : state) {
    f(static_cast<int>(n), in.a.data(), in.b.data(), r.data());
    benchmark::DoNotOptimize(r.data());
    benchmark::ClobberMemory();
  }
  state.counters["ns/elem"] =
      benchmark::Counter(static_cast<double>(n) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

template <class T>
void peer(benchmark::State& s, bool pow, void (*k)(int, const T*, const T*, T*)) {
  if (skip_unless_variant_runs(s, kAvx512Variant)) return;
  run<T>(s, pow, k);
}

// ---- Pow ----------------------------------------------------------------------------------------
void Tvx_vdPow(benchmark::State& s, unsigned mode) {
  run<double>(s, true, [mode](int n, const double* a, const double* b, double* r) {
    vmdPow(n, a, b, r, mode);
  });
}
void Tvx_vsPow(benchmark::State& s, unsigned mode) {
  run<float>(s, true,
             [mode](int n, const float* a, const float* b, float* r) { vmsPow(n, a, b, r, mode); });
}
void Tvx_vdPowx(benchmark::State& s, unsigned mode) {
  run<double>(s, true, [mode](int n, const double* a, const double*, double* r) {
    vmdPowx(n, a, 2.75, r, mode);
  });
}
void Sleef_powd8_u10_(benchmark::State& s) {
  peer<double>(s, true, d8_vv<Sleef_powd8_u10>);
}
void Libmvec_pow8(benchmark::State& s) {
  peer<double>(s, true, d8_vv<_ZGVeN8vv_pow>);
}
void Glibc_pow(benchmark::State& s) {
  run<double>(s, true, [](int n, const double* a, const double* b, double* r) {
    for (int i = 0; i < n; ++i) r[i] = std::pow(a[i], b[i]);
  });
}
void Sleef_powf16_u10_(benchmark::State& s) {
  peer<float>(s, true, f16_vv<Sleef_powf16_u10>);
}
void Libmvec_powf16(benchmark::State& s) {
  peer<float>(s, true, f16_vv<_ZGVeN16vv_powf>);
}
void Glibc_powf(benchmark::State& s) {
  run<float>(s, true, [](int n, const float* a, const float* b, float* r) {
    for (int i = 0; i < n; ++i) r[i] = std::pow(a[i], b[i]);
  });
}

// ---- roots and Hypot ----------------------------------------------------------------------------
template <void (*F)(int, const double*, double*, unsigned)>
void tvx_v(benchmark::State& s, unsigned mode) {
  run<double>(s, false,
              [mode](int n, const double* a, const double*, double* r) { F(n, a, r, mode); });
}
void Tvx_vdHypot(benchmark::State& s, unsigned mode) {
  run<double>(s, false, [mode](int n, const double* a, const double* b, double* r) {
    vmdHypot(n, a, b, r, mode);
  });
}
template <double (*F)(double)>
void glibc_v(benchmark::State& s) {
  run<double>(s, false, [](int n, const double* a, const double*, double* r) {
    for (int i = 0; i < n; ++i) r[i] = F(a[i]);
  });
}
double sqrt_(double x) {
  return std::sqrt(x);
}
double invsqrt_(double x) {
  return 1.0 / std::sqrt(x);
}
double cbrt_(double x) {
  return std::cbrt(x);
}
void Glibc_hypot(benchmark::State& s) {
  run<double>(s, false, [](int n, const double* a, const double* b, double* r) {
    for (int i = 0; i < n; ++i) r[i] = std::hypot(a[i], b[i]);
  });
}
// The floor of Sqrt at large n: a memcpy of the same bytes (n doubles read, n written).
void Memcpy_floor(benchmark::State& s) {
  run<double>(s, false, [](int n, const double* a, const double*, double* r) {
    std::memcpy(r, a, static_cast<size_t>(n) * sizeof(double));
  });
}

void Tvx_vdSqrt(benchmark::State& s) {
  tvx_v<vmdSqrt>(s, KAZ_HA);
}
void Tvx_vdInvSqrt(benchmark::State& s, unsigned mode) {
  tvx_v<vmdInvSqrt>(s, mode);
}
void Tvx_vdCbrt(benchmark::State& s, unsigned mode) {
  tvx_v<vmdCbrt>(s, mode);
}
void Sleef_sqrtd8_u05_(benchmark::State& s) {
  peer<double>(s, false, d8_v<Sleef_sqrtd8_u05>);
}
void Sleef_invsqrt_u05(benchmark::State& s) {
  peer<double>(s, false, d8_v<sleef_invsqrt>);
}
void Sleef_cbrtd8_u10_(benchmark::State& s) {
  peer<double>(s, false, d8_v<Sleef_cbrtd8_u10>);
}
void Sleef_cbrtd8_u35_(benchmark::State& s) {
  peer<double>(s, false, d8_v<Sleef_cbrtd8_u35>);
}
void Sleef_hypotd8_u05_(benchmark::State& s) {
  peer<double>(s, false, d8_vv<Sleef_hypotd8_u05>);
}
void Glibc_sqrt(benchmark::State& s) {
  glibc_v<sqrt_>(s);
}
void Glibc_invsqrt(benchmark::State& s) {
  glibc_v<invsqrt_>(s);
}
void Glibc_cbrt(benchmark::State& s) {
  glibc_v<cbrt_>(s);
}

#define N5 ->Arg(100000)
#define N57 ->Arg(100000)->Arg(10000000)
BENCHMARK_CAPTURE(Tvx_vdPow, HA, KAZ_HA) N5;
BENCHMARK_CAPTURE(Tvx_vdPow, LA, KAZ_LA) N5;
BENCHMARK_CAPTURE(Tvx_vdPow, EP, KAZ_EP) N5;
BENCHMARK_CAPTURE(Tvx_vdPowx, HA_y2_75, KAZ_HA) N5;
BENCHMARK(Sleef_powd8_u10_) N5;
BENCHMARK(Libmvec_pow8) N5;
BENCHMARK(Glibc_pow) N5;
BENCHMARK_CAPTURE(Tvx_vsPow, HA, KAZ_HA) N5;
BENCHMARK_CAPTURE(Tvx_vsPow, LA, KAZ_LA) N5;
BENCHMARK_CAPTURE(Tvx_vsPow, EP, KAZ_EP) N5;
BENCHMARK(Sleef_powf16_u10_) N5;
BENCHMARK(Libmvec_powf16) N5;
BENCHMARK(Glibc_powf) N5;
BENCHMARK(Tvx_vdSqrt) N57;
BENCHMARK(Memcpy_floor) N57;
BENCHMARK(Sleef_sqrtd8_u05_) N57;
BENCHMARK(Glibc_sqrt) N57;
BENCHMARK_CAPTURE(Tvx_vdInvSqrt, HA, KAZ_HA) N5;
BENCHMARK_CAPTURE(Tvx_vdInvSqrt, LA, KAZ_LA) N5;
BENCHMARK(Sleef_invsqrt_u05) N5;
BENCHMARK(Glibc_invsqrt) N5;
BENCHMARK_CAPTURE(Tvx_vdCbrt, HA, KAZ_HA) N5;
BENCHMARK_CAPTURE(Tvx_vdCbrt, LA, KAZ_LA) N5;
BENCHMARK_CAPTURE(Tvx_vdCbrt, EP, KAZ_EP) N5;
BENCHMARK(Sleef_cbrtd8_u10_) N5;
BENCHMARK(Sleef_cbrtd8_u35_) N5;
BENCHMARK(Glibc_cbrt) N5;
BENCHMARK_CAPTURE(Tvx_vdHypot, HA, KAZ_HA) N5;
BENCHMARK_CAPTURE(Tvx_vdHypot, LA, KAZ_LA) N5;
BENCHMARK(Sleef_hypotd8_u05_) N5;
BENCHMARK(Glibc_hypot) N5;

}  // namespace
