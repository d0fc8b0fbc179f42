# Runs the example script through the host with the example module and
# compares what it prints with the expected output. With VALGRIND set, the
# host runs under valgrind's leak check, with the JSON module's
# suppressions (SUPPRESSIONS), and any report fails the run.
set(command ${HOST} --module ${MODULE} ${SCRIPT})
if(VALGRIND)
  set(command ${VALGRIND} -q --leak-check=full --errors-for-leak-kinds=definite,possible
    --error-exitcode=99 --suppressions=${SUPPRESSIONS} ${command})
endif()
execute_process(COMMAND ${command}
  OUTPUT_VARIABLE actual ERROR_VARIABLE actual RESULT_VARIABLE status)
file(READ ${EXPECTED} expected)
if(NOT actual STREQUAL expected)
  message(FATAL_ERROR "the example printed:\n${actual}\nexpected:\n${expected}")
endif()
if(VALGRIND AND status EQUAL 99)
  message(FATAL_ERROR "valgrind reported errors (exit status 99)")
endif()
message(STATUS "example output as expected (host status ${status})")
