# SPDX-License-Identifier: Apache-2.0
# Fuzz targets. A target is one source that defines LLVMFuzzerTestOneInput, and the inputs that are
# kept for it in tests/fuzz/corpus/<target>.
#
# With BFN_FUZZ (preset `fuzz`) it is a libFuzzer program, and its CTest a short run with a fixed
# seed that starts from the corpus. In every other build its CTest replays the corpus once, so that
# an input which once failed is tried with each compiler and sanitizer.
if(BFN_FUZZ)
  add_custom_target(fuzz_targets)
endif()

# add_fuzz_target(NAME SOURCE [LIBRARIES...])
function(add_fuzz_target name source)
  set(corpus ${CMAKE_SOURCE_DIR}/tests/fuzz/corpus/${name})
  add_executable(${name} ${source})
  target_link_libraries(${name} PRIVATE Kiv ${ARGN})
  if(BFN_FUZZ)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    add_dependencies(fuzz_targets ${name})
    set(found ${CMAKE_BINARY_DIR}/found/${name})
    file(MAKE_DIRECTORY ${found})
    add_test(NAME Fuzz.${name}
             COMMAND ${name} -seed=1 -runs=100000 -max_total_time=5 ${found} ${corpus})
  else()
    target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests/fuzz/Replay.cpp)
    add_test(NAME Fuzz.${name} COMMAND ${name} ${corpus})
  endif()
  set_tests_properties(Fuzz.${name} PROPERTIES LABELS fuzz TIMEOUT 120 COST 100)
endfunction()
