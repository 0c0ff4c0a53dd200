// Multiplicative congruential generators: MCG31 (a = 1132489760 mod 2^31 - 1) and MCG59
// (a = 13^13 mod 2^59). Compiled once per instruction-set variant.
//
// The state is the next output x and the current multiplier a (a power of the start multiplier
// after a leapfrog). A block runs L lanes at once: lane j starts at x a^j and every lane is
// multiplied by a^L per step, so the words are those of the one-by-one recurrence for any cut of
// the block; the tail goes word by word.
#include <cstring>

#include "random/streams/generators.h"
#include "random/streams/lanes.h"

namespace tvx::TVX_VNS::gen {
namespace {

using lanes::kW;
using lanes::V;

// Terms per step of the lane loop: 16 where four or more 64-bit lanes fit a register, else 8.
constexpr int kLanes = kW >= 4 ? 16 : 8;
constexpr int kRegs = kLanes / kW;

// ---- MCG31 ------------------------------------------------------------------------------------
constexpr std::uint32_t kM31 = 0x7FFFFFFFu;
constexpr std::uint32_t kA31 = 1132489760u;
// Bit pattern 0x3E00000000200000: 1 / (2^31 - 1) rounded to double.
constexpr double kScale31 = 0x1.0000000200000p-31;

struct Mcg31State {
  std::uint32_t x;
  std::uint32_t a;
};

// x a mod 2^31 - 1 for x, a in 1 .. 2^31 - 2: since 2^31 = 1 mod m, the high part folds onto the
// low part; the sum is below 2 m, so one subtraction finishes.
inline std::uint32_t mul31(std::uint32_t x, std::uint32_t a) {
  const std::uint64_t p = static_cast<std::uint64_t>(x) * a;
  std::uint64_t t = (p & kM31) + (p >> 31);
  if (t >= kM31) t -= kM31;
  return static_cast<std::uint32_t>(t);
}

// a^e mod 2^31 - 1, least significant bit first; a^0 = 1.
inline std::uint32_t pow31(std::uint32_t a, std::uint64_t e) {
  std::uint32_t r = 1;
  while (e != 0) {
    if (e & 1) r = mul31(r, a);
    a = mul31(a, a);
    e >>= 1;
  }
  return r;
}

// The same product in 64-bit lanes without a branch: two folds leave the value in 1 .. m - 1
// (the sum after the first fold is below 2^32 - 4, so the second carries at most 1, and the
// result is never m because the product is never a multiple of the prime m).
inline V mul31_lanes(V x, V a, V m) {
  const V p = lanes::mul32(x, a);
  const V t = lanes::add(lanes::band(p, m), lanes::srl<31>(p));
  return lanes::add(lanes::band(t, m), lanes::srl<31>(t));
}

void mcg31_words(Mcg31State& st, int n, std::uint32_t* r) {
  std::uint32_t x = st.x;
  const std::uint32_t a = st.a;
  int i = 0;
  if (n >= 2 * kLanes) {
    alignas(64) std::uint64_t start[kLanes];
    start[0] = x;
    for (int j = 1; j < kLanes; ++j) start[j] = mul31(static_cast<std::uint32_t>(start[j - 1]), a);
    const V step = lanes::set1(pow31(a, kLanes));
    const V m = lanes::set1(kM31);
    V lane[kRegs];
    for (int u = 0; u < kRegs; ++u) lane[u] = lanes::load(start + u * kW);
    for (; i + kLanes <= n; i += kLanes) {
      for (int u = 0; u < kRegs; ++u) {
        lanes::store_lo32(r + i + u * kW, lane[u]);
        lane[u] = mul31_lanes(lane[u], step, m);
      }
    }
    lanes::store(start, lane[0]);
    x = static_cast<std::uint32_t>(start[0]);
  }
  for (; i < n; ++i) {
    r[i] = x;
    x = mul31(x, a);
  }
  st.x = x;
}

// ---- MCG59 ------------------------------------------------------------------------------------
constexpr std::uint64_t kMask59 = (std::uint64_t{1} << 59) - 1;
constexpr std::uint64_t kA59 = 302875106592253ull;  // 13^13
constexpr double kScale59 = 0x1p-59;

struct Mcg59State {
  std::uint64_t x;
  std::uint64_t a;
};

inline std::uint64_t mul59(std::uint64_t x, std::uint64_t a) {
  return (x * a) & kMask59;
}

inline std::uint64_t pow59(std::uint64_t a, std::uint64_t e) {
  std::uint64_t r = 1;
  while (e != 0) {
    if (e & 1) r = mul59(r, a);
    a = mul59(a, a);
    e >>= 1;
  }
  return r;
}

void mcg59_words(Mcg59State& st, int n, std::uint64_t* r) {
  std::uint64_t x = st.x;
  const std::uint64_t a = st.a;
  int i = 0;
  if (n >= 2 * kLanes) {
    alignas(64) std::uint64_t start[kLanes];
    start[0] = x;
    for (int j = 1; j < kLanes; ++j) start[j] = mul59(start[j - 1], a);
    const V step = lanes::set1(pow59(a, kLanes));
    const V mask = lanes::set1(kMask59);
    V lane[kRegs];
    for (int u = 0; u < kRegs; ++u) lane[u] = lanes::load(start + u * kW);
    for (; i + kLanes <= n; i += kLanes) {
      for (int u = 0; u < kRegs; ++u) {
        lanes::store(r + i + u * kW, lane[u]);
        lane[u] = lanes::band(lanes::mullo64(lane[u], step), mask);
      }
    }
    lanes::store(start, lane[0]);
    x = start[0];
  }
  for (; i < n; ++i) {
    r[i] = x;
    x = mul59(x, a);
  }
  st.x = x;
}

}  // namespace

// ---- MCG31 entry points -----------------------------------------------------------------------
bool mcg31_state_ok(const void* state) {
  const auto* st = static_cast<const Mcg31State*>(state);
  return st->x >= 1 && st->x < kM31 && st->a >= 1 && st->a < kM31;
}

int mcg31_init(int op, RudStreamPtr stream, int n, const void* params) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  Mcg31State& st = *rud::state<Mcg31State>(stream);
  switch (op) {
    case RUD_INIT_SEED: {
      std::uint32_t x = 1;
      if (n >= 1) {
        if (params == nullptr) return RUD_ERROR_NULL_PTR;
        x = read_u32(params) % kM31;
        if (x == 0) x = 1;
      }
      st.x = x;
      st.a = kA31;
      return RUD_STATUS_OK;
    }
    case RUD_INIT_LEAPFROG: {
      if (params == nullptr) return RUD_ERROR_NULL_PTR;
      if (n < 0) return RUD_RNG_ERROR_LEAPFROG_NSTREAMS;
      // Stream k of n: start at term k, then every n-th term. k is not tested against n.
      st.x = mul31(st.x, pow31(st.a, read_u32(params)));
      st.a = pow31(st.a, static_cast<std::uint64_t>(n));
      return RUD_STATUS_OK;
    }
    case RUD_INIT_SKIPAHEAD:
      if (params == nullptr) return RUD_ERROR_NULL_PTR;
      // In the stream's own steps: a leapfrogged stream skips by its multiplier.
      st.x = mul31(st.x, pow31(st.a, read_u64(params)));
      return RUD_STATUS_OK;
    case RUD_INIT_SKIPAHEADEX:
      return RUD_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default:
      return RUD_ERROR_BAD_OPERATION;
  }
}

