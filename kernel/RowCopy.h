// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/core/Types.h"

namespace BfnKernel {

/// A copy of a table's rows, for a reader that announces each row shortly before it reads it. Keys
/// and actions are words of the map's bytes.
///
/// Gives a row once for each hint(), and only for one of the last kAhead hints, so that a reader
/// that announces nothing never gets an old row. Memory: 25 to 50 bytes a row while there is a
/// copy. Throws std::bad_alloc from roomIs() only.
class RowCopy {
 public:
  static constexpr size_t kAhead = 32;

  bool empty() const { return slots_.empty(); }
  /// Forgets the rows.
  void clear();
  /// Begins a copy of at most `rows` rows.
  void roomIs(size_t rows);
  /// Adds rows whose keys are not there. False when there is no room for all of them.
  bool add(std::span<Kiv::U64 const> keys, std::span<Kiv::U64 const> actions);

  /// The row is about to be read. There must have been roomIs().
  void hint(Kiv::U64 key);
  /// The row's action, when it is there and has been announced.
  std::optional<Kiv::U64> take(Kiv::U64 key);
  /// How many rows have been taken.
  size_t taken() const { return taken_; }

 private:
  // A key of 0 is a free place; the row of that key is left out.
  struct Slot {
    Kiv::U64 key = 0;
    Kiv::U64 action = 0;
  };

  size_t home(Kiv::U64 key) const;
  /// The key's place, or the free one where it would be.
  size_t placeOf(Kiv::U64 key) const;

  // A power of two, a third of them free at least.
  std::vector<Slot> slots_;
  size_t room_ = 0;
  // The announced keys, in their order; the counts of those that have come and gone.
  std::array<Kiv::U64, kAhead> announced_{};
  size_t came_ = 0;
  size_t gone_ = 0;
  size_t taken_ = 0;
};

}  // namespace BfnKernel
