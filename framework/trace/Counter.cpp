// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/Counter.h"

#include <cmath>
#include <optional>

namespace Ringlog {

namespace {

TimeLine::Moment currentMoment() {
  return {readCounter(), std::chrono::steady_clock::now()};
}

std::optional<TimeLine::Moment>& firstMoment() {
  static std::optional<TimeLine::Moment> moment;
  return moment;
}

}  // namespace

void TimeLine::begin() {
  if (!firstMoment()) firstMoment() = currentMoment();
}

TimeLine TimeLine::current() {
  begin();
  return {*firstMoment(), currentMoment(), std::chrono::system_clock::now()};
}

TimeLine::TimeLine(Moment first, Moment last, Wall wall)
    : lastCounter_(last.counter), lastWall_(wall), nanosecondsPerTick_(0) {
  using Nanoseconds = std::chrono::duration<double, std::nano>;
  double const ticks = static_cast<double>(last.counter - first.counter);
  if (ticks > 0) nanosecondsPerTick_ = Nanoseconds(last.steady - first.steady).count() / ticks;
}

TimeLine::Wall TimeLine::at(U64 counter) const {
  // The difference wraps into the sign: a record may be younger than the moment of decoding.
  auto const ticks = static_cast<double>(static_cast<std::int64_t>(counter - lastCounter_));
  std::chrono::nanoseconds const distance(std::llround(ticks * nanosecondsPerTick_));
  return lastWall_ + std::chrono::duration_cast<Wall::duration>(distance);
}

}  // namespace Ringlog
