// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "chip/RowTable.h"
#include "framework/driver/TableDriver.h"

namespace Host {

/// Changes of a table that are made in one call, together with the bytes that they refer to.
///
/// Errors: only the constructor takes memory, so only it throws std::bad_alloc.
class Batch {
 public:
  /// Changes that one call makes at most, so that its memory stays small.
  static constexpr size_t kMost = 1024;

  /// Room for that many changes.
  explicit Batch(size_t room);

  size_t room() const { return rows_.capacity(); }
  size_t size() const { return rows_.size(); }
  /// The key of a change, packed.
  Kiv::U64 key(size_t i) const { return BfnChip::packed(rows_[i].key); }

  /// One change more: there must be room for it.
  void write(Kiv::U64 key, Kiv::U64 action);
  void erase(Kiv::U64 key);
  void clear();

  /// Makes the changes, in order. The result of each, good until the next call.
  std::span<BfnDriver::Status const> apply(BfnDriver::TableDriver& chip,
                                           BfnDriver::TableHandle table);

 private:
  struct Row {
    BfnChip::KeyBytes key;
    BfnChip::ActionBytes action;
  };

  std::vector<Row> rows_;  // never moved: changes_ refers to its bytes
  std::vector<BfnDriver::Change> changes_;
  std::vector<BfnDriver::Status> results_;
};

}  // namespace Host
