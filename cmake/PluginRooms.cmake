# SPDX-License-Identifier: Apache-2.0
# The rooms of the plug-in are object libraries: the shared library is made of their objects, and
# so are the tests that look inside it. Only what is marked BFN_MAC_REWRITE_EXPORT is visible
# outside.
set_property(GLOBAL PROPERTY BFN_PLUGIN_ROOMS "")

# add_plugin_room(NAME SOURCES...)
function(add_plugin_room name)
  add_library(${name} OBJECT ${ARGN})
  target_link_libraries(${name} PUBLIC BfnMacRewriteRecords Kiv)
  set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET hidden
                                           VISIBILITY_INLINES_HIDDEN ON)
  set_property(GLOBAL APPEND PROPERTY BFN_PLUGIN_ROOMS ${name})
endfunction()

# add_plugin(NAME): the shared library of all rooms, and the interface target <NAME>Inside with
# which a test links the same objects directly.
function(add_plugin name)
  get_property(rooms GLOBAL PROPERTY BFN_PLUGIN_ROOMS)
  set(objects "")
  foreach(room IN LISTS rooms)
    list(APPEND objects $<TARGET_OBJECTS:${room}>)
  endforeach()
  add_shared_library(${name} ${objects})
  target_link_libraries(${name} PUBLIC BfnMacRewriteRecords Kiv)
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
  add_library(${name}Inside INTERFACE)
  target_link_libraries(${name}Inside INTERFACE ${rooms} BfnMacRewriteRecords Kiv)
  target_sources(${name}Inside INTERFACE ${objects})
endfunction()
