# Installs the built library beside a file of somebody else's and removes it again: that file alone
# is left.
#
# in   SOURCE_FOLDER, BUILD_FOLDER, WORK_FOLDER, LIB_FOLDER, PYTHON_FOLDER (empty without Python)
file(REMOVE_RECURSE "${WORK_FOLDER}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_FOLDER}" --prefix "${WORK_FOLDER}"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(WRITE "${WORK_FOLDER}/${LIB_FOLDER}/libother.so" "")
if(PYTHON_FOLDER)
  file(WRITE "${WORK_FOLDER}/${PYTHON_FOLDER}/kestrane/__pycache__/tables.cpython-311.pyc" "")
endif()

set(ENV{DESTDIR} "")
execute_process(COMMAND "${SOURCE_FOLDER}/scripts/uninstall.sh" "${BUILD_FOLDER}" "${WORK_FOLDER}"
  COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE left LIST_DIRECTORIES false RELATIVE "${WORK_FOLDER}" "${WORK_FOLDER}/*")
if(NOT left STREQUAL "${LIB_FOLDER}/libother.so")
  list(JOIN left "\n  " left)
  message(FATAL_ERROR "left over:\n  ${left}")
endif()
if(EXISTS "${WORK_FOLDER}/include/kestrane")
  message(FATAL_ERROR "include/kestrane is left, empty")
endif()
