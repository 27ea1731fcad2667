// SPDX-License-Identifier: Apache-2.0
#include "tests/model/Universe.h"

#include <sstream>

namespace BfnTest {

std::string ipText(int ip) {
  auto const& b = kIpBytes[ip];
  std::ostringstream out;
  out << int{b[0]} << '.' << int{b[1]} << '.' << int{b[2]} << '.' << int{b[3]};
  return out.str();
}

std::string macText(int mac) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::uint8_t const byte : kMacBytes[mac]) {
    if (!text.empty()) text += ':';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace BfnTest
