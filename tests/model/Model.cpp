#include "tests/model/Model.h"

#include <algorithm>
#include <string_view>

namespace ModelTest {

namespace {

std::int8_t object(int index) {
  return static_cast<std::int8_t>(index == kNull ? kNone : index);
}
template <class T>
void fillNone(T& array) {
  array.fill(kNone);
}
void clear(ConfigState& config) {
  config.present.fill(false);
  for (auto& macs : config.mac) fillNone(macs);
}
void clear(StatusState& status) {
  status.present.fill(false);
  status.at = {};
}

}  // namespace

Model::Model(Orders const& orders) : orders_(orders), s_() {
  for (L3State& l3 : s_.l3) {
    fillNone(l3.nameToId);
    fillNone(l3.idToName);
  }
  for (CliState& cli : s_.cli) {
    for (auto& macs : cli) fillNone(macs);
  }
  for (ConfigState& config : s_.config) clear(config);
  for (StatusState& status : s_.status) clear(status);
  for (auto& macs : s_.row) fillNone(macs);
  fillNone(s_.nth);
}

bool Model::possible(Event const& e) const {
  switch (e.kind) {
    case Kind::Create:
      return !s_.agent;
    case Kind::Destroy:
      return s_.agent;
    case Kind::RoutingVlan:
      return s_.routing[e.a][e.b][e.c].serial != 0;
    case Kind::RouteId:
    case Kind::RouteVlan:
      return s_.route[e.b].serial != 0;
    case Kind::Address:
    case Kind::AddressDel:
    case Kind::AddressDelAll:
    case Kind::VrfStatus:
    case Kind::VrfStatusDel:
    case Kind::VrfStatusDelAll:
      return currentStatus(e) != kNone;
    case Kind::FailNext:
      return s_.runCount < s_.runs.size();
    default:
      return true;
  }
}

std::optional<Death> Model::apply(Event const& event, Effects& effects) {
  State const before = s_;
  effects = {};
  effects_ = &effects;
  try {
    run(event);
  } catch (Exception const& exception) {
    effects.thrown = exception.thrown;
  } catch (Death const& death) {
    s_ = before;
    return death;
  }
  return std::nullopt;
}

void Model::run(Event const& e) {
  switch (e.kind) {
    case Kind::NameToId:
      nameToIdIs(e.a, e.b, e.c);
      break;
    case Kind::NameToIdDel:
      nameToIdDel(e.a, e.b);
      break;
    case Kind::IdToName:
      s_.l3[e.a].idToName[e.c] = object(e.b);
      break;
    case Kind::IdToNameDel:
      s_.l3[e.a].idToName[e.c] = kNone;
      break;
    case Kind::Vrf: {
      int const before = s_.l3[e.a].nameToId[e.b];
      s_.l3[e.a].idToName[e.c] = object(e.b);
      vrfLeaves(e.a, e.b, before, [&] { nameToIdIs(e.a, e.b, e.c); });
      break;
    }
    case Kind::VrfDel:
      vrfLeaves(e.a, e.b, s_.l3[e.a].nameToId[e.b], [&] { nameToIdDel(e.a, e.b); });
      break;
    case Kind::Routing:
      routingIs(e.a, e.b, e.c, {++s_.serials, static_cast<std::uint16_t>(kVlanValue[e.d]), e.e});
      break;
    case Kind::RoutingDel:
      if (s_.routing[e.a][e.b][e.c].serial != 0) routingIs(e.a, e.b, e.c, {});
      break;
    case Kind::RoutingAgain:
      routingTell(e.a, e.b, e.c);
      break;
    case Kind::RoutingVlan: {
      // The object may be the one in the merged collection, which then does not notify.
      IntfStatus& status = s_.routing[e.a][e.b][e.c];
      status.vlan = static_cast<std::uint16_t>(kVlanValue[e.d]);
      if (s_.merged[e.b].serial == status.serial) s_.merged[e.b].vlan = status.vlan;
      break;
    }
    case Kind::RoutingOther:
      break;
    case Kind::RoutingDelAll:
      for (int const key : orders_.routing) {
        int const intf = key / kKeyVlans;
        int const vlan = key % kKeyVlans;
        if (s_.routing[e.a][intf][vlan].serial != 0) routingIs(e.a, intf, vlan, {});
      }
      break;
    case Kind::Address:
      s_.status[currentStatus(e)].present[e.b] = true;
      if (int const status = currentStatus(e); s_.rewriteMachine.status == status) {
        s_.rewriteMachine.statusReactor[e.b] = s_.rewriteMachine.exists;
      }
      addressIs(currentStatus(e), e.b, e.c, {true, e.d, e.e != 0});
      break;
    case Kind::AddressDel:
      addressDel(currentStatus(e), e.b, e.c);
      break;
    case Kind::AddressDelAll:
      for (int const ip : orders_.statusIps) addressDel(currentStatus(e), e.b, ip);
      break;
    case Kind::VrfStatus:
      s_.status[currentStatus(e)].present[e.b] = true;
      if (s_.rewriteMachine.exists && s_.rewriteMachine.status == currentStatus(e)) {
        s_.rewriteMachine.statusReactor[e.b] = true;
      }
      break;
    case Kind::VrfStatusDel:
      vrfStatusDel(currentStatus(e), e.b);
      break;
    case Kind::VrfStatusDelAll:
      for (int vrf = 0; vrf < kIds; ++vrf) vrfStatusDel(currentStatus(e), vrf);
      break;
    case Kind::Route:
      routeIs(e.b, {++s_.serials, e.c, kVlanValue[e.d]});
      break;
    case Kind::RouteId:
      s_.route[e.b].id = e.c;
      break;
    case Kind::RouteVlan: {
      if (s_.route[e.b].vlan == kVlanValue[e.d]) break;
      s_.route[e.b].vlan = kVlanValue[e.d];
      RewriteMachine& machine = s_.rewriteMachine;
      if (machine.exists && machine.routeReactor[e.b].hears) handleRoute(machine, e.b);
      break;
    }
    case Kind::RouteDel:
      s_.route[e.b] = {};
      s_.rewriteMachine.routeReactor[e.b] = {};
      break;
    case Kind::RouteDelAll:
      s_.route = {};
      s_.rewriteMachine.routeReactor = {};
      break;
    case Kind::Line:
      lineIs(e.a, e.b, e.c, e.d);
      break;
    case Kind::LineDel:
      lineDel(e.a, e.b, e.c);
      break;
    case Kind::LineDelAll:
      for (int const key : orders_.lines) lineDel(e.a, key / kIps, key % kIps);
      break;
    case Kind::UseL3:
      s_.useL3 = object(e.a);
      break;
    case Kind::UsePorts:
      s_.useRouting[0] = object(e.a);
      break;
    case Kind::UseVlans:
      s_.useRouting[1] = object(e.a);
      break;
    case Kind::UseSubIntfs:
      s_.useRouting[2] = object(e.a);
      break;
    case Kind::UseCli:
      s_.useCli = object(e.a);
      break;
    case Kind::UseEntry:
      s_.useEntry = object(e.a);
      break;
    case Kind::NewAgentConfig:
      s_.useConfig = static_cast<std::int8_t>(freeConfig());
      clear(s_.config[s_.useConfig]);
      break;
    case Kind::NoAgentConfig:
      s_.useConfig = kNone;
      break;
    case Kind::NewAgentStatus:
      s_.useStatus = static_cast<std::int8_t>(freeStatus());
      clear(s_.status[s_.useStatus]);
      break;
    case Kind::NoAgentStatus:
      s_.useStatus = kNone;
      break;
    case Kind::UseCapability:
      s_.useCapability = e.a != kNull;
      break;
    case Kind::ProfileName:
      s_.profileKnown = e.a != 0;
      break;
    case Kind::Supported:
      s_.supported = e.a != 0;
      break;
    case Kind::Create:
      s_.agent = true;
      break;
    case Kind::Destroy:
      destroy();
      break;
    case Kind::Stage1:
      if (s_.agent) stage1();
      break;
    case Kind::Stage2:
      if (s_.agent) stage2();
      break;
    case Kind::Capacity:
      s_.capacity = kCapacity[e.a];
      break;
    case Kind::Resources:
      s_.resources = kCapacity[e.a];
      break;
    case Kind::FailNext:
      s_.runs[s_.runCount++] = {e.a, e.b};
      break;
    case Kind::FailNth:
      s_.nth[e.a - 1] = static_cast<std::int8_t>(e.b);
      break;
    case Kind::FaultsClear:
      fillNone(s_.nth);
      s_.runCount = 0;
      break;
    case Kind::Clock:
      s_.clock += kClockStep[e.a];
      break;
    case Kind::kCount:
      break;
  }
}

// The host's setters.

void Model::nameToIdIs(int l3, int name, int id) {
  if (s_.l3[l3].nameToId[name] == id) return;
  s_.l3[l3].nameToId[name] = static_cast<std::int8_t>(id);
  if (s_.cliMachine.exists && s_.cliMachine.l3 == l3) addVrf(s_.cliMachine, name);
}

void Model::nameToIdDel(int l3, int name) {
  if (s_.l3[l3].nameToId[name] == kNone) return;
  s_.l3[l3].nameToId[name] = kNone;
  if (s_.cliMachine.exists && s_.cliMachine.l3 == l3) deleteVrf(s_.cliMachine, name);
}

template <class Change>
void Model::vrfLeaves(int l3, int name, int id, Change const& change) {
  std::optional<Exception> thrown;
  try {
    change();
  } catch (Exception const& exception) {
    thrown = exception;
  }
  L3State& state = s_.l3[l3];
  if (id != kNone && state.nameToId[name] != id && state.idToName[id] == name) {
    std::int8_t next = kNone;
    for (int other = 0; other < kNames; ++other) {
      if (state.nameToId[other] != id) continue;
      if (next == kNone || std::string_view(kNameText[other]) < kNameText[next]) {
        next = static_cast<std::int8_t>(other);
      }
    }
    state.idToName[id] = next;
  }
  if (thrown) throw *thrown;
}

void Model::routingIs(int object, int intf, int keyVlan, IntfStatus const& status) {
  s_.routing[object][intf][keyVlan] = status;
  routingTell(object, intf, keyVlan);
}

void Model::routingTell(int object, int intf, int keyVlan) {
  if (!s_.intfMachine.exists) return;
  for (int const source : s_.intfMachine.source) {
    if (source == object) mergeKey(source, intf, keyVlan);
  }
}

void Model::addressIs(int status, int vrf, int ip, AddressState const& address) {
  AddressState& stored = s_.status[status].at[vrf][ip];
  if (stored == address) return;
  stored = address;
  RewriteMachine& machine = s_.rewriteMachine;
  if (machine.exists && machine.status == status) handleAddress(machine, vrf, ip);
}

void Model::addressDel(int status, int vrf, int ip) {
  AddressState& stored = s_.status[status].at[vrf][ip];
  if (!stored.present) return;
  stored = {};
  RewriteMachine& machine = s_.rewriteMachine;
  if (machine.exists && machine.status == status) handleAddress(machine, vrf, ip);
}

void Model::vrfStatusDel(int status, int vrf) {
  s_.status[status].present[vrf] = false;
  s_.status[status].at[vrf] = {};
  if (s_.rewriteMachine.status == status) s_.rewriteMachine.statusReactor[vrf] = false;
}

void Model::routeIs(int name, RouteState const& route) {
  s_.route[name] = route;
  RewriteMachine& machine = s_.rewriteMachine;
  if (!machine.exists) return;
  // A new reactor stays only if its first run ends well. One that is bound to another object is
  // registered with it after the run, also when that throws.
  RouteReactor& reactor = machine.routeReactor[name];
  reactor.hears = false;
  try {
    handleRoute(machine, name);
  } catch (...) {
    reactor.hears = reactor.exists;
    throw;
  }
  reactor = {true, true};
}

void Model::lineIs(int cli, int name, int ip, int mac) {
  std::int8_t& stored = s_.cli[cli][name][ip];
  if (stored == mac) return;
  stored = static_cast<std::int8_t>(mac);
  if (s_.cliMachine.exists && s_.cliMachine.cli == cli) handleLine(s_.cliMachine, name, ip);
}

void Model::lineDel(int cli, int name, int ip) {
  std::int8_t& stored = s_.cli[cli][name][ip];
  if (stored == kNone) return;
  stored = kNone;
  if (s_.cliMachine.exists && s_.cliMachine.cli == cli) handleLine(s_.cliMachine, name, ip);
}

int Model::currentStatus(Event const& e) const {
  if (e.a != 0 && s_.rewriteMachine.exists && s_.rewriteMachine.status != kNone) {
    return s_.rewriteMachine.status;
  }
  return s_.useStatus;
}

int Model::freeConfig() const {
  int index = 0;
  while (index == s_.useConfig || (s_.rewriteMachine.exists && index == s_.rewriteMachine.config) ||
         (s_.cliMachine.exists && index == s_.cliMachine.config)) {
    ++index;
  }
  return index;
}

int Model::freeStatus() const {
  int index = 0;
  while (index == s_.useStatus || (s_.rewriteMachine.exists && index == s_.rewriteMachine.status)) {
    ++index;
  }
  return index;
}

// Bring-up.

void Model::stage1() {
  s_.collection = true;
  s_.copiedSupported = s_.profileKnown && s_.supported;
  int const held = s_.manager;
  if (held != kNone && s_.managers[held].entry == s_.useEntry && s_.managers[held].l3 == s_.useL3) {
    return;
  }
  int index = 0;
  while (index == held || (s_.rewriteMachine.exists && index == s_.rewriteMachine.manager)) ++index;
  ManagerState& manager = s_.managers[index];
  manager = {};
  manager.entry = s_.useEntry;
  manager.l3 = s_.useL3;
  // What the chip can do is looked up under the entry's own name. Only a declared table is
  // initialised, and the host does so at once.
  manager.hasTable = s_.supported;
  s_.manager = static_cast<std::int8_t>(index);
}

void Model::stage2() {
  if (s_.copiedSupported) {
    startIntfMachine();
    startRewriteMachine();
    startCliMachine();
  }
  if (s_.useCapability) s_.capability = s_.copiedSupported;
}

void Model::destroy() {
  s_.agent = false;
  s_.collection = false;
  s_.copiedSupported = false;
  s_.manager = kNone;
  s_.merged = {};
  s_.intfMachine = {};
  s_.rewriteMachine = {};
  s_.cliMachine = {};
}

}  // namespace ModelTest
