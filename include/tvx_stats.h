/*
 * Tarvex summary statistics: tasks, editors and the compute call.
 *
 * A task describes a data set once: p variables, n observations and the observation matrix, plus
 * pointers to every output array and parameter the caller may want. The task holds pointers only,
 * never copies: each compute call reads the registered arrays as they stand at that moment, so a
 * caller who changes the contents of `observations` between two calls (with the accumulated
 * weights registered) processes a data set block by block.
 *
 *   ruddSSNewTask(&task, &p, &n, &storage, x, weights, selection);   create (double)
 *   ruddSSEditTask(task, RUD_SS_FIELD_MEAN, mean);                    register arrays
 *   ruddSSEditCovCor(task, mean, cov, &cov_storage, NULL, NULL);      named editor
 *   ruddSSCompute(task, RUD_SS_ESTIMATE_MEAN | RUD_SS_ESTIMATE_COVARIANCE,
 *                 RUD_SS_METHOD_ONE_PASS);                            compute
 *   rudSSDeleteTask(&task);                                           delete
 *
 * Status: every function returns an int, RUD_SS_OK (0) on success, a negative RUD_SS_ERROR_...
 * code on failure. Nothing is printed. Estimates whose group this build does not contain are
 * refused with RUD_SS_ERROR_GROUP_NOT_AVAILABLE; nothing is then written by that group.
 *
 * Every export has an all-lower-case twin that takes each scalar, the task handle included, by
 * pointer.
 *
 * Thread safety: a task is used by one thread at a time; distinct tasks are independent. Compute
 * may itself run a team of threads (thread settings of the library, vector domain).
 */
#ifndef TVX_STATS_H
#define TVX_STATS_H

#ifndef TVX_API
#if defined(TVX_BUILDING_LIBRARY)
#define TVX_API __attribute__((visibility("default")))
#else
#define TVX_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque task handle. */
typedef void* RudSSTaskPtr;

