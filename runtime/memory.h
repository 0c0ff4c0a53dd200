// The library's aligned allocator. Every allocation of the library goes through it.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

// Aligned allocation; an alignment below 64 counts as 64 and must be a power of two.
// Returns null when the request cannot be met (including size overflow).
void* tvx_malloc(std::size_t size, int alignment);
// Like tvx_malloc, zero-filled; num * size is checked for overflow.
void* tvx_calloc(std::size_t num, std::size_t size, int alignment);
// Resizes a block from tvx_malloc, keeping its alignment and content; null pointer allocates,
// size 0 frees and returns null.
void* tvx_realloc(void* pointer, std::size_t size);
// Frees a block of tvx_malloc/tvx_calloc/tvx_realloc from any thread; null is ignored.
void tvx_free(void* pointer);
// Gives back the cached buffers of all threads (tvx_free_buffers) or of the calling thread.
void tvx_free_buffers(void);
void tvx_thread_free_buffers(void);

}  // extern "C"
