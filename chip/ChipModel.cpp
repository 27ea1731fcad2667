// SPDX-License-Identifier: Apache-2.0
#include "chip/ChipModel.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace BfnChip {

namespace {

using BfnDriver::ByteView;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;
using Kiv::U16;

KeyBytes copyOf(ByteView bytes) {
  static_assert(kKeyBytes == kActionBytes);
  KeyBytes copy;
  std::memcpy(copy.data(), bytes.data(), copy.size());
  return copy;
}

Outcome outcomeOf(Fault::Kind kind) {
  switch (kind) {
    case Fault::Kind::TableFull:
      return Outcome::TableFull;
    case Fault::Kind::NoSysResources:
      return Outcome::NoSysResources;
    case Fault::Kind::Exception:
      return Outcome::Exception;
    case Fault::Kind::Error:
      break;
  }
  return Outcome::Error;
}

WriteResult resultOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::Ok:
      return WriteResult::Ok;
    case Outcome::TableFull:
      return WriteResult::TableFull;
    case Outcome::NoSysResources:
      return WriteResult::NoSysResources;
    default:
      return WriteResult::Error;
  }
}

}  // namespace

ChipModel::ChipModel(size_t capacity) {
  tableIs(kRewriteTable, capacity);
}

ChipModel::~ChipModel() = default;

std::optional<TableHandle> ChipModel::open(BfnDriver::TableAddress const& address) {
  Table const* table = tableNamed(address.table, address.device);
  if (table == nullptr) {
    Table const* const likewise = tableNamed(address.table, 0);
    if (likewise == nullptr) return std::nullopt;
    table = &tables_.emplace_back(
        Table{likewise->name, address.device, likewise->capacity, RowTable(), {}});
  }
  Opened const wanted{address.session, address.device, address.pipe, std::string(address.profile),
                      static_cast<U16>(table - tables_.data())};
  auto const same = std::ranges::find(opened_, wanted);
  auto const number = static_cast<Kiv::U32>(same - opened_.begin());
  if (same == opened_.end()) opened_.push_back(wanted);
  return TableHandle{number};
}

// The entries stay, so that no handle is ever given out a second time.
void ChipModel::closeSession(Kiv::U32 session) {
  for (Opened& each : opened_) each.closed = each.closed || each.session == session;
}

WriteResult ChipModel::write(TableHandle handle, ByteView keyBytes, ByteView actionBytes) {
  Opened const* from = opened(handle, keyBytes);
  if (from == nullptr) return WriteResult::Error;
  if (actionBytes.size() != kActionBytes) {
    lastErrorIs("an action of the wrong width");
    return WriteResult::Error;
  }
  KeyBytes const key = copyOf(keyBytes);
  ActionBytes const action = copyOf(actionBytes);

  journal_.makeRoom();
  if (std::optional<Fault> const fault = faults_.onCall()) {
    record(*from, Operation::Write, outcomeOf(fault->kind), key, action);
    if (fault->kind == Fault::Kind::Exception) throwFault(*fault);
    lastErrorIs("");
    return resultOf(outcomeOf(fault->kind));
  }
  Outcome const outcome = store(tables_[from->table], packed(key), packed(action));
  record(*from, Operation::Write, outcome, key, action);
  return resultOf(outcome);
}

Outcome ChipModel::store(Table& table, Kiv::U64 key, Kiv::U64 action) {
  if (RowTable::Slot* row = table.rows.find(key)) {
    row->action = action;
    return Outcome::Ok;
  }
  if (table.rows.size() >= table.capacity) return Outcome::TableFull;
  if (resourcesInUse_ >= resources_) return Outcome::NoSysResources;
  table.rows.insert(key, action);
  ++resourcesInUse_;
  return Outcome::Ok;
}

EraseResult ChipModel::erase(TableHandle handle, ByteView keyBytes) {
  Opened const* from = opened(handle, keyBytes);
  return from == nullptr ? EraseResult::Error : eraseRow(*from, copyOf(keyBytes));
}

