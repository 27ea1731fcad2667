// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/core/Types.h"
#include "framework/driver/TableDriver.h"
#include "kernel/KernelProgram.h"

namespace BfnKernel {

/// The driver of the kernel's table: rows are entries of a hash map of the kernel, whose key and
/// value are the 8 + 8 bytes that the binding writes. The kernel is asked for each row that is
/// read, so rows that others add, change or remove are seen: at once, or in the next turn where the
/// reader announces the row, see prefetch().
///
/// A change costs one system call, an erase two (the row, and its hits); apply() and walk() copy
/// many rows in one. A frame that is looked up during a change meets the row before or after it.
/// The number of rows is kept here, with the key of each (16 bytes a row): it is exact as long as
/// no other program writes the map, and is put right by a walk from end to end.
class KernelTable final : public BfnDriver::TableDriver {
 public:
  static constexpr std::string_view kRewriteTable = "overlaySrcMacRewrite";
  static constexpr size_t kKeyBytes = 8;
  static constexpr size_t kActionBytes = 8;

  KernelTable();
  /// The rewrite table of device 0.
  explicit KernelTable(KernelProgram& program);
  ~KernelTable() override;

  /// The rewrite table of another device. `program` must outlive the driver.
  void deviceIs(Kiv::U8 device, KernelProgram& program);

  std::optional<BfnDriver::TableHandle> open(BfnDriver::TableAddress const& address) override;
  void closeSession(Kiv::U32 session) override;
  BfnDriver::WriteResult write(BfnDriver::TableHandle handle, BfnDriver::ByteView key,
                               BfnDriver::ByteView action) override;
  BfnDriver::EraseResult erase(BfnDriver::TableHandle handle, BfnDriver::ByteView key) override;
  void apply(BfnDriver::TableHandle handle, std::span<BfnDriver::Change const> changes,
             std::span<BfnDriver::Status> results) override;
  BfnDriver::Status clear(BfnDriver::TableHandle handle) override;
  BfnDriver::Status readRow(BfnDriver::TableHandle handle, BfnDriver::ByteView key,
                            std::span<Kiv::U8> action) const override;
  bool read(BfnDriver::TableHandle handle, BfnDriver::ByteView key,
            std::span<Kiv::U8> action) const override;
  /// In a host that ends its turns, many of them in one turn copy the table by a walk; a row that
  /// was announced is then read from the copy, until the next change or the end of the turn.
  void prefetch(BfnDriver::TableHandle handle, BfnDriver::ByteView key) const override;
  void turnEnded() override;
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

 private:
  class Table;
  struct Opened {
    Kiv::U32 session = 0;
    Kiv::U8 device = 0;
    BfnId::BfnPipeId pipe;
    std::string profile;
    bool closed = false;

    friend bool operator==(Opened const&, Opened const&) = default;
  };

  Table* tableOf(BfnDriver::TableHandle handle) const;
  BfnDriver::Status reported(int error) const;
  BfnDriver::Status refused() const;

  std::vector<std::unique_ptr<Table>> tables_;
  std::vector<Opened> opened_;
};

}  // namespace BfnKernel
