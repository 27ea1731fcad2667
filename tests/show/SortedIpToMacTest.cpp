// SPDX-License-Identifier: Apache-2.0
#include "show/SortedIpToMac.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/generic/Type.h"
#include "tests/support/PluginHost.h"

namespace {

using BfnMacRewrite::SortedIpToMac;
using BfnTest::ip;
using BfnTest::mac;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class SortedIpToMacTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sorted->ipToMacIs(ip("10.0.0.10"), mac("02:00:00:00:00:0a"));
    sorted->ipToMacIs(ip("10.0.0.2"), mac("02:00:00:00:00:02"));
    sorted->ipToMacIs(ip("9.0.0.1"), mac("02:00:00:00:00:01"));
  }
  Kiv::Ptr<SortedIpToMac> sorted = Kiv::makeActive<SortedIpToMac>(L3::VrfName("red"));
};

TEST_F(SortedIpToMacTest, AddressesAscend) {
  EXPECT_EQ(sorted->vrfName(), L3::VrfName("red"));
  EXPECT_EQ(sorted->fwkType().name(), "BfnMacRewrite::SortedIpToMac");
  EXPECT_THAT(sorted->ipToMac(), ElementsAre(Pair(ip("9.0.0.1"), mac("02:00:00:00:00:01")),
                                             Pair(ip("10.0.0.2"), mac("02:00:00:00:00:02")),
                                             Pair(ip("10.0.0.10"), mac("02:00:00:00:00:0a"))));
}

TEST_F(SortedIpToMacTest, AnAddressThatIsThereGetsTheNewMac) {
  sorted->ipToMacIs(ip("10.0.0.2"), mac("02:00:00:00:00:ff"));
  sorted->ipToMacIs(ip("10.0.0.10"), mac("02:00:00:00:00:fe"));
  EXPECT_THAT(sorted->ipToMac(), ElementsAre(Pair(ip("9.0.0.1"), mac("02:00:00:00:00:01")),
                                             Pair(ip("10.0.0.2"), mac("02:00:00:00:00:ff")),
                                             Pair(ip("10.0.0.10"), mac("02:00:00:00:00:fe"))));
}

TEST_F(SortedIpToMacTest, RemovesByAddressByPositionAndAll) {
  sorted->ipToMacDel(ip("10.0.0.3"));
  EXPECT_EQ(sorted->ipToMac().size(), 3u);
  sorted->ipToMacDel(ip("10.0.0.2"));
  sorted->ipToMacDel(sorted->ipToMac().begin());
  EXPECT_THAT(sorted->ipToMac(), ElementsAre(Pair(ip("10.0.0.10"), mac("02:00:00:00:00:0a"))));
  sorted->ipToMacDelAll();
  EXPECT_THAT(sorted->ipToMac(), IsEmpty());
}

}  // namespace
