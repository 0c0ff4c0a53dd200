// Arithmetic and rounding kernels, called through their dispatch-row cells on every variant.
//
// The exact functions (all but the reciprocal cells of Div, Inv and LinearFrac) must give the
// bits of a plain scalar reference on every variant, for every length from 0 to two registers of
// the widest variant plus one (tails and fillers break there), at an odd offset and in place.
// The reciprocal cells are held to their accuracy level instead, and to the exact IEEE results
// and reports on the lanes that they hand to a true divide.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/variants.h"
#include "vector/frame/mode_status.h"
#include "vector/frame/rows.h"

namespace {

using tvx::test::slot_runs;

constexpr int kMaxLen = 2 * 16 + 1;  // two AVX-512 registers of singles, plus one
constexpr unsigned char kMarker = 0xCA;

template <class T>
using Bits = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;

template <class T>
Bits<T> bits_of(T x) {
  Bits<T> b;
  std::memcpy(&b, &x, sizeof b);
  return b;
}
template <class T>
T from_bits(Bits<T> b) {
  T x;
  std::memcpy(&x, &b, sizeof x);
  return x;
}

template <class T>
bool marker_intact(const T* p) {
  unsigned char m[sizeof(T)];
  std::memcpy(m, p, sizeof m);
  for (unsigned char c : m)
    if (c != kMarker) return false;
  return true;
}

// Arguments that break rounding and sign handling, then random values over many binades.
template <class T>
std::vector<T> test_values(unsigned seed) {
  using L = std::numeric_limits<T>;
  const T big = sizeof(T) == 8 ? T(0x1p52) : T(0x1p23f);
  std::vector<T> v = {T(0),
                      T(-0.0),
                      T(0.25),
                      T(-0.25),
                      T(0.5),
                      T(-0.5),
                      T(0.75),
                      T(-0.75),
                      T(1),
                      T(-1),
                      T(1.5),
                      T(-1.5),
                      T(2.5),
                      T(-2.5),
                      T(3.5),
                      T(-7.5),
                      big - T(0.5),
                      -(big - T(0.5)),
                      big / 2 + T(0.5),
                      -(big / 2 + T(0.5)),
                      big,
                      -big,
                      big * 2 + 2,
                      L::max(),
                      -L::max(),
                      L::min(),
                      -L::min(),
                      L::denorm_min(),
                      -L::denorm_min() * 7,
                      L::infinity(),
                      -L::infinity(),
                      std::nextafter(T(0.5), T(0)),
                      std::nextafter(T(1), T(2)),
                      std::nextafter(big, T(0)),
                      L::quiet_NaN()};
  // A quiet NaN with a payload and its sign set, and a signalling NaN.
  v.push_back(
      from_bits<T>(bits_of(L::quiet_NaN()) | Bits<T>(0x15) | (Bits<T>(1) << (8 * sizeof(T) - 1))));
  v.push_back(L::signaling_NaN());
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> mant(-2.0, 2.0);
  std::uniform_int_distribution<int> ex(-30, 60);
  while (v.size() < 160)
    v.push_back(static_cast<T>(std::ldexp(mant(gen), ex(gen) / (sizeof(T) == 8 ? 1 : 2))));
  return v;
}

// Compares bit for bit; with `quiet_only` a signalling NaN on one side may be quieted.
template <class T>
::testing::AssertionResult same_bits(T got, T want) {
  if (bits_of(got) == bits_of(want)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "got " << got << " (0x" << std::hex << +bits_of(got)
                                       << ") want " << want << " (0x" << +bits_of(want) << ")";
}

// Slots of the 18 that hold a kernel (variant 4 never does) and can run here.
std::vector<int> kernel_slots() {
  std::vector<int> s;
  for (int slot = 0; slot < 18; ++slot)
    if (slot % 6 != 4 && slot_runs(slot)) s.push_back(slot);
  return s;
}

// ---- drivers by arity class ---------------------------------------------------------------------
// Each runs the kernel of one slot for every length 0..kMaxLen, at offset 0 and 1, out of place
// with marker-filled outputs and in place, and checks every element against `ref`.

template <class T, class K, class Ref>
void check_v_v(const char* what, K kernel, int slot, const std::vector<T>& in, Ref ref) {
  SCOPED_TRACE(std::string(what) + " slot " + std::to_string(slot));
  for (int off = 0; off < 2; ++off) {
    for (int n = 0; n <= kMaxLen; ++n) {
      for (std::size_t start = 0; start + n <= in.size(); start += kMaxLen) {
        std::vector<T> r(n + 4);
        std::memset(r.data(), kMarker, r.size() * sizeof(T));
        std::vector<T> a(in.begin() + start, in.begin() + start + n);
        a.insert(a.begin(), off, T(0));
        kernel(n, a.data() + off, r.data() + off);
        for (int i = 0; i < n; ++i)
          ASSERT_TRUE(same_bits(r[off + i], ref(a[off + i])))
              << "n " << n << " i " << i << " x " << a[off + i];
        for (std::size_t i = off + n; i < r.size(); ++i)
          ASSERT_TRUE(marker_intact(&r[i])) << "wrote past n " << n;
        if (off == 1) {
          ASSERT_TRUE(marker_intact(&r[0])) << "wrote before the start";
        }
        std::vector<T> p = a;
        kernel(n, p.data() + off, p.data() + off);
        for (int i = 0; i < n; ++i)
          ASSERT_TRUE(same_bits(p[off + i], ref(a[off + i]))) << "in place n " << n << " i " << i;
      }
    }
  }
}

template <class T, class K, class Ref>
void check_vv_v(const char* what, K kernel, int slot, const std::vector<T>& in1,
                const std::vector<T>& in2, Ref ref) {
  SCOPED_TRACE(std::string(what) + " slot " + std::to_string(slot));
  for (int n = 0; n <= kMaxLen; ++n) {
    for (std::size_t start = 0; start + n <= in1.size(); start += kMaxLen) {
      const int off = n & 1;
      std::vector<T> a(off, T(0)), b(off, T(0));
      a.insert(a.end(), in1.begin() + start, in1.begin() + start + n);
      b.insert(b.end(), in2.begin() + start, in2.begin() + start + n);
      std::vector<T> r(off + n + 4);
      std::memset(r.data(), kMarker, r.size() * sizeof(T));
      kernel(n, a.data() + off, b.data() + off, r.data() + off);
      for (int i = 0; i < n; ++i)
        ASSERT_TRUE(same_bits(r[off + i], ref(a[off + i], b[off + i])))
            << "n " << n << " i " << i << " a " << a[off + i] << " b " << b[off + i];
      for (std::size_t i = off + n; i < r.size(); ++i)
        ASSERT_TRUE(marker_intact(&r[i])) << "wrote past n " << n;
      // In place on either input.
      std::vector<T> pa = a, pb = b;
      kernel(n, pa.data() + off, b.data() + off, pa.data() + off);
      kernel(n, a.data() + off, pb.data() + off, pb.data() + off);
      for (int i = 0; i < n; ++i) {
        ASSERT_TRUE(same_bits(pa[off + i], ref(a[off + i], b[off + i]))) << "in place a, n " << n;
        ASSERT_TRUE(same_bits(pb[off + i], ref(a[off + i], b[off + i]))) << "in place b, n " << n;
      }
    }
  }
}

template <class T, class K, class Ref>
void check_v_vv(const char* what, K kernel, int slot, const std::vector<T>& in, Ref ref) {
  SCOPED_TRACE(std::string(what) + " slot " + std::to_string(slot));
  for (int n = 0; n <= kMaxLen; ++n) {
    for (std::size_t start = 0; start + n <= in.size(); start += kMaxLen) {
      std::vector<T> a(in.begin() + start, in.begin() + start + n);
      std::vector<T> y(n + 4), z(n + 4);
      std::memset(y.data(), kMarker, y.size() * sizeof(T));
      std::memset(z.data(), kMarker, z.size() * sizeof(T));
      kernel(n, a.data(), y.data(), z.data());
      for (int i = 0; i < n; ++i) {
        T wy, wz;
        ref(a[i], &wy, &wz);
        ASSERT_TRUE(same_bits(y[i], wy)) << "integral part, n " << n << " x " << a[i];
        ASSERT_TRUE(same_bits(z[i], wz)) << "fraction, n " << n << " x " << a[i];
      }
      for (std::size_t i = n; i < y.size(); ++i)
        ASSERT_TRUE(marker_intact(&y[i]) && marker_intact(&z[i]));
      std::vector<T> p = a, q(n + 1);
      kernel(n, p.data(), p.data(), q.data());  // integral part over the input
      for (int i = 0; i < n; ++i) {
        T wy, wz;
        ref(a[i], &wy, &wz);
        ASSERT_TRUE(same_bits(p[i], wy) && same_bits(q[i], wz)) << "in place, n " << n;
      }
    }
  }
}

// ---- scalar references --------------------------------------------------------------------------
template <class T>
T keep_nan(T x, T r) {
  return std::isnan(x) ? x : r;
}
template <class T>
T ref_floor(T x) {
  return keep_nan(x, std::floor(x));
}
template <class T>
T ref_ceil(T x) {
  return keep_nan(x, std::ceil(x));
}
template <class T>
T ref_trunc(T x) {
  return keep_nan(x, std::trunc(x));
}
template <class T>
T ref_round(T x) {
  return keep_nan(x, std::round(x));
}
template <class T>
T ref_rint(T x) {
  return keep_nan(x, std::nearbyint(x));
}
template <class T>
T ref_abs(T x) {
  return from_bits<T>(bits_of(x) & (~Bits<T>(0) >> 1));
}
template <class T>
void ref_modf(T x, T* y, T* z) {
  if (std::isnan(x)) {
    *y = *z = x + x;
    return;
  }
  *z = std::modf(x, y);
}

// The rows whose cells the test reaches, by name.
#define ROW(lname, t) tvx_row_##lname##_##t

class ArithExact : public ::testing::Test {
 protected:
  void SetUp() override {
    old_mode_ = kazSetMode(KAZ_ERRMODE_IGNORE);  // zero divisors report; nothing printed
  }
  void TearDown() override {
    kazSetMode(old_mode_ & KAZ_ERRMODE_MASK);
    kazClearErrStatus();
  }
  unsigned old_mode_ = 0;
};

template <class T>
void all_rounding(const char* t, const auto& floor_row, const auto& ceil_row, const auto& trunc_row,
                  const auto& round_row, const auto& rint_row, const auto& nearby_row,
                  const auto& abs_row, const auto& sqr_row) {
  const auto in = test_values<T>(7);
  for (int s : kernel_slots()) {
    check_v_v<T>((std::string("Floor ") + t).c_str(), floor_row.kernels[s], s, in, ref_floor<T>);
    check_v_v<T>((std::string("Ceil ") + t).c_str(), ceil_row.kernels[s], s, in, ref_ceil<T>);
    check_v_v<T>((std::string("Trunc ") + t).c_str(), trunc_row.kernels[s], s, in, ref_trunc<T>);
    check_v_v<T>((std::string("Round ") + t).c_str(), round_row.kernels[s], s, in, ref_round<T>);
    check_v_v<T>((std::string("Rint ") + t).c_str(), rint_row.kernels[s], s, in, ref_rint<T>);
    check_v_v<T>((std::string("NearbyInt ") + t).c_str(), nearby_row.kernels[s], s, in,
                 ref_rint<T>);
    check_v_v<T>((std::string("Abs ") + t).c_str(), abs_row.kernels[s], s, in, ref_abs<T>);
    // Sqr goes through the hardware multiply: a signalling NaN comes back quieted.
    check_v_v<T>((std::string("Sqr ") + t).c_str(), sqr_row.kernels[s], s, in,
                 [](T x) { return x * x; });
  }
}

TEST_F(ArithExact, RoundingAbsSqrDouble) {
  all_rounding<double>("d", ROW(floor, d), ROW(ceil, d), ROW(trunc, d), ROW(round, d), ROW(rint, d),
                       ROW(nearbyint, d), ROW(abs, d), ROW(sqr, d));
}
TEST_F(ArithExact, RoundingAbsSqrSingle) {
  all_rounding<float>("s", ROW(floor, s), ROW(ceil, s), ROW(trunc, s), ROW(round, s), ROW(rint, s),
                      ROW(nearbyint, s), ROW(abs, s), ROW(sqr, s));
}

TEST_F(ArithExact, ModfBothTypes) {
  const auto ind = test_values<double>(11);
  const auto ins = test_values<float>(11);
  for (int s : kernel_slots()) {
    check_v_vv<double>("Modf d", ROW(modf, d).kernels[s], s, ind, ref_modf<double>);
    check_v_vv<float>("Modf s", ROW(modf, s).kernels[s], s, ins, ref_modf<float>);
  }
}

// Slots that hold a reciprocal form, left out of the exact comparison.
const std::set<int> kRcpDivD = {5, 11, 15, 17};
const std::set<int> kRcpInvD = {3, 5, 11, 15, 17};
const std::set<int> kRcpS = {2, 3, 5, 11, 14, 15, 17};
const std::set<int> kRcpLfracD = {2, 3, 8, 9, 14, 15};

template <class T>
void binary_exact(const char* t, const auto& add, const auto& sub, const auto& mul, const auto& div,
                  const auto& inv, const std::set<int>& rcp_div, const std::set<int>& rcp_inv) {
  const auto a = test_values<T>(3);
  auto b = test_values<T>(5);
  std::mt19937 g(9);
  std::shuffle(b.begin(), b.end(), g);  // every special value meets others, zeros included
  for (int s : kernel_slots()) {
    check_vv_v<T>((std::string("Add ") + t).c_str(), add.kernels[s], s, a, b,
                  [](T x, T y) { return x + y; });
    check_vv_v<T>((std::string("Sub ") + t).c_str(), sub.kernels[s], s, a, b,
                  [](T x, T y) { return x - y; });
    check_vv_v<T>((std::string("Mul ") + t).c_str(), mul.kernels[s], s, a, b,
                  [](T x, T y) { return x * y; });
    if (!rcp_div.count(s))
      check_vv_v<T>((std::string("Div ") + t).c_str(), div.kernels[s], s, a, b,
                    [](T x, T y) { return x / y; });
    if (!rcp_inv.count(s))
      check_v_v<T>((std::string("Inv ") + t).c_str(), inv.kernels[s], s, b,
                   [](T y) { return T(1) / y; });
  }
}

TEST_F(ArithExact, BinaryDouble) {
  binary_exact<double>("d", ROW(add, d), ROW(sub, d), ROW(mul, d), ROW(div, d), ROW(inv, d),
                       kRcpDivD, kRcpInvD);
}
TEST_F(ArithExact, BinarySingle) {
  binary_exact<float>("s", ROW(add, s), ROW(sub, s), ROW(mul, s), ROW(div, s), ROW(inv, s), kRcpS,
                      kRcpS);
}

// LinearFrac in its four scalar cases; the double reciprocal cells are checked for accuracy below.
template <class T>
void lfrac_exact(const auto& row, const std::set<int>& rcp) {
  const auto a = test_values<T>(13);
  auto b = test_values<T>(17);
  std::mt19937 g(3);
  std::shuffle(b.begin(), b.end(), g);
  const T cases[][4] = {{T(1.5), T(-2), T(0.75), T(3)},
                        {T(0), T(-2), T(0.75), T(3)},
                        {T(2), T(1), T(0), T(3)},
                        {T(0), T(1), T(0), T(0)},
                        {T(-3), T(0), T(0), T(-0.0)}};
  for (int s : kernel_slots()) {
    for (const auto& c : cases) {
      const T sa = c[0], ha = c[1], sb = c[2], hb = c[3];
      if (rcp.count(s) && sb != T(0)) continue;
      auto kernel = [&](int n, const T* x, const T* y, T* r) {
        row.kernels[s](n, x, y, sa, ha, sb, hb, r);
      };
      check_vv_v<T>("LinearFrac", kernel, s, a, b, [&](T x, T y) {
        if (sb == T(0)) return (sa * x + ha) * (T(1) / hb);
        if (sa == T(0)) return ha / (sb * y + hb);
        return (sa * x + ha) / (sb * y + hb);
      });
    }
  }
}

TEST_F(ArithExact, LinearFracBothTypes) {
  lfrac_exact<double>(ROW(linearfrac, d), kRcpLfracD);
  lfrac_exact<float>(ROW(linearfrac, s), {});
}

// Outputs of 4 MiB and more are written with streaming stores after a run that aligns them; the
// bits must be those of the ordinary path, whatever the distance to the next aligned address, in
// place, and with a condition inside the streamed part.
TEST_F(ArithExact, LongVectorsStreamTheSameBits) {
  constexpr int kN = (4 << 20) / 8 + 37;
  std::vector<double> a(kN + 1), b(kN + 1), r(kN + 2);
  for (int i = 0; i <= kN; ++i) {
    a[i] = 0.37 * i - 1000.25;
    b[i] = 1.0 + (i % 17);
  }
  b[kN / 2] = 0.0;  // a singularity in the streamed part
  for (int s : kernel_slots()) {
    const int v = s % 6;
    if (s / 6 != 1 || kRcpDivD.count(s)) continue;
    kazClearErrStatus();
    ROW(div, d).kernels[s](kN, a.data() + 1, b.data() + 1, r.data() + 1);
    EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_SING);
    for (int i = 0; i < kN; ++i)
      ASSERT_TRUE(same_bits(r[i + 1], a[i + 1] / b[i + 1])) << "Div v" << v << " i " << i;
    ROW(floor, d).kernels[s](kN, a.data(), r.data() + 1);
    for (int i = 0; i < kN; ++i)
      ASSERT_TRUE(same_bits(r[i + 1], std::floor(a[i]))) << "Floor v" << v << " i " << i;
    // Another distance to the next aligned address, and in place.
    std::vector<double> p(a.begin(), a.end());
    ROW(add, d).kernels[s](kN - 2, p.data() + 2, b.data() + 2, p.data() + 2);
    for (int i = 2; i < kN; ++i)
      ASSERT_TRUE(same_bits(p[i], a[i] + b[i])) << "Add v" << v << " i " << i;
  }
}

// ---- reciprocal cells: accuracy ----------------------------------------------------------------
// Distance in representable numbers from the correctly rounded quotient.
template <class T>
std::int64_t ulp_distance(T got, T want) {
  auto key = [](T x) {
    const std::uint64_t b = bits_of(x);
    const std::uint64_t sign = std::uint64_t(1) << (8 * sizeof(T) - 1);
    const auto mag = static_cast<std::int64_t>(b & (sign - 1));
    return (b & sign) ? -mag : mag;
  };
  const std::int64_t d = key(got) - key(want);
  return d < 0 ? -d : d;
}

// Allowed distance by level: LA 3 ulps, HA 1, EP half the mantissa (26 or 11 bits correct).
template <class T>
std::int64_t allowed(int slot) {
  const int acc = slot / 6 + 1;
  if (acc == 1) return 3;
  if (acc == 2) return 1;
  return std::int64_t(1) << (std::numeric_limits<T>::digits - (sizeof(T) == 8 ? 26 : 11));
}

template <class T>
void rcp_accuracy(const auto& div, const auto& inv, const std::set<int>& rcp_div,
                  const std::set<int>& rcp_inv) {
  constexpr int kN = 20000;
  std::mt19937_64 gen(42);
  std::uniform_real_distribution<double> m(1.0, 2.0);
  std::uniform_int_distribution<int> e(sizeof(T) == 8 ? -1000 : -120, sizeof(T) == 8 ? 1000 : 120);
  std::uniform_int_distribution<int> s(0, 1);
  std::vector<T> a(kN), b(kN), r(kN);
  for (int i = 0; i < kN; ++i) {
    a[i] = static_cast<T>((s(gen) ? -1 : 1) * std::ldexp(m(gen), e(gen) / 2));
    b[i] = static_cast<T>((s(gen) ? -1 : 1) * std::ldexp(m(gen), e(gen)));
  }
  // Mantissas near 1 and 2, where estimates are at their worst.
  for (int i = 0; i < 200; ++i) {
    b[i] = std::nextafter(T(1), T(2)) + T(i) * std::numeric_limits<T>::epsilon();
    b[200 + i] = std::nextafter(T(2), T(1)) - T(i) * std::numeric_limits<T>::epsilon();
  }
  for (int slot : rcp_div) {
    if (!slot_runs(slot)) continue;
    std::int64_t worst = 0;
    div.kernels[slot](kN, a.data(), b.data(), r.data());
    for (int i = 0; i < kN; ++i) worst = std::max(worst, ulp_distance(r[i], a[i] / b[i]));
    EXPECT_LE(worst, allowed<T>(slot)) << "Div slot " << slot;
  }
  for (int slot : rcp_inv) {
    if (!slot_runs(slot)) continue;
    std::int64_t worst = 0;
    inv.kernels[slot](kN, b.data(), r.data());
    for (int i = 0; i < kN; ++i) worst = std::max(worst, ulp_distance(r[i], T(1) / b[i]));
    EXPECT_LE(worst, allowed<T>(slot)) << "Inv slot " << slot;
  }
}

TEST_F(ArithExact, ReciprocalCellsWithinTheirLevel) {
  rcp_accuracy<double>(ROW(div, d), ROW(inv, d), kRcpDivD, kRcpInvD);
  rcp_accuracy<float>(ROW(div, s), ROW(inv, s), kRcpS, kRcpS);
}

// Lanes that leave the reciprocal forms' range (zeros, subnormals, infinities, NaNs, quotients
// near the ends) get exactly the IEEE quotient, and zero divisors are reported on every cell.
template <class T>
void rcp_specials(const auto& div, const auto& inv, const std::set<int>& rcp_div,
                  const std::set<int>& rcp_inv) {
  using L = std::numeric_limits<T>;
  const std::vector<T> sp = {
      T(0),           T(-0.0),        L::denorm_min(), -L::min() / 4, L::infinity(),
      -L::infinity(), L::quiet_NaN(), L::max(),        L::min(),      T(3)};
  std::vector<T> a, b;
  for (T x : sp)
    for (T y : sp) {
      a.push_back(x);
      b.push_back(y);
    }
  std::vector<T> r(a.size());
  for (int slot : rcp_div) {
    if (!slot_runs(slot)) continue;
    div.kernels[slot](static_cast<int>(a.size()), a.data(), b.data(), r.data());
    for (std::size_t i = 0; i < a.size(); ++i) {
      const T want = a[i] / b[i];
      if (std::isfinite(a[i]) && std::isfinite(b[i]) && std::fabs(a[i]) >= L::min() &&
          std::fabs(b[i]) >= L::min() && std::fabs(want) >= L::min() &&
          std::fabs(want) < L::max() / 4)
        continue;  // an ordinary lane: accuracy, not bits
      EXPECT_TRUE(same_bits(r[i], want)) << "Div slot " << slot << " " << a[i] << "/" << b[i];
    }
  }
  for (int slot : rcp_inv) {
    if (!slot_runs(slot)) continue;
    inv.kernels[slot](static_cast<int>(b.size()), b.data(), r.data());
    for (std::size_t i = 0; i < b.size(); ++i) {
      if (!(std::isnormal(b[i]) && std::fabs(b[i]) < L::max() / 4)) {
        EXPECT_TRUE(same_bits(r[i], T(1) / b[i])) << "Inv slot " << slot << " 1/" << b[i];
      }
    }
  }
}

TEST_F(ArithExact, ReciprocalCellsExactOffTheirRange) {
  rcp_specials<double>(ROW(div, d), ROW(inv, d), kRcpDivD, kRcpInvD);
  rcp_specials<float>(ROW(div, s), ROW(inv, s), kRcpS, kRcpS);
}

TEST_F(ArithExact, LinearFracReciprocalCellsAccurate) {
  constexpr int kN = 5000;
  std::mt19937_64 gen(1);
  std::uniform_real_distribution<double> u(-100.0, 100.0);
  std::vector<double> a(kN), b(kN), r(kN);
  for (int i = 0; i < kN; ++i) {
    a[i] = u(gen);
    b[i] = u(gen);
  }
  b[0] = -3.0 / 0.5;  // denominator exactly zero: a true divide, infinity, no report
  for (int slot : kRcpLfracD) {
    if (!slot_runs(slot)) continue;
    for (double sa : {0.0, 2.5}) {
      kazClearErrStatus();
      ROW(linearfrac, d).kernels[slot](kN, a.data(), b.data(), sa, -1.0, 0.5, 3.0, r.data());
      EXPECT_EQ(kazGetErrStatus(), 0);
      for (int i = 0; i < kN; ++i) {
        const double want = (sa * a[i] + -1.0) / (0.5 * b[i] + 3.0);
        ASSERT_LE(ulp_distance(r[i], want), 2)
            << "slot " << slot << " i " << i << " " << r[i] << " vs " << want;
      }
    }
  }
}

// ---- edge cases --------------------------------------------------------------------------------
struct Seen {
  int calls = 0;
  int code = 0;
  int index = -1;
  double rewrite = 0;
  bool do_rewrite = false;
};
thread_local Seen t_seen;

int record_cb(kaz_error_record* rec) {
  ++t_seen.calls;
  t_seen.code = rec->code;
  t_seen.index = rec->index;
  if (t_seen.do_rewrite) {
    rec->r1 = t_seen.rewrite;
    return 0;
  }
  return 1;
}

class ArithEdges : public ::testing::TestWithParam<tvx::test::Variant> {
 protected:
  void SetUp() override {
    TVX_SKIP_IF_CPU_LACKS(GetParam());
    old_cb_ = kazSetErrorCallBack(record_cb);
    kazClearErrStatus();
    t_seen = Seen{};
  }
  void TearDown() override {
    kazSetErrorCallBack(old_cb_);
    kazClearErrStatus();
  }
  int slot(int acc) const { return tvx::test::slot(GetParam().index, acc); }
  KazErrorCallBack old_cb_ = nullptr;
};

TEST_P(ArithEdges, DivZeroOverZeroIsASingularityAndOneOverInfinityIsSilent) {
  for (int acc = 1; acc <= 3; ++acc) {
    double a[3] = {1, 0, 5}, b[3] = {std::numeric_limits<double>::infinity(), 0.0, 2};
    double r[3];
    t_seen = Seen{};
    ROW(div, d).kernels[slot(acc)](3, a, b, r);
    EXPECT_EQ(r[0], 0.0);
    EXPECT_TRUE(std::isnan(r[1]));
    EXPECT_NEAR(r[2], 2.5, 1e-9);  // the reciprocal cells are not exact
    EXPECT_EQ(t_seen.calls, 1);
    EXPECT_EQ(t_seen.code, KAZ_STATUS_SING);
    EXPECT_EQ(t_seen.index, 1);
    EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_SING);
  }
}

