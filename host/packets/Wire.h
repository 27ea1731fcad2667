// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

#include "chip/RewriteLayout.h"
#include "framework/core/Types.h"

namespace Host::Packets {

/// Bytes of a packet in the order in which they are sent.
using Bytes = std::span<Kiv::U8 const>;
using MutableBytes = std::span<Kiv::U8>;

using BfnChip::AddressBytes;
using BfnChip::MacBytes;

/// Numbers of a packet are big-endian. The caller makes sure that the bytes are there.
constexpr Kiv::U16 load16(Bytes bytes, size_t at) {
  return static_cast<Kiv::U16>(bytes[at] << 8 | bytes[at + 1]);
}

constexpr Kiv::U32 load32(Bytes bytes, size_t at) {
  return Kiv::U32{load16(bytes, at)} << 16 | load16(bytes, at + 2);
}

constexpr void store16(MutableBytes bytes, size_t at, Kiv::U16 value) {
  bytes[at] = static_cast<Kiv::U8>(value >> 8);
  bytes[at + 1] = static_cast<Kiv::U8>(value);
}

constexpr void store32(MutableBytes bytes, size_t at, Kiv::U32 value) {
  store16(bytes, at, static_cast<Kiv::U16>(value >> 16));
  store16(bytes, at + 2, static_cast<Kiv::U16>(value));
}

/// An address or a MAC as in the packet.
template <size_t N>
constexpr std::array<Kiv::U8, N> loadBytes(Bytes bytes, size_t at) {
  std::array<Kiv::U8, N> copy{};
  std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), N, copy.begin());
  return copy;
}

template <size_t N>
constexpr void storeBytes(MutableBytes bytes, size_t at, std::array<Kiv::U8, N> const& value) {
  std::copy_n(value.begin(), N, bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

}  // namespace Host::Packets
