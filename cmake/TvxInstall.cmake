# pkg-config file, documentation and examples, and the Debian package built by CPack.

# The pkg-config file finds its prefix from its own place (${pcfiledir}), so an installed tree works
# from wherever it was installed, moved or unpacked to. Absolute install directories stay absolute.
set(_tvx_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${_tvx_pc_dir}")
  set(TVX_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  set(TVX_PC_PREFIX "\${pcfiledir}")
  string(REGEX MATCHALL "[^/]+" _tvx_pc_parts "${_tvx_pc_dir}")
  foreach(_part IN LISTS _tvx_pc_parts)
    string(APPEND TVX_PC_PREFIX "/..")
  endforeach()
endif()
foreach(_kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_kind}}")
    set(TVX_PC_${_kind} "${CMAKE_INSTALL_${_kind}}")
  else()
    set(TVX_PC_${_kind} "\${prefix}/${CMAKE_INSTALL_${_kind}}")
  endif()
endforeach()
# What a static link needs besides libtvx.a: the same libraries as the tvx_static target.
set(TVX_PC_LIBS_PRIVATE "")
foreach(_lib IN LISTS TVX_STATIC_RUNTIME_LIBS CMAKE_THREAD_LIBS_INIT CMAKE_DL_LIBS)
  if(_lib MATCHES "^-")
    string(APPEND TVX_PC_LIBS_PRIVATE " ${_lib}")
  elseif(_lib)
    string(APPEND TVX_PC_LIBS_PRIVATE " -l${_lib}")
  endif()
endforeach()
string(STRIP "${TVX_PC_LIBS_PRIVATE}" TVX_PC_LIBS_PRIVATE)
configure_file(cmake/tvx.pc.in ${PROJECT_BINARY_DIR}/tvx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tvx.pc DESTINATION ${_tvx_pc_dir})

# Documentation, and the C examples with the outside-project CMakeLists that builds one of them.
file(GLOB _tvx_docs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${_tvx_docs} DESTINATION ${CMAKE_INSTALL_DOCDIR})
file(GLOB _tvx_examples CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*.c)
install(FILES ${_tvx_examples} DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(FILES ${PROJECT_SOURCE_DIR}/examples/consumer/CMakeLists.txt
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/consumer)

# Debian package: `make package`, or `cpack -G DEB` in the build directory. Everything installed
# above goes into one package under /usr. Left to the parent project when tvx is built inside one.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()
set(TVX_PACKAGE_CONTACT "Tarvex maintainers <tarvex@example.org>"
    CACHE STRING "Maintainer field of the Debian package")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libtvx)
set(CPACK_PACKAGE_VENDOR Tarvex)
set(CPACK_PACKAGE_CONTACT "${TVX_PACKAGE_CONTACT}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Tarvex vector mathematics, random streams and summary statistics")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "A numerical library with a flat C interface: element-wise vector mathematics\n"
  "with one kernel copy per x86-64 instruction-set level, chosen at run time;\n"
  "random-number streams with their distributions; a summary-statistics engine.\n"
  "Holds the shared and static libraries, the C headers, the CMake package\n"
  "(find_package(tvx)), the pkg-config file (tvx), the tvx-info tool, and the\n"
  "documentation with the example programs.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Our own shlibs entry and ldconfig trigger, so packages built against libtvx depend on it.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Dependencies follow what the shared library and tvx-info really link (dpkg-shlibdeps reads
# their ELF headers). Without dpkg-shlibdeps, fall back to the runtime libraries linked today.
find_program(TVX_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(TVX_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  message(STATUS "dpkg-shlibdeps not found (Debian package dpkg-dev): the Debian package lists "
                 "its dependencies by hand")
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libgomp1, libstdc++6, libgcc-s1, libc6, libhwy1")
endif()
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "pkg-config, cmake")
include(CPack)
