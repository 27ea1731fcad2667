// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/store/OpenStore.h"
#include "host/store/StoreUrl.h"

struct redisContext;

namespace Host {

/// One answer of a Redis server.
struct RedisReply {
  enum class Kind : Kiv::U8 { Nothing, Text, Number, List, Error };

  Kind kind = Kind::Nothing;
  std::string text;  ///< of a text or an error
  long long number = 0;
  std::vector<RedisReply> list;

  bool isNothing() const { return kind == Kind::Nothing; }
  bool isError() const { return kind == Kind::Error; }
};

/// One connection to a Redis server. Commands are sent in batches; the answers come in their order.
///
/// Throws StoreAway when the connection cannot be made, is lost or gives no answer in time; it is
/// of no further use then. A process that would end by SIGPIPE ignores that signal from the first
/// connection on.
class RedisConnection {
 public:
  /// Connects, identifies itself and chooses the database. Throws StoreRefused when the server
  /// does not let it in.
  RedisConnection(StoreUrl const& url, StoreOptions const& options);

  /// Adds a command to the batch.
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

  std::string const name_;
  std::unique_ptr<redisContext, Free> context_;
  size_t awaited_ = 0;
};

}  // namespace Host