TEST_P(ArithEdges, InvOfMinusZeroAtAnIndexInsideABlock) {
  for (int acc = 1; acc <= 3; ++acc) {
    std::vector<double> b(70, 4.0);
    std::vector<float> bs(70, 4.0f);
    b[37] = -0.0;
    bs[66] = -0.0f;
    std::vector<double> r(70);
    std::vector<float> rs(70);
    t_seen = Seen{};
    ROW(inv, d).kernels[slot(acc)](70, b.data(), r.data());
    EXPECT_EQ(r[37], -std::numeric_limits<double>::infinity());
    EXPECT_NEAR(r[36], 0.25, 1e-9);
    EXPECT_EQ(t_seen.index, 37);
    ROW(inv, s).kernels[slot(acc)](70, bs.data(), rs.data());
    EXPECT_EQ(rs[66], -std::numeric_limits<float>::infinity());
    EXPECT_EQ(t_seen.index, 66);
    EXPECT_EQ(t_seen.calls, 2);
  }
}

TEST_P(ArithEdges, CallbackRewriteOfAResultStands) {
  t_seen.do_rewrite = true;
  t_seen.rewrite = 42.0;
  double a[5] = {1, 2, 3, 4, 5}, b[5] = {1, 1, 0, 1, 1}, r[5];
  ROW(div, d).kernels[slot(2)](5, a, b, r);
  EXPECT_EQ(r[2], 42.0);
  EXPECT_EQ(r[3], 4.0);
  float as[5] = {1, 2, 3, 4, 5}, bs[5] = {1, 1, 1, 0, 1}, rs[5];
  ROW(div, s).kernels[slot(1)](5, as, bs, rs);
  EXPECT_EQ(rs[3], 42.0f);
}

