// SPDX-License-Identifier: Apache-2.0
#include "tests/model/World.h"

#include <stdexcept>

#include "framework/core/Exceptions.h"
#include "framework/platform/BfTableException.h"
#include "tests/model/Values.h"

namespace BfnTest {

namespace {

template <class Array>
auto orNull(Array const& objects, int index) {
  return index == kNone ? typename Array::value_type() : objects[index];
}

}  // namespace

World::World()
    : PluginHost(1000),
      entry{profileEntry,
            Kiv::makeActive<BfnAgentLib::BfnProfileData>()->profileDataEntryIs(kProfile)},
      cli{cliConfig, Kiv::makeActive<BfnMacRewrite::Input::Config>()},
      l3{l3Status, Kiv::makeActive<Pex::L3Status>()},
      routing{ports, vlans, subIntfs, Kiv::makeActive<BfnL3::L3RoutingStatus>()} {
  chip.resourcesIs(1000);
  connect();
  Kiv::LogService::reset();
  Kiv::LogService::clockIs([this] { return clock; });
  Kiv::LogService::sinkIs([this](Kiv::LogMessage const& message) { logged.push_back(message); });
}

World::~World() {
  Kiv::LogService::reset();
}

Kiv::Ptr<BfnMacRewrite::Agent::Status> World::status(bool watched) const {
  if (watched && agent && agent->bfnMacRewriteSm()) {
    if (auto const held = agent->bfnMacRewriteSm()->macRewriteStatus()) {
      return Kiv::Ptr(const_cast<BfnMacRewrite::Agent::Status*>(held.get()));
    }
  }
  return mount->bfnMacRewriteAgentStatus();
}

void World::routingStatus(int object, Pex::PortVlanPair const& at, unsigned vlan, unsigned vrfId) {
  auto const status = Kiv::makeActive<BfnL3::L3IntfRoutingStatus>(at);
  status->vlanIdIs(static_cast<Kiv::U16>(vlan));
  status->vrfIdIs(Pex::VrfId(vrfId));
  made.push_back(status);
  routing[object]->l3IntfRoutingStatusIs(status);
}
void World::routingVlan(int object, Pex::PortVlanPair const& at, unsigned vlan) {
  routing[object]->l3IntfRoutingStatus(at)->vlanIdIs(static_cast<Kiv::U16>(vlan));
}
void World::useRouting(int source, Kiv::Ptr<BfnL3::L3RoutingStatus> const& object) {
  if (source == 0) l3Shared->l3PortAndLagRoutingStatusIs(object);
  if (source == 1) l3Shared->vlanIntfRoutingStatusIs(object);
  if (source == 2) l3Shared->l3SubIntfRoutingStatusIs(object);
}

void World::addressDel(bool watched, Pex::VrfId vrfId, Ovra::IpAddr address) {
  auto const held = status(watched);
  if (!held) return;
  if (auto* const vrf = held->vrfStatus(vrfId)) vrf->ipAndIntfIdDel(address);
}
void World::addressDelAll(bool watched, Pex::VrfId vrfId) {
  auto const held = status(watched);
  if (!held) return;
  if (auto* const vrf = held->vrfStatus(vrfId)) vrf->ipAndIntfIdDelAll();
}

void World::routeIs(L3::VrfName vrf, unsigned vrfId, unsigned vlan) {
  auto const status = Kiv::makeActive<Routing::Hardware::VrfStatus>(vrf);
  status->vrfIdIs(vrfId);
  status->fwdVlanIdIs(vlan);
  made.push_back(nullptr);
  routeStatus->vrfStatusIs(status);
}
void World::routeIdIs(L3::VrfName vrf, unsigned vrfId) {
  routeStatus->vrfStatus(vrf)->vrfIdIs(vrfId);
}
void World::routeVlanIs(L3::VrfName vrf, unsigned vlan) {
  routeStatus->vrfStatus(vrf)->fwdVlanIdIs(vlan);
}

void World::newAgentConfig() {
  mount->bfnMacRewriteAgentConfigDel();
  mount->bfnMacRewriteAgentConfigIs();
}
void World::newAgentStatus() {
  mount->bfnMacRewriteAgentStatusDel();
  mount->bfnMacRewriteAgentStatusIs();
}

namespace {

struct Apply {
  World& world;

  void operator()(event::NameToId const& e) const {
    world.l3[e.l3]->vrfNameToIdIs(name(e.name), id(e.id));
  }
  void operator()(event::NameToIdDel const& e) const {
    world.l3[e.l3]->vrfNameToIdDel(name(e.name));
  }
  void operator()(event::IdToName const& e) const {
    world.l3[e.l3]->vrfNameIs(id(e.id), name(e.name));
  }
  void operator()(event::IdToNameDel const& e) const { world.l3[e.l3]->vrfNameDel(id(e.id)); }
  void operator()(event::Vrf const& e) const { world.l3[e.l3]->vrfIs(name(e.name), id(e.id)); }
  void operator()(event::VrfDel const& e) const { world.l3[e.l3]->vrfDel(name(e.name)); }

  void operator()(event::Routing const& e) const {
    world.routingStatus(e.object, key(e.intf, e.keyVlan), kVlanValue[e.vlan], kIdValue[e.vrf]);
  }
  void operator()(event::RoutingDel const& e) const {
    world.routing[e.object]->l3IntfRoutingStatusDel(key(e.intf, e.keyVlan));
  }
  void operator()(event::RoutingAgain const& e) const {
    world.routing[e.object]->l3IntfRoutingStatusRenotify(key(e.intf, e.keyVlan));
  }
  void operator()(event::RoutingVlan const& e) const {
    world.routingVlan(e.object, key(e.intf, e.keyVlan), kVlanValue[e.vlan]);
  }
  void operator()(event::RoutingOther const& e) const {
    auto& routing = *world.routing[e.object];
    routing.routingEnabledIs(!routing.routingEnabled());
  }
  void operator()(event::RoutingDelAll const& e) const {
    world.routing[e.object]->l3IntfRoutingStatusDelAll();
  }

