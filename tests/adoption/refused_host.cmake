# Compiles fast_calib.h as a host with unusual switches does; the compiler has to stop with a given
# message, or has to accept it where the message is empty.
#
# in   COMPILER, PUBLIC_FOLDER, INCLUDE_FOLDERS, FLAGS, MESSAGE, WORK_FOLDER
file(WRITE "${WORK_FOLDER}/host.cpp" "#include \"kestrane/fast_calib.h\"\n")
list(TRANSFORM INCLUDE_FOLDERS PREPEND -I)
separate_arguments(flags UNIX_COMMAND "${FLAGS}")
execute_process(
  COMMAND "${COMPILER}" -std=c++17 -fsyntax-only ${flags}
    "-I${CMAKE_CURRENT_LIST_DIR}" "-I${PUBLIC_FOLDER}" ${INCLUDE_FOLDERS}
    "${WORK_FOLDER}/host.cpp"
  OUTPUT_VARIABLE text ERROR_VARIABLE text RESULT_VARIABLE result)
if(MESSAGE STREQUAL "" AND NOT result EQUAL 0)
  message(FATAL_ERROR "refused:\n${text}")
elseif(NOT MESSAGE STREQUAL "")
  string(FIND "${text}" "${MESSAGE}" place)
  if(result EQUAL 0)
    message(FATAL_ERROR "accepted with ${FLAGS}")
  elseif(place EQUAL -1)
    message(FATAL_ERROR "refused without saying \"${MESSAGE}\":\n${text}")
  endif()
endif()
