// Stream record, extension blocks and the per-variant entry points of the stream layer.
//
// The random code is compiled once per instruction-set variant (five copies: sse2, sse2b, sse42,
// avx2, avx512). Each copy owns its catalogue, its row count, its member counts and its
// shared-block table; the exported frame picks one copy by CPU type and keeps it. The entries
// below are the only way into a copy: extern "C" names with the variant as a suffix.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tvx_random.h"

namespace tvx::rud {

// The 16-byte header every stream record starts with; the generator's state follows it.
struct StreamHeader {
  std::int32_t brng;    // the number as the caller gave it, older numbering and member included
  std::uint32_t valid;  // 1 in a live stream; only the low byte is tested
  struct ExtBlock* extensions;
};
static_assert(sizeof(StreamHeader) == 16, "the state must start 16 bytes behind the record");

inline constexpr int kHeaderBytes = 16;
inline constexpr int kStreamAlignment = 128;

inline StreamHeader* header(RudStreamPtr s) {
  return reinterpret_cast<StreamHeader*>(s);
}
template <class T>
inline T* state(RudStreamPtr s) {
  return reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(s) + kHeaderBytes);
}

// A node of a stream's list of side data (kept values, set-up tables, user tables).
struct ExtBlock {
  std::uint32_t tag;
  std::uint32_t size;
  void* data;
  ExtBlock* next;
  std::uint64_t key[2];  // identity of a shared block; both zero for a private block
};

inline constexpr int kSharedEntries = 128;
inline constexpr int kKeyNotShared = -3000;  // internal: the key is not in the shared table

// Catalogue layout.
inline constexpr int kFixedRows = 16;
inline constexpr int kOlderRows = 281;
inline constexpr int kMaxRows = RUD_MAX_BRNG_ROWS;

// Generator number -> catalogue row and member.
inline constexpr int brng_row(int brng) {
  return (brng >> RUD_BRNG_SHIFT) - 1;
}
inline constexpr int brng_member(int brng) {
  return brng & (RUD_BRNG_INC - 1);
}

// The older numbering: 0..3 the first four rows, 4..276 the Wichmann-Hill members, 277 Sobol,
// 278 Niederreiter, 279 and 280 blank. Gives the catalogue row, or -1 for a blank row.
inline constexpr int older_to_row(int brng) {
  if (brng < 4) return brng;
  if (brng <= 276) return 4;
  if (brng == 277) return 5;
  if (brng == 278) return 6;
  return -1;
}

// Catalogue row of a number of either numbering (not checked against the catalogue).
inline constexpr int row_index(int brng) {
  return brng >= RUD_BRNG_INC ? brng_row(brng) : older_to_row(brng);
}

// Stream test of the frames: null, or a record whose valid byte is not 1.
inline int stream_test(RudStreamPtr s) {
  if (s == nullptr) return RUD_ERROR_NULL_PTR;
  if ((header(s)->valid & 0xFFu) != 1u) return RUD_RNG_ERROR_BAD_STREAM;
  return RUD_STATUS_OK;
}

}  // namespace tvx::rud

// ---- Entry points of each variant copy --------------------------------------------------------
// TVX_RUD_VARIANTS(X) expands X(suffix) for the five copies, in copy order 0..4.
#define TVX_RUD_VARIANTS(X) X(sse2) X(sse2b) X(sse42) X(avx2) X(avx512)

#define TVX_RUD_DECLARE_ENTRIES(v)                                                              \
  int rud_new_stream_ex_##v(RudStreamPtr* stream, int brng, int n, const unsigned int* params); \
  int rud_delete_stream_##v(RudStreamPtr* stream);                                              \
  int rud_get_stream_state_brng_##v(RudStreamPtr stream);                                       \
  int rud_get_stream_size_##v(RudStreamPtr stream);                                             \
  int rud_register_brng_##v(const RudBrngProperties* properties);                               \
  int rud_get_brng_properties_##v(int brng, RudBrngProperties* properties);                     \
  int rud_get_num_reg_brngs_##v(void);                                                          \
  int rud_leapfrog_stream_##v(RudStreamPtr stream, unsigned int k, int nstreams);               \
  int rud_skip_ahead_stream_##v(RudStreamPtr stream, long long nskip);                          \
  /* Services for the distributions and later stream code of the same copy. */                  \
  const RudBrngProperties* rud_brng_row_##v(int brng); /* null when the number check fails */   \
  int rud_ext_add_##v(RudStreamPtr stream, std::uint32_t tag, const std::uint64_t* key,         \
                      void* data, std::uint32_t size);                                          \
  void* rud_ext_find_##v(RudStreamPtr stream, std::uint32_t tag);                               \
  int rud_ext_count_##v(RudStreamPtr stream);                                                   \
  void rud_ext_remove_##v(RudStreamPtr stream, std::uint32_t tag);                              \
  void rud_ext_make_key_##v(std::uint64_t value, std::uint64_t key[2]);                         \
  /* Reference count of a shared key, or kKeyNotShared. */                                      \
  int rud_shared_refcount_##v(const std::uint64_t* key);                                        \
  int rud_shared_count_##v(void);

extern "C" {
TVX_RUD_VARIANTS(TVX_RUD_DECLARE_ENTRIES)
}
