// The one-in, one-out functions with an MPFR truth: each row names the function, its truth, the
// ranges its inputs are drawn from and the points where inputs are packed densely, and the special
// values with their results and statuses. The accuracy tester and the family test read these rows;
// add a function by adding a row.
#pragma once

#include <mpfr.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "support/mpfr_ulp.h"
#include "vector/frame/rows.h"

namespace tvx::accuracy {

template <class T>
using Row = tvx::frame::Row<tvx::frame::K_v_v<T>>;

// Expected value of a special that is not exact: the level's goal against the truth.
inline constexpr double kByTruth = std::numeric_limits<double>::lowest();

// Levels as bits 1 << level (1 LA, 2 HA, 3 EP).
inline constexpr unsigned kAllLevels = 0xE, kHaOnly = 0x4;

struct Special {
  double x;
  double expected;              // NaN means any NaN
  int status = 0;               // what the element reports (KAZ_STATUS_*)
  unsigned exact = kAllLevels;  // levels where `expected` is exact; the goal elsewhere
};

template <class T>
struct Function {
  const char* name;  // C-form export name
  void (*c_form)(int, const T*, T*);
  const Row<T>* row;
  int (*truth)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t);
  double lo, hi;               // inputs are drawn from [lo, hi]
  std::vector<double> points;  // inputs are packed around these
  std::vector<Special> specials;
};

// Log10 of 10^k is exactly k at HA, for k from 1 to `last`.
template <class T>
void add_powers_of_ten(Function<T>& f, int last) {
  double p = 1;
  for (int k = 1; k <= last; ++k) f.specials.push_back({p *= 10, double(k), 0, kHaOnly});
}

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

inline std::vector<Function<double>> double_functions() {
  std::vector<Function<double>> fns = {
      {"vdExp",
       vdExp,
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
        {710.0, kInf, KAZ_STATUS_OVERFLOW},
        {-746.0, 0.0, KAZ_STATUS_UNDERFLOW},
        // the overflow limit, the last subnormal result and the smallest normal one
        {0x1.62e42fefa39efp+9, kByTruth},
        {0x1.62e42fefa39f0p+9, kInf, KAZ_STATUS_OVERFLOW},
        {-0x1.74910d52d3051p+9, 0x1p-1074, KAZ_STATUS_UNDERFLOW},
        {-0x1.74910d52d3052p+9, 0.0, KAZ_STATUS_UNDERFLOW},
        {-740.0, kByTruth, KAZ_STATUS_UNDERFLOW},
        {-708.39641853226, kByTruth}}},
      {"vdExpm1",
       vdExpm1,
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
        {710.0, kInf, KAZ_STATUS_OVERFLOW},
        {0x1.62e42fefa39efp+9, kByTruth},
        {0x1.62e42fefa39f0p+9, kInf, KAZ_STATUS_OVERFLOW},
        {-50.0, -1.0},
        {-1e300, -1.0},
        {0x1p-1070, 0x1p-1070},
        {-0x1p-1070, -0x1p-1070}}},
      {"vdLn",
       vdLn,
       &tvx_row_ln_d,
       mpfr_log,
       0.0,
       1.7976931348623157e308,
       // 1 from both sides, the re-centring point sqrt 2, the binade ends, the smallest normal
       {1.0, 2.0, 0.5, 1.4142135623730951, 0.7071067811865476, 0x1p-1022, 10.0, 0x1p1023, 4.0 / 3,
        2.0 / 3, 8.0 / 3, 1.5, 0.75},
       {{1.0, 0.0},
        {0.0, -kInf, KAZ_STATUS_SING},
        {-0.0, -kInf, KAZ_STATUS_SING},
        {-1.0, kNaN, KAZ_STATUS_ERRDOM},
        {kInf, kInf},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN}}},
      {"vdLog10",
       vdLog10,
       &tvx_row_log10_d,
       mpfr_log10,
       0.0,
       1.7976931348623157e308,
       {1.0, 2.0, 0.5, 1.4142135623730951, 10.0, 1000.0, 0x1p-1022, 0x1p1023, 4.0 / 3, 2.0 / 3,
        0.75},
       {{1.0, 0.0},
        {0.0, -kInf, KAZ_STATUS_SING},
        {-0.0, -kInf, KAZ_STATUS_SING},
        {-1.0, kNaN, KAZ_STATUS_ERRDOM},
        {kInf, kInf},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN}}},
      {"vdLog1p",
       vdLog1p,
       &tvx_row_log1p_d,
       mpfr_log1p,
       -1.0,
       1.7976931348623157e308,
       // 0 and -1, where u = 1 + x loses or keeps x, and the callout limit 2^1012
       {0.0, -1.0, -0.5, 1.0, 0x1p-53, -0x1p-53, 0x1p-57, 0x1p1012, -0.25, -0.75, -0.999},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {-1.0, -kInf, KAZ_STATUS_SING},
        {-2.0, kNaN, KAZ_STATUS_ERRDOM},
        {kInf, kInf},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {1e-300, 1e-300}}},
  };
  add_powers_of_ten(fns[3], 15);
  return fns;
}

