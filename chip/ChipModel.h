// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "chip/FaultPlan.h"
#include "chip/Journal.h"
#include "chip/RewriteLayout.h"
#include "chip/RowTable.h"
#include "framework/core/Types.h"
#include "framework/driver/TableDriver.h"

namespace BfnChip {

/// A forwarding chip in memory: match-action tables of bytes, and a look-up of packets in the
/// source-MAC rewrite table by what those bytes say.
///
/// A table is known by its device and its name: two devices have two tables of one name, two
/// sessions, pipes or profiles share one. A device gets its table when it is first opened. Every
/// table has 8-byte keys and 8-byte actions and a capacity of its own; each row also takes one unit
/// of a pool that all tables share. A write of a key that is there replaces its action, needs
/// neither slot nor unit and keeps the row's hits. Lowering a capacity or the pool below what is in
/// use leaves the rows alone and refuses new ones. A new key in a full table is refused as table
/// full, even when the pool is empty too.
///
/// Errors: a call with an unknown handle or bytes of the wrong width is an error that is neither
/// counted for the fault plans nor recorded. A call that throws, for lack of memory too, has
/// changed nothing.
///
///   BfnChip::ChipModel chip(4096);
///   manager->initializeTable(key, chip.opaque(), ...);
///   if (auto mac = chip.lookup(vlan, sourceBytes)) ...
///
/// At 65,536 rows a row costs 36 bytes, and 22 more in the journal, which is on and bounded (see
/// Journal).
class ChipModel final : public BfnDriver::TableDriver {
 public:
  static constexpr std::string_view kRewriteTable = "overlaySrcMacRewrite";
  static constexpr size_t kDefaultCapacity = 65'536;
  static constexpr size_t kUnlimited = ~size_t{0};

  /// A chip with an empty rewrite table and an unlimited pool.
  explicit ChipModel(size_t capacity = kDefaultCapacity);
  ~ChipModel() override;

  // The driver's side.
  std::optional<BfnDriver::TableHandle> open(BfnDriver::TableAddress const& address) override;
  void closeSession(Kiv::U32 session) override;
  BfnDriver::WriteResult write(BfnDriver::TableHandle handle, BfnDriver::ByteView keyBytes,
                               BfnDriver::ByteView actionBytes) override;
  BfnDriver::EraseResult erase(BfnDriver::TableHandle handle,
                               BfnDriver::ByteView keyBytes) override;
  /// Erases row by row: each is recorded, and may fail as planned, which ends it.
  BfnDriver::Status clear(BfnDriver::TableHandle handle) override;
  BfnDriver::Status readRow(BfnDriver::TableHandle handle, BfnDriver::ByteView key,
                            std::span<Kiv::U8> action) const override;
  bool read(BfnDriver::TableHandle handle, BfnDriver::ByteView key,
            std::span<Kiv::U8> action) const override;
  void prefetch(BfnDriver::TableHandle handle, BfnDriver::ByteView key) const override;
  /// In the order of the mixed keys. Never fails as planned: that is for rows that are read alone.
  BfnDriver::Status walk(BfnDriver::TableHandle handle, BfnDriver::WalkCursor& cursor,
                         std::span<Kiv::U8> keys, std::span<Kiv::U8> actions,
                         size_t& rows) const override;
  size_t entryCount(BfnDriver::TableHandle handle) const override;
  size_t capacity(BfnDriver::TableHandle handle) const override;
  BfnDriver::Status rowHits(BfnDriver::TableHandle handle, BfnDriver::ByteView key,
                            Kiv::U64& hits) const override;
  BfnDriver::Status tableHits(BfnDriver::TableHandle handle,
                              BfnDriver::TableHits& hits) const override;
  BfnDriver::Status tableHitsClear(BfnDriver::TableHandle handle) override;

  // The packets' side.
  /// The source MAC with which a packet of this VLAN and source address leaves the device, if a row
  /// of its rewrite table matches; the row and the table count a hit, or the table a miss. `source`
  /// in the packet's byte order.
  std::optional<MacBytes> lookup(Kiv::U16 vlan, AddressBytes const& source, Kiv::U8 device = 0);