TEST_P(ArithEdges, NamedRoundingValues) {
  const int s = slot(2);
  auto one = [&](const auto& row, double x) {
    double r;
    row.kernels[s](1, &x, &r);
    return r;
  };
  auto is = [](double got, double want) { return same_bits(got, want); };
  EXPECT_TRUE(is(one(ROW(floor, d), -0.25), -1.0));
  EXPECT_TRUE(is(one(ROW(floor, d), -0.0), -0.0));
  EXPECT_TRUE(is(one(ROW(ceil, d), -0.25), -0.0));
  EXPECT_TRUE(is(one(ROW(trunc, d), -0.25), -0.0));
  EXPECT_TRUE(is(one(ROW(round, d), 0.49999999999999994), 0.0));
  EXPECT_TRUE(is(one(ROW(round, d), 4503599627370495.5), 4503599627370496.0));
  EXPECT_TRUE(is(one(ROW(round, d), -0.3), -0.0));
  EXPECT_TRUE(is(one(ROW(round, d), 2.5), 3.0));
  EXPECT_TRUE(is(one(ROW(round, d), -0.5), -1.0));
  const double neg_nan = from_bits<double>(0xFFF8000000000123ull);
  EXPECT_EQ(bits_of(one(ROW(abs, d), neg_nan)), 0x7FF8000000000123ull);
  double y, z, x = -7.5;
  ROW(modf, d).kernels[s](1, &x, &y, &z);
  EXPECT_TRUE(is(y, -7.0) && is(z, -0.5));
  x = std::numeric_limits<double>::infinity();
  ROW(modf, d).kernels[s](1, &x, &y, &z);
  EXPECT_TRUE(is(y, x) && is(z, 0.0));
  x = -0x1p60;
  ROW(modf, d).kernels[s](1, &x, &y, &z);
  EXPECT_TRUE(is(y, x) && is(z, -0.0));
}

