// SPDX-License-Identifier: Apache-2.0
#include "host/language/Values.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "framework/core/Exceptions.h"
#include "framework/core/HexDigits.h"
#include "framework/core/Strep.h"
#include "framework/values/IntfId.h"
#include "framework/values/VrfName.h"

namespace Host {

namespace {

constexpr Kiv::U64 kMostTraceLevel = 30;

template <class T>
std::optional<T> parsed(std::string_view text) {
  try {
    return Kiv::strepToValue<T>(Kiv::String(text));
  } catch (Kiv::RangeException const&) {
    return std::nullopt;
  }
}

// The usual form of an address, without the detour over a string form; every other one is parsed.
std::optional<Ovra::IpAddr> dottedQuad(std::string_view text) {
  Kiv::U32 address = 0;
  for (int octet = 0; octet < 4; ++octet) {
    Kiv::U32 value = 0;
    size_t digits = 0;
    while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9' && digits < 3) {
      value = value * 10 + static_cast<Kiv::U32>(text[digits++] - '0');
    }
    bool const ends =
        octet == 3 ? digits == text.size() : digits < text.size() && text[digits] == '.';
    if (digits == 0 || !ends || value > 255 || (digits > 1 && text[0] == '0')) return std::nullopt;
    address = address << 8 | value;
    text.remove_prefix(std::min(digits + 1, text.size()));
  }
  return Ovra::IpAddr(address);
}

std::optional<Ovra::EthAddr> colonPairs(std::string_view text) {
  constexpr size_t kSize = 17;
  if (text.size() != kSize) return std::nullopt;
  std::array<Kiv::U8, 6> bytes{};
  for (size_t i = 0; i < bytes.size(); ++i) {
    int const high = Kiv::hexDigitValue(text[3 * i]);
    int const low = Kiv::hexDigitValue(text[3 * i + 1]);
    if (high < 0 || low < 0 || (i > 0 && text[3 * i - 1] != ':')) return std::nullopt;
    bytes[i] = static_cast<Kiv::U8>(high << 4 | low);
  }
  return Ovra::EthAddr(bytes);
}

}  // namespace

std::optional<Ovra::IpAddr> ipAddrOf(std::string_view text) {
  auto const usual = dottedQuad(text);
  return usual ? usual : parsed<Ovra::IpAddr>(text);
}
std::optional<Ovra::EthAddr> ethAddrOf(std::string_view text) {
  auto const usual = colonPairs(text);
  return usual ? usual : parsed<Ovra::EthAddr>(text);
}

std::optional<Kiv::U64> numberOf(std::string_view text, Kiv::U64 max) {
  Kiv::U64 number = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > max ||
      (text.size() > 1 && text[0] == '0')) {
    return std::nullopt;
  }
  return number;
}

bool accepts(std::string_view slot, Limits const& limits, std::string_view text) {
  if (slot == "VRF") return text.size() <= L3::VrfName::maxLength;
  if (slot == "INTF") return text.size() <= Ovra::IntfId::maxLength;
  if (slot == "IP") return ipAddrOf(text).has_value();
  if (slot == "MAC") return ethAddrOf(text).has_value();
  if (slot == "LEVEL") {
    auto const level = numberOf(text, kMostTraceLevel);
    return text == "off" || level.has_value();
  }
  if (slot == "N") {
    auto const number = numberOf(text, limits.max);
    return number.has_value() && *number >= limits.min;
  }
  return true;
}

std::string describeSlot(std::string_view slot, Limits const& limits) {
  if (slot == "VRF") return "a VRF name of at most 100 bytes";
  if (slot == "INTF") return "an interface such as Ethernet1";
  if (slot == "IP") return "an IPv4 address such as 10.0.0.1";
  if (slot == "MAC") return "a MAC address such as 02:11:22:33:44:55";
  if (slot == "N") {
    return "a number from " + std::to_string(limits.min) + " to " + std::to_string(limits.max);
  }
  if (slot == "LEVEL") return "a trace level from 0 to 30 or off";
  if (slot == "VALUE") return "a value";
  if (slot == "MESSAGE") return "a part of a message";
  if (slot == "NAME") return "a name";
  if (slot == "FILE") return "a file of commands";
  if (slot == "DIR") return "a folder";
  if (slot == "IN.pcap") return "a capture to read";
  if (slot == "OUT.pcap") return "a capture to write";
  if (slot == "COMMAND") return "a command";
  if (slot == "JSON") return "JSON";
  return '<' + std::string(slot) + '>';
}

}  // namespace Host
