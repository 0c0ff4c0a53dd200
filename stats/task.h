// The task record of the statistics engine and its field table.
//
// A task owns no data: after a three-word header come the pointers to the caller's arrays, one per
// field, in the order of TVX_SS_FIELDS; behind them the clean-up hooks and the means saved by the
// user-mean method, which are the only memory the task owns besides the record.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tvx_stats.h"

// X(name, field code, kind, status of the generic editor for a null value), in record order.
// Kind I: integer array, edited by rudiSSEditTask; R: real array, edited by the real editors;
// H: private, no code (the stream summary).
#define TVX_SS_FIELDS(X)                                                                           \
  X(variable_count, RUD_SS_FIELD_VARIABLE_COUNT, I, RUD_SS_ERROR_BAD_VARIABLE_COUNT)               \
  X(observation_count, RUD_SS_FIELD_OBSERVATION_COUNT, I, RUD_SS_ERROR_BAD_OBSERVATION_COUNT)      \
  X(variable_selection, RUD_SS_FIELD_VARIABLE_SELECTION, I, RUD_SS_ERROR_NULL_VARIABLE_SELECTION)  \
  X(observations, RUD_SS_FIELD_OBSERVATIONS, R, RUD_SS_ERROR_NULL_OBSERVATIONS)                    \
  X(weights, RUD_SS_FIELD_WEIGHTS, R, RUD_SS_ERROR_NULL_WEIGHTS)                                   \
  X(accumulated_weights, RUD_SS_FIELD_ACCUMULATED_WEIGHTS, R,                                      \
    RUD_SS_ERROR_NULL_ACCUMULATED_WEIGHTS)                                                         \
  X(observation_storage, RUD_SS_FIELD_OBSERVATION_STORAGE, I, RUD_SS_ERROR_NULL_STORAGE)           \
  X(parametrized_correlation, RUD_SS_FIELD_PARAMETRIZED_CORRELATION, R,                            \
    RUD_SS_ERROR_NULL_PARAMETRIZED_CORRELATION)                                                    \
  X(parametrized_correlation_storage, RUD_SS_FIELD_PARAMETRIZED_CORRELATION_STORAGE, I,            \
    RUD_SS_ERROR_NULL_STORAGE)                                                                     \
  X(mean, RUD_SS_FIELD_MEAN, R, RUD_SS_ERROR_NULL_MEAN)                                            \
  X(raw_moment_2, RUD_SS_FIELD_RAW_MOMENT_2, R, RUD_SS_ERROR_NULL_RAW_MOMENT_2)                    \
  X(raw_moment_3, RUD_SS_FIELD_RAW_MOMENT_3, R, RUD_SS_ERROR_NULL_RAW_MOMENT_3)                    \
  X(raw_moment_4, RUD_SS_FIELD_RAW_MOMENT_4, R, RUD_SS_ERROR_NULL_RAW_MOMENT_4)                    \
  X(central_moment_2, RUD_SS_FIELD_CENTRAL_MOMENT_2, R, RUD_SS_ERROR_NULL_CENTRAL_MOMENT_2)        \
  X(central_moment_3, RUD_SS_FIELD_CENTRAL_MOMENT_3, R, RUD_SS_ERROR_NULL_CENTRAL_MOMENT_3)        \
  X(central_moment_4, RUD_SS_FIELD_CENTRAL_MOMENT_4, R, RUD_SS_ERROR_NULL_CENTRAL_MOMENT_4)        \
  X(sum, RUD_SS_FIELD_SUM, R, RUD_SS_ERROR_NULL_MEAN)                                              \
  X(raw_sum_2, RUD_SS_FIELD_RAW_SUM_2, R, RUD_SS_ERROR_NULL_RAW_SUM_2)                             \
  X(raw_sum_3, RUD_SS_FIELD_RAW_SUM_3, R, RUD_SS_ERROR_NULL_RAW_SUM_3)                             \
  X(raw_sum_4, RUD_SS_FIELD_RAW_SUM_4, R, RUD_SS_ERROR_NULL_RAW_SUM_4)                             \
  X(central_sum_2, RUD_SS_FIELD_CENTRAL_SUM_2, R, RUD_SS_ERROR_NULL_CENTRAL_SUM_2)                 \
  X(central_sum_3, RUD_SS_FIELD_CENTRAL_SUM_3, R, RUD_SS_ERROR_NULL_CENTRAL_SUM_3)                 \
  X(central_sum_4, RUD_SS_FIELD_CENTRAL_SUM_4, R, RUD_SS_ERROR_NULL_CENTRAL_SUM_4)                 \
  X(kurtosis, RUD_SS_FIELD_KURTOSIS, R, RUD_SS_ERROR_NULL_KURTOSIS)                                \
  X(skewness, RUD_SS_FIELD_SKEWNESS, R, RUD_SS_ERROR_NULL_SKEWNESS)                                \
  X(variation, RUD_SS_FIELD_VARIATION, R, RUD_SS_ERROR_NULL_VARIATION)                             \
  X(minimum, RUD_SS_FIELD_MINIMUM, R, RUD_SS_ERROR_NULL_MINIMUM)                                   \
  X(maximum, RUD_SS_FIELD_MAXIMUM, R, RUD_SS_ERROR_NULL_MAXIMUM)                                   \
  X(covariance_storage, RUD_SS_FIELD_COVARIANCE_STORAGE, I, RUD_SS_ERROR_NULL_STORAGE)             \
  X(covariance, RUD_SS_FIELD_COVARIANCE, R, RUD_SS_ERROR_NULL_COVARIANCE)                          \
  X(correlation_storage, RUD_SS_FIELD_CORRELATION_STORAGE, I, RUD_SS_ERROR_NULL_STORAGE)           \
  X(correlation, RUD_SS_FIELD_CORRELATION, R, RUD_SS_ERROR_NULL_CORRELATION)                       \
  X(cross_product_storage, RUD_SS_FIELD_CROSS_PRODUCT_STORAGE, I, RUD_SS_ERROR_NULL_STORAGE)       \
  X(cross_product, RUD_SS_FIELD_CROSS_PRODUCT, R, RUD_SS_ERROR_NULL_CROSS_PRODUCT)                 \
  X(group_indices, RUD_SS_FIELD_GROUP_INDICES, I, RUD_SS_ERROR_NULL_GROUP_INDICES_FIELD)           \
  X(group_covariance_indices, RUD_SS_FIELD_GROUP_COVARIANCE_INDICES, I,                            \
    RUD_SS_ERROR_NULL_GROUP_INDICES_FIELD)                                                         \
  X(group_means, RUD_SS_FIELD_GROUP_MEANS, R, RUD_SS_ERROR_NULL_GROUP_MEANS)                       \
  X(group_covariance, RUD_SS_FIELD_GROUP_COVARIANCE, R, RUD_SS_ERROR_NULL_GROUP_COVARIANCE)        \
  X(group_covariance_storage, RUD_SS_FIELD_GROUP_COVARIANCE_STORAGE, I, RUD_SS_ERROR_NULL_STORAGE) \
  X(pooled_mean, RUD_SS_FIELD_POOLED_MEAN, R, RUD_SS_ERROR_NULL_POOLED_MEAN)                       \
  X(pooled_covariance, RUD_SS_FIELD_POOLED_COVARIANCE, R, RUD_SS_ERROR_NULL_POOLED_COVARIANCE)     \
  X(pooled_covariance_storage, RUD_SS_FIELD_POOLED_COVARIANCE_STORAGE, I,                          \
    RUD_SS_ERROR_NULL_STORAGE)                                                                     \
  X(quantile_order_count, RUD_SS_FIELD_QUANTILE_ORDER_COUNT, I,                                    \
    RUD_SS_ERROR_NULL_QUANTILE_ORDER_COUNT)                                                        \
  X(quantile_orders, RUD_SS_FIELD_QUANTILE_ORDERS, R, RUD_SS_ERROR_NULL_QUANTILE_ORDERS)           \
  X(quantiles, RUD_SS_FIELD_QUANTILES, R, RUD_SS_ERROR_NULL_QUANTILES)                             \
  X(order_statistics, RUD_SS_FIELD_ORDER_STATISTICS, R, RUD_SS_ERROR_NULL_ORDER_STATISTICS)        \
  X(order_statistics_storage, RUD_SS_FIELD_ORDER_STATISTICS_STORAGE, I, RUD_SS_ERROR_NULL_STORAGE) \
  X(stream_order_count, RUD_SS_FIELD_STREAM_ORDER_COUNT, I, RUD_SS_ERROR_NULL_STREAM_ORDER_COUNT)  \
  X(stream_orders, RUD_SS_FIELD_STREAM_ORDERS, R, RUD_SS_ERROR_NULL_STREAM_ORDERS)                 \
  X(stream_quantiles, RUD_SS_FIELD_STREAM_QUANTILES, R, RUD_SS_ERROR_NULL_STREAM_QUANTILES)        \
  X(stream_summary, 0, H, 0)                                                                       \
  X(stream_param_count, RUD_SS_FIELD_STREAM_PARAM_COUNT, I,                                        \
    RUD_SS_ERROR_NULL_STREAM_PARAM_COUNT_FIELD)                                                    \
  X(stream_params, RUD_SS_FIELD_STREAM_PARAMS, R, RUD_SS_ERROR_NULL_STREAM_PARAMS)                 \
  X(mean_absolute_deviation, RUD_SS_FIELD_MEAN_ABSOLUTE_DEVIATION, R,                              \
    RUD_SS_ERROR_NULL_MEAN_ABSOLUTE_DEVIATION)                                                     \
  X(median_absolute_deviation, RUD_SS_FIELD_MEDIAN_ABSOLUTE_DEVIATION, R,                          \
    RUD_SS_ERROR_NULL_MEDIAN_ABSOLUTE_DEVIATION)                                                   \
  X(robust_param_count, RUD_SS_FIELD_ROBUST_PARAM_COUNT, I, RUD_SS_ERROR_NULL_ROBUST_PARAM_COUNT)  \
  X(robust_params, RUD_SS_FIELD_ROBUST_PARAMS, R, RUD_SS_ERROR_NULL_ROBUST_PARAMS)                 \
  X(robust_mean, RUD_SS_FIELD_ROBUST_MEAN, R, RUD_SS_ERROR_NULL_ROBUST_MEAN)                       \
  X(robust_covariance, RUD_SS_FIELD_ROBUST_COVARIANCE, R, RUD_SS_ERROR_NULL_ROBUST_COVARIANCE)     \
  X(robust_covariance_storage, RUD_SS_FIELD_ROBUST_COVARIANCE_STORAGE, I,                          \
    RUD_SS_ERROR_NULL_STORAGE)                                                                     \
  X(outlier_param_count, RUD_SS_FIELD_OUTLIER_PARAM_COUNT, I,                                      \
    RUD_SS_ERROR_NULL_OUTLIER_PARAM_COUNT)                                                         \
  X(outlier_params, RUD_SS_FIELD_OUTLIER_PARAMS, R, RUD_SS_ERROR_NULL_OUTLIER_PARAMS)              \
  X(outlier_weights, RUD_SS_FIELD_OUTLIER_WEIGHTS, R, RUD_SS_ERROR_NULL_OUTLIER_WEIGHTS)           \
  X(partial_indices, RUD_SS_FIELD_PARTIAL_INDICES, I, RUD_SS_ERROR_NULL_PARTIAL_INDICES)           \
  X(partial_covariance, RUD_SS_FIELD_PARTIAL_COVARIANCE, R, RUD_SS_ERROR_NULL_PARTIAL_COVARIANCE)  \
  X(partial_covariance_storage, RUD_SS_FIELD_PARTIAL_COVARIANCE_STORAGE, I,                        \
    RUD_SS_ERROR_NULL_STORAGE)                                                                     \
  X(partial_correlation, RUD_SS_FIELD_PARTIAL_CORRELATION, R,                                      \
    RUD_SS_ERROR_NULL_PARTIAL_CORRELATION)                                                         \
  X(partial_correlation_storage, RUD_SS_FIELD_PARTIAL_CORRELATION_STORAGE, I,                      \
    RUD_SS_ERROR_NULL_STORAGE)                                                                     \
  X(missing_param_count, RUD_SS_FIELD_MISSING_PARAM_COUNT, I,                                      \
    RUD_SS_ERROR_NULL_MISSING_PARAM_COUNT)                                                         \
  X(missing_params, RUD_SS_FIELD_MISSING_PARAMS, R, RUD_SS_ERROR_NULL_MISSING_PARAMS)              \
  X(missing_initial_count, RUD_SS_FIELD_MISSING_INITIAL_COUNT, I,                                  \
    RUD_SS_ERROR_NULL_MISSING_INITIAL_COUNT)                                                       \
  X(missing_initial_estimates, RUD_SS_FIELD_MISSING_INITIAL_ESTIMATES, R,                          \
    RUD_SS_ERROR_NULL_MISSING_INITIAL_ESTIMATES)                                                   \
  X(missing_prior_count, RUD_SS_FIELD_MISSING_PRIOR_COUNT, I,                                      \
    RUD_SS_ERROR_NULL_MISSING_PRIOR_COUNT)                                                         \
  X(missing_prior, RUD_SS_FIELD_MISSING_PRIOR, R, RUD_SS_ERROR_NULL_MISSING_PRIOR)                 \
  X(missing_simulated_count, RUD_SS_FIELD_MISSING_SIMULATED_COUNT, I,                              \
    RUD_SS_ERROR_NULL_MISSING_SIMULATED_COUNT)                                                     \
  X(missing_simulated, RUD_SS_FIELD_MISSING_SIMULATED, R, RUD_SS_ERROR_NULL_MISSING_SIMULATED)     \
  X(missing_estimate_count, RUD_SS_FIELD_MISSING_ESTIMATE_COUNT, I,                                \
    RUD_SS_ERROR_NULL_MISSING_ESTIMATE_COUNT)                                                      \
  X(missing_estimates, RUD_SS_FIELD_MISSING_ESTIMATES, R, RUD_SS_ERROR_NULL_MISSING_ESTIMATES)     \
  X(sorted_observations, RUD_SS_FIELD_SORTED_OBSERVATIONS, R,                                      \
    RUD_SS_ERROR_NULL_SORTED_OBSERVATIONS)                                                         \
  X(sorted_observations_storage, RUD_SS_FIELD_SORTED_OBSERVATIONS_STORAGE, I,                      \
    RUD_SS_ERROR_NULL_STORAGE)

