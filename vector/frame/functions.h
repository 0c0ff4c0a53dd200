// Vocabulary of functions.def: element types, kernel signatures and dispatch-cell patterns.
//
// A line of functions.def is
//   TVX_VFN(Name, lname, t, class, flags, cells, costs)
// Name/lname: the function in C-form and lower-case spelling (Exp, exp); t: type letter s d c z;
// class: arity class (v_v, vv_v, v_vv, vs_v, lfrac, c_r, r_c, and the six move classes pack_i,
// pack_v, pack_m, unpack_i, unpack_v, unpack_m); flags: 0 or TVX_FLAG_EP_WARN;
// cells: 15 kernel tags, rows LA, HA, EP, each for variants 0, 1, 2, 3, 5 (variant 4 holds the
// marker); a tag like ha_sse2 names the kernel kaz_<lname>_<t>_ha_sse2; costs: 15 cost weights
// (cycles per element) in the same order.
#pragma once

#include <cstdint>

#include "tvx_vector.h"

#define TVX_FLAG_EP_WARN 1

#define TVX_T_s float
#define TVX_T_d double
#define TVX_T_c TvxComplex8
#define TVX_T_z TvxComplex16
// Real type of the same width, for the complex-to-real and real-to-complex classes.
#define TVX_R_c float
#define TVX_R_z double
#define TVX_R_s float
#define TVX_R_d double

#define TVX_EXPAND(...) __VA_ARGS__
#define TVX_CAT_(a, b) a##b
#define TVX_CAT(a, b) TVX_CAT_(a, b)

