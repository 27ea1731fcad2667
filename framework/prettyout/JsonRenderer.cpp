// SPDX-License-Identifier: Apache-2.0
#include "framework/prettyout/JsonRenderer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "framework/core/HexDigits.h"
#include "framework/core/Types.h"
#include "framework/values/Utf8.h"

namespace prettyout {

namespace {

using Kiv::U8;

// The longest form of one byte is \u00XX, longer than kUtf8PerByte; a text is surrounded by a
// comma, two quotes and ":{".
constexpr size_t kMaxPerByte = 6;
constexpr size_t kFraming = 8;

constexpr std::array<bool, 256> kPlain = [] {
  std::array<bool, 256> plain{};
  for (size_t byte = 0x20; byte < 0x80; ++byte) plain[byte] = byte != '"' && byte != '\\';
  return plain;
}();

char* writeEscape(char* to, U8 byte) {
  *to++ = '\\';
  switch (byte) {
    case '"':
    case '\\':
      *to++ = static_cast<char>(byte);
      return to;
    case '\n':
      *to++ = 'n';
      return to;
    case '\r':
      *to++ = 'r';
      return to;
    case '\t':
      *to++ = 't';
      return to;
    default:
      break;
  }
  std::copy_n("u00", 3, to);
  to[3] = Kiv::kHexDigits[byte >> 4];
  to[4] = Kiv::kHexDigits[byte & 0xF];
  return to + 5;
}

char* writeString(char* to, std::string_view text) {
  *to++ = '"';
  auto const* at = reinterpret_cast<U8 const*>(text.data());
  auto const* const end = at + text.size();
  while (at != end) {
    if (kPlain[*at]) {
      *to++ = static_cast<char>(*at++);
      continue;
    }
    if (*at < 0x80) {
      to = writeEscape(to, *at++);
      continue;
    }
    size_t const length = Kiv::plainUtf8Length(at, end);
    if (length == 0) {
      to = Kiv::writeByteAsUtf8(to, *at++);
      continue;
    }
    std::memcpy(to, at, length);
    to += length;
    at += length;
  }
  *to++ = '"';
  return to;
}

}  // namespace

void JsonRenderer::doStart() {
  buffer().append("{");
}

void JsonRenderer::doEnd() {
  buffer().append("}\n");
}

void JsonRenderer::doOpen(std::string_view key) {
  char* const begin = buffer().room(kMaxPerByte * key.size() + kFraming);
  char* at = begin;
  if (!takeFirstMember()) *at++ = ',';
  at = writeString(at, key);
  *at++ = ':';
  *at++ = '{';
  buffer().commit(static_cast<size_t>(at - begin));
}

void JsonRenderer::doClose() {
  buffer().append("}");
}

void JsonRenderer::doAddAttributes(Columns const&, std::span<Attribute const> attributes) {
  size_t size = 0;
  for (Attribute const& attribute : attributes) {
    size += kMaxPerByte * (attribute.name.size() + attribute.value.size()) + kFraming;
  }
  char* const begin = buffer().room(size);
  char* at = begin;
  for (Attribute const& attribute : attributes) {
    if (!takeFirstMember()) *at++ = ',';
    at = writeString(at, attribute.name);
    *at++ = ':';
    at = writeString(at, attribute.value);
  }
  buffer().commit(static_cast<size_t>(at - begin));
}

}  // namespace prettyout
