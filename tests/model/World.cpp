#include "tests/model/World.h"

#include <algorithm>
#include <stdexcept>

#include "framework/core/Exceptions.h"
#include "framework/platform/BfTableException.h"
#include "tests/model/Values.h"

namespace ModelTest {

namespace {

constexpr char kProfile[] = "known";

template <class Array>
auto orNull(Array const& objects, int index) {
  return index == kNull ? typename Array::value_type() : objects[index];
}

template <class T, std::size_t N>
void makeAll(Table<Kiv::Ptr<T>, N>& objects) {
  for (auto& object : objects) object = Kiv::makeActive<T>();
}

}  // namespace

World::World()
    : systemStatus(Kiv::makeActive<BfnSystem::SystemStatus>()),
      mount(Kiv::makeActive<BfnMacRewrite::BfnMacRewriteMount>()),
      capability(Kiv::makeActive<BfnMacRewrite::Capability>()),
      l3Shared(Kiv::makeActive<BfnMacRewrite::BfnMacRewriteL3Shared>()),
      routeStatus(Kiv::makeActive<Routing::Hardware::RouteStatus>()) {
  makeAll(profileData);
  for (int i = 0; i < kEntries; ++i) entry[i] = profileData[i]->profileDataEntryIs(kProfile);
  makeAll(cli);
  makeAll(l3);
  makeAll(routing);
  supported(true);
  chip.resourcesIs(1000);
  mount->bfnMacRewriteCliConfigIs(cli[0]);
  mount->bfnMacRewriteCapabilityIs(capability);
  mount->bfnMacRewriteAgentConfigIs();
  mount->bfnMacRewriteAgentStatusIs();
  l3Shared->l3StatusIs(l3[0]);
  l3Shared->l3PortAndLagRoutingStatusIs(routing[0]);
  l3Shared->vlanIntfRoutingStatusIs(routing[1]);
  l3Shared->l3SubIntfRoutingStatusIs(routing[2]);
  l3Shared->bfnL3Output()->profileNameIs(kProfile);
  l3Shared->bfnL3Output()->profileEntryIs(entry[0]);
  Kiv::LogService::reset();
  Kiv::LogService::clockIs([this] { return clock; });
  Kiv::LogService::sinkIs([this](Kiv::LogMessage const& message) { logged.push_back(message); });
}

World::~World() {
  Kiv::LogService::reset();
}

Kiv::Ptr<BfnMacRewrite::Agent::Status> World::status(int which) const {
  if (which != 0 && agent && agent->bfnMacRewriteSm()) {
    if (auto const watched = agent->bfnMacRewriteSm()->macRewriteStatus()) {
      return Kiv::Ptr(const_cast<BfnMacRewrite::Agent::Status*>(watched.get()));
    }
  }
  return mount->bfnMacRewriteAgentStatus();
}

void World::routingStatus(int object, Pex::PortVlanPair const& at, unsigned vlan, unsigned vrfId) {
  auto const made1 = Kiv::makeActive<BfnL3::L3IntfRoutingStatus>(at);
  made1->vlanIdIs(static_cast<Kiv::U16>(vlan));
  made1->vrfIdIs(Pex::VrfId(vrfId));
  made.push_back(made1);
  routing[object]->l3IntfRoutingStatusIs(made1);
}
void World::routingVlan(int object, Pex::PortVlanPair const& at, unsigned vlan) {
  routing[object]->l3IntfRoutingStatus(at)->vlanIdIs(static_cast<Kiv::U16>(vlan));
}

void World::addressDel(int which, Pex::VrfId vrfId, Ovra::IpAddr address) {
  auto const held = status(which);
  if (!held) return;
  if (auto* const vrf = held->vrfStatus(vrfId)) vrf->ipAndIntfIdDel(address);
}
void World::addressDelAll(int which, Pex::VrfId vrfId) {
  auto const held = status(which);
  if (!held) return;
  if (auto* const vrf = held->vrfStatus(vrfId)) vrf->ipAndIntfIdDelAll();
}

void World::route(L3::VrfName vrf, unsigned vrfId, unsigned vlan) {
  auto const made1 = Kiv::makeActive<Routing::Hardware::VrfStatus>(vrf);
  made1->vrfIdIs(vrfId);
  made1->fwdVlanIdIs(vlan);
  made.push_back(nullptr);
  routeStatus->vrfStatusIs(made1);
}
void World::routeId(L3::VrfName vrf, unsigned vrfId) {
  routeStatus->vrfStatus(vrf)->vrfIdIs(vrfId);
}
void World::routeVlan(L3::VrfName vrf, unsigned vlan) {
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

void World::supported(bool isSupported) {
  BfnSystem::ChipCapabilities capabilities;
  capabilities.overlaySrcMacRewriteSupported = isSupported;
  capabilities.overlaySrcMacRewriteTableSize = 1000;
  systemStatus->profileInfoIs(kProfile)->chipCapabilitiesIs(capabilities);
}

void World::create() {
  agent = BfnMacRewrite::agentSmFactory(systemStatus, profileData[0], mount, l3Shared, routeStatus);
}
void World::stage1() {
  auto const output = l3Shared->bfnL3Output();
  output->initMacRewriteTablesIs(!output->initMacRewriteTables());
  BfnAgentLib::TableInitialization with;
  with.dlHandle = chip.opaque();
  BfnAgentLib::initializeTables(output->profileEntry(), with);
}
void World::stage2() {
  auto const output = l3Shared->bfnL3Output();
  output->startMacRewriteSmIs(!output->startMacRewriteSm());
}

namespace {

void run(World& world, Event const& e) {
  switch (e.kind) {
    case Kind::NameToId:
      world.l3[e.a]->vrfNameToIdIs(name(e.b), id(e.c));
      break;
    case Kind::NameToIdDel:
      world.l3[e.a]->vrfNameToIdDel(name(e.b));
      break;
    case Kind::IdToName:
      world.l3[e.a]->vrfNameIs(id(e.c), name(e.b));
      break;
    case Kind::IdToNameDel:
      world.l3[e.a]->vrfNameDel(id(e.c));
      break;
    case Kind::Vrf:
      world.l3[e.a]->vrfIs(name(e.b), id(e.c));
      break;
    case Kind::VrfDel:
      world.l3[e.a]->vrfDel(name(e.b));
      break;
    case Kind::Routing:
      world.routingStatus(e.a, key(e.b, e.c), kVlanValue[e.d], kIdValue[e.e]);
      break;
    case Kind::RoutingDel:
      world.routing[e.a]->l3IntfRoutingStatusDel(key(e.b, e.c));
      break;
    case Kind::RoutingAgain:
      world.routing[e.a]->l3IntfRoutingStatusRenotify(key(e.b, e.c));
      break;
    case Kind::RoutingVlan:
      world.routingVlan(e.a, key(e.b, e.c), kVlanValue[e.d]);
      break;
    case Kind::RoutingOther:
      world.routing[e.a]->routingEnabledIs(!world.routing[e.a]->routingEnabled());
      break;
    case Kind::RoutingDelAll:
      world.routing[e.a]->l3IntfRoutingStatusDelAll();
      break;
    case Kind::Address:
      world.status(e.a)->vrfStatusIs(id(e.b))->ipAndIntfIdIs({ip(e.c), intf(e.d), e.e != 0});
      break;
    case Kind::AddressDel:
      world.addressDel(e.a, id(e.b), ip(e.c));
      break;
    case Kind::AddressDelAll:
      world.addressDelAll(e.a, id(e.b));
      break;
    case Kind::VrfStatus:
      world.status(e.a)->vrfStatusIs(id(e.b));
      break;
    case Kind::VrfStatusDel:
      world.status(e.a)->vrfStatusDel(id(e.b));
      break;
    case Kind::VrfStatusDelAll:
      world.status(e.a)->vrfStatusDelAll();
      break;
    case Kind::Route:
      world.route(name(e.b), kIdValue[e.c], kVlanValue[e.d]);
      break;
    case Kind::RouteId:
      world.routeId(name(e.b), kIdValue[e.c]);
      break;
    case Kind::RouteVlan:
      world.routeVlan(name(e.b), kVlanValue[e.d]);
      break;
    case Kind::RouteDel:
      world.routeStatus->vrfStatusDel(name(e.b));
      break;
    case Kind::RouteDelAll:
      world.routeStatus->vrfStatusDelAll();
      break;
    case Kind::Line:
      world.cli[e.a]->overlaySrcMacRewriteEntryIs({name(e.b), ip(e.c), mac(e.d)});
      break;
    case Kind::LineDel:
      world.cli[e.a]->overlaySrcMacRewriteEntryDel({name(e.b), ip(e.c)});
      break;
    case Kind::LineDelAll:
      world.cli[e.a]->overlaySrcMacRewriteEntryDelAll();
      break;
    case Kind::UseL3:
      world.l3Shared->l3StatusIs(orNull(world.l3, e.a));
      break;
    case Kind::UsePorts:
      world.l3Shared->l3PortAndLagRoutingStatusIs(orNull(world.routing, e.a));
      break;
    case Kind::UseVlans:
      world.l3Shared->vlanIntfRoutingStatusIs(orNull(world.routing, e.a));
      break;
    case Kind::UseSubIntfs:
      world.l3Shared->l3SubIntfRoutingStatusIs(orNull(world.routing, e.a));
      break;
    case Kind::UseCli:
      world.mount->bfnMacRewriteCliConfigIs(orNull(world.cli, e.a));
      break;
    case Kind::UseEntry:
      world.l3Shared->bfnL3Output()->profileEntryIs(world.entry[e.a]);
      break;
    case Kind::NewAgentConfig:
      world.newAgentConfig();
      break;
    case Kind::NoAgentConfig:
      world.mount->bfnMacRewriteAgentConfigDel();
      break;
    case Kind::NewAgentStatus:
      world.newAgentStatus();
      break;
    case Kind::NoAgentStatus:
      world.mount->bfnMacRewriteAgentStatusDel();
      break;
    case Kind::UseCapability:
      world.mount->bfnMacRewriteCapabilityIs(e.a == kNull ? nullptr : world.capability);
      break;
    case Kind::ProfileName:
      world.l3Shared->bfnL3Output()->profileNameIs(e.a != 0 ? kProfile : "unknown");
      break;
    case Kind::Supported:
      world.supported(e.a != 0);
      break;
    case Kind::Create:
      world.create();
      break;
    case Kind::Destroy:
      world.agent = nullptr;
      break;
    case Kind::Stage1:
      world.stage1();
      break;
    case Kind::Stage2:
      world.stage2();
      break;
    case Kind::Capacity:
      world.chip.tableIs(BfnChip::ChipModel::kRewriteTable, kCapacity[e.a]);
      break;
    case Kind::Resources:
      world.chip.resourcesIs(kCapacity[e.a]);
      break;
    case Kind::FailNext:
      world.chip.faults().failNext(e.a, {static_cast<BfnChip::Fault::Kind>(e.b), nullptr});
      break;
    case Kind::FailNth:
      world.chip.faults().failNth(e.a, {static_cast<BfnChip::Fault::Kind>(e.b), nullptr});
      break;
    case Kind::FaultsClear:
      world.chip.faults().clear();
      break;
    case Kind::Clock:
      world.clock += kClockStep[e.a];
      break;
    case Kind::kCount:
      break;
  }
}

}  // namespace

Thrown World::apply(Event const& event) {
  try {
    run(*this, event);
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

}  // namespace ModelTest
