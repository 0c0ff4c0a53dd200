// Stream quantiles: approximate quantiles with rank error at most eps * N over a stream of blocks
// of unknown total length N, in memory that grows with the logarithm of eps * N. Each variable
// keeps its own summary in the task (stats/stream.h), fed block by block and freed when the task
// is deleted.
//
// The stream is cut into epochs; epoch k takes C(k) = floor((2^(k+2) - 1)/eps) -
// floor((2^(k+1) - 1)/eps) observations and has its own block size b = log2(C(k) eps)/eps. A full
// level-0 buffer of b values is sorted and compressed to its b/2 entries at odd positions, which
// then carries like a binary counter through the levels: two lists of one level are merged (with
// rank bounds) and compressed into the next.
#include <cstddef>
#include <cstring>

#include "stats/groups.h"
#include "stats/order.h"
#include "stats/stream.h"

namespace tvx::TVX_VNS::ss {
namespace {

using tvx::ss::StreamDescriptor;
using tvx::ss::StreamEpoch;
using tvx::ss::StreamSummary;

// A sorted list with rank bounds.
struct List {
  double* v;
  std::int64_t* lo;
  std::int64_t* up;
  std::int64_t n;
};

// Merges x and y (both ascending) into z. Ties go to y. A taken entry's lower rank adds that of the
// last entry taken from the other list; its upper rank adds that of the other list's head, less
// one. The rest of a list left over adds the used-up list's last ranks.
void merge(const List& x, const List& y, List* z) {
  std::int64_t i = 0, j = 0, k = 0, last_lo_x = 0, last_lo_y = 0;
  while (i < x.n && j < y.n) {
    if (y.v[j] > x.v[i]) {
      z->v[k] = x.v[i];
      z->lo[k] = x.lo[i] + last_lo_y;
      z->up[k] = x.up[i] + y.up[j] - 1;
      last_lo_x = x.lo[i];
      ++i;
    } else {
      z->v[k] = y.v[j];
      z->lo[k] = y.lo[j] + last_lo_x;
      z->up[k] = y.up[j] + x.up[i] - 1;
      last_lo_y = y.lo[j];
      ++j;
    }
    ++k;
  }
  const std::int64_t x_up = x.n > 0 ? x.up[x.n - 1] : 0, y_up = y.n > 0 ? y.up[y.n - 1] : 0;
  for (; i < x.n; ++i, ++k) {
    z->v[k] = x.v[i];
    z->lo[k] = x.lo[i] + (y.n > 0 ? y.lo[y.n - 1] : 0);
    z->up[k] = x.up[i] + y_up;
  }
  for (; j < y.n; ++j, ++k) {
    z->v[k] = y.v[j];
    z->lo[k] = y.lo[j] + (x.n > 0 ? x.lo[x.n - 1] : 0);
    z->up[k] = y.up[j] + x_up;
  }
  z->n = k;
}

// Entries at odd positions 1, 3, 5, ... of a (in place allowed: the write index never passes the
// read index).
void compress(const List& a, List* out) {
  const std::int64_t h = a.n / 2;
  for (std::int64_t j = 0; j < h; ++j) {
    out->v[j] = a.v[2 * j + 1];
    out->lo[j] = a.lo[2 * j + 1];
    out->up[j] = a.up[2 * j + 1];
  }
  out->n = h;
}

List row(const StreamEpoch& e, std::int64_t level, std::int64_t n) {
  const std::int64_t at = level * (e.block_size + 1);
  return List{e.values + at, e.rank_lower + at, e.rank_upper + at, n};
}

// Observations epoch k takes. Powers in 64 bits, so the capacities keep growing (the exponent is
// capped far beyond any reachable stream).
std::int64_t epoch_capacity(std::int64_t k, double eps) {
  const int e = k > 60 ? 60 : static_cast<int>(k);
  const double a = static_cast<double>((std::int64_t{1} << (e + 2)) - 1);
  const double b = static_cast<double>((std::int64_t{1} << (e + 1)) - 1);
  // Exact while the quotients stay below 2^53; clamped where a tiny eps would overflow.
  const double c = std::floor(a / eps) - std::floor(b / eps);
  return c < 1 ? 1 : c > 0x1p62 ? std::int64_t{1} << 62 : static_cast<std::int64_t>(c);
}

// Appends epoch k to a descriptor. False on allocation failure, the descriptor unchanged.
bool open_epoch(StreamDescriptor* d, std::int64_t k, double eps) {
  const std::int64_t capacity = epoch_capacity(k, eps);
  // A capacity at the clamp or a buffer beyond 2^40 values cannot be had (eps below about
  // 1e-11): out of memory.
  if (capacity >= std::int64_t{1} << 62) return false;
  const double l2 = std::log(static_cast<double>(capacity) * eps) * 1.4426950408889634;
  const double size = l2 / eps;
  if (!(size < 0x1p40)) return false;
  // At least two, so that a compressed list keeps an entry.
  const std::int64_t b = size < 2 ? 2 : static_cast<std::int64_t>(size);
  std::int64_t levels = static_cast<std::int64_t>(l2 + 2);
  if (levels < 1) levels = 1;
  std::size_t cells, bytes;
  // L+1 rows and a spare one for merges.
  if (!bytes_of(static_cast<std::size_t>(levels + 2), static_cast<std::size_t>(b + 1), 1, &cells) ||
      !bytes_of(cells, 3 * 8, 1, &bytes) ||
      bytes + static_cast<std::size_t>(levels + 1) * 8 < bytes)
    return false;
  bytes += static_cast<std::size_t>(levels + 1) * 8;
  auto* epochs = static_cast<StreamEpoch*>(
      tvx_malloc(static_cast<std::size_t>(d->epoch_count + 1) * sizeof(StreamEpoch), 64));
  if (epochs == nullptr) return false;
  auto* block = static_cast<unsigned char*>(tvx_calloc(1, bytes, 64));
  if (block == nullptr) {
    tvx_free(epochs);
    return false;
  }
  if (d->epoch_count > 0)
    std::memcpy(epochs, d->epochs, static_cast<std::size_t>(d->epoch_count) * sizeof(StreamEpoch));
  StreamEpoch& e = epochs[d->epoch_count];
  e.observation_total = 0;
  e.block_size = b;
  e.level_limit = levels;
  e.top_level = 0;
  e.buffer_fill = 0;
  e.level_occupied = reinterpret_cast<std::int64_t*>(block);
  e.rank_lower = e.level_occupied + (levels + 1);
  e.rank_upper = e.rank_lower + cells;
  e.values = reinterpret_cast<double*>(e.rank_upper + cells);
  tvx_free(d->epochs);
  d->epochs = epochs;
  d->epoch_count += 1;
  d->current_epoch = k;
  return true;
}

void free_summary(Task* t) {
  auto* s = static_cast<StreamSummary*>(t->stream_summary);
  if (s == nullptr) return;
  for (std::int64_t v = 0; v < s->variable_count; ++v) {
    StreamDescriptor& d = s->variables[v];
    for (std::int64_t k = 0; k < d.epoch_count; ++k) tvx_free(d.epochs[k].level_occupied);
    tvx_free(d.epochs);
  }
  tvx_free(s);
  t->stream_summary = nullptr;
}

template <class T>
struct FeedContext {
  StreamSummary* summary;
  const T* x;
  std::int64_t p, n, start, count;  // feed observations [start, start + count) of the block
  bool cols;
};

// Feeds `count` observations of one variable into its current epoch, which has room for them.
template <class T>
void feed_one(std::int64_t v, int, int, void* context) {
  auto& c = *static_cast<FeedContext<T>*>(context);
  StreamDescriptor& d = c.summary->variables[v];
  if (!d.selected) return;
  StreamEpoch& e = d.epochs[d.epoch_count - 1];
  const std::int64_t b = e.block_size, h = b / 2;
  double* buf = e.values;
  std::int64_t left = c.count, i = c.start;
  while (left > 0) {
    std::int64_t take = b - e.buffer_fill;
    if (take > left) take = left;
    for (std::int64_t k = 0; k < take; ++k, ++i)
      buf[e.buffer_fill + k] = static_cast<double>(c.cols ? c.x[i * c.p + v] : c.x[v * c.n + i]);
    e.buffer_fill += take;
    e.observation_total += take;
    left -= take;
    if (e.buffer_fill < b) break;
    // Full: sort, and take the odd positions; their ranks are their 1-based places.
    sort_values(buf, b);
    List carry = row(e, 0, 0);
    for (std::int64_t j = 0; j < h; ++j) {
      carry.v[j] = buf[2 * j + 1];
      carry.lo[j] = carry.up[j] = 2 * j + 2;
    }
    carry.n = h;
    // Carry through the levels; a merge of two lists goes to the spare row past the last level.
    List merged = row(e, e.level_limit + 1, 0);
    for (std::int64_t level = 1;; ++level) {
      List dst = row(e, level, h);
      if (!e.level_occupied[level]) {
        std::memcpy(dst.v, carry.v, static_cast<std::size_t>(h) * sizeof(double));
        std::memcpy(dst.lo, carry.lo, static_cast<std::size_t>(h) * sizeof(std::int64_t));
        std::memcpy(dst.up, carry.up, static_cast<std::size_t>(h) * sizeof(std::int64_t));
      } else {
        merge(carry, dst, &merged);
        // The counter cannot pass the last level within the epoch's capacity; should it, the
        // last level keeps the compressed merge.
        if (level < e.level_limit) {
          compress(merged, &carry);
          e.level_occupied[level] = 0;
          continue;
        }
        compress(merged, &dst);
      }
      e.level_occupied[level] = 1;
      if (level > e.top_level) e.top_level = level;
      break;
    }
    e.buffer_fill = 0;
  }
}

}  // namespace

template <class T>
int stream_group(Task* t, std::int64_t, std::uint32_t method, const tvx_thread_services* services) {
  if (t->observation_count == nullptr) return RUD_SS_ERROR_BAD_OBSERVATION_COUNT;
  const std::int64_t n = read_int(t, t->observation_count);
  if (n < 0) return RUD_SS_ERROR_BAD_OBSERVATION_COUNT;
  std::int64_t storage = 0;
  if (n > 0) {
    if (t->observations == nullptr) return RUD_SS_ERROR_NULL_OBSERVATIONS;
    if (t->observation_storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
    storage = read_int(t, t->observation_storage);
    if ((storage & 0x30000) == 0) return RUD_SS_ERROR_BAD_STORAGE;
  }
  if (t->stream_quantiles == nullptr) return RUD_SS_ERROR_NULL_STREAM_QUANTILES;
  if (t->stream_orders == nullptr) return RUD_SS_ERROR_NULL_STREAM_ORDERS;
  if (t->stream_order_count == nullptr) return RUD_SS_ERROR_NULL_STREAM_ORDER_COUNT;
  const std::int64_t m = read_int(t, t->stream_order_count);
  if (m < 0) return RUD_SS_ERROR_NULL_STREAM_ORDER_COUNT;
  if (t->stream_param_count == nullptr) return RUD_SS_ERROR_NULL_STREAM_PARAM_COUNT;
  if (read_int(t, t->stream_param_count) != 1) return RUD_SS_ERROR_NULL_STREAM_PARAM_COUNT_FIELD;
  const T* orders = static_cast<const T*>(t->stream_orders);
  for (std::int64_t k = 0; k < m; ++k)
    if (!(orders[k] >= 0 && orders[k] <= 1)) return RUD_SS_ERROR_NULL_STREAM_ORDER_COUNT;
  if (t->stream_params == nullptr) return RUD_SS_ERROR_NULL_STREAM_PARAMS;
  if ((method & 0xC0) == 0) return RUD_SS_ERROR_BAD_METHOD;
  const double eps = static_cast<double>(static_cast<const T*>(t->stream_params)[0]);
  if (!(eps > 0 && eps <= 1)) return RUD_SS_ERROR_BAD_STREAM_ACCURACY;

  const std::int64_t p = read_int(t, t->variable_count);
  auto* s = static_cast<StreamSummary*>(t->stream_summary);
  if (s != nullptr) {
    // The set of variables is fixed by the first call.
    if (s->variable_count != p) return RUD_SS_ERROR_NULL_VARIABLE_SELECTION;
    if (t->variable_selection != nullptr) {
      std::int64_t now = 0;
      for (std::int64_t v = 0; v < p; ++v) {
        if (!selected(t, v)) continue;
        ++now;
        if (!s->variables[v].selected) return RUD_SS_ERROR_NULL_VARIABLE_SELECTION;
      }
      if (now == 0) return RUD_SS_ERROR_NULL_VARIABLE_SELECTION;
    }
  } else {
    std::int64_t count = 0;
    for (std::int64_t v = 0; v < p; ++v) count += selected(t, v);
    if (count == 0) return RUD_SS_ERROR_NULL_VARIABLE_SELECTION;
    if (t->hook_count >= tvx::ss::kMaxHooks) return RUD_SS_ERROR_ALLOCATION_FAILURE;
    std::size_t bytes;
    if (!bytes_of(static_cast<std::size_t>(p), sizeof(StreamDescriptor), 1, &bytes))
      return RUD_SS_ERROR_ALLOCATION_FAILURE;
    bytes += offsetof(StreamSummary, variables);
    s = static_cast<StreamSummary*>(tvx_calloc(1, bytes, 64));
    if (s == nullptr) return RUD_SS_ERROR_ALLOCATION_FAILURE;
    s->variable_count = p;
    s->eps = eps;
    for (std::int64_t v = 0; v < p; ++v) {
      s->variables[v].current_epoch = -1;
      s->variables[v].selected = selected(t, v);
    }
    t->stream_summary = s;
    t->hooks[t->hook_count++] = &free_summary;
  }
  // A stream keeps the accuracy it started with (a later value is checked, not used).
  const double stream_eps = s->eps;
  std::int64_t first = 0;  // a taking-part variable: all of them are fed alike
  while (!s->variables[first].selected) ++first;

  // Feeding, one epoch's room at a time.
  FeedContext<T> fc{s, static_cast<const T*>(t->observations), p, n, 0,
                    0, n > 0 && columns_layout(storage, p)};
  std::int64_t r = n;
  while (r > 0) {
    const StreamDescriptor& d0 = s->variables[first];
    std::int64_t k = d0.current_epoch, room = 0;
    if (k >= 0)
      room = epoch_capacity(k, stream_eps) - d0.epochs[d0.epoch_count - 1].observation_total;
    if (room <= 0) room = epoch_capacity(++k, stream_eps);
    // Every taking-part variable opens epoch k; one that failed to at an earlier call (out of
    // memory) catches up here.
    for (std::int64_t v = 0; v < p; ++v) {
      StreamDescriptor& d = s->variables[v];
      if (d.selected && d.current_epoch != k && !open_epoch(&d, k, stream_eps))
        return RUD_SS_ERROR_ALLOCATION_FAILURE;
    }
    fc.count = room < r ? room : r;
    services->parallel_for(p, &fc, 0, &feed_one<T>);
    fc.start += fc.count;
    r -= fc.count;
  }
  if ((method & 0x40) == 0) return 0;

  // Answer: all lists of each variable merged into one, then the entry whose middle rank is
  // nearest each q N.
  T* out = static_cast<T*>(t->stream_quantiles);
  std::int64_t row_number = 0;
  for (std::int64_t v = 0; v < p; ++v) {
    StreamDescriptor& d = s->variables[v];
    if (!d.selected) continue;
    std::int64_t total = 0, entries = 0;
    for (std::int64_t k = 0; k < d.epoch_count; ++k) {
      const StreamEpoch& e = d.epochs[k];
      total += e.observation_total;
      entries += e.buffer_fill;
      for (std::int64_t l = 1; l <= e.top_level; ++l)
        if (e.level_occupied[l]) entries += e.block_size / 2;
    }
    Scratch scratch;
    std::size_t bytes;
    if (!bytes_of(static_cast<std::size_t>(entries) + 1, 6 * 8, 1, &bytes) ||
        !scratch.take(bytes, false))
      return RUD_SS_ERROR_ALLOCATION_FAILURE;
    const std::int64_t cap = entries + 1;
    auto* base = scratch.as<double>();
    auto* ranks = reinterpret_cast<std::int64_t*>(base + 2 * cap);
    List acc{base, ranks, ranks + cap, 0}, tmp{base + cap, ranks + 2 * cap, ranks + 3 * cap, 0};
    for (std::int64_t k = 0; k < d.epoch_count; ++k) {
      StreamEpoch& e = d.epochs[k];
      // The level-0 buffer is kept unsorted between calls; its ranks are its places.
      sort_values(e.values, e.buffer_fill);
      List buf = row(e, 0, e.buffer_fill);
      for (std::int64_t j = 0; j < e.buffer_fill; ++j) buf.lo[j] = buf.up[j] = j + 1;
      for (std::int64_t l = 0; l <= e.top_level; ++l) {
        if (l > 0 && !e.level_occupied[l]) continue;
        const List add = l == 0 ? buf : row(e, l, e.block_size / 2);
        if (add.n == 0) continue;
        merge(acc, add, &tmp);
        std::swap(acc, tmp);
      }
    }
    if (acc.n > 0) {
      for (std::int64_t o = 0; o < m; ++o) {
        const double target = static_cast<double>(orders[o]) * static_cast<double>(total);
        std::int64_t best = 2 * total;
        for (std::int64_t j = 0; j < acc.n; ++j) {
          const auto e = static_cast<std::int64_t>(
              std::fabs(0.5 * static_cast<double>(acc.lo[j] + acc.up[j]) - target));
          if (e < best) {
            best = e;
            out[row_number * m + o] = static_cast<T>(acc.v[j]);
          }
        }
      }
    }
    ++row_number;
  }
  return 0;
}

template int stream_group<double>(Task*, std::int64_t, std::uint32_t, const tvx_thread_services*);
template int stream_group<float>(Task*, std::int64_t, std::uint32_t, const tvx_thread_services*);

}  // namespace tvx::TVX_VNS::ss
