// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "framework/core/Strep.h"
#include "host/commands/Commands.h"
#include "host/dumps/Dumps.h"
#include "host/language/InputError.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

using Kiv::U16;
using Kiv::U32;

template <class T>
T needed(T record, std::string const& input) {
  if (!record) throw InputError("there is no " + input + "; host replace " + input + " makes one");
  return record;
}

// --- VRFs

Kiv::Ptr<Pex::L3Status> l3Status(Switch const& host) {
  return needed(host.l3Status(), "l3-status");
}

Answer vrfIs(Switch& host, Arguments const& given) {
  l3Status(host)->vrfIs(L3::VrfName(given.text("vrf")), vrfIdOf(given, "id"));
  return {};
}

Answer vrfDel(Switch& host, Arguments const& given) {
  auto const status = l3Status(host);
  L3::VrfName const name(given.text("vrf"));
  if (given.has("id")) {
    Pex::VrfId const* const id = status->vrfNameToId(name);
    if (id == nullptr) throw InputError("the VRF has no id");
    if (*id != vrfIdOf(given, "id")) {
      throw InputError("expected the id that the VRF has, " + std::to_string(id->value()));
    }
  }
  status->vrfDel(name);
  return {};
}

// --- Routing status

Kiv::Ptr<BfnL3::L3RoutingStatus> routingStatus(Switch const& host, Arguments const& given) {
  return needed(host.routingStatus(given.text("port")), given.text("port") + "-status");
}

Pex::PortVlanPair keyOf(Arguments const& given) {
  return {Ovra::IntfId(given.text("<INTF>")), static_cast<U16>(given.number("key-vlan"))};
}

void fill(BfnL3::L3IntfRoutingStatus& status, Arguments const& given) {
  status.vlanIdIs(static_cast<U16>(given.number("vlan")));
  status.vrfIdIs(vrfIdOf(given, "vrf-id"));
}

Answer routingStatusIs(Switch& host, Arguments const& given) {
  auto const all = routingStatus(host, given);
  auto const status = Kiv::makeActive<BfnL3::L3IntfRoutingStatus>(keyOf(given));
  fill(*status, given);
  all->l3IntfRoutingStatusIs(status);
  return {};
}

Answer routingStatusUpdate(Switch& host, Arguments const& given) {
  auto* const status = routingStatus(host, given)->l3IntfRoutingStatus(keyOf(given));
  if (status == nullptr) throw InputError("there is no such routing status");
  fill(*status, given);
  return {};
}

// --- Addresses

Object agentStatus(Switch const& host) {
  return needed(host.agentStatus(), "agent-status");
}

Answer addressIs(Switch& host, Arguments const& given) {
  Object const status = agentStatus(host);
  Kiv::GenericValue const vrf = Kiv::valueToStrep(vrfIdOf(given, "vrf-id"));
  Kiv::GenericValue const value =
      Kiv::StrepWriter("BfnMacRewrite::Agent::IpAndIntfId")
          .field("ipAddr", given.ip("address"))
          .field("intfId",
                 Ovra::IntfId(given.has("interface") ? given.text("interface") : std::string()))
          .field("selfIp", given.has("self"))
          .close();
  if (get(status, "vrfStatus", {vrf}).isNothing()) set(status, "vrfStatus", {vrf});
  set(getObject(status, "vrfStatus", {vrf}), "ipAndIntfId", {value});
  return {};
}

Answer addressDel(Switch& host, Arguments const& given) {
  Kiv::GenericValue const vrf = Kiv::valueToStrep(vrfIdOf(given, "vrf-id"));
  if (Object const addresses = getObject(agentStatus(host), "vrfStatus", {vrf})) {
    del(addresses, "ipAndIntfId", Kiv::valueToStrep(given.ip("address")));
  }
  return {};
}

// --- Routes

Kiv::Ptr<Routing::Hardware::RouteStatus> neededRoutes(Switch const& host) {
  return needed(host.routeStatus, "route-status");
}

