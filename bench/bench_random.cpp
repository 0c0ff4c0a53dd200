// Basic generators: raw words and uniform doubles per second at n = 10^6 in one call, beside
// std::mt19937 and the GSL generators of the same kind (its MRG, R250, MINSTD and RANLUX).
// The uniform exports at n = 10^6 on one thread, beside std::uniform_real_distribution<double>
// over std::mt19937_64 and numpy's Generator(PCG64).random (run by bench_random_numpy.py in the
// same run, timed call by call). Rates are per processor second of this thread (numpy's too), so
// other load on the machine affects them little; ns per element = 10^9 / items_per_second.
// The counter-based generators beside Random123's philox4x32 and ars4x32 (its headers, built
// -march=native, a plain loop of one block per counter) and numpy's Philox bit generator.
#include <Random123/ars.h>
#include <Random123/philox.h>
#include <benchmark/benchmark.h>
#include <gsl/gsl_rng.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "tvx_random.h"

namespace {

constexpr int kN = 1000000;

void words(benchmark::State& state, int brng) {
  RudStreamPtr s = nullptr;
  rudNewStream(&s, brng, 12345);
  RudBrngProperties p;
  rudGetBrngProperties(brng, &p);
  std::vector<unsigned int> r(static_cast<std::size_t>(kN) * (p.WordSize / 4));
  for (auto _ : state) {
    p.iBRng(s, kN, r.data());
    benchmark::DoNotOptimize(r.data());
  }
  state.SetItemsProcessed(state.iterations() * kN);
  rudDeleteStream(&s);
}

void uniforms(benchmark::State& state, int brng) {
  RudStreamPtr s = nullptr;
  rudNewStream(&s, brng, 12345);
  RudBrngProperties p;
  rudGetBrngProperties(brng, &p);
  std::vector<double> r(kN);
  for (auto _ : state) {
    p.dBRng(s, kN, r.data(), 0.0, 1.0);
    benchmark::DoNotOptimize(r.data());
  }
  state.SetItemsProcessed(state.iterations() * kN);
  rudDeleteStream(&s);
}

BENCHMARK_CAPTURE(words, mcg31, RUD_BRNG_MCG31);
BENCHMARK_CAPTURE(words, r250, RUD_BRNG_R250);
BENCHMARK_CAPTURE(words, mrg32k3a, RUD_BRNG_MRG32K3A);
BENCHMARK_CAPTURE(words, mcg59, RUD_BRNG_MCG59);
BENCHMARK_CAPTURE(words, philox4x32x10, RUD_BRNG_PHILOX4X32X10);
BENCHMARK_CAPTURE(words, ars5, RUD_BRNG_ARS5);
BENCHMARK_CAPTURE(words, nondeterm, RUD_BRNG_NONDETERM);
BENCHMARK_CAPTURE(words, mt19937, RUD_BRNG_MT19937);
BENCHMARK_CAPTURE(words, sfmt19937, RUD_BRNG_SFMT19937);
BENCHMARK_CAPTURE(uniforms, mcg31, RUD_BRNG_MCG31);
BENCHMARK_CAPTURE(uniforms, r250, RUD_BRNG_R250);
BENCHMARK_CAPTURE(uniforms, mrg32k3a, RUD_BRNG_MRG32K3A);
BENCHMARK_CAPTURE(uniforms, mcg59, RUD_BRNG_MCG59);
BENCHMARK_CAPTURE(uniforms, philox4x32x10, RUD_BRNG_PHILOX4X32X10);
BENCHMARK_CAPTURE(uniforms, ars5, RUD_BRNG_ARS5);
BENCHMARK_CAPTURE(uniforms, mt19937, RUD_BRNG_MT19937);
BENCHMARK_CAPTURE(uniforms, sfmt19937, RUD_BRNG_SFMT19937);

// A skip-ahead by 10^15 words: the polynomial power and the windowed Horner rule, per call.
void twister_jump(benchmark::State& state, int brng) {
  RudStreamPtr s = nullptr;
  rudNewStream(&s, brng, 12345);
  for (auto _ : state) rudSkipAheadStream(s, 1000000000000000ll);
  rudDeleteStream(&s);
}
BENCHMARK_CAPTURE(twister_jump, mt19937, RUD_BRNG_MT19937)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(twister_jump, sfmt19937, RUD_BRNG_SFMT19937)->Unit(benchmark::kMillisecond);

// Random123's counter-based generators: n words from consecutive counters, one block a call.
template <class Block>
void r123_words(benchmark::State& state, Block block) {
  std::vector<unsigned int> r(kN);
  std::uint32_t counter = 0;
  for (auto _ : state) {
    for (int i = 0; i < kN; i += 4) block(counter++, r.data() + i);
    benchmark::DoNotOptimize(r.data());
  }
  state.SetItemsProcessed(state.iterations() * kN);
}
void r123_philox4x32_10(benchmark::State& state) {
  const philox4x32_key_t key = {{12345u, 0u}};
  r123_words(state, [&](std::uint32_t c, unsigned int* out) {
    const philox4x32_ctr_t ctr = {{c, 0u, 0u, 0u}};
    const philox4x32_ctr_t v = philox4x32_R(10, ctr, key);
    for (int j = 0; j < 4; ++j) out[j] = v.v[j];
  });
}
BENCHMARK(r123_philox4x32_10);
void r123_ars4x32_5(benchmark::State& state) {
  const ars4x32_key_t key = {{12345u, 0u, 0u, 0u}};
  r123_words(state, [&](std::uint32_t c, unsigned int* out) {
    const ars4x32_ctr_t ctr = {{c, 0u, 0u, 0u}};
    const ars4x32_ctr_t v = ars4x32_R(5, ctr, key);
    for (int j = 0; j < 4; ++j) out[j] = v.v[j];
  });
}
BENCHMARK(r123_ars4x32_5);

// ---- Uniform exports ---------------------------------------------------------------------------
void per_element(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * kN);
}

