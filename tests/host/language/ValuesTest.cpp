// SPDX-License-Identifier: Apache-2.0
#include "host/language/Values.h"

#include <gtest/gtest.h>

namespace {

TEST(Values, AnAddressHasFourOctetsWithoutLeadingZeros) {
  EXPECT_EQ(Host::ipAddrOf("10.0.255.1"), Ovra::IpAddr(0x0A00FF01));
  EXPECT_EQ(Host::ipAddrOf("0.0.0.0"), Ovra::IpAddr(0));
  for (char const* const wrong :
       {"", "10.0.0", "10.0.0.", "10.0.0.256", "10.0.0.01", "10.0.0.1.2", "10..0.1", " 10.0.0.1",
        "10.0.0.1 ", "10.0.0.-1", "10.0.0.1000"}) {
    EXPECT_EQ(Host::ipAddrOf(wrong), std::nullopt) << wrong;
  }
}

TEST(Values, AMacHasSixPairsOfHexadecimalDigitsOfEitherCase) {
  EXPECT_EQ(Host::ethAddrOf("02:1a:B3:00:ff:09"),
            Ovra::EthAddr({0x02, 0x1a, 0xb3, 0x00, 0xff, 0x09}));
  for (char const* const wrong :
       {"", "02:1a:b3:00:ff", "02:1a:b3:00:ff:0", "02:1a:b3:00:ff:0g", "02-1a-b3-00-ff-09",
        "02:1a:b3:00:ff:09:", "021a:b3:00:ff:09::"}) {
    EXPECT_EQ(Host::ethAddrOf(wrong), std::nullopt) << wrong;
  }
}

}  // namespace
