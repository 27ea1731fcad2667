// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <string_view>

#include "agent/records/BfnMacRewriteInput.h"
#include "framework/core/Strep.h"
#include "framework/generic/Type.h"
#include "host/commands/Commands.h"
#include "host/language/InputError.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

using Kiv::U16;
using Kiv::U32;

Pex::VrfId vrfIdOf(Arguments const& given) {
  return Pex::VrfId(static_cast<U32>(given.number("vrf-id")));
}

Object present(Object object, char const* what) {
  if (!object) throw InputError(std::string("there is no ") + what);
  return object;
}

/// Notifies of an attribute, whose name is that of the generic interface, without a change.
void renotify(Object const& object, std::string_view attribute, void const* key = nullptr) {
  auto const* const description = object->fwkType().attribute(attribute);
  if (description == nullptr) {
    throw InputError("the plug-in has no attribute " + std::string(attribute));
  }
  object->notify(description->id, key);
}

// The member of a collection under its key.
Object member(Object const& object, std::string_view attribute, Kiv::GenericValue const& key,
              char const* what) {
  return present(getObject(object, attribute, {key}), what);
}

/// Puts another object, which is made from its key and then filled, in the place of the one under
/// the key, or where none is.
template <class Fill>
void another(Object const& owner, std::string_view attribute, Kiv::GenericValue const& key,
             Fill const& fill) {
  auto const* const description = owner->fwkType().attribute(attribute);
  Object const made = description->makeMember(key);
  fill(made);
  description->replication.memberIs(*owner, made);
}
void another(Object const& owner, std::string_view attribute, Kiv::GenericValue const& key) {
  another(owner, attribute, key, [](Object const&) {});
}

// --- Notifications without a change

Object l3StatusObject(Switch const& host) {
  return present(host.l3Status(), "l3-status");
}
Object agentStatusObject(Switch const& host) {
  return present(host.agentStatus(), "agent-status");
}
Object agentConfigObject(Switch const& host) {
  return present(host.agentConfig(), "agent-config");
}
Object routeObject(Switch const& host) {
  return present(host.routeStatus, "route-status");
}

Answer renotifyLine(Switch& host, Arguments const& given) {
  // The plug-in watches what it has mounted, which is not the object that the operator writes.
  Object const mounted = present(getObject(host.mount(), "bfnMacRewriteCliConfig"), "cli-config");
  BfnMacRewrite::Input::VrfNameAndIp const key(L3::VrfName(given.text("vrf")), given.ip("src-ip"));
  renotify(mounted, "overlaySrcMacRewriteEntry", &key);
  return {};
}

Answer renotifyRoutingStatus(Switch& host, Arguments const& given) {
  auto const all = host.routingStatus(given.text("port"));
  present(all, "such input");
  Pex::PortVlanPair const key(Ovra::IntfId(given.text("<INTF>")),
                              static_cast<U16>(given.number("key-vlan")));
  Object const status(all->l3IntfRoutingStatus(key));
  renotify(present(status, "such routing status"),
           given.text("attribute") == "vlan" ? "vlanId" : "vrfId");
  return {};
}

Answer renotifyRoute(Switch& host, Arguments const& given) {
  L3::VrfName const name(given.text("vrf"));
  if (!given.has("attribute")) {
    renotify(routeObject(host), "vrfStatus", &name);
    return {};
  }
  Object const status = member(routeObject(host), "vrfStatus", Kiv::valueToStrep(name), "such VRF");
  renotify(status, given.text("attribute") == "vrf-id" ? "vrfId" : "fwdVlanId");
  return {};
}

Answer renotifyAddress(Switch& host, Arguments const& given) {
  Object const addresses = member(agentStatusObject(host), "vrfStatus",
                                  Kiv::valueToStrep(vrfIdOf(given)), "such record");
  Ovra::IpAddr const ip = given.ip("address");
  renotify(addresses, "ipAndIntfId", &ip);
  return {};
}

Answer renotifyMac(Switch& host, Arguments const& given) {
  Object const macs = member(agentConfigObject(host), "overlaySrcMacRewrite",
                             Kiv::valueToStrep(vrfIdOf(given)), "such record");
  Ovra::IpAddr const ip = given.ip("mac");
  renotify(macs, "ipAndMac", &ip);
  return {};
}

Answer renotifyFlag(Switch& host, Arguments const& given) {
  std::string const which = given.text("init-tables");
  renotify(host.bfnL3Output(), which == "init-tables"    ? "initMacRewriteTables"
                               : which == "start"        ? "startMacRewriteSm"
                               : which == "profile-name" ? "profileName"
                                                         : "profileEntry");
  return {};
}

