# SPDX-License-Identifier: Apache-2.0
# How every target of this project is compiled. Included once, from the top.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

# Only two build types are supported, and each is named by a preset.
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()
# A debug build is not optimised unless CMAKE_CXX_FLAGS says so: with the sanitizers, optimising
# takes twice the time to compile and saves little of it in the tests.
set(CMAKE_CXX_FLAGS_DEBUG "-g1")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

option(BFN_WERROR "Treat warnings as errors; the presets do" OFF)
option(BFN_BUILD_PROGRAMS "Build the programs, and so the tests; without, the standard library is enough" ON)
option(BFN_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(BFN_COVERAGE "Build with coverage counters" OFF)
option(BFN_FUZZ "Build the fuzz targets with libFuzzer; needs clang++" OFF)
option(BFN_BUILD_BENCH "Build the benchmarks" OFF)
option(BFN_CHECK_HEADERS "Compile every header alone, as part of the build" OFF)
option(BFN_PRECOMPILE "Precompile the test framework's headers" ON)
option(BFN_BATCHES "Compile up to 16 sources of a product's library in one unit" OFF)
option(BFN_TEST_BATCHES "The same for a test suite's sources" OFF)
option(BFN_LINT_UNITS "Units of several libraries for clang-tidy; for a tree that is not built" OFF)
option(BFN_SUITE_PROCESSES "One process a test suite, not one a test" OFF)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # Precompiled headers are cached only when ccache may trust macros and times inside them.
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                    -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wundef)
add_compile_options($<$<CXX_COMPILER_ID:Clang>:-Wreserved-identifier>)
if(BFN_BATCHES OR BFN_LINT_UNITS)
  # Names of one source seem to shadow those of another one. Other builds look at each by itself.
  add_compile_options(-Wno-shadow)
endif()
# __FILE__ in traces and fatal checks is relative to the source tree on every machine, also when a
# compiler cache rewrites absolute paths to relative ones (CCACHE_BASEDIR).
file(RELATIVE_PATH BFN_BUILD_TO_SOURCE ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR})
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=
                    -ffile-prefix-map=${BFN_BUILD_TO_SOURCE}=)
if(BFN_WERROR)
  add_compile_options(-Werror)
endif()

# What a program outside this tree must be compiled and linked with, too, to use these libraries.
set(BFN_INSTRUMENTATION "")
if(BFN_SANITIZE)
  list(APPEND BFN_INSTRUMENTATION -fsanitize=address,undefined)
  add_compile_options(-fno-sanitize-recover=all -fno-omit-frame-pointer)
endif()
if(BFN_COVERAGE)
  list(APPEND BFN_INSTRUMENTATION --coverage)
  add_compile_options(-O0)
endif()
if(BFN_FUZZ)
  list(APPEND BFN_INSTRUMENTATION -fsanitize=fuzzer-no-link)
endif()
add_compile_options(${BFN_INSTRUMENTATION})
add_link_options(${BFN_INSTRUMENTATION})

# With the sanitizers' runtime in it, a program takes the system's own linker four times as long.
find_program(LLD_PROGRAM ld.lld)
if(BFN_SANITIZE AND LLD_PROGRAM AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_link_options(-fuse-ld=lld)
endif()

# The libraries' own functions are not interposed, so calls within one may be inlined; clang++ takes
# this for granted.
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)

include_directories(${CMAKE_SOURCE_DIR})
