// The special functions in the family test, from the accuracy tester's special table.
#include "tests/vector/accuracy/erfgamma.h"
#include "tests/vector/family_harness.h"

namespace tvx::family {

namespace {
// The accuracy tester measures these functions on 20000 inputs per cell; here a few hundred per
// cell guard the levels, since their MPFR truths are slow.
template <class T>
Rows<T> sampled_lightly(Rows<T> rows) {
  for (auto& r : rows) r.accuracy_points = 300;
  return rows;
}
}  // namespace

template <>
Rows<double> erfgamma_rows<double>() {
  return sampled_lightly(rows_from_table(accuracy::erfgamma_double_functions()));
}
template <>
Rows<float> erfgamma_rows<float>() {
  return sampled_lightly(rows_from_table(accuracy::erfgamma_float_functions()));
}

}  // namespace tvx::family
