// The road of one exported vector call: argument checks in their fixed order, the slot from the
// variant index and the thread's accuracy, and the hand-over to the threader.
#pragma once

#include <cstdint>

#include "runtime/cpu_type.h"
#include "runtime/report.h"
#include "vector/frame/functions.h"
#include "vector/frame/mode_status.h"
#include "vector/frame/rows.h"
#include "vector/frame/threader.h"

namespace tvx::frame {

// A pointer argument and its parameter number in the call.
struct Arg {
  const void* p;
  int position;
};

inline void report_parameter(const char* name, int position) {
  tvx_param_error_install_default(nullptr);
  const std::int64_t info = position;
  tvx_param_error_report(name, &info, static_cast<int>(tvx_strnlen_s(name, 25)));
}

// n first, then the pointers in the order given (inputs left to right, then outputs); only the
// first fault is reported. Returns false when the call must return at once.
template <std::size_t N>
inline bool check_arguments(const char* name, int n, const Arg (&args)[N]) {
  if (n < 0) {
    report_parameter(name, 1);
    kazSetErrStatus(KAZ_STATUS_BADSIZE);
    return false;
  }
  if (n == 0) return false;
  for (const Arg& a : args) {
    if (a.p == nullptr) {
      report_parameter(name, a.position);
      kazSetErrStatus(KAZ_STATUS_BADMEM);
      return false;
    }
  }
  return true;
}

// The slot of `row` for `variant` under the calling thread's accuracy. The mode word is not
// validated, so two cells that hold no code are kept off: an accuracy outside 1..3 (a slot past
// the row) runs column 0 at HA, and the empty variant-4 column runs column 0 of its accuracy.
// Column 0 runs on every supported processor.
template <class K>
inline int select_slot(const Row<K>& row, int variant) {
  int slot = tvx_kaz_table_slot(variant);
  if (static_cast<unsigned>(slot) >= 18u) return 6;
  if (reinterpret_cast<std::uintptr_t>(row.kernels[slot]) == kVariant4Marker) slot -= slot % 6;
  return slot;
}

// Steps after the checks: slot, optional accuracy warning, threader.
template <class K, class... A>
inline void dispatch(const Row<K>& row, int flags, int n, A... args) {
  const int slot = select_slot(row, tvx_kaz_variant_index());
  if ((flags & TVX_FLAG_EP_WARN) != 0 && (slot < 12 || slot > 17)) {
    kazSetErrStatus(KAZ_STATUS_EP_ONLY_WARNING);
  }
  threaded_call(row.kernels[slot], n, row.cost[slot], 0, args...);
}

// The mode form: the call runs under `mode` merged into the thread's word, and the old word is
// merged back afterwards (a merge, not an assignment: fields that `mode` switched on and the old
// word had at zero stay on).
template <class K, class... A>
inline void dispatch_mode(const Row<K>& row, int flags, unsigned int mode, int n, A... args) {
  unsigned int old = kazSetMode(mode);
  dispatch(row, flags, n, args...);
  kazsetmode(&old);
}

}  // namespace tvx::frame
