// LGamma and TGamma of one element in the 80-bit extended format of the x87 unit (64-bit
// mantissa), rounded once to the element type.
//
// lgamma:  x in [1.5, 2.5): the series about 2, lgamma(2 + e) = (1 - gamma) e
//          + sum (-1)^k (zeta(k) - 1)/k e^k, |e| <= 1/2, terms below 2^-80 from k = 40;
//          below 1.5 the steps lgamma(x) = lgamma(x + 1) - ln x, kept as log1p near 1 so that
//          the zero at 1 keeps its relative accuracy; from 2.5 to 13 a product of the shifts;
//          from 13 on Stirling's series, 12 terms; x < 0 by reflection, sin(pi x) after an exact
//          reduction of x modulo 2.
// tgamma:  exp of the series about 2 times the product of the shifts (at most 171 factors, each
//          rounding 2^-64), divided by x (x + 1) below 1.5; x < 0 by reflection.
// The routines set the x87 unit to 64-bit precision, round to nearest, all exceptions masked,
// clear the flags their own steps raised, and give the caller's control word back. The flags of
// a result (divide-by-zero at a pole, invalid, overflow, underflow) are then raised in SSE
// arithmetic, where the kernel's environment and flush mode apply.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

#include "tvx_vector.h"
#include "vector/kernels/erfgamma/erfgamma_common.h"

namespace tvx::TVX_VNS::special {

// x87 in extended precision for a scope.
class X87Extended {
 public:
  X87Extended() {
    asm volatile("fnstcw %0" : "=m"(saved_));
    const std::uint16_t cw = 0x037F;
    asm volatile("fldcw %0" : : "m"(cw));
  }
  ~X87Extended() { asm volatile("fnclex\n\tfldcw %0" : : "m"(saved_)); }
  X87Extended(const X87Extended&) = delete;
  X87Extended& operator=(const X87Extended&) = delete;

