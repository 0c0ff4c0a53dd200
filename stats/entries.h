// Entry points of each variant copy of the statistics engine (extern "C", variant as suffix).
#pragma once

#define TVX_SS_VARIANTS(X) X(sse2) X(sse2b) X(sse42) X(avx2) X(avx512)

#define TVX_SS_DECLARE_ENTRIES(v)                                                      \
  int rud_ss_new_task_##v(void** task, const int* p, const int* n, const int* storage, \
                          const void* x, const void* weights, const int* selection,    \
                          int real_kind);                                              \
  int rud_ss_delete_task_##v(void** task);                                             \
  int rud_ss_edit_task_##v(void* task, int code, const void* value, int kind);         \
  int rud_ss_compute_d_##v(void* task, long long estimates, int method);               \
  int rud_ss_compute_s_##v(void* task, long long estimates, int method);

extern "C" {
TVX_SS_VARIANTS(TVX_SS_DECLARE_ENTRIES)
}
