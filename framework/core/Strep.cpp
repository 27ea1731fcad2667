// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Strep.h"

#include <algorithm>
#include <ostream>

namespace Kiv {

namespace {

bool isControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

void appendEscaped(std::string& out, char c) {
  auto const byte = static_cast<unsigned char>(c);
  if (c == '\'' || c == '\\') {
    out += '\\';
    out += c;
  } else if (isControl(c) || byte > 0x7e) {
    out += "\\x";
    out += kHexDigits[byte >> 4];
    out += kHexDigits[byte & 0xf];
  } else {
    out += c;
  }
}

std::string escaped(std::string_view text) {
  std::string out;
  for (char const c : text) appendEscaped(out, c);
  return out;
}

U64 digitsFromStrep(String::Iterator& it, String::Iterator const& end, U64 max) {
  String::Iterator const start = it;
  if (it == end || !isDigit(*it)) throwUnexpected(start, end, "a number");
  U64 value = 0;
  for (; it != end && isDigit(*it); ++it) {
    auto const digit = static_cast<U64>(*it - '0');
    if (it != start && value == 0) throwUnexpected(start, end, "a number without leading zeros");
    if (value > max / 10 || value * 10 > max - digit) {
      throwUnexpected(start, end, "a number not above " + std::to_string(max));
    }
    value = value * 10 + digit;
  }
  return value;
}

}  // namespace

constinit StrepAttempt::Names StrepAttempt::names_ = {[] { return U32{0}; }, [](U32) {}};

void throwUnexpected(String::Iterator it, String::Iterator end, std::string_view expected) {
  constexpr std::ptrdiff_t kShown = 24;
  std::string message = "expected ";
  message += expected;
  if (it == end) throwRangeException(message + ", found the end of the text");
  auto const shown = static_cast<size_t>(std::min(end - it, kShown));
  message += ", found '" + escaped({it.operator->(), shown}) + "'";
  if (end - it > kShown) message += "...";
  throwRangeException(message);
}

void needString(String::Iterator& it, String::Iterator const& end, std::string_view literal) {
  auto const size = static_cast<std::ptrdiff_t>(literal.size());
  if (end - it < size || !std::equal(literal.begin(), literal.end(), it)) {
    throwUnexpected(it, end, literal);
  }
  it += size;
}

void strepToValueEnd(String::Iterator const& it, String::Iterator const& end) {
  if (it != end) throwUnexpected(it, end, "the end of the text");
}

String quotedToStrep(std::string_view text) {
  return '\'' + escaped(text) + '\'';
}

std::string quotedFromStrep(String::Iterator& it, String::Iterator const& end) {
  needString(it, end, "'");
  std::string text;
  while (it != end && *it != '\'') {
    if (*it != '\\') {
      text += *it++;
      continue;
    }
    String::Iterator const escape = it++;
    if (it == end) break;
    char const kind = *it++;
    if (kind == '\'' || kind == '\\') {
      text += kind;
    } else if (kind == 'x' && end - it >= 2 && hexDigitValue(it[0]) >= 0 &&
               hexDigitValue(it[1]) >= 0) {
      text += static_cast<char>(hexDigitValue(it[0]) * 16 + hexDigitValue(it[1]));
      it += 2;
    } else {
      throwUnexpected(escape, end, "\\\\, \\' or \\xHH");
    }
  }
  needString(it, end, "'");
  return text;
}

void streamPlain(std::ostream& stream, std::string_view text) {
  if (std::none_of(text.begin(), text.end(), isControl)) {
    stream << text;
  } else {
    // In small pieces, which allocate nothing: a fatal check prints texts without memory.
    for (char const c : text) {
      std::string one;
      appendEscaped(one, c);
      stream << one;
    }
  }
}

namespace detail {

bool boolFromStrep(String::Iterator& it, String::Iterator const& end) {
  if (it != end && *it == 'T') {
    needString(it, end, "True");
    return true;
  }
  if (it != end && *it == 'F') {
    needString(it, end, "False");
    return false;
  }
  throwUnexpected(it, end, "True or False");
}

U64 unsignedFromStrep(String::Iterator& it, String::Iterator const& end, U64 max) {
  return digitsFromStrep(it, end, max);
}

std::int64_t signedFromStrep(String::Iterator& it, String::Iterator const& end, std::int64_t min,
                             std::int64_t max) {
  if (it == end || *it != '-') {
    return static_cast<std::int64_t>(digitsFromStrep(it, end, static_cast<U64>(max)));
  }
  String::Iterator const start = it++;
  U64 const magnitude = digitsFromStrep(it, end, U64{0} - static_cast<U64>(min));
  if (magnitude == 0) throwUnexpected(start, end, "a number; zero has no sign");
  return static_cast<std::int64_t>(U64{0} - magnitude);
}

}  // namespace detail

StrepReader::StrepReader(String::Iterator& it, String::Iterator const& end, std::string_view type)
    : it_(it), end_(end) {
  needString(it_, end_, "Value('" + std::string(type) + "', ** {");
}

void StrepReader::openField(char const* name) {
  needString(it_, end_, (first_ ? "'" : ", '") + std::string(name) + "': ");
  first_ = false;
}

void StrepReader::close() {
  needString(it_, end_, "})");
  attempt_.succeed();
}

StrepWriter::StrepWriter(std::string_view type) {
  text_ += "Value('";
  text_ += type;
  text_ += "', ** {";
}

void StrepWriter::addField(char const* name, String const& strep) {
  text_ += first_ ? "'" : ", '";
  text_ += name;
  text_ += "': ";
  text_ += strep;
  first_ = false;
}

String StrepWriter::close() {
  text_ += "})";
  return text_;
}

}  // namespace Kiv