inline std::vector<Function<float>> float_functions() {
  std::vector<Function<float>> fns = {
      {"vsExp",
       vsExp,
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
        {88.7229, kInf, KAZ_STATUS_OVERFLOW},
        {-104.0, 0.0, KAZ_STATUS_UNDERFLOW},
        {88.72283, kByTruth},
        {-95.0, kByTruth, KAZ_STATUS_UNDERFLOW}}},
      {"vsExpm1",
       vsExpm1,
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
        {88.7229, kInf, KAZ_STATUS_OVERFLOW},
        {-20.0, -1.0},
        {0x1p-140, 0x1p-140}}},
      {"vsLn",
       vsLn,
       &tvx_row_ln_s,
       mpfr_log,
       0.0,
       3.4028234663852886e38,
       {1.0, 2.0, 0.5, 1.3333333, 0.6666667, 0x1p-126, 10.0, 0x1p127, 2.6666667, 1.5, 0.75,
        1.4142135},
       {{1.0, 0.0},
        {0.0, -kInf, KAZ_STATUS_SING},
        {-0.0, -kInf, KAZ_STATUS_SING},
        {-1.0, kNaN, KAZ_STATUS_ERRDOM},
        {kInf, kInf},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN}}},
      {"vsLog10",
       vsLog10,
       &tvx_row_log10_s,
       mpfr_log10,
       0.0,
       3.4028234663852886e38,
       {1.0, 2.0, 0.5, 1.3333333, 10.0, 1000.0, 0x1p-126, 0x1p127},
       {{1.0, 0.0},
        {0.0, -kInf, KAZ_STATUS_SING},
        {-0.0, -kInf, KAZ_STATUS_SING},
        {-1.0, kNaN, KAZ_STATUS_ERRDOM},
        {kInf, kInf},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN}}},
      {"vsLog1p",
       vsLog1p,
       &tvx_row_log1p_s,
       mpfr_log1p,
       -1.0,
       3.4028234663852886e38,
       {0.0, -1.0, -0.5, 1.0, 0x1p-24, -0x1p-24, 0x1p-30, 0x1p126, -0.25, -0.75, -0.999},
       {{0.0, 0.0},
        {-0.0, -0.0},
        {-1.0, -kInf, KAZ_STATUS_SING},
        {-2.0, kNaN, KAZ_STATUS_ERRDOM},
        {kInf, kInf},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {1e-30, 1e-30}}},
  };
  add_powers_of_ten(fns[3], 10);
  return fns;
}

