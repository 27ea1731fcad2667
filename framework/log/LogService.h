// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <string>

#include "framework/log/LogSeverity.h"

namespace Kiv {

/// A log message that went out.
struct LogMessage {
  std::string name;
  LogSeverity severity;
  /// The format with its arguments.
  std::string text;
  /// Messages that the rate limit held back before this one and that no other one reported.
  U64 heldBack;
  /// By the service's clock, in seconds.
  double time;
};

/// As one line, without line end: "warning: NAME: text", and at the end " [3 held back]" when the
/// rate limit had held messages back.
std::string toString(LogMessage const& message);

/// Where log messages go and which clock limits their rate: process-wide, used on the framework's
/// thread.
class LogService {
 public:
  using Clock = std::function<double()>;
  using Sink = std::function<void(LogMessage const&)>;

  /// How many messages recent() keeps.
  static constexpr size_t kMaxRecent = 256;

  /// The clock's time in seconds. The default one is steady and starts anywhere.
  static double now();
  /// An empty function restores the default.
  static void clockIs(Clock clock);
  /// An empty function restores the default: one line on standard error, in a single write.
  static void sinkIs(Sink sink);

  /// Keeps the message and gives it to the sink; to standard error when the sink throws. Throws
  /// nothing but std::bad_alloc, and then has done nothing.
  static void send(LogMessage const& message);
  /// The last messages, oldest first.
  static std::deque<LogMessage> const& recent();

  /// As at the start of the process: default clock and sink, no recent message, and every handle's
  /// limit reset.
  static void reset();
};

}  // namespace Kiv