/* ---- Field codes of the generic editors ---------------------------------------------------- */
/* Integer fields go through rudiSSEditTask, real fields through rudd/rudsSSEditTask. */
#define RUD_SS_FIELD_VARIABLE_COUNT 1
#define RUD_SS_FIELD_OBSERVATION_COUNT 2
#define RUD_SS_FIELD_OBSERVATIONS 3
#define RUD_SS_FIELD_OBSERVATION_STORAGE 4
#define RUD_SS_FIELD_VARIABLE_SELECTION 5
#define RUD_SS_FIELD_WEIGHTS 6
#define RUD_SS_FIELD_MEAN 7
#define RUD_SS_FIELD_RAW_MOMENT_2 8
#define RUD_SS_FIELD_RAW_MOMENT_3 9
#define RUD_SS_FIELD_RAW_MOMENT_4 10
#define RUD_SS_FIELD_CENTRAL_MOMENT_2 11
#define RUD_SS_FIELD_CENTRAL_MOMENT_3 12
#define RUD_SS_FIELD_CENTRAL_MOMENT_4 13
#define RUD_SS_FIELD_KURTOSIS 14
#define RUD_SS_FIELD_SKEWNESS 15
#define RUD_SS_FIELD_MINIMUM 16
#define RUD_SS_FIELD_MAXIMUM 17
#define RUD_SS_FIELD_VARIATION 18
#define RUD_SS_FIELD_COVARIANCE 19
#define RUD_SS_FIELD_COVARIANCE_STORAGE 20
#define RUD_SS_FIELD_CORRELATION 21
#define RUD_SS_FIELD_CORRELATION_STORAGE 22
#define RUD_SS_FIELD_ACCUMULATED_WEIGHTS 23
#define RUD_SS_FIELD_QUANTILE_ORDER_COUNT 24
#define RUD_SS_FIELD_QUANTILE_ORDERS 25
#define RUD_SS_FIELD_QUANTILES 26
#define RUD_SS_FIELD_ORDER_STATISTICS 27
#define RUD_SS_FIELD_GROUP_INDICES 28
#define RUD_SS_FIELD_POOLED_COVARIANCE_STORAGE 29
#define RUD_SS_FIELD_POOLED_MEAN 30
#define RUD_SS_FIELD_POOLED_COVARIANCE 31
#define RUD_SS_FIELD_GROUP_COVARIANCE_INDICES 32
#define RUD_SS_FIELD_GROUP_MEANS 33
#define RUD_SS_FIELD_GROUP_COVARIANCE_STORAGE 34
#define RUD_SS_FIELD_GROUP_COVARIANCE 35
#define RUD_SS_FIELD_ROBUST_COVARIANCE_STORAGE 36
#define RUD_SS_FIELD_ROBUST_PARAM_COUNT 37
#define RUD_SS_FIELD_ROBUST_PARAMS 38
#define RUD_SS_FIELD_ROBUST_MEAN 39
#define RUD_SS_FIELD_ROBUST_COVARIANCE 40
#define RUD_SS_FIELD_OUTLIER_PARAM_COUNT 41
#define RUD_SS_FIELD_OUTLIER_PARAMS 42
#define RUD_SS_FIELD_OUTLIER_WEIGHTS 43
#define RUD_SS_FIELD_ORDER_STATISTICS_STORAGE 44
#define RUD_SS_FIELD_PARTIAL_INDICES 45
#define RUD_SS_FIELD_PARTIAL_COVARIANCE 46
#define RUD_SS_FIELD_PARTIAL_COVARIANCE_STORAGE 47
#define RUD_SS_FIELD_PARTIAL_CORRELATION 48
#define RUD_SS_FIELD_PARTIAL_CORRELATION_STORAGE 49
#define RUD_SS_FIELD_MISSING_PARAM_COUNT 50
#define RUD_SS_FIELD_MISSING_PARAMS 51
#define RUD_SS_FIELD_MISSING_INITIAL_COUNT 52
#define RUD_SS_FIELD_MISSING_INITIAL_ESTIMATES 53
#define RUD_SS_FIELD_MISSING_SIMULATED_COUNT 54
#define RUD_SS_FIELD_MISSING_SIMULATED 55
#define RUD_SS_FIELD_MISSING_ESTIMATE_COUNT 56
#define RUD_SS_FIELD_MISSING_ESTIMATES 57
#define RUD_SS_FIELD_MISSING_PRIOR_COUNT 58
#define RUD_SS_FIELD_MISSING_PRIOR 59
#define RUD_SS_FIELD_PARAMETRIZED_CORRELATION 60
#define RUD_SS_FIELD_PARAMETRIZED_CORRELATION_STORAGE 61
#define RUD_SS_FIELD_STREAM_PARAM_COUNT 62
#define RUD_SS_FIELD_STREAM_PARAMS 63
#define RUD_SS_FIELD_STREAM_ORDER_COUNT 64
#define RUD_SS_FIELD_STREAM_ORDERS 65
#define RUD_SS_FIELD_STREAM_QUANTILES 66
#define RUD_SS_FIELD_SUM 67
#define RUD_SS_FIELD_RAW_SUM_2 68
#define RUD_SS_FIELD_RAW_SUM_3 69
#define RUD_SS_FIELD_RAW_SUM_4 70
#define RUD_SS_FIELD_CENTRAL_SUM_2 71
#define RUD_SS_FIELD_CENTRAL_SUM_3 72
#define RUD_SS_FIELD_CENTRAL_SUM_4 73
#define RUD_SS_FIELD_CROSS_PRODUCT 74
#define RUD_SS_FIELD_CROSS_PRODUCT_STORAGE 75
#define RUD_SS_FIELD_MEDIAN_ABSOLUTE_DEVIATION 76
#define RUD_SS_FIELD_MEAN_ABSOLUTE_DEVIATION 77
#define RUD_SS_FIELD_SORTED_OBSERVATIONS 78
#define RUD_SS_FIELD_SORTED_OBSERVATIONS_STORAGE 79

/* ---- Storage codes ------------------------------------------------------------------------- */
/* Observation matrix (also order statistics and sorted observations), p by n, no leading
 * dimension: in rows, element (v, i) is at v*n + i; in columns, at i*p + v. */
