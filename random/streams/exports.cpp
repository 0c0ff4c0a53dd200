// Exported stream functions: argument checks with their report positions, the choice of the
// variant copy (once per export, by CPU type), the verbose line, and the lower-case twins.
#include <atomic>
#include <cstdint>

#include <cstring>

#include "random/streams/catalogue.h"
#include "random/streams/image.h"
#include "runtime/memory.h"
#include "runtime/cpu_type.h"
#include "runtime/report.h"
#include "runtime/verbose.h"

namespace tvx::rud {
namespace {

// One pointer per export, resolved on first call from the CPU type and never reset. Two threads
// may resolve it at once; both store the same value.
template <class Fn, std::size_t N>
Fn resolve(std::atomic<Fn>& slot, const Fn (&copies)[N]) {
  Fn fn = slot.load(std::memory_order_acquire);
  if (fn == nullptr) {
    fn = copies[tvx_rud_variant_of_cpu_type(tvx_rud_cpu_type())];
    slot.store(fn, std::memory_order_release);
  }
  return fn;
}

#define TVX_RUD_SLOT(name, type)                                                               \
  std::atomic<type> name##_slot{nullptr};                                                      \
  const type name##_copies[5] = {&rud_##name##_sse2, &rud_##name##_sse2b, &rud_##name##_sse42, \
                                 &rud_##name##_avx2, &rud_##name##_avx512};

using NewFn = int (*)(RudStreamPtr*, int, int, const unsigned int*);
using DeleteFn = int (*)(RudStreamPtr*);
using StreamFn = int (*)(RudStreamPtr);
using RegisterFn = int (*)(const RudBrngProperties*);
using PropertiesFn = int (*)(int, RudBrngProperties*);
using CountFn = int (*)(void);
using LeapfrogFn = int (*)(RudStreamPtr, unsigned int, int);
using SkipFn = int (*)(RudStreamPtr, long long);

TVX_RUD_SLOT(new_stream_ex, NewFn)
TVX_RUD_SLOT(delete_stream, DeleteFn)
TVX_RUD_SLOT(get_stream_state_brng, StreamFn)
TVX_RUD_SLOT(get_stream_size, StreamFn)
TVX_RUD_SLOT(register_brng, RegisterFn)
TVX_RUD_SLOT(get_brng_properties, PropertiesFn)
TVX_RUD_SLOT(get_num_reg_brngs, CountFn)
TVX_RUD_SLOT(leapfrog_stream, LeapfrogFn)
TVX_RUD_SLOT(skip_ahead_stream, SkipFn)
using CopyFn = int (*)(RudStreamPtr*, RudStreamPtr);
using CopyStateFn = int (*)(RudStreamPtr, RudStreamPtr);
using SaveFileFn = int (*)(RudStreamPtr, const char*);
using LoadFileFn = int (*)(RudStreamPtr*, const char*);
using SaveMemFn = int (*)(RudStreamPtr, char*);
using LoadMemFn = int (*)(RudStreamPtr*, const char*, std::size_t);

TVX_RUD_SLOT(copy_stream, CopyFn)
TVX_RUD_SLOT(copy_stream_state, CopyStateFn)
TVX_RUD_SLOT(save_stream_file, SaveFileFn)
TVX_RUD_SLOT(load_stream_file, LoadFileFn)
TVX_RUD_SLOT(save_stream_mem, SaveMemFn)
TVX_RUD_SLOT(load_stream_mem, LoadMemFn)
#undef TVX_RUD_SLOT

// Parameter report: the position of the bad argument under the export's name.
void report(const char* name, int position) {
  tvx_param_error_install_default(nullptr);
  const std::int64_t info = position;
  tvx_param_error_report(name, &info, static_cast<int>(tvx_strnlen_s(name, 50)));
}

// Stream test of a frame; a failure is reported at `position`.
int checked_stream(RudStreamPtr stream, const char* name, int position) {
  const int status = stream_test(stream);
  if (status != RUD_STATUS_OK) report(name, position);
  return status;
}

int new_stream_frame(const char* name, RudStreamPtr* stream, int brng, int n,
                     const unsigned int* params, unsigned int seed, bool one_seed) {
  if (brng < 0) {
    report(name, 2);
    return RUD_RNG_ERROR_INVALID_BRNG;
  }
  const NewFn fn = resolve(new_stream_ex_slot, new_stream_ex_copies);
  const auto body = [&] { return fn(stream, brng, n, params); };
  const int status =
      one_seed ? verbose_wrap(body, "%s(%p,%d,%u)", name, static_cast<void*>(stream), brng, seed)
               : verbose_wrap(body, "%s(%p,%d,%d,%p)", name, static_cast<void*>(stream), brng, n,
                              static_cast<const void*>(params));
  // A number refused by the copy is reported under rudNewStream for both exports.
  if (status == RUD_RNG_ERROR_INVALID_BRNG) report("rudNewStream", 2);
  return status;
}

// A null scalar pointer of a twin is refused like a null stream, at the argument's position.
bool null_scalar(const void* p, const char* name, int position) {
  if (p != nullptr) return false;
  report(name, position);
  return true;
}

// A file name as the exports take it: zero-terminated for a negative `length`, else `length`
// bytes, which are copied and terminated. `owned` is set when the caller must free the result.
const char* file_name(const char* name, int length, bool& owned, int& status) {
  owned = false;
  status = RUD_STATUS_OK;
  if (length < 0) return name;
  auto* copy = static_cast<char*>(tvx_malloc(static_cast<std::size_t>(length) + 1, 64));
  if (copy == nullptr) {
    status = RUD_ERROR_MEM_FAILURE;
    return nullptr;
  }
  std::memcpy(copy, name, static_cast<std::size_t>(length));
  copy[length] = '\0';
  owned = true;
  return copy;
}

int save_file_frame(RudStreamPtr stream, const char* name, int length) {
  const char* export_name = "rudSaveStreamF";
  if (const int status = checked_stream(stream, export_name, 1)) return status;
  if (name == nullptr) {
    report(export_name, 2);
    return RUD_ERROR_BAD_ARGS;
  }
  bool owned;
  int status;
  const char* path = file_name(name, length, owned, status);
  if (status != RUD_STATUS_OK) return status;
  const SaveFileFn fn = resolve(save_stream_file_slot, save_stream_file_copies);
  status = verbose_wrap([&] { return fn(stream, path); }, "%s(%p,%s)", export_name,
                        static_cast<void*>(stream), path);
  if (owned) tvx_free(const_cast<char*>(path));
  return status;
}

int load_file_frame(RudStreamPtr* stream, const char* name, int length) {
  const char* export_name = "rudLoadStreamF";
  if (stream == nullptr) {
    report(export_name, 1);
    return RUD_ERROR_NULL_PTR;
  }
  if (name == nullptr) {
    report(export_name, 2);
    return RUD_ERROR_BAD_ARGS;
  }
  bool owned;
  int status;
  const char* path = file_name(name, length, owned, status);
  if (status != RUD_STATUS_OK) return status;
  const LoadFileFn fn = resolve(load_stream_file_slot, load_stream_file_copies);
  status = verbose_wrap([&] { return fn(stream, path); }, "%s(%p,%s)", export_name,
                        static_cast<void*>(stream), path);
  if (owned) tvx_free(const_cast<char*>(path));
  return status;
}

}  // namespace

}  // namespace tvx::rud

