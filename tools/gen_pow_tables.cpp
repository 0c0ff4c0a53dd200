// Writes the tables of the power and root kernels, vector/kernels/pow/pow_tables.inc, with MPFR.
//
// Usage: gen_pow_tables <output .inc>
//
// Every entry is a hexadecimal floating literal, so the file holds the exact bits.
//   * kPowLog: 128 rows {c, lhi, llo}. Row i covers the significands m whose bits, taken from
//     0x3FE6A09E667F3BCD (sqrt(1/2)), have i in their top seven mantissa bits, so the rows tile
//     [sqrt(1/2), sqrt(2)). c is the reciprocal of the row's midpoint rounded to 26 significant
//     bits, so that c * mh is exact for a 27-bit mh; the row holding 1.0 has c = 1 exactly, so
//     that near x = 1 the logarithm keeps its relative accuracy. lhi + llo = -ln(c).
//   * kPowExp: 2^(j/128) for j = 0..127 as pairs (high, low).
//   * kRoot<P>: rows {c, thi, tlo} of the cube-root frame for the power p = 1/3, -1/3, 2/3:
//     row 32 rem + i, for rem = 0, 1, 2 and the 32 significand intervals [1 + i/32, 1 + (i+1)/32),
//     c = the reciprocal of the midpoint rounded to 26 bits, thi + tlo = (2^rem / c)^p.
//   * Series coefficients rounded to double: kBinom* the binomial coefficients C(p, k), k = 1..12,
//     of (1 + r)^p; kLog1pPoly (-1)^(k+1)/k, k = 3..10, of ln(1 + r); kExpPoly 1/k!, k = 1..8.
//   * kPowConst: ln 2 and ln 2/128 split into a short head and the rest, and 128/ln 2.
#include <mpfr.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int kPrec = 256;

struct Big {
  mpfr_t v;
  Big() { mpfr_init2(v, kPrec); }
  ~Big() { mpfr_clear(v); }
  Big(const Big&) = delete;
  Big& operator=(const Big&) = delete;
};

std::string hex(double d) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%a", d);
  return buf;
}

double bits_to_double(unsigned long long b) {
  double d;
  std::memcpy(&d, &b, sizeof d);
  return d;
}

// 1/v rounded to `bits` significant bits.
double reciprocal(const Big& v, int bits) {
  Big r;
  mpfr_ui_div(r.v, 1, v.v, MPFR_RNDN);
  Big s;
  mpfr_set_prec(s.v, bits);
  mpfr_set(s.v, r.v, MPFR_RNDN);
  return mpfr_get_d(s.v, MPFR_RNDN);
}

// hi = v rounded to double, lo = (v - hi) rounded to double.
void split(const Big& v, double& hi, double& lo) {
  hi = mpfr_get_d(v.v, MPFR_RNDN);
  Big t;
  mpfr_sub_d(t.v, v.v, hi, MPFR_RNDN);
  lo = mpfr_get_d(t.v, MPFR_RNDN);
}

void open(std::FILE* f, const char* comment, const char* name, int count) {
  std::fprintf(f, "\n// %s\nalignas(64) inline constexpr double %s[%d] = {", comment, name, count);
}
void close(std::FILE* f) {
  std::fprintf(f, "\n};\n");
}

