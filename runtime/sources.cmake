target_sources(tvx_core PRIVATE
  runtime/report.cpp
  runtime/cpu_type.cpp
  runtime/cbwr.cpp
  runtime/memory.cpp
  runtime/verbose.cpp
  runtime/settings.cpp
  runtime/omp_tsan.cpp
)

# The home vendors reach detection as one string of concatenated twelve-byte CPUID vendor names.
set(_tvx_home_vendors "")
foreach(_vendor IN LISTS TVX_HOME_VENDORS)
  string(LENGTH "${_vendor}" _vendor_length)
  if(NOT _vendor_length EQUAL 12)
    message(FATAL_ERROR "TVX_HOME_VENDORS: \"${_vendor}\" is not a twelve-byte CPUID vendor string")
  endif()
  string(APPEND _tvx_home_vendors "${_vendor}")
endforeach()
set_property(SOURCE runtime/cpu_type.cpp APPEND PROPERTY
  COMPILE_DEFINITIONS "TVX_HOME_VENDORS=\"${_tvx_home_vendors}\"")
