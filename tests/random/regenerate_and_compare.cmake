# Runs a generator tool into the build tree and fails when its output differs from the committed
# file. MODE file: the tool takes the output path; MODE stdout: the tool writes to standard output;
# MODE program: TOOL is a program that takes the gzip file INPUT_GZ, decompressed, as its argument
# and writes to standard output; MODE exe: TOOL is a program run with ARGS, writing to standard
# output. ARGS, if given, go on the tool's command line in MODE stdout and exe.
if(MODE STREQUAL "file")
  execute_process(COMMAND ${PYTHON} ${TOOL} ${OUT} RESULT_VARIABLE rc)
elseif(MODE STREQUAL "program")
  execute_process(COMMAND gzip -dc ${INPUT_GZ} OUTPUT_FILE ${OUT}.input RESULT_VARIABLE rc)
  if(rc EQUAL 0)
    execute_process(COMMAND ${TOOL} ${OUT}.input OUTPUT_FILE ${OUT} RESULT_VARIABLE rc)
  endif()
elseif(MODE STREQUAL "exe")
  execute_process(COMMAND ${TOOL} ${ARGS} OUTPUT_FILE ${OUT} RESULT_VARIABLE rc)
else()
  execute_process(COMMAND ${PYTHON} ${TOOL} ${ARGS} OUTPUT_FILE ${OUT} RESULT_VARIABLE rc)
endif()
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${TOOL} failed (${rc})")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${OUT} ${REF} RESULT_VARIABLE diff)
if(NOT diff EQUAL 0)
  message(FATAL_ERROR "${REF} differs from what ${TOOL} makes now (${OUT})")
endif()
