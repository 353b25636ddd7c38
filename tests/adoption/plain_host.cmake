# Compiles a consumer with a compiler and pkg-config alone, and runs it. The library lies in a
# folder that the loader does not look at; the program is told of it when it is linked.
#
# in   CONSUMER, WORK_FOLDER, STAGE, LIB_FOLDER, VERSION, COMPILER, PKG_CONFIG, FLAGS (the host's
#      own, with spaces between); MODULE (kestrane) that pkg-config is asked for and SOURCE
#      (main.cpp) that uses it
#
# A host for a processor that this one is not gets compiled and linked, but cannot be run.
if(NOT MODULE)
  set(MODULE kestrane)
  set(SOURCE main.cpp)
endif()
set(ENV{PKG_CONFIG_PATH} "${STAGE}/${LIB_FOLDER}/pkgconfig")
unset(ENV{LD_LIBRARY_PATH})
file(REMOVE_RECURSE "${WORK_FOLDER}")
file(MAKE_DIRECTORY "${WORK_FOLDER}")

function(ask_pkg_config variable)
  execute_process(COMMAND "${PKG_CONFIG}" ${ARGN} "${MODULE}"
    OUTPUT_VARIABLE text OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(${variable} "${text}" PARENT_SCOPE)
endfunction()

ask_pkg_config(version --modversion)
if(NOT version STREQUAL VERSION)
  message(FATAL_ERROR "pkg-config knows version ${version} instead of ${VERSION}")
endif()
ask_pkg_config(cflags --cflags)
ask_pkg_config(libs --libs)
ask_pkg_config(libdir --variable=libdir)
if("${cflags} ${libs}" MATCHES "ceres")
  message(FATAL_ERROR "the solver is the library's own business: ${cflags} ${libs}")
endif()
separate_arguments(cflags UNIX_COMMAND "${cflags}")
separate_arguments(libs UNIX_COMMAND "${libs}")
separate_arguments(flags UNIX_COMMAND "${FLAGS}")
execute_process(
  COMMAND "${COMPILER}" -std=c++17 ${flags} ${cflags} "${CONSUMER}/${SOURCE}" ${libs}
    "-Wl,-rpath,${libdir}" -o "${WORK_FOLDER}/consumer"
  COMMAND_ERROR_IS_FATAL ANY)

string(REGEX MATCHALL "-m(avx2|avx512f|fma)" vector_flags "${FLAGS}")
if(vector_flags)
  file(STRINGS /proc/cpuinfo known REGEX "^flags" LIMIT_COUNT 1)
  foreach(flag IN LISTS vector_flags)
    string(REPLACE "-m" "" set "${flag}")
    if(NOT "${known} " MATCHES " ${set} ")
      execute_process(COMMAND "${CMAKE_COMMAND}" -E echo
        "SKIPPED running: this processor has no ${set}; the host compiles and links")
      return()
    endif()
  endforeach()
endif()
execute_process(COMMAND "${WORK_FOLDER}/consumer" "${WORK_FOLDER}" RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the consumer ended with ${result}")
endif()
