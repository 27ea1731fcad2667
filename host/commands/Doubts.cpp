// SPDX-License-Identifier: Apache-2.0
#include "host/commands/Doubts.h"

#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "framework/core/Strep.h"
#include "host/commands/Configuration.h"
#include "host/dumps/Dumps.h"
#include "host/language/Lexer.h"
#include "host/language/Nearest.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

using Doubts = std::vector<Doubt>;
using Word = std::optional<size_t>;
using Names = std::vector<std::string>;

template <class T>
std::string valueText(T const& value) {
  return Kiv::valueToStrep(value).stdString();
}

// With what may have been meant.
std::string withNearest(std::string const& doubt, std::string const& typed, Names const& known) {
  auto const nearest = nearestName(typed, known);
  return nearest ? doubt + "; did you mean " + typedWord(*nearest) + "?" : doubt;
}

// --- Addresses

struct Network {
  Kiv::U32 first;
  unsigned bits;
  char const* what;
};
// Ranges that no host has an address in.
constexpr Network kNoHosts[] = {
    {0x00000000, 8, "0.0.0.0/8, which means this network"},
    {0x7f000000, 8, "127.0.0.0/8, which is for loopback"},
    {0xe0000000, 4, "224.0.0.0/4, which is for multicast"},
    {0xf0000000, 4, "240.0.0.0/4, which is reserved"},
};

void judgeIp(Ovra::IpAddr ip, Word word, Doubts& doubts) {
  constexpr Kiv::U32 kBroadcast = 0xffffffff;
  if (ip.value() == kBroadcast) {
    doubts.push_back(
        {"no host can have the address 255.255.255.255, which is for broadcast", word});
    return;
  }
  for (auto const& [first, bits, what] : kNoHosts) {
    if ((ip.value() ^ first) >> (32 - bits) != 0) continue;
    doubts.push_back({"no host can have the address " + valueText(ip) + " of " + what, word});
  }
}

void judgeMac(Ovra::EthAddr mac, Word word, Doubts& doubts) {
  constexpr Kiv::U64 kBroadcast = 0xffff'ffff'ffff;
  constexpr unsigned kGroupBit = 40;
  if (mac == Ovra::EthAddr()) {
    doubts.push_back({"the all-zero MAC is none: packets keep their own", word});
  } else if (mac.value() == kBroadcast) {
    doubts.push_back({"no packet comes from the broadcast MAC", word});
  } else if ((mac.value() >> kGroupBit & 1) != 0) {
    Kiv::U64 const single = mac.value() & ~(Kiv::U64{1} << kGroupBit);
    std::array<Kiv::U8, 6> bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<Kiv::U8>(single >> (40 - 8 * i) & 0xff);
    }
    doubts.push_back({"no packet comes from the multicast MAC " + valueText(mac) +
                          "; did you mean " + valueText(Ovra::EthAddr(bytes)) + "?",
                      word});
  }
}

// --- VRFs

bool isKnownVrf(Switch const& host, L3::VrfName const& name) {
  auto const status = host.l3Status();
  if (status && status->vrfNameToId(name) != nullptr) return true;
  return host.routeStatus && host.routeStatus->vrfStatus(name) != nullptr;
}

Names knownVrfs(Switch const& host) {
  Names names;
  if (auto const status = host.l3Status()) {
    for (auto const& entry : status->vrfNameToId()) names.push_back(entry.key.stdString());
  }
  if (host.routeStatus) {
    for (auto const& vrf : host.routeStatus->vrfStatus()) {
      names.push_back(vrf->vrfName().stdString());
    }
  }
  std::ranges::sort(names);
  return names;
}

void judgeVrf(Switch const& host, std::string const& name, Word word, Doubts& doubts) {
  if (isKnownVrf(host, L3::VrfName(name))) return;
  doubts.push_back(
      {withNearest("the host knows no VRF " + typedWord(name), name, knownVrfs(host)), word});
}

// --- Lines

Doubts ofLine(Switch const& host, Arguments const& given) {
  Doubts doubts;
  judgeVrf(host, given.text("vrf"), given.wordOf("vrf"), doubts);
  judgeIp(given.ip("src-ip"), given.wordOf("src-ip"), doubts);
  judgeMac(given.mac("src-mac"), given.wordOf("src-mac"), doubts);
  return doubts;
}

Doubts ofLineRemoval(Switch const& host, Arguments const& given) {
  auto const line = operatorLineOf(given.words);
  if (!host.cliConfig() || configuredMac(host, line.key)) return {};
  auto const text = [](L3::VrfName const& vrf, Ovra::IpAddr ip) {
    return "vrf " + typedWord(vrf.view()) + " src-ip " + valueText(ip);
  };
  std::string const typed = text(line.key.first, line.key.second);
  Names known;
  for (ConfigLine const& each : configLines(host)) known.push_back(text(each.vrfName, each.ip));
  auto const nearest = nearestName(typed, known);
  std::string const doubt = "there is no line for " + typed;
  return {{nearest ? doubt + "; did you mean " + *nearest + "?" : doubt, given.wordOf("vrf")}};
}

