// Writes the tables of the error-function and gamma kernels, computed with MPFR.
//
// Usage: gen_erfgamma_tables <output .inc>
//
// Grid tables. Row j stands for x0 = j/128 and holds a value and a derivative:
//   erf:     erf(x0) and (2/sqrt pi) exp(-x0^2), x0 up to 5.9921875 (768 rows)
//   erfc:    erfc(x0) and (2/sqrt pi) exp(-x0^2), x0 up to 26.5, both scaled by 2^128
//   cdfnorm: the upper tail Q(x0) = 1 - Phi(x0) and exp(-x0^2/2)/sqrt(2 pi), x0 up to 37.5,
//            both scaled by 2^128
// each rounded to double, with a second table of the rounding errors (low parts) in the same
// layout. The scale keeps the low parts of the deepest rows normal numbers.
//
// Taylor polynomials. With w = x0*r and z = r^2, the step from x0 to x0 + r is
//   value(x0 + r) = value(x0) +- derivative(x0) * r * P(w, z),
//   P(w, z) = integral over s in [0, 1] of exp(-alpha w s - beta z s^2)
//           = sum over a, b of (-alpha)^a (-beta)^b w^a z^b / (a! b! (a + 2b + 1)),
// alpha 2, beta 1 for erf and erfc, alpha 1, beta 1/2 for the normal tail. A term is kept when
// its share of the result reaches the level's threshold somewhere on the table's range
// (|r| <= 2^-8): 2^-60 for the full polynomials, 2^-34 for the short (EP) ones.
//
// Gamma constants (64-bit mantissas, long double): (zeta(k) - 1)/k for the series of lgamma
// around 2, B(2k)/(2k(2k-1)) for the asymptotic series, ln(2 pi)/2, Euler's gamma, pi.
#include <mpfr.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr int kPrec = 256;

struct Pair {
  double hi, lo;
};

Pair split(mpfr_t v) {
  mpfr_t hi, rest;
  mpfr_inits2(kPrec, hi, rest, static_cast<mpfr_ptr>(nullptr));
  Pair p;
  p.hi = mpfr_get_d(v, MPFR_RNDN);
  mpfr_set_d(hi, p.hi, MPFR_RNDN);
  mpfr_sub(rest, v, hi, MPFR_RNDN);
  p.lo = mpfr_get_d(rest, MPFR_RNDN);
  mpfr_clears(hi, rest, static_cast<mpfr_ptr>(nullptr));
  return p;
}

std::string hex(double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%a", v);
  return buf;
}

enum class Kind { kErf, kErfc, kCdf };

struct Grid {
  Kind kind;
  const char* name;
  int rows;
  int scale;  // log2 of the scale of the stored values
  double alpha, beta;
};

// Value and derivative at x0 = j/128, scaled, at full precision.
void row(const Grid& g, int j, mpfr_t value, mpfr_t deriv) {
  mpfr_t x, t;
  mpfr_inits2(kPrec, x, t, static_cast<mpfr_ptr>(nullptr));
  mpfr_set_si(x, j, MPFR_RNDN);
  mpfr_div_2ui(x, x, 7, MPFR_RNDN);
  if (g.kind == Kind::kCdf) {
    // Q(x) = erfc(x / sqrt 2) / 2; density exp(-x^2/2) / sqrt(2 pi)
    mpfr_sqrt_ui(t, 2, MPFR_RNDN);
    mpfr_div(t, x, t, MPFR_RNDN);
    mpfr_erfc(value, t, MPFR_RNDN);
    mpfr_div_2ui(value, value, 1, MPFR_RNDN);
    mpfr_sqr(t, x, MPFR_RNDN);
    mpfr_div_2ui(t, t, 1, MPFR_RNDN);
    mpfr_neg(t, t, MPFR_RNDN);
    mpfr_exp(deriv, t, MPFR_RNDN);
    mpfr_const_pi(t, MPFR_RNDN);
    mpfr_mul_2ui(t, t, 1, MPFR_RNDN);
    mpfr_sqrt(t, t, MPFR_RNDN);
    mpfr_div(deriv, deriv, t, MPFR_RNDN);
  } else {
    if (g.kind == Kind::kErf) {
      mpfr_erf(value, x, MPFR_RNDN);
    } else {
      mpfr_erfc(value, x, MPFR_RNDN);
    }
    mpfr_sqr(t, x, MPFR_RNDN);
    mpfr_neg(t, t, MPFR_RNDN);
    mpfr_exp(deriv, t, MPFR_RNDN);
    mpfr_const_pi(t, MPFR_RNDN);
    mpfr_sqrt(t, t, MPFR_RNDN);
    mpfr_div(deriv, deriv, t, MPFR_RNDN);
    mpfr_mul_2ui(deriv, deriv, 1, MPFR_RNDN);
  }
  mpfr_mul_2si(value, value, g.scale, MPFR_RNDN);
  mpfr_mul_2si(deriv, deriv, g.scale, MPFR_RNDN);
  mpfr_clears(x, t, static_cast<mpfr_ptr>(nullptr));
}

