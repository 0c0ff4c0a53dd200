# Runs a generator tool into the build tree and fails when its output differs from the committed
# file. MODE file: the tool takes the output path; MODE stdout: the tool writes to standard output.
if(MODE STREQUAL "file")
  execute_process(COMMAND ${PYTHON} ${TOOL} ${OUT} RESULT_VARIABLE rc)
else()
  execute_process(COMMAND ${PYTHON} ${TOOL} OUTPUT_FILE ${OUT} RESULT_VARIABLE rc)
endif()
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${TOOL} failed (${rc})")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${OUT} ${REF} RESULT_VARIABLE diff)
if(NOT diff EQUAL 0)
  message(FATAL_ERROR "${REF} differs from what ${TOOL} makes now (${OUT})")
endif()
