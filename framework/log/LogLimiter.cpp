// SPDX-License-Identifier: Apache-2.0
#include "framework/log/LogLimiter.h"

#include <algorithm>
#include <utility>

#include "framework/core/Fatal.h"

namespace Kiv {

LogLimiter::LogLimiter(double interval, double burst) : interval_(interval), burst_(1) {
  KIV_CHECK(interval >= 0 && burst > 0 && burst <= kMaxBurst, "log rate limit of ", burst, " in ",
            interval, " s");
  if (burst < 1) {
    interval_ /= burst;
  } else {
    burst_ = static_cast<size_t>(burst);
  }
}

bool LogLimiter::ok(U64 hash, double now) {
  Entry& asked = entry(hash);
  if (!asked.sent.empty() && now < asked.sent.back()) asked.sent.clear();
  auto const isOver = [&](double sent) { return now - sent >= interval_; };
  asked.sent.erase(asked.sent.begin(),
                   std::find_if_not(asked.sent.begin(), asked.sent.end(), isOver));
  if (asked.sent.size() >= burst_) {
    ++asked.heldBack;
    return false;
  }
  asked.sent.push_back(now);
  toReport_ += std::exchange(asked.heldBack, 0) + std::exchange(forgotten_, 0);
  return true;
}

U64 LogLimiter::takeHeldBack() {
  return std::exchange(toReport_, 0);
}

void LogLimiter::takeBack(U64 hash) {
  auto const found = byHash_.find(hash);
  if (found == byHash_.end() || found->second->sent.empty()) return;
  found->second->sent.pop_back();
}

void LogLimiter::reset() {
  entries_.clear();
  byHash_.clear();
  toReport_ = 0;
  forgotten_ = 0;
}

LogLimiter::Entry& LogLimiter::entry(U64 hash) {
  auto const found = byHash_.find(hash);
  if (found != byHash_.end()) {
    entries_.splice(entries_.begin(), entries_, found->second);
    return entries_.front();
  }
  std::list<Entry> made;
  made.push_front({hash, {}, 0});
  byHash_.emplace(hash, made.begin());
  entries_.splice(entries_.begin(), made);
  if (entries_.size() > kMaxHashes) {
    forgotten_ += entries_.back().heldBack;
    byHash_.erase(entries_.back().hash);
    entries_.pop_back();
  }
  return entries_.front();
}

}  // namespace Kiv