// ---- trigonometric functions --------------------------------------------------------------------
// One output of SinCos as a one-in, one-out cell (Out 0: sine, 1: cosine), so that both outputs
// meet the goals of the tester.
template <class T, class D, class F>
constexpr auto pick(D d, F f) {
  if constexpr (sizeof(T) == 8) {
    return d;
  } else {
    return f;
  }
}
template <class T, int Out, int Slot>
void sincos_cell(int n, const T* a, T* y) {
  static thread_local std::vector<T> other;
  other.resize(static_cast<size_t>(n > 0 ? n : 0));
  const auto* row = pick<T>(&tvx_row_sincos_d, &tvx_row_sincos_s);
  if (Out == 0) {
    row->kernels[Slot](n, a, y, other.data());
  } else {
    row->kernels[Slot](n, a, other.data(), y);
  }
}
template <class T, int Out, int... S>
const Row<T>* sincos_row(std::integer_sequence<int, S...>) {
  static const Row<T> row{{&sincos_cell<T, Out, S>...}, {}};
  return &row;
}
template <class T, int Out>
void sincos_c_form(int n, const T* a, T* y) {
  std::vector<T> other(static_cast<size_t>(n > 0 ? n : 0));
  if constexpr (sizeof(T) == 8) {
    Out == 0 ? vdSinCos(n, a, y, other.data()) : vdSinCos(n, a, other.data(), y);
  } else {
    Out == 0 ? vsSinCos(n, a, y, other.data()) : vsSinCos(n, a, other.data(), y);
  }
}

// Sin, Cos, Tan and the two outputs of SinCos: inputs over the whole finite range, packed around
// multiples of pi/4 and pi/2 (small and large), the limit of the first reduction (2^20), the
// argument that comes closest to a multiple of pi/2 among all doubles, and huge values.
template <class T>
std::vector<Function<T>> trig_functions() {
  constexpr bool kD = sizeof(T) == 8;
  const double big = std::numeric_limits<T>::max();
  const double pi4 = 0x1.921fb54442d18p-1;
  std::vector<double> points = {0.0, 1.0, 0x1p20, -0x1p20, 1e22, big};
  for (int k = 1; k <= 12; ++k) points.push_back(k * pi4), points.push_back(-k * pi4);
  for (double k : {1e3, 65536.0, 1e5, 667544.0, 1e9, 1e15}) points.push_back(k * 2 * pi4);
  if (kD) points.push_back(0x1.6ac5b262ca1ffp+849);
  if (kD) points.push_back(1e300);
  const double tiny = kD ? 0x1p-1070 : 0x1p-140;
  const double pole = kD ? pi4 * 2 : 0x1.921fb6p+0;  // tan: about 1.6e16 (double), finite
  std::vector<Special> odd = {{0.0, 0.0},
                              {-0.0, -0.0},
                              {kInf, kNaN, KAZ_STATUS_ERRDOM},
                              {-kInf, kNaN, KAZ_STATUS_ERRDOM},
                              {kNaN, kNaN},
                              {tiny, tiny},
                              {-tiny, -tiny},
                              {1e-30, 1e-30},
                              {1e22, kByTruth},
                              {big, kByTruth},
                              {-big, kByTruth},
                              {10000.0, kByTruth},
                              {0x1.38801p+13, kByTruth}};
  std::vector<Special> even = {{0.0, 1.0},
                               {-0.0, 1.0},
                               {kInf, kNaN, KAZ_STATUS_ERRDOM},
                               {-kInf, kNaN, KAZ_STATUS_ERRDOM},
                               {kNaN, kNaN},
                               {tiny, 1.0},
                               {-tiny, 1.0},
                               {1e-30, 1.0},
                               {1e22, kByTruth},
                               {big, kByTruth},
                               {-big, kByTruth},
                               {10000.0, kByTruth}};
  if (kD) {
    for (auto* list : {&odd, &even}) list->push_back({0x1.6ac5b262ca1ffp+849, kByTruth});
  }
  std::vector<Special> tan = odd;
  tan.push_back({pole, kByTruth});
  std::vector<Function<T>> fns = {
      {kD ? "vdSin" : "vsSin", pick<T>(vdSin, vsSin), pick<T>(&tvx_row_sin_d, &tvx_row_sin_s),
       mpfr_sin, -big / 2, big / 2, points, odd},
      {kD ? "vdCos" : "vsCos", pick<T>(vdCos, vsCos), pick<T>(&tvx_row_cos_d, &tvx_row_cos_s),
       mpfr_cos, -big / 2, big / 2, points, even},
      {kD ? "vdTan" : "vsTan", pick<T>(vdTan, vsTan), pick<T>(&tvx_row_tan_d, &tvx_row_tan_s),
       mpfr_tan, -big / 2, big / 2, points, tan},
      {kD ? "vdSinCos(sin)" : "vsSinCos(sin)", sincos_c_form<T, 0>,
       sincos_row<T, 0>(std::make_integer_sequence<int, 18>()), mpfr_sin, -big / 2, big / 2, points,
       odd},
      {kD ? "vdSinCos(cos)" : "vsSinCos(cos)", sincos_c_form<T, 1>,
       sincos_row<T, 1>(std::make_integer_sequence<int, 18>()), mpfr_cos, -big / 2, big / 2, points,
       even},
  };
  if constexpr (!kD) {
    // Whole registers inside the single-precision reduction (|x| <= 10000).
    std::vector<double> near;
    for (double p : points) {
      if (std::fabs(p) <= 1e4) near.push_back(p);
    }
    fns.push_back({"vsSin(1e4)", vsSin, &tvx_row_sin_s, mpfr_sin, -1e4, 1e4, near, odd});
    fns.push_back({"vsCos(1e4)", vsCos, &tvx_row_cos_s, mpfr_cos, -1e4, 1e4, near, even});
  }
  return fns;
}

