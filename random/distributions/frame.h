// Vocabulary of distributions.def: parameter-list classes, the selection of built rows, and the
// declarations of the variant entry points of every built export.
//
// Each export has one variant function per copy (sse2, sse2b, sse42, avx2, avx512), named
// rud_<Export>_<copy>, taking (method, stream, n, r, parameters...) exactly as the export does,
// after the frame has checked them.
#pragma once

#include "tvx_random.h"

#define TVX_RNG_EXPAND(...) __VA_ARGS__
#define TVX_RNG_CAT_(a, b) a##b
#define TVX_RNG_CAT(a, b) TVX_RNG_CAT_(a, b)

// The accuracy flag of the method word.
#define TVX_RNG_FLAG 0x40000000

// state column: a row's code is made only when it is BUILT.
#define TVX_RNG_IF_BUILT(...) __VA_ARGS__
#define TVX_RNG_IF_LATER(...)
#define TVX_RNG_IF(state, ...) TVX_RNG_CAT(TVX_RNG_IF_, state)(__VA_ARGS__)

// twin column: TWIN(name) or NOTWIN. TVX_RNG_WITH_TWIN(m, twin, args...) expands m(name, args...)
// for TWIN(name) and nothing for NOTWIN.
#define TVX_RNG_TWIN_TWIN(name) TVX_RNG_TWIN_YES, name
#define TVX_RNG_TWIN_NOTWIN TVX_RNG_TWIN_NO, ~
#define TVX_RNG_TWIN_YES(m, name, ...) m(name, __VA_ARGS__)
#define TVX_RNG_TWIN_NO(...)
#define TVX_RNG_WITH_TWIN(m, twin, ...) \
  TVX_RNG_WITH_TWIN_(m, TVX_RNG_CAT(TVX_RNG_TWIN_, twin), __VA_ARGS__)
#define TVX_RNG_WITH_TWIN_(m, ...) TVX_RNG_WITH_TWIN__(m, __VA_ARGS__)
#define TVX_RNG_WITH_TWIN__(m, sel, name, ...) sel(m, name, __VA_ARGS__)

// ---- Parameter-list classes ---------------------------------------------------------------------
// TVX_RNG_P(part, class, R, (names)) gives one part of a class's parameter list, each part with a
// leading comma where it is not empty:
//   DECL   declarations of the export          TWDECL declarations of the lower-case twin
//   ARGS   the names, to pass them on          DEREF  the twin's arguments as the export takes them
//   NULLS  the twin's null-pointer refusals    FMT    verbose format of the parameters
//   FARGS  verbose arguments
// R is the real type of the row; classes: none, r1..r4 (reals), ir (i32 and real), i2, i3 (i32),
// ptr (pointer to reals), mv (i32, i32, two pointers to reals).
#define TVX_RNG_P(part, cls, R, names) \
  TVX_RNG_P_(TVX_RNG_CAT(TVX_RNG_CAT(TVX_RNG_, part), TVX_RNG_CAT(_, cls)), R, TVX_RNG_EXPAND names)
#define TVX_RNG_P_(m, ...) m(__VA_ARGS__)

#define TVX_RNG_DECL_none(R, ...)
#define TVX_RNG_TWDECL_none(R, ...)
#define TVX_RNG_ARGS_none(R, ...)
#define TVX_RNG_DEREF_none(R, ...)
#define TVX_RNG_NULLS_none(R, ...)
#define TVX_RNG_FMT_none(R, ...) ""
#define TVX_RNG_FARGS_none(R, ...)

#define TVX_RNG_DECL_r1(R, x) , R x
#define TVX_RNG_TWDECL_r1(R, x) , const R* x
#define TVX_RNG_ARGS_r1(R, x) , x
#define TVX_RNG_DEREF_r1(R, x) , *x
#define TVX_RNG_NULLS_r1(R, x) TVX_RNG_NULL(x, 5)
#define TVX_RNG_FMT_r1(R, x) ",%lf"
#define TVX_RNG_FARGS_r1(R, x) , static_cast<double>(x)

#define TVX_RNG_DECL_r2(R, x, y) , R x, R y
#define TVX_RNG_TWDECL_r2(R, x, y) , const R *x, const R *y
#define TVX_RNG_ARGS_r2(R, x, y) , x, y
#define TVX_RNG_DEREF_r2(R, x, y) , *x, *y
#define TVX_RNG_NULLS_r2(R, x, y) TVX_RNG_NULL(x, 5) TVX_RNG_NULL(y, 6)
#define TVX_RNG_FMT_r2(R, x, y) ",%lf,%lf"
#define TVX_RNG_FARGS_r2(R, x, y) , static_cast<double>(x), static_cast<double>(y)

#define TVX_RNG_DECL_r3(R, x, y, z) , R x, R y, R z
#define TVX_RNG_TWDECL_r3(R, x, y, z) , const R *x, const R *y, const R *z
#define TVX_RNG_ARGS_r3(R, x, y, z) , x, y, z
#define TVX_RNG_DEREF_r3(R, x, y, z) , *x, *y, *z
#define TVX_RNG_NULLS_r3(R, x, y, z) TVX_RNG_NULL(x, 5) TVX_RNG_NULL(y, 6) TVX_RNG_NULL(z, 7)
#define TVX_RNG_FMT_r3(R, x, y, z) ",%lf,%lf,%lf"
#define TVX_RNG_FARGS_r3(R, x, y, z) \
  , static_cast<double>(x), static_cast<double>(y), static_cast<double>(z)

