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
  };
}

}  // namespace tvx::accuracy
