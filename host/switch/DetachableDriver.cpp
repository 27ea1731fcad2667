// SPDX-License-Identifier: Apache-2.0
#include "host/switch/DetachableDriver.h"

#include <algorithm>
#include <stdexcept>

namespace Host {

using BfnDriver::ByteView;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;

namespace {

void copyRows(BfnDriver::TableDriver const& from, TableHandle source, BfnChip::ChipModel& to,
              TableHandle target) {
  constexpr size_t kRoom = 1024;
  std::vector<BfnChip::KeyBytes> keys(kRoom);
  std::vector<BfnChip::ActionBytes> actions(kRoom);
  BfnDriver::WalkCursor cursor;
  while (!cursor.ended) {
    size_t count = 0;
    Status const walked = from.walk(source, cursor, {keys.data()->data(), sizeof keys[0] * kRoom},
                                    {actions.data()->data(), sizeof actions[0] * kRoom}, count);
    if (walked != Status::Ok) {
      throw std::runtime_error("the chip's rows could not be read" +
                               (from.lastError().empty() ? "" : ": " + from.lastError()));
    }
    for (size_t i = 0; i < count; ++i) to.write(target, keys[i], actions[i]);
  }
}

}  // namespace

std::unique_ptr<BfnChip::ChipModel> DetachableDriver::copy() const {
  auto copy = std::make_unique<BfnChip::ChipModel>();
  copy->journal().limitIs(0);
  std::vector<std::pair<Kiv::U8, std::string>> done;
  for (Opened const& each : opened_) {
    std::pair const table(each.device, each.table);
    if (std::ranges::find(done, table) != done.end()) continue;
    copy->tableIs(each.table, next_->capacity(each.now));
    copyRows(*next_, each.now, *copy, *copy->open(each.address()));
    done.push_back(table);
  }
  return copy;
}

void DetachableDriver::detach(BfnChip::ChipModel& copy) {
  for (Opened& each : opened_) each.now = *copy.open(each.address());
  next_ = &copy;
  detached_ = true;
}

TableHandle DetachableDriver::now(TableHandle handle) const {
  if (!detached_) return handle;
  auto const found = std::ranges::find(opened_, handle, &Opened::handle);
  return found == opened_.end() ? TableHandle{~Kiv::U32{0}} : found->now;
}

std::optional<TableHandle> DetachableDriver::open(BfnDriver::TableAddress const& address) {
  auto const same = std::ranges::find_if(opened_, [&](Opened const& each) {
    return each.session == address.session && each.device == address.device &&
           each.pipe == address.pipe && each.profile == address.profile &&
           each.table == address.table;
  });
  if (same != opened_.end()) return same->handle;
  auto const made = next_->open(address);
  if (!made) return std::nullopt;
  // The copy may number its handles otherwise than the chip: its new ones are kept apart.
  constexpr Kiv::U32 kDetached = Kiv::U32{1} << 31;
  TableHandle const given =
      detached_ ? TableHandle{kDetached | static_cast<Kiv::U32>(*made)} : *made;
  opened_.push_back({given, *made, address.session, address.device, address.pipe,
                     std::string(address.profile), std::string(address.table)});
  return given;
}

void DetachableDriver::closeSession(Kiv::U32 session) {
  next_->closeSession(session);
  std::erase_if(opened_, [&](Opened const& each) { return each.session == session; });
}

WriteResult DetachableDriver::write(TableHandle table, ByteView key, ByteView action) {
  return next_->write(now(table), key, action);
}
EraseResult DetachableDriver::erase(TableHandle table, ByteView key) {
  return next_->erase(now(table), key);
}
void DetachableDriver::apply(TableHandle table, std::span<BfnDriver::Change const> changes,
                             std::span<Status> results) {
  next_->apply(now(table), changes, results);
}
Status DetachableDriver::clear(TableHandle table) {
  return next_->clear(now(table));
}
Status DetachableDriver::readRow(TableHandle table, ByteView key, std::span<Kiv::U8> action) const {
  return next_->readRow(now(table), key, action);
}
bool DetachableDriver::read(TableHandle table, ByteView key, std::span<Kiv::U8> action) const {
  return next_->read(now(table), key, action);
}
void DetachableDriver::prefetch(TableHandle table, ByteView key) const {
  next_->prefetch(now(table), key);
}
Status DetachableDriver::walk(TableHandle table, BfnDriver::WalkCursor& cursor,
                              std::span<Kiv::U8> keys, std::span<Kiv::U8> actions,
                              size_t& rows) const {
  return next_->walk(now(table), cursor, keys, actions, rows);
}
size_t DetachableDriver::entryCount(TableHandle table) const {
  return next_->entryCount(now(table));
}
size_t DetachableDriver::capacity(TableHandle table) const {
  return next_->capacity(now(table));
}
Status DetachableDriver::rowHits(TableHandle table, ByteView key, Kiv::U64& hits) const {
  return next_->rowHits(now(table), key, hits);
}
Status DetachableDriver::tableHits(TableHandle table, BfnDriver::TableHits& hits) const {
  return next_->tableHits(now(table), hits);
}
Status DetachableDriver::tableHitsClear(TableHandle table) {
  return next_->tableHitsClear(now(table));
}

}  // namespace Host
