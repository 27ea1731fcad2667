# SPDX-License-Identifier: Apache-2.0
# One run of the install test; see CMakeLists.txt beside this file for the variables.
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${scratch})
set(prefix ${scratch}/prefix)
run(${CMAKE_COMMAND} --install ${build} --prefix ${prefix})

# A library is installed under its whole version, its soname points there, and the name that a
# program is linked with points at the soname.
foreach(library IN ITEMS BfnMacRewrite BfnMacRewriteRecords Kiv)
  foreach(link IN ITEMS ".so:.so.${soversion}" ".so.${soversion}:.so.${version}")
    string(REPLACE ":" ";" pair ${link})
    list(GET pair 0 from)
    list(GET pair 1 to)
    file(READ_SYMLINK ${prefix}/${libdir}/lib${library}${from} target)
    if(NOT target STREQUAL "lib${library}${to}" OR NOT EXISTS ${prefix}/${libdir}/${target})
      message(FATAL_ERROR "lib${library}${from} points at ${target}")
    endif()
  endforeach()
endforeach()

if(way STREQUAL "CMakePackage")
  run(${CMAKE_COMMAND} -S ${host}/../../../examples/host -B ${scratch}/example -G Ninja
      -D CMAKE_CXX_COMPILER=${compiler} -D CMAKE_CXX_FLAGS=${flags}
      -D CMAKE_PREFIX_PATH=${prefix})
  run(${CMAKE_COMMAND} --build ${scratch}/example)
  run(${scratch}/example/host_example)
  run(${CMAKE_COMMAND} -S ${host} -B ${scratch}/build -G Ninja
      -D CMAKE_CXX_COMPILER=${compiler} -D CMAKE_CXX_FLAGS=${flags}
      -D CMAKE_PREFIX_PATH=${prefix})
  run(${CMAKE_COMMAND} --build ${scratch}/build)
  run(${scratch}/build/classes)
  run(${scratch}/build/earlier)
elseif(way STREQUAL "KernelPackage")
  run(${CMAKE_COMMAND} -S ${host}/../kernel -B ${scratch}/build -G Ninja
      -D CMAKE_CXX_COMPILER=${compiler} -D CMAKE_CXX_FLAGS=${flags}
      -D CMAKE_PREFIX_PATH=${prefix})
  run(${CMAKE_COMMAND} --build ${scratch}/build)
  run(${scratch}/build/kernel)
  # By itself the component gives the tool and what belongs to it.
  run(${CMAKE_COMMAND} --install ${build} --prefix ${scratch}/alone --component kernel)
  file(GLOB_RECURSE installed RELATIVE ${scratch}/alone ${scratch}/alone/*)
  foreach(file IN LISTS installed)
    if(NOT file MATCHES "/_?macrewrite-kernel(\\.1)?$")
      message(FATAL_ERROR "the component kernel has ${file}")
    endif()
  endforeach()
  run(${CMAKE_COMMAND} --install ${build} --prefix ${scratch}/alone --component libkiv1)
  run(${scratch}/alone/bin/macrewrite-kernel --version)
elseif(way STREQUAL "PkgConfig")
  foreach(program IN ITEMS BfnMacRewrite:../../../examples/host/host.cpp Kiv:kiv.cpp)
    string(REPLACE ":" ";" pair ${program})
    list(GET pair 0 package)
    list(GET pair 1 source)
    execute_process(
      COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/${libdir}/pkgconfig
              ${pkg_config} --cflags --libs ${package}
      OUTPUT_VARIABLE package_flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(all_flags UNIX_COMMAND "${flags} ${package_flags}")
    run(${compiler} ${host}/${source} ${all_flags} -Wl,-rpath,${prefix}/${libdir} -o ${scratch}/${package})
    run(${scratch}/${package})
  endforeach()
else()
  message(FATAL_ERROR "way is '${way}'")
endif()
