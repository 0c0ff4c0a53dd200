// The stream layer of one variant copy: its catalogue, the stream record, extension blocks and the
// shared-block table. Compiled once per instruction-set variant; each copy has its own tables.
#include <x86intrin.h>

#include <atomic>
#include <cstring>

#include "random/streams/generators.h"
#include "runtime/memory.h"
#include "runtime/report.h"

namespace tvx::TVX_VNS {
namespace {

using rud::ExtBlock;
using rud::kFixedRows;
using rud::kMaxRows;
using rud::kOlderRows;

// ---- Catalogue --------------------------------------------------------------------------------
#define TVX_RUD_ROW(size, nseeds, zero, word, bits, g) \
  { size, nseeds, zero, word, bits, &gen::g##_init, &gen::g##_s, &gen::g##_d, &gen::g##_i }
// A row whose generator this build doesn't provide: its sizes, no entry points.
#define TVX_RUD_ROW_ABSENT(size, nseeds, zero, word, bits) \
  { size, nseeds, zero, word, bits, nullptr, nullptr, nullptr, nullptr }

RudBrngProperties g_rows[kMaxRows] = {
    TVX_RUD_ROW(24, 1, 0, 4, 31, mcg31),        TVX_RUD_ROW(1024, 252, 1, 4, 32, r250),
    TVX_RUD_ROW(40, 6, 1, 4, 32, mrg32k3a),     TVX_RUD_ROW(32, 1, 0, 8, 59, mcg59),
    TVX_RUD_ROW_ABSENT(48, 4, 1, 16, 24),        // Wichmann-Hill set
    TVX_RUD_ROW_ABSENT(11712, 2604, 0, 4, 32),   // Sobol
    TVX_RUD_ROW_ABSENT(84288, 10498, 0, 4, 32),  // Niederreiter
    TVX_RUD_ROW(2520, 625, 1, 4, 32, mt19937),   // MT19937
    TVX_RUD_ROW(312, 70, 1, 4, 32, mt2203),      // MT2203 set
    TVX_RUD_ROW_ABSENT(48, 0, 1, 4, 32),         // abstract, integer
    TVX_RUD_ROW_ABSENT(64, 0, 1, 4, 32),         // abstract, double
    TVX_RUD_ROW_ABSENT(56, 0, 1, 4, 32),         // abstract, single
    TVX_RUD_ROW(2536, 625, 1, 4, 32, sfmt),      // SFMT19937
    TVX_RUD_ROW(24, 1, 1, 4, 32, nondeterm),    TVX_RUD_ROW(72, 8, 1, 4, 32, ars5),
    TVX_RUD_ROW(64, 8, 1, 4, 32, philox),
};
#undef TVX_RUD_ROW
#undef TVX_RUD_ROW_ABSENT

// Members a number's low 20 bits may select. A row whose generator isn't provided counts 0, so
// the number check refuses it; the sets count 273 (Wichmann-Hill) and 6024 (MT2203) once built.
int g_members[kMaxRows] = {1, 1, 1, 1, 0, 0, 0, 1, gen::kMt2203Members, 0, 0, 0, 1, 1, 1, 1};

std::atomic<int> g_row_count{kFixedRows};
volatile std::int32_t g_register_lock = 0;

const RudBrngProperties kBlankRow = {};

// Row lookup and number check; null when the number is refused.
const RudBrngProperties* lookup(int brng) {
  if (brng < 0) return nullptr;
  if (brng >= RUD_BRNG_INC) {
    const int row = rud::brng_row(brng);
    if (row >= g_row_count.load(std::memory_order_acquire)) return nullptr;
    if (rud::brng_member(brng) >= g_members[row]) return nullptr;
    // MT2203 members that the parameter search has not reached yet have no parameters.
    if (row == rud::brng_row(RUD_BRNG_MT2203) &&
        rud::mt2203_row(rud::brng_member(brng)) == nullptr) {
      return nullptr;
    }
    return &g_rows[row];
  }
  if (brng >= kOlderRows) return nullptr;
  const int row = rud::older_to_row(brng);
  if (row < 0) return &kBlankRow;
  return g_members[row] > 0 ? &g_rows[row] : nullptr;
}

// ---- Shared-block table -----------------------------------------------------------------------
struct SharedEntry {
  std::uint64_t key[2];
  std::uint32_t refcount;
  std::uint32_t size;  // bytes of the shared block: every node that shares it states this size
  void* data;
};

SharedEntry g_shared[rud::kSharedEntries];
int g_shared_count = 0;
volatile std::int32_t g_shared_lock = 0;

// Compare-and-swap from 0 to 1 without back-off; release is a plain store of 0.
void shared_lock() {
  while (__atomic_exchange_n(&g_shared_lock, 1, __ATOMIC_ACQUIRE) != 0) {
    while (__atomic_load_n(&g_shared_lock, __ATOMIC_RELAXED) != 0) {
    }
  }
}
void shared_unlock() {
  __atomic_store_n(&g_shared_lock, 0, __ATOMIC_RELEASE);
}

bool key_is_zero(const std::uint64_t* key) {
  return key == nullptr || (key[0] == 0 && key[1] == 0);
}

// Index of the key in the table, or -1. Caller holds the lock.
int find_locked(const std::uint64_t* key) {
  if (key_is_zero(key)) return -1;
  for (int i = 0; i < g_shared_count; ++i) {
    if (g_shared[i].key[0] == key[0] && g_shared[i].key[1] == key[1]) return i;
  }
  return -1;
}

// Lowers the reference count of a shared key; at zero the entry's bytes are freed and the last
// entry moves into its place. Returns false when the key is not in the table.
bool release_share(const std::uint64_t* key) {
  void* to_free = nullptr;
  shared_lock();
  const int i = find_locked(key);
  if (i >= 0 && --g_shared[i].refcount == 0) {
    to_free = g_shared[i].data;
    g_shared[i] = g_shared[--g_shared_count];
  }
  shared_unlock();
  tvx_free(to_free);
  return i >= 0;
}

void free_node(ExtBlock* node) {
  if (!release_share(node->key)) tvx_free(node->data);
  tvx_free(node);
}

// ---- Extension blocks -------------------------------------------------------------------------
int ext_add(RudStreamPtr stream, std::uint32_t tag, const std::uint64_t* key, void* data,
            std::uint32_t size) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  auto* node = static_cast<ExtBlock*>(tvx_malloc(sizeof(ExtBlock), rud::kStreamAlignment));
  if (node == nullptr) return RUD_ERROR_MEM_FAILURE;
  node->tag = tag;
  node->size = size;
  node->data = data;
  node->key[0] = key != nullptr ? key[0] : 0;
  node->key[1] = key != nullptr ? key[1] : 0;
  if (!key_is_zero(node->key)) {
    shared_lock();
    const int i = find_locked(node->key);
    if (i >= 0) {
      // Already shared: take a reference; the caller keeps its own bytes.
      ++g_shared[i].refcount;
      node->data = g_shared[i].data;
      node->size = g_shared[i].size;
    } else if (g_shared_count >= rud::kSharedEntries - 1) {
      node->key[0] = node->key[1] = 0;  // table full: the block stays private
    } else {
      g_shared[g_shared_count++] = SharedEntry{{node->key[0], node->key[1]}, 1u, size, data};
    }
    shared_unlock();
  }
  ExtBlock*& head = rud::header(stream)->extensions;
  node->next = head;
  head = node;
  return RUD_STATUS_OK;
}

void* ext_find(RudStreamPtr stream, std::uint32_t tag) {
  if (stream == nullptr) return nullptr;
  for (ExtBlock* b = rud::header(stream)->extensions; b != nullptr; b = b->next) {
    if (b->tag == tag) return b->data;
  }
  return nullptr;
}

int ext_count(RudStreamPtr stream) {
  int count = 0;
  if (stream == nullptr) return 0;
  for (ExtBlock* b = rud::header(stream)->extensions; b != nullptr; b = b->next) ++count;
  return count;
}

void ext_remove(RudStreamPtr stream, std::uint32_t tag) {
  if (stream == nullptr) return;
  ExtBlock** link = &rud::header(stream)->extensions;
  while (*link != nullptr) {
    ExtBlock* b = *link;
    if (b->tag == tag) {
      *link = b->next;
      free_node(b);
    } else {
      link = &b->next;
    }
  }
}

void ext_make_key(std::uint64_t value, std::uint64_t key[2]) {
  for (;;) {
    key[0] = __rdtsc();
    key[1] = value;
    shared_lock();
    const bool taken = find_locked(key) >= 0 || key_is_zero(key);
    shared_unlock();
    if (!taken) return;
  }
}

// ---- Stream functions -------------------------------------------------------------------------
int new_stream_ex(RudStreamPtr* stream, int brng, int n, const unsigned int* params) {
  if (brng == RUD_BRNG_IABSTRACT || brng == RUD_BRNG_DABSTRACT || brng == RUD_BRNG_SABSTRACT) {
    return RUD_RNG_ERROR_INVALID_BRNG;  // abstract streams have their own constructors
  }
  const RudBrngProperties* row = lookup(brng);
  // A blank row of the older numbering passes the number check but has no generator.
  if (row == nullptr || row->InitStream == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  if (n >= 1 && params == nullptr) return RUD_ERROR_NULL_PTR;
  auto* record = static_cast<RudStreamPtr>(
      tvx_malloc(static_cast<std::size_t>(row->StreamStateSize), rud::kStreamAlignment));
  if (record == nullptr) {
    *stream = nullptr;
    return RUD_ERROR_MEM_FAILURE;
  }
  // Bytes a generator leaves unused behind its state still go into saved images: keep them zero,
  // so that an image depends on the stream alone.
  std::memset(record, 0, static_cast<std::size_t>(row->StreamStateSize));
  rud::StreamHeader* h = rud::header(record);
  h->brng = brng;
  h->valid = 1;
  h->extensions = nullptr;
  *stream = record;
  return row->InitStream(RUD_INIT_SEED, record, n, params);
}

int delete_stream(RudStreamPtr* stream) {
  RudStreamPtr s = *stream;
  ExtBlock* b = rud::header(s)->extensions;
  while (b != nullptr) {
    ExtBlock* next = b->next;
    free_node(b);
    b = next;
  }
  rud::header(s)->valid = 0;
  tvx_free(s);
  *stream = nullptr;
  return RUD_STATUS_OK;
}

int get_stream_size(RudStreamPtr stream) {
  const RudBrngProperties* row = lookup(rud::header(stream)->brng);
  if (row == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  // The image: 24-byte header, the state without the stream's own 16-byte header, the blocks.
  std::int64_t size = static_cast<std::int64_t>(row->StreamStateSize) + 8;
  for (ExtBlock* b = rud::header(stream)->extensions; b != nullptr; b = b->next) {
    size += 24 + static_cast<std::int64_t>(b->size);
    if (size > 0x7FFFFFFF) return RUD_ERROR_MEM_FAILURE;  // no image of that size can be made
  }
  return static_cast<int>(size);
}

int register_brng(const RudBrngProperties* p) {
  if (p == nullptr) return RUD_ERROR_NULL_PTR;
  if (p->StreamStateSize < rud::kHeaderBytes) return RUD_RNG_ERROR_BAD_STATE_SIZE;
  if (p->WordSize != 4 && p->WordSize != 8 && p->WordSize != 16) {
    return RUD_RNG_ERROR_BAD_WORD_SIZE;
  }
  if (p->NSeeds < 1) return RUD_RNG_ERROR_BAD_NSEEDS;
  if (p->NBits < 1) return RUD_RNG_ERROR_BAD_NBITS;
  if (p->InitStream == nullptr || p->sBRng == nullptr || p->dBRng == nullptr ||
      p->iBRng == nullptr) {
    return RUD_ERROR_NULL_PTR;
  }
  tvx_lock(&g_register_lock);
  const int rows = g_row_count.load(std::memory_order_relaxed);
  if (rows >= kMaxRows) {
    tvx_unlock(&g_register_lock);
    return RUD_RNG_ERROR_CATALOGUE_FULL;
  }
  g_rows[rows] = *p;
  g_members[rows] = 1;
  g_row_count.store(rows + 1, std::memory_order_release);  // the row is complete before it shows
  tvx_unlock(&g_register_lock);
  return (rows << RUD_BRNG_SHIFT) + RUD_BRNG_INC;
}

int get_brng_properties(int brng, RudBrngProperties* properties) {
  const RudBrngProperties* row = lookup(brng);
  if (row == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  if (properties == nullptr) return RUD_ERROR_NULL_PTR;
  *properties = *row;
  return RUD_STATUS_OK;
}

int leapfrog_stream(RudStreamPtr stream, unsigned int k, int nstreams) {
  if (nstreams < 0) return RUD_RNG_ERROR_LEAPFROG_NSTREAMS;
  const RudBrngProperties* row = lookup(rud::header(stream)->brng);
  if (row == nullptr || row->InitStream == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  return row->InitStream(RUD_INIT_LEAPFROG, stream, nstreams, &k);
}

int skip_ahead_stream(RudStreamPtr stream, long long nskip) {
  const RudBrngProperties* row = lookup(rud::header(stream)->brng);
  if (row == nullptr || row->InitStream == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  const std::uint64_t count = static_cast<std::uint64_t>(nskip);
  return row->InitStream(RUD_INIT_SKIPAHEAD, stream, 2, &count);
}

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;

// ---- Entry points of this copy ----------------------------------------------------------------
extern "C" {

int TVX_ENTRY(rud_new_stream_ex)(RudStreamPtr* stream, int brng, int n,
                                 const unsigned int* params) {
  return new_stream_ex(stream, brng, n, params);
}
int TVX_ENTRY(rud_delete_stream)(RudStreamPtr* stream) {
  return delete_stream(stream);
}
int TVX_ENTRY(rud_get_stream_state_brng)(RudStreamPtr stream) {
  return tvx::rud::header(stream)->brng;
}
int TVX_ENTRY(rud_get_stream_size)(RudStreamPtr stream) {
  return get_stream_size(stream);
}
int TVX_ENTRY(rud_register_brng)(const RudBrngProperties* properties) {
  return register_brng(properties);
}
int TVX_ENTRY(rud_get_brng_properties)(int brng, RudBrngProperties* properties) {
  return get_brng_properties(brng, properties);
}
int TVX_ENTRY(rud_get_num_reg_brngs)(void) {
  return g_row_count.load(std::memory_order_acquire);
}
int TVX_ENTRY(rud_leapfrog_stream)(RudStreamPtr stream, unsigned int k, int nstreams) {
  return leapfrog_stream(stream, k, nstreams);
}
int TVX_ENTRY(rud_skip_ahead_stream)(RudStreamPtr stream, long long nskip) {
  return skip_ahead_stream(stream, nskip);
}
const RudBrngProperties* TVX_ENTRY(rud_brng_row)(int brng) {
  return lookup(brng);
}
int TVX_ENTRY(rud_ext_add)(RudStreamPtr stream, std::uint32_t tag, const std::uint64_t* key,
                           void* data, std::uint32_t size) {
  return ext_add(stream, tag, key, data, size);
}
void* TVX_ENTRY(rud_ext_find)(RudStreamPtr stream, std::uint32_t tag) {
  return ext_find(stream, tag);
}
int TVX_ENTRY(rud_ext_count)(RudStreamPtr stream) {
  return ext_count(stream);
}
void TVX_ENTRY(rud_ext_remove)(RudStreamPtr stream, std::uint32_t tag) {
  ext_remove(stream, tag);
}
void TVX_ENTRY(rud_ext_make_key)(std::uint64_t value, std::uint64_t key[2]) {
  ext_make_key(value, key);
}
int TVX_ENTRY(rud_shared_refcount)(const std::uint64_t* key) {
  shared_lock();
  const int i = find_locked(key);
  const int count = i >= 0 ? static_cast<int>(g_shared[i].refcount) : tvx::rud::kKeyNotShared;
  shared_unlock();
  return count;
}
int TVX_ENTRY(rud_shared_count)(void) {
  shared_lock();
  const int count = g_shared_count;
  shared_unlock();
  return count;
}

}  // extern "C"