#define RUD_SS_STORAGE_VARIABLES_IN_ROWS 0x10000
#define RUD_SS_STORAGE_VARIABLES_IN_COLUMNS 0x20000
/* Symmetric p by p matrices. Full: (i, j) at i*p + j, both triangles written. Packed lower: row i
 * holds columns 0..i, (i, j) at i(i+1)/2 + j. Packed upper: row i holds columns i..p-1, (i, j) at
 * i*p - i(i-1)/2 + j - i. */
#define RUD_SS_MATRIX_FULL 0
#define RUD_SS_MATRIX_PACKED_ROWS_LOWER 1
#define RUD_SS_MATRIX_PACKED_ROWS_UPPER 2

/* ---- Estimates (64-bit mask) --------------------------------------------------------------- */
#define RUD_SS_ESTIMATE_MEAN 0x1LL
#define RUD_SS_ESTIMATE_RAW_MOMENT_2 0x2LL
#define RUD_SS_ESTIMATE_RAW_MOMENT_3 0x4LL
#define RUD_SS_ESTIMATE_RAW_MOMENT_4 0x8LL
#define RUD_SS_ESTIMATE_CENTRAL_MOMENT_2 0x10LL
#define RUD_SS_ESTIMATE_CENTRAL_MOMENT_3 0x20LL
#define RUD_SS_ESTIMATE_CENTRAL_MOMENT_4 0x40LL
#define RUD_SS_ESTIMATE_KURTOSIS 0x80LL
#define RUD_SS_ESTIMATE_SKEWNESS 0x100LL
#define RUD_SS_ESTIMATE_VARIATION 0x200LL
#define RUD_SS_ESTIMATE_MINIMUM 0x400LL
#define RUD_SS_ESTIMATE_MAXIMUM 0x800LL
#define RUD_SS_ESTIMATE_COVARIANCE 0x1000LL
#define RUD_SS_ESTIMATE_CORRELATION 0x2000LL
#define RUD_SS_ESTIMATE_POOLED_COVARIANCE 0x4000LL
#define RUD_SS_ESTIMATE_GROUP_COVARIANCE 0x8000LL
#define RUD_SS_ESTIMATE_QUANTILES 0x10000LL
#define RUD_SS_ESTIMATE_ORDER_STATISTICS 0x20000LL
#define RUD_SS_ESTIMATE_ROBUST_COVARIANCE 0x40000LL
#define RUD_SS_ESTIMATE_OUTLIERS 0x80000LL
#define RUD_SS_ESTIMATE_PARTIAL_COVARIANCE 0x100000LL
#define RUD_SS_ESTIMATE_PARTIAL_CORRELATION 0x200000LL
#define RUD_SS_ESTIMATE_MISSING_VALUES 0x400000LL
#define RUD_SS_ESTIMATE_PARAMETRIZED_CORRELATION 0x800000LL
#define RUD_SS_ESTIMATE_STREAM_QUANTILES 0x1000000LL
#define RUD_SS_ESTIMATE_SUM 0x2000000LL
#define RUD_SS_ESTIMATE_RAW_SUM_2 0x4000000LL
#define RUD_SS_ESTIMATE_RAW_SUM_3 0x8000000LL
#define RUD_SS_ESTIMATE_RAW_SUM_4 0x10000000LL
#define RUD_SS_ESTIMATE_CENTRAL_SUM_2 0x20000000LL
#define RUD_SS_ESTIMATE_CENTRAL_SUM_3 0x40000000LL
#define RUD_SS_ESTIMATE_CENTRAL_SUM_4 0x80000000LL
#define RUD_SS_ESTIMATE_CROSS_PRODUCT 0x100000000LL
#define RUD_SS_ESTIMATE_MEDIAN_ABSOLUTE_DEVIATION 0x200000000LL
#define RUD_SS_ESTIMATE_MEAN_ABSOLUTE_DEVIATION 0x400000000LL
#define RUD_SS_ESTIMATE_POOLED_MEAN 0x800000000LL
#define RUD_SS_ESTIMATE_GROUP_MEAN 0x1000000000LL
#define RUD_SS_ESTIMATE_SORTED_OBSERVATIONS 0x8000000000LL

