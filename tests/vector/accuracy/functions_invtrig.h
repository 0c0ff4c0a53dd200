// Rows of the inverse trigonometric and hyperbolic functions for the accuracy tester and the
// family test, and the two-input row of Atan2 with its own sampler.
#pragma once

#include "tests/vector/accuracy/functions.h"
#include "tests/vector/accuracy/functions_pow.h"

namespace tvx::accuracy {

inline constexpr double kPi2 = 0x1.921fb54442d18p+0;
inline constexpr double kPi = 0x1.921fb54442d18p+1;

// Ranges and special values of the double and single rows differ only where the overflow limits
// of Sinh and Cosh do; `big` is the first argument whose result overflows, `fin` one below it.
template <class T>
std::vector<Function<T>> invtrig_functions() {
  constexpr bool kD = sizeof(T) == 8;
  const double big = kD ? 710.48 : 89.5, fin = kD ? 710.47 : 89.41;
  const double top = kD ? 720.0 : 92.0;
  const double huge = kD ? 1e300 : 1e38;
  auto row = [](const char* d, const char* s) { return kD ? d : s; };
#define TVX_ACC_ROW(Name, lname) \
  pick<T>(vd##Name, vs##Name), pick<T>(&tvx_row_##lname##_d, &tvx_row_##lname##_s)
  const double below_7_16 = std::nextafter(static_cast<T>(7.0 / 16), T(0));
  std::vector<Function<T>> fns = {
      {row("vdAsin", "vsAsin"),
       TVX_ACC_ROW(Asin, asin),
       mpfr_asin,
       -1.0,
       1.0,
       // the switch to the root form, its ends, and where the root is small
       {0.0, 0.5, -0.5, 1.0, -1.0, 0x1p-27, 0.975, -0.975, 0.25},
       {{1.0, kPi2},
        {-1.0, -kPi2},
        {0.0, 0.0},
        {-0.0, -0.0},
        {0.5, kByTruth},
        {2.0, kNaN, KAZ_STATUS_ERRDOM},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN}}},
      {row("vdAcos", "vsAcos"),
       TVX_ACC_ROW(Acos, acos),
       mpfr_acos,
       -1.0,
       1.0,
       {0.0, 0.5, -0.5, 1.0, -1.0, 0x1p-27, 0.975, -0.975},
       {{1.0, 0.0},
        {-1.0, kPi},
        {0.0, kPi2},
        {-0.5, kByTruth},
        {-1.5, kNaN, KAZ_STATUS_ERRDOM},
        {kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN}}},
      {row("vdAtan", "vsAtan"),
       TVX_ACC_ROW(Atan, atan),
       mpfr_atan,
       -1e6,
       1e6,
       // the interval thresholds and the ends of the polynomial's range
       {0.0, 7.0 / 16, 11.0 / 16, 19.0 / 16, 39.0 / 16, -7.0 / 16, -39.0 / 16, 1.0, 0x1p-27, 1e20},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {kInf, kPi2},
        {-kInf, -kPi2},
        {huge, kPi2},
        {7.0 / 16, kByTruth},
        {below_7_16, kByTruth},
        {kNaN, kNaN}}},
      {row("vdSinh", "vsSinh"),
       TVX_ACC_ROW(Sinh, sinh),
       mpfr_sinh,
       -top,
       top,
       // the switch to the exponential form, where 1/E is dropped, the callout range
       {0.0, 1.0, -1.0, 21.487562597358306, 707.7, -707.7, fin, 0.5, 0x1p-27},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {kInf, kInf},
        {-kInf, -kInf},
        {kNaN, kNaN},
        {big, kInf, KAZ_STATUS_OVERFLOW},
        {-big, -kInf, KAZ_STATUS_OVERFLOW},
        {fin, kByTruth},
        {-fin, kByTruth}}},
      {row("vdCosh", "vsCosh"),
       TVX_ACC_ROW(Cosh, cosh),
       mpfr_cosh,
       -top,
       top,
       {0.0, 1.0, -1.0, 21.487562597358306, 707.7, -707.7, fin, 0x1p-27},
       {{0.0, 1.0},
        {-0.0, 1.0},
        {kInf, kInf},
        {-kInf, kInf},
        {kNaN, kNaN},
        {big, kInf, KAZ_STATUS_OVERFLOW},
        {-big, kInf, KAZ_STATUS_OVERFLOW},
        {fin, kByTruth}}},
      {row("vdTanh", "vsTanh"),
       TVX_ACC_ROW(Tanh, tanh),
       mpfr_tanh,
       -30.0,
       30.0,
       {0.0, 0.625, -0.625, 1.0, 19.0, 20.0, 0x1p-27},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {20.0, 1.0},
        {-25.0, -1.0},
        {kInf, 1.0},
        {-kInf, -1.0},
        {kNaN, kNaN}}},
      {row("vdAsinh", "vsAsinh"),
       TVX_ACC_ROW(Asinh, asinh),
       mpfr_asinh,
       -1e6,
       1e6,
       {0.0, 0.125, -0.125, 0x1p28, -0x1p28, 1.0, 0x1p-28, 1e10},
       {{0.0, 0.0}, {-0.0, -0.0}, {kInf, kInf}, {-kInf, -kInf}, {huge, kByTruth}, {kNaN, kNaN}}},
      {row("vdAcosh", "vsAcosh"),
       TVX_ACC_ROW(Acosh, acosh),
       mpfr_acosh,
       1.0,
       1e6,
       {1.0, 1.0625, 2.0, 0x1p28, 1.5},
       {{1.0, 0.0},
        {0.5, kNaN, KAZ_STATUS_ERRDOM},
        {-1.0, kNaN, KAZ_STATUS_ERRDOM},
        {kInf, kInf},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {huge, kByTruth},
        {kNaN, kNaN}}},
      {row("vdAtanh", "vsAtanh"),
       TVX_ACC_ROW(Atanh, atanh),
       mpfr_atanh,
       -1.0,
       1.0,
       {0.0, 0.25, -0.25, 1.0, -1.0, 0.5, 0x1p-28},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {1.0, kInf, KAZ_STATUS_SING},
        {-1.0, -kInf, KAZ_STATUS_SING},
        {2.0, kNaN, KAZ_STATUS_ERRDOM},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN}}},
  };
