// SPDX-License-Identifier: Apache-2.0
// What holds for a state database that mirrors a store of any kind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "agent/records/Capability.h"
#include "framework/corvo/EmbeddedSession.h"
#include "framework/l3/L3Status.h"
#include "framework/log/LogService.h"
#include "host/store/StoreMirror.h"
#include "tests/host/store/Changes.h"
#include "tests/host/store/Records.h"
#include "tests/host/store/StoreFixtures.h"
#include "tests/support/Watcher.h"

namespace {

using BfnTest::delOf;
using BfnTest::form;
using BfnTest::kCapabilityPath;
using BfnTest::kCapabilityType;
using BfnTest::kVrfsPath;
using BfnTest::kVrfsType;
using BfnTest::makeOf;
using BfnTest::setOf;
using BfnTest::textOf;
using Host::Store;
using Host::StoreAway;
using Host::StoreChange;
using Host::StoreMirror;
using Host::StoreRefused;
using Host::UnreadableException;
using Kiv::makeActive;
using Kiv::Ptr;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;
using State = StoreMirror::State;

// A process as far as a store is concerned: a database and its mirror.
struct Process {
  explicit Process(std::unique_ptr<Store> store, StoreMirror::Options options = {})
      : mirror(std::move(store), database, clock, std::move(options)) {
    mirror.follow();
  }

  Ptr<Pex::L3Status> vrfs() const {
    return Kiv::ptrCast<Pex::L3Status>(database->object(kVrfsPath));
  }
  void makeVrfs() { mirror.make(kVrfsPath, kVrfsType); }
  void nameVrf(unsigned id, std::string const& name) {
    mirror.set(kVrfsPath, "vrfName", std::to_string(id), name);
  }
  void unnameVrf(unsigned id) { mirror.del(kVrfsPath, "vrfName", std::to_string(id)); }
  std::string vrfName(unsigned id) const { return form(vrfs()->vrfName(Pex::VrfId(id))); }
  // Lets the time come for the next attempt.
  void wait() {
    clock->advance(20);
    mirror.follow();
  }

  Ptr<Kiv::ManualClock> clock = makeActive<Kiv::ManualClock>();
  Ptr<Corvo::Database> database = makeActive<Corvo::Database>();
  StoreMirror mirror;
};

// Notes each change of VRF names as "id name", and then does what the test says.
struct Names final : public Kiv::NotifieeConst {
  explicit Names(Ptr<Pex::L3Status> const& vrfs) { notifierIs(vrfs); }
  void onAttribute(Kiv::AttributeId id, void const* key) override {
    if (id != Pex::L3Status::kVrfName.id) return;
    auto const& vrfs = static_cast<Pex::L3Status const&>(*notifierBase());
    auto const vrfId = *static_cast<Pex::VrfId const*>(key);
    seen.push_back(form(vrfId) + " " + form(vrfs.vrfName(vrfId)));
    auto const now = then;
    if (now) now();
  }
  std::vector<std::string> seen;
  std::function<void()> then;
};

template <class Fixture>
class MirrorConformance : public ::testing::Test {
 protected:
  Fixture fixture;
  std::vector<std::string> log;

