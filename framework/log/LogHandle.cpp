// SPDX-License-Identifier: Apache-2.0
#include "framework/log/LogHandle.h"

#include <map>

#include "framework/log/LogService.h"

namespace Kiv {

namespace {

// By name. Never destroyed: handles of other libraries unregister until the very end of the
// process.
std::multimap<std::string, LogHandle*, std::less<>>& logHandles() {
  static auto* handles = new std::multimap<std::string, LogHandle*, std::less<>>;
  return *handles;
}

U64 nameHash(std::string const& name) {
  LogString text;
  text.strIs(0, name);
  return Impl::logArgsHash(text, 0);
}

}  // namespace

LogHandle::LogHandle(char const* name, LogSeverity severity, char const* format,
                     char const* explanation, char const* recommendedAction, double interval,
                     double burst, bool rateLimitArgs)
    : name_(name),
      severity_(severity),
      format_(format),
      explanation_(explanation),
      recommendedAction_(recommendedAction),
      interval_(interval),
      burst_(burst),
      rateLimitArgs_(rateLimitArgs),
      idHash_(nameHash(name_)),
      limiter_(interval, burst) {
  logHandles().emplace(name_, this);
}

LogHandle::~LogHandle() {
  auto const [first, last] = logHandles().equal_range(name_);
  for (auto it = first; it != last; ++it) {
    if (it->second != this) continue;
    logHandles().erase(it);
    return;
  }
}

bool LogHandle::okToLog(U64 hash) {
  return limiter_.ok(hash, LogService::now());
}

void LogHandle::log(LogString const& arguments) {
  U64 const heldBack = limiter_.takeHeldBack();
  try {
    LogService::send(
        {name_, severity_, fillFormat(format_, arguments), heldBack, LogService::now()});
  } catch (...) {
    limiter_.heldBackAdd(heldBack);
    throw;
  }
}

LogHandle* LogHandle::find(std::string_view name) {
  auto const found = logHandles().find(name);
  return found != logHandles().end() ? found->second : nullptr;
}

void LogHandle::forEach(std::function<void(LogHandle&)> const& visit) {
  for (auto const& [name, handle] : logHandles()) visit(*handle);
}

}  // namespace Kiv
