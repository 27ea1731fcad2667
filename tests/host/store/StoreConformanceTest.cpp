// SPDX-License-Identifier: Apache-2.0
// What holds for every store of text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/store/Store.h"
#include "tests/host/store/Changes.h"
#include "tests/host/store/StoreFixtures.h"

namespace {

using BfnTest::delOf;
using BfnTest::makeOf;
using BfnTest::setOf;
using BfnTest::shown;
using Host::Store;
using Host::StoreChange;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

template <class Fixture>
class StoreConformance : public ::testing::Test {
 protected:
  Fixture fixture;

  void SetUp() override {
    if (!fixture.missing().empty()) GTEST_SKIP() << fixture.missing();
  }
  // A client that has begun to read.
  std::unique_ptr<Store> client() {
    auto store = fixture.open();
    store->begin();
    store->snapshot();
    return store;
  }
  static void submit(Store& store, std::vector<StoreChange> const& changes) {
    store.submit(changes);
  }
};

TYPED_TEST_SUITE(StoreConformance, BfnTest::AllStores);

// Of stores with several clients.
template <class Fixture>
class SharedStoreConformance : public StoreConformance<Fixture> {};

TYPED_TEST_SUITE(SharedStoreConformance, BfnTest::SharedStores);

TYPED_TEST(StoreConformance, BeginsOnceAndKeepsItsEpoch) {
  auto const store = this->fixture.open();
  store->begin();
  std::string const epoch = store->head().epoch;
  EXPECT_FALSE(epoch.empty());
  store->begin();
  EXPECT_EQ(store->head().epoch, epoch);
  EXPECT_EQ(store->snapshot().head.epoch, epoch);
}

TYPED_TEST(StoreConformance, GivesItsOwnChangesInOrderUnmerged) {
  auto const store = this->client();
  EXPECT_THAT(shown(store->changes()), IsEmpty());
  this->submit(*store, {makeOf("p", "T"), setOf("p", "c", "k", "1"), delOf("p", "c", "k")});
  this->submit(*store, {setOf("p", "c", "k", "1")});
  EXPECT_THAT(shown(store->changes()),
              ElementsAre("make p   T", "set p c k 1", "del p c k ", "set p c k 1"));
  EXPECT_THAT(shown(store->changes()), IsEmpty());
}

TYPED_TEST(StoreConformance, SubmitGivesTheVersionsOfItsChanges) {
  auto const store = this->client();
  this->submit(*store, {makeOf("p", "T"), setOf("p", "m", "7", "{a}")});
  store->changes();
  StoreChange gone = delOf("p", "m", "7");
  gone.drops = {"m[7].v"};
  auto const versions =
      store->submit({makeOf("p", "T"), gone, setOf("p", "c", "k", "1"), delOf("p", "c", "k")});
  auto const events = store->changes();
  ASSERT_EQ(events->size(), 3u);
  EXPECT_EQ(events->front().version, versions.first);
  EXPECT_EQ(events->back().version, versions.last);
  auto const none = store->submit({makeOf("p", "T")});
  EXPECT_LT(none.last, none.first);
}

TYPED_TEST(StoreConformance, VersionsGrowAndSubmitGivesTheLastOne) {
  auto const store = this->client();
  auto const start = store->head().version;
  std::vector<StoreChange> const two{makeOf("p", "T"), setOf("p", "c", "k", "1")};
  auto const version = store->submit(two).last;
  auto const events = store->changes();
  ASSERT_EQ(events->size(), 2u);
  EXPECT_LT(start, events->front().version);
  EXPECT_LT(events->front().version, events->back().version);
  EXPECT_EQ(events->back().version, version);
  EXPECT_EQ(store->head().version, version);
  EXPECT_EQ(store->snapshot().head.version, version);
}

TYPED_TEST(StoreConformance, ASnapshotHasAllBytesOfWhatWasSet) {
  auto const store = this->client();
  std::string const bytes("a\0\xff' \"\r\n", 8);
  this->submit(*store, {makeOf("p/q r", "T"), makeOf("empty", "U"), setOf("p/q r", "s", "", "1"),
                        setOf("p/q r", "m[" + bytes + "].c", bytes, bytes),
                        setOf("p/q r", "c", "gone", "1"), delOf("p/q r", "c", "gone")});
  auto const records = store->snapshot().records;
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records.at("empty").typeName, "U");
  EXPECT_THAT(records.at("empty").form, IsEmpty());
  EXPECT_EQ(records.at("p/q r").form,
            (Host::RecordForm{{"s", {{"", "1"}}}, {"m[" + bytes + "].c", {{bytes, bytes}}}}));
  EXPECT_THAT(shown(store->changes()), IsEmpty());
}