/* ---- Methods (32-bit mask) ----------------------------------------------------------------- */
#define RUD_SS_METHOD_FAST 0x1
#define RUD_SS_METHOD_ONE_PASS 0x2
#define RUD_SS_METHOD_PARAMETRIZE 0x4
#define RUD_SS_METHOD_ROBUST 0x8
#define RUD_SS_METHOD_MULTIPLE_IMPUTATION 0x10
#define RUD_SS_METHOD_OUTLIER_DETECTION 0x20
#define RUD_SS_METHOD_STREAM_WITH_ANSWER 0x40
#define RUD_SS_METHOD_STREAM_SUMMARY_ONLY 0x80
#define RUD_SS_METHOD_USER_MEAN 0x100
#define RUD_SS_METHOD_FROM_CROSS_PRODUCT 0x200
#define RUD_SS_METHOD_FROM_SUMS 0x400
#define RUD_SS_METHOD_SORT 0x100000

/* ---- Status codes -------------------------------------------------------------------------- */
#define RUD_SS_OK 0
#define RUD_SS_ERROR_BAD_FIELD_CODE (-3)
#define RUD_SS_ERROR_ALLOCATION_FAILURE (-4000)
#define RUD_SS_ERROR_BAD_VARIABLE_COUNT (-4001)
#define RUD_SS_ERROR_BAD_OBSERVATION_COUNT (-4002)
#define RUD_SS_ERROR_BAD_STORAGE (-4003)
#define RUD_SS_ERROR_NULL_VARIABLE_SELECTION (-4004)
#define RUD_SS_ERROR_NULL_WEIGHTS (-4005)
#define RUD_SS_ERROR_NULL_MEAN (-4006)
#define RUD_SS_ERROR_NULL_RAW_MOMENT_2 (-4007)
#define RUD_SS_ERROR_NULL_RAW_MOMENT_3 (-4008)
#define RUD_SS_ERROR_NULL_RAW_MOMENT_4 (-4009)
#define RUD_SS_ERROR_NULL_CENTRAL_MOMENT_2 (-4010)
#define RUD_SS_ERROR_NULL_CENTRAL_MOMENT_3 (-4011)
#define RUD_SS_ERROR_NULL_CENTRAL_MOMENT_4 (-4012)
#define RUD_SS_ERROR_NULL_KURTOSIS (-4013)
#define RUD_SS_ERROR_NULL_SKEWNESS (-4014)
#define RUD_SS_ERROR_NULL_MINIMUM (-4015)
#define RUD_SS_ERROR_NULL_MAXIMUM (-4016)
#define RUD_SS_ERROR_NULL_VARIATION (-4017)
#define RUD_SS_ERROR_NULL_COVARIANCE (-4018)
#define RUD_SS_ERROR_NULL_CORRELATION (-4019)
#define RUD_SS_ERROR_NULL_ACCUMULATED_WEIGHTS (-4020)
#define RUD_SS_ERROR_NULL_QUANTILE_ORDERS (-4021)
#define RUD_SS_ERROR_NULL_QUANTILE_ORDER_COUNT (-4022)
#define RUD_SS_ERROR_NULL_QUANTILES (-4023)
#define RUD_SS_ERROR_NULL_ORDER_STATISTICS (-4024)
#define RUD_SS_ERROR_SUBSET_TOO_SMALL (-4026)
#define RUD_SS_ERROR_NULL_ROBUST_COVARIANCE (-4027)
#define RUD_SS_ERROR_NULL_ROBUST_MEAN (-4028)
#define RUD_SS_ERROR_BAD_METHOD (-4029)
#define RUD_SS_ERROR_NULL_GROUP_INDICES (-4030)
#define RUD_SS_ERROR_NULL_TASK (-4031)
#define RUD_SS_ERROR_NULL_OBSERVATIONS (-4032)
#define RUD_SS_ERROR_SINGULAR_SUBSET (-4033)
#define RUD_SS_ERROR_NULL_POOLED_COVARIANCE (-4034)
#define RUD_SS_ERROR_NULL_POOLED_MEAN (-4035)
#define RUD_SS_ERROR_NULL_GROUP_COVARIANCE (-4036)
#define RUD_SS_ERROR_NULL_GROUP_MEANS (-4037)
/* Editor status of a null group_indices or group_covariance_indices; Compute says -4030. */
#define RUD_SS_ERROR_NULL_GROUP_INDICES_FIELD (-4038)
#define RUD_SS_ERROR_NULL_OUTLIER_PARAMS (-4039)
#define RUD_SS_ERROR_NULL_OUTLIER_PARAM_COUNT (-4040)
#define RUD_SS_ERROR_NULL_OUTLIER_WEIGHTS (-4041)
#define RUD_SS_ERROR_NULL_ROBUST_PARAMS (-4042)
#define RUD_SS_ERROR_NULL_ROBUST_PARAM_COUNT (-4043)
#define RUD_SS_ERROR_NULL_STORAGE (-4044)
#define RUD_SS_ERROR_NULL_PARTIAL_INDICES (-4045)
#define RUD_SS_ERROR_NULL_PARTIAL_COVARIANCE (-4046)
#define RUD_SS_ERROR_NULL_PARTIAL_CORRELATION (-4047)
#define RUD_SS_ERROR_NULL_MISSING_PARAMS (-4048)
#define RUD_SS_ERROR_NULL_MISSING_PARAM_COUNT (-4049)
#define RUD_SS_ERROR_BAD_MISSING_PARAM_COUNT (-4050)
#define RUD_SS_ERROR_NULL_MISSING_INITIAL_COUNT (-4052)
#define RUD_SS_ERROR_NULL_MISSING_INITIAL_ESTIMATES (-4053)
#define RUD_SS_ERROR_NULL_MISSING_SIMULATED (-4054)
#define RUD_SS_ERROR_NULL_MISSING_SIMULATED_COUNT (-4055)
#define RUD_SS_ERROR_NULL_MISSING_ESTIMATE_COUNT (-4056)
#define RUD_SS_ERROR_NULL_MISSING_ESTIMATES (-4057)
#define RUD_SS_ERROR_NOTHING_TO_PRODUCE (-4060)
#define RUD_SS_ERROR_NULL_MISSING_PRIOR_COUNT (-4061)
#define RUD_SS_ERROR_NULL_MISSING_PRIOR (-4062)
#define RUD_SS_ERROR_NULL_STREAM_PARAM_COUNT (-4064)
#define RUD_SS_ERROR_NULL_STREAM_PARAMS (-4065)
/* Editor status of a null stream_param_count; Compute says -4064. */
#define RUD_SS_ERROR_NULL_STREAM_PARAM_COUNT_FIELD (-4066)
#define RUD_SS_ERROR_BAD_STREAM_ACCURACY (-4067)
#define RUD_SS_ERROR_NULL_STREAM_ORDERS (-4068)
#define RUD_SS_ERROR_NULL_STREAM_ORDER_COUNT (-4069)
#define RUD_SS_ERROR_NULL_STREAM_QUANTILES (-4070)
#define RUD_SS_ERROR_NULL_PARAMETRIZED_CORRELATION (-4071)
#define RUD_SS_ERROR_ALL_EIGENVALUES_BELOW_FLOOR (-4072)
#define RUD_SS_ERROR_NO_PARTIAL_SPLIT (-4073)
#define RUD_SS_ERROR_NULL_SUM (-4074)
#define RUD_SS_ERROR_NULL_RAW_SUM_2 (-4075)
#define RUD_SS_ERROR_NULL_RAW_SUM_3 (-4076)
#define RUD_SS_ERROR_NULL_RAW_SUM_4 (-4077)
#define RUD_SS_ERROR_NULL_CENTRAL_SUM_2 (-4078)
#define RUD_SS_ERROR_NULL_CENTRAL_SUM_3 (-4079)
#define RUD_SS_ERROR_NULL_CENTRAL_SUM_4 (-4080)
#define RUD_SS_ERROR_NULL_CROSS_PRODUCT (-4081)
#define RUD_SS_ERROR_NULL_MEDIAN_ABSOLUTE_DEVIATION (-4082)
#define RUD_SS_ERROR_NULL_MEAN_ABSOLUTE_DEVIATION (-4083)
#define RUD_SS_ERROR_NULL_SORTED_OBSERVATIONS (-4084)
#define RUD_SS_ERROR_SORT_IN_PLACE_SELECTION (-4085)
/* An estimate whose group this build does not contain yet (pooled, robust, outliers, partial,
 * missing values, parametrization). Compute stops there; groups earlier in the order keep what
 * they wrote. */