Doubts ofFilter(Switch const& host, Arguments const& given) {
  if (!given.has("vrf")) return {};
  std::string const name = given.text("vrf");
  Names known = knownVrfs(host);
  for (ConfigLine const& each : configLines(host)) {
    if (each.vrfName.view() == name) return {};
    known.push_back(each.vrfName.stdString());
  }
  Doubts doubts;
  if (!isKnownVrf(host, L3::VrfName(name))) {
    doubts.push_back(
        {withNearest("there is no VRF " + typedWord(name), name, known), given.wordOf("vrf")});
  }
  return doubts;
}

// `known`: what the value of that key could be.
Doubts ofRemoval(std::string const& what, Arguments const& given, std::string_view key,
                 Names const& known) {
  std::string const typed = given.text(key);
  if (std::ranges::find(known, typed) != known.end()) return {};
  return {{withNearest("there is no " + what + ' ' + typedWord(typed), typed, known),
           given.wordOf(key)}};
}

Doubts ofVrfRemoval(Switch const& host, Arguments const& given, char const* key) {
  auto const status = host.l3Status();
  if (!status || status->vrfNameToId(L3::VrfName(given.text(key))) != nullptr) return {};
  Names known;
  for (auto const& entry : status->vrfNameToId()) known.push_back(entry.key.stdString());
  return ofRemoval("VRF", given, key, known);
}

Doubts ofVrfIdRemoval(Switch const& host, Arguments const& given) {
  auto const status = host.l3Status();
  if (!status) return {};
  Names known;
  for (auto const& entry : status->vrfName()) known.push_back(valueText(entry.key));
  return ofRemoval("VRF id", given, "vrf-id", known);
}

Doubts ofRoutingStatusRemoval(Switch const& host, Arguments const& given) {
  auto const status = host.routingStatus(given.text("port"));
  if (!status) return {};
  Pex::PortVlanPair const key(Ovra::IntfId(given.text("<INTF>")),
                              static_cast<Kiv::U16>(given.number("key-vlan")));
  if (status->l3IntfRoutingStatus(key) != nullptr) return {};
  Names known;
  for (auto const& each : status->l3IntfRoutingStatus()) {
    known.push_back(each->intfAndVlan().intfId().stdString());
  }
  std::string const typed = given.text("<INTF>");
  return {{withNearest("there is no such routing status", typed, known), given.wordOf("<INTF>")}};
}

Object addressesOf(Switch const& host, Arguments const& given) {
  if (!host.agentStatus()) return nullptr;
  Pex::VrfId const id(static_cast<Kiv::U32>(given.number("vrf-id")));
  return getObject(host.agentStatus(), "vrfStatus", {Kiv::valueToStrep(id)});
}

Doubts ofAddressRemoval(Switch const& host, Arguments const& given) {
  Object const addresses = addressesOf(host, given);
  if (!addresses) {
    return {{"there is no address in VRF id " + given.text("vrf-id"), given.wordOf("vrf-id")}};
  }
  if (!given.has("address") || given.text("address") == "address") return {};
  if (!get(addresses, "ipAndIntfId", {Kiv::valueToStrep(given.ip("address"))}).isNothing()) {
    return {};
  }
  Names known;
  forEach(addresses, "ipAndIntfId", [&](Kiv::GenericValue const& ip, Kiv::GenericValue const&) {
    known.push_back(ip.strep().stdString());
  });
  return ofRemoval("address", given, "address", known);
}

Doubts ofRouteRemoval(Switch const& host, Arguments const& given) {
  if (!host.routeStatus) return {};
  Names known;
  for (auto const& vrf : host.routeStatus->vrfStatus()) {
    known.push_back(vrf->vrfName().stdString());
  }
  return ofRemoval("status of VRF", given, "vrf", known);
}

Doubts ofProfile(Switch const& host, Arguments const& given) {
  Names known;
  for (auto const& profile : host.systemStatus->profileInfo()) {
    known.push_back(profile->profileName().stdString());
  }
  return ofRemoval("profile", given, "profile", known);
}

using Judge = Doubts (*)(Switch const&, Arguments const&);

// By the beginning of the command's form.
std::vector<std::pair<std::string_view, Judge>> const& judges() {
  static std::vector<std::pair<std::string_view, Judge>> const all = {
      {"vxlan forwarding match", ofLine},
      {"no vxlan forwarding match", ofLineRemoval},
      {"show vxlan forwarding src-mac rewrite", ofFilter},
      {"no host vrf <VRF>",
       [](Switch const& host, Arguments const& given) { return ofVrfRemoval(host, given, "vrf"); }},
      {"no host vrf-name <VRF>",
       [](Switch const& host, Arguments const& given) {
         return ofVrfRemoval(host, given, "vrf-name");
       }},
      {"no host vrf-id <N>", ofVrfIdRemoval},
      {"no host routing-status", ofRoutingStatusRemoval},
      {"no host address", ofAddressRemoval},
      {"no host route vrf", ofRouteRemoval},
      {"host use profile <NAME>", ofProfile},
  };
  return all;
}

}  // namespace

void addDoubts(CommandGroup& group, Switch const& host) {
  for (Command& command : group.commands) {
    for (auto const& [form, judge] : judges()) {
      if (!command.pattern.text().starts_with(form)) continue;
      command.doubts = [&host, judge = judge](Arguments const& given) {
        return judge(host, given);
      };
    }
  }
}

}  // namespace Host