template <class T, class Call>
void uniform_export(benchmark::State& state, int brng, Call call) {
  RudStreamPtr s = nullptr;
  rudNewStream(&s, brng, 12345);
  std::vector<T> r(kN);
  for (auto _ : state) {
    if (call(s, r.data()) != 0) state.SkipWithError("the export refused the call");
    benchmark::DoNotOptimize(r.data());
  }
  per_element(state);
  rudDeleteStream(&s);
}

void vd_uniform(benchmark::State& state, int brng) {
  uniform_export<double>(state, brng,
                         [](RudStreamPtr s, double* r) { return vdRngUniform(0, s, kN, r, 0, 1); });
}
void vs_uniform(benchmark::State& state, int brng) {
  uniform_export<float>(state, brng,
                        [](RudStreamPtr s, float* r) { return vsRngUniform(0, s, kN, r, 0, 1); });
}
void vi_uniform(benchmark::State& state, int brng) {
  uniform_export<int>(state, brng,
                      [](RudStreamPtr s, int* r) { return viRngUniform(0, s, kN, r, 0, 1000); });
}
void vi_uniform_bits32(benchmark::State& state, int brng) {
  uniform_export<unsigned>(
      state, brng, [](RudStreamPtr s, unsigned* r) { return viRngUniformBits32(0, s, kN, r); });
}

BENCHMARK_CAPTURE(vd_uniform, mcg31, RUD_BRNG_MCG31);
BENCHMARK_CAPTURE(vd_uniform, r250, RUD_BRNG_R250);
BENCHMARK_CAPTURE(vd_uniform, mrg32k3a, RUD_BRNG_MRG32K3A);
BENCHMARK_CAPTURE(vd_uniform, mcg59, RUD_BRNG_MCG59);
BENCHMARK_CAPTURE(vd_uniform, mt19937, RUD_BRNG_MT19937);
BENCHMARK_CAPTURE(vd_uniform, sfmt19937, RUD_BRNG_SFMT19937);
BENCHMARK_CAPTURE(vs_uniform, mrg32k3a, RUD_BRNG_MRG32K3A);
BENCHMARK_CAPTURE(vs_uniform, mcg59, RUD_BRNG_MCG59);
BENCHMARK_CAPTURE(vi_uniform, mrg32k3a, RUD_BRNG_MRG32K3A);
BENCHMARK_CAPTURE(vi_uniform, mcg59, RUD_BRNG_MCG59);
// The generators with 32 full bits to give.
BENCHMARK_CAPTURE(vi_uniform_bits32, mcg59, RUD_BRNG_MCG59);
BENCHMARK_CAPTURE(vi_uniform_bits32, mt19937, RUD_BRNG_MT19937);