  void operator()(event::Address const& e) const {
    world.status(e.watched)->vrfStatusIs(id(e.vrf))->ipAndIntfIdIs(
        {ip(e.ip), intf(e.intf), e.self});
  }
  void operator()(event::AddressDel const& e) const {
    world.addressDel(e.watched, id(e.vrf), ip(e.ip));
  }
  void operator()(event::AddressDelAll const& e) const {
    world.addressDelAll(e.watched, id(e.vrf));
  }
  void operator()(event::VrfStatus const& e) const {
    world.status(e.watched)->vrfStatusIs(id(e.vrf));
  }
  void operator()(event::VrfStatusDel const& e) const {
    world.status(e.watched)->vrfStatusDel(id(e.vrf));
  }
  void operator()(event::VrfStatusDelAll const& e) const {
    world.status(e.watched)->vrfStatusDelAll();
  }

  void operator()(event::Route const& e) const {
    world.routeIs(name(e.name), kIdValue[e.id], kVlanValue[e.vlan]);
  }
  void operator()(event::RouteId const& e) const { world.routeIdIs(name(e.name), kIdValue[e.id]); }
  void operator()(event::RouteVlan const& e) const {
    world.routeVlanIs(name(e.name), kVlanValue[e.vlan]);
  }
  void operator()(event::RouteDel const& e) const { world.routeStatus->vrfStatusDel(name(e.name)); }
  void operator()(event::RouteDelAll const&) const { world.routeStatus->vrfStatusDelAll(); }

  void operator()(event::Line const& e) const {
    world.cli[e.cli]->overlaySrcMacRewriteEntryIs({name(e.name), ip(e.ip), mac(e.mac)});
  }
  void operator()(event::LineDel const& e) const {
    world.cli[e.cli]->overlaySrcMacRewriteEntryDel({name(e.name), ip(e.ip)});
  }
  void operator()(event::LineDelAll const& e) const {
    world.cli[e.cli]->overlaySrcMacRewriteEntryDelAll();
  }

  void operator()(event::UseL3 const& e) const {
    world.l3Shared->l3StatusIs(orNull(world.l3, e.l3));
  }
  void operator()(event::UseRouting const& e) const {
    world.useRouting(e.source, orNull(world.routing, e.object));
  }
  void operator()(event::UseCli const& e) const {
    world.mount->bfnMacRewriteCliConfigIs(orNull(world.cli, e.cli));
  }
  void operator()(event::UseEntry const& e) const {
    world.l3Shared->bfnL3Output()->profileEntryIs(world.entry[e.entry]);
  }
  void operator()(event::NewAgentConfig const&) const { world.newAgentConfig(); }
  void operator()(event::NoAgentConfig const&) const { world.mount->bfnMacRewriteAgentConfigDel(); }
  void operator()(event::NewAgentStatus const&) const { world.newAgentStatus(); }
  void operator()(event::NoAgentStatus const&) const { world.mount->bfnMacRewriteAgentStatusDel(); }
  void operator()(event::UseCapability const& e) const {
    world.mount->bfnMacRewriteCapabilityIs(e.there ? world.capability : nullptr);
  }

  void operator()(event::ProfileName const& e) const {
    world.l3Shared->bfnL3Output()->profileNameIs(e.known ? World::kProfile : "unknown");
  }
  void operator()(event::Supported const& e) const { world.supportedIs(e.supported); }

  void operator()(event::Create const&) const { world.agentIs(); }
  void operator()(event::Destroy const&) const { world.agent = nullptr; }
  void operator()(event::Stage1 const&) const { world.stage1(); }
  void operator()(event::Stage2 const&) const { world.stage2(); }

  void operator()(event::Capacity const& e) const {
    world.chip.tableIs(BfnChip::ChipModel::kRewriteTable, kCapacity[e.capacity]);
  }
  void operator()(event::Resources const& e) const {
    world.chip.resourcesIs(kCapacity[e.capacity]);
  }
  void operator()(event::FailNext const& e) const {
    world.chip.faults().failNext(static_cast<unsigned>(e.count), fault(e.how));
  }
  void operator()(event::FailNth const& e) const {
    world.chip.faults().failNth(static_cast<unsigned>(e.number), fault(e.how));
  }
  void operator()(event::FaultsClear const&) const { world.chip.faults().clear(); }

  void operator()(event::Clock const& e) const { world.clock += kClockStep[e.step]; }

  static BfnChip::Fault fault(int how) { return {static_cast<BfnChip::Fault::Kind>(how), nullptr}; }
};

}  // namespace

Thrown World::apply(Event const& event) {
  try {
    std::visit(Apply{*this}, event);
  } catch (Kiv::RangeException const& exception) {
    if (std::string(exception.what()) != "VlanId::value < 1 or > 4094 not allowed") throw;
    return Thrown::VlanRange;
  } catch (BfTable::BfTableFull const&) {
    return Thrown::Full;
  } catch (BfTable::BfNoSysResources const&) {
    return Thrown::NoResources;
  } catch (BfTable::BfTableException const&) {
    return Thrown::TableError;
  } catch (Kiv::NullPointerException const&) {
    throw;
  } catch (std::runtime_error const&) {
    return Thrown::Foreign;
  }
  return Thrown::Nothing;
}

}  // namespace BfnTest
