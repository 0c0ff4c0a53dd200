// Writes the constants of the inverse trigonometric and hyperbolic kernels, computed with MPFR:
// the reference values atan(c) of the arctangent intervals in two parts, pi and pi/2 in two
// parts, and the polynomial coefficients of the odd short-argument forms f(x) = x + x^3 g(x^2).
//
// Usage: gen_invtrig_tables <output .inc>      writes the file
//        gen_invtrig_tables --errors            prints the error of every fit for 3..16 terms
//
// Each g is interpolated at the Chebyshev nodes of its interval of s = x^2 in 512-bit arithmetic
// (near-minimax for these analytic functions); the coefficients are then rounded to double and
// the largest relative error of the rounded polynomial against g is measured on a dense grid and
// written beside them.
#include <mpfr.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr mpfr_prec_t kPrec = 512;

struct M {
  mpfr_t v;
  M() { mpfr_init2(v, kPrec); }
  explicit M(double d) {
    mpfr_init2(v, kPrec);
    mpfr_set_d(v, d, MPFR_RNDN);
  }
  M(const M& o) {
    mpfr_init2(v, kPrec);
    mpfr_set(v, o.v, MPFR_RNDN);
  }
  M& operator=(const M& o) {
    mpfr_set(v, o.v, MPFR_RNDN);
    return *this;
  }
  ~M() { mpfr_clear(v); }
};

enum class Fn { kAtan, kAsin, kSinh, kTanh, kAsinh, kAtanh };

// f(sqrt s) for s > 0.
void f_of(Fn fn, M& y, const M& x) {
  switch (fn) {
    case Fn::kAtan:
      mpfr_atan(y.v, x.v, MPFR_RNDN);
      break;
    case Fn::kAsin:
      mpfr_asin(y.v, x.v, MPFR_RNDN);
      break;
    case Fn::kSinh:
      mpfr_sinh(y.v, x.v, MPFR_RNDN);
      break;
    case Fn::kTanh:
      mpfr_tanh(y.v, x.v, MPFR_RNDN);
      break;
    case Fn::kAsinh:
      mpfr_asinh(y.v, x.v, MPFR_RNDN);
      break;
    case Fn::kAtanh:
      mpfr_atanh(y.v, x.v, MPFR_RNDN);
      break;
  }
}

// g(s) = (f(x) - x) / x^3 with x = sqrt(s), s > 0.
M g_of(Fn fn, const M& s) {
  M x, y, x3;
  mpfr_sqrt(x.v, s.v, MPFR_RNDN);
  f_of(fn, y, x);
  mpfr_sub(y.v, y.v, x.v, MPFR_RNDN);
  mpfr_mul(x3.v, x.v, s.v, MPFR_RNDN);
  mpfr_div(y.v, y.v, x3.v, MPFR_RNDN);
  return y;
}

// Solves a dense system in place by Gaussian elimination with partial pivoting.
std::vector<M> solve(std::vector<std::vector<M>> a, std::vector<M> b) {
  const size_t n = b.size();
  M t, f;
  for (size_t c = 0; c < n; ++c) {
    size_t p = c;
    for (size_t i = c + 1; i < n; ++i) {
      if (mpfr_cmpabs(a[i][c].v, a[p][c].v) > 0) p = i;
    }
    std::swap(a[c], a[p]);
    std::swap(b[c], b[p]);
    for (size_t i = c + 1; i < n; ++i) {
      mpfr_div(f.v, a[i][c].v, a[c][c].v, MPFR_RNDN);
      for (size_t j = c; j < n; ++j) {
        mpfr_mul(t.v, f.v, a[c][j].v, MPFR_RNDN);
        mpfr_sub(a[i][j].v, a[i][j].v, t.v, MPFR_RNDN);
      }
      mpfr_mul(t.v, f.v, b[c].v, MPFR_RNDN);
      mpfr_sub(b[i].v, b[i].v, t.v, MPFR_RNDN);
    }
  }
  std::vector<M> x(n);
  for (size_t i = n; i-- > 0;) {
    M acc(b[i]);
    for (size_t j = i + 1; j < n; ++j) {
      mpfr_mul(t.v, a[i][j].v, x[j].v, MPFR_RNDN);
      mpfr_sub(acc.v, acc.v, t.v, MPFR_RNDN);
    }
    mpfr_div(x[i].v, acc.v, a[i][i].v, MPFR_RNDN);
  }
  return x;
}