TYPED_TEST(StoreConformance, WhatBelongsToAnObjectComesAndGoesWithIt) {
  auto const store = this->client();
  StoreChange inner = setOf("p", "m[7].v", "1", "x");
  inner.within = StoreChange::Entry{"m", "7", "{}"};
  this->submit(*store, {makeOf("p", "T"), inner});
  EXPECT_EQ(store->snapshot().records.at("p").form,
            (Host::RecordForm{{"m", {{"7", "{}"}}}, {"m[7].v", {{"1", "x"}}}}));
  this->submit(*store, {setOf("p", "m", "7", "{a}"), inner});
  EXPECT_EQ(store->snapshot().records.at("p").form.at("m").at("7"), "{a}");
  StoreChange del = delOf("p", "m", "7");
  del.drops = {"m[7].v"};
  this->submit(*store, {del});
  EXPECT_THAT(store->snapshot().records.at("p").form, IsEmpty());
}

TYPED_TEST(StoreConformance, APathKeepsItsTypeAndAnotherOneIsRefusedWhole) {
  auto const store = this->client();
  this->submit(*store, {makeOf("p", "T")});
  this->submit(*store, {makeOf("p", "T")});
  EXPECT_THAT(shown(store->changes()), ElementsAre("make p   T"));
  std::vector<StoreChange> const other{setOf("p", "c", "k", "1"), makeOf("p", "U")};
  EXPECT_THAT([&] { store->submit(other); },
              ::testing::ThrowsMessage<Host::StoreRefused>(HasSubstr("is of type T, not U")));
  EXPECT_THAT(shown(store->changes()), IsEmpty());
  EXPECT_THAT(store->snapshot().records.at("p").form, IsEmpty());
}

TYPED_TEST(StoreConformance, ARefusedChangeIsNotThereAndGivesNoEvent) {
  auto const store = this->client();
  this->submit(*store, {makeOf("p", "T")});
  (void)store->changes();
  this->fixture.refusingIs(true);
  // Large enough for a store that refuses for lack of room.
  std::vector<StoreChange> const large{setOf("p", "c", "k", std::string(1 << 20, 'x')),
                                       setOf("p", "c", "l", "1")};
  EXPECT_THROW(store->submit(large), Host::StoreRefused);
  EXPECT_THAT(shown(store->changes()), IsEmpty());
  this->fixture.refusingIs(false);
  EXPECT_THAT(store->snapshot().records.at("p").form, IsEmpty());
  this->submit(*store, {setOf("p", "c", "k", "1")});
  EXPECT_THAT(shown(store->changes()), ElementsAre("set p c k 1"));
}

TYPED_TEST(StoreConformance, WhatWasTakenOutlivesClientsAndARestart) {
  std::string epoch;
  Host::StoreVersion version;
  {
    auto const store = this->client();
    this->submit(*store, {makeOf("p", "T"), setOf("p", "c", "k", "1"), setOf("p", "c", "l", "2")});
    epoch = store->head().epoch;
    version = store->head().version;
  }
  this->fixture.restart();
  auto const store = this->fixture.open();
  auto const snapshot = store->snapshot();
  EXPECT_EQ(snapshot.head.epoch, epoch);
  EXPECT_EQ(snapshot.head.version, version);
  ASSERT_TRUE(snapshot.records.contains("p"));
  EXPECT_EQ(snapshot.records.at("p").form, (Host::RecordForm{{"c", {{"k", "1"}, {"l", "2"}}}}));
  this->submit(*store, {delOf("p", "c", "k")});
  EXPECT_THAT(shown(store->changes()), ElementsAre("del p c k "));
  EXPECT_LT(version, store->head().version);
}

TYPED_TEST(SharedStoreConformance, EveryClientGetsTheSameChangesInTheSameOrder) {
  auto const one = this->client();
  auto const two = this->client();
  this->submit(*one, {makeOf("p", "T"), setOf("p", "c", "k", "1")});
  this->submit(*two, {setOf("p", "c", "k", "2")});
  this->submit(*one, {setOf("p", "c", "l", "3")});
  auto const events = shown(one->changes());
  EXPECT_THAT(events, ElementsAre("make p   T", "set p c k 1", "set p c k 2", "set p c l 3"));
  EXPECT_EQ(shown(two->changes()), events);
}

TYPED_TEST(SharedStoreConformance, LostChangesAreNoticedAndASnapshotGoesOn) {
  auto const one = this->client();
  auto const two = this->client();
  this->submit(*one, {makeOf("p", "T"), setOf("p", "c", "k", "1")});
  this->fixture.loseChanges();
  this->submit(*one, {setOf("p", "c", "k", "2")});
  EXPECT_THAT(shown(two->changes()), ElementsAre("lost"));
  EXPECT_EQ(two->snapshot().records.at("p").form.at("c").at("k"), "2");
  this->submit(*one, {setOf("p", "c", "k", "3")});
  EXPECT_THAT(shown(two->changes()), ElementsAre("set p c k 3"));
}

}  // namespace
