// The one-in, one-out functions the accuracy tester measures: each row names the function, its
// MPFR truth, the ranges its inputs are drawn from and the points where inputs are packed densely,
// and the special values whose results must be exact. Add a function by adding a row.
#pragma once

#include <mpfr.h>

#include <cmath>
#include <limits>
#include <vector>

#include "vector/frame/rows.h"

namespace tvx::accuracy {

template <class T>
using Row = tvx::frame::Row<tvx::frame::K_v_v<T>>;

struct Special {
  double x;
  double expected;  // NaN means any NaN
};

template <class T>
struct Function {
  const char* name;  // C-form export name
  const Row<T>* row;
  int (*truth)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t);
  double lo, hi;               // inputs are drawn from [lo, hi]
  std::vector<double> points;  // inputs are packed around these
  std::vector<Special> specials;
};

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

inline std::vector<Function<double>> double_functions() {
  return {
      {"vdExp",
       &tvx_row_exp_d,
       mpfr_exp,
       -750.0,
       712.0,
       // 0, 1, the overflow limit, the subnormal and underflow limits, the table limits
       {0.0, 1.0, -1.0, 709.782712893384, -708.3964185322641, -745.1332191019411, 708.39641853226,
        707.7033, -707.7033, -740.0},
       {{0.0, 1.0},
        {-0.0, 1.0},
        {kInf, kInf},
        {-kInf, 0.0},
        {kNaN, kNaN},
        {710.0, kInf},
        {-746.0, 0.0},
        {-745.1332191019411, 0x1p-1074}}},
      {"vdExpm1",
       &tvx_row_expm1_d,
       mpfr_expm1,
       -60.0,
       712.0,
       {0.0, 0x1p-8, -0x1p-8, 0x1p-5, -0x1p-5, 0x1p-57, -0x1p-57, 1.0, -1.0, 709.782712893384,
        708.39641853226, 707.7033, -37.4, 1e-300, -1e-300},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {kInf, kInf},
        {-kInf, -1.0},
        {kNaN, kNaN},
        {710.0, kInf},
        {-50.0, -1.0},
        {0x1p-1070, 0x1p-1070},
        {-0x1p-1070, -0x1p-1070}}},
      {"vdLn",
       &tvx_row_ln_d,
       mpfr_log,
       0.0,
       1.7976931348623157e308,
       // 1 from both sides, the re-centring point sqrt 2, the binade ends, the smallest normal
       {1.0, 2.0, 0.5, 1.4142135623730951, 0.7071067811865476, 0x1p-1022, 10.0, 0x1p1023},
       {{1.0, 0.0},
        {0.0, -kInf},
        {-0.0, -kInf},
        {-1.0, kNaN},
        {kInf, kInf},
        {-kInf, kNaN},
        {kNaN, kNaN}}},
      {"vdLog10",
       &tvx_row_log10_d,
       mpfr_log10,
       0.0,
       1.7976931348623157e308,
       {1.0, 2.0, 0.5, 1.4142135623730951, 10.0, 1000.0, 0x1p-1022, 0x1p1023},
       {{1.0, 0.0},
        {0.0, -kInf},
        {-0.0, -kInf},
        {-1.0, kNaN},
        {kInf, kInf},
        {-kInf, kNaN},
        {kNaN, kNaN}}},
      {"vdLog1p",
       &tvx_row_log1p_d,
       mpfr_log1p,
       -1.0,
       1.7976931348623157e308,
       // 0 and -1, where u = 1 + x loses or keeps x, and the callout limit 2^1012
       {0.0, -1.0, -0.5, 1.0, 0x1p-53, -0x1p-53, 0x1p-57, 0x1p1012},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {-1.0, -kInf},
        {-2.0, kNaN},
        {kInf, kInf},
        {-kInf, kNaN},
        {kNaN, kNaN},
        {1e-300, 1e-300}}},
  };
}

inline std::vector<Function<float>> float_functions() {
  return {
      {"vsExp",
       &tvx_row_exp_s,
       mpfr_exp,
       -105.0f,
       90.0f,
       {0.0, 1.0, -1.0, 88.72283, -87.33654, -103.97208, 87.33654, -95.0},
       {{0.0, 1.0},
        {-0.0, 1.0},
        {kInf, kInf},
        {-kInf, 0.0},
        {kNaN, kNaN},
        {88.7229, kInf},
        {-104.0, 0.0}}},
      {"vsExpm1",
       &tvx_row_expm1_s,
       mpfr_expm1,
       -30.0f,
       90.0f,
       {0.0, 0x1p-8, -0x1p-8, 0x1p-5, -0x1p-5, 0x1p-25, -0x1p-25, 1.0, -1.0, 88.72283, 87.33654,
        -17.3},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {kInf, kInf},
        {-kInf, -1.0},
        {kNaN, kNaN},
        {88.7229, kInf},
        {-20.0, -1.0},
        {0x1p-140, 0x1p-140}}},
      {"vsLn",
       &tvx_row_ln_s,
       mpfr_log,
       0.0,
       3.4028234663852886e38,
       {1.0, 2.0, 0.5, 1.3333333, 0.6666667, 0x1p-126, 10.0, 0x1p127},
       {{1.0, 0.0},
        {0.0, -kInf},
        {-0.0, -kInf},
        {-1.0, kNaN},
        {kInf, kInf},
        {-kInf, kNaN},
        {kNaN, kNaN}}},
      {"vsLog10",
       &tvx_row_log10_s,
       mpfr_log10,
       0.0,
       3.4028234663852886e38,
       {1.0, 2.0, 0.5, 1.3333333, 10.0, 1000.0, 0x1p-126, 0x1p127},
       {{1.0, 0.0},
        {0.0, -kInf},
        {-0.0, -kInf},
        {-1.0, kNaN},
        {kInf, kInf},
        {-kInf, kNaN},
        {kNaN, kNaN}}},
      {"vsLog1p",
       &tvx_row_log1p_s,
       mpfr_log1p,
       -1.0,
       3.4028234663852886e38,
       {0.0, -1.0, -0.5, 1.0, 0x1p-24, -0x1p-24, 0x1p-30, 0x1p126},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {-1.0, -kInf},
        {-2.0, kNaN},
        {kInf, kInf},
        {-kInf, kNaN},
        {kNaN, kNaN},
        {1e-30, 1e-30}}},
  };
}

}  // namespace tvx::accuracy