#define RUD_SS_ERROR_GROUP_NOT_AVAILABLE (-4090)
#define RUD_SS_ERROR_PARTIAL_FACTOR_FAILURE (-5010)
#define RUD_SS_ERROR_PARTIAL_INVERSE_FAILURE (-5011)
#define RUD_SS_ERROR_EIGENVALUE_FAILURE (-5030)
#define RUD_SS_ERROR_FACTOR_FAILURE (-5041)
#define RUD_SS_ERROR_INVERSE_FAILURE (-5042)
#define RUD_SS_WARNING_ALREADY_POSITIVE 4029

/* ---- Task life cycle ----------------------------------------------------------------------- */
/* Creates a task. p, n and storage are read through the pointers at every compute call (the
 * task keeps the pointers). With x null neither n nor storage is looked at. weights and
 * selection may be null. Statuses: -4001 p, -4044 storage pointer, -4003 storage value, -4002 n,
 * -4000 allocation; a failed create stores null in *task. */
TVX_API int ruddSSNewTask(RudSSTaskPtr* task, const int* p, const int* n, const int* storage,
                          const double* x, const double* weights, const int* selection);
TVX_API int rudsSSNewTask(RudSSTaskPtr* task, const int* p, const int* n, const int* storage,
                          const float* x, const float* weights, const int* selection);
