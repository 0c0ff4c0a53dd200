// vdSin, vdCos, vdSinCos, vdTan, vsSin and vsCos at each accuracy level (the machine's variant,
// one thread) beside SLEEF's u10 and u35 functions and glibc's vector library at the same width
// (AVX-512: eight doubles, sixteen singles), at n = 1e3, 1e5, 1e7. Inputs are uniform in
// [-pi, pi] ("pi") and in [-1e6, 1e6] ("1e6"); a third set ("huge", n = 1e5 only) has one
// element in eight at a random binary exponent from 2^21 to 2^1023 (2^127 in single), so that
// every register takes the second reduction. vdSin and vdCos also run their AVX2 cells beside
// SLEEF's and glibc's four-lane functions.
// Counters: CPU ns per element ("ns/elem"); the machine is shared, so CPU time is the steadier
// measure.
#include <benchmark/benchmark.h>
#include <immintrin.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "peer_isa.h"
#include "runtime/settings.h"
#include "tvx_vector.h"
#include "vector/frame/rows.h"

#pragma GCC push_options
#pragma GCC target("avx2,fma,avx512f,avx512dq")
extern "C" {
struct SleefD8x2 {
  __m512d x, y;
};
struct SleefF16x2 {
  __m512 x, y;
};
__m512d Sleef_sind8_u10(__m512d);
__m512d Sleef_sind8_u35(__m512d);
__m512d Sleef_cosd8_u10(__m512d);
__m512d Sleef_cosd8_u35(__m512d);
__m512d Sleef_tand8_u10(__m512d);
__m512d Sleef_tand8_u35(__m512d);
SleefD8x2 Sleef_sincosd8_u10(__m512d);
SleefD8x2 Sleef_sincosd8_u35(__m512d);
__m512 Sleef_sinf16_u10(__m512);
__m512 Sleef_sinf16_u35(__m512);
__m512 Sleef_cosf16_u10(__m512);
__m512 Sleef_cosf16_u35(__m512);
__m512d _ZGVeN8v_sin(__m512d);
__m512d _ZGVeN8v_cos(__m512d);
__m512d _ZGVeN8v_tan(__m512d);
void _ZGVeN8vvv_sincos(__m512d, __m512i, __m512i);
__m512 _ZGVeN16v_sinf(__m512);
__m512 _ZGVeN16v_cosf(__m512);
}

namespace {
// One-in, one-out loops over whole registers (the sizes are multiples of 16).
template <__m512d (*F)(__m512d)>
void d8(int n, const double* a, double* r, double*) {
  for (int i = 0; i + 8 <= n; i += 8) _mm512_storeu_pd(r + i, F(_mm512_loadu_pd(a + i)));
}
template <__m512 (*F)(__m512)>
void f16(int n, const float* a, float* r, float*) {
  for (int i = 0; i + 16 <= n; i += 16) _mm512_storeu_ps(r + i, F(_mm512_loadu_ps(a + i)));
}
template <SleefD8x2 (*F)(__m512d)>
void sleef_sincos(int n, const double* a, double* s, double* c) {
  for (int i = 0; i + 8 <= n; i += 8) {
    const SleefD8x2 v = F(_mm512_loadu_pd(a + i));
    _mm512_storeu_pd(s + i, v.x);
    _mm512_storeu_pd(c + i, v.y);
  }
}
// glibc's vector sincos takes a register of addresses for each output.
void libmvec_sincos(int n, const double* a, double* s, double* c) {
  const __m512i lanes = _mm512_setr_epi64(0, 8, 16, 24, 32, 40, 48, 56);
  for (int i = 0; i + 8 <= n; i += 8) {
    const __m512i ps =
        _mm512_add_epi64(_mm512_set1_epi64(reinterpret_cast<long long>(s + i)), lanes);
    const __m512i pc =
        _mm512_add_epi64(_mm512_set1_epi64(reinterpret_cast<long long>(c + i)), lanes);
    _ZGVeN8vvv_sincos(_mm512_loadu_pd(a + i), ps, pc);
  }
}
}  // namespace
#pragma GCC pop_options

