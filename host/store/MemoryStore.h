// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <memory>
#include <string>

#include "host/store/Store.h"

namespace Host {

/// The contents of a store in memory, which several clients of one process may share. What a fault
/// would do to another store can be done to it by hand.
struct MemoryStoreContents {
  StoreHead head{makeStoreEpoch(), {}};
  std::map<std::string, StoredRecord> records;
  /// The last changes; those before the first one are forgotten.
  std::deque<StoreEvent> events;
  size_t maxEvents = 100'000;

  std::string refusal;  ///< not empty: why changes are refused
  bool away = false;    ///< nothing can be reached
};

/// A store that lives as long as the process: the one of a lab, and of tests.
class MemoryStore final : public Store {
 public:
  explicit MemoryStore(std::shared_ptr<MemoryStoreContents> contents);

  std::string name() const override { return "memory"; }
  StoreHead head() override;
  void begin() override;
  StoreSnapshot snapshot() override;
  std::optional<std::vector<StoreEvent>> changes() override;
  StoreVersions submit(std::vector<StoreChange> changes) override;

 private:
  MemoryStoreContents& reach() const;

  std::shared_ptr<MemoryStoreContents> const contents_;
  StoreVersion read_;
};

}  // namespace Host
