// SPDX-License-Identifier: Apache-2.0
#include "framework/log/LogString.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "framework/core/Fatal.h"
#include "framework/core/Hash.h"
#include "framework/core/Strep.h"

namespace Kiv {

void LogString::strIs(size_t index, std::string text) {
  KIV_CHECK(index < kMaxArgs, "log argument ", index);
  if (index >= texts_.size()) texts_.resize(index + 1);
  texts_[index] = std::move(text);
}

std::string_view LogString::str(size_t index) const {
  return index < texts_.size() ? std::string_view(texts_[index]) : std::string_view();
}

namespace {

/// The length of the printf conversion that `format`, which starts with "%", starts with; 0 when it
/// starts with none. A blank is no flag here: "100% done" is a text. Neither is there a "%n".
size_t conversionLength(std::string_view format) {
  auto const skip = [&](size_t at, std::string_view characters) {
    return std::min(format.find_first_not_of(characters, at), format.size());
  };
  size_t at = skip(1, "-+#0");
  at = skip(at, "0123456789");
  if (at < format.size() && format[at] == '.') at = skip(at + 1, "0123456789");
  at = skip(at, "hljztL");
  constexpr std::string_view kConversions = "diouxXeEfFgGaAcsp";
  bool const isOne = at < format.size() && kConversions.find(format[at]) != std::string_view::npos;
  return isOne ? at + 1 : 0;
}

}  // namespace

std::string fillFormat(std::string_view format, LogString const& arguments) {
  std::ostringstream filled;
  size_t argument = 0;
  while (!format.empty()) {
    size_t const percent = format.find('%');
    filled << format.substr(0, percent);
    if (percent == std::string_view::npos) break;
    format.remove_prefix(percent);
    if (size_t const length = conversionLength(format); length > 0) {
      if (argument < arguments.size()) {
        streamPlain(filled, arguments.str(argument++));
      } else {
        filled << "<missing>";
      }
      format.remove_prefix(length);
    } else {
      filled << '%';
      format.remove_prefix(format.starts_with("%%") ? 2 : 1);
    }
  }
  return filled.str();
}

namespace Impl {

U64 logArgsHash(LogString const& arguments, U64 seed) {
  Hash high(static_cast<U32>(~seed >> 32));
  Hash low(static_cast<U32>(seed));
  for (size_t index = 0; index < arguments.size(); ++index) {
    std::string_view const text = arguments.str(index);
    high.hashMix(text.data(), text.size());
    low.hashMix(text.data(), text.size());
  }
  return U64{high.result()} << 32 | low.result();
}

}  // namespace Impl

}  // namespace Kiv
