// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/model/Event.h"
#include "tests/model/Universe.h"

namespace BfnTest {

// Everything below is plain values: a copy of a State is a state to go back to. Objects that the
// plug-in compares by identity are numbers: an index where there is a fixed set, else a serial.

struct L3State {
  Table<std::int8_t, kNames> nameToId;
  Table<std::int8_t, kIds> idToName;
};

/// One interface's routing status; serial 0: none.
struct IntfStatus {
  std::uint32_t serial = 0;
  std::uint16_t vlan = 0;
  std::uint8_t vrf = 0;
};
using RoutingState = Table<Table<IntfStatus, kKeyVlans>, kIntfs>;

/// One VRF of the hardware route status; serial 0: none.
struct RouteState {
  std::uint32_t serial = 0;
  std::uint8_t id = 0;
  std::uint32_t vlan = 0;
};

using CliState = Table<Table<std::int8_t, kIps>, kNames>;  // MAC or kNone

struct ConfigState {
  Table<bool, kIds> present;
  Table<Table<std::int8_t, kIps>, kIds> mac;  // MAC or kNone
};

struct AddressState {
  bool present = false;
  std::uint8_t intf = 0;
  bool self = false;

  friend bool operator==(AddressState const&, AddressState const&) = default;
};
struct StatusState {
  Table<bool, kIds> present;
  Table<Table<AddressState, kIps>, kIds> at;
};

struct RecordState {
  bool present = false;
  std::uint16_t vlan = 0;
  std::uint16_t refs = 0;
};
struct ManagerState {
  std::int8_t entry = kNone;
  std::int8_t l3 = kNone;
  bool hasTable = false;
  std::uint8_t pending = 0;
  Table<Table<RecordState, kIps>, kIntfs> record;
};

struct IntfMachine {
  bool exists = false;
  Table<std::int8_t, 3> source;  // ports, VLANs, sub-interfaces
};
/// A reactor on one VRF of the route status; it is not notified while it is bound to another one.
struct RouteReactor {
  bool exists = false;
  bool hears = false;
};
struct RewriteMachine {
  bool exists = false;
  bool initialized = false;
  std::int8_t status = kNone, config = kNone, manager = kNone, l3 = kNone;
  Table<Table<std::uint8_t, kIps>, kIds> intfOf;  // 0: not indexed
  Table<std::int64_t, kIds> fwdVlan;              // kNone: no entry
  Table<bool, kIds> configReactor;
  Table<bool, kIds> statusReactor;
  Table<RouteReactor, kNames> routeReactor;
};
struct CliMachine {
  bool exists = false;
  std::int8_t cli = kNone, config = kNone, l3 = kNone;
  Table<std::int8_t, kNames> live;  // id or kNone
};

struct State {
  // The host's objects.
  Table<L3State, kL3> l3;
  Table<RoutingState, kRouting> routing;
  Table<RouteState, kNames> route;
  Table<CliState, kClis> cli;
  Table<ConfigState, kConfigs> config;
  Table<StatusState, kStatuses> status;
  std::uint32_t serials = 0;

  // Which of them are in use.
  std::int8_t useL3 = 0;
  Table<std::int8_t, 3> useRouting{0, 1, 2};
  std::int8_t useCli = 0;
  std::int8_t useEntry = 0;
  std::int8_t useConfig = 0;
  std::int8_t useStatus = 0;
  bool useCapability = true;
  bool profileKnown = true;
  bool supported = true;

  // The agent.
  bool agent = false;
  bool collection = false;
  bool copiedSupported = false;
  bool capability = false;
  std::int8_t manager = kNone;
  Table<IntfStatus, kIntfs> merged;
  Table<ManagerState, kManagers> managers;
  IntfMachine intfMachine;
  RewriteMachine rewriteMachine;
  CliMachine cliMachine;

  // The chip. Rows by VLAN (index) and address: the MAC or kNone.
  Table<Table<std::int8_t, kIps>, kRowVlans> row;
  size_t rows = 0;
  size_t capacity = 1000;
  size_t resources = 1000;
  /// The way in which the n-th write from now fails, or kNone.
  Table<std::int8_t, 8> nth;
  /// Runs of failing writes, how many and how, the next one first.
  struct Run {
    std::uint8_t left;
    std::uint8_t how;
  };
  Table<Run, 6> runs;
  std::uint8_t runCount = 0;

  // The log's limit.
  double clock = 1000;
  double lastSent = -1;
  std::uint64_t heldBack = 0;
};

/// What an event does to the outside.
struct ChipCall {
  enum class Outcome : std::uint8_t { Ok, Full, NoResources, Error, Exception, NotFound };

  bool write = false;
  Outcome outcome = Outcome::Ok;
  std::uint16_t vlan = 0;
  std::uint8_t ip = 0;
  std::int8_t mac = kNone;  ///< kNone: an erase that found nothing
};
struct LogLine {
  std::string vrf;
  int ip;
  std::uint64_t heldBack;
  double time;
};
enum class Thrown : std::uint8_t { Nothing, VlanRange, Full, NoResources, TableError, Foreign };

struct Effects {
  std::vector<ChipCall> calls;
  std::vector<LogLine> logs;
  Thrown thrown = Thrown::Nothing;
};

/// The end of the process: pieces that standard error holds then.
struct Death {
  std::vector<std::string> texts;
};

/// What the plug-in is specified to do, for the values of the universe.
///
/// A word on order. Where a handler walks a collection, the outcome may depend on the order: which
/// of two rows gets the last slot, which one an exception keeps from being written. The
/// collections' order is fixed for the life of a process, so the model is given it (Orders) and
/// predicts every journal line by line.
class Model {
 public:
  explicit Model(Orders const& orders);

