// The dispatch rows: their fixed cells and weights, the naming of the exports, and every cell of
// the arithmetic rows run on this processor against exact sums and differences.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "frame_support.h"
#include "tests/support/variants.h"
#include "vector/frame/rows.h"

namespace {

using tvx::test::all_marked;
using tvx::test::marked;
using tvx::test::same_bits;

struct RowView {
  std::string name, lname, type;
  std::array<std::uintptr_t, 18> cells;
  std::array<float, 18> cost;
};

template <class K>
RowView view(const char* name, const char* lname, const char* type, const tvx::frame::Row<K>& row) {
  RowView v{name, lname, type, {}, {}};
  for (int s = 0; s < 18; ++s) {
    v.cells[s] = reinterpret_cast<std::uintptr_t>(row.kernels[s]);
    v.cost[s] = row.cost[s];
  }
  return v;
}

const std::vector<RowView>& all_rows() {
  static const std::vector<RowView> rows = {
#define TVX_VFN(Name, lname, t, cls, flags, cells, costs) \
  view(#Name, #lname, #t, tvx_row_##lname##_##t),
#include "vector/frame/functions.def"
#undef TVX_VFN
  };
  return rows;
}

TEST(Rows, FixedCellsAndWeights) {
  ASSERT_FALSE(all_rows().empty());
  for (const RowView& row : all_rows()) {
    SCOPED_TRACE("v" + row.type + row.name);
    for (int s = 0; s < 18; ++s) {
      const int variant = s % 6;
      if (variant == 4) {
        EXPECT_EQ(row.cells[s], tvx::frame::kVariant4Marker) << "slot " << s;
        EXPECT_EQ(row.cost[s], 1111.0f) << "slot " << s;
        continue;
      }
      EXPECT_NE(row.cells[s], 0u) << "slot " << s;
      EXPECT_NE(row.cells[s], tvx::frame::kVariant4Marker) << "slot " << s;
      if (variant == 1) {
        EXPECT_TRUE(row.cost[s] == 3.0f || row.cost[s] == 1.0f) << "slot " << s;
      } else {
        // Cycles per element of a measured kernel.
        EXPECT_GE(row.cost[s], 0.113f) << "slot " << s;
        EXPECT_LE(row.cost[s], 1792.66f) << "slot " << s;
      }
    }
  }
}

// The lower-case form is the C form's name in lower case; the four forms and the mode, status
// and callback calls are exported from the shared library under exactly these names.
TEST(Rows, ExportedNamesFollowTheNamingRule) {
  void* lib = dlopen(TVX_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  for (const RowView& row : all_rows()) {
    std::string lower = row.name;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ(row.lname, lower);
    EXPECT_NE(std::string("sdcz").find(row.type), std::string::npos);
    EXPECT_TRUE(std::isupper(static_cast<unsigned char>(row.name[0])));
    for (const std::string& sym : {"v" + row.type + row.name, "vm" + row.type + row.name,
                                   "v" + row.type + row.lname, "vm" + row.type + row.lname}) {
      EXPECT_NE(dlsym(lib, sym.c_str()), nullptr) << sym;
    }
  }
  for (const char* sym :
       {"kazSetMode", "kazsetmode", "kazGetMode", "kazgetmode", "kazSetErrStatus",
        "kazseterrstatus", "kazGetErrStatus", "kazgeterrstatus", "kazClearErrStatus",
        "kazclearerrstatus", "kazSetErrorCallBack", "kazseterrorcallback", "kazGetErrorCallBack",
        "kazgeterrorcallback", "kazClearErrorCallBack", "kazclearerrorcallback"}) {
    EXPECT_NE(dlsym(lib, sym), nullptr) << sym;
  }
  // Internal services stay hidden.
  EXPECT_EQ(dlsym(lib, "tvx_kaz_table_slot"), nullptr);
  EXPECT_EQ(dlsym(lib, "tvx_row_add_d"), nullptr);
  dlclose(lib);
}

// ---- every cell of the arithmetic rows, per variant ------------------------------------------

// Inputs that exercise rounding, signed zeros, infinities, NaN and subnormals.
template <class T>
std::vector<T> operands(std::size_t n, unsigned seed) {
  using L = std::numeric_limits<T>;
  const T specials[] = {
      T(0),      -T(0),    L::infinity(), -L::infinity(), L::quiet_NaN(), L::denorm_min(),
      -L::min(), L::max(), -L::max(),     T(1),           L::epsilon()};
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> mant(-1.0, 1.0);
  std::uniform_int_distribution<int> expo(-40, 40);
  std::uniform_int_distribution<int> pick(0, 5);
  std::vector<T> v(n);
  std::size_t k = seed % 11;
  for (auto& x : v) {
    if (pick(gen) == 0) {
      x = specials[k++ % 11];
    } else {
      x = static_cast<T>(std::ldexp(mant(gen), expo(gen)));
    }
  }
  return v;
}

template <class T>
bool matches(T got, T want) {
  if (std::isnan(want)) return std::isnan(got);
  return same_bits(got, want);
}

constexpr int kMaxLength = 33;
constexpr int kGuard = 8;

// Runs one cell at every length 0..33, at two alignments, out of place and in place over each
// input, and compares with the exact IEEE result element by element.
template <class T>
void check_cell(void (*kernel)(int, const T*, const T*, T*), bool subtract, unsigned seed) {
  const std::size_t size = kMaxLength + kGuard + 1;
  const std::vector<T> a = operands<T>(size, seed), b = operands<T>(size, seed + 1);
  auto want = [&](std::size_t i) { return subtract ? a[i] - b[i] : a[i] + b[i]; };
  for (int offset = 0; offset < 2; ++offset) {
    for (int n = 0; n <= kMaxLength; ++n) {
      SCOPED_TRACE("n " + std::to_string(n) + " offset " + std::to_string(offset));
      std::vector<T> r = marked<T>(size);
      kernel(n, a.data() + offset, b.data() + offset, r.data() + offset);
      int wrong = 0;
      for (int i = 0; i < n; ++i) wrong += !matches(r[offset + i], want(offset + i));
      EXPECT_EQ(wrong, 0);
      EXPECT_TRUE(all_marked(r, static_cast<std::size_t>(offset + n)));
      for (int i = 0; i < offset; ++i) EXPECT_TRUE(tvx::test::is_marked(r[i]));

      std::vector<T> in_a = a, in_b = b;
      kernel(n, in_a.data() + offset, b.data() + offset, in_a.data() + offset);
      kernel(n, a.data() + offset, in_b.data() + offset, in_b.data() + offset);
      wrong = 0;
      for (int i = 0; i < n; ++i) {
        wrong += !matches(in_a[offset + i], want(offset + i));
        wrong += !matches(in_b[offset + i], want(offset + i));
      }
      EXPECT_EQ(wrong, 0) << "in place";
      for (std::size_t i = static_cast<std::size_t>(offset + n); i < size; ++i) {
        EXPECT_TRUE(same_bits(in_a[i], a[i]) && same_bits(in_b[i], b[i])) << "in place, " << i;
      }
    }
  }
}

class ArithmeticCells : public testing::TestWithParam<tvx::test::Variant> {};

TEST_P(ArithmeticCells, EveryAccuracyGivesExactResults) {
  const tvx::test::Variant& v = GetParam();
  TVX_SKIP_IF_CPU_LACKS(v);
  for (int acc = 1; acc <= 3; ++acc) {
    const int s = tvx::test::slot(v.index, acc);
    SCOPED_TRACE("slot " + std::to_string(s));
    check_cell<double>(tvx_row_add_d.kernels[s], false, 100u + s);
    check_cell<double>(tvx_row_sub_d.kernels[s], true, 200u + s);
    check_cell<float>(tvx_row_add_s.kernels[s], false, 300u + s);
    check_cell<float>(tvx_row_sub_s.kernels[s], true, 400u + s);
  }
}

INSTANTIATE_TEST_SUITE_P(Variants, ArithmeticCells, testing::ValuesIn(tvx::test::all_variants()),
                         tvx::test::variant_name);

}  // namespace
