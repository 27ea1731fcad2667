# SPDX-License-Identifier: Apache-2.0
# `cmake --install`: libraries, headers, the CMake package and the pkg-config file.
#
# Headers go below include/BfnMacRewrite/, which is itself the include path, so that a program
# outside includes "framework/core/Ptr.h" just as the sources here do.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(BFN_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/BfnMacRewrite)
set(BFN_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/BfnMacRewrite)

# Where it is built, the kernel's table is a package of its own, BfnMacRewriteKernel, which needs the
# first one, and the install component `kernel`.

# bfn_install(LIBRARIES targets... HEADER_FOLDERS folders... INTERNAL_HEADERS names...): call once.
# Internal headers stay here: what they declare is not exported. Each library is exported
# as BfnMacRewrite::<target>; list a library before those that it needs. A folder that ends in a
# slash gives what is in it, not itself.
function(bfn_install)
  cmake_parse_arguments(ARG "" "" "LIBRARIES;HEADER_FOLDERS;INTERNAL_HEADERS" ${ARGN})

  set(BFN_PC_LIBS "")
  foreach(library IN LISTS ARG_LIBRARIES)
    target_include_directories(${library} INTERFACE
      $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}> $<INSTALL_INTERFACE:${BFN_INSTALL_INCLUDEDIR}>)
    target_compile_features(${library} INTERFACE cxx_std_20)
    set_target_properties(${library} PROPERTIES INSTALL_RPATH "$ORIGIN")
    string(APPEND BFN_PC_LIBS " -l${library}")
  endforeach()

  install(TARGETS ${ARG_LIBRARIES} EXPORT BfnMacRewriteTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  set(internal "")
  foreach(header IN LISTS ARG_INTERNAL_HEADERS)
    list(APPEND internal PATTERN ${header} EXCLUDE)
  endforeach()
  foreach(folder IN LISTS ARG_HEADER_FOLDERS)
    install(DIRECTORY ${CMAKE_SOURCE_DIR}/${folder} DESTINATION ${BFN_INSTALL_INCLUDEDIR}
            FILES_MATCHING PATTERN "*.h" ${internal})
  endforeach()

  install(EXPORT BfnMacRewriteTargets NAMESPACE BfnMacRewrite::
          DESTINATION ${BFN_INSTALL_CMAKEDIR})
  configure_package_config_file(
    ${CMAKE_SOURCE_DIR}/cmake/BfnMacRewriteConfig.cmake.in
    ${CMAKE_BINARY_DIR}/package/BfnMacRewriteConfig.cmake
    INSTALL_DESTINATION ${BFN_INSTALL_CMAKEDIR})
  write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/BfnMacRewriteConfigVersion.cmake
                                   COMPATIBILITY SameMajorVersion)
  install(FILES ${CMAKE_BINARY_DIR}/package/BfnMacRewriteConfig.cmake
                ${CMAKE_BINARY_DIR}/package/BfnMacRewriteConfigVersion.cmake
          DESTINATION ${BFN_INSTALL_CMAKEDIR})

  file(RELATIVE_PATH BFN_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/BfnMacRewrite.pc.in
                 ${CMAKE_BINARY_DIR}/package/BfnMacRewrite.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/package/BfnMacRewrite.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

function(bfn_install_kernel)
  target_include_directories(KivKernel INTERFACE
    $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}> $<INSTALL_INTERFACE:${BFN_INSTALL_INCLUDEDIR}>)
  target_compile_features(KivKernel INTERFACE cxx_std_20)
  set_target_properties(KivKernel PROPERTIES INSTALL_RPATH "$ORIGIN")
  file(RELATIVE_PATH to_libraries /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(macrewrite-kernel PROPERTIES INSTALL_RPATH "$ORIGIN/${to_libraries}")

  install(TARGETS KivKernel EXPORT BfnMacRewriteKernelTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT kernel)
  install(TARGETS macrewrite-kernel
          RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT kernel)
  install(DIRECTORY ${CMAKE_SOURCE_DIR}/kernel DESTINATION ${BFN_INSTALL_INCLUDEDIR}
          COMPONENT kernel FILES_MATCHING PATTERN "*.h" PATTERN tool EXCLUDE)
  install(EXPORT BfnMacRewriteKernelTargets NAMESPACE BfnMacRewrite::
          DESTINATION ${BFN_INSTALL_CMAKEDIR}Kernel COMPONENT kernel)
  write_basic_package_version_file(
    ${CMAKE_BINARY_DIR}/package/BfnMacRewriteKernelConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${CMAKE_SOURCE_DIR}/cmake/BfnMacRewriteKernelConfig.cmake
                ${CMAKE_BINARY_DIR}/package/BfnMacRewriteKernelConfigVersion.cmake
          DESTINATION ${BFN_INSTALL_CMAKEDIR}Kernel COMPONENT kernel)
endfunction()
