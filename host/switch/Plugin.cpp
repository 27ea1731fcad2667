// SPDX-License-Identifier: Apache-2.0
#include "host/switch/Plugin.h"

#include <dlfcn.h>

namespace Host {

namespace {

// agentSmFactory as the C++ ABI names it.
constexpr char kAgentSmFactory[] =
    "_ZN13BfnMacRewrite14agentSmFactoryERKN3Kiv3PtrIKN9BfnSystem12SystemStatusEEE"
    "RKNS1_IN11BfnAgentLib14BfnProfileDataEEERKNS1_INS_18BfnMacRewriteMountEEE"
    "RKNS1_INS_21BfnMacRewriteL3SharedEEERKNS1_IKN7Routing8Hardware11RouteStatusEEE";

}  // namespace

Plugin::Plugin(std::filesystem::path const& file) : file_(file) {
  void* const library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (library == nullptr) throw PluginError(std::string("cannot open the plug-in: ") + ::dlerror());
  void* const symbol = ::dlsym(library, kAgentSmFactory);
  if (symbol == nullptr) {
    throw PluginError(file.string() + " has no BfnMacRewrite::agentSmFactory");
  }
  agentSmFactory_ = reinterpret_cast<AgentSmFactory*>(symbol);
}

}  // namespace Host
