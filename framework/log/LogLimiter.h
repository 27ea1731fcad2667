// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <list>
#include <unordered_map>
#include <vector>

#include "framework/core/Types.h"

namespace Kiv {

/// Decides which log messages may go out: at most `burst` messages of one hash within any
/// `interval` seconds.
///
/// Remembers kMaxHashes hashes at most. When another one comes up, the one that was asked about
/// the longest time ago is forgotten: its limit starts again, and what it held back is reported
/// with whichever message goes out next. Asking is expected constant time.
class LogLimiter {
 public:
  static constexpr size_t kMaxHashes = 1024;
  static constexpr double kMaxBurst = 1024;

  /// An interval of 0 sets no limit. A burst below 1 stretches the interval: 0.5 in 60 s is 1 in
  /// 120 s; above, it counts in whole messages. A negative interval and a burst that is not
  /// positive or above kMaxBurst are fatal.
  LogLimiter(double interval, double burst);

  /// Whether a message of that hash may go out at time `now`, in seconds; a yes counts. Time that
  /// runs backwards resets the hash's limit. Throws std::bad_alloc, and then nothing has counted.
  bool ok(U64 hash, double now);
  /// The message of that hash that was allowed last did not go out after all: it does not count.
  void takeBack(U64 hash);
  /// How many messages of the hash last allowed, and of forgotten ones, were held back before;
  /// they are then considered reported.
  U64 takeHeldBack();
  /// That many of them were not reported after all; the next message reports them.
  void heldBackAdd(U64 messages) { toReport_ += messages; }

  size_t hashes() const { return entries_.size(); }
  void reset();

 private:
  struct Entry {
    U64 hash;
    std::vector<double> sent;  // times, oldest first
    U64 heldBack = 0;
  };

  Entry& entry(U64 hash);

  double interval_;
  size_t burst_;
  std::list<Entry> entries_;  // the one last asked about first
  std::unordered_map<U64, std::list<Entry>::iterator> byHash_;
  U64 toReport_ = 0;
  U64 forgotten_ = 0;
};

}  // namespace Kiv
