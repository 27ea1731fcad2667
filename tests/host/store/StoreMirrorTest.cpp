// SPDX-License-Identifier: Apache-2.0
#include "host/store/StoreMirror.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

#include "agent/records/BfnMacRewriteTypes.h"
#include "framework/core/AllocTrack.h"
#include "framework/l3/L3Status.h"
#include "framework/log/LogService.h"
#include "host/store/MemoryStore.h"
#include "tests/host/store/Changes.h"
#include "tests/host/store/Records.h"
#include "tests/support/Watcher.h"

namespace {

using BfnMacRewrite::Agent::IpAndIntfId;
using BfnMacRewrite::Agent::Status;
using BfnTest::delOf;
using BfnTest::form;
using BfnTest::kAddressesPath;
using BfnTest::kAddressesType;
using BfnTest::kCapabilityPath;
using BfnTest::kCapabilityType;
using BfnTest::kVrfsPath;
using BfnTest::kVrfsType;
using BfnTest::makeOf;
using BfnTest::setOf;
using BfnTest::textOf;
using Host::MemoryStore;
using Host::MemoryStoreContents;
using Host::StoreChange;
using Host::StoreMirror;
using Kiv::makeActive;
using Kiv::Ptr;
using ::testing::DoubleEq;
using ::testing::ElementsAre;

class StoreMirrorTest : public ::testing::Test {
 protected:
  Kiv::U64 const liveBefore = Kiv::AllocTrackTypeInfo::liveObjects();
  std::shared_ptr<MemoryStoreContents> const contents = std::make_shared<MemoryStoreContents>();
  Ptr<Kiv::ManualClock> clock = makeActive<Kiv::ManualClock>();
  Ptr<Corvo::Database> database = makeActive<Corvo::Database>();
  std::unique_ptr<StoreMirror> mirror = mirrorOf(database);
  std::vector<std::string> log;

  void SetUp() override {
    Kiv::LogService::reset();
    Kiv::LogService::sinkIs(
        [this](Kiv::LogMessage const& message) { log.push_back(message.text); });
  }
  void TearDown() override {
    mirror.reset();
    database.reset();
    clock.reset();
    EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), liveBefore);
    Kiv::LogService::reset();
  }
  std::unique_ptr<StoreMirror> mirrorOf(Ptr<Corvo::Database> const& of) const {
    return std::make_unique<StoreMirror>(std::make_unique<MemoryStore>(contents), of, clock,
                                         StoreMirror::Options{.behind = {kCapabilityPath}});
  }
  // What a process that starts now reads.
  std::string freshText(char const* path) const {
    auto const fresh = makeActive<Corvo::Database>();
    mirrorOf(fresh)->follow();
    return textOf(*fresh->object(path));
  }
  void putRaw(StoreChange const& change) const { MemoryStore(contents).submit({change}); }
};

TEST_F(StoreMirrorTest, PausesBetweenAttemptsGrowUpToTheLongestAndStartAnew) {
  contents->away = true;
  std::vector<double> pauses;
  for (int i = 0; i < 10; ++i) {
    double const start = clock->now();
    mirror->follow();
    EXPECT_GT(mirror->due(), start);
    pauses.push_back(mirror->due() - start);
    clock->nowIs(mirror->due());
  }
  EXPECT_THAT(
      pauses,
      ElementsAre(DoubleEq(0.1), ::testing::DoubleNear(0.2, 1e-9), ::testing::DoubleNear(0.4, 1e-9),
                  ::testing::DoubleNear(0.8, 1e-9), ::testing::DoubleNear(1.6, 1e-9),
                  ::testing::DoubleNear(3.2, 1e-9), ::testing::DoubleNear(6.4, 1e-9), DoubleEq(10),
                  DoubleEq(10), DoubleEq(10)));
  EXPECT_EQ(mirror->status().attempts, 10u);
  contents->away = false;
  mirror->follow();
  EXPECT_TRUE(mirror->current());
  EXPECT_EQ(mirror->due(), std::numeric_limits<double>::infinity());
  contents->away = true;
  mirror->follow();
  EXPECT_THAT(mirror->due() - clock->now(), ::testing::DoubleNear(0.1, 1e-9));
}

