// The special functions in the accuracy tester's form (functions.h): truths, ranges, the points
// where inputs are packed, and the special values with their results and statuses.
#pragma once

#include "tests/vector/accuracy/functions.h"

namespace tvx::accuracy {

// Phi(x) = erfc(-x/sqrt 2)/2, with guard bits for the division.
inline int cdfnorm_truth(mpfr_ptr y, mpfr_srcptr x, mpfr_rnd_t rnd) {
  mpfr_t t, s;
  mpfr_inits2(mpfr_get_prec(y) + 64, t, s, static_cast<mpfr_ptr>(nullptr));
  mpfr_sqrt_ui(s, 2, MPFR_RNDN);
  mpfr_div(t, x, s, MPFR_RNDN);
  mpfr_neg(t, t, MPFR_RNDN);
  mpfr_erfc(t, t, MPFR_RNDN);
  const int r = mpfr_div_2ui(y, t, 1, rnd);
  mpfr_clears(t, s, static_cast<mpfr_ptr>(nullptr));
  return r;
}

// ln |gamma(x)|, +infinity at the poles.
inline int lgamma_truth(mpfr_ptr y, mpfr_srcptr x, mpfr_rnd_t rnd) {
  int sign;
  return mpfr_lgamma(y, &sign, x, rnd);
}

inline std::vector<Function<double>> special_double_functions() {
  return {
      {"vdErf",
       vdErf,
       &tvx_row_erf_d,
       mpfr_erf,
       -7.0,
       7.0,
       // grid points and midpoints, the tiny-lane limit, the clamp
       {0.0, 0x1p-8, 0x1p-7, 0.5, 1.0, 2.0, 3.0, 4.0, 5.0, 5.9, 5.9921875, 0x1p-256, 1e-300, -1.0},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {kInf, 1.0},
        {-kInf, -1.0},
        {kNaN, kNaN},
        {6.0, 1.0},
        {-6.0, -1.0},
        {5.9921875, 1.0},
        {1e-300, kByTruth},
        {-0x1p-256, kByTruth},
        {0x1.fffffffffffffp-257, kByTruth},
        {0x1p-1070, kByTruth},
        {0x1.0000000000001p-8, kByTruth}}},
      {"vdErfc",
       vdErfc,
       &tvx_row_erfc_d,
       mpfr_erfc,
       -8.0,
       28.0,
       // the deep tail up to the callout limit and past it, where 2 - erfc(|x|) rounds to 2
       {0.0, 0.5, 1.0, 2.0, 5.0, 10.0, 20.0, 26.5, 26.55, 27.2, -1.0, -5.86, -0.5},
       {{0.0, 1.0},
        {-0.0, 1.0},
        {kInf, 0.0},
        {-kInf, 2.0},
        {kNaN, kNaN},
        {27.3, 0.0, KAZ_STATUS_UNDERFLOW},
        {-6.0, 2.0},
        {-26.4, 2.0},
        {-30.0, 2.0},
        {26.4, kByTruth},
        {26.5, kByTruth},
        {26.6, kByTruth, KAZ_STATUS_UNDERFLOW},
        {1e-300, 1.0}}},
      {"vdCdfNorm",
       vdCdfNorm,
       &tvx_row_cdfnorm_d,
       cdfnorm_truth,
       -39.0,
       10.0,
       {0.0, -1.0, 1.0, -5.0, -10.0, -20.0, -30.0, -37.5, -37.52, -38.48, 5.0, 8.29},
       {{0.0, 0.5},
        {-0.0, 0.5},
        {kInf, 1.0},
        {-kInf, 0.0},
        {kNaN, kNaN},
        {-38.6, 0.0, KAZ_STATUS_UNDERFLOW},
        {-37.5, kByTruth},
        {-37.51, kByTruth},
        {-37.6, kByTruth, KAZ_STATUS_UNDERFLOW},
        {10.0, 1.0},
        {40.0, 1.0},
        {1e-300, 0.5}}},
  };
}

inline std::vector<Function<float>> special_float_functions() {
  return {
      {"vsErf",
       vsErf,
       &tvx_row_erf_s,
       mpfr_erf,
       -5.0f,
       5.0f,
       {0.0, 0x1p-8, 0x1p-7, 0.5, 1.0, 2.0, 3.0, 3.9, 4.0, -1.0},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {kInf, 1.0},
        {-kInf, -1.0},
        {kNaN, kNaN},
        {6.0, 1.0},
        {-6.0, -1.0},
        {1e-30, kByTruth},
        {0x1p-140, kByTruth}}},
      {"vsErfc",
       vsErfc,
       &tvx_row_erfc_s,
       mpfr_erfc,
       -5.0f,
       10.5f,
       {0.0, 0.5, 1.0, 2.0, 5.0, 8.9, 9.0, 9.19, -1.0, -4.0},
       {{0.0, 1.0},
        {kInf, 0.0},
        {-kInf, 2.0},
        {kNaN, kNaN},
        {10.1, 0.0, KAZ_STATUS_UNDERFLOW},
        {9.5, kByTruth, KAZ_STATUS_UNDERFLOW},
        {9.0, kByTruth},
        {-6.0, 2.0},
        {-10.0, 2.0}}},
      {"vsCdfNorm",
       vsCdfNorm,
       &tvx_row_cdfnorm_s,
       cdfnorm_truth,
       -15.5f,
       6.0f,
       {0.0, -1.0, 1.0, -5.0, -10.0, -12.5, -12.9, -13.05, 5.0},
       {{0.0, 0.5},
        {kInf, 1.0},
        {-kInf, 0.0},
        {kNaN, kNaN},
        {-15.0, 0.0, KAZ_STATUS_UNDERFLOW},
        {-13.5, kByTruth, KAZ_STATUS_UNDERFLOW},
        {-12.9, kByTruth},
        {6.0, kByTruth}}},
  };
}

}  // namespace tvx::accuracy
