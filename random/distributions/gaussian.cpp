// The Gaussian family: normal values by Box-Muller (one result per pair of uniforms), by Box-Muller
// with both results of each pair (the second kept in the stream across calls) and by the inverse
// error function; lognormal values as the exponential of normal ones. Compiled once per
// instruction-set variant; the variants differ only in the kernel column they call.
#include <cstdint>

#include "random/distributions/block.h"
#include "random/streams/catalogue.h"
#include "runtime/memory.h"

namespace tvx::TVX_VNS::dist {
namespace {

namespace rows = ::tvx::dist::rows;
using ::tvx::dist::first_missing;

template <class T>
struct Gauss;

template <>
struct Gauss<double> {
  static constexpr double kTwoPi = 0x1.921fb54442d18p+2;  // 6.283185307179586
  static constexpr double kSqrt2 = 0x1.6a09e667f3bcdp+0;  // 1.4142135623730951
  // erfinv of the largest double below 1: what an argument of +-1 gives in place of infinity.
  static constexpr double kMaxErfInv = 0x1.7744f8f74e94ap+2;  // 5.8635847487551676
  // ln of the smallest subnormal double: what a uniform of 0 gives in place of -infinity.
  static constexpr double kLnZero = -0x1.74385446d71c3p+9;  // -744.4400719213812
  // Extension-block tag of the kept pair.
  static constexpr std::uint32_t kTag = 2;
  static constexpr auto ln = rows::ln_d;
  static constexpr auto sqrt = rows::sqrt_d;
  static constexpr auto sin = rows::sin_d;
  static constexpr auto sincos = rows::sincos_d;
  static constexpr auto erfinv = rows::erfinv_d;
  static constexpr auto exp = rows::exp_d;
  static int uniform(RudStreamPtr stream, int n, double* r, double a, double b) {
    return uniform_d(0, stream, n, r, a, b);
  }
};

template <>
struct Gauss<float> {
  static constexpr float kTwoPi = 0x1.921fb6p+2f;      // 6.2831855
  static constexpr float kSqrt2 = 0x1.6a09e6p+0f;      // 1.4142135
  static constexpr float kMaxErfInv = 0x1.ea8f96p+1f;  // 3.8325068950653076
  static constexpr float kLnZero = -0x1.9d1da0p+6f;    // -103.2789306640625
  static constexpr std::uint32_t kTag = 1;
  static constexpr auto ln = rows::ln_s;
  static constexpr auto sqrt = rows::sqrt_s;
  static constexpr auto sin = rows::sin_s;
  static constexpr auto sincos = rows::sincos_s;
  static constexpr auto erfinv = rows::erfinv_s;
  static constexpr auto exp = rows::exp_s;
  static int uniform(RudStreamPtr stream, int n, float* r, float a, float b) {
    return uniform_s(0, stream, n, r, a, b);
  }
};

// Gives a failing element of the Gaussian kernels a finite value: a logarithm of 0 becomes the
// logarithm of the smallest subnormal, an inverse error function of +-1 (or out of range) the
// largest finite result with the argument's sign. Other conditions are left as they are.
template <class T>
int gauss_callback(kaz_error_record* record) {
  const double x = record->a1;
  const double k = Gauss<T>::kMaxErfInv;
  double value;
  if (record->code == KAZ_STATUS_ERRDOM) {
    value = x < 0 ? -k : k;
  } else if (record->code == KAZ_STATUS_SING) {
    value = x == 0 ? static_cast<double>(Gauss<T>::kLnZero) : (x < 0 ? -k : k);
  } else {
    return 0;
  }
  record->r1 = value;
  record->r2 = value;
  return 0;
}

// rho = sqrt(-2 ln u) over n values. The logarithm is taken out of place: the callback reads the
// failing argument from u, which an in-place call would have overwritten with -infinity.
template <class T>
void radius(int n, const T* u, T* rho) {
  kernel<T>(Gauss<T>::ln, n, u, rho);
  for (int i = 0; i < n; ++i) rho[i] = T(-2) * rho[i];
  kernel<T>(Gauss<T>::sqrt, n, rho, rho);
}

// ---- Box-Muller: one result per pair, the sine half ----
template <class T>
int box_muller(RudStreamPtr stream, int n, T* r, T a, T sigma) {
  return in_rounds(n, [&](int done, int c) {
    alignas(64) T u[2 * kRound];
    alignas(64) T u1[kRound];
    alignas(64) T angle[kRound];
    const int status = Gauss<T>::uniform(stream, 2 * c, u, T(0), T(1));
    if (status < 0) return status;
    for (int i = 0; i < c; ++i) {
      u1[i] = u[2 * i];
      angle[i] = Gauss<T>::kTwoPi * u[2 * i + 1];
    }
    kernel<T>(Gauss<T>::sin, c, angle, angle);
    radius(c, u1, u);
    T* out = r + done;
    for (int i = 0; i < c; ++i) out[i] = (u[i] * sigma) * angle[i] + a;
    return status;
  });
}

// ---- Box-Muller with kept pairs ----
// The block holds u1, u2 of a pair whose cosine half is still owed, or -1, -1.
template <class T>
int kept_pair(RudStreamPtr stream, T** kept) {
  *kept = static_cast<T*>(TVX_ENTRY(rud_ext_find)(stream, Gauss<T>::kTag));
  if (*kept != nullptr) return RUD_STATUS_OK;
  T* data = static_cast<T*>(tvx_malloc(2 * sizeof(T), 64));
  if (data == nullptr) return RUD_ERROR_MEM_FAILURE;
  data[0] = T(-1);
  data[1] = T(-1);
  if (TVX_ENTRY(rud_ext_add)(stream, Gauss<T>::kTag, nullptr, data, 2 * sizeof(T)) !=
      RUD_STATUS_OK) {
    tvx_free(data);
    return RUD_ERROR_MEM_FAILURE;
  }
  *kept = data;
  return RUD_STATUS_OK;
}

// Both halves of p pairs from 2p uniforms: out[2j] = rho sin(theta), out[2j+1] = rho cos(theta).
template <class T>
int pairs(RudStreamPtr stream, int p, T* out) {
  alignas(64) T u[kRound];
  alignas(64) T u1[kRound / 2];
  alignas(64) T s[kRound / 2];
  alignas(64) T c[kRound / 2];
  const int status = Gauss<T>::uniform(stream, 2 * p, u, T(0), T(1));
  if (status < 0) return status;
  for (int j = 0; j < p; ++j) {
    u1[j] = u[2 * j];
    s[j] = Gauss<T>::kTwoPi * u[2 * j + 1];
  }
  kernel<T>(Gauss<T>::sincos, p, s, s, c);
  T* rho = u;
  radius(p, u1, rho);
  for (int j = 0; j < p; ++j) {
    out[2 * j] = rho[j] * s[j];
    out[2 * j + 1] = rho[j] * c[j];
  }
  return status;
}

// One half of the pair (u1, u2): the sine (cosine = false) or the cosine. It goes through the
// same SinCos kernel as whole pairs, so a pair cut by the end of a call gives the values it gives
// inside one.
template <class T>
T half(T u1, T u2, bool cosine) {
  T rho, s = Gauss<T>::kTwoPi * u2, c;
  kernel<T>(Gauss<T>::sincos, 1, &s, &s, &c);
  radius(1, &u1, &rho);
  return rho * (cosine ? c : s);
}

template <class T>
int box_muller2(RudStreamPtr stream, int n, T* r, T a, T sigma) {
  T* kept = nullptr;
  if (const int status = kept_pair(stream, &kept); status != RUD_STATUS_OK) return status;
  int done = 0;
  if (kept[0] != T(-1)) {
    r[0] = half(kept[0], kept[1], true);
    done = 1;
  }
  for (; n - done >= kRound; done += kRound) {
    const int status = pairs(stream, kRound / 2, r + done);
    if (status < 0) return status;
  }
  if (const int p = (n - done) >> 1; p > 0) {
    const int status = pairs(stream, p, r + done);
    if (status < 0) return status;
    done += 2 * p;
  }
  if (done < n) {
    T u[2];
    const int status = Gauss<T>::uniform(stream, 2, u, T(0), T(1));
    if (status < 0) return status;
    kept[0] = u[0];
    kept[1] = u[1];
    r[done] = half(u[0], u[1], false);
  } else {
    kept[0] = T(-1);
    kept[1] = T(-1);
  }
  for (int i = 0; i < n; ++i) r[i] = r[i] * sigma + a;
  return RUD_STATUS_OK;
}

// ---- Inverse CDF: sigma sqrt(2) erfinv(v) + a for v uniform on [-1, 1) ----
template <class T>
int icdf(RudStreamPtr stream, int n, T* r, T a, T sigma) {
  const T scale = sigma * Gauss<T>::kSqrt2;
  return in_rounds(n, [&](int done, int m) {
    T* x = r + done;
    const int status = Gauss<T>::uniform(stream, m, x, T(-1), T(1));
    if (status < 0) return status;
    // In place: the callback then reads the kernel's +-infinity for an argument of +-1, which
    // has the argument's sign, all it looks at.
    kernel<T>(Gauss<T>::erfinv, m, x, x);
    for (int i = 0; i < m; ++i) x[i] = x[i] * scale + a;
    return status;
  });
}

// The kernels a method needs, or the name of one this build lacks.
template <class T>
const char* gauss_missing(int method) {
  using G = Gauss<T>;
  switch (method) {
    case 0:
      return first_missing(G::ln, G::sqrt, G::sin);
    case 1:
      return first_missing(G::ln, G::sqrt, G::sincos);
    default:
      return first_missing(G::erfinv);
  }
}

// The Gaussian top function: under the error mode "callback only" and the Gaussian callback,
// both put back on every way out.
template <class T>
int gaussian(int method, RudStreamPtr stream, int n, T* r, T a, T sigma) {
  if (gauss_missing<T>(method) != nullptr) return kKernelMissing;
  ErrorCallbackScope guard(&gauss_callback<T>);
  switch (method) {
    case 0:
      return box_muller(stream, n, r, a, sigma);
    case 1:
      return box_muller2(stream, n, r, a, sigma);
    default:
      return icdf(stream, n, r, a, sigma);
  }
}

// Lognormal: exp of a normal value with mean a and deviation sigma, times beta, plus b. A method
// word of exactly 0 draws the normal values with kept pairs, every other one by the inverse CDF
// (so the accurate form of method 0 is the inverse CDF too).
template <class T>
int lognormal(int method, RudStreamPtr stream, int n, T* r, T a, T sigma, T b, T beta) {
  const int gauss_method = method == 0 ? 1 : 2;
  if (gauss_missing<T>(gauss_method) != nullptr || !Gauss<T>::exp.built()) return kKernelMissing;
  const int status = gaussian(gauss_method, stream, n, r, a, sigma);
  if (status < 0) return status;
  const bool accurate = (method & kAccurate) != 0;
  for (int done = 0; done < n; done += kRound) {
    const int m = std::min(kRound, n - done);
    T* x = r + done;
    kernel<T>(Gauss<T>::exp, m, x, x);
    for (int i = 0; i < m; ++i) x[i] = x[i] * beta + b;
    if (accurate) {
      for (int i = 0; i < m; ++i) x[i] = x[i] < b ? b : x[i];
    }
  }
  return status;
}

}  // namespace
}  // namespace tvx::TVX_VNS::dist

using namespace tvx::TVX_VNS;

extern "C" {

int TVX_ENTRY(rud_vdRngGaussian)(int method, RudStreamPtr stream, int n, double* r, double a,
                                 double sigma) {
  return dist::gaussian(method, stream, n, r, a, sigma);
}

int TVX_ENTRY(rud_vsRngGaussian)(int method, RudStreamPtr stream, int n, float* r, float a,
                                 float sigma) {
  return dist::gaussian(method, stream, n, r, a, sigma);
}

int TVX_ENTRY(rud_vdRngLognormal)(int method, RudStreamPtr stream, int n, double* r, double a,
                                  double sigma, double b, double beta) {
  return dist::lognormal(method, stream, n, r, a, sigma, b, beta);
}

int TVX_ENTRY(rud_vsRngLognormal)(int method, RudStreamPtr stream, int n, float* r, float a,
                                  float sigma, float b, float beta) {
  return dist::lognormal(method, stream, n, r, a, sigma, b, beta);
}

}  // extern "C"
