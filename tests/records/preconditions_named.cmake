# Fails when a precondition in the sources is named in full by no death test.
#
# in   SOURCE_FOLDER, TEST_FOLDER
#
# A precondition is the text of a KESTRANE_EXPECTS; a death test is a string of a test file that has an
# EXPECT_DEATH or an EXPECT_EXIT.
file(GLOB_RECURSE sources "${SOURCE_FOLDER}/*.cpp" "${SOURCE_FOLDER}/*.h")
list(FILTER sources EXCLUDE REGEX "/expects\\.h$")  # defines the word
file(GLOB_RECURSE tests "${TEST_FOLDER}/*.cpp")

set(tested "")
foreach(test IN LISTS tests)
  file(READ "${test}" text)
  if(text MATCHES "EXPECT_(DEATH|EXIT)\\(")
    string(APPEND tested "${text}")
  endif()
endforeach()

set(preconditions 0)
set(unnamed "")
foreach(source IN LISTS sources)
  file(READ "${source}" text)
  string(REPLACE ";" "" text "${text}")
  string(REGEX MATCHALL "KESTRANE_EXPECTS(_OF\\((\"[^\"]*\"|k[A-Za-z]+|operation),|\\()[^\"]*\"[^\"]*\"" found "${text}")
  foreach(precondition IN LISTS found)
    string(REGEX MATCH "\"[^\"]*\"$" quoted "${precondition}")
    math(EXPR preconditions "${preconditions} + 1")
    string(FIND "${tested}" "${quoted}" at)
    if(at EQUAL -1)
      list(APPEND unnamed "${source}: ${quoted}")
    endif()
  endforeach()
endforeach()

if(preconditions EQUAL 0)
  message(FATAL_ERROR "found no preconditions in ${SOURCE_FOLDER}")
endif()
if(unnamed)
  list(JOIN unnamed "\n  " lines)
  message(FATAL_ERROR "preconditions without a death test:\n  ${lines}\n")
endif()
message(STATUS "${preconditions} preconditions, each named by a death test")