// Coefficients (lowest first, rounded to double) of the polynomial of n terms through g at the
// n Chebyshev nodes of [0, hi].
std::vector<double> fit(Fn fn, double hi, int n) {
  std::vector<std::vector<M>> a(static_cast<size_t>(n), std::vector<M>(static_cast<size_t>(n)));
  std::vector<M> b(static_cast<size_t>(n));
  M pi, s, t;
  mpfr_const_pi(pi.v, MPFR_RNDN);
  for (int i = 0; i < n; ++i) {
    // s_i = hi/2 (1 - cos((2i + 1) pi / 2n))
    mpfr_mul_si(t.v, pi.v, 2 * i + 1, MPFR_RNDN);
    mpfr_div_si(t.v, t.v, 2 * n, MPFR_RNDN);
    mpfr_cos(t.v, t.v, MPFR_RNDN);
    mpfr_si_sub(t.v, 1, t.v, MPFR_RNDN);
    mpfr_mul_d(s.v, t.v, hi / 2, MPFR_RNDN);
    M p(1.0);
    for (int j = 0; j < n; ++j) {
      a[static_cast<size_t>(i)][static_cast<size_t>(j)] = p;
      mpfr_mul(p.v, p.v, s.v, MPFR_RNDN);
    }
    b[static_cast<size_t>(i)] = g_of(fn, s);
  }
  const std::vector<M> c = solve(a, b);
  std::vector<double> out;
  for (const M& m : c) out.push_back(mpfr_get_d(m.v, MPFR_RNDN));
  return out;
}

// Largest relative error of the rounded polynomial against g on [0, hi], as a power of two.
double error_bits(Fn fn, double hi, const std::vector<double>& c) {
  double worst = 0;
  M s, p, t, g;
  for (int i = 1; i <= 4000; ++i) {
    mpfr_set_d(s.v, hi * i / 4000.0, MPFR_RNDN);
    mpfr_set_d(p.v, c.back(), MPFR_RNDN);
    for (size_t k = c.size() - 1; k-- > 0;) {
      mpfr_mul(p.v, p.v, s.v, MPFR_RNDN);
      mpfr_add_d(p.v, p.v, c[k], MPFR_RNDN);
    }
    g = g_of(fn, s);
    mpfr_sub(t.v, p.v, g.v, MPFR_RNDN);
    mpfr_div(t.v, t.v, g.v, MPFR_RNDN);
    const double e = std::fabs(mpfr_get_d(t.v, MPFR_RNDN));
    if (e > worst) worst = e;
  }
  return worst == 0 ? -200.0 : std::log2(worst);
}

struct Fit {
  const char* name;
  const char* what;
  Fn fn;
  double hi;  // interval [0, hi] of s = x^2
  int terms;
};

// The fits used by the kernels. HA and LA share a fit where one is good enough for both.
const Fit kFits[] = {
    {"kAtanPolyHa", "(atan(x) - x) / x^3", Fn::kAtan, 0.19140625, 12},
    {"kAtanPolyLa", "(atan(x) - x) / x^3", Fn::kAtan, 0.19140625, 10},
    {"kAtanPolyEp", "(atan(x) - x) / x^3", Fn::kAtan, 0.19140625, 6},
    {"kAsinPolyHa", "(asin(x) - x) / x^3", Fn::kAsin, 0.25, 14},
    {"kAsinPolyLa", "(asin(x) - x) / x^3", Fn::kAsin, 0.25, 12},
    {"kAsinPolyEp", "(asin(x) - x) / x^3", Fn::kAsin, 0.25, 7},
    {"kSinhPolyHa", "(sinh(x) - x) / x^3", Fn::kSinh, 1.0, 7},
    {"kSinhPolyLa", "(sinh(x) - x) / x^3", Fn::kSinh, 1.0, 6},
    {"kSinhPolyEp", "(sinh(x) - x) / x^3", Fn::kSinh, 1.0, 4},
    {"kTanhPolyHa", "(tanh(x) - x) / x^3", Fn::kTanh, 0.390625, 12},
    {"kTanhPolyLa", "(tanh(x) - x) / x^3", Fn::kTanh, 0.390625, 11},
    {"kTanhPolyEp", "(tanh(x) - x) / x^3", Fn::kTanh, 0.390625, 6},
    {"kAsinhPolyHa", "(asinh(x) - x) / x^3", Fn::kAsinh, 0.015625, 6},
    {"kAsinhPolyLa", "(asinh(x) - x) / x^3", Fn::kAsinh, 0.015625, 6},
    {"kAsinhPolyEp", "(asinh(x) - x) / x^3", Fn::kAsinh, 0.015625, 3},
    {"kAtanhPolyHa", "(atanh(x) - x) / x^3", Fn::kAtanh, 0.0625, 9},
    {"kAtanhPolyLa", "(atanh(x) - x) / x^3", Fn::kAtanh, 0.0625, 8},
    {"kAtanhPolyEp", "(atanh(x) - x) / x^3", Fn::kAtanh, 0.0625, 4},
};

