// SPDX-License-Identifier: Apache-2.0
#include "intfstatus/BfnMacRewriteIntfRoutingStatusTypes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/generic/Type.h"
#include "tests/intfstatus/IntfLog.h"

namespace {

using BfnL3::L3IntfRoutingStatus;
using BfnMacRewrite::IntfIdToRoutingStatus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

Ovra::IntfId const kEthernet1("Ethernet1");
Ovra::IntfId const kEthernet2("Ethernet2");

Kiv::Ptr<L3IntfRoutingStatus const> statusOf(Ovra::IntfId intf) {
  return Kiv::makeActive<L3IntfRoutingStatus>(Pex::PortVlanPair(intf, 0));
}

class IntfIdToRoutingStatusTest : public ::testing::Test {
 protected:
  Kiv::Ptr<IntfIdToRoutingStatus> merged = Kiv::makeActive<IntfIdToRoutingStatus>();
  Kiv::Ptr<BfnTest::IntfLog> log = Kiv::makeActive<BfnTest::IntfLog>(merged);
  Kiv::Ptr<L3IntfRoutingStatus const> first = statusOf(kEthernet1);
  Kiv::Ptr<L3IntfRoutingStatus const> second = statusOf(kEthernet1);
};

TEST_F(IntfIdToRoutingStatusTest, NullForAnAbsentInterfaceDoesNothing) {
  merged->l3IntfRoutingStatusIs(kEthernet1, nullptr);
  EXPECT_EQ(merged->l3IntfRoutingStatus(kEthernet1), nullptr);
  EXPECT_EQ(merged->l3IntfRoutingStatus().size(), 0u);
  EXPECT_THAT(log->changes, IsEmpty());
}

TEST_F(IntfIdToRoutingStatusTest, AStatusForAnAbsentInterfaceIsInsertedAndNotified) {
  merged->l3IntfRoutingStatusIs(kEthernet1, first);
  EXPECT_EQ(merged->l3IntfRoutingStatus(kEthernet1), first.get());
  EXPECT_EQ(merged->l3IntfRoutingStatus(kEthernet2), nullptr);
  EXPECT_THAT(log->changes, ElementsAre("Ethernet1"));
}

TEST_F(IntfIdToRoutingStatusTest, TheVeryStatusThatIsStoredDoesNothing) {
  merged->l3IntfRoutingStatusIs(kEthernet1, first);
  log->changes.clear();
  Kiv::U32 const references = first->kivRefCount();
  merged->l3IntfRoutingStatusIs(kEthernet1, first);
  EXPECT_EQ(first->kivRefCount(), references);
  EXPECT_THAT(log->changes, IsEmpty());
}

TEST_F(IntfIdToRoutingStatusTest, NullForAPresentInterfaceRemovesIt) {
  merged->l3IntfRoutingStatusIs(kEthernet1, first);
  log->changes.clear();
  merged->l3IntfRoutingStatusIs(kEthernet1, nullptr);
  EXPECT_EQ(merged->l3IntfRoutingStatus().size(), 0u);
  EXPECT_EQ(first->kivRefCount(), 1u);
  EXPECT_THAT(log->changes, ElementsAre("Ethernet1"));
}

TEST_F(IntfIdToRoutingStatusTest, AnotherStatusReplacesTheStoredOneAndIsNotifiedOnce) {
  merged->l3IntfRoutingStatusIs(kEthernet1, first);
  log->changes.clear();
  merged->l3IntfRoutingStatusIs(kEthernet1, second);
  EXPECT_EQ(merged->l3IntfRoutingStatus(kEthernet1), second.get());
  EXPECT_EQ(merged->l3IntfRoutingStatus().size(), 1u);
  EXPECT_EQ(first->kivRefCount(), 1u);
  EXPECT_EQ(second->kivRefCount(), 2u);
  EXPECT_THAT(log->changes, ElementsAre("Ethernet1"));
}

TEST_F(IntfIdToRoutingStatusTest, TheHandlerFindsTheNewStatusInPlace) {
  merged->l3IntfRoutingStatusIs(kEthernet1, first);
  first.reset();
  L3IntfRoutingStatus const* seen = nullptr;
  log->action = [&] { seen = merged->l3IntfRoutingStatus(kEthernet1); };
  merged->l3IntfRoutingStatusIs(kEthernet1, second);
  EXPECT_EQ(seen, second.get());
}

TEST_F(IntfIdToRoutingStatusTest, DeletionNotifiesOnlyOfWhatWasPresent) {
  merged->l3IntfRoutingStatusIs(kEthernet1, first);
  log->changes.clear();
  merged->l3IntfRoutingStatusDel(kEthernet2);
  EXPECT_THAT(log->changes, IsEmpty());
  merged->l3IntfRoutingStatusDel(kEthernet1);
  merged->l3IntfRoutingStatusDel(kEthernet1);
  EXPECT_THAT(log->changes, ElementsAre("Ethernet1"));
}

TEST_F(IntfIdToRoutingStatusTest, DeletingAllNotifiesOfEachOneByOne) {
  merged->l3IntfRoutingStatusIs(kEthernet1, first);
  merged->l3IntfRoutingStatusIs(kEthernet2, second);
  log->changes.clear();
  std::vector<size_t> left;
  log->action = [&] { left.push_back(merged->l3IntfRoutingStatus().size()); };
  merged->l3IntfRoutingStatusDelAll();
  EXPECT_THAT(log->changes, UnorderedElementsAre("Ethernet1", "Ethernet2"));
  EXPECT_THAT(left, ElementsAre(1u, 0u));
}

TEST_F(IntfIdToRoutingStatusTest, IsAnEntityKnownByItsName) {
  EXPECT_EQ(merged->fwkType().name(), "BfnMacRewrite::IntfIdToRoutingStatus");
  EXPECT_EQ(merged->fwkType().attribute("l3IntfRoutingStatus")->id, 258u);
  EXPECT_NE(merged->fwkType().attribute("fullName"), nullptr);
}

TEST_F(IntfIdToRoutingStatusTest, AStatusIsHeldBeforeItIsAnnounced) {
  Kiv::Ptr<L3IntfRoutingStatus const> given = statusOf(kEthernet1);
  log->action = [&] { given.reset(); };
  for (int round = 0; round < 2; ++round) {  // inserted, then replaced
    merged->l3IntfRoutingStatusIs(kEthernet1, given);
    ASSERT_FALSE(given);
    ASSERT_NE(merged->l3IntfRoutingStatus(kEthernet1), nullptr);
    EXPECT_EQ(merged->l3IntfRoutingStatus(kEthernet1)->kivRefCount(), 1u);
    given = statusOf(kEthernet1);
  }
}

}  // namespace
