// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <memory>

#include "host/store/MemoryStore.h"
#include "host/store/Store.h"
#ifdef BFN_STORE_SQLITE
#include "host/store/SqliteStore.h"
#endif
#include "tests/host/store/Places.h"
#ifdef BFN_STORE_REDIS
#include "host/store/RedisStore.h"
#include "tests/host/store/RedisServer.h"
#endif

// What the conformance suite needs of each kind of store: clients of one store, and its faults. A
// fixture without a store of its kind to test says why in `missing`.
namespace BfnTest {

class MemoryFixture {
 public:
  std::string missing() const { return {}; }
  std::unique_ptr<Host::Store> open() { return std::make_unique<Host::MemoryStore>(contents_); }
  /// The store is as it is after its process has been started again.
  void restart() {}
  /// Cuts every client's connection; it can be made again.
  void cut() {}
  void awayIs(bool away) { contents_->away = away; }
  /// Changes are refused from now on, or taken again.
  void refusingIs(bool refusing) { contents_->refusal = refusing ? "no room" : ""; }
  /// All changes are forgotten, contents are not.
  void loseChanges() { contents_->events.clear(); }
  /// As after the loss of everything.
  void clear() {
    contents_->records.clear();
    contents_->events.clear();
    contents_->head = {};
  }
  /// Remembers what the store holds, and gives it that back.
  void save() { saved_ = *contents_; }
  void restore() { *contents_ = saved_; }
  /// Puts text there that no codec has seen.
  void putRaw(Host::StoreChange const& change) { (void)open()->submit({change}); }

 private:
  std::shared_ptr<Host::MemoryStoreContents> contents_ =
      std::make_shared<Host::MemoryStoreContents>();
  Host::MemoryStoreContents saved_;
};

#ifdef BFN_STORE_SQLITE
class SqliteFixture {
 public:
  std::string missing() const { return {}; }
  std::unique_ptr<Host::Store> open() {
    return std::make_unique<Host::SqliteStore>(directory_.file("store"),
                                               Host::StoreOptions::Durability::Normal);
  }
  void restart() {}
  void refusingIs(bool refusing) {
    if (refusing) {
      full_ = std::make_unique<NoRoom>();
    } else {
      full_.reset();
    }
  }
  void putRaw(Host::StoreChange const& change) { (void)open()->submit({change}); }

 private:
  TemporaryDirectory directory_;
  std::unique_ptr<NoRoom> full_;
};
#endif

#ifdef BFN_STORE_REDIS
class RedisFixture {
 public:
  std::string missing() const { return server_ ? "" : "there is no redis-server"; }
  std::unique_ptr<Host::Store> open() { return Host::openStore(Host::StoreUrl(server_->url())); }
  void restart() {
    server_->stop();
    server_->start();
  }
  void cut() { command({"CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes"}); }
  void awayIs(bool away) {
    if (away) {
      server_->stop();
    } else {
      server_->start();
    }
  }
  void refusingIs(bool refusing) { command({"CONFIG", "SET", "maxmemory", refusing ? "1" : "0"}); }
  void loseChanges() { command({"XTRIM", "macrewrite:stream", "MAXLEN", "0"}); }
  void clear() { command({"FLUSHALL"}); }
  void save() { server_->save(); }
  void restore() { server_->restore(); }
  void putRaw(Host::StoreChange const& change) {
    auto const store = open();
    store->head();
    (void)store->submit({change});
  }

  /// A command as another program gives it.
  Host::RedisReply command(std::initializer_list<std::string_view> words) {
    Host::RedisConnection connection(Host::StoreUrl(server_->url()), {});
    connection.add(words);
    return connection.need();
  }

 private:
  std::unique_ptr<RedisServer> const server_ =
      RedisServer::isThere() ? std::make_unique<RedisServer>() : nullptr;
};
#endif

#if defined(BFN_STORE_SQLITE) && defined(BFN_STORE_REDIS)
using AllStores = ::testing::Types<MemoryFixture, SqliteFixture, RedisFixture>;
#elif defined(BFN_STORE_SQLITE)
using AllStores = ::testing::Types<MemoryFixture, SqliteFixture>;
#elif defined(BFN_STORE_REDIS)
using AllStores = ::testing::Types<MemoryFixture, RedisFixture>;
#else
using AllStores = ::testing::Types<MemoryFixture>;
#endif

/// Those that several clients use at a time.
#ifdef BFN_STORE_REDIS
using SharedStores = ::testing::Types<MemoryFixture, RedisFixture>;
#else
using SharedStores = ::testing::Types<MemoryFixture>;
#endif

}  // namespace BfnTest
