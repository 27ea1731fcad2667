// SPDX-License-Identifier: Apache-2.0
#include <concepts>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <type_traits>

#include "framework/core/Exceptions.h"
#include "framework/core/Strep.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IntfId.h"
#include "framework/values/IpAddr.h"
#include "framework/values/PortVlanPair.h"
#include "framework/values/VlanId.h"
#include "framework/values/VrfAndIpAddr.h"
#include "framework/values/VrfId.h"
#include "framework/values/VrfName.h"

namespace {

using Bridging::VlanId;
using Kiv::Hash;
using Kiv::hashSingleAttr;
using Kiv::U16;
using Kiv::U32;
using L3::VrfName;
using Ovra::EthAddr;
using Ovra::IntfId;
using Ovra::IpAddr;
using Pex::PortVlanPair;
using Pex::VrfAndIpAddr;
using Pex::VrfId;

template <class T, size_t kSize>
constexpr bool kPlainValueOfSize = std::is_trivially_copyable_v<T> &&
                                   sizeof(T) == kSize&& std::totally_ordered<T>&& Kiv::HasStrep<T>;

static_assert(kPlainValueOfSize<IpAddr, 4>);
static_assert(kPlainValueOfSize<EthAddr, 6>);
static_assert(kPlainValueOfSize<IntfId, 4>);
static_assert(kPlainValueOfSize<VrfName, 4>);
static_assert(kPlainValueOfSize<VrfId, 4>);
static_assert(kPlainValueOfSize<VrfAndIpAddr, 8>);
static_assert(kPlainValueOfSize<PortVlanPair, 8>);
static_assert(kPlainValueOfSize<VlanId, 2>);
static_assert(!std::is_default_constructible_v<VlanId>);
static_assert(!std::is_convertible_v<U32, IpAddr> && !std::is_convertible_v<U32, VrfId>);

template <class T>
std::string streamed(T const& value) {
  std::ostringstream stream;
  stream << value;
  return stream.str();
}

template <class T>
void expectRoundTrip(T const& value, char const* strep) {
  EXPECT_EQ(Kiv::valueToStrep(value), strep);
  EXPECT_EQ(Kiv::strepToValue<T>(strep), value);
}

TEST(Values, StringFormsComeBack) {
  expectRoundTrip(IpAddr(0x0A000001), "10.0.0.1");
  expectRoundTrip(IpAddr(), "0.0.0.0");
  expectRoundTrip(IpAddr(0xFFFFFFFF), "255.255.255.255");
  expectRoundTrip(EthAddr(), "00:00:00:00:00:00");
  expectRoundTrip(EthAddr({2, 0x5e, 0x10, 0xAB, 0xcd, 0xef}), "02:5e:10:ab:cd:ef");
  expectRoundTrip(IntfId("Ethernet1"), "'Ethernet1'");
  expectRoundTrip(IntfId(), "''");
  expectRoundTrip(IntfId("', 'selfIp': True})"), R"('\', \'selfIp\': True})')");
  expectRoundTrip(VrfName("red"), "'red'");
  expectRoundTrip(VrfId(), "0");
  expectRoundTrip(VrfId(4294967295), "4294967295");
  expectRoundTrip(VlanId(1), "1");
  expectRoundTrip(VlanId(4094), "4094");
  expectRoundTrip(VrfAndIpAddr(VrfId(7), IpAddr(0x0A000001)),
                  "Value('Pex::VrfAndIpAddr', ** {'vrfId': 7, 'ipAddr': 10.0.0.1})");
  expectRoundTrip(PortVlanPair(IntfId("Ethernet1"), 0),
                  "Value('Pex::PortVlanPair', ** {'intfId': 'Ethernet1', 'vlanId': 0})");
  expectRoundTrip(PortVlanPair(IntfId("a', {"), 65535),
                  R"(Value('Pex::PortVlanPair', ** {'intfId': 'a\', {', 'vlanId': 65535}))");
}

TEST(Values, StreamWithoutQuotes) {
  EXPECT_EQ(streamed(IpAddr(0xC0A80001)), "192.168.0.1");
  EXPECT_EQ(streamed(EthAddr({2, 0, 0, 0, 0, 0x0A})), "02:00:00:00:00:0a");
  EXPECT_EQ(streamed(IntfId("Ethernet1")), "Ethernet1");
  EXPECT_EQ(streamed(VrfName("red")), "red");
  EXPECT_EQ(streamed(VrfId(7)), "7");
  EXPECT_EQ(streamed(VlanId(12)), "12");
  EXPECT_EQ(streamed(VrfAndIpAddr(VrfId(7), IpAddr(1))),
            "Value('Pex::VrfAndIpAddr', ** {'vrfId': 7, 'ipAddr': 0.0.0.1})");
}

TEST(Values, StreamAsDecimalOnAHexStream) {
  std::ostringstream stream;
  stream << std::hex << IpAddr(0xC0A80001) << ' ' << EthAddr();
  EXPECT_EQ(stream.str(), "192.168.0.1 00:00:00:00:00:00");
}

TEST(IpAddr, WritesEveryOctetIntoACallersBuffer) {
  for (U32 value = 0; value < 256; ++value) {
    std::string const octet = std::to_string(value);
    char buffer[IpAddr::kTextRoom];
    EXPECT_EQ(std::string_view(buffer, IpAddr(value * 0x01010101).text(buffer)),
              octet + "." + octet + "." + octet + "." + octet);
  }
  char buffer[IpAddr::kTextRoom];
  EXPECT_EQ(std::string_view(buffer, IpAddr(0x0A00C801).text(buffer)), "10.0.200.1");
}

TEST(EthAddr, WritesEveryByteIntoACallersBuffer) {
  for (unsigned i = 0; i < 256; ++i) {
    auto const byte = static_cast<Kiv::U8>(i);
    char expected[24];
    std::snprintf(expected, sizeof expected, "00:%02x:ab:%02x:ff:%02x", i, 255 - i, i);
    char buffer[EthAddr::kTextSize];
    EthAddr({0, byte, 0xab, static_cast<Kiv::U8>(255 - i), 0xff, byte}).text(buffer);
    EXPECT_EQ(std::string_view(buffer, sizeof buffer), expected);
  }
}

TEST(IpAddr, OrdersNumerically) {
  EXPECT_LT(IpAddr(0x09000000), IpAddr(0x0A000000));
  EXPECT_LT(IpAddr(0x7FFFFFFF), IpAddr(0x80000000));
  EXPECT_EQ(IpAddr(), IpAddr(0));
}

TEST(EthAddr, SplitsIntoUpperAndLowerThreeBytes) {
  EthAddr const mac({0x01, 0x02, 0x03, 0x04, 0x05, 0x06});
  EXPECT_EQ(mac.oui(), 0x010203u);
  EXPECT_EQ(mac.station(), 0x040506u);
  EXPECT_EQ(mac.value(), 0x010203040506u);
  EXPECT_EQ(Ovra::ethAddrFromOuiStation(0x010203, 0x040506), mac);
  EthAddr const high({0xff, 0xfe, 0xfd, 0xfc, 0xfb, 0xfa});
  EXPECT_EQ(Ovra::ethAddrFromOuiStation(high.oui(), high.station()), high);
}

TEST(EthAddr, DropsBitsAbove24OfEitherHalf) {
  EXPECT_EQ(Ovra::ethAddrFromOuiStation(0xAA010203, 0xBB040506),
            Ovra::ethAddrFromOuiStation(0x010203, 0x040506));
}

TEST(EthAddr, OrdersByItsBytes) {
  EXPECT_LT(EthAddr({0, 0, 0, 0, 0, 0xff}), EthAddr({0, 0, 0, 0, 1, 0}));
  EXPECT_LT(EthAddr({0, 0xff, 0xff, 0xff, 0xff, 0xff}), EthAddr({1, 0, 0, 0, 0, 0}));
}

TEST(EthAddr, ReadsEitherCase) {
  EXPECT_EQ(Kiv::strepToValue<EthAddr>("0A:bC:dE:F0:00:0f"),
            EthAddr({0x0a, 0xbc, 0xde, 0xf0, 0x00, 0x0f}));
}

TEST(VlanId, Takes1To4094) {
  EXPECT_EQ(VlanId(1).value(), 1);
  EXPECT_EQ(VlanId(4094).value(), 4094);
  for (U32 const bad : {0u, 4095u, 65535u, 65537u, 4294967295u}) {
    try {
      (void)VlanId(bad);
      FAIL() << bad;
    } catch (Kiv::RangeException const& exception) {
      EXPECT_STREQ(exception.what(), "VlanId::value < 1 or > 4094 not allowed");
    }
  }
}

TEST(VlanId, RefusesAStringFormOutOfRangeWithTheSameText) {
  for (char const* bad : {"0", "4095", "65537"}) {
    try {
      (void)Kiv::strepToValue<VlanId>(bad);
      FAIL() << bad;
    } catch (Kiv::RangeException const& exception) {
      EXPECT_STREQ(exception.what(), "VlanId::value < 1 or > 4094 not allowed");
    }
  }
}

TEST(VrfAndIpAddr, OrdersByVrfThenAddress) {
  EXPECT_LT(VrfAndIpAddr(VrfId(1), IpAddr(9)), VrfAndIpAddr(VrfId(2), IpAddr(1)));
  EXPECT_LT(VrfAndIpAddr(VrfId(1), IpAddr(1)), VrfAndIpAddr(VrfId(1), IpAddr(2)));
  EXPECT_NE(VrfAndIpAddr(VrfId(1), IpAddr(2)), VrfAndIpAddr(VrfId(2), IpAddr(1)));
}

TEST(PortVlanPair, OrdersByInterfaceThenVlan) {
  IntfId const last("b");
  IntfId const first("a");
  EXPECT_LT(PortVlanPair(first, 9), PortVlanPair(last, 1));
  EXPECT_LT(PortVlanPair(first, 1), PortVlanPair(first, 2));
  EXPECT_NE(PortVlanPair(first, 1), PortVlanPair(first, 2));
  EXPECT_NE(PortVlanPair(first, 1), PortVlanPair(last, 1));
}

TEST(Values, MixTheirFourBytesIntoAKeysHash) {
  EXPECT_EQ(hashSingleAttr(5u, IpAddr(9)), Hash(5).hashMix(U32{9}).result());
  EXPECT_EQ(hashSingleAttr(5u, VrfId(9)), Hash(5).hashMix(U32{9}).result());
  EXPECT_EQ(hashSingleAttr(5u, VlanId(9)), Hash(5).hashMix(U32{9}).result());
}

TEST(Values, MixTheirFieldsInDeclarationOrder) {
  EXPECT_EQ(hashSingleAttr(5u, VrfAndIpAddr(VrfId(1), IpAddr(2))),
            Hash(5).hashMix(U32{1}).hashMix(U32{2}).result());
  EXPECT_EQ(hashSingleAttr(5u, PortVlanPair(IntfId("Ethernet1"), 3)),
            Hash(5).hashMix(IntfId("Ethernet1").hash()).hashMix(U16{3}).result());
  EXPECT_NE(hashSingleAttr(5u, EthAddr({0, 0, 0, 0, 0, 1})),
            hashSingleAttr(5u, EthAddr({1, 0, 0, 0, 0, 0})));
}

}  // namespace