#define TVX_RNG_DECL_r4(R, x, y, z, w) , R x, R y, R z, R w
#define TVX_RNG_TWDECL_r4(R, x, y, z, w) , const R *x, const R *y, const R *z, const R *w
#define TVX_RNG_ARGS_r4(R, x, y, z, w) , x, y, z, w
#define TVX_RNG_DEREF_r4(R, x, y, z, w) , *x, *y, *z, *w
#define TVX_RNG_NULLS_r4(R, x, y, z, w) \
  TVX_RNG_NULL(x, 5) TVX_RNG_NULL(y, 6) TVX_RNG_NULL(z, 7) TVX_RNG_NULL(w, 8)
#define TVX_RNG_FMT_r4(R, x, y, z, w) ",%lf,%lf,%lf,%lf"
#define TVX_RNG_FARGS_r4(R, x, y, z, w) \
  , static_cast<double>(x), static_cast<double>(y), static_cast<double>(z), static_cast<double>(w)

#define TVX_RNG_DECL_ir(R, i, x) , int i, R x
#define TVX_RNG_TWDECL_ir(R, i, x) , const int *i, const R *x
#define TVX_RNG_ARGS_ir(R, i, x) , i, x
#define TVX_RNG_DEREF_ir(R, i, x) , *i, *x
#define TVX_RNG_NULLS_ir(R, i, x) TVX_RNG_NULL(i, 5) TVX_RNG_NULL(x, 6)
#define TVX_RNG_FMT_ir(R, i, x) ",%d,%lf"
#define TVX_RNG_FARGS_ir(R, i, x) , i, static_cast<double>(x)

#define TVX_RNG_DECL_i2(R, x, y) , int x, int y
#define TVX_RNG_TWDECL_i2(R, x, y) , const int *x, const int *y
#define TVX_RNG_ARGS_i2(R, x, y) , x, y
#define TVX_RNG_DEREF_i2(R, x, y) , *x, *y
#define TVX_RNG_NULLS_i2(R, x, y) TVX_RNG_NULL(x, 5) TVX_RNG_NULL(y, 6)
#define TVX_RNG_FMT_i2(R, x, y) ",%d,%d"
#define TVX_RNG_FARGS_i2(R, x, y) , x, y

#define TVX_RNG_DECL_i3(R, x, y, z) , int x, int y, int z
#define TVX_RNG_TWDECL_i3(R, x, y, z) , const int *x, const int *y, const int *z
#define TVX_RNG_ARGS_i3(R, x, y, z) , x, y, z
#define TVX_RNG_DEREF_i3(R, x, y, z) , *x, *y, *z
#define TVX_RNG_NULLS_i3(R, x, y, z) TVX_RNG_NULL(x, 5) TVX_RNG_NULL(y, 6) TVX_RNG_NULL(z, 7)
#define TVX_RNG_FMT_i3(R, x, y, z) ",%d,%d,%d"
#define TVX_RNG_FARGS_i3(R, x, y, z) , x, y, z

// The pointer is the argument itself: the twin passes it on as it is.
#define TVX_RNG_DECL_ptr(R, x) , const R* x
#define TVX_RNG_TWDECL_ptr(R, x) , const R* x
#define TVX_RNG_ARGS_ptr(R, x) , x
#define TVX_RNG_DEREF_ptr(R, x) , x
#define TVX_RNG_NULLS_ptr(R, x)
#define TVX_RNG_FMT_ptr(R, x) ",%p"
#define TVX_RNG_FARGS_ptr(R, x) , static_cast<const void*>(x)

#define TVX_RNG_DECL_mv(R, d, m, x, y) , int d, int m, const R *x, const R *y
#define TVX_RNG_TWDECL_mv(R, d, m, x, y) , const int *d, const int *m, const R *x, const R *y
#define TVX_RNG_ARGS_mv(R, d, m, x, y) , d, m, x, y
#define TVX_RNG_DEREF_mv(R, d, m, x, y) , *d, *m, x, y
#define TVX_RNG_NULLS_mv(R, d, m, x, y) TVX_RNG_NULL(d, 5) TVX_RNG_NULL(m, 6)
#define TVX_RNG_FMT_mv(R, d, m, x, y) ",%d,%d,%p,%p"
#define TVX_RNG_FARGS_mv(R, d, m, x, y) \
  , d, m, static_cast<const void*>(x), static_cast<const void*>(y)

// ---- Variant entry points -----------------------------------------------------------------------
// TVX_RNG_COPIES(m, args...) expands m(copy, args...) for the five copies, in copy order.
#define TVX_RNG_COPIES(m, ...)                                                          \
  m(sse2, __VA_ARGS__) m(sse2b, __VA_ARGS__) m(sse42, __VA_ARGS__) m(avx2, __VA_ARGS__) \
      m(avx512, __VA_ARGS__)

#define TVX_RNG_ENTRY_DECL(v, Export, out, real, cls, names) \
  int rud_##Export##_##v(int, RudStreamPtr, int, out* TVX_RNG_P(DECL, cls, real, names));

#define TVX_RNG(Export, twin, state, out, real, cls, names, max_method, flag, checks, rname, \
                vname)                                                                       \
  TVX_RNG_IF(state, TVX_RNG_COPIES(TVX_RNG_ENTRY_DECL, Export, out, real, cls, names))
extern "C" {
#include "random/distributions/distributions.def"
}
#undef TVX_RNG