// The SSE2 copies keep the caller's rounding mode; the others have set round-to-nearest.
TEST_P(ArithEdges, RintFollowsTheCallersRoundingModeOnlyOnSse2) {
  const bool honours = GetParam().index <= 1;
  const int modes[] = {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
  const double x[6] = {1.25, -1.25, 2.5, -2.5, 0.25, -0.75};
  for (int m : modes) {
    double want[6];
    std::fesetround(honours ? m : FE_TONEAREST);
    for (int i = 0; i < 6; ++i) want[i] = std::nearbyint(x[i]);
    std::fesetround(FE_TONEAREST);
    for (int acc = 1; acc <= 3; ++acc) {
      double r[6], q[6];
      float xs[6], rs[6];
      for (int i = 0; i < 6; ++i) xs[i] = static_cast<float>(x[i]);
      std::fesetround(m);
      ROW(rint, d).kernels[slot(acc)](6, x, r);
      ROW(nearbyint, d).kernels[slot(acc)](6, x, q);
      ROW(rint, s).kernels[slot(acc)](6, xs, rs);
      const int after = std::fegetround();
      std::fesetround(FE_TONEAREST);
      EXPECT_EQ(after, m) << "the caller's rounding mode must come back";
      for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(same_bits(r[i], want[i])) << "mode " << m << " x " << x[i];
        EXPECT_TRUE(same_bits(q[i], want[i])) << "NearbyInt mode " << m << " x " << x[i];
        EXPECT_TRUE(same_bits(rs[i], static_cast<float>(want[i]))) << "single, mode " << m;
      }
    }
  }
  double one = 1.25, r;
  std::fesetround(FE_UPWARD);
  ROW(rint, d).kernels[slot(2)](1, &one, &r);
  std::fesetround(FE_TONEAREST);
  EXPECT_EQ(r, honours ? 2.0 : 1.0);
}

