# Runs a generator into the build tree and fails when its output differs from the checked-in
# file. Usage: cmake -DGEN=<program> -DOUT=<new file> -DREF=<checked-in file> -P check_generated.cmake
execute_process(COMMAND "${GEN}" "${OUT}" RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${GEN} failed with ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files "${OUT}" "${REF}" RESULT_VARIABLE diff)
if(NOT diff EQUAL 0)
  message(FATAL_ERROR "${REF} is out of date: regenerate it with ${GEN} ${REF}")
endif()
