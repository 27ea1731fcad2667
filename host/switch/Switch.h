// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "chip/ChipModel.h"
#include "chip/FaultingDriver.h"
#include "chip/JournalingDriver.h"
#include "framework/core/Clock.h"
#include "framework/corvo/Database.h"
#include "framework/corvo/Session.h"
#include "framework/l3/L3RoutingStatus.h"
#include "framework/l3/L3Status.h"
#include "framework/l3/RouteStatus.h"
#include "framework/platform/BfnProfileData.h"
#include "framework/platform/BfnTableMgr.h"
#include "framework/platform/SystemStatus.h"
#include "framework/values/IntfId.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfId.h"
#include "host/reconcile/Reconciler.h"
#include "host/switch/DetachableDriver.h"
#include "host/switch/Generic.h"
#include "host/switch/HardwareTable.h"
#include "host/switch/Plugin.h"

namespace Host {

/// What a switch keeps its rows in.
struct SwitchTable {
  /// None: the chip model.
  std::unique_ptr<HardwareTable> hardware;
  /// Whether a Reconciler is between the plug-in and the table.
  bool reconcile = false;
};

/// Everything that a switch has around the plug-in: the chip, the platform's records, the host
/// agent's records, the state database; and the agent once it has been made.
///
/// The records are there from the start, mounted and empty, so that a host may fill them before it
/// makes the agent. They outlive it. A null member means that the input is not there.
class Switch {
 public:
  explicit Switch(Plugin plugin, SwitchTable table = {});
  /// Without the plug-in, and so without its records, until pluginIs().
  Switch(Kiv::Ptr<Corvo::Database> database, SwitchTable table);
  Switch(Switch const&) = delete;
  Switch& operator=(Switch const&) = delete;
  ~Switch();

  bool hasPlugin() const { return plugin_.has_value(); }
  /// Call once, and nothing that needs the plug-in's records before that. They get the inputs that
  /// the switch has, and mount what the database has.
  void pluginIs(Plugin plugin);
  Plugin const& plugin() const { return *plugin_; }
  Corvo::Database& database() const { return *database_; }

  /// Everything is as after construction, with the same plug-in, and a table without rows. What
  /// refers to this object stays valid; what it held is gone.
  void reset() noexcept;

  // Bring-up.

  bool hasAgent() const { return agent_ != nullptr; }
  /// Null when there is none.
  Object const& agent() const { return agent_; }
  /// Makes the agent through the plug-in's factory, in place of an earlier one.
  void agentIs();
  /// A reconciler then holds what the chip has.
  void agentDel();
  /// The host's output to the plug-in: active profile, bring-up flags.
  Object bfnL3Output() const;
  /// Makes the profile the active one; its entry is null for an unknown name.
  void profileIs(std::string const& name);
  /// Has the platform initialise the tables that are due. Returns their number.
  unsigned initializeTables();
  /// Has the platform initialise one table, declared or not. Needs the manager.
  void initializeTable(std::string const& name);
  /// Whether tables are initialised only when that is asked for.
  bool manualTables() const { return manualTables_; }
  void manualTablesIs(bool manual) { manualTables_ = manual; }

  // The table.

  /// What the plug-in writes to, and what is shown of the table is read from.
  BfnDriver::TableDriver& table();
  /// Null when the rows are in the chip model.
  HardwareTable* hardware() { return hardware_.get(); }
  HardwareTable const* hardware() const { return hardware_.get(); }
  /// Null when there is none.
  Reconciler* reconciler() { return reconciler_ ? &*reconciler_ : nullptr; }
  Reconciler const* reconciler() const { return reconciler_ ? &*reconciler_ : nullptr; }
  /// Writes and erases that reached the chip, whichever it is, those included that failed as
  /// planned.
  BfnChip::Journal& journal() { return recorder_.journal(); }
  BfnChip::Journal const& journal() const { return recorder_.journal(); }
  /// When a row of the chip was last written, by the clock; nothing when that is not known.
  std::optional<double> lastWrite(BfnChip::KeyBytes const& key) const {
    return recorder_.lastWrite(key);
  }
  /// Makes the chip, whichever it is, scarce and unreliable.
  BfnChip::FaultingDriver& faults() { return faults_; }
  /// Rows that the table takes: the chip model any number, another table at most its own.
  void capacityIs(size_t rows);
  /// After stage 2 has run, with the text of the exception that has left it, if one has. A
  /// reconciler then brings the chip to the rows that are wanted, and what it did is returned.
  /// While the bring-up is not whole, so that they may be too few, the chip keeps the rows that it
  /// has; a log message says why.
  std::optional<Applied> stage2Ended(std::optional<std::string> const& exception);
  /// The rows in memory, for a copy of the process to go on with; null when they are in the chip
  /// model, which is in memory already. Throws std::runtime_error when the chip cannot be read.
  std::unique_ptr<BfnChip::ChipModel> tableCopy() const;
  /// In a copy of the process, with what tableCopy() gave before: nothing outside of the process is
  /// reached from here on, neither the table nor its devices.
  void detach(std::unique_ptr<BfnChip::ChipModel> copy);
  /// Why the chip's rows are held; nothing when they are not.
  std::optional<std::string> heldBecause() const;
  /// Ends a turn of the event loop: what waits for that goes to the chip, and so do the wanted rows
  /// when the bring-up has become whole.
  void turnEnds();

