// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/ArgTraits.h"

#include "framework/core/Strep.h"

namespace Ringlog {

void TextArgTraits::render(std::ostream& stream, WordReader& words) {
  U64 const sizes = words.word();
  size_t const kept = std::min<size_t>(sizes & 0xff, kMaxArgBytes);
  U64 const whole = sizes >> 8;
  char bytes[kMaxArgBytes];
  words.bytes(bytes, kept);
  Kiv::streamPlain(stream, {bytes, kept});
  if (whole > kept) stream << "...[" << whole << " bytes]";
}

}  // namespace Ringlog
