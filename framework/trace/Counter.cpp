#include "framework/trace/Counter.h"

#include <cmath>
#include <optional>

namespace Ringlog {

namespace {

TimeLine::Moment currentMoment() {
  return {readCounter(), std::chrono::system_clock::now()};
}

std::optional<TimeLine::Moment>& firstMoment() {
  static std::optional<TimeLine::Moment> moment;
  return moment;
}

}  // namespace

constinit U64 EventScope::stamp_ = EventScope::kNoScope;

void TimeLine::begin() {
  if (!firstMoment()) firstMoment() = currentMoment();
}

TimeLine TimeLine::current() {
  begin();
  return {*firstMoment(), currentMoment()};
}

TimeLine::TimeLine(Moment first, Moment last) : last_(last), nanosecondsPerTick_(0) {
  using Nanoseconds = std::chrono::duration<double, std::nano>;
  double const ticks = static_cast<double>(last.counter - first.counter);
  if (ticks > 0) nanosecondsPerTick_ = Nanoseconds(last.wall - first.wall).count() / ticks;
}

TimeLine::Wall TimeLine::at(U64 counter) const {
  // The difference wraps into the sign: a record may be younger than the moment of decoding.
  auto const ticks = static_cast<double>(static_cast<std::int64_t>(counter - last_.counter));
  std::chrono::nanoseconds const distance(std::llround(ticks * nanosecondsPerTick_));
  return last_.wall + std::chrono::duration_cast<Wall::duration>(distance);
}

}  // namespace Ringlog
