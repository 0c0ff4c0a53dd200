// Create, delete and edit of a task, and the compute driver: the common checks, the split of the
// estimate mask into the groups and their fixed order. Compiled once per instruction-set
// variant; the exported frame picks one copy by CPU type.
#include <cstring>

#include "stats/entries.h"
#include "stats/groups.h"

namespace tvx::TVX_VNS::ss {
namespace {

using tvx::ss::kFields;
using tvx::ss::kMaxFieldCode;

// ---- The groups, in the order they run -------------------------------------------------------
// X(name, estimate mask, implementation or null when this build lacks the group)
#define TVX_SS_GROUPS(X, T)                                  \
  X(missing_values, 0x400000LL, nullptr)                     \
  X(extremes, 0xC00LL, &extremes_group<T>)                   \
  X(sorted, 0x8000000000LL, &sorted_group<T>)                \
  X(basic, 0x1FE0033FFLL, &basic_group<T>)                   \
  X(absolute_deviations, 0x600000000LL, &deviation_group<T>) \
  X(pooled, 0x180000C000LL, nullptr)                         \
  X(outliers, 0x80000LL, nullptr)                            \
  X(robust, 0x40000LL, nullptr)                              \
  X(partial, 0x300000LL, nullptr)                            \
  X(quantiles, 0x30000LL, &quantiles_group<T>)               \
  X(stream_quantiles, 0x1000000LL, &stream_group<T>)         \
  X(parametrization, 0x800000LL, nullptr)

struct Group {
  std::int64_t mask;
  GroupFn fn;
};

template <class T>
struct Groups {
#define TVX_SS_GROUP_ROW(name, mask, fn) Group{mask, fn},
  static constexpr Group rows[] = {TVX_SS_GROUPS(TVX_SS_GROUP_ROW, T)};
#undef TVX_SS_GROUP_ROW
};

constexpr std::int64_t kNoObservationGroups = 0x1B00000LL;
constexpr std::int64_t kMissingValues = 0x400000LL;

template <class T>
int compute(Task* t, std::int64_t estimates, std::uint32_t method) {
  if (t == nullptr) return RUD_SS_ERROR_NULL_TASK;
  if (t->variable_count == nullptr || read_int(t, t->variable_count) < 1)
    return RUD_SS_ERROR_BAD_VARIABLE_COUNT;
  if ((estimates & kNoObservationGroups) == 0) {
    if (t->observation_count == nullptr || read_int(t, t->observation_count) < 1)
      return RUD_SS_ERROR_BAD_OBSERVATION_COUNT;
    if (t->observations == nullptr) return RUD_SS_ERROR_NULL_OBSERVATIONS;
    if (t->observation_storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
    const std::int64_t s = read_int(t, t->observation_storage);
    if (s != RUD_SS_STORAGE_VARIABLES_IN_ROWS && s != RUD_SS_STORAGE_VARIABLES_IN_COLUMNS)
      return RUD_SS_ERROR_BAD_STORAGE;
  }
  const tvx_thread_services* services = tvx_thread_services_table();
  if (estimates & kMissingValues) {
    const GroupFn fn = Groups<T>::rows[0].fn;
    return fn ? fn(t, estimates, method, services) : RUD_SS_ERROR_GROUP_NOT_AVAILABLE;
  }
  int status = 0;
  for (const Group& g : Groups<T>::rows) {
    if ((estimates & g.mask) == 0) continue;
    if (g.fn == nullptr) return RUD_SS_ERROR_GROUP_NOT_AVAILABLE;
    status = g.fn(t, estimates, method, services);
    if (status < 0) return status;
  }
  return status;
}

}  // namespace
}  // namespace tvx::TVX_VNS::ss

using namespace tvx::TVX_VNS::ss;
using tvx::ss::kTaskAlignment;

extern "C" {

int TVX_ENTRY(rud_ss_new_task)(void** task, const int* p, const int* n, const int* storage,
                               const void* x, const void* weights, const int* selection,
                               int real_kind) {
  if (p == nullptr || *p < 1) return RUD_SS_ERROR_BAD_VARIABLE_COUNT;
  if (x != nullptr) {
    if (storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
    if (*storage != RUD_SS_STORAGE_VARIABLES_IN_ROWS &&
        *storage != RUD_SS_STORAGE_VARIABLES_IN_COLUMNS)
      return RUD_SS_ERROR_BAD_STORAGE;
    if (n == nullptr || *n < 1) return RUD_SS_ERROR_BAD_OBSERVATION_COUNT;
  }
  Task* t = static_cast<Task*>(tvx_malloc(sizeof(Task), kTaskAlignment));
  if (t == nullptr) {
    *task = nullptr;
    return RUD_SS_ERROR_ALLOCATION_FAILURE;
  }
  std::memset(static_cast<void*>(t), 0, sizeof(Task));
  t->index_width = 0;
  t->record_kind = 2;
  t->real_kind = static_cast<std::uint32_t>(real_kind);
  t->variable_count = const_cast<int*>(p);
  t->observation_count = const_cast<int*>(n);
  t->observations = const_cast<void*>(x);
  t->observation_storage = const_cast<int*>(storage);
  t->weights = const_cast<void*>(weights);
  t->variable_selection = const_cast<int*>(selection);
  *task = t;
  return RUD_SS_OK;
}

int TVX_ENTRY(rud_ss_delete_task)(void** task) {
  // A handle already cleared is refused as well, so a second delete through it is harmless.
  if (task == nullptr || *task == nullptr) return RUD_SS_ERROR_NULL_TASK;
  Task* t = static_cast<Task*>(*task);
  if (t->saved_means != nullptr) tvx_free(t->saved_means);
  for (int k = 0; k < t->hook_count; ++k) t->hooks[k](t);
  tvx_free(t);
  *task = nullptr;
  return RUD_SS_OK;
}

// kind: 'R' for the real editors, 'I' for the integer editor.
int TVX_ENTRY(rud_ss_edit_task)(void* task, int code, const void* value, int kind) {
  if (task == nullptr) return RUD_SS_ERROR_NULL_TASK;
  const int low = kind == 'R' ? 3 : 1, high = kind == 'R' ? 78 : kMaxFieldCode;
  if (code < low || code > high || kFields.rows[code].kind != kind)
    return RUD_SS_ERROR_BAD_FIELD_CODE;
  if (value == nullptr) return kFields.rows[code].null_status;
  tvx::ss::field_slot(static_cast<Task*>(task), code) = const_cast<void*>(value);
  return RUD_SS_OK;
}

int TVX_ENTRY(rud_ss_compute_d)(void* task, long long estimates, int method) {
  return compute<double>(static_cast<Task*>(task), estimates, static_cast<std::uint32_t>(method));
}

int TVX_ENTRY(rud_ss_compute_s)(void* task, long long estimates, int method) {
  return compute<float>(static_cast<Task*>(task), estimates, static_cast<std::uint32_t>(method));
}

}  // extern "C"
