// Absolute deviations: the median absolute deviation of each selected variable around its median,
// and the mean absolute deviation around its weighted mean (or the caller's mean under the
// user-mean method), one variable per loop iteration over a team. The median one runs first.
#include "stats/groups.h"

namespace tvx::TVX_VNS::ss {
namespace {

template <class T>
struct DeviationContext {
  Task* task;
  std::int64_t p, n;
  bool cols, user_mean, median;
  const T* x;
  const T* w;
  T* scratch;  // n reals per team member
};

template <class T>
void one_variable(std::int64_t v, int thread, int, void* context) {
  auto& c = *static_cast<DeviationContext<T>*>(context);
  Task* t = c.task;
  if (!selected(t, v)) return;
  T* s = c.scratch + static_cast<std::int64_t>(thread) * c.n;
  const T* xv = c.x + v * c.n;
  if (c.median) {
    // Medians by selection reorder their buffer, which is harmless: the deviations are taken
    // from the median whatever the order.
    for (std::int64_t i = 0; i < c.n; ++i) s[i] = c.cols ? c.x[i * c.p + v] : xv[i];
    const T m = median_by_selection(s, c.n);
    for (std::int64_t i = 0; i < c.n; ++i) s[i] = std::fabs(s[i] - m);
    static_cast<T*>(t->median_absolute_deviation)[v] = median_by_selection(s, c.n);
    return;
  }
  if (c.cols) {
    for (std::int64_t i = 0; i < c.n; ++i) s[i] = c.x[i * c.p + v];
    xv = s;
  }
  const T m = c.user_mean ? static_cast<const T*>(t->mean)[v] : run_mean(xv, c.w, c.n);
  for (std::int64_t i = 0; i < c.n; ++i) s[i] = std::fabs(xv[i] - m);
  static_cast<T*>(t->mean_absolute_deviation)[v] = run_mean<T>(s, c.w, c.n);
}

template <class T>
int run_deviation(Task* t, bool median, std::uint32_t method, const tvx_thread_services* services) {
  if (median) {
    if (t->median_absolute_deviation == nullptr) return RUD_SS_ERROR_NULL_MEDIAN_ABSOLUTE_DEVIATION;
    if ((method & 0x1) == 0) return RUD_SS_ERROR_BAD_METHOD;
  } else {
    if (t->mean_absolute_deviation == nullptr) return RUD_SS_ERROR_NULL_MEAN_ABSOLUTE_DEVIATION;
    if ((method & 0x101) == 0) return RUD_SS_ERROR_BAD_METHOD;
  }
  const bool user_mean = !median && (method & 0x100);
  if (user_mean && t->mean == nullptr) return RUD_SS_ERROR_NULL_MEAN;
  if (t->observation_count == nullptr || read_int(t, t->observation_count) < 1)
    return RUD_SS_ERROR_BAD_OBSERVATION_COUNT;
  if (t->observations == nullptr) return RUD_SS_ERROR_NULL_OBSERVATIONS;
  if (t->observation_storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
  const std::int64_t storage = read_int(t, t->observation_storage);
  if ((storage & 0x30000) == 0) return RUD_SS_ERROR_BAD_STORAGE;

  const std::int64_t p = read_int(t, t->variable_count);
  const std::int64_t n = read_int(t, t->observation_count);
  int team = services->thread_limit();
  if (team > p) team = static_cast<int>(p);
  if (team < 1) team = 1;
  Scratch scratch;
  std::size_t bytes;
  if (!bytes_of(static_cast<std::size_t>(team), static_cast<std::size_t>(n), sizeof(T), &bytes) ||
      !scratch.take(bytes, false))
    return RUD_SS_ERROR_ALLOCATION_FAILURE;
  DeviationContext<T> c{t,
                        p,
                        n,
                        columns_layout(storage, p),
                        user_mean,
                        median,
                        static_cast<const T*>(t->observations),
                        static_cast<const T*>(t->weights),
                        scratch.as<T>()};
  services->parallel_for(p, &c, team, &one_variable<T>);
  return 0;
}

}  // namespace

template <class T>
int deviation_group(Task* t, std::int64_t estimates, std::uint32_t method,
                    const tvx_thread_services* services) {
  if (estimates & RUD_SS_ESTIMATE_MEDIAN_ABSOLUTE_DEVIATION) {
    const int s = run_deviation<T>(t, true, method, services);
    if (s < 0) return s;
  }
  if (estimates & RUD_SS_ESTIMATE_MEAN_ABSOLUTE_DEVIATION)
    return run_deviation<T>(t, false, method, services);
  return 0;
}

template int deviation_group<double>(Task*, std::int64_t, std::uint32_t,
                                     const tvx_thread_services*);
template int deviation_group<float>(Task*, std::int64_t, std::uint32_t, const tvx_thread_services*);

}  // namespace tvx::TVX_VNS::ss
