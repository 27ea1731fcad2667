# SPDX-License-Identifier: Apache-2.0
include(CMakeFindDependencyMacro)
find_dependency(BfnMacRewrite)
include("${CMAKE_CURRENT_LIST_DIR}/BfnMacRewriteKernelTargets.cmake")
