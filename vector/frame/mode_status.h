// Per-thread mode word, status word, error callback and element base, and the report path that
// a kernel takes for one bad element.
#pragma once

#include <cstdint>

#include "tvx_vector.h"

extern "C" {

struct kaz_thread_block {
  std::uint32_t mode;  // 0: not yet initialised on this thread
  std::int32_t status;
  KazErrorCallBack callback;
  std::int64_t reserved;
  const void* element_base;    // first input of the running threaded call, or null
  std::int32_t call_elements;  // n of the threaded call whose piece is running, or 0
};

// The calling thread's block (never null).
kaz_thread_block* tvx_kaz_thread_block(void);

// Parses TVX_KAZ_MODE text: -1 when void, else the or'ed keyword values. Exposed for tests.
std::int64_t tvx_kaz_mode_parse(const char* text);
// Reads TVX_KAZ_MODE from the environment and parses it.
std::int64_t tvx_kaz_mode_from_env(void);

// Slot of a dispatch row for a variant index under the calling thread's accuracy.
int tvx_kaz_table_slot(int variant_index);

const void* kaz_get_element_base(void);
void kaz_set_element_base(const void* base);

// One report per bad element i of the kernel's own arrays. One-input kernels pass a twice,
// one-output kernels pass r twice.
void kaz_report_s(int code, int i, const float* a1, const float* a2, float* r1, float* r2,
                  const char* name);
void kaz_report_d(int code, int i, const double* a1, const double* a2, double* r1, double* r2,
                  const char* name);
void kaz_report_c(int code, int i, const TvxComplex8* a1, const TvxComplex8* a2, TvxComplex8* r1,
                  TvxComplex8* r2, const char* name);
void kaz_report_z(int code, int i, const TvxComplex16* a1, const TvxComplex16* a2, TvxComplex16* r1,
                  TvxComplex16* r2, const char* name);
void kaz_report_si(int code, int i, const float* a1, int inca1, const float* a2, int inca2,
                   float* r1, int incr1, float* r2, int incr2, const char* name);
void kaz_report_di(int code, int i, const double* a1, int inca1, const double* a2, int inca2,
                   double* r1, int incr1, double* r2, int incr2, const char* name);

}  // extern "C"
