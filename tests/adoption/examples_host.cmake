# Configures, builds and runs the installed example programs as a project of their own.
#
# in   EXAMPLES, WORK_FOLDER, COMPILER
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "failed: ${command}")
  endif()
endfunction()

file(REMOVE_RECURSE "${WORK_FOLDER}")
# Without optimisation: the programs are small, and their results do not depend on it.
run("${CMAKE_COMMAND}" -S "${EXAMPLES}" -B "${WORK_FOLDER}" -G Ninja
  "-DCMAKE_CXX_COMPILER=${COMPILER}" -DCMAKE_BUILD_TYPE=None)
run("${CMAKE_COMMAND}" --build "${WORK_FOLDER}" -j 2)
foreach(program IN ITEMS first_table update_coefficients field_calibration compensate)
  run("${CMAKE_COMMAND}" -E chdir "${WORK_FOLDER}" "${WORK_FOLDER}/${program}")
endforeach()
run("${WORK_FOLDER}/device_life" --planes 2 --points 6000)
