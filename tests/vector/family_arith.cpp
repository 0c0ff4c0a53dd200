// Arithmetic and rounding rows of the family test: every cell gives the bits of a plain scalar
// reference, except the reciprocal cells of Div, Inv and LinearFrac, which are held to their level
// and give the IEEE result on the lanes they hand to a true divide. Then what only these
// functions have: the SSE2 copies' rounding mode, NearbyInt's flags, LinearFrac's unread b, and
// the streaming stores of long outputs.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/variants.h"
#include "tests/vector/family_harness.h"

namespace tvx::family {
namespace {

template <class T>
using Bits = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
template <class T>
Bits<T> bits_of(T x) {
  Bits<T> b;
  std::memcpy(&b, &x, sizeof b);
  return b;
}
template <class T>
T from_bits(std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t> b) {
  T x;
  std::memcpy(&x, &b, sizeof x);
  return x;
}

// Arguments that break rounding and sign handling, then random values over many binades.
template <class T>
std::vector<T> test_values(unsigned seed) {
  using L = std::numeric_limits<T>;
  const T big = sizeof(T) == 8 ? T(0x1p52) : T(0x1p23f);
  std::vector<T> v = {L::quiet_NaN(), L::signaling_NaN()};
  for (T x : {T(0),
              T(0.25),
              T(0.5),
              T(0.75),
              T(1),
              T(1.5),
              T(2.5),
              T(3.5),
              T(7.5),
              big - T(0.5),
              big / 2 + T(0.5),
              big,
              big * 2 + 2,
              big * 4,
              L::max(),
              L::min(),
              L::denorm_min(),
              L::denorm_min() * 7,
              L::infinity(),
              std::nextafter(T(0.5), T(0)),
              std::nextafter(T(1), T(2)),
              std::nextafter(big, T(0))}) {
    v.push_back(x);
    v.push_back(-x);
  }
  // A quiet NaN with a payload and its sign set.
  v.push_back(from_bits<T>(sizeof(T) == 8 ? 0xFFF8000000000015ull : 0xFFC00015u));
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> mant(-2.0, 2.0);
  std::uniform_int_distribution<int> ex(-30, 60);
  while (v.size() < 160)
    v.push_back(static_cast<T>(std::ldexp(mant(gen), ex(gen) / (sizeof(T) == 8 ? 1 : 2))));
  return v;
}

// Values that report nothing and whose sums, products and quotients stay normal; divisors with
// mantissas near 1 and 2 first, where reciprocal estimates are at their worst.
template <class T>
std::vector<T> spread(unsigned seed, bool divisors) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> m(1.0, 2.0);
  const int range = sizeof(T) == 8 ? 200 : 40;
  std::uniform_int_distribution<int> e(-range, range), s(0, 1);
  std::vector<T> v;
  for (int i = 0; divisors && i < 200; ++i) {
    v.push_back(std::nextafter(T(1), T(2)) + T(i) * std::numeric_limits<T>::epsilon());
    v.push_back(-(std::nextafter(T(2), T(1)) - T(i) * std::numeric_limits<T>::epsilon()));
  }
  while (v.size() < 4000)
    v.push_back(static_cast<T>((s(gen) ? -1 : 1) * std::ldexp(m(gen), e(gen))));
  return v;
}

template <class T>
T keep_nan(T x, T r) {
  return std::isnan(x) ? x : r;
}

template <class T>
FamilyRow<T> unary(FamilyRow<T> r, T (*ref)(T)) {
  r.exact = [ref](T a, T, T& y, T&) { y = ref(a); };
  r.a = test_values<T>(7);
  r.quiet_a = spread<T>(1, true);
  return r;
}
template <class T>
FamilyRow<T> binary_inputs(FamilyRow<T> r) {
  r.a = test_values<T>(3);
  r.b = test_values<T>(5);
  std::mt19937 g(9);
  std::shuffle(r.b.begin(), r.b.end(), g);  // every special value meets others, zeros included
  r.quiet_a = spread<T>(2, false);
  r.quiet_b = spread<T>(3, true);
  return r;
}
template <class T>
FamilyRow<T> binary(FamilyRow<T> r, T (*ref)(T, T)) {
  r.exact = [ref](T a, T b, T& y, T&) { y = ref(a, b); };
  return binary_inputs(std::move(r));
}

// The lanes a reciprocal form hands to a true divide: zeros, subnormals, infinities, NaNs, and
// quotients near the ends of the range. A zero divisor reports a singularity; its flag is
// division by zero, or invalid for 0/0; 1/infinity is silent, an overflowing quotient raises
// overflow alone. The flags are pinned on every cell, the reciprocal forms included.
template <class T>
void add_divide_cases(FamilyRow<T>& r) {
  using L = std::numeric_limits<T>;
  const T sp[] = {T(0),           T(-0.0),        L::denorm_min(), -L::min() / 4, L::infinity(),
                  -L::infinity(), L::quiet_NaN(), L::max(),        L::min(),      T(3)};
  auto add = [&](T x, T y, int flags) {
    const T q = x / y;
    const bool ordinary = std::isnormal(x) && std::isnormal(y) &&
                          (r.inputs == 1 ? std::fabs(y) < L::max() / 4
                                         : std::isnormal(q) && std::fabs(q) < L::max() / 4);
    if (ordinary && flags == kUnchecked) return;  // a reciprocal form's lane: its accuracy counts
    const int status = y == T(0) && std::isfinite(x) ? KAZ_STATUS_SING : 0;
    r.cases.push_back(r.inputs == 2 ? Case<T>{x, y, q, status, flags}
                                    : Case<T>{y, 0, q, status, flags});
  };
  for (T y : sp) {
    if (r.inputs == 1) add(T(1), y, kUnchecked);
    for (T x : sp) {
      if (r.inputs == 2) add(x, y, kUnchecked);
    }
  }
  add(T(1), T(0), FE_DIVBYZERO);
  add(T(1), T(-0.0), FE_DIVBYZERO);
  add(T(1), L::infinity(), 0);
  add(T(1), -L::min() / 4, FE_OVERFLOW);
  if (r.inputs == 2) {
    add(T(0), T(0), FE_INVALID);
    add(T(3), T(0), FE_DIVBYZERO);
    add(L::max(), L::infinity(), 0);
    add(L::max(), T(0.25), FE_OVERFLOW);
    add(-L::max() / 2, T(0x1p-2), FE_OVERFLOW);
    add(L::max(), T(2), 0);
  }
}

// LinearFrac with fixed scalars: (sa a + ha) / (sb b + hb), b unread when sb is zero.
template <class T>
FamilyRow<T> linear_frac(const frame::Row<frame::K_lfrac<T>>& row, T sa, T ha, T sb, T hb) {
  FamilyRow<T> r = binary_inputs<T>({});
  r.name = std::string(sizeof(T) == 8 ? "vd" : "vs") + "LinearFrac(" + std::to_string(sa) + "," +
           std::to_string(ha) + "," + std::to_string(sb) + "," + std::to_string(hb) + ")";
  r.inputs = 2;
  r.call = [&row, sa, ha, sb, hb](int s, int n, const T* a, const T* b, T* y, T*) {
    row.kernels[s](n, a, b, sa, ha, sb, hb, y);
  };
  r.exact = [=](T a, T b, T& y, T&) {
    if (sb == T(0)) {
      y = (sa * a + ha) * (T(1) / hb);
    } else if (sa == T(0)) {
      y = ha / (sb * b + hb);
    } else {
      y = (sa * a + ha) / (sb * b + hb);
    }
  };
  // Double reciprocal cells: within 2 ulps at every level. A denominator of exactly zero is a
  // true divide and reports nothing.
  if (sizeof(T) == 8 && sb != T(0)) {
    r.approx = {2, 3, 8, 9, 14, 15};
    r.ulps[0] = r.ulps[1] = r.ulps[2] = 2;
  }
  if (sb != T(0)) r.cases.push_back({T(1), -hb / sb, (sa + ha) / T(0), 0});
  return r;
}

template <class T>
Rows<T> rows() {
  using frame::Row;
  const bool d = sizeof(T) == 8;
  auto row = [](const auto& rd, const auto& rs) -> const auto& {
    if constexpr (sizeof(T) == 8) {
      return rd;
    } else {
      return rs;
    }
  };
  const std::string t = d ? "vd" : "vs";
  Rows<T> r;
  auto add = [&](FamilyRow<T> f, bool keeps_env = false) {
    f.sse2_keeps_caller_env = keeps_env;
    r.push_back(std::move(f));
  };
  // Exact one-input rows; the SSE2 copies of all but Round and Sqr leave the caller's rounding and
  // flush bits alone. Sqr goes through the hardware multiply: a signalling NaN comes back quieted.
  struct Unary {
    const char* name;
    const frame::Row<frame::K_v_v<T>>& cells;
    T (*ref)(T);
    bool keeps_env;
  };
  const Unary unaries[] = {
      {"Floor", row(tvx_row_floor_d, tvx_row_floor_s),
       [](T x) { return keep_nan(x, std::floor(x)); }, true},
      {"Ceil", row(tvx_row_ceil_d, tvx_row_ceil_s), [](T x) { return keep_nan(x, std::ceil(x)); },
       true},
      {"Trunc", row(tvx_row_trunc_d, tvx_row_trunc_s),
       [](T x) { return keep_nan(x, std::trunc(x)); }, true},
      {"Round", row(tvx_row_round_d, tvx_row_round_s),
       [](T x) { return keep_nan(x, std::round(x)); }, false},
      {"Rint", row(tvx_row_rint_d, tvx_row_rint_s),
       [](T x) { return keep_nan(x, std::nearbyint(x)); }, true},
      {"NearbyInt", row(tvx_row_nearbyint_d, tvx_row_nearbyint_s),
       [](T x) { return keep_nan(x, std::nearbyint(x)); }, true},
      {"Sqr", row(tvx_row_sqr_d, tvx_row_sqr_s), [](T x) { return x * x; }, false}};
  for (const Unary& u : unaries) add(unary(v_v<T>(t + u.name, u.cells), u.ref), u.keeps_env);
  // Abs clears the sign bit: a NaN keeps its payload; a subnormal is not flushed.
  FamilyRow<T> abs = unary(
      v_v<T>(t + "Abs", row(tvx_row_abs_d, tvx_row_abs_s)),
      +[](T x) { return from_bits<T>(bits_of(x) & ~(Bits<T>(1) << (8 * sizeof(T) - 1))); });
  abs.flushes = false;
  add(abs, true);
  FamilyRow<T> inv = unary(
      v_v<T>(t + "Inv", row(tvx_row_inv_d, tvx_row_inv_s)), +[](T x) { return T(1) / x; });
  inv.approx = d ? std::vector<int>{3, 5, 11, 15, 17} : std::vector<int>{2, 3, 5, 11, 14, 15, 17};
  add_divide_cases(inv);
  add(inv);
  add(binary(
      vv_v<T>(t + "Add", row(tvx_row_add_d, tvx_row_add_s)), +[](T a, T b) { return a + b; }));
  add(binary(
      vv_v<T>(t + "Sub", row(tvx_row_sub_d, tvx_row_sub_s)), +[](T a, T b) { return a - b; }));
  FamilyRow<T> mul = binary(
      vv_v<T>(t + "Mul", row(tvx_row_mul_d, tvx_row_mul_s)), +[](T a, T b) { return a * b; });
  // A subnormal inexact product raises underflow, an overflowing one overflow; neither reports.
  const T tiny = std::nextafter(std::ldexp(T(1), d ? -1000 : -100), T(1));
  const T subnormal = std::ldexp(T(1), d ? -60 : -30) * tiny;
  mul.cases = {{tiny, std::ldexp(T(1), d ? -60 : -30), subnormal, 0, FE_UNDERFLOW},
               {std::ldexp(T(1), d ? 1000 : 100), std::ldexp(T(1), d ? 100 : 50),
                std::numeric_limits<T>::infinity(), 0, FE_OVERFLOW}};
  add(mul);
  FamilyRow<T> div = binary(
      vv_v<T>(t + "Div", row(tvx_row_div_d, tvx_row_div_s)), +[](T a, T b) { return a / b; });
  div.approx = d ? std::vector<int>{5, 11, 15, 17} : std::vector<int>{2, 3, 5, 11, 14, 15, 17};
  add_divide_cases(div);
  add(div);
  FamilyRow<T> modf = v_vv<T>(t + "Modf", row(tvx_row_modf_d, tvx_row_modf_s));
  modf.exact = [](T x, T, T& y, T& z) {
    if (std::isnan(x)) {
      y = z = x + x;
    } else {
      z = std::modf(x, &y);
    }
  };
  modf.a = test_values<T>(11);
  modf.quiet_a = spread<T>(4, false);
  modf.flushes = false;  // a fraction below 1 is the argument itself
  add(modf);
  const auto& lfrac = row(tvx_row_linearfrac_d, tvx_row_linearfrac_s);
  const T lf[][4] = {{T(1.5), T(-2), T(0.75), T(3)}, {T(0), T(-2), T(0.75), T(3)},
                     {T(2), T(1), T(0), T(3)},       {T(0), T(1), T(0), T(0)},
                     {T(-3), T(0), T(0), T(-0.0)},   {T(0), T(-1), T(0.5), T(3)},
                     {T(2.5), T(-1), T(0.5), T(3)}};
  for (const auto& c : lf) add(linear_frac<T>(lfrac, c[0], c[1], c[2], c[3]));
  return r;
}

}  // namespace

