# Fails where a library defines an operation of the classes that another one exports, or where it
# does not use any.
#
# in   NM, LIBRARY (not stripped)
execute_process(COMMAND "${NM}" -C "${LIBRARY}" OUTPUT_VARIABLE text RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cannot read the symbols of ${LIBRARY}")
endif()
set(classes "(KESTRANE_LASER_[A-Z_]+|KestraneLaser[A-Za-z]+|LASER_[A-Z_]+)::")
string(REGEX MATCHALL "[0-9a-f]+ [TtWw] kestrane::${classes}[^\n]*" defined "${text}")
string(REGEX MATCHALL " U kestrane::${classes}[^\n]*" borrowed "${text}")
if(defined)
  list(JOIN defined "\n  " defined)
  message(FATAL_ERROR "defined twice in a process:\n  ${defined}")
endif()
if(NOT borrowed)
  message(FATAL_ERROR "${LIBRARY} uses none of the classes")
endif()
