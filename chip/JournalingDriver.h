#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "chip/Journal.h"
#include "framework/driver/TableDriver.h"

namespace BfnChip {

/// A driver in front of another one that records the writes and erases which reach it, with their
/// results, as the chip model's own journal does. Changes of apply() are recorded one by one,
/// those not for which there is no memory; of clear() nothing is. An erase has no action.
/// Everything else goes through unchanged, errors and exceptions included.
///
/// Tables are those with keys and actions of eight bytes; a call with other widths is not recorded.
/// The driver behind must outlive it.
class JournalingDriver final : public BfnDriver::TableDriver {
 public:
  explicit JournalingDriver(BfnDriver::TableDriver& chip) : chip_(chip) {}

  Journal& journal() { return journal_; }

  std::optional<BfnDriver::TableHandle> open(BfnDriver::TableAddress const& address) override;
  void closeSession(Kiv::U32 session) override { chip_.closeSession(session); }
  BfnDriver::WriteResult write(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                               BfnDriver::ByteView action) override;
  BfnDriver::EraseResult erase(BfnDriver::TableHandle table, BfnDriver::ByteView key) override;
  void apply(BfnDriver::TableHandle table, std::span<BfnDriver::Change const> changes,
             std::span<BfnDriver::Status> results) override;
  BfnDriver::Status clear(BfnDriver::TableHandle table) override { return chip_.clear(table); }
  BfnDriver::Status readRow(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                            std::span<Kiv::U8> action) const override {
    return chip_.readRow(table, key, action);
  }
  bool read(BfnDriver::TableHandle table, BfnDriver::ByteView key,
            std::span<Kiv::U8> action) const override {
    return chip_.read(table, key, action);
  }
  void prefetch(BfnDriver::TableHandle table, BfnDriver::ByteView key) const override {
    chip_.prefetch(table, key);
  }
  BfnDriver::Status walk(BfnDriver::TableHandle table, BfnDriver::WalkCursor& cursor,
                         std::span<Kiv::U8> keys, std::span<Kiv::U8> actions,
                         std::size_t& rows) const override {
    return chip_.walk(table, cursor, keys, actions, rows);
  }
  std::size_t entryCount(BfnDriver::TableHandle table) const override {
    return chip_.entryCount(table);
  }
  std::size_t capacity(BfnDriver::TableHandle table) const override {
    return chip_.capacity(table);
  }
  BfnDriver::Status rowHits(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                            Kiv::U64& hits) const override {
    return chip_.rowHits(table, key, hits);
  }
  BfnDriver::Status tableHits(BfnDriver::TableHandle table,
                              BfnDriver::TableHits& hits) const override {
    return chip_.tableHits(table, hits);
  }
  BfnDriver::Status tableHitsClear(BfnDriver::TableHandle table) override {
    return chip_.tableHitsClear(table);
  }
  std::string const& lastError() const override { return chip_.lastError(); }

 private:
  void record(BfnDriver::TableHandle table, BfnDriver::ByteView key, BfnDriver::ByteView action,
              Operation operation, Outcome outcome);

  BfnDriver::TableDriver& chip_;
  /// The pipes of the handles that were given out.
  std::map<BfnDriver::TableHandle, BfnId::BfnPipeId> pipes_;
  Journal journal_;
};

}  // namespace BfnChip