/* Frees the task and clears *task; -4031 when task is null. */
TVX_API int rudSSDeleteTask(RudSSTaskPtr* task);

/* Generic editors: store the pointer of one field. -4031 null task, -3 a code the editor does
 * not take, the field's null status for a null value. Nothing is validated until compute. */
TVX_API int ruddSSEditTask(RudSSTaskPtr task, int field, const double* value);
TVX_API int rudsSSEditTask(RudSSTaskPtr task, int field, const float* value);
TVX_API int rudiSSEditTask(RudSSTaskPtr task, int field, const int* value);

/* Named editors: each non-null argument is stored, a null one leaves its field as it is.
 * 0, or -4031 for a null task. The lower-case forms take the task by pointer. */
#define TVX_SS_NAMED_EDITORS_(R, TASK, MOMENTS, COVCOR, PARTIAL, QUANT, STREAMQ, POOLED, ROBUST,   \
                              OUTLIERS, MISSING, CORPARAM)                                         \
  TVX_API int MOMENTS(TASK task, const R* mean, const R* raw2, const R* raw3, const R* raw4,       \
                      const R* central2, const R* central3, const R* central4);                    \
  TVX_API int COVCOR(TASK task, const R* mean, const R* cov, const int* cov_storage, const R* cor, \
                     const int* cor_storage);                                                      \
  TVX_API int PARTIAL(TASK task, const int* partial_indices, const R* cov, const int* cov_storage, \
                      const R* cor, const int* cor_storage, const R* partial_cov,                  \
                      const int* partial_cov_storage, const R* partial_cor,                        \
                      const int* partial_cor_storage);                                             \
  TVX_API int QUANT(TASK task, const int* order_count, const R* orders, const R* quantiles,        \
                    const R* order_statistics, const int* order_statistics_storage);               \
  TVX_API int STREAMQ(TASK task, const int* order_count, const R* orders, const R* quantiles,      \
                      const int* param_count, const R* params);                                    \
  TVX_API int POOLED(TASK task, const int* group_indices, const R* pooled_mean,                    \
                     const R* pooled_cov, const int* group_cov_indices, const R* group_means,      \
                     const R* group_cov);                                                          \
  TVX_API int ROBUST(TASK task, const int* cov_storage, const int* param_count, const R* params,   \
                     const R* robust_mean, const R* robust_cov);                                   \
  TVX_API int OUTLIERS(TASK task, const int* param_count, const R* params, const R* weights);      \
  TVX_API int MISSING(TASK task, const int* param_count, const R* params,                          \
                      const int* initial_count, const R* initial_estimates,                        \
                      const int* prior_count, const R* prior, const int* simulated_count,          \
                      const R* simulated, const int* estimate_count, const R* estimates);          \
  TVX_API int CORPARAM(TASK task, const R* cor, const int* cor_storage, const R* parametrized_cor, \
                       const int* parametrized_cor_storage);
