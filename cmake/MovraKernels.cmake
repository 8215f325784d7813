# Compiles kernel sources once for each instruction set that the library chooses between at load time.
#
#   movra_kernel_objects(OUT_VARIABLE source.cpp ...)
#
# Each source is compiled with MOVRA_KERNEL_SET defined as `baseline`, `avx2` or `avx512`, a namespace of its own, and
# OUT_VARIABLE receives the object files. Every set gives the same bits: only the vector width differs.

set(MOVRA_KERNEL_SETS baseline)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  list(APPEND MOVRA_KERNEL_SETS avx2 avx512)
endif()
set(MOVRA_KERNEL_FLAGS_baseline "")
set(MOVRA_KERNEL_FLAGS_avx2 -mavx2)
set(MOVRA_KERNEL_FLAGS_avx512 -mavx512f -mavx512bw -mavx512dq -mavx512vl -mprefer-vector-width=512)

function(movra_kernel_objects out_variable)
  if(NOT ARGN)
    return()
  endif()
  set(objects)
  foreach(kernel_set IN LISTS MOVRA_KERNEL_SETS)
    set(target movra_kernels_${kernel_set})
    add_library(${target} OBJECT ${ARGN})
    target_link_libraries(${target} PRIVATE movra_options)
    target_compile_definitions(${target} PRIVATE MOVRA_KERNEL_SET=${kernel_set})
    # Loops over plain arrays are what these files are made of; they are optimised in debug builds too.
    target_compile_options(${target} PRIVATE ${MOVRA_KERNEL_FLAGS_${kernel_set}} -O3 -fno-math-errno -fno-trapping-math)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
                                               VISIBILITY_INLINES_HIDDEN ON)
    list(APPEND objects $<TARGET_OBJECTS:${target}>)
  endforeach()
  set(${out_variable} ${objects} PARENT_SCOPE)
endfunction()
