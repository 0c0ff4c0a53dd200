// Powers and roots in the family test: the roots from the accuracy tester's rows (its special
// values become the cases), Pow and Hypot with the pair rows' exact special values and samplers,
// and Powx at exponents that take each of its roads. The flags a case must raise are those the C
// library raises for it.
#include <gtest/gtest.h>

#include "support/variants.h"
#include "tests/vector/accuracy/functions_pow.h"
#include "tests/vector/family_harness.h"

namespace tvx::family {
namespace {

template <class T>
int libm_flags(int (*f)(T, T, T*), T a, T b) {
  T r;
  std::feclearexcept(FE_ALL_EXCEPT);
  f(a, b, &r);
  const int got = std::fetestexcept(kFlags);
  std::feclearexcept(FE_ALL_EXCEPT);
  return got;
}
template <class T>
int libm_pow(T a, T b, T* r) {
  *r = std::pow(a, b);
  return 0;
}
template <class T>
int libm_hypot(T a, T b, T* r) {
  *r = std::hypot(a, b);
  return 0;
}

// Moderate arguments of a one-input root whose result is a normal number: they report nothing.
template <class T>
bool quiet(T x) {
  if (!(std::fabs(x) >= T(0x1p-30) && std::fabs(x) <= T(0x1p30)) || x < 0) return false;
  return x != 0;
}

template <class T>
void roots(Rows<T>& rows, std::mt19937_64& rng) {
  static const std::vector<accuracy::Function<T>> table = accuracy::root_functions<T>();
  for (const auto& f : table) {
    FamilyRow<T> r = v_v<T>(f.name, *f.row);
    r.fn = &f;
    for (const accuracy::Special& s : f.specials) {
      const bool by_truth = s.expected == accuracy::kByTruth;
      const int flags = s.status == KAZ_STATUS_ERRDOM     ? FE_INVALID
                        : s.status == KAZ_STATUS_SING     ? FE_DIVBYZERO
                        : s.status == KAZ_STATUS_OVERFLOW ? FE_OVERFLOW
                        : by_truth                        ? kUnchecked
                                                          : 0;
      r.cases.push_back({static_cast<T>(s.x), T(0), by_truth ? T(0) : static_cast<T>(s.expected),
                         s.status, flags, by_truth, s.exact});
    }
    r.a = accuracy::sample_inputs(f, 160, rng);
    for (T x : accuracy::sample_inputs(f, 400, rng))
      if (quiet(x)) r.quiet_a.push_back(x);
    rows.push_back(std::move(r));
  }
}

template <class T>
void pairs(Rows<T>& rows, std::mt19937_64& rng) {
  static const std::vector<accuracy::Function2<T>> table = accuracy::pair_functions<T>();
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (const auto& f : table) {
    const bool pow = std::string(f.name).find("Pow") != std::string::npos;
    FamilyRow<T> r = vv_v<T>(f.name, *f.row);
    for (const accuracy::Special2& s : f.specials) {
      if (s.expected == accuracy::kByTruth || s.exact != accuracy::kAllLevels) continue;
      const T a = static_cast<T>(s.a), b = static_cast<T>(s.b);
      r.cases.push_back({a, b, static_cast<T>(s.expected), s.status,
                         libm_flags<T>(pow ? libm_pow<T> : libm_hypot<T>, a, b)});
    }
    for (int i = 0; i < 160; ++i) {
      double a, b;
      f.draw(rng, a, b);
      r.a.push_back(static_cast<T>(a)), r.b.push_back(static_cast<T>(b));
    }
    for (int i = 0; i < 64; ++i) {
      r.quiet_a.push_back(static_cast<T>(0.6 + u(rng)));
      r.quiet_b.push_back(static_cast<T>(pow ? 8 * u(rng) - 4 : 0.6 + u(rng)));
    }
    rows.push_back(std::move(r));
  }
}

// Powx at one exponent: the chains and the square root are exact, so they have a reference.
template <class T>
FamilyRow<T> powx(const frame::Row<frame::K_vs_v<T>>& row, T y, std::mt19937_64& rng) {
  FamilyRow<T> r;
  char name[48];
  std::snprintf(name, sizeof name, "%s(y = %g)", sizeof(T) == 8 ? "vdPowx" : "vsPowx", double(y));
  r.name = name;
  r.call = [&row, y](int s, int n, const T* a, const T*, T* out, T*) {
    row.kernels[s](n, a, y, out);
  };
  if (y == T(9)) {
    r.exact = [](T a, T, T& out, T&) {
      out = a;
      for (int k = 1; k < 9; ++k) out = out * a;
    };
  } else if (y == T(0.5)) {
    r.exact = [](T a, T, T& out, T&) { out = std::sqrt(a); };
  }
  std::uniform_real_distribution<double> u(0.0, 1.0);
  const T inf = std::numeric_limits<T>::infinity(), nan = std::numeric_limits<T>::quiet_NaN();
  for (T x : {T(0), T(-0.0), T(-2.5), inf, -inf, nan, T(1e-30), T(1e30), T(3)}) r.a.push_back(x);
  for (int i = 0; i < 120; ++i) {
    double a, b;
    accuracy::draw_pow<T>(rng, a, b);
    r.a.push_back(static_cast<T>(a));
  }
  for (int i = 0; i < 64; ++i) r.quiet_a.push_back(static_cast<T>(0.6 + u(rng)));
  return r;
}

template <class T>
const frame::Row<frame::K_vs_v<T>>& powx_row() {
  if constexpr (sizeof(T) == 8) {
    return tvx_row_powx_d;
  } else {
    return tvx_row_powx_s;
  }
}

template <class T>
Rows<T> rows_of() {
  Rows<T> rows;
  std::mt19937_64 rng(2025);
  roots(rows, rng);
  pairs(rows, rng);
  for (T y : {T(2.5), T(9), T(2), T(0.5), T(-0.5), T(1.5), T(1) / T(3)})
    rows.push_back(powx(powx_row<T>(), y, rng));
  return rows;
}

// The rows Powx hands over to, by type.
template <class T>
struct Targets;
template <>
struct Targets<double> {
  const frame::Row<frame::K_v_v<double>>&sqrt = tvx_row_sqrt_d, &invsqrt = tvx_row_invsqrt_d,
        &pow3o2 = tvx_row_pow3o2_d, &cbrt = tvx_row_cbrt_d, &invcbrt = tvx_row_invcbrt_d,
        &pow2o3 = tvx_row_pow2o3_d, &inv = tvx_row_inv_d;
  const frame::Row<frame::K_vv_v<double>>& pow = tvx_row_pow_d;
};
template <>
struct Targets<float> {
  const frame::Row<frame::K_v_v<float>>&sqrt = tvx_row_sqrt_s, &invsqrt = tvx_row_invsqrt_s,
        &pow3o2 = tvx_row_pow3o2_s, &cbrt = tvx_row_cbrt_s, &invcbrt = tvx_row_invcbrt_s,
        &pow2o3 = tvx_row_pow2o3_s, &inv = tvx_row_inv_s;
  const frame::Row<frame::K_vv_v<float>>& pow = tvx_row_pow_s;
};

// Powx hands the vector over: at every exponent with a road of its own its bits are those of the
// kernel in the same slot (a chain of products after Inv for -2 to -4), elsewhere those of Pow.
template <class T>
void check_powx_roads() {
  const Targets<T> to;
  std::mt19937_64 rng(7);
  std::vector<T> a;
  for (int i = 0; i < 37; ++i) {
    double x, y;
    accuracy::draw_pow<T>(rng, x, y);
    a.push_back(static_cast<T>(i % 3 == 0 ? -x : x));
  }
  const int n = static_cast<int>(a.size());
  for (const tvx::test::Variant& v : tvx::test::all_variants()) {
    if (tvx::test::lacks(v)) continue;
    for (int level = 1; level <= 3; ++level) {
      const int slot = tvx::test::slot(v.index, level);
      const bool ep = level == 3 && v.index != 1;  // the second SSE2 copy has one kernel
      auto want = [&](T y) {
        std::vector<T> r(n);
        const auto* one = y == T(0.5)                ? &to.sqrt
                          : y == T(-0.5)             ? &to.invsqrt
                          : y == T(1.5)              ? &to.pow3o2
                          : y == T(-1) || y == T(-3) ? &to.inv
                          : ep && y == T(1) / T(3)   ? &to.cbrt
                          : ep && y == T(-1) / T(3)  ? &to.invcbrt
                          : ep && y == T(2) / T(3)   ? &to.pow2o3
                                                     : nullptr;
        if (one != nullptr) {
          one->kernels[slot](n, a.data(), r.data());
          if (y == T(-3))
            for (T& e : r) e = (e * e) * e;
        } else {
          const std::vector<T> b(n, y);
          to.pow.kernels[slot](n, a.data(), b.data(), r.data());
        }
        return r;
      };
      for (T y : {T(0.5), T(-0.5), T(1.5), T(1) / T(3), T(-1) / T(3), T(2) / T(3), T(-1), T(-3),
                  T(2.5), T(-7.25), T(0), T(1e10)}) {
        std::vector<T> got(n);
        powx_row<T>().kernels[slot](n, a.data(), y, got.data());
        const std::vector<T> w = want(y);
        for (int i = 0; i < n; ++i)
          EXPECT_TRUE(std::memcmp(&got[i], &w[i], sizeof(T)) == 0 ||
                      (std::isnan(got[i]) && std::isnan(w[i])))
              << v.name << " level " << level << " y " << y << " x " << a[i];
      }
    }
  }
}

TEST(FamilyPowx, EachExponentTakesItsKernelsBits) {
  kazSetMode(KAZ_ERRMODE_IGNORE);
  check_powx_roads<double>();
  check_powx_roads<float>();
  // A report made by the kernel Powx hands over to carries that kernel's name.
  static std::string t_name;
  kazSetErrorCallBack([](kaz_error_record* rec) {
    t_name.assign(rec->name, static_cast<size_t>(rec->name_len));
    return 1;
  });
  kazSetMode(KAZ_ERRMODE_CALLBACK);
  kazClearErrStatus();
  const double a[3] = {4.0, -1.0, 9.0};
  double r[3];
  vdPowx(3, a, 0.5, r);
  kazClearErrorCallBack();
  EXPECT_EQ(t_name, "vdSqrt");
  EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_ERRDOM);
  EXPECT_EQ(r[0], 2.0);
  EXPECT_EQ(r[2], 3.0);
  kazSetMode(KAZ_ERRMODE_IGNORE);
  kazClearErrStatus();
}

}  // namespace

template <>
Rows<double> pow_rows<double>() {
  return rows_of<double>();
}
template <>
Rows<float> pow_rows<float>() {
  return rows_of<float>();
}

}  // namespace tvx::family
