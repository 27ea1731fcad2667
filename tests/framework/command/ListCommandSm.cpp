// SPDX-License-Identifier: Apache-2.0
#include "tests/framework/command/ListCommandSm.h"

#include <utility>

#include "framework/generic/Describe.h"

namespace BfnTest {

using Agent::AgentAsyncCommandRequestSm;
using Agent::AgentCommandRequest;
using Kiv::U32;

ListCommandSm::ListCommandSm(Kiv::String name, Kiv::Ptr<AgentCommandRequest const> const& request,
                             double maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock, U32 count)
    : AgentAsyncCommandRequestSm(std::move(name), request, maxRunTime, clock), count_(count) {
  prettyoutPrinterIs(nullptr);
  initializeSm();
}

void ListCommandSm::handleAsyncCommand(U32, U32) {
  ++slices;
  if (onSlice) onSlice();
  if (!ready) {
    falseStartIs(true);
    return;
  }
  prettyout::Renderer& renderer = prettyoutPrinter()->renderer();
  if (!continuation()) {
    ++firstSlices;
    renderer.start();
    renderer.startDict("numbers");
  }
  while (at < count_) {
    std::string const text = std::to_string(at++);
    prettyout::Attribute const number{"number", text};
    renderer.startDictEntry(number);
    renderer.addAttributes("%8s\n", 1, number);
    renderer.endDictEntry();
    if (onStep) onStep();
    if (at < count_ && shouldYield()) return;
  }
  renderer.endDict();
  renderer.end();
  executionCompletedIs(true);
}

Kiv::Type const& ListCommandSm::fwkType() const {
  return _kivType();
}

Kiv::Type const& ListCommandSm::_kivType() {
  static Kiv::Type const type(kTypeName, &AgentAsyncCommandRequestSm::_kivType(), {},
                              Kiv::describeFactory<&listCommandSmFactory>());
  return type;
}

Kiv::Ptr<ListCommandSm> listCommandSmFactory(Kiv::String name,
                                             Kiv::Ptr<AgentCommandRequest const> const& request,
                                             double const& maxRunTime,
                                             Kiv::Ptr<Kiv::Clock const> const& clock, U32 count) {
  return Kiv::makeActive<ListCommandSm>(std::move(name), request, maxRunTime, clock, count);
}

std::string listed(U32 count) {
  std::string text;
  for (U32 i = 0; i < count; ++i) {
    std::string const number = std::to_string(i);
    text += std::string(8 - number.size(), ' ') + number + "\n";
  }
  return text;
}

Kiv::Ptr<AgentCommandRequest const> Client::request(U32 format, U32 socket) {
  return Kiv::make<AgentCommandRequest const>(socket, format, [this](std::string_view offered) {
    ++calls;
    std::string_view const taken = offered.substr(0, perCall);
    received += taken;
    return taken.size();
  });
}

}  // namespace BfnTest