  void SetUp() override {
    if (!fixture.missing().empty()) GTEST_SKIP() << fixture.missing();
    Kiv::LogService::reset();
    Kiv::LogService::sinkIs([this](Kiv::LogMessage const& message) {
      log.push_back(message.name.substr(std::string("BFN_MAC_REWRITE_STORE_").size()));
    });
  }
  void TearDown() override { Kiv::LogService::reset(); }
};

TYPED_TEST_SUITE(MirrorConformance, BfnTest::AllStores);

// Of stores with several clients.
template <class Fixture>
class SharedMirrorConformance : public MirrorConformance<Fixture> {};

TYPED_TEST_SUITE(SharedMirrorConformance, BfnTest::SharedStores);

TYPED_TEST(MirrorConformance, AChangeIsInTheDatabaseWhenSubmitReturns) {
  Process process(this->fixture.open());
  EXPECT_EQ(process.mirror.status().state, State::Current);
  process.makeVrfs();
  ASSERT_TRUE(process.vrfs());
  auto const names = makeActive<Names>(process.vrfs());
  process.nameVrf(7, "'red'");
  process.nameVrf(7, "'red'");
  process.nameVrf(7, "'blue'");
  process.mirror.submit(
      {delOf(kVrfsPath, "vrfName", "7"), setOf(kVrfsPath, "vrfName", "7", "'blue'")});
  EXPECT_THAT(names->seen, ElementsAre("7 'red'", "7 'blue'", "7 ''", "7 'blue'"));
}

TYPED_TEST(MirrorConformance, AProcessFindsWhatAnEarlierOneLeft) {
  {
    Process process(this->fixture.open());
    process.mirror.submit(
        {makeOf(kVrfsPath, kVrfsType), setOf(kVrfsPath, "vrfName", "7", "'red'")});
  }
  this->fixture.restart();
  Process process(this->fixture.open());
  ASSERT_TRUE(process.vrfs());
  EXPECT_EQ(process.vrfName(7), "'red'");
  EXPECT_EQ(process.mirror.status().resyncs, 1u);
  process.unnameVrf(7);
  EXPECT_EQ(process.vrfName(7), "''");
}

TYPED_TEST(MirrorConformance, ARecordIsAnnouncedWithAllThatIsInIt) {
  {
    Process process(this->fixture.open());
    process.mirror.submit(
        {makeOf(kVrfsPath, kVrfsType), setOf(kVrfsPath, "vrfName", "7", "'red'")});
  }
  auto const clock = makeActive<Kiv::ManualClock>();
  auto const database = makeActive<Corvo::Database>();
  auto const session = Corvo::embeddedSessionFactory(database);
  auto const request = session->mountRequest();
  Corvo::Mount mount(kVrfsPath, kVrfsType, "r");
  mount.handleFlags("r");
  request->doMount(mount);
  request->close();
  auto const watcher = makeActive<BfnTest::Watcher>(session);
  std::string found;
  watcher->then = [&] {
    auto const vrfs = Kiv::ptrCast<Pex::L3Status>(session->getEntity(kVrfsPath));
    if (vrfs && found.empty()) found = form(vrfs->vrfName(Pex::VrfId(7)));
  };
  StoreMirror mirror(this->fixture.open(), database, clock);
  EXPECT_FALSE(session->connected());
  mirror.follow();
  EXPECT_EQ(found, "'red'");
  EXPECT_TRUE(session->connected());
}

TYPED_TEST(MirrorConformance, WhatDoesNotFitIsRefusedBeforeTheStoreHasIt) {
  Process process(this->fixture.open());
  process.makeVrfs();
  auto const version = process.mirror.status().version;
  EXPECT_THROW(process.nameVrf(7, "red"), UnreadableException);
  EXPECT_THAT([&] { process.mirror.make("q", "No::Type"); },
              ThrowsMessage<UnreadableException>(HasSubstr("unknown type No::Type")));
  EXPECT_THAT([&] { process.mirror.set("q", "vrfName", "7", "'red'"); },
              ThrowsMessage<UnreadableException>(HasSubstr("there is no record at 'q'")));
  EXPECT_EQ(process.mirror.store().head().version, version);
}

TYPED_TEST(MirrorConformance, ARefusalComesBeforeAnyNotification) {
  Process process(this->fixture.open());
  process.makeVrfs();
  auto const names = makeActive<Names>(process.vrfs());
  this->fixture.refusingIs(true);
  std::vector<StoreChange> changes;
  for (unsigned id = 1; id < 20'000; ++id) {
    changes.push_back(
        setOf(kVrfsPath, "vrfName", std::to_string(id), "'" + std::string(90, 'x') + "'"));
  }
  EXPECT_THROW(process.mirror.submit(changes), StoreRefused);
  EXPECT_THAT(names->seen, IsEmpty());
  EXPECT_EQ(process.mirror.status().state, State::Current);
  this->fixture.refusingIs(false);
  process.nameVrf(7, "'red'");
  EXPECT_THAT(names->seen, ElementsAre("7 'red'"));
}

TYPED_TEST(SharedMirrorConformance, TwoProcessesEndEqualAndSeeEveryStep) {
  Process one(this->fixture.open());
  Process two(this->fixture.open());
  one.makeVrfs();
  two.mirror.follow();
  ASSERT_TRUE(two.vrfs());
  auto const ones = makeActive<Names>(one.vrfs());
  auto const twos = makeActive<Names>(two.vrfs());
  one.nameVrf(7, "'red'");
  two.nameVrf(7, "'blue'");
  one.unnameVrf(7);
  one.nameVrf(7, "'blue'");
  two.mirror.follow();
  EXPECT_THAT(ones->seen, ElementsAre("7 'red'", "7 'blue'", "7 ''", "7 'blue'"));
  EXPECT_EQ(twos->seen, ones->seen);
}

TYPED_TEST(MirrorConformance, AChangeOfAHandlerIsAppliedAfterTheOneThatItHandles) {
  Process process(this->fixture.open());
  process.makeVrfs();
  auto const first = makeActive<Names>(process.vrfs());
  auto const second = makeActive<Names>(process.vrfs());
  first->then = [&] {
    first->then = nullptr;
    process.nameVrf(8, "'second'");
    EXPECT_EQ(process.vrfName(8), "''");
  };
  process.nameVrf(7, "'first'");
  EXPECT_THAT(second->seen, ElementsAre("7 'first'", "8 'second'"));
}

TYPED_TEST(MirrorConformance, WhatAHandlerThrowsComesOutAfterAllHasBeenApplied) {
  Process process(this->fixture.open());
  process.makeVrfs();
  auto const names = makeActive<Names>(process.vrfs());
  names->then = [] { throw std::runtime_error("of a handler"); };
  EXPECT_THAT(
      [&] {
        process.mirror.submit({setOf(kVrfsPath, "vrfName", "7", "'red'"),
                               setOf(kVrfsPath, "vrfName", "8", "'blue'")});
      },
      ThrowsMessage<std::runtime_error>(HasSubstr("of a handler")));
  EXPECT_THAT(names->seen, ElementsAre("7 'red'", "8 'blue'"));
  EXPECT_TRUE(process.mirror.current());
  names->then = nullptr;
  process.mirror.follow();
  EXPECT_EQ(names->seen.size(), 2u);
}

TYPED_TEST(SharedMirrorConformance, LostChangesAreMadeUpForAsTheDifferenceOnTheSameObjects) {
  Process one(this->fixture.open());
  Process two(this->fixture.open());
  one.makeVrfs();
  one.nameVrf(1, "'equal'");
  one.nameVrf(2, "'old'");
  one.nameVrf(3, "'gone'");
  two.mirror.follow();
  auto const vrfs = two.vrfs();
  auto const names = makeActive<Names>(vrfs);
  one.nameVrf(1, "'other'");
  one.nameVrf(1, "'equal'");
  one.nameVrf(2, "'new'");
  one.unnameVrf(3);
  one.nameVrf(4, "'come'");
  this->fixture.loseChanges();
  two.mirror.follow();
  EXPECT_EQ(two.vrfs(), vrfs);
  EXPECT_THAT(names->seen, ElementsAre("2 ''", "3 ''", "2 'new'", "4 'come'"));
  EXPECT_EQ(two.mirror.status().state, State::Current);
  one.mirror.follow();
  EXPECT_EQ(textOf(*two.vrfs()), textOf(*one.vrfs()));
}

TYPED_TEST(SharedMirrorConformance, ACutConnectionIsMadeAgainAndNothingIsMissed) {
  Process one(this->fixture.open());
  Process two(this->fixture.open());
  one.makeVrfs();
  two.mirror.follow();
  auto const names = makeActive<Names>(two.vrfs());
  one.nameVrf(7, "'red'");
  this->fixture.cut();
  one.wait();  // and notices
  one.wait();
  one.nameVrf(7, "'blue'");
  two.wait();
  two.wait();
  EXPECT_THAT(names->seen, ElementsAre("7 'red'", "7 'blue'"));
  EXPECT_EQ(two.mirror.status().resyncs, 1u);
}

TYPED_TEST(SharedMirrorConformance, WhileTheStoreIsAwayAllStaysWritesAreRefusedAndItIsSaidOnce) {
  Process process(this->fixture.open());
  process.makeVrfs();
  process.nameVrf(7, "'red'");
  this->fixture.awayIs(true);
  process.mirror.follow();
  EXPECT_THROW(process.nameVrf(7, "'blue'"), StoreAway);
  EXPECT_EQ(process.mirror.status().state, State::Away);
  EXPECT_THAT(process.mirror.status().reason, ::testing::Not(IsEmpty()));
  EXPECT_FALSE(process.database->connected());
  EXPECT_EQ(process.vrfName(7), "'red'");
  for (int i = 0; i < 5; ++i) process.wait();
  EXPECT_THROW(process.nameVrf(7, "'blue'"), StoreAway);
  EXPECT_THAT(this->log, ElementsAre("AWAY"));
  this->fixture.awayIs(false);
  process.wait();
  EXPECT_TRUE(process.mirror.current());
  EXPECT_TRUE(process.database->connected());
  EXPECT_THAT(this->log, ElementsAre("AWAY", "BACK"));
  process.nameVrf(7, "'blue'");
  EXPECT_EQ(process.vrfName(7), "'blue'");
}

TYPED_TEST(SharedMirrorConformance, AStoreThatIsAwayAtTheStartIsReadWhenItComes) {
  {
    Process before(this->fixture.open());
    before.makeVrfs();
  }
  this->fixture.awayIs(true);
  Process process(this->fixture.open());
  EXPECT_FALSE(process.vrfs());
  EXPECT_THAT(this->log, ElementsAre("AWAY"));
  this->fixture.awayIs(false);
  process.wait();
  EXPECT_TRUE(process.vrfs());
}

TYPED_TEST(SharedMirrorConformance, AnEmptiedStoreIsNotAppliedUntilItIsAccepted) {
  Process process(this->fixture.open());
  process.makeVrfs();
  process.nameVrf(7, "'red'");
  auto const vrfs = process.vrfs();
  auto const names = makeActive<Names>(vrfs);
  this->fixture.clear();
  process.mirror.follow();
  process.wait();
  EXPECT_EQ(process.mirror.status().state, State::WentBack);
  EXPECT_THAT(process.mirror.status().reason, HasSubstr("it has been emptied"));
  EXPECT_THAT(this->log, ::testing::Contains("WENT_BACK").Times(1));
  EXPECT_FALSE(process.database->connected());
  EXPECT_THAT([&] { process.nameVrf(8, "'blue'"); },
              ThrowsMessage<StoreRefused>(HasSubstr("it has to be accepted first")));
  EXPECT_THAT(names->seen, IsEmpty());
  process.mirror.accept();
  EXPECT_TRUE(process.mirror.current());
  EXPECT_EQ(process.vrfs(), vrfs);
  EXPECT_THAT(names->seen, ElementsAre("7 ''"));
  EXPECT_THROW(process.nameVrf(7, "'red'"), UnreadableException);
  process.makeVrfs();
  process.nameVrf(7, "'red'");
  EXPECT_THAT(names->seen, ElementsAre("7 ''", "7 'red'"));
}

TYPED_TEST(SharedMirrorConformance, AnotherStoreInItsPlaceIsNotApplied) {
  Process process(this->fixture.open());
  process.makeVrfs();
  process.nameVrf(7, "'red'");
  this->fixture.clear();
  Process other(this->fixture.open());
  other.makeVrfs();
  process.mirror.follow();
  process.wait();
  EXPECT_EQ(process.mirror.status().state, State::WentBack);
  EXPECT_THAT(process.mirror.status().reason, HasSubstr("it is another one than before"));
  EXPECT_EQ(process.vrfName(7), "'red'");
  process.mirror.accept();
  EXPECT_EQ(process.vrfName(7), "''");
}

TYPED_TEST(SharedMirrorConformance, AnEarlierStateOfTheStoreIsNotApplied) {
  Process process(this->fixture.open());
  process.makeVrfs();
  this->fixture.save();
  process.wait();
  process.wait();
  process.nameVrf(7, "'red'");
  this->fixture.restore();
  process.mirror.follow();
  process.wait();
  EXPECT_EQ(process.mirror.status().state, State::WentBack);
  EXPECT_THAT(process.mirror.status().reason, HasSubstr("and was at"));
  EXPECT_EQ(process.vrfName(7), "'red'");
}

TYPED_TEST(MirrorConformance, WhatCannotBeReadIsLeftOutAndNamed) {
  {
    Process process(this->fixture.open());
    process.makeVrfs();
    process.nameVrf(1, "'red'");
  }
  this->fixture.putRaw(makeOf("who/knows", "No::Type"));
  this->fixture.putRaw(setOf("who/knows", "c", "k", "v"));
  this->fixture.putRaw(setOf(kVrfsPath, "vrfName", "seven", "'red'"));
  this->fixture.putRaw(setOf(kVrfsPath, "vrfName", "8", "red"));
  this->fixture.putRaw(setOf(kVrfsPath, "colour", "", "red"));
  Process process(this->fixture.open());
  ASSERT_TRUE(process.vrfs());
  EXPECT_EQ(process.vrfs()->vrfName().size(), 1u);
  EXPECT_THAT(process.mirror.unreadable(),
              ElementsAre(::testing::Key("'host/l3Status' 'colour'"),
                          ::testing::Key("'host/l3Status' 'vrfName' '8'"),
                          ::testing::Key("'host/l3Status' 'vrfName' 'seven'"),
                          ::testing::Key("'who/knows'")));
  EXPECT_THAT(this->log, ElementsAre("UNREADABLE", "UNREADABLE", "UNREADABLE", "UNREADABLE"));
  process.nameVrf(8, "'green'");
  EXPECT_EQ(process.mirror.unreadable().size(), 3u);
}

TYPED_TEST(SharedMirrorConformance, AnUnreadableValueTakesThePlaceOfTheOneBefore) {
  Process process(this->fixture.open());
  process.makeVrfs();
  process.nameVrf(7, "'red'");
  this->fixture.putRaw(setOf(kVrfsPath, "vrfName", "7", "red"));
  this->fixture.putRaw(setOf(kVrfsPath, "vrfName", "8", "'blue'"));
  process.mirror.follow();
  EXPECT_EQ(process.vrfName(7), "''");
  EXPECT_EQ(process.vrfName(8), "'blue'");
  EXPECT_EQ(process.mirror.unreadable().size(), 1u);
}

TYPED_TEST(MirrorConformance, WhatIsWrittenBehindReachesTheStoreAndIsTriedAgain) {
  StoreMirror::Options const options{.behind = {kCapabilityPath}};
  {
    Process process(this->fixture.open(), options);
    auto const capability = Kiv::ptrCast<BfnMacRewrite::Capability>(
        process.database->entityIs(kCapabilityPath, kCapabilityType));
    process.mirror.follow();
    this->fixture.refusingIs(true);
    capability->overlaySrcMacRewriteSupportedIs(true);
    process.mirror.follow();
    EXPECT_TRUE(capability->overlaySrcMacRewriteSupported());
    this->fixture.refusingIs(false);
    process.wait();
    EXPECT_THROW(process.mirror.set(kCapabilityPath, "overlaySrcMacRewriteSupported", "", "False"),
                 UnreadableException);
  }
  Process process(this->fixture.open());
  auto const stored =
      Kiv::ptrCast<BfnMacRewrite::Capability>(process.database->object(kCapabilityPath));
  ASSERT_TRUE(stored);
  EXPECT_TRUE(stored->overlaySrcMacRewriteSupported());
}

TYPED_TEST(MirrorConformance, WhatIsWrittenBehindLeadsOverWhatTheStoreHas) {
  StoreMirror::Options const options{.behind = {kCapabilityPath}};
  {
    Process process(this->fixture.open());
    process.mirror.submit({makeOf(kCapabilityPath, kCapabilityType),
                           setOf(kCapabilityPath, "overlaySrcMacRewriteSupported", "", "True")});
  }
  {
    auto const clock = makeActive<Kiv::ManualClock>();
    auto const database = makeActive<Corvo::Database>();
    auto const capability = database->entityIs(kCapabilityPath, kCapabilityType);
    StoreMirror mirror(this->fixture.open(), database, clock, options);
    mirror.follow();
    EXPECT_THAT(textOf(*capability), HasSubstr("\"overlaySrcMacRewriteSupported\": \"False\""));
  }
  Process process(this->fixture.open());
  EXPECT_THAT(textOf(*process.database->object(kCapabilityPath)),
              HasSubstr("\"overlaySrcMacRewriteSupported\": \"False\""));
}

}  // namespace