EraseResult ChipModel::eraseRow(Opened const& from, KeyBytes const& key) {
  journal_.makeRoom();
  if (std::optional<Fault> const fault = eraseFaults_.onCall()) {
    bool const throws = fault->kind == Fault::Kind::Exception;
    record(from, Operation::Erase, throws ? Outcome::Exception : Outcome::Error, key, {});
    if (throws) throwFault(*fault);
    lastErrorIs("");
    return EraseResult::Error;
  }
  RowTable& rows = tables_[from.table].rows;
  RowTable::Slot const* row = rows.find(packed(key));
  if (row == nullptr) {
    record(from, Operation::Erase, Outcome::NotFound, key, {});
    return EraseResult::NotFound;
  }
  record(from, Operation::Erase, Outcome::Ok, key, unpacked(row->action));
  rows.erase(packed(key));
  --resourcesInUse_;
  return EraseResult::Ok;
}

Status ChipModel::clear(TableHandle handle) {
  Opened const* from = opened(handle);
  if (from == nullptr) return Status::Error;
  RowTable const& rows = tables_[from->table].rows;
  while (RowTable::Slot const* row = rows.notBelow(0)) {
    if (eraseRow(*from, unpacked(RowTable::keyOf(*row))) != EraseResult::Ok) return Status::Error;
  }
  return Status::Ok;
}

bool ChipModel::readFailsAsPlanned() const {
  std::optional<Fault> const fault = readFaults_.onPlannedCall();
  if (!fault) return false;
  if (fault->kind == Fault::Kind::Exception) throwFault(*fault);
  lastErrorIs("");
  return true;
}

Status ChipModel::readRow(TableHandle handle, ByteView key, std::span<Kiv::U8> action) const {
  Opened const* from = opened(handle, key);
  if (from == nullptr) return Status::Error;
  if (action.size() != kActionBytes) {
    lastErrorIs("room for an action of the wrong width");
    return Status::Error;
  }
  if (readFails()) return Status::Error;
  RowTable::Slot const* row = tables_[from->table].rows.find(packed(copyOf(key)));
  if (row == nullptr) return Status::NotFound;
  std::ranges::copy(unpacked(row->action), action.begin());
  return Status::Ok;
}

bool ChipModel::read(TableHandle handle, ByteView key, std::span<Kiv::U8> action) const {
  return readRow(handle, key, action) == Status::Ok;
}

void ChipModel::prefetch(TableHandle handle, ByteView key) const {
  auto const number = static_cast<size_t>(handle);
  if (number >= opened_.size() || key.size() != kKeyBytes) return;
  tables_[opened_[number].table].rows.prefetch(packed(copyOf(key)));
}

Status ChipModel::walk(TableHandle handle, BfnDriver::WalkCursor& cursor, std::span<Kiv::U8> keys,
                       std::span<Kiv::U8> actions, size_t& rows) const {
  Table const* const table = tableOf(handle);
  if (table == nullptr) return Status::Error;
  size_t const room = std::min(keys.size() / kKeyBytes, actions.size() / kActionBytes);
  if (room == 0) {
    lastErrorIs("no room for a row");
    return Status::Error;
  }
  rows = 0;
  while (!cursor.ended) {
    RowTable::Slot const* const row = table->rows.notBelow(cursor.place[0]);
    if (row == nullptr) {
      cursor.ended = true;
      break;
    }
    if (rows == room) break;
    std::ranges::copy(unpacked(RowTable::keyOf(*row)), keys.subspan(rows * kKeyBytes).begin());
    std::ranges::copy(unpacked(row->action), actions.subspan(rows * kActionBytes).begin());
    ++rows;
    cursor.place[0] = row->mixedKey + 1;
    cursor.ended = cursor.place[0] == 0;
  }
  return Status::Ok;
}

size_t ChipModel::entryCount(TableHandle handle) const {
  Table const* table = tableOf(handle);
  return table == nullptr ? 0 : table->rows.size();
}

