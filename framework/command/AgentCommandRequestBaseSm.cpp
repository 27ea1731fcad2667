// SPDX-License-Identifier: Apache-2.0
#include "framework/command/AgentCommandRequestBaseSm.h"

#include <utility>

#include "framework/generic/Describe.h"

namespace Agent {

AgentCommandRequestBaseSm::AgentCommandRequestBaseSm(
    Kiv::String name, Kiv::Ptr<AgentCommandRequest const> const& request)
    : name_(std::move(name)),
      request_(request ? request : Kiv::make<AgentCommandRequest const>(0u, 0u, nullptr)) {}

AgentCommandRequestBaseSm::~AgentCommandRequestBaseSm() = default;

Kiv::Type const& AgentCommandRequestBaseSm::fwkType() const {
  return _kivType();
}

Kiv::Type const& AgentCommandRequestBaseSm::_kivType() {
  using Sm = AgentCommandRequestBaseSm;
  static Kiv::Type const type("Agent::AgentCommandRequestBaseSm", &Kiv::PtrInterface::_kivType(),
                              {Kiv::describeConstant<&Sm::name>("name", 130),
                               Kiv::describeConstant<&Sm::request>("request", 131)});
  return type;
}

}  // namespace Agent
