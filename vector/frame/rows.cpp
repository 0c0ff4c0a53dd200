// The dispatch rows: 18 kernel cells and 18 cost weights per function and type, expanded from
// functions.def. Slot = variant index + 6 * (accuracy - 1).
#include "vector/frame/rows.h"

// Declarations of every kernel a row names (repeats are harmless).
#define TVX_KD(cls, t, lname, c) extern "C" TVX_KDECL_##cls(t, kaz_##lname##_##t##_##c);
// clang-format off
#define TVX_KDECLS_(cls, t, lname, c0, c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13, \
                    c14)                                                                       \
  TVX_KD(cls, t, lname, c0) TVX_KD(cls, t, lname, c1) TVX_KD(cls, t, lname, c2)                \
  TVX_KD(cls, t, lname, c3) TVX_KD(cls, t, lname, c4) TVX_KD(cls, t, lname, c5)                \
  TVX_KD(cls, t, lname, c6) TVX_KD(cls, t, lname, c7) TVX_KD(cls, t, lname, c8)                \
  TVX_KD(cls, t, lname, c9) TVX_KD(cls, t, lname, c10) TVX_KD(cls, t, lname, c11)              \
  TVX_KD(cls, t, lname, c12) TVX_KD(cls, t, lname, c13) TVX_KD(cls, t, lname, c14)
// clang-format on
#define TVX_KDECLS(...) TVX_KDECLS_(__VA_ARGS__)

#define TVX_VFN(Name, lname, t, cls, flags, cells, costs) \
  TVX_KDECLS(cls, t, lname, TVX_EXPAND cells)
#include "vector/frame/functions.def"
#undef TVX_VFN

#define TVX_MARK(K) reinterpret_cast<K>(tvx::frame::kVariant4Marker)
#define TVX_K(lname, t, c) &kaz_##lname##_##t##_##c
#define TVX_ROW_K_(K, lname, t, c0, c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13, c14) \
  {                                                                                              \
    TVX_K(lname, t, c0), TVX_K(lname, t, c1), TVX_K(lname, t, c2), TVX_K(lname, t, c3),          \
        TVX_MARK(K), TVX_K(lname, t, c4), TVX_K(lname, t, c5), TVX_K(lname, t, c6),              \
        TVX_K(lname, t, c7), TVX_K(lname, t, c8), TVX_MARK(K), TVX_K(lname, t, c9),              \
        TVX_K(lname, t, c10), TVX_K(lname, t, c11), TVX_K(lname, t, c12), TVX_K(lname, t, c13),  \
        TVX_MARK(K), TVX_K(lname, t, c14)                                                        \
  }
#define TVX_ROW_K(...) TVX_ROW_K_(__VA_ARGS__)
#define TVX_ROW_C_(c0, c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13, c14) \
  { c0, c1, c2, c3, 1111.0f, c4, c5, c6, c7, c8, 1111.0f, c9, c10, c11, c12, c13, 1111.0f, c14 }
#define TVX_ROW_C(...) TVX_ROW_C_(__VA_ARGS__)

#define TVX_VFN(Name, lname, t, cls, flags, cells, costs)                    \
  extern const tvx::frame::Row<TVX_KTYPE_##cls(t)> tvx_row_##lname##_##t = { \
      TVX_ROW_K(TVX_KTYPE_##cls(t), lname, t, TVX_EXPAND cells), TVX_ROW_C(TVX_EXPAND costs)};
#include "vector/frame/functions.def"
#undef TVX_VFN
