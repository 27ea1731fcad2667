// SPDX-License-Identifier: Apache-2.0
#include "chip/FaultingDriver.h"

#include <algorithm>

namespace BfnChip {

using BfnDriver::ByteView;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;

// The failure of a call that has no room to run out of.
void FaultingDriver::fail(Fault const& fault) const {
  if (fault.kind == Fault::Kind::Exception) throwFault(fault);
  lastErrorIs("");
}

std::optional<TableHandle> FaultingDriver::open(BfnDriver::TableAddress const& address) {
  auto const handle = next().open(address);
  if (!handle) return handle;
  bool const known =
      std::ranges::any_of(opened_, [&](Opened const& each) { return each.handle == *handle; });
  if (!known) {
    opened_.push_back({address.session, address.device, std::string(address.table), *handle});
  }
  return handle;
}

void FaultingDriver::closeSession(Kiv::U32 session) {
  next().closeSession(session);
  std::erase_if(opened_, [session](Opened const& each) { return each.session == session; });
}

WriteResult FaultingDriver::write(TableHandle table, ByteView key, ByteView action) {
  ownError_ = true;
  if (auto const fault = faults_.onCall()) {
    if (fault->kind == Fault::Kind::TableFull) return WriteResult::TableFull;
    if (fault->kind == Fault::Kind::NoSysResources) return WriteResult::NoSysResources;
    fail(*fault);
    return WriteResult::Error;
  }
  if (limited()) {
    WriteResult const result = room(table, key, action);
    if (result != WriteResult::Ok) return result;
  }
  WriteResult const result = next().write(table, key, action);
  ownError_ = false;
  return result;
}

WriteResult FaultingDriver::room(TableHandle table, ByteView key, ByteView action) const {
  bool const full = next().entryCount(table) >= capacity(table);
  if (!full && resourcesInUse() < resources_) return WriteResult::Ok;
  std::vector<Kiv::U8> there(action.size());
  // An error is the write's to find.
  if (next().readRow(table, key, there) != Status::NotFound) return WriteResult::Ok;
  return full ? WriteResult::TableFull : WriteResult::NoSysResources;
}

size_t FaultingDriver::resourcesInUse() const {
  if (resources_ == kUnlimited) return 0;
  size_t rows = 0;
  for (auto each = opened_.begin(); each != opened_.end(); ++each) {
    bool const counted = std::any_of(opened_.begin(), each, [each](Opened const& earlier) {
      return earlier.device == each->device && earlier.table == each->table;
    });
    if (!counted) rows += next().entryCount(each->handle);
  }
  return rows;
}

EraseResult FaultingDriver::erase(TableHandle table, ByteView key) {
  ownError_ = true;
  if (auto const fault = eraseFaults_.onCall()) {
    fail(*fault);
    return EraseResult::Error;
  }
  EraseResult const result = next().erase(table, key);
  ownError_ = false;
  return result;
}

void FaultingDriver::apply(TableHandle table, std::span<BfnDriver::Change const> changes,
                           std::span<Status> results) {
  if (limited() || !faults_.empty() || !eraseFaults_.empty()) {
    // NOLINTNEXTLINE(bugprone-parent-virtual-call): one by one, through write() and erase()
    return TableDriver::apply(table, changes, results);
  }
  ownError_ = false;
  next().apply(table, changes, results);
}

Status FaultingDriver::clear(TableHandle table) {
  ownError_ = true;
  if (auto const fault = eraseFaults_.onCall()) {
    fail(*fault);
    return Status::Error;
  }
  Status const status = next().clear(table);
  ownError_ = false;
  return status;
}

Status FaultingDriver::readRow(TableHandle table, ByteView key, std::span<Kiv::U8> action) const {
  ownError_ = true;
  if (auto const fault = readFaults_.onCall()) {
    fail(*fault);
    return Status::Error;
  }
  Status const status = next().readRow(table, key, action);
  ownError_ = false;
  return status;
}

bool FaultingDriver::read(TableHandle table, ByteView key, std::span<Kiv::U8> action) const {
  return readRow(table, key, action) == Status::Ok;
}

size_t FaultingDriver::capacity(TableHandle table) const {
  return std::min(capacity_, next().capacity(table));
}

std::string const& FaultingDriver::lastError() const {
  // NOLINTNEXTLINE(bugprone-parent-virtual-call): the parent's is the other driver's
  return ownError_ ? TableDriver::lastError() : next().lastError();
}

}  // namespace BfnChip
