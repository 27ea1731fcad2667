#pragma once

#include <chrono>

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

/// While one is on the stack, the first trace reads the counter and every later one takes over
/// that reading: all traces of one event carry the event's time. Reading the counter is most of
/// what a trace costs. Scopes nest; the outermost counts. Opening and closing one costs a test and
/// a store, and no reading if nothing is traced.
class EventScope {
 public:
  EventScope() noexcept : outermost_(stamp_ == kNoScope) {
    if (outermost_) stamp_ = kNotRead;
  }
  /// For an event whose counter reading is known, above 1.
  explicit EventScope(U64 counter) noexcept : outermost_(stamp_ == kNoScope) {
    if (outermost_) stamp_ = counter;
  }
  ~EventScope() {
    if (outermost_) stamp_ = kNoScope;
  }
  EventScope(EventScope const&) = delete;
  EventScope& operator=(EventScope const&) = delete;

  /// The stamp of a record written now.
  static U64 now() noexcept {
    U64 const stamp = stamp_;
    if (stamp > kNotRead) return stamp;
    U64 const counter = readCounter();
    if (stamp == kNotRead) stamp_ = counter;
    return counter;
  }

 private:
  static constexpr U64 kNoScope = 0;
  static constexpr U64 kNotRead = 1;

  static U64 stamp_;

  bool outermost_;
};

/// Turns counter readings into wall time, by two moments at which both were read.
class TimeLine {
 public:
  using Wall = std::chrono::system_clock::time_point;
  struct Moment {
    U64 counter;
    Wall wall;
  };

  /// From the process's first trace to now.
  static TimeLine current();
  /// Notes the moment of the first trace; later calls do nothing.
  static void begin();

  TimeLine(Moment first, Moment last);
  Wall at(U64 counter) const;

 private:
  Moment last_;
  double nanosecondsPerTick_;
};

}  // namespace Ringlog
