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

// z with g(z) = target by Newton's method at the precision of z plus guard bits, from a double
// start z0: g is erf (kErfc false) or erfc, g' = -+ (2/sqrt pi) exp(-z^2).
inline void newton_erf(mpfr_ptr z, double z0, mpfr_srcptr target, bool erfc) {
  mpfr_t f, d, c;
  mpfr_inits2(mpfr_get_prec(z), f, d, c, static_cast<mpfr_ptr>(nullptr));
  mpfr_const_pi(c, MPFR_RNDN);
  mpfr_sqrt(c, c, MPFR_RNDN);
  mpfr_ui_div(c, 2, c, MPFR_RNDN);
  mpfr_set_d(z, z0, MPFR_RNDN);
  for (int i = 0; i < 6; ++i) {
    if (erfc) {
      mpfr_erfc(f, z, MPFR_RNDN);
    } else {
      mpfr_erf(f, z, MPFR_RNDN);
    }
    mpfr_sub(f, f, target, MPFR_RNDN);
    mpfr_sqr(d, z, MPFR_RNDN);
    mpfr_neg(d, d, MPFR_RNDN);
    mpfr_exp(d, d, MPFR_RNDN);
    mpfr_mul(d, d, c, MPFR_RNDN);
    mpfr_div(f, f, d, MPFR_RNDN);
    if (erfc) {
      mpfr_add(z, z, f, MPFR_RNDN);
    } else {
      mpfr_sub(z, z, f, MPFR_RNDN);
    }
  }
  mpfr_clears(f, d, c, static_cast<mpfr_ptr>(nullptr));
}

// Double start for erfc(z) = y, 0 < y <= 1, by bisection.
inline double erfc_start(double y) {
  double lo = 0, hi = 27.3;
  for (int i = 0; i < 80; ++i) {
    const double mid = 0.5 * (lo + hi);
    (std::erfc(mid) > y ? lo : hi) = mid;
  }
  return 0.5 * (lo + hi);
}

inline int erfinv_truth(mpfr_ptr y, mpfr_srcptr x, mpfr_rnd_t rnd) {
  if (mpfr_nan_p(x) || mpfr_cmpabs_ui(x, 1) > 0) return mpfr_set_nan(y), 0;
  if (mpfr_cmpabs_ui(x, 1) == 0) return mpfr_set_inf(y, mpfr_sgn(x)), 0;
  if (mpfr_zero_p(x)) return mpfr_set(y, x, rnd);
  mpfr_t z, ax;
  mpfr_inits2(mpfr_get_prec(y) + 64, z, ax, static_cast<mpfr_ptr>(nullptr));
  mpfr_abs(ax, x, MPFR_RNDN);
  const double a = mpfr_get_d(ax, MPFR_RNDN);
  double z0 = 0.886226925452758 * a;
  if (a > 1e-8) {
    double lo = 0, hi = 6;
    for (int i = 0; i < 80; ++i) {
      const double mid = 0.5 * (lo + hi);
      (std::erf(mid) < a ? lo : hi) = mid;
    }
    z0 = 0.5 * (lo + hi);
  }
  newton_erf(z, z0, ax, false);
  if (mpfr_sgn(x) < 0) mpfr_neg(z, z, MPFR_RNDN);
  const int r = mpfr_set(y, z, rnd);
  mpfr_clears(z, ax, static_cast<mpfr_ptr>(nullptr));
  return r;
}

inline int erfcinv_truth(mpfr_ptr y, mpfr_srcptr x, mpfr_rnd_t rnd) {
  if (mpfr_nan_p(x) || mpfr_sgn(x) < 0 || mpfr_cmp_ui(x, 2) > 0) return mpfr_set_nan(y), 0;
  if (mpfr_zero_p(x)) return mpfr_set_inf(y, 1), 0;
  if (mpfr_cmp_ui(x, 2) == 0) return mpfr_set_inf(y, -1), 0;
  if (mpfr_cmp_ui(x, 1) == 0) return mpfr_set_zero(y, 1), 0;
  mpfr_t z, t;
  mpfr_inits2(mpfr_get_prec(y) + 64, z, t, static_cast<mpfr_ptr>(nullptr));
  const bool upper = mpfr_cmp_ui(x, 1) > 0;
  if (upper) {
    mpfr_ui_sub(t, 2, x, MPFR_RNDN);
  } else {
    mpfr_set(t, x, MPFR_RNDN);
  }
  newton_erf(z, erfc_start(mpfr_get_d(t, MPFR_RNDN)), t, true);
  if (upper) mpfr_neg(z, z, MPFR_RNDN);
  const int r = mpfr_set(y, z, rnd);
  mpfr_clears(z, t, static_cast<mpfr_ptr>(nullptr));
  return r;
}

