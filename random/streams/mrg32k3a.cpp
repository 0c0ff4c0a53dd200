// MRG32k3a: two third-order multiple recursive components combined by subtraction.
//   x(n) = 1403580 x(n-2) - 810728 x(n-3)   mod m1 = 2^32 - 209
//   y(n) = 527612 y(n-1) - 1370589 y(n-3)   mod m2 = 2^32 - 22853
//   z(n) = x(n) - y(n) mod m1
// Compiled once per instruction-set variant.
//
// A block computes L terms at once: with v = (x(n-3), x(n-2), x(n-1)) the term x(n+j) is the last
// row of A^(j+1) times v, so L lanes each take three products of 32-bit numbers. The products are
// reduced with 2^32 = 209 (mod m1) and 2^32 = 22853 (mod m2) to the exact residue, and the last
// three terms of a step start the next. The words equal the one-by-one recurrence for any cut.
#include "random/streams/generators.h"
#include "random/streams/lanes.h"

namespace tvx::TVX_VNS::gen {
namespace {

#include "random/streams/mrg32k3a_tables.inc"

using lanes::kW;
using lanes::V;

constexpr std::uint64_t kM1 = 4294967087u;             // 2^32 - 209
constexpr std::uint64_t kM2 = 4294944443u;             // 2^32 - 22853
constexpr std::int64_t kA12 = 1403580, kA13 = 810728;  // x: + a12 x(n-2) - a13 x(n-3)
constexpr std::int64_t kA21 = 527612, kA23 = 1370589;  // y: + a21 y(n-1) - a23 y(n-3)
// 1 / m1 rounded to double (2.328306549837829e-10).
constexpr double kScale = 0x1.000000d10000bp-32;

constexpr int kLanes = kW >= 4 ? 16 : 8;
constexpr int kRegs = kLanes / kW;

struct MrgState {
  std::uint32_t s[6];  // x oldest first, then y oldest first
};

struct Mat3 {
  std::uint64_t a[3][3];
};

constexpr Mat3 kFirst = {{{0, 1, 0}, {0, 0, 1}, {kM1 - kA13, kA12, 0}}};
constexpr Mat3 kSecond = {{{0, 1, 0}, {0, 0, 1}, {kM2 - kA23, 0, kA21}}};
constexpr Mat3 kIdentity = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};

// Entries below m < 2^32: each product fits 64 bits and is reduced before the sum.
constexpr Mat3 mat_mul(const Mat3& p, const Mat3& q, std::uint64_t m) {
  Mat3 r{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      std::uint64_t sum = 0;
      for (int t = 0; t < 3; ++t) sum += p.a[i][t] * q.a[t][j] % m;
      r.a[i][j] = sum % m;
    }
  }
  return r;
}

Mat3 from_table(const std::uint32_t (&w)[9]) {
  Mat3 r{};
  for (int i = 0; i < 9; ++i) r.a[i / 3][i % 3] = w[i];
  return r;
}

void apply(const Mat3& p, std::uint32_t* v, std::uint64_t m) {
  std::uint64_t out[3];
  for (int i = 0; i < 3; ++i) {
    std::uint64_t sum = 0;
    for (int t = 0; t < 3; ++t) sum += p.a[i][t] * v[t] % m;
    out[i] = sum % m;
  }
  for (int i = 0; i < 3; ++i) v[i] = static_cast<std::uint32_t>(out[i]);
}

// Last rows of A^1 .. A^L: the coefficients of the L lanes.
struct LaneCoefficients {
  std::uint64_t c[3][kLanes];
};
constexpr LaneCoefficients lane_coefficients(const Mat3& a, std::uint64_t m) {
  LaneCoefficients r{};
  Mat3 p = a;
  for (int j = 0; j < kLanes; ++j) {
    for (int t = 0; t < 3; ++t) r.c[t][j] = p.a[2][t];
    p = mat_mul(p, a, m);
  }
  return r;
}
alignas(64) constexpr LaneCoefficients kLaneFirst = lane_coefficients(kFirst, kM1);
alignas(64) constexpr LaneCoefficients kLaneSecond = lane_coefficients(kSecond, kM2);

inline void step(MrgState& st, std::uint32_t& z) {
  std::uint32_t* s = st.s;
  std::int64_t p1 = (kA12 * s[1] - kA13 * s[0]) % static_cast<std::int64_t>(kM1);
  if (p1 < 0) p1 += kM1;
  std::int64_t p2 = (kA21 * s[5] - kA23 * s[3]) % static_cast<std::int64_t>(kM2);
  if (p2 < 0) p2 += kM2;
  s[0] = s[1];
  s[1] = s[2];
  s[2] = static_cast<std::uint32_t>(p1);
  s[3] = s[4];
  s[4] = s[5];
  s[5] = static_cast<std::uint32_t>(p2);
  std::int64_t d = p1 - p2;
  if (d < 0) d += kM1;
  z = static_cast<std::uint32_t>(d);
}