  // The agent's parts; null before their stage.

  Object part(std::string_view attribute) const;
  /// The table manager as the platform sees it; null before stage 1.
  Kiv::Ptr<BfnAgentLib::BfnTableMgr> tableManager() const;

  // Records that the plug-in defines, known by name only.

  Object const& mount() const { return mount_; }
  Object const& l3Shared() const { return l3Shared_; }
  /// The operator's configuration, where it is written: the state database's own object, of which
  /// the plug-in has mounted a replica for reading. Null when taken away.
  Object const& cliConfig() const { return cliConfig_; }
  /// Gives the plug-in another configuration, or none, in place of what it has mounted.
  void cliConfigIs(Object const& config);
  /// Takes the configuration that is in the database, or makes it there.
  void cliConfigIsDatabases();
  Object capability() const { return getObject(mount_, "bfnMacRewriteCapability"); }
  Object agentConfig() const { return getObject(mount_, "bfnMacRewriteAgentConfig"); }
  Object agentStatus() const { return getObject(mount_, "bfnMacRewriteAgentStatus"); }
  /// Mounts again what is missing.
  void mountAgain();

  /// Without a row when the rows are in hardware(). Its own journal is off.
  BfnChip::ChipModel chip;
  /// The lab's time: it advances by command only.
  Kiv::Ptr<Kiv::ManualClock> clock;
  Kiv::Ptr<BfnSystem::SystemStatus> systemStatus;
  Kiv::Ptr<BfnAgentLib::BfnProfileData> profileData;
  Kiv::Ptr<Routing::Hardware::RouteStatus> routeStatus;

  /// The inputs in the shared object. Null when taken away.
  Kiv::Ptr<Pex::L3Status> l3Status() const;
  /// `which`: "port", "vlan" or "subinterface".
  Kiv::Ptr<BfnL3::L3RoutingStatus> routingStatus(std::string_view which) const;

 private:
  BfnDriver::TableDriver& chipDriver();
  /// What the agent lacks of the machines and inputs that it has after a whole stage 2.
  std::optional<std::string> agentLacks() const;
  /// Why the bring-up is not whole; nothing when it is.
  std::optional<std::string> bringUpLacks() const;
  std::optional<Applied> commitWhenWhole();

  std::optional<Plugin> plugin_;
  std::unique_ptr<HardwareTable> hardware_;
  /// In front of hardware_, where there is one.
  std::optional<DetachableDriver> detachable_;
  BfnChip::FaultingDriver faults_;
  BfnChip::JournalingDriver recorder_;
  std::optional<Reconciler> reconciler_;
  Kiv::Ptr<Corvo::Database> database_;
  Kiv::Ptr<Corvo::Session> session_;
  Object cliConfig_;
  Object mount_;
  Object l3Shared_;
  Object agent_;
  bool manualTables_ = false;
  bool agentHasRoutes_ = false;
  /// Why stage 2 does not count as whole; nothing when it does.
  std::optional<std::string> stage2Lacks_;
  /// Why the chip could not be brought to the wanted rows, when that was tried.
  std::string commitFailed_;
};

/// The attribute of the shared object that holds one kind of routing status.
std::string_view routingStatusAttribute(std::string_view which);

}  // namespace Host
