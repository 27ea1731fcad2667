// SPDX-License-Identifier: Apache-2.0
#include "host/store/ScopedStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/store/MemoryStore.h"
#include "tests/host/store/Changes.h"

namespace {

using BfnTest::makeOf;
using BfnTest::setOf;
using BfnTest::shown;
using Host::MemoryStore;
using Host::ScopedStore;
using Host::StoreChange;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Key;

class ScopedStoreTest : public ::testing::Test {
 protected:
  std::shared_ptr<Host::MemoryStoreContents> const contents =
      std::make_shared<Host::MemoryStoreContents>();
  ScopedStore one{std::make_unique<MemoryStore>(contents), "switch/one/", {"all"}};
  ScopedStore two{std::make_unique<MemoryStore>(contents), "switch/two/", {"all"}};
  MemoryStore whole{contents};

  void SetUp() override {
    for (Host::Store* store : {static_cast<Host::Store*>(&one), static_cast<Host::Store*>(&two),
                               static_cast<Host::Store*>(&whole)}) {
      store->snapshot();
    }
  }
};

TEST_F(ScopedStoreTest, PathsLieBelowThePrefixButForTheCommonOnes) {
  one.submit(std::vector<StoreChange>{makeOf("p", "T"), makeOf("all", "T")});
  EXPECT_THAT(whole.snapshot().records, ElementsAre(Key("all"), Key("switch/one/p")));
  EXPECT_THAT(one.snapshot().records, ElementsAre(Key("all"), Key("p")));
  EXPECT_THAT(two.snapshot().records, ElementsAre(Key("all")));
}

TEST_F(ScopedStoreTest, ChangesOfOthersAreNotSeenAndEndNothing) {
  two.submit(std::vector<StoreChange>{makeOf("p", "T"), setOf("p", "c", "k", "v")});
  one.submit(std::vector<StoreChange>{makeOf("q", "T")});
  whole.submit(std::vector<StoreChange>{makeOf("elsewhere", "T")});
  two.submit(std::vector<StoreChange>{makeOf("all", "T")});
  EXPECT_THAT(shown(one.changes()), ElementsAre("make q   T", "make all   T"));
  EXPECT_THAT(shown(one.changes()), IsEmpty());
}

TEST_F(ScopedStoreTest, APathThatWouldPassForACommonOneIsNotSeen) {
  whole.submit(std::vector<StoreChange>{makeOf("switch/one/all", "T")});
  EXPECT_THAT(one.snapshot().records, IsEmpty());
}

TEST_F(ScopedStoreTest, LostChangesAreLostToEach) {
  contents->maxEvents = 1;
  two.submit(std::vector<StoreChange>{makeOf("p", "T"), makeOf("q", "T")});
  EXPECT_THAT(shown(one.changes()), ElementsAre("lost"));
}

}  // namespace
