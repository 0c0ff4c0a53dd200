// Powers and roots, compiled once per instruction-set variant: Pow, Powx, Pow2o3, Pow3o2, Sqrt,
// InvSqrt, Cbrt, InvCbrt and Hypot in double and single (algorithms in roots.h and pow.h).
//
// Kernels by cell: the SSE2 copies hold the HA design for every row; SSE4.2, AVX2 and AVX-512
// have LA, HA and EP kernels where the levels differ (Pow, Cbrt, InvCbrt, Pow2o3; InvSqrt,
// Pow3o2 and Hypot in double, whose LA kernel also serves EP). Sqrt and the single InvSqrt,
// Pow3o2 and Hypot have one kernel per variant.
//
// Powx looks at its exponent once and hands the whole vector to another kernel of its own
// dispatch slot where the value has one: 0.5 Sqrt, -0.5 InvSqrt, 1.5 Pow3o2, -1 Inv (and -2, -3,
// -4 as Inv followed by a chain of products), at EP also 1/3 Cbrt, -1/3 InvCbrt, 2/3 Pow2o3; a
// copy for 1 and a chain of y - 1 products, left to right, for 2 to 9. Any other exponent runs
// the Pow algorithm of the slot's Pow cell with y broadcast, so the bits are those of Pow.
#include <cstring>

#include "vector/frame/rows.h"
#include "vector/kernels/common/kernel_loop.h"
#include "vector/kernels/pow/pow.h"
#include "vector/kernels/pow/roots.h"

