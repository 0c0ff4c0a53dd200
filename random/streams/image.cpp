// Copies of streams and their saved images, for one variant copy. The code knows a generator only
// through its catalogue row (record size, seed words, word size) and, where the generator has
// one, the check of a loaded state in the table below: a new generator needs at most a line there.
#include "random/streams/image.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <x86intrin.h>

#include <cerrno>
#include <cstring>

#include "random/streams/generators.h"
#include "runtime/memory.h"

namespace tvx::TVX_VNS {
namespace {

using rud::ExtBlock;

// Generators whose state must be checked when it comes from an image. Rows without an entry
// (registered generators among them) take the bytes as they are.
struct ImageRow {
  int brng;
  bool (*state_ok)(const void* state);
};
constexpr ImageRow kImageRows[] = {
    {RUD_BRNG_MCG31, gen::mcg31_state_ok},          {RUD_BRNG_R250, gen::r250_state_ok},
    {RUD_BRNG_MRG32K3A, gen::mrg32k3a_state_ok},    {RUD_BRNG_MCG59, gen::mcg59_state_ok},
    {RUD_BRNG_PHILOX4X32X10, gen::philox_state_ok}, {RUD_BRNG_ARS5, gen::ars5_state_ok},
    {RUD_BRNG_MT19937, gen::mt19937_state_ok},      {RUD_BRNG_SFMT19937, gen::sfmt_state_ok},
    {RUD_BRNG_MT2203, gen::mt2203_state_ok},
};

bool loaded_state_ok(int brng, const void* state) {
  const int row = rud::row_index(brng);
  for (const ImageRow& r : kImageRows) {
    if (rud::row_index(r.brng) == row) return r.state_ok(state);
  }
  return true;
}

// Row of a live stream's number; null when the number check fails or the row makes no streams.
const RudBrngProperties* stream_row(int brng) {
  const RudBrngProperties* row = TVX_ENTRY(rud_brng_row)(brng);
  if (row == nullptr || row->InitStream == nullptr || row->StreamStateSize < rud::kHeaderBytes) {
    return nullptr;
  }
  return row;
}

std::size_t state_bytes(const RudBrngProperties* row) {
  return static_cast<std::size_t>(row->StreamStateSize - rud::kHeaderBytes);
}

void put32(unsigned char* p, std::uint32_t v) {
  std::memcpy(p, &v, 4);
}
std::uint32_t get32(const unsigned char* p) {
  std::uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}
std::uint16_t get16(const unsigned char* p) {
  std::uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}

// ---- Extension blocks of a copy ---------------------------------------------------------------
void free_blocks(RudStreamPtr stream) {
  while (const ExtBlock* b = rud::header(stream)->extensions) {
    TVX_ENTRY(rud_ext_remove)(stream, b->tag);
  }
}

// Adds the blocks of `from` to `to` in list order: a shared block is shared once more, a private
// one is copied. On failure the blocks added so far are removed again.
int copy_blocks(RudStreamPtr to, RudStreamPtr from) {
  for (const ExtBlock* b = rud::header(from)->extensions; b != nullptr; b = b->next) {
    void* data = b->data;
    if (TVX_ENTRY(rud_shared_refcount)(b->key) == rud::kKeyNotShared && data != nullptr &&
        b->size > 0) {
      data = tvx_malloc(b->size, 64);
      if (data == nullptr) {
        free_blocks(to);
        return RUD_ERROR_MEM_FAILURE;
      }
      std::memcpy(data, b->data, b->size);
    }
    const int status = TVX_ENTRY(rud_ext_add)(to, b->tag, b->key, data, b->size);
    if (status != RUD_STATUS_OK) {
      if (data != b->data) tvx_free(data);
      free_blocks(to);
      return status;
    }
  }
  return RUD_STATUS_OK;
}

int copy_stream(RudStreamPtr* copy, RudStreamPtr source) {
  const RudBrngProperties* row = stream_row(rud::header(source)->brng);
  if (row == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  auto* record = static_cast<RudStreamPtr>(
      tvx_malloc(static_cast<std::size_t>(row->StreamStateSize), rud::kStreamAlignment));
  if (record == nullptr) {
    *copy = nullptr;
    return RUD_ERROR_MEM_FAILURE;
  }
  std::memcpy(record, source, static_cast<std::size_t>(row->StreamStateSize));
  rud::header(record)->valid = 1;
  rud::header(record)->extensions = nullptr;
  *copy = record;
  // A failure leaves the copy allocated, without blocks, for the caller to delete.
  return copy_blocks(record, source);
}

// The state is the source row's seed words (NSeeds x WordSize bytes), clipped to the state both
// records hold, since the two generators are not compared.
int copy_stream_state(RudStreamPtr destination, RudStreamPtr source) {
  if (destination == source) return RUD_STATUS_OK;
  const RudBrngProperties* from = stream_row(rud::header(source)->brng);
  const RudBrngProperties* to = stream_row(rud::header(destination)->brng);
  if (from == nullptr || to == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  std::size_t bytes =
      static_cast<std::size_t>(from->NSeeds) * static_cast<std::size_t>(from->WordSize);
  if (bytes > state_bytes(from)) bytes = state_bytes(from);
  if (bytes > state_bytes(to)) bytes = state_bytes(to);
  std::memmove(rud::state<unsigned char>(destination), rud::state<unsigned char>(source), bytes);
  free_blocks(destination);
  return copy_blocks(destination, source);
}

// ---- Writing an image -------------------------------------------------------------------------
// The 24-byte header. `nblocks` stands in bytes 16..19 as a u32 whose high half is zero; a memory
// image doesn't write bytes 18..19.
void image_header(unsigned char h[24], RudStreamPtr stream, const RudBrngProperties* row) {
  put32(h, rud::kImageVersion);
  put32(h + 4, rud::kImageMagic);
  put32(h + 8, rud::kImageHeaderBytes);
  put32(h + 12, static_cast<std::uint32_t>(state_bytes(row)));
  put32(h + 16, static_cast<std::uint32_t>(TVX_ENTRY(rud_ext_count)(stream)) & 0xFFFFu);
  put32(h + 20, static_cast<std::uint32_t>(rud::header(stream)->brng));
}

// Each block: tag, key, size, bytes (zeros for a block without bytes).
template <class Put>
bool put_blocks(RudStreamPtr stream, Put&& put) {
  static const unsigned char kZeros[256] = {};
  for (const ExtBlock* b = rud::header(stream)->extensions; b != nullptr; b = b->next) {
    unsigned char head[rud::kBlockHeadBytes];
    put32(head, b->tag);
    std::memcpy(head + 4, b->key, 16);
    put32(head + 20, b->size);
    if (!put(head, sizeof head)) return false;
    if (b->data != nullptr) {
      if (!put(b->data, b->size)) return false;
    } else {
      for (std::size_t left = b->size; left > 0;) {
        const std::size_t n = left < sizeof kZeros ? left : sizeof kZeros;
        if (!put(kZeros, n)) return false;
        left -= n;
      }
    }
  }
  return true;
}

int save_mem(RudStreamPtr stream, char* memory) {
  const RudBrngProperties* row = stream_row(rud::header(stream)->brng);
  if (row == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  auto* out = reinterpret_cast<unsigned char*>(memory);
  unsigned char h[rud::kImageHeaderBytes];
  image_header(h, stream, row);
  std::memcpy(out, h, 18);
  std::memcpy(out + 20, h + 20, 4);
  out += rud::kImageHeaderBytes;
  std::memcpy(out, rud::state<unsigned char>(stream), state_bytes(row));
  out += state_bytes(row);
  put_blocks(stream, [&out](const void* p, std::size_t n) {
    std::memcpy(out, p, n);
    out += n;
    return true;
  });
  return RUD_STATUS_OK;
}

int write_file(std::FILE* f, RudStreamPtr stream, const RudBrngProperties* row) {
  const auto put = [f](const void* p, std::size_t n) {
    return n == 0 || std::fwrite(p, 1, n, f) == n;
  };
  unsigned char h[rud::kImageHeaderBytes];
  image_header(h, stream, row);
  if (!put(h, sizeof h) || !put(rud::state<unsigned char>(stream), state_bytes(row)) ||
      !put_blocks(stream, put)) {
    return RUD_RNG_ERROR_FILE_WRITE;
  }
  return RUD_STATUS_OK;
}

// A regular file (or a new one) is written whole or not at all: the image goes to a new file
// beside it, which is flushed to the disk and then renamed over the name; on any failure the
// new file is removed and the old one, if any, is left as it was. A name that exists and is not
// a regular file (a device, a pipe, a symbolic link) is written in place.
int save_file(RudStreamPtr stream, const char* name) {
  const RudBrngProperties* row = stream_row(rud::header(stream)->brng);
  if (row == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  struct stat st;
  if (lstat(name, &st) == 0 && !S_ISREG(st.st_mode)) {
    std::FILE* f = std::fopen(name, "wb");
    if (f == nullptr) return RUD_RNG_ERROR_FILE_OPEN;
    int status = write_file(f, stream, row);
    if (std::fclose(f) != 0) status = RUD_RNG_ERROR_FILE_CLOSE;
    return status;
  }
  const std::size_t length = std::strlen(name) + 32;
  auto* temporary = static_cast<char*>(tvx_malloc(length, 64));
  if (temporary == nullptr) return RUD_ERROR_MEM_FAILURE;
  int fd = -1;
  for (int attempt = 0; attempt < 64 && fd < 0; ++attempt) {
    const auto tag = static_cast<unsigned>(__rdtsc() ^ (static_cast<unsigned>(getpid()) << 16));
    std::snprintf(temporary, length, "%s.tvx-%08x", name, tag);
    fd = open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    tvx_free(temporary);
    return RUD_RNG_ERROR_FILE_OPEN;
  }
  std::FILE* f = fdopen(fd, "wb");
  int status = RUD_STATUS_OK;
  if (f == nullptr) {
    close(fd);
    status = RUD_RNG_ERROR_FILE_OPEN;
  } else {
    status = write_file(f, stream, row);
    if (status == RUD_STATUS_OK && (std::fflush(f) != 0 || fsync(fileno(f)) != 0)) {
      status = RUD_RNG_ERROR_FILE_WRITE;
    }
    if (std::fclose(f) != 0) status = RUD_RNG_ERROR_FILE_CLOSE;
  }
  // The name can't take the file (a directory, say): as if it could not be opened for writing.
  if (status == RUD_STATUS_OK && std::rename(temporary, name) != 0) {
    status = RUD_RNG_ERROR_FILE_OPEN;
  }
  if (status != RUD_STATUS_OK) unlink(temporary);
  tvx_free(temporary);
  return status;
}

// ---- Reading an image -------------------------------------------------------------------------
// Readers know how many bytes are left where they can (a memory image of known length, a file
// that can seek), so that no block is allocated for bytes the image doesn't hold.
struct MemReader {
  const unsigned char* p;
  std::size_t left;
  bool read(void* out, std::size_t n) {
    if (n > left) return false;
    std::memcpy(out, p, n);
    p += n;
    left -= n;
    return true;
  }
  std::size_t available() const { return left; }
};

struct FileReader {
  std::FILE* f;
  std::size_t left;
  explicit FileReader(std::FILE* file) : f(file), left(rud::kUnboundedImage) {
    const long at = std::ftell(f);
    if (at >= 0 && std::fseek(f, 0, SEEK_END) == 0) {
      const long end = std::ftell(f);
      if (std::fseek(f, at, SEEK_SET) == 0 && end >= at) {
        left = static_cast<std::size_t>(end - at);
      }
    }
  }
  bool read(void* out, std::size_t n) {
    if (n == 0) return true;
    if (n > left || std::fread(out, 1, n, f) != n) return false;
    if (left != rud::kUnboundedImage) left -= n;
    return true;
  }
  std::size_t available() const { return left; }
};

// Reads one image into a new stream. `bad_format` and `bad_version` are the carrier's codes.
template <class Reader>
int load(RudStreamPtr* out, Reader& in, int bad_format, int bad_version) {
  *out = nullptr;
  unsigned char h[rud::kImageHeaderBytes];
  if (!in.read(h, 8)) return RUD_RNG_ERROR_FILE_READ;
  const std::uint32_t w0 = get32(h), w1 = get32(h + 4);
  std::uint32_t header_size, state_size, nblocks;
  std::int32_t brng;
  if (w0 == rud::kImageVersion) {
    if (!in.read(h + 8, rud::kImageHeaderBytes - 8)) return RUD_RNG_ERROR_FILE_READ;
    header_size = get16(h + 8);
    state_size = get32(h + 12);
    nblocks = get16(h + 16);
    brng = static_cast<std::int32_t>(get32(h + 20));
  } else {
    // Older 20-byte header; its header size isn't kept.
    if (!in.read(h + 8, rud::kOlderHeaderBytes - 8)) return RUD_RNG_ERROR_FILE_READ;
    header_size = rud::kImageHeaderBytes;
    state_size = get16(h + 10);
    nblocks = get16(h + 12);
    brng = static_cast<std::int32_t>(get32(h + 16));
  }
  // The magic may stand in either word (older images swapped them); its high byte is free.
  if ((w1 & 0xFFFFFFu) != rud::kImageMagic && (w0 & 0xFFFFFFu) != rud::kImageMagic) {
    return bad_format;
  }
  if ((w0 & 0xFFu) >= 3 && w1 > 2) return bad_version;
  const RudBrngProperties* row = stream_row(brng);
  if (row == nullptr || state_size != state_bytes(row)) return bad_format;
  if (header_size < rud::kImageHeaderBytes) return bad_format;

  auto* record = static_cast<RudStreamPtr>(
      tvx_malloc(static_cast<std::size_t>(row->StreamStateSize), rud::kStreamAlignment));
  if (record == nullptr) return RUD_ERROR_MEM_FAILURE;
  rud::StreamHeader* sh = rud::header(record);
  sh->brng = brng;
  sh->valid = 1;
  sh->extensions = nullptr;
  int status = RUD_STATUS_OK;
  if (!in.read(rud::state<unsigned char>(record), state_size)) {
    status = RUD_RNG_ERROR_FILE_READ;
  } else if (!loaded_state_ok(brng, rud::state<unsigned char>(record))) {
    status = bad_format;
  } else {
    status = rud::row_availability(rud::row_index(brng));
  }
  // The block layout follows the version in the first word: keys from version 1 on.
  const std::uint32_t version = w0 & 0xFFFFu;
  for (std::uint32_t i = 0; status == RUD_STATUS_OK && i < nblocks; ++i) {
    unsigned char head[rud::kBlockHeadBytes] = {};
    std::uint64_t key[2] = {0, 0};
    bool ok = in.read(head, 4);
    if (ok && (version == 1 || version == 2)) {
      ok = in.read(key, 16);
    } else if (version != 0) {
      ok = false;
    }
    ok = ok && in.read(head + 20, 4);
    const std::uint32_t size = get32(head + 20);
    if (!ok || size > in.available()) {
      status = RUD_RNG_ERROR_FILE_READ;
      break;
    }
    void* data = nullptr;
    if (size > 0) {
      data = tvx_malloc(size, 64);
      if (data == nullptr) {
        status = RUD_ERROR_MEM_FAILURE;
        break;
      }
      if (!in.read(data, size)) {
        tvx_free(data);
        status = RUD_RNG_ERROR_FILE_READ;
        break;
      }
    }
    status = TVX_ENTRY(rud_ext_add)(record, get32(head), key, data, size);
    // A key that is live in the shared table shares the live bytes: the ones read aren't taken.
    if (status != RUD_STATUS_OK || sh->extensions->data != data) tvx_free(data);
  }
  if (status != RUD_STATUS_OK) {
    TVX_ENTRY(rud_delete_stream)(&record);
    return status;
  }
  *out = record;
  return RUD_STATUS_OK;
}

int load_fp(RudStreamPtr* stream, std::FILE* file) {
  FileReader in(file);
  return load(stream, in, RUD_RNG_ERROR_BAD_FILE_FORMAT, RUD_RNG_ERROR_BAD_FILE_VERSION);
}

int load_file(RudStreamPtr* stream, const char* name) {
  *stream = nullptr;
  std::FILE* f = std::fopen(name, "rb");
  if (f == nullptr) return RUD_RNG_ERROR_FILE_OPEN;
  int status = load_fp(stream, f);
  if (std::fclose(f) != 0) {
    if (*stream != nullptr) TVX_ENTRY(rud_delete_stream)(stream);
    status = RUD_RNG_ERROR_FILE_CLOSE;
  }
  return status;
}

int load_mem(RudStreamPtr* stream, const char* memory, std::size_t size) {
  MemReader in{reinterpret_cast<const unsigned char*>(memory), size};
  return load(stream, in, RUD_RNG_ERROR_BAD_MEM_FORMAT, RUD_RNG_ERROR_BAD_MEM_FORMAT);
}

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;

extern "C" {

int TVX_ENTRY(rud_copy_stream)(RudStreamPtr* copy, RudStreamPtr source) {
  return copy_stream(copy, source);
}
int TVX_ENTRY(rud_copy_stream_state)(RudStreamPtr destination, RudStreamPtr source) {
  return copy_stream_state(destination, source);
}
int TVX_ENTRY(rud_save_stream_file)(RudStreamPtr stream, const char* name) {
  return save_file(stream, name);
}
int TVX_ENTRY(rud_load_stream_file)(RudStreamPtr* stream, const char* name) {
  return load_file(stream, name);
}
int TVX_ENTRY(rud_load_stream_fp)(RudStreamPtr* stream, std::FILE* file) {
  return load_fp(stream, file);
}
int TVX_ENTRY(rud_save_stream_mem)(RudStreamPtr stream, char* memory) {
  return save_mem(stream, memory);
}
int TVX_ENTRY(rud_load_stream_mem)(RudStreamPtr* stream, const char* memory, std::size_t size) {
  return load_mem(stream, memory, size);
}

}  // extern "C"
