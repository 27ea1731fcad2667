// SPDX-License-Identifier: Apache-2.0
#include "host/language/Values.h"

#include <charconv>

#include "framework/core/Exceptions.h"
#include "framework/core/Strep.h"
#include "framework/values/IntfId.h"
#include "framework/values/VrfName.h"

namespace Host {

namespace {

template <class T>
std::optional<T> parsed(std::string_view text) {
  try {
    return Kiv::strepToValue<T>(Kiv::String(text));
  } catch (Kiv::RangeException const&) {
    return std::nullopt;
  }
}

}  // namespace

std::optional<Ovra::IpAddr> ipAddrOf(std::string_view text) {
  return parsed<Ovra::IpAddr>(text);
}
std::optional<Ovra::EthAddr> ethAddrOf(std::string_view text) {
  return parsed<Ovra::EthAddr>(text);
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
