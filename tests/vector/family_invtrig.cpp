// Inverse trigonometric and hyperbolic rows of the family test: the accuracy tester's table for
// the one-input functions, and Atan2 with its special pairs as cases.
#include "tests/vector/accuracy/functions_invtrig.h"
#include "tests/vector/family_harness.h"

namespace tvx::family {

template <class T>
Rows<T> invtrig_rows() {
  static const std::vector<accuracy::Function<T>> table = accuracy::invtrig_functions<T>();
  Rows<T> rows = rows_from_table(table);
  const accuracy::Function2<T> f = accuracy::atan2_function<T>();
  FamilyRow<T> r = vv_v<T>(f.name, *f.row);
  // Atan2 raises no flag but inexact and reports nothing, whatever its arguments.
  for (const accuracy::Special2& s : f.specials) {
    if (s.expected == accuracy::kByTruth) continue;
    r.cases.push_back({static_cast<T>(s.a), static_cast<T>(s.b), static_cast<T>(s.expected), 0, 0});
  }
  std::mt19937_64 rng(2024);
  for (int i = 0; i < 240; ++i) {
    double y, x;
    f.draw(rng, y, x);
    r.a.push_back(static_cast<T>(y));
    r.b.push_back(static_cast<T>(x));
  }
  for (std::size_t i = 0; i < r.a.size(); i += 3) {
    r.quiet_a.push_back(r.a[i]);
    r.quiet_b.push_back(r.b[i]);
  }
  rows.push_back(std::move(r));
  return rows;
}

template Rows<double> invtrig_rows<double>();
template Rows<float> invtrig_rows<float>();

}  // namespace tvx::family