  /// Applies the event and says what it does. When the plug-in would end the process: the texts;
  /// the state is then as before the event. False in `possible` when the event needs an agent (or
  /// none) that is not there.
  std::optional<Death> apply(Event const& event, Effects& effects);
  /// Whether the host can bring the event about now.
  bool possible(Event const& event) const;

  State const& state() const { return s_; }

  /// A wrong model, to show that a difference is found: a replaced routing status moves no
  /// reference.
  bool plantedFault = false;

 private:
  struct Exception {
    Thrown thrown;
  };

  // One for each kind of event: what the host does, and what comes of it.
  void on(event::NameToId const& e);
  void on(event::NameToIdDel const& e);
  void on(event::IdToName const& e);
  void on(event::IdToNameDel const& e);
  void on(event::Vrf const& e);
  void on(event::VrfDel const& e);
  void on(event::Routing const& e);
  void on(event::RoutingDel const& e);
  void on(event::RoutingAgain const& e);
  void on(event::RoutingVlan const& e);
  void on(event::RoutingOther const& e);
  void on(event::RoutingDelAll const& e);
  void on(event::Address const& e);
  void on(event::AddressDel const& e);
  void on(event::AddressDelAll const& e);
  void on(event::VrfStatus const& e);
  void on(event::VrfStatusDel const& e);
  void on(event::VrfStatusDelAll const& e);
  void on(event::Route const& e);
  void on(event::RouteId const& e);
  void on(event::RouteVlan const& e);
  void on(event::RouteDel const& e);
  void on(event::RouteDelAll const& e);
  void on(event::Line const& e);
  void on(event::LineDel const& e);
  void on(event::LineDelAll const& e);
  void on(event::UseL3 const& e);
  void on(event::UseRouting const& e);
  void on(event::UseCli const& e);
  void on(event::UseEntry const& e);
  void on(event::NewAgentConfig const& e);
  void on(event::NoAgentConfig const& e);
  void on(event::NewAgentStatus const& e);
  void on(event::NoAgentStatus const& e);
  void on(event::UseCapability const& e);
  void on(event::ProfileName const& e);
  void on(event::Supported const& e);
  void on(event::Create const& e);
  void on(event::Destroy const& e);
  void on(event::Stage1 const& e);
  void on(event::Stage2 const& e);
  void on(event::Capacity const& e);
  void on(event::Resources const& e);
  void on(event::FailNext const& e);
  void on(event::FailNth const& e);
  void on(event::FaultsClear const& e);
  void on(event::Clock const& e);

  // The host's setters: what they store and whom they notify.
  void nameToIdIs(int l3, int name, int id);
  void nameToIdDel(int l3, int name);
  /// Makes a change that may take the id from the VRF; the id's name then is the smallest other
  /// one.
  template <class Change>
  void vrfLeaves(int l3, int name, int id, Change const& change);
  void routingIs(int object, int intf, int keyVlan, IntfStatus const& status);
  void routingTell(int object, int intf, int keyVlan);
  void addressIs(int status, int vrf, int ip, AddressState const& address);
  void addressDel(int status, int vrf, int ip);
  void vrfStatusDel(int status, int vrf);
  void routeIs(int name, RouteState const& route);
  void lineIs(int cli, int name, int ip, int mac);
  void lineDel(int cli, int name, int ip);
  int statusOf(bool watched) const;
  int freeConfig() const;
  int freeStatus() const;

  // Bring-up.
  void stage1();
  void stage2();
  void destroy();

  // Routing status merge.
  void mergeKey(int source, int intf, int keyVlan);
  void mergedIs(int intf, IntfStatus const& status);
  void startIntfMachine();

  // Configuration translation. `machine` may be under construction.
  void addVrf(CliMachine& machine, int name);
  void deleteVrf(CliMachine& machine, int name);
  void handleLine(CliMachine& machine, int name, int ip);
  void startCliMachine();
  void recordDel(int config, int vrf);

  // The rewrite machine.
  void startRewriteMachine();
  void handleIntf(RewriteMachine& machine, int intf);
  void addRow(RewriteMachine& machine, int vrf, int intf, int ip);
  void deleteRow(RewriteMachine& machine, int vrf, int intf, int ip);
  void handleMac(RewriteMachine& machine, int vrf, int ip);
  void handleAddress(RewriteMachine& machine, int vrf, int ip);
  void addAddress(RewriteMachine& machine, int vrf, int ip);
  void removeAddress(RewriteMachine& machine, int vrf, int ip);
  void handleRoute(RewriteMachine& machine, int name);

  // The table manager.
  void addEntry(int manager, int name, std::uint16_t vlan, int intf, int ip, int mac);
  void updateEntry(int manager, int intf, int ip, int mac);
  void deleteEntry(int manager, int intf, int ip);
  [[noreturn]] static void noEntry(int intf, int ip);

  // The chip and the log.
  ChipCall::Outcome chipWrite(std::uint16_t vlan, int ip, int mac);
  void chipErase(std::uint16_t vlan, int ip);
  void log(int name, int ip);

  Orders const& orders_;
  State s_;
  Effects* effects_ = nullptr;
};

}  // namespace BfnTest
