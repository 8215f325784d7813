# Debian packages: `cpack -G DEB` in a build with the prefix /usr (scripts/package makes one). A package per component, for
# Debian's own folders, with what lintian asks for.
include(GNUInstallDirs)

set(MOVRA_PACKAGES
  runtime libmovra-superresolution1
  dev libmovra-superresolution-dev
  tool movra-sr
  python python3-movra-sr
  doc libmovra-superresolution-doc)

# The man page is the tool's help with an include file.
find_program(HELP2MAN help2man)
if(MOVRA_BUILD_TOOL AND HELP2MAN)
  set(man_page ${PROJECT_BINARY_DIR}/movra-sr.1)
  add_custom_command(OUTPUT ${man_page}
    COMMAND ${HELP2MAN} --no-info --name "super-resolution of thermal images"
            --include ${PROJECT_SOURCE_DIR}/docs/man/movra-sr.h2m --output ${man_page} $<TARGET_FILE:movra-sr>
    DEPENDS movra-sr ${PROJECT_SOURCE_DIR}/docs/man/movra-sr.h2m VERBATIM)
  add_custom_target(movra_sr_man ALL DEPENDS ${man_page})
  install(CODE "execute_process(COMMAND gzip -9nkf ${man_page})" COMPONENT tool)
  install(FILES ${man_page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
endif()
if(MOVRA_BUILD_TOOL)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/completions/movra-sr
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/completions/_movra-sr
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tool)
endif()
set(doc_folder ${CMAKE_INSTALL_DATADIR}/doc/libmovra-superresolution-doc)
install(DIRECTORY docs/ DESTINATION ${doc_folder} COMPONENT doc FILES_MATCHING PATTERN *.md)
install(DIRECTORY examples DESTINATION ${doc_folder} COMPONENT doc)

# The reference of the public headers, as pages.
option(MOVRA_BUILD_REFERENCE "Make the pages of the headers' documentation" OFF)
if(MOVRA_BUILD_REFERENCE)
  find_program(DOXYGEN doxygen REQUIRED)
  set(reference ${PROJECT_BINARY_DIR}/reference)
  file(READ docs/Doxyfile doxyfile)
  file(CONFIGURE OUTPUT ${reference}/Doxyfile @ONLY CONTENT
    "${doxyfile}\nOUTPUT_DIRECTORY = ${reference}\nWARNINGS = NO\nSTRIP_FROM_PATH = ${PROJECT_SOURCE_DIR}\n")
  add_custom_target(movra_sr_reference ALL COMMAND ${DOXYGEN} ${reference}/Doxyfile
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM)
  install(DIRECTORY ${reference}/html/ DESTINATION ${doc_folder}/reference COMPONENT doc)
endif()

set(CPACK_GENERATOR DEB)
set(MOVRA_MAINTAINER "The movra developers <movra@example.org>" CACHE STRING
  "Who looks after the Debian packages, NAME <ADDRESS>; whoever makes them gives their own")
set(CPACK_PACKAGE_CONTACT ${MOVRA_MAINTAINER})
configure_file(packaging/changelog ${PROJECT_BINARY_DIR}/changelog @ONLY)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Multi-frame super-resolution of thermal images")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE "")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/vision/superresolution)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_COMPONENTS_ALL runtime dev doc)
if(MOVRA_BUILD_TOOL)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()
if(MOVRA_BUILD_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()

set(library "libmovra-superresolution1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${library}, libopencv-core-dev, libopencv-imgproc-dev")
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${library}")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${library}, python3 (>= 3.11), python3 (<< 3.12), python3-numpy")
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "shared library
 Turns a burst of frames of a thermal camera into one image of twice the
 resolution.")
set(CPACK_COMPONENT_DEV_DESCRIPTION "headers
 Turns a burst of frames of a thermal camera into one image of twice the
 resolution. For programs in C and C++.")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "command-line tool
 Turns a burst of frames of a thermal camera into one image of twice the
 resolution, and compares, simulates and reports.")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "Python module
 Turns a burst of frames of a thermal camera into one image of twice the
 resolution. Arrays of numpy in and out.")
set(CPACK_COMPONENT_DOC_DESCRIPTION "documentation and examples
 Turns a burst of frames of a thermal camera into one image of twice the
 resolution. Guide, method, reference of the headers, and small programs in
 C, C++ and Python.")

# Copyright and changelog of each package, and what lintian may find in it.
find_program(GZIP gzip)
while(MOVRA_PACKAGES)
  list(POP_FRONT MOVRA_PACKAGES component package)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(folder ${CMAKE_INSTALL_DATADIR}/doc/${package})
  install(FILES packaging/copyright DESTINATION ${folder} COMPONENT ${component})
  if(GZIP)
    install(CODE "execute_process(COMMAND ${GZIP} -9nc ${PROJECT_BINARY_DIR}/changelog
      OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.gz)" COMPONENT ${component})
    install(FILES ${PROJECT_BINARY_DIR}/changelog.gz DESTINATION ${folder} COMPONENT ${component})
  endif()
  if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/lintian/${package})
    install(FILES packaging/lintian/${package} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
      COMPONENT ${component})
  endif()
endwhile()
include(CPack)