TEST_F(StoreMirrorTest, NoAttemptIsMadeBeforeItIsDue) {
  contents->away = true;
  mirror->follow();
  contents->away = false;
  clock->advance(0.05);
  mirror->follow();
  EXPECT_FALSE(mirror->current());
  clock->advance(0.06);
  mirror->follow();
  EXPECT_TRUE(mirror->current());
}

TEST_F(StoreMirrorTest, ARefusedWriteBehindIsSaidOnceAndTriedAfterGrowingPauses) {
  mirror->follow();
  contents->refusal = "no room";
  auto const capability = database->entityIs(kCapabilityPath, kCapabilityType);
  mirror->follow();
  EXPECT_THAT(mirror->due() - clock->now(), DoubleEq(0.1));
  clock->nowIs(mirror->due());
  mirror->follow();
  EXPECT_THAT(mirror->due() - clock->now(), ::testing::DoubleNear(0.2, 1e-9));
  EXPECT_THAT(log, ElementsAre("The agent's own state is not in the state store yet: memory: no "
                               "room."));
  contents->refusal = "";
  mirror->follow();
  EXPECT_FALSE(contents->records.contains(kCapabilityPath));
  clock->nowIs(mirror->due());
  mirror->follow();
  EXPECT_TRUE(contents->records.contains(kCapabilityPath));
  EXPECT_EQ(mirror->due(), std::numeric_limits<double>::infinity());
}

TEST_F(StoreMirrorTest, AStoreThatComesBackAsItWasIsFollowedWithoutBeingAccepted) {
  mirror->follow();
  mirror->make(kVrfsPath, kVrfsType);
  MemoryStoreContents const before = *contents;
  contents->head.epoch = "another";
  contents->away = true;
  mirror->follow();
  contents->away = false;
  clock->advance(1);
  mirror->follow();
  EXPECT_EQ(mirror->status().state, StoreMirror::State::WentBack);
  *contents = before;
  clock->nowIs(mirror->due());
  mirror->follow();
  EXPECT_TRUE(mirror->current());
}

TEST_F(StoreMirrorTest, AcceptingWhatIsCurrentDoesNothing) {
  mirror->follow();
  mirror->accept();
  EXPECT_EQ(mirror->status().resyncs, 1u);
}

TEST_F(StoreMirrorTest, ARecordOfAnotherTypeHereIsLeftOut) {
  auto const here = database->entityIs(kVrfsPath, "Routing::Hardware::RouteStatus");
  putRaw(makeOf(kVrfsPath, kVrfsType));
  mirror->follow();
  EXPECT_EQ(database->object(kVrfsPath), here);
  EXPECT_EQ(mirror->unreadable().count("'host/l3Status'"), 1u);
  EXPECT_THROW(mirror->set(kVrfsPath, "vrfName", "7", "'red'"), Host::UnreadableException);
}

TEST_F(StoreMirrorTest, ARecordThatIsOnlyHereGivesWayToTheStores) {
  mirror->follow();
  auto const here = Kiv::ptrCast<Pex::L3Status>(database->entityIs(kVrfsPath, kVrfsType));
  here->vrfIs(L3::VrfName("here"), Pex::VrfId(1));
  putRaw(makeOf(kVrfsPath, kVrfsType));
  putRaw(setOf(kVrfsPath, "vrfName", "7", "'red'"));
  mirror->follow();
  EXPECT_EQ(database->object(kVrfsPath), here);
  EXPECT_EQ(textOf(*here), freshText(kVrfsPath));
}