template <class Add>
void addNotifications(Add const& add) {
  add("host renotify routing-status port|vlan|subinterface <INTF> key-vlan <N:65535> attribute "
      "vlan|vrf-id",
      "the same of a number of that routing status",
      "host renotify routing-status port Ethernet1 key-vlan 0 attribute vlan",
      renotifyRoutingStatus);
  add("host renotify vrf-name <VRF>", "a notification of the name's id without a change",
      "host renotify vrf-name red", [](Switch& of, Arguments const& given) {
        L3::VrfName const name(given.text("vrf-name"));
        renotify(l3StatusObject(of), "vrfNameToId", &name);
        return Answer();
      });
  add("host renotify vrf-id <N>", "the same of the id's name", "host renotify vrf-id 7",
      [](Switch& of, Arguments const& given) {
        Pex::VrfId const id = vrfIdOf(given);
        renotify(l3StatusObject(of), "vrfName", &id);
        return Answer();
      });
  add("host renotify address <IP> vrf-id <N>", "the same of an address",
      "host renotify address 10.0.0.1 vrf-id 7", renotifyAddress);
  add("host renotify addresses vrf-id <N>", "the same of the whole record of a VRF's addresses",
      "host renotify addresses vrf-id 7", [](Switch& of, Arguments const& given) {
        Pex::VrfId const id = vrfIdOf(given);
        renotify(agentStatusObject(of), "vrfStatus", &id);
        return Answer();
      });
  add("host renotify mac <IP> vrf-id <N>", "the same of a translated line",
      "host renotify mac 10.0.0.1 vrf-id 7", renotifyMac);
  add("host renotify macs vrf-id <N>", "the same of the whole record of a VRF's lines",
      "host renotify macs vrf-id 7", [](Switch& of, Arguments const& given) {
        Pex::VrfId const id = vrfIdOf(given);
        renotify(agentConfigObject(of), "overlaySrcMacRewrite", &id);
        return Answer();
      });
  add("host renotify line vrf <VRF> src-ip <IP>", "the same of one of the operator's lines",
      "host renotify line vrf red src-ip 10.0.0.1", renotifyLine);
  add("host renotify route vrf <VRF> [attribute vrf-id|forwarding-vlan]",
      "the same of the hardware's status of a VRF, or of a number of it",
      "host renotify route vrf red attribute forwarding-vlan", renotifyRoute);
  add("host renotify profile <NAME>", "the same of what the chip can do under a profile",
      "host renotify profile vxlan-routing", [](Switch& of, Arguments const& given) {
        Kiv::String const name(given.text("profile"));
        renotify(of.systemStatus, "profileInfo", &name);
        return Answer();
      });
  add("host renotify capability", "the same of the capability", "host renotify capability",
      [](Switch& of, Arguments const&) {
        renotify(present(of.capability(), "capability"), "overlaySrcMacRewriteSupported");
        return Answer();
      });
  add("host renotify init-tables|start|profile-name|profile-entry",
      "the same of a flag, or of the active profile; a flag runs its stage", "host renotify start",
      renotifyFlag);
}

// --- Another object under the same key

Answer anotherRoute(Switch& host, Arguments const& given) {
  L3::VrfName const name(given.text("vrf"));
  another(routeObject(host), "vrfStatus", Kiv::valueToStrep(name), [&](Object const& made) {
    auto const status = Kiv::ptrCast<Routing::Hardware::VrfStatus>(made);
    status->vrfIdIs(static_cast<U32>(given.number("vrf-id")));
    status->fwdVlanIdIs(static_cast<U32>(given.number("forwarding-vlan")));
  });
  return {};
}

template <class Add>
void addOthers(Add const& add) {
  add("host another route vrf <VRF> [vrf-id <N> forwarding-vlan <N>]",
      "another status of the VRF in the place of the present one",
      "host another route vrf red vrf-id 7 forwarding-vlan 200", anotherRoute);
  add("host another addresses vrf-id <N>",
      "another record of the VRF's addresses, empty, in the place of the present one",
      "host another addresses vrf-id 7", [](Switch& of, Arguments const& given) {
        another(agentStatusObject(of), "vrfStatus", Kiv::valueToStrep(vrfIdOf(given)));
        return Answer();
      });
  add("host another macs vrf-id <N>",
      "another record of the VRF's translated lines, empty, in the place of the present one",
      "host another macs vrf-id 7", [](Switch& of, Arguments const& given) {
        another(agentConfigObject(of), "overlaySrcMacRewrite", Kiv::valueToStrep(vrfIdOf(given)));
        return Answer();
      });
  add("host another profile <NAME>",
      "another entry of the profile, without tables, in the place of the present one; the active "
      "profile is not changed",
      "host another profile vxlan-routing", [](Switch& of, Arguments const& given) {
        std::string const name = given.text("profile");
        if (of.profileData->profileDataEntryDel(name) == nullptr) {
          throw InputError("there is no such profile");
        }
        of.profileData->profileDataEntryIs(name);
        return Answer();
      });
}

// --- The active profile in its two parts

template <class Add>
void addProfile(Add const& add) {
  add("host use profile-name <NAME>", "the active profile has that name; its entry stays",
      "host use profile-name vxlan-routing", [](Switch& of, Arguments const& given) {
        set(of.bfnL3Output(), "profileName", {Kiv::String(given.text("profile-name"))});
        return Answer();
      });
  add("host use profile-entry <NAME>", "the active profile has that entry; its name stays",
      "host use profile-entry vxlan-routing", [](Switch& of, Arguments const& given) {
        Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> const entry(
            of.profileData->profileDataEntry(given.text("profile-entry")));
        if (!entry) throw InputError("there is no such profile");
        set(of.bfnL3Output(), "profileEntry", {entry});
        return Answer();
      });
  add("host clear profile-entry", "the active profile has no entry; its name stays",
      "host clear profile-entry", [](Switch& of, Arguments const&) {
        Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> const none;
        set(of.bfnL3Output(), "profileEntry", {none});
        return Answer();
      });
}

}  // namespace

void addInputCommands(CommandGroup& group, Switch& host) {
  auto const add = [&](char const* form, char const* help, char const* example, auto handler) {
    group.commands.emplace_back(form, help, example, [&host, handler](Arguments const& given) {
      return handler(host, given);
    });
  };
  addNotifications(add);
  addOthers(add);
  addProfile(add);
}

}  // namespace Host
