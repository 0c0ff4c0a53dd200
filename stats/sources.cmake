# Summary statistics: the exported frame and the named editors are compiled once; the task
# operations, the compute driver and the estimate groups are one family compiled per
# instruction-set variant (five copies).
target_sources(tvx_core PRIVATE
  stats/exports.cpp
  stats/vqsort.cpp
)

tvx_add_variant_family(rud_stats
  stats/task.cpp
  stats/basic.cpp
  stats/extremes.cpp
  stats/deviation.cpp
  stats/quantiles.cpp
  stats/stream.cpp
)
