# Installs the built library with `cmake --install --prefix` into a scratch prefix other than the
# configured one, moves the tree elsewhere, and builds and runs the C example from the moved tree
# with CMake and with pkg-config: nothing in the installed files may keep an absolute path.
include(${CMAKE_CURRENT_LIST_DIR}/consume_helpers.cmake)
file(REMOVE_RECURSE ${WORK_DIR})
set(staged ${WORK_DIR}/staged)
set(moved ${WORK_DIR}/moved/prefix)
tvx_run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${staged})
file(MAKE_DIRECTORY ${WORK_DIR}/moved)
file(RENAME ${staged} ${moved})
foreach(file bin/tvx-info ${DOCDIR}/README.md ${DOCDIR}/examples/vector_add.c)
  if(NOT EXISTS ${moved}/${file})
    message(FATAL_ERROR "${file} not installed")
  endif()
endforeach()
tvx_run("installed tvx-info" ${moved}/bin/tvx-info)
tvx_consume(${moved} ${WORK_DIR})
