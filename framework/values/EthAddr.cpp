// SPDX-License-Identifier: Apache-2.0
#include "framework/values/EthAddr.h"

#include <ostream>
#include <string_view>

#include "framework/core/Strep.h"

namespace Ovra {

namespace {

Kiv::U8 byteFromStrep(Kiv::String::Iterator& it, Kiv::String::Iterator const& end) {
  if (end - it < 2 || Kiv::hexDigitValue(it[0]) < 0 || Kiv::hexDigitValue(it[1]) < 0) {
    Kiv::throwUnexpected(it, end, "two hexadecimal digits");
  }
  auto const byte = Kiv::hexDigitValue(it[0]) * 16 + Kiv::hexDigitValue(it[1]);
  it += 2;
  return static_cast<Kiv::U8>(byte);
}

}  // namespace

EthAddr::EthAddr(Kiv::String::Iterator& it, Kiv::String::Iterator const& end) {
  std::array<Kiv::U8, 6> bytes;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0) Kiv::needString(it, end, ":");
    bytes[i] = byteFromStrep(it, end);
  }
  *this = EthAddr(bytes);
}

void EthAddr::text(char* to) const {
  for (int i = 0; i < 3; ++i) {
    Kiv::U16 const word = words_[i];
    to[0] = Kiv::kHexDigits[word >> 12];
    to[1] = Kiv::kHexDigits[word >> 8 & 0xf];
    to[2] = ':';
    to[3] = Kiv::kHexDigits[word >> 4 & 0xf];
    to[4] = Kiv::kHexDigits[word & 0xf];
    if (i < 2) to[5] = ':';
    to += 6;
  }
}

Kiv::String EthAddr::valueToStrep() const {
  char buffer[kTextSize];
  text(buffer);
  return Kiv::String(std::string_view(buffer, sizeof buffer));
}

std::ostream& operator<<(std::ostream& stream, EthAddr const& mac) {
  char buffer[EthAddr::kTextSize];
  mac.text(buffer);
  return stream << std::string_view(buffer, sizeof buffer);
}

}  // namespace Ovra