void grid_tables(std::FILE* f, const Grid& g) {
  std::vector<Pair> v(g.rows), d(g.rows);
  mpfr_t value, deriv;
  mpfr_inits2(kPrec, value, deriv, static_cast<mpfr_ptr>(nullptr));
  for (int j = 0; j < g.rows; ++j) {
    row(g, j, value, deriv);
    v[j] = split(value);
    d[j] = split(deriv);
  }
  mpfr_clears(value, deriv, static_cast<mpfr_ptr>(nullptr));
  for (int part = 0; part < 2; ++part) {
    std::fprintf(f, "\n// %s: %s, %d rows (value, derivative)\n", g.name,
                 part == 0 ? "rounded values" : "low parts", g.rows);
    std::fprintf(f, "alignas(64) inline constexpr double k%s%s[%d] = {", g.name,
                 part == 0 ? "Tab" : "Lo", 2 * g.rows);
    for (int j = 0; j < g.rows; ++j) {
      if (j % 2 == 0) std::fprintf(f, "\n   ");
      const double a = part == 0 ? v[j].hi : v[j].lo;
      const double b = part == 0 ? d[j].hi : d[j].lo;
      std::fprintf(f, " %s, %s,", hex(a).c_str(), hex(b).c_str());
    }
    std::fprintf(f, "\n};\n");
  }
}

// Coefficient (-alpha)^a (-beta)^b / (a! b! (a + 2b + 1)), correctly rounded.
double coefficient(const Grid& g, int a, int b) {
  mpfr_t c, t;
  mpfr_inits2(kPrec, c, t, static_cast<mpfr_ptr>(nullptr));
  mpfr_set_d(c, -g.alpha, MPFR_RNDN);
  mpfr_pow_ui(c, c, a, MPFR_RNDN);
  mpfr_set_d(t, -g.beta, MPFR_RNDN);
  mpfr_pow_ui(t, t, b, MPFR_RNDN);
  mpfr_mul(c, c, t, MPFR_RNDN);
  mpfr_fac_ui(t, a, MPFR_RNDN);
  mpfr_div(c, c, t, MPFR_RNDN);
  mpfr_fac_ui(t, b, MPFR_RNDN);
  mpfr_div(c, c, t, MPFR_RNDN);
  mpfr_div_ui(c, c, a + 2 * b + 1, MPFR_RNDN);
  const double r = mpfr_get_d(c, MPFR_RNDN);
  mpfr_clears(c, t, static_cast<mpfr_ptr>(nullptr));
  return r;
}

// Value and derivative of each row as doubles, unscaled but for a factor 2^600 that keeps the
// deep rows in range: what the shares of the terms are measured against.
struct Plain {
  std::vector<double> e, d;
};

