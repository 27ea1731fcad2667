# SPDX-License-Identifier: Apache-2.0
# Installs this build, moves what was installed, and runs the lab's demo in a folder where nothing may
# be written.
#
#   cmake -D build=... -D source=... -D scratch=... -P LabMoves.cmake
cmake_minimum_required(VERSION 3.25)
file(REMOVE_RECURSE ${scratch})
file(MAKE_DIRECTORY ${scratch}/tmp)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${build} --prefix ${scratch}/first
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${scratch}/first ${scratch}/second)
execute_process(COMMAND ${CMAKE_COMMAND} -E env TMPDIR=${scratch}/tmp ${scratch}/second/bin/macrewrite-lab demo
                WORKING_DIRECTORY /proc OUTPUT_VARIABLE printed COMMAND_ERROR_IS_FATAL ANY)
file(READ ${source}/examples/leaf1/expected.txt expected)
string(REGEX REPLACE "^What is written is in ([^\n]*)\n" "" shown "${printed}")
set(folder "${CMAKE_MATCH_1}")
if(NOT shown STREQUAL expected)
  message(FATAL_ERROR "the demo printed something else:\n${printed}")
endif()
if(NOT folder MATCHES "^${scratch}/tmp/" OR NOT EXISTS ${folder}/build/leaf1.pcap)
  message(FATAL_ERROR "the demo's capture is not in '${folder}'")
endif()
# All of it is from the moved tree.
file(GLOB plugin ${scratch}/second/lib*/libBfnMacRewrite.so.1 ${scratch}/second/lib/*/libBfnMacRewrite.so.1)
file(RENAME ${plugin} ${plugin}.away)
execute_process(COMMAND ${scratch}/second/bin/macrewrite-lab demo
                RESULT_VARIABLE status ERROR_VARIABLE error OUTPUT_QUIET)
if(NOT status EQUAL 2 OR NOT error MATCHES "cannot open the plug-in: libBfnMacRewrite.so.1: ")
  message(FATAL_ERROR "without its plug-in the lab ended with ${status}: ${error}")
endif()
