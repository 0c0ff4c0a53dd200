// Arithmetic and rounding kernels, compiled once per instruction-set variant. The entry names
// are the dispatch-row cells of functions.def: kaz_<function>_<type>_<level>_<variant>. Functions
// without accuracy levels have one `ha` kernel per variant; where the rows keep a kernel of their
// own per level on variants 2, 3 and 5, the same algorithm is entered under la, ha and ep.
#include "vector/kernels/arith_round/basic.h"
#include "vector/kernels/arith_round/divide.h"
#include "vector/kernels/arith_round/rounding.h"

using namespace tvx::TVX_VNS;
using namespace tvx::TVX_VNS::arith;

#define TVX_LEVELED (TVX_VARIANT_ID >= 2)

// Entry definitions by arity class; `fn` is the lower-case function, `t` the type letter.
#define TVX_VV(fn, t, T, lvl, ...)                                                         \
  extern "C" void TVX_ENTRY(kaz_##fn##_##t##_##lvl)(int n, const T* a, const T* b, T* r) { \
    run_vv_v<__VA_ARGS__>(n, a, b, r);                                                     \
  }
#define TVX_V(fn, t, T, lvl, ...)                                              \
  extern "C" void TVX_ENTRY(kaz_##fn##_##t##_##lvl)(int n, const T* a, T* r) { \
    run_v_v<__VA_ARGS__>(n, a, r);                                             \
  }
#define TVX_V2(fn, t, T, lvl, ...)                                                     \
  extern "C" void TVX_ENTRY(kaz_##fn##_##t##_##lvl)(int n, const T* a, T* r1, T* r2) { \
    run_v_vv<__VA_ARGS__>(n, a, r1, r2);                                               \
  }

// One kernel, or the same algorithm under the three level names on variants 2, 3, 5.
#if TVX_LEVELED
#define TVX_LEVELS(M, fn, t, T, ...) \
  M(fn, t, T, la, __VA_ARGS__) M(fn, t, T, ha, __VA_ARGS__) M(fn, t, T, ep, __VA_ARGS__)
#else
#define TVX_LEVELS(M, fn, t, T, ...) M(fn, t, T, ha, __VA_ARGS__)
#endif

// ---- Add, Sub, Mul, Sqr, Abs --------------------------------------------------------------------
TVX_LEVELS(TVX_VV, add, d, double, Binary<double, Op::kAdd>)
TVX_VV(add, s, float, ha, Binary<float, Op::kAdd>)
TVX_VV(sub, d, double, ha, Binary<double, Op::kSub>)
TVX_VV(sub, s, float, ha, Binary<float, Op::kSub>)
TVX_VV(mul, d, double, ha, Binary<double, Op::kMul>)
TVX_LEVELS(TVX_VV, mul, s, float, Binary<float, Op::kMul>)
TVX_V(sqr, d, double, ha, Sqr<double>)
TVX_V(sqr, s, float, ha, Sqr<float>)
TVX_LEVELS(TVX_V, abs, d, double, Abs<double>)
TVX_V(abs, s, float, ha, Abs<float>)

// ---- rounding -----------------------------------------------------------------------------------
TVX_V(floor, d, double, ha, Directed<double, Dir::kFloor>)
TVX_V(floor, s, float, ha, Directed<float, Dir::kFloor>)
TVX_LEVELS(TVX_V, ceil, d, double, Directed<double, Dir::kCeil>)
TVX_V(ceil, s, float, ha, Directed<float, Dir::kCeil>)
TVX_LEVELS(TVX_V, trunc, d, double, Directed<double, Dir::kTrunc>)
TVX_V(trunc, s, float, ha, Directed<float, Dir::kTrunc>)
TVX_LEVELS(TVX_V, round, d, double, RoundK<double>)
TVX_V(round, s, float, ha, RoundK<float>)
TVX_V(rint, d, double, ha, RintK<double, false>)
TVX_LEVELS(TVX_V, rint, s, float, RintK<float, false>)
TVX_LEVELS(TVX_V2, modf, d, double, ModfK<double>)
TVX_V2(modf, s, float, ha, ModfK<float>)

