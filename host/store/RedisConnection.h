// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/store/OpenStore.h"
#include "host/store/StoreUrl.h"

struct redisContext;
struct redisReply;

namespace Host {

/// One answer of a Redis server, or one of a list within it. It keeps the whole answer.
class RedisReply {
 public:
  bool isNothing() const;
  bool isError() const;
  /// Of a text or an error; else empty. Valid as long as a part of this answer is kept.
  std::string_view text() const;
  /// Of a number; else 0.
  long long number() const;
  /// How many a list has; else 0.
  size_t size() const;
  /// One of a list. Fatal when the list has fewer.
  RedisReply operator[](size_t i) const;

 private:
  friend class RedisConnection;
  explicit RedisReply(std::shared_ptr<redisReply const> reply) : reply_(std::move(reply)) {}

  std::shared_ptr<redisReply const> reply_;
};

/// One connection to a Redis server. Commands are sent in batches; the answers come in their order.
///
/// Throws StoreAway when the connection cannot be made, is lost or gives no answer in time; it is
/// of no further use then. A long batch has more time than `StoreOptions::timeout`: a second for
/// each megabyte. A process that would end by SIGPIPE ignores that signal from the first
/// connection on.
class RedisConnection {
 public:
  /// Connects, identifies itself and chooses the database. Throws StoreRefused when the server
  /// does not let it in.
  RedisConnection(StoreUrl const& url, StoreOptions const& options);

  /// Adds a command to the batch. What the server can begin with is sent before the batch is
  /// complete.
  void add(std::initializer_list<std::string_view> words);
  void add(std::vector<std::string_view> const& words);
  /// The next answer, errors among them. Sends the batch first.
  RedisReply answer();
  /// The next answer; throws StoreRefused when it is an error.
  RedisReply need();
  /// How many answers have not been read.
  size_t awaited() const { return awaited_; }

  // For commands whose answer comes at some time.
  /// Sends the batch.
  void send();
  /// Whether an answer is there, without waiting.
  bool ready();
  int descriptor() const;

 private:
  struct Free {
    void operator()(redisContext* context) const;
  };

  [[noreturn]] void away() const;
  void identify(StoreOptions const& options);
  /// Sets how long the next answer is waited for, by the size of its batch.
  void waitForBatch();

  std::string const name_;
  double const timeout_;
  std::unique_ptr<redisContext, Free> context_;
  size_t awaited_ = 0;
  size_t unsent_ = 0;  // bytes, about
  size_t batch_ = 0;   // the same of all commands since the last time that none was awaited
  size_t extraSeconds_ = 0;
};

}  // namespace Host
