# SPDX-License-Identifier: Apache-2.0
# For clang-tidy: sources of several libraries in one unit, so that the headers that they share, which take most of its
# time, are looked at once.

# Appends the targets that are defined in a directory and below it.
function(bfn_append_targets list directory)
  get_property(here DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS)
  list(APPEND ${list} ${here})
  get_property(below DIRECTORY ${directory} PROPERTY SUBDIRECTORIES)
  foreach(each IN LISTS below)
    bfn_append_targets(${list} ${each})
  endforeach()
  set(${list} ${${list}} PARENT_SCOPE)
endfunction()

# bfn_lint_units(NAME FOLDERS...): adds the target NAME, which is never built, with the sources of all libraries in and
# below these folders; the libraries have no units of their own. Programs keep theirs, since each has a main().
function(bfn_lint_units name)
  add_library(${name} OBJECT EXCLUDE_FROM_ALL)
  set_target_properties(${name} PROPERTIES UNITY_BUILD_BATCH_SIZE 36)
  set(targets "")
  foreach(folder IN LISTS ARGN)
    bfn_append_targets(targets ${CMAKE_SOURCE_DIR}/${folder})
  endforeach()
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(NOT type MATCHES "^(STATIC|SHARED|OBJECT)_LIBRARY$")
      continue()
    endif()
    get_target_property(sources ${target} SOURCES)
    get_target_property(directory ${target} SOURCE_DIR)
    foreach(source IN LISTS sources)
      if(source MATCHES "^[^$]*\\.cpp$")
        cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${directory})
        target_sources(${name} PRIVATE ${source})
      endif()
    endforeach()
    target_compile_definitions(${name} PRIVATE $<TARGET_PROPERTY:${target},COMPILE_DEFINITIONS>)
    target_include_directories(${name} PRIVATE $<TARGET_PROPERTY:${target},INCLUDE_DIRECTORIES>)
    set_target_properties(${target} PROPERTIES UNITY_BUILD OFF)
  endforeach()
endfunction()
