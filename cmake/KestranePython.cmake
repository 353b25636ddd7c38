# What the Python parts of the build share.
#
# The distribution's own interpreter is the one that its packages of NumPy and pybind11 are for; a
# second python that stands first in PATH has neither.
if(NOT DEFINED Python_EXECUTABLE AND EXISTS /usr/bin/python3)
  set(Python_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "Interpreter that the package is built for")
endif()
find_package(Python 3.11 REQUIRED COMPONENTS Interpreter Development.Module)
find_package(pybind11 2.10 REQUIRED CONFIG)

# Where the build tree's packages stand as they would be installed, and the interpreter that finds
# them there.
set(KESTRANE_PYTHON_TREE "${PROJECT_BINARY_DIR}/python")
set(KESTRANE_PYTHON "${PROJECT_BINARY_DIR}/bin/python")

# kestrane_add_pytests(<prefix>): one test for each *_test.py in and below the current folder, but
# those in folders named `browser`, which need one.
function(kestrane_add_pytests prefix)
  file(GLOB_RECURSE files CONFIGURE_DEPENDS RELATIVE "${CMAKE_CURRENT_SOURCE_DIR}" *_test.py)
  list(FILTER files EXCLUDE REGEX "(^|/)browser/")
  foreach(file IN LISTS files)
    string(REGEX REPLACE "_test\\.py$" "" name "${prefix}.${file}")
    string(REPLACE "/" "." name "${name}")
    add_test(NAME ${name}
      COMMAND "${PROJECT_SOURCE_DIR}/python/run-pytest.sh" "${KESTRANE_PYTHON}"
        "${PROJECT_BINARY_DIR}/pytest/${name}.txt" "${CMAKE_CURRENT_SOURCE_DIR}/${file}")
    set_tests_properties(${name} PROPERTIES TIMEOUT 1200 LABELS python)
  endforeach()
endfunction()
