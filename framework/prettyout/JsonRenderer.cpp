#include "framework/prettyout/JsonRenderer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "framework/core/Types.h"

namespace prettyout {

namespace {

using Kiv::U8;

// The longest form of one byte is \u00XX; around a text stand a comma, two quotes and ":{".
constexpr std::size_t kMaxPerByte = 6;
constexpr std::size_t kFraming = 8;

constexpr std::array<bool, 256> kPlain = [] {
  std::array<bool, 256> plain{};
  for (std::size_t byte = 0x20; byte < 0x80; ++byte) plain[byte] = byte != '"' && byte != '\\';
  return plain;
}();

constexpr bool isContinuation(U8 byte) {
  return (byte & 0xC0) == 0x80;
}

// Length of the well-formed multi-byte sequence at `at`, or 0: overlong forms, surrogates, numbers
// above 10FFFF and cut sequences are not well-formed.
std::size_t utf8Length(U8 const* at, U8 const* end) {
  U8 const lead = *at;
  std::size_t const length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || static_cast<std::size_t>(end - at) < length) return 0;
  U8 const second = at[1];
  U8 const lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  U8 const highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (second < lowest || second > highest) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (!isContinuation(at[i])) return 0;
  }
  return length;
}

char* writeEscape(char* to, U8 byte) {
  constexpr char kHex[] = "0123456789abcdef";
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
  to[3] = kHex[byte >> 4];
  to[4] = kHex[byte & 0xF];
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
    std::size_t const length = *at >= 0x80 ? utf8Length(at, end) : 0;
    if (length == 0) {
      to = writeEscape(to, *at++);
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
  buffer().commit(static_cast<std::size_t>(at - begin));
}

void JsonRenderer::doClose() {
  buffer().append("}");
}

void JsonRenderer::doAddAttributes(Columns const&, std::span<Attribute const> attributes) {
  std::size_t size = 0;
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
  buffer().commit(static_cast<std::size_t>(at - begin));
}

}  // namespace prettyout
