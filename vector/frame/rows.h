// Declarations of the dispatch rows, one per function and type, named tvx_row_<lname>_<t>.
#pragma once

#include "vector/frame/functions.h"

#define TVX_VFN(Name, lname, t, cls, flags, cells, costs) \
  extern const tvx::frame::Row<TVX_KTYPE_##cls(t)> tvx_row_##lname##_##t;
#include "vector/frame/functions.def"
#undef TVX_VFN

namespace tvx::frame {
// Value of the empty variant-4 cell of every row: a recognisable non-address.
inline constexpr std::uint64_t kVariant4Marker = 0xBAAAAAAAAAAAADB3ull;
inline constexpr float kVariant4Cost = 1111.0f;
}  // namespace tvx::frame
