// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/driver/TableDriver.h"

namespace BfnDriver {

/// Forwards every call to another driver. A driver that records, refuses or delays calls derives
/// from it and overrides those.
///
/// apply() is forwarded whole and does not call overrides of write() and erase(): a class that
/// overrides those also overrides apply(), for example by TableDriver::apply(), which calls them in
/// a loop. The same holds for read() and readRow(). Does not own the other driver, which must
/// outlive it.
class ForwardingDriver : public TableDriver {
 public:
  explicit ForwardingDriver(TableDriver& next) : next_(next) {}
  ~ForwardingDriver() override;

  TableDriver& next() const { return next_; }

  std::optional<TableHandle> open(TableAddress const& address) override;
  void closeSession(Kiv::U32 session) override;
  WriteResult write(TableHandle table, ByteView key, ByteView action) override;
  EraseResult erase(TableHandle table, ByteView key) override;
  void apply(TableHandle table, std::span<Change const> changes,
             std::span<Status> results) override;
  Status clear(TableHandle table) override;
  Status readRow(TableHandle table, ByteView key, std::span<Kiv::U8> action) const override;
  bool read(TableHandle table, ByteView key, std::span<Kiv::U8> action) const override;
  void prefetch(TableHandle table, ByteView key) const override;
  Status walk(TableHandle table, WalkCursor& cursor, std::span<Kiv::U8> keys,
              std::span<Kiv::U8> actions, size_t& rows) const override;
  size_t entryCount(TableHandle table) const override;
  size_t capacity(TableHandle table) const override;
  Status rowHits(TableHandle table, ByteView key, Kiv::U64& hits) const override;
  Status tableHits(TableHandle table, TableHits& hits) const override;
  Status tableHitsClear(TableHandle table) override;
  void turnEnded() override;
  /// The other driver's. A driver that answers Error of its own gives its own text here.
  std::string const& lastError() const override;

 private:
  TableDriver& next_;
};

}  // namespace BfnDriver
