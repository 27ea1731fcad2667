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
/// Every table has 8-byte keys and 8-byte actions and a capacity of its own; each row also takes
/// one unit of a pool that all tables share. A write of a key that is there replaces its action,
/// needs neither slot nor unit and keeps the row's hit count. Lowering a capacity or the pool below
/// what is in use leaves the rows alone and refuses new ones. A new key in a full table is refused
/// as table full, even when the pool is empty too. A call with an unknown handle or bytes of the
/// wrong width is an error that is neither counted as a write nor recorded. All pipes show the same
/// rows.
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
  static constexpr std::size_t kDefaultCapacity = 65'536;
  static constexpr std::size_t kUnlimited = ~std::size_t{0};

  /// A chip with an empty rewrite table and an unlimited pool.
  explicit ChipModel(std::size_t capacity = kDefaultCapacity);
  ~ChipModel() override;

  // The driver's side.
  std::optional<BfnDriver::TableHandle> open(BfnDriver::TableAddress const& address) override;
  BfnDriver::WriteResult write(BfnDriver::TableHandle handle, BfnDriver::ByteView keyBytes,
                               BfnDriver::ByteView actionBytes) override;
  BfnDriver::EraseResult erase(BfnDriver::TableHandle handle,
                               BfnDriver::ByteView keyBytes) override;
  bool read(BfnDriver::TableHandle handle, BfnDriver::ByteView key,
            std::span<Kiv::U8> action) const override;
  void prefetch(BfnDriver::TableHandle handle, BfnDriver::ByteView key) const override;
  std::size_t entryCount(BfnDriver::TableHandle handle) const override;
  std::size_t capacity(BfnDriver::TableHandle handle) const override;

  // The packets' side.
  /// The source MAC with which a packet of this VLAN and source address leaves, if a row matches;
  /// the row counts a hit. `source` as it stands in the packet.
  std::optional<MacBytes> lookup(Kiv::U16 vlan, AddressBytes const& source);

  // The laboratory's side.
  /// Adds a table, or sets the capacity of one that is there.
  void tableIs(std::string_view name, std::size_t capacity);
  /// Rows in the table, the rewrite table unless named. Zero for an unknown name.
  std::size_t rowCount(std::string_view name = kRewriteTable) const;
  /// Copies of the rows, of the rewrite table in the order of RewriteLayout::KeyFields (VLAN, then
  /// address), of any other in the order of their key bytes.
  std::vector<Row> rows(std::string_view name = kRewriteTable) const;
  /// Sets the hit count of every row to zero.
  void hitsClear();
  /// The hit counts of the rewrite table, to be put back after packets that are not to count. They
  /// fit until the next write or erase.
  std::vector<Kiv::U64> hits() const { return tables_.front().rows.hits(); }
  void hitsIs(std::vector<Kiv::U64> const& hits) { tables_.front().rows.hitsIs(hits); }
  /// Rows that the table takes. Zero for an unknown name.
  std::size_t capacityOf(std::string_view name = kRewriteTable) const;

  /// Units in the pool and how many of them rows hold.
  std::size_t resources() const { return resources_; }
  std::size_t resourcesInUse() const { return resourcesInUse_; }
  void resourcesIs(std::size_t units) { resources_ = units; }

  FaultPlan& faults() { return faults_; }
  Journal& journal() { return journal_; }
  Journal const& journal() const { return journal_; }

 private:
  struct Table {
    std::string name;
    std::size_t capacity;
    RowTable rows;
  };
  struct Opened {
    Kiv::U32 session;
    Kiv::U8 device;
    BfnId::BfnPipeId pipe;
    std::string profile;
    Kiv::U16 table;

    friend bool operator==(Opened const&, Opened const&) = default;
  };

  Opened const* opened(BfnDriver::TableHandle handle) const;
  Table const* tableOf(BfnDriver::TableHandle handle) const;
  Table const* tableNamed(std::string_view name) const;
  Outcome store(Table& table, Kiv::U64 key, Kiv::U64 action);
  void record(Opened const& from, Operation operation, Outcome outcome, KeyBytes const& key,
              ActionBytes const& action);

  /// The first one is the rewrite table.
  std::vector<Table> tables_;
  std::vector<Opened> opened_;
  std::size_t resources_ = kUnlimited;
  std::size_t resourcesInUse_ = 0;
  FaultPlan faults_;
  Journal journal_;
};

}  // namespace BfnChip