Plain plain_rows(const Grid& g) {
  Plain p;
  mpfr_t value, deriv;
  mpfr_inits2(kPrec, value, deriv, static_cast<mpfr_ptr>(nullptr));
  Grid plain = g;
  plain.scale = 600;
  for (int j = 0; j < g.rows; ++j) {
    row(plain, j, value, deriv);
    p.e.push_back(mpfr_get_d(value, MPFR_RNDN));
    p.d.push_back(mpfr_get_d(deriv, MPFR_RNDN));
  }
  mpfr_clears(value, deriv, static_cast<mpfr_ptr>(nullptr));
  return p;
}

// Largest share of the result that the term w^a z^b takes on any row of the grid.
double share(const Grid& g, const Plain& p, int a, int b) {
  constexpr double kR = 0x1p-8;
  const double c = std::fabs(coefficient(g, a, b)) * std::pow(kR, 2 * b);
  double worst = 0;
  for (int j = 0; j < g.rows; ++j) {
    double s;
    if (j == 0 && g.kind == Kind::kErf) {
      // erf about 0: the result is about derivative * r, the term that times w^a z^b, w = 0.
      s = a == 0 ? c : 0.0;
    } else {
      const double least = p.e[j] - 1.2 * p.d[j] * kR;
      s = p.d[j] * kR * c * std::pow(j / 128.0 * kR, a) / least;
    }
    if (s > worst) worst = s;
  }
  return worst;
}

void polynomial(std::FILE* f, const Grid& g, const Plain& p, const char* level, double threshold) {
  // Terms kept, by power of w: the powers of z up to the last one kept.
  std::vector<int> nb;
  for (int a = 0; a < 24; ++a) {
    int last = -1;
    for (int b = 0; b < 12; ++b) {
      if ((a == 0 && b == 0) || share(g, p, a, b) >= threshold) last = b;
    }
    if (last < 0) break;
    nb.push_back(last + 1);
  }
  std::fprintf(
      f, "\n// P(w, z) of %s, %s terms: kNb[a] powers of z for w^a, coefficients by a, then b\n",
      g.name, level);
  std::fprintf(
      f, "struct %sPoly%s {\n  static constexpr int kA = %d;\n  static constexpr int kNb[%d] = {",
      g.name, level, static_cast<int>(nb.size()), static_cast<int>(nb.size()));
  int total = 0;
  for (std::size_t a = 0; a < nb.size(); ++a) {
    std::fprintf(f, "%s%d", a ? ", " : "", nb[a]);
    total += nb[a];
  }
  std::fprintf(f, "};\n  static constexpr double kC[%d] = {", total);
  int k = 0;
  for (std::size_t a = 0; a < nb.size(); ++a) {
    for (int b = 0; b < nb[a]; ++b, ++k) {
      if (k % 3 == 0) std::fprintf(f, "\n     ");
      std::fprintf(f, " %s,", hex(coefficient(g, static_cast<int>(a), b)).c_str());
    }
  }
  std::fprintf(f, "\n  };\n};\n");
}

std::string ld_hex(mpfr_t v) {
  char buf[80];
  std::snprintf(buf, sizeof buf, "%LaL", mpfr_get_ld(v, MPFR_RNDN));
  return buf;
}