template <>
Rows<double> arith_rows<double>() {
  return rows<double>();
}
template <>
Rows<float> arith_rows<float>() {
  return rows<float>();
}

namespace {

class ArithCells : public testing::TestWithParam<tvx::test::Variant> {
 protected:
  void SetUp() override {
    TVX_SKIP_IF_CPU_LACKS(GetParam());
    kazSetMode(KAZ_ERRMODE_IGNORE);
  }
  int slot(int level) const { return tvx::test::slot(GetParam().index, level); }
};

// The SSE2 copies keep the caller's rounding mode; the others have set round-to-nearest.
TEST_P(ArithCells, RintFollowsTheCallersRoundingModeOnlyOnSse2) {
  const bool honours = GetParam().index <= 1;
  const double x[6] = {1.25, -1.25, 2.5, -2.5, 0.25, -0.75};
  for (int m : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    double want[6];
    std::fesetround(honours ? m : FE_TONEAREST);
    for (int i = 0; i < 6; ++i) want[i] = std::nearbyint(x[i]);
    std::fesetround(FE_TONEAREST);
    for (int level = 1; level <= 3; ++level) {
      double r[6], q[6];
      float xs[6], rs[6];
      for (int i = 0; i < 6; ++i) xs[i] = static_cast<float>(x[i]);
      std::fesetround(m);
      tvx_row_rint_d.kernels[slot(level)](6, x, r);
      tvx_row_nearbyint_d.kernels[slot(level)](6, x, q);
      tvx_row_rint_s.kernels[slot(level)](6, xs, rs);
      const int after = std::fegetround();
      std::fesetround(FE_TONEAREST);
      EXPECT_EQ(after, m) << "the caller's rounding mode must come back";
      for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(r[i], want[i]) << "mode " << m << " x " << x[i];
        EXPECT_EQ(q[i], want[i]) << "NearbyInt, mode " << m << " x " << x[i];
        EXPECT_EQ(rs[i], static_cast<float>(want[i])) << "single, mode " << m;
      }
    }
  }
}

