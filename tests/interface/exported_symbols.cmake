# Compares the dynamic symbols that LIBRARY defines with the sorted list in EXPECTED.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
                OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^ \n]+\n" exported "${output}")
list(TRANSFORM exported STRIP)
list(FILTER exported EXCLUDE REGEX "^__(odr_)?asan")  # a sanitized build's own
file(STRINGS ${EXPECTED} expected)

set(additional ${exported})
list(REMOVE_ITEM additional ${expected})
set(missing ${expected})
list(REMOVE_ITEM missing ${exported})
list(TRANSFORM additional PREPEND "\n  + ")
list(TRANSFORM missing PREPEND "\n  - ")
if(additional OR missing)
  string(CONCAT difference ${missing} ${additional})
  message(FATAL_ERROR "The exported names differ from ${EXPECTED}:${difference}")
endif()

list(SORT expected)
file(READ ${EXPECTED} text)
list(JOIN expected "\n" sorted)
if(NOT text STREQUAL "${sorted}\n")
  message(FATAL_ERROR "${EXPECTED} is not sorted, or names something twice")
endif()