void gamma_constants(std::FILE* f) {
  mpfr_t v, t;
  mpfr_inits2(kPrec, v, t, static_cast<mpfr_ptr>(nullptr));
  constexpr int kZeta = 40;
  std::fprintf(f,
               "\n// (zeta(k) - 1)/k for k = 2, 3, ...: lgamma(2 + e) = (1 - gamma) e + "
               "sum (-1)^k (zeta(k) - 1)/k e^k\n");
  std::fprintf(f, "inline constexpr long double kLgammaZeta[%d] = {", kZeta - 1);
  for (int k = 2; k <= kZeta; ++k) {
    mpfr_zeta_ui(v, k, MPFR_RNDN);
    mpfr_sub_ui(v, v, 1, MPFR_RNDN);
    mpfr_div_ui(v, v, k, MPFR_RNDN);
    if ((k - 2) % 3 == 0) std::fprintf(f, "\n   ");
    std::fprintf(f, " %s,", ld_hex(v).c_str());
  }
  std::fprintf(f, "\n};\n");
  constexpr int kStirling = 12;
  std::fprintf(f, "\n// B(2k)/(2k(2k-1)) for k = 1, 2, ...: the asymptotic series of lgamma\n");
  std::fprintf(f, "inline constexpr long double kLgammaStirling[%d] = {", kStirling);
  for (int k = 1; k <= kStirling; ++k) {
    mpfr_set_ui(t, 2 * k, MPFR_RNDN);
    mpfr_zeta_ui(v, 2 * k, MPFR_RNDN);  // B(2k) = (-1)^(k+1) 2 (2k)! zeta(2k) / (2 pi)^(2k)
    mpfr_mul_2ui(v, v, 1, MPFR_RNDN);
    mpfr_fac_ui(t, 2 * k, MPFR_RNDN);
    mpfr_mul(v, v, t, MPFR_RNDN);
    mpfr_const_pi(t, MPFR_RNDN);
    mpfr_mul_2ui(t, t, 1, MPFR_RNDN);
    mpfr_pow_ui(t, t, 2 * k, MPFR_RNDN);
    mpfr_div(v, v, t, MPFR_RNDN);
    if (k % 2 == 0) mpfr_neg(v, v, MPFR_RNDN);
    mpfr_div_ui(v, v, 2 * k * (2 * k - 1), MPFR_RNDN);
    if ((k - 1) % 3 == 0) std::fprintf(f, "\n   ");
    std::fprintf(f, " %s,", ld_hex(v).c_str());
  }
  std::fprintf(f, "\n};\n");
  mpfr_const_pi(v, MPFR_RNDN);
  mpfr_mul_2ui(v, v, 1, MPFR_RNDN);
  mpfr_log(v, v, MPFR_RNDN);
  mpfr_div_2ui(v, v, 1, MPFR_RNDN);
  std::fprintf(f, "inline constexpr long double kHalfLn2Pi = %s;\n", ld_hex(v).c_str());
  mpfr_const_euler(v, MPFR_RNDN);
  std::fprintf(f, "inline constexpr long double kEulerGamma = %s;\n", ld_hex(v).c_str());
  mpfr_const_pi(v, MPFR_RNDN);
  std::fprintf(f, "inline constexpr long double kPiL = %s;\n", ld_hex(v).c_str());
  mpfr_log(v, v, MPFR_RNDN);
  std::fprintf(f, "inline constexpr long double kLnPiL = %s;\n", ld_hex(v).c_str());
  mpfr_clears(v, t, static_cast<mpfr_ptr>(nullptr));
}

