// Extremes: minimum and maximum of each selected variable, started from the values already in
// the output arrays, so that blocks need no state of their own. Serial; weights play no part.
#include "stats/groups.h"

namespace tvx::TVX_VNS::ss {

template <class T>
int extremes_group(Task* t, std::int64_t estimates, std::uint32_t method,
                   const tvx_thread_services*) {
  const bool want_min = estimates & RUD_SS_ESTIMATE_MINIMUM;
  const bool want_max = estimates & RUD_SS_ESTIMATE_MAXIMUM;
  // The driver has checked the observations unless a group that needs none was asked for too.
  if (t->observation_count == nullptr || read_int(t, t->observation_count) < 1)
    return RUD_SS_ERROR_BAD_OBSERVATION_COUNT;
  if (t->observations == nullptr) return RUD_SS_ERROR_NULL_OBSERVATIONS;
  if (t->observation_storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
  const std::int64_t storage = read_int(t, t->observation_storage);
  if ((storage & 0x30000) == 0) return RUD_SS_ERROR_BAD_STORAGE;
  if (want_min && t->minimum == nullptr) return RUD_SS_ERROR_NULL_MINIMUM;
  if (want_max && t->maximum == nullptr) return RUD_SS_ERROR_NULL_MAXIMUM;
  if ((method & 0x3) == 0) return RUD_SS_ERROR_BAD_METHOD;

  const std::int64_t p = read_int(t, t->variable_count);
  const std::int64_t n = read_int(t, t->observation_count);
  Scratch list;
  std::size_t bytes;
  if (!bytes_of(static_cast<std::size_t>(p), sizeof(std::int64_t), 1, &bytes) ||
      !list.take(bytes, false))
    return RUD_SS_ERROR_ALLOCATION_FAILURE;
  std::int64_t* vars = list.as<std::int64_t>();
  std::int64_t count = 0;
  for (std::int64_t v = 0; v < p; ++v)
    if (selected(t, v)) vars[count++] = v;

  const T* x = static_cast<const T*>(t->observations);
  T* mn = static_cast<T*>(t->minimum);
  T* mx = static_cast<T*>(t->maximum);
  const bool cols = columns_layout(storage, p);
  for (std::int64_t k = 0; k < count; ++k) {
    const std::int64_t v = vars[k];
    const T* xv = cols ? x + v : x + v * n;
    const std::int64_t stride = cols ? p : 1;
    // NaN fails both comparisons: it is passed over, and a NaN start stays.
    if (want_min) {
      T m = mn[v];
      for (std::int64_t i = 0; i < n; ++i)
        if (xv[i * stride] < m) m = xv[i * stride];
      mn[v] = m;
    }
    if (want_max) {
      T m = mx[v];
      for (std::int64_t i = 0; i < n; ++i)
        if (xv[i * stride] > m) m = xv[i * stride];
      mx[v] = m;
    }
  }
  return 0;
}

template int extremes_group<double>(Task*, std::int64_t, std::uint32_t, const tvx_thread_services*);
template int extremes_group<float>(Task*, std::int64_t, std::uint32_t, const tvx_thread_services*);

}  // namespace tvx::TVX_VNS::ss
