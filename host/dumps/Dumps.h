// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <vector>

#include "chip/RowTable.h"
#include "framework/core/String.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfName.h"

namespace Host {

class Switch;
struct Finding;

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
/// The chip's rows by VLAN and address.
std::vector<BfnChip::Row> chipRows(Switch& host);
/// A row's VLAN and source IP, and its MAC, as all answers show them.
nlohmann::json rowKeyJson(BfnChip::KeyBytes const& key);
std::string macText(BfnChip::ActionBytes const& action);
/// Rows that the table takes.
size_t tableCapacity(Switch& host);
/// Packets that were looked up, and what became of the others where the table counts them.
nlohmann::json dumpCounters(Switch& host);
/// The reconciler: rows that are wanted, those that wait, and why the chip's rows are held. Needs
/// the reconciler.
nlohmann::json dumpReconciler(Switch& host);
/// Changes that a reconciler waits to make: rows in the order in which they get room, then failed
/// ones. Needs the reconciler.
nlohmann::json dumpWaiting(Switch& host);
/// How the chip's rows differ from what the reconciler wants.
nlohmann::json findingsJson(std::span<Finding const> findings);
/// Empties the journal.
nlohmann::json dumpJournal(Switch& host);
nlohmann::json dumpRecords(Switch const& host);
nlohmann::json dumpIndexes(Switch const& host);
nlohmann::json dumpConfig(Switch const& host);
nlohmann::json dumpInputs(Switch const& host);
nlohmann::json dumpCapability(Switch const& host);
nlohmann::json dumpStats(Switch const& host);
nlohmann::json dumpLog();
/// The routing status of all interfaces, merged by interface; null before stage 1.
nlohmann::json dumpRoutingStatus(Switch const& host);
/// The tables that are declared in the active profile's entry, and what the table manager waits
/// for.
nlohmann::json dumpTables(Switch const& host);
/// How many reactors are registered with each record that the plug-in is given or makes.
nlohmann::json dumpReactors(Switch const& host);
/// Live framework objects by type.
nlohmann::json dumpObjects();

}  // namespace Host