Answer routeIs(Switch& host, Arguments const& given) {
  auto const all = neededRoutes(host);
  L3::VrfName const name(given.text("vrf"));
  auto const vrfId = static_cast<U32>(given.number("vrf-id"));
  auto const vlan = static_cast<U32>(given.number("forwarding-vlan"));
  if (Kiv::Ptr<Routing::Hardware::VrfStatus> const there{all->vrfStatus(name)}) {
    there->vrfIdIs(vrfId);
    there->fwdVlanIdIs(vlan);
    return {};
  }
  auto const made = Kiv::makeActive<Routing::Hardware::VrfStatus>(name);
  made->vrfIdIs(vrfId);
  made->fwdVlanIdIs(vlan);
  all->vrfStatusIs(made);
  return {};
}

// --- Profiles and bring-up

Answer profileIs(Switch& host, Arguments const& given) {
  BfnSystem::ChipCapabilities const capabilities(given.text("supported") == "supported",
                                                 static_cast<U16>(given.number("table-size")));
  std::string const name = given.text("profile");
  host.systemStatus->profileInfoIs(name)->chipCapabilitiesIs(capabilities);
  host.profileData->profileDataEntryIs(name);
  return {};
}

Answer profileDel(Switch& host, Arguments const& given) {
  std::string const name = given.text("profile");
  if (!host.systemStatus->profileInfoDel(name)) throw InputError("there is no such profile");
  host.profileData->profileDataEntryDel(name);
  return {};
}

Answer said(std::string const& text) {
  return {text, text};
}

Answer agentCreate(Switch& host) {
  host.agentIs();
  return said("agent created");
}

Answer agentDestroy(Switch& host) {
  if (!host.hasAgent()) throw InputError("there is no agent");
  host.agentDel();
  return said("agent destroyed");
}

// Sets a flag of the bring-up. Setting the current value does not notify the plug-in.
bool flagIs(Switch& host, std::string_view flag, bool value) {
  if ((getText(host.bfnL3Output(), flag) == "True") == value) return false;
  set(host.bfnL3Output(), flag, {Kiv::GenericValue::of(value)});
  return true;
}

// The identity of a part of the agent. Not held, since that would keep it alive after the agent has
// released it.
void const* partId(Switch const& host, std::string_view part) {
  return host.part(part).get();
}

Answer initTables(Switch& host, Arguments const& given) {
  constexpr char kManager[] = "overlaySrcMacRewriteManager";
  void const* const before = partId(host, kManager);
  std::string const value = given.text("true");
  if (!flagIs(host, "initMacRewriteTables", value == "true")) {
    return said("stage 1: not run, the flag is " + value + " already");
  }
  void const* const after = partId(host, kManager);
  if (after == nullptr) return said("stage 1: not run, there is no agent");
  std::string text = "stage 1: table manager ";
  text += before == nullptr ? "made" : before == after ? "kept" : "replaced";
  if (host.manualTables()) return said(text);
  unsigned const tables = host.initializeTables();
  if (before == after && tables == 0) return said(text);
  text += ", " + counted(tables, "table") + " initialised";
  if (auto const stats = dumpStats(host); !stats.is_null()) {
    text += ", capacity " + stats["capacity"].dump();
  }
  return said(text);
}

// What a reconciler has done with the rows, as a line of its own.
std::string rowsLine(Switch const& host, std::optional<Applied> const& applied) {
  if (applied) return "\nrows: " + text(*applied);
  auto const why = host.heldBecause();
  return why ? "\nrows: held as they are in the chip, " + *why : "";
}

constexpr char const* kMachines[] = {"bfnMacRewriteIntfRoutingStatusSm", "bfnMacRewriteSm",
                                     "overlaySrcMacRewriteCliConfigSm"};

std::vector<void const*> machineIds(Switch const& host) {
  std::vector<void const*> ids;
  for (char const* const machine : kMachines) ids.push_back(partId(host, machine));
  return ids;
}