// An address of VRF 7, as the store has it.
StoreChange addressOf(unsigned ip, std::string const& interface) {
  IpAndIntfId const value(Ovra::IpAddr(ip), Ovra::IntfId(interface), false);
  return setOf(kAddressesPath, "vrfStatus[7].ipAndIntfId", form(value.ipAddr), form(value));
}

TEST_F(StoreMirrorTest, AddressesOfAVrfAreWrittenOneByOneAndGoWithIt) {
  mirror->follow();
  mirror->make(kAddressesPath, kAddressesType);
  auto const addresses = Kiv::ptrCast<Status>(database->object(kAddressesPath));
  auto const watcher = makeActive<BfnTest::Watcher>(addresses);
  mirror->submit({addressOf(1, "Ethernet1"), addressOf(2, "Ethernet1")});
  ASSERT_NE(addresses->vrfStatus(Pex::VrfId(7)), nullptr);
  EXPECT_EQ(addresses->vrfStatus(Pex::VrfId(7))->ipAndIntfId().size(), 2u);
  EXPECT_EQ(watcher->changes.size(), 1u);
  EXPECT_EQ(textOf(*addresses), freshText(kAddressesPath));
  mirror->del(kAddressesPath, "vrfStatus", "7");
  EXPECT_EQ(addresses->vrfStatus(Pex::VrfId(7)), nullptr);
  EXPECT_TRUE(contents->records.at(kAddressesPath).form.empty());
}

TEST_F(StoreMirrorTest, AnObjectThatCannotBeReadGoesWithAllThatItHoldsAndComesBackWithIt) {
  mirror->follow();
  mirror->submit({makeOf(kAddressesPath, kAddressesType), addressOf(1, "Ethernet1")});
  auto const addresses = Kiv::ptrCast<Status>(database->object(kAddressesPath));
  putRaw(setOf(kAddressesPath, "vrfStatus", "7", "rubbish"));
  mirror->follow();
  EXPECT_EQ(addresses->vrfStatus(Pex::VrfId(7)), nullptr);
  EXPECT_EQ(textOf(*addresses), freshText(kAddressesPath));
  mirror->submit({addressOf(2, "Ethernet1")});
  EXPECT_EQ(addresses->vrfStatus(Pex::VrfId(7)), nullptr);
  EXPECT_EQ(textOf(*addresses), freshText(kAddressesPath));
  mirror->set(kAddressesPath, "vrfStatus", "7", "{}");
  ASSERT_NE(addresses->vrfStatus(Pex::VrfId(7)), nullptr);
  EXPECT_EQ(addresses->vrfStatus(Pex::VrfId(7))->ipAndIntfId().size(), 2u);
  EXPECT_EQ(textOf(*addresses), freshText(kAddressesPath));
  EXPECT_TRUE(mirror->unreadable().empty());
}

// What submitReadable() reports, as text.
struct Reports {
  StoreMirror::Progress const progress{
      [this](size_t number) { lines.push_back("applies " + std::to_string(number)); },
      [this](size_t number, std::exception_ptr const& thrown) {
        try {
          std::rethrow_exception(thrown);
        } catch (std::runtime_error const& error) {
          lines.push_back("failed " + std::to_string(number) + " " + error.what());
        }
      }};
  std::vector<std::string> lines;
};

class StoreMirrorReportsTest : public StoreMirrorTest {
 protected:
  Reports reports;
  Ptr<BfnTest::Watcher> watcher;
  unsigned seen = 0;
  unsigned throwsAt = 2;

  void SetUp() override {
    StoreMirrorTest::SetUp();
    mirror->follow();
    mirror->make(kVrfsPath, kVrfsType);
    watcher = makeActive<BfnTest::Watcher>(database->object(kVrfsPath));
    watcher->then = [this] {
      if (++seen == throwsAt) throw std::runtime_error("no");
    };
  }
  void TearDown() override {
    watcher.reset();
    StoreMirrorTest::TearDown();
  }
};