// p = hi 2^32 + lo = hi f + lo (mod m), with f = 2^32 - m.
inline V fold(V p, V lo_mask, V f) {
  return lanes::add(lanes::mul32(lanes::srl<32>(p), f), lanes::band(p, lo_mask));
}

// c0 v0 + c1 v1 + c2 v2 mod m, all inputs below 2^32. Each product folds to below 2^32 (f + 1);
// one more fold of their sum leaves below 2^32 + 3 (f + 1) f, under 2 m for both moduli (f is
// 209 or 22853), so one conditional subtraction gives the residue.
inline V combine(V c0, V c1, V c2, V v0, V v1, V v2, V lo_mask, V f, V m) {
  V sum =
      lanes::add(fold(lanes::mul32(c0, v0), lo_mask, f), fold(lanes::mul32(c1, v1), lo_mask, f));
  sum = lanes::add(sum, fold(lanes::mul32(c2, v2), lo_mask, f));
  return lanes::sub_if_ge(fold(sum, lo_mask, f), m);
}

void mrg_words(MrgState& st, int n, std::uint32_t* r) {
  int i = 0;
  if (n >= 2 * kLanes) {
    const V lo_mask = lanes::set1(0xFFFFFFFFu);
    const V m1 = lanes::set1(kM1), f1 = lanes::set1(0x100000000ull - kM1);
    const V m2 = lanes::set1(kM2), f2 = lanes::set1(0x100000000ull - kM2);
    V x0 = lanes::set1(st.s[0]), x1 = lanes::set1(st.s[1]), x2 = lanes::set1(st.s[2]);
    V y0 = lanes::set1(st.s[3]), y1 = lanes::set1(st.s[4]), y2 = lanes::set1(st.s[5]);
    V x[kRegs], y[kRegs];
    for (; i + kLanes <= n; i += kLanes) {
      for (int u = 0; u < kRegs; ++u) {
        const int o = u * kW;
        x[u] = combine(lanes::load(kLaneFirst.c[0] + o), lanes::load(kLaneFirst.c[1] + o),
                       lanes::load(kLaneFirst.c[2] + o), x0, x1, x2, lo_mask, f1, m1);
        y[u] = combine(lanes::load(kLaneSecond.c[0] + o), lanes::load(kLaneSecond.c[1] + o),
                       lanes::load(kLaneSecond.c[2] + o), y0, y1, y2, lo_mask, f2, m2);
        lanes::store_lo32(r + i + o, lanes::add_if_neg(lanes::sub(x[u], y[u]), m1));
      }
      // The last three terms of the step, spread over all lanes, start the next step.
      x0 = lanes::bcast(x[(kLanes - 3) / kW], (kLanes - 3) % kW);
      x1 = lanes::bcast(x[(kLanes - 2) / kW], (kLanes - 2) % kW);
      x2 = lanes::bcast(x[(kLanes - 1) / kW], (kLanes - 1) % kW);
      y0 = lanes::bcast(y[(kLanes - 3) / kW], (kLanes - 3) % kW);
      y1 = lanes::bcast(y[(kLanes - 2) / kW], (kLanes - 2) % kW);
      y2 = lanes::bcast(y[(kLanes - 1) / kW], (kLanes - 1) % kW);
    }
    alignas(64) std::uint64_t tmp[kW];
    const V* from[6] = {&x0, &x1, &x2, &y0, &y1, &y2};
    for (int t = 0; t < 6; ++t) {
      lanes::store(tmp, *from[t]);
      st.s[t] = static_cast<std::uint32_t>(tmp[0]);
    }
  }
  for (; i < n; ++i) step(st, r[i]);
}

// Advances both components by the matrix power `p1`, `p2`.
void advance(MrgState& st, const Mat3& p1, const Mat3& p2) {
  apply(p1, st.s, kM1);
  apply(p2, st.s + 3, kM2);
}

}  // namespace

// Each component reduced by its modulus and not all zero, as seeding leaves it.
bool mrg32k3a_state_ok(const void* state) {
  const auto* s = static_cast<const MrgState*>(state)->s;
  for (int j = 0; j < 6; ++j) {
    if (s[j] >= (j < 3 ? kM1 : kM2)) return false;
  }
  return (s[0] | s[1] | s[2]) != 0 && (s[3] | s[4] | s[5]) != 0;
}

