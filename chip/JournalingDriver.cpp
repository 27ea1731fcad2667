// SPDX-License-Identifier: Apache-2.0
#include "chip/JournalingDriver.h"

#include <algorithm>
#include <bit>
#include <new>

namespace BfnChip {

namespace {

using BfnDriver::ByteView;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;

Outcome outcomeOf(Status status) {
  switch (status) {
    case Status::Ok:
      return Outcome::Ok;
    case Status::NotFound:
      return Outcome::NotFound;
    case Status::TableFull:
      return Outcome::TableFull;
    case Status::NoSysResources:
      return Outcome::NoSysResources;
    case Status::NotSupported:
    case Status::Error:
      break;
  }
  return Outcome::Error;
}

}  // namespace

std::optional<TableHandle> JournalingDriver::open(BfnDriver::TableAddress const& address) {
  auto const table = next().open(address);
  if (table && std::ranges::find(opened_, *table, &Opened::table) == opened_.end()) {
    opened_.push_back({*table, address.pipe});
  }
  return table;
}

WriteResult JournalingDriver::write(TableHandle table, ByteView key, ByteView action) {
  journal_.makeRoom();
  try {
    WriteResult const result = next().write(table, key, action);
    record(table, key, action, Operation::Write, outcomeOf(BfnDriver::statusOf(result)));
    return result;
  } catch (...) {
    record(table, key, action, Operation::Write, Outcome::Exception);
    throw;
  }
}

EraseResult JournalingDriver::erase(TableHandle table, ByteView key) {
  journal_.makeRoom();
  try {
    EraseResult const result = next().erase(table, key);
    record(table, key, {}, Operation::Erase, outcomeOf(BfnDriver::statusOf(result)));
    return result;
  } catch (...) {
    record(table, key, {}, Operation::Erase, Outcome::Exception);
    throw;
  }
}

void JournalingDriver::apply(TableHandle table, std::span<BfnDriver::Change const> changes,
                             std::span<Status> results) {
  next().apply(table, changes, results);
  for (size_t i = 0; i < changes.size(); ++i) {
    BfnDriver::Change const& change = changes[i];
    bool const write = change.kind == BfnDriver::Change::Kind::Write;
    try {
      journal_.makeRoom();
    } catch (std::bad_alloc const&) {
      return;
    }
    record(table, change.key, write ? change.action : ByteView(),
           write ? Operation::Write : Operation::Erase, outcomeOf(results[i]));
  }
}

void JournalingDriver::record(TableHandle table, ByteView key, ByteView action, Operation operation,
                              Outcome outcome) {
  auto const from = std::ranges::find(opened_, table, &Opened::table);
  if (from == opened_.end() || key.size() != kKeyBytes) return;
  if (operation == Operation::Write && action.size() != kActionBytes) return;
  JournalEntry entry;
  std::ranges::copy(key, entry.key.begin());
  std::ranges::copy(action, entry.action.begin());
  entry.pipe = from->pipe;
  entry.operation = operation;
  entry.outcome = outcome;
  journal_.append(entry);
  if (clock_ != nullptr && outcome == Outcome::Ok) remember(operation, entry.key);
}

void JournalingDriver::remember(Operation operation, KeyBytes const& key) noexcept {
  if (operation == Operation::Erase) {
    times_.erase(packed(key));
    return;
  }
  auto const time = std::bit_cast<Kiv::U64>(clock_->now());
  try {
    if (auto* const row = times_.find(packed(key))) {
      row->action = time;
    } else {
      times_.insert(packed(key), time);
    }
  } catch (std::bad_alloc const&) {  // the time is not known then
  }
}

std::optional<double> JournalingDriver::lastWrite(KeyBytes const& key) const {
  auto const* const row = times_.find(packed(key));
  return row == nullptr ? std::nullopt : std::optional(std::bit_cast<double>(row->action));
}

Status JournalingDriver::clear(TableHandle table) {
  Status const status = next().clear(table);
  if (status == Status::Ok) times_ = RowTable();
  return status;
}

}  // namespace BfnChip
