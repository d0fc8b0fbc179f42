# Runs the example script through the host with the example module and
# compares what it prints with the expected output.
execute_process(COMMAND ${HOST} --module ${MODULE} ${SCRIPT}
  OUTPUT_VARIABLE actual ERROR_VARIABLE actual RESULT_VARIABLE status)
file(READ ${EXPECTED} expected)
if(NOT actual STREQUAL expected)
  message(FATAL_ERROR "the example printed:\n${actual}\nexpected:\n${expected}")
endif()
message(STATUS "example output as expected (host status ${status})")
