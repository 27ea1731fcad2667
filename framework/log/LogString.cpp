#include "framework/log/LogString.h"

#include <sstream>
#include <utility>

#include "framework/core/Fatal.h"
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

std::string fillFormat(std::string_view format, LogString const& arguments) {
  std::ostringstream filled;
  size_t argument = 0;
  while (!format.empty()) {
    size_t const percent = format.find('%');
    filled << format.substr(0, percent);
    if (percent == std::string_view::npos) break;
    format.remove_prefix(percent);
    if (format.starts_with("%s")) {
      if (argument < arguments.size()) {
        streamPlain(filled, arguments.str(argument++));
      } else {
        filled << "<missing>";
      }
      format.remove_prefix(2);
    } else {
      filled << '%';
      format.remove_prefix(format.starts_with("%%") ? 2 : 1);
    }
  }
  return filled.str();
}

namespace Impl {

namespace {

U64 mix(U64 hash, U64 value) {
  hash = (hash ^ value) * 0x9E3779B97F4A7C15U;
  return hash ^ hash >> 32;
}

}  // namespace

U64 logArgsHash(LogString const& arguments, U64 seed) {
  U64 hash = seed;
  for (size_t index = 0; index < arguments.size(); ++index) {
    std::string_view const text = arguments.str(index);
    hash = mix(hash, text.size());
    for (char const c : text) hash = mix(hash, static_cast<U8>(c));
  }
  return hash;
}

}  // namespace Impl

}  // namespace Kiv
