// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <ostream>
#include <vector>

#include "chip/RowTable.h"
#include "framework/core/Types.h"
#include "framework/driver/BfnPipeId.h"

namespace BfnChip {

enum class Operation : Kiv::U8 { Write, Erase };

enum class Outcome : Kiv::U8 {
  Ok,
  TableFull,
  NoSysResources,
  Error,
  Exception,  ///< the call threw
  NotFound,   ///< erase only
};

std::ostream& operator<<(std::ostream& out, Operation operation);
std::ostream& operator<<(std::ostream& out, Outcome outcome);

/// One write or erase as the chip saw it.
struct JournalEntry {
  KeyBytes key{};
  /// The bytes written; for an erase the bytes removed, zero when there was no row.
  ActionBytes action{};
  BfnId::BfnPipeId pipe;
  /// Number of the table: the order in which the chip was given its tables, from 0.
  Kiv::U16 table = 0;
  Operation operation = Operation::Write;
  Outcome outcome = Outcome::Ok;

  friend bool operator==(JournalEntry const&, JournalEntry const&) = default;
};

/// Prints "write 0501...01 <- 22110200... ok" or "erase 0501...01 not-found".
std::ostream& operator<<(std::ostream& out, JournalEntry const& entry);

/// The chip's writes and erases in order, oldest first.
///
/// Memory is bounded: at most `limit` entries of 22 bytes are kept and storage grows only as far
/// as it is needed. Once full, each new entry pushes out the oldest, which `dropped` counts. A
/// limit of 0 switches the journal off.
class Journal {
 public:
  static constexpr size_t kDefaultLimit = 65'536;

  size_t size() const { return entries_.size(); }
  size_t limit() const { return limit_; }
  /// Entries that were pushed out, or not recorded, since the last take or clear.
  Kiv::U64 dropped() const { return dropped_; }

  /// Lowering the limit below the size drops the oldest entries.
  void limitIs(size_t limit);
  /// Never throws after makeRoom(); without it, std::bad_alloc with nothing changed.
  void append(JournalEntry const& entry);
  /// Makes room for one more entry. Throws std::bad_alloc.
  void makeRoom() {
    if (entries_.size() == entries_.capacity() && entries_.size() < limit_) grow();
  }
  /// The `i`-th oldest entry, i < size().
  JournalEntry const& at(size_t i) const;
  /// All entries, oldest first; the journal is empty afterwards and its storage released.
  std::vector<JournalEntry> take();
  void clear();

 private:
  void straighten();
  void grow();

  std::vector<JournalEntry> entries_;
  /// Index of the oldest entry; non-zero only while the journal is full.
  size_t oldest_ = 0;
  size_t limit_ = kDefaultLimit;
  Kiv::U64 dropped_ = 0;
};

}  // namespace BfnChip
