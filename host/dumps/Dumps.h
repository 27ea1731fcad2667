#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "framework/core/String.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfName.h"

namespace Host {

class Switch;

/// One line of the operator's configuration.
struct ConfigLine {
  L3::VrfName vrfName;
  Ovra::IpAddr ip;
  Ovra::EthAddr mac;
};

/// Reads the string form of BfnMacRewrite::Input::VrfIpAndMac.
ConfigLine configLineOf(Kiv::String const& strep);
/// The operator's configuration by VRF name and address; empty when it has been taken away.
std::vector<ConfigLine> configLines(Switch const& host);

/// All dumps, each whole, with its keys sorted; lists are in the order of their keys unless the
/// order has a meaning. Null means that it does not exist.
nlohmann::json dumpChip(Switch& host);
/// Empties the journal.
nlohmann::json dumpJournal(Switch& host);
nlohmann::json dumpRecords(Switch const& host);
nlohmann::json dumpIndexes(Switch const& host);
nlohmann::json dumpConfig(Switch const& host);
nlohmann::json dumpInputs(Switch const& host);
nlohmann::json dumpCapability(Switch const& host);
nlohmann::json dumpStats(Switch const& host);
nlohmann::json dumpLog();
/// Live framework objects by type.
nlohmann::json dumpObjects();

}  // namespace Host
