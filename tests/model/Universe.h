// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>

/// What the random sequences are about: a few values of each kind, named by their index, so that
/// events meet each other often. Small enough that the reference model is a plain struct.
namespace BfnTest {

/// An array that takes an index of any integer type.
template <class T, size_t N>
struct Table {
  using value_type = T;

  T items[N];

  template <std::integral Index>
  constexpr T& operator[](Index index) {
    return items[static_cast<size_t>(index)];
  }
  template <std::integral Index>
  constexpr T const& operator[](Index index) const {
    return items[static_cast<size_t>(index)];
  }
  constexpr T* begin() { return items; }
  constexpr T* end() { return items + N; }
  constexpr T const* begin() const { return items; }
  constexpr T const* end() const { return items + N; }
  static constexpr size_t size() { return N; }
  constexpr T& back() { return items[N - 1]; }
  constexpr void fill(T const& value) { std::fill(begin(), end(), value); }

  friend bool operator==(Table const&, Table const&) = default;
};

inline constexpr int kNames = 6;
inline constexpr int kIds = 6;
inline constexpr int kIps = 12;
inline constexpr int kIntfs = 6;  ///< 0 is the empty id
inline constexpr int kKeyVlans = 3;
inline constexpr int kMacs = 5;  ///< 0 is all-zero
inline constexpr int kRouting = 4;
inline constexpr int kL3 = 2;
inline constexpr int kClis = 2;
inline constexpr int kEntries = 2;
inline constexpr int kConfigs = 4;
inline constexpr int kStatuses = 3;
inline constexpr int kManagers = 3;
inline constexpr int kNone = -1;

/// One is named like a format, one is longer than a column of the show command.
inline constexpr Table<char const*, kNames> kNameText{
    "default", "red", "blue", "a%sb", "a-name-longer-than-a-column", "x"};
inline constexpr Table<std::uint32_t, kIds> kIdValue{0, 1, 7, 42, 70000, 4294967295u};
inline constexpr Table<Table<std::uint8_t, 4>, kIps> kIpBytes{{{10, 0, 0, 1},
                                                               {10, 0, 0, 2},
                                                               {10, 0, 0, 10},
                                                               {10, 0, 1, 1},
                                                               {192, 168, 255, 254},
                                                               {0, 0, 0, 0},
                                                               {255, 255, 255, 255},
                                                               {1, 2, 3, 4},
                                                               {10, 1, 0, 0},
                                                               {172, 16, 0, 9},
                                                               {10, 0, 0, 3},
                                                               {127, 0, 0, 1}}};
/// The address that a default value carries as well.
inline constexpr int kZeroIp = 5;
inline constexpr Table<char const*, kIntfs> kIntfText{"",        "Ethernet1",     "Ethernet2",
                                                      "Vlan100", "Port-Channel7", "Ethernet3.20"};
inline constexpr Table<std::uint16_t, kKeyVlans> kKeyVlanValue{0, 10, 4095};
inline constexpr Table<Table<std::uint8_t, 6>, kMacs> kMacBytes{
    {{0, 0, 0, 0, 0, 0},
     {0x02, 0x11, 0x22, 0x33, 0x44, 0x55},
     {0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
     {0, 0, 0, 0, 0, 1},
     {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xf0}}};
/// The first kIntfVlans fit an interface; only those in 1..4094 make rows.
inline constexpr Table<std::uint32_t, 10> kVlanValue{100,  200, 1,     300,   4094,
                                                     4095, 0,   65535, 65636, 70000};
inline constexpr int kVlans = 10;
inline constexpr int kIntfVlans = 8;
inline constexpr int kRowVlans = 5;
inline constexpr int kVlanZero = 6;

std::string ipText(int ip);
std::string macText(int mac);

/// The order in which the collections of this process walk their keys: it is the same for the life
/// of the process whatever comes and goes, so the order of any subset is known from that of all.
struct Orders {
  Table<int, kNames> l3Names{};              ///< of the L3 status's names
  Table<int, kIntfs * kKeyVlans> routing{};  ///< interface * kKeyVlans + VLAN
  Table<int, kIntfs> intfs{};                ///< of the merged routing status
  Table<int, kIds> statusVrfs{};             ///< of the address status
  Table<int, kIps> statusIps{};              ///< within one VRF of it
  Table<int, kIds * kIps> pairs{};           ///< of one interface: VRF * kIps + address
  Table<int, kNames> hwNames{};              ///< of the hardware route status
  Table<int, kNames * kIps> lines{};         ///< of the configuration: name * kIps + address
};

}  // namespace BfnTest
