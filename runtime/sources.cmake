target_sources(tvx_core PRIVATE
  runtime/report.cpp
  runtime/cpu_type.cpp
  runtime/memory.cpp
  runtime/verbose.cpp
  runtime/settings.cpp
  runtime/omp_tsan.cpp
)
