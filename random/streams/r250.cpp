// R250: a generalised feedback shift register, x(n) = x(n-250) xor x(n-147), on a circular
// buffer of 250 words. Compiled once per instruction-set variant.
//
// The step is x[i0] ^= x[i1] with i1 = i0 + 103 (mod 250); the new x[i0] is the output. Between
// two wraps of either index a run of steps reads words that are either 103 places ahead (and
// rewritten only 103 steps later) or were written before the run began, so a run can be done a
// register of words at a time in buffer order and gives the one-by-one sequence.
#include "random/streams/generators.h"
#include "random/streams/lanes.h"

namespace tvx::TVX_VNS::gen {
namespace {

constexpr int kSize = 250;
constexpr int kLag = 103;
constexpr double kScale = 0x1p-32;

struct R250State {
  std::uint32_t x[kSize];
  std::uint32_t i0;
  std::uint32_t i1;
};
static_assert(sizeof(R250State) + rud::kHeaderBytes == 1024, "catalogue size of the R250 record");

void r250_words(R250State& st, int n, std::uint32_t* r) {
  std::uint32_t* const x = st.x;
  int i0 = static_cast<int>(st.i0);
  int i1 = static_cast<int>(st.i1);
  int done = 0;
  while (done < n) {
    const int run = std::min(n - done, std::min(kSize - i0, kSize - i1));
    std::uint32_t* w = x + i0;
    const std::uint32_t* v = x + i1;
    std::uint32_t* out = r + done;
    int j = 0;
    for (; j + lanes::kW32 <= run; j += lanes::kW32) {
      const lanes::W32 y = lanes::xor32(lanes::load32(w + j), lanes::load32(v + j));
      lanes::store32(w + j, y);
      lanes::store32(out + j, y);
    }
    for (; j < run; ++j) {
      w[j] ^= v[j];
      out[j] = w[j];
    }
    done += run;
    i0 += run;
    i1 += run;
    if (i0 == kSize) i0 = 0;
    if (i1 == kSize) i1 = 0;
  }
  st.i0 = static_cast<std::uint32_t>(i0);
  st.i1 = static_cast<std::uint32_t>(i1);
}

}  // namespace

// The two positions move together, 103 places apart.
bool r250_state_ok(const void* state) {
  const auto* st = static_cast<const R250State*>(state);
  return st->i0 < kSize && st->i1 == (st->i0 + kLag) % kSize;
}

int r250_init(int op, RudStreamPtr stream, int n, const void* params) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  R250State& st = *rud::state<R250State>(stream);
  switch (op) {
    case RUD_INIT_SEED: {
      if (n >= 1 && params == nullptr) return RUD_ERROR_NULL_PTR;
      const auto* words = static_cast<const unsigned char*>(params);
      if (n >= kSize) {
        // A full buffer is taken as it stands: no conditioning, a zero buffer stays zero.
        __builtin_memcpy(st.x, words, sizeof st.x);
      } else {
        std::uint32_t s = n >= 1 ? read_u32(words) : 1u;
        if (s == 0) s = 1;
        // x[i] = s 69069^(i+1) mod 2^32.
        std::uint32_t y = s;
        for (int i = 0; i < kSize; ++i) {
          y *= 69069u;
          st.x[i] = y;
        }
        // Words 3, 10, ..., 220 get bit 31 - k as their leading bit: 32 independent words.
        for (int k = 0; k < 32; ++k) {
          const std::uint32_t bit = std::uint32_t{1} << (31 - k);
          std::uint32_t& w = st.x[3 + 7 * k];
          w = (w & (bit - 1)) | bit;
        }
      }
      st.i0 = 0;
      st.i1 = kLag;
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

int r250_i(RudStreamPtr stream, int n, unsigned int r[]) {
  if (const int st = block_args(stream, n, r)) return st;
  r250_words(*rud::state<R250State>(stream), n, r);
  return RUD_STATUS_OK;
}

int r250_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  if (const int st = block_args(stream, n, r)) return st;
  R250State& state = *rud::state<R250State>(stream);
  const double s = (b - a) * kScale;
  uniforms<std::uint32_t>(
      n, r, [&](int m, std::uint32_t* w) { r250_words(state, m, w); },
      [a, s](std::uint32_t x) { return a + static_cast<double>(x) * s; });
  return RUD_STATUS_OK;
}

int r250_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  if (const int st = block_args(stream, n, r)) return st;
  R250State& state = *rud::state<R250State>(stream);
  const double ad = a;
  const double s = (static_cast<double>(b) - ad) * kScale;
  uniforms<std::uint32_t>(
      n, r, [&](int m, std::uint32_t* w) { r250_words(state, m, w); },
      [ad, s](std::uint32_t x) { return static_cast<float>(ad + static_cast<double>(x) * s); });
  return RUD_STATUS_OK;
}

}  // namespace tvx::TVX_VNS::gen