int mrg32k3a_init(int op, RudStreamPtr stream, int n, const void* params) {
  if (stream == nullptr) return RUD_ERROR_NULL_PTR;
  MrgState& st = *rud::state<MrgState>(stream);
  switch (op) {
    case RUD_INIT_SEED: {
      if (n >= 1 && params == nullptr) return RUD_ERROR_NULL_PTR;
      const auto* words = static_cast<const unsigned char*>(params);
      for (int i = 0; i < 6; ++i) st.s[i] = i < n ? read_u32(words + 4 * i) : 1u;
      for (int i = 0; i < 3; ++i) {
        if (st.s[i] >= kM1) st.s[i] -= static_cast<std::uint32_t>(kM1);
        if (st.s[3 + i] >= kM2) st.s[3 + i] -= static_cast<std::uint32_t>(kM2);
      }
      if ((st.s[0] | st.s[1] | st.s[2]) == 0) st.s[0] = 1;
      if ((st.s[3] | st.s[4] | st.s[5]) == 0) st.s[3] = 1;
      return RUD_STATUS_OK;
    }
    case RUD_INIT_LEAPFROG:
      return RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED;
    case RUD_INIT_SKIPAHEAD: {
      if (params == nullptr) return RUD_ERROR_NULL_PTR;
      std::uint64_t e = read_u64(params);
      Mat3 p1 = kFirst, p2 = kSecond, acc1 = kIdentity, acc2 = kIdentity;
      while (e != 0) {
        if (e & 1) {
          acc1 = mat_mul(acc1, p1, kM1);
          acc2 = mat_mul(acc2, p2, kM2);
        }
        e >>= 1;
        if (e != 0) {
          p1 = mat_mul(p1, p1, kM1);
          p2 = mat_mul(p2, p2, kM2);
        }
      }
      advance(st, acc1, acc2);
      return RUD_STATUS_OK;
    }
    case RUD_INIT_SKIPAHEADEX: {
      if (n <= 0) return RUD_STATUS_OK;
      if (params == nullptr) return RUD_ERROR_NULL_PTR;
      const auto* bytes = static_cast<const unsigned char*>(params);
      bool high = false;  // a non-zero word from the fourth on
      for (int w = 3; w < n && !high; ++w) high = read_u64(bytes + 8 * w) != 0;
      Mat3 acc1 = kIdentity, acc2 = kIdentity;
      if (!high) {
        // Up to 192 bits: one product with a tabulated A^(2^k) per set bit.
        for (int w = 0; w < std::min(n, 3); ++w) {
          const std::uint64_t word = read_u64(bytes + 8 * w);
          for (int b = 0; b < 64; ++b) {
            if ((word >> b) & 1) {
              acc1 = mat_mul(acc1, from_table(kMrgPow2First[64 * w + b]), kM1);
              acc2 = mat_mul(acc2, from_table(kMrgPow2Second[64 * w + b]), kM2);
            }
          }
        }
      } else {
        Mat3 p1 = kFirst, p2 = kSecond;
        for (int w = 0; w < n; ++w) {
          const std::uint64_t word = read_u64(bytes + 8 * w);
          for (int b = 0; b < 64; ++b) {
            if ((word >> b) & 1) {
              acc1 = mat_mul(acc1, p1, kM1);
              acc2 = mat_mul(acc2, p2, kM2);
            }
            p1 = mat_mul(p1, p1, kM1);
            p2 = mat_mul(p2, p2, kM2);
          }
        }
      }
      advance(st, acc1, acc2);
      return RUD_STATUS_OK;
    }
    default:
      return RUD_ERROR_BAD_OPERATION;
  }
}

int mrg32k3a_i(RudStreamPtr stream, int n, unsigned int r[]) {
  if (const int st = block_args(stream, n, r)) return st;
  mrg_words(*rud::state<MrgState>(stream), n, r);
  return RUD_STATUS_OK;
}

int mrg32k3a_d(RudStreamPtr stream, int n, double r[], double a, double b) {
  if (const int st = block_args(stream, n, r)) return st;
  MrgState& state = *rud::state<MrgState>(stream);
  const double s = (b - a) * kScale;
  uniforms<std::uint32_t>(
      n, r, [&](int m, std::uint32_t* w) { mrg_words(state, m, w); },
      [a, s](std::uint32_t z) { return a + static_cast<double>(z) * s; });
  return RUD_STATUS_OK;
}

int mrg32k3a_s(RudStreamPtr stream, int n, float r[], float a, float b) {
  if (const int st = block_args(stream, n, r)) return st;
  MrgState& state = *rud::state<MrgState>(stream);
  const double ad = a;
  const double s = (static_cast<double>(b) - ad) * kScale;
  uniforms<std::uint32_t>(
      n, r, [&](int m, std::uint32_t* w) { mrg_words(state, m, w); },
      [ad, s](std::uint32_t z) { return static_cast<float>(ad + static_cast<double>(z) * s); });
  return RUD_STATUS_OK;
}

}  // namespace tvx::TVX_VNS::gen
