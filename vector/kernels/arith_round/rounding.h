// Floor, Ceil, Trunc, Round, Rint, NearbyInt and Modf.
//
// Every variant gives the same bits for every input: the SSE2 variants, which have no rounding
// instruction, work on |x| below the first all-integer binade (2^52, single 2^23) where adding and
// subtracting that power of two lands on an integer next to |x| in any rounding mode, and then
// step to the wanted neighbour by one comparison. Values at or above it, infinities and NaNs are
// returned as stored, never through arithmetic, so a signalling NaN stays signalling on every
// variant and raises no flag; zeros keep their sign.
#pragma once

#include <cmath>

#include "vector/kernels/arith_round/common.h"

namespace tvx::TVX_VNS::arith {

// An integer next to t, 0 <= t < kBig, whatever the rounding mode: t + 2^k rounds to an integer
// since its binade has unit spacing, and subtracting 2^k again is exact. The sign is cleared
// because M - M is -0 when rounding downward.
template <class T>
inline vec<T> near_int(const vec<T>& t) {
  const vec<T> big(Lim<T>::kBig);
  return simd::clear_sign((t + big) - big);
}
template <class T>
inline vec<T> trunc_mag(const vec<T>& t) {
  const vec<T> m = near_int(t);
  return simd::select(m > t, m - vec<T>(1), m);
}
template <class T>
inline vec<T> ceil_mag(const vec<T>& t) {
  const vec<T> m = near_int(t);
  return simd::select(m < t, m + vec<T>(1), m);
}

enum class Dir { kFloor, kCeil, kTrunc };

// Rounding instruction immediates of the three directed functions.
constexpr int imm_of(Dir d) {
  return d == Dir::kFloor ? 1 : d == Dir::kCeil ? 2 : 3;
}

template <class T>
inline T scalar_directed(Dir d, T x) {
  return d == Dir::kFloor ? std::floor(x) : d == Dir::kCeil ? std::ceil(x) : std::trunc(x);
}

// x rounded in direction D; lanes not below kBig (NaN included) come back as stored.
template <Dir D, class T>
inline vec<T> directed(const vec<T>& x) {
  const vec<T> t = simd::clear_sign(x);
  const auto small = t < vec<T>(Lim<T>::kBig);
  vec<T> r;
  if constexpr (simd::kHasRound) {
    r = simd::round<imm_of(D)>(simd::select(small, x, vec<T>(0)));
  } else {
    const vec<T> ts = simd::select(small, t, vec<T>(0));
    const vec<T> s = simd::sign_of(x);
    if constexpr (D == Dir::kTrunc) {
      r = trunc_mag(ts) | s;
    } else {
      // Floor rounds a negative number's magnitude up, Ceil a positive one's.
      const auto neg = x < vec<T>(0);
      const vec<T> up = ceil_mag(ts);
      const vec<T> down = trunc_mag(ts);
      r = (D == Dir::kFloor ? simd::select(neg, up, down) : simd::select(neg, down, up)) | s;
    }
  }
  return simd::select(small, r, x);
}

// Floor, Ceil, Trunc. The SSE2 variants only move bits and leave the caller's environment alone.
template <class E, Dir D>
struct Directed {
  using T = E;
  static constexpr Env kEnv = simd::kHasRound ? Env::kMode : Env::kBitsOnly;
  static constexpr int kUnroll = kBlockRegs;
  static constexpr bool kStream = true;
  static constexpr const char* kName = D == Dir::kFloor  ? pick<T>("vdFloor", "vsFloor")
                                       : D == Dir::kCeil ? pick<T>("vdCeil", "vsCeil")
                                                         : pick<T>("vdTrunc", "vsTrunc");
  static vec<T> vector(const vec<T>& x, std::uint32_t&, std::uint32_t) { return directed<D>(x); }
  static int callout(T x, T* r) {
    *r = std::isnan(x) ? x : scalar_directed(D, x);
    return 0;
  }
};

// Rint and NearbyInt. On variants 2, 3 and 5 the kernel has set round-to-nearest and uses the
// instruction in the current mode; the SSE2 variants keep the caller's rounding mode and round
// x itself toward the integer that mode picks: x + 2^k - 2^k for x >= 0, x - 2^k + 2^k below,
// each a single rounding in the current direction. The result has x's sign, also when zero.
template <class E, bool kNearby>
struct RintK {
  using T = E;
  static constexpr Env kEnv = simd::kHasRound ? Env::kMode : Env::kBitsOnly;
  static constexpr int kUnroll = kBlockRegs;
  static constexpr bool kStream = true;
  static constexpr const char* kName =
      kNearby ? pick<T>("vdNearbyInt", "vsNearbyInt") : pick<T>("vdRint", "vsRint");
  static vec<T> vector(const vec<T>& x, std::uint32_t&, std::uint32_t) {
    const vec<T> t = simd::clear_sign(x);
    const auto small = t < vec<T>(Lim<T>::kBig);
    const vec<T> xs = simd::select(small, x, vec<T>(0));
    vec<T> r;
    if constexpr (simd::kHasRound) {
      r = simd::round < kNearby ? 12 : 4 > (xs);
    } else {
      const vec<T> big(Lim<T>::kBig);
      const vec<T> up = (xs + big) - big;
      const vec<T> down = (xs - big) + big;
      r = simd::clear_sign(simd::select(xs < vec<T>(0), down, up)) | simd::sign_of(x);
    }
    return simd::select(small, r, x);
  }
  static int callout(T x, T* r) {
    *r = std::isnan(x) ? x : std::nearbyint(x);
    return 0;
  }
};

// Round: half away from zero. r = nearest-even integer of t = |x|, then one up when t - r is
// exactly one half, and the sign of x put back. Runs in round-to-nearest.
template <class E>
struct RoundK {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr int kUnroll = kBlockRegs;
  static constexpr bool kStream = true;
  static constexpr const char* kName = pick<T>("vdRound", "vsRound");
  static vec<T> vector(const vec<T>& x, std::uint32_t&, std::uint32_t) {
    const vec<T> t = simd::clear_sign(x);
    const auto small = t < vec<T>(Lim<T>::kBig);
    const vec<T> ts = simd::select(small, t, vec<T>(0));
    vec<T> r;
    if constexpr (simd::kHasRound) {
      r = simd::round<0>(ts);
    } else {
      const vec<T> big(Lim<T>::kBig);
      r = (ts + big) - big;
    }
    r = simd::select(ts - r == vec<T>(T(0.5)), r + vec<T>(1), r);
    return simd::select(small, r, t) | simd::sign_of(x);
  }
  static int callout(T x, T* r) {
    *r = std::isnan(x) ? x : std::round(x);
    return 0;
  }
};

// Modf: y the integral part, z the fractional part, both with x's sign. The block computes every
// finite lane; infinities and NaNs are marked and go to the callout.
template <class E>
struct ModfK {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr int kUnroll = 1;
  static constexpr const char* kName = pick<T>("vdModf", "vsModf");
  static void vector(const vec<T>& x, vec<T>& y, vec<T>& z, std::uint32_t& bad, std::uint32_t) {
    const vec<T> t = simd::clear_sign(x);
    const auto finite = t <= vec<T>(Lim<T>::kMax);
    const vec<T> xs = simd::select(finite, x, vec<T>(0));
    const vec<T> s = simd::sign_of(x);
    const vec<T> i = directed<Dir::kTrunc>(xs);
    y = i;
    // |x| < 1: the fraction is x itself (a zero or subnormal included, whatever the flush
    // setting); otherwise x - i, exact, and a zero fraction takes x's sign.
    z = simd::select(t < vec<T>(1), xs, (xs - i) | s);
    bad = simd::bits(!finite);
  }
  static int callout(T x, T* y, T* z) {
    if (std::isnan(x)) {
      *y = x + x;
      *z = x + x;
    } else if (std::isinf(x)) {
      *y = x;
      *z = std::copysign(T(0), x);
    } else {
      *y = std::trunc(x);
      *z = std::fabs(x) < 1 ? x : std::copysign(x - *y, x);
    }
    return 0;
  }
};

}  // namespace tvx::TVX_VNS::arith
