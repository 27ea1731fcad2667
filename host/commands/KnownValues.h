// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <set>
#include <string>
#include <string_view>

#include "host/language/Pattern.h"
#include "host/switch/Switch.h"

namespace Host {

/// What a place for a value takes of what a switch knows: "vrf", "address", "interface", "vrf-id",
/// "profile" or "port"; empty when it takes something else.
std::string_view kindOf(Completion const& place);

/// Where names are known from. What is null knows none.
struct KnownInputs {
  /// Those of a switch, which must outlive it; without its plug-in, the operator's lines alone.
  explicit KnownInputs(Switch const& of);

  Switch const* host;  ///< the operator's lines
  Kiv::Ptr<Pex::L3Status const> vrfs;
  Kiv::Ptr<Routing::Hardware::RouteStatus const> routes;
  std::array<Kiv::Ptr<BfnL3::L3RoutingStatus const>, 3> interfaces;
  Kiv::Ptr<BfnSystem::SystemStatus const> profiles;
  /// The addresses and their interfaces by VRF id.
  Object addresses;
};

/// The values of a kind; none for a kind that is not known. "port" is none of a switch's.
std::set<std::string> knownValues(KnownInputs const& inputs, std::string_view kind);

struct Selection {
  std::set<std::string> values;
  /// There are more.
  bool more = false;
};
/// Those that begin, as they are typed, with what is typed of them. Of more than `most` the first
/// ones and the last, so that they have no longer beginning in common than all.
Selection beginningWith(std::string_view typed, std::set<std::string> values,
                        size_t most = std::numeric_limits<size_t>::max());

}  // namespace Host