#undef TVX_ACC_ROW
  return fns;
}

// ---- Atan2: a row of the two-input table form (functions_pow.h)
// ----------------------------------

// Pairs (y, x): a third with both of moderate size and either sign, a third with the magnitudes
// close (near the diagonals, where the arguments are swapped), a third with random binary
// exponents for both, over the whole range of T.
template <class T>
void draw_atan2(std::mt19937_64& rng, double& y, double& x) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const int lo = std::numeric_limits<T>::min_exponent - 1,
            hi = std::numeric_limits<T>::max_exponent - 1;
  auto sign = [&] { return unit(rng) < 0.5 ? -1.0 : 1.0; };
  const int kind = static_cast<int>(rng() % 3);
  if (kind == 0) {
    y = sign() * 4.0 * unit(rng);
    x = sign() * 4.0 * unit(rng);
  } else if (kind == 1) {
    x = sign() * std::ldexp(1.0 + unit(rng), static_cast<int>(unit(rng) * 40) - 20);
    y = sign() * std::fabs(x) *
        (1.0 + sign() * std::ldexp(unit(rng), -1 - static_cast<int>(unit(rng) * 50)));
  } else {
    y = sign() * std::ldexp(1.0 + unit(rng), lo + static_cast<int>(unit(rng) * (hi - lo)));
    x = sign() * std::ldexp(1.0 + unit(rng), lo + static_cast<int>(unit(rng) * (hi - lo)));
  }
  y = static_cast<T>(y);
  x = static_cast<T>(x);
}

template <class T>
Function2<T> atan2_function() {
  const double kPi4 = 0x1.921fb54442d18p-1, k3Pi4 = 0x1.2d97c7f3321d2p+1;
  Function2<T> f{sizeof(T) == 8 ? "vdAtan2" : "vsAtan2",
                 nullptr,
                 pick<T>(&tvx_row_atan2_d, &tvx_row_atan2_s),
                 mpfr_atan2,
                 draw_atan2<T>,
                 {}};
  if constexpr (sizeof(T) == 8) {
    f.c_form = vdAtan2;
  } else {
    f.c_form = vsAtan2;
  }
  f.specials = {{0.0, 1.0, 0.0},      {-0.0, 1.0, -0.0},     {0.0, -1.0, kPi},
                {-0.0, -1.0, -kPi},   {0.0, -0.0, kPi},      {-0.0, 0.0, -0.0},
                {1.0, 0.0, kPi2},     {-1.0, -0.0, -kPi2},   {kInf, kInf, kPi4},
                {kInf, -kInf, k3Pi4}, {-kInf, 5.0, -kPi2},   {3.0, -kInf, kPi},
                {-3.0, kInf, -0.0},   {kNaN, 1.0, kNaN},     {1.0, kNaN, kNaN},
                {1.0, 1.0, kPi4},     {1e-300, -1e300, kPi}, {1e300, 1e-300, kPi2},
                {-1.0, -1.0, -k3Pi4}, {3.0, 7.0, kByTruth},  {-1e-200, 1e200, kByTruth}};
  return f;
}

}  // namespace tvx::accuracy
