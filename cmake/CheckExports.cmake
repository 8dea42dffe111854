# Run as `cmake -DNM=... -DLIBRARY=... -DMAP=... -P CheckExports.cmake`: fails unless the dynamic
# symbols that LIBRARY defines are exactly those that the version script MAP names.
execute_process(COMMAND "${NM}" -D --defined-only --format=posix "${LIBRARY}"
                OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${listing}")
set(exported)
foreach(line IN LISTS lines)
  string(REGEX REPLACE "[ @].*" "" name "${line}")
  list(APPEND exported "${name}")
endforeach()

file(READ "${MAP}" map)
string(REGEX MATCH "global:[^:]*local:" globals "${map}")
string(REGEX MATCHALL "[A-Za-z0-9_]+;" wanted "${globals}")
list(TRANSFORM wanted REPLACE ";" "")

list(SORT exported)
list(SORT wanted)
if(NOT wanted OR NOT "${exported}" STREQUAL "${wanted}")
  message(FATAL_ERROR "${LIBRARY} exports\n  ${exported}\nbut ${MAP} names\n  ${wanted}")
endif()
