# Checks that the module exports exactly the names of its version script:
# the 15 metadata exports, the JSON type's factory and 81 entry points.
# Usage: cmake -DLIBRARY=<lib> -DEXPORTS=<version script> [-DOBJDUMP=<objdump>]
#              -P CheckExports.cmake
# An ELF library is read with nm -D; a Windows DLL's export table with the
# objdump of its toolchain (-p).
set(exported "")
if(LIBRARY MATCHES "\\.dll$")
  if(NOT OBJDUMP)
    find_program(OBJDUMP NAMES x86_64-w64-mingw32-objdump objdump REQUIRED)
  endif()
  execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} OUTPUT_VARIABLE listing RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "objdump failed on ${LIBRARY}")
  endif()
  # The name table: lines like "\t[   0] GetModuleVersion" after its title.
  string(REGEX REPLACE ".*\\[Ordinal/Name Pointer\\] Table[^\n]*\n" "" table "${listing}")
  string(REGEX MATCHALL "\\[ *[0-9]+\\] [A-Za-z_][A-Za-z0-9_]*" entries "${table}")
  foreach(entry IN LISTS entries)
    string(REGEX REPLACE "^\\[ *[0-9]+\\] " "" name "${entry}")
    list(APPEND exported "${name}")
  endforeach()
else()
  find_program(NM nm REQUIRED)
  execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
    OUTPUT_VARIABLE listing RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "nm failed on ${LIBRARY}")
  endif()
  # Lines look like "0000000000012340 T GetModuleVersion".
  string(REGEX MATCHALL "[0-9a-fA-F]+ [A-Za-z] [^\n]+" lines "${listing}")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[0-9a-fA-F]+ [A-Za-z] " "" name "${line}")
    list(APPEND exported "${name}")
  endforeach()
endif()
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
