// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "tests/support/AllocationCount.h"
#include "tests/tablemgr/OverlaySrcMacRewriteManagerTest.h"

namespace {

using BfnTest::ip;
using BfnTest::kMac;
using BfnTest::mac;
using Bridging::VlanId;
using ::testing::IsEmpty;

using OverlaySrcMacRewriteManagerWithoutMemoryTest = BfnTest::OverlaySrcMacRewriteManagerTest;

// The n-th allocation of an event fails, for every n: nothing has changed then, and asking again
// works. At each size the records and the chip are about to grow, or are not.
TEST_F(OverlaySrcMacRewriteManagerWithoutMemoryTest,
       AnAdditionWithoutMemoryChangesNothingAndCanBeRepeated) {
  add("Ethernet9", "10.9.0.1");  // describes the traces on its way
  manager->deleteEntry(Ovra::IntfId("Ethernet9"), ip("10.9.0.1"));
  Ovra::EthAddr const someMac = mac(kMac);
  for (unsigned size = 0; size <= 60; ++size) {
    std::string const address = "10.0.0." + std::to_string(size + 1);
    Ovra::IpAddr const sip = ip(address.c_str());
    Ovra::IntfId const intf("Ethernet1");
    L3::VrfName const vrfName("red");
    auto const rows = host.rows();
    host.journal();
    ASSERT_GT(BfnTest::failEachAllocation(
                  [&] { (void)manager->addEntry(vrfName, VlanId(100), intf, sip, someMac); },
                  [&](size_t n) {
                    EXPECT_EQ(manager->matchSpecAndRefCount().size(), size) << n;
                    EXPECT_EQ(host.rows(), rows) << n;
                    EXPECT_EQ(manager->overlaySrcMacRewriteTable()->entryCount(), size) << n;
                    EXPECT_THAT(host.journal(), IsEmpty()) << n;
                  }),
              2u);
    ASSERT_TRUE(record("Ethernet1", address.c_str())) << size;
    EXPECT_EQ(record("Ethernet1", address.c_str())->refCount(), 1);
    EXPECT_EQ(host.rows().size(), size + 1);
  }
}

TEST_F(OverlaySrcMacRewriteManagerWithoutMemoryTest, ARemovalAllocatesNothing) {
  for (unsigned n = 1; n <= 60; ++n) add("Ethernet1", ("10.0.0." + std::to_string(n)).c_str());
  host.chip.journal().limitIs(0);  // which grows with every erase
  manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.60"));
  for (unsigned n = 1; n < 60; ++n) {
    Ovra::IntfId const intf("Ethernet1");
    Ovra::IpAddr const address = ip(("10.0.0." + std::to_string(n)).c_str());
    size_t const before = BfnTest::allocationCount();
    manager->deleteEntry(intf, address);
    EXPECT_EQ(BfnTest::allocationCount(), before) << n;
  }
  EXPECT_THAT(host.rows(), IsEmpty());
}

}  // namespace
