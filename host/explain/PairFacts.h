// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/BfnMacRewriteAgentSm.h"
#include "framework/driver/TableDriver.h"
#include "framework/l3/L3RoutingStatus.h"
#include "framework/l3/L3Status.h"
#include "framework/l3/RouteStatus.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IntfId.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfAndIpAddr.h"
#include "framework/values/VrfId.h"
#include "framework/values/VrfName.h"
#include "host/reconcile/Reconciler.h"
#include "host/switch/Generic.h"

namespace Host {

class Switch;

/// Why there is no row of a (VRF, source IP), or why it is not as the operator has configured it.
/// The first that holds, in the order in which a line becomes a row.
enum class Reason : Kiv::U8 {
  None,
  StageNotRun,         ///< the agent is not there or not brought up as a whole
  NotSupported,        ///< the profile in use has no such table
  NoLine,              ///< no configured line; a row has the all-zero MAC then
  NoVrfId,             ///< the line's VRF has no id
  NoAddress,           ///< the address is not reported in the VRF
  NoInterface,         ///< it is reported on no interface
  NoRoutingStatus,     ///< its interface has no routing status
  NoForwardingVlan,    ///< it is one of the switch's own, and its VRF has no forwarding VLAN
  VlanOutOfRange,      ///< the VLAN that the row would have is not in 1..4094
  Deaf,                ///< the host has reported what the row needs, and the agent did not notice
  WaitingFull,         ///< the chip's table has no room
  WaitingNoResources,  ///< the system lacks what a row needs
  WaitingRetry,        ///< its write failed for any other reason
  Held,                ///< the reconciler holds the chip's rows as they are
  DeletedFromChip,     ///< the agent has the row, the chip not: it went with another address's
  LeftOver,            ///< what made the row has gone or changed, and the row has stayed
  AnotherVrfsRow,      ///< the row has the MAC of another VRF, or of another line
  LineRemoved,         ///< the row keeps the MAC of a line that was removed
  LineNotApplied,      ///< the line came later, and has not reached the row
};
inline constexpr auto kLastReason = Reason::LineNotApplied;

/// Its word in answers, for example "no-routing-status".
std::string_view codeOf(Reason reason);

/// What the facts about a pair are taken from: the host's current inputs, the agent with what it
/// watches, and the table. Null members are not there.
struct FactSources {
  Kiv::Ptr<BfnMacRewrite::AgentSm const> agent;
  /// As it is mounted.
  Object cliConfig;
  Kiv::Ptr<BfnMacRewrite::Agent::Status const> agentStatus;
  Kiv::Ptr<Pex::L3Status const> l3Status;
  Kiv::Ptr<Routing::Hardware::RouteStatus const> routeStatus;
  /// Ports and LAGs, VLANs, sub-interfaces.
  std::array<Kiv::Ptr<BfnL3::L3RoutingStatus const>, 3> routingStatus;
  BfnDriver::TableDriver* table = nullptr;
  Reconciler const* reconciler = nullptr;
  /// Why the reconciler holds the chip's rows, when it does.
  std::optional<std::string> heldBecause;
};
FactSources factSources(Switch& host);

/// A row of the chip.
struct InstalledRow {
  Ovra::EthAddr mac;
  /// Nothing where the chip does not count.
  std::optional<Kiv::U64> hits;
};

/// Everything that decides about the row of one (VRF, source IP), as it is now.
struct PairFacts {
  struct Record {
    Kiv::U16 vlan = 0;
    Kiv::U16 references = 0;
  };
  struct Address {
    Ovra::IntfId interface;
    bool self = false;
  };
  struct Status {
    Kiv::U16 vlan = 0;
    Pex::VrfId vrfId;
    /// Of FactSources::routingStatus; nothing when it has left the one from which it was taken.
    std::optional<size_t> source;
  };

  Ovra::IpAddr ip;
  /// The VRF as it was asked for, or as its id is called.
  std::optional<L3::VrfName> vrfName;
  std::optional<Pex::VrfId> vrfId;
  /// Whether the agent translates the VRF's lines to this id.
  bool vrfIsLive = false;

  /// What the bring-up lacks.
  std::optional<std::string> lacks;
  bool isSupported = true;

