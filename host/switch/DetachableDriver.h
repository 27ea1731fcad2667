// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "chip/ChipModel.h"
#include "framework/driver/TableDriver.h"

namespace Host {

/// A driver in front of a chip's, which can be detached from it: from then on every call goes to a
/// copy of the rows in memory, and the chip is not touched any more. Handles stay good. A copy of
/// the process can thus go on with the rows, and leave the chip to the process itself.
///
/// Counts of hits are not copied. Does not own the chip's driver, which must outlive it.
class DetachableDriver final : public BfnDriver::TableDriver {
 public:
  explicit DetachableDriver(BfnDriver::TableDriver& chip) : next_(&chip) {}

  /// The rows of the tables that are open, as the chip has them now, and their capacities. Throws
  /// std::runtime_error when the chip cannot be read.
  std::unique_ptr<BfnChip::ChipModel> copy() const;
  /// Goes on with a copy, which must outlive this driver.
  void detach(BfnChip::ChipModel& copy);

  std::optional<BfnDriver::TableHandle> open(BfnDriver::TableAddress const& address) override;
  void closeSession(Kiv::U32 session) override;
  BfnDriver::WriteResult write(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                               BfnDriver::ByteView action) override;
  BfnDriver::EraseResult erase(BfnDriver::TableHandle table, BfnDriver::ByteView key) override;
  void apply(BfnDriver::TableHandle table, std::span<BfnDriver::Change const> changes,
             std::span<BfnDriver::Status> results) override;
  BfnDriver::Status clear(BfnDriver::TableHandle table) override;
  BfnDriver::Status readRow(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                            std::span<Kiv::U8> action) const override;
  bool read(BfnDriver::TableHandle table, BfnDriver::ByteView key,
            std::span<Kiv::U8> action) const override;
  void prefetch(BfnDriver::TableHandle table, BfnDriver::ByteView key) const override;
  BfnDriver::Status walk(BfnDriver::TableHandle table, BfnDriver::WalkCursor& cursor,
                         std::span<Kiv::U8> keys, std::span<Kiv::U8> actions,
                         size_t& rows) const override;
  size_t entryCount(BfnDriver::TableHandle table) const override;
  size_t capacity(BfnDriver::TableHandle table) const override;
  BfnDriver::Status rowHits(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                            Kiv::U64& hits) const override;
  BfnDriver::Status tableHits(BfnDriver::TableHandle table,
                              BfnDriver::TableHits& hits) const override;
  BfnDriver::Status tableHitsClear(BfnDriver::TableHandle table) override;
  void turnEnded() override { next_->turnEnded(); }
  std::string const& lastError() const override { return next_->lastError(); }

 private:
  /// A handle that was given out, and who asked for it.
  struct Opened {
    BfnDriver::TableHandle handle;
    /// The same table's in the copy; `handle` until detached.
    BfnDriver::TableHandle now;
    Kiv::U32 session;
    Kiv::U8 device;
    BfnId::BfnPipeId pipe;
    std::string profile;
    std::string table;

    BfnDriver::TableAddress address() const { return {session, device, pipe, profile, table}; }
  };

  /// What the one that is called now knows the handle by.
  BfnDriver::TableHandle now(BfnDriver::TableHandle handle) const;

  BfnDriver::TableDriver* next_;
  bool detached_ = false;
  /// They are few.
  std::vector<Opened> opened_;
};

}  // namespace Host
