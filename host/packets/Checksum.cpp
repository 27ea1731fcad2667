// SPDX-License-Identifier: Apache-2.0
#include "host/packets/Checksum.h"

#include <bit>
#include <cstring>

namespace Host::Packets {

namespace {

using Kiv::U16;
using Kiv::U32;
using Kiv::U64;

// Both the sum of eight bytes as two halves and the additions of a 64 KB packet stay far below 64
// bits, so carries are folded once, at the end.
U64 halvesAt(Kiv::U8 const* bytes) {
  U64 word;
  std::memcpy(&word, bytes, sizeof word);
  return (word & 0xffff'ffffu) + (word >> 32);
}

constexpr U16 turned(U16 word) {
  if constexpr (std::endian::native == std::endian::big) return word;
  return static_cast<U16>(word << 8 | word >> 8);
}

}  // namespace

InternetChecksum& InternetChecksum::add(Bytes bytes) {
  U64 sum = sum_;
  while (bytes.size() >= sizeof(U64)) {
    sum += halvesAt(bytes.data());
    bytes = bytes.subspan(sizeof(U64));
  }
  if (!bytes.empty()) {
    Kiv::U8 rest[sizeof(U64)] = {};
    std::memcpy(rest, bytes.data(), bytes.size());
    sum += halvesAt(rest);
  }
  sum_ = sum;
  return *this;
}

InternetChecksum& InternetChecksum::addWord(U16 word) {
  sum_ += turned(word);
  return *this;
}

U16 InternetChecksum::value() const {
  U64 sum = sum_;
  while (sum >> 16 != 0) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<U16>(~turned(static_cast<U16>(sum)));
}

}  // namespace Host::Packets