TEST_P(ArithEdges, NearbyIntRaisesNoInexactRintDoes) {
  double x[3] = {1.5, -2.25, 7.0}, r[3];
  std::feclearexcept(FE_ALL_EXCEPT);
  ROW(nearbyint, d).kernels[slot(2)](3, x, r);
  EXPECT_FALSE(std::fetestexcept(FE_INEXACT));
  ROW(rint, d).kernels[slot(2)](3, x, r);
  EXPECT_TRUE(std::fetestexcept(FE_INEXACT));
  std::feclearexcept(FE_ALL_EXCEPT);
}

TEST_P(ArithEdges, LinearFracConstantDenominatorNeverReadsB) {
  for (int acc = 1; acc <= 3; ++acc) {
    double a[3] = {1, 0, -1}, r[3];
    kazClearErrStatus();
    // scaleb 0 and shiftb 0: infinities and a NaN, no report; b is a null pointer.
    ROW(linearfrac, d).kernels[slot(acc)](3, a, nullptr, 2.0, 0.0, 0.0, 0.0, r);
    EXPECT_EQ(r[0], std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(r[1]));
    EXPECT_EQ(r[2], -std::numeric_limits<double>::infinity());
    EXPECT_EQ(kazGetErrStatus(), 0);
    EXPECT_EQ(t_seen.calls, 0);
    float as[2] = {1, 2}, rs[2];
    ROW(linearfrac, s).kernels[slot(acc)](2, as, nullptr, 0.0f, 3.0f, 0.0f, 2.0f, rs);
    EXPECT_EQ(rs[0], 1.5f);
    EXPECT_EQ(rs[1], 1.5f);
  }
}