int mcg31_i(RudStreamPtr stream, int n, unsigned int r[]) {
  if (const int st = block_args(stream, n, r)) return st;
  mcg31_words(*rud::state<Mcg31State>(stream), n, r);
  return RUD_STATUS_OK;
}

int mcg31_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  if (const int st = block_args(stream, n, r)) return st;
  Mcg31State& state = *rud::state<Mcg31State>(stream);
  const double s = (b - a) * kScale31;
  uniforms<std::uint32_t>(
      n, r, [&](int m, std::uint32_t* w) { mcg31_words(state, m, w); },
      [a, s](std::uint32_t x) { return a + static_cast<double>(x) * s; });
  return RUD_STATUS_OK;
}

int mcg31_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  if (const int st = block_args(stream, n, r)) return st;
  Mcg31State& state = *rud::state<Mcg31State>(stream);
  const double ad = a;
  const double s = (static_cast<double>(b) - ad) * kScale31;
  uniforms<std::uint32_t>(
      n, r, [&](int m, std::uint32_t* w) { mcg31_words(state, m, w); },
      [ad, s](std::uint32_t x) { return static_cast<float>(ad + static_cast<double>(x) * s); });
  return RUD_STATUS_OK;
}

// ---- MCG59 entry points -----------------------------------------------------------------------
// The multiplier is a power of 13^13, hence odd, and an odd multiplier never takes x to 0.
bool mcg59_state_ok(const void* state) {
  const auto* st = static_cast<const Mcg59State*>(state);
  return st->x >= 1 && st->x <= kMask59 && (st->a & 1u) == 1u && st->a <= kMask59;
}

