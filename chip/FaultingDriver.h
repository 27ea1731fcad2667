// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "chip/FaultPlan.h"
#include "framework/driver/ForwardingDriver.h"

namespace BfnChip {

/// A driver in front of another one that makes a chip scarce and unreliable: its tables take fewer
/// rows, new rows take units of a limited pool, and planned calls fail. The other driver does not
/// see what is refused here. What is there is shown as it is, whatever the limits.
///
/// An overwrite needs neither slot nor unit. A new key in a full table is refused as table full,
/// even when the pool is empty too. A planned failure comes before either.
///
/// Without limits and plans every call goes through; apply() whole, so that a batch stays one.
/// Walks, hits and counts never fail as planned. Does not own the other driver, which must outlive
/// it.
class FaultingDriver final : public BfnDriver::ForwardingDriver {
 public:
  static constexpr size_t kUnlimited = std::numeric_limits<size_t>::max();

  explicit FaultingDriver(BfnDriver::TableDriver& chip) : ForwardingDriver(chip) {}

  /// Rows that each table takes, when the chip's takes more. Rows that are there stay.
  void capacityIs(size_t rows) { capacity_ = rows; }
  /// Units of the pool that every row of a table that has been opened here takes one of.
  void resourcesIs(size_t units) { resources_ = units; }
  /// The plans for writes, for erases (clear() is one) and for reads of a row: each counts its own
  /// calls.
  FaultPlan& faults() { return faults_; }
  FaultPlan& eraseFaults() { return eraseFaults_; }
  FaultPlan& readFaults() { return readFaults_; }

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
  size_t capacity(BfnDriver::TableHandle table) const override;
  /// Empty after a planned failure.
  std::string const& lastError() const override;

 private:
  /// A handle that was given out.
  struct Opened {
    Kiv::U32 session;
    Kiv::U8 device;
    std::string table;
    BfnDriver::TableHandle handle;
  };

  bool limited() const { return capacity_ != kUnlimited || resources_ != kUnlimited; }
  size_t resourcesInUse() const;
  void fail(Fault const& fault) const;
  /// Why a write must be refused; Ok when it need not.
  BfnDriver::WriteResult room(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                              BfnDriver::ByteView action) const;

  size_t capacity_ = kUnlimited;
  size_t resources_ = kUnlimited;
  FaultPlan faults_;
  FaultPlan eraseFaults_;
  mutable FaultPlan readFaults_;  // a read that fails as planned uses its plan up
  /// Whether the last call ended here: refused, failed as planned, or by an exception.
  mutable bool ownError_ = false;
  std::vector<Opened> opened_;
};

}  // namespace BfnChip