// Phi^-1(p) = -sqrt(2) erfcinv(2p).
inline int cdfnorminv_truth(mpfr_ptr y, mpfr_srcptr x, mpfr_rnd_t rnd) {
  mpfr_t t, s;
  mpfr_inits2(mpfr_get_prec(y) + 64, t, s, static_cast<mpfr_ptr>(nullptr));
  mpfr_mul_2ui(s, x, 1, MPFR_RNDN);
  erfcinv_truth(t, s, MPFR_RNDN);
  mpfr_sqrt_ui(s, 2, MPFR_RNDN);
  mpfr_mul(t, t, s, MPFR_RNDN);
  mpfr_neg(t, t, MPFR_RNDN);
  const int r = mpfr_set(y, t, rnd);
  mpfr_clears(t, s, static_cast<mpfr_ptr>(nullptr));
  return r;
}

inline std::vector<Function<double>> erfgamma_double_functions() {
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
      {"vdErfInv",
       vdErfInv,
       &tvx_row_erfinv_d,
       erfinv_truth,
       -1.0,
       1.0,
       // near +-1, the seam of the centre, 0
       {1.0, -1.0, 0.5, -0.5, 0.0, 0.9, 0.999, 1e-300},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {1.0, kInf, KAZ_STATUS_SING},
        {-1.0, -kInf, KAZ_STATUS_SING},
        {1.5, kNaN, KAZ_STATUS_ERRDOM},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {0x1.fffffffffffffp-1, kByTruth},
        {-0x1.fffffffffffffp-1, kByTruth},
        {0.5, kByTruth},
        {1e-300, kByTruth}}},
      {"vdErfcInv",
       vdErfcInv,
       &tvx_row_erfcinv_d,
       erfcinv_truth,
       0.0,
       2.0,
       {0.0, 2.0, 1.0, 0.5, 1.5, 1e-300, 1e-10, 1e-100},
       {{1.0, 0.0},
        {0.0, kInf, KAZ_STATUS_SING},
        {2.0, -kInf, KAZ_STATUS_SING},
        {-0.5, kNaN, KAZ_STATUS_ERRDOM},
        {2.5, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {1e-300, kByTruth},
        {1e-310, kByTruth},
        {0x1p-1074, kByTruth},
        {0x1.fffffffffffffp+0, kByTruth}}},
      {"vdCdfNormInv",
       vdCdfNormInv,
       &tvx_row_cdfnorminv_d,
       cdfnorminv_truth,
       0.0,
       1.0,
       // near 0 and 1, the seams at 3/8 and 5/8
       {0.0, 1.0, 0.5, 0.375, 0.625, 1e-300, 1e-20, 0x1p-1074},
       {{0.5, 0.0},
        {0.0, -kInf, KAZ_STATUS_SING},
        {1.0, kInf, KAZ_STATUS_SING},
        {-0.5, kNaN, KAZ_STATUS_ERRDOM},
        {1.5, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {0x1p-1074, kByTruth},
        {1e-300, kByTruth},
        {0x1.fffffffffffffp-1, kByTruth},
        {0x1p-53, kByTruth}}},
      {"vdLGamma",
       vdLGamma,
       &tvx_row_lgamma_d,
       lgamma_truth,
       -20.0,
       200.0,
       // the zeros at 1 and 2, the seams of the series and of Stirling's range, the overflow
       {1.0, 2.0, 0.5, 1.5, 2.5, 13.0, -0.5, -2.5, 1e-300, 1e300, 2.55e305, 3.0},
       {{1.0, 0.0},
        {2.0, 0.0},
        {0.0, kInf, KAZ_STATUS_SING},
        {-0.0, kInf, KAZ_STATUS_SING},
        {-3.0, kInf, KAZ_STATUS_SING},
        {kInf, kInf},
        {-kInf, kInf},
        {kNaN, kNaN},
        {3e305, kInf, KAZ_STATUS_OVERFLOW},
        {1e-300, kByTruth},
        {0x1.0000000000001p+0, kByTruth},
        {0x1.fffffffffffffp+0, kByTruth},
        {-2.5, kByTruth}}},
      {"vdTGamma",
       vdTGamma,
       &tvx_row_tgamma_d,
       mpfr_gamma,
       -30.0,
       172.0,
       // near the poles, the overflow limit, the seams
       {1.0, 2.0, 3.0, 0.5, -0.5, -1.5, -3.0, -20.0, 171.62, 1e-300, -1e-300, -170.5, 5.0, 20.0},
       {{5.0, 24.0},
        {1.0, 1.0},
        {2.0, 1.0},
        {0.0, kInf, KAZ_STATUS_SING},
        {-0.0, -kInf, KAZ_STATUS_SING},
        {-3.0, kNaN, KAZ_STATUS_ERRDOM},
        {172.0, kInf, KAZ_STATUS_OVERFLOW},
        {171.62, kByTruth},
        {1e-310, kInf, KAZ_STATUS_OVERFLOW},
        {kInf, kInf},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {-0.5, kByTruth},
        {-185.5, kByTruth, KAZ_STATUS_UNDERFLOW}}},
  };
}

