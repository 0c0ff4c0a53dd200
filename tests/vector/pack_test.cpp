// Pack and unpack: the argument checks of all 24 exports in their four forms, and every kernel of
// the move rows on each variant against a plain reference loop, with the round trip restoring the
// selected elements and leaving the others untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "frame_support.h"
#include "runtime/settings.h"
#include "tests/support/variants.h"
#include "tvx_vector.h"
#include "vector/frame/rows.h"

namespace {

using tvx::test::all_marked;
using tvx::test::marked;
using tvx::test::parameter_line;
using tvx::test::stdout_of;

// ---- argument checks
// -----------------------------------------------------------------------------

// One export in its four forms: form 0 C, 1 mode, 2 lower case, 3 lower-case mode. `x` is the
// index or mask vector (the increment forms pass 1).
using Caller = void (*)(int form, int n, const void* a, const int* x, void* y, unsigned mode);

#define TVX_FORMS(c, m, lc, lm, args, largs) \
  switch (form) {                            \
    case 0:                                  \
      c args;                                \
      break;                                 \
    case 1:                                  \
      m(TVX_EXPAND args, mode);              \
      break;                                 \
    case 2:                                  \
      lc largs;                              \
      break;                                 \
    default:                                 \
      lm(TVX_EXPAND largs, &mode);           \
  }
#define TVX_MOVE_P_I(t, N, l) \
  TVX_FORMS(v##t##N, vm##t##N, v##t##l, vm##t##l, (n, a, inc, y), (&n, a, &inc, y))
#define TVX_MOVE_P_V(t, N, l) \
  TVX_FORMS(v##t##N, vm##t##N, v##t##l, vm##t##l, (n, a, x, y), (&n, a, x, y))
#define TVX_MOVE_U_I(t, N, l) \
  TVX_FORMS(v##t##N, vm##t##N, v##t##l, vm##t##l, (n, a, y, inc), (&n, a, y, &inc))
#define TVX_MOVE_U_V(t, N, l) \
  TVX_FORMS(v##t##N, vm##t##N, v##t##l, vm##t##l, (n, a, y, x), (&n, a, y, x))
#define TVX_CALLER(t, N, l, kind)                                              \
  [](int form, int n, const void* av, const int* x, void* yv, unsigned mode) { \
    const auto* a = static_cast<const TVX_T_##t*>(av);                         \
    auto* y = static_cast<TVX_T_##t*>(yv);                                     \
    const int inc = 1;                                                         \
    (void)x;                                                                   \
    (void)inc;                                                                 \
    TVX_MOVE_##kind(t, N, l)                                                   \
  }

// Parameter numbers of a, the index or mask vector (0: none) and y.
struct Move {
  const char* name;
  Caller call;
  int pos_a, pos_x, pos_y;
};

#define TVX_MOVES_OF(t)                                                             \
  Move{"v" #t "PackI", TVX_CALLER(t, PackI, packi, P_I), 2, 0, 4},                  \
      Move{"v" #t "PackV", TVX_CALLER(t, PackV, packv, P_V), 2, 3, 4},              \
      Move{"v" #t "PackM", TVX_CALLER(t, PackM, packm, P_V), 2, 3, 4},              \
      Move{"v" #t "UnpackI", TVX_CALLER(t, UnpackI, unpacki, U_I), 2, 0, 3},        \
      Move{"v" #t "UnpackV", TVX_CALLER(t, UnpackV, unpackv, U_V), 2, 4, 3}, Move { \
    "v" #t "UnpackM", TVX_CALLER(t, UnpackM, unpackm, U_V), 2, 4, 3                 \
  }

const Move kMoves[] = {TVX_MOVES_OF(s), TVX_MOVES_OF(d), TVX_MOVES_OF(c), TVX_MOVES_OF(z)};

// Which arguments are null, and the check that must answer: n first, then the inputs left to
// right (a, then the index or mask vector), then y.
struct Fault {
  int n;
  bool a, x, y;  // true: null
  enum { kNone, kN, kA, kX, kY } expect;
};
const Fault kFaults[] = {
    {-1, true, true, true, Fault::kN},   {-5, false, false, false, Fault::kN},
    {0, true, true, true, Fault::kNone}, {4, true, true, true, Fault::kA},
    {4, false, true, true, Fault::kX},   {4, false, false, true, Fault::kY},
    {4, false, true, false, Fault::kX},
};

TEST(PackChecks, EveryExportReportsTheFirstBadArgument) {
  tvx::test::on_fresh_thread([] {
    const std::vector<double> a(8, 1.0);
    const std::vector<int> x(8, 1);
    for (const Move& mv : kMoves) {
      for (const Fault& f : kFaults) {
        // An increment form has no vector to be null: the fault then falls through to y.
        if (mv.pos_x == 0 && f.expect == Fault::kX && !f.y) continue;
        int pos = 0, status = KAZ_STATUS_BADMEM;
        switch (f.expect) {
          case Fault::kNone:
            break;
          case Fault::kN:
            pos = 1;
            status = KAZ_STATUS_BADSIZE;
            break;
          case Fault::kA:
            pos = mv.pos_a;
            break;
          case Fault::kX:
            pos = mv.pos_x != 0 ? mv.pos_x : mv.pos_y;
            break;
          case Fault::kY:
            pos = mv.pos_y;
            break;
        }
        for (int form = 0; form < 4; ++form) {
          SCOPED_TRACE(std::string(mv.name) + " form " + std::to_string(form) + " n " +
                       std::to_string(f.n) + " expecting parameter " + std::to_string(pos));
          std::vector<TvxComplex16> y = marked<TvxComplex16>(8);
          kazSetErrStatus(4321);
          const unsigned int word = kazGetMode();
          const std::string out = stdout_of([&] {
            mv.call(form, f.n, f.a ? nullptr : a.data(), f.x ? nullptr : x.data(),
                    f.y ? nullptr : y.data(), KAZ_EP | KAZ_FLUSH_DENORMALS_ON);
          });
          EXPECT_EQ(out, pos == 0 ? "" : parameter_line(pos, mv.name));
          EXPECT_EQ(kazGetErrStatus(), pos == 0 ? 4321 : status);
          EXPECT_EQ(kazGetMode(), word);
          EXPECT_TRUE(all_marked(y));
        }
      }
    }
  });
}

// ---- kernels on every variant, against reference loops ------------------------------------------

// Random bit patterns (NaN payloads and signalling NaNs included): a move must keep every bit.
template <class T>
std::vector<T> random_bits(std::size_t n, unsigned seed) {
  std::vector<T> v(n);
  std::mt19937 gen(seed);
  std::vector<std::uint32_t> words(n * sizeof(T) / 4);
  for (auto& w : words) w = gen();
  if (n > 0) std::memcpy(static_cast<void*>(v.data()), words.data(), n * sizeof(T));
  return v;
}

template <class T>
bool same(const std::vector<T>& x, const std::vector<T>& y) {
  return x.size() == y.size() &&
         (x.empty() || std::memcmp(x.data(), y.data(), x.size() * sizeof(T)) == 0);
}

template <class T>
struct MoveRows {
  const tvx::frame::Row<tvx::frame::K_pack_i<T>>& pack_i;
  const tvx::frame::Row<tvx::frame::K_pack_v<T>>& pack_v;
  const tvx::frame::Row<tvx::frame::K_pack_v<T>>& pack_m;
  const tvx::frame::Row<tvx::frame::K_unpack_i<T>>& unpack_i;
  const tvx::frame::Row<tvx::frame::K_unpack_v<T>>& unpack_v;
  const tvx::frame::Row<tvx::frame::K_unpack_v<T>>& unpack_m;
};
#define TVX_MOVE_ROWS(t)                                                          \
  MoveRows<TVX_T_##t> {                                                           \
    tvx_row_packi_##t, tvx_row_packv_##t, tvx_row_packm_##t, tvx_row_unpacki_##t, \
        tvx_row_unpackv_##t, tvx_row_unpackm_##t                                  \
  }

constexpr int kGuard = 5;

// Lengths 0 to 33 (every tail of every register width) and about 10^6: one past 2^20, so that the
// destination of every type is long enough for the non-temporal stores.
const int kLengths[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16,     17,
                        18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 1048581};

// The mask of length n: kind 0 all zero, 1 all set (with assorted non-zero values), 2 random.
std::vector<int> mask(int n, int kind, unsigned seed) {
  std::mt19937 gen(seed);
  std::vector<int> m(static_cast<std::size_t>(n));
  for (int& v : m) {
    const int r = static_cast<int>(gen() % 7) - 3;
    v = kind == 0 ? 0 : kind == 1 ? (r == 0 ? 1 : r) : r * (r & 1);
  }
  return m;
}

template <class T>
void check_moves(const MoveRows<T>& rows, int slot) {
  for (int n : kLengths) {
    SCOPED_TRACE("n " + std::to_string(n) + " element " + std::to_string(sizeof(T)));
    const std::size_t sz = static_cast<std::size_t>(n);
    // Increments 2, 1, -1 (the source pointer at its last element) and 0 (pack only).
    for (int inc : {2, 1, -1, 0}) {
      SCOPED_TRACE("increment " + std::to_string(inc));
      const std::size_t span = sz * static_cast<std::size_t>(inc == 0 ? 1 : std::abs(inc)) + 1;
      const std::vector<T> src = random_bits<T>(span, 7u + static_cast<unsigned>(n));
      const long base = inc < 0 ? static_cast<long>(span) - 1 : 0;
      std::vector<T> y = marked<T>(sz + kGuard), want_y = y;
      if (n > 0) rows.pack_i.kernels[slot](n, src.data() + base, inc, y.data());
      for (long i = 0; i < n; ++i) want_y[i] = src[base + i * inc];
      ASSERT_TRUE(same(y, want_y));
      if (inc == 0) continue;
      // Unpacking restores the selected places and leaves the others marked.
      std::vector<T> back = marked<T>(span), want_back = back;
      if (n > 0) rows.unpack_i.kernels[slot](n, y.data(), back.data() + base, inc);
      for (long i = 0; i < n; ++i) want_back[base + i * inc] = src[base + i * inc];
      ASSERT_TRUE(same(back, want_back));
    }
    // Index vectors with repeats: the later element wins on unpack.
    {
      const std::vector<T> src = random_bits<T>(sz + 1, 11u + static_cast<unsigned>(n));
      std::mt19937 gen(5u + static_cast<unsigned>(n));
      std::vector<int> ix(sz);
      for (int& v : ix) v = static_cast<int>(gen() % (sz / 2 + 1));
      std::vector<T> y = marked<T>(sz + kGuard), want_y = y;
      if (n > 0) rows.pack_v.kernels[slot](n, src.data(), ix.data(), y.data());
      for (std::size_t i = 0; i < sz; ++i) want_y[i] = src[static_cast<std::size_t>(ix[i])];
      ASSERT_TRUE(same(y, want_y));
      const std::vector<T> other = random_bits<T>(sz, 13u);
      std::vector<T> back = marked<T>(sz + 1), want_back = back;
      if (n > 0) rows.unpack_v.kernels[slot](n, other.data(), back.data(), ix.data());
      for (std::size_t i = 0; i < sz; ++i) want_back[static_cast<std::size_t>(ix[i])] = other[i];
      ASSERT_TRUE(same(back, want_back));
    }
    // Masks all zero, all set and random.
    for (int kind = 0; kind < 3; ++kind) {
      SCOPED_TRACE("mask kind " + std::to_string(kind));
      const std::vector<T> src = random_bits<T>(sz, 17u + static_cast<unsigned>(n));
      const std::vector<int> m = mask(n, kind, 19u + static_cast<unsigned>(n));
      std::vector<T> y = marked<T>(sz + kGuard), want_y = y;
      if (n > 0) rows.pack_m.kernels[slot](n, src.data(), m.data(), y.data());
      std::size_t k = 0;
      for (std::size_t i = 0; i < sz; ++i) {
        if (m[i] != 0) want_y[k++] = src[i];
      }
      ASSERT_TRUE(same(y, want_y));
      std::vector<T> back = marked<T>(sz + kGuard), want_back = back;
      if (n > 0) rows.unpack_m.kernels[slot](n, y.data(), back.data(), m.data());
      for (std::size_t i = 0; i < sz; ++i) {
        if (m[i] != 0) want_back[i] = src[i];
      }
      ASSERT_TRUE(same(back, want_back));
    }
  }
}

class MoveCells : public testing::TestWithParam<tvx::test::Variant> {};

TEST_P(MoveCells, RoundTripsMatchTheReferenceLoops) {
  const tvx::test::Variant& v = GetParam();
  TVX_SKIP_IF_CPU_LACKS(v);
  const int slot = tvx::test::slot(v.index, 2);
  check_moves(TVX_MOVE_ROWS(s), slot);
  check_moves(TVX_MOVE_ROWS(d), slot);
  check_moves(TVX_MOVE_ROWS(c), slot);
  check_moves(TVX_MOVE_ROWS(z), slot);
}

INSTANTIATE_TEST_SUITE_P(Variants, MoveCells, testing::ValuesIn(tvx::test::all_variants()),
                         tvx::test::variant_name);

// The exports on a team of two: pieces of the increment and index forms are cut by the threader,
// the mask forms find their dense side from the counts of the earlier pieces.
TEST(PackTeam, ThreadedExportsMatchTheKernelOnOneThread) {
  tvx_set_dynamic(0);
  tvx_set_num_threads(2);
  const int n = 1000003;
  const std::size_t sz = n;
  const std::vector<double> src = random_bits<double>(2 * sz + 1, 23u);
  const std::vector<int> m = mask(n, 2, 29u);
  std::vector<int> ix(sz);
  for (std::size_t i = 0; i < sz; ++i) ix[i] = static_cast<int>((i * 7919) % sz);
  const int slot = tvx::test::slot(0, 2);

  std::vector<double> got = marked<double>(2 * sz + 1), want = got;
  vdPackI(n, src.data() + 2 * sz, -2, got.data());
  tvx_row_packi_d.kernels[slot](n, src.data() + 2 * sz, -2, want.data());
  EXPECT_TRUE(same(got, want));
  vdUnpackI(n, src.data(), got.data() + 2 * sz, -2);
  tvx_row_unpacki_d.kernels[slot](n, src.data(), want.data() + 2 * sz, -2);
  EXPECT_TRUE(same(got, want));
  vdPackV(n, src.data(), ix.data(), got.data());
  tvx_row_packv_d.kernels[slot](n, src.data(), ix.data(), want.data());
  EXPECT_TRUE(same(got, want));
  vdUnpackV(n, src.data(), got.data(), ix.data());
  tvx_row_unpackv_d.kernels[slot](n, src.data(), want.data(), ix.data());
  EXPECT_TRUE(same(got, want));
  vdPackM(n, src.data(), m.data(), got.data());
  tvx_row_packm_d.kernels[slot](n, src.data(), m.data(), want.data());
  EXPECT_TRUE(same(got, want));
  vdUnpackM(n, src.data(), got.data(), m.data());
  tvx_row_unpackm_d.kernels[slot](n, src.data(), want.data(), m.data());
  EXPECT_TRUE(same(got, want));
  tvx_set_num_threads(0);
}

}  // namespace
