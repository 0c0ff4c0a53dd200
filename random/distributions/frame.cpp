// The exported frame of the distributions, expanded from distributions.def for every built row:
// the argument checks in their fixed order with their report positions, the choice of the copy
// (once per export, by CPU type), the verbose line, and the lower-case twin.
#include <atomic>
#include <cstdint>

#include "random/distributions/frame.h"
#include "random/streams/catalogue.h"
#include "runtime/cpu_type.h"
#include "runtime/report.h"
#include "runtime/verbose.h"

namespace tvx::rud {
namespace {

void report(const char* name, int position) {
  tvx_param_error_install_default(nullptr);
  const std::int64_t info = position;
  tvx_param_error_report(name, &info, static_cast<int>(tvx_strnlen_s(name, 50)));
}

int refuse(const char* name, int position) {
  report(name, position);
  return RUD_ERROR_BAD_ARGS;
}

// A method word outside the row's column: methods 0 .. max_method, plus the accuracy flag where
// the row honours it. Negative words were refused before.
constexpr bool method_refused(int method, int max_method, bool flag) {
  return (flag ? (method & ~TVX_RNG_FLAG) : method) > max_method;
}

// The slot of an export: taken from its table of ten copy pointers by CPU type on first use and
// kept. Two threads may fill it at once with the same value. A CPU type outside the table leaves
// the slot empty and the call runs the base copy, which every x86-64 processor can run.
template <class Fn>
Fn resolve(std::atomic<Fn>& slot, const Fn (&by_cpu_type)[10]) {
  Fn fn = slot.load(std::memory_order_acquire);
  if (fn != nullptr) return fn;
  const int cpu = tvx_rud_cpu_type();
  if (cpu < 0 || cpu > 9) return by_cpu_type[0];
  fn = by_cpu_type[cpu];
  slot.store(fn, std::memory_order_release);
  return fn;
}

}  // namespace
}  // namespace tvx::rud

using tvx::verbose_wrap;
using tvx::rud::method_refused;
using tvx::rud::refuse;
using tvx::rud::report;
using tvx::rud::resolve;
using tvx::rud::stream_test;

// CPU types 0, 2, 3, 4 run the base copy, 1 the compatibility copy, 5 and 6 the SSE4.2 copy, 7
// and 8 the AVX2 copy, 9 the AVX-512 copy.
#define TVX_RNG_TEN(Export)                                                                       \
  {                                                                                               \
    &rud_##Export##_sse2, &rud_##Export##_sse2b, &rud_##Export##_sse2, &rud_##Export##_sse2,      \
        &rud_##Export##_sse2, &rud_##Export##_sse42, &rud_##Export##_sse42, &rud_##Export##_avx2, \
        &rud_##Export##_avx2, &rud_##Export##_avx512                                              \
  }

#define TVX_REFUSE(refused, position) \
  if (refused) return refuse(kReport, position);
#define TVX_RNG_NULL(p, position) \
  if ((p) == nullptr) return refuse(kReport, position);

#define TVX_RNG_EXPORT(Export, twin, out, real, cls, names, max_method, flag, checks, rname,      \
                       vname)                                                                     \
  namespace {                                                                                     \
  using Export##_fn = int (*)(int, RudStreamPtr, int, out* TVX_RNG_P(DECL, cls, real, names));    \
  std::atomic<Export##_fn> Export##_slot{nullptr};                                                \
  const Export##_fn Export##_copies[10] = TVX_RNG_TEN(Export);                                    \
  }                                                                                               \
  extern "C" TVX_API int Export(int method, RudStreamPtr stream, int n,                           \
                                out r[] TVX_RNG_P(DECL, cls, real, names)) {                      \
    static constexpr const char* kReport = rname;                                                 \
    if (method < 0) return refuse(kReport, 1);                                                    \
    if (const int status = stream_test(stream); status != RUD_STATUS_OK) {                        \
      report(kReport, 2);                                                                         \
      return status;                                                                              \
    }                                                                                             \
    if (n < 0) return refuse(kReport, 3);                                                         \
    if (n == 0) return RUD_STATUS_OK;                                                             \
    if (r == nullptr) return refuse(kReport, 4);                                                  \
    if (method_refused(method, max_method, flag)) return refuse(kReport, 1);                      \
    TVX_RNG_EXPAND checks const Export##_fn fn = resolve(Export##_slot, Export##_copies);         \
    return verbose_wrap(                                                                          \
        [&] { return fn(method, stream, n, r TVX_RNG_P(ARGS, cls, real, names)); },               \
        "%s(%d,%p,%d,%p" TVX_RNG_P(FMT, cls, real, names) ")", vname, method,                     \
        static_cast<void*>(stream), n, static_cast<void*>(r) TVX_RNG_P(FARGS, cls, real, names)); \
  }                                                                                               \
  TVX_RNG_WITH_TWIN(TVX_RNG_TWIN_EXPORT, twin, Export, out, real, cls, names, rname)

// The twin takes every scalar by pointer; a null one is refused at its argument's position, a
// null stream pointer like a null stream.
#define TVX_RNG_TWIN_EXPORT(twin, Export, out, real, cls, names, rname)                    \
  extern "C" TVX_API int twin(const int* method, const RudStreamPtr* stream, const int* n, \
                              out r[] TVX_RNG_P(TWDECL, cls, real, names)) {               \
    static constexpr const char* kReport = rname;                                          \
    TVX_RNG_NULL(method, 1)                                                                \
    if (stream == nullptr) {                                                               \
      report(kReport, 2);                                                                  \
      return RUD_ERROR_NULL_PTR;                                                           \
    }                                                                                      \
    TVX_RNG_NULL(n, 3)                                                                     \
    TVX_RNG_P(NULLS, cls, real, names)                                                     \
    return Export(*method, *stream, *n, r TVX_RNG_P(DEREF, cls, real, names));             \
  }

#define TVX_RNG(Export, twin, state, out, real, cls, names, max_method, flag, checks, rname,      \
                vname)                                                                            \
  TVX_RNG_IF(state, TVX_RNG_EXPORT(Export, twin, out, real, cls, names, max_method, flag, checks, \
                                   rname, vname))
#include "random/distributions/distributions.def"
#undef TVX_RNG
