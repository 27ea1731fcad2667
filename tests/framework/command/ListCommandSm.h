// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include "framework/command/AgentAsyncCommandRequestSm.h"
#include "framework/core/Clock.h"
#include "framework/core/Ptr.h"

namespace BfnTest {

/// A command that prints the numbers 0 to count - 1, one entry a step, and keeps its place from
/// slice to slice.
class ListCommandSm final : public Agent::AgentAsyncCommandRequestSm {
 public:
  static constexpr char const* kTypeName = "BfnTest::ListCommandSm";

  ListCommandSm(Kiv::String name, Kiv::Ptr<Agent::AgentCommandRequest const> const& request,
                double maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock, Kiv::U32 count);

  void handleAsyncCommand(Kiv::U32 socket, Kiv::U32 format) override;

  /// Called at the begin of every slice.
  std::function<void()> onSlice;
  /// Called in every step, before it is asked whether to yield.
  std::function<void()> onStep;
  bool ready = true;
  Kiv::U32 slices = 0;
  Kiv::U32 firstSlices = 0;
  Kiv::U32 at = 0;

  Kiv::Type const& fwkType() const override;
  static Kiv::Type const& _kivType();

 private:
  Kiv::U32 count_;
};

Kiv::Ptr<ListCommandSm> listCommandSmFactory(
    Kiv::String name, Kiv::Ptr<Agent::AgentCommandRequest const> const& request,
    double const& maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock, Kiv::U32 count);

/// What a ListCommandSm of that many numbers prints as text.
std::string listed(Kiv::U32 count);

/// A client: a sink that takes `perCall` bytes at each call until that is changed.
struct Client {
  std::string received;
  size_t perCall = std::string::npos;
  size_t calls = 0;

  Kiv::Ptr<Agent::AgentCommandRequest const> request(Kiv::U32 format = 0, Kiv::U32 socket = 7);
};

}  // namespace BfnTest
