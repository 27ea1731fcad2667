// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>
#include <vector>

#include "chip/Journal.h"
#include "chip/RowTable.h"
#include "framework/core/Clock.h"
#include "framework/driver/ForwardingDriver.h"

namespace BfnChip {

/// A driver in front of another one that records the writes and erases which reach it, with their
/// results, as the chip model's own journal does. Changes of apply() are recorded one by one, but
/// for those that there is no memory for; of clear() nothing is. An erase has no action. Everything
/// goes through unchanged, errors and exceptions included.
///
/// With a clock, it also knows when each row was last written.
///
/// Tables are those with keys and actions of eight bytes; a call with other widths is not recorded.
/// Does not own the other driver, which must outlive it.
class JournalingDriver final : public BfnDriver::ForwardingDriver {
 public:
  explicit JournalingDriver(BfnDriver::TableDriver& chip) : ForwardingDriver(chip) {}

  Journal& journal() { return journal_; }
  Journal const& journal() const { return journal_; }
  /// Takes the time of each write from now on. The clock must outlive this driver.
  void clockIs(Kiv::Clock const& clock) { clock_ = &clock; }
  /// When the row was last written here, by that clock; of several tables, in any of them. Nothing
  /// when it has not been written here since it was last erased, or when there was no memory to
  /// remember it.
  std::optional<double> lastWrite(KeyBytes const& key) const;

  std::optional<BfnDriver::TableHandle> open(BfnDriver::TableAddress const& address) override;
  BfnDriver::WriteResult write(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                               BfnDriver::ByteView action) override;
  BfnDriver::EraseResult erase(BfnDriver::TableHandle table, BfnDriver::ByteView key) override;
  void apply(BfnDriver::TableHandle table, std::span<BfnDriver::Change const> changes,
             std::span<BfnDriver::Status> results) override;
  BfnDriver::Status clear(BfnDriver::TableHandle table) override;

 private:
  void record(BfnDriver::TableHandle table, BfnDriver::ByteView key, BfnDriver::ByteView action,
              Operation operation, Outcome outcome);

  void remember(Operation operation, KeyBytes const& key) noexcept;

  struct Opened {
    BfnDriver::TableHandle table;
    BfnId::BfnPipeId pipe;
  };

  /// The handles that were given out; they are few.
  std::vector<Opened> opened_;
  Journal journal_;
  Kiv::Clock const* clock_ = nullptr;
  /// By key: the bits of the time.
  RowTable times_;
};

}  // namespace BfnChip
