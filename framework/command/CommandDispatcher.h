// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "framework/command/AgentAsyncCommandRequestSm.h"
#include "framework/core/Clock.h"
#include "framework/core/Ptr.h"
#include "framework/generic/GenericValue.h"

namespace Agent {

/// Makes the command machines that clients ask for, by the names of their types, and gives each its
/// slices in turn. The host's loop calls runSlices() when it is due; nothing here blocks.
///
///   dispatcher.commandIs("BfnMacRewrite::ShowMacRewriteCommandRequestSm", request, arguments);
///   double const next = dispatcher.runSlices();
///
/// Lifetime: holds every command until it has ended, then calls the end handler and releases it.
class CommandDispatcher {
 public:
  /// Called once for each command that has ended, with Completed or Aborted. May start commands.
  using EndHandler = std::function<void(AgentAsyncCommandRequestSm&, SliceResult)>;

  /// Every command gets `maxRunTime` seconds a slice on `clock`; null: the steady clock.
  CommandDispatcher(Kiv::Ptr<Kiv::Clock const> const& clock, double maxRunTime,
                    EndHandler endHandler = nullptr);
  CommandDispatcher(CommandDispatcher const&) = delete;
  CommandDispatcher& operator=(CommandDispatcher const&) = delete;
  ~CommandDispatcher();

  /// Makes a command of the type of that name; its first slice comes with the next runSlices(). The
  /// constructor gets a name of the dispatcher's making, the request, the run time, the clock, and
  /// then `arguments`. Throws RangeException when there is no such type, when it is no command, or
  /// when an argument's number or form is wrong; there is no new command then.
  Kiv::Ptr<AgentAsyncCommandRequestSm> commandIs(std::string_view typeName,
                                                 Kiv::Ptr<AgentCommandRequest const> const& request,
                                                 std::span<Kiv::GenericValue const> arguments);

  /// Gives each command that is due one slice, oldest first. Returns the time on the clock at which
  /// the next one is due: 0 for at once, infinity when there is no command left. When a slice
  /// throws, its command ends as aborted, the others still get their slices, and the first
  /// exception is rethrown. Not to be called from within a slice.
  double runSlices();

  /// The socket can be written again: its commands are due.
  void wake(U32 socket);
  /// The client has gone: its commands end with the next runSlices().
  void socketClosed(U32 socket);

  size_t commands() const { return commands_.size(); }
  Kiv::Ptr<Kiv::Clock const> const& clock() const { return clock_; }

 private:
  void runSliceOf(size_t index);

  Kiv::Ptr<Kiv::Clock const> clock_;
  double maxRunTime_;
  EndHandler endHandler_;
  std::vector<Kiv::Ptr<AgentAsyncCommandRequestSm>> commands_;
  Kiv::U64 made_ = 0;
  bool running_ = false;
};

}  // namespace Agent
