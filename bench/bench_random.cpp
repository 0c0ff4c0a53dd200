// Basic generators: raw words and uniform doubles per second at n = 10^6 in one call, beside
// std::mt19937 and the GSL generators of the same kind (its MRG, R250, MINSTD and RANLUX).
// The uniform exports at n = 10^6 on one thread, beside std::uniform_real_distribution<double>
// over std::mt19937_64 and numpy's Generator(PCG64).random (run by bench_random_numpy.py in the
// same run, timed call by call). Rates are per processor second of this thread (numpy's too), so
// other load on the machine affects them little; ns per element = 10^9 / items_per_second.
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
BENCHMARK_CAPTURE(uniforms, mcg31, RUD_BRNG_MCG31);
BENCHMARK_CAPTURE(uniforms, r250, RUD_BRNG_R250);
BENCHMARK_CAPTURE(uniforms, mrg32k3a, RUD_BRNG_MRG32K3A);
BENCHMARK_CAPTURE(uniforms, mcg59, RUD_BRNG_MCG59);

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
BENCHMARK_CAPTURE(vs_uniform, mrg32k3a, RUD_BRNG_MRG32K3A);
BENCHMARK_CAPTURE(vs_uniform, mcg59, RUD_BRNG_MCG59);
BENCHMARK_CAPTURE(vi_uniform, mrg32k3a, RUD_BRNG_MRG32K3A);
BENCHMARK_CAPTURE(vi_uniform, mcg59, RUD_BRNG_MCG59);
// The only built generator with 32 full bits to give.
BENCHMARK_CAPTURE(vi_uniform_bits32, mcg59, RUD_BRNG_MCG59);

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

// numpy's Generator(PCG64).random(n, out=...): the script times each call in processor time and
// this benchmark reports those times, so the figure sits in the same table as the others.
void numpy_pcg64_random(benchmark::State& state) {
  const std::string command = std::string(TVX_NUMPY_PYTHON) + " " + TVX_NUMPY_SCRIPT + " " +
                              std::to_string(kN) + " " + std::to_string(state.max_iterations);
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
BENCHMARK(numpy_pcg64_random)->UseManualTime()->Iterations(200);

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
BENCHMARK_CAPTURE(gsl_uniforms, minstd, gsl_rng_minstd);
BENCHMARK_CAPTURE(gsl_uniforms, r250, gsl_rng_r250);
BENCHMARK_CAPTURE(gsl_uniforms, mrg, gsl_rng_mrg);
BENCHMARK_CAPTURE(gsl_uniforms, ranlux, gsl_rng_ranlux);

}  // namespace
