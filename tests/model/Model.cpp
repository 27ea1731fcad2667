// SPDX-License-Identifier: Apache-2.0
#include "tests/model/Model.h"

#include <algorithm>
#include <concepts>
#include <string_view>

namespace BfnTest {

namespace {

std::int8_t small(int index) {
  return static_cast<std::int8_t>(index);
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

bool Model::possible(Event const& event) const {
  return std::visit(
      [this]<class E>(E const& e) -> bool {
        if constexpr (std::same_as<E, event::Create>) return !s_.agent;
        if constexpr (std::same_as<E, event::Destroy>) return s_.agent;
        if constexpr (std::same_as<E, event::RoutingVlan>) {
          return s_.routing[e.object][e.intf][e.keyVlan].serial != 0;
        }
        if constexpr (std::same_as<E, event::RouteId> || std::same_as<E, event::RouteVlan>) {
          return s_.route[e.name].serial != 0;
        }
        if constexpr (requires { e.watched; }) return statusOf(e.watched) != kNone;
        if constexpr (std::same_as<E, event::FailNext>) return s_.runCount < s_.runs.size();
        return true;
      },
      event);
}

std::optional<Death> Model::apply(Event const& event, Effects& effects) {
  State const before = s_;
  effects = {};
  effects_ = &effects;
  try {
    std::visit([this](auto const& e) { on(e); }, event);
  } catch (Exception const& exception) {
    effects.thrown = exception.thrown;
  } catch (Death const& death) {
    s_ = before;
    return death;
  }
  return std::nullopt;
}

// The host agent's VRFs.

void Model::on(event::NameToId const& e) {
  nameToIdIs(e.l3, e.name, e.id);
}
void Model::on(event::NameToIdDel const& e) {
  nameToIdDel(e.l3, e.name);
}
void Model::on(event::IdToName const& e) {
  s_.l3[e.l3].idToName[e.id] = small(e.name);
}
void Model::on(event::IdToNameDel const& e) {
  s_.l3[e.l3].idToName[e.id] = kNone;
}
void Model::on(event::Vrf const& e) {
  int const before = s_.l3[e.l3].nameToId[e.name];
  s_.l3[e.l3].idToName[e.id] = small(e.name);
  vrfLeaves(e.l3, e.name, before, [&] { nameToIdIs(e.l3, e.name, e.id); });
}
void Model::on(event::VrfDel const& e) {
  vrfLeaves(e.l3, e.name, s_.l3[e.l3].nameToId[e.name], [&] { nameToIdDel(e.l3, e.name); });
}

// Routing status.

void Model::on(event::Routing const& e) {
  routingIs(e.object, e.intf, e.keyVlan,
            {++s_.serials, static_cast<std::uint16_t>(kVlanValue[e.vlan]),
             static_cast<std::uint8_t>(e.vrf)});
}
void Model::on(event::RoutingDel const& e) {
  if (s_.routing[e.object][e.intf][e.keyVlan].serial != 0) {
    routingIs(e.object, e.intf, e.keyVlan, {});
  }
}
void Model::on(event::RoutingAgain const& e) {
  routingTell(e.object, e.intf, e.keyVlan);
}
void Model::on(event::RoutingVlan const& e) {
  // The very object may be the one in the merged collection.
  IntfStatus& status = s_.routing[e.object][e.intf][e.keyVlan];
  status.vlan = static_cast<std::uint16_t>(kVlanValue[e.vlan]);
  if (s_.merged[e.intf].serial == status.serial) s_.merged[e.intf].vlan = status.vlan;
}
void Model::on(event::RoutingOther const&) {}
void Model::on(event::RoutingDelAll const& e) {
  for (int const key : orders_.routing)
    on(event::RoutingDel{e.object, key / kKeyVlans, key % kKeyVlans});
}

// Addresses.

void Model::on(event::Address const& e) {
  int const status = statusOf(e.watched);
  on(event::VrfStatus{e.watched, e.vrf});
  addressIs(status, e.vrf, e.ip, {true, static_cast<std::uint8_t>(e.intf), e.self});
}
void Model::on(event::AddressDel const& e) {
  addressDel(statusOf(e.watched), e.vrf, e.ip);
}
void Model::on(event::AddressDelAll const& e) {
  for (int const ip : orders_.statusIps) addressDel(statusOf(e.watched), e.vrf, ip);
}
void Model::on(event::VrfStatus const& e) {
  int const status = statusOf(e.watched);
  s_.status[status].present[e.vrf] = true;
  RewriteMachine& machine = s_.rewriteMachine;
  if (machine.exists && machine.status == status) machine.statusReactor[e.vrf] = true;
}
void Model::on(event::VrfStatusDel const& e) {
  vrfStatusDel(statusOf(e.watched), e.vrf);
}
void Model::on(event::VrfStatusDelAll const& e) {
  for (int vrf = 0; vrf < kIds; ++vrf) vrfStatusDel(statusOf(e.watched), vrf);
}

// The hardware route status.

void Model::on(event::Route const& e) {
  routeIs(e.name, {++s_.serials, static_cast<std::uint8_t>(e.id), kVlanValue[e.vlan]});
}
void Model::on(event::RouteId const& e) {
  s_.route[e.name].id = static_cast<std::uint8_t>(e.id);
}
void Model::on(event::RouteVlan const& e) {
  if (s_.route[e.name].vlan == kVlanValue[e.vlan]) return;
  s_.route[e.name].vlan = kVlanValue[e.vlan];
  RewriteMachine& machine = s_.rewriteMachine;
  if (machine.exists && machine.routeReactor[e.name].hears) handleRoute(machine, e.name);
}
void Model::on(event::RouteDel const& e) {
  s_.route[e.name] = {};
  s_.rewriteMachine.routeReactor[e.name] = {};
}
void Model::on(event::RouteDelAll const&) {
  s_.route = {};
  s_.rewriteMachine.routeReactor = {};
}

// The configuration.

void Model::on(event::Line const& e) {
  lineIs(e.cli, e.name, e.ip, e.mac);
}
void Model::on(event::LineDel const& e) {
  lineDel(e.cli, e.name, e.ip);
}
void Model::on(event::LineDelAll const& e) {
  for (int const key : orders_.lines) lineDel(e.cli, key / kIps, key % kIps);
}

// Other objects.

void Model::on(event::UseL3 const& e) {
  s_.useL3 = small(e.l3);
}
void Model::on(event::UseRouting const& e) {
  s_.useRouting[e.source] = small(e.object);
}
void Model::on(event::UseCli const& e) {
  s_.useCli = small(e.cli);
}
void Model::on(event::UseEntry const& e) {
  s_.useEntry = small(e.entry);
}
void Model::on(event::NewAgentConfig const&) {
  s_.useConfig = small(freeConfig());
  clear(s_.config[s_.useConfig]);
}
void Model::on(event::NoAgentConfig const&) {
  s_.useConfig = kNone;
}
void Model::on(event::NewAgentStatus const&) {
  s_.useStatus = small(freeStatus());
  clear(s_.status[s_.useStatus]);
}
void Model::on(event::NoAgentStatus const&) {
  s_.useStatus = kNone;
}
void Model::on(event::UseCapability const& e) {
  s_.useCapability = e.there;
}
void Model::on(event::ProfileName const& e) {
  s_.profileKnown = e.known;
}
void Model::on(event::Supported const& e) {
  s_.supported = e.supported;
}

// Bring-up.

void Model::on(event::Create const&) {
  s_.agent = true;
}
void Model::on(event::Destroy const&) {
  destroy();
}
void Model::on(event::Stage1 const&) {
  if (s_.agent) stage1();
}
void Model::on(event::Stage2 const&) {
  if (s_.agent) stage2();
}

// The chip and the clock.

void Model::on(event::Capacity const& e) {
  s_.capacity = kCapacity[e.capacity];
}
void Model::on(event::Resources const& e) {
  s_.resources = kCapacity[e.capacity];
}
void Model::on(event::FailNext const& e) {
  s_.runs[s_.runCount++] = {static_cast<std::uint8_t>(e.count), static_cast<std::uint8_t>(e.how)};
}
void Model::on(event::FailNth const& e) {
  s_.nth[e.number - 1] = small(e.how);
}
void Model::on(event::FaultsClear const&) {
  fillNone(s_.nth);
  s_.runCount = 0;
}
void Model::on(event::Clock const& e) {
  s_.clock += kClockStep[e.step];
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

int Model::statusOf(bool watched) const {
  if (watched && s_.rewriteMachine.exists && s_.rewriteMachine.status != kNone) {
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

}  // namespace BfnTest