// NearbyInt on the SSE2 variants rounds by arithmetic in the caller's mode, which raises the
// inexact flag; the flag is taken back unless the caller had it already.
template <class T>
static void nearby_int(int n, const T* a, T* r) {
  if constexpr (simd::kHasRound) {
    run_v_v<RintK<T, true>>(n, a, r);
  } else {
    if (n <= 0) return;
    const unsigned had = _mm_getcsr() & 0x20u;
    run_v_v<RintK<T, true>>(n, a, r);
    if (had == 0) _mm_setcsr(_mm_getcsr() & ~0x20u);
  }
}
extern "C" void TVX_ENTRY(kaz_nearbyint_d_ha)(int n, const double* a, double* r) {
  nearby_int(n, a, r);
}
extern "C" void TVX_ENTRY(kaz_nearbyint_s_ha)(int n, const float* a, float* r) {
  nearby_int(n, a, r);
}

// ---- Div, Inv -----------------------------------------------------------------------------------
// Double: a true divide on variants 0 to 2 (one kernel for every level), and on variant 3 for LA
// and HA; the reciprocal forms on variant 3 (Div EP, Inv LA and EP) and on variant 5.
#if TVX_VARIANT_ID != 5
TVX_VV(div, d, double, ha, DivExact<double>)
TVX_V(inv, d, double, ha, InvExact<double>)
#endif
#if TVX_VARIANT_ID == 3
TVX_VV(div, d, double, ep, DivRcp<double, Rcp::kCubic, false>)
TVX_V(inv, d, double, la, InvRcp<double, Rcp::kCubicNewton, false>)
TVX_V(inv, d, double, ep, InvRcp<double, Rcp::kCubic, false>)
#elif TVX_VARIANT_ID == 5
TVX_VV(div, d, double, la, DivRcp<double, Rcp::kQuintic, false>)
TVX_VV(div, d, double, ha, DivRcp<double, Rcp::kCubic, true>)
TVX_VV(div, d, double, ep, DivRcp<double, Rcp::kNewton, false>)
TVX_V(inv, d, double, la, InvRcp<double, Rcp::kQuintic, false>)
TVX_V(inv, d, double, ha, InvRcp<double, Rcp::kCubic, true>)
TVX_V(inv, d, double, ep, InvRcp<double, Rcp::kNewton, false>)
#endif

// Single: a true divide on variants 0 and 1 (also variant 2's HA cell) and variant 3's HA; the
// rcpps form with one Newton step on variants 2 and 3 (LA and EP); variant 5 all reciprocal.
#if TVX_VARIANT_ID <= 1
TVX_VV(div, s, float, ha, DivExact<float>)
TVX_V(inv, s, float, ha, InvExact<float>)
#elif TVX_VARIANT_ID == 2 || TVX_VARIANT_ID == 3
TVX_VV(div, s, float, la, DivRcp<float, Rcp::kNewton, false>)
TVX_V(inv, s, float, la, InvRcp<float, Rcp::kNewton, false>)
#endif
#if TVX_VARIANT_ID == 3
TVX_VV(div, s, float, ha, DivExact<float>)
TVX_V(inv, s, float, ha, InvExact<float>)
#elif TVX_VARIANT_ID == 5
TVX_VV(div, s, float, la, DivRcp<float, Rcp::kNewton, false>)
TVX_VV(div, s, float, ha, DivRcp<float, Rcp::kNewton, true>)
TVX_V(inv, s, float, la, InvRcp<float, Rcp::kNewton, false>)
TVX_V(inv, s, float, ha, InvRcp<float, Rcp::kNewton, true>)
#endif

// ---- LinearFrac ---------------------------------------------------------------------------------
// The SSE2 kernel serves every variant in single and variant 5 in double; variants 2 and 3 have a
// double kernel with the reciprocal form.
#if TVX_VARIANT_ID <= 1
extern "C" void TVX_ENTRY(kaz_linearfrac_d_ha)(int n, const double* a, const double* b, double sa,
                                               double ha, double sb, double hb, double* r) {
  linear_frac<double, false>(n, a, b, sa, ha, sb, hb, r);
}
extern "C" void TVX_ENTRY(kaz_linearfrac_s_ha)(int n, const float* a, const float* b, float sa,
                                               float ha, float sb, float hb, float* r) {
  linear_frac<float, false>(n, a, b, sa, ha, sb, hb, r);
}
#elif TVX_VARIANT_ID == 2 || TVX_VARIANT_ID == 3
extern "C" void TVX_ENTRY(kaz_linearfrac_d_ha)(int n, const double* a, const double* b, double sa,
                                               double ha, double sb, double hb, double* r) {
  linear_frac<double, true>(n, a, b, sa, ha, sb, hb, r);
}
#endif
