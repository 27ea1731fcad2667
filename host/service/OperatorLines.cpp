// SPDX-License-Identifier: Apache-2.0
#include "host/service/OperatorLines.h"

#include <utility>

#include "host/service/OperatorChanges.h"

namespace Host {

void OperatorLines::add(std::span<std::string const> words, std::string line) {
  OperatorLine const read = operatorLineOf(words);
  auto change = operatorChange(read, [&] {
    auto const found = configured_.find(read.key);
    return found == configured_.end() ? configuredMac(*host_, read.key) : found->second;
  });
  if (lines_.empty()) begun_ = mirror_->status().applied;
  if (change) {
    changes_.push_back(std::move(*change));
    lineOf_.push_back(lines_.size());
    configured_[read.key] = read.removal ? std::nullopt : read.mac;
  }
  lines_.push_back(std::move(line));
}

bool OperatorLines::stale() const {
  return !lines_.empty() && begun_ != mirror_->status().applied;
}

std::vector<StoreChange> OperatorLines::takeChanges() {
  configured_.clear();
  return std::exchange(changes_, {});
}

}  // namespace Host
