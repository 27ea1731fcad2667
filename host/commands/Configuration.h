// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/String.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfName.h"

namespace Host {

class Switch;

/// The operator's lines: the MAC of each VRF and address.
using ConfigurationKey = std::pair<L3::VrfName, Ovra::IpAddr>;
using Configuration = std::map<ConfigurationKey, Ovra::EthAddr>;

/// One of the operator's lines, as it is typed.
struct OperatorLine {
  ConfigurationKey key;
  /// Of a removal: the MAC that has to be configured, if one is given.
  std::optional<Ovra::EthAddr> mac;
  bool removal = false;
};

/// Whether the words, which are a command, are a line of the operator's.
bool isOperatorLine(std::span<std::string const> words);
/// Of words of which isOperatorLine() is true.
OperatorLine operatorLineOf(std::span<std::string const> words);
/// Why the line cannot be carried out over a configuration, of which `mac` is what it has for the
/// line's key; empty when it can.
std::string refusal(OperatorLine const& line, std::optional<Ovra::EthAddr> mac);
/// The same, and carries it out where it can be.
std::string applyLine(OperatorLine const& line, Configuration& to);
/// The configured line as it is typed.
std::string textOf(ConfigurationKey const& key, Ovra::EthAddr mac);

/// A configured line as the configuration's record has it: the key, and the value.
Kiv::String keyForm(ConfigurationKey const& key);
Kiv::String valueForm(ConfigurationKey const& key, Ovra::EthAddr mac);

/// Empty when the configuration has been taken away.
Configuration configurationOf(Switch const& host);
/// The MAC of one line. Throws InputError when the configuration has been taken away.
std::optional<Ovra::EthAddr> configuredMac(Switch const& host, ConfigurationKey const& key);
/// Adds the line, or changes its MAC. Throws InputError when the configuration has been taken away,
/// as the next one.
void configurationLineIs(Switch& host, ConfigurationKey const& key, Ovra::EthAddr mac);
void configurationLineDel(Switch& host, ConfigurationKey const& key);

/// One line by which a configuration differs from another one.
struct ConfigurationChange {
  ConfigurationKey key;
  /// None: the line is new.
  std::optional<Ovra::EthAddr> before;
  /// None: the line goes.
  std::optional<Ovra::EthAddr> after;
};
/// Removals, then changes, then additions, each by VRF and address: what goes makes room.
std::vector<ConfigurationChange> differences(Configuration const& from, Configuration const& to);

}  // namespace Host
