// SPDX-License-Identifier: Apache-2.0
#include "host/commands/Configuration.h"

#include <algorithm>
#include <sstream>

#include "framework/core/Strep.h"
#include "host/dumps/Dumps.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/language/Values.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

constexpr char kEntry[] = "overlaySrcMacRewriteEntry";

Object const& configOf(Switch const& host) {
  if (!host.cliConfig()) {
    throw InputError("there is no cli-config; host replace cli-config makes one");
  }
  return host.cliConfig();
}

}  // namespace

bool isOperatorLine(std::span<std::string const> words) {
  if (words.empty()) return false;
  return words[0] == "vxlan" || (words[0] == "no" && words.size() > 1 && words[1] == "vxlan");
}

OperatorLine operatorLineOf(std::span<std::string const> words) {
  OperatorLine line;
  line.removal = words[0] == "no";
  if (line.removal) words = words.subspan(1);
  line.key = {L3::VrfName(words[4]), ipAddrOf(words[6]).value()};
  if (words.size() > 7) line.mac = ethAddrOf(words[10]).value();
  return line;
}

std::string refusal(OperatorLine const& line, std::optional<Ovra::EthAddr> mac) {
  if (!line.removal || !line.mac || !mac || *line.mac == *mac) return "";
  return "expected the MAC address that is configured, " + Kiv::valueToStrep(*mac).stdString();
}

std::string applyLine(OperatorLine const& line, Configuration& to) {
  auto const found = to.find(line.key);
  std::optional<Ovra::EthAddr> mac;
  if (found != to.end()) mac = found->second;
  if (auto why = refusal(line, mac); !why.empty()) return why;
  if (!line.removal) {
    to[line.key] = line.mac.value();
  } else if (found != to.end()) {
    to.erase(found);
  }
  return "";
}

std::string textOf(ConfigurationKey const& key, Ovra::EthAddr mac) {
  std::ostringstream out;
  out << "vxlan forwarding match vrf " << quotedWord(key.first.view()) << " src-ip " << key.second
      << " action rewrite src-mac " << mac;
  return out.str();
}

Configuration configurationOf(Switch const& host) {
  Configuration all;
  for (ConfigLine const& line : configLines(host)) all[{line.vrfName, line.ip}] = line.mac;
  return all;
}

Kiv::String keyForm(ConfigurationKey const& key) {
  return Kiv::StrepWriter("BfnMacRewrite::Input::VrfNameAndIp")
      .field("vrfName", key.first)
      .field("ip", key.second)
      .close();
}

Kiv::String valueForm(ConfigurationKey const& key, Ovra::EthAddr mac) {
  return Kiv::StrepWriter("BfnMacRewrite::Input::VrfIpAndMac")
      .field("vrfName", key.first)
      .field("ip", key.second)
      .field("mac", mac)
      .close();
}

std::optional<Ovra::EthAddr> configuredMac(Switch const& host, ConfigurationKey const& key) {
  Kiv::GenericValue const line = get(configOf(host), kEntry, {keyForm(key)});
  if (line.isNothing()) return std::nullopt;
  return configLineOf(line.strep()).mac;
}

void configurationLineIs(Switch& host, ConfigurationKey const& key, Ovra::EthAddr mac) {
  set(configOf(host), kEntry, {valueForm(key, mac)});
}

void configurationLineDel(Switch& host, ConfigurationKey const& key) {
  del(configOf(host), kEntry, keyForm(key));
}

std::vector<ConfigurationChange> differences(Configuration const& from, Configuration const& to) {
  std::vector<ConfigurationChange> all;
  for (auto const& [key, mac] : from) {
    if (!to.contains(key)) all.push_back({key, mac, std::nullopt});
  }
  for (auto const& [key, mac] : to) {
    auto const before = from.find(key);
    if (before != from.end() && before->second != mac) all.push_back({key, before->second, mac});
  }
  for (auto const& [key, mac] : to) {
    if (!from.contains(key)) all.push_back({key, std::nullopt, mac});
  }
  return all;
}

}  // namespace Host
