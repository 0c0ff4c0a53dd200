// Exported statistics functions: the choice of the variant copy (once per export, by CPU type),
// the named editors (one implementation for both real types) and the lower-case twins.
#include <atomic>
#include <cstdint>

#include "runtime/cpu_type.h"
#include "stats/entries.h"
#include "stats/task.h"

namespace tvx::ss {
namespace {

template <class Fn, std::size_t N>
Fn resolve(std::atomic<Fn>& slot, const Fn (&copies)[N]) {
  Fn fn = slot.load(std::memory_order_acquire);
  if (fn == nullptr) {
    fn = copies[tvx_rud_variant_of_cpu_type(tvx_rud_cpu_type())];
    slot.store(fn, std::memory_order_release);
  }
  return fn;
}

#define TVX_SS_SLOT(name, type)                                                 \
  std::atomic<type> name##_slot{nullptr};                                       \
  const type name##_copies[5] = {&rud_ss_##name##_sse2, &rud_ss_##name##_sse2b, \
                                 &rud_ss_##name##_sse42, &rud_ss_##name##_avx2, \
                                 &rud_ss_##name##_avx512};

using NewFn = int (*)(void**, const int*, const int*, const int*, const void*, const void*,
                      const int*, int);
using DeleteFn = int (*)(void**);
using EditFn = int (*)(void*, int, const void*, int);
using ComputeFn = int (*)(void*, long long, int);

TVX_SS_SLOT(new_task, NewFn)
TVX_SS_SLOT(delete_task, DeleteFn)
TVX_SS_SLOT(edit_task, EditFn)
TVX_SS_SLOT(compute_d, ComputeFn)
TVX_SS_SLOT(compute_s, ComputeFn)
#undef TVX_SS_SLOT

int new_task(RudSSTaskPtr* task, const int* p, const int* n, const int* storage, const void* x,
             const void* w, const int* sel, int real_kind) {
  if (task == nullptr) return RUD_SS_ERROR_NULL_TASK;
  return resolve(new_task_slot, new_task_copies)(task, p, n, storage, x, w, sel, real_kind);
}
int edit(RudSSTaskPtr task, int code, const void* value, int kind) {
  return resolve(edit_task_slot, edit_task_copies)(task, code, value, kind);
}
int compute(RudSSTaskPtr task, long long e, int m, bool dbl) {
  return dbl ? resolve(compute_d_slot, compute_d_copies)(task, e, m)
             : resolve(compute_s_slot, compute_s_copies)(task, e, m);
}

// Stores each non-null pointer in its field; nothing else is looked at.
int set_fields(RudSSTaskPtr task, std::initializer_list<std::pair<void * Task::*, const void*>> f) {
  if (task == nullptr) return RUD_SS_ERROR_NULL_TASK;
  Task* t = static_cast<Task*>(task);
  for (const auto& [member, value] : f)
    if (value != nullptr) t->*member = const_cast<void*>(value);
  return RUD_SS_OK;
}

RudSSTaskPtr deref(RudSSTaskPtr* task) {
  return task != nullptr ? *task : nullptr;
}

}  // namespace
}  // namespace tvx::ss

using namespace tvx::ss;
using T_ = Task;