TEST_P(ArithCells, NearbyIntRaisesNoInexactRintDoes) {
  double x[3] = {1.5, -2.25, 7.0}, r[3];
  std::feclearexcept(FE_ALL_EXCEPT);
  tvx_row_nearbyint_d.kernels[slot(2)](3, x, r);
  EXPECT_FALSE(std::fetestexcept(FE_INEXACT));
  tvx_row_rint_d.kernels[slot(2)](3, x, r);
  EXPECT_TRUE(std::fetestexcept(FE_INEXACT));
  std::feclearexcept(FE_ALL_EXCEPT);
}

TEST_P(ArithCells, LinearFracConstantDenominatorNeverReadsB) {
  for (int level = 1; level <= 3; ++level) {
    double a[3] = {1, 0, -1}, r[3];
    kazClearErrStatus();
    tvx_row_linearfrac_d.kernels[slot(level)](3, a, nullptr, 2.0, 0.0, 0.0, 0.0, r);
    EXPECT_EQ(r[0], std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(r[1]));
    EXPECT_EQ(r[2], -std::numeric_limits<double>::infinity());
    EXPECT_EQ(kazGetErrStatus(), 0);
    float as[2] = {1, 2}, rs[2];
    tvx_row_linearfrac_s.kernels[slot(level)](2, as, nullptr, 0.0f, 3.0f, 0.0f, 2.0f, rs);
    EXPECT_EQ(rs[0], 1.5f);
    EXPECT_EQ(rs[1], 1.5f);
  }
}

