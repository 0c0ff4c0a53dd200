// Rows of the family test: one per function and type. A family supplies its rows; the harness
// (family_test.cpp) runs every row on every variant and accuracy level.
#pragma once

#include <cfenv>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "tests/vector/accuracy/functions.h"

namespace tvx::family {

// One call of a cell of any class, on up to two inputs and two outputs; unused ones are ignored.
template <class T>
using Call = std::function<void(int slot, int n, const T* a, const T* b, T* y, T* z)>;
// Scalar reference of an exact function.
template <class T>
using Ref = std::function<void(T a, T b, T& y, T& z)>;

inline constexpr int kUnchecked = -1;
inline constexpr int kFlags = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW | FE_UNDERFLOW;

// An input with the result, status and flags its element gives on every cell.
template <class T>
struct Case {
  T a, b;
  T want;                  // NaN: any NaN
  int status;              // what the element reports, 0 for nothing
  int flags = kUnchecked;  // among kFlags
  bool by_truth = false;   // want is the truth, met to the level's goal
  unsigned exact = 0xE;    // levels (bits 1 << level) where want is exact; the goal elsewhere
};

template <class T>
struct FamilyRow {
  std::string name;
  int inputs = 1, outputs = 1;
  Call<T> call;
  Ref<T> exact;                               // its bits on every cell not in `approx`
  std::vector<int> approx;                    // slots held to `ulps` of `exact`
  double ulps[3] = {3, 1, 0};                 // by level; 0: half the mantissa
  const accuracy::Function<T>* fn = nullptr;  // MPFR truth: the level goals on its inputs
  int accuracy_points = 3000;                 // inputs of fn sampled per cell
  bool sse2_keeps_caller_env = false;  // variants 0, 1 leave the rounding and flush bits alone
  bool flushes = true;                 // false: moves bits, which the denormal mode leaves alone
  bool noerr_in_line = false;          // the no-error mode settles overflow and underflow in line
  std::vector<Case<T>> cases;
  std::vector<T> a, b;              // run at every length, offset and mode, with the cases' inputs
  std::vector<T> quiet_a, quiet_b;  // report nothing: fillers, and inputs for `approx` accuracy
};

template <class T>
using Rows = std::vector<FamilyRow<T>>;

template <class T>
FamilyRow<T> v_v(std::string name, const frame::Row<frame::K_v_v<T>>& row) {
  FamilyRow<T> r;
  r.name = std::move(name);
  r.call = [&row](int s, int n, const T* a, const T*, T* y, T*) { row.kernels[s](n, a, y); };
  return r;
}
template <class T>
FamilyRow<T> vv_v(std::string name, const frame::Row<frame::K_vv_v<T>>& row) {
  FamilyRow<T> r;
  r.name = std::move(name);
  r.inputs = 2;
  r.call = [&row](int s, int n, const T* a, const T* b, T* y, T*) { row.kernels[s](n, a, b, y); };
  return r;
}
template <class T>
FamilyRow<T> v_vv(std::string name, const frame::Row<frame::K_v_vv<T>>& row) {
  FamilyRow<T> r;
  r.name = std::move(name);
  r.outputs = 2;
  r.call = [&row](int s, int n, const T* a, const T*, T* y, T* z) { row.kernels[s](n, a, y, z); };
  return r;
}

// The families.
template <class T>
Rows<T> exp_log_rows();
template <class T>
Rows<T> arith_rows();
template <class T>
Rows<T> pow_rows();
template <class T>
Rows<T> trig_rows();
template <class T>
Rows<T> invtrig_rows();

template <class T>
Rows<T> erfgamma_rows();

// Rows of the functions of an accuracy table: its special values become the cases, its sampler
// gives the inputs.
template <class T>
Rows<T> rows_from_table(const std::vector<accuracy::Function<T>>& fns);

}  // namespace tvx::family
