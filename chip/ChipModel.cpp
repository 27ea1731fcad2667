#include "chip/ChipModel.h"

#include <algorithm>
#include <cstring>

namespace BfnChip {

namespace {

using BfnDriver::ByteView;
using BfnDriver::EraseResult;
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

ChipModel::ChipModel(std::size_t capacity) {
  tableIs(kRewriteTable, capacity);
}

ChipModel::~ChipModel() = default;

std::optional<TableHandle> ChipModel::open(BfnDriver::TableAddress const& address) {
  Table const* table = tableNamed(address.table);
  if (table == nullptr) return std::nullopt;
  Opened const wanted{address.session, address.device, address.pipe, std::string(address.profile),
                      static_cast<U16>(table - tables_.data())};
  auto const same = std::ranges::find(opened_, wanted);
  auto const number = static_cast<Kiv::U32>(same - opened_.begin());
  if (same == opened_.end()) opened_.push_back(wanted);
  return TableHandle{number};
}

WriteResult ChipModel::write(TableHandle handle, ByteView keyBytes, ByteView actionBytes) {
  Opened const* from = opened(handle);
  if (from == nullptr) return WriteResult::Error;
  if (keyBytes.size() != kKeyBytes || actionBytes.size() != kActionBytes) {
    return WriteResult::Error;
  }
  KeyBytes const key = copyOf(keyBytes);
  ActionBytes const action = copyOf(actionBytes);

  if (std::optional<Fault> const fault = faults_.onWrite()) {
    record(*from, Operation::Write, outcomeOf(fault->kind), key, action);
    if (fault->kind == Fault::Kind::Exception) throwFault(*fault);
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
  Opened const* from = opened(handle);
  if (from == nullptr || keyBytes.size() != kKeyBytes) return EraseResult::Error;
  KeyBytes const key = copyOf(keyBytes);
  RowTable& rows = tables_[from->table].rows;
  RowTable::Slot const* row = rows.find(packed(key));
  if (row == nullptr) {
    record(*from, Operation::Erase, Outcome::NotFound, key, {});
    return EraseResult::NotFound;
  }
  record(*from, Operation::Erase, Outcome::Ok, key, unpacked(row->action));
  rows.erase(packed(key));
  --resourcesInUse_;
  return EraseResult::Ok;
}

bool ChipModel::read(TableHandle handle, ByteView key, std::span<Kiv::U8> action) const {
  Table const* table = tableOf(handle);
  if (table == nullptr || key.size() != kKeyBytes || action.size() != kActionBytes) return false;
  RowTable::Slot const* row = table->rows.find(packed(copyOf(key)));
  if (row == nullptr) return false;
  std::ranges::copy(unpacked(row->action), action.begin());
  return true;
}

void ChipModel::prefetch(TableHandle handle, ByteView key) const {
  Table const* table = tableOf(handle);
  if (table != nullptr && key.size() == kKeyBytes) table->rows.prefetch(packed(copyOf(key)));
}

std::size_t ChipModel::entryCount(TableHandle handle) const {
  Table const* table = tableOf(handle);
  return table == nullptr ? 0 : table->rows.size();
}

std::size_t ChipModel::capacity(TableHandle handle) const {
  Table const* table = tableOf(handle);
  return table == nullptr ? 0 : table->capacity;
}

std::optional<MacBytes> ChipModel::lookup(U16 vlan, AddressBytes const& source) {
  RowTable::Slot* row = tables_.front().rows.find(RewriteLayout::packetKey(vlan, source));
  if (row == nullptr) return std::nullopt;
  ++row->hits;
  return RewriteLayout::newSourceMac(row->action);
}

void ChipModel::tableIs(std::string_view name, std::size_t capacity) {
  auto const table = std::ranges::find(tables_, name, &Table::name);
  if (table != tables_.end()) {
    table->capacity = capacity;
  } else {
    tables_.push_back({std::string(name), capacity, {}});
  }
}

std::size_t ChipModel::rowCount(std::string_view name) const {
  Table const* table = tableNamed(name);
  return table == nullptr ? 0 : table->rows.size();
}

std::vector<Row> ChipModel::rows(std::string_view name) const {
  Table const* table = tableNamed(name);
  if (table == nullptr) return {};
  std::vector<Row> rows = table->rows.sorted();
  if (name == kRewriteTable) {
    std::ranges::sort(rows, {}, [](Row const& row) { return RewriteLayout::fields(row.key); });
  }
  return rows;
}

std::size_t ChipModel::capacityOf(std::string_view name) const {
  Table const* const table = tableNamed(name);
  return table == nullptr ? 0 : table->capacity;
}

void ChipModel::hitsClear() {
  for (Table& table : tables_) table.rows.hitsClear();
}

ChipModel::Opened const* ChipModel::opened(TableHandle handle) const {
  auto const number = static_cast<std::size_t>(handle);
  return number < opened_.size() ? &opened_[number] : nullptr;
}

ChipModel::Table const* ChipModel::tableOf(TableHandle handle) const {
  Opened const* from = opened(handle);
  return from == nullptr ? nullptr : &tables_[from->table];
}

ChipModel::Table const* ChipModel::tableNamed(std::string_view name) const {
  auto const table = std::ranges::find(tables_, name, &Table::name);
  return table == tables_.end() ? nullptr : &*table;
}

void ChipModel::record(Opened const& from, Operation operation, Outcome outcome,
                       KeyBytes const& key, ActionBytes const& action) {
  journal_.append({key, action, from.pipe, from.table, operation, outcome});
}

}  // namespace BfnChip
