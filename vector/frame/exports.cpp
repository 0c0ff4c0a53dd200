// The exported vector functions: four forms per line of functions.def (C form, mode form and
// their lower-case twins taking scalars by pointer), all on the line's dispatch row. Every form
// reports itself under the C-form name.
#include "vector/frame/pack.h"
#include "vector/frame/road.h"
#include "vector/frame/rows.h"

using tvx::frame::Arg;
using tvx::frame::check_arguments;
using tvx::frame::dispatch;
using tvx::frame::dispatch_mode;
using tvx::frame::Strided;
using tvx::frame::Whole;

#define TVX_NAME(t, Name) "v" #t #Name
#define TVX_ROW(lname, t) tvx_row_##lname##_##t

// one in, one out: n 1, a 2, r 3
#define TVX_EXPORT_v_v(Name, lname, t, fl)                                              \
  extern "C" TVX_API void v##t##Name(int n, const TVX_T_##t* a, TVX_T_##t* r) {         \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{r, 3}}))                  \
      dispatch(TVX_ROW(lname, t), fl, n, a, r);                                         \
  }                                                                                     \
  extern "C" TVX_API void vm##t##Name(int n, const TVX_T_##t* a, TVX_T_##t* r,          \
                                      unsigned int mode) {                              \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{r, 3}}))                  \
      dispatch_mode(TVX_ROW(lname, t), fl, mode, n, a, r);                              \
  }                                                                                     \
  extern "C" TVX_API void v##t##lname(const int* n, const TVX_T_##t* a, TVX_T_##t* r) { \
    v##t##Name(*n, a, r);                                                               \
  }                                                                                     \
  extern "C" TVX_API void vm##t##lname(const int* n, const TVX_T_##t* a, TVX_T_##t* r,  \
                                       const unsigned int* mode) {                      \
    vm##t##Name(*n, a, r, *mode);                                                       \
  }

// two in, one out: n 1, a 2, b 3, r 4
#define TVX_EXPORT_vv_v(Name, lname, t, fl)                                                        \
  extern "C" TVX_API void v##t##Name(int n, const TVX_T_##t* a, const TVX_T_##t* b,                \
                                     TVX_T_##t* r) {                                               \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{b, 3}, Arg{r, 4}}))                  \
      dispatch(TVX_ROW(lname, t), fl, n, a, b, r);                                                 \
  }                                                                                                \
  extern "C" TVX_API void vm##t##Name(int n, const TVX_T_##t* a, const TVX_T_##t* b, TVX_T_##t* r, \
                                      unsigned int mode) {                                         \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{b, 3}, Arg{r, 4}}))                  \
      dispatch_mode(TVX_ROW(lname, t), fl, mode, n, a, b, r);                                      \
  }                                                                                                \
  extern "C" TVX_API void v##t##lname(const int* n, const TVX_T_##t* a, const TVX_T_##t* b,        \
                                      TVX_T_##t* r) {                                              \
    v##t##Name(*n, a, b, r);                                                                       \
  }                                                                                                \
  extern "C" TVX_API void vm##t##lname(const int* n, const TVX_T_##t* a, const TVX_T_##t* b,       \
                                       TVX_T_##t* r, const unsigned int* mode) {                   \
    vm##t##Name(*n, a, b, r, *mode);                                                               \
  }

// one in, two out: n 1, a 2, r1 and r2 both 3
#define TVX_EXPORT_v_vv(Name, lname, t, fl)                                                     \
  extern "C" TVX_API void v##t##Name(int n, const TVX_T_##t* a, TVX_T_##t* r1, TVX_T_##t* r2) { \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{r1, 3}, Arg{r2, 3}}))             \
      dispatch(TVX_ROW(lname, t), fl, n, a, r1, r2);                                            \
  }                                                                                             \
  extern "C" TVX_API void vm##t##Name(int n, const TVX_T_##t* a, TVX_T_##t* r1, TVX_T_##t* r2,  \
                                      unsigned int mode) {                                      \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{r1, 3}, Arg{r2, 3}}))             \
      dispatch_mode(TVX_ROW(lname, t), fl, mode, n, a, r1, r2);                                 \
  }                                                                                             \
  extern "C" TVX_API void v##t##lname(const int* n, const TVX_T_##t* a, TVX_T_##t* r1,          \
                                      TVX_T_##t* r2) {                                          \
    v##t##Name(*n, a, r1, r2);                                                                  \
  }                                                                                             \
  extern "C" TVX_API void vm##t##lname(const int* n, const TVX_T_##t* a, TVX_T_##t* r1,         \
                                       TVX_T_##t* r2, const unsigned int* mode) {               \
    vm##t##Name(*n, a, r1, r2, *mode);                                                          \
  }

