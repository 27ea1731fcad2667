# SPDX-License-Identifier: Apache-2.0
# add_shared_library(NAME SOURCES...): a shared library of this project, with its version, its soname
# and the version of its symbols.
function(add_shared_library name)
  set(symbols ${CMAKE_SOURCE_DIR}/cmake/Symbols.map)
  add_library(${name} SHARED ${ARGN})
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION}
                                           SOVERSION ${PROJECT_VERSION_MAJOR}
                                           LINK_DEPENDS ${symbols})
  target_link_options(${name} PRIVATE -Wl,--version-script=${symbols})
  # Under clang++ the sanitizers' runtime is in the program; a library leaves it undefined.
  if(NOT BFN_SANITIZE)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
