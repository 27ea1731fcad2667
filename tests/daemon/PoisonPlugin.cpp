// SPDX-License-Identifier: Apache-2.0
// A plug-in that ends the process when the system has a profile of a certain name, and is the real
// one otherwise.
#include "agent/BfnMacRewriteAgentSm.h"
#include "framework/core/Fatal.h"
#include "framework/platform/SystemStatus.h"

namespace BfnMacRewrite {

__attribute__((visibility("default"))) Kiv::Ptr<AgentSm> agentSmFactory(
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<BfnAgentLib::BfnProfileData> const&, Kiv::Ptr<BfnMacRewriteMount> const&,
    Kiv::Ptr<BfnMacRewriteL3Shared> const&,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const&) {
  KIV_CHECK(systemStatus->profileInfo("poison") == nullptr, "The profile is poison.");
  return nullptr;
}

}  // namespace BfnMacRewrite
