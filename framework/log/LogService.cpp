#include "framework/log/LogService.h"

#include <chrono>
#include <unistd.h>
#include <utility>

#include "framework/log/LogHandle.h"

namespace Kiv {

namespace {

struct State {
  LogService::Clock clock;
  LogService::Sink sink;
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
  // A message that cannot be written is lost; there is nobody to tell.
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
  return state().clock ? state().clock() : steadySeconds();
}
void LogService::clockIs(Clock clock) {
  state().clock = std::move(clock);
}
void LogService::sinkIs(Sink sink) {
  state().sink = std::move(sink);
}

void LogService::send(LogMessage const& message) {
  auto& recent = state().recent;
  if (recent.size() == kMaxRecent) recent.pop_front();
  recent.push_back(message);
  Sink const sink = state().sink;  // it may replace itself
  if (sink) {
    sink(message);
  } else {
    toStandardError(message);
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
