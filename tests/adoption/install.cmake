# Installs the built library, compares the files with those that belong to it, and moves the result
# elsewhere: hosts find it there.
#
# in   SOURCE_FOLDER, BUILD_FOLDER, WORK_FOLDER, STAGE (where the moved copy ends up), LIB_FOLDER, DOC_FOLDER,
#      VERSION, SOVERSION; PYTHON_FOLDER where Python packages belong, empty without them
# installed(<variable> <option>...): the files that an installation with these options leaves.
function(installed variable)
  file(REMOVE_RECURSE "${WORK_FOLDER}")
  execute_process(
    COMMAND "${CMAKE_COMMAND}" --install "${BUILD_FOLDER}" --prefix "${WORK_FOLDER}" ${ARGN}
    OUTPUT_QUIET ERROR_VARIABLE errors RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "cannot install:\n${errors}")
  endif()
  file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${WORK_FOLDER}" "${WORK_FOLDER}/*")
  set(${variable} "${files}" PARENT_SCOPE)
endfunction()

function(expect_files what found)
  set(expected ${ARGN})
  list(SORT expected)
  list(SORT found)
  if(NOT found STREQUAL expected)
    list(JOIN found "\n  " found)
    list(JOIN expected "\n  " expected)
    message(FATAL_ERROR "${what}: found\n  ${found}\ninstead of\n  ${expected}")
  endif()
endfunction()

set(runtime
  "${LIB_FOLDER}/libkestrane.so.${SOVERSION}" "${LIB_FOLDER}/libkestrane.so.${VERSION}"
  "${DOC_FOLDER}/LICENSE")
# source_files(<variable> <folder> <installed folder>): where the files of a source folder belong.
function(source_files variable folder place)
  file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${SOURCE_FOLDER}/${folder}"
    "${SOURCE_FOLDER}/${folder}/*")
  list(FILTER files EXCLUDE REGEX "__pycache__")
  list(TRANSFORM files PREPEND "${place}/")
  set(${variable} "${files}" PARENT_SCOPE)
endfunction()

source_files(headers include include)
source_files(examples examples "${DOC_FOLDER}/examples")
source_files(simulation simulation "${DOC_FOLDER}/examples/simulation")
source_files(documents docs "${DOC_FOLDER}/docs")
list(FILTER documents EXCLUDE REGEX "Doxyfile$")
set(python)
if(PYTHON_FOLDER)
  source_files(python python/kestrane "${PYTHON_FOLDER}/kestrane")
  list(APPEND python
    "${PYTHON_FOLDER}/kestrane/_core.so" "${PYTHON_FOLDER}/kestrane/_simulation.so"
    "${PYTHON_FOLDER}/kestrane-${VERSION}.dist-info/INSTALLER"
    "${PYTHON_FOLDER}/kestrane-${VERSION}.dist-info/METADATA")
endif()

installed(found --component Runtime)
expect_files("run-time component" "${found}" ${runtime})

installed(found)
list(FIND found "${PYTHON_FOLDER}/kestrane_tools/report/d3.min.js" place)
if(PYTHON_FOLDER AND place EQUAL -1)
  message(FATAL_ERROR "the page's d3.min.js is not installed")
endif()
list(FILTER found EXCLUDE REGEX "kestrane(Quality)?Targets-[a-z]+\\.cmake$")  # named after the configuration
list(TRANSFORM found REPLACE "\\.cpython-[^/]*\\.so$" ".so")  # named after the interpreter
list(FILTER found EXCLUDE REGEX "^${PYTHON_FOLDER}/kestrane_tools|^bin/|^share/man/|^share/bash-completion/")
expect_files("everything" "${found}" ${runtime} ${headers} ${documents} ${examples} ${simulation} ${python}
  "${LIB_FOLDER}/libkestrane.so"
  "${LIB_FOLDER}/libkestrane-quality.so"
  "${LIB_FOLDER}/libkestrane-quality.so.${SOVERSION}"
  "${LIB_FOLDER}/libkestrane-quality.so.${VERSION}"
  "${LIB_FOLDER}/pkgconfig/kestrane.pc"
  "${LIB_FOLDER}/pkgconfig/kestrane-quality.pc"
  "${LIB_FOLDER}/cmake/kestrane/kestraneConfig.cmake"
  "${LIB_FOLDER}/cmake/kestrane/kestraneConfigVersion.cmake"
  "${LIB_FOLDER}/cmake/kestrane/kestraneQualityTargets.cmake"
  "${LIB_FOLDER}/cmake/kestrane/kestraneTargets.cmake"
  "${DOC_FOLDER}/README.md" "${DOC_FOLDER}/CHANGELOG.md")

file(REMOVE_RECURSE "${STAGE}")
file(RENAME "${WORK_FOLDER}" "${STAGE}")