inline std::vector<Function<float>> erfgamma_float_functions() {
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
      {"vsErfInv",
       vsErfInv,
       &tvx_row_erfinv_s,
       erfinv_truth,
       -1.0f,
       1.0f,
       {1.0, -1.0, 0.5, 0.0, 0.9, 0.999},
       {{0.0, 0.0},
        {1.0, kInf, KAZ_STATUS_SING},
        {-1.0, -kInf, KAZ_STATUS_SING},
        {1.5, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {0x1.fffffep-1, kByTruth}}},
      {"vsErfcInv",
       vsErfcInv,
       &tvx_row_erfcinv_s,
       erfcinv_truth,
       0.0f,
       2.0f,
       {0.0, 2.0, 1.0, 0.5, 1.5, 1e-30},
       {{1.0, 0.0},
        {0.0, kInf, KAZ_STATUS_SING},
        {2.0, -kInf, KAZ_STATUS_SING},
        {2.5, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {0x1p-149, kByTruth}}},
      {"vsCdfNormInv",
       vsCdfNormInv,
       &tvx_row_cdfnorminv_s,
       cdfnorminv_truth,
       0.0f,
       1.0f,
       {0.0, 1.0, 0.5, 0.375, 0.625, 1e-30},
       {{0.5, 0.0},
        {0.0, -kInf, KAZ_STATUS_SING},
        {1.0, kInf, KAZ_STATUS_SING},
        {-0.5, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {0x1p-149, kByTruth},
        {0x1.fffffep-1, kByTruth}}},
      {"vsLGamma",
       vsLGamma,
       &tvx_row_lgamma_s,
       lgamma_truth,
       -10.0f,
       100.0f,
       {1.0, 2.0, 0.5, 1.5, 2.5, 13.0, -0.5, -2.5, 1e-30, 1e36},
       {{1.0, 0.0},
        {2.0, 0.0},
        {0.0, kInf, KAZ_STATUS_SING},
        {-3.0, kInf, KAZ_STATUS_SING},
        {kInf, kInf},
        {kNaN, kNaN},
        {1e37, kInf, KAZ_STATUS_OVERFLOW},
        {-2.5, kByTruth}}},
      {"vsTGamma",
       vsTGamma,
       &tvx_row_tgamma_s,
       mpfr_gamma,
       -20.0f,
       36.0f,
       {1.0, 2.0, 0.5, -0.5, -1.5, -3.0, 35.0, 35.04, 1e-30, 5.0},
       {{5.0, 24.0},
        {0.0, kInf, KAZ_STATUS_SING},
        {-3.0, kNaN, KAZ_STATUS_ERRDOM},
        {36.0, kInf, KAZ_STATUS_OVERFLOW},
        {35.0, kByTruth},
        {-40.5, kByTruth, KAZ_STATUS_UNDERFLOW},
        {kNaN, kNaN}}},
  };
}

}  // namespace tvx::accuracy
