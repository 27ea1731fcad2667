// SPDX-License-Identifier: Apache-2.0
#include "host/store/SqliteStore.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/host/store/Changes.h"
#include "tests/host/store/Places.h"
#include "tests/support/InChild.h"
#include "tests/support/Seed.h"

namespace {

using BfnTest::makeOf;
using BfnTest::setOf;
using Host::SqliteStep;
using Host::SqliteStore;
using Host::StoreChange;
using Host::StoreRefused;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;
using Durability = Host::StoreOptions::Durability;

class SqliteStoreTest : public ::testing::Test {
 protected:
  BfnTest::TemporaryDirectory const directory;
  std::string const file = directory.file("store");

  std::unique_ptr<SqliteStore> open(Durability durability = Durability::Normal) const {
    return std::make_unique<SqliteStore>(file, durability);
  }
  std::unique_ptr<SqliteStore> openWith(std::vector<SqliteStep> const& steps) const {
    return std::make_unique<SqliteStore>(file, Durability::Normal, steps);
  }
  static void set(SqliteStore& store, std::string const& key, std::string const& value) {
    std::vector<StoreChange> const changes{makeOf("p", "T"), setOf("p", "c", key, value)};
    store.submit(changes);
  }
  static std::string valueOf(SqliteStore& store, std::string const& key) {
    return store.snapshot().records.at("p").form.at("c").at(key);
  }
  std::string bytes() const {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void bytesAre(std::string const& bytes) const {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
  }
};

TEST_F(SqliteStoreTest, AFileBelongsToTheProcessThatOpenedIt) {
  auto const store = open();
  set(*store, "k", "1");
  auto const other = BfnTest::inChild(STDOUT_FILENO, [&] {
    try {
      open();
    } catch (StoreRefused const& refused) {
      return std::string(refused.what()).find("another process has it") != std::string::npos ? 0
                                                                                             : 2;
    }
    return 1;
  });
  EXPECT_TRUE(other.exitedWith(0)) << other.status;
  set(*store, "k", "2");
  EXPECT_EQ(valueOf(*store, "k"), "2");
}

TEST_F(SqliteStoreTest, TheFileIsFreeAgainAfterTheStoreHasBeenClosed) {
  set(*open(), "k", "1");
  EXPECT_EQ(valueOf(*open(), "k"), "1");
}

TEST_F(SqliteStoreTest, WhatWasTakenIsThereAfterTheProcessWasKilled) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  for (int round = 0; round < 5; ++round) {
    pid_t const child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      auto const store = open();
      for (Kiv::U32 i = 0;; ++i) {
        set(*store, std::to_string(round), std::to_string(i));
        if (::write(ends[1], &i, sizeof i) != sizeof i) ::_exit(1);
      }
    }
    Kiv::U32 taken = 0;
    for (int i = 0; i < 20 + 30 * round; ++i) {
      ASSERT_EQ(::read(ends[0], &taken, sizeof taken), static_cast<ssize_t>(sizeof taken));
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    // What it still said, and one that it did not come to say.
    while (true) {
      fd_set ready;
      FD_ZERO(&ready);
      FD_SET(ends[0], &ready);
      timeval none{0, 0};
      if (::select(ends[0] + 1, &ready, nullptr, nullptr, &none) != 1) break;
      ASSERT_EQ(::read(ends[0], &taken, sizeof taken), static_cast<ssize_t>(sizeof taken));
    }
    auto const store = open();
    unsigned long const there = std::stoul(valueOf(*store, std::to_string(round)));
    EXPECT_GE(there, taken);
    EXPECT_LE(there, taken + 1);
  }
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST_F(SqliteStoreTest, PowerLossIsMetByWritingThroughToTheDisk) {
  // What SQLite is told, since a test cannot pull the plug.
  auto const store = open(Durability::Power);
  set(*store, "k", "1");
  EXPECT_EQ(store->synchronous(), 2u);
  EXPECT_EQ(SqliteStore(directory.file("other"), Durability::Normal).synchronous(), 1u);
}

TEST_F(SqliteStoreTest, AnotherFileIsRefused) {
  bytesAre(std::string(5000, 'x'));
  EXPECT_THAT([&] { open(); }, ThrowsMessage<StoreRefused>(HasSubstr("not a database")));
  EXPECT_EQ(bytes(), std::string(5000, 'x'));
  std::remove(file.c_str());
  Host::SqliteDatabase(file).run("CREATE TABLE t(x)");
  EXPECT_THAT([&] { open(); }, ThrowsMessage<StoreRefused>(HasSubstr("another program's file")));
  EXPECT_THAT([&] { SqliteStore(directory.file("no/such"), Durability::Normal); },
              ThrowsMessage<StoreRefused>(HasSubstr("unable to open")));
}

TEST_F(SqliteStoreTest, AFileOfALaterVersionIsRefused) {
  open();
  Host::SqliteDatabase(file).run("PRAGMA user_version = 1000");
  EXPECT_THAT([&] { open(); }, ThrowsMessage<StoreRefused>(HasSubstr("by a later release")));
}

std::vector<SqliteStep> laterSteps(char const* sql) {
  std::vector<SqliteStep> steps(Host::sqliteSteps().begin(), Host::sqliteSteps().end());
  steps.push_back({steps.back().version + 1, sql});
  return steps;
}

TEST_F(SqliteStoreTest, AnEarlierVersionIsBroughtToThisOneAndKeptBeside) {
  set(*open(), "k", "1");
  auto const later = laterSteps("UPDATE entry SET value = 'later'");
  EXPECT_EQ(valueOf(*openWith(later), "k"), "later");
  EXPECT_EQ(valueOf(*openWith(later), "k"), "later");
  EXPECT_THROW(open(), StoreRefused);
  // The way back.
  EXPECT_EQ(std::rename((file + ".v1").c_str(), file.c_str()), 0);
  EXPECT_EQ(valueOf(*open(), "k"), "1");
}

TEST_F(SqliteStoreTest, AStepThatFailsLeavesTheFileAsItWas) {
  set(*open(), "k", "1");
  auto const broken = laterSteps("UPDATE entry SET value = 'half'; UPDATE nothing SET x = 1");
  EXPECT_THROW(openWith(broken), StoreRefused);
  EXPECT_EQ(valueOf(*open(), "k"), "1");
}

TEST_F(SqliteStoreTest, AFileWithoutRoomIsRefusedWithTheReason) {
  auto const store = open();
  set(*store, "k", "1");
  BfnTest::NoRoom const full;
  EXPECT_THROW(set(*store, "k", "2"), StoreRefused);
  EXPECT_EQ(valueOf(*store, "k"), "1");
}

TEST_F(SqliteStoreTest, ADamagedFileIsRefusedOrReadButNeverEndsTheProcess) {
  {
    auto const store = open();
    std::vector<StoreChange> changes{makeOf("p", "T")};
    for (int i = 0; i < 200; ++i) {
      changes.push_back(setOf("p", "c" + std::to_string(i % 3), std::to_string(i), "value"));
    }
    store->submit(changes);
  }
  std::string const whole = bytes();
  ASSERT_GT(whole.size(), 4096u);
  Kiv::U32 const seed = BfnTest::testSeed();
  std::mt19937 random(seed);
  int refused = 0;
  constexpr int kRounds = 60;
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("BFN_TEST_SEED=" + std::to_string(seed) + ", round " + std::to_string(round));
    std::string damaged = whole;
    for (int i = 0; i < 4; ++i) damaged[random() % whole.size()] = static_cast<char>(random());
    if (round % 10 == 0) damaged.resize(random() % whole.size());
    std::remove((file + "-wal").c_str());
    bytesAre(damaged);
    try {
      auto const store = open();
      store->snapshot();
      set(*store, "k", "1");
    } catch (StoreRefused const&) {
      ++refused;
    }
  }
  EXPECT_GT(refused, kRounds / 20);
}

}  // namespace
