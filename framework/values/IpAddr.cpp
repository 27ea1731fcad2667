// SPDX-License-Identifier: Apache-2.0
#include "framework/values/IpAddr.h"

#include <array>
#include <cstring>
#include <ostream>
#include <string_view>

#include "framework/core/Strep.h"

namespace Ovra {

namespace {

struct Octet {
  char text[4];  // decimal, then a dot
  Kiv::U8 size;
};

constexpr std::array<Octet, 256> kOctets = [] {
  std::array<Octet, 256> octets{};
  for (unsigned value = 0; value < 256; ++value) {
    Octet& octet = octets[value];
    auto const add = [&octet](unsigned digit) {
      octet.text[octet.size++] = static_cast<char>('0' + digit);
    };
    if (value >= 100) add(value / 100);
    if (value >= 10) add(value / 10 % 10);
    add(value % 10);
    octet.text[octet.size++] = '.';
  }
  return octets;
}();

}  // namespace

IpAddr::IpAddr(Kiv::String::Iterator& it, Kiv::String::Iterator const& end) {
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0) Kiv::needString(it, end, ".");
    value_ = value_ << 8 | Kiv::strepToValue<Kiv::U8>(it, end);
  }
}

size_t IpAddr::text(char* to) const {
  char* at = to;
  for (int shift = 24; shift >= 0; shift -= 8) {
    Octet const& octet = kOctets[value_ >> shift & 0xff];
    std::memcpy(at, octet.text, sizeof octet.text);
    at += octet.size;
  }
  return static_cast<size_t>(at - to) - 1;  // no dot after the last
}

Kiv::String IpAddr::valueToStrep() const {
  char buffer[kTextRoom];
  return Kiv::String(std::string_view(buffer, text(buffer)));
}

std::ostream& operator<<(std::ostream& stream, IpAddr ip) {
  char buffer[IpAddr::kTextRoom];
  return stream << std::string_view(buffer, ip.text(buffer));
}

}  // namespace Ovra
