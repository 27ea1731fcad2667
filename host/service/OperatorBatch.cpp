// SPDX-License-Identifier: Apache-2.0
#include "host/service/OperatorBatch.h"

#include <utility>

#include "host/service/OperatorChanges.h"

namespace Host {

void OperatorBatch::clear() {
  lines_.clear();
  changes_.clear();
  lineOf_.clear();
  configured_.clear();
}

void OperatorBatch::add(std::span<std::string const> words, std::string_view line) {
  if (!service_.inputs().made()) throw StoreRefused(service_.because());
  OperatorLine const read = operatorLineOf(words);
  auto change = operatorChange(read, [&] {
    auto const found = configured_.find(read.key);
    return found == configured_.end() ? configuredMac(service_.host(), read.key) : found->second;
  });
  if (change) {
    changes_.push_back(std::move(*change));
    lineOf_.push_back(lines_.size());
    configured_[read.key] = read.removal ? std::nullopt : read.mac;
  }
  lines_.emplace_back(line);
}

std::vector<OperatorBatch::Failure> OperatorBatch::submit() {
  auto const lines = std::exchange(lines_, {});
  auto const lineOf = std::exchange(lineOf_, {});
  auto changes = std::exchange(changes_, {});
  configured_.clear();
  std::vector<Failure> failures;
  if (changes.empty()) return failures;
  StoreMirror::Progress const progress{
      [&](size_t change) { Deaths::eventIs(lines[lineOf[change]]); },
      [&](size_t change, std::exception_ptr const& thrown) {
        failures.push_back({lineOf[change], thrown});
      }};
  service_.submit(std::move(changes), lines[lineOf[0]], progress);
  return failures;
}

}  // namespace Host
