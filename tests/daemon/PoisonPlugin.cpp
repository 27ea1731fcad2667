// SPDX-License-Identifier: Apache-2.0
// A plug-in that ends the process when the system has a profile of a certain name, and is the real
// one otherwise.
#include <dlfcn.h>

#include "agent/BfnMacRewriteAgentSm.h"
#include "framework/core/Fatal.h"
#include "framework/platform/SystemStatus.h"

namespace BfnMacRewrite {

__attribute__((visibility("default"))) Kiv::Ptr<AgentSm> agentSmFactory(
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData,
    Kiv::Ptr<BfnMacRewriteMount> const& mount, Kiv::Ptr<BfnMacRewriteL3Shared> const& l3Shared,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routeStatus) {
  KIV_CHECK(systemStatus->profileInfo("poison") == nullptr, "The profile is poison.");
  Dl_info self{};
  ::dladdr(reinterpret_cast<void*>(&agentSmFactory), &self);
  auto* const real =
      reinterpret_cast<decltype(&agentSmFactory)>(::dlsym(RTLD_NEXT, self.dli_sname));
  return real(systemStatus, profileData, mount, l3Shared, routeStatus);
}

}  // namespace BfnMacRewrite