// ---- Gaussian and Exponential beside std and numpy ----------------------------------------------
// vdRngGaussian by each method and vdRngExponential at n = 10^6 on MCG59 and MRG32k3a, beside
// std::normal_distribution<double> and std::exponential_distribution<double> over std::mt19937_64
// and numpy's Generator(PCG64).standard_normal / standard_exponential (numpy_peer, modes "normal"
// and "exponential"). A method whose vector kernels are not in the build reports an error row.
void vd_gaussian(benchmark::State& state, int brng, int method) {
  uniform_export<double>(state, brng, [method](RudStreamPtr s, double* r) {
    return vdRngGaussian(method, s, kN, r, 0.0, 1.0);
  });
}
void vs_gaussian(benchmark::State& state, int brng, int method) {
  uniform_export<float>(state, brng, [method](RudStreamPtr s, float* r) {
    return vsRngGaussian(method, s, kN, r, 0.0f, 1.0f);
  });
}
void vd_exponential(benchmark::State& state, int brng) {
  uniform_export<double>(state, brng, [](RudStreamPtr s, double* r) {
    return vdRngExponential(0, s, kN, r, 0.0, 1.0);
  });
}
BENCHMARK_CAPTURE(vd_gaussian, boxmuller_mcg59, RUD_BRNG_MCG59, RUD_RNG_METHOD_GAUSSIAN_BOXMULLER);
BENCHMARK_CAPTURE(vd_gaussian, boxmuller2_mcg59, RUD_BRNG_MCG59,
                  RUD_RNG_METHOD_GAUSSIAN_BOXMULLER2);
BENCHMARK_CAPTURE(vd_gaussian, icdf_mcg59, RUD_BRNG_MCG59, RUD_RNG_METHOD_GAUSSIAN_ICDF);
BENCHMARK_CAPTURE(vd_gaussian, boxmuller_mrg32k3a, RUD_BRNG_MRG32K3A,
                  RUD_RNG_METHOD_GAUSSIAN_BOXMULLER);
BENCHMARK_CAPTURE(vd_gaussian, boxmuller2_mrg32k3a, RUD_BRNG_MRG32K3A,
                  RUD_RNG_METHOD_GAUSSIAN_BOXMULLER2);
BENCHMARK_CAPTURE(vd_gaussian, icdf_mrg32k3a, RUD_BRNG_MRG32K3A, RUD_RNG_METHOD_GAUSSIAN_ICDF);
BENCHMARK_CAPTURE(vs_gaussian, boxmuller2_mcg59, RUD_BRNG_MCG59,
                  RUD_RNG_METHOD_GAUSSIAN_BOXMULLER2);
BENCHMARK_CAPTURE(vs_gaussian, icdf_mcg59, RUD_BRNG_MCG59, RUD_RNG_METHOD_GAUSSIAN_ICDF);
BENCHMARK_CAPTURE(vd_exponential, mcg59, RUD_BRNG_MCG59);
BENCHMARK_CAPTURE(vd_exponential, mrg32k3a, RUD_BRNG_MRG32K3A);

template <class Distribution>
void std_distribution_mt19937_64(benchmark::State& state) {
  std::mt19937_64 g(12345);
  Distribution d;
  std::vector<double> r(kN);
  for (auto _ : state) {
    for (auto& x : r) x = d(g);
    benchmark::DoNotOptimize(r.data());
  }
  per_element(state);
}
BENCHMARK_TEMPLATE(std_distribution_mt19937_64, std::normal_distribution<double>);
BENCHMARK_TEMPLATE(std_distribution_mt19937_64, std::exponential_distribution<double>);

// ---- Peers ------------------------------------------------------------------------------------
void std_mt19937_words(benchmark::State& state) {
  std::mt19937 g(12345);
  std::vector<unsigned int> r(kN);
  for (auto _ : state) {
    for (auto& x : r) x = static_cast<unsigned int>(g());
    benchmark::DoNotOptimize(r.data());
  }
  state.SetItemsProcessed(state.iterations() * kN);
}
BENCHMARK(std_mt19937_words);

// One word per double, x 2^-32: the cheapest comparable conversion.
void std_mt19937_uniforms(benchmark::State& state) {
  std::mt19937 g(12345);
  std::vector<double> r(kN);
  for (auto _ : state) {
    for (auto& x : r) x = static_cast<double>(g()) * 0x1p-32;
    benchmark::DoNotOptimize(r.data());
  }
  state.SetItemsProcessed(state.iterations() * kN);
}
BENCHMARK(std_mt19937_uniforms);