#pragma GCC push_options
#pragma GCC target("avx2,fma")
extern "C" {
__m256d Sleef_sind4_u10avx2(__m256d);
__m256d Sleef_sind4_u35avx2(__m256d);
__m256d Sleef_cosd4_u10avx2(__m256d);
__m256d Sleef_cosd4_u35avx2(__m256d);
__m256d _ZGVdN4v_sin(__m256d);
__m256d _ZGVdN4v_cos(__m256d);
}
namespace {
template <__m256d (*F)(__m256d)>
void d4(int n, const double* a, double* r, double*) {
  for (int i = 0; i + 4 <= n; i += 4) _mm256_storeu_pd(r + i, F(_mm256_loadu_pd(a + i)));
}
}  // namespace
#pragma GCC pop_options

namespace {

const int kOneThread = [] {
  tvx_set_num_threads(1);
  tvx_domain_set_num_threads(1, TVX_DOMAIN_KAZ);
  return 1;
}();

template <class T>
const std::vector<T>& inputs(long n, int set) {
  static std::vector<T> v;
  static long have_n = -1;
  static int have_set = -1;
  if (have_n != n || have_set != set) {
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    const int max_exp = sizeof(T) == 8 ? 1023 : 127;
    v.resize(static_cast<size_t>(n));
    for (long i = 0; i < n; ++i) {
      double x = u(rng) * (set == 0 ? M_PI : 1e6);
      if (set == 2 && i % 8 == 3)
        x = std::ldexp(1.0 + std::fabs(x) / 1e6, 21 + rng() % (max_exp - 20));
      v[static_cast<size_t>(i)] = static_cast<T>(x);
    }
    have_n = n;
    have_set = set;
  }
  return v;
}

template <class T>
using Kernel = void (*)(int, const T*, T*, T*);

template <class T>
void run(benchmark::State& state, Kernel<T> f, int set, int variant) {
  if (variant >= 0 && skip_unless_variant_runs(state, variant)) return;
  const long n = state.range(0);
  const std::vector<T>& a = inputs<T>(n, set);
  std::vector<T> r(static_cast<size_t>(n)), z(static_cast<size_t>(n));
  for (auto _ : state) {
    f(static_cast<int>(n), a.data(), r.data(), z.data());
    benchmark::DoNotOptimize(r.data());
    benchmark::ClobberMemory();
  }
  state.counters["ns/elem"] =
      benchmark::Counter(static_cast<double>(n) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

template <unsigned M>
void tvx_sin_d(int n, const double* a, double* r, double*) {
  vmdSin(n, a, r, M);
}
template <unsigned M>
void tvx_cos_d(int n, const double* a, double* r, double*) {
  vmdCos(n, a, r, M);
}
template <unsigned M>
void tvx_tan_d(int n, const double* a, double* r, double*) {
  vmdTan(n, a, r, M);
}
template <unsigned M>
void tvx_sincos_d(int n, const double* a, double* s, double* c) {
  vmdSinCos(n, a, s, c, M);
}
template <unsigned M>
void tvx_sin_s(int n, const float* a, float* r, float*) {
  vmsSin(n, a, r, M);
}
template <unsigned M>
void tvx_cos_s(int n, const float* a, float* r, float*) {
  vmsCos(n, a, r, M);
}

// The AVX2 kernel of a level, straight from its dispatch cell.
template <const tvx::frame::Row<tvx::frame::K_v_v<double>>* R, int kLevel>
void avx2_cell(int n, const double* a, double* r, double*) {
  R->kernels[kAvx2Variant + 6 * (kLevel - 1)](n, a, r);
}

template <class T>
struct Case {
  const char* name;
  Kernel<T> f;
  int variant;  // -1: the library's own choice
};

#define TVX_LEVELS(fn, Name)                                                  \
  {"Tvx_" Name "/HA", fn<KAZ_HA>, -1}, {"Tvx_" Name "/LA", fn<KAZ_LA>, -1}, { \
    "Tvx_" Name "/EP", fn<KAZ_EP>, -1                                         \
  }

const Case<double> kDouble[] = {
    TVX_LEVELS(tvx_sin_d, "vdSin"),
    {"Sleef_sind8_u10", d8<Sleef_sind8_u10>, kAvx512Variant},
    {"Sleef_sind8_u35", d8<Sleef_sind8_u35>, kAvx512Variant},
    {"Libmvec_sin8", d8<_ZGVeN8v_sin>, kAvx512Variant},
    TVX_LEVELS(tvx_cos_d, "vdCos"),
    {"Sleef_cosd8_u10", d8<Sleef_cosd8_u10>, kAvx512Variant},
    {"Sleef_cosd8_u35", d8<Sleef_cosd8_u35>, kAvx512Variant},
    {"Libmvec_cos8", d8<_ZGVeN8v_cos>, kAvx512Variant},
    TVX_LEVELS(tvx_sincos_d, "vdSinCos"),
    {"Sleef_sincosd8_u10", sleef_sincos<Sleef_sincosd8_u10>, kAvx512Variant},
    {"Sleef_sincosd8_u35", sleef_sincos<Sleef_sincosd8_u35>, kAvx512Variant},
    {"Libmvec_sincos8", libmvec_sincos, kAvx512Variant},
    TVX_LEVELS(tvx_tan_d, "vdTan"),
    {"Sleef_tand8_u10", d8<Sleef_tand8_u10>, kAvx512Variant},
    {"Sleef_tand8_u35", d8<Sleef_tand8_u35>, kAvx512Variant},
    {"Libmvec_tan8", d8<_ZGVeN8v_tan>, kAvx512Variant},
    {"Tvx_vdSin_avx2/HA", avx2_cell<&tvx_row_sin_d, 2>, kAvx2Variant},
    {"Tvx_vdSin_avx2/LA", avx2_cell<&tvx_row_sin_d, 1>, kAvx2Variant},
    {"Sleef_sind4_u10avx2", d4<Sleef_sind4_u10avx2>, kAvx2Variant},
    {"Sleef_sind4_u35avx2", d4<Sleef_sind4_u35avx2>, kAvx2Variant},
    {"Libmvec_sin4", d4<_ZGVdN4v_sin>, kAvx2Variant},
    {"Tvx_vdCos_avx2/HA", avx2_cell<&tvx_row_cos_d, 2>, kAvx2Variant},
    {"Tvx_vdCos_avx2/LA", avx2_cell<&tvx_row_cos_d, 1>, kAvx2Variant},
    {"Sleef_cosd4_u10avx2", d4<Sleef_cosd4_u10avx2>, kAvx2Variant},
    {"Sleef_cosd4_u35avx2", d4<Sleef_cosd4_u35avx2>, kAvx2Variant},
    {"Libmvec_cos4", d4<_ZGVdN4v_cos>, kAvx2Variant},
};
const Case<float> kSingle[] = {
    TVX_LEVELS(tvx_sin_s, "vsSin"),
    {"Sleef_sinf16_u10", f16<Sleef_sinf16_u10>, kAvx512Variant},
    {"Sleef_sinf16_u35", f16<Sleef_sinf16_u35>, kAvx512Variant},
    {"Libmvec_sinf16", f16<_ZGVeN16v_sinf>, kAvx512Variant},
    TVX_LEVELS(tvx_cos_s, "vsCos"),
    {"Sleef_cosf16_u10", f16<Sleef_cosf16_u10>, kAvx512Variant},
    {"Sleef_cosf16_u35", f16<Sleef_cosf16_u35>, kAvx512Variant},
    {"Libmvec_cosf16", f16<_ZGVeN16v_cosf>, kAvx512Variant},
};

template <class T, std::size_t N>
void register_cases(const Case<T> (&cases)[N]) {
  static const char* const kSet[] = {"pi", "1e6", "huge"};
  for (int set = 0; set < 3; ++set) {
    for (const Case<T>& c : cases) {
      const std::string name = std::string(c.name) + "/" + kSet[set];
      auto* b = benchmark::RegisterBenchmark(
          name.c_str(), [c, set](benchmark::State& s) { run<T>(s, c.f, set, c.variant); });
      if (set == 2) {
        b->Arg(100000);
      } else {
        b->Arg(1000)->Arg(100000)->Arg(10000000);
      }
    }
  }
}

const int kRegistered = [] {
  register_cases(kDouble);
  register_cases(kSingle);
  return 1;
}();

}  // namespace
