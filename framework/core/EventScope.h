// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>

#include "framework/core/Types.h"

namespace Ringlog {

using Kiv::U32;
using Kiv::U64;

/// The processor's time-stamp counter; a steady clock in nanoseconds where there is none. What a
/// tick is worth is found out when a record is decoded (TimeLine).
inline U64 readCounter() noexcept {
#if defined(__x86_64__)
  return __builtin_ia32_rdtsc();
#else
  return static_cast<U64>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

/// While one is on the stack, the first trace reads the counter and the next ones take over that
/// reading, 256 records in all; then it is read again. So all traces of one event
/// carry the event's time, and a long one (bring-up, a bulk change) still shows how long it took.
/// Reading the counter is most of what a trace costs. Scopes nest; the outermost counts. Opening
/// and closing one costs a test and a store, and no reading if nothing is traced.
class EventScope {
 public:
  EventScope() noexcept : outermost_(state_.left < 0) {
    if (outermost_) state_.left = 0;
  }
  /// For an event whose counter reading is known.
  explicit EventScope(U64 counter) noexcept : EventScope() {
    if (outermost_) state_ = {kRecordsPerStamp, counter};
  }
  ~EventScope() {
    if (outermost_) state_.left = kNoScope;
  }
  EventScope(EventScope const&) = delete;
  EventScope& operator=(EventScope const&) = delete;

  /// The stamp of a record written now.
  [[gnu::always_inline]] static U64 now() noexcept {
    if (--state_.left >= 0) [[likely]]
      return state_.stamp;
    U64 const counter = readCounter();
    if (state_.left == -1) state_ = {kRecordsPerStamp - 1, counter};
    return counter;
  }

 private:
  static constexpr int kRecordsPerStamp = 256;
  // Outside of every scope `left` is negative, and counting it down from here never brings it near
  // the other end. A constant of 32 bits needs no instruction of its own.
  static constexpr std::int64_t kNoScope = std::numeric_limits<std::int32_t>::min();

  struct State {
    std::int64_t left;  // records that may still carry the stamp
    U64 stamp;
  };
  static State state_;

  bool outermost_;
};

}  // namespace Ringlog
