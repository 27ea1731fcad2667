// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "framework/core/Clock.h"
#include "framework/core/Ptr.h"
#include "framework/driver/TableDriver.h"
#include "host/reconcile/ReconciledTable.h"

namespace Host {

/// A driver that forwards to another one, holds the rows that the plug-in wants, and brings the
/// chip to them.
///
/// Held, as it begins: changes only collect; the chip keeps and uses the rows that it has. The host
/// calls commit() after a whole bring-up, which walks the chip once and makes the difference. So an
/// agent that starts again over a chip with the right rows writes nothing.
///
/// Running: changes are written to the chip, at once or, with turnsIs(true), at the end of a turn
/// (flush()): later changes of a row replace earlier ones. A read or a walk flushes first, so what
/// is read is what the chip holds. entryCount() never does.
///
/// Waiting (on unless waitingIs(false)): a new row that the chip refuses is answered Ok, waits, and
/// goes in when there is room, in the order in which rows came. It reads as absent. Any other
/// failed write or removal is answered Ok and retried with growing pauses. The log message
/// BFN_VXLAN_MAC_REWRITE_ROWS_WAITING says how many rows wait for room: when the first one does,
/// when they have doubled or a minute has passed, and once (with 0) when all are in. With waiting
/// off, nothing is batched or retried; results and exceptions of the chip pass through, and while
/// held a new row beyond the capacity is TableFull. What waited before is still let in.
///
/// Tables are those with keys and actions of eight bytes; bytes of another width are an Error.
/// Ownership: neither the chip nor the clock is owned; both outlive it. No handle of the chip is
/// given out. One thread, the host's.
class Reconciler final : public BfnDriver::TableDriver {
 public:
  Reconciler(BfnDriver::TableDriver& chip, Kiv::Ptr<Kiv::Clock const> clock);
  ~Reconciler() override;

  // The host's side.

  /// Whether changes only collect.
  bool held() const { return held_; }
  /// Forgets what was wanted and collects again, for example when the agent goes. The chip keeps
  /// its rows. Pending changes are made first.
  void hold();
  /// Brings every open table to what is wanted; runs from then on. When a table cannot be walked,
  /// the status says so, that table is still held and so is the whole.
  Applied commit();
  bool waits() const { return options_.waiting; }
  void waitingIs(bool waiting);
  bool turns() const { return options_.turns; }
  void turnsIs(bool turns);
  /// Ends a turn of the event loop, for the chip's driver, too. Nothing to do: cheap.
  void flush();
  /// The clock's time at which flush() has something to retry.
  std::optional<double> nextRetry() const;

  /// The tables that have been opened, one for each device and name.
  size_t tables() const { return tables_.size(); }
  ReconciledTable& table(size_t i) const { return *tables_[i].rows; }
  size_t wanted() const;
  /// Rows in the chip, with what pending changes will make of them.
  size_t installed() const;
  size_t waitingForRoom() const;
  size_t failed() const;

  // The binding's side.

  std::optional<BfnDriver::TableHandle> open(BfnDriver::TableAddress const& address) override;
  void closeSession(Kiv::U32 session) override;
  BfnDriver::WriteResult write(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                               BfnDriver::ByteView action) override;
  BfnDriver::EraseResult erase(BfnDriver::TableHandle table, BfnDriver::ByteView key) override;
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
  void turnEnded() override { flush(); }
  std::string const& lastError() const override { return chip_.lastError(); }

 private:
  struct Table {
    Kiv::U8 device;
    std::string name;
    std::unique_ptr<ReconciledTable> rows;
  };
  /// A handle that was given out: its place in opened_.
  struct Opened {
    Kiv::U32 session;
    BfnDriver::TableHandle chip;
    size_t table;
    bool closed = false;
  };

  /// Null for an unknown handle.
  Opened const* opened(BfnDriver::TableHandle handle) const;
  size_t tableIs(BfnDriver::TableAddress const& address);

  BfnDriver::TableDriver& chip_;
  Kiv::Ptr<Kiv::Clock const> const clock_;
  ReconciledTable::Options options_;
  bool held_ = true;
  std::vector<Table> tables_;
  std::vector<Opened> opened_;
};

}  // namespace Host
