// SPDX-License-Identifier: Apache-2.0
#include "framework/driver/TableDriver.h"

#include <exception>

#include "framework/core/Fatal.h"

namespace BfnDriver {

Status statusOf(WriteResult result) {
  switch (result) {
    case WriteResult::Ok:
      return Status::Ok;
    case WriteResult::TableFull:
      return Status::TableFull;
    case WriteResult::NoSysResources:
      return Status::NoSysResources;
    case WriteResult::Error:
      break;
  }
  return Status::Error;
}

Status statusOf(EraseResult result) {
  switch (result) {
    case EraseResult::Ok:
      return Status::Ok;
    case EraseResult::NotFound:
      return Status::NotFound;
    case EraseResult::Error:
      break;
  }
  return Status::Error;
}

WriteResult writeResultOf(Status status) {
  switch (status) {
    case Status::Ok:
      return WriteResult::Ok;
    case Status::TableFull:
      return WriteResult::TableFull;
    case Status::NoSysResources:
      return WriteResult::NoSysResources;
    default:
      return WriteResult::Error;
  }
}

EraseResult eraseResultOf(Status status) {
  switch (status) {
    case Status::Ok:
      return EraseResult::Ok;
    case Status::NotFound:
      return EraseResult::NotFound;
    default:
      return EraseResult::Error;
  }
}

TableDriver::~TableDriver() = default;

void TableDriver::closeSession(Kiv::U32) {}

void TableDriver::apply(TableHandle table, std::span<Change const> changes,
                        std::span<Status> results) {
  KIV_CHECK(changes.size() == results.size(), "changes: ", changes.size(),
            ", results: ", results.size());
  for (size_t i = 0; i < changes.size(); ++i) {
    Change const& change = changes[i];
    try {
      results[i] = change.kind == Change::Kind::Write
                       ? statusOf(write(table, change.key, change.action))
                       : statusOf(erase(table, change.key));
    } catch (std::exception const& exception) {
      results[i] = Status::Error;
      lastErrorIs(exception.what());
    } catch (...) {
      results[i] = Status::Error;
      lastErrorIs("");
    }
  }
}

Status TableDriver::clear(TableHandle) {
  return Status::NotSupported;
}

Status TableDriver::readRow(TableHandle table, ByteView key, std::span<Kiv::U8> action) const {
  return read(table, key, action) ? Status::Ok : Status::NotFound;
}

void TableDriver::prefetch(TableHandle, ByteView) const {}

Status TableDriver::walk(TableHandle, WalkCursor&, std::span<Kiv::U8>, std::span<Kiv::U8>,
                         size_t&) const {
  return Status::NotSupported;
}

Status TableDriver::rowHits(TableHandle, ByteView, Kiv::U64&) const {
  return Status::NotSupported;
}

Status TableDriver::tableHits(TableHandle, TableHits&) const {
  return Status::NotSupported;
}

Status TableDriver::tableHitsClear(TableHandle) {
  return Status::NotSupported;
}

void TableDriver::turnEnded() {}

std::string const& TableDriver::lastError() const {
  return lastError_;
}

void TableDriver::lastErrorIs(char const* text) const noexcept {
  try {
    lastError_ = text;
  } catch (...) {
    lastError_.clear();
  }
}

}  // namespace BfnDriver
