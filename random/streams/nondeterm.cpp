// The processor's hardware random source. Compiled once per instruction-set variant.
//
// Words come from 64-bit reads of the random instruction, two words a read, the last odd word from
// a read of its own. A read that fails (carry clear) is tried again up to `retries` times; the
// instruction's presence is asked on every call, as a virtual machine may hide it after a move.
#include "random/streams/generators.h"
#include "random/streams/probes.h"

namespace tvx::TVX_VNS::gen {
namespace {

struct HardwareState {
  std::uint32_t source;   // 0: the random instruction
  std::uint32_t retries;  // extra tries of a failing read
};
static_assert(sizeof(HardwareState) + rud::kHeaderBytes <= 24, "catalogue size of the record");

constexpr std::uint32_t kDefaultRetries = 10;
constexpr double kScale = 0x1p-32;

inline int read64(std::uint32_t retries, std::uint64_t& word) {
  unsigned long long v = 0;
  for (std::uint64_t t = 0; t <= retries; ++t) {
    if (rud::probes::rdrand64(&v)) {
      word = v;
      return RUD_STATUS_OK;
    }
  }
  return RUD_RNG_ERROR_NONDETERM_RETRIES_EXCEEDED;
}

int hardware_words(const HardwareState& st, int n, std::uint32_t* r) {
  if (rud::probes::rdrand_supported() == 0) return RUD_RNG_ERROR_NONDETERM_NOT_SUPPORTED;
  int i = 0;
  std::uint64_t w = 0;
  for (; i + 2 <= n; i += 2) {
    if (const int s = read64(st.retries, w)) return s;
    r[i] = static_cast<std::uint32_t>(w);
    r[i + 1] = static_cast<std::uint32_t>(w >> 32);
  }
  if (i < n) {
    if (const int s = read64(st.retries, w)) return s;
    r[i] = static_cast<std::uint32_t>(w);
  }
  return RUD_STATUS_OK;
}

// a + y s with y the word as an unsigned number, in rounds through a buffer on the stack.
template <class T>
int hardware_uniforms(RudStreamPtr stream, int n, T* r, T a, T b) {
  if (const int s = block_args(stream, n, r)) return s;
  const HardwareState& st = *rud::state<HardwareState>(stream);
  const T s = (b - a) * static_cast<T>(kScale);
  constexpr int kChunk = 1024;
  alignas(64) std::uint32_t buffer[kChunk];
  for (int done = 0; done < n;) {
    const int m = std::min(kChunk, n - done);
    if (const int status = hardware_words(st, m, buffer)) return status;
    for (int j = 0; j < m; ++j) r[done + j] = a + static_cast<T>(buffer[j]) * s;
    done += m;
  }
  return RUD_STATUS_OK;
}

}  // namespace

int nondeterm_init(int op, RudStreamPtr stream, int n, const void* params) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  HardwareState& st = *rud::state<HardwareState>(stream);
  switch (op) {
    case RUD_INIT_SEED: {
      // Word 1 names the source (only the instruction exists); word 2, when given and non-zero,
      // is the number of retries.
      std::uint32_t retries = 0;
      if (n >= 2 && params != nullptr) {
        retries = read_u32(static_cast<const unsigned char*>(params) + 4);
      }
      st.source = 0;
      st.retries = retries != 0 ? retries : kDefaultRetries;
      return RUD_STATUS_OK;
    }
    case RUD_INIT_LEAPFROG:
      return RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED;
    case RUD_INIT_SKIPAHEAD:
      return RUD_RNG_ERROR_SKIPAHEAD_UNSUPPORTED;
    case RUD_INIT_SKIPAHEADEX:
      return RUD_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default:
      return RUD_ERROR_BAD_OPERATION;
  }
}

int nondeterm_i(RudStreamPtr stream, int n, unsigned int r[]) {
  if (const int s = block_args(stream, n, r)) return s;
  if (n == 0) return RUD_STATUS_OK;
  return hardware_words(*rud::state<HardwareState>(stream), n, r);
}

int nondeterm_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  return hardware_uniforms(stream, n, r, a, b);
}

int nondeterm_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  return hardware_uniforms(stream, n, r, a, b);
}

}  // namespace tvx::TVX_VNS::gen
