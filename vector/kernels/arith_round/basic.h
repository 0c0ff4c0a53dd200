// Add, Sub, Mul, Sqr, Abs: one IEEE operation per element, no callout, no report.
#pragma once

#include "vector/kernels/arith_round/common.h"

namespace tvx::TVX_VNS::arith {

enum class Op { kAdd, kSub, kMul };

template <class E, Op kOp>
struct Binary {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr int kUnroll = kBlockRegs;
  static constexpr bool kStream = true;
  static constexpr const char* kName = kOp == Op::kAdd   ? pick<T>("vdAdd", "vsAdd")
                                       : kOp == Op::kSub ? pick<T>("vdSub", "vsSub")
                                                         : pick<T>("vdMul", "vsMul");
  static vec<T> vector(const vec<T>& a, const vec<T>& b, std::uint32_t&, std::uint32_t) {
    if constexpr (kOp == Op::kAdd) return a + b;
    if constexpr (kOp == Op::kSub) return a - b;
    return a * b;
  }
  static int callout(T a, T b, T* r) {
    *r = kOp == Op::kAdd ? a + b : kOp == Op::kSub ? a - b : a * b;
    return 0;
  }
};

template <class E>
struct Sqr {
  using T = E;
  static constexpr Env kEnv = Env::kMode;
  static constexpr int kUnroll = kBlockRegs;
  static constexpr bool kStream = true;
  static constexpr const char* kName = pick<T>("vdSqr", "vsSqr");
  static vec<T> vector(const vec<T>& a, std::uint32_t&, std::uint32_t) { return a * a; }
  static int callout(T a, T* r) {
    *r = a * a;
    return 0;
  }
};

// The sign bit cleared by an AND: a NaN keeps its payload, a signalling one stays signalling.
// On the SSE2 variants the kernel moves bits only and leaves the caller's environment alone.
template <class E>
struct Abs {
  using T = E;
  static constexpr Env kEnv = kVariantId <= 1 ? Env::kBitsOnly : Env::kMode;
  static constexpr int kUnroll = kBlockRegs;
  static constexpr bool kStream = true;
  static constexpr const char* kName = pick<T>("vdAbs", "vsAbs");
  static vec<T> vector(const vec<T>& a, std::uint32_t&, std::uint32_t) {
    return simd::clear_sign(a);
  }
  static int callout(T a, T* r) {
    *r = a < 0 ? -a : a;
    return 0;
  }
};

}  // namespace tvx::TVX_VNS::arith