// ---- floating-point environment -----------------------------------------------------------------
TEST_P(ArithEdges, CountZeroOrNegativeWritesNothing) {
  double a[2] = {1, 2}, r[2] = {7, 7};
  const unsigned csr = _mm_getcsr();
  ROW(add, d).kernels[slot(2)](0, a, a, r);
  ROW(floor, d).kernels[slot(2)](-5, a, r);
  ROW(div, d).kernels[slot(3)](-1, a, a, r);
  EXPECT_EQ(r[0], 7.0);
  EXPECT_EQ(r[1], 7.0);
  EXPECT_EQ(_mm_getcsr(), csr);
}

// A caller with flush-to-zero on and the overflow trap unmasked, without saying so in the mode
// word, gets the masked environment without flushing inside, its own settings back, and the
// flags that the real elements raised.
TEST_P(ArithEdges, CallersEnvironmentComesBackWithTheRaisedFlags) {
  const unsigned saved = _mm_getcsr();
  const unsigned caller = (saved & ~0x3Fu & ~0x0400u) | 0x8000u;  // FTZ on, overflow unmasked
  // The first product is subnormal and inexact: underflow is raised, flushing would give zero.
  double a[3] = {0x1.0000000000001p-1000, 0x1p1000, 1}, b[3] = {0x1p-60, 0x1p100, 1}, r[3];
  _mm_setcsr(caller);
  ROW(mul, d).kernels[slot(2)](3, a, b, r);
  const unsigned after = _mm_getcsr();
  _mm_setcsr(saved);
  EXPECT_NE(r[0], 0.0) << "flush-to-zero must be off inside the kernel";
  EXPECT_EQ(r[1], std::numeric_limits<double>::infinity());
  EXPECT_EQ(after & ~0x3Fu, caller & ~0x3Fu);
  EXPECT_TRUE(after & 0x08u) << "overflow flag";
  EXPECT_TRUE(after & 0x10u) << "underflow flag";
}

// Flush-to-zero and denormals-are-zero by the mode word reach the vector path and the callout.
TEST_P(ArithEdges, DenormalFieldFlushesInBlockAndCallout) {
  const unsigned old = kazSetMode(KAZ_FLUSH_DENORMALS_ON);
  double a[2] = {0x1p-1060, 0x1p-1060}, b[2] = {1.0, 0.0}, r[2];
  ROW(div, d).kernels[slot(2)](2, a, b, r);
  kazSetMode(KAZ_FLUSH_DENORMALS_OFF);
  kazSetMode(old & KAZ_FTZDAZ_MASK);
  EXPECT_EQ(r[0], 0.0);
  EXPECT_TRUE(std::isnan(r[1])) << "0/0 once the dividend reads as zero";
  EXPECT_EQ(t_seen.code, KAZ_STATUS_SING);
}

INSTANTIATE_TEST_SUITE_P(Variants, ArithEdges, ::testing::ValuesIn(tvx::test::all_variants()),
                         tvx::test::variant_name);

}  // namespace
