// The aligned allocator: per-thread caches of five buffers, direct blocks, process statistics, and
// the optional high-bandwidth memory underneath.
//
// Layers, top to bottom:
//   tvx_malloc / tvx_free      thread cache, direct blocks, 24-byte block header
//   entry points               four functions (malloc, calloc, realloc, free): the C library's,
//                              a companion module's, or the high-bandwidth wrappers below
//   high-bandwidth wrappers    memkind loaded at run time, 32-byte header, budget
//
// Locks, always taken in this order: the table lock, a cell lock, then one of the leaf locks
// (process counters, peak statistics, high-bandwidth budget). The owner of a cache takes only its
// own cell lock on the fast path.
#include "runtime/memory.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "runtime/cpu_type.h"
#include "runtime/report.h"
#include "runtime/verbose.h"

namespace {

// ---- Entry points ------------------------------------------------------------------------------

struct EntryPoints {
  void* (*malloc)(std::size_t);
  void* (*calloc)(std::size_t, std::size_t);
  void* (*realloc)(void*, std::size_t);
  void (*free)(void*);
};

void* libc_malloc(std::size_t n) {
  return std::malloc(n);
}
void* libc_calloc(std::size_t n, std::size_t s) {
  return std::calloc(n, s);
}
void* libc_realloc(void* p, std::size_t n) {
  return std::realloc(p, n);
}
void libc_free(void* p) {
  std::free(p);
}

constexpr EntryPoints kLibc = {libc_malloc, libc_calloc, libc_realloc, libc_free};

// Written at attach and at initialisation (under the init lock), read-only afterwards.
EntryPoints g_entry = kLibc;
bool g_entry_is_libc = true;
void* g_companion_handle = nullptr;

// The companion allocator: a module that offers four data symbols, each holding a function.
constexpr const char* kCompanionModule = "libtvx_companion_mm.so";
constexpr const char* kCompanionSymbols[4] = {"tvx_companion_malloc", "tvx_companion_calloc",
                                              "tvx_companion_realloc", "tvx_companion_free"};
constexpr const char* kHbwModule = "libmemkind.so.0";

const char* g_companion_name = kCompanionModule;
const char* g_hbw_name = kHbwModule;
bool g_assume_hbw_features = false;

void choose_entry_points() {
  if (g_companion_handle != nullptr) {
    dlclose(g_companion_handle);
    g_companion_handle = nullptr;
  }
  g_entry = kLibc;
  g_entry_is_libc = true;
  void* handle = dlopen(g_companion_name, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return;
  void* fn[4];
  for (int i = 0; i < 4; ++i) {
    void* sym = dlsym(handle, kCompanionSymbols[i]);
    fn[i] = sym != nullptr ? *static_cast<void**>(sym) : nullptr;
    if (fn[i] == nullptr) {
      dlclose(handle);
      return;
    }
  }
  g_entry.malloc = reinterpret_cast<void* (*)(std::size_t)>(fn[0]);
  g_entry.calloc = reinterpret_cast<void* (*)(std::size_t, std::size_t)>(fn[1]);
  g_entry.realloc = reinterpret_cast<void* (*)(void*, std::size_t)>(fn[2]);
  g_entry.free = reinterpret_cast<void (*)(void*)>(fn[3]);
  g_entry_is_libc = false;
  g_companion_handle = handle;
}

// ---- High-bandwidth memory ---------------------------------------------------------------------

// AVX512F (27), AVX512ER (32), AVX512PF (33), AVX512CD (34): the processors that carry such memory.
constexpr int kHbwFeatureBits[4] = {27, 32, 33, 34};
constexpr int kMinMemkindVersion = 1001000;  // 1.1.0
constexpr std::size_t kHbwHeader = 32;
constexpr std::size_t kHugePage = 0x200000;
constexpr int kPageSize2M = 2;
constexpr int kPageSize4K = 1;

using HbwMemalignFn = int (*)(void**, std::size_t, std::size_t, int);
using HbwFreeFn = void (*)(void*);
void* g_hbw_handle = nullptr;
HbwMemalignFn g_hbw_memalign = nullptr;
HbwFreeFn g_hbw_free = nullptr;

// Budget in bytes: -1 no limit, 0 none at all. Guarded by g_budget_lock once limited.
std::int64_t g_hbw_limit = -1;
bool g_hbw_limit_set = false;
volatile std::int32_t g_budget_lock = 0;

// Header below a high-bandwidth wrapper block. `kind`: 0 plain memory, 1 high-bandwidth memory,
// 2 high-bandwidth memory charged to the budget.
struct HbwHeader {
  void* raw;
  std::uint64_t kind;
  std::uint64_t total;
  std::uint64_t alignment;
};
static_assert(sizeof(HbwHeader) == kHbwHeader);

bool load_hbw_library() {
  if (!g_assume_hbw_features) {
    for (int bit : kHbwFeatureBits) {
      if (!tvx_cpu_has_feature(bit)) return false;
    }
  }
  void* handle = dlopen(g_hbw_name, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return false;
  auto version = reinterpret_cast<int (*)()>(dlsym(handle, "memkind_get_version"));
  if (version == nullptr || version() < kMinMemkindVersion) {
    if (*tvx_verbose_mode() != 0) {
      tvx_verbose_message("Minimal supported version of the memkind library is 1.1.0");
    }
    dlclose(handle);
    return false;
  }
  auto memalign = reinterpret_cast<HbwMemalignFn>(dlsym(handle, "hbw_posix_memalign_psize"));
  auto release = reinterpret_cast<HbwFreeFn>(dlsym(handle, "hbw_free"));
  if (memalign == nullptr || release == nullptr) {
    dlclose(handle);
    return false;
  }
  g_hbw_handle = handle;
  g_hbw_memalign = memalign;
  g_hbw_free = release;
  return true;
}

// Answers whether `total` bytes fit the budget. With a finite budget a yes keeps the budget lock
// held (*locked) until the caller has tried the allocation.
bool hbw_budget_allows(std::uint64_t total, bool* locked) {
  *locked = false;
  if (g_hbw_handle == nullptr) return false;
  tvx_lock(&g_budget_lock);
  const std::int64_t limit = g_hbw_limit;
  if (limit == -1) {
    tvx_unlock(&g_budget_lock);
    return true;
  }
  if (limit > 0 && static_cast<std::uint64_t>(limit) > total) {
    *locked = true;
    return true;
  }
  tvx_unlock(&g_budget_lock);
  return false;
}

void* hbw_malloc(std::size_t size) {
  if (size > SIZE_MAX - kHbwHeader) return nullptr;
  const std::size_t total = size + kHbwHeader;
  bool locked = false;
  void* raw = nullptr;
  std::uint64_t kind = 0;
  std::uint64_t alignment = 0;
  if (hbw_budget_allows(total, &locked)) {
    // Huge pages first, then small pages; plain memory when neither works.
    if (g_hbw_memalign(&raw, kHugePage, total, kPageSize2M) == 0 && raw != nullptr) {
      alignment = kHugePage;
    } else {
      raw = nullptr;
      if (g_hbw_memalign(&raw, 4096, total, kPageSize4K) == 0 && raw != nullptr) {
        alignment = 4096;
      } else {
        raw = nullptr;
      }
    }
    if (raw != nullptr) kind = locked ? 2 : 1;
    if (locked) {
      if (raw != nullptr) g_hbw_limit -= static_cast<std::int64_t>(total);
      tvx_unlock(&g_budget_lock);
    }
  }
  if (raw == nullptr) {
    raw = std::malloc(total);
    if (raw == nullptr) return nullptr;
  }
  auto* h = static_cast<HbwHeader*>(raw);
  *h = HbwHeader{raw, kind, total, alignment};
  return static_cast<char*>(raw) + kHbwHeader;
}

void hbw_release(void* p) {
  if (p == nullptr) return;
  const HbwHeader h = *reinterpret_cast<HbwHeader*>(static_cast<char*>(p) - kHbwHeader);
  if (h.kind == 0) {
    std::free(h.raw);
    return;
  }
  g_hbw_free(h.raw);
  if (h.kind == 2) {
    tvx_lock(&g_budget_lock);
    g_hbw_limit += static_cast<std::int64_t>(h.total);
    tvx_unlock(&g_budget_lock);
  }
}

void* hbw_calloc(std::size_t n, std::size_t s) {
  if (s != 0 && n > SIZE_MAX / s) return nullptr;
  void* p = hbw_malloc(n * s);
  if (p != nullptr) std::memset(p, 0, n * s);
  return p;
}

void* hbw_realloc(void* p, std::size_t size) {
  if (p == nullptr) return hbw_malloc(size);
  void* q = hbw_malloc(size);
  if (q == nullptr) return nullptr;
  const auto* h = reinterpret_cast<const HbwHeader*>(static_cast<char*>(p) - kHbwHeader);
  const std::size_t old = h->total - kHbwHeader;
  std::memcpy(q, p, old < size ? old : size);
  hbw_release(p);
  return q;
}

constexpr EntryPoints kHbw = {hbw_malloc, hbw_calloc, hbw_realloc, hbw_release};

// ---- Initialisation ----------------------------------------------------------------------------

volatile std::int32_t g_init_lock = 0;
std::atomic<int> g_init_done{0};
bool g_switch_decided = false;  // TVX_DISABLE_FAST_MM read or tvx_disable_fast_mm called
bool g_fast_mm = true;
bool g_hbw_active = false;
thread_local bool t_in_init = false;

void thread_exit_release();

void parse_memory_limit() {
  char buf[64];
  if (tvx_getenv("TVX_FAST_MEMORY_LIMIT", buf, sizeof buf) <= 0) return;
  char* end = nullptr;
  const long long v = std::strtoll(buf, &end, 10);
  if (end == buf || *end != '\0') return;
  if (v < 0) {
    g_hbw_limit = -1;
  } else if (v > (INT64_MAX >> 20)) {
    g_hbw_limit = INT64_MAX;
  } else {
    g_hbw_limit = static_cast<std::int64_t>(v) << 20;
  }
  g_hbw_limit_set = true;
}

void init_slow() {
  if (t_in_init) return;  // an allocation made by the set-up itself: plain memory, no cache
  tvx_lock(&g_init_lock);
  if (g_init_done.load(std::memory_order_relaxed) == 0) {
    t_in_init = true;
    if (!g_switch_decided) {
      char buf[16];
      g_fast_mm = tvx_getenv("TVX_DISABLE_FAST_MM", buf, sizeof buf) == 0;
      g_switch_decided = true;
    }
    parse_memory_limit();
    if (g_entry_is_libc && load_hbw_library()) {
      g_entry = kHbw;
      g_hbw_active = true;
    }
    tvx_register_thread_exit(thread_exit_release);
    t_in_init = false;
    g_init_done.store(1, std::memory_order_release);
  }
  tvx_unlock(&g_init_lock);
}

inline bool ensure_init() {
  if (g_init_done.load(std::memory_order_acquire) != 0) return true;
  init_slow();
  return g_init_done.load(std::memory_order_acquire) != 0;
}

// ---- Statistics --------------------------------------------------------------------------------

// Memory of caches that are gone or of threads without a cache.
volatile std::int32_t g_counters_lock = 0;
std::uint64_t g_finished_bytes = 0;
std::int64_t g_finished_count = 0;

std::atomic<int> g_peak_mode{-1};  // -1 or 0 off, 1 on
volatile std::int32_t g_peak_lock = 0;
std::int64_t g_cur_bytes = 0, g_cur_count = 0, g_peak_bytes = 0, g_peak_count = 0;

void peak_charge(std::int64_t bytes, std::int64_t count) {
  if (g_peak_mode.load(std::memory_order_relaxed) != 1) return;
  tvx_lock(&g_peak_lock);
  g_cur_bytes += bytes;
  g_cur_count += count;
  if (g_cur_bytes > g_peak_bytes) g_peak_bytes = g_cur_bytes;
  if (g_cur_count > g_peak_count) g_peak_count = g_cur_count;
  tvx_unlock(&g_peak_lock);
}

void finished_add(std::uint64_t bytes, std::int64_t count) {
  tvx_lock(&g_counters_lock);
  g_finished_bytes += bytes;
  g_finished_count += count;
  tvx_unlock(&g_counters_lock);
}

// ---- Thread caches and their table -------------------------------------------------------------

constexpr int kSlots = TVX_MEM_CACHE_SLOTS;
constexpr std::uint64_t kHeader = TVX_MEM_HEADER_BYTES;
constexpr std::uint64_t kCeiling = TVX_MEM_CACHE_CEILING;

struct ThreadCache {
  void* raw[kSlots];
  char* aligned[kSlots];
  std::uint64_t requested[kSlots];
  std::uint64_t capacity[kSlots];  // size + alignment at creation; the buffer has kHeader more
  std::int64_t in_use[kSlots];
  std::int32_t slot_count;
  std::int32_t direct_count;
  std::uint64_t direct_bytes;
  std::int32_t retired;
};

struct BlockHeader {
  void* raw;  // null: a buffer of a thread cache
  std::uint64_t total;
  std::uint32_t alignment;
};
static_assert(sizeof(BlockHeader) == kHeader);

inline BlockHeader* header_of(void* p) {
  return static_cast<BlockHeader*>(p) - 1;
}

// The aligned pointer inside a buffer: (raw + alignment + header) rounded down. It leaves room for
// the header below and `size` bytes above in a buffer of size + alignment + header bytes.
inline char* aligned_in(void* raw, std::uint64_t a) {
  const auto p = (reinterpret_cast<std::uintptr_t>(raw) + a + kHeader) & ~(a - 1);
  return reinterpret_cast<char*>(p);
}

inline std::uint64_t normalise_alignment(int alignment) {
  if (alignment < static_cast<int>(TVX_MEM_DEFAULT_ALIGNMENT)) return TVX_MEM_DEFAULT_ALIGNMENT;
  const auto a = static_cast<std::uint64_t>(alignment);
  return (a & (a - 1)) == 0 ? a : TVX_MEM_DEFAULT_ALIGNMENT;
}

// 1024 first-level cells, each with the lock that also guards the indices of further chunks that
// share its low ten bits. Chunk k (1..54) holds the indices [2^(9+k), 2^(10+k)).
constexpr int kCells = 1024;
constexpr int kChunks = 55;
constexpr std::uint64_t kMaxIndex = std::uint64_t{1} << 40;

struct alignas(64) Cell {
  volatile std::int32_t lock;
  ThreadCache* cache;
};
Cell g_cells[kCells];
ThreadCache** g_chunks[kChunks];
void* g_chunk_raw[kChunks];

volatile std::int32_t g_table_lock = 0;      // the table as a whole
std::atomic<std::uint32_t> g_generation{1};  // rises when a global release empties the table
std::uint64_t g_thread_count = 0;            // indices handed out in this generation

struct ThreadSlot {
  std::uint64_t index;
  std::uint32_t generation;  // 0: no index
};
thread_local ThreadSlot t_slot = {0, 0};

inline int chunk_of(std::uint64_t index) {
  return 63 - __builtin_clzll(index) - 9;
}

ThreadCache** cache_ref(std::uint64_t index) {
  if (index < kCells) return &g_cells[index].cache;
  const int k = chunk_of(index);
  return &g_chunks[k][index - (std::uint64_t{1} << (k + 9))];
}

// Page-aligned, zero-filled memory for a chunk of the table.
bool make_chunk(int k) {
  const std::size_t page = 4096;
  const std::size_t bytes = (std::size_t{1} << (k + 9)) * sizeof(ThreadCache*);
  void* raw = g_entry.calloc(1, bytes + page);
  if (raw == nullptr) return false;
  const auto p = (reinterpret_cast<std::uintptr_t>(raw) + page - 1) & ~(page - 1);
  g_chunk_raw[k] = raw;
  g_chunks[k] = reinterpret_cast<ThreadCache**>(p);
  return true;
}

bool acquire_index() {
  tvx_lock(&g_table_lock);
  const std::uint64_t index = g_thread_count;
  bool ok = index < kMaxIndex;
  if (ok && index >= kCells) {
    const int k = chunk_of(index);
    if (g_chunks[k] == nullptr) ok = make_chunk(k);
  }
  if (ok) {
    g_thread_count = index + 1;
    t_slot.index = index;
    t_slot.generation = g_generation.load(std::memory_order_relaxed);
  }
  tvx_unlock(&g_table_lock);
  return ok;
}

// The calling thread's cache with its cell lock held, made on demand when `create` is set.
struct OwnCache {
  ThreadCache* cache;
  Cell* cell;
  ThreadCache** ref;
};

OwnCache lock_own_cache(bool create) {
  for (;;) {
    if (t_slot.generation != g_generation.load(std::memory_order_acquire)) {
      if (!create) return {nullptr, nullptr, nullptr};
      if (!acquire_index()) return {nullptr, nullptr, nullptr};
    }
    Cell* cell = &g_cells[t_slot.index & (kCells - 1)];
    tvx_lock(&cell->lock);
    if (t_slot.generation != g_generation.load(std::memory_order_relaxed)) {
      tvx_unlock(&cell->lock);  // a global release emptied the table meanwhile
      continue;
    }
    ThreadCache** ref = cache_ref(t_slot.index);
    ThreadCache* c = *ref;
    if (c == nullptr) {
      if (create) c = static_cast<ThreadCache*>(g_entry.calloc(1, sizeof(ThreadCache)));
      if (c == nullptr) {
        tvx_unlock(&cell->lock);
        return {nullptr, nullptr, nullptr};
      }
      *ref = c;
      tvx_thread_touch();
    }
    return {c, cell, ref};
  }
}

void release_slot_buffer(ThreadCache* c, int i) {
  if (c->raw[i] != nullptr) {
    g_entry.free(c->raw[i]);
    peak_charge(-static_cast<std::int64_t>(c->capacity[i] + kHeader), -1);
  }
  c->raw[i] = nullptr;
  c->aligned[i] = nullptr;
  c->capacity[i] = 0;
  c->requested[i] = 0;
  c->in_use[i] = 0;
}

// Frees the free slots and moves the slots in use to the front.
void drop_free_slots(ThreadCache* c) {
  int kept = 0;
  for (int i = 0; i < c->slot_count; ++i) {
    if (c->in_use[i] == 0) {
      release_slot_buffer(c, i);
      continue;
    }
    if (kept != i) {
      c->raw[kept] = c->raw[i];
      c->aligned[kept] = c->aligned[i];
      c->requested[kept] = c->requested[i];
      c->capacity[kept] = c->capacity[i];
      c->in_use[kept] = 1;
      c->raw[i] = nullptr;
      c->aligned[i] = nullptr;
      c->capacity[i] = 0;
      c->requested[i] = 0;
      c->in_use[i] = 0;
    }
    ++kept;
  }
  c->slot_count = kept;
}

// Hands the counters of a cache's direct blocks over to the process counters.
void move_direct_counters(ThreadCache* c) {
  finished_add(c->direct_bytes, c->direct_count);
  c->direct_bytes = 0;
  c->direct_count = 0;
}

void release_cache(ThreadCache* c, ThreadCache** ref) {
  move_direct_counters(c);
  g_entry.free(c);
  *ref = nullptr;
}

char* hand_out(ThreadCache* c, int i, std::size_t size, std::uint64_t a) {
  c->in_use[i] = 1;
  c->requested[i] = size;
  char* p = aligned_in(c->raw[i], a);
  c->aligned[i] = p;
  *header_of(p) = BlockHeader{nullptr, c->capacity[i] + kHeader, static_cast<std::uint32_t>(a)};
  return p;
}

// Counts a direct block (or a change of its size) for the calling thread.
void account_direct(std::int64_t count, std::uint64_t bytes) {
  OwnCache own = lock_own_cache(false);
  if (own.cache != nullptr) {
    own.cache->direct_count += static_cast<std::int32_t>(count);
    own.cache->direct_bytes += bytes;
    tvx_unlock(&own.cell->lock);
  } else {
    finished_add(bytes, count);
  }
  peak_charge(static_cast<std::int64_t>(bytes), count);
}

void release_own(bool exiting) {
  OwnCache own = lock_own_cache(false);
  if (own.cache != nullptr) {
    ThreadCache* c = own.cache;
    drop_free_slots(c);
    if (c->slot_count == 0) {
      release_cache(c, own.ref);
    } else if (exiting) {
      // Blocks still in use may come back through another thread; the record waits for them.
      move_direct_counters(c);
      c->retired = 1;
    }
    tvx_unlock(&own.cell->lock);
  }
  if (exiting) t_slot.generation = 0;
}

void thread_exit_release() {
  release_own(true);
}

// Looks for a cached block in the caches of all threads; clears it where found.
bool free_foreign(void* p) {
  bool found = false;
  tvx_lock(&g_table_lock);
  for (std::uint64_t index = 0; index < g_thread_count && !found; ++index) {
    Cell* cell = &g_cells[index & (kCells - 1)];
    tvx_lock(&cell->lock);
    ThreadCache** ref = cache_ref(index);
    ThreadCache* c = *ref;
    if (c != nullptr) {
      bool busy = false;
      for (int i = 0; i < c->slot_count; ++i) {
        if (c->in_use[i] != 0 && c->aligned[i] == p) {
          c->in_use[i] = 0;
          found = true;
        }
        busy = busy || c->in_use[i] != 0;
      }
      if (found && c->retired != 0 && !busy) {
        drop_free_slots(c);
        release_cache(c, ref);
      }
    }
    tvx_unlock(&cell->lock);
  }
  tvx_unlock(&g_table_lock);
  return found;
}

// ---- Clean-up list -----------------------------------------------------------------------------

constexpr int kCleanupMax = 2;
tvx_cleanup_fn g_cleanup[kCleanupMax];
int g_cleanup_count = 0;
volatile std::int32_t g_cleanup_lock = 0;

}  // namespace

extern "C" {

void* tvx_malloc_direct(std::size_t size, int alignment) {
  if (!ensure_init() && !t_in_init) return nullptr;
  const std::uint64_t a = normalise_alignment(alignment);
  if (size > SIZE_MAX - a - kHeader) return nullptr;
  const std::uint64_t total = size + a + kHeader;
  void* raw = g_entry.malloc(total);
  if (raw == nullptr) return nullptr;
  char* p = aligned_in(raw, a);
  *header_of(p) = BlockHeader{raw, total, static_cast<std::uint32_t>(a)};
  if (!t_in_init) account_direct(1, total);
  return p;
}

void* tvx_malloc(std::size_t size, int alignment) {
  if (size == 0) return nullptr;
  if (!ensure_init() || !g_fast_mm || size > kCeiling) return tvx_malloc_direct(size, alignment);
  OwnCache own = lock_own_cache(true);
  if (own.cache == nullptr) return tvx_malloc_direct(size, alignment);
  ThreadCache* c = own.cache;
  const std::uint64_t a = normalise_alignment(alignment);
  const std::uint64_t need = size + a;
  int exact = -1, smaller = -1, larger = -1;
  for (int i = 0; i < c->slot_count; ++i) {
    if (c->in_use[i] != 0) continue;
    if (c->capacity[i] == need) {
      exact = i;
      break;
    }
    if (c->capacity[i] < need) {
      if (smaller < 0) smaller = i;
    } else if (larger < 0 || c->capacity[i] < c->capacity[larger]) {
      larger = i;
    }
  }
  char* p = nullptr;
  if (exact >= 0 || larger >= 0) {
    p = hand_out(c, exact >= 0 ? exact : larger, size, a);
  } else if (c->slot_count >= kSlots && smaller < 0) {
    tvx_unlock(&own.cell->lock);
    return tvx_malloc_direct(size, alignment);
  } else {
    const int i = c->slot_count >= kSlots ? smaller : c->slot_count;
    release_slot_buffer(c, i);
    void* raw = g_entry.malloc(need + kHeader);
    if (raw != nullptr) {
      c->raw[i] = raw;
      c->capacity[i] = need;
      if (i == c->slot_count) ++c->slot_count;
      peak_charge(static_cast<std::int64_t>(need + kHeader), 1);
      p = hand_out(c, i, size, a);
    }
  }
  tvx_unlock(&own.cell->lock);
  return p;
}

void* tvx_calloc(std::size_t num, std::size_t size, int alignment) {
  if (size != 0 && num > SIZE_MAX / size) return nullptr;
  void* p = tvx_malloc_direct(num * size, alignment);
  if (p != nullptr) std::memset(p, 0, num * size);
  return p;
}

void* tvx_realloc(void* pointer, std::size_t size) {
  if (pointer == nullptr) return tvx_malloc_direct(size, 64);
  ensure_init();
  BlockHeader* h = header_of(pointer);
  void* raw = h->raw;
  if (raw == nullptr) return nullptr;
  const std::uint64_t a = h->alignment;
  const std::uint64_t old_total = h->total;
  const std::uint64_t distance =
      static_cast<std::uint64_t>(static_cast<char*>(pointer) - static_cast<char*>(raw));
  const std::uint64_t room = old_total - distance;
  if (room >= size) return pointer;
  if (size > SIZE_MAX - a - kHeader) return nullptr;
  const std::uint64_t total = size + a + kHeader;
  void* moved = g_entry.realloc(raw, total);
  if (moved == nullptr) return nullptr;
  char* p = aligned_in(moved, a);
  char* old_place = static_cast<char*>(moved) + distance;
  if (old_place != p) std::memmove(p, old_place, room);
  *header_of(p) = BlockHeader{moved, total, static_cast<std::uint32_t>(a)};
  account_direct(0, total - old_total);
  return p;
}

void tvx_free(void* pointer) {
  if (pointer == nullptr) return;
  ensure_init();
  BlockHeader* h = header_of(pointer);
  if (h->raw != nullptr) {
    void* raw = h->raw;
    const std::uint64_t total = h->total;
    account_direct(-1, 0 - total);
    g_entry.free(raw);
    return;
  }
  // A block of some thread's cache: the caller's own first, then everybody's.
  OwnCache own = lock_own_cache(false);
  if (own.cache != nullptr) {
    ThreadCache* c = own.cache;
    for (int i = 0; i < c->slot_count; ++i) {
      if (c->in_use[i] != 0 && c->aligned[i] == pointer) {
        c->in_use[i] = 0;
        tvx_unlock(&own.cell->lock);
        return;
      }
    }
    tvx_unlock(&own.cell->lock);
  }
  free_foreign(pointer);
}

void tvx_thread_free_buffers(void) {
  if (g_init_done.load(std::memory_order_acquire) == 0) return;
  release_own(false);
}

void tvx_free_buffers(void) {
  tvx_cleanup_fn fns[kCleanupMax];
  tvx_lock(&g_cleanup_lock);
  const int n = g_cleanup_count;
  for (int i = 0; i < n; ++i) fns[i] = g_cleanup[i];
  tvx_unlock(&g_cleanup_lock);
  for (int i = n - 1; i >= 0; --i) fns[i]();
  if (g_init_done.load(std::memory_order_acquire) == 0) return;

  tvx_lock(&g_table_lock);
  for (Cell& cell : g_cells) tvx_lock(&cell.lock);
  bool all_freed = true;
  for (std::uint64_t index = 0; index < g_thread_count; ++index) {
    ThreadCache** ref = cache_ref(index);
    ThreadCache* c = *ref;
    if (c == nullptr) continue;
    if (c->retired != 0) {
      all_freed = false;
      continue;
    }
    drop_free_slots(c);
    if (c->slot_count == 0) {
      release_cache(c, ref);
    } else {
      all_freed = false;
    }
  }
  if (all_freed) {
    for (int k = 1; k < kChunks; ++k) {
      if (g_chunk_raw[k] != nullptr) g_entry.free(g_chunk_raw[k]);
      g_chunk_raw[k] = nullptr;
      g_chunks[k] = nullptr;
    }
    g_generation.fetch_add(1, std::memory_order_acq_rel);
    if (g_generation.load(std::memory_order_relaxed) == 0) g_generation.store(1);
    g_thread_count = 0;
  }
  for (int i = kCells - 1; i >= 0; --i) tvx_unlock(&g_cells[i].lock);
  tvx_unlock(&g_table_lock);
}

std::int64_t tvx_mem_stat(int* count) {
  if (count == nullptr) return 0;
  std::uint64_t bytes = 0;
  std::int64_t blocks = 0;
  tvx_lock(&g_table_lock);
  for (std::uint64_t index = 0; index < g_thread_count; ++index) {
    Cell* cell = &g_cells[index & (kCells - 1)];
    tvx_lock(&cell->lock);
    const ThreadCache* c = *cache_ref(index);
    if (c != nullptr) {
      bytes += c->direct_bytes;
      blocks += c->direct_count;
      for (int i = 0; i < c->slot_count; ++i) {
        if (c->raw[i] == nullptr) continue;
        bytes += c->capacity[i] + kHeader;
        ++blocks;
      }
    }
    tvx_unlock(&cell->lock);
  }
  tvx_lock(&g_counters_lock);
  bytes += g_finished_bytes;
  blocks += g_finished_count;
  tvx_unlock(&g_counters_lock);
  tvx_unlock(&g_table_lock);
  *count = static_cast<int>(blocks);
  return static_cast<std::int64_t>(bytes);
}

std::int64_t tvx_peak_mem_usage(int mode) {
  const bool on = g_peak_mode.load(std::memory_order_acquire) == 1;
  std::int64_t result = -1;
  switch (mode) {
    case -1:
      if (on) {
        tvx_lock(&g_peak_lock);
        result = g_peak_bytes;
        g_peak_bytes = g_cur_bytes;
        g_peak_count = g_cur_count;
        tvx_unlock(&g_peak_lock);
      }
      break;
    case 0:
      g_peak_mode.store(0, std::memory_order_release);
      result = 0;
      break;
    case 1:
      tvx_lock(&g_peak_lock);
      g_cur_bytes = g_cur_count = g_peak_bytes = g_peak_count = 0;
      g_peak_mode.store(1, std::memory_order_release);
      tvx_unlock(&g_peak_lock);
      result = 0;
      break;
    case 2:
      if (on) {
        tvx_lock(&g_peak_lock);
        result = g_peak_bytes;
        tvx_unlock(&g_peak_lock);
      }
      break;
    default:
      break;
  }
  return result;
}

int tvx_disable_fast_mm(void) {
  int decided = 0;
  tvx_lock(&g_init_lock);
  if (!g_switch_decided && g_init_done.load(std::memory_order_relaxed) == 0) {
    g_fast_mm = false;
    g_switch_decided = true;
    decided = 1;
  }
  tvx_unlock(&g_init_lock);
  return decided;
}

int tvx_fast_mm_enabled(void) {
  ensure_init();
  return g_fast_mm ? 1 : 0;
}

int tvx_mem_hbw_active(void) {
  ensure_init();
  return g_hbw_active ? 1 : 0;
}

int tvx_set_memory_limit(int kind, std::int64_t mebibytes) {
  ensure_init();
  if (kind != 1 || !g_hbw_active) return 0;
  int set = 0;
  tvx_lock(&g_budget_lock);
  if (!g_hbw_limit_set) {
    if (mebibytes < 0) {
      g_hbw_limit = -1;
    } else if (mebibytes > (INT64_MAX >> 20)) {
      g_hbw_limit = INT64_MAX;
    } else {
      g_hbw_limit = mebibytes << 20;
    }
    g_hbw_limit_set = true;
    set = 1;
  }
  tvx_unlock(&g_budget_lock);
  return set;
}

int tvx_register_cleanup(tvx_cleanup_fn fn) {
  if (fn == nullptr) return 1;
  int full = 1;
  tvx_lock(&g_cleanup_lock);
  if (g_cleanup_count < kCleanupMax) {
    g_cleanup[g_cleanup_count++] = fn;
    full = 0;
  }
  tvx_unlock(&g_cleanup_lock);
  return full;
}

int tvx_mem_protect(void* pointer, std::size_t size, int read_only) {
  const long page_size = sysconf(_SC_PAGESIZE);
  if (pointer == nullptr || page_size <= 0) return 0;
  const auto page = static_cast<std::uintptr_t>(page_size);
  const auto start = reinterpret_cast<std::uintptr_t>(pointer);
  if ((start & (page - 1)) != 0) return 0;
  const std::size_t length = size & ~(page - 1);  // whole pages only: never touch a neighbour
  if (length == 0) return 0;
  const int prot = read_only != 0 ? PROT_READ : (PROT_READ | PROT_WRITE);
  return mprotect(pointer, length, prot) == 0 ? 1 : 0;
}

int tvx_mem_test_set_modules(const char* companion, const char* hbw_module,
                             int assume_hbw_features) {
  int applied = 0;
  tvx_lock(&g_init_lock);
  if (g_init_done.load(std::memory_order_relaxed) == 0) {
    g_companion_name = companion != nullptr ? companion : kCompanionModule;
    g_hbw_name = hbw_module != nullptr ? hbw_module : kHbwModule;
    g_assume_hbw_features = assume_hbw_features != 0;
    choose_entry_points();
    applied = 1;
  }
  tvx_unlock(&g_init_lock);
  return applied;
}

}  // extern "C"

// Library attach: only the choice of the allocator's entry points.
__attribute__((constructor)) static void tvx_memory_attach() {
  choose_entry_points();
}
