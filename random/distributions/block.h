// The block structure every distribution's variant function is built on. Included only by files
// compiled per instruction-set variant.
//
// - A call is worked in rounds of at most kRound results through buffers on the stack; nothing is
//   allocated per block. Uniforms are drawn in order, so the cut of a request (one call of n or
//   many smaller calls) never changes the values.
// - The basic generator is reached through the stream's catalogue row of this copy.
// - Element-wise kernels are called straight through their dispatch rows, in this copy's column:
//   EP for double results, LA for single and integer results, HA for one-off set-up values, with
//   denormals left as they are (KernelMode) and the caller's mode word restored afterwards.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "random/distributions/frame.h"
#include "random/distributions/kernel_rows.h"
#include "random/streams/catalogue.h"
#include "simd/variant.h"
#include "vector/frame/mode_status.h"
#include "vector/frame/rows.h"

namespace tvx::TVX_VNS::dist {

// Results per round.
inline constexpr int kRound = 1024;

// The method word's accuracy flag.
inline constexpr int kAccurate = TVX_RNG_FLAG;

// ---- Catalogue --------------------------------------------------------------------------------
// The stream's row in this copy's catalogue, or null when its number is not there.
inline const RudBrngProperties* row_of(RudStreamPtr stream) {
  return TVX_ENTRY(rud_brng_row)(rud::header(stream)->brng);
}

// ---- Accurate forms ----------------------------------------------------------------------------
// Keeps x in [a, b): values below a become a, values at or above b the largest value below b.
// Rounding in a + x (b - a) can reach b; only the accurate form pays for this pass.
template <class T>
inline void clamp_half_open(int n, T* r, T a, T b) {
  const T top = std::max(a, std::nextafter(b, a));
  for (int i = 0; i < n; ++i) r[i] = std::min(std::max(r[i], a), top);
}

// ---- Internal uniforms -------------------------------------------------------------------------
// n uniforms on [a, b) from the stream's basic generator, in the caller's order. With the accuracy
// flag in `method` the results are clamped into [a, b). A negative status of the generator is
// returned as it is. The distributions call these with method 0 and [0, 1) unless they need
// otherwise.
inline int uniform_d(int method, RudStreamPtr stream, int n, double* r, double a, double b) {
  const RudBrngProperties* row = row_of(stream);
  if (row == nullptr || row->dBRng == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  const int status = row->dBRng(stream, n, r, a, b);
  if (status < 0 || (method & kAccurate) == 0 || n < 1) return status;
  clamp_half_open(n, r, a, b);
  return status;
}

inline int uniform_s(int method, RudStreamPtr stream, int n, float* r, float a, float b) {
  const RudBrngProperties* row = row_of(stream);
  if (row == nullptr || row->sBRng == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  const int status = row->sBRng(stream, n, r, a, b);
  if (status < 0 || (method & kAccurate) == 0 || n < 1) return status;
  clamp_half_open(n, r, a, b);
  return status;
}

// ---- Rounds ------------------------------------------------------------------------------------
// Calls body(done, m) for consecutive rounds of m <= kRound results until n are made; a negative
// status from a round ends the call with it (earlier rounds stay stored).
template <class Body>
inline int in_rounds(int n, Body&& body) {
  for (int done = 0; done < n;) {
    const int m = std::min(kRound, n - done);
    const int status = body(done, m);
    if (status < 0) return status;
    done += m;
  }
  return RUD_STATUS_OK;
}

// ---- Kernel calls ------------------------------------------------------------------------------
// Accuracy level a result type calls its kernels at: EP for double, LA for single and integer.
template <class Result>
inline constexpr int kLevel = std::is_same_v<Result, double> ? KAZ_EP : KAZ_LA;
inline constexpr int kSetupLevel = KAZ_HA;

// The cell of a dispatch row that this copy calls at an accuracy level.
template <class Row>
inline auto cell(const Row& row, int level) {
  return row.kernels[kVariantId + 6 * (level - 1)];
}

// Runs kernel calls with denormals left as they are (the denormal field set to "flush off"
// through the merge-by-field mode call), and puts the caller's whole mode word back afterwards.
class KernelMode {
 public:
  KernelMode() : saved_(kazSetMode(KAZ_FLUSH_DENORMALS_OFF)) {}
  ~KernelMode() { tvx_kaz_thread_block()->mode = saved_; }
  KernelMode(const KernelMode&) = delete;
  KernelMode& operator=(const KernelMode&) = delete;

 private:
  unsigned int saved_;
};

// The kernel of `row` over n elements at the level of Result, with the row's own arguments after
// n: (a, r) for one input and one result, (a, r1, r2) for two results, (a, scalar, r) for a
// vector and a scalar.
template <class Result, class Row, class... Args>
inline void kernel(const Row& row, int n, Args... args) {
  KernelMode mode;
  cell(row, kLevel<Result>)(n, args...);
}

// The same through a row looked up by name (kernel_rows.h); the caller has made sure it is built.
template <class Result, class K, class... Args>
inline void kernel(const ::tvx::dist::RowRef<K>& ref, int n, Args... args) {
  kernel<Result>(*ref.row, n, args...);
}

// Status of a call whose chain needs a vector function that has no kernels in this build.
inline constexpr int kKernelMissing = RUD_ERROR_BAD_OPERATION;

// One set-up value through the HA cell of a one-input row.
template <class Row, class T>
inline T setup_value(const Row& row, T x) {
  T y;
  KernelMode mode;
  cell(row, kSetupLevel)(1, &x, &y);
  return y;
}

// For a distribution whose kernels may meet an argument they refuse (a logarithm of 0): the error
// mode is set to the callback alone, `callback` is installed to give the element a finite value,
// and both are put back on the way out.
class ErrorCallbackScope {
 public:
  explicit ErrorCallbackScope(KazErrorCallBack callback)
      : mode_(kazSetMode(KAZ_ERRMODE_CALLBACK)), callback_(kazSetErrorCallBack(callback)) {}
  ~ErrorCallbackScope() {
    kaz_thread_block* block = tvx_kaz_thread_block();
    block->callback = callback_;
    block->mode = mode_;
  }
  ErrorCallbackScope(const ErrorCallbackScope&) = delete;
  ErrorCallbackScope& operator=(const ErrorCallbackScope&) = delete;

 private:
  unsigned int mode_;
  KazErrorCallBack callback_;
};

}  // namespace tvx::TVX_VNS::dist