// ---- inverse family -----------------------------------------------------------------------------
// z with Q(z) = q (the upper normal quantile), by Newton's method in MPFR from a double start.
void q_inverse(mpfr_t z, mpfr_t q) {
  const mpfr_prec_t prec = mpfr_get_prec(z);
  mpfr_t f, d, t, s2;
  mpfr_inits2(prec + 32, f, d, t, s2, static_cast<mpfr_ptr>(nullptr));
  mpfr_sqrt_ui(s2, 2, MPFR_RNDN);
  // Start: bisection in double on erfc, then Newton in full precision.
  const double qd = mpfr_get_d(q, MPFR_RNDN);
  double lo = -40, hi = 40;
  for (int i = 0; i < 200; ++i) {
    const double mid = 0.5 * (lo + hi);
    if (0.5 * std::erfc(mid / std::sqrt(2.0)) > qd) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  mpfr_set_d(z, 0.5 * (lo + hi), MPFR_RNDN);
  if (qd < 1e-300) {
    // Past the double range of the bisection: z = s - ln(s sqrt(2 pi))/s, s = sqrt(-2 ln q).
    mpfr_log(t, q, MPFR_RNDN);
    const double s = std::sqrt(-2 * mpfr_get_d(t, MPFR_RNDN));
    mpfr_set_d(z, s - std::log(s * std::sqrt(2 * M_PI)) / s, MPFR_RNDN);
  }
  // Quadratic convergence: from 2^-45 (or 2^-10 past the double range), 7 steps reach the
  // precision.
  for (int i = 0; i < 7; ++i) {
    mpfr_div(t, z, s2, MPFR_RNDN);
    mpfr_erfc(f, t, MPFR_RNDN);
    mpfr_div_2ui(f, f, 1, MPFR_RNDN);
    mpfr_sub(f, f, q, MPFR_RNDN);  // Q(z) - q
    mpfr_sqr(d, z, MPFR_RNDN);
    mpfr_div_2ui(d, d, 1, MPFR_RNDN);
    mpfr_neg(d, d, MPFR_RNDN);
    mpfr_exp(d, d, MPFR_RNDN);
    mpfr_const_pi(t, MPFR_RNDN);
    mpfr_mul_2ui(t, t, 1, MPFR_RNDN);
    mpfr_sqrt(t, t, MPFR_RNDN);
    mpfr_div(d, d, t, MPFR_RNDN);  // phi(z)
    mpfr_div(f, f, d, MPFR_RNDN);
    mpfr_add(z, z, f, MPFR_RNDN);
  }
  mpfr_clears(f, d, t, s2, static_cast<mpfr_ptr>(nullptr));
}

struct Mp {
  mpfr_t v;
  Mp() { mpfr_init2(v, kPrec); }
  ~Mp() { mpfr_clear(v); }
  Mp(const Mp&) = delete;
  Mp& operator=(const Mp&) = delete;
};

// Coefficients c[0..n) of the polynomial in u that takes the values y[i] at u[i] (Gaussian
// elimination with pivoting on the Vandermonde system, in MPFR).
std::vector<double> interpolate(const std::vector<double>& u, Mp* y, int n) {
  std::unique_ptr<Mp[]> a(new Mp[n * n]);
  mpfr_t t;
  mpfr_init2(t, kPrec);
  for (int r = 0; r < n; ++r) {
    mpfr_set_ui(a[r * n].v, 1, MPFR_RNDN);
    for (int k = 1; k < n; ++k) mpfr_mul_d(a[r * n + k].v, a[r * n + k - 1].v, u[r], MPFR_RNDN);
  }
  for (int c = 0; c < n; ++c) {
    int piv = c;
    for (int r = c + 1; r < n; ++r)
      if (mpfr_cmpabs(a[r * n + c].v, a[piv * n + c].v) > 0) piv = r;
    for (int k = 0; k < n; ++k) mpfr_swap(a[c * n + k].v, a[piv * n + k].v);
    mpfr_swap(y[c].v, y[piv].v);
    for (int r = 0; r < n; ++r) {
      if (r == c) continue;
      mpfr_div(t, a[r * n + c].v, a[c * n + c].v, MPFR_RNDN);
      for (int k = c; k < n; ++k) {
        mpfr_mul(y[n].v, t, a[c * n + k].v, MPFR_RNDN);
        mpfr_sub(a[r * n + k].v, a[r * n + k].v, y[n].v, MPFR_RNDN);
      }
      mpfr_mul(y[n].v, t, y[c].v, MPFR_RNDN);
      mpfr_sub(y[r].v, y[r].v, y[n].v, MPFR_RNDN);
    }
  }
  std::vector<double> c(n);
  for (int r = 0; r < n; ++r) {
    mpfr_div(t, y[r].v, a[r * n + r].v, MPFR_RNDN);
    c[r] = mpfr_get_d(t, MPFR_RNDN);
  }
  mpfr_clear(t);
  return c;
}

// Chebyshev nodes of [lo, hi].
std::vector<double> nodes(double lo, double hi, int n) {
  std::vector<double> u(n);
  for (int i = 0; i < n; ++i)
    u[i] = 0.5 * (lo + hi) + 0.5 * (hi - lo) * std::cos(M_PI * (i + 0.5) / n);
  return u;
}

void print_array(std::FILE* f, const char* comment, const char* name,
                 const std::vector<double>& c) {
  std::fprintf(f, "\n// %s\nalignas(64) inline constexpr double %s[%d] = {", comment, name,
               static_cast<int>(c.size()));
  for (std::size_t k = 0; k < c.size(); ++k) {
    if (k % 3 == 0) std::fprintf(f, "\n   ");
    std::fprintf(f, " %s,", hex(c[k]).c_str());
  }
  std::fprintf(f, "\n};\n");
}

// Centre of the inverses: f(x) = x (c0 + x^2 R(x^2)) on |x| <= h, where f is erfinv (kind 0) or
// the normal quantile about 1/2, Phi^-1(1/2 + x) (kind 1). c0 is split in two doubles; R is the
// interpolant of (f(x)/x - c0)/x^2 in s = x^2 at Chebyshev nodes of [0, h^2].
void centre(std::FILE* f, int kind, double h, int terms) {
  mpfr_t c0, q, z, t;
  mpfr_inits2(kPrec, c0, q, z, t, static_cast<mpfr_ptr>(nullptr));
  mpfr_const_pi(c0, MPFR_RNDN);
  if (kind == 0) {
    mpfr_sqrt(c0, c0, MPFR_RNDN);
    mpfr_div_2ui(c0, c0, 1, MPFR_RNDN);  // sqrt(pi)/2
  } else {
    mpfr_mul_2ui(c0, c0, 1, MPFR_RNDN);
    mpfr_sqrt(c0, c0, MPFR_RNDN);  // sqrt(2 pi)
  }
  const std::vector<double> s = nodes(0, h * h, terms);
  std::unique_ptr<Mp[]> y(new Mp[terms + 1]);
  auto value = [&](double x, mpfr_t out) {
    // q = (1 - x)/2 for erfinv (z / sqrt 2), q = 1/2 - x for the quantile
    mpfr_set_d(q, x, MPFR_RNDN);
    if (kind == 0) {
      mpfr_ui_sub(q, 1, q, MPFR_RNDN);
      mpfr_div_2ui(q, q, 1, MPFR_RNDN);
    } else {
      mpfr_d_sub(q, 0.5, q, MPFR_RNDN);
    }
    q_inverse(z, q);
    if (kind == 0) {
      mpfr_sqrt_ui(t, 2, MPFR_RNDN);
      mpfr_div(z, z, t, MPFR_RNDN);
    }
    mpfr_set(out, z, MPFR_RNDN);
  };
  for (int i = 0; i < terms; ++i) {
    const double x = std::sqrt(s[i]);
    value(x, y[i].v);
    mpfr_div_d(y[i].v, y[i].v, x, MPFR_RNDN);
    mpfr_sub(y[i].v, y[i].v, c0, MPFR_RNDN);
    mpfr_div_d(y[i].v, y[i].v, s[i], MPFR_RNDN);
  }
  const Pair c = split(c0);
  std::vector<double> r = interpolate(s, y.get(), terms);
  // Largest relative error of the fit on a fine grid, for the comment.
  double worst = 0;
  for (int i = 1; i <= 100; ++i) {
    const double x = h * i / 100.0;
    value(x, z);
    double p = 0;
    for (int k = terms - 1; k >= 0; --k) p = p * x * x + r[k];
    mpfr_set_d(t, c.hi, MPFR_RNDN);
    mpfr_add_d(t, t, c.lo, MPFR_RNDN);
    mpfr_add_d(t, t, x * x * p, MPFR_RNDN);
    mpfr_mul_d(t, t, x, MPFR_RNDN);
    mpfr_sub(t, t, z, MPFR_RNDN);
    mpfr_div(t, t, z, MPFR_RNDN);
    worst = std::max(worst, std::fabs(mpfr_get_d(t, MPFR_RNDN)));
  }
  const char* name = kind == 0 ? "kErfInvCentre" : "kCdfInvCentre";
  std::fprintf(f, "\n// %s about 0 on |x| <= %g: x (c0 + x^2 R(x^2)), fit error %.1e\n",
               kind == 0 ? "erfinv(x)" : "Phi^-1(1/2 + x)", h, worst);
  std::fprintf(f, "inline constexpr double %sC0[2] = {%s, %s};\n", name, hex(c.hi).c_str(),
               hex(c.lo).c_str());
  char buf[80];
  std::snprintf(buf, sizeof buf, "%sR", name);
  print_array(f, "R, constant term first", buf, r);
  mpfr_clears(c0, q, z, t, static_cast<mpfr_ptr>(nullptr));
}

// First guess of the tail: the upper quantile z(q) as a function of t = sqrt(-ln q), one
// polynomial in v for each interval of t chosen by its exponent and two leading mantissa bits,
// t = 2^e (1 + k/4 + 1/8 + v), |v| <= 1/8, e from -1 to 4. Coefficients interval by interval.
void tail_guess(std::FILE* f, int degree) {
  const int n = degree + 1;
  std::vector<double> all;
  double worst = 0;
  mpfr_t q, z, t;
  mpfr_inits2(kPrec, q, z, t, static_cast<mpfr_ptr>(nullptr));
  auto value = [&](double tt, mpfr_t out) {
    mpfr_set_d(t, tt, MPFR_RNDN);
    mpfr_sqr(t, t, MPFR_RNDN);
    mpfr_neg(t, t, MPFR_RNDN);
    mpfr_exp(q, t, MPFR_RNDN);
    q_inverse(out, q);
  };
  std::unique_ptr<Mp[]> y(new Mp[n + 1]);
  for (int e = -1; e <= 4; ++e) {
    for (int k = 0; k < 4; ++k) {
      const double base = std::ldexp(1.0 + k / 4.0 + 1.0 / 8.0, e);
      const std::vector<double> v = nodes(-1.0 / 8, 1.0 / 8, n);
      for (int i = 0; i < n; ++i) value(base + std::ldexp(v[i], e), y[i].v);
      const std::vector<double> c = interpolate(v, y.get(), n);
      for (int i = 0; i <= 40; ++i) {
        const double vv = -1.0 / 8 + 0.25 * i / 40;
        if (base + std::ldexp(vv, e) > 26.5) break;  // past the first guesses the kernels use
        value(base + std::ldexp(vv, e), z);
        double p = 0;
        for (int j = n - 1; j >= 0; --j) p = p * vv + c[j];
        worst = std::max(worst, std::fabs(p / mpfr_get_d(z, MPFR_RNDN) - 1));
      }
      all.insert(all.end(), c.begin(), c.end());
    }
  }
  mpfr_clears(q, z, t, static_cast<mpfr_ptr>(nullptr));
  char comment[160];
  std::snprintf(comment, sizeof comment,
                "upper normal quantile by t = sqrt(-ln q): 24 intervals of %d coefficients, "
                "t from 1/2 to 32, fit error %.1e up to t = 26.5",
                n, worst);
  std::fprintf(f, "\ninline constexpr int kTailGuessTerms = %d;\n", n);
  print_array(f, comment, "kTailGuess", all);
}
}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen_erfgamma_tables <output .inc>\n");
    return 2;
  }
  std::FILE* f = std::fopen(argv[1], "w");
  if (f == nullptr) {
    std::perror(argv[1]);
    return 1;
  }
  std::fprintf(f,
               "// Generated by tools/gen_erfgamma_tables.cpp: gen_erfgamma_tables "
               "vector/kernels/erfgamma/erfgamma_tables.inc\n"
               "// Do not edit; a test regenerates this file and compares.\n");
  const Grid grids[] = {{Kind::kErf, "Erf", 768, 0, 2.0, 1.0},
                        {Kind::kErfc, "Erfc", 26 * 128 + 65, 128, 2.0, 1.0},
                        {Kind::kCdf, "Cdf", 37 * 128 + 65, 128, 1.0, 0.5}};
  for (const Grid& g : grids) {
    grid_tables(f, g);
    const Plain p = plain_rows(g);
    polynomial(f, g, p, "Full", 0x1p-60);
    polynomial(f, g, p, "Short", 0x1p-34);
  }
  gamma_constants(f);
  centre(f, 0, 0.5, 16);
  centre(f, 1, 0.125, 11);
  tail_guess(f, 9);
  std::fclose(f);
  return 0;
}
