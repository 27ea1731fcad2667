// SPDX-License-Identifier: Apache-2.0
#include "framework/log/LogService.h"

#include <chrono>
#include <memory>
#include <new>
#include <unistd.h>
#include <utility>

#include "framework/log/LogHandle.h"

namespace Kiv {

namespace {

// A call holds the function that it calls, which may replace itself meanwhile.
struct State {
  std::shared_ptr<LogService::Clock const> clock;
  std::shared_ptr<LogService::Sink const> sink;
  std::deque<LogMessage> recent;
};

// Never destroyed: messages are logged until the very end of the process.
State& state() {
  static auto* state = new State;
  return *state;
}

double steadySeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void toStandardError(LogMessage const& message) {
  std::string const line = toString(message) + '\n';
  // A message that cannot be written is lost; there is no place to report it.
  (void)!::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace

char const* name(LogSeverity severity) {
  static constexpr char const* kNames[] = {"emergency", "alert",  "critical",      "error",
                                           "warning",   "notice", "informational", "debug"};
  auto const index = static_cast<size_t>(severity);
  return index < std::size(kNames) ? kNames[index] : "unknown";
}

std::string toString(LogMessage const& message) {
  std::string line =
      std::string(name(message.severity)) + ": " + message.name + ": " + message.text;
  if (message.heldBack > 0) line += " [" + std::to_string(message.heldBack) + " held back]";
  return line;
}

double LogService::now() {
  std::shared_ptr<Clock const> const clock = state().clock;
  return clock != nullptr ? (*clock)() : steadySeconds();
}
void LogService::clockIs(Clock clock) {
  state().clock = clock ? std::make_shared<Clock const>(std::move(clock)) : nullptr;
}
void LogService::sinkIs(Sink sink) {
  state().sink = sink ? std::make_shared<Sink const>(std::move(sink)) : nullptr;
}

void LogService::send(LogMessage const& message) {
  auto& recent = state().recent;
  recent.push_back(message);
  if (recent.size() > kMaxRecent) recent.pop_front();
  std::shared_ptr<Sink const> const sink = state().sink;
  // Logging changes nothing for the code that logs.
  try {
    if (sink != nullptr) return (*sink)(message);
  } catch (...) {
    // What the sink refused goes to standard error.
  }
  try {
    toStandardError(message);
  } catch (std::bad_alloc const&) {
    return;  // recent() has it
  }
}

std::deque<LogMessage> const& LogService::recent() {
  return state().recent;
}

void LogService::reset() {
  state() = {};
  LogHandle::forEach([](LogHandle& handle) { handle.limitReset(); });
}

}  // namespace Kiv
