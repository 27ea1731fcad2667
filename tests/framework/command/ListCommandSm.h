#pragma once

#include <functional>
#include <string>

#include "framework/command/AgentAsyncCommandRequestSm.h"
#include "framework/core/Clock.h"
#include "framework/core/Ptr.h"

namespace Agent::test {

/// A command that prints the numbers 0 to count - 1, one entry a step, and keeps its place from
/// slice to slice.
class ListCommandSm final : public AgentAsyncCommandRequestSm {
 public:
  static constexpr char const* kTypeName = "Agent::test::ListCommandSm";

  ListCommandSm(Kiv::String name, Kiv::Ptr<AgentCommandRequest const> const& request,
                double maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock, U32 count);

  void handleAsyncCommand(U32 socket, U32 format) override;

  /// Called at the begin of every slice.
  std::function<void()> onSlice;
  /// Called in every step, before it is asked whether to yield.
  std::function<void()> onStep;
  bool ready = true;
  U32 slices = 0;
  U32 firstSlices = 0;
  U32 at = 0;

  Kiv::Type const& fwkType() const override;
  static Kiv::Type const& _kivType();

 private:
  U32 count_;
};

Kiv::Ptr<ListCommandSm> listCommandSmFactory(Kiv::String name,
                                             Kiv::Ptr<AgentCommandRequest const> const& request,
                                             double const& maxRunTime,
                                             Kiv::Ptr<Kiv::Clock const> const& clock, U32 count);

/// What a ListCommandSm of that many numbers prints as text.
std::string listed(U32 count);

/// A client: a sink that takes `perCall` bytes at each call until that is changed.
struct Client {
  std::string received;
  std::size_t perCall = std::string::npos;
  std::size_t calls = 0;

  Kiv::Ptr<AgentCommandRequest const> request(U32 format = 0, U32 socket = 7);
};

}  // namespace Agent::test
