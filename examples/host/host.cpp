// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <utility>

#include "agent/BfnMacRewriteAgentSm.h"
#include "chip/ChipModel.h"
#include "framework/core/Notifiee.h"
#include "framework/corvo/Database.h"
#include "framework/corvo/EmbeddedSession.h"
#include "framework/platform/TableInitialization.h"

// A host agent: installed headers, installed libraries and nothing else. Brings the plug-in up
// while the operator has not written any configuration yet, runs stage 2 again when it comes, and
// looks a packet up in the chip.
namespace {

constexpr char const* kProfile = "vxlan";
constexpr char const* kConfig = "vxlan/hardware/srcMacRewrite/config";
constexpr char const* kCapability = "vxlan/hardware/srcMacRewrite/capability";

void need(bool holds, char const* what) {
  if (!holds) throw std::runtime_error(what);
}

// Calls `then` when the session's entity at `path` comes, changes or goes.
class EntityWatcher final : public Kiv::NotifieeConst {
 public:
  EntityWatcher(Kiv::Ptr<Corvo::Session const> const& session, Kiv::String path,
                std::function<void()> then)
      : path_(std::move(path)), then_(std::move(then)) {
    NotifieeConst::notifierIs(session);
  }
  void onAttribute(Kiv::AttributeId id, void const* key) override {
    if (id != Corvo::Session::kEntity.id) return;
    if (*static_cast<Kiv::String const*>(key) == path_) then_();
  }

 private:
  Kiv::String const path_;
  std::function<void()> const then_;
};

void run() {
  BfnChip::ChipModel chip(16);
  auto const systemStatus = Kiv::makeActive<BfnSystem::SystemStatus>();
  BfnSystem::ChipCapabilities capabilities;
  capabilities.overlaySrcMacRewriteSupported = true;
  capabilities.overlaySrcMacRewriteTableSize = 16;
  systemStatus->profileInfoIs(kProfile)->chipCapabilitiesIs(capabilities);
  auto const profileData = Kiv::makeActive<BfnAgentLib::BfnProfileData>();

  // A mount for reading is complete at once; the entity is null until the operator writes it.
  auto const database = Kiv::makeActive<Corvo::Database>();
  auto const session = Corvo::embeddedSessionFactory(database);
  auto const request = session->mountRequest();
  auto const mount = Kiv::makeActive<BfnMacRewrite::BfnMacRewriteMount>();
  mount->doMount(request, 0);
  request->close();
  need(request->mounted(), "not mounted");
  mount->getEntity(session, 0);
  need(!mount->bfnMacRewriteCliConfig(), "a configuration that was never written");

  auto const shared = Kiv::makeActive<BfnMacRewrite::BfnMacRewriteL3Shared>();
  auto const l3Status = Kiv::makeActive<Pex::L3Status>();
  auto const ports = Kiv::makeActive<BfnL3::L3RoutingStatus>();
  shared->l3StatusIs(l3Status);
  shared->l3PortAndLagRoutingStatusIs(ports);
  auto const output = shared->bfnL3Output();
  output->profileNameIs(kProfile);
  output->profileEntryIs(profileData->profileDataEntryIs(kProfile));

  auto const agent = BfnMacRewrite::agentSmFactory(
      systemStatus, profileData, mount, shared, Kiv::makeActive<Routing::Hardware::RouteStatus>());
  output->initMacRewriteTablesIs(true);
  BfnAgentLib::TableInitialization with;
  with.dlHandle = chip.opaque();
  need(BfnAgentLib::initializeTables(output->profileEntry(), with) == 1, "no table declared");
  output->startMacRewriteSmIs(true);
  auto const capability = Kiv::ptrCast<BfnMacRewrite::Capability>(database->entity(kCapability));
  need(capability && capability->overlaySrcMacRewriteSupported(), "reported as unsupported");

  // Stage 2 again: a change of the flag is what counts. Machines whose inputs are the same stay.
  auto const watcher = Kiv::makeActive<EntityWatcher>(session, kConfig, [&] {
    mount->getEntity(session, 0);
    output->startMacRewriteSmIs(!output->startMacRewriteSm());
  });

  Ovra::IntfId const intf("Ethernet1");
  auto const address = Kiv::strepToValue<Ovra::IpAddr>(Kiv::String("10.0.0.1"));
  l3Status->vrfIs(L3::VrfName("red"), Pex::VrfId(7));
  auto const status = Kiv::makeActive<BfnL3::L3IntfRoutingStatus>(Pex::PortVlanPair(intf, 0));
  status->vlanIdIs(100);
  status->vrfIdIs(Pex::VrfId(7));
  ports->l3IntfRoutingStatusIs(status);
  mount->bfnMacRewriteAgentStatus()
      ->vrfStatusIs(Pex::VrfId(7))
      ->ipAndIntfIdIs({address, intf, false});
  need(chip.lookup(100, {10, 0, 0, 1}) == BfnChip::MacBytes{}, "no row without a configured MAC");

  auto const operators = Kiv::ptrCast<BfnMacRewrite::Input::Config>(
      database->entityIs(kConfig, "BfnMacRewrite::Input::Config"));
  need(operators != nullptr, "the plug-in has not announced its types");
  need(mount->bfnMacRewriteCliConfig() != nullptr, "the configuration has not come");
  operators->overlaySrcMacRewriteEntryIs(
      {L3::VrfName("red"), address,
       Kiv::strepToValue<Ovra::EthAddr>(Kiv::String("02:11:22:33:44:55"))});

  auto const mac = chip.lookup(100, {10, 0, 0, 1});
  need(mac == BfnChip::MacBytes{0x02, 0x11, 0x22, 0x33, 0x44, 0x55}, "the packet is not rewritten");
  need(!chip.lookup(101, {10, 0, 0, 1}), "a packet of another VLAN is rewritten");
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