std::string stage2Text(Switch const& host, std::vector<void const*> const& before) {
  size_t made = 0;
  size_t replaced = 0;
  for (size_t i = 0; i < before.size(); ++i) {
    if (partId(host, kMachines[i]) == before[i]) continue;
    ++(before[i] == nullptr ? made : replaced);
  }
  if (host.part("bfnMacRewriteSm") == nullptr) return "stage 2: not supported by the chip";
  if (made == before.size()) return "stage 2: state machines started";
  if (made + replaced == 0) return "stage 2: state machines kept";
  if (made == 0) return "stage 2: " + counted(replaced, "state machine") + " replaced";
  std::string text = "stage 2: " + counted(made, "state machine") + " made";
  if (replaced > 0) text += ", " + std::to_string(replaced) + " replaced";
  return text;
}

Answer start(Switch& host, Arguments const& given) {
  std::vector<void const*> const before = machineIds(host);
  std::string const value = given.text("true");
  bool changed = false;
  try {
    changed = flagIs(host, "startMacRewriteSm", value == "true");
  } catch (std::exception const& exception) {
    host.stage2Ended(exception.what());
    throw;
  }
  if (!changed) return said("stage 2: not run, the flag is " + value + " already");
  if (!host.hasAgent()) return said("stage 2: not run, there is no agent");
  std::string const text = stage2Text(host, before);
  auto const applied = host.stage2Ended(std::nullopt);
  return said(text + rowsLine(host, applied));
}

// --- Inputs as wholes

constexpr char kInputs[] =
    "l3-status|port-status|vlan-status|subinterface-status|route-status|cli-config|capability|"
    "agent-config|agent-status|system-status";

void putShared(Switch& host, std::string const& input, bool make) {
  auto const put = [&](std::string_view attribute, Object const& made) {
    set(host.l3Shared(), attribute, {Kiv::GenericValue(make ? made : Object())});
  };
  if (input == "l3-status") {
    put("l3Status", Kiv::makeActive<Pex::L3Status>());
  } else {
    std::string const which = input.substr(0, input.find('-'));
    put(routingStatusAttribute(which), Kiv::makeActive<BfnL3::L3RoutingStatus>());
  }
}

// The agent's own records are made by mounting.
void putAgentRecord(Switch& host, bool isConfig, bool make) {
  constexpr char kConfigDel[] = "bfnMacRewriteAgentConfigDel";
  constexpr char kStatusDel[] = "bfnMacRewriteAgentStatusDel";
  call(host.mount(), isConfig ? kConfigDel : kStatusDel);
  if (!make) return;
  // Mounting fills in everything; what the lab has replaced or taken away stays so.
  Object const cliConfig = getObject(host.mount(), "bfnMacRewriteCliConfig");
  Object const capability = host.capability();
  bool const withoutOther = isConfig ? !host.agentStatus() : !host.agentConfig();
  host.mountAgain();
  if (withoutOther) call(host.mount(), isConfig ? kStatusDel : kConfigDel);
  set(host.mount(), "bfnMacRewriteCliConfig", {Kiv::GenericValue(cliConfig)});
  set(host.mount(), "bfnMacRewriteCapability", {Kiv::GenericValue(capability)});
}

// A new, empty object in the input's place, or none.
Answer putInput(Switch& host, std::string const& input, bool make) {
  if (input == "route-status") {
    host.routeStatus = make ? Kiv::makeActive<Routing::Hardware::RouteStatus>() : nullptr;
  } else if (input == "system-status") {
    if (!make) throw InputError("the plug-in must be given a system-status");
    host.systemStatus = Kiv::makeActive<BfnSystem::SystemStatus>();
  } else if (input == "cli-config") {
    host.cliConfigIs(make ? makeByName("BfnMacRewrite::Input::Config") : Object());
  } else if (input == "capability") {
    set(host.mount(), "bfnMacRewriteCapability",
        {make ? Kiv::GenericValue(makeByName("BfnMacRewrite::Capability")) : Kiv::GenericValue()});
  } else if (input == "agent-config" || input == "agent-status") {
    putAgentRecord(host, input == "agent-config", make);
  } else {
    putShared(host, input, make);
  }
  return {};
}