// Scalar of the vector-and-scalar class as handed to the threader: by value, or for z a
// pointer to a local copy that every piece shares.
#define TVX_VS_ARG_s(b) b
#define TVX_VS_ARG_d(b) b
#define TVX_VS_ARG_c(b) b
#define TVX_VS_ARG_z(b)                    \
  tvx::frame::Fixed<const TvxComplex16*> { \
    &b                                     \
  }

// vector and scalar: n 1, a 2, r 4; the scalar is not checked
#define TVX_EXPORT_vs_v(Name, lname, t, fl)                                                  \
  extern "C" TVX_API void v##t##Name(int n, const TVX_T_##t* a, TVX_T_##t b, TVX_T_##t* r) { \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{r, 4}}))                       \
      dispatch(TVX_ROW(lname, t), fl, n, a, TVX_VS_ARG_##t(b), r);                           \
  }                                                                                          \
  extern "C" TVX_API void vm##t##Name(int n, const TVX_T_##t* a, TVX_T_##t b, TVX_T_##t* r,  \
                                      unsigned int mode) {                                   \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{r, 4}}))                       \
      dispatch_mode(TVX_ROW(lname, t), fl, mode, n, a, TVX_VS_ARG_##t(b), r);                \
  }                                                                                          \
  extern "C" TVX_API void v##t##lname(const int* n, const TVX_T_##t* a, const TVX_T_##t* b,  \
                                      TVX_T_##t* r) {                                        \
    v##t##Name(*n, a, *b, r);                                                                \
  }                                                                                          \
  extern "C" TVX_API void vm##t##lname(const int* n, const TVX_T_##t* a, const TVX_T_##t* b, \
                                       TVX_T_##t* r, const unsigned int* mode) {             \
    vm##t##Name(*n, a, *b, r, *mode);                                                        \
  }

// fractional linear: n 1, a 2, b 3, r 8; the four scalars are not checked
#define TVX_EXPORT_lfrac(Name, lname, t, fl)                                                       \
  extern "C" TVX_API void v##t##Name(int n, const TVX_T_##t* a, const TVX_T_##t* b, TVX_T_##t sa,  \
                                     TVX_T_##t ha, TVX_T_##t sb, TVX_T_##t hb, TVX_T_##t* r) {     \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{b, 3}, Arg{r, 8}}))                  \
      dispatch(TVX_ROW(lname, t), fl, n, a, b, sa, ha, sb, hb, r);                                 \
  }                                                                                                \
  extern "C" TVX_API void vm##t##Name(int n, const TVX_T_##t* a, const TVX_T_##t* b, TVX_T_##t sa, \
                                      TVX_T_##t ha, TVX_T_##t sb, TVX_T_##t hb, TVX_T_##t* r,      \
                                      unsigned int mode) {                                         \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{b, 3}, Arg{r, 8}}))                  \
      dispatch_mode(TVX_ROW(lname, t), fl, mode, n, a, b, sa, ha, sb, hb, r);                      \
  }                                                                                                \
  extern "C" TVX_API void v##t##lname(const int* n, const TVX_T_##t* a, const TVX_T_##t* b,        \
                                      const TVX_T_##t* sa, const TVX_T_##t* ha,                    \
                                      const TVX_T_##t* sb, const TVX_T_##t* hb, TVX_T_##t* r) {    \
    v##t##Name(*n, a, b, *sa, *ha, *sb, *hb, r);                                                   \
  }                                                                                                \
  extern "C" TVX_API void vm##t##lname(const int* n, const TVX_T_##t* a, const TVX_T_##t* b,       \
                                       const TVX_T_##t* sa, const TVX_T_##t* ha,                   \
                                       const TVX_T_##t* sb, const TVX_T_##t* hb, TVX_T_##t* r,     \
                                       const unsigned int* mode) {                                 \
    vm##t##Name(*n, a, b, *sa, *ha, *sb, *hb, r, *mode);                                           \
  }

