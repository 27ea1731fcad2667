// SPDX-License-Identifier: Apache-2.0
#include "host/reconcile/Reconciler.h"

#include <algorithm>
#include <utility>

#include "framework/log/EmitLog.h"
#include "framework/log/LogHandle.h"

namespace Host {

namespace {

using BfnDriver::ByteView;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;

// The limit is the caller's, which logs changes only.
Kiv::LogHandle rowsWaiting(
    "BFN_VXLAN_MAC_REWRITE_ROWS_WAITING", Kiv::LogSeverity::warning,
    "VXLAN forwarding source MAC address rewrites that wait for hardware resources: %s.",
    "The hardware table, or the system's resources for it, are exhausted. The rewrites that found "
    "no room are kept and programmed, in the order in which they came, as soon as there is room. "
    "A count of 0 says that all of them have been programmed.",
    "Remove some of the entries configured with the vxlan forwarding match vrf <VRF> src-ip <IP> "
    "action rewrite src-mac <M>, or enlarge the table.",
    1.0, 1000.0, false);

std::optional<Kiv::U64> word(ByteView bytes) {
  if (bytes.size() != sizeof(Kiv::U64)) return std::nullopt;
  BfnChip::KeyBytes copy;
  std::ranges::copy(bytes, copy.begin());
  return BfnChip::packed(copy);
}

}  // namespace

Reconciler::Reconciler(BfnDriver::TableDriver& chip, Kiv::Ptr<Kiv::Clock const> clock)
    : chip_(chip), clock_(std::move(clock)) {}

Reconciler::~Reconciler() = default;

void Reconciler::hold() {
  for (Table const& table : tables_) table.rows->hold();
  held_ = true;
}

Applied Reconciler::commit() {
  Applied all;
  if (tables_.empty()) all.status = Status::NotFound;
  for (Table const& table : tables_) {
    Applied const one = table.rows->commit();
    if (one.status != Status::Ok) all.status = one.status;
    all.inserted += one.inserted;
    all.overwritten += one.overwritten;
    all.erased += one.erased;
    all.waiting += one.waiting;
  }
  held_ = all.status != Status::Ok;
  return all;
}

void Reconciler::waitingIs(bool waiting) {
  flush();
  options_.waiting = waiting;
}

void Reconciler::turnsIs(bool turns) {
  flush();
  options_.turns = turns;
}

void Reconciler::flush() {
  for (Table const& table : tables_) table.rows->flush();
  chip_.turnEnded();
}

std::optional<double> Reconciler::nextRetry() const {
  std::optional<double> next;
  for (Table const& table : tables_) {
    std::optional<double> const one = table.rows->nextRetry();
    if (one) next = next ? std::min(*next, *one) : *one;
  }
  return next;
}

size_t Reconciler::wanted() const {
  size_t sum = 0;
  for (Table const& table : tables_) sum += table.rows->wanted();
  return sum;
}
size_t Reconciler::installed() const {
  size_t sum = 0;
  for (Table const& table : tables_) sum += table.rows->entryCount();
  return sum;
}
size_t Reconciler::waitingForRoom() const {
  size_t sum = 0;
  for (Table const& table : tables_) sum += table.rows->waitingForRoom();
  return sum;
}
size_t Reconciler::failed() const {
  size_t sum = 0;
  for (Table const& table : tables_) sum += table.rows->failed();
  return sum;
}

// --- The binding's side

Reconciler::Opened const* Reconciler::opened(TableHandle handle) const {
  auto const number = static_cast<size_t>(handle);
  return number < opened_.size() && !opened_[number].closed ? &opened_[number] : nullptr;
}

size_t Reconciler::tableIs(BfnDriver::TableAddress const& address) {
  for (size_t i = 0; i < tables_.size(); ++i) {
    if (tables_[i].device == address.device && tables_[i].name == address.table) return i;
  }
  auto rows = std::make_unique<ReconciledTable>(
      chip_, *clock_, options_, [](size_t waiting) { Kiv::emitLog(rowsWaiting, waiting); });
  tables_.push_back({address.device, std::string(address.table), std::move(rows)});
  return tables_.size() - 1;
}

std::optional<TableHandle> Reconciler::open(BfnDriver::TableAddress const& address) {
  std::optional<TableHandle> const chip = chip_.open(address);
  if (!chip) return std::nullopt;
  size_t const table = tableIs(address);
  auto const known = std::ranges::find_if(
      opened_, [&](Opened const& each) { return !each.closed && each.chip == *chip; });
  size_t const number = static_cast<size_t>(known - opened_.begin());
  if (known == opened_.end()) opened_.push_back({address.session, *chip, table});
  tables_[table].rows->handleIs(*chip);
  return static_cast<TableHandle>(number);
}

void Reconciler::closeSession(Kiv::U32 session) {
  flush();
  chip_.closeSession(session);
  for (Opened& each : opened_) {
    if (each.session == session) each.closed = true;
  }
  for (size_t i = 0; i < tables_.size(); ++i) {
    auto const open = std::ranges::find_if(
        opened_, [i](Opened const& each) { return !each.closed && each.table == i; });
    tables_[i].rows->handleIs(open == opened_.end() ? std::nullopt : std::optional(open->chip));
  }
}

WriteResult Reconciler::write(TableHandle table, ByteView key, ByteView action) {
  Opened const* const from = opened(table);
  auto const keyWord = word(key);
  auto const actionWord = word(action);
  if (from == nullptr || !keyWord || !actionWord) return WriteResult::Error;
  // Its row here and that of the chip are two places in memory, which are fetched at once.
  chip_.prefetch(from->chip, key);
  ReconciledTable& rows = *tables_[from->table].rows;
  rows.handleIs(from->chip);
  return rows.write(*keyWord, *actionWord);
}

EraseResult Reconciler::erase(TableHandle table, ByteView key) {
  Opened const* const from = opened(table);
  auto const keyWord = word(key);
  if (from == nullptr || !keyWord) return EraseResult::Error;
  chip_.prefetch(from->chip, key);
  ReconciledTable& rows = *tables_[from->table].rows;
  rows.handleIs(from->chip);
  return rows.erase(*keyWord);
}

Status Reconciler::clear(TableHandle table) {
  Opened const* const from = opened(table);
  return from == nullptr ? Status::Error : tables_[from->table].rows->clear();
}

Status Reconciler::readRow(TableHandle table, ByteView key, std::span<Kiv::U8> action) const {
  Opened const* const from = opened(table);
  if (from == nullptr) return Status::Error;
  tables_[from->table].rows->flush();
  return chip_.readRow(from->chip, key, action);
}

bool Reconciler::read(TableHandle table, ByteView key, std::span<Kiv::U8> action) const {
  return readRow(table, key, action) == Status::Ok;
}

void Reconciler::prefetch(TableHandle table, ByteView key) const {
  Opened const* const from = opened(table);
  if (from != nullptr) chip_.prefetch(from->chip, key);
}

Status Reconciler::walk(TableHandle table, BfnDriver::WalkCursor& cursor, std::span<Kiv::U8> keys,
                        std::span<Kiv::U8> actions, size_t& rows) const {
  Opened const* const from = opened(table);
  if (from == nullptr) return Status::Error;
  tables_[from->table].rows->flush();
  return chip_.walk(from->chip, cursor, keys, actions, rows);
}

size_t Reconciler::entryCount(TableHandle table) const {
  Opened const* const from = opened(table);
  return from == nullptr ? 0 : tables_[from->table].rows->entryCount();
}

size_t Reconciler::capacity(TableHandle table) const {
  Opened const* const from = opened(table);
  return from == nullptr ? 0 : chip_.capacity(from->chip);
}

Status Reconciler::rowHits(TableHandle table, ByteView key, Kiv::U64& hits) const {
  Opened const* const from = opened(table);
  if (from == nullptr) return Status::Error;
  tables_[from->table].rows->flush();
  return chip_.rowHits(from->chip, key, hits);
}

Status Reconciler::tableHits(TableHandle table, BfnDriver::TableHits& hits) const {
  Opened const* const from = opened(table);
  return from == nullptr ? Status::Error : chip_.tableHits(from->chip, hits);
}

Status Reconciler::tableHitsClear(TableHandle table) {
  Opened const* const from = opened(table);
  return from == nullptr ? Status::Error : chip_.tableHitsClear(from->chip);
}

}  // namespace Host