TEST_F(StoreMirrorReportsTest, EachOwnChangeIsReportedByItsNumberAndOthersAreNot) {
  putRaw(setOf(kVrfsPath, "vrfName", "1", "'other'"));
  mirror->submitReadable(
      {setOf(kVrfsPath, "vrfName", "7", "'red'"), delOf(kVrfsPath, "vrfName", "7"),
       setOf(kVrfsPath, "vrfName", "7", "'red'")},
      reports.progress);
  EXPECT_THAT(reports.lines, ElementsAre("applies 0", "failed 0 no", "applies 1", "applies 2"));
  EXPECT_EQ(seen, 4u);
}

TEST_F(StoreMirrorReportsTest, WhatOthersChangesThrowPassesThroughNoReport) {
  putRaw(setOf(kVrfsPath, "vrfName", "1", "'other'"));
  throwsAt = 1;
  mirror->submitReadable(
      {setOf(kVrfsPath, "vrfName", "7", "'red'"), delOf(kVrfsPath, "vrfName", "7")},
      reports.progress);
  EXPECT_THAT(reports.lines, ElementsAre("applies 0", "applies 1", "failed 1 no"));
}

TEST_F(StoreMirrorReportsTest, ChangesThatComeInASnapshotAreApplied) {
  contents->maxEvents = 1;
  throwsAt = 1;
  mirror->submitReadable(
      {setOf(kVrfsPath, "vrfName", "7", "'red'"), setOf(kVrfsPath, "vrfName", "8", "'blue'")},
      reports.progress);
  EXPECT_THAT(reports.lines, ElementsAre("failed 1 no"));
  EXPECT_EQ(mirror->status().resyncs, 2u);
  EXPECT_EQ(textOf(*database->object(kVrfsPath)), freshText(kVrfsPath));
}

TEST_F(StoreMirrorReportsTest, AHandlersChangeIsAppliedAfterThem) {
  watcher->then = [this] {
    if (++seen == 1) mirror->set(kVrfsPath, "vrfName", "9", "'green'");
  };
  mirror->submitReadable(
      {setOf(kVrfsPath, "vrfName", "7", "'red'"), setOf(kVrfsPath, "vrfName", "8", "'blue'")},
      reports.progress);
  EXPECT_THAT(reports.lines, ElementsAre("applies 0", "applies 1"));
  EXPECT_EQ(seen, 3u);
  EXPECT_EQ(textOf(*database->object(kVrfsPath)), freshText(kVrfsPath));
}

TEST_F(StoreMirrorReportsTest, WhatTheStoreRefusesIsThrownAndChangesNothing) {
  std::string const before = textOf(*database->object(kVrfsPath));
  contents->refusal = "no room";
  EXPECT_THROW(
      mirror->submitReadable({setOf(kVrfsPath, "vrfName", "7", "'red'")}, reports.progress),
      Host::StoreRefused);
  EXPECT_THROW(
      mirror->submitReadable({setOf("elsewhere", "vrfName", "7", "'red'")}, reports.progress),
      Host::UnreadableException);
  EXPECT_THAT(reports.lines, ::testing::IsEmpty());
  EXPECT_EQ(textOf(*database->object(kVrfsPath)), before);
}

TEST_F(StoreMirrorTest, AHandlerThatLosesTheStoreLeavesItAway) {
  putRaw(makeOf(kVrfsPath, kVrfsType));
  auto const watcher = makeActive<BfnTest::Watcher>(database);
  watcher->then = [&] {
    watcher->then = nullptr;
    contents->away = true;
    EXPECT_THROW(mirror->make("q", kVrfsType), Host::StoreAway);
  };
  mirror->follow();
  EXPECT_FALSE(mirror->current());
  contents->away = false;
  clock->advance(20);
  mirror->follow();
  EXPECT_TRUE(mirror->current());
}

}  // namespace
