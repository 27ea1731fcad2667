# Compares what the library shows the world with its list in exported/. Variables: library, list,
# below (the lists of the libraries that it needs), soname, nm, readelf.
#
# Left out of the comparison: weak and unique symbols in namespace std. Those are the language
# runtime's templates, which every object that uses them carries (vague linkage), whatever the
# visibility of the code that instantiates them. So are weak copies of what a library below has in its
# list: type information of a class that has no key function. Everything else is ours and has to be in the list:
# what a host calls, and the classes that it holds.
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${nm} -DC --defined-only ${library}
                OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
# A list's elements end at semicolons, unless brackets hold them together.
string(REGEX REPLACE "[[]" "(" output "${output}")
string(REGEX REPLACE "[]]" ")" output "${output}")
string(REGEX REPLACE "\n" ";" output "${output}")
set(elsewhere "")
foreach(file IN LISTS below)
  file(STRINGS ${file} names REGEX "^[^#]")
  list(APPEND elsewhere ${names})
endforeach()
set(exported "")
foreach(line IN LISTS output)
  if(NOT line MATCHES "^[0-9a-f]+ ([A-Za-z]) (.+)$")
    continue()
  endif()
  set(kind "${CMAKE_MATCH_1}")
  set(name "${CMAKE_MATCH_2}")
  if(kind MATCHES "^[VWuvw]$" AND (name MATCHES "^([a-z ]+ )?std::" OR name IN_LIST elsewhere))
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