namespace tvx::TVX_VNS {
namespace {

using pow_detail::Acc;

// a^k for k = 2..9 by k - 1 products left to right: ((a a) a) ... a.
template <class E>
struct ChainK {
  using T = E;
  using V = simd::vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = sizeof(T) == 8 ? "vdPowx" : "vsPowx";
  static constexpr int kUnroll = 2;
  static V vector(const V& x, int k, std::uint32_t&, std::uint32_t) {
    V y = x;
    for (int i = 1; i < k; ++i) y = y * x;
    return y;
  }
  static int callout(T x, int, T* r) {
    *r = x;
    return 0;
  }
};

template <class T>
const tvx::frame::Row<tvx::frame::K_v_v<T>>& row_of(
    const tvx::frame::Row<tvx::frame::K_v_v<double>>& d,
    const tvx::frame::Row<tvx::frame::K_v_v<float>>& s) {
  if constexpr (sizeof(T) == 8) {
    return d;
  } else {
    return s;
  }
}

// kLevel: the accuracy row of this Powx cell; kPowLevel: the design of the Pow cell in the same
// slot, whose bits the general case repeats.
template <class T, Acc kLevel, Acc kPowLevel>
void powx(int n, const T* a, T y, T* r) {
  if (n <= 0) return;
  constexpr int kSlot = kVariantId + 6 * (kLevel == Acc::LA ? 0 : kLevel == Acc::HA ? 1 : 2);
  const auto call = [&](const auto& row) { row.kernels[kSlot](n, a, r); };
  if (y == T(1)) {
    if (a != r) std::memmove(r, a, static_cast<size_t>(n) * sizeof(T));
    return;
  }
  for (int k = 2; k <= 9; ++k) {
    if (y == T(k)) {
      run_v_v<ChainK<T>>(n, a, r, k);
      return;
    }
  }
  if (y == T(-1) || y == T(-2) || y == T(-3) || y == T(-4)) {
    call(row_of<T>(tvx_row_inv_d, tvx_row_inv_s));
    if (y != T(-1)) run_v_v<ChainK<T>>(n, r, r, static_cast<int>(-y));
    return;
  }
  if (y == T(0.5)) return call(row_of<T>(tvx_row_sqrt_d, tvx_row_sqrt_s));
  if (y == T(-0.5)) return call(row_of<T>(tvx_row_invsqrt_d, tvx_row_invsqrt_s));
  if (y == T(1.5)) return call(row_of<T>(tvx_row_pow3o2_d, tvx_row_pow3o2_s));
  if constexpr (kLevel == Acc::EP) {
    if (y == T(1) / T(3)) return call(row_of<T>(tvx_row_cbrt_d, tvx_row_cbrt_s));
    if (y == T(-1) / T(3)) return call(row_of<T>(tvx_row_invcbrt_d, tvx_row_invcbrt_s));
    if (y == T(2) / T(3)) return call(row_of<T>(tvx_row_pow2o3_d, tvx_row_pow2o3_s));
  }
  run_vs_v<pow_detail::PowK<T, kPowLevel, true>>(n, a, y, r);
}

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;
using namespace tvx::TVX_VNS::pow_detail;

#define TVX_POW_V_V(lname, t, T, level, ...)                             \
  void TVX_ENTRY(kaz_##lname##_##t##_##level)(int n, const T* a, T* r) { \
    run_v_v<__VA_ARGS__>(n, a, r);                                       \
  }
#define TVX_POW_VV_V(lname, t, T, level, ...)                                        \
  void TVX_ENTRY(kaz_##lname##_##t##_##level)(int n, const T* a, const T* b, T* r) { \
    run_vv_v<__VA_ARGS__>(n, a, b, r);                                               \
  }

// Kernels that differ by level in both types.
#define TVX_POW_LEVEL_ENTRIES(level, A)                        \
  extern "C" {                                                 \
  TVX_POW_V_V(cbrt, d, double, level, RootK<double, 1, A>)     \
  TVX_POW_V_V(cbrt, s, float, level, RootK<float, 1, A>)       \
  TVX_POW_V_V(invcbrt, d, double, level, RootK<double, -1, A>) \
  TVX_POW_V_V(invcbrt, s, float, level, RootK<float, -1, A>)   \
  TVX_POW_V_V(pow2o3, d, double, level, RootK<double, 2, A>)   \
  TVX_POW_V_V(pow2o3, s, float, level, RootK<float, 2, A>)     \
  TVX_POW_VV_V(pow, d, double, level, PowK<double, A>)         \
  TVX_POW_VV_V(pow, s, float, level, PowK<float, A>)           \
  }
// Kernels with an LA design (also run at EP) in double only.
#define TVX_POW_LA_ENTRIES(level, A)                          \
  extern "C" {                                                \
  TVX_POW_V_V(invsqrt, d, double, level, InvSqrtK<double, A>) \
  TVX_POW_V_V(pow3o2, d, double, level, Pow3o2K<double, A>)   \
  TVX_POW_VV_V(hypot, d, double, level, HypotK<double, A>)    \
  }

// Powx: one kernel per level on every variant but the second SSE2 copy.
#define TVX_POWX_ENTRY(level, A, P)                                                 \
  extern "C" {                                                                      \
  void TVX_ENTRY(kaz_powx_d_##level)(int n, const double* a, double y, double* r) { \
    powx<double, A, P>(n, a, y, r);                                                 \
  }                                                                                 \
  void TVX_ENTRY(kaz_powx_s_##level)(int n, const float* a, float y, float* r) {    \
    powx<float, A, P>(n, a, y, r);                                                  \
  }                                                                                 \
  }

extern "C" {
TVX_POW_V_V(sqrt, d, double, ha, SqrtK<double>)
TVX_POW_V_V(sqrt, s, float, ha, SqrtK<float>)
TVX_POW_V_V(invsqrt, s, float, ha, InvSqrtK<float, Acc::HA>)
TVX_POW_V_V(pow3o2, s, float, ha, Pow3o2K<float, Acc::HA>)
TVX_POW_VV_V(hypot, s, float, ha, HypotK<float, Acc::HA>)
}
TVX_POW_LEVEL_ENTRIES(ha, Acc::HA)
TVX_POW_LA_ENTRIES(ha, Acc::HA)
TVX_POWX_ENTRY(ha, Acc::HA, Acc::HA)
#if TVX_VARIANT_ID >= 2
TVX_POW_LEVEL_ENTRIES(la, Acc::LA)
TVX_POW_LEVEL_ENTRIES(ep, Acc::EP)
TVX_POW_LA_ENTRIES(la, Acc::LA)
TVX_POWX_ENTRY(la, Acc::LA, Acc::LA)
TVX_POWX_ENTRY(ep, Acc::EP, Acc::EP)
#elif TVX_VARIANT_ID == 0
// The first SSE2 copy tells the levels apart only in Powx's choice of kernel.
TVX_POWX_ENTRY(la, Acc::LA, Acc::HA)
TVX_POWX_ENTRY(ep, Acc::EP, Acc::HA)
#endif