size_t ChipModel::capacity(TableHandle handle) const {
  Table const* table = tableOf(handle);
  return table == nullptr ? 0 : table->capacity;
}

Status ChipModel::rowHits(TableHandle handle, ByteView key, Kiv::U64& hits) const {
  Opened const* from = opened(handle, key);
  if (from == nullptr) return Status::Error;
  RowTable::Slot const* row = tables_[from->table].rows.find(packed(copyOf(key)));
  if (row == nullptr) return Status::NotFound;
  hits = row->word;
  return Status::Ok;
}

Status ChipModel::tableHits(TableHandle handle, BfnDriver::TableHits& hits) const {
  Table const* table = tableOf(handle);
  if (table == nullptr) return Status::Error;
  hits = table->hits;
  return Status::Ok;
}

Status ChipModel::tableHitsClear(TableHandle handle) {
  Table* table = tableOf(handle);
  if (table == nullptr) return Status::Error;
  table->rows.hitsClear();
  table->hits = {};
  return Status::Ok;
}

std::optional<MacBytes> ChipModel::lookup(U16 vlan, AddressBytes const& source, Kiv::U8 device) {
  auto const table = std::ranges::find_if(tables_, [device](Table const& each) {
    return each.device == device && each.name == kRewriteTable;
  });
  if (table == tables_.end()) return std::nullopt;
  RowTable::Slot* row = table->rows.find(RewriteLayout::packetKey(vlan, source));
  if (row == nullptr) {
    ++table->hits.notMatched;
    return std::nullopt;
  }
  ++table->hits.matched;
  ++row->word;
  return RewriteLayout::newSourceMac(row->action);
}

void ChipModel::tableIs(std::string_view name, size_t capacity) {
  if (tableNamed(name, 0) == nullptr) {
    tables_.push_back({std::string(name), 0, capacity, RowTable(), {}});
  }
  for (Table& table : tables_) {
    if (table.name == name) table.capacity = capacity;
  }
}

size_t ChipModel::rowCount(std::string_view name, Kiv::U8 device) const {
  Table const* table = tableNamed(name, device);
  return table == nullptr ? 0 : table->rows.size();
}

std::vector<Row> ChipModel::rows(std::string_view name, Kiv::U8 device) const {
  Table const* table = tableNamed(name, device);
  if (table == nullptr) return {};
  std::vector<Row> rows = table->rows.sorted();
  if (name == kRewriteTable) {
    std::ranges::sort(rows, {}, [](Row const& row) { return RewriteLayout::fields(row.key); });
  }
  return rows;
}

size_t ChipModel::capacityOf(std::string_view name, Kiv::U8 device) const {
  Table const* const table = tableNamed(name, device);
  return table == nullptr ? 0 : table->capacity;
}

ChipModel::HitCounts ChipModel::hits() const {
  Table const& table = tables_.front();
  return {table.rows.hits(), table.hits};
}

void ChipModel::hitsIs(HitCounts const& hits) {
  Table& table = tables_.front();
  table.rows.hitsIs(hits.rows);
  table.hits = hits.table;
}

void ChipModel::hitsClear() {
  for (Table& table : tables_) {
    table.rows.hitsClear();
    table.hits = {};
  }
}

ChipModel::Table const* ChipModel::tableOf(TableHandle handle) const {
  Opened const* from = opened(handle);
  return from == nullptr ? nullptr : &tables_[from->table];
}

ChipModel::Table* ChipModel::tableOf(TableHandle handle) {
  return const_cast<Table*>(std::as_const(*this).tableOf(handle));
}

ChipModel::Table const* ChipModel::tableNamed(std::string_view name, Kiv::U8 device) const {
  auto const table = std::ranges::find_if(
      tables_, [&](Table const& each) { return each.device == device && each.name == name; });
  return table == tables_.end() ? nullptr : &*table;
}

void ChipModel::record(Opened const& from, Operation operation, Outcome outcome,
                       KeyBytes const& key, ActionBytes const& action) {
  journal_.append({key, action, from.pipe, from.table, operation, outcome});
}

}  // namespace BfnChip