void log_table(std::FILE* f) {
  constexpr unsigned long long kOff = 0x3FE6A09E667F3BCDull;
  open(f, "Pow logarithm rows {c, lhi, llo}: lhi + llo = -ln(c)", "kPowLog", 3 * 128);
  for (int i = 0; i < 128; ++i) {
    const double lo = bits_to_double(kOff + (static_cast<unsigned long long>(i) << 45));
    const double hi = bits_to_double(kOff + (static_cast<unsigned long long>(i + 1) << 45));
    double c = 1.0;
    if (!(lo <= 1.0 && 1.0 < hi)) {
      Big mid;
      mpfr_set_d(mid.v, lo, MPFR_RNDN);
      mpfr_add_d(mid.v, mid.v, hi, MPFR_RNDN);
      mpfr_div_2ui(mid.v, mid.v, 1, MPFR_RNDN);
      c = reciprocal(mid, 26);
    }
    Big l;
    mpfr_set_d(l.v, c, MPFR_RNDN);
    mpfr_log(l.v, l.v, MPFR_RNDN);
    mpfr_neg(l.v, l.v, MPFR_RNDN);
    double h, t;
    split(l, h, t);
    std::fprintf(f, "\n    %s, %s, %s,", hex(c).c_str(), hex(h).c_str(), hex(t).c_str());
  }
  close(f);
}

void exp_table(std::FILE* f) {
  open(f, "Pow exponential pairs: 2^(j/128), high and low", "kPowExp", 2 * 128);
  for (int j = 0; j < 128; ++j) {
    Big v;
    mpfr_set_si(v.v, j, MPFR_RNDN);
    mpfr_div_si(v.v, v.v, 128, MPFR_RNDN);
    mpfr_exp2(v.v, v.v, MPFR_RNDN);
    double h, t;
    split(v, h, t);
    if (j % 2 == 0) std::fprintf(f, "\n   ");
    std::fprintf(f, " %s, %s,", hex(h).c_str(), hex(t).c_str());
  }
  close(f);
}

// (1 + r)^(num/3) cube-root frame.
void root_table(std::FILE* f, const char* name, int num) {
  char comment[160];
  std::snprintf(
      comment, sizeof comment,
      "Root rows {c, thi, tlo} for x^(%d/3): row 32 rem + i, thi + tlo = (2^rem / c)^(%d/3)", num,
      num);
  open(f, comment, name, 3 * 96);
  for (int rem = 0; rem < 3; ++rem) {
    for (int i = 0; i < 32; ++i) {
      Big mid;
      mpfr_set_d(mid.v, 1.0 + (i + 0.5) / 32.0, MPFR_RNDN);
      const double c = reciprocal(mid, 26);
      Big v;
      mpfr_set_d(v.v, c, MPFR_RNDN);
      mpfr_ui_div(v.v, 1u << rem, v.v, MPFR_RNDN);
      Big p;
      mpfr_set_si(p.v, num, MPFR_RNDN);
      mpfr_div_si(p.v, p.v, 3, MPFR_RNDN);
      mpfr_pow(v.v, v.v, p.v, MPFR_RNDN);
      double h, t;
      split(v, h, t);
      std::fprintf(f, "\n    %s, %s, %s,", hex(c).c_str(), hex(h).c_str(), hex(t).c_str());
    }
  }
  close(f);
}

// Binomial coefficients C(num/3, k) for k = 1..12, rounded to double.
void binomial(std::FILE* f, const char* name, int num) {
  char comment[120];
  std::snprintf(comment, sizeof comment, "(1 + r)^(%d/3) - 1 = sum of C(%d/3, k) r^k, k = 1..12",
                num, num);
  open(f, comment, name, 12);
  Big c, p;
  mpfr_set_si(p.v, num, MPFR_RNDN);
  mpfr_div_si(p.v, p.v, 3, MPFR_RNDN);
  mpfr_set_ui(c.v, 1, MPFR_RNDN);
  for (int k = 1; k <= 12; ++k) {
    // C(p, k) = C(p, k - 1) * (p - k + 1) / k
    Big t;
    mpfr_sub_si(t.v, p.v, k - 1, MPFR_RNDN);
    mpfr_mul(c.v, c.v, t.v, MPFR_RNDN);
    mpfr_div_si(c.v, c.v, k, MPFR_RNDN);
    if ((k - 1) % 3 == 0) std::fprintf(f, "\n   ");
    std::fprintf(f, " %s,", hex(mpfr_get_d(c.v, MPFR_RNDN)).c_str());
  }
  close(f);
}

