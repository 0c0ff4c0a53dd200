# Per-variant compilation of the instruction-set specific code.
#
# A "variant family" is one source file written once against variant.h and compiled once per
# instruction-set variant with that variant's exact flags. Each compiled copy is then linked into
# one relocatable object whose group sections are dissolved and whose symbols are all made local
# except the extern "C" entry points. Nothing internal (template instances, inline helpers of the
# SIMD layer) can therefore be merged by the final link across variants: an SSE2 entry can never
# end up running code compiled for AVX2.

# name;id;flags  (flags separated by spaces)
set(TVX_VARIANTS
  "sse2|0|-msse2"
  "sse2b|1|-msse2"
  "sse42|2|-msse4.2"
  "avx2|3|-mavx2 -mfma -mbmi -mbmi2 -mlzcnt -mpclmul"
  "avx512|5|-mavx2 -mfma -mbmi -mbmi2 -mlzcnt -mpclmul -mavx512f -mavx512dq -mavx512bw -mavx512vl")

set_property(GLOBAL PROPERTY TVX_VARIANT_FAMILIES "")

# tvx_add_variant_family(<family> <source>...) registers a family; the objects are made later by
# tvx_finish_variants, in the top-level directory, where the libraries are defined.
function(tvx_add_variant_family family)
  set(sources)
  foreach(s ${ARGN})
    if(NOT IS_ABSOLUTE "${s}")
      set(s "${PROJECT_SOURCE_DIR}/${s}")
    endif()
    list(APPEND sources "${s}")
  endforeach()
  set_property(GLOBAL APPEND PROPERTY TVX_VARIANT_FAMILIES "${family}")
  set_property(GLOBAL PROPERTY TVX_VARIANT_SOURCES_${family} "${sources}")
endfunction()

function(tvx_finish_variants out_var)
  get_property(families GLOBAL PROPERTY TVX_VARIANT_FAMILIES)
  set(objects)
  foreach(family ${families})
    get_property(sources GLOBAL PROPERTY TVX_VARIANT_SOURCES_${family})
    foreach(v ${TVX_VARIANTS})
      string(REPLACE "|" ";" parts "${v}")
      list(GET parts 0 vname)
      list(GET parts 1 vid)
      list(GET parts 2 vflags)
      separate_arguments(vflags UNIX_COMMAND "${vflags}")
      set(lib tvx_${family}_${vname}_obj)
      add_library(${lib} OBJECT ${sources})
      target_include_directories(${lib} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
      target_include_directories(${lib} SYSTEM PRIVATE ${TVX_XSIMD_INCLUDE})
      target_compile_definitions(${lib} PRIVATE TVX_BUILDING_LIBRARY TVX_VARIANT_ID=${vid}
                                                TVX_VARIANT_NAME=${vname})
      # -fno-gnu-unique: inline variables become weak symbols, which the localising step below
      # can make private; "unique" globals would stay global.
      target_compile_options(${lib} PRIVATE ${vflags} ${TVX_WARNING_FLAGS} -fno-gnu-unique)
      if(vname STREQUAL "avx512")
        # GCC 12 reports false (maybe-)uninitialized warnings inside the SIMD layer's AVX-512
        # code: the intrinsics' own "undefined" registers, seen at -O1 in the sanitizer build.
        target_compile_options(${lib} PRIVATE -Wno-maybe-uninitialized -Wno-uninitialized)
      endif()
      set(out "${PROJECT_BINARY_DIR}/variants/tvx_${family}_${vname}.o")
      add_custom_command(OUTPUT "${out}"
        COMMAND ${CMAKE_COMMAND} -E make_directory "${PROJECT_BINARY_DIR}/variants"
        COMMAND ${CMAKE_LINKER} -r --force-group-allocation -o "${out}.tmp"
                "$<TARGET_OBJECTS:${lib}>"
        COMMAND ${CMAKE_OBJCOPY} -w "--keep-global-symbol=[!_]*" "${out}.tmp" "${out}"
        COMMAND ${CMAKE_COMMAND} -E remove "${out}.tmp"
        DEPENDS ${lib} "$<TARGET_OBJECTS:${lib}>"
        COMMAND_EXPAND_LISTS VERBATIM
        COMMENT "Linking variant object ${family}/${vname}")
      set_source_files_properties("${out}" PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
      list(APPEND objects "${out}")
      set_property(GLOBAL APPEND PROPERTY TVX_VARIANT_OBJECT_FILES "${vname}=${out}")
    endforeach()
  endforeach()
  set(${out_var} ${objects} PARENT_SCOPE)
endfunction()
