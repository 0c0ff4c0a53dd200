// LGamma and TGamma kernels, compiled once per instruction-set variant. They have no vector
// arithmetic: every element goes to the scalar routine of gamma_scalar.h, which works in the
// 80-bit format; the frame only carries the blocks, the reports and the environment. One kernel
// per variant serves every accuracy level.
#include "vector/kernels/common/kernel_loop.h"
#include "vector/kernels/erfgamma/gamma_scalar.h"

namespace tvx::TVX_VNS {
namespace {

using simd::vec;

template <class E, bool kLog>
struct GammaKernel {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = kLog ? (sizeof(T) == 8 ? "vdLGamma" : "vsLGamma")
                                            : (sizeof(T) == 8 ? "vdTGamma" : "vsTGamma");
  static vec<T> vector(const vec<T>& x, std::uint32_t& bad, std::uint32_t) {
    bad = static_cast<std::uint32_t>((std::uint64_t(1) << simd::lanes<T>)-1);
    return x;
  }
  static int callout(T x, T* r) {
    if constexpr (kLog) {
      return special::lgamma_callout(x, r);
    } else {
      return special::tgamma_callout(x, r);
    }
  }
};

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;

extern "C" {
void TVX_ENTRY(kaz_lgamma_d_ha)(int n, const double* a, double* r) {
  run_v_v<GammaKernel<double, true>>(n, a, r);
}
void TVX_ENTRY(kaz_lgamma_s_ha)(int n, const float* a, float* r) {
  run_v_v<GammaKernel<float, true>>(n, a, r);
}
void TVX_ENTRY(kaz_tgamma_d_ha)(int n, const double* a, double* r) {
  run_v_v<GammaKernel<double, false>>(n, a, r);
}
void TVX_ENTRY(kaz_tgamma_s_ha)(int n, const float* a, float* r) {
  run_v_v<GammaKernel<float, false>>(n, a, r);
}
}