// The named editors, once for both real types; R is the real type of the prototype only.
#define TVX_SS_NAMED_BODIES(R, MOMENTS, COVCOR, PARTIAL, QUANT, STREAMQ, POOLED, ROBUST, OUTLIERS, \
                            MISSING, CORPARAM, TASKARG, TASK)                                      \
  TVX_API int MOMENTS(TASKARG, const R* mean, const R* raw2, const R* raw3, const R* raw4,         \
                      const R* central2, const R* central3, const R* central4) {                   \
    return set_fields(TASK, {{&T_::mean, mean},                                                    \
                             {&T_::raw_moment_2, raw2},                                            \
                             {&T_::raw_moment_3, raw3},                                            \
                             {&T_::raw_moment_4, raw4},                                            \
                             {&T_::central_moment_2, central2},                                    \
                             {&T_::central_moment_3, central3},                                    \
                             {&T_::central_moment_4, central4}});                                  \
  }                                                                                                \
  TVX_API int COVCOR(TASKARG, const R* mean, const R* cov, const int* cov_storage, const R* cor,   \
                     const int* cor_storage) {                                                     \
    return set_fields(TASK, {{&T_::mean, mean},                                                    \
                             {&T_::covariance, cov},                                               \
                             {&T_::covariance_storage, cov_storage},                               \
                             {&T_::correlation, cor},                                              \
                             {&T_::correlation_storage, cor_storage}});                            \
  }                                                                                                \
  TVX_API int PARTIAL(TASKARG, const int* partial_indices, const R* cov, const int* cov_storage,   \
                      const R* cor, const int* cor_storage, const R* partial_cov,                  \
                      const int* partial_cov_storage, const R* partial_cor,                        \
                      const int* partial_cor_storage) {                                            \
    return set_fields(TASK, {{&T_::partial_indices, partial_indices},                              \
                             {&T_::covariance, cov},                                               \
                             {&T_::covariance_storage, cov_storage},                               \
                             {&T_::correlation, cor},                                              \
                             {&T_::correlation_storage, cor_storage},                              \
                             {&T_::partial_covariance, partial_cov},                               \
                             {&T_::partial_covariance_storage, partial_cov_storage},               \
                             {&T_::partial_correlation, partial_cor},                              \
                             {&T_::partial_correlation_storage, partial_cor_storage}});            \
  }                                                                                                \
  TVX_API int QUANT(TASKARG, const int* order_count, const R* orders, const R* quantiles,          \
                    const R* order_statistics, const int* order_statistics_storage) {              \
    return set_fields(TASK, {{&T_::quantile_order_count, order_count},                             \
                             {&T_::quantile_orders, orders},                                       \
                             {&T_::quantiles, quantiles},                                          \
                             {&T_::order_statistics, order_statistics},                            \
                             {&T_::order_statistics_storage, order_statistics_storage}});          \
  }                                                                                                \
  TVX_API int STREAMQ(TASKARG, const int* order_count, const R* orders, const R* quantiles,        \
                      const int* param_count, const R* params) {                                   \
    return set_fields(TASK, {{&T_::stream_order_count, order_count},                               \
                             {&T_::stream_orders, orders},                                         \
                             {&T_::stream_quantiles, quantiles},                                   \
                             {&T_::stream_param_count, param_count},                               \
                             {&T_::stream_params, params}});                                       \
  }                                                                                                \
  TVX_API int POOLED(TASKARG, const int* group_indices, const R* pooled_mean, const R* pooled_cov, \
                     const int* group_cov_indices, const R* group_means, const R* group_cov) {     \
    return set_fields(TASK, {{&T_::group_indices, group_indices},                                  \
                             {&T_::pooled_mean, pooled_mean},                                      \
                             {&T_::pooled_covariance, pooled_cov},                                 \
                             {&T_::group_covariance_indices, group_cov_indices},                   \
                             {&T_::group_means, group_means},                                      \
                             {&T_::group_covariance, group_cov}});                                 \
  }                                                                                                \
  TVX_API int ROBUST(TASKARG, const int* cov_storage, const int* param_count, const R* params,     \
                     const R* robust_mean, const R* robust_cov) {                                  \
    return set_fields(TASK, {{&T_::robust_covariance_storage, cov_storage},                        \
                             {&T_::robust_param_count, param_count},                               \
                             {&T_::robust_params, params},                                         \
                             {&T_::robust_mean, robust_mean},                                      \
                             {&T_::robust_covariance, robust_cov}});                               \
  }                                                                                                \
  TVX_API int OUTLIERS(TASKARG, const int* param_count, const R* params, const R* weights) {       \
    return set_fields(TASK, {{&T_::outlier_param_count, param_count},                              \
                             {&T_::outlier_params, params},                                        \
                             {&T_::outlier_weights, weights}});                                    \
  }                                                                                                \
  TVX_API int MISSING(TASKARG, const int* param_count, const R* params, const int* initial_count,  \
                      const R* initial_estimates, const int* prior_count, const R* prior,          \
                      const int* simulated_count, const R* simulated, const int* estimate_count,   \
                      const R* estimates) {                                                        \
    return set_fields(TASK, {{&T_::missing_param_count, param_count},                              \
                             {&T_::missing_params, params},                                        \
                             {&T_::missing_initial_count, initial_count},                          \
                             {&T_::missing_initial_estimates, initial_estimates},                  \
                             {&T_::missing_prior_count, prior_count},                              \
                             {&T_::missing_prior, prior},                                          \
                             {&T_::missing_simulated_count, simulated_count},                      \
                             {&T_::missing_simulated, simulated},                                  \
                             {&T_::missing_estimate_count, estimate_count},                        \
                             {&T_::missing_estimates, estimates}});                                \
  }                                                                                                \
  TVX_API int CORPARAM(TASKARG, const R* cor, const int* cor_storage, const R* parametrized_cor,   \
                       const int* parametrized_cor_storage) {                                      \
    return set_fields(TASK, {{&T_::correlation, cor},                                              \
                             {&T_::correlation_storage, cor_storage},                              \
                             {&T_::parametrized_correlation, parametrized_cor},                    \
                             {&T_::parametrized_correlation_storage, parametrized_cor_storage}});  \
  }

