// Shared pieces of the arithmetic and rounding kernels: names for reports, block sizes and the
// limits of the element types.
#pragma once

#include <cstdint>
#include <limits>

#include "vector/kernels/common/kernel_loop.h"

namespace tvx::TVX_VNS::arith {

using simd::vec;

// Registers per block: 8 elements a block on variants 0 and 2, 16 on variant 3 (four registers
// each), 64 doubles on variant 5; the second SSE2 copy keeps the smaller block of two.
inline constexpr int kBlockRegs = kVariantId == 5 ? 8 : kVariantId == 1 ? 2 : 4;

template <class T>
struct Lim;
template <>
struct Lim<double> {
  static constexpr double kBig = 0x1p52;  // from here on every double is an integer
  static constexpr double kMax = std::numeric_limits<double>::max();
  // Range in which a divisor's reciprocal form is trusted: exponent fields 0x002 to 0x7FC.
  static constexpr double kRcpLo = 0x1p-1021;
  static constexpr double kRcpHi = 0x1p1022;
  // Range of a quotient that the reciprocal forms may deliver without a true divide.
  static constexpr double kQuoLo = 0x1p-1020;
  static constexpr double kQuoHi = 0x1p1021;
};
template <>
struct Lim<float> {
  static constexpr float kBig = 0x1p23f;
  static constexpr float kMax = std::numeric_limits<float>::max();
  static constexpr float kRcpLo = 0x1p-126f;
  static constexpr float kRcpHi = 0x1p125f;
  static constexpr float kQuoLo = 0x1p-125f;
  static constexpr float kQuoHi = 0x1p126f;
};

// "vd" + name or "vs" + name, as the export reports itself.
template <class T>
constexpr const char* pick(const char* d, const char* s) {
  return sizeof(T) == 8 ? d : s;
}

}  // namespace tvx::TVX_VNS::arith
