// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/RecordingDriver.h"
#include "tests/support/Watcher.h"
#include "tests/tablemgr/OverlaySrcMacRewriteManagerTest.h"

namespace {

using BfnMacRewrite::OverlaySrcMacRewriteManager;
using BfnTest::ip;
using BfnTest::kOtherMac;
using BfnTest::OverlaySrcMacRewriteManagerTest;
using PexTypes::TableAddStatus;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// What the records look like from within a write, and what may be done to them there.
class OverlaySrcMacRewriteManagerWithinWritesTest : public OverlaySrcMacRewriteManagerTest {
 protected:
  void SetUp() override {
    OverlaySrcMacRewriteManagerTest::SetUp();
    BfnAgentLib::TableInitialization with;
    with.dlHandle = driver.opaque();
    BfnAgentLib::initializeTable(*manager, "overlaySrcMacRewrite", with);
    watcher = Kiv::makeActive<BfnTest::Watcher>(manager);
    host.journal();
    traces();
  }
  void TearDown() override {
    watcher.reset();
    OverlaySrcMacRewriteManagerTest::TearDown();
  }
  void del(char const* intf, char const* ipText) {
    manager->deleteEntry(Ovra::IntfId(intf), ip(ipText));
  }
  size_t announced() const {
    return static_cast<size_t>(std::ranges::count(
        watcher->changes, OverlaySrcMacRewriteManager::kMatchSpecAndRefCount.id));
  }
  /// Runs `what` within the next call of the driver, after the chip's part of it.
  void within(std::function<void()> what) {
    driver.then = [this, what] {
      auto const now = what;  // this goes with the line after
      driver.then = nullptr;
      now();
    };
  }

  BfnTest::RecordingDriver driver{host.chip};
  Kiv::Ptr<BfnTest::Watcher> watcher;
};

TEST_F(OverlaySrcMacRewriteManagerWithinWritesTest,
       TheRecordIsCompleteBeforeTheRowIsWrittenAndAnnouncedAfterwards) {
  bool seen = false;
  within([&] {
    auto const made = record("Ethernet1", "10.0.0.1");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->refCount(), 1);
    ASSERT_TRUE(made->overlaySrcMacRewriteMatchSpec());
    EXPECT_EQ(made->overlaySrcMacRewriteMatchSpec()->vlan(), 100);
    EXPECT_TRUE(made->hasNotificationActive());
    EXPECT_EQ(announced(), 0u);
    seen = true;
  });
  add("Ethernet1", "10.0.0.1");
  EXPECT_TRUE(seen);
  EXPECT_EQ(announced(), 1u);
}

TEST_F(OverlaySrcMacRewriteManagerWithinWritesTest, ARowThatIsNotWrittenIsNeverAnnounced) {
  for (auto const kind : {BfnChip::Fault::Kind::TableFull, BfnChip::Fault::Kind::NoSysResources}) {
    failNext(kind);
    EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::ResourcesExhausted);
    EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  }
  for (auto const kind : {BfnChip::Fault::Kind::Error, BfnChip::Fault::Kind::Exception}) {
    failNext(kind);
    EXPECT_THROW(add("Ethernet1", "10.0.0.1"), std::runtime_error);
    EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  }
  EXPECT_EQ(announced(), 0u);
}

TEST_F(OverlaySrcMacRewriteManagerWithinWritesTest, ARemovalWithinTheWriteTakesTheRowAlong) {
  within([&] { del("Ethernet1", "10.0.0.1"); });
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
  EXPECT_EQ(announced(), 1u) << "the removal alone";
  EXPECT_THAT(host.rows(), IsEmpty());
  EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
  EXPECT_EQ(host.rows().size(), 1u);
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
}

TEST_F(OverlaySrcMacRewriteManagerWithinWritesTest,
       ASecondAdditionWithinTheWriteCountsASecondReference) {
  within([&] { add("Ethernet1", "10.0.0.1", kOtherMac); });
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 2);
  del("Ethernet1", "10.0.0.1");
  EXPECT_EQ(host.rows().size(), 1u);
  del("Ethernet1", "10.0.0.1");
  EXPECT_THAT(host.rows(), IsEmpty());
}

TEST_F(OverlaySrcMacRewriteManagerWithinWritesTest,
       ARemovalAndAnAdditionWithinAFailedWriteKeepTheLaterRecord) {
  within([&] {
    del("Ethernet1", "10.0.0.1");
    add("Ethernet1", "10.0.0.1", kOtherMac);
    throw std::out_of_range("late");
  });
  EXPECT_THROW(add("Ethernet1", "10.0.0.1"), std::out_of_range);
  ASSERT_TRUE(record("Ethernet1", "10.0.0.1"));
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
  EXPECT_EQ(host.rows().size(), 1u);
  EXPECT_EQ(announced(), 2u) << "the removal and the later record";
}

TEST_F(OverlaySrcMacRewriteManagerWithinWritesTest, ARefusedRowIsTracedAfterItsRecordIsSettled) {
  for (auto const kind : {BfnChip::Fault::Kind::TableFull, BfnChip::Fault::Kind::NoSysResources}) {
    failNext(kind);
    within([&] { add("Ethernet1", "10.0.0.1", kOtherMac); });
    std::vector<std::string> before;
    watcher->then = [&] { before = traces(); };
    EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::ResourcesExhausted);
    watcher->then = nullptr;
    ASSERT_FALSE(before.empty());
    EXPECT_THAT(before.back(), HasSubstr("updateEntry"));
    EXPECT_THAT(traces(), ElementsAre(HasSubstr("hardware programming failed")));
    del("Ethernet1", "10.0.0.1");
    traces();
  }
}

TEST_F(OverlaySrcMacRewriteManagerWithinWritesTest,
       AnAdditionWithinAFailedWriteKeepsItsReferenceAndIsAnnounced) {
  within([&] {
    add("Ethernet1", "10.0.0.1", kOtherMac);
    throw std::out_of_range("late");
  });
  EXPECT_THROW(add("Ethernet1", "10.0.0.1"), std::out_of_range);
  ASSERT_TRUE(record("Ethernet1", "10.0.0.1"));
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
  EXPECT_EQ(announced(), 1u);
}

TEST_F(OverlaySrcMacRewriteManagerWithinWritesTest,
       AnAdditionWithinTheRemovalKeepsItsRowAndRecord) {
  add("Ethernet1", "10.0.0.1");
  within([&] { add("Ethernet1", "10.0.0.1", kOtherMac); });
  del("Ethernet1", "10.0.0.1");
  ASSERT_TRUE(record("Ethernet1", "10.0.0.1"));
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
  EXPECT_EQ(host.rows().size(), 1u);
  del("Ethernet1", "10.0.0.1");
  EXPECT_THAT(host.rows(), IsEmpty());
  EXPECT_FALSE(record("Ethernet1", "10.0.0.1"));
}

TEST_F(OverlaySrcMacRewriteManagerWithinWritesTest, TheRowGoesBeforeItsRecord) {
  add("Ethernet1", "10.0.0.1");
  bool seen = false;
  within([&] {
    EXPECT_THAT(host.rows(), IsEmpty());
    ASSERT_TRUE(record("Ethernet1", "10.0.0.1"));
    EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 0);
    seen = true;
  });
  del("Ethernet1", "10.0.0.1");
  EXPECT_TRUE(seen);
  EXPECT_FALSE(record("Ethernet1", "10.0.0.1"));
}

}  // namespace
