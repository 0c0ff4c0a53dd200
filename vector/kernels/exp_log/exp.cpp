// Exp and Expm1 kernels, compiled once per instruction-set variant. Which design runs in which
// cell of the dispatch rows:
//   SSE2 (both copies), any level; SSE4.2 row HA reuses the SSE2 kernel:
//       double Exp: N = 64 with low parts, degree 5; single: N = 128 with low parts
//   SSE4.2 LA: double N = 1024 one part, degree 3; SSE4.2 and AVX2 single without table, degree 5
//   AVX2, double, every level: N = 4 held in registers (no gather), degree 8/7/4 (HA/LA/EP)
//   AVX2, HA: single without table, degree 6 with the reduction's rounding carried
//   SSE4.2 EP: double N = 128 one part, degree 2; SSE4.2 and AVX2 single 2^f of degree 3
//   AVX-512: register tables (16 entries double, 32 single), degree 6/6/3 (double LA/HA/EP),
//       single HA degree 3 with low parts; single LA and EP without table, degree 5 and 3
// Expm1 uses N = 128 with low parts on SSE2 to AVX2 and the register tables on AVX-512.
#include "vector/kernels/common/kernel_loop.h"
#include "vector/kernels/exp_log/exp_scalar.h"
#include "vector/kernels/exp_log/exp_table.h"
#if TVX_VARIANT_ID == 5
#include "vector/kernels/exp_log/exp_avx512.h"
#endif

namespace tvx::TVX_VNS {
namespace {

using exp_detail::Acc;
using exp_detail::Limits;
using simd::vec;

inline bool no_error_mode(std::uint32_t mode) {
  return (mode & KAZ_ERRMODE_MASK) == KAZ_ERRMODE_NOERR;
}

template <class T, Acc A>
inline vec<T> exp_main(const vec<T>& x) {
#if TVX_VARIANT_ID == 5
  if constexpr (sizeof(T) == 4 && A != Acc::HA) {
    return exp_detail::exp_f_poly<A>(x);
  } else {
    return exp_detail::exp_avx512<T, A>(x);
  }
#else
#if TVX_VARIANT_ID == 3
  if constexpr (sizeof(T) == 8) return exp_detail::exp_d_reg4<A>(x);
#endif
  if constexpr (TVX_VARIANT_ID == 3 && sizeof(T) == 4 && A == Acc::HA) {
    return exp_detail::exp_f_poly<A>(x);
  } else if constexpr (sizeof(T) == 4 && A == Acc::LA) {
    return exp_detail::exp_f_notable(x);
  } else if constexpr (sizeof(T) == 4 && A == Acc::EP) {
    return exp_detail::exp_f_pow2(x);
  } else {
    return exp_detail::exp_table<T, A>(x);
  }
#endif
}

template <class T, Acc A>
inline vec<T> expm1_main(const vec<T>& x) {
#if TVX_VARIANT_ID == 5
  return exp_detail::expm1_avx512<T, A>(x);
#else
  return exp_detail::expm1_table<T, A>(x);
#endif
}

// Largest |x| (Exp) or x (Expm1) that the vector path takes.
template <class T>
inline constexpr T kVectorRange =
#if TVX_VARIANT_ID == 5
    exp_detail::Avx512Exp<T>::kRange;
#else
    Limits<T>::kTableRange;
#endif

// x with NaN lanes replaced by zero, for the ordered comparisons of the no-error shortcut.
template <class T>
inline vec<T> without_nan(const vec<T>& x) {
  return simd::select(simd::is_nan(x), vec<T>(T(0)), x);
}

template <class E, Acc A>
struct ExpKernel {
  using T = E;
  using V = vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = sizeof(T) == 8 ? "vdExp" : "vsExp";
  static constexpr bool kCleanRuns = true;

  [[gnu::always_inline]] static V vector(const V& x, std::uint32_t& bad, std::uint32_t mode) {
    const auto out = simd::not_less(simd::abs(x), V(kVectorRange<T>));
    bad = simd::bits(out);
    // Lanes that go to the callout compute a harmless value, so that no wild argument raises a
    // flag: on AVX-512 |x| cut to the range (NaN stays, quietly), which keeps the compare off
    // the path of the arithmetic; elsewhere exp(0).
#if TVX_VARIANT_ID == 5
    V y = exp_main<T, A>(simd::clamp_abs(x, kVectorRange<T>));
#else
    V y = exp_main<T, A>(simd::select(out, V(T(0)), x));
#endif
    if (bad != 0 && no_error_mode(mode)) {
      // No report can be made: settle the lanes past the limits in line.
      const V xq = without_nan(x);
      const auto over = xq > V(Limits<T>::kOverflow);
      const auto under = xq < V(Limits<T>::kUnderflow);
      y = simd::select(over, V(std::numeric_limits<T>::infinity()),
                       simd::select(under, V(T(0)), y));
      bad &= ~simd::bits(over || under);
    }
    return y;
  }
  static int callout(T x, T* r) {
    return exp_detail::exp_callout(x, r);
  }
};

template <class E, Acc A>
struct Expm1Kernel {
  using T = E;
  using V = vec<T>;
  static constexpr Env kEnv = Env::kMode;
  static constexpr const char* kName = sizeof(T) == 8 ? "vdExpm1" : "vsExpm1";

  [[gnu::always_inline]] static V vector(const V& x, std::uint32_t& bad, std::uint32_t mode) {
    // -infinity and large negative x stay: the vector path saturates them at -1.
    const auto out = simd::not_less(x, V(kVectorRange<T>));
    bad = simd::bits(out);
    V y = expm1_main<T, A>(simd::select(out, V(T(0)), x));
    if (bad != 0 && no_error_mode(mode)) {
      const V xq = without_nan(x);
      const auto over = xq > V(Limits<T>::kOverflow);
      y = simd::select(over, V(std::numeric_limits<T>::infinity()), y);
      bad &= ~simd::bits(over);
    }
    return y;
  }
  static int callout(T x, T* r) { return exp_detail::expm1_callout(x, r); }
};

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;

#define TVX_EXP_ENTRIES(level, A)                                          \
  extern "C" {                                                             \
  void TVX_ENTRY(kaz_exp_d_##level)(int n, const double* a, double* r) {   \
    run_v_v<ExpKernel<double, A>>(n, a, r);                                \
  }                                                                        \
  void TVX_ENTRY(kaz_exp_s_##level)(int n, const float* a, float* r) {     \
    run_v_v<ExpKernel<float, A>>(n, a, r);                                 \
  }                                                                        \
  void TVX_ENTRY(kaz_expm1_d_##level)(int n, const double* a, double* r) { \
    run_v_v<Expm1Kernel<double, A>>(n, a, r);                              \
  }                                                                        \
  void TVX_ENTRY(kaz_expm1_s_##level)(int n, const float* a, float* r) {   \
    run_v_v<Expm1Kernel<float, A>>(n, a, r);                               \
  }                                                                        \
  }

// The SSE2 copies serve every row; SSE4.2 has LA and EP kernels of its own.
#if TVX_VARIANT_ID != 2
TVX_EXP_ENTRIES(ha, Acc::HA)
#endif
#if TVX_VARIANT_ID >= 2
TVX_EXP_ENTRIES(la, Acc::LA)
TVX_EXP_ENTRIES(ep, Acc::EP)
#endif