// complex to real: n 1, a 2, r 3
#define TVX_EXPORT_c_r(Name, lname, t, fl)                                              \
  extern "C" TVX_API void v##t##Name(int n, const TVX_T_##t* a, TVX_R_##t* r) {         \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{r, 3}}))                  \
      dispatch(TVX_ROW(lname, t), fl, n, a, r);                                         \
  }                                                                                     \
  extern "C" TVX_API void vm##t##Name(int n, const TVX_T_##t* a, TVX_R_##t* r,          \
                                      unsigned int mode) {                              \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{r, 3}}))                  \
      dispatch_mode(TVX_ROW(lname, t), fl, mode, n, a, r);                              \
  }                                                                                     \
  extern "C" TVX_API void v##t##lname(const int* n, const TVX_T_##t* a, TVX_R_##t* r) { \
    v##t##Name(*n, a, r);                                                               \
  }                                                                                     \
  extern "C" TVX_API void vm##t##lname(const int* n, const TVX_T_##t* a, TVX_R_##t* r,  \
                                       const unsigned int* mode) {                      \
    vm##t##Name(*n, a, r, *mode);                                                       \
  }

// real to complex: n 1, a 2, r 3
#define TVX_EXPORT_r_c(Name, lname, t, fl)                                              \
  extern "C" TVX_API void v##t##Name(int n, const TVX_R_##t* a, TVX_T_##t* r) {         \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{r, 3}}))                  \
      dispatch(TVX_ROW(lname, t), fl, n, a, r);                                         \
  }                                                                                     \
  extern "C" TVX_API void vm##t##Name(int n, const TVX_R_##t* a, TVX_T_##t* r,          \
                                      unsigned int mode) {                              \
    if (check_arguments(TVX_NAME(t, Name), n, {Arg{a, 2}, Arg{r, 3}}))                  \
      dispatch_mode(TVX_ROW(lname, t), fl, mode, n, a, r);                              \
  }                                                                                     \
  extern "C" TVX_API void v##t##lname(const int* n, const TVX_R_##t* a, TVX_T_##t* r) { \
    v##t##Name(*n, a, r);                                                               \
  }                                                                                     \
  extern "C" TVX_API void vm##t##lname(const int* n, const TVX_R_##t* a, TVX_T_##t* r,  \
                                       const unsigned int* mode) {                      \
    vm##t##Name(*n, a, r, *mode);                                                       \
  }

// ---- pack and unpack: the increment is not checked, the arrays are in argument order (inputs,
// then the output). The increment forms cut the strided array by its increment, the index forms
// hand the indexed array whole to every piece, the mask forms go through their own team run.

// The four forms of a move class; ARGS/LARGS are the C and lower-case parameter lists, CALL
// the lower-case form's call of the C form, CHECKS the pointer checks, BODY what follows them.
#define TVX_MOVE_FORMS(Name, lname, t, ARGS, LARGS, CALL, CHECKS, BODY)              \
  extern "C" TVX_API void v##t##Name ARGS {                                          \
    if (check_arguments(TVX_NAME(t, Name), n, {TVX_EXPAND CHECKS})) BODY;            \
  }                                                                                  \
  extern "C" TVX_API void vm##t##Name(TVX_EXPAND ARGS, unsigned int mode) {          \
    if (check_arguments(TVX_NAME(t, Name), n, {TVX_EXPAND CHECKS})) {                \
      unsigned int old = kazSetMode(mode);                                           \
      BODY;                                                                          \
      kazsetmode(&old);                                                              \
    }                                                                                \
  }                                                                                  \
  extern "C" TVX_API void v##t##lname LARGS {                                        \
    v##t##Name CALL;                                                                 \
  }                                                                                  \
  extern "C" TVX_API void vm##t##lname(TVX_EXPAND LARGS, const unsigned int* mode) { \
    vm##t##Name(TVX_EXPAND CALL, *mode);                                             \
  }

