// SPDX-License-Identifier: Apache-2.0
#include "host/store/RedisStore.h"

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/host/store/Changes.h"
#include "tests/host/store/Places.h"
#include "tests/host/store/RedisServer.h"

namespace {

using BfnTest::delOf;
using BfnTest::makeOf;
using BfnTest::setOf;
using BfnTest::shown;
using Host::RedisConnection;
using Host::RedisReply;
using Host::RedisStore;
using Host::StoreAway;
using Host::StoreChange;
using Host::StoreOptions;
using Host::StoreRefused;
using Host::StoreUrl;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

class RedisStoreTest : public ::testing::Test {
 protected:
  std::unique_ptr<BfnTest::RedisServer> const server =
      BfnTest::RedisServer::isThere() ? std::make_unique<BfnTest::RedisServer>() : nullptr;
  BfnTest::TemporaryDirectory const directory;

  void SetUp() override {
    if (!server) GTEST_SKIP() << "there is no redis-server";
  }
  std::unique_ptr<RedisStore> open(StoreOptions const& options = {}) const {
    return std::make_unique<RedisStore>(StoreUrl(server->url()), options);
  }
  std::unique_ptr<RedisStore> begun() const {
    auto store = open();
    store->begin();
    store->snapshot();
    return store;
  }
  RedisReply command(std::initializer_list<std::string_view> words) const {
    RedisConnection connection(StoreUrl(server->url()), {});
    connection.add(words);
    return connection.need();
  }
  /// The server's time, from the answer to TIME.
  static Kiv::U64 milliseconds(RedisReply const& time) {
    return std::stoull(std::string(time[0].text())) * 1000 +
           std::stoull(std::string(time[1].text())) / 1000;
  }
  static void submit(RedisStore& store, std::vector<StoreChange> const& changes) {
    store.submit(changes);
  }
  /// Changes until there are none.
  static std::vector<std::string> allOf(RedisStore& store) {
    std::vector<std::string> all;
    for (auto part = shown(store.changes()); !part.empty(); part = shown(store.changes())) {
      all.insert(all.end(), part.begin(), part.end());
      if (part.front() == "lost") break;
    }
    return all;
  }
  static bool readable(int descriptor) {
    pollfd waiting{descriptor, POLLIN, 0};
    return ::poll(&waiting, 1, 5000) == 1;
  }
};

TEST_F(RedisStoreTest, KeepsRecordsUnderTheNamesOfTheDocument) {
  auto const store = begun();
  submit(*store, {makeOf("a:b%", "T"), setOf("a:b%", "c", "k", "v")});
  EXPECT_EQ(command({"GET", "macrewrite:type:a%3Ab%25"}).text(), "T");
  EXPECT_EQ(command({"HGET", "macrewrite:data:a%3Ab%25:c", "k"}).text(), "v");
  auto const entry = command({"XREVRANGE", "macrewrite:stream", "+", "-", "COUNT", "1"})[0];
  std::vector<std::string> fields;
  for (size_t i = 0; i < entry[1].size(); ++i) fields.emplace_back(entry[1][i].text());
  EXPECT_THAT(fields,
              ElementsAre("op", "set", "path", "a:b%", "attribute", "c", "key", "k", "value", "v"));
  EXPECT_EQ(store->snapshot().records.at("a:b%").form.at("c").at("k"), "v");
}

TEST_F(RedisStoreTest, PrefixesAndDatabasesAreApart) {
  auto const store = begun();
  submit(*store, {makeOf("p", "T")});
  StoreOptions options;
  options.prefix = "other";
  auto const other = open(options);
  other->begin();
  EXPECT_THAT(other->snapshot().records, IsEmpty());
  RedisStore third(StoreUrl(server->url() + "?db=3"), {});
  EXPECT_EQ(third.head().epoch, "");
}

TEST_F(RedisStoreTest, AUserComesInWithTheSecretOfAFile) {
  std::ofstream(directory.file("secret")) << "open sesame\n";
  std::ofstream(directory.file("wrong")) << "open\n";
  command({"ACL", "SETUSER", "leaf1", "on", ">open sesame", "~macrewrite:*", "+@all"});
  command({"ACL", "SETUSER", "default", "resetpass", ">admin"});
  EXPECT_THAT([&] { open()->head(); }, ThrowsMessage<StoreRefused>(HasSubstr("NOAUTH")));
  StoreOptions options;
  options.user = "leaf1";
  options.secretFile = directory.file("wrong");
  EXPECT_THAT([&] { open(options)->head(); }, ThrowsMessage<StoreRefused>(HasSubstr("WRONGPASS")));
  options.secretFile = directory.file("secret");
  auto const store = open(options);
  store->begin();
  EXPECT_FALSE(store->head().epoch.empty());
}

TEST_F(RedisStoreTest, AUserWithoutTheRightToWriteIsRefused) {
  begun();
  command({"ACL", "SETUSER", "default", "-@write"});
  auto const store = open();
  store->head();
  std::vector<StoreChange> const changes{makeOf("p", "T")};
  EXPECT_THAT([&] { store->submit(changes); },
              ThrowsMessage<StoreRefused>(HasSubstr("no permissions")));
}

TEST_F(RedisStoreTest, AStreamThatIsEmptiedAgainAndAgainHasNotGoneBack) {
  auto const store = begun();
  pid_t const other = ::fork();
  if (other == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    RedisConnection connection(StoreUrl(server->url()), {});
    while (true) {
      connection.add({"XTRIM", "macrewrite:stream", "MAXLEN", "0"});
      connection.answer();
    }
  }
  Host::StoreVersion least;
  for (int i = 0; i < 300; ++i) {
    auto const head = i % 2 == 0 ? store->snapshot().head : store->head();
    EXPECT_LT(Host::StoreVersion(), head.version) << i;
    EXPECT_LE(least, head.version) << i;
    least = head.version;
  }
  ::kill(other, SIGKILL);
  ::waitpid(other, nullptr, 0);
}

TEST_F(RedisStoreTest, ANameIsClaimedByOneOwnerUntilItsTimeIsOver) {
  auto const one = begun();
  auto const two = begun();
  EXPECT_EQ(one->claim("leaf1", "a", 100), "a");
  EXPECT_EQ(two->claim("leaf1", "b", 100), "a");
  EXPECT_EQ(one->claim("leaf1", "a", 100), "a");
  EXPECT_EQ(two->claim("leaf2", "b", 100), "b");
  EXPECT_GT(command({"TTL", "macrewrite:holder:leaf1"}).number(), 0);
  command({"DEL", "macrewrite:holder:leaf1"});
  EXPECT_EQ(two->claim("leaf1", "b", 100), "b");
}

TEST_F(RedisStoreTest, AStoreThatIsEmptiedUnderAConnectionTakesNoChanges) {
  auto const store = begun();
  submit(*store, {makeOf("p", "T")});
  command({"FLUSHALL"});
  std::vector<StoreChange> const changes{setOf("p", "c", "k", "v")};
  EXPECT_THAT([&] { store->submit(changes); },
              ThrowsMessage<StoreRefused>(HasSubstr("emptied or replaced")));
  EXPECT_EQ(command({"DBSIZE"}).number(), 0);
  auto const other = begun();
  EXPECT_THROW(store->submit(changes), StoreRefused);
  EXPECT_THAT(other->snapshot().records, IsEmpty());
  EXPECT_THAT(shown(store->changes()), ElementsAre("lost"));
}

TEST_F(RedisStoreTest, ALostStreamIsBegunAnew) {
  auto const one = begun();
  auto const two = begun();
  submit(*one, {makeOf("p", "T"), setOf("p", "c", "k", "v")});
  auto const before = one->head();
  // Ids begin anew with the server's time, in milliseconds.
  while (milliseconds(command({"TIME"})) <= before.version.major) {
  }
  command({"DEL", "macrewrite:stream"});
  EXPECT_THAT(shown(two->changes()), ElementsAre("lost"));
  auto const snapshot = two->snapshot();
  EXPECT_EQ(snapshot.head.epoch, before.epoch);
  EXPECT_LT(before.version, snapshot.head.version);
  EXPECT_EQ(snapshot.records.at("p").form.at("c").at("k"), "v");
  EXPECT_THAT(shown(one->changes()), ElementsAre("lost"));
}

TEST_F(RedisStoreTest, WhatOthersPutThereIsNamedOrPassedOver) {
  auto const store = begun();
  submit(*store, {makeOf("p", "T"), setOf("p", "c", "k", "v")});
  (void)store->changes();
  command({"SADD", "macrewrite:index", "rubbish", "type:q", "data:", "data:p:list", "data:p:gone"});
  command({"LPUSH", "macrewrite:data:p:list", "x"});
  command({"LPUSH", "macrewrite:type:q", "x"});
  command({"XADD", "macrewrite:stream", "*", "op", "nonsense"});
  command({"XADD", "macrewrite:stream", "*", "x", "y"});
  EXPECT_THAT(shown(store->changes()), IsEmpty());
  submit(*store, {delOf("p", "c", "k")});
  EXPECT_THAT(shown(store->changes()), ElementsAre("del p c k "));
  auto const snapshot = store->snapshot();
  EXPECT_THAT(
      snapshot.unreadable,
      ElementsAre(::testing::Key("macrewrite:data:"), ::testing::Key("macrewrite:data:p:list"),
                  ::testing::Key("macrewrite:rubbish"), ::testing::Key("macrewrite:type:q")));
  EXPECT_THAT(snapshot.records, ElementsAre(::testing::Key("p")));
}

TEST_F(RedisStoreTest, KeysOfOtherKindsAreRefused) {
  command({"SET", "macrewrite:stream", "x"});
  EXPECT_THAT([&] { open()->head(); }, ThrowsMessage<StoreRefused>(HasSubstr("WRONGTYPE")));
}

TEST_F(RedisStoreTest, ItsDescriptorReportsChangesAndTheLossOfTheConnection) {
  auto const one = begun();
  auto const two = begun();
  int descriptor = two->descriptor();
  submit(*one, {makeOf("p", "T")});
  EXPECT_TRUE(readable(descriptor));
  EXPECT_THAT(shown(two->changes()), ElementsAre("make p   T"));
  descriptor = two->descriptor();
  submit(*one, {setOf("p", "c", "k", "v")});
  EXPECT_TRUE(readable(descriptor));
  EXPECT_THAT(shown(two->changes()), ElementsAre("set p c k v"));
  descriptor = two->descriptor();
  server->stop();
  EXPECT_TRUE(readable(descriptor));
  EXPECT_THROW(two->changes(), StoreAway);
}

TEST_F(RedisStoreTest, OwnChangesAreGivenThoughTheConnectionIsLostInBetween) {
  auto const store = begun();
  submit(*store, {makeOf("p", "T"), setOf("p", "c", "k", "v")});
  command({"CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes"});
  EXPECT_THROW(store->changes(), StoreAway);
  EXPECT_THAT(shown(store->changes()), ElementsAre("make p   T", "set p c k v"));
}

TEST_F(RedisStoreTest, OwnChangesComeAfterThoseOfOthersHoweverManyTheseAre) {
  auto const one = begun();
  auto const two = begun();
  submit(*two, {makeOf("p", "T")});
  for (size_t const others : {1U, 998U, 999U, 1000U, 2500U}) {
    std::vector<StoreChange> changes;
    std::vector<std::string> expected;
    for (size_t i = 0; i < others; ++i) {
      changes.push_back(setOf("p", "c", std::to_string(i), "x"));
      expected.push_back("set p c " + std::to_string(i) + " x");
    }
    expected.emplace_back("set p c own v");
    (void)allOf(*one);
    submit(*two, changes);
    submit(*one, {setOf("p", "c", "own", "v")});
    EXPECT_EQ(allOf(*one), expected) << others;
    EXPECT_EQ(allOf(*two).size(), others + (others == 1 ? 2 : 1)) << others;
  }
}

TEST_F(RedisStoreTest, ATransactionLargerThanTheStreamIsNotLostToItsWriter) {
  // The server takes longer for it: such a transaction has more time.
  StoreOptions options;
  options.timeout = 0.25;
  auto const one = open(options);
  one->begin();
  one->snapshot();
  auto const two = begun();
  std::vector<StoreChange> changes{makeOf("p", "T")};
  for (int i = 0; i < 150'000; ++i) changes.push_back(setOf("p", "c", std::to_string(i), "x"));
  submit(*one, changes);
  EXPECT_EQ(allOf(*one).size(), changes.size());
  EXPECT_THAT(shown(two->changes()), ElementsAre("lost"));
  EXPECT_EQ(two->snapshot().records.at("p").form.at("c").size(), 150'000);
}

TEST_F(RedisStoreTest, ChangesThatAreWrittenTogetherLeaveWhatTheyLeaveOneByOne) {
  std::vector<StoreChange> const changes{
      makeOf("p", "T"),          makeOf("q", "T"),          setOf("p", "c", "k", "1"),
      setOf("p", "c", "k", "2"), setOf("p", "c", "l", ""),  delOf("p", "c", "k"),
      setOf("p", "d", "k", "3"), setOf("q", "d", "k", "4"), setOf("p", "c", "k", "5"),
      setOf("p", "c", "", "6"),  delOf("p", "c", "l"),      setOf("p", "c", "m", "7")};
  auto const together = begun();
  submit(*together, changes);
  auto const snapshot = together->snapshot();
  command({"FLUSHALL"});
  auto const apart = begun();
  for (StoreChange const& change : changes) submit(*apart, {change});
  auto const expected = apart->snapshot();
  ASSERT_EQ(snapshot.records.size(), 2U);
  for (auto const& [path, record] : expected.records) {
    EXPECT_EQ(snapshot.records.at(path).form, record.form) << path;
  }
}

TEST_F(RedisStoreTest, AServerThatDoesNotAnswerIsAway) {
  StoreOptions options;
  options.timeout = 0.05;
  auto const store = open(options);
  store->begin();
  store->snapshot();
  server->pause();
  std::vector<StoreChange> const changes{makeOf("p", "T"), setOf("p", "c", "k", "v")};
  EXPECT_THROW(store->submit(changes), StoreAway);
  server->resume();
  EXPECT_NO_THROW(store->head());
}

}  // namespace
