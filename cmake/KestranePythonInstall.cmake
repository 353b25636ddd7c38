# What the Python package adds to the installation, all of it the component Python: sources, modules
# and the folder by which installed packages are known.
#
# KESTRANE_PYTHON_DIR is relative to the prefix. By default it is where the interpreter looks for
# packages below that prefix: dist-packages for the prefixes /usr and /usr/local of a Debian, else
# lib/python3.x/site-packages, which PYTHONPATH has to name.
if(NOT DEFINED KESTRANE_PYTHON_DIR)
  execute_process(
    COMMAND "${Python_EXECUTABLE}" "${CMAKE_CURRENT_LIST_DIR}/python_folder.py"
      "${CMAKE_INSTALL_PREFIX}"
    OUTPUT_VARIABLE _folder OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(KESTRANE_PYTHON_DIR "${_folder}" CACHE STRING
    "Where Python packages are installed, relative to the prefix")
endif()

# The libraries are found from where the modules stand, so that all of it may be moved as one folder.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${KESTRANE_PYTHON_DIR}")
  set(_python_rpath "${CMAKE_INSTALL_FULL_LIBDIR}")
else()
  file(RELATIVE_PATH _up "/prefix/${KESTRANE_PYTHON_DIR}/kestrane" "/prefix/${CMAKE_INSTALL_LIBDIR}")
  set(_python_rpath "$ORIGIN/${_up}")
endif()
set_target_properties(_core _simulation PROPERTIES INSTALL_RPATH "${_python_rpath}")

install(TARGETS _core _simulation
  LIBRARY DESTINATION "${KESTRANE_PYTHON_DIR}/kestrane" COMPONENT Python)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/python/kestrane"
  DESTINATION "${KESTRANE_PYTHON_DIR}" COMPONENT Python
  FILES_MATCHING PATTERN "*.py" PATTERN "*.pyi" PATTERN "py.typed"
  PATTERN "__pycache__" EXCLUDE)
install(DIRECTORY "${KESTRANE_PYTHON_TREE}/kestrane-${PROJECT_VERSION}.dist-info"
  DESTINATION "${KESTRANE_PYTHON_DIR}" COMPONENT Python)
