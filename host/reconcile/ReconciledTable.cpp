#include "host/reconcile/ReconciledTable.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "framework/core/Fatal.h"

namespace Host {

namespace {

using BfnChip::ActionBytes;
using BfnChip::KeyBytes;
using BfnDriver::Change;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::WriteResult;
using Kiv::U64;

constexpr double kFirstPause = 1;
constexpr double kLongestPause = 60;
constexpr double kWarnAgain = 60;
constexpr std::size_t kWalkRows = 4096;
constexpr std::size_t kBatch = 1024;

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

// A batch of changes together with the bytes that they refer to.
class Batch {
 public:
  void write(U64 key, U64 action) { add(Change::Kind::Write, key, action); }
  void erase(U64 key) { add(Change::Kind::Erase, key, 0); }
  std::size_t size() const { return rows_.size(); }

  std::vector<Status> const& apply(BfnDriver::TableDriver& chip, BfnDriver::TableHandle table) {
    changes_.clear();
    for (Row const& row : rows_) changes_.push_back({row.kind, row.key, row.action});
    results_.assign(rows_.size(), Status::Error);
    chip.apply(table, changes_, results_);
    rows_.clear();
    return results_;
  }

 private:
  struct Row {
    Change::Kind kind;
    KeyBytes key;
    ActionBytes action;
  };
  void add(Change::Kind kind, U64 key, U64 action) {
    rows_.push_back({kind, BfnChip::unpacked(key), BfnChip::unpacked(action)});
  }