namespace tvx::ss {

inline constexpr int kTaskAlignment = 128;
inline constexpr int kMaxHooks = 4;
inline constexpr int kMaxFieldCode = 79;

struct Task;
using TaskHook = void (*)(Task*);

struct Task {
  std::uint32_t index_width;  // 0: integer fields are 32-bit; else 64-bit
  std::uint32_t record_kind;  // always 2
  std::uint32_t real_kind;    // 1 double, 0 single
#define TVX_SS_FIELD_MEMBER(name, code, kind, status) void* name;
  TVX_SS_FIELDS(TVX_SS_FIELD_MEMBER)
#undef TVX_SS_FIELD_MEMBER
  std::int32_t hook_count;
  TaskHook hooks[kMaxHooks];
  void* saved_means;  // p reals, owned by the task
};

enum FieldKind : std::uint8_t { kNone = 0, kInteger = 'I', kReal = 'R', kPrivate = 'H' };

// One row per field code 0..79: where the pointer lives, its kind, its editor null status.
struct FieldRow {
  std::uint16_t offset;
  FieldKind kind;
  std::int32_t null_status;
};

struct FieldTable {
  FieldRow rows[kMaxFieldCode + 1];
};

constexpr FieldTable make_field_table() {
  FieldTable t{};
#define TVX_SS_FIELD_ROW(name, code, k, status)                                  \
  if (k != kPrivate)                                                             \
    t.rows[code] = FieldRow{static_cast<std::uint16_t>(offsetof(Task, name)), k, \
                            static_cast<std::int32_t>(status)};
  constexpr FieldKind I = kInteger, R = kReal, H = kPrivate;
  TVX_SS_FIELDS(TVX_SS_FIELD_ROW)
#undef TVX_SS_FIELD_ROW
  (void)H;
  return t;
}

inline constexpr FieldTable kFields = make_field_table();

inline void*& field_slot(Task* task, int code) {
  return *reinterpret_cast<void**>(reinterpret_cast<unsigned char*>(task) +
                                   kFields.rows[code].offset);
}

// Value of the integer at `p` (an integer field), by the task's width.
inline std::int64_t read_int(const Task* task, const void* p, std::int64_t index = 0) {
  if (task->index_width == 0) return static_cast<const std::int32_t*>(p)[index];
  return static_cast<const std::int64_t*>(p)[index];
}

}  // namespace tvx::ss
