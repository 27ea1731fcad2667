# Compares what the library shows the world with the list beside this file. Variables: library, list,
# soname, nm, readelf.
#
# Left out of the comparison: weak and unique symbols in namespace std. Those are the language
# runtime's templates, which every object that uses them carries (vague linkage), whatever the
# visibility of the code that instantiates them. Everything else is ours and has to be in the list:
# the factories, and the classes and records that the host holds.
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${nm} -DC --defined-only ${library}
                OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
# A list's elements end at semicolons, unless brackets hold them together.
string(REGEX REPLACE "[[]" "(" output "${output}")
string(REGEX REPLACE "[]]" ")" output "${output}")
string(REGEX REPLACE "\n" ";" output "${output}")
set(exported "")
foreach(line IN LISTS output)
  if(NOT line MATCHES "^[0-9a-f]+ ([A-Za-z]) (.+)$")
    continue()
  endif()
  set(kind "${CMAKE_MATCH_1}")
  set(name "${CMAKE_MATCH_2}")
  if(kind MATCHES "^[VWuvw]$" AND name MATCHES "^([a-z ]+ )?std::")
    continue()
  endif()
  list(APPEND exported "${name}")
endforeach()
list(REMOVE_DUPLICATES exported)

file(STRINGS ${list} expected REGEX "^[^#]")
set(missing ${expected})
list(REMOVE_ITEM missing ${exported})
set(unexpected ${exported})
list(REMOVE_ITEM unexpected ${expected})
foreach(name IN LISTS missing)
  message("not exported any more: ${name}")
endforeach()
foreach(name IN LISTS unexpected)
  message("not in the list:       ${name}")
endforeach()

execute_process(COMMAND ${readelf} -d ${library}
                OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(FIND "${dynamic}" "Library soname: [${soname}]" at)
if(at EQUAL -1)
  message("the soname is not ${soname}")
endif()

list(LENGTH exported count)
if(missing OR unexpected OR at EQUAL -1 OR count EQUAL 0)
  message(FATAL_ERROR "the library's interface has changed; if that is meant, change the list")
endif()
message("exported symbols: ok, ${count} names")