extern "C" {

TVX_API int ruddSSNewTask(RudSSTaskPtr* task, const int* p, const int* n, const int* storage,
                          const double* x, const double* weights, const int* selection) {
  return new_task(task, p, n, storage, x, weights, selection, 1);
}
TVX_API int rudsSSNewTask(RudSSTaskPtr* task, const int* p, const int* n, const int* storage,
                          const float* x, const float* weights, const int* selection) {
  return new_task(task, p, n, storage, x, weights, selection, 0);
}
TVX_API int rudSSDeleteTask(RudSSTaskPtr* task) {
  if (task == nullptr) return RUD_SS_ERROR_NULL_TASK;
  return resolve(delete_task_slot, delete_task_copies)(task);
}
TVX_API int ruddSSEditTask(RudSSTaskPtr task, int field, const double* value) {
  return edit(task, field, value, 'R');
}
TVX_API int rudsSSEditTask(RudSSTaskPtr task, int field, const float* value) {
  return edit(task, field, value, 'R');
}
TVX_API int rudiSSEditTask(RudSSTaskPtr task, int field, const int* value) {
  return edit(task, field, value, 'I');
}
TVX_API int ruddSSCompute(RudSSTaskPtr task, long long estimates, int method) {
  return compute(task, estimates, method, true);
}
TVX_API int rudsSSCompute(RudSSTaskPtr task, long long estimates, int method) {
  return compute(task, estimates, method, false);
}

TVX_API int ruddssnewtask(RudSSTaskPtr* task, const int* p, const int* n, const int* storage,
                          const double* x, const double* weights, const int* selection) {
  return ruddSSNewTask(task, p, n, storage, x, weights, selection);
}
TVX_API int rudsssnewtask(RudSSTaskPtr* task, const int* p, const int* n, const int* storage,
                          const float* x, const float* weights, const int* selection) {
  return rudsSSNewTask(task, p, n, storage, x, weights, selection);
}
TVX_API int rudssdeletetask(RudSSTaskPtr* task) {
  return rudSSDeleteTask(task);
}
// A null field-code pointer is answered like a code the editor does not take.
TVX_API int ruddssedittask(RudSSTaskPtr* task, const int* field, const double* value) {
  if (deref(task) == nullptr) return RUD_SS_ERROR_NULL_TASK;
  return field ? ruddSSEditTask(*task, *field, value) : RUD_SS_ERROR_BAD_FIELD_CODE;
}
TVX_API int rudsssedittask(RudSSTaskPtr* task, const int* field, const float* value) {
  if (deref(task) == nullptr) return RUD_SS_ERROR_NULL_TASK;
  return field ? rudsSSEditTask(*task, *field, value) : RUD_SS_ERROR_BAD_FIELD_CODE;
}
TVX_API int rudissedittask(RudSSTaskPtr* task, const int* field, const int* value) {
  if (deref(task) == nullptr) return RUD_SS_ERROR_NULL_TASK;
  return field ? rudiSSEditTask(*task, *field, value) : RUD_SS_ERROR_BAD_FIELD_CODE;
}
// A null mask pointer is an empty mask; a null method pointer is method 0.
TVX_API int ruddsscompute(RudSSTaskPtr* task, const long long* estimates, const int* method) {
  return ruddSSCompute(deref(task), estimates ? *estimates : 0, method ? *method : 0);
}
TVX_API int rudssscompute(RudSSTaskPtr* task, const long long* estimates, const int* method) {
  return rudsSSCompute(deref(task), estimates ? *estimates : 0, method ? *method : 0);
}

TVX_SS_NAMED_BODIES(double, ruddSSEditMoments, ruddSSEditCovCor, ruddSSEditPartialCovCor,
                    ruddSSEditQuantiles, ruddSSEditStreamQuantiles, ruddSSEditPooledCovariance,
                    ruddSSEditRobustCovariance, ruddSSEditOutliersDetection,
                    ruddSSEditMissingValues, ruddSSEditCorParameterization, RudSSTaskPtr task, task)
TVX_SS_NAMED_BODIES(float, rudsSSEditMoments, rudsSSEditCovCor, rudsSSEditPartialCovCor,
                    rudsSSEditQuantiles, rudsSSEditStreamQuantiles, rudsSSEditPooledCovariance,
                    rudsSSEditRobustCovariance, rudsSSEditOutliersDetection,
                    rudsSSEditMissingValues, rudsSSEditCorParameterization, RudSSTaskPtr task, task)
TVX_SS_NAMED_BODIES(double, ruddsseditmoments, ruddsseditcovcor, ruddsseditpartialcovcor,
                    ruddsseditquantiles, ruddsseditstreamquantiles, ruddsseditpooledcovariance,
                    ruddsseditrobustcovariance, ruddsseditoutliersdetection,
                    ruddsseditmissingvalues, ruddsseditcorparameterization, RudSSTaskPtr* task,
                    deref(task))
TVX_SS_NAMED_BODIES(float, rudssseditmoments, rudssseditcovcor, rudssseditpartialcovcor,
                    rudssseditquantiles, rudssseditstreamquantiles, rudssseditpooledcovariance,
                    rudssseditrobustcovariance, rudssseditoutliersdetection,
                    rudssseditmissingvalues, rudssseditcorparameterization, RudSSTaskPtr* task,
                    deref(task))

}  // extern "C"
