# Compile options of every target of this project, carried by the interface target movra_options.

add_library(movra_options INTERFACE)
target_compile_features(movra_options INTERFACE cxx_std_17 c_std_99)
target_include_directories(movra_options INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)

# The order of float operations is part of the interface: a fused multiply-add would change the bits.
# The source tree's place must not show in the library: exception locations are relative to the tree, whether the build
# tool names sources by their absolute or by their relative path.
file(RELATIVE_PATH movra_source_from_build ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/)
target_compile_options(movra_options INTERFACE
  -ffp-contract=off -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${movra_source_from_build}=
  -Wall -Wextra -Wpedantic $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local> -Wconversion -Wdouble-promotion -Wcast-qual -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi>
  $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>
  $<$<CXX_COMPILER_ID:Clang>:-Wno-unknown-pragmas -Wno-sign-conversion -Wno-double-promotion>
  $<$<BOOL:${MOVRA_WARNINGS_AS_ERRORS}>:-Werror>)

# Hardening in builds that are shipped: for all files where they are linked, and, by movra_hardened, in the code of tool
# and library. The kernels do without: their loops have no buffers on the stack.
add_library(movra_hardened INTERFACE)
if(NOT MOVRA_SANITIZE AND NOT MOVRA_FUZZ)
  target_link_options(movra_options INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  target_compile_options(movra_hardened INTERFACE -fstack-protector-strong
    $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    target_compile_options(movra_hardened INTERFACE -fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    target_compile_options(movra_hardened INTERFACE -mbranch-protection=standard)
  endif()
endif()

if(MOVRA_SANITIZE OR MOVRA_FUZZ)
  # The float checks of the undefined-behaviour sanitizer that are not in its default set.
  set(sanitizers -fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all)
  target_compile_options(movra_options INTERFACE ${sanitizers} -fno-omit-frame-pointer)
  target_link_options(movra_options INTERFACE ${sanitizers})
endif()
if(MOVRA_FUZZ)
  # Counters for libFuzzer in all code; its main function only in the targets (tests/fuzz).
  target_compile_options(movra_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(MOVRA_SANITIZE_THREADS)
  target_compile_options(movra_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(movra_options INTERFACE -fsanitize=thread)
endif()
if(MOVRA_COVERAGE)
  target_compile_options(movra_options INTERFACE --coverage)
  target_link_options(movra_options INTERFACE --coverage)
endif()

# Builds from scratch spend their time in the large headers of other libraries. With MOVRA_QUICK_BUILD these are read a
# few times instead of once per source, which hides a missing include: the release build goes without.

# Sources of library and tool are compiled sixteen at a time. Local names must differ within a target.
function(movra_compile_together target)
  set_target_properties(${target} PROPERTIES UNITY_BUILD ${MOVRA_QUICK_BUILD} UNITY_BUILD_BATCH_SIZE 16)
endfunction()

# Tests, whose local names repeat, share precompiled headers.
function(movra_precompile target)
  if(MOVRA_QUICK_BUILD)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()