// Cell patterns.
// One kernel per variant shared by all three accuracies (functions without levels).
#define TVX_CELLS_ONE(tag)                                                                  \
  (tag##_sse2, tag##_sse2b, tag##_sse42, tag##_avx2, tag##_avx512, tag##_sse2, tag##_sse2b, \
   tag##_sse42, tag##_avx2, tag##_avx512, tag##_sse2, tag##_sse2b, tag##_sse42, tag##_avx2, \
   tag##_avx512)
// Three levels on variants 2, 3, 5; variants 0 and 1 run their HA kernel at every level.
#define TVX_CELLS_LEVELS                                                                  \
  (ha_sse2, ha_sse2b, la_sse42, la_avx2, la_avx512, ha_sse2, ha_sse2b, ha_sse42, ha_avx2, \
   ha_avx512, ha_sse2, ha_sse2b, ep_sse42, ep_avx2, ep_avx512)
// As TVX_CELLS_LEVELS, but variant 2's HA row reuses the variant 0 kernel.
#define TVX_CELLS_LEVELS_V2HA0                                                           \
  (ha_sse2, ha_sse2b, la_sse42, la_avx2, la_avx512, ha_sse2, ha_sse2b, ha_sse2, ha_avx2, \
   ha_avx512, ha_sse2, ha_sse2b, ep_sse42, ep_avx2, ep_avx512)
// One kernel per variant for all three accuracies, named cell by cell (a variant may run
// another variant's kernel, e.g. LinearFrac on variant 5 runs the SSE2 one).
#define TVX_CELLS_V(c0, c1, c2, c3, c5) (c0, c1, c2, c3, c5, c0, c1, c2, c3, c5, c0, c1, c2, c3, c5)
// Double Div: a true divide on variants 0 to 2 and on variant 3 for LA and HA; reciprocal forms
// on variant 3 for EP and on variant 5 for every level.
#define TVX_CELLS_DIV_D                                                                   \
  (ha_sse2, ha_sse2b, ha_sse42, ha_avx2, la_avx512, ha_sse2, ha_sse2b, ha_sse42, ha_avx2, \
   ha_avx512, ha_sse2, ha_sse2b, ha_sse42, ep_avx2, ep_avx512)
// Double Inv: as Div, but variant 3 has reciprocal forms for LA and EP.
#define TVX_CELLS_INV_D                                                                   \
  (ha_sse2, ha_sse2b, ha_sse42, la_avx2, la_avx512, ha_sse2, ha_sse2b, ha_sse42, ha_avx2, \
   ha_avx512, ha_sse2, ha_sse2b, ha_sse42, ep_avx2, ep_avx512)
// Single Div and Inv: the estimate form for LA and EP on variants 2 and 3 (one kernel), variant
// 2's HA runs variant 0's divide; variant 5 has its own LA (also EP) and HA kernels.
#define TVX_CELLS_DIV_S                                                                  \
  (ha_sse2, ha_sse2b, la_sse42, la_avx2, la_avx512, ha_sse2, ha_sse2b, ha_sse2, ha_avx2, \
   ha_avx512, ha_sse2, ha_sse2b, la_sse42, la_avx2, la_avx512)
// Erfc, ErfcInv, CdfNormInv: LA and HA share one kernel per variant; EP has its own on
// variants 3 and 5.
#define TVX_CELLS_ERFC                                                                    \
  (ha_sse2, ha_sse2b, ha_sse42, ha_avx2, ha_avx512, ha_sse2, ha_sse2b, ha_sse42, ha_avx2, \
   ha_avx512, ha_sse2, ha_sse2b, ha_sse42, ep_avx2, ep_avx512)
// ErfInv: LA and HA share one kernel per variant; EP has its own on every variant but the second
// SSE2 copy.
#define TVX_CELLS_ERFINV                                                                  \
  (ha_sse2, ha_sse2b, ha_sse42, ha_avx2, ha_avx512, ha_sse2, ha_sse2b, ha_sse42, ha_avx2, \
   ha_avx512, ep_sse2, ha_sse2b, ep_sse42, ep_avx2, ep_avx512)
// CdfNorm: three levels on every variant but the second SSE2 copy, which serves all rows.
#define TVX_CELLS_CDFNORM                                                                 \
  (la_sse2, ha_sse2b, la_sse42, la_avx2, la_avx512, ha_sse2, ha_sse2b, ha_sse42, ha_avx2, \
   ha_avx512, ep_sse2, ha_sse2b, ep_sse42, ep_avx2, ep_avx512)
// Same weights at every accuracy: the five weights of variants 0, 1, 2, 3, 5.
#define TVX_COSTS_ONE(c0, c1, c2, c3, c5) \
  (c0, c1, c2, c3, c5, c0, c1, c2, c3, c5, c0, c1, c2, c3, c5)

// Kernel declarations by class, for extern "C" declarations of the cells' symbols.
#define TVX_VS_s float
#define TVX_VS_d double
#define TVX_VS_c TvxComplex8
#define TVX_VS_z const TvxComplex16*
#define TVX_KDECL_v_v(t, sym) void sym(int, const TVX_T_##t*, TVX_T_##t*)
#define TVX_KDECL_vv_v(t, sym) void sym(int, const TVX_T_##t*, const TVX_T_##t*, TVX_T_##t*)
#define TVX_KDECL_v_vv(t, sym) void sym(int, const TVX_T_##t*, TVX_T_##t*, TVX_T_##t*)
#define TVX_KDECL_vs_v(t, sym) void sym(int, const TVX_T_##t*, TVX_VS_##t, TVX_T_##t*)
#define TVX_KDECL_lfrac(t, sym)                                                                 \
  void sym(int, const TVX_T_##t*, const TVX_T_##t*, TVX_T_##t, TVX_T_##t, TVX_T_##t, TVX_T_##t, \
           TVX_T_##t*)
#define TVX_KDECL_c_r(t, sym) void sym(int, const TVX_T_##t*, TVX_R_##t*)
#define TVX_KDECL_r_c(t, sym) void sym(int, const TVX_R_##t*, TVX_T_##t*)
// Move classes: the third argument is an increment, an index vector or a mask vector (32-bit).
#define TVX_KDECL_pack_i(t, sym) void sym(int, const TVX_T_##t*, int, TVX_T_##t*)
#define TVX_KDECL_pack_v(t, sym) void sym(int, const TVX_T_##t*, const int*, TVX_T_##t*)
#define TVX_KDECL_pack_m(t, sym) void sym(int, const TVX_T_##t*, const int*, TVX_T_##t*)
#define TVX_KDECL_unpack_i(t, sym) void sym(int, const TVX_T_##t*, TVX_T_##t*, int)
#define TVX_KDECL_unpack_v(t, sym) void sym(int, const TVX_T_##t*, TVX_T_##t*, const int*)
#define TVX_KDECL_unpack_m(t, sym) void sym(int, const TVX_T_##t*, TVX_T_##t*, const int*)
#define TVX_KTYPE_v_v(t) tvx::frame::K_v_v<TVX_T_##t>
#define TVX_KTYPE_vv_v(t) tvx::frame::K_vv_v<TVX_T_##t>
#define TVX_KTYPE_v_vv(t) tvx::frame::K_v_vv<TVX_T_##t>
#define TVX_KTYPE_vs_v(t) tvx::frame::K_vs_v<TVX_T_##t>
#define TVX_KTYPE_lfrac(t) tvx::frame::K_lfrac<TVX_T_##t>
#define TVX_KTYPE_c_r(t) tvx::frame::K_c_r<TVX_T_##t, TVX_R_##t>
#define TVX_KTYPE_r_c(t) tvx::frame::K_r_c<TVX_T_##t, TVX_R_##t>
#define TVX_KTYPE_pack_i(t) tvx::frame::K_pack_i<TVX_T_##t>
#define TVX_KTYPE_pack_v(t) tvx::frame::K_pack_v<TVX_T_##t>
#define TVX_KTYPE_pack_m(t) tvx::frame::K_pack_v<TVX_T_##t>
#define TVX_KTYPE_unpack_i(t) tvx::frame::K_unpack_i<TVX_T_##t>
#define TVX_KTYPE_unpack_v(t) tvx::frame::K_unpack_v<TVX_T_##t>
#define TVX_KTYPE_unpack_m(t) tvx::frame::K_unpack_v<TVX_T_##t>

// Kernel pointer types by class; T is the element type, R the real type of its width.
namespace tvx::frame {
template <class T>
using K_v_v = void (*)(int, const T*, T*);
template <class T>
using K_vv_v = void (*)(int, const T*, const T*, T*);
template <class T>
using K_v_vv = void (*)(int, const T*, T*, T*);
// The scalar of the vector-and-scalar class travels by value, but for the 16-byte complex type
// by pointer to a copy.
template <class T>
struct VsScalar {
  using type = T;
};
template <>
struct VsScalar<TvxComplex16> {
  using type = const TvxComplex16*;
};
template <class T>
using K_vs_v = void (*)(int, const T*, typename VsScalar<T>::type, T*);
template <class T>
using K_lfrac = void (*)(int, const T*, const T*, T, T, T, T, T*);
template <class T, class R>
using K_c_r = void (*)(int, const T*, R*);
template <class T, class R>
using K_r_c = void (*)(int, const R*, T*);

// Move kernels: (n, source, increment or index/mask vector, destination) for pack and
// (n, source, destination, increment or index/mask vector) for unpack.
template <class T>
using K_pack_i = void (*)(int, const T*, int, T*);
template <class T>
using K_pack_v = void (*)(int, const T*, const int*, T*);
template <class T>
using K_unpack_i = void (*)(int, const T*, T*, int);
template <class T>
using K_unpack_v = void (*)(int, const T*, T*, const int*);

template <class K>
struct Row {
  K kernels[18];
  float cost[18];
};
}  // namespace tvx::frame
