# Checks that the module exports exactly the names of its version script:
# the 15 metadata exports, the JSON type's factory and 81 entry points.
# Usage: cmake -DLIBRARY=<lib> -DEXPORTS=<version script> [-DOBJDUMP=<objdump>]
#              -P CheckExports.cmake
# An ELF library is read with nm -D; a Windows DLL's export table with the
# objdump of its toolchain (-p).
# Runs a lister on the library and collects the names it prints: from the
# text after `skip` (a regex, or empty for all of it), each match of `entry`
# with the match of `prefix` cut off its front.
function(collect_names out skip entry prefix)
  execute_process(COMMAND ${ARGN} ${LIBRARY} OUTPUT_VARIABLE listing RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGV4} failed on ${LIBRARY}")
  endif()
  if(skip)
    string(REGEX REPLACE "${skip}" "" listing "${listing}")
  endif()
  string(REGEX MATCHALL "${entry}" entries "${listing}")
  set(names "")
  foreach(e IN LISTS entries)
    string(REGEX REPLACE "^${prefix}" "" name "${e}")
    list(APPEND names "${name}")
  endforeach()
  set(${out} ${names} PARENT_SCOPE)
endfunction()

if(LIBRARY MATCHES "\\.dll$")
  if(NOT OBJDUMP)
    find_program(OBJDUMP NAMES x86_64-w64-mingw32-objdump objdump REQUIRED)
  endif()
  # The name table: lines like "\t[   0] GetModuleVersion" after its title.
  # Each begins with the tab and the bracket, unlike the lines of the tables
  # that follow ("\treloc 0 offset 18 [100018] DIR64").
  collect_names(exported ".*\\[Ordinal/Name Pointer\\] Table[^\n]*"
    "\n\t\\[ *[0-9]+\\] [A-Za-z_][A-Za-z0-9_]*" "\n\t\\[ *[0-9]+\\] " ${OBJDUMP} -p)
else()
  find_program(NM nm REQUIRED)
  # Lines look like "0000000000012340 T GetModuleVersion".
  collect_names(exported "" "[0-9a-fA-F]+ [A-Za-z] [^\n]+" "[0-9a-fA-F]+ [A-Za-z] "
    ${NM} -D --defined-only)
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