// v rounded to double, and the rest rounded to double.
void split(const M& v, double& hi, double& lo) {
  M r;
  hi = mpfr_get_d(v.v, MPFR_RNDN);
  mpfr_sub_d(r.v, v.v, hi, MPFR_RNDN);
  lo = mpfr_get_d(r.v, MPFR_RNDN);
}

void pair_array(std::FILE* f, const char* comment, const char* name, const std::vector<M>& v) {
  std::vector<double> hi(v.size()), lo(v.size());
  for (size_t i = 0; i < v.size(); ++i) split(v[i], hi[i], lo[i]);
  std::fprintf(f, "\n// %s\ninline constexpr double %sHi[%zu] = {", comment, name, v.size());
  for (size_t i = 0; i < v.size(); ++i) std::fprintf(f, "%s%a", i ? ", " : "", hi[i]);
  std::fprintf(f, "};\ninline constexpr double %sLo[%zu] = {", name, v.size());
  for (size_t i = 0; i < v.size(); ++i) std::fprintf(f, "%s%a", i ? ", " : "", lo[i]);
  std::fprintf(f, "};\n");
}

int write(const char* path) {
  std::FILE* f = std::fopen(path, "w");
  if (f == nullptr) {
    std::perror(path);
    return 1;
  }
  std::fprintf(f,
               "// Generated by tools/gen_invtrig_tables.cpp: gen_invtrig_tables "
               "vector/kernels/invtrig_hyp/invtrig_tables.inc\n"
               "// Do not edit; a test regenerates this file and compares.\n");
  M pi, half, c;
  mpfr_const_pi(pi.v, MPFR_RNDN);
  mpfr_div_2ui(half.v, pi.v, 1, MPFR_RNDN);
  // Reference points of the arctangent intervals 0 to 4: 0, 1/2, 1, 3/2 and infinity.
  std::vector<M> ref(5);
  mpfr_set_zero(ref[0].v, 1);
  for (int i = 1; i <= 3; ++i) {
    mpfr_set_d(c.v, 0.5 * i, MPFR_RNDN);
    mpfr_atan(ref[static_cast<size_t>(i)].v, c.v, MPFR_RNDN);
  }
  ref[4] = half;
  pair_array(f, "atan(c) of the interval reference points c = 0, 1/2, 1, 3/2, infinity", "kAtanRef",
             ref);
  pair_array(f, "pi/2 and pi", "kPiParts", {half, pi});
  std::fprintf(f,
               "\n// Odd short-argument forms f(x) = x + x^3 g(x^2); coefficients of g in "
               "s = x^2, lowest first.\n");
  for (const Fit& fit_row : kFits) {
    const std::vector<double> c = fit(fit_row.fn, fit_row.hi, fit_row.terms);
    std::fprintf(f,
                 "// %s on s in [0, %a], relative error 2^%.1f\ninline constexpr double %s[%d] = {",
                 fit_row.what, fit_row.hi, error_bits(fit_row.fn, fit_row.hi, c), fit_row.name,
                 fit_row.terms);
    for (size_t i = 0; i < c.size(); ++i) {
      std::fprintf(f, "%s%s%a", i ? "," : "", i % 3 == 0 ? "\n    " : " ", c[i]);
    }
    std::fprintf(f, "};\n");
  }
  if (std::fclose(f) != 0) {
    std::perror(path);
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--errors") == 0) {
    for (const Fit& r : kFits) {
      std::printf("%-14s", r.name);
      for (int n = 3; n <= 16; ++n)
        std::printf(" %d:%.1f", n, error_bits(r.fn, r.hi, fit(r.fn, r.hi, n)));
      std::printf("\n");
    }
    return 0;
  }
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen_invtrig_tables <output .inc> | --errors\n");
    return 2;
  }
  return write(argv[1]);
}
