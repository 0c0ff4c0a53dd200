// Accuracy tester: the largest error in ulps of every one-in, one-out function of functions.h,
// for each type, accuracy level and variant the CPU runs, against MPFR; and the exact results of
// special values. The kernels are called straight from their dispatch-row cells.
//
// Usage: tvx_accuracy [--points N] [--seed S] [--markdown] [--only NAME]...
//   N inputs per function (default 20000): a quarter uniform over the function's range, a
//   quarter with a random binary exponent (both signs, down to the smallest subnormal), half
//   packed around the function's interesting points at random distances from 2^-1 to 2^-50
//   relative. Exit status 1 when any goal is missed:
//   HA below 1 ulp, LA below 4 ulps, EP at least 26 correct bits (double) or 11 (single).
//   --function (repeatable) measures only the functions named, e.g. vsLn.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/mpfr_ulp.h"
#include "support/variants.h"
#include "tests/vector/accuracy/functions.h"
#include "tests/vector/accuracy/functions_invtrig.h"
#include "tests/vector/accuracy/functions_pow.h"
#include "tests/vector/accuracy/erfgamma.h"
#include "tvx_vector.h"

namespace tvx::accuracy {
namespace {

struct Options {
  long points = 20000;
  unsigned seed = 20240611;
  bool markdown = false;
  std::vector<std::string> only;  // empty: every function; else the names containing one of these
};

bool selected(const Options& opt, const char* name) {
  if (opt.only.empty()) return true;
  for (const std::string& part : opt.only)
    if (std::strstr(name, part.c_str()) != nullptr) return true;
  return false;
}

// The exact value of one input, kept as (hi + lo) * 2^scale where 2^scale is the ulp of the
// result's type at the exact value, so that one error costs a few double operations. Exact values
// that are not finite numbers in the type's range are measured by the MPFR helper itself.
struct Exact {
  double hi = 0, lo = 0;
  long scale = 0;
  bool slow = true;
};

template <class T>
Exact exact_of(int (*f)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t), double x) {
  constexpr int kDigits = std::numeric_limits<T>::digits;
  constexpr long kMinExp = std::numeric_limits<T>::min_exponent - 1;
  constexpr long kMaxExp = std::numeric_limits<T>::max_exponent - 1;
  Exact e;
  mpfr_t mx, v, rest;
  mpfr_inits2(200, mx, v, rest, static_cast<mpfr_ptr>(nullptr));
  mpfr_set_d(mx, x, MPFR_RNDN);
  f(v, mx, MPFR_RNDN);
  if (mpfr_number_p(v) && !mpfr_zero_p(v) && mpfr_get_exp(v) - 1 <= kMaxExp) {
    const long exp2 = std::max<long>(mpfr_get_exp(v) - 1, kMinExp);
    e.scale = exp2 - kDigits + 1;
    mpfr_mul_2si(v, v, -e.scale, MPFR_RNDN);
    e.hi = mpfr_get_d(v, MPFR_RNDN);
    mpfr_sub_d(rest, v, e.hi, MPFR_RNDN);
    e.lo = mpfr_get_d(rest, MPFR_RNDN);
    e.slow = false;
  }
  mpfr_clears(mx, v, rest, static_cast<mpfr_ptr>(nullptr));
  return e;
}

template <class T>
double error_of(const Function<T>& f, const Exact& e, T x, T y) {
  if (e.slow) return tvx::test::ulp_error<T>(f.truth, x, y);
  const double scaled = std::ldexp(static_cast<double>(y), static_cast<int>(-e.scale));
  const double err = std::fabs((scaled - e.hi) - e.lo);
  return std::isnan(err) ? std::numeric_limits<double>::infinity() : err;
}

template <class T>
int run_type(const std::vector<Function<T>>& fns, const Options& opt, std::FILE* out) {
  constexpr int kDigits = std::numeric_limits<T>::digits;
  constexpr int kEpBits = sizeof(T) == 8 ? 26 : 11;
  static const char* kLevel[] = {"LA", "HA", "EP"};
  int failures = 0;
  for (const Function<T>& f : fns) {
    if (!selected(opt, f.name)) continue;
    std::mt19937_64 rng(opt.seed);
    const std::vector<T> in = sample_inputs(f, opt.points, rng);
    std::vector<T> res(in.size());
    std::vector<Exact> exact(in.size());
    for (size_t i = 0; i < in.size(); ++i) exact[i] = exact_of<T>(f.truth, in[i]);
    for (int level = 1; level <= 3; ++level) {
      for (const tvx::test::Variant& v : tvx::test::all_variants()) {
        if (const char* missing = tvx::test::lacks(v)) {
          std::fprintf(out, "| %s | %s | %s | skipped: CPU lacks %s | | |\n", f.name,
                       kLevel[level - 1], v.name, missing);
          continue;
        }
        const auto kernel = f.row->kernels[tvx::test::slot(v.index, level)];
        kernel(static_cast<int>(in.size()), in.data(), res.data());
        double worst = 0.0;
        double worst_x = 0.0;
        for (size_t i = 0; i < in.size(); ++i) {
          const double e = error_of(f, exact[i], in[i], res[i]);
          if (e > worst || std::isnan(e)) {
            worst = e;
            worst_x = in[i];
          }
        }
        int bad_specials = 0;
        for (const Special& s : f.specials) {
          const T x = static_cast<T>(s.x);
          T y;
          kernel(1, &x, &y);
          if (!special_met(f, s, level, y)) {
            ++bad_specials;
            std::fprintf(stderr, "%s %s %s: f(%a) = %a, want %a\n", f.name, kLevel[level - 1],
                         v.name, s.x, static_cast<double>(y), s.expected);
          }
        }
        char goal[32];
        if (level == 3) {
          std::snprintf(goal, sizeof goal, ">= %d bits", kEpBits);
        } else {
          std::snprintf(goal, sizeof goal, "< %d ulp%s", level == 1 ? 4 : 1, level == 1 ? "s" : "");
        }
        const bool ok = meets_goal<T>(level, worst) && bad_specials == 0;
        if (!ok) ++failures;
        std::fprintf(out, "| %s | %s | %s | %.3f | %.1f | %s | %s%s |\n", f.name, kLevel[level - 1],
                     v.name, worst, std::min<double>(kDigits, tvx::test::correct_bits<T>(worst)),
                     goal, ok ? "met" : "MISSED", bad_specials ? " (special values wrong)" : "");
        if (!ok)
          std::fprintf(stderr, "%s %s %s: worst %.3f ulps at %a\n", f.name, kLevel[level - 1],
                       v.name, worst, worst_x);
      }
    }
  }
  return failures;
}

// The two-input functions, in the same table form.
template <class T>
int run_pairs(const std::vector<Function2<T>>& fns, const Options& opt, std::FILE* out) {
  constexpr int kDigits = std::numeric_limits<T>::digits;
  static const char* kLevel[] = {"LA", "HA", "EP"};
  int failures = 0;
  for (const Function2<T>& f : fns) {
    if (!selected(opt, f.name)) continue;
    std::mt19937_64 rng(opt.seed);
    std::vector<T> a(static_cast<size_t>(opt.points)), b(a.size()), res(a.size());
    for (size_t i = 0; i < a.size(); ++i) {
      double x, y;
      f.draw(rng, x, y);
      a[i] = static_cast<T>(x), b[i] = static_cast<T>(y);
    }
    for (int level = 1; level <= 3; ++level) {
      for (const tvx::test::Variant& v : tvx::test::all_variants()) {
        if (const char* missing = tvx::test::lacks(v)) {
          std::fprintf(out, "| %s | %s | %s | skipped: CPU lacks %s | | |\n", f.name,
                       kLevel[level - 1], v.name, missing);
          continue;
        }
        const auto kernel = f.row->kernels[tvx::test::slot(v.index, level)];
        kernel(static_cast<int>(a.size()), a.data(), b.data(), res.data());
        double worst = 0.0;
        size_t at = 0;
        for (size_t i = 0; i < a.size(); ++i) {
          const double e = ulp_error2<T>(f.truth, a[i], b[i], res[i]);
          if (e > worst || std::isnan(e)) worst = e, at = i;
        }
        int bad_specials = 0;
        for (const Special2& s : f.specials) {
          const T x = static_cast<T>(s.a), z = static_cast<T>(s.b);
          T y;
          kernel(1, &x, &z, &y);
          if (!special2_met(f, s, level, y)) {
            ++bad_specials;
            std::fprintf(stderr, "%s %s %s: f(%a, %a) = %a, want %a\n", f.name, kLevel[level - 1],
                         v.name, s.a, s.b, static_cast<double>(y), s.expected);
          }
        }
        const bool ok = meets_goal<T>(level, worst) && bad_specials == 0;
        if (!ok) ++failures;
        std::fprintf(out, "| %s | %s | %s | %.3f | %.1f | %s | %s%s |\n", f.name, kLevel[level - 1],
                     v.name, worst, std::min<double>(kDigits, tvx::test::correct_bits<T>(worst)),
                     level == 3 ? (kDigits == 53 ? ">= 26 bits" : ">= 11 bits")
                                : (level == 1 ? "< 4 ulps" : "< 1 ulp"),
                     ok ? "met" : "MISSED", bad_specials ? " (special values wrong)" : "");
        if (!ok)
          std::fprintf(stderr, "%s %s %s: worst %.3f ulps at (%a, %a)\n", f.name, kLevel[level - 1],
                       v.name, worst, static_cast<double>(a[at]), static_cast<double>(b[at]));
      }
    }
  }
  return failures;
}

}  // namespace
}  // namespace tvx::accuracy

