// SPDX-License-Identifier: Apache-2.0
#include "framework/values/Utf8.h"

namespace Kiv {

namespace {

constexpr bool isContinuation(U8 byte) {
  return (byte & 0xC0) == 0x80;
}

/// Whether the four bytes at `at` are U+10FF80 to U+10FFFF.
constexpr bool isEscape(U8 const* at) {
  return at[0] == 0xF4 && at[1] == 0x8F && (at[2] & 0xFE) == 0xBE && isContinuation(at[3]);
}

U8 const* bytesOf(std::string_view text) {
  return reinterpret_cast<U8 const*>(text.data());
}

}  // namespace

size_t plainUtf8Length(U8 const* at, U8 const* end) {
  // Overlong forms, surrogates, numbers above 10FFFF and cut sequences are not valid.
  U8 const lead = *at;
  size_t const length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || static_cast<size_t>(end - at) < length) return 0;
  U8 const lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  U8 const highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (at[1] < lowest || at[1] > highest) return 0;
  for (size_t i = 2; i < length; ++i) {
    if (!isContinuation(at[i])) return 0;
  }
  return length == 4 && isEscape(at) ? 0 : length;
}

char* writeByteAsUtf8(char* to, U8 byte) {
  U8 const encoded[kUtf8PerByte] = {0xF4, 0x8F, static_cast<U8>(0xBC | byte >> 6),
                                    static_cast<U8>(0x80 | (byte & 0x3F))};
  for (U8 const each : encoded) *to++ = static_cast<char>(each);
  return to;
}

std::string utf8FromBytes(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  U8 const* const end = bytesOf(bytes) + bytes.size();
  for (U8 const* at = bytesOf(bytes); at != end;) {
    size_t const length = *at < 0x80 ? 1 : plainUtf8Length(at, end);
    if (length > 0) {
      text.append(at, at + length);
      at += length;
    } else {
      char escape[kUtf8PerByte];
      writeByteAsUtf8(escape, *at++);
      text.append(escape, sizeof escape);
    }
  }
  return text;
}

std::string bytesFromUtf8(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  U8 const* const end = bytesOf(text) + text.size();
  for (U8 const* at = bytesOf(text); at != end;) {
    if (static_cast<size_t>(end - at) >= kUtf8PerByte && isEscape(at)) {
      bytes += static_cast<char>((at[2] & 0x3) << 6 | (at[3] & 0x3F));
      at += kUtf8PerByte;
    } else {
      bytes += static_cast<char>(*at++);
    }
  }
  return bytes;
}

}  // namespace Kiv
