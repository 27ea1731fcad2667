// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <stdexcept>

#include "agent/BfnMacRewriteAgentSm.h"
#include "framework/core/Clock.h"
#include "framework/generic/Type.h"
#include "show/ShowMacRewriteCommandRequestSm.h"

// Makes an object of each class that the plug-in's factories give out, calls members of it and asks
// for its type. Under -fsanitize=undefined each of these calls refers to the type information.
namespace {

void need(bool holds, char const* what) {
  if (!holds) throw std::runtime_error(what);
}

void needA(Kiv::PtrInterface const& object, Kiv::Type const& type) {
  need(object.fwkType().name() == type.name(), "an object of another type");
}

void run() {
  using namespace BfnMacRewrite;
  auto const l3Status = Kiv::makeActive<Pex::L3Status>();
  auto const ports = Kiv::makeActive<BfnL3::L3RoutingStatus>();
  auto const routes = Kiv::makeActive<Routing::Hardware::RouteStatus>();
  auto const systemStatus = Kiv::makeActive<BfnSystem::SystemStatus>();
  auto const profileData = Kiv::makeActive<BfnAgentLib::BfnProfileData>();
  auto const config = Kiv::makeActive<BfnMacRewrite::Agent::Config>();
  auto const status = Kiv::makeActive<BfnMacRewrite::Agent::Status>();
  auto const statuses = Kiv::makeActive<IntfIdToRoutingStatus>();
  needA(*statuses, IntfIdToRoutingStatus::_kivType());

  auto const agent =
      agentSmFactory(systemStatus, profileData, Kiv::makeActive<BfnMacRewriteMount>(),
                     Kiv::makeActive<BfnMacRewriteL3Shared>(), routes);
  needA(*agent, AgentSm::_kivType());
  agent->handleStartMacRewriteSm();
  auto const translator =
      overlaySrcMacRewriteCliConfigSmFactory(Kiv::makeActive<Input::Config>(), config, l3Status);
  needA(*translator, OverlaySrcMacRewriteCliConfigSm::_kivType());
  need(translator->initialized(), "no configuration is translated");
  auto const merge = bfnMacRewriteIntfRoutingStatusSmFactory(ports, ports, ports, statuses);
  needA(*merge, BfnMacRewriteIntfRoutingStatusSm::_kivType());
  need(merge->initialized(), "no interfaces are merged");
  auto const manager = overlaySrcMacRewriteManagerFactory(profileData->profileDataEntryIs("vxlan"),
                                                          systemStatus, statuses, l3Status);
  needA(*manager, OverlaySrcMacRewriteManager::_kivType());
  auto const record = manager->matchSpecAndRefCountIs(BfnMacRewrite::Agent::IpAndIntfId());
  needA(*record, MatchSpecAndRefCount::_kivType());
  need(manager->l3Status() == l3Status, "another VRF status");
  auto const rewrite = bfnMacRewriteSmFactory(status, config, statuses, manager, l3Status, routes);
  needA(*rewrite, BfnMacRewriteSm::_kivType());
  need(rewrite->initialized(), "no row is decided");
  needA(*Kiv::make<VrfIpCollection>(Ovra::IntfId("Ethernet1")), VrfIpCollection::_kivType());

  auto const show = showMacRewriteCommandRequestSmFactory(
      Kiv::String("show"), nullptr, 0.1, Kiv::makeActive<Kiv::ManualClock>(), manager, false,
      L3::VrfName(), false, Ovra::IpAddr(), false, Ovra::EthAddr(), false);
  needA(*show, ShowMacRewriteCommandRequestSm::_kivType());
  auto const sorted = show->sortedVrfIpToMacIs(L3::VrfName("red"));
  needA(*sorted, SortedIpToMac::_kivType());
  need(sorted->ipToMac().empty(), "lines before a slice");
}

}  // namespace

int main() {
  try {
    run();
  } catch (std::exception const& exception) {
    std::printf("outside host: %s\n", exception.what());
    return 1;
  }
  std::printf("outside host: ok\n");
  return 0;
}
