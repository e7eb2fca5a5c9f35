# Installs the library, its headers in a directory of their own, and the files for CMake and pkg-config.
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/install_cpputil)

# Separate runtime and development components.
install(TARGETS install_cpputil EXPORT install_cpputil_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  COMPONENT install_cpputil_runtime
  NAMELINK_COMPONENT install_cpputil_development)
install(DIRECTORY utilities platform
  DESTINATION ${header_directory}
  COMPONENT install_cpputil_development
  FILES_MATCHING PATTERN "*.h"
  PATTERN internal EXCLUDE)
install(EXPORT install_cpputil_targets
  NAMESPACE install::
  DESTINATION ${package_directory}
  COMPONENT install_cpputil_development)

configure_package_config_file(cmake/install_cpputil-config.cmake.in
  ${PROJECT_BINARY_DIR}/install_cpputil-config.cmake
  INSTALL_DESTINATION ${package_directory}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/install_cpputil-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/install_cpputil-config.cmake
  ${PROJECT_BINARY_DIR}/install_cpputil-config-version.cmake
  DESTINATION ${package_directory}
  COMPONENT install_cpputil_development)

# The paths in the pkg-config file are relative to the file, because the tree may be installed under another
# prefix than the configured one, or moved. In /usr, they are absolute, so that pkg-config omits /usr/include:
# given as -isystem, it would precede the compiler's own directories and break its headers.
set(pkgconfig_directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(pkgconfig_prefix "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH prefix_from_pkgconfig /${pkgconfig_directory} /)
  string(REGEX REPLACE "/$" "" prefix_from_pkgconfig "${prefix_from_pkgconfig}")
  set(pkgconfig_prefix "\${pcfiledir}/${prefix_from_pkgconfig}")
endif()
foreach(directory LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${directory}}")
    set(pkgconfig_${directory} "${CMAKE_INSTALL_${directory}}")
  else()
    set(pkgconfig_${directory} "\${prefix}/${CMAKE_INSTALL_${directory}}")
  endif()
endforeach()
configure_file(cmake/install_cpputil.pc.in ${PROJECT_BINARY_DIR}/install_cpputil.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/install_cpputil.pc
  DESTINATION ${pkgconfig_directory}
  COMPONENT install_cpputil_development)
