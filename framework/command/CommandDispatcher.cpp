// SPDX-License-Identifier: Apache-2.0
#include "framework/command/CommandDispatcher.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <string>
#include <utility>

#include "framework/core/Exceptions.h"
#include "framework/core/Fatal.h"
#include "framework/generic/Type.h"

namespace Agent {

namespace {

Kiv::Type const& commandType(std::string_view name) {
  Kiv::Type const* const type = Kiv::Type::find(name);
  for (Kiv::Type const* at = type; at != nullptr; at = at->base()) {
    if (at == &AgentAsyncCommandRequestSm::_kivType()) return *type;
  }
  Kiv::throwRangeException("\"" + std::string(name.substr(0, 100)) + "\" is no command");
}

bool hasEnded(SliceResult result) {
  return result == SliceResult::Completed || result == SliceResult::Aborted;
}

}  // namespace

CommandDispatcher::CommandDispatcher(Kiv::Ptr<Kiv::Clock const> const& clock, double maxRunTime,
                                     EndHandler endHandler)
    : clock_(clock ? clock : Kiv::make<Kiv::SteadyClock const>()),
      maxRunTime_(maxRunTime),
      endHandler_(std::move(endHandler)) {}

CommandDispatcher::~CommandDispatcher() = default;

Kiv::Ptr<AgentAsyncCommandRequestSm> CommandDispatcher::commandIs(
    std::string_view typeName, Kiv::Ptr<AgentCommandRequest const> const& request,
    std::span<Kiv::GenericValue const> arguments) {
  Kiv::Type const& type = commandType(typeName);
  std::string const name = std::string(typeName) + "-" + std::to_string(made_ + 1);
  std::vector<Kiv::GenericValue> all{Kiv::GenericValue(Kiv::String(name)),
                                     Kiv::GenericValue(request), Kiv::GenericValue::of(maxRunTime_),
                                     Kiv::GenericValue(clock_)};
  all.insert(all.end(), arguments.begin(), arguments.end());
  auto command = Kiv::ptrCast<AgentAsyncCommandRequestSm>(type.construct(all));
  KIV_CHECK(command, "type: ", typeName);
  commands_.push_back(command);
  ++made_;
  return command;
}

double CommandDispatcher::runSlices() {
  KIV_CHECK_AS(!running_, "!running()", "slices are run within a slice");
  running_ = true;
  std::exception_ptr failure;
  // Commands made by a slice or by the end handler run in the next round.
  for (size_t i = 0, count = commands_.size(); i < count; ++i) {
    try {
      runSliceOf(i);
    } catch (...) {
      if (failure == nullptr) failure = std::current_exception();
    }
  }
  std::erase(commands_, nullptr);
  running_ = false;
  if (failure != nullptr) std::rethrow_exception(failure);
  double next = std::numeric_limits<double>::infinity();
  for (auto const& command : commands_) next = std::min(next, command->nextSliceTime());
  return next;
}

void CommandDispatcher::runSliceOf(size_t index) {
  Kiv::Ptr<AgentAsyncCommandRequestSm> const command = commands_[index];
  SliceResult result = SliceResult::Aborted;
  std::exception_ptr failure;
  try {
    result = command->runSlice();
  } catch (...) {
    failure = std::current_exception();
  }
  if (!hasEnded(result)) return;
  commands_[index].reset();
  if (endHandler_) endHandler_(*command, result);
  if (failure != nullptr) std::rethrow_exception(failure);
}

void CommandDispatcher::wake(U32 socket) {
  for (auto const& command : commands_) {
    if (command && command->request()->socket() == socket) command->wake();
  }
}

void CommandDispatcher::socketClosed(U32 socket) {
  for (auto const& command : commands_) {
    if (command && command->request()->socket() == socket) command->abort();
  }
}

}  // namespace Agent