// Outputs of 4 MiB and more are written with streaming stores after a run that aligns them; the
// bits are those of the ordinary path, whatever the distance to the next aligned address, in
// place, and with a report inside the streamed part.
TEST_P(ArithCells, LongVectorsStreamTheSameBits) {
  constexpr int kN = (4 << 20) / 8 + 37;
  std::vector<double> a(kN + 1), b(kN + 1), r(kN + 2);
  for (int i = 0; i <= kN; ++i) {
    a[i] = 0.37 * i - 1000.25;
    b[i] = 1.0 + (i % 17);
  }
  b[kN / 2] = 0.0;
  const int s = slot(2);
  if (GetParam().index != 5) {  // variant 5 divides by a reciprocal form
    kazClearErrStatus();
    tvx_row_div_d.kernels[s](kN, a.data() + 1, b.data() + 1, r.data() + 1);
    EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_SING);
    for (int i = 0; i < kN; ++i) ASSERT_EQ(r[i + 1], a[i + 1] / b[i + 1]) << "Div " << i;
  }
  tvx_row_floor_d.kernels[s](kN, a.data(), r.data() + 1);
  for (int i = 0; i < kN; ++i) ASSERT_EQ(r[i + 1], std::floor(a[i])) << "Floor " << i;
  std::vector<double> p(a.begin(), a.end());
  tvx_row_add_d.kernels[s](kN - 2, p.data() + 2, b.data() + 2, p.data() + 2);
  for (int i = 2; i < kN; ++i) ASSERT_EQ(p[i], a[i] + b[i]) << "Add " << i;
}

INSTANTIATE_TEST_SUITE_P(Variants, ArithCells, testing::ValuesIn(tvx::test::all_variants()),
                         tvx::test::variant_name);

}  // namespace
}  // namespace tvx::family
