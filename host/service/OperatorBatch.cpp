// SPDX-License-Identifier: Apache-2.0
#include "host/service/OperatorBatch.h"

#include <utility>

namespace Host {

void OperatorBatch::add(std::span<std::string const> words, std::string line) {
  if (!service_->inputs().made()) throw StoreRefused(service_->because());
  lines_.add(words, std::move(line));
}

std::vector<OperatorBatch::Failure> OperatorBatch::submit() {
  std::vector<Failure> failures;
  auto changes = lines_.takeChanges();
  if (changes.empty()) return failures;
  auto const lineAt = [this](size_t change) -> std::string const& {
    return lines()[lines_.lineOf(change)];
  };
  StoreMirror::Progress const progress{[&](size_t change) { Deaths::eventIs(lineAt(change)); },
                                       [&](size_t change, std::exception_ptr const& thrown) {
                                         failures.push_back({lines_.lineOf(change), thrown});
                                       }};
  service_->submit(std::move(changes), lineAt(0), progress);
  return failures;
}

}  // namespace Host