// `count` inputs of f: a quarter uniform over its range, a quarter with a random binary exponent
// (both signs, down to the smallest subnormal), half packed around its points at random relative
// distances from 2^-1 to 2^-50.
template <class T>
std::vector<T> sample_inputs(const Function<T>& f, long count, std::mt19937_64& rng) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<T> in;
  in.reserve(static_cast<size_t>(count));
  const int min_exp = std::numeric_limits<T>::min_exponent - std::numeric_limits<T>::digits;
  const int max_exp = std::numeric_limits<T>::max_exponent;
  for (long i = 0; i < count; ++i) {
    double x;
    const long kind = i % 4;
    if (kind == 0) {
      x = f.lo + (f.hi - f.lo) * unit(rng);
    } else if (kind == 1) {
      const int e = min_exp + static_cast<int>(unit(rng) * (max_exp - min_exp));
      x = std::ldexp(1.0 + unit(rng), e) * (unit(rng) < 0.5 ? -1.0 : 1.0);
      if (x < f.lo || x > f.hi) x = f.lo + (f.hi - f.lo) * unit(rng);
    } else {
      const double p = f.points[static_cast<size_t>(rng() % f.points.size())];
      const double scale = p == 0.0 ? 1.0 : std::fabs(p);
      const double d = std::ldexp(unit(rng), -1 - static_cast<int>(unit(rng) * 50));
      x = p + (unit(rng) < 0.5 ? -d : d) * scale;
    }
    in.push_back(static_cast<T>(x));
  }
  return in;
}

// Goals by level (1 LA, 2 HA, 3 EP): below 4 ulps, below 1 ulp, at least 26 correct bits in
// double and 11 in single.
template <class T>
bool meets_goal(int level, double ulps) {
  if (level == 2) return ulps < 1.0;
  if (level == 1) return ulps < 4.0;
  return tvx::test::correct_bits<T>(ulps) >= (sizeof(T) == 8 ? 26 : 11);
}

// Whether y is the special value's result at `level`.
template <class T>
bool special_met(const Function<T>& f, const Special& s, int level, T y) {
  if (s.expected == kByTruth || !(s.exact & (1u << level)))
    return meets_goal<T>(level, tvx::test::ulp_error<T>(f.truth, static_cast<T>(s.x), y));
  const T want = static_cast<T>(s.expected);
  if (std::isnan(want)) return std::isnan(y);
  return std::memcmp(&y, &want, sizeof y) == 0;
}

}  // namespace tvx::accuracy
