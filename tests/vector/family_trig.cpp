// Sin, Cos, Tan and SinCos rows of the family test, read from the accuracy tester's table: its
// special values become the cases, its sampler gives the inputs. The SinCos row holds its first
// output to the truth and its second to the bits of the element alone (the accuracy tester holds
// the second to its truth).
#include "tests/vector/family_harness.h"

namespace tvx::family {
namespace {

template <class T>
Rows<T> trig_rows_of() {
  static const std::vector<accuracy::Function<T>> table = accuracy::trig_functions<T>();
  const auto& sincos = *accuracy::pick<T>(&tvx_row_sincos_d, &tvx_row_sincos_s);
  Rows<T> rows;
  std::mt19937_64 rng(2026);
  for (const auto& f : table) {
    const std::string name = f.name;
    FamilyRow<T> r;
    if (name.find("SinCos(cos)") != std::string::npos) {
      continue;  // the second output rides along in the row of the first
    } else if (name.find("SinCos(sin)") != std::string::npos) {
      r = v_vv<T>(name, sincos);
    } else {
      r = v_v<T>(name, *f.row);
    }
    r.fn = &f;
    for (const accuracy::Special& s : f.specials) {
      const bool by_truth = s.expected == accuracy::kByTruth;
      const int flags = s.status == KAZ_STATUS_ERRDOM ? FE_INVALID : 0;
      r.cases.push_back({static_cast<T>(s.x), T(0), by_truth ? T(0) : static_cast<T>(s.expected),
                         s.status, flags, by_truth, s.exact});
    }
    r.a = accuracy::sample_inputs(f, 160, rng);
    for (T x : accuracy::sample_inputs(f, 200, rng)) {
      if (std::fabs(x) >= T(0x1p-30) && std::isfinite(x)) r.quiet_a.push_back(x);
    }
    rows.push_back(std::move(r));
  }
  return rows;
}

}  // namespace

template <>
Rows<double> trig_rows<double>() {
  return trig_rows_of<double>();
}
template <>
Rows<float> trig_rows<float>() {
  return trig_rows_of<float>();
}

}  // namespace tvx::family
