// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string>

#include "tests/model/Model.h"

// What the plug-in's machines do.
namespace BfnTest {

namespace {

using Outcome = ChipCall::Outcome;

bool inVlanRange(std::uint32_t vlan) {
  return vlan >= 1 && vlan <= 4094;
}
size_t rowVlan(std::uint16_t vlan) {
  return static_cast<size_t>(std::ranges::find(kVlanValue, vlan) - kVlanValue.begin());
}

template <class T>
void fillNone(T& array) {
  array.fill(kNone);
}
}  // namespace

// Routing status merge.

void Model::startIntfMachine() {
  if (s_.intfMachine.exists && s_.intfMachine.source == s_.useRouting) return;
  for (int const source : s_.useRouting) {
    if (source == kNone) continue;
    for (int const key : orders_.routing) {
      int const intf = key / kKeyVlans;
      int const keyVlan = key % kKeyVlans;
      if (s_.routing[source][intf][keyVlan].serial != 0) mergeKey(source, intf, keyVlan);
    }
  }
  s_.intfMachine = {true, s_.useRouting};
}

void Model::mergeKey(int source, int intf, int keyVlan) {
  mergedIs(intf, s_.routing[source][intf][keyVlan]);
}

void Model::mergedIs(int intf, IntfStatus const& status) {
  if (s_.merged[intf].serial == status.serial) return;
  bool const replaced = s_.merged[intf].serial != 0 && status.serial != 0;
  s_.merged[intf] = status;
  if (plantedFault && replaced) return;
  if (s_.rewriteMachine.exists) handleIntf(s_.rewriteMachine, intf);
}

// Configuration translation.

void Model::startCliMachine() {
  if (s_.cliMachine.exists && s_.cliMachine.cli == s_.useCli &&
      s_.cliMachine.config == s_.useConfig && s_.cliMachine.l3 == s_.useL3) {
    return;
  }
  CliMachine machine{};
  machine.cli = s_.useCli;
  machine.config = s_.useConfig;
  machine.l3 = s_.useL3;
  fillNone(machine.live);
  if (machine.l3 != kNone) {
    for (int const name : orders_.l3Names) {
      if (s_.l3[machine.l3].nameToId[name] != kNone) addVrf(machine, name);
    }
  }
  machine.exists = true;
  s_.cliMachine = machine;
}

void Model::addVrf(CliMachine& machine, int name) {
  int const id = s_.l3[machine.l3].nameToId[name];
  if (machine.live[name] != kNone) {
    throw Death{{std::string("Failed(!localVrfNameToIdHas( vrfName )) vrfId for ") +
                     kNameText[name] + " changed from " +
                     std::to_string(kIdValue[machine.live[name]]) + " to " +
                     std::to_string(kIdValue[id]),
                 "\"!localVrfNameToIdHas( vrfName )\" == nullptr"}};
  }
  machine.live[name] = static_cast<std::int8_t>(id);
  if (machine.cli == kNone) return;
  for (int const key : orders_.lines) {
    int const ip = key % kIps;
    if (key / kIps == name && s_.cli[machine.cli][name][ip] != kNone) handleLine(machine, name, ip);
  }
}

void Model::deleteVrf(CliMachine& machine, int name) {
  int const id = machine.live[name] == kNone ? 0 : machine.live[name];
  recordDel(machine.config, id);
  machine.live[name] = kNone;
}

void Model::handleLine(CliMachine& machine, int name, int ip) {
  int const id = machine.live[name];
  if (id == kNone || machine.config == kNone) return;
  ConfigState& config = s_.config[machine.config];
  RewriteMachine& rewrite = s_.rewriteMachine;
  bool const watched = rewrite.exists && rewrite.config == machine.config;
  int const mac = s_.cli[machine.cli][name][ip];
  if (mac != kNone) {
    config.present[id] = true;
    if (watched) rewrite.configReactor[id] = true;
    if (config.mac[id][ip] == mac) return;
    config.mac[id][ip] = static_cast<std::int8_t>(mac);
    if (watched) handleMac(rewrite, id, ip);
    return;
  }
  if (!config.present[id]) return;
  // A removed MAC leaves the row alone.
  config.mac[id][ip] = kNone;
  bool const empty = std::ranges::count(config.mac[id], std::int8_t{kNone}) == kIps;
  if (empty) recordDel(machine.config, id);
}

void Model::recordDel(int config, int vrf) {
  if (config == kNone) return;
  s_.config[config].present[vrf] = false;
  fillNone(s_.config[config].mac[vrf]);
  if (s_.rewriteMachine.config == config) s_.rewriteMachine.configReactor[vrf] = false;
}

// The rewrite machine.

void Model::startRewriteMachine() {
  RewriteMachine& held = s_.rewriteMachine;
  if (held.exists && held.status == s_.useStatus && held.config == s_.useConfig &&
      held.manager == s_.manager && held.l3 == s_.useL3) {
    return;
  }
  RewriteMachine machine{};
  machine.status = s_.useStatus;
  machine.config = s_.useConfig;
  machine.manager = s_.manager;
  machine.l3 = s_.useL3;
  machine.fwdVlan.fill(kNone);
  if (machine.config != kNone) machine.configReactor = s_.config[machine.config].present;
  for (int const name : orders_.hwNames) {
    if (s_.route[name].serial == 0) continue;
    handleRoute(machine, name);
    machine.routeReactor[name] = {true, true};
  }
  if (machine.status != kNone) {
    for (int const vrf : orders_.statusVrfs) {
      if (!s_.status[machine.status].present[vrf]) continue;
      for (int const ip : orders_.statusIps) {
        if (s_.status[machine.status].at[vrf][ip].present) addAddress(machine, vrf, ip);
      }
      machine.statusReactor[vrf] = true;
    }
  }
  machine.initialized = true;
  for (int const intf : orders_.intfs) {
    if (s_.merged[intf].serial != 0) handleIntf(machine, intf);
  }
  machine.exists = true;
  held = machine;
}

void Model::handleIntf(RewriteMachine& machine, int intf) {
  if (intf == 0) return;  // no pair names no interface
  for (int const pair : orders_.pairs) {
    int const vrf = pair / kIps;
    int const ip = pair % kIps;
    if (machine.intfOf[vrf][ip] != intf) continue;
    if (s_.merged[intf].serial != 0) {
      addRow(machine, vrf, intf, ip);
    } else {
      deleteRow(machine, vrf, intf, ip);
    }
  }
}

void Model::addRow(RewriteMachine& machine, int vrf, int intf, int ip) {
  if (!machine.initialized) return;
  bool const self = machine.status != kNone && s_.status[machine.status].at[vrf][ip].self;
  std::uint32_t vlan = s_.merged[intf].vlan;
  if (!inVlanRange(vlan)) throw Exception{Thrown::VlanRange};
  if (self) {
    if (machine.fwdVlan[vrf] == kNone || machine.fwdVlan[vrf] == 0) return;
    vlan = static_cast<std::uint32_t>(machine.fwdVlan[vrf]);
    if (!inVlanRange(vlan)) throw Exception{Thrown::VlanRange};
  }
  int mac = machine.config == kNone ? kNone : s_.config[machine.config].mac[vrf][ip];
  if (mac == kNone) mac = 0;
  int const name = machine.l3 == kNone ? kNone : s_.l3[machine.l3].idToName[vrf];
  addEntry(machine.manager, name, static_cast<std::uint16_t>(vlan), intf, ip, mac);
}

void Model::deleteRow(RewriteMachine& machine, int, int intf, int ip) {
  if (!machine.initialized) throw Death{{"Sm not initialized yet", "initialized()"}};
  deleteEntry(machine.manager, intf, ip);
}

void Model::handleMac(RewriteMachine& machine, int vrf, int ip) {
  int const mac = s_.config[machine.config].mac[vrf][ip];
  if (mac == kNone || !machine.initialized) return;
  int const intf = machine.intfOf[vrf][ip];
  if (intf == 0 || s_.merged[intf].serial == 0) return;
  updateEntry(machine.manager, intf, ip, mac);
}

void Model::handleAddress(RewriteMachine& machine, int vrf, int ip) {
  if (s_.status[machine.status].at[vrf][ip].present) {
    addAddress(machine, vrf, ip);
  } else {
    removeAddress(machine, vrf, ip);
  }
}

void Model::addAddress(RewriteMachine& machine, int vrf, int ip) {
  int const old = machine.intfOf[vrf][ip];
  AddressState const& address = s_.status[machine.status].at[vrf][ip];
  if (address.self && (machine.fwdVlan[vrf] == kNone || machine.fwdVlan[vrf] == 0)) return;
  if (old != 0 && old != address.intf) {
    throw Death{
        {"(Vrf, Ip)->Intf mapping shouldn't change dynamically, without an explicit delete "
         "and add",
         "!oldIntfId || oldIntfId == intfId"}};
  }
  if (old != 0) removeAddress(machine, vrf, ip);
  if (address.intf == 0) return;
  machine.intfOf[vrf][ip] = address.intf;
  if (s_.merged[address.intf].serial != 0) addRow(machine, vrf, address.intf, ip);
}

void Model::removeAddress(RewriteMachine& machine, int vrf, int ip) {
  int const intf = machine.intfOf[vrf][ip];
  if (intf == 0) return;
  machine.intfOf[vrf][ip] = 0;
  if (s_.merged[intf].serial != 0) deleteRow(machine, vrf, intf, ip);
}

void Model::handleRoute(RewriteMachine& machine, int name) {
  RouteState const& route = s_.route[name];
  if (kIdValue[route.id] == 0 && std::string(kNameText[name]) != "default") return;
  int const vrf = route.id;
  std::int64_t const old = machine.fwdVlan[vrf] == kNone ? 0 : machine.fwdVlan[vrf];
  machine.fwdVlan[vrf] = route.vlan;
  if (!machine.statusReactor[vrf]) return;
  for (int const ip : orders_.statusIps) {
    AddressState const& address = s_.status[machine.status].at[vrf][ip];
    if (!address.present || !address.self) continue;
    if (old != 0) removeAddress(machine, vrf, ip);
    handleAddress(machine, vrf, ip);
  }
}

// The table manager.

void Model::addEntry(int manager, int name, std::uint16_t vlan, int intf, int ip, int mac) {
  RecordState& record = s_.managers[manager].record[intf][ip];
  if (record.present) {
    updateEntry(manager, intf, ip, mac);
    record.refs = static_cast<std::uint16_t>(record.refs + 1);
    return;
  }
  // There is no binding to write through, and no text of its own for that.
  if (!s_.managers[manager].hasTable) throw Death{};
  switch (chipWrite(vlan, ip, mac)) {
    case Outcome::Ok:
      record = {true, vlan, 1};
      break;
    case Outcome::Full:
    case Outcome::NoResources:
      log(name, ip);
      break;
    case Outcome::Error:
      throw Exception{Thrown::TableError};
    default:
      throw Exception{Thrown::Foreign};
  }
}

void Model::updateEntry(int manager, int intf, int ip, int mac) {
  RecordState const& record = s_.managers[manager].record[intf][ip];
  if (!record.present) noEntry(intf, ip);
  switch (chipWrite(record.vlan, ip, mac)) {
    case Outcome::Ok:
      break;
    case Outcome::Full:
      throw Exception{Thrown::Full};
    case Outcome::NoResources:
      throw Exception{Thrown::NoResources};
    case Outcome::Error:
      throw Exception{Thrown::TableError};
    default:
      throw Exception{Thrown::Foreign};
  }
}

void Model::deleteEntry(int manager, int intf, int ip) {
  RecordState& record = s_.managers[manager].record[intf][ip];
  if (!record.present) noEntry(intf, ip);
  record.refs = static_cast<std::uint16_t>(record.refs - 1);
  if (record.refs != 0) return;
  chipErase(record.vlan, ip);
  record = {};
}

void Model::noEntry(int intf, int ip) {
  throw Death{{std::string("Failed(localMatchSpecAndRefCount) Entry doesn't exist. intfId: ") +
                   kIntfText[intf] + ", overlaySip: " + ipText(ip),
               "\"localMatchSpecAndRefCount\" == nullptr"}};
}

// The chip and the log.

ChipCall::Outcome Model::chipWrite(std::uint16_t vlan, int ip, int mac) {
  int fault = s_.nth[0];
  std::rotate(s_.nth.begin(), s_.nth.begin() + 1, s_.nth.end());
  s_.nth.back() = kNone;
  if (fault == kNone && s_.runCount != 0) {
    fault = s_.runs[0].how;
    if (--s_.runs[0].left == 0) {
      std::rotate(s_.runs.begin(), s_.runs.begin() + 1, s_.runs.end());
      --s_.runCount;
    }
  }
  static constexpr Outcome kWays[] = {Outcome::Full, Outcome::NoResources, Outcome::Error,
                                      Outcome::Exception};
  std::int8_t& row = s_.row[rowVlan(vlan)][ip];
  Outcome outcome = Outcome::Ok;
  if (fault != kNone) {
    outcome = kWays[fault];
  } else if (row == kNone && s_.rows >= s_.capacity) {
    outcome = Outcome::Full;
  } else if (row == kNone && s_.rows >= s_.resources) {
    outcome = Outcome::NoResources;
  } else {
    if (row == kNone) ++s_.rows;
    row = static_cast<std::int8_t>(mac);
  }
  effects_->calls.push_back(
      {true, outcome, vlan, static_cast<std::uint8_t>(ip), static_cast<std::int8_t>(mac)});
  return outcome;
}

void Model::chipErase(std::uint16_t vlan, int ip) {
  std::int8_t& row = s_.row[rowVlan(vlan)][ip];
  effects_->calls.push_back({false, row == kNone ? Outcome::NotFound : Outcome::Ok, vlan,
                             static_cast<std::uint8_t>(ip), row});
  if (row != kNone) --s_.rows;
  row = kNone;
}

void Model::log(int name, int ip) {
  if (s_.lastSent >= 0 && s_.clock - s_.lastSent < 60) {
    ++s_.heldBack;
    return;
  }
  effects_->logs.push_back({name == kNone ? "" : kNameText[name], ip, s_.heldBack, s_.clock});
  s_.lastSent = s_.clock;
  s_.heldBack = 0;
}

}  // namespace BfnTest