int main(int argc, char** argv) {
  tvx::accuracy::Options opt;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--points") == 0 && i + 1 < argc) {
      opt.points = std::atol(argv[++i]);
    } else if (std::strcmp(argv[i], "--seed") == 0 && i + 1 < argc) {
      opt.seed = static_cast<unsigned>(std::atol(argv[++i]));
    } else if (std::strcmp(argv[i], "--markdown") == 0) {
      opt.markdown = true;
    } else if ((std::strcmp(argv[i], "--only") == 0 || std::strcmp(argv[i], "--function") == 0) &&
               i + 1 < argc) {
      opt.only.emplace_back(argv[++i]);
    } else {
      std::fprintf(stderr,
                   "usage: tvx_accuracy [--points N] [--seed S] [--markdown] [--only NAME]...\n");
      return 2;
    }
  }
  if (opt.points < 1 || opt.points > (1L << 30)) {
    std::fprintf(stderr, "--points must be between 1 and 2^30\n");
    return 2;
  }
  // Bad elements are reported but must not print or stop anything.
  kazSetMode(KAZ_ERRMODE_IGNORE);
  std::printf("| Function | Level | Variant | Max error (ulps) | Correct bits | Goal | |\n");
  std::printf("|---|---|---|---|---|---|---|\n");
  int failures = tvx::accuracy::run_type(tvx::accuracy::double_functions(), opt, stdout);
  failures += tvx::accuracy::run_type(tvx::accuracy::float_functions(), opt, stdout);
  failures += tvx::accuracy::run_type(tvx::accuracy::root_functions<double>(), opt, stdout);
  failures += tvx::accuracy::run_type(tvx::accuracy::root_functions<float>(), opt, stdout);
  failures += tvx::accuracy::run_pairs(tvx::accuracy::pair_functions<double>(), opt, stdout);
  failures += tvx::accuracy::run_pairs(tvx::accuracy::pair_functions<float>(), opt, stdout);
  failures += tvx::accuracy::run_type(tvx::accuracy::trig_functions<double>(), opt, stdout);
  failures += tvx::accuracy::run_type(tvx::accuracy::trig_functions<float>(), opt, stdout);
  failures += tvx::accuracy::run_type(tvx::accuracy::invtrig_functions<double>(), opt, stdout);
  failures += tvx::accuracy::run_type(tvx::accuracy::invtrig_functions<float>(), opt, stdout);
  failures +=
      tvx::accuracy::run_pairs(std::vector{tvx::accuracy::atan2_function<double>()}, opt, stdout);
  failures +=
      tvx::accuracy::run_pairs(std::vector{tvx::accuracy::atan2_function<float>()}, opt, stdout);
  failures += tvx::accuracy::run_type(tvx::accuracy::erfgamma_double_functions(), opt, stdout);
  failures += tvx::accuracy::run_type(tvx::accuracy::erfgamma_float_functions(), opt, stdout);
  std::printf("\n%ld inputs per function, seed %u: %s\n", opt.points, opt.seed,
              failures == 0 ? "all goals met" : "GOALS MISSED");
  return failures == 0 ? 0 : 1;
}
