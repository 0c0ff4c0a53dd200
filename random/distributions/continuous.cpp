// Continuous distributions by inversion of the distribution function: Exponential, Cauchy, Gumbel,
// Laplace, Rayleigh and Weibull. Each round draws uniforms into the output, runs one or two
// vector kernels over it in place and scales; Laplace alone keeps a buffer, for its sign draws.
// Compiled once per instruction-set variant; the variants differ only in the kernel column.
#include "random/distributions/block.h"

namespace tvx::TVX_VNS::dist {
namespace {

namespace rows = ::tvx::dist::rows;

template <class T>
struct Cont;

template <>
struct Cont<double> {
  // ln of the smallest subnormal double, the logarithm a uniform of 0 is given.
  static constexpr double kLnZero = -0x1.74385446d71c3p+9;  // -744.4400719213812
  static constexpr double kHalfPi = 0x1.921fb54442d18p+0;   // 1.5707963267948966
  static constexpr auto ln = rows::ln_d;
  static constexpr auto sqrt = rows::sqrt_d;
  static constexpr auto tan = rows::tan_d;
  static constexpr auto powx = rows::powx_d;
  static int uniform(RudStreamPtr stream, int n, double* r, double a, double b) {
    return uniform_d(0, stream, n, r, a, b);
  }
};

template <>
struct Cont<float> {
  // ln of the smallest subnormal float, rounded to float: the same role in single precision.
  static constexpr float kLnZero = -0x1.9d1da0p+6f;  // -103.2789306640625
  // The largest float below pi/2 (the nearest float, 1.5707964, lies above it): a uniform at the
  // lower end then gives a large negative value, not one of the wrong sign.
  static constexpr float kHalfPi = 0x1.921fb4p+0f;  // 1.5707962
  static constexpr auto ln = rows::ln_s;
  static constexpr auto sqrt = rows::sqrt_s;
  static constexpr auto tan = rows::tan_s;
  static constexpr auto powx = rows::powx_s;
  static int uniform(RudStreamPtr stream, int n, float* r, float a, float b) {
    return uniform_s(0, stream, n, r, a, b);
  }
};

// Zero guards: a uniform of 0 makes the logarithm report a singularity; the guard gives it the
// logarithm of the smallest subnormal instead, so no infinity reaches the results. The first form
// answers every condition of the logarithm, the second only the singularity.
template <class T>
int rud_ln_guard_all(kaz_error_record* record) {
  record->r1 = static_cast<double>(Cont<T>::kLnZero);
  record->r2 = record->r1;
  return 0;
}

template <class T>
int rud_ln_guard_sing(kaz_error_record* record) {
  if (record->code == KAZ_STATUS_SING) return rud_ln_guard_all<T>(record);
  return 0;
}

// The accurate forms: no result below the displacement a.
template <class T>
void at_least(int m, T* x, T a) {
  for (int i = 0; i < m; ++i) x[i] = x[i] < a ? a : x[i];
}

// a - beta ln(u).
template <class T>
int exponential(int method, RudStreamPtr stream, int n, T* r, T a, T beta) {
  using C = Cont<T>;
  if (!C::ln.built()) return kKernelMissing;
  ErrorCallbackScope guard(&rud_ln_guard_all<T>);
  const bool accurate = (method & kAccurate) != 0;
  return in_rounds(n, [&](int done, int m) {
    T* x = r + done;
    const int status = C::uniform(stream, m, x, T(0), T(1));
    if (status < 0) return status;
    kernel<T>(C::ln, m, x, x);
    for (int i = 0; i < m; ++i) x[i] = a - beta * x[i];
    if (accurate) at_least(m, x, a);
    return status;
  });
}

// a + beta tan(v), v uniform on [-pi/2, pi/2).
template <class T>
int cauchy(RudStreamPtr stream, int n, T* r, T a, T beta) {
  using C = Cont<T>;
  if (!C::tan.built()) return kKernelMissing;
  return in_rounds(n, [&](int done, int m) {
    T* x = r + done;
    const int status = C::uniform(stream, m, x, -C::kHalfPi, C::kHalfPi);
    if (status < 0) return status;
    kernel<T>(C::tan, m, x, x);
    for (int i = 0; i < m; ++i) x[i] = x[i] * beta + a;
    return status;
  });
}

// a + beta ln(e), e the standard exponential value 0 - 1 ln(u) (the Exponential chain with a = 0,
// beta = 1, in the same round).
template <class T>
int gumbel(RudStreamPtr stream, int n, T* r, T a, T beta) {
  using C = Cont<T>;
  if (!C::ln.built()) return kKernelMissing;
  ErrorCallbackScope guard(&rud_ln_guard_all<T>);
  return in_rounds(n, [&](int done, int m) {
    T* x = r + done;
    const int status = C::uniform(stream, m, x, T(0), T(1));
    if (status < 0) return status;
    kernel<T>(C::ln, m, x, x);
    for (int i = 0; i < m; ++i) x[i] = T(0) - T(1) * x[i];
    kernel<T>(C::ln, m, x, x);
    for (int i = 0; i < m; ++i) x[i] = x[i] * beta + a;
    return status;
  });
}

// a -+ beta ln(u1): result i of a round takes draws 2i (magnitude) and 2i + 1 (sign: at most 0.5
// gives a - beta ln(u1), above it a + beta ln(u1)).
template <class T>
int laplace(RudStreamPtr stream, int n, T* r, T a, T beta) {
  using C = Cont<T>;
  if (!C::ln.built()) return kKernelMissing;
  ErrorCallbackScope guard(&rud_ln_guard_all<T>);
  return in_rounds(n, [&](int done, int m) {
    alignas(64) T u[2 * kRound];
    T* x = r + done;
    const int status = C::uniform(stream, 2 * m, u, T(0), T(1));
    if (status < 0) return status;
    for (int i = 0; i < m; ++i) {
      x[i] = u[2 * i];
      u[i] = u[2 * i + 1];
    }
    kernel<T>(C::ln, m, x, x);
    for (int i = 0; i < m; ++i) x[i] = x[i] * (u[i] <= T(0.5) ? -beta : beta) + a;
    return status;
  });
}

// a + beta (-ln u)^(1/alpha); Rayleigh is alpha = 2 through the square root. With alpha = 1 no
// power is taken, and the values are the Exponential ones.
template <class T>
int weibull(int method, RudStreamPtr stream, int n, T* r, T alpha, T a, T beta, bool rayleigh) {
  using C = Cont<T>;
  const bool power = !rayleigh && alpha != T(1);
  if (!C::ln.built() || (rayleigh && !C::sqrt.built()) || (power && !C::powx.built())) {
    return kKernelMissing;
  }
  ErrorCallbackScope guard(&rud_ln_guard_sing<T>);
  const bool accurate = (method & kAccurate) != 0;
  const T inverse = power ? T(1) / alpha : T(1);
  return in_rounds(n, [&](int done, int m) {
    T* x = r + done;
    const int status = C::uniform(stream, m, x, T(0), T(1));
    if (status < 0) return status;
    kernel<T>(C::ln, m, x, x);
    for (int i = 0; i < m; ++i) x[i] = -x[i];
    if (rayleigh) {
      kernel<T>(C::sqrt, m, x, x);
    } else if (power) {
      kernel<T>(C::powx, m, x, inverse, x);
    }
    for (int i = 0; i < m; ++i) x[i] = x[i] * beta + a;
    if (accurate) at_least(m, x, a);
    return status;
  });
}

}  // namespace
}  // namespace tvx::TVX_VNS::dist

