# SPDX-License-Identifier: Apache-2.0
# Every header compiles alone. One translation unit is written for each header below the given
# folders, with nothing in it but that header, so that one which forgets an include of its own fails
# the build. New headers are found by themselves. A header that is the first include of its own
# source file is compiled alone already, since nothing is precompiled for a product's sources, and the release
# tree compiles each by itself.

# bfn_check_headers(FOLDERS...): adds the target `header_check` to the build.
function(bfn_check_headers)
  set(units "")
  foreach(folder IN LISTS ARGN)
    file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${CMAKE_SOURCE_DIR}
         ${CMAKE_SOURCE_DIR}/${folder}/*.h)
    foreach(header IN LISTS headers)
      string(REGEX REPLACE "h$" "cpp" own_source ${CMAKE_SOURCE_DIR}/${header})
      if(EXISTS ${own_source} AND NOT header MATCHES "^tests/")
        file(STRINGS ${own_source} first_include REGEX "^#include" LIMIT_COUNT 1)
        if(first_include STREQUAL "#include \"${header}\"")
          continue()
        endif()
      endif()
      set(unit ${CMAKE_BINARY_DIR}/header_check/${header}.cpp)
      file(CONFIGURE OUTPUT ${unit} CONTENT "#include \"@header@\"\n" @ONLY)
      list(APPEND units ${unit})
    endforeach()
  endforeach()
  if(NOT units)
    message(FATAL_ERROR "No header found below: ${ARGN}")
  endif()
  add_library(header_check OBJECT ${units})
  set_target_properties(header_check PROPERTIES UNITY_BUILD OFF)
  target_compile_options(header_check PRIVATE -O0 -g0 -fno-sanitize=all)
endfunction()
