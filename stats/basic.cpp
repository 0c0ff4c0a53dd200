// The basic group: mean, raw and central moments and their sums, kurtosis, skewness, variation,
// covariance, correlation and cross product, in one pass over the observations (threaded over
// ranges of observations, partial results merged), by one of three methods, or converted from
// registered sums without a pass. Results can be built up block by block through the
// accumulated weights.
#include <cblas.h>

#include <climits>
#include <cstring>

#include "stats/groups.h"
#include "stats/kernels.h"

namespace tvx::TVX_VNS::ss {
namespace {

// ---- Needs: which registered arrays each estimate requires, by method ------------------------
// Have bits: the output arrays the running state may live in.
enum : int {
  hMean,
  hRaw2,
  hRaw3,
  hRaw4,
  hCm2,
  hCm3,
  hCm4,
  hCov,
  hCor,
  hKurt,
  hSkew,
  hVar,
  hSum,
  hRs2,
  hRs3,
  hRs4,
  hCs2,
  hCs3,
  hCs4,
  hCross,
  hNever,
  kHaveBits
};

// X(estimate, need in a pass (one pass, user mean), need under fast, need in conversion)
#define TVX_SS_NEEDS(X)                                        \
  X(RUD_SS_ESTIMATE_MEAN, 0x1, 0x1, 0x1001)                    \
  X(RUD_SS_ESTIMATE_RAW_MOMENT_2, 0x2, 0x2, 0x2002)            \
  X(RUD_SS_ESTIMATE_RAW_MOMENT_3, 0x4, 0x4, 0x4004)            \
  X(RUD_SS_ESTIMATE_RAW_MOMENT_4, 0x8, 0x8, 0x8008)            \
  X(RUD_SS_ESTIMATE_CENTRAL_MOMENT_2, 0x13, 0x13, 0x10010)     \
  X(RUD_SS_ESTIMATE_CENTRAL_MOMENT_3, 0x27, 0x27, 0x20020)     \
  X(RUD_SS_ESTIMATE_CENTRAL_MOMENT_4, 0x4F, 0x4F, 0x40040)     \
  X(RUD_SS_ESTIMATE_COVARIANCE, 0x81, 0x81, 0x80080)           \
  X(RUD_SS_ESTIMATE_CORRELATION, 0x101, 0x101, 0x80100)        \
  X(RUD_SS_ESTIMATE_KURTOSIS, 0x25F, 0x25F, 0x251)             \
  X(RUD_SS_ESTIMATE_SKEWNESS, 0x437, 0x437, 0x431)             \
  X(RUD_SS_ESTIMATE_VARIATION, 0x813, 0x813, 0x811)            \
  X(RUD_SS_ESTIMATE_SUM, 0x1000, 0x1000, 0x100000)             \
  X(RUD_SS_ESTIMATE_RAW_SUM_2, 0x2000, 0x2000, 0x100000)       \
  X(RUD_SS_ESTIMATE_RAW_SUM_3, 0x4000, 0x4000, 0x100000)       \
  X(RUD_SS_ESTIMATE_RAW_SUM_4, 0x8000, 0x8000, 0x100000)       \
  X(RUD_SS_ESTIMATE_CENTRAL_SUM_2, 0x10001, 0x10003, 0x100000) \
  X(RUD_SS_ESTIMATE_CENTRAL_SUM_3, 0x20001, 0x20007, 0x100000) \
  X(RUD_SS_ESTIMATE_CENTRAL_SUM_4, 0x40001, 0x4000F, 0x100000) \
  X(RUD_SS_ESTIMATE_CROSS_PRODUCT, 0x80001, 0x80001, 0x100000)

struct Need {
  std::int64_t estimate;
  std::uint32_t pass, fast, convert;
};
#define TVX_SS_NEED_ROW(e, a, b, c) {e, a, b, c},
constexpr Need kNeeds[] = {TVX_SS_NEEDS(TVX_SS_NEED_ROW)};
#undef TVX_SS_NEED_ROW

constexpr int kHaveStatus[kHaveBits] = {RUD_SS_ERROR_NULL_MEAN,
                                        RUD_SS_ERROR_NULL_RAW_MOMENT_2,
                                        RUD_SS_ERROR_NULL_RAW_MOMENT_3,
                                        RUD_SS_ERROR_NULL_RAW_MOMENT_4,
                                        RUD_SS_ERROR_NULL_CENTRAL_MOMENT_2,
                                        RUD_SS_ERROR_NULL_CENTRAL_MOMENT_3,
                                        RUD_SS_ERROR_NULL_CENTRAL_MOMENT_4,
                                        RUD_SS_ERROR_NULL_COVARIANCE,
                                        RUD_SS_ERROR_NULL_CORRELATION,
                                        RUD_SS_ERROR_NULL_KURTOSIS,
                                        RUD_SS_ERROR_NULL_SKEWNESS,
                                        RUD_SS_ERROR_NULL_VARIATION,
                                        RUD_SS_ERROR_NULL_SUM,
                                        RUD_SS_ERROR_NULL_RAW_SUM_2,
                                        RUD_SS_ERROR_NULL_RAW_SUM_3,
                                        RUD_SS_ERROR_NULL_RAW_SUM_4,
                                        RUD_SS_ERROR_NULL_CENTRAL_SUM_2,
                                        RUD_SS_ERROR_NULL_CENTRAL_SUM_3,
                                        RUD_SS_ERROR_NULL_CENTRAL_SUM_4,
                                        RUD_SS_ERROR_NULL_CROSS_PRODUCT,
                                        RUD_SS_ERROR_BAD_METHOD};

template <class T>
T* have_array(const Task* t, int bit) {
  void* const fields[kHaveBits] = {t->mean,
                                   t->raw_moment_2,
                                   t->raw_moment_3,
                                   t->raw_moment_4,
                                   t->central_moment_2,
                                   t->central_moment_3,
                                   t->central_moment_4,
                                   t->covariance,
                                   t->correlation,
                                   t->kurtosis,
                                   t->skewness,
                                   t->variation,
                                   t->sum,
                                   t->raw_sum_2,
                                   t->raw_sum_3,
                                   t->raw_sum_4,
                                   t->central_sum_2,
                                   t->central_sum_3,
                                   t->central_sum_4,
                                   t->cross_product,
                                   nullptr};
  return static_cast<T*>(fields[bit]);
}

constexpr std::uint32_t bit(int b) {
  return 1u << b;
}
constexpr std::uint32_t kMatrixBits = bit(hCov) | bit(hCor) | bit(hCross);

enum Kind { kOnePass, kFast, kUserMean };

// Level of accumulation from the union, by method; the later test wins.
int level_of(Kind kind, std::uint32_t u) {
  auto any = [u](std::initializer_list<int> bits) {
    for (int b : bits)
      if (u & bit(b)) return true;
    return false;
  };
  int level = 0;
  switch (kind) {
    case kOnePass:
      if (any({hCm2, hCs2})) level = 1;
      if (any({hRaw2, hRs2})) level = 2;
      if (any({hRaw3, hRaw4, hCm3, hCm4, hRs3, hRs4, hCs3, hCs4})) level = 3;
      break;
    case kFast:
      if (any({hRaw2, hRs2})) level = 1;
      if (any({hRaw3, hRs3})) level = 2;
      if (any({hRaw4, hRs4})) level = 3;
      break;
    case kUserMean:
      if (any({hCm3, hCs3})) level = 1;
      if (any({hCm4, hCs4})) level = 2;
      if (any({hRaw2, hRaw3, hRaw4, hRs2, hRs3, hRs4})) level = 3;
      break;
  }
  return level;
}

// Running vectors kept at a level (bit k for slot k).
unsigned kept_slots(Kind kind, int level) {
  constexpr unsigned M = 1u << kMean, R2 = 1u << kRaw2, R3 = 1u << kRaw3, R4 = 1u << kRaw4;
  constexpr unsigned C2 = 1u << kCen2, C3 = 1u << kCen3, C4 = 1u << kCen4;
  switch (kind) {
    case kOnePass: {
      const unsigned s[4] = {M, M | C2, M | R2 | C2, M | R2 | R3 | R4 | C2 | C3 | C4};
      return s[level];
    }
    case kFast: {
      const unsigned s[4] = {M, M | R2, M | R2 | R3, M | R2 | R3 | R4};
      return s[level];
    }
    case kUserMean: {
      const unsigned s[4] = {C2, C2 | C3, C2 | C3 | C4, C2 | C3 | C4 | R2 | R3 | R4};
      return s[level];
    }
  }
  return 0;
}

// ---- Dense routines by real type ---------------------------------------------------------------
inline void syr(int p, double alpha, const double* x, double* a) {
  cblas_dsyr(CblasColMajor, CblasUpper, p, alpha, x, 1, a, p);
}
inline void syr(int p, float alpha, const float* x, float* a) {
  cblas_ssyr(CblasColMajor, CblasUpper, p, alpha, x, 1, a, p);
}
inline void syrk(bool cols, int p, int k, const double* x, int ld, double* c) {
  cblas_dsyrk(CblasColMajor, CblasUpper, cols ? CblasNoTrans : CblasTrans, p, k, 1.0, x, ld, 1.0, c,
              p);
}
inline void syrk(bool cols, int p, int k, const float* x, int ld, float* c) {
  cblas_ssyrk(CblasColMajor, CblasUpper, cols ? CblasNoTrans : CblasTrans, p, k, 1.0f, x, ld, 1.0f,
              c, p);
}
inline void gemm(bool cols, int p, int k, const double* s, const double* x, int ldx, double* c) {
  cblas_dgemm(CblasColMajor, CblasNoTrans, cols ? CblasTrans : CblasNoTrans, p, p, k, 1.0, s, p, x,
              ldx, 1.0, c, p);
}
inline void gemm(bool cols, int p, int k, const float* s, const float* x, int ldx, float* c) {
  cblas_sgemm(CblasColMajor, CblasNoTrans, cols ? CblasTrans : CblasNoTrans, p, p, k, 1.0f, s, p, x,
              ldx, 1.0f, c, p);
}

// ---- Symmetric storage
// ---------------------------------------------------------------------------
enum Form { kFull, kLower, kUpper };
Form form_of(std::int64_t code) {
  if ((code & 3) == 0) return kFull;
  return (code & 2) ? kUpper : kLower;
}
// Position of (i, j) in a form; for the packed forms (i, j) must lie in the stored triangle.
inline std::int64_t position(Form f, std::int64_t p, std::int64_t i, std::int64_t j) {
  switch (f) {
    case kFull:
      return i * p + j;
    case kLower:
      return i * (i + 1) / 2 + j;
    case kUpper:
      return i * p - i * (i - 1) / 2 + j - i;
  }
  return 0;
}
// Element (i, j), i <= j, of a stored symmetric matrix.
template <class T>
T stored(const T* a, Form f, std::int64_t p, std::int64_t i, std::int64_t j) {
  return f == kLower ? a[position(f, p, j, i)] : a[position(f, p, i, j)];
}

// ---- Per-thread state
// ------------------------------------------------------------------------------
template <class T>
struct State {
  T* v[kVectorCount];
  T* matrix;
  T* acc;  // W, W2, two spare
};

template <class T>
struct PassContext {
  Task* task;
  std::int64_t p, n, chunk;
  bool cols, weighted, per_thread_matrix;
  Kind kind;
  const T* x;
  const T* w;
  const T* user_mean;   // caller's means (user mean)
  const T* saved_mean;  // means saved by the previous block (user mean), or null
  Kernel<T> kernel;
  int threads;
  State<T>* states;
  int status;  // first failure of a member, written without ordering
};

template <class T>
void add_products(const PassContext<T>& c, State<T>& s, std::int64_t begin, std::int64_t rows,
                  T* scaled) {
  const int p = static_cast<int>(c.p);
  const int ld = static_cast<int>(c.cols ? c.p : c.n);
  const T* x = c.cols ? c.x + begin * c.p : c.x + begin;
  if (!c.weighted) {
    syrk(c.cols, p, static_cast<int>(rows), x, ld, s.matrix);
    return;
  }
  for (std::int64_t k = 0; k < rows; ++k) {
    const T wk = c.w[begin + k];
    T* col = scaled + k * c.p;
    if (c.cols) {
      for (std::int64_t v = 0; v < c.p; ++v) col[v] = wk * x[k * c.p + v];
    } else {
      for (std::int64_t v = 0; v < c.p; ++v) col[v] = wk * x[v * c.n + k];
    }
  }
  gemm(c.cols, p, static_cast<int>(rows), scaled, x, ld, s.matrix);
}

template <class T>
void run_range(PassContext<T>& c, int t) {
  const std::int64_t step = c.n / c.threads;
  const std::int64_t begin = t * step;
  const std::int64_t end = t == c.threads - 1 ? c.n : begin + step;
  State<T>& s = c.states[t];
  Scratch scratch;
  const bool dense = c.kind != kOnePass && s.matrix != nullptr && c.per_thread_matrix;
  std::size_t bytes;
  const std::size_t extra = dense && c.weighted ? static_cast<std::size_t>(c.chunk) : 0;
  if (!bytes_of(3 + extra, static_cast<std::size_t>(c.p), sizeof(T), &bytes) ||
      !scratch.take(bytes, false)) {
    __atomic_store_n(&c.status, RUD_SS_ERROR_ALLOCATION_FAILURE, __ATOMIC_RELAXED);
    return;
  }
  KernelArgs<T> a{
      begin,          end, c.n, c.p, c.x, c.w, s.acc, {}, c.kind == kOnePass ? s.matrix : nullptr,
      scratch.as<T>()};
  for (int k = 0; k < kVectorCount; ++k) a.v[k] = s.v[k];
  if (!dense) {
    c.kernel(a);
    return;
  }
  // Cross products in raw form for the span of the pass: add W m m', run the chunks, take the
  // new W m m' off again.
  const int p = static_cast<int>(c.p);
  const T* ref = c.kind == kFast ? s.v[kMean] : (c.saved_mean ? c.saved_mean : c.user_mean);
  if (s.acc[0] != T(0)) syr(p, s.acc[0], ref, s.matrix);
  T* scaled = scratch.as<T>() + 3 * c.p;
  for (std::int64_t i = begin; i < end; i += c.chunk) {
    const std::int64_t rows = end - i < c.chunk ? end - i : c.chunk;
    a.begin = i;
    a.end = i + rows;
    c.kernel(a);
    add_products(c, s, i, rows, scaled);
  }
  const T* now = c.kind == kFast ? s.v[kMean] : c.user_mean;
  syr(p, -s.acc[0], now, s.matrix);
}

template <class T>
void worker(std::int64_t, int thread, int team, void* context) {
  auto& c = *static_cast<PassContext<T>*>(context);
  // The team may be smaller than asked for: each member takes every team-th range.
  for (int t = thread; t < c.threads; t += team) run_range(c, t);
}

// Folds state b into a (both partial results of disjoint ranges).
template <class T>
void merge(const PassContext<T>& c, State<T>& a, const State<T>& b, unsigned slots, T* d) {
  const T Wa = a.acc[0], Wb = b.acc[0];
  if (Wb == T(0)) return;
  const T W = Wa + Wb, r = T(1) / W;
  const std::int64_t p = c.p;
  for (std::int64_t v = 0; v < p; ++v)
    d[v] = c.kind == kUserMean ? T(0) : b.v[kMean][v] - a.v[kMean][v];
  if (a.matrix != nullptr && b.matrix != nullptr) {
    const T s = Wa == T(0) ? T(0) : Wa * Wb / (Wa + Wb);
    for (std::int64_t j = 0; j < p; ++j)
      for (std::int64_t i = 0; i <= j; ++i)
        a.matrix[j * p + i] = a.matrix[j * p + i] + (b.matrix[j * p + i] + (s * d[i]) * d[j]);
  }
  const bool c2 = slots & (1u << kCen2), c3 = slots & (1u << kCen3), c4 = slots & (1u << kCen4);
  for (std::int64_t v = 0; v < p; ++v) {
    const T dv = d[v], d2 = dv * dv;
    const T a2 = c2 ? a.v[kCen2][v] : T(0), b2 = c2 ? b.v[kCen2][v] : T(0);
    const T a3 = c3 ? a.v[kCen3][v] : T(0), b3 = c3 ? b.v[kCen3][v] : T(0);
    if (c4)
      a.v[kCen4][v] = a.v[kCen4][v] + b.v[kCen4][v] - T(4) * r * dv * (Wb * a3 - Wa * b3) +
                      (T(6) * (Wb * Wb * a2 + Wa * Wa * b2) +
                       (Wa * Wb * r) * (Wa * Wa + Wb * Wb - Wa * Wb) * d2) *
                          (r * r) * d2;
    if (c3)
      a.v[kCen3][v] =
          a3 + b3 +
          dv * (T(3) * r * (Wa * b2 - Wb * a2) + Wa * Wb * (Wa - Wb) * ((dv * r) * (dv * r)));
    if (c2) a.v[kCen2][v] = a2 + b2 + Wa * Wb * r * d2;
    for (int k = kMean; k <= kRaw4; ++k) {
      if (!(slots & (1u << k)) || (k == kMean && c.kind == kUserMean)) continue;
      a.v[k][v] = (Wa * a.v[k][v] + Wb * b.v[k][v]) * r;
    }
  }
  a.acc[0] = W;
  a.acc[1] = a.acc[1] + b.acc[1];
  a.acc[2] = a.acc[2] + b.acc[2];
  a.acc[3] = a.acc[3] + b.acc[3];
}

// ---- Matrix in and out
// ----------------------------------------------------------------------------- Storage code of a
// requested matrix output; -4044 when its storage pointer is null.
int matrix_form(const Task* t, void* storage, Form* f) {
  if (storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
  *f = form_of(read_int(t, storage));
  return 0;
}

// Rebuilds the working matrix (central form) from a registered output of an earlier block.
template <class T>
void resume_matrix(const Task* t, std::uint32_t u, std::int64_t p, T W, T W2, T* m) {
  const T scale = W - W2 / W;
  const T* src;
  Form f;
  int which;
  if (u & bit(hCross)) {
    src = static_cast<const T*>(t->cross_product), which = 0;
    f = form_of(read_int(t, t->cross_product_storage));
  } else if (u & bit(hCov)) {
    src = static_cast<const T*>(t->covariance), which = 1;
    f = form_of(read_int(t, t->covariance_storage));
  } else {
    src = static_cast<const T*>(t->correlation), which = 2;
    f = form_of(read_int(t, t->correlation_storage));
  }
  for (std::int64_t j = 0; j < p; ++j)
    for (std::int64_t i = 0; i <= j; ++i) {
      T e = stored(src, f, p, i, j);
      if (which == 2 && i != j)
        e = e * std::sqrt(stored(src, f, p, i, i) * stored(src, f, p, j, j));
      m[j * p + i] = which == 0 ? e : e * scale;
    }
}

// Writes g(i, j) for every pair of selected variables, in the form f.
template <class T, class G>
void write_matrix(const Task* t, T* out, Form f, std::int64_t p, G g) {
  for (std::int64_t i = 0; i < p; ++i) {
    if (!selected(t, i)) continue;
    for (std::int64_t j = i; j < p; ++j) {
      if (!selected(t, j)) continue;
      const T e = g(i, j);
      switch (f) {
        case kFull:
          out[i * p + j] = e;
          out[j * p + i] = e;
          break;
        case kLower:
          out[position(f, p, j, i)] = e;
          break;
        case kUpper:
          out[position(f, p, i, j)] = e;
          break;
      }
    }
  }
}

// Final scaling of the working matrix into the requested outputs.
template <class T>
void matrix_outputs(const Task* t, std::uint32_t u, std::int64_t p, T W, T W2, const T* m,
                    const Form forms[3]) {
  const T f = W > T(0) ? T(1) / (W - W2 / W) : T(1);
  auto at = [&](std::int64_t i, std::int64_t j) { return m[j * p + i]; };
  if (u & bit(hCor))
    write_matrix(t, static_cast<T*>(t->correlation), forms[1], p,
                 [&](std::int64_t i, std::int64_t j) {
                   return i == j ? f * at(i, i) : at(i, j) / std::sqrt(at(i, i) * at(j, j));
                 });
  if (u & bit(hCov))
    write_matrix(t, static_cast<T*>(t->covariance), forms[0], p,
                 [&](std::int64_t i, std::int64_t j) { return f * at(i, j); });
  if (u & bit(hCross))
    write_matrix(t, static_cast<T*>(t->cross_product), forms[2], p,
                 [&](std::int64_t i, std::int64_t j) { return at(i, j); });
}

// Kurtosis, skewness and variation of variable v from the central moments and the mean.
template <class T>
void shape_outputs(const Task* t, std::uint32_t u, std::int64_t v, T m, T cm2, T cm3, T cm4) {
  if (u & bit(hKurt)) static_cast<T*>(t->kurtosis)[v] = cm4 / (cm2 * cm2) - T(3);
  if (u & bit(hSkew)) static_cast<T*>(t->skewness)[v] = cm3 / std::sqrt(cm2 * cm2 * cm2);
  if (u & bit(hVar)) static_cast<T*>(t->variation)[v] = std::sqrt(cm2) / m;
}

// ---- Conversion: sums and cross products into moments and covariance ---------------------------
template <class T>
int convert(Task* t, std::uint32_t u, std::int64_t p, const Form forms[3]) {
  T W, W2;
  if (t->accumulated_weights != nullptr) {
    W = static_cast<const T*>(t->accumulated_weights)[0];
    W2 = static_cast<const T*>(t->accumulated_weights)[1];
  } else {
    if (t->observation_count == nullptr) return RUD_SS_ERROR_BAD_OBSERVATION_COUNT;
    W = W2 = static_cast<T>(read_int(t, t->observation_count));
  }
  const T rw = T(1) / W;
  const T c2scale = W / (W * W - W2);
  for (std::int64_t v = 0; v < p; ++v) {
    if (!selected(t, v)) continue;
    for (int k = 0; k < 4; ++k)  // mean and raw moments from the raw sums
      if ((u & bit(hMean + k)) && (u & bit(hSum + k)))
        have_array<T>(t, hMean + k)[v] = have_array<T>(t, hSum + k)[v] * rw;
    for (int k = 0; k < 3; ++k)  // central moments from the central sums
      if ((u & bit(hCm2 + k)) && (u & bit(hCs2 + k))) {
        const T s = have_array<T>(t, hCs2 + k)[v];
        have_array<T>(t, hCm2 + k)[v] = k == 0 ? s * c2scale : s / W;
      }
    auto val = [&](int b) { return (u & bit(b)) ? have_array<T>(t, b)[v] : T(0); };
    shape_outputs(t, u, v, val(hMean), val(hCm2), val(hCm3), val(hCm4));
  }
  if (u & (bit(hCov) | bit(hCor))) {
    if (t->cross_product_storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
    std::size_t bytes;
    Scratch m;
    if (!bytes_of(static_cast<std::size_t>(p), static_cast<std::size_t>(p), sizeof(T), &bytes) ||
        !m.take(bytes, false))
      return RUD_SS_ERROR_ALLOCATION_FAILURE;
    const Form cf = form_of(read_int(t, t->cross_product_storage));
    const T* cp = static_cast<const T*>(t->cross_product);
    for (std::int64_t j = 0; j < p; ++j)
      for (std::int64_t i = 0; i <= j; ++i) m.as<T>()[j * p + i] = stored(cp, cf, p, i, j);
    matrix_outputs(t, u & (bit(hCov) | bit(hCor)), p, W, W2, m.as<T>(), forms);
  }
  return 0;
}

// ---- One normal pass
// ---------------------------------------------------------------------------------
template <class T>
int pass(Task* t, std::uint32_t u, Kind kind, std::int64_t p, const Form forms[3],
         const tvx_thread_services* services) {
  const std::int64_t n = read_int(t, t->observation_count);
  const bool cols = columns_layout(read_int(t, t->observation_storage), p);
  const bool weighted = t->weights != nullptr;
  const bool need_matrix = (u & kMatrixBits) != 0;
  const int level = level_of(kind, u);
  const unsigned slots = kept_slots(kind, level);
  T* accw = static_cast<T*>(t->accumulated_weights);
  T W = accw ? accw[0] : T(0), W2 = accw ? accw[1] : T(0);

  if (need_matrix && kind != kOnePass && (p > INT_MAX || n > INT_MAX))
    return RUD_SS_ERROR_BAD_OBSERVATION_COUNT;  // beyond the dense routines' integer sizes

  // Thread 0's state: seven vectors, the matrix, the weight block, and work space of p.
  const std::size_t pp = static_cast<std::size_t>(p);
  std::size_t mat_elems = 0, bytes;
  if (need_matrix && __builtin_mul_overflow(pp, pp, &mat_elems))
    return RUD_SS_ERROR_ALLOCATION_FAILURE;
  Scratch main;
  if (!bytes_of(8 * pp + mat_elems + 4, 1, sizeof(T), &bytes) || !main.take(bytes, true))
    return RUD_SS_ERROR_ALLOCATION_FAILURE;
  T* base = main.as<T>();
  State<T> s0{};
  for (int k = 0; k < kVectorCount; ++k) s0.v[k] = (slots & (1u << k)) ? base + k * pp : nullptr;
  T* work = base + 7 * pp;
  s0.matrix = need_matrix ? base + 8 * pp : nullptr;
  s0.acc = base + 8 * pp + mat_elems;
  const T* user_mean = static_cast<const T*>(t->mean);
  if (kind == kUserMean) s0.v[kMean] = const_cast<T*>(user_mean);

  // Resume from the outputs of earlier blocks.
  if (W > T(0)) {
    const T rw = T(1) / W;
    bool have[kVectorCount] = {};
    for (int k = kMean; k <= kRaw4; ++k) {
      if (!(slots & (1u << k)) || (k == kMean && kind == kUserMean)) continue;
      const T* from_sum = (u & bit(hSum + k)) ? have_array<T>(t, hSum + k) : nullptr;
      const T* from_moment = (u & bit(hMean + k)) ? have_array<T>(t, hMean + k) : nullptr;
      for (std::int64_t v = 0; v < p; ++v)
        s0.v[k][v] = from_sum ? from_sum[v] * rw : from_moment ? from_moment[v] : T(0);
      have[k] = from_sum || from_moment;
    }
    for (int k = 0; k < 3; ++k) {
      const int slot = kCen2 + k;
      if (!(slots & (1u << slot))) continue;
      const T* from_sum = (u & bit(hCs2 + k)) ? have_array<T>(t, hCs2 + k) : nullptr;
      const T* from_moment = (u & bit(hCm2 + k)) ? have_array<T>(t, hCm2 + k) : nullptr;
      const T mscale = k == 0 ? (W * W - W2) / W : W;
      T* c = s0.v[slot];
      if (from_sum || from_moment) {
        for (std::int64_t v = 0; v < p; ++v)
          c[v] = from_sum ? from_sum[v] : from_moment[v] * mscale;
      } else if (kind == kOnePass && have[kMean] && have[kRaw2] && (k == 0 || have[kRaw3]) &&
                 (k < 2 || have[kRaw4])) {
        // A central sum that no array keeps, rebuilt from the raw averages.
        for (std::int64_t v = 0; v < p; ++v) {
          const T m = s0.v[kMean][v], r2 = s0.v[kRaw2][v];
          const T r3 = k >= 1 ? s0.v[kRaw3][v] : T(0), r4 = k >= 2 ? s0.v[kRaw4][v] : T(0);
          const T e = k == 0   ? r2 - m * m
                      : k == 1 ? r3 - m * (T(3) * r2 - T(2) * m * m)
                               : r4 - T(4) * m * r3 + m * m * (T(6) * r2 - T(3) * m * m);
          c[v] = e * W;
        }
      }
    }
    if (need_matrix) resume_matrix(t, u, p, W, W2, s0.matrix);
    s0.acc[0] = W;
    s0.acc[1] = W2;
  }

  // Team size: one thread per 8192 units of work, at least 16 observations each.
  const std::int64_t limit = services->thread_limit();
  const double work_units = static_cast<double>(need_matrix ? p : 1) * static_cast<double>(p) *
                            static_cast<double>(n) / 8192.0;
  std::int64_t threads = limit;
  if (work_units < static_cast<double>(threads)) threads = static_cast<std::int64_t>(work_units);
  if ((n >> 4) < threads) threads = n >> 4;
  if (threads < 1) threads = 1;

  // Rows per chunk of the dense path: about 256 KiB of observations.
  const std::size_t obs_bytes = sizeof(T) * pp * (weighted ? 2 : 1);
  std::int64_t chunk = obs_bytes > 0x40000 ? 0 : static_cast<std::int64_t>(0x40000 / obs_bytes);
  if (chunk < 64) chunk = 64;
  const bool dense_after = need_matrix && kind != kOnePass && !weighted && chunk < p;

  PassContext<T> c{};
  c.task = t;
  c.p = p;
  c.n = n;
  c.chunk = chunk;
  c.cols = cols;
  c.weighted = weighted;
  c.per_thread_matrix = need_matrix && !dense_after;
  c.kind = kind;
  c.x = static_cast<const T*>(t->observations);
  c.w = static_cast<const T*>(t->weights);
  c.user_mean = user_mean;
  c.saved_mean = static_cast<const T*>(t->saved_means);
  const int index = kind == kOnePass ? one_pass_index(cols, weighted, level, need_matrix)
                    : kind == kFast  ? fast_index(cols, weighted, level)
                                     : user_mean_index(cols, weighted, level);
  c.kernel = kKernels<T>.k[index];
  c.threads = static_cast<int>(threads);
  c.status = 0;

  if (dense_after && W != T(0)) {
    const T* ref = kind == kFast ? s0.v[kMean] : (c.saved_mean ? c.saved_mean : user_mean);
    syr(static_cast<int>(p), W, ref, s0.matrix);
  }

  Scratch others;
  State<T> states_small[1];
  State<T>* states = states_small;
  Scratch state_list;
  if (threads > 1) {
    const std::size_t per = 7 * pp + (c.per_thread_matrix ? mat_elems : 0) + 4;
    if (!bytes_of(per, static_cast<std::size_t>(threads - 1), sizeof(T), &bytes) ||
        !others.take(bytes, true) || !state_list.take(sizeof(State<T>) * threads, false))
      return RUD_SS_ERROR_ALLOCATION_FAILURE;
    states = state_list.as<State<T>>();
    for (std::int64_t k = 1; k < threads; ++k) {
      T* b = others.as<T>() + (k - 1) * per;
      State<T>& s = states[k];
      for (int q = 0; q < kVectorCount; ++q) s.v[q] = (slots & (1u << q)) ? b + q * pp : nullptr;
      if (kind == kUserMean) s.v[kMean] = const_cast<T*>(user_mean);
      s.matrix = c.per_thread_matrix ? b + 7 * pp : nullptr;
      s.acc = b + 7 * pp + (c.per_thread_matrix ? mat_elems : 0);
    }
  }
  states[0] = s0;
  if (dense_after) states[0].matrix = nullptr;
  c.states = states;

  if (threads > 1)
    services->parallel_region(&c, static_cast<int>(threads), &worker<T>);
  else
    run_range(c, 0);
  if (__atomic_load_n(&c.status, __ATOMIC_RELAXED) < 0) return c.status;
  for (std::int64_t k = 1; k < threads; ++k) merge(c, states[0], states[k], slots, work);
  s0.acc = states[0].acc;

  if (dense_after) {
    syrk(cols, static_cast<int>(p), static_cast<int>(n), c.x, static_cast<int>(cols ? p : n),
         s0.matrix);
    const T* now = kind == kFast ? s0.v[kMean] : user_mean;
    syr(static_cast<int>(p), -s0.acc[0], now, s0.matrix);
  }

  // Final stage: running values into the requested outputs, selected variables only.
  W = s0.acc[0];
  W2 = s0.acc[1];
  const T c2div = W / (W * W - W2);
  for (std::int64_t v = 0; v < p; ++v) {
    if (!selected(t, v)) continue;
    const T m = s0.v[kMean] ? s0.v[kMean][v] : T(0);
    for (int k = kMean; k <= kRaw4; ++k) {
      if (!s0.v[k]) continue;
      if ((u & bit(hMean + k)) && !(k == kMean && kind == kUserMean))
        have_array<T>(t, hMean + k)[v] = s0.v[k][v];
      if (u & bit(hSum + k)) have_array<T>(t, hSum + k)[v] = s0.v[k][v] * W;
    }
    T cen[3];  // central sums
    if (kind == kFast) {
      const T r2 = s0.v[kRaw2] ? s0.v[kRaw2][v] : T(0);
      const T r3 = s0.v[kRaw3] ? s0.v[kRaw3][v] : T(0);
      const T r4 = s0.v[kRaw4] ? s0.v[kRaw4][v] : T(0);
      const T e2 = r2 - m * m;
      const T e3 = r3 - m * (T(3) * r2 - T(2) * m * m);
      const T e4 = r4 - T(4) * m * r3 + m * m * (T(6) * r2 - T(3) * m * m);
      cen[0] = e2 * W, cen[1] = e3 * W, cen[2] = e4 * W;
      const T cm2 = e2 * (W * W / (W * W - W2));
      if (u & bit(hCm2)) static_cast<T*>(t->central_moment_2)[v] = cm2;
      if (u & bit(hCm3)) static_cast<T*>(t->central_moment_3)[v] = e3;
      if (u & bit(hCm4)) static_cast<T*>(t->central_moment_4)[v] = e4;
      for (int k = 0; k < 3; ++k)
        if (u & bit(hCs2 + k)) have_array<T>(t, hCs2 + k)[v] = cen[k];
      shape_outputs(t, u, v, m, cm2, e3, e4);
    } else {
      for (int k = 0; k < 3; ++k) cen[k] = s0.v[kCen2 + k] ? s0.v[kCen2 + k][v] : T(0);
      for (int k = 0; k < 3; ++k)
        if (u & bit(hCs2 + k)) have_array<T>(t, hCs2 + k)[v] = cen[k];
      const T cm2 = cen[0] * c2div, cm3 = cen[1] / W, cm4 = cen[2] / W;
      if (u & bit(hCm2)) static_cast<T*>(t->central_moment_2)[v] = cm2;
      if (u & bit(hCm3)) static_cast<T*>(t->central_moment_3)[v] = cm3;
      if (u & bit(hCm4)) static_cast<T*>(t->central_moment_4)[v] = cm4;
      shape_outputs(t, u, v, kind == kUserMean ? user_mean[v] : m, cm2, cm3, cm4);
    }
  }
  if (need_matrix) matrix_outputs(t, u, p, W, W2, s0.matrix, forms);
  if (accw) {
    accw[0] = W;
    accw[1] = W2;
  }
  if (kind == kUserMean) {
    if (t->saved_means == nullptr) {
      t->saved_means = tvx_malloc(pp * sizeof(T), 128);
      if (t->saved_means == nullptr) return RUD_SS_ERROR_ALLOCATION_FAILURE;
    }
    std::memcpy(t->saved_means, user_mean, pp * sizeof(T));
  }
  return 0;
}

}  // namespace

template <class T>
int basic_group(Task* t, std::int64_t estimates, std::uint32_t method,
                const tvx_thread_services* services) {
  const int methods = ((method & 0x1) != 0) + ((method & 0x2) != 0) + ((method & 0x100) != 0);
  if (methods >= 2) return RUD_SS_ERROR_BAD_METHOD;
  const bool conversion = methods == 0;
  if (conversion && (method & 0x600) == 0) return RUD_SS_ERROR_BAD_METHOD;
  const std::int64_t p = read_int(t, t->variable_count);
  if (!conversion) {
    if (t->observation_count == nullptr || read_int(t, t->observation_count) < 1)
      return RUD_SS_ERROR_BAD_OBSERVATION_COUNT;
    if (t->observations == nullptr) return RUD_SS_ERROR_NULL_OBSERVATIONS;
    if (t->observation_storage == nullptr) return RUD_SS_ERROR_NULL_STORAGE;
    if ((read_int(t, t->observation_storage) & 0x30000) == 0) return RUD_SS_ERROR_BAD_STORAGE;
  }
  const Kind kind = (method & 0x1) ? kFast : (method & 0x100) ? kUserMean : kOnePass;
  std::uint32_t u = 0;
  for (const Need& row : kNeeds)
    if (estimates & row.estimate)
      u |= conversion ? row.convert : kind == kFast ? row.fast : row.pass;
  // The user-mean kernels centre every quantity on the caller's means.
  if (!conversion && kind == kUserMean) u |= bit(hMean);
  std::uint32_t have = 0;
  for (int b = 0; b < kHaveBits; ++b)
    if (have_array<T>(t, b) != nullptr) have |= bit(b);
  const std::uint32_t faults = u & ~have;
  if (faults != 0) return kHaveStatus[__builtin_ctz(faults)];

  Form forms[3] = {kFull, kFull, kFull};  // covariance, correlation, cross product
  int status = 0;
  if (estimates & RUD_SS_ESTIMATE_COVARIANCE)
    status = matrix_form(t, t->covariance_storage, &forms[0]);
  if (!status && (estimates & RUD_SS_ESTIMATE_CORRELATION))
    status = matrix_form(t, t->correlation_storage, &forms[1]);
  if (!status && (estimates & RUD_SS_ESTIMATE_CROSS_PRODUCT) && !conversion)
    status = matrix_form(t, t->cross_product_storage, &forms[2]);
  if (status) return status;
  // An output of the matrix that the union holds without a request still needs a storage.
  if (((u & bit(hCov)) && !t->covariance_storage) || ((u & bit(hCor)) && !t->correlation_storage) ||
      (!conversion && (u & bit(hCross)) && !t->cross_product_storage))
    return RUD_SS_ERROR_NULL_STORAGE;
  if ((u & bit(hCov)) && !(estimates & RUD_SS_ESTIMATE_COVARIANCE))
    forms[0] = form_of(read_int(t, t->covariance_storage));
  if ((u & bit(hCor)) && !(estimates & RUD_SS_ESTIMATE_CORRELATION))
    forms[1] = form_of(read_int(t, t->correlation_storage));
  if (!conversion && (u & bit(hCross)) && !(estimates & RUD_SS_ESTIMATE_CROSS_PRODUCT))
    forms[2] = form_of(read_int(t, t->cross_product_storage));

  if (conversion) return convert<T>(t, u, p, forms);
  return pass<T>(t, u, kind, p, forms, services);
}

template int basic_group<double>(Task*, std::int64_t, std::uint32_t, const tvx_thread_services*);
template int basic_group<float>(Task*, std::int64_t, std::uint32_t, const tvx_thread_services*);

template <class T>
T run_mean(const T* x, const T* w, std::int64_t n) {
  T acc[4] = {};
  T mean = T(0);
  KernelArgs<T> a{0, n, n, 1, x, w, acc, {&mean}, nullptr, nullptr};
  if (w != nullptr)
    fast_kernel<T, false, true, 0>(a);
  else
    fast_kernel<T, false, false, 0>(a);
  return mean;
}
template double run_mean<double>(const double*, const double*, std::int64_t);
template float run_mean<float>(const float*, const float*, std::int64_t);

}  // namespace tvx::TVX_VNS::ss
