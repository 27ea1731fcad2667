# SPDX-License-Identifier: Apache-2.0
# Runs the leaf example where its capture may be written, and compares what it prints.
#
#   cmake -D program=... -D source=... -D scratch=... -P LeafExample.cmake
file(MAKE_DIRECTORY ${scratch}/build)
execute_process(
  COMMAND ${program} ${source}/examples/leaf1/leaf1.lab
  WORKING_DIRECTORY ${scratch}
  OUTPUT_VARIABLE printed
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "the example ended with status ${status}:\n${printed}")
endif()
file(READ ${source}/examples/leaf1/expected.txt expected)
if(NOT printed STREQUAL expected)
  file(WRITE ${scratch}/printed.txt "${printed}")
  message(FATAL_ERROR "the example printed something else, see ${scratch}/printed.txt:\n${printed}")
endif()
if(NOT EXISTS ${scratch}/build/leaf1.pcap)
  message(FATAL_ERROR "the example wrote no capture")
endif()
