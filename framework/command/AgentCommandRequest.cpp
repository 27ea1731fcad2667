// SPDX-License-Identifier: Apache-2.0
#include "framework/command/AgentCommandRequest.h"

#include <utility>

#include "framework/core/Exceptions.h"
#include "framework/generic/Describe.h"

namespace Agent {

namespace {

size_t discard(std::string_view offered) {
  return offered.size();
}

}  // namespace

AgentCommandRequest::AgentCommandRequest(U32 socket, U32 format, prettyout::Sink sink)
    : socket_(socket), format_(format), sink_(sink == nullptr ? discard : std::move(sink)) {
  if (format > static_cast<U32>(prettyout::Format::Json)) {
    Kiv::throwRangeException("AgentCommandRequest::format > 1 not allowed");
  }
}

Kiv::Type const& AgentCommandRequest::fwkType() const {
  return _kivType();
}

Kiv::Type const& AgentCommandRequest::_kivType() {
  using Request = AgentCommandRequest;
  static Kiv::Type const type("Agent::AgentCommandRequest", &Kiv::PtrInterface::_kivType(),
                              {Kiv::describeConstant<&Request::socket>("socket", 130),
                               Kiv::describeConstant<&Request::format>("format", 131)});
  return type;
}

}  // namespace Agent
