// Exp, Expm1, Ln, Log10 and Log1p rows of the family test, read from the accuracy tester's table:
// its special values become the cases, its sampler gives the inputs. Other families with rows in
// an accuracy table build theirs with rows_from_table too.
#include <deque>

#include "tests/vector/family_harness.h"

namespace tvx::family {
namespace {

int flag_of(int status) {
  switch (status) {
    case KAZ_STATUS_ERRDOM:
      return FE_INVALID;
    case KAZ_STATUS_SING:
      return FE_DIVBYZERO;
    case KAZ_STATUS_OVERFLOW:
      return FE_OVERFLOW;
    case KAZ_STATUS_UNDERFLOW:
      return FE_UNDERFLOW;
    default:
      return 0;
  }
}

// Whether x is moderate and its truth a normal number of T: such an element reports nothing and
// raises no flag but inexact.
template <class T>
bool quiet(const accuracy::Function<T>& f, T x) {
  if (!(std::fabs(x) >= 0x1p-30 && std::fabs(x) <= 0x1p30)) return false;
  mpfr_t mx, y;
  mpfr_inits2(64, mx, y, static_cast<mpfr_ptr>(nullptr));
  mpfr_set_d(mx, x, MPFR_RNDN);
  f.truth(y, mx, MPFR_RNDN);
  const double v = std::fabs(mpfr_get_d(y, MPFR_RNDN));
  mpfr_clears(mx, y, static_cast<mpfr_ptr>(nullptr));
  return v >= std::numeric_limits<T>::min() && v <= std::numeric_limits<T>::max();
}

}  // namespace

template <class T>
Rows<T> rows_from_table(const std::vector<accuracy::Function<T>>& fns) {
  // The rows point into their table for as long as the test runs (a deque keeps its elements in
  // place as it grows).
  static std::deque<std::vector<accuracy::Function<T>>> tables;
  const auto& table = tables.emplace_back(fns);
  Rows<T> rows;
  std::mt19937_64 rng(2024);
  for (const auto& f : table) {
    FamilyRow<T> r = v_v<T>(f.name, *f.row);
    r.fn = &f;
    r.noerr_in_line = std::string(f.name).find("Exp") != std::string::npos;
    for (const accuracy::Special& s : f.specials) {
      const bool by_truth = s.expected == accuracy::kByTruth;
      r.cases.push_back({static_cast<T>(s.x), T(0), by_truth ? T(0) : static_cast<T>(s.expected),
                         s.status, flag_of(s.status), by_truth, s.exact});
    }
    r.a = accuracy::sample_inputs(f, 160, rng);
    for (T x : accuracy::sample_inputs(f, 400, rng)) {
      if (quiet(f, x)) r.quiet_a.push_back(x);
    }
    rows.push_back(std::move(r));
  }
  return rows;
}
template Rows<double> rows_from_table(const std::vector<accuracy::Function<double>>&);
template Rows<float> rows_from_table(const std::vector<accuracy::Function<float>>&);

template <>
Rows<double> exp_log_rows<double>() {
  return rows_from_table(accuracy::double_functions());
}
template <>
Rows<float> exp_log_rows<float>() {
  return rows_from_table(accuracy::float_functions());
}

}  // namespace tvx::family