  /// The MAC of the operator's line, and that of the agent's configuration under the VRF's id.
  std::optional<Ovra::EthAddr> line;
  std::optional<Ovra::EthAddr> translated;

  /// As the host reports it now, and the interface under which the agent has indexed it.
  std::optional<Address> address;
  Ovra::IntfId indexedOn;
  /// Whether the agent watches another object than the one in which the host reports addresses.
  bool isStatusReplaced = false;

  /// As the agent has it.
  std::optional<Status> routingStatus;
  /// The host has one in an object that the agent does not watch.
  bool isRoutingStatusUnseen = false;

  /// As the agent has it; 0: not known.
  Kiv::U32 forwardingVlan = 0;
  /// The host has one of which the agent does not know.
  bool isForwardingVlanUnseen = false;

  std::optional<Record> record;
  /// Nothing when there is no reconciler, or when it does not want the row.
  std::optional<Ovra::EthAddr> wanted;
  std::optional<WaitingChange> waiting;
  std::optional<std::string> heldBecause;
  std::optional<InstalledRow> installed;
  /// The chip has as many rows as it takes.
  bool isTableFull = false;
  /// Whose MAC the row has, when it is that of another VRF or line.
  std::optional<std::string> owner;

  /// The VLAN that the row would get if it were written now.
  std::optional<Kiv::U32> vlanNow() const;
  /// The MAC that the row should have.
  Ovra::EthAddr macNow() const { return line.value_or(Ovra::EthAddr()); }
};

/// Takes the facts about pairs and rows. Changes nothing, but that a reconciler makes the changes
/// of the current turn first, as with any read. Cost: some look-ups; where a row has another MAC
/// than it should, and for a row whose address is not in the agent's status, a walk over the
/// agent's index of addresses.
class FactFinder {
 public:
  explicit FactFinder(FactSources sources);

  PairFacts ofVrf(L3::VrfName vrf, Ovra::IpAddr ip) const;
  /// The name is the one that the id has, or else the first by text of those whose lines are
  /// translated to this id, if one has a line for the address.
  PairFacts ofVrfId(Pex::VrfId vrf, Ovra::IpAddr ip) const;
  /// The pairs whose row is the one of that VLAN and address; when there are none, those that would
  /// get it. Sorted by VRF id.
  std::vector<PairFacts> ofRow(Kiv::U16 vlan, Ovra::IpAddr ip) const;
  std::optional<InstalledRow> installed(Kiv::U16 vlan, Ovra::IpAddr ip) const;
  /// The pairs that the agent has indexed, sorted. Cost: a walk over the index.
  std::vector<Pex::VrfAndIpAddr> indexed() const;

  FactSources const& sources() const { return sources_; }
  /// What the bring-up lacks; nothing when rows can be there.
  std::optional<std::string> lacks() const;

 private:
  BfnMacRewrite::BfnMacRewriteSm const* machine() const;
  BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm const* translator() const;
  /// The id to which the agent translates the VRF's lines.
  std::optional<Pex::VrfId> liveId(L3::VrfName vrf) const;
  void bringUp(PairFacts& facts) const;
  std::optional<Ovra::EthAddr> lineOf(L3::VrfName vrf, Ovra::IpAddr ip) const;
  L3::VrfName nameOf(Pex::VrfId vrf, Ovra::IpAddr ip) const;
  std::optional<Ovra::EthAddr> translatedMac(Pex::VrfId vrf, Ovra::IpAddr ip) const;
  std::optional<PairFacts::Record> recordOf(Ovra::IpAddr ip, Ovra::IntfId intf) const;
  std::optional<PairFacts::Address> addressOf(Pex::VrfId vrf, Ovra::IpAddr ip) const;
  void address(PairFacts& facts) const;
  void routing(PairFacts& facts) const;
  bool isRoutingStatusUnseen(Ovra::IntfId intf) const;
  void forwarding(PairFacts& facts) const;
  void row(PairFacts& facts) const;
  void owner(PairFacts& facts) const;
  PairFacts finished(PairFacts facts) const;
  /// The ids of the VRFs under which the agent has indexed the address.
  std::vector<Pex::VrfId> indexed(Ovra::IpAddr ip) const;

  FactSources const sources_;
  std::optional<BfnDriver::TableHandle> table_;
};

/// What the facts come to.
Reason reasonOf(PairFacts const& facts);

}  // namespace Host