  std::vector<Row> rows_;
  std::vector<Change> changes_;
  std::vector<Status> results_;
};

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

void ReconciledTable::stateIs(Slot& slot, State state) const {
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
    if (status == Status::Error) error_ = chip_.lastError();
    return status;
  } catch (std::exception const& exception) {
    if (!options_.waiting) throw;
    error_ = exception.what();
  } catch (...) {
    if (!options_.waiting) throw;
  }
  return Status::Error;
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

void ReconciledTable::wrote(U64 key, Status status, std::string const& error) {
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
    fail(key, error);
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

void ReconciledTable::enqueue(Slot& slot, Status status) {
  if (queue_.empty()) room_.restart(clock_.now());
  queue_.emplace(sequenceOf(slot), BfnChip::RowTable::keyOf(slot));
  stateIs(slot, status == Status::NoSysResources ? State::QueuedForResources : State::Queued);
}

void ReconciledTable::fail(U64 key, std::string const& error) {
  if (failures_.empty()) retry_.restart(clock_.now());
  failures_[key] = error;
}

// --- Held

void ReconciledTable::hold() {
  if (!held_ && handle_) flush();
  held_ = true;
  wanted_ = {};
  queue_.clear();
  failures_.clear();
  pending_.clear();
  pendingIndex_ = {};
  pendingRows_ = 0;
  warned_ = 0;
}

Applied ReconciledTable::commit() {
  Applied applied;
  if (!held_) return applied;
  if (!handle_) {
    applied.status = Status::NotFound;
    return applied;
  }
  std::vector<U64> extra;
  std::vector<U64> different;
  std::vector<U64> equal;
  std::vector<KeyBytes> keys(kWalkRows);
  std::vector<ActionBytes> actions(kWalkRows);
  BfnDriver::WalkCursor cursor;
  while (!cursor.ended) {
    std::size_t rows = 0;
    applied.status = chip_.walk(*handle_, cursor, {keys[0].data(), kWalkRows * BfnChip::kKeyBytes},
                                {actions[0].data(), kWalkRows * BfnChip::kActionBytes}, rows);
    if (applied.status != Status::Ok) return applied;
    for (std::size_t i = 0; i < rows; ++i) {
      U64 const key = BfnChip::packed(keys[i]);
      Slot const* const slot = wanted_.find(key);
      std::vector<U64>& kind = slot == nullptr                               ? extra
                               : slot->action == BfnChip::packed(actions[i]) ? equal
                                                                             : different;
      kind.push_back(key);
    }
  }
  // Nothing fails from here on: the chip's refusals wait.
  for (U64 const key : equal) stateIs(*wanted_.find(key), State::Installed);
  for (U64 const key : different) stateIs(*wanted_.find(key), State::Installed);
  std::vector<std::pair<U64, U64>> missing;
  missing.reserve(wanted_.size() - std::min(wanted_.size(), equal.size() + different.size()));
  for (U64 place = 0; Slot const* const slot = wanted_.notBelow(place);) {
    if (stateOf(*slot) == State::Collected) {
      missing.emplace_back(sequenceOf(*slot), BfnChip::RowTable::keyOf(*slot));
    }
    place = slot->mixedKey + 1;
  }
  std::ranges::sort(missing);
  held_ = false;

  applyErases(extra, applied);
  applyWrites(different, false, applied);
  std::vector<U64> inserts;
  inserts.reserve(missing.size());
  for (auto const& [sequence, key] : missing) inserts.push_back(key);
  applyWrites(inserts, true, applied);
  noteQueue();
  return applied;
}

void ReconciledTable::applyErases(std::span<U64 const> keys, Applied& applied) {
  Batch batch;
  for (std::size_t from = 0; from < keys.size(); from += kBatch) {
    auto const part = keys.subspan(from, std::min(kBatch, keys.size() - from));
    for (U64 const key : part) batch.erase(key);
    std::vector<Status> const& results = batch.apply(chip_, *handle_);
    for (std::size_t i = 0; i < part.size(); ++i) {
      if (results[i] == Status::Ok || results[i] == Status::NotFound) {
        failures_.erase(part[i]);
        if (results[i] == Status::Ok) ++applied.erased;
      } else {
        fail(part[i], chip_.lastError());
        ++applied.waiting;
      }
    }
  }
}

void ReconciledTable::applyWrites(std::span<U64 const> keys, bool inserts, Applied& applied) {
  Batch batch;
  std::size_t from = 0;
  while (from < keys.size()) {
    // Only as many new rows are tried as there is room for, and none past those that wait.
    std::size_t count = std::min(kBatch, keys.size() - from);
    if (inserts) {
      Fill const at = fill();
      std::size_t const room = at.capacity - std::min(at.capacity, at.rows);
      count = queue_.empty() ? std::min(count, room) : 0;
    }
    if (count == 0) break;
    auto const part = keys.subspan(from, count);
    for (U64 const key : part) batch.write(key, wanted_.find(key)->action);
    std::vector<Status> const& results = batch.apply(chip_, *handle_);
    for (std::size_t i = 0; i < part.size(); ++i) {
      wrote(part[i], results[i], results[i] == Status::Error ? chip_.lastError() : std::string());
      ++(results[i] != Status::Ok ? applied.waiting
         : inserts                ? applied.inserted
                                  : applied.overwritten);
    }
    from += count;
  }
  Status const why =
      !queue_.empty() && stateOf(*wanted_.find(queue_.begin()->second)) == State::QueuedForResources
          ? Status::NoSysResources
          : Status::TableFull;
  for (; from < keys.size(); ++from, ++applied.waiting) enqueue(*wanted_.find(keys[from]), why);
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
      enqueue(*slot, stateOf(*wanted_.find(queue_.begin()->second)) == State::QueuedForResources
                         ? Status::NoSysResources
                         : Status::TableFull);
      admit();
      noteQueue();
      return WriteResult::Ok;
    }
  }
  Status status = Status::Error;
  try {
    status = chipWrite(key, action);
  } catch (...) {
    if (isNew) wanted_.erase(key);
    throw;
  }
  if (!options_.waiting && status != Status::Ok) {
    if (isNew) wanted_.erase(key);
    return writeResultOf(status);
  }
  if (!isNew) {
    if (Slot* const there = wanted_.find(key)) there->action = action;
  }
  wrote(key, status, error_);
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
    fail(key, error_);
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
  bool const held = held_;
  held_ = true;
  hold();
  held_ = held;
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
  applyErases(erases, applied);
  applyWrites(overwrites, false, applied);
  if (!queue_.empty()) admit();
  applyWrites(inserts, true, applied);
}

void ReconciledTable::flush() {
  if (held_ || !handle_) return;
  makePending();
  if (!queue_.empty()) admit();
  if (!failures_.empty() && clock_.now() >= retry_.due) retryFailures();
  noteQueue();
}

std::optional<double> ReconciledTable::nextRetry() const {
  if (held_) return std::nullopt;
  std::optional<double> next;
  if (!queue_.empty()) next = room_.due;
  if (!failures_.empty()) next = next ? std::min(*next, retry_.due) : retry_.due;
  return next;
}

std::size_t ReconciledTable::entryCount() const {
  if (!handle_) return 0;
  auto const count = static_cast<std::ptrdiff_t>(chip_.entryCount(*handle_)) + pendingRows_;
  return static_cast<std::size_t>(std::max<std::ptrdiff_t>(count, 0));
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
    queue_.erase(sequence);
    stateIs(*slot, State::Collected);
    wrote(key, status, error_);
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
  std::size_t const before = failures_.size();
  for (U64 const key : erases) failures_.erase(key);
  Applied applied;
  applyErases(erases, applied);
  applyWrites(writes, false, applied);
  if (failures_.size() < before) {
    retry_.restart(clock_.now());
  } else {
    retry_.grow(clock_.now());
  }
}

std::vector<WaitingChange> ReconciledTable::waiting() const {
  std::vector<WaitingChange> waiting;
  waiting.reserve(queue_.size() + failures_.size());
  for (auto const& [sequence, key] : queue_) {
    Slot const& slot = *wanted_.find(key);
    waiting.push_back(
        {BfnChip::unpacked(key),
         BfnChip::unpacked(slot.action),
         false,
         stateOf(slot) == State::Queued ? WaitReason::TableFull : WaitReason::NoSysResources,
         {}});
  }
  for (auto const& [key, error] : failures_) {
    Slot const* const slot = wanted_.find(key);
    waiting.push_back({BfnChip::unpacked(key),
                       slot == nullptr ? ActionBytes{} : BfnChip::unpacked(slot->action),
                       slot == nullptr, WaitReason::Failed, error});
  }
  return waiting;
}

void ReconciledTable::noteQueue() {
  std::size_t const rows = queue_.size();
  if (rows == 0 && warned_ == 0) return;
  bool const news =
      rows == 0 || warned_ == 0 || rows >= 2 * warned_ || clock_.now() - warnedAt_ >= kWarnAgain;
  if (!news) return;
  warned_ = rows;
  warnedAt_ = clock_.now();
  if (warn_) warn_(rows);
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
  std::vector<U64> erases;
  std::vector<U64> overwrites;
  std::vector<U64> inserts;
  for (Finding const& each : findings) {
    U64 const key = BfnChip::packed(each.key);
    std::optional<Finding> const now = compare(key);
    if (!now) continue;
    switch (now->kind) {
      case Finding::Kind::Extra:
        erases.push_back(key);
        break;
      case Finding::Kind::Different:
        if (Slot& slot = *wanted_.find(key); isQueued(slot)) dequeue(slot);
        overwrites.push_back(key);
        break;
      case Finding::Kind::Missing:
        failures_.erase(key);
        stateIs(*wanted_.find(key), State::Collected);
        inserts.push_back(key);
        break;
    }
  }
  applyErases(erases, applied);
  applyWrites(overwrites, false, applied);
  applyWrites(inserts, true, applied);
  noteQueue();
  return applied;
}

}  // namespace Host
