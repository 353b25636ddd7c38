# Fails when a header defines a macro that neither the compiler nor the system headers below it do,
# or has no "#pragma once".
#
# in   COMPILER, HEADER, PUBLIC_FOLDER (the folder with kestrane/), INCLUDE_FOLDERS, WORK_FOLDER
#
# The system headers are those that the public headers include in angle brackets, all of them, so
# that it does not matter which of our headers brings one in.
set(allowed KESTRANE_API)

set(include_options "-I${PUBLIC_FOLDER}")
foreach(folder IN LISTS INCLUDE_FOLDERS)
  if(NOT folder STREQUAL "" AND NOT folder STREQUAL PUBLIC_FOLDER)
    list(APPEND include_options -isystem "${folder}")
  endif()
endforeach()

# macros_of(<variable> <source>): the names that are defined at the end of a source file.
function(macros_of variable source)
  execute_process(
    COMMAND "${COMPILER}" -std=c++17 -x c++ -dM -E ${include_options} "${source}"
    OUTPUT_VARIABLE text ERROR_VARIABLE errors RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "cannot preprocess ${source}:\n${errors}")
  endif()
  string(REGEX MATCHALL "#define [A-Za-z_0-9]+" names "${text}")
  list(TRANSFORM names REPLACE "#define " "")
  list(SORT names)
  set(${variable} "${names}" PARENT_SCOPE)
endfunction()

file(STRINGS "${HEADER}" guard REGEX "^#pragma once$")
if(NOT guard)
  message(FATAL_ERROR "no #pragma once:\n  ${HEADER}")
endif()

file(GLOB headers "${PUBLIC_FOLDER}/kestrane/*.h" "${PUBLIC_FOLDER}/kestrane/quality/*.h")
set(system_includes "")
foreach(header IN LISTS headers HEADER)
  file(STRINGS "${header}" lines REGEX "^#include <")
  list(APPEND system_includes ${lines})
endforeach()
list(REMOVE_DUPLICATES system_includes)
list(JOIN system_includes "\n" system_text)

file(WRITE "${WORK_FOLDER}/system.cpp" "${system_text}\n")
file(WRITE "${WORK_FOLDER}/header.cpp" "${system_text}\n#include \"${HEADER}\"\n")
macros_of(system_macros "${WORK_FOLDER}/system.cpp")
macros_of(header_macros "${WORK_FOLDER}/header.cpp")

set(leaked ${header_macros})
list(REMOVE_ITEM leaked ${system_macros} ${allowed})
if(leaked)
  list(JOIN leaked ", " leaked_text)
  message(FATAL_ERROR "leaks macros: ${leaked_text}\n")
endif()
