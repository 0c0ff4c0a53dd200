// Rows of the powers and roots for the accuracy tester and the family test: the one-input roots
// as Function rows of functions.h, and Pow and Hypot as two-input rows with their own samplers.
#pragma once

#include "tests/vector/accuracy/functions.h"

namespace tvx::accuracy {

// MPFR truths that MPFR lacks as one call.
inline int mpfr_invcbrt(mpfr_ptr r, mpfr_srcptr x, mpfr_rnd_t rnd) {
  mpfr_t t;
  mpfr_init2(t, mpfr_get_prec(r) + 20);
  mpfr_cbrt(t, x, rnd);
  const int s = mpfr_ui_div(r, 1, t, rnd);
  mpfr_clear(t);
  return s;
}
inline int mpfr_pow2o3(mpfr_ptr r, mpfr_srcptr x, mpfr_rnd_t rnd) {
  mpfr_t t;
  mpfr_init2(t, mpfr_get_prec(r) + 20);
  mpfr_cbrt(t, x, rnd);
  const int s = mpfr_sqr(r, t, rnd);
  mpfr_clear(t);
  return s;
}
inline int mpfr_pow3o2(mpfr_ptr r, mpfr_srcptr x, mpfr_rnd_t rnd) {
  mpfr_t t;
  mpfr_init2(t, mpfr_get_prec(r) + 20);
  mpfr_sqrt(t, x, rnd);
  const int s = mpfr_mul(r, t, x, rnd);
  mpfr_clear(t);
  return s;
}

// The roots: every binade of both signs (functions.h's sampler), and the points where the
// cube-root frame changes its exponent remainder or its table row.
template <class T>
std::vector<Function<T>> root_functions() {
  constexpr bool d = sizeof(T) == 8;
  const double big = std::numeric_limits<T>::max(), tiny = std::numeric_limits<T>::denorm_min();
  const double mn = std::numeric_limits<T>::min();
  const std::vector<double> pts = {1.0, 2.0, 4.0, 8.0, 0.5, 1.03125, 1.96875, 27.0, mn, big};
  auto row = [](const auto& rd, const auto& rs) {
    if constexpr (d) {
      return &rd;
    } else {
      return &rs;
    }
  };
  auto cf = [](auto fd, auto fs) {
    if constexpr (d) {
      return fd;
    } else {
      return fs;
    }
  };
  return {
      {d ? "vdSqrt" : "vsSqrt",
       cf(vdSqrt, vsSqrt),
       row(tvx_row_sqrt_d, tvx_row_sqrt_s),
       mpfr_sqrt,
       0.0,
       big,
       pts,
       {{4.0, 2.0},
        {0.0, 0.0},
        {-0.0, -0.0},
        {kInf, kInf},
        {-1.0, kNaN, KAZ_STATUS_ERRDOM},
        {-kInf, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {tiny, kByTruth}}},
      {d ? "vdInvSqrt" : "vsInvSqrt",
       cf(vdInvSqrt, vsInvSqrt),
       row(tvx_row_invsqrt_d, tvx_row_invsqrt_s),
       mpfr_rec_sqrt,
       0.0,
       big,
       pts,
       {{4.0, 0.5},
        {0.0, kInf, KAZ_STATUS_SING},
        {-0.0, -kInf, KAZ_STATUS_SING},
        {kInf, 0.0},
        {-2.0, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {tiny, kByTruth},
        {big, kByTruth}}},
      {d ? "vdCbrt" : "vsCbrt",
       cf(vdCbrt, vsCbrt),
       row(tvx_row_cbrt_d, tvx_row_cbrt_s),
       mpfr_cbrt,
       -big,
       big,
       pts,
       {{-27.0, -3.0, 0, kHaOnly},
        {8.0, 2.0, 0, kHaOnly},
        {0.0, 0.0},
        {-0.0, -0.0},
        {kInf, kInf},
        {-kInf, -kInf},
        {kNaN, kNaN},
        {tiny, kByTruth},
        {-tiny * 3, kByTruth}}},
      {d ? "vdInvCbrt" : "vsInvCbrt",
       cf(vdInvCbrt, vsInvCbrt),
       row(tvx_row_invcbrt_d, tvx_row_invcbrt_s),
       mpfr_invcbrt,
       -big,
       big,
       pts,
       {{-8.0, -0.5, 0, kHaOnly},
        {0.0, kInf, KAZ_STATUS_SING},
        {-0.0, -kInf, KAZ_STATUS_SING},
        {kInf, 0.0},
        {-kInf, -0.0},
        {kNaN, kNaN},
        {tiny, kByTruth}}},
      {d ? "vdPow2o3" : "vsPow2o3",
       cf(vdPow2o3, vsPow2o3),
       row(tvx_row_pow2o3_d, tvx_row_pow2o3_s),
       mpfr_pow2o3,
       -big,
       big,
       pts,
       {{-8.0, 4.0, 0, kHaOnly},
        {0.0, 0.0},
        {-0.0, 0.0},
        {kInf, kInf},
        {-kInf, kInf},
        {kNaN, kNaN},
        {-tiny, kByTruth}}},
      {d ? "vdPow3o2" : "vsPow3o2",
       cf(vdPow3o2, vsPow3o2),
       row(tvx_row_pow3o2_d, tvx_row_pow3o2_s),
       mpfr_pow3o2,
       0.0,
       big,
       // the ends of the vector range and of the finite results
       {1.0, 4.0, 0.5, d ? 0x1p-600 : 0x1p-84, d ? 0x1p600 : 0x1p85,
        d ? 0x1.965fea53d6e3cp+681 : 0x1.965feap+85, mn},
       {{4.0, 8.0},
        {0.0, 0.0},
        {-0.0, 0.0},
        {kInf, kInf},
        {-1.0, kNaN, KAZ_STATUS_ERRDOM},
        {kNaN, kNaN},
        {d ? 0x1p700 : 0x1p90, kInf, KAZ_STATUS_OVERFLOW},
        {tiny, kByTruth}}},
  };
}

// ---- two inputs --------------------------------------------------------------------------------
using MpfrBinary = int (*)(mpfr_ptr, mpfr_srcptr, mpfr_srcptr, mpfr_rnd_t);

struct Special2 {
  double a, b;
  double expected;  // NaN: any NaN; kByTruth: the level's goal
  int status = 0;
  unsigned exact = kAllLevels;  // levels where `expected` is exact; the goal elsewhere
};

template <class T>
struct Function2 {
  const char* name;
  void (*c_form)(int, const T*, const T*, T*);
  const tvx::frame::Row<tvx::frame::K_vv_v<T>>* row;
  MpfrBinary truth;
  // Draws one input pair.
  void (*draw)(std::mt19937_64& rng, double& a, double& b);
  std::vector<Special2> specials;
};

// The unary ulp measure on a binary truth: the second argument rides along in a thread-local.
inline thread_local double t_second;
inline thread_local MpfrBinary t_binary;
inline int bound_second(mpfr_ptr r, mpfr_srcptr x, mpfr_rnd_t rnd) {
  mpfr_t b;
  mpfr_init2(b, 64);
  mpfr_set_d(b, t_second, MPFR_RNDN);
  const int s = t_binary(r, x, b, rnd);
  mpfr_clear(b);
  return s;
}
template <class T>
double ulp_error2(MpfrBinary f, double a, double b, double computed) {
  t_second = b;
  t_binary = f;
  return tvx::test::ulp_error<T>(bound_second, a, computed);
}

// Pow over the (x, y) plane: results spread over the whole range (|y ln x| up to 760, past both
// ends), x near 1 with huge y, results close to the overflow and underflow limits, negative x with
// integer y, and subnormal x. `lim` is the type's ln(max).
template <class T>
void draw_pow(std::mt19937_64& rng, double& x, double& y) {
  constexpr double lim = sizeof(T) == 8 ? 709.78 : 88.72;
  constexpr int emax = std::numeric_limits<T>::max_exponent;
  std::uniform_real_distribution<double> u(0.0, 1.0);
  const int kind = static_cast<int>(rng() % 5);
  if (kind == 0) {
    x = std::ldexp(1.0 + u(rng), static_cast<int>((2 * u(rng) - 1) * emax));
  } else if (kind == 1) {
    x = 1.0 + std::ldexp(2 * u(rng) - 1,
                         -static_cast<int>(1 + u(rng) * (std::numeric_limits<T>::digits - 1)));
  } else if (kind == 2) {
    x = std::ldexp(1.0 + u(rng), static_cast<int>((2 * u(rng) - 1) * emax));
  } else if (kind == 3) {
    x = -std::ldexp(1.0 + u(rng), static_cast<int>((2 * u(rng) - 1) * 12));
  } else {
    x = std::ldexp(1.0 + u(rng),
                   std::numeric_limits<T>::min_exponent - 2 - static_cast<int>(u(rng) * 20));
  }
  x = static_cast<T>(x);
  const double lx = std::log(std::fabs(x));
  if (lx == 0) {
    y = 1e6 * (2 * u(rng) - 1);
  } else if (kind ==
             2) {  // near the ends: |y ln x| in [lim - 2, lim + 1] and [-lim - 40, -lim + 2]
    const double t =
        u(rng) < 0.5 ? lim - 2 + 3 * u(rng) : -(lim - 2 + (sizeof(T) == 8 ? 42 : 18) * u(rng));
    y = t / lx;
  } else if (kind == 3) {
    y = std::round((2 * u(rng) - 1) * std::fmin(60.0, lim / std::fabs(lx)));
  } else {
    y = (2 * u(rng) - 1) * 1.07 * lim / std::fabs(lx);
  }
  y = static_cast<T>(y);
}

// Hypot: both sides over every binade (ratios from 1 to 2^120), and near-equal sides.
template <class T>
void draw_hypot(std::mt19937_64& rng, double& a, double& b) {
  constexpr int emin = std::numeric_limits<T>::min_exponent - std::numeric_limits<T>::digits;
  constexpr int emax = std::numeric_limits<T>::max_exponent;
  std::uniform_real_distribution<double> u(0.0, 1.0);
  const int e = emin + static_cast<int>(u(rng) * (emax - emin));
  a = std::ldexp(1.0 + u(rng), e - 1) * (u(rng) < 0.5 ? -1 : 1);
  b = (rng() % 2)
          ? a * (0.5 + u(rng))
          : std::ldexp(1.0 + u(rng), e - static_cast<int>(u(rng) * 120)) * (u(rng) < 0.5 ? -1 : 1);
  a = static_cast<T>(a);
  b = static_cast<T>(b);
}

template <class T>
std::vector<Function2<T>> pair_functions() {
  constexpr bool d = sizeof(T) == 8;
  const double big = std::numeric_limits<T>::max();
  Function2<T> pow{d ? "vdPow" : "vsPow", nullptr, nullptr, mpfr_pow, draw_pow<T>, {}};
  Function2<T> hyp{d ? "vdHypot" : "vsHypot", nullptr, nullptr, mpfr_hypot, draw_hypot<T>, {}};
  if constexpr (d) {
    pow.c_form = vdPow, pow.row = &tvx_row_pow_d;
    hyp.c_form = vdHypot, hyp.row = &tvx_row_hypot_d;
  } else {
    pow.c_form = vsPow, pow.row = &tvx_row_pow_s;
    hyp.c_form = vsHypot, hyp.row = &tvx_row_hypot_s;
  }
  pow.specials = {{1.0, kNaN, 1.0},
                  {kNaN, 0.0, 1.0},
                  {kNaN, -0.0, 1.0},
                  {kNaN, 2.0, kNaN},
                  {2.0, kNaN, kNaN},
                  {0.0, -1.0, kInf, KAZ_STATUS_ERRDOM},
                  {-0.0, -3.0, -kInf, KAZ_STATUS_ERRDOM},
                  {-0.0, -2.0, kInf, KAZ_STATUS_ERRDOM},
                  {-0.0, 3.0, -0.0},
                  {0.0, 2.5, 0.0},
                  {-1.0, kInf, 1.0},
                  {-1.0, -kInf, 1.0},
                  {-1.0, 7.0, -1.0},
                  {-8.0, 1.0 / 3, kNaN, KAZ_STATUS_ERRDOM},
                  {-8.0, 3.0, -512.0, 0, kHaOnly},
                  {0.5, kInf, 0.0},
                  {0.5, -kInf, kInf},
                  {2.0, kInf, kInf},
                  {2.0, -kInf, 0.0},
                  {-kInf, -3.0, -0.0},
                  {-kInf, 3.0, -kInf},
                  {-kInf, 2.0, kInf},
                  {kInf, -0.5, 0.0},
                  {2.0, d ? 1024.0 : 128.0, kInf, KAZ_STATUS_OVERFLOW},
                  {-2.0, d ? 1025.0 : 129.0, -kInf, KAZ_STATUS_OVERFLOW},
                  {2.0, d ? -1074.0 : -149.0, std::numeric_limits<T>::denorm_min()},
                  {2.0, d ? -1080.0 : -160.0, 0.0},
                  {10.0, d ? 308.0 : 38.0, kByTruth},
                  {1.0000001, 1e9, kByTruth},
                  {0.9999999, -1e9, kByTruth},
                  {big, 0.5, kByTruth}};
  hyp.specials = {
      {3.0, 4.0, 5.0},
      {kInf, kNaN, kInf},
      {kNaN, -kInf, kInf},
      {kNaN, 1.0, kNaN},
      {0.0, -0.0, 0.0},
      {-0.0, -2.0, 2.0},
      {big, big, kInf},
      {d ? 1e308 : 1e38, d ? 1e308 : 1e38, kByTruth},
      {std::numeric_limits<T>::denorm_min(), std::numeric_limits<T>::denorm_min(), kByTruth}};
  return {pow, hyp};
}

template <class T>
bool special2_met(const Function2<T>& f, const Special2& s, int level, T y) {
  if (s.expected == kByTruth || !(s.exact & (1u << level)))
    return meets_goal<T>(level,
                         ulp_error2<T>(f.truth, static_cast<T>(s.a), static_cast<T>(s.b), y));
  const T want = static_cast<T>(s.expected);
  if (std::isnan(want)) return std::isnan(y);
  return std::memcmp(&y, &want, sizeof y) == 0;
}

}  // namespace tvx::accuracy