using namespace tvx::rud;
using tvx::verbose_wrap;

extern "C" {

TVX_API int rudNewStream(RudStreamPtr* stream, int brng, unsigned int seed) {
  return new_stream_frame("rudNewStream", stream, brng, 1, &seed, seed, true);
}

TVX_API int rudNewStreamEx(RudStreamPtr* stream, int brng, int n, const unsigned int params[]) {
  return new_stream_frame("rudNewStreamEx", stream, brng, n, params, 0, false);
}

TVX_API int rudDeleteStream(RudStreamPtr* stream) {
  const char* name = "rudDeleteStream";
  const int status = checked_stream(stream != nullptr ? *stream : nullptr, name, 1);
  if (status != RUD_STATUS_OK) return status;
  const DeleteFn fn = resolve(delete_stream_slot, delete_stream_copies);
  return verbose_wrap([&] { return fn(stream); }, "%s(%p)", name, static_cast<void*>(stream));
}

TVX_API int rudGetStreamStateBrng(RudStreamPtr stream) {
  const char* name = "rudGetStreamStateBrng";
  const int status = checked_stream(stream, name, 1);
  if (status != RUD_STATUS_OK) return status;
  const StreamFn fn = resolve(get_stream_state_brng_slot, get_stream_state_brng_copies);
  return verbose_wrap([&] { return fn(stream); }, "%s(%p)", name, static_cast<void*>(stream));
}

TVX_API int rudGetStreamSize(RudStreamPtr stream) {
  const char* name = "rudGetStreamSize";
  const int status = checked_stream(stream, name, 1);
  if (status != RUD_STATUS_OK) return status;
  const StreamFn fn = resolve(get_stream_size_slot, get_stream_size_copies);
  return verbose_wrap([&] { return fn(stream); }, "%s(%p)", name, static_cast<void*>(stream));
}

TVX_API int rudRegisterBrng(const RudBrngProperties* properties) {
  const RegisterFn fn = resolve(register_brng_slot, register_brng_copies);
  const int result = verbose_wrap([&] { return fn(properties); }, "%s(%p)", "rudRegisterBrng",
                                  static_cast<const void*>(properties));
  if (result < 0) report("rudRegisterBrng", 1);
  return result;
}

TVX_API int rudGetBrngProperties(int brng, RudBrngProperties* properties) {
  const PropertiesFn fn = resolve(get_brng_properties_slot, get_brng_properties_copies);
  const int result = verbose_wrap([&] { return fn(brng, properties); }, "%s(%d,%p)",
                                  "rudGetBrngProperties", brng, static_cast<void*>(properties));
  // Reported under the registration's name, as the two share their checks.
  if (result < 0) report("rudRegisterBrng", 1);
  return result;
}

TVX_API int rudGetNumRegBrngs(void) {
  const CountFn fn = resolve(get_num_reg_brngs_slot, get_num_reg_brngs_copies);
  return verbose_wrap([&] { return fn(); }, "%s()", "rudGetNumRegBrngs");
}

TVX_API int rudLeapfrogStream(RudStreamPtr stream, unsigned int k, int nstreams) {
  const char* name = "rudLeapfrogStream";
  const int status = checked_stream(stream, name, 1);
  if (status != RUD_STATUS_OK) return status;
  const LeapfrogFn fn = resolve(leapfrog_stream_slot, leapfrog_stream_copies);
  return verbose_wrap([&] { return fn(stream, k, nstreams); }, "%s(%p,%d,%d)", name,
                      static_cast<void*>(stream), static_cast<int>(k), nstreams);
}

TVX_API int rudSkipAheadStream(RudStreamPtr stream, long long nskip) {
  const char* name = "rudSkipAheadStream";
  const int status = checked_stream(stream, name, 1);
  if (status != RUD_STATUS_OK) return status;
  const SkipFn fn = resolve(skip_ahead_stream_slot, skip_ahead_stream_copies);
  return verbose_wrap([&] { return fn(stream, nskip); }, "%s(%p,%lli)", name,
                      static_cast<void*>(stream), nskip);
}

TVX_API int rudCopyStream(RudStreamPtr* copy, RudStreamPtr source) {
  const char* name = "rudCopyStream";
  if (const int status = checked_stream(source, name, 1)) return status;
  if (copy == nullptr) {
    report(name, 1);
    return RUD_ERROR_NULL_PTR;
  }
  const CopyFn fn = resolve(copy_stream_slot, copy_stream_copies);
  return verbose_wrap([&] { return fn(copy, source); }, "%s(%p,%p)", name, static_cast<void*>(copy),
                      static_cast<void*>(source));
}

TVX_API int rudCopyStreamState(RudStreamPtr destination, RudStreamPtr source) {
  const char* name = "rudCopyStreamState";
  if (const int status = checked_stream(destination, name, 1)) return status;
  if (const int status = checked_stream(source, name, 2)) return status;
  const CopyStateFn fn = resolve(copy_stream_state_slot, copy_stream_state_copies);
  return verbose_wrap([&] { return fn(destination, source); }, "%s(%p,%p)", name,
                      static_cast<void*>(destination), static_cast<void*>(source));
}

TVX_API int rudSaveStreamF(RudStreamPtr stream, const char* fname) {
  return save_file_frame(stream, fname, -1);
}

TVX_API int rudLoadStreamF(RudStreamPtr* stream, const char* fname) {
  return load_file_frame(stream, fname, -1);
}

TVX_API int rudSaveStreamM(RudStreamPtr stream, char* memptr) {
  const char* name = "rudSaveStreamM";
  if (const int status = checked_stream(stream, name, 1)) return status;
  if (memptr == nullptr) {
    report(name, 2);
    return RUD_ERROR_BAD_ARGS;
  }
  const SaveMemFn fn = resolve(save_stream_mem_slot, save_stream_mem_copies);
  return verbose_wrap([&] { return fn(stream, memptr); }, "%s(%p,%p)", name,
                      static_cast<void*>(stream), static_cast<void*>(memptr));
}

TVX_API int rudLoadStreamM(RudStreamPtr* stream, const char* memptr) {
  const char* name = "rudLoadStreamM";
  if (stream == nullptr) {
    report(name, 1);
    return RUD_ERROR_NULL_PTR;
  }
  if (memptr == nullptr) {
    report(name, 2);
    return RUD_ERROR_BAD_ARGS;
  }
  const LoadMemFn fn = resolve(load_stream_mem_slot, load_stream_mem_copies);
  return verbose_wrap([&] { return fn(stream, memptr, kUnboundedImage); }, "%s(%p,%p)", name,
                      static_cast<void*>(stream), static_cast<const void*>(memptr));
}

// ---- Twins with every argument by pointer -----------------------------------------------------
TVX_API int rudnewstream(RudStreamPtr* stream, const int* brng, const unsigned int* seed) {
  if (null_scalar(brng, "rudNewStream", 2) || null_scalar(seed, "rudNewStream", 3)) {
    return RUD_ERROR_NULL_PTR;
  }
  return rudNewStream(stream, *brng, *seed);
}
TVX_API int rudnewstreamex(RudStreamPtr* stream, const int* brng, const int* n,
                           const unsigned int params[]) {
  if (null_scalar(brng, "rudNewStreamEx", 2) || null_scalar(n, "rudNewStreamEx", 3)) {
    return RUD_ERROR_NULL_PTR;
  }
  return rudNewStreamEx(stream, *brng, *n, params);
}
TVX_API int ruddeletestream(RudStreamPtr* stream) {
  return rudDeleteStream(stream);
}
TVX_API int rudgetstreamstatebrng(const RudStreamPtr* stream) {
  return rudGetStreamStateBrng(stream != nullptr ? *stream : nullptr);
}
TVX_API int rudgetstreamsize(const RudStreamPtr* stream) {
  return rudGetStreamSize(stream != nullptr ? *stream : nullptr);
}
TVX_API int rudregisterbrng(const RudBrngProperties* properties) {
  return rudRegisterBrng(properties);
}
TVX_API int rudgetbrngproperties(const int* brng, RudBrngProperties* properties) {
  if (null_scalar(brng, "rudRegisterBrng", 1)) return RUD_ERROR_NULL_PTR;
  return rudGetBrngProperties(*brng, properties);
}
TVX_API int rudgetnumregbrngs(void) {
  return rudGetNumRegBrngs();
}
TVX_API int rudleapfrogstream(RudStreamPtr* stream, const unsigned int* k, const int* nstreams) {
  RudStreamPtr s = stream != nullptr ? *stream : nullptr;
  if (const int status = checked_stream(s, "rudLeapfrogStream", 1)) return status;
  if (null_scalar(k, "rudLeapfrogStream", 2) || null_scalar(nstreams, "rudLeapfrogStream", 3)) {
    return RUD_ERROR_NULL_PTR;
  }
  return rudLeapfrogStream(s, *k, *nstreams);
}
TVX_API int rudskipaheadstream(RudStreamPtr* stream, const long long* nskip) {
  RudStreamPtr s = stream != nullptr ? *stream : nullptr;
  if (const int status = checked_stream(s, "rudSkipAheadStream", 1)) return status;
  if (null_scalar(nskip, "rudSkipAheadStream", 2)) return RUD_ERROR_NULL_PTR;
  return rudSkipAheadStream(s, *nskip);
}

TVX_API int rudcopystream(RudStreamPtr* copy, const RudStreamPtr* source) {
  return rudCopyStream(copy, source != nullptr ? *source : nullptr);
}
TVX_API int rudcopystreamstate(RudStreamPtr* destination, const RudStreamPtr* source) {
  return rudCopyStreamState(destination != nullptr ? *destination : nullptr,
                            source != nullptr ? *source : nullptr);
}
TVX_API int rudsavestreamf(const RudStreamPtr* stream, const char* fname, int length) {
  return save_file_frame(stream != nullptr ? *stream : nullptr, fname, length);
}
TVX_API int rudloadstreamf(RudStreamPtr* stream, const char* fname, int length) {
  return load_file_frame(stream, fname, length);
}
TVX_API int rudsavestreamm(const RudStreamPtr* stream, char* memptr) {
  return rudSaveStreamM(stream != nullptr ? *stream : nullptr, memptr);
}
TVX_API int rudloadstreamm(RudStreamPtr* stream, const char* memptr) {
  return rudLoadStreamM(stream, memptr);
}

}  // extern "C"
