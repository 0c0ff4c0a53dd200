// Highway's vector Exp and Log (its contrib math library) at AVX2 and AVX-512 width, as loops over
// arrays for the peer benchmarks. The file is compiled once per Highway target (AVX2 and AVX3)
// through Highway's own per-target mechanism, so the program stays plain x86-64 elsewhere.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "bench/peers/hwy_peers.cpp"
#ifndef HWY_TARGETS
#define HWY_TARGETS (HWY_AVX2 | HWY_AVX3)
#endif
#include <hwy/foreach_target.h>  // IWYU pragma: keep
// Highway's headers after foreach_target, as its per-target scheme requires.
#include <hwy/contrib/math/math-inl.h>
#include <hwy/highway.h>

#include <cmath>

#include "bench/peers/hwy_peers.h"

HWY_BEFORE_NAMESPACE();
namespace hwy_peers {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// r[i] = F(a[i]) over full vectors; the last partial vector through the C library.
template <bool kExp, class T>
void Loop(int n, const T* a, T* r) {
  const hn::ScalableTag<T> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  int i = 0;
  for (; i + lanes <= n; i += lanes) {
    const auto v = hn::LoadU(d, a + i);
    hn::StoreU(kExp ? hn::Exp(d, v) : hn::Log(d, v), d, r + i);
  }
  for (; i < n; ++i) r[i] = kExp ? std::exp(a[i]) : std::log(a[i]);
}

void ExpD(int n, const double* a, double* r) {
  Loop<true>(n, a, r);
}
void ExpS(int n, const float* a, float* r) {
  Loop<true>(n, a, r);
}
void LogD(int n, const double* a, double* r) {
  Loop<false>(n, a, r);
}
void LogS(int n, const float* a, float* r) {
  Loop<false>(n, a, r);
}

}  // namespace HWY_NAMESPACE
}  // namespace hwy_peers
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
const HwyPeers kHwyAvx2 = {hwy_peers::N_AVX2::ExpD, hwy_peers::N_AVX2::ExpS,
                           hwy_peers::N_AVX2::LogD, hwy_peers::N_AVX2::LogS};
const HwyPeers kHwyAvx512 = {hwy_peers::N_AVX3::ExpD, hwy_peers::N_AVX3::ExpS,
                             hwy_peers::N_AVX3::LogD, hwy_peers::N_AVX3::LogS};
#endif
