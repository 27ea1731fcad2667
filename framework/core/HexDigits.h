// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace Kiv {

/// The digits of hexadecimal numbers as they are written, by value.
inline constexpr char kHexDigits[] = "0123456789abcdef";

/// The value of a hexadecimal digit of either case, -1 for any other character.
constexpr int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace Kiv
