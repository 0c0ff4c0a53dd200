// Error of a computed result in ulps of the exact result, with MPFR as the truth.
//
// The reference is computed with 200 bits and the error is kept as a residue
// |computed - exact| / ulp(exact), where ulp is that of the result's own type: 2^(e - p + 1) for
// a normal exact value of binary exponent e, and the smallest subnormal below the normal range.
// Working with the residue (not a rounded reference) keeps the fractional part of the error, also
// for subnormal results.
#pragma once

#include <mpfr.h>

#include <cmath>
#include <limits>

namespace tvx::test {

using MpfrUnary = int (*)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t);

// ulp error of `computed` (a float or double value widened to double) against f(x).
template <class T>
inline double ulp_error(MpfrUnary f, double x, double computed) {
  constexpr int kPrec = 200;
  constexpr int kDigits = std::numeric_limits<T>::digits;            // 53 or 24
  constexpr int kMinExp = std::numeric_limits<T>::min_exponent - 1;  // -1022 or -126
  mpfr_t mx, exact, diff;
  mpfr_inits2(kPrec, mx, exact, diff, static_cast<mpfr_ptr>(nullptr));
  mpfr_set_d(mx, x, MPFR_RNDN);
  f(exact, mx, MPFR_RNDN);
  double err;
  if (mpfr_nan_p(exact)) {
    err = std::isnan(computed) ? 0.0 : std::numeric_limits<double>::infinity();
  } else if (mpfr_inf_p(exact)) {
    err = (std::isinf(computed) && (computed > 0) == (mpfr_sgn(exact) > 0))
              ? 0.0
              : std::numeric_limits<double>::infinity();
  } else if (std::isnan(computed)) {
    err = std::numeric_limits<double>::infinity();
  } else {
    // Exact value beyond the type's range: compare against the largest finite value instead, so
    // an infinity returned for an overflowing exact value counts as correctly rounded.
    long e = mpfr_zero_p(exact) ? kMinExp : mpfr_get_exp(exact) - 1;  // exact = m * 2^e, 1 <= m < 2
    if (e < kMinExp) e = kMinExp;
    if (std::isinf(computed)) {
      const long max_exp = std::numeric_limits<T>::max_exponent - 1;
      err = e > max_exp ? 0.0 : std::numeric_limits<double>::infinity();
    } else {
      mpfr_set_d(diff, computed, MPFR_RNDN);
      mpfr_sub(diff, diff, exact, MPFR_RNDN);
      mpfr_abs(diff, diff, MPFR_RNDN);
      mpfr_mul_2si(diff, diff, -(e - kDigits + 1), MPFR_RNDN);
      err = mpfr_get_d(diff, MPFR_RNDU);
    }
  }
  mpfr_clears(mx, exact, diff, static_cast<mpfr_ptr>(nullptr));
  return err;
}

// Correct bits implied by an ulp error, for the EP goal (26 bits in double, 11 in single).
template <class T>
inline double correct_bits(double ulp_err) {
  constexpr int kDigits = std::numeric_limits<T>::digits;
  if (ulp_err <= 0.5) return kDigits;
  return kDigits - std::log2(2.0 * ulp_err);
}

}  // namespace tvx::test
