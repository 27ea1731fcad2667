# SPDX-License-Identifier: Apache-2.0
# `cmake --install`, and its components, which the Debian packages are made of:
#
#   libkiv1, libbfnmacrewrite1   the shared libraries
#   dev                          headers, what programs are linked with, CMake and pkg-config files; where it is
#                                built, the kernel's table, too (CMake package BfnMacRewriteKernel)
#   kernel                       macrewrite-kernel, where it is built
#   lab                          macrewrite-lab with its examples, manual pages and completions
#   macrewrited, macrewrite      the service with its units, and its client
#   doc                          the documents as a site, where python3-markdown is there
#
# Headers go below include/BfnMacRewrite/. That is an include path itself, and so is the folder above: a
# program outside includes "framework/core/Ptr.h" as the sources here do, or
# <BfnMacRewrite/framework/core/Ptr.h>.
#
# Every path is relative to another one in the prefix, so that an installed tree may be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(BFN_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/BfnMacRewrite)
set(BFN_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/BfnMacRewrite)
# What programs read at run time.
set(BFN_INSTALL_SHAREDIR ${CMAKE_INSTALL_DATADIR}/macrewrite)
file(RELATIVE_PATH BFN_BIN_TO_LIB /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
file(RELATIVE_PATH BFN_BIN_TO_SHARE /${CMAKE_INSTALL_BINDIR} /${BFN_INSTALL_SHAREDIR})
file(RELATIVE_PATH BFN_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)

# Internal headers stay here: what they declare is not exported.
set(BFN_INTERNAL_HEADERS RowCollection.h)

# bfn_api_headers(LIBRARY PLACES...): the headers that are the library's API, which are those of its
# folders, and of folders below, except for internal ones; a place with a * is a pattern. Those below
# compat/ are include paths of earlier releases and include what is in the present place.
function(bfn_api_headers library)
  set(api "")
  foreach(place IN LISTS ARGN)
    if(NOT place MATCHES "\\*")
      set(place ${place}/*.h)
      set(depth GLOB_RECURSE)
    else()
      set(depth GLOB)
    endif()
    file(${depth} headers CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${place})
    foreach(header IN LISTS headers)
      get_filename_component(name ${header} NAME)
      if(NOT name IN_LIST BFN_INTERNAL_HEADERS)
        list(APPEND api ${header})
      endif()
    endforeach()
  endforeach()
  target_sources(${library} PUBLIC FILE_SET HEADERS BASE_DIRS ${CMAKE_SOURCE_DIR} FILES ${api})
  target_include_directories(${library} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${library} INTERFACE cxx_std_20)
  # The name that it has outside.
  add_library(BfnMacRewrite::${library} ALIAS ${library})
endfunction()

# bfn_package(NAME): the CMake package of the export set <NAME>Targets, in the component.
function(bfn_package name component)
  set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
  install(EXPORT ${name}Targets NAMESPACE BfnMacRewrite:: DESTINATION ${folder} COMPONENT ${component})
  configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/${name}Config.cmake.in
                                ${CMAKE_BINARY_DIR}/package/${name}Config.cmake
                                INSTALL_DESTINATION ${folder})
  write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/${name}ConfigVersion.cmake
                                   COMPATIBILITY SameMajorVersion)
  install(FILES ${CMAKE_BINARY_DIR}/package/${name}Config.cmake
                ${CMAKE_BINARY_DIR}/package/${name}ConfigVersion.cmake
          DESTINATION ${folder} COMPONENT ${component})
endfunction()

# bfn_pkg_config(NAME DESCRIPTION LIBRARIES REQUIRES COMPONENT)
function(bfn_pkg_config name description libs requires component)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/Library.pc.in ${CMAKE_BINARY_DIR}/package/${name}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/package/${name}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${component})
endfunction()

# The libraries, which bfn_api_headers() has seen before.
function(bfn_install_libraries)
  set_target_properties(Kiv BfnMacRewriteRecords BfnMacRewrite PROPERTIES INSTALL_RPATH "$ORIGIN")
  set(headers FILE_SET HEADERS DESTINATION ${BFN_INSTALL_INCLUDEDIR} COMPONENT dev)
  install(TARGETS Kiv EXPORT BfnMacRewriteTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libkiv1 NAMELINK_COMPONENT dev ${headers})
  install(TARGETS BfnMacRewriteRecords BfnMacRewrite EXPORT BfnMacRewriteTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libbfnmacrewrite1
          NAMELINK_COMPONENT dev ${headers})
  install(TARGETS KivChip EXPORT BfnMacRewriteTargets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev ${headers})
  install(DIRECTORY ${CMAKE_SOURCE_DIR}/compat/ DESTINATION ${BFN_INSTALL_INCLUDEDIR} COMPONENT dev
          FILES_MATCHING PATTERN "*.h")
  bfn_package(BfnMacRewrite dev)
  bfn_pkg_config(Kiv "Reference-counted records and reactors" -lKiv "" dev)
  bfn_pkg_config(BfnMacRewrite "Source MAC rewrites of VXLAN overlay packets on Bfn forwarding chips"
                 "-lBfnMacRewrite -lBfnMacRewriteRecords -lKivChip" Kiv dev)
endfunction()

function(bfn_install_kernel)
  bfn_api_headers(KivKernel kernel/*.h kernel/program)
  install(TARGETS KivKernel EXPORT BfnMacRewriteKernelTargets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
          FILE_SET HEADERS DESTINATION ${BFN_INSTALL_INCLUDEDIR} COMPONENT dev)
  bfn_package(BfnMacRewriteKernel dev)
  bfn_install_program(macrewrite-kernel kernel)
  bfn_manual(macrewrite-kernel kernel "the MAC rewrite table in the kernel")
endfunction()

# bfn_install_program(TARGET COMPONENT): a program, which finds the libraries of its prefix.
function(bfn_install_program program component)
  set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${BFN_BIN_TO_LIB}")
  install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component})
endfunction()
