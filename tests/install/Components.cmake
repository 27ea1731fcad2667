# SPDX-License-Identifier: Apache-2.0
# Installs each component by itself: together they are what an installation of everything gives, and no
# file is in two of them.
#
#   cmake -D build=... -D scratch=... -D components=A,B,C -P Components.cmake
cmake_minimum_required(VERSION 3.25)
function(install_and_list result folder)
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${build} --prefix ${folder} ${ARGN}
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB_RECURSE files RELATIVE ${folder} ${folder}/*)
  set(${result} "${files}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${scratch})
install_and_list(all ${scratch}/all)
set(together "")
string(REPLACE "," ";" components "${components}")
foreach(component IN LISTS components)
  install_and_list(files ${scratch}/${component} --component ${component})
  if(NOT files)
    message(FATAL_ERROR "the component ${component} is empty")
  endif()
  list(APPEND together ${files})
endforeach()
list(SORT all)
list(SORT together)
if(NOT all STREQUAL together)
  message(FATAL_ERROR "everything:\n  ${all}\ncomponent by component:\n  ${together}")
endif()

# What a program needs at run time is in its packages: nothing but the libraries.
foreach(library IN ITEMS libkiv1 libbfnmacrewrite1)
  file(GLOB_RECURSE others RELATIVE ${scratch}/${library} ${scratch}/${library}/*)
  list(FILTER others EXCLUDE REGEX "\\.so\\.[0-9.]+$")
  if(others)
    message(FATAL_ERROR "the component ${library} has ${others}")
  endif()
endforeach()
