// Fuzz target of the stream-image loader: any bytes, as a memory image of known length and as a
// file (a memory file), must give a status or a working stream, never a crash, a hang or a leak.
// A loaded stream is drawn from, copied, saved and loaded again. Where the bounded load read no
// further than the input, the unbounded one (rudLoadStreamM's) must give the same status.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "random/streams/image.h"

namespace {

void require(bool ok) {
  if (!ok) __builtin_trap();
}

// A file load's status as the memory carrier states it.
int as_memory_status(int status) {
  if (status == RUD_RNG_ERROR_BAD_FILE_FORMAT || status == RUD_RNG_ERROR_BAD_FILE_VERSION) {
    return RUD_RNG_ERROR_BAD_MEM_FORMAT;
  }
  return status;
}

void exercise(RudStreamPtr s) {
  const RudBrngProperties* row = rud_brng_row_sse2(tvx::rud::header(s)->brng);
  require(row != nullptr);
  alignas(64) unsigned int words[64 * 4];
  require(row->iBRng(s, 64, words) == 0);
  double d[16];
  require(row->dBRng(s, 16, d, 0.0, 1.0) == 0);
  const int size = rud_get_stream_size_sse2(s);
  require(size >= static_cast<int>(tvx::rud::kImageHeaderBytes));
  char* image = new char[static_cast<std::size_t>(size)];
  require(rud_save_stream_mem_sse2(s, image) == 0);
  RudStreamPtr again = nullptr, copy = nullptr;
  require(rud_load_stream_mem_sse2(&again, image, static_cast<std::size_t>(size)) == 0);
  require(std::memcmp(reinterpret_cast<char*>(again) + 16, reinterpret_cast<char*>(s) + 16,
                      static_cast<std::size_t>(row->StreamStateSize - 16)) == 0);
  require(rud_copy_stream_sse2(&copy, again) == 0);
  require(rud_copy_stream_state_sse2(copy, s) == 0);
  require(rud_get_stream_size_sse2(copy) == size);
  rud_delete_stream_sse2(&copy);
  rud_delete_stream_sse2(&again);
  delete[] image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const char* bytes = reinterpret_cast<const char*>(data);
  RudStreamPtr s = nullptr;
  const int status = rud_load_stream_mem_sse2(&s, bytes, size);
  require((status == 0) == (s != nullptr));
  if (s != nullptr) {
    exercise(s);
    rud_delete_stream_sse2(&s);
  }
  if (status != RUD_RNG_ERROR_FILE_READ) {
    RudStreamPtr t = nullptr;
    require(rud_load_stream_mem_sse2(&t, bytes, tvx::rud::kUnboundedImage) == status);
    if (t != nullptr) rud_delete_stream_sse2(&t);
  }
  if (size > 0) {
    std::FILE* f = fmemopen(const_cast<char*>(bytes), size, "rb");
    require(f != nullptr);
    RudStreamPtr t = nullptr;
    const int file_status = rud_load_stream_fp_sse2(&t, f);
    std::fclose(f);
    require(as_memory_status(file_status) == status);
    if (t != nullptr) rud_delete_stream_sse2(&t);
  }
  return 0;
}
