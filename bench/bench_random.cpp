// Basic generators: raw words and uniform doubles per second at n = 10^6 in one call, beside
// std::mt19937 and the GSL generators of the same kind (its MRG, R250, MINSTD and RANLUX).
#include <benchmark/benchmark.h>
#include <gsl/gsl_rng.h>

#include <random>
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
