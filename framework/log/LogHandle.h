// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "framework/log/LogLimiter.h"
#include "framework/log/LogSeverity.h"
#include "framework/log/LogString.h"

namespace Kiv {

/// A log message that operators know by name. Built once, by the static initialiser of the source
/// file that logs it, and kept for the life of the process; emitLog() sends it.
class LogHandle {
 public:
  /// `format` has a printf conversion for each argument, see fillFormat(). At most `burst` messages
  /// go out in any `interval` seconds, for each set of arguments if `rateLimitArgs`, else for the
  /// handle as a whole; see LogLimiter.
  LogHandle(char const* name, LogSeverity severity, char const* format, char const* explanation,
            char const* recommendedAction, double interval, double burst, bool rateLimitArgs);
  LogHandle(LogHandle const&) = delete;
  LogHandle& operator=(LogHandle const&) = delete;
  ~LogHandle();

  std::string const& name() const { return name_; }
  LogSeverity severity() const { return severity_; }
  std::string const& format() const { return format_; }
  /// For the operator: what happened, and what to do about it.
  std::string const& explanation() const { return explanation_; }
  std::string const& recommendedAction() const { return recommendedAction_; }
  double interval() const { return interval_; }
  double burst() const { return burst_; }
  bool rateLimitArgs() const { return rateLimitArgs_; }

  /// A hash of the name.
  U64 idHash() const { return idHash_; }
  /// Whether a message of that hash may go out now. A yes counts against the limit, a no is
  /// counted and reported with the next message that goes out.
  bool okToLog(U64 hash);
  /// Sends the message. The caller has asked okToLog(). When it throws (std::bad_alloc, or what the
  /// service's clock throws), the message did not go out.
  void log(LogString const& arguments);
  /// The message that okToLog(hash) allowed last did not go out: it does not count.
  void notSent(U64 hash) { limiter_.takeBack(hash); }
  /// Resets the limit.
  void limitReset() { limiter_.reset(); }

  /// The handle of that name, or null.
  static LogHandle* find(std::string_view name);
  /// Every handle there is, by name. `visit` makes and destroys none.
  static void forEach(std::function<void(LogHandle&)> const& visit);

 private:
  std::string name_;
  LogSeverity severity_;
  std::string format_;
  std::string explanation_;
  std::string recommendedAction_;
  double interval_;
  double burst_;
  bool rateLimitArgs_;
  U64 idHash_;
  LogLimiter limiter_;
};

}  // namespace Kiv
