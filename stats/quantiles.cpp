// Exact quantiles and order statistics of each selected variable, and the sorted copy of the
// matrix. One variable per loop iteration over a team; outputs are compacted: the k-th selected
// variable writes row k.
#include "stats/groups.h"
#include "stats/order.h"

namespace tvx::TVX_VNS::ss {

// Cuts kept per member: enough for two selections per order, within a fixed ceiling (cuts only
// save work; a selector that runs out stops recording them).
inline std::int64_t cut_capacity(std::int64_t m) {
  constexpr std::int64_t kCeiling = 8192;
  return m > kCeiling ? kCeiling : std::min(kCeiling, 2 * m * 160);
}

template <class T>
void quantiles_by_selection(T* a, std::int64_t n, const T* orders, std::int64_t m, T* out,
                            std::int64_t* cuts) {
  if (nan_to_end(a, n) < n) {
    for (std::int64_t k = 0; k < m; ++k) out[k] = std::numeric_limits<T>::quiet_NaN();
    return;
  }
  Selector<T> select(a, n, cuts, cut_capacity(m));
  for (std::int64_t o = 0; o < m; ++o) {
    double frac;
    const std::int64_t k = quantile_index(static_cast<double>(orders[o]), n, &frac);
    const T lo = select.kth(k);
    const T hi = k < n - 1 ? select.kth(k + 1) : lo;
    out[o] = lo + (hi - lo) * static_cast<T>(frac);
  }
}

template <class T>
T median_by_selection(T* a, std::int64_t n) {
  const T half = static_cast<T>(0.5);
  T out;
  std::int64_t cuts[2 * Selector<T>::kCutsPerSelect];
  quantiles_by_selection(a, n, &half, 1, &out, cuts);
  return out;
}

namespace {

// Team size: at most `limit` members, each with `bytes_per_member` of scratch, within `budget`.
int team_for(const tvx_thread_services* services, std::int64_t p, std::size_t bytes_per_member,
             std::size_t budget) {
  std::int64_t team = services->thread_limit();
  if (team > p) team = p;
  const std::size_t fit = bytes_per_member == 0 ? budget : budget / bytes_per_member;
  if (static_cast<std::size_t>(team) > fit) team = static_cast<std::int64_t>(fit);
  return team < 1 ? 1 : static_cast<int>(team);
}

// The selected variables in order; the list's index is the compacted output row.
bool selected_list(const Task* t, std::int64_t p, Scratch* list, std::int64_t* count) {
  std::size_t bytes;
  if (!bytes_of(static_cast<std::size_t>(p), sizeof(std::int64_t), 1, &bytes) ||
      !list->take(bytes, false))
    return false;
  std::int64_t* vars = list->as<std::int64_t>();
  *count = 0;
  for (std::int64_t v = 0; v < p; ++v)
    if (selected(t, v)) vars[(*count)++] = v;
  return true;
}

// Observation checks made again for groups that may run without the driver's (a call that also
// asks for stream quantiles).
int check_observations(const Task* t) {
  if (t->observation_count == nullptr || read_int(t, t->observation_count) < 1)
    return RUD_SS_ERROR_BAD_OBSERVATION_COUNT;
  if (t->observations == nullptr) return RUD_SS_ERROR_NULL_OBSERVATIONS;
  if (t->observation_storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
  return 0;
}

template <class T>
void gather(const T* x, std::int64_t v, std::int64_t n, std::int64_t p, bool cols, T* dst) {
  if (cols) {
    for (std::int64_t i = 0; i < n; ++i) dst[i] = x[i * p + v];
  } else {
    for (std::int64_t i = 0; i < n; ++i) dst[i] = x[v * n + i];
  }
}

template <class T>
struct OrderContext {
  std::int64_t p, n, m;
  bool cols, out_cols;
  const T* x;
  const T* orders;
  T* quantiles;    // null when not asked
  T* order_stats;  // null when not asked
  const std::int64_t* vars;
  T* scratch;          // n reals per member
  std::int64_t* cuts;  // cuts of the selector, per member
};

template <class T>
void order_one(std::int64_t c, int thread, int, void* context) {
  auto& o = *static_cast<OrderContext<T>*>(context);
  const std::int64_t v = o.vars[c];
  T* s = o.scratch + static_cast<std::int64_t>(thread) * o.n;
  if (o.order_stats == nullptr) {
    gather(o.x, v, o.n, o.p, o.cols, s);
    quantiles_by_selection(s, o.n, o.orders, o.m, o.quantiles + c * o.m,
                           o.cuts + static_cast<std::int64_t>(thread) * cut_capacity(o.m));
    return;
  }
  // Sort where the result is contiguous: the output row itself, or the scratch row when the
  // output has variables in columns (scattered afterwards).
  T* row = o.out_cols ? s : o.order_stats + c * o.n;
  gather(o.x, v, o.n, o.p, o.cols, row);
  const std::int64_t good = sort_values(row, o.n);
  if (o.out_cols)
    for (std::int64_t i = 0; i < o.n; ++i) o.order_stats[i * o.p + c] = row[i];
  if (o.quantiles != nullptr)
    for (std::int64_t k = 0; k < o.m; ++k)
      o.quantiles[c * o.m + k] =
          good < o.n ? std::numeric_limits<T>::quiet_NaN()
                     : quantile_of_sorted(row, o.n, static_cast<double>(o.orders[k]));
}

template <class T>
struct SortContext {
  std::int64_t p, n;
  bool cols, out_cols;
  const T* x;
  T* out;
  const std::int64_t* vars;
  T* scratch;
};

template <class T>
void sort_one(std::int64_t c, int thread, int, void* context) {
  auto& o = *static_cast<SortContext<T>*>(context);
  const std::int64_t v = o.vars[c];
  T* row = o.out_cols ? o.scratch + static_cast<std::int64_t>(thread) * o.n : o.out + c * o.n;
  // In place with variables in rows the row is its own source.
  if (o.x != row) gather(o.x, v, o.n, o.p, o.cols, row);
  sort_values(row, o.n);
  if (o.out_cols)
    for (std::int64_t i = 0; i < o.n; ++i) o.out[i * o.p + c] = row[i];
}

constexpr std::size_t kGiB = std::size_t{1} << 30;

}  // namespace

template <class T>
int quantiles_group(Task* t, std::int64_t estimates, std::uint32_t method,
                    const tvx_thread_services* services) {
  if (const int s = check_observations(t)) return s;
  const std::int64_t storage = read_int(t, t->observation_storage);
  if ((storage & 0x30000) == 0) return RUD_SS_ERROR_BAD_STORAGE;
  const bool want_q = estimates & RUD_SS_ESTIMATE_QUANTILES;
  const bool want_os = estimates & RUD_SS_ESTIMATE_ORDER_STATISTICS;
  std::int64_t m = 0;
  if (want_q) {
    if (t->quantiles == nullptr) return RUD_SS_ERROR_NULL_QUANTILES;
    if (t->quantile_orders == nullptr) return RUD_SS_ERROR_NULL_QUANTILE_ORDERS;
    if (t->quantile_order_count == nullptr) return RUD_SS_ERROR_NULL_QUANTILE_ORDER_COUNT;
    m = read_int(t, t->quantile_order_count);
    if (m < 0) return RUD_SS_ERROR_NULL_QUANTILE_ORDER_COUNT;
    const T* q = static_cast<const T*>(t->quantile_orders);
    for (std::int64_t k = 0; k < m; ++k)
      if (!(q[k] >= 0 && q[k] <= 1)) return RUD_SS_ERROR_NULL_QUANTILE_ORDER_COUNT;
  }
  std::int64_t os_storage = 0;
  if (want_os) {
    if (t->order_statistics == nullptr) return RUD_SS_ERROR_NULL_ORDER_STATISTICS;
    if (t->order_statistics_storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
    os_storage = read_int(t, t->order_statistics_storage);
    if ((os_storage & 0x30000) == 0) return RUD_SS_ERROR_BAD_STORAGE;
  }
  if ((method & 0x1) == 0) return RUD_SS_ERROR_BAD_METHOD;
  if (!want_os && m == 0) return 0;

  const std::int64_t p = read_int(t, t->variable_count);
  const std::int64_t n = read_int(t, t->observation_count);
  std::size_t row_bytes;
  if (!bytes_of(static_cast<std::size_t>(n), 8, 1, &row_bytes))
    return RUD_SS_ERROR_ALLOCATION_FAILURE;
  const int team = team_for(services, p, row_bytes, kGiB);
  Scratch list, rows, cuts;
  std::int64_t count;
  std::size_t bytes;
  if (!selected_list(t, p, &list, &count) ||
      !bytes_of(static_cast<std::size_t>(team), static_cast<std::size_t>(n), sizeof(T), &bytes) ||
      !rows.take(bytes, false) ||
      !bytes_of(static_cast<std::size_t>(team), static_cast<std::size_t>(cut_capacity(m) + 1),
                sizeof(std::int64_t), &bytes) ||
      !cuts.take(bytes, false))
    return RUD_SS_ERROR_ALLOCATION_FAILURE;
  OrderContext<T> c{p,
                    n,
                    m,
                    columns_layout(storage, p),
                    columns_layout(os_storage, p),
                    static_cast<const T*>(t->observations),
                    static_cast<const T*>(t->quantile_orders),
                    m > 0 ? static_cast<T*>(t->quantiles) : nullptr,
                    want_os ? static_cast<T*>(t->order_statistics) : nullptr,
                    list.as<std::int64_t>(),
                    rows.as<T>(),
                    cuts.as<std::int64_t>()};
  services->parallel_for(count, &c, team, &order_one<T>);
  return 0;
}

template <class T>
int sorted_group(Task* t, std::int64_t, std::uint32_t method, const tvx_thread_services* services) {
  if (const int s = check_observations(t)) return s;
  if (t->sorted_observations == nullptr) return RUD_SS_ERROR_NULL_SORTED_OBSERVATIONS;
  if (t->sorted_observations_storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
  const std::int64_t storage = read_int(t, t->observation_storage);
  const std::int64_t out_storage = read_int(t, t->sorted_observations_storage);
  const bool in_place = t->sorted_observations == t->observations;
  if (in_place) {
    if ((storage & 0x10000) != (out_storage & 0x10000)) return RUD_SS_ERROR_NULL_STORAGE;
    if (t->variable_selection != nullptr) return RUD_SS_ERROR_SORT_IN_PLACE_SELECTION;
  }
  if ((storage & 0x30000) == 0 || (out_storage & 0x30000) == 0) return RUD_SS_ERROR_BAD_STORAGE;
  if ((method & RUD_SS_METHOD_SORT) == 0) return RUD_SS_ERROR_BAD_METHOD;

  const std::int64_t p = read_int(t, t->variable_count);
  const std::int64_t n = read_int(t, t->observation_count);
  const bool out_cols = columns_layout(out_storage, p);
  // One gigabyte of scratch per allowed thread.
  std::size_t row_bytes, budget;
  const int limit = services->thread_limit();
  if (!bytes_of(static_cast<std::size_t>(n), out_cols ? 16 : 8, 1, &row_bytes) ||
      !bytes_of(static_cast<std::size_t>(limit < 1 ? 1 : limit), kGiB, 1, &budget))
    return RUD_SS_ERROR_ALLOCATION_FAILURE;
  const int team = team_for(services, p, row_bytes, budget);
  Scratch list, rows;
  std::int64_t count;
  std::size_t bytes;
  if (!selected_list(t, p, &list, &count)) return RUD_SS_ERROR_ALLOCATION_FAILURE;
  if (out_cols &&
      (!bytes_of(static_cast<std::size_t>(team), static_cast<std::size_t>(n), sizeof(T), &bytes) ||
       !rows.take(bytes, false)))
    return RUD_SS_ERROR_ALLOCATION_FAILURE;
  SortContext<T> c{p,
                   n,
                   columns_layout(storage, p),
                   out_cols,
                   static_cast<const T*>(t->observations),
                   static_cast<T*>(t->sorted_observations),
                   list.as<std::int64_t>(),
                   rows.as<T>()};
  services->parallel_for(count, &c, team, &sort_one<T>);
  return 0;
}

#define TVX_SS_ORDER_INSTANCES(T)                                                                  \
  template int quantiles_group<T>(Task*, std::int64_t, std::uint32_t, const tvx_thread_services*); \
  template int sorted_group<T>(Task*, std::int64_t, std::uint32_t, const tvx_thread_services*);    \
  template T median_by_selection<T>(T*, std::int64_t);
TVX_SS_ORDER_INSTANCES(double)
TVX_SS_ORDER_INSTANCES(float)

}  // namespace tvx::TVX_VNS::ss
