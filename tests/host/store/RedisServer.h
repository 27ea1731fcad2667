// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <sys/types.h>

#include "tests/host/store/Places.h"

namespace BfnTest {

/// A Redis server of the test's own, at a socket in a directory of its own, which goes with the
/// object. What it took outlives stop() and start().
class RedisServer {
 public:
  /// Whether there is a redis-server to start.
  static bool isThere();

  RedisServer() { start(); }
  RedisServer(RedisServer const&) = delete;
  RedisServer& operator=(RedisServer const&) = delete;
  ~RedisServer() { stop(); }

  /// Returns when it takes connections.
  void start();
  /// Kills it.
  void stop();
  /// It keeps its connections and answers nothing.
  void pause();
  void resume();
  std::string socket() const { return directory_.file("socket"); }
  std::string url() const { return "redis+unix://" + socket(); }
  /// Remembers what it holds, and gives it that back; each stops and starts it.
  void save();
  void restore();

 private:
  TemporaryDirectory const directory_;
  pid_t server_ = -1;
};

}  // namespace BfnTest
