// SPDX-License-Identifier: Apache-2.0
// Comparisons of the whole table with the chip: the commit after a bring-up, audit and repair.
#include <algorithm>
#include <vector>

#include "host/reconcile/Batch.h"
#include "host/reconcile/ReconciledTable.h"

namespace Host {

namespace {

using BfnChip::ActionBytes;
using BfnChip::KeyBytes;
using BfnDriver::Status;
using Kiv::U64;

constexpr size_t kWalkRows = 4096;

}  // namespace

// --- Commit

void ReconciledTable::allCollected() {
  for (U64 place = 0; Slot const* const slot = wanted_.notBelow(place);) {
    stateIs(*wanted_.find(BfnChip::RowTable::keyOf(*slot)), State::Collected);
    if ((place = slot->mixedKey + 1) == 0) break;
  }
}

Applied ReconciledTable::commit() {
  Applied applied;
  if (!held_) return applied;
  if (!handle_) {
    applied.status = Status::NotFound;
    return applied;
  }
  if (lost_) allCollected();
  // All memory is taken before anything changes.
  std::vector<U64> extra;
  std::vector<U64> different;
  std::vector<U64> missing;
  Batch batch(Batch::kMost);
  try {
    applied.status = compareAll(extra, different);
    if (applied.status == Status::Ok) missing = collected();
  } catch (...) {
    allCollected();
    throw;
  }
  if (applied.status != Status::Ok) {
    allCollected();
    return applied;
  }
  held_ = false;
  lost_ = false;
  applyErases(extra, batch, applied);
  applyWrites(different, false, batch, applied);
  applyWrites(missing, true, batch, applied);
  noteQueue();
  return applied;
}

// Walks the chip. Rows that are there and wanted are Installed after it.
Status ReconciledTable::compareAll(std::vector<U64>& extra, std::vector<U64>& different) {
  std::vector<KeyBytes> keys(kWalkRows);
  std::vector<ActionBytes> actions(kWalkRows);
  BfnDriver::WalkCursor cursor;
  while (!cursor.ended) {
    size_t rows = 0;
    Status const status =
        chip_.walk(*handle_, cursor, {keys[0].data(), kWalkRows * BfnChip::kKeyBytes},
                   {actions[0].data(), kWalkRows * BfnChip::kActionBytes}, rows);
    if (status != Status::Ok) return status;
    for (size_t i = 0; i < rows; ++i) {
      U64 const key = BfnChip::packed(keys[i]);
      Slot* const slot = wanted_.find(key);
      if (slot == nullptr) {
        extra.push_back(key);
        continue;
      }
      if (slot->action != BfnChip::packed(actions[i])) different.push_back(key);
      stateIs(*slot, State::Installed);
    }
  }
  return Status::Ok;
}

// The keys of the rows that were never asked of the chip, in the order in which they came.
std::vector<U64> ReconciledTable::collected() const {
  std::vector<Slot const*> slots;
  U64 first = ~U64{0};
  U64 last = 0;
  for (U64 place = 0; Slot const* const slot = wanted_.notBelow(place);) {
    if (stateOf(*slot) == State::Collected) {
      slots.push_back(slot);
      first = std::min(first, sequenceOf(*slot));
      last = std::max(last, sequenceOf(*slot));
    }
    if ((place = slot->mixedKey + 1) == 0) break;
  }
  // After a bring-up the numbers are dense: then each has its place, and nothing is sorted.
  if (!slots.empty() && last - first < 4 * slots.size()) {
    std::vector<Slot const*> byNumber(last - first + 1);
    for (Slot const* const slot : slots) byNumber[sequenceOf(*slot) - first] = slot;
    std::erase(byNumber, nullptr);
    slots.swap(byNumber);
  } else {
    std::ranges::sort(slots, {}, [](Slot const* slot) { return sequenceOf(*slot); });
  }
  std::vector<U64> keys;
  keys.reserve(slots.size());
  for (Slot const* const slot : slots) keys.push_back(BfnChip::RowTable::keyOf(*slot));
  return keys;
}

// --- Audit

U64 ReconciledTable::auditStarted() {
  audit_ = audit_ % kAuditMarks + 1;
  return audit_;
}

bool ReconciledTable::seen(U64 key, U64 action, U64 audit) {
  Slot* const slot = wanted_.find(key);
  if (slot == nullptr) return false;
  slot->word = (slot->word & ~(kAuditMarks << kAuditShift)) | audit << kAuditShift;
  if (slot->action != action) return false;
  if (isQueued(*slot)) dequeue(*slot);
  return true;
}

void ReconciledTable::dequeue(Slot& slot) {
  queue_.erase(sequenceOf(slot));
  stateIs(slot, State::Installed);
}

bool ReconciledTable::isSeen(Slot const& slot, U64 audit) {
  return (slot.word >> kAuditShift & kAuditMarks) == audit;
}

std::optional<Finding> ReconciledTable::compare(U64 key) const {
  if (!handle_) return std::nullopt;
  Slot const* const slot = wanted_.find(key);
  Finding finding;
  finding.key = BfnChip::unpacked(key);
  ActionBytes installed{};
  Status const status = chip_.readRow(*handle_, finding.key, installed);
  bool const there = status == Status::Ok;
  if (!there && status != Status::NotFound) return std::nullopt;
  // A row that waits for room is not missing; one that is there all the same is as any other.
  bool const due = slot != nullptr && (there || !isQueued(*slot));
  if (due) finding.wanted = BfnChip::unpacked(slot->action);
  if (there) finding.installed = installed;
  if (due == there && (!due || finding.wanted == finding.installed)) return std::nullopt;
  finding.kind = !there ? Finding::Kind::Missing
                 : !due ? Finding::Kind::Extra
                        : Finding::Kind::Different;
  return finding;
}

Applied ReconciledTable::repair(std::span<Finding const> findings) {
  Applied applied;
  if (held_ || !handle_) {
    applied.status = Status::NotFound;
    return applied;
  }
  flush();
  // All that may throw comes before anything changes.
  std::vector<Finding> wrong;
  std::vector<U64> erases;
  std::vector<U64> overwrites;
  std::vector<U64> inserts;
  for (Finding const& each : findings) {
    if (auto const now = compare(BfnChip::packed(each.key))) wrong.push_back(*now);
  }
  for (Finding const& each : wrong) {
    (each.kind == Finding::Kind::Extra       ? erases
     : each.kind == Finding::Kind::Different ? overwrites
                                             : inserts)
        .push_back(BfnChip::packed(each.key));
  }
  Batch batch(std::min(Batch::kMost, std::max<size_t>(wrong.size(), 1)));

  for (U64 const key : overwrites) {
    if (Slot& slot = *wanted_.find(key); isQueued(slot)) dequeue(slot);
  }
  for (U64 const key : inserts) {
    failures_.erase(key);
    stateIs(*wanted_.find(key), State::Collected);
  }
  applyErases(erases, batch, applied);
  applyWrites(overwrites, false, batch, applied);
  applyWrites(inserts, true, batch, applied);
  noteQueue();
  return applied;
}

}  // namespace Host
