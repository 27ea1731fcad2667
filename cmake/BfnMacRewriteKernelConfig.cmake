include(CMakeFindDependencyMacro)
find_dependency(BfnMacRewrite)
include("${CMAKE_CURRENT_LIST_DIR}/BfnMacRewriteKernelTargets.cmake")