int mcg59_init(int op, RudStreamPtr stream, int n, const void* params) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  Mcg59State& st = *rud::state<Mcg59State>(stream);
  switch (op) {
    case RUD_INIT_SEED: {
      std::uint64_t x = 1;
      if (n >= 1) {
        if (params == nullptr) return RUD_ERROR_NULL_PTR;
        if (n == 1) {
          x = read_u32(params);
        } else {
          x = read_u64(params) & kMask59;  // two words, little-endian
        }
        if (x == 0) x = 1;
      }
      st.x = x;
      st.a = kA59;
      return RUD_STATUS_OK;
    }
    case RUD_INIT_LEAPFROG: {
      if (params == nullptr) return RUD_ERROR_NULL_PTR;
      if (n < 0) return RUD_RNG_ERROR_LEAPFROG_NSTREAMS;
      st.x = mul59(st.x, pow59(st.a, read_u32(params)));
      st.a = pow59(st.a, static_cast<std::uint64_t>(n));
      return RUD_STATUS_OK;
    }
    case RUD_INIT_SKIPAHEAD:
      if (params == nullptr) return RUD_ERROR_NULL_PTR;
      st.x = mul59(st.x, pow59(st.a, read_u64(params)));
      return RUD_STATUS_OK;
    case RUD_INIT_SKIPAHEADEX:
      return RUD_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default:
      return RUD_ERROR_BAD_OPERATION;
  }
}

int mcg59_i(RudStreamPtr stream, int n, unsigned int r[]) {
  if (const int st = block_args(stream, n, r)) return st;
  Mcg59State& state = *rud::state<Mcg59State>(stream);
  // The caller's area holds n 8-byte words; it need not be 8-byte aligned.
  if ((reinterpret_cast<std::uintptr_t>(r) & 7u) == 0) {
    mcg59_words(state, n, reinterpret_cast<std::uint64_t*>(r));
  } else {
    constexpr int kChunk = 512;
    alignas(64) std::uint64_t buffer[kChunk];
    for (int done = 0; done < n;) {
      const int m = std::min(kChunk, n - done);
      mcg59_words(state, m, buffer);
      std::memcpy(r + 2 * static_cast<std::size_t>(done), buffer, sizeof(std::uint64_t) * m);
      done += m;
    }
  }
  return RUD_STATUS_OK;
}

int mcg59_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  if (const int st = block_args(stream, n, r)) return st;
  Mcg59State& state = *rud::state<Mcg59State>(stream);
  const double s = (b - a) * kScale59;
  // x is below 2^59, so the signed conversion rounds it exactly as an unsigned one would.
  uniforms<std::uint64_t>(
      n, r, [&](int m, std::uint64_t* w) { mcg59_words(state, m, w); },
      [a, s](std::uint64_t x) {
        return a + static_cast<double>(static_cast<std::int64_t>(x)) * s;
      });
  return RUD_STATUS_OK;
}

int mcg59_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  if (const int st = block_args(stream, n, r)) return st;
  Mcg59State& state = *rud::state<Mcg59State>(stream);
  // The only single-precision path in single arithmetic: the scale is formed in double and
  // narrowed, x is rounded once straight to single, then one product and one sum in single.
  const float s = static_cast<float>((static_cast<double>(b) - static_cast<double>(a)) * kScale59);
  uniforms<std::uint64_t>(
      n, r, [&](int m, std::uint64_t* w) { mcg59_words(state, m, w); },
      [a, s](std::uint64_t x) { return a + static_cast<float>(static_cast<std::int64_t>(x)) * s; });
  return RUD_STATUS_OK;
}

}  // namespace tvx::TVX_VNS::gen
