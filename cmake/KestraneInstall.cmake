# What is installed: the shared library (component Runtime); its headers, the CMake package, the
# pkg-config file and the documents (component Development). All of it may be moved as one folder.
include(CMakePackageConfigHelpers)

set(_package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/kestrane")
set(_work_folder "${CMAKE_CURRENT_BINARY_DIR}/install")

install(TARGETS kestrane EXPORT kestrane
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    COMPONENT Runtime NAMELINK_COMPONENT Development
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}/include/kestrane"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT Development
  FILES_MATCHING PATTERN "*.h")

install(EXPORT kestrane NAMESPACE kestrane:: FILE kestraneTargets.cmake
  DESTINATION "${_package_folder}" COMPONENT Development)
configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/kestraneConfig.cmake.in" "${_work_folder}/kestraneConfig.cmake"
  INSTALL_DESTINATION "${_package_folder}"
  NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file("${_work_folder}/kestraneConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${_work_folder}/kestraneConfig.cmake" "${_work_folder}/kestraneConfigVersion.cmake"
  DESTINATION "${_package_folder}" COMPONENT Development)

# The pkg-config file finds its folders from where it stands itself; folders that were chosen
# outside the prefix stay as they were given.
set(_pc_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(KESTRANE_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH _up "/prefix/${_pc_folder}" "/prefix")
  string(REGEX REPLACE "/$" "" _up "${_up}")
  set(KESTRANE_PC_PREFIX "\${pcfiledir}/${_up}")
endif()
foreach(_kind IN ITEMS LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_kind}}")
    set(KESTRANE_PC_${_kind} "${CMAKE_INSTALL_${_kind}}")
  else()
    set(KESTRANE_PC_${_kind} "\${prefix}/${CMAKE_INSTALL_${_kind}}")
  endif()
endforeach()
configure_file("${CMAKE_CURRENT_LIST_DIR}/kestrane.pc.in" "${_work_folder}/kestrane.pc" @ONLY)
install(FILES "${_work_folder}/kestrane.pc" DESTINATION "${_pc_folder}" COMPONENT Development)

install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT Runtime)
install(FILES README.md CHANGELOG.md
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT Development)
install(DIRECTORY docs DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT Development
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png")

# The example programs with what they simulate their devices by; see examples/CMakeLists.txt.
install(DIRECTORY examples/ simulation
  DESTINATION "${CMAKE_INSTALL_DOCDIR}/examples" COMPONENT Development
  PATTERN "__pycache__" EXCLUDE)
