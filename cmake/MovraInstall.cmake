# What `cmake --install` puts where. Components: `runtime`, the library; `dev`, headers, CMake package and pkg-config
# file; `tool`, the command-line tool.
include(CMakePackageConfigHelpers)

set(package movra_superresolution)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${package})

install(TARGETS movra_superresolution EXPORT ${package}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

install(EXPORT ${package} NAMESPACE movra:: FILE ${package}Targets.cmake DESTINATION ${package_dir} COMPONENT dev)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/${package}Config.cmake.in ${package}Config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${package}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/${package}Config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/${package}ConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT dev)

# The pkg-config file finds its tree from its own place, unless the install folders are absolute.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(pkgconfig_prefix ${CMAKE_INSTALL_PREFIX})
  set(pkgconfig_libdir ${CMAKE_INSTALL_FULL_LIBDIR})
  set(pkgconfig_includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
else()
  file(RELATIVE_PATH upward /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
  string(REGEX REPLACE "/$" "" upward "${upward}")
  set(pkgconfig_prefix "\${pcfiledir}/${upward}")
  set(pkgconfig_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(pkgconfig_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/movra-superresolution.pc.in movra-superresolution.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/movra-superresolution.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
