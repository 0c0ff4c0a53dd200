# Builds and runs the C example against an installed tree, the two ways a user would: an outside
# CMake project with find_package(tvx), and a plain compiler call with the flags from pkg-config
# (shared library, then static library with the Libs.private of the .pc file).

function(tvx_run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  set(tvx_out "${out}" PARENT_SCOPE)
endfunction()

# prefix: the installed tree (holding include/ and lib*/); work: a scratch directory.
function(tvx_consume prefix work)
  set(example ${SOURCE_DIR}/examples/vector_add.c)

  tvx_run("configure of the CMake consumer" ${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/consumer
          -B ${work}/cmake -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${CC})
  tvx_run("build of the CMake consumer" ${CMAKE_COMMAND} --build ${work}/cmake)
  tvx_run("CMake consumer" ${work}/cmake/consumer)
  message(STATUS "CMake consumer ran: ${tvx_out}")

  file(GLOB pc ${prefix}/lib*/pkgconfig/tvx.pc ${prefix}/lib/*/pkgconfig/tvx.pc)
  if(NOT pc)
    message(FATAL_ERROR "tvx.pc not installed under ${prefix}")
  endif()
  find_program(PKG_CONFIG pkg-config REQUIRED)
  get_filename_component(pcdir ${pc} DIRECTORY)
  # Only this tree's .pc files: a tvx installed on the machine must not answer instead.
  set(ENV{PKG_CONFIG_LIBDIR} ${pcdir})
  set(ENV{PKG_CONFIG_PATH} "")
  tvx_run("pkg-config --cflags" ${PKG_CONFIG} --cflags tvx)
  separate_arguments(cflags UNIX_COMMAND "${tvx_out}")
  tvx_run("pkg-config --variable=includedir" ${PKG_CONFIG} --variable=includedir tvx)
  string(STRIP "${tvx_out}" includedir)
  if(NOT EXISTS ${includedir}/tvx_vector.h)
    message(FATAL_ERROR "pkg-config points at ${includedir}, which has no tvx_vector.h")
  endif()
  tvx_run("pkg-config --libs" ${PKG_CONFIG} --libs tvx)
  separate_arguments(libs UNIX_COMMAND "${tvx_out}")
  tvx_run("pkg-config --variable=libdir" ${PKG_CONFIG} --variable=libdir tvx)
  string(STRIP "${tvx_out}" libdir)

  tvx_run("compile with pkg-config flags" ${CC} ${cflags} ${example} ${libs} -o ${work}/shared)
  tvx_run("pkg-config consumer" ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} ${work}/shared)
  message(STATUS "pkg-config consumer ran: ${tvx_out}")

  # Static: the archive in place of -ltvx, the rest from pkg-config --static.
  tvx_run("pkg-config --static --libs" ${PKG_CONFIG} --static --libs tvx)
  separate_arguments(static_libs UNIX_COMMAND "${tvx_out}")
  list(TRANSFORM static_libs REPLACE "^-ltvx$" "${libdir}/libtvx.a")
  tvx_run("compile against libtvx.a" ${CC} ${cflags} ${example} ${static_libs} -o ${work}/static)
  tvx_run("static consumer" ${work}/static)
  message(STATUS "static consumer ran: ${tvx_out}")
endfunction()
