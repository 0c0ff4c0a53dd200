// What the exponential kernels of every variant share: accuracy levels, bit-pattern constants,
// thresholds, the generated tables of powers of two and the Taylor coefficients of the
// short-argument paths.
#pragma once

#include <bit>
#include <cstdint>

#include "simd/variant.h"

namespace tvx::TVX_VNS::exp_detail {

enum class Acc { LA, HA, EP };

constexpr double d_bits(std::uint64_t b) {
  return std::bit_cast<double>(b);
}
constexpr float f_bits(std::uint32_t b) {
  return std::bit_cast<float>(b);
}

#include "vector/kernels/exp_log/exp_tables.inc"

// Range limits of exp, by type.
template <class T>
struct Limits;
template <>
struct Limits<double> {
  // Largest x with a finite exp(x): 709.782712893384.
  static constexpr double kOverflow = d_bits(0x40862E42FEFA39EF);
  // Below this exp(x) rounds to +0: -745.1332191019412.
  static constexpr double kUnderflow = d_bits(0xC0874910D52D3051);
  // ln(2^-1022) rounded: below it exp(x) is subnormal.
  static constexpr double kSubnormal = d_bits(0xC086232BDD7ABCD2);
  // |x| up to here stays in the table paths: exp(x) is then a normal number for both signs.
  static constexpr double kTableRange = d_bits(0x4086232AFFFFFFFF);
  // Below this expm1(x) is -1 in the type (exp(x) under a quarter of the ulp of 1).
  static constexpr double kExpm1Saturate = -45.0;
  // Below this |x|, expm1(x) rounds to x.
  static constexpr double kExpm1Tiny = 0x1p-57;
  static constexpr int kMantBits = 52;
};
template <>
struct Limits<float> {
  static constexpr float kOverflow = f_bits(0x42B17217);    // 88.72283
  static constexpr float kUnderflow = f_bits(0xC2CFF1B4);   // -103.97208
  static constexpr float kSubnormal = f_bits(0xC2AEAC4F);   // least float with a normal exp
  static constexpr float kTableRange = f_bits(0x42AEAC4F);  // 87.33654
  static constexpr float kExpm1Saturate = -45.0f;
  static constexpr float kExpm1Tiny = 0x1p-25f;
  static constexpr int kMantBits = 23;
};

// 1/k! for k = 2, 3, ..., rounded to T: the coefficients of (expm1(x) - x) / x^2.
template <class T>
inline constexpr T kInvFact[9] = {T(1.0 / 2),     T(1.0 / 6),      T(1.0 / 24),
                                  T(1.0 / 120),   T(1.0 / 720),    T(1.0 / 5040),
                                  T(1.0 / 40320), T(1.0 / 362880), T(1.0 / 3628800)};

}  // namespace tvx::TVX_VNS::exp_detail