TVX_SS_NAMED_EDITORS_(double, RudSSTaskPtr, ruddSSEditMoments, ruddSSEditCovCor,
                      ruddSSEditPartialCovCor, ruddSSEditQuantiles, ruddSSEditStreamQuantiles,
                      ruddSSEditPooledCovariance, ruddSSEditRobustCovariance,
                      ruddSSEditOutliersDetection, ruddSSEditMissingValues,
                      ruddSSEditCorParameterization)
TVX_SS_NAMED_EDITORS_(float, RudSSTaskPtr, rudsSSEditMoments, rudsSSEditCovCor,
                      rudsSSEditPartialCovCor, rudsSSEditQuantiles, rudsSSEditStreamQuantiles,
                      rudsSSEditPooledCovariance, rudsSSEditRobustCovariance,
                      rudsSSEditOutliersDetection, rudsSSEditMissingValues,
                      rudsSSEditCorParameterization)
TVX_SS_NAMED_EDITORS_(double, RudSSTaskPtr*, ruddsseditmoments, ruddsseditcovcor,
                      ruddsseditpartialcovcor, ruddsseditquantiles, ruddsseditstreamquantiles,
                      ruddsseditpooledcovariance, ruddsseditrobustcovariance,
                      ruddsseditoutliersdetection, ruddsseditmissingvalues,
                      ruddsseditcorparameterization)
TVX_SS_NAMED_EDITORS_(float, RudSSTaskPtr*, rudssseditmoments, rudssseditcovcor,
                      rudssseditpartialcovcor, rudssseditquantiles, rudssseditstreamquantiles,
                      rudssseditpooledcovariance, rudssseditrobustcovariance,
                      rudssseditoutliersdetection, rudssseditmissingvalues,
                      rudssseditcorparameterization)

/* Computes the estimates of the mask by the methods of the method mask. The groups run in a
 * fixed order: missing values (alone), extremes, sorted, basic, absolute deviations, pooled,
 * outliers, robust, partial, quantiles, stream quantiles, parametrization. The first negative
 * status ends the call. */
TVX_API int ruddSSCompute(RudSSTaskPtr task, long long estimates, int method);
TVX_API int rudsSSCompute(RudSSTaskPtr task, long long estimates, int method);

/* Lower-case twins: every scalar by pointer. */
TVX_API int ruddssnewtask(RudSSTaskPtr* task, const int* p, const int* n, const int* storage,
                          const double* x, const double* weights, const int* selection);
TVX_API int rudsssnewtask(RudSSTaskPtr* task, const int* p, const int* n, const int* storage,
                          const float* x, const float* weights, const int* selection);
TVX_API int rudssdeletetask(RudSSTaskPtr* task);
TVX_API int ruddssedittask(RudSSTaskPtr* task, const int* field, const double* value);
TVX_API int rudsssedittask(RudSSTaskPtr* task, const int* field, const float* value);
TVX_API int rudissedittask(RudSSTaskPtr* task, const int* field, const int* value);
TVX_API int ruddsscompute(RudSSTaskPtr* task, const long long* estimates, const int* method);
TVX_API int rudssscompute(RudSSTaskPtr* task, const long long* estimates, const int* method);

#ifdef __cplusplus
}
#endif

#endif /* TVX_STATS_H */
