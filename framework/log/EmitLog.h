// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "framework/log/LogHandle.h"

namespace Kiv {

namespace Impl {

/// The text of a log argument: a text as it is, a byte as a number, anything else by its stream
/// operator.
template <class Arg>
std::string logArgText(Arg const& argument) {
  if constexpr (std::convertible_to<Arg const&, std::string_view>) {
    return std::string(static_cast<std::string_view>(argument));
  } else if constexpr (requires {
                         { argument.stdString() } -> std::convertible_to<std::string>;
                       }) {
    return argument.stdString();
  } else {
    std::ostringstream text;
    text << numberIfByte(argument);
    return text.str();
  }
}

template <class... Args>
LogString logString(Args const&... arguments) {
  LogString texts;
  size_t index = 0;
  (texts.strIs(index++, logArgText(arguments)), ...);
  return texts;
}

}  // namespace Impl

/// Sends a log message unless the handle's rate limit holds it back; says whether it went out.
/// Arguments are rendered at most once, and not at all when the message is held back and the limit
/// does not depend on them.
///
/// Logging does not affect the code that logs: an exception of the sink is caught, and a message
/// that is lost for lack of memory counts as not sent. Only what the arguments' own stream
/// operators throw passes through, and then the message counts as not sent, too.
///
///   Kiv::emitLog(tableFull, vrfName, overlaySip);
template <class... Args>
bool emitLog(LogHandle& handle, Args const&... arguments) {
  try {
    std::optional<LogString> texts;
    U64 hash = handle.idHash();
    if (handle.rateLimitArgs()) {
      texts = Impl::logString(arguments...);
      hash = Impl::logArgsHash(*texts, hash);
    }
    if (!handle.okToLog(hash)) return false;
    try {
      if (!texts) texts = Impl::logString(arguments...);
      handle.log(*texts);
    } catch (...) {
      handle.notSent(hash);
      throw;
    }
    return true;
  } catch (std::bad_alloc const&) {
    return false;
  }
}

}  // namespace Kiv
