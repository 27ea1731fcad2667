// SPDX-License-Identifier: Apache-2.0
#include "host/service/OperatorBatch.h"

#include <utility>

#include "host/service/OperatorChanges.h"

namespace Host {

void OperatorBatch::add(std::span<std::string const> words, std::string line) {
  if (!service_->inputs().made()) throw StoreRefused(service_->because());
  OperatorLine const read = operatorLineOf(words);
  auto change = operatorChange(read, [&] {
    auto const found = configured_.find(read.key);
    return found == configured_.end() ? configuredMac(service_->host(), read.key) : found->second;
  });
  if (lines_.empty()) begun_ = service_->mirror().status().applied;
  if (change) {
    changes_.push_back(std::move(*change));
    lineOf_.push_back(lines_.size());
    configured_[read.key] = read.removal ? std::nullopt : read.mac;
  }
  lines_.push_back(std::move(line));
}

bool OperatorBatch::stale() const {
  return !lines_.empty() && begun_ != service_->mirror().status().applied;
}

std::vector<OperatorBatch::Failure> OperatorBatch::submit() {
  std::vector<Failure> failures;
  if (changes_.empty()) return failures;
  configured_.clear();
  StoreMirror::Progress const progress{
      [&](size_t change) { Deaths::eventIs(lines_[lineOf_[change]]); },
      [&](size_t change, std::exception_ptr const& thrown) {
        failures.push_back({lineOf_[change], thrown});
      }};
  service_->submit(std::exchange(changes_, {}), lines_[lineOf_[0]], progress);
  return failures;
}

}  // namespace Host
