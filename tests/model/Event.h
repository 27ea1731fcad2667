// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "tests/model/Universe.h"

namespace BfnTest {

/// The events of the sequences. Objects, names, ids and so on are indexes into the universe's
/// tables; kNone is null where an object may be null.
namespace event {

// The host agent's VRFs.
struct NameToId {
  int l3, name, id;
};
struct NameToIdDel {
  int l3, name;
};
struct IdToName {
  int l3, id, name;
};
struct IdToNameDel {
  int l3, id;
};
struct Vrf {
  int l3, name, id;
};
struct VrfDel {
  int l3, name;
};

// Interfaces' routing status. RoutingVlan changes the object in place and notifies of nothing.
struct Routing {
  int object, intf, keyVlan, vlan, vrf;
};
struct RoutingDel {
  int object, intf, keyVlan;
};
struct RoutingAgain {
  int object, intf, keyVlan;
};
struct RoutingVlan {
  int object, intf, keyVlan, vlan;
};
struct RoutingOther {
  int object;
};
struct RoutingDelAll {
  int object;
};

// Addresses, in the current status object or in the one that the machine watches.
struct Address {
  bool watched;
  int vrf, ip, intf;
  bool self;
};
struct AddressDel {
  bool watched;
  int vrf, ip;
};
struct AddressDelAll {
  bool watched;
  int vrf;
};
struct VrfStatus {
  bool watched;
  int vrf;
};
struct VrfStatusDel {
  bool watched;
  int vrf;
};
struct VrfStatusDelAll {
  bool watched;
};

// The hardware route status.
struct Route {
  int name, id, vlan;
};
struct RouteId {
  int name, id;
};
struct RouteVlan {
  int name, vlan;
};
struct RouteDel {
  int name;
};
struct RouteDelAll {};

// The configuration.
struct Line {
  int cli, name, ip, mac;
};
struct LineDel {
  int cli, name, ip;
};
struct LineDelAll {
  int cli;
};

// Other objects in the place of those that are there.
struct UseL3 {
  int l3;
};
struct UseRouting {
  int source;  ///< 0 ports, 1 VLANs, 2 sub-interfaces
  int object;
};
struct UseCli {
  int cli;
};
struct UseEntry {
  int entry;
};
struct NewAgentConfig {};
struct NoAgentConfig {};
struct NewAgentStatus {};
struct NoAgentStatus {};
struct UseCapability {
  bool there;
};

// The profile.
struct ProfileName {
  bool known;
};
struct Supported {
  bool supported;
};

// Bring-up.
struct Create {};
struct Destroy {};
struct Stage1 {};
struct Stage2 {};

// The chip. `how` is a BfnChip::Fault::Kind.
struct Capacity {
  int capacity;
};
struct Resources {
  int capacity;
};
struct FailNext {
  int count, how;
};
struct FailNth {
  int number, how;
};
struct FaultsClear {};

struct Clock {
  int step;
};

}  // namespace event

using Event = std::variant<
    event::NameToId, event::NameToIdDel, event::IdToName, event::IdToNameDel, event::Vrf,
    event::VrfDel, event::Routing, event::RoutingDel, event::RoutingAgain, event::RoutingVlan,
    event::RoutingOther, event::RoutingDelAll, event::Address, event::AddressDel,
    event::AddressDelAll, event::VrfStatus, event::VrfStatusDel, event::VrfStatusDelAll,
    event::Route, event::RouteId, event::RouteVlan, event::RouteDel, event::RouteDelAll,
    event::Line, event::LineDel, event::LineDelAll, event::UseL3, event::UseRouting, event::UseCli,
    event::UseEntry, event::NewAgentConfig, event::NoAgentConfig, event::NewAgentStatus,
    event::NoAgentStatus, event::UseCapability, event::ProfileName, event::Supported, event::Create,
    event::Destroy, event::Stage1, event::Stage2, event::Capacity, event::Resources,
    event::FailNext, event::FailNth, event::FaultsClear, event::Clock>;

inline constexpr Table<size_t, 6> kCapacity{1000, 1000, 20, 8, 3, 0};
/// In seconds; no sum of them is the log's interval.
inline constexpr Table<double, 3> kClockStep{1.37, 17.93, 61.11};

using Random = std::mt19937_64;

/// A sequence that brings the agent up somewhere in its beginning.
std::vector<Event> randomSequence(std::uint64_t seed, int length);

/// The event as a statement on a `World world`.
std::string toCode(Event const& event);

}  // namespace BfnTest
