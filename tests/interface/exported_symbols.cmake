# Fails when the dynamic symbols of a library differ from a list.
#
# in   NM, LIBRARY, LIST: one demangled symbol a line, sorted, each once (a constructor or destructor
#      stands in the library under two mangled names)
execute_process(COMMAND "${NM}" -D --defined-only -C "${LIBRARY}"
  OUTPUT_VARIABLE text RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cannot read the symbols of ${LIBRARY}")
endif()
string(STRIP "${text}" text)
string(REPLACE "\n" ";" exported "${text}")
list(TRANSFORM exported REPLACE "^[0-9a-f]* *[A-Za-z] " "")
list(SORT exported)
list(REMOVE_DUPLICATES exported)

file(STRINGS "${LIST}" listed)
set(sorted ${listed})
list(SORT sorted)
if(NOT "${sorted}" STREQUAL "${listed}")
  message(FATAL_ERROR "${LIST} is not sorted")
endif()

set(missing ${listed})
list(REMOVE_ITEM missing ${exported})
set(surplus ${exported})
list(REMOVE_ITEM surplus ${listed})
if(missing OR surplus)
  list(JOIN missing "\n  " missing)
  list(JOIN surplus "\n  " surplus)
  message(FATAL_ERROR
    "missing from the library:\n  ${missing}\nin the library but not listed:\n  ${surplus}\n")
endif()