// Removes the members, each with its notification.
Answer emptyInput(Switch& host, std::string const& input) {
  if (input == "l3-status") {
    delAll(l3Status(host), "vrfNameToId");
    delAll(l3Status(host), "vrfName");
  } else if (input == "route-status") {
    neededRoutes(host)->vrfStatusDelAll();
  } else if (input == "cli-config") {
    delAll(needed(host.cliConfig(), input), "overlaySrcMacRewriteEntry");
  } else if (input == "agent-config") {
    delAll(needed(host.agentConfig(), input), "overlaySrcMacRewrite");
  } else if (input == "agent-status") {
    delAll(agentStatus(host), "vrfStatus");
  } else if (input == "system-status") {
    host.systemStatus->profileInfoDelAll();
  } else if (input == "capability") {
    throw InputError("the capability has no members");
  } else {
    std::string const which = input.substr(0, input.find('-'));
    needed(host.routingStatus(which), input)->l3IntfRoutingStatusDelAll();
  }
  return {};
}

void addRecords(CommandGroup& group, Switch& host) {
  auto const add = [&](char const* form, char const* help, char const* example, auto handler) {
    group.commands.emplace_back(form, help, example, [&host, handler](Arguments const& given) {
      return handler(host, given);
    });
  };
  add("host vrf <VRF> [id <N>]", "the VRF has that id, 0 unless given", "host vrf red id 7", vrfIs);
  add("no host vrf <VRF> [id <N>]", "the VRF is gone; a given id must be its id", "no host vrf red",
      vrfDel);
  add("host vrf-id <N> name <VRF>", "the id has that name; the name's id stays as it is",
      "host vrf-id 7 name red", [](Switch& to, Arguments const& given) {
        l3Status(to)->vrfNameIs(vrfIdOf(given, "vrf-id"), L3::VrfName(given.text("name")));
        return Answer();
      });
  add("no host vrf-id <N>", "the id has no name", "no host vrf-id 7",
      [](Switch& to, Arguments const& given) {
        l3Status(to)->vrfNameDel(vrfIdOf(given, "vrf-id"));
        return Answer();
      });
  add("host vrf-name <VRF> id <N>", "the name has that id; the id's name stays as it is",
      "host vrf-name red id 7", [](Switch& to, Arguments const& given) {
        l3Status(to)->vrfNameToIdIs(L3::VrfName(given.text("vrf-name")), vrfIdOf(given, "id"));
        return Answer();
      });
  add("no host vrf-name <VRF>", "the name has no id", "no host vrf-name red",
      [](Switch& to, Arguments const& given) {
        l3Status(to)->vrfNameToIdDel(L3::VrfName(given.text("vrf-name")));
        return Answer();
      });
  add("host routing-status port|vlan|subinterface <INTF> key-vlan <N:65535> "
      "[vlan <N:65535> vrf-id <N>]",
      "a new routing status, in place of the old one",
      "host routing-status port Ethernet1 key-vlan 0 vlan 1006 vrf-id 7", routingStatusIs);
  add("no host routing-status port|vlan|subinterface <INTF> key-vlan <N:65535>",
      "that routing status is gone", "no host routing-status port Ethernet1 key-vlan 0",
      [](Switch& to, Arguments const& given) {
        routingStatus(to, given)->l3IntfRoutingStatusDel(keyOf(given));
        return Answer();
      });
  add("host update routing-status port|vlan|subinterface <INTF> key-vlan <N:65535> "
      "vlan <N:65535> vrf-id <N>",
      "the present routing status gets other numbers",
      "host update routing-status port Ethernet1 key-vlan 0 vlan 1007 vrf-id 7",
      routingStatusUpdate);
  add("host renotify routing-status port|vlan|subinterface <INTF> key-vlan <N:65535>",
      "a notification without a change", "host renotify routing-status port Ethernet1 key-vlan 0",
      [](Switch& to, Arguments const& given) {
        routingStatus(to, given)->l3IntfRoutingStatusRenotify(keyOf(given));
        return Answer();
      });
  add("host address <IP> vrf-id <N> [interface <INTF> [self]]",
      "the address lives on that interface, or on none; self: it is one of the switch's own",
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1", addressIs);
  add("no host address <IP> vrf-id <N>", "the address is gone", "no host address 10.0.0.1 vrf-id 7",
      addressDel);
  add("no host address vrf-id <N>", "the whole record of the VRF is gone",
      "no host address vrf-id 7", [](Switch& to, Arguments const& given) {
        del(agentStatus(to), "vrfStatus", Kiv::valueToStrep(vrfIdOf(given, "vrf-id")));
        return Answer();
      });
  add("host route vrf <VRF> [vrf-id <N> forwarding-vlan <N>]",
      "the hardware's status of the VRF, 0 and 0 unless given",
      "host route vrf red vrf-id 7 forwarding-vlan 200", routeIs);
  add("no host route vrf <VRF>", "the hardware has no status of the VRF", "no host route vrf red",
      [](Switch& to, Arguments const& given) {
        neededRoutes(to)->vrfStatusDel(L3::VrfName(given.text("vrf")));
        return Answer();
      });
}

void addBringUp(CommandGroup& group, Switch& host) {
  auto const add = [&](std::string const& form, char const* help, char const* example,
                       auto handler) {
    group.commands.emplace_back(form, help, example, [&host, handler](Arguments const& given) {
      return handler(host, given);
    });
  };
  add("host profile <NAME> rewrite supported|unsupported table-size <N:65535>",
      "a hardware profile and what the chip can do under it",
      "host profile vxlan-routing rewrite supported table-size 1000", profileIs);
  add("no host profile <NAME>", "the profile is gone; while it is the active one it stays in use",
      "no host profile vxlan-routing", profileDel);
  add("host use profile <NAME>", "that profile is the active one; it need not be there",
      "host use profile vxlan-routing", [](Switch& to, Arguments const& given) {
        to.profileIs(given.text("profile"));
        return Answer();
      });
  add("host init-tables true|false", "the flag that runs stage 1 when it changes",
      "host init-tables true", initTables);
  add("host start true|false", "the flag that runs stage 2 when it changes", "host start true",
      start);
  add("host agent create", "make the agent through the plug-in's factory", "host agent create",
      [](Switch& to, Arguments const&) { return agentCreate(to); });
  add("host agent destroy", "destroy it; its rows stay in the chip", "host agent destroy",
      [](Switch& to, Arguments const&) { return agentDestroy(to); });
  std::string const inputs = kInputs;
  auto const inputOf = [](Arguments const& given) { return given.text("l3-status"); };
  add("host replace " + inputs, "a new, empty object in that input's place",
      "host replace port-status",
      [inputOf](Switch& to, Arguments const& given) { return putInput(to, inputOf(given), true); });
  add("host clear " + inputs, "no object in that input's place", "host clear vlan-status",
      [inputOf](Switch& to, Arguments const& given) {
        return putInput(to, inputOf(given), false);
      });
  add("host empty " + inputs, "the input loses its members one by one", "host empty l3-status",
      [inputOf](Switch& to, Arguments const& given) { return emptyInput(to, inputOf(given)); });
}

}  // namespace

Pex::VrfId vrfIdOf(Arguments const& given, std::string_view key) {
  return Pex::VrfId(static_cast<U32>(given.number(key)));
}

std::string counted(size_t count, std::string const& what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

CommandGroup hostCommands(Switch& host) {
  CommandGroup group{"host agent", {}};
  addRecords(group, host);
  addBringUp(group, host);
  addInputCommands(group, host);
  return group;
}

}  // namespace Host
