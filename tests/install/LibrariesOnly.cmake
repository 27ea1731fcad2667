# SPDX-License-Identifier: Apache-2.0
# Configures a build of the libraries alone, on a machine that lacks every package of the programs, as
# someone does who uses no preset.
#
#   cmake -D source=... -D scratch=... -D compiler=... -P LibrariesOnly.cmake
cmake_minimum_required(VERSION 3.25)
file(REMOVE_RECURSE ${scratch})
set(absent "")
foreach(package IN ITEMS nlohmann_json CLI11 SQLite3 GTest Python3)
  list(APPEND absent -D CMAKE_DISABLE_FIND_PACKAGE_${package}=ON)
endforeach()
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${source} -B ${scratch} -G Ninja -D CMAKE_CXX_COMPILER=${compiler}
          -D BFN_BUILD_PROGRAMS=OFF ${absent}
          # No header outside of the compiler's own folders is found.
          -D CMAKE_FIND_ROOT_PATH=${scratch}/empty -D CMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY
          -D CMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${scratch} -- -t targets all
                OUTPUT_VARIABLE targets COMMAND_ERROR_IS_FATAL ANY)
foreach(library IN ITEMS libKiv.so libBfnMacRewriteRecords.so libBfnMacRewrite.so libKivChip.a)
  if(NOT targets MATCHES "${library}")
    message(FATAL_ERROR "${library} is not built:\n${targets}")
  endif()
endforeach()
if(targets MATCHES "EXECUTABLE_LINKER")
  message(FATAL_ERROR "a program is built:\n${targets}")
endif()
file(READ ${scratch}/compile_commands.json commands)
if(commands MATCHES "-Werror")
  message(FATAL_ERROR "warnings are errors without a preset")
endif()
