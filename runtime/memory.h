// The library's aligned allocator. Every allocation of the library goes through it.
//
// Each thread keeps a small cache of up to five buffers: a routine that asks again and again for
// the same workspace reaches the heap once. Requests above the cache ceiling, requests that find
// no usable slot and all blocks of tvx_malloc_direct/tvx_calloc/tvx_realloc come straight from
// the heap ("direct" blocks). Every block carries a 24-byte header directly below the pointer
// handed out: raw pointer (null for a block of a thread cache), bytes taken, alignment.
//
// Allocation failure answers null and prints nothing; callers report it their own way.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

enum : std::uint64_t {
  TVX_MEM_DEFAULT_ALIGNMENT = 64,
  TVX_MEM_HEADER_BYTES = 24,
  TVX_MEM_CACHE_SLOTS = 5,
  TVX_MEM_CACHE_CEILING = 0x8000000,  // larger requests skip the thread cache
};

// Aligned block of `size` bytes; an alignment below 64 or not a power of two counts as 64. Size 0
// and requests whose size plus alignment plus header overflow answer null.
void* tvx_malloc(std::size_t size, int alignment);
// As tvx_malloc, but never from the thread cache.
void* tvx_malloc_direct(std::size_t size, int alignment);
// Zero-filled direct block of num * size bytes; an overflowing product answers null.
void* tvx_calloc(std::size_t num, std::size_t size, int alignment);
// Grows a direct block, keeping its alignment and content. Null acts as tvx_malloc_direct(size,
// 64); a block of a thread cache cannot be resized and answers null (it stays valid). A block that
// already has room for `size` bytes comes back unchanged; blocks never shrink.
void* tvx_realloc(void* pointer, std::size_t size);
// Frees a block from any thread; null is ignored. A cached block goes back to its slot.
void tvx_free(void* pointer);

// Gives back the free buffers of every thread cache, and caches that hold nothing in use.
void tvx_free_buffers(void);
// Gives back the calling thread's free buffers, and its cache if nothing in it is in use.
void tvx_thread_free_buffers(void);

// Bytes held by the library (direct blocks, cached buffers in use or free, blocks of finished
// threads); the number of blocks goes to *count. A null count answers 0.
std::int64_t tvx_mem_stat(int* count);
// Peak statistics: -1 resets the peak to the current use and answers the old peak; 0 turns them
// off (answers 0); 1 turns them on from zero (answers 0); 2 answers the peak. Answers -1 when off
// (modes -1 and 2) and for any other mode.
std::int64_t tvx_peak_mem_usage(int mode);
// Turns the thread caches off; 1 only when called before the allocator's first use.
int tvx_disable_fast_mm(void);
// 1 when the thread caches are on (initialises the allocator).
int tvx_fast_mm_enabled(void);
// Sets the high-bandwidth memory budget in MiB (kind 1 only, negative: no limit). 1 when set:
// only with high-bandwidth memory present and no budget set before (by this call or
// TVX_FAST_MEMORY_LIMIT).
int tvx_set_memory_limit(int kind, std::int64_t mebibytes);
// Adds a function run at the start of tvx_free_buffers (last added first). 0, or 1 when the list
// of two is full.
typedef void (*tvx_cleanup_fn)(void);
int tvx_register_cleanup(tvx_cleanup_fn fn);
// Makes the whole pages of [pointer, pointer + size) read-only (read_only != 0) or read-write.
// The pointer must be page-aligned; answers 1 on success, 0 otherwise. Set a block back to
// read-write before freeing it.
int tvx_mem_protect(void* pointer, std::size_t size, int read_only);

// ---- Internal, for tests -----------------------------------------------------------------------
// 1 when blocks come from high-bandwidth memory (initialises the allocator).
int tvx_mem_hbw_active(void);
// Points the module loaders at other names before the allocator's first use: `companion` is the
// companion allocator module (null: the usual name), `hbw_module` the high-bandwidth memory
// library (null: the usual name), and a nonzero `assume_hbw_features` skips the processor test.
// Answers 1 when applied, 0 when the allocator is already initialised.
int tvx_mem_test_set_modules(const char* companion, const char* hbw_module,
                             int assume_hbw_features);

}  // extern "C"