using namespace tvx::TVX_VNS;

extern "C" {

int TVX_ENTRY(rud_vdRngExponential)(int method, RudStreamPtr stream, int n, double* r, double a,
                                    double beta) {
  return dist::exponential(method, stream, n, r, a, beta);
}
int TVX_ENTRY(rud_vsRngExponential)(int method, RudStreamPtr stream, int n, float* r, float a,
                                    float beta) {
  return dist::exponential(method, stream, n, r, a, beta);
}

int TVX_ENTRY(rud_vdRngCauchy)(int method, RudStreamPtr stream, int n, double* r, double a,
                               double beta) {
  (void)method;
  return dist::cauchy(stream, n, r, a, beta);
}
int TVX_ENTRY(rud_vsRngCauchy)(int method, RudStreamPtr stream, int n, float* r, float a,
                               float beta) {
  (void)method;
  return dist::cauchy(stream, n, r, a, beta);
}

int TVX_ENTRY(rud_vdRngGumbel)(int method, RudStreamPtr stream, int n, double* r, double a,
                               double beta) {
  (void)method;
  return dist::gumbel(stream, n, r, a, beta);
}
int TVX_ENTRY(rud_vsRngGumbel)(int method, RudStreamPtr stream, int n, float* r, float a,
                               float beta) {
  (void)method;
  return dist::gumbel(stream, n, r, a, beta);
}

int TVX_ENTRY(rud_vdRngLaplace)(int method, RudStreamPtr stream, int n, double* r, double a,
                                double beta) {
  (void)method;
  return dist::laplace(stream, n, r, a, beta);
}
int TVX_ENTRY(rud_vsRngLaplace)(int method, RudStreamPtr stream, int n, float* r, float a,
                                float beta) {
  (void)method;
  return dist::laplace(stream, n, r, a, beta);
}

int TVX_ENTRY(rud_vdRngRayleigh)(int method, RudStreamPtr stream, int n, double* r, double a,
                                 double beta) {
  return dist::weibull(method, stream, n, r, 2.0, a, beta, true);
}
int TVX_ENTRY(rud_vsRngRayleigh)(int method, RudStreamPtr stream, int n, float* r, float a,
                                 float beta) {
  return dist::weibull(method, stream, n, r, 2.0f, a, beta, true);
}

int TVX_ENTRY(rud_vdRngWeibull)(int method, RudStreamPtr stream, int n, double* r, double alpha,
                                double a, double beta) {
  return dist::weibull(method, stream, n, r, alpha, a, beta, false);
}
int TVX_ENTRY(rud_vsRngWeibull)(int method, RudStreamPtr stream, int n, float* r, float alpha,
                                float a, float beta) {
  return dist::weibull(method, stream, n, r, alpha, a, beta, false);
}

}  // extern "C"
