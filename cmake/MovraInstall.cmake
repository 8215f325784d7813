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
  ${CMAKE_CURRENT_LIST_DIR}/MovraOpenCV.cmake
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

get_target_property(opencv_includes opencv_core INTERFACE_INCLUDE_DIRECTORIES)
list(GET opencv_includes 0 opencv_include)
set(pkgconfig_opencv_cflags -I${opencv_include})
get_target_property(opencv_file opencv_core LOCATION)
get_filename_component(opencv_folder ${opencv_file} DIRECTORY)
set(pkgconfig_opencv_libs "-lopencv_imgproc -lopencv_core")
if(NOT opencv_folder IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
  string(PREPEND pkgconfig_opencv_libs "-L${opencv_folder} ")
endif()

foreach(pkgconfig_name IN ITEMS movra-superresolution movra-superresolution-cpp)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${pkgconfig_name}.pc.in ${pkgconfig_name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pkgconfig_name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()
