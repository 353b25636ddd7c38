# Eigen and the nonlinear solver, gathered in one interface target: kestrane_solver.
#
# The solver is linked as the shared library. The distribution's CMake target is the static
# archive, so only its include folders are taken. Its sparse back end is asked for by name, so that
# a solver without one is refused here and not while a device is being calibrated.
#
# Eigen's target is part of the interface, so a project that adds this one as a subfolder has to see
# it too.
find_package(Eigen3 3.4 REQUIRED NO_MODULE GLOBAL)
find_package(Ceres 2.0 REQUIRED COMPONENTS SuiteSparse)
find_library(KESTRANE_CERES_LIBRARY NAMES libceres.so ceres REQUIRED)
find_library(KESTRANE_GLOG_LIBRARY NAMES libglog.so glog REQUIRED)

get_target_property(_kestrane_ceres_includes Ceres::ceres INTERFACE_INCLUDE_DIRECTORIES)
add_library(kestrane_solver INTERFACE)
target_include_directories(kestrane_solver SYSTEM INTERFACE ${_kestrane_ceres_includes})
target_link_libraries(kestrane_solver INTERFACE
  Eigen3::Eigen "${KESTRANE_CERES_LIBRARY}" "${KESTRANE_GLOG_LIBRARY}")
