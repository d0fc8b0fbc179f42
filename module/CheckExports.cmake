# Checks that the module exports exactly the names of its version script:
# the 15 metadata exports, the JSON type's factory and 81 entry points.
# Usage: cmake -DLIBRARY=<lib> -DEXPORTS=<version script> -P CheckExports.cmake
find_program(NM nm REQUIRED)
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
  OUTPUT_VARIABLE listing RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()

# Lines look like "0000000000012340 T GetModuleVersion".
string(REGEX MATCHALL "[0-9a-fA-F]+ [A-Za-z] [^\n]+" lines "${listing}")
set(exported "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^[0-9a-fA-F]+ [A-Za-z] " "" name "${line}")
  list(APPEND exported "${name}")
endforeach()
list(SORT exported)

file(READ ${EXPORTS} script)
string(REGEX MATCH "global:([^}]*)local:" globals "${script}")
string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_]*" expected "${CMAKE_MATCH_1}")
list(SORT expected)

list(LENGTH expected expectedCount)
list(LENGTH exported exportedCount)
if(NOT expectedCount EQUAL 97)
  message(FATAL_ERROR "the version script lists ${expectedCount} names, not 97")
endif()
if(NOT exported STREQUAL expected)
  set(extra ${exported})
  list(REMOVE_ITEM extra ${expected})
  set(missing ${expected})
  list(REMOVE_ITEM missing ${exported})
  message(FATAL_ERROR "export list differs (${exportedCount} exported)\n"
    "unexpected: ${extra}\nmissing: ${missing}")
endif()
message(STATUS "exports: ${exportedCount} names, as expected")
