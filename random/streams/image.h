// Stream images: the byte layout that saves a stream to a file or to memory, and the entry points
// of each variant copy for copying, saving and loading streams.
//
// An image is a 24-byte header, the state as it lies behind the stream's own 16-byte header, then
// each extension block as tag (u32), key (two u64), size (u32) and its bytes. All integers are
// little-endian. Older images (versions 0 and 1) have a 20-byte header and are still read;
// version-0 blocks have no key.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "random/streams/catalogue.h"

namespace tvx::rud {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "images are written in host byte order");

inline constexpr std::uint32_t kImageVersion = 2;
inline constexpr std::uint32_t kImageMagic = 0x00474E52;  // "RNG" and a zero byte
inline constexpr std::uint32_t kImageHeaderBytes = 24;
inline constexpr std::uint32_t kOlderHeaderBytes = 20;
inline constexpr std::uint32_t kBlockHeadBytes = 24;      // tag, key, size
inline constexpr std::uint32_t kOlderBlockHeadBytes = 8;  // version 0: tag, size

// A memory image of unknown length: the caller vouches for it (rudLoadStreamM).
inline constexpr std::size_t kUnboundedImage = ~std::size_t{0};

// Whether a stream of catalogue row `row` can run on this processor: 0, or the status its blocks
// would give. A load asks it before it hands the stream back. The library's default says yes for
// every row; the generators that need a processor feature provide the real answer.
int row_availability(int row);

}  // namespace tvx::rud

// ---- Entry points of each variant copy --------------------------------------------------------
// The file name is zero-terminated. `size` bounds a memory image: a load that would read past it
// fails with RUD_RNG_ERROR_FILE_READ, as a short file does. The FILE* load reads from the current
// position and leaves closing to the caller.
#define TVX_RUD_DECLARE_IMAGE_ENTRIES(v)                                        \
  int rud_copy_stream_##v(RudStreamPtr* copy, RudStreamPtr source);             \
  int rud_copy_stream_state_##v(RudStreamPtr destination, RudStreamPtr source); \
  int rud_save_stream_file_##v(RudStreamPtr stream, const char* name);          \
  int rud_load_stream_file_##v(RudStreamPtr* stream, const char* name);         \
  int rud_load_stream_fp_##v(RudStreamPtr* stream, std::FILE* file);            \
  int rud_save_stream_mem_##v(RudStreamPtr stream, char* memory);               \
  int rud_load_stream_mem_##v(RudStreamPtr* stream, const char* memory, std::size_t size);

extern "C" {
TVX_RUD_VARIANTS(TVX_RUD_DECLARE_IMAGE_ENTRIES)
}
