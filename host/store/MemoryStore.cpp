// SPDX-License-Identifier: Apache-2.0
#include "host/store/MemoryStore.h"

#include <algorithm>
#include <utility>

namespace Host {

namespace {

using Kind = StoreChange::Kind;

void applyTo(std::map<std::string, StoredRecord>& records, StoreChange const& change) {
  if (change.kind == Kind::Make) {
    records.try_emplace(change.path, StoredRecord{change.value, {}});
    return;
  }
  RecordForm& form = records[change.path].form;
  for (std::string const& collection : change.drops) form.erase(collection);
  if (change.within) {
    form[change.within->collection].try_emplace(change.within->key, change.within->value);
  }
  if (change.kind == Kind::Del) {
    auto const found = form.find(change.collection);
    if (found == form.end()) return;
    found->second.erase(change.key);
    if (found->second.empty()) form.erase(found);
  } else {
    form[change.collection].insert_or_assign(change.key, change.value);
  }
}

}  // namespace

MemoryStore::MemoryStore(std::shared_ptr<MemoryStoreContents> contents)
    : contents_(std::move(contents)) {}

MemoryStoreContents& MemoryStore::reach() const {
  if (contents_->away) throw StoreAway("memory: away");
  return *contents_;
}

StoreHead MemoryStore::head() {
  return reach().head;
}

void MemoryStore::begin() {
  StoreHead& head = reach().head;
  if (head.epoch.empty()) head.epoch = makeStoreEpoch();
}

StoreSnapshot MemoryStore::snapshot() {
  MemoryStoreContents const& contents = reach();
  read_ = contents.head.version;
  return {contents.head, contents.records, {}};
}

std::optional<std::vector<StoreEvent>> MemoryStore::changes() {
  MemoryStoreContents const& contents = reach();
  auto const& events = contents.events;
  Kiv::U64 const missing = contents.head.version.major - read_.major;
  if (read_ > contents.head.version || missing > events.size()) return std::nullopt;
  std::vector<StoreEvent> news(events.end() - static_cast<std::ptrdiff_t>(missing), events.end());
  read_ = contents.head.version;
  return news;
}

StoreVersions MemoryStore::submit(std::vector<StoreChange> changes) {
  MemoryStoreContents& contents = reach();
  if (!contents.refusal.empty()) throw StoreRefused("memory: " + contents.refusal);
  for (StoreChange const& change : changes) {
    if (change.kind != Kind::Make) continue;
    auto const found = contents.records.find(change.path);
    if (found != contents.records.end() && found->second.typeName != change.value) {
      throw StoreRefused("memory: \"" + change.path + "\" is of type " + found->second.typeName +
                         ", not " + change.value);
    }
  }
  StoreVersion const first{contents.head.version.major + 1, 0};
  for (StoreChange& change : changes) {
    if (change.kind == Kind::Make && contents.records.contains(change.path)) continue;
    applyTo(contents.records, change);
    ++contents.head.version.major;
    contents.events.push_back({contents.head.version, std::move(change)});
    if (contents.events.size() > contents.maxEvents) contents.events.pop_front();
  }
  return {first, contents.head.version};
}

}  // namespace Host
