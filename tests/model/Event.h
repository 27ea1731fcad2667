#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/model/Universe.h"

namespace ModelTest {

enum class Kind : std::uint8_t {
  // The host agent's VRFs: a = object, b = name, c = id.
  NameToId,
  NameToIdDel,
  IdToName,
  IdToNameDel,
  Vrf,
  VrfDel,
  // Routing status: a = object, b = interface, c = key VLAN, d = VLAN, e = VRF id.
  Routing,
  RoutingDel,
  RoutingAgain,
  RoutingVlan,
  RoutingOther,
  RoutingDelAll,
  // Addresses: a = 0 the current status object, 1 the one that the machine watches; b = VRF id, c =
  // address, d = interface, e = self.
  Address,
  AddressDel,
  AddressDelAll,
  VrfStatus,
  VrfStatusDel,
  VrfStatusDelAll,
  // Hardware route status: b = name, c = id, d = VLAN.
  Route,
  RouteId,
  RouteVlan,
  RouteDel,
  RouteDelAll,
  // Configuration: a = object, b = name, c = address, d = MAC.
  Line,
  LineDel,
  LineDelAll,
  // Other objects in the place of those that are there: a = object, 255 for null.
  UseL3,
  UsePorts,
  UseVlans,
  UseSubIntfs,
  UseCli,
  UseEntry,
  NewAgentConfig,
  NoAgentConfig,
  NewAgentStatus,
  NoAgentStatus,
  UseCapability,
  // The profile: a = known name or supported.
  ProfileName,
  Supported,
  // Bring-up.
  Create,
  Destroy,
  Stage1,
  Stage2,
  // The chip: a = capacity, pool; faults: a = how many or which, b = way.
  Capacity,
  Resources,
  FailNext,
  FailNth,
  FaultsClear,
  // a = step.
  Clock,
  kCount
};

struct Event {
  Kind kind = Kind::Clock;
  std::uint8_t a = 0, b = 0, c = 0, d = 0, e = 0;
};

inline constexpr std::uint8_t kNull = 255;
inline constexpr Table<std::size_t, 6> kCapacity{1000, 1000, 20, 8, 3, 0};
/// In seconds; no sum of them is the log's interval.
inline constexpr Table<double, 3> kClockStep{1.37, 17.93, 61.11};

using Random = std::mt19937_64;

/// A sequence that brings the agent up somewhere in its beginning.
std::vector<Event> randomSequence(std::uint64_t seed, int length);

/// The event as a statement on a `World world`.
std::string toCode(Event const& event);

}  // namespace ModelTest