// 1/k! for k = 1..8 (the exponential's series) and (-1)^(k+1)/k for k = 3..10 (ln(1 + r)).
void series(std::FILE* f) {
  open(f, "(-1)^(k+1) / k, k = 3..10: ln(1 + r) - r + r^2/2 = r^3 (c0 + c1 r + ...)", "kLog1pPoly",
       8);
  for (int k = 3; k <= 10; ++k) {
    Big v;
    mpfr_set_si(v.v, (k % 2 == 1) ? 1 : -1, MPFR_RNDN);
    mpfr_div_si(v.v, v.v, k, MPFR_RNDN);
    if ((k - 3) % 4 == 0) std::fprintf(f, "\n   ");
    std::fprintf(f, " %s,", hex(mpfr_get_d(v.v, MPFR_RNDN)).c_str());
  }
  close(f);
  open(f, "1 / k!, k = 1..8: exp(r) - 1 = r (c0 + c1 r + ...)", "kExpPoly", 8);
  Big v;
  mpfr_set_ui(v.v, 1, MPFR_RNDN);
  for (int k = 1; k <= 8; ++k) {
    mpfr_div_si(v.v, v.v, k, MPFR_RNDN);
    if ((k - 1) % 4 == 0) std::fprintf(f, "\n   ");
    std::fprintf(f, " %s,", hex(mpfr_get_d(v.v, MPFR_RNDN)).c_str());
  }
  close(f);
}

// ln 2 as a 36-bit head (k * head is exact for |k| < 2^17) and the rest; 128/ln 2; ln 2/128 as
// a 35-bit head (n * head exact for |n| < 2^18) and the rest.
void constants(std::FILE* f) {
  Big ln2, t;
  mpfr_const_log2(ln2.v, MPFR_RNDN);
  auto head = [&](const Big& v, int bits) {
    Big h;
    mpfr_set_prec(h.v, bits);
    mpfr_set(h.v, v.v, MPFR_RNDN);
    const double d = mpfr_get_d(h.v, MPFR_RNDN);
    mpfr_sub_d(t.v, v.v, d, MPFR_RNDN);
    return d;
  };
  open(f, "Pow constants: ln2 head and rest, 128/ln2, ln2/128 head and rest", "kPowConst", 5);
  const double l1 = head(ln2, 36);
  const double l2 = mpfr_get_d(t.v, MPFR_RNDN);
  Big inv;
  mpfr_ui_div(inv.v, 128, ln2.v, MPFR_RNDN);
  Big step;
  mpfr_div_ui(step.v, ln2.v, 128, MPFR_RNDN);
  const double s1 = head(step, 35);
  const double s2 = mpfr_get_d(t.v, MPFR_RNDN);
  std::fprintf(f, "\n    %s, %s, %s,\n    %s, %s,", hex(l1).c_str(), hex(l2).c_str(),
               hex(mpfr_get_d(inv.v, MPFR_RNDN)).c_str(), hex(s1).c_str(), hex(s2).c_str());
  close(f);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen_pow_tables <output .inc>\n");
    return 2;
  }
  std::FILE* f = std::fopen(argv[1], "w");
  if (f == nullptr) {
    std::perror(argv[1]);
    return 1;
  }
  std::fprintf(f,
               "// Generated by tools/gen_pow_tables.cpp: gen_pow_tables "
               "vector/kernels/pow/pow_tables.inc\n"
               "// Do not edit; a test regenerates this file and compares.\n");
  log_table(f);
  exp_table(f);
  root_table(f, "kRootCbrt", 1);
  root_table(f, "kRootInvCbrt", -1);
  root_table(f, "kRoot2o3", 2);
  binomial(f, "kBinomCbrt", 1);
  binomial(f, "kBinomInvCbrt", -1);
  binomial(f, "kBinom2o3", 2);
  series(f);
  constants(f);
  if (std::fclose(f) != 0) {
    std::perror(argv[1]);
    return 1;
  }
  return 0;
}