// The standard pair a C++ user reaches for.
void std_uniform_real_mt19937_64(benchmark::State& state) {
  std::mt19937_64 g(12345);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::vector<double> r(kN);
  for (auto _ : state) {
    for (auto& x : r) x = u(g);
    benchmark::DoNotOptimize(r.data());
  }
  per_element(state);
}
BENCHMARK(std_uniform_real_mt19937_64);

// numpy's Generator(PCG64) calls: the script times each call in processor time and
// this benchmark reports those times, so the figure sits in the same table as the others.
void numpy_peer(benchmark::State& state, const char* mode) {
  const std::string command = std::string(TVX_NUMPY_PYTHON) + " " + TVX_NUMPY_SCRIPT + " " +
                              std::to_string(kN) + " " + std::to_string(state.max_iterations) +
                              " " + mode;
  std::vector<double> seconds;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    double t;
    while (std::fscanf(pipe, "%lf", &t) == 1) seconds.push_back(t);
    pclose(pipe);
  }
  if (seconds.size() < static_cast<std::size_t>(state.max_iterations)) {
    state.SkipWithError("numpy (Debian python3-numpy) is not available");
    for (auto _ : state) {
    }
    return;
  }
  std::size_t i = 0;
  for (auto _ : state) state.SetIterationTime(seconds[i++]);
  per_element(state);
}
BENCHMARK_CAPTURE(numpy_peer, pcg64_random, "random")->UseManualTime()->Iterations(200);
// numpy's Philox is Philox4x64-10: the row counts 32-bit words' worth (N / 2 64-bit words).
BENCHMARK_CAPTURE(numpy_peer, philox_words, "philox")->UseManualTime()->Iterations(200);
// numpy's MT19937 bit generator: N 32-bit words per call, and N doubles from Generator(MT19937).
BENCHMARK_CAPTURE(numpy_peer, mt19937_words, "mt19937")->UseManualTime()->Iterations(200);
BENCHMARK_CAPTURE(numpy_peer, mt19937_random, "mt19937_random")->UseManualTime()->Iterations(200);
// numpy's Generator(PCG64).standard_normal and standard_exponential into preallocated arrays.
BENCHMARK_CAPTURE(numpy_peer, pcg64_standard_normal, "normal")->UseManualTime()->Iterations(200);
BENCHMARK_CAPTURE(numpy_peer, pcg64_standard_exponential, "exponential")
    ->UseManualTime()
    ->Iterations(200);

void gsl_words(benchmark::State& state, const gsl_rng_type* type) {
  gsl_rng* g = gsl_rng_alloc(type);
  gsl_rng_set(g, 12345);
  std::vector<unsigned long> r(kN);
  for (auto _ : state) {
    for (auto& x : r) x = gsl_rng_get(g);
    benchmark::DoNotOptimize(r.data());
  }
  state.SetItemsProcessed(state.iterations() * kN);
  gsl_rng_free(g);
}

void gsl_uniforms(benchmark::State& state, const gsl_rng_type* type) {
  gsl_rng* g = gsl_rng_alloc(type);
  gsl_rng_set(g, 12345);
  std::vector<double> r(kN);
  for (auto _ : state) {
    for (auto& x : r) x = gsl_rng_uniform(g);
    benchmark::DoNotOptimize(r.data());
  }
  state.SetItemsProcessed(state.iterations() * kN);
  gsl_rng_free(g);
}

BENCHMARK_CAPTURE(gsl_words, minstd, gsl_rng_minstd);
BENCHMARK_CAPTURE(gsl_words, r250, gsl_rng_r250);
BENCHMARK_CAPTURE(gsl_words, mrg, gsl_rng_mrg);
BENCHMARK_CAPTURE(gsl_words, ranlux, gsl_rng_ranlux);
BENCHMARK_CAPTURE(gsl_words, mt19937, gsl_rng_mt19937);
BENCHMARK_CAPTURE(gsl_uniforms, minstd, gsl_rng_minstd);
BENCHMARK_CAPTURE(gsl_uniforms, r250, gsl_rng_r250);
BENCHMARK_CAPTURE(gsl_uniforms, mrg, gsl_rng_mrg);
BENCHMARK_CAPTURE(gsl_uniforms, ranlux, gsl_rng_ranlux);
BENCHMARK_CAPTURE(gsl_uniforms, mt19937, gsl_rng_mt19937);

}  // namespace
