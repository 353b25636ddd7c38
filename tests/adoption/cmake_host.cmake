# Configures, builds and runs the consumers as a CMake project of their own.
#
# in   CONSUMER, WORK_FOLDER, KESTRANE_FROM, COMPILER; STAGE and VERSION for a package,
#      KESTRANE_SOURCE for sources; CONFIGURE_ONLY stops before the build; WANTED asks for another
#      version of the package
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "failed: ${command}")
  endif()
endfunction()

file(REMOVE_RECURSE "${WORK_FOLDER}")
file(MAKE_DIRECTORY "${WORK_FOLDER}")
set(options "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DKESTRANE_FROM=${KESTRANE_FROM}")
if(KESTRANE_FROM STREQUAL "package")
  list(APPEND options "-DCMAKE_PREFIX_PATH=${STAGE}" "-DKESTRANE_EXPECTED_VERSION=${VERSION}")
else()
  list(APPEND options "-DKESTRANE_SOURCE=${KESTRANE_SOURCE}")
endif()
if(WANTED)
  list(APPEND options "-DKESTRANE_WANTED=${WANTED}")
endif()

run("${CMAKE_COMMAND}" -S "${CONSUMER}" -B "${WORK_FOLDER}" -G Ninja ${options})
if(NOT CONFIGURE_ONLY)
  run("${CMAKE_COMMAND}" --build "${WORK_FOLDER}" -j 2)
  run("${WORK_FOLDER}/consumer" "${WORK_FOLDER}")
  run("${WORK_FOLDER}/quality_consumer" "${WORK_FOLDER}")
endif()