  // The lab's side.
  /// Adds a table that every device has, or sets the capacity of one that is there on all of them.
  void tableIs(std::string_view name, size_t capacity);
  /// Rows in the table, the rewrite table unless named. Zero for an unknown name or device.
  size_t rowCount(std::string_view name = kRewriteTable, Kiv::U8 device = 0) const;
  /// Copies of the rows, of the rewrite table in the order of RewriteLayout::KeyFields (VLAN, then
  /// address), of any other in the order of their key bytes.
  std::vector<Row> rows(std::string_view name = kRewriteTable, Kiv::U8 device = 0) const;
  /// Sets the hit counts of all tables and rows to zero.
  void hitsClear();
  /// The hit counts of the first device's rewrite table, to be put back after packets that are not
  /// to count. They fit until the next write or erase.
  struct HitCounts {
    std::vector<Kiv::U64> rows;
    BfnDriver::TableHits table;
  };
  HitCounts hits() const;
  void hitsIs(HitCounts const& hits);
  /// Rows that the table takes. Zero for an unknown name or device.
  size_t capacityOf(std::string_view name = kRewriteTable, Kiv::U8 device = 0) const;

  /// Units in the pool and how many of them rows hold.
  size_t resources() const { return resources_; }
  size_t resourcesInUse() const { return resourcesInUse_; }
  void resourcesIs(size_t units) { resources_ = units; }

  /// The plans for writes, for erases and for reads of a row: each counts its own calls.
  FaultPlan& faults() { return faults_; }
  FaultPlan& eraseFaults() { return eraseFaults_; }
  FaultPlan& readFaults() { return readFaults_; }
  Journal& journal() { return journal_; }
  Journal const& journal() const { return journal_; }

 private:
  struct Table {
    std::string name;
    Kiv::U8 device;
    size_t capacity;
    RowTable rows;
    BfnDriver::TableHits hits;
  };
  struct Opened {
    Kiv::U32 session;
    Kiv::U8 device;
    BfnId::BfnPipeId pipe;
    std::string profile;
    Kiv::U16 table;
    bool closed = false;

    friend bool operator==(Opened const&, Opened const&) = default;
  };

  /// Null, with the reason in lastError(), for an unknown handle or a key of another width.
  Opened const* opened(BfnDriver::TableHandle handle) const {
    auto const number = static_cast<size_t>(handle);
    if (number < opened_.size() && !opened_[number].closed) [[likely]] {
      return &opened_[number];
    }
    lastErrorIs("an unknown handle");
    return nullptr;
  }
  Opened const* opened(BfnDriver::TableHandle handle, BfnDriver::ByteView key) const {
    Opened const* const from = opened(handle);
    if (from == nullptr || key.size() == kKeyBytes) [[likely]] {
      return from;
    }
    lastErrorIs("a key of the wrong width");
    return nullptr;
  }
  Table const* tableOf(BfnDriver::TableHandle handle) const;
  Table* tableOf(BfnDriver::TableHandle handle);
  Table const* tableNamed(std::string_view name, Kiv::U8 device) const;
  Outcome store(Table& table, Kiv::U64 key, Kiv::U64 action);
  BfnDriver::EraseResult eraseRow(Opened const& from, KeyBytes const& key);
  /// Counts a read. Whether it fails as planned; throws when that is how.
  bool readFails() const { return !readFaults_.passes() && readFailsAsPlanned(); }
  bool readFailsAsPlanned() const;
  void record(Opened const& from, Operation operation, Outcome outcome, KeyBytes const& key,
              ActionBytes const& action);

  /// The first one is device 0's rewrite table.
  std::vector<Table> tables_;
  std::vector<Opened> opened_;
  size_t resources_ = kUnlimited;
  size_t resourcesInUse_ = 0;
  FaultPlan faults_;
  FaultPlan eraseFaults_;
  mutable FaultPlan readFaults_;  // a read that fails as planned uses its plan up
  Journal journal_;
};

}  // namespace BfnChip