// pack by increment: n 1, a 2, y 4
#define TVX_EXPORT_pack_i(Name, lname, t, fl)                                         \
  TVX_MOVE_FORMS(Name, lname, t, (int n, const TVX_T_##t* a, int inca, TVX_T_##t* y), \
                 (const int* n, const TVX_T_##t* a, const int* inca, TVX_T_##t* y),   \
                 (*n, a, *inca, y), (Arg{a, 2}, Arg{y, 4}),                           \
                 dispatch(TVX_ROW(lname, t), fl, n, Strided<const TVX_T_##t>{a, inca}, inca, y))
// pack by index vector: n 1, a 2, ia 3, y 4
#define TVX_EXPORT_pack_v(Name, lname, t, fl)                                                     \
  TVX_MOVE_FORMS(Name, lname, t, (int n, const TVX_T_##t* a, const int* ia, TVX_T_##t* y),        \
                 (const int* n, const TVX_T_##t* a, const int* ia, TVX_T_##t* y), (*n, a, ia, y), \
                 (Arg{a, 2}, Arg{ia, 3}, Arg{y, 4}),                                              \
                 dispatch(TVX_ROW(lname, t), fl, n, Whole<const TVX_T_##t>{a}, ia, y))
// pack by mask: n 1, a 2, ma 3, y 4
#define TVX_EXPORT_pack_m(Name, lname, t, fl)                                                     \
  TVX_MOVE_FORMS(Name, lname, t, (int n, const TVX_T_##t* a, const int* ma, TVX_T_##t* y),        \
                 (const int* n, const TVX_T_##t* a, const int* ma, TVX_T_##t* y), (*n, a, ma, y), \
                 (Arg{a, 2}, Arg{ma, 3}, Arg{y, 4}),                                              \
                 tvx::frame::dispatch_pack_m(TVX_ROW(lname, t), n, a, ma, y))
// unpack by increment: n 1, a 2, y 3
#define TVX_EXPORT_unpack_i(Name, lname, t, fl)                                       \
  TVX_MOVE_FORMS(Name, lname, t, (int n, const TVX_T_##t* a, TVX_T_##t* y, int incy), \
                 (const int* n, const TVX_T_##t* a, TVX_T_##t* y, const int* incy),   \
                 (*n, a, y, *incy), (Arg{a, 2}, Arg{y, 3}),                           \
                 dispatch(TVX_ROW(lname, t), fl, n, a, Strided<TVX_T_##t>{y, incy}, incy))
// unpack by index vector: n 1, a 2, iy 4, then y 3
#define TVX_EXPORT_unpack_v(Name, lname, t, fl)                                                   \
  TVX_MOVE_FORMS(Name, lname, t, (int n, const TVX_T_##t* a, TVX_T_##t* y, const int* iy),        \
                 (const int* n, const TVX_T_##t* a, TVX_T_##t* y, const int* iy), (*n, a, y, iy), \
                 (Arg{a, 2}, Arg{iy, 4}, Arg{y, 3}),                                              \
                 dispatch(TVX_ROW(lname, t), fl, n, a, Whole<TVX_T_##t>{y}, iy))
// unpack by mask: n 1, a 2, my 4, then y 3
#define TVX_EXPORT_unpack_m(Name, lname, t, fl)                                                   \
  TVX_MOVE_FORMS(Name, lname, t, (int n, const TVX_T_##t* a, TVX_T_##t* y, const int* my),        \
                 (const int* n, const TVX_T_##t* a, TVX_T_##t* y, const int* my), (*n, a, y, my), \
                 (Arg{a, 2}, Arg{my, 4}, Arg{y, 3}),                                              \
                 tvx::frame::dispatch_unpack_m(TVX_ROW(lname, t), n, a, y, my))

#define TVX_VFN(Name, lname, t, cls, flags, cells, costs) TVX_EXPORT_##cls(Name, lname, t, flags)
#include "vector/frame/functions.def"
#undef TVX_VFN
