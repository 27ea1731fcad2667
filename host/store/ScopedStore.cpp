// SPDX-License-Identifier: Apache-2.0
#include "host/store/ScopedStore.h"

#include <utility>
#include <vector>

namespace Host {

ScopedStore::ScopedStore(std::unique_ptr<Store> store, std::string prefix,
                         std::set<std::string> common)
    : store_(std::move(store)), prefix_(std::move(prefix)), common_(std::move(common)) {}

std::string ScopedStore::inner(std::string const& path) const {
  return common_.contains(path) ? path : prefix_ + path;
}

std::optional<std::string> ScopedStore::outer(std::string const& path) const {
  if (common_.contains(path)) return path;
  if (!path.starts_with(prefix_)) return std::nullopt;
  std::string rest = path.substr(prefix_.size());
  // A path that would be mistaken for a common one.
  if (common_.contains(rest)) return std::nullopt;
  return rest;
}

StoreSnapshot ScopedStore::snapshot() {
  StoreSnapshot all = store_->snapshot();
  StoreSnapshot seen{std::move(all.head), {}, std::move(all.unreadable)};
  for (auto& [path, record] : all.records) {
    if (auto const to = outer(path)) seen.records[*to] = std::move(record);
  }
  return seen;
}

std::optional<std::vector<StoreEvent>> ScopedStore::changes() {
  // An empty answer says that there are no more changes.
  while (true) {
    auto all = store_->changes();
    if (!all || all->empty()) return all;
    std::vector<StoreEvent> seen;
    for (StoreEvent& event : *all) {
      auto to = outer(event.change.path);
      if (!to) continue;
      event.change.path = std::move(*to);
      seen.push_back(std::move(event));
    }
    if (!seen.empty()) return seen;
  }
}

StoreVersions ScopedStore::submit(std::vector<StoreChange> changes) {
  for (StoreChange& change : changes) change.path = inner(change.path);
  return store_->submit(std::move(changes));
}

}  // namespace Host
