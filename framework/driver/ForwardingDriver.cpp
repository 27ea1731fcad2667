// SPDX-License-Identifier: Apache-2.0
#include "framework/driver/ForwardingDriver.h"

namespace BfnDriver {

using Bytes = std::span<Kiv::U8>;

ForwardingDriver::~ForwardingDriver() = default;

std::optional<TableHandle> ForwardingDriver::open(TableAddress const& address) {
  return next_.open(address);
}

void ForwardingDriver::closeSession(Kiv::U32 session) {
  next_.closeSession(session);
}

WriteResult ForwardingDriver::write(TableHandle table, ByteView key, ByteView action) {
  return next_.write(table, key, action);
}

EraseResult ForwardingDriver::erase(TableHandle table, ByteView key) {
  return next_.erase(table, key);
}

void ForwardingDriver::apply(TableHandle table, std::span<Change const> changes,
                             std::span<Status> results) {
  next_.apply(table, changes, results);
}

Status ForwardingDriver::clear(TableHandle table) {
  return next_.clear(table);
}

Status ForwardingDriver::readRow(TableHandle table, ByteView key, Bytes action) const {
  return next_.readRow(table, key, action);
}

bool ForwardingDriver::read(TableHandle table, ByteView key, Bytes action) const {
  return next_.read(table, key, action);
}

void ForwardingDriver::prefetch(TableHandle table, ByteView key) const {
  next_.prefetch(table, key);
}

Status ForwardingDriver::walk(TableHandle table, WalkCursor& cursor, Bytes keys, Bytes actions,
                              size_t& rows) const {
  return next_.walk(table, cursor, keys, actions, rows);
}

size_t ForwardingDriver::entryCount(TableHandle table) const {
  return next_.entryCount(table);
}

size_t ForwardingDriver::capacity(TableHandle table) const {
  return next_.capacity(table);
}

Status ForwardingDriver::rowHits(TableHandle table, ByteView key, Kiv::U64& hits) const {
  return next_.rowHits(table, key, hits);
}

Status ForwardingDriver::tableHits(TableHandle table, TableHits& hits) const {
  return next_.tableHits(table, hits);
}

Status ForwardingDriver::tableHitsClear(TableHandle table) {
  return next_.tableHitsClear(table);
}

void ForwardingDriver::turnEnded() {
  next_.turnEnded();
}

std::string const& ForwardingDriver::lastError() const {
  return next_.lastError();
}

}  // namespace BfnDriver
