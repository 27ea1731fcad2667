#pragma once

#include <concepts>
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
/// Arguments are made into texts once, and not at all when the limit does not need them and holds
/// the message back.
///
///   Kiv::emitLog(tableFull, vrfName, overlaySip);
template <class... Args>
bool emitLog(LogHandle& handle, Args const&... arguments) {
  if (handle.rateLimitArgs()) {
    LogString const texts = Impl::logString(arguments...);
    if (!handle.okToLog(Impl::logArgsHash(texts, handle.idHash()))) return false;
    handle.log(texts);
    return true;
  }
  if (!handle.okToLog(handle.idHash())) return false;
  handle.log(Impl::logString(arguments...));
  return true;
}

}  // namespace Kiv