 private:
  std::uint16_t saved_;
};

// lgamma(2 + e) for |e| <= 1/2.
inline long double lgamma_about_2(long double e) {
  constexpr int kN = static_cast<int>(sizeof kLgammaZeta / sizeof kLgammaZeta[0]);
  long double acc = 0.0L;
  for (int k = kN - 1; k >= 0; --k) {
    // coefficient of e^(k+2), sign (-1)^(k+2)
    acc = acc * e + ((k % 2 == 0) ? kLgammaZeta[k] : -kLgammaZeta[k]);
  }
  return (1.0L - kEulerGamma) * e + acc * e * e;
}

// |sin(pi x)| for a non-integer x, with the sign of sin(pi x) in *negative.
inline long double sin_pi(long double x, bool* negative) {
  long double f = x - 2.0L * nearbyintl(x * 0.5L);  // in [-1, 1], exact
  *negative = f < 0;
  f = fabsl(f);
  if (f > 0.5L) f = 1.0L - f;
  return sinl(kPiL * f);
}

// lgamma of a positive finite x.
inline long double lgamma_positive(long double x) {
  if (x < 0.5L) return lgamma_about_2(x) - log1pl(x) - logl(x);
  if (x < 1.5L) return lgamma_about_2(x - 1.0L) - log1pl(x - 1.0L);
  if (x < 2.5L) return lgamma_about_2(x - 2.0L);
  if (x < 13.0L) {
    long double y = x, p = 1.0L;
    while (y >= 2.5L) {
      y -= 1.0L;
      p *= y;
    }
    return lgamma_about_2(y - 2.0L) + logl(p);
  }
  constexpr int kN = static_cast<int>(sizeof kLgammaStirling / sizeof kLgammaStirling[0]);
  const long double r = 1.0L / x, r2 = r * r;
  long double s = kLgammaStirling[kN - 1];
  for (int k = kN - 2; k >= 0; --k) s = s * r2 + kLgammaStirling[k];
  return ((x - 0.5L) * logl(x) - x) + (kHalfLn2Pi + s * r);
}

// gamma of x in [0.5, 172): the series about 2 and the product of the shifts.
inline long double tgamma_positive(long double x) {
  if (x < 0.5L) return expl(lgamma_about_2(x)) / (x * (x + 1.0L));
  if (x < 1.5L) return expl(lgamma_about_2(x - 1.0L)) / x;
  long double y = x, p = 1.0L;
  while (y >= 2.5L) {
    y -= 1.0L;
    p *= y;
  }
  return expl(lgamma_about_2(y - 2.0L)) * p;
}

template <class T>
inline T raise_divbyzero(T sign) {
  return std::copysign(opaque(T(1)) / opaque(T(0)), sign);
}
template <class T>
inline T raise_invalid() {
  return opaque(T(0)) / opaque(T(0));
}
template <class T>
inline T raise_overflow() {
  return opaque(std::numeric_limits<T>::max()) * opaque(T(2));
}
template <class T>
inline T raise_underflow(bool negative) {
  const T z = opaque(std::numeric_limits<T>::min()) * opaque(std::numeric_limits<T>::epsilon() / 4);
  return negative ? -z : z;
}

// Rounds an extended result to T once and settles overflow and underflow with their statuses;
// an exact zero (lgamma at 1 and 2) is no underflow.
template <class T>
inline int settle(long double v, T* r) {
  if (fabsl(v) > static_cast<long double>(std::numeric_limits<T>::max())) {
    const T inf = raise_overflow<T>();
    *r = v < 0 ? -inf : inf;
    return KAZ_STATUS_OVERFLOW;
  }
  if (v != 0 && fabsl(v) < static_cast<long double>(std::numeric_limits<T>::min())) {
    // Subnormal or zero: rounded in SSE arithmetic (flush mode included) from a value that the
    // x87 unit rounded to the nearest representable of T's precision.
    raise_underflow<T>(false);
    const T y = opaque(static_cast<T>(v)) * opaque(T(1));
    *r = y;
    return KAZ_STATUS_UNDERFLOW;
  }
  *r = opaque(static_cast<T>(v)) * opaque(T(1));
  return 0;
}

template <class T>
inline bool is_integer(T x) {
  return std::trunc(x) == x;
}

template <class T>
inline int lgamma_callout(T a, T* r) {
  if (std::isnan(a)) {
    *r = a + a;
    return 0;
  }
  const T x = a * opaque(T(1));  // denormals read as zero in the flush mode
  if (std::isinf(x)) {
    *r = std::numeric_limits<T>::infinity();
    return 0;
  }
  if (x <= 0 && is_integer(x)) {
    *r = std::fabs(raise_divbyzero<T>(T(1)));
    return KAZ_STATUS_SING;
  }
  long double v;
  {
    X87Extended x87;
    const long double lx = x;
    if (lx > 0) {
      v = lgamma_positive(lx);
    } else {
      bool negative;
      v = kLnPiL - logl(sin_pi(lx, &negative)) - lgamma_positive(1.0L - lx);
    }
    // The result in T's precision while the unit still rounds to nearest in full precision;
    // settle() sees an exact value of T, or one past its range.
    if (fabsl(v) <= static_cast<long double>(std::numeric_limits<T>::max())) v = static_cast<T>(v);
  }
  return settle<T>(v, r);
}

template <class T>
inline int tgamma_callout(T a, T* r) {
  if (std::isnan(a)) {
    *r = a + a;
    return 0;
  }
  const T x = a * opaque(T(1));
  if (x == std::numeric_limits<T>::infinity()) {
    *r = x;
    return 0;
  }
  if (x == 0) {
    *r = raise_divbyzero<T>(x);
    return KAZ_STATUS_SING;
  }
  if (x < 0 && is_integer(x)) {  // negative integers and -infinity
    *r = raise_invalid<T>();
    return KAZ_STATUS_ERRDOM;
  }
  if (x >= T(d_bits(0x406573FAE561F648))) {  // 171.6243769...: past the double range
    *r = raise_overflow<T>();
    return KAZ_STATUS_OVERFLOW;
  }
  long double v;
  {
    X87Extended x87;
    const long double lx = x;
    if (lx > 0) {
      v = tgamma_positive(lx);
    } else if (lx > -200.0L) {
      bool negative;
      const long double s = sin_pi(lx, &negative);
      v = kPiL / (s * tgamma_positive(1.0L - lx));
      if (negative) v = -v;
    } else {
      // |gamma(x)| < 1/199!: zero in every type, with the sign of sin(pi x).
      bool negative;
      sin_pi(lx, &negative);
      v = negative ? -0.0L : 0.0L;
    }
    if (fabsl(v) <= static_cast<long double>(std::numeric_limits<T>::max()) &&
        fabsl(v) >= static_cast<long double>(std::numeric_limits<T>::min()))
      v = static_cast<T>(v);
  }
  if (v == 0) {
    *r = raise_underflow<T>(std::signbit(v));
    *r = std::copysign(T(0), static_cast<T>(v));
    return KAZ_STATUS_UNDERFLOW;
  }
  return settle<T>(v, r);
}

}  // namespace tvx::TVX_VNS::special
