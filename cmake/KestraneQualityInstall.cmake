# What kestrane::quality adds to the installation: its shared library (component Quality) and, for
# the component Development, its link name, its targets file and its pkg-config file. The headers
# come along with the library's own.
set_target_properties(kestrane_quality PROPERTIES INSTALL_RPATH "$ORIGIN")  # libkestrane lies beside it

install(TARGETS kestrane_quality EXPORT kestraneQuality
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    COMPONENT Quality NAMELINK_COMPONENT Development
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT kestraneQuality NAMESPACE kestrane:: FILE kestraneQualityTargets.cmake
  DESTINATION "${_package_folder}" COMPONENT Development)

configure_file("${PROJECT_SOURCE_DIR}/cmake/kestrane-quality.pc.in"
  "${_work_folder}/kestrane-quality.pc" @ONLY)
install(FILES "${_work_folder}/kestrane-quality.pc" DESTINATION "${_pc_folder}"
  COMPONENT Development)
