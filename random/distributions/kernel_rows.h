// The dispatch rows of the vector functions, by name, as the distributions reach them. Every line
// of the master list of vector functions gives a constant tvx::dist::rows::<lname>_<t>: the row
// and the export's name for a function with kernels, a null row for a function that is listed but
// has no kernels in this build. A chain that needs such a function refuses the call (see
// kKernelMissing in block.h) instead of failing to build, and takes the row up as soon as the
// function's line gets its kernels.
#pragma once

#include "vector/frame/functions.h"
#include "vector/frame/rows.h"

namespace tvx::dist {

template <class K>
struct RowRef {
  const tvx::frame::Row<K>* row;  // null: listed, no kernels in this build
  const char* name;               // the vector export, e.g. "vdLn"
  constexpr bool built() const { return row != nullptr; }
};

namespace rows {
#define TVX_VFN(Name, lname, t, cls, flags, cells, costs) \
  inline constexpr RowRef<TVX_KTYPE_##cls(t)> lname##_##t{&tvx_row_##lname##_##t, "v" #t #Name};
#define TVX_VNAME(Name, lname, t, cls, flags) \
  inline constexpr RowRef<TVX_KTYPE_##cls(t)> lname##_##t{nullptr, "v" #t #Name};
#include "vector/frame/functions.def"
#undef TVX_VFN
#undef TVX_VNAME
}  // namespace rows

// The name of the first of `refs` without kernels in this build, or null when all are built.
template <class... Ref>
constexpr const char* first_missing(const Ref&... refs) {
  const char* missing = nullptr;
  ((missing = missing == nullptr && !refs.built() ? refs.name : missing), ...);
  return missing;
}

}  // namespace tvx::dist
