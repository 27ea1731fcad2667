// SPDX-License-Identifier: Apache-2.0
#include "host/reconcile/ReconciledTable.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "host/reconcile/Batch.h"

namespace Host {

namespace {

using BfnChip::ActionBytes;
using BfnChip::KeyBytes;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::WriteResult;
using Kiv::U64;

constexpr double kFirstPause = 1;
constexpr double kLongestPause = 60;
constexpr double kWarnAgain = 60;

}  // namespace

std::string_view text(WaitReason reason) {
  switch (reason) {
    case WaitReason::TableFull:
      return "table full";
    case WaitReason::NoSysResources:
      return "no resources";
    case WaitReason::Failed:
      break;
  }
  return "failed";
}

void ReconciledTable::Pause::restart(double now) {
  length = kFirstPause;
  due = now + length;
}
void ReconciledTable::Pause::grow(double now) {
  length = length == 0 ? kFirstPause : std::min(2 * length, kLongestPause);
  due = now + length;
}

ReconciledTable::ReconciledTable(BfnDriver::TableDriver& chip, Kiv::Clock const& clock,
                                 Options const& options, Warn warn)
    : chip_(chip), clock_(clock), options_(options), warn_(std::move(warn)) {}

// --- Rows and their state

void ReconciledTable::stateIs(Slot& slot, State state) {
  slot.word = (slot.word & ~U64{7}) | static_cast<U64>(state);
}

bool ReconciledTable::isQueued(Slot const& slot) {
  State const state = stateOf(slot);
  return state == State::Queued || state == State::QueuedForResources;
}

bool ReconciledTable::isDue(Slot const& slot) {
  return stateOf(slot) == State::Installed || stateOf(slot) == State::Failing;
}

ReconciledTable::Slot& ReconciledTable::insertWanted(U64 key, U64 action) {
  Slot& slot = wanted_.insert(key, action);
  slot.word = ++sequence_ << kSequenceShift | audit_ << kAuditShift;
  return slot;
}

// --- The chip's side

template <class Call>
Status ReconciledTable::chipCall(Call const& call) {
  error_.clear();
  try {
    Status const status = call();
    if (status == Status::Error) errorIs(chip_.lastError().c_str());
    return status;
  } catch (std::exception const& exception) {
    if (!options_.waiting) throw;
    errorIs(exception.what());
  } catch (...) {
    if (!options_.waiting) throw;
  }
  return Status::Error;
}

// Without the memory to keep it, the text is empty.
void ReconciledTable::errorIs(char const* text) noexcept {
  try {
    error_ = text;
  } catch (...) {
    error_.clear();
  }
}

Status ReconciledTable::chipWrite(U64 key, U64 action) {
  return chipCall([&] {
    return BfnDriver::statusOf(
        chip_.write(*handle_, BfnChip::unpacked(key), BfnChip::unpacked(action)));
  });
}

Status ReconciledTable::chipErase(U64 key) {
  return chipCall(
      [&] { return BfnDriver::statusOf(chip_.erase(*handle_, BfnChip::unpacked(key))); });
}

ReconciledTable::Fill ReconciledTable::fill() const {
  return {chip_.entryCount(*handle_), chip_.capacity(*handle_)};
}

void ReconciledTable::wrote(U64 key, Status status) {
  // The chip's driver may have run code that changed what is wanted.
  Slot* const slot = wanted_.find(key);
  if (slot == nullptr) return;
  bool const refused = status == Status::TableFull || status == Status::NoSysResources;
  if (status == Status::Ok) {
    // Also that of a removal, when the row is wanted again.
    if (!failures_.empty()) failures_.erase(key);
    stateIs(*slot, State::Installed);
  } else if (refused && (stateOf(*slot) == State::Collected ||
                         (stateOf(*slot) == State::Failing && !isThere(key)))) {
    failures_.erase(key);
    refusedAt_ = fill();
    enqueue(*slot, status);
  } else {
    fail(key);
    stateIs(*slot, State::Failing);
  }
}

bool ReconciledTable::isThere(U64 key) const {
  ActionBytes action{};
  try {
    return chip_.readRow(*handle_, BfnChip::unpacked(key), action) == Status::Ok;
  } catch (...) {
    return false;
  }
}

void ReconciledTable::enqueue(Slot& slot, Status status) noexcept {
  if (lost_) return;
  if (queue_.empty()) room_.restart(clock_.now());
  try {
    queue_.emplace(sequenceOf(slot), BfnChip::RowTable::keyOf(slot));
  } catch (...) {
    lose();
    return;
  }
  stateIs(slot, status == Status::NoSysResources ? State::QueuedForResources : State::Queued);
}

Status ReconciledTable::whyQueued() const {
  bool const resources = !queue_.empty() && stateOf(*wanted_.find(queue_.begin()->second)) ==
                                                State::QueuedForResources;
  return resources ? Status::NoSysResources : Status::TableFull;
}

// The text is that of error_, which is lost.
void ReconciledTable::fail(U64 key) noexcept {
  if (lost_) return;
  if (failures_.empty()) retry_.restart(clock_.now());
  try {
    failures_[key].swap(error_);
  } catch (...) {
    lose();
  }
}

// --- Held

void ReconciledTable::forgetChanges() noexcept {
  queue_.clear();
  failures_.clear();
  pending_.clear();
  pendingIndex_ = {};
  pendingRows_ = 0;
  warned_ = 0;
}

void ReconciledTable::lose() noexcept {
  forgetChanges();
  held_ = true;
  lost_ = true;
  retry_.restart(clock_.now());
}

void ReconciledTable::hold() {
  flush();
  held_ = true;
  lost_ = false;
  wanted_ = {};
  forgetChanges();
}

void ReconciledTable::applyErases(std::span<U64 const> keys, Batch& batch, Applied& applied) {
  for (size_t from = 0; from < keys.size(); from += batch.room()) {
    batch.clear();
    for (U64 const key : keys.subspan(from, std::min(batch.room(), keys.size() - from))) {
      batch.erase(key);
    }
    std::span<Status const> const results = batch.apply(chip_, *handle_);
    for (size_t i = 0; i < results.size(); ++i) {
      if (results[i] == Status::Ok || results[i] == Status::NotFound) {
        failures_.erase(batch.key(i));
        if (results[i] == Status::Ok) ++applied.erased;
      } else {
        errorIs(chip_.lastError().c_str());
        fail(batch.key(i));
        ++applied.waiting;
      }
    }
  }
}

// Only as many new rows are tried as there is room for, and none before those that wait.
size_t ReconciledTable::insertable() const {
  if (!queue_.empty()) return 0;
  Fill const at = fill();
  return at.capacity - std::min(at.capacity, at.rows);
}

void ReconciledTable::applyWrites(std::span<U64 const> keys, bool inserts, Batch& batch,
                                  Applied& applied) {
  size_t from = 0;
  while (from < keys.size()) {
    size_t count = std::min(batch.room(), keys.size() - from);
    if (inserts) count = std::min(count, insertable());
    if (count == 0) break;
    batch.clear();
    for (U64 const key : keys.subspan(from, count)) {
      if (Slot const* const slot = wanted_.find(key)) batch.write(key, slot->action);
    }
    std::span<Status const> const results = batch.apply(chip_, *handle_);
    for (size_t i = 0; i < results.size(); ++i) {
      errorIs(results[i] == Status::Error ? chip_.lastError().c_str() : "");
      wrote(batch.key(i), results[i]);
      ++(results[i] != Status::Ok ? applied.waiting
         : inserts                ? applied.inserted
                                  : applied.overwritten);
    }
    from += count;
  }
  Status const why = whyQueued();
  for (; from < keys.size(); ++from, ++applied.waiting) {
    if (Slot* const slot = wanted_.find(keys[from])) enqueue(*slot, why);
  }
}

// --- Changes

WriteResult ReconciledTable::write(U64 key, U64 action) {
  if (held_) {
    if (Slot* const slot = wanted_.find(key)) {
      slot->action = action;
      return WriteResult::Ok;
    }
    if (!options_.waiting && handle_ && wanted_.size() >= chip_.capacity(*handle_)) {
      return WriteResult::TableFull;
    }
    insertWanted(key, action);
    return WriteResult::Ok;
  }
  if (!handle_) return WriteResult::Error;
  if (!options_.turns || !options_.waiting) return writeNow(key, action);

  if (Slot* const slot = wanted_.find(key)) {
    if (stateOf(*slot) == State::Installed) pend(key, true, slot->action);
    if (stateOf(*slot) == State::Failing) pend(key, true, std::nullopt);
    slot->action = action;
    return WriteResult::Ok;
  }
  // A row whose removal failed is there still.
  bool const leaving = failures_.contains(key);
  pend(key, leaving, std::nullopt);
  insertWanted(key, action);
  ++pendingRows_;
  if (leaving) --pendingRows_;
  return WriteResult::Ok;
}

WriteResult ReconciledTable::writeNow(U64 key, U64 action) {
  Slot* slot = wanted_.find(key);
  if (slot != nullptr && isQueued(*slot)) {
    slot->action = action;
    return WriteResult::Ok;
  }
  bool const isNew = slot == nullptr;
  if (isNew) {
    slot = &insertWanted(key, action);
    if (failures_.contains(key)) {
      // Its removal failed, so the row is there still.
      stateIs(*slot, State::Failing);
    } else if (options_.waiting && !queue_.empty()) {
      enqueue(*slot, whyQueued());
      admit();
      noteQueue();
      return WriteResult::Ok;
    }
  }
  U64 const before = std::exchange(slot->action, action);
  auto const takeBack = [&] {
    if (isNew) {
      wanted_.erase(key);
    } else if (Slot* const there = wanted_.find(key)) {
      there->action = before;
    }
  };
  Status status = Status::Error;
  try {
    status = chipWrite(key, action);
  } catch (...) {
    takeBack();
    throw;
  }
  if (!options_.waiting && status != Status::Ok) {
    takeBack();
    return BfnDriver::writeResultOf(status);
  }
  wrote(key, status);
  noteQueue();
  return WriteResult::Ok;
}

EraseResult ReconciledTable::erase(U64 key) {
  if (held_) return wanted_.erase(key) ? EraseResult::Ok : EraseResult::NotFound;
  if (!handle_) return EraseResult::Error;
  Slot const* const slot = wanted_.find(key);
  if (slot != nullptr && isQueued(*slot)) {
    queue_.erase(sequenceOf(*slot));
    wanted_.erase(key);
    noteQueue();
    return EraseResult::Ok;
  }
  if (!options_.turns || !options_.waiting) return eraseNow(key);
  if (slot == nullptr) return EraseResult::NotFound;

  if (stateOf(*slot) == State::Installed) pend(key, true, slot->action);
  if (stateOf(*slot) == State::Failing) pend(key, true, std::nullopt);
  failures_.erase(key);
  wanted_.erase(key);
  --pendingRows_;
  return EraseResult::Ok;
}

EraseResult ReconciledTable::eraseNow(U64 key) {
  bool const known = wanted_.find(key) != nullptr;
  Status const status = chipErase(key);
  if (!options_.waiting && status == Status::Error) return EraseResult::Error;
  if (status == Status::Error) {
    if (!known) return EraseResult::Error;
    fail(key);
    wanted_.erase(key);
    return EraseResult::Ok;
  }
  failures_.erase(key);
  wanted_.erase(key);
  if (!queue_.empty()) {
    admit();
    noteQueue();
  }
  if (status == Status::NotFound && (!known || !options_.waiting)) return EraseResult::NotFound;
  return EraseResult::Ok;
}

Status ReconciledTable::clear() {
  if (!handle_) return Status::Error;
  Status const status = chip_.clear(*handle_);
  if (status != Status::Ok) return status;
  wanted_ = {};
  forgetChanges();
  return status;
}

// --- Turns

void ReconciledTable::pend(U64 key, bool there, std::optional<U64> action) {
  if (pendingIndex_.find(key) != nullptr) return;
  pending_.push_back({key, action, there});
  try {
    pendingIndex_.insert(key, pending_.size() - 1);
  } catch (...) {
    pending_.pop_back();
    throw;
  }
}

void ReconciledTable::makePending() {
  if (pending_.empty()) return;
  // All memory is taken before anything changes.
  Batch batch(std::min(Batch::kMost, pending_.size()));
  std::vector<U64> erases;
  std::vector<U64> overwrites;
  std::vector<U64> inserts;
  for (Pending const& each : pending_) {
    Slot* const slot = wanted_.find(each.key);
    if (slot == nullptr) {
      if (each.there) erases.push_back(each.key);
    } else if (!each.there) {
      inserts.push_back(each.key);
    } else if (each.action && *each.action == slot->action) {
      stateIs(*slot, State::Installed);
    } else {
      // As an overwrite: not one that waits for room when the chip refuses it.
      if (stateOf(*slot) == State::Collected) stateIs(*slot, State::Installed);
      overwrites.push_back(each.key);
    }
  }
  pending_.clear();
  pendingIndex_ = {};
  pendingRows_ = 0;
  Applied applied;
  applyErases(erases, batch, applied);
  applyWrites(overwrites, false, batch, applied);
  if (!queue_.empty()) admit();
  applyWrites(inserts, true, batch, applied);
}

void ReconciledTable::flush() {
  if (!handle_) return;
  if (lost_ && clock_.now() >= retry_.due) {
    retry_.grow(clock_.now());
    commit();
  }
  if (held_) return;
  makePending();
  if (!queue_.empty()) admit();
  if (!failures_.empty() && clock_.now() >= retry_.due) retryFailures();
  noteQueue();
}

std::optional<double> ReconciledTable::nextRetry() const {
  if (!handle_) return std::nullopt;
  if (lost_) return retry_.due;
  if (held_) return std::nullopt;
  std::optional<double> next;
  if (!queue_.empty()) next = room_.due;
  if (!failures_.empty()) next = next ? std::min(*next, retry_.due) : retry_.due;
  return next;
}

size_t ReconciledTable::entryCount() const {
  if (!handle_) return 0;
  auto const count = static_cast<std::ptrdiff_t>(chip_.entryCount(*handle_)) + pendingRows_;
  return static_cast<size_t>(std::max<std::ptrdiff_t>(count, 0));
}

// --- What waits

void ReconciledTable::admit() {
  while (!queue_.empty()) {
    Fill const at = fill();
    if (at.rows >= at.capacity) return;
    if (refusedAt_ == at && clock_.now() < room_.due) return;
    auto const [sequence, key] = *queue_.begin();
    Status const status = chipWrite(key, wanted_.find(key)->action);
    Slot* const slot = wanted_.find(key);
    if (slot == nullptr || sequenceOf(*slot) != sequence) continue;
    if (status == Status::TableFull || status == Status::NoSysResources) {
      stateIs(*slot, status == Status::NoSysResources ? State::QueuedForResources : State::Queued);
      refusedAt_ = at;
      room_.grow(clock_.now());
      return;
    }
    wrote(key, status);
    queue_.erase(sequence);
    if (status == Status::Ok) {
      refusedAt_.reset();
      room_.restart(clock_.now());
    }
  }
}

void ReconciledTable::retryFailures() {
  std::vector<U64> erases;
  std::vector<U64> writes;
  for (auto const& [key, error] : failures_) {
    (wanted_.find(key) == nullptr ? erases : writes).push_back(key);
  }
  size_t const before = failures_.size();
  Batch batch(std::min(Batch::kMost, before));
  Applied applied;
  applyErases(erases, batch, applied);
  applyWrites(writes, false, batch, applied);
  if (failures_.size() < before) {
    retry_.restart(clock_.now());
  } else {
    retry_.grow(clock_.now());
  }
}

std::vector<WaitingChange> ReconciledTable::waiting() const {
  std::vector<WaitingChange> all;
  all.reserve(queue_.size() + failures_.size());
  for (auto const& [sequence, key] : queue_) all.push_back(*waiting(key));
  for (auto const& [key, error] : failures_) all.push_back(*waiting(key));
  return all;
}

std::optional<WaitingChange> ReconciledTable::waiting(U64 key) const {
  Slot const* const slot = wanted_.find(key);
  WaitingChange change;
  change.key = BfnChip::unpacked(key);
  change.removal = slot == nullptr;
  if (slot != nullptr) change.action = BfnChip::unpacked(slot->action);
  if (slot != nullptr && isQueued(*slot)) {
    change.reason =
        stateOf(*slot) == State::Queued ? WaitReason::TableFull : WaitReason::NoSysResources;
    return change;
  }
  auto const failure = failures_.find(key);
  if (failure == failures_.end()) return std::nullopt;
  change.reason = WaitReason::Failed;
  change.error = failure->second;
  return change;
}

void ReconciledTable::noteQueue() {
  size_t const rows = queue_.size();
  if (rows == 0 && warned_ == 0) return;
  bool const news =
      rows == 0 || warned_ == 0 || rows >= 2 * warned_ || clock_.now() - warnedAt_ >= kWarnAgain;
  if (!news) return;
  try {
    if (warn_) warn_(rows);
  } catch (...) {
    return;  // it is reported at the next change
  }
  warned_ = rows;
  warnedAt_ = clock_.now();
}

}  // namespace Host
