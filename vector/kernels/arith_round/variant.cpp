// Arithmetic kernels, compiled once per instruction-set variant.
#include "vector/kernels/common/kernel_loop.h"

namespace tvx::TVX_VNS {
namespace {

using simd::vec;

template <class E, bool kSub>
struct AddSub {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = kSub ? (sizeof(T) == 8 ? "vdSub" : "vsSub")
                                            : (sizeof(T) == 8 ? "vdAdd" : "vsAdd");
  static vec<T> vector(const vec<T>& a, const vec<T>& b, std::uint32_t&, std::uint32_t) {
    return kSub ? a - b : a + b;
  }
  static int callout(T a, T b, T* r) {
    *r = kSub ? a - b : a + b;
    return 0;
  }
};

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;

extern "C" {
void TVX_ENTRY(kaz_add_d_ha)(int n, const double* a, const double* b, double* r) {
  run_vv_v<AddSub<double, false>>(n, a, b, r);
}
void TVX_ENTRY(kaz_add_s_ha)(int n, const float* a, const float* b, float* r) {
  run_vv_v<AddSub<float, false>>(n, a, b, r);
}
void TVX_ENTRY(kaz_sub_d_ha)(int n, const double* a, const double* b, double* r) {
  run_vv_v<AddSub<double, true>>(n, a, b, r);
}
void TVX_ENTRY(kaz_sub_s_ha)(int n, const float* a, const float* b, float* r) {
  run_vv_v<AddSub<float, true>>(n, a, b, r);
}
}
