# Finds the modules of OpenCV that the library stands on, core and imgproc, and those that movra_opencv_more names, as
# targets opencv_core and so on: through OpenCV's own CMake package, or, where that is not installed, by their headers and
# libraries. (A distribution may keep the package in a collection of all modules, which is three times the download.)
# Included by this project's build and, installed beside it, by its CMake package. What is missing is told in
# movra_opencv_problem.

set(movra_opencv_modules core imgproc ${movra_opencv_more})
set(movra_opencv_version 4.5)
set(movra_opencv_problem "")
find_package(OpenCV ${movra_opencv_version} QUIET COMPONENTS ${movra_opencv_modules})

if(NOT OpenCV_FOUND)
  find_path(MOVRA_OPENCV_INCLUDE_DIR opencv2/core/version.hpp PATH_SUFFIXES opencv4)
  mark_as_advanced(MOVRA_OPENCV_INCLUDE_DIR)
  if(MOVRA_OPENCV_INCLUDE_DIR)
    file(STRINGS ${MOVRA_OPENCV_INCLUDE_DIR}/opencv2/core/version.hpp movra_opencv_lines REGEX "CV_VERSION_M(AJOR|INOR) ")
    string(REGEX REPLACE "[^0-9]*([0-9]+)[^0-9]+([0-9]+)[^0-9]*" "\\1.\\2" OpenCV_VERSION "${movra_opencv_lines}")
    if(OpenCV_VERSION VERSION_LESS movra_opencv_version OR OpenCV_VERSION VERSION_GREATER_EQUAL 5)
      set(movra_opencv_problem "its version is ${OpenCV_VERSION}")
    endif()
  else()
    set(movra_opencv_problem "its headers are missing")
  endif()
  foreach(module IN LISTS movra_opencv_modules)
    string(TOUPPER MOVRA_OPENCV_${module}_LIBRARY variable)
    find_library(${variable} opencv_${module})
    mark_as_advanced(${variable})
    if(NOT ${variable})
      string(APPEND movra_opencv_problem " the library opencv_${module} is missing")
    elseif(NOT movra_opencv_problem AND NOT TARGET opencv_${module})
      add_library(opencv_${module} UNKNOWN IMPORTED GLOBAL)
      set_target_properties(opencv_${module} PROPERTIES
        IMPORTED_LOCATION ${${variable}} INTERFACE_INCLUDE_DIRECTORIES ${MOVRA_OPENCV_INCLUDE_DIR})
    endif()
  endforeach()
  if(movra_opencv_problem)
    list(JOIN movra_opencv_modules ", " movra_opencv_list)
    string(PREPEND movra_opencv_problem "OpenCV ${movra_opencv_version} with ${movra_opencv_list} is needed: ")
    list(TRANSFORM movra_opencv_modules REPLACE "(.+)" " libopencv-\\1-dev" OUTPUT_VARIABLE movra_opencv_list)
    string(APPEND movra_opencv_problem
      ". On Debian: apt-get install" ${movra_opencv_list} ". Elsewhere, say where it is with -DOpenCV_DIR=...")
  endif()
endif()
