// SPDX-License-Identifier: Apache-2.0
#include "kernel/KernelTable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <linux/bpf.h>
#include <new>
#include <numeric>
#include <system_error>

#include "framework/collections/HashTable.h"
#include "framework/core/Fatal.h"
#include "framework/core/Hash.h"
#include "kernel/RowCopy.h"

namespace BfnKernel {

using BfnDriver::ByteView;
using BfnDriver::Change;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::TableHandle;
using BfnDriver::WalkCursor;
using BfnDriver::WriteResult;
using Kiv::U32;
using Kiv::U64;
using Kiv::U8;

namespace {

/// Keys and actions as in the map, byte for byte.
using Word = U64;

struct KeyTraits {
  using Slot = Word;
  using Key = Word;
  static Key key(Slot slot) { return slot; }
  static U32 hash(U32 seed, Key key) { return Kiv::Hash(seed).hashMix(key).result(); }
};
using KeySet = Kiv::HashTable<KeyTraits>;

constexpr U32 kSeed = 0x6b657973;
// Rows that one system call copies.
constexpr size_t kBatch = 1'024;
// A table is copied after so many announced rows of a turn, or this share of the table's.
constexpr size_t kLeastHints = 256;
constexpr size_t kFirstShare = 32;
constexpr size_t kCopyBatch = 4'096;

Word wordOf(ByteView bytes) {
  Word word = 0;
  std::memcpy(&word, bytes.data(), sizeof word);
  return word;
}

bool isKey(ByteView bytes) {
  return bytes.size() == KernelTable::kKeyBytes;
}

bool isAction(ByteView bytes) {
  return bytes.size() == KernelTable::kActionBytes;
}

Status statusOf(int error) {
  switch (error) {
    case 0:
      return Status::Ok;
    case ENOENT:
      return Status::NotFound;
    case E2BIG:
      return Status::TableFull;
    case ENOMEM:
      return Status::NoSysResources;
    default:
      return Status::Error;
  }
}

}  // namespace

// One device's table: the maps, and the keys that they have as far as this process knows. Calls
// give the kernel's errno.
class KernelTable::Table {
 public:
  Table(U8 device, KernelProgram& program) : device_(device), program_(program) { recount(); }

  U8 device() const { return device_; }
  KernelProgram& program() const { return program_; }
  size_t size() const { return keys_.size(); }
  size_t capacity() const { return exists() ? program_.rows().shape().entries : 0; }

  int write(Word key, Word action);
  int erase(Word key);
  int read(Word key, Word& action);
  void hint(Word key);
  void turnEnded();
  int clear();
  /// Memory for that many rows more.
  void reserve(size_t rows) { keys_.reserve(keys_.size() + rows); }
  int walk(WalkCursor& cursor, std::span<U8> keys, std::span<U8> actions, size_t& rows);
  int hits(Word key, U64& hits) const;
  int hitsClear();

  /// Store the rows, remove the keys, in order; `report` gets the place of each and its errno.
  using Report = std::function<void(size_t place, int error)>;
  void writeMany(std::span<Word const> keys, std::span<Word const> actions, Report const& report);
  void eraseMany(std::span<Word const> keys, Report const& report);

 private:
  bool exists() const { return program_.exists(); }
  void changed() {
    ++changes_;
    dropCopy();
  }
  void dropCopy();
  void makeCopy();
  void keep(Word key) noexcept;
  int recount();
  static int removeAll(BpfMap const& map, size_t valueBytes);
  void hitsErase(std::span<Word const> keys);

  U8 const device_;
  KernelProgram& program_;
  KeySet keys_{kSeed};
  /// Of this process.
  U32 changes_ = 0;
  RowCopy copy_;
  /// Whether the host ends its turns.
  bool turns_ = false;
  size_t hints_ = 0;  // in this turn
  size_t share_ = kFirstShare;
};

int KernelTable::Table::read(Word key, Word& action) {
  if (auto const copied = copy_.take(key)) {
    action = *copied;
    return 0;
  }
  return exists() ? program_.rows().lookup(&key, &action) : ENOENT;
}

void KernelTable::Table::hint(Word key) {
  if (copy_.empty()) {
    if (!turns_ || share_ == 0) return;
    if (++hints_ < std::max(kLeastHints, size() / share_)) return;
    hints_ = 0;
    makeCopy();
    if (copy_.empty()) return;
  }
  copy_.hint(key);
}

void KernelTable::Table::turnEnded() {
  turns_ = true;
  hints_ = 0;
  dropCopy();
}

// A copy that too few rows were read from was not worth its walk: the next one comes later, as for
// a reader whose turns are short.
void KernelTable::Table::dropCopy() {
  if (copy_.empty()) return;
  share_ = copy_.taken() < size() / 4 ? share_ / 2 : kFirstShare;
  copy_.clear();
}

// Without the memory or in any case of failure there is none, and each row is asked for.
void KernelTable::Table::makeCopy() {
  try {
    std::vector<Word> keys(kCopyBatch);
    std::vector<Word> actions(kCopyBatch);
    copy_.roomIs(size() + kCopyBatch);
    BpfMap::Cursor cursor;
    while (!cursor.ended) {
      size_t count = 0;
      int const error =
          program_.rows().walk(cursor, keys.data(), actions.data(), kCopyBatch, count);
      if (error == 0 && copy_.add({keys.data(), count}, {actions.data(), count})) continue;
      copy_.clear();
      return;
    }
  } catch (std::bad_alloc const&) {
    copy_.clear();
  }
}

// Whether the row is new is known from the keys, and the kernel reports when that is wrong because
// another program has written the map. The key is kept first, since that needs memory.
int KernelTable::Table::write(Word key, Word action) {
  if (!exists()) return E2BIG;
  bool present = false;
  try {
    present = !keys_.insert(key).second;
  } catch (std::bad_alloc const&) {
    return ENOMEM;
  }
  changed();
  for (int attempt = 0; attempt < 3; ++attempt) {
    int const error = program_.rows().update(&key, &action, present ? BPF_EXIST : BPF_NOEXIST);
    if (error == 0) return 0;
    if (error != EEXIST && error != ENOENT) {
      if (!present) keys_.erase(key);
      return error;
    }
    present = error == EEXIST;
  }
  if (!present) keys_.erase(key);
  return EAGAIN;
}

int KernelTable::Table::erase(Word key) {
  if (!exists()) return ENOENT;
  changed();
  int const error = program_.rows().erase(&key);
  if (error != 0 && error != ENOENT) return error;
  keys_.erase(key);
  if (error == 0) hitsErase({&key, 1});
  return error;
}

// Room for it has been reserved. Where it needs memory all the same and there is none, it is
// missing until the next walk from end to end.
void KernelTable::Table::keep(Word key) noexcept {
  try {
    keys_.insert(key);
  } catch (...) {
  }
}

void KernelTable::Table::writeMany(std::span<Word const> keys, std::span<Word const> actions,
                                   Report const& report) {
  size_t at = 0;
  while (at < keys.size()) {
    size_t done = 0;
    if (exists()) {
      program_.rows().updateMany(&keys[at], &actions[at], keys.size() - at, done);
      changed();
    }
    for (size_t const end = at + done; at < end; ++at) {
      keep(keys[at]);
      report(at, 0);
    }
    // The one that the kernel stopped at, by itself: so its error is its own.
    if (at < keys.size()) {
      report(at, write(keys[at], actions[at]));
      ++at;
    }
  }
}

void KernelTable::Table::eraseMany(std::span<Word const> keys, Report const& report) {
  size_t at = 0;
  while (at < keys.size()) {
    size_t done = 0;
    if (exists()) {
      program_.rows().eraseMany(&keys[at], keys.size() - at, done);
      changed();
    }
    hitsErase(keys.subspan(at, done));
    for (size_t const end = at + done; at < end; ++at) {
      keys_.erase(keys[at]);
      report(at, 0);
    }
    if (at < keys.size()) {
      report(at, erase(keys[at]));
      ++at;
    }
  }
}

// Most rows may never have been hit: those are passed over.
void KernelTable::Table::hitsErase(std::span<Word const> keys) {
  while (!keys.empty()) {
    size_t done = 0;
    if (keys.size() == 1) {
      program_.hits().erase(keys.data());
    } else {
      program_.hits().eraseMany(keys.data(), keys.size(), done);
    }
    keys = keys.subspan(std::min(done + 1, keys.size()));
  }
}

// By batches of bounded size, each removed in the call that finds it.
int KernelTable::Table::removeAll(BpfMap const& map, size_t valueBytes) {
  std::vector<Word> keys(kBatch);
  std::vector<U8> values(kBatch * valueBytes);
  BpfMap::Cursor cursor;
  while (!cursor.ended) {
    size_t count = 0;
    if (int const error = map.take(cursor, keys.data(), values.data(), kBatch, count)) return error;
  }
  return 0;
}

int KernelTable::Table::clear() {
  if (!exists()) return 0;
  changed();
  int const error = removeAll(program_.rows(), sizeof(Word));
  if (error != 0) {
    recount();
    return error;
  }
  keys_.clear();
  return hitsClear();
}

int KernelTable::Table::hitsClear() {
  if (!exists()) return 0;
  return removeAll(program_.hits(), sizeof(U64) * possibleCpus());
}

int KernelTable::Table::hits(Word key, U64& hits) const {
  if (!exists()) return ENOENT;
  Word action = 0;
  if (int const error = program_.rows().lookup(&key, &action); error != 0) return error;
  std::vector<U64> byCpu(possibleCpus());
  int const error = program_.hits().lookup(&key, byCpu.data());
  if (error != 0 && error != ENOENT) return error;
  hits = std::accumulate(byCpu.begin(), byCpu.end(), U64{0});
  return 0;
}

int KernelTable::Table::recount() {
  if (!exists()) return 0;
  std::vector<Word> keys(kBatch);
  std::vector<Word> actions(kBatch);
  KeySet found(kSeed);
  BpfMap::Cursor cursor;
  while (!cursor.ended) {
    size_t count = 0;
    int const error = program_.rows().walk(cursor, keys.data(), actions.data(), kBatch, count);
    if (error != 0) return error;
    for (Word const key : std::span(keys.data(), count)) found.insert(key);
  }
  keys_.swap(found);
  return 0;
}

// A cursor's place: the bucket, one up so that 0 is a new walk; and the rows so far with the
// number of changes at the walk's start.
int KernelTable::Table::walk(WalkCursor& cursor, std::span<U8> keys, std::span<U8> actions,
                             size_t& rows) {
  BpfMap::Cursor place;
  place.started = cursor.place[0] != 0;
  place.bucket = place.started ? static_cast<U32>(cursor.place[0] - 1) : 0;
  place.ended = cursor.ended || !exists();
  U32 const changesAtStart = place.started ? static_cast<U32>(cursor.place[1] >> 32) : changes_;
  size_t const room = std::min(keys.size() / kKeyBytes, actions.size() / kActionBytes);
  size_t count = 0;
  if (!place.ended) {
    if (int const error = program_.rows().walk(place, keys.data(), actions.data(), room, count)) {
      return error;
    }
  }
  U64 const seen = (cursor.place[1] & 0xffffffff) + count;
  cursor.place = {U64{place.bucket} + 1, U64{changesAtStart} << 32 | seen};
  cursor.ended = place.ended;
  rows = count;
  if (cursor.ended && changesAtStart == changes_ && seen != size()) {
    try {
      recount();
    } catch (std::bad_alloc const&) {  // another walk will do it
    }
  }
  return 0;
}

KernelTable::KernelTable() = default;
KernelTable::KernelTable(KernelProgram& program) {
  deviceIs(0, program);
}
KernelTable::~KernelTable() = default;

void KernelTable::deviceIs(U8 device, KernelProgram& program) {
  tables_.push_back(std::make_unique<Table>(device, program));
}

std::optional<TableHandle> KernelTable::open(BfnDriver::TableAddress const& address) {
  if (address.table != kRewriteTable) return std::nullopt;
  if (std::ranges::none_of(tables_, [&](auto const& t) { return t->device() == address.device; })) {
    return std::nullopt;
  }
  Opened const wanted{address.session, address.device, address.pipe, std::string(address.profile)};
  auto const same = std::ranges::find(opened_, wanted);
  auto const number = static_cast<U32>(same - opened_.begin());
  if (same == opened_.end()) opened_.push_back(wanted);
  return TableHandle{number};
}

void KernelTable::closeSession(U32 session) {
  for (Opened& opened : opened_) {
    if (opened.session == session) opened.closed = true;
  }
}

KernelTable::Table* KernelTable::tableOf(TableHandle handle) const {
  auto const number = static_cast<size_t>(handle);
  if (number >= opened_.size() || opened_[number].closed) return nullptr;
  auto const table = std::ranges::find(tables_, opened_[number].device, &Table::device);
  return table == tables_.end() ? nullptr : table->get();
}

// What the kernel's errno means; the text is kept when it is an error.
Status KernelTable::reported(int error) const {
  Status const status = statusOf(error);
  if (status == Status::Error) {
    try {
      lastErrorIs(("the kernel's table: " + std::generic_category().message(error)).c_str());
    } catch (std::bad_alloc const&) {
      lastErrorIs("the kernel's table");
    }
  }
  return status;
}

Status KernelTable::refused() const {
  lastErrorIs("unknown handle, or a key or an action of the wrong width");
  return Status::Error;
}

WriteResult KernelTable::write(TableHandle handle, ByteView key, ByteView action) {
  Table* const table = tableOf(handle);
  bool const valid = table != nullptr && isKey(key) && isAction(action);
  return BfnDriver::writeResultOf(valid ? reported(table->write(wordOf(key), wordOf(action)))
                                        : refused());
}

EraseResult KernelTable::erase(TableHandle handle, ByteView key) {
  Table* const table = tableOf(handle);
  bool const valid = table != nullptr && isKey(key);
  return BfnDriver::eraseResultOf(valid ? reported(table->erase(wordOf(key))) : refused());
}

// Runs of writes and of erases, each run in as few system calls as the kernel lets it.
void KernelTable::apply(TableHandle handle, std::span<Change const> changes,
                        std::span<Status> results) {
  KIV_CHECK(changes.size() == results.size(), "changes: ", changes.size(),
            ", results: ", results.size());
  Table* const table = tableOf(handle);
  auto const valid = [table](Change const& change) {
    return table != nullptr && isKey(change.key) &&
           (change.kind == Change::Kind::Erase || isAction(change.action));
  };
  std::vector<Word> keys;
  std::vector<Word> actions;
  try {
    keys.reserve(changes.size());
    actions.reserve(changes.size());
    if (table != nullptr) table->reserve(changes.size());
  } catch (std::bad_alloc const&) {
    TableDriver::apply(handle, changes, results);
    return;
  }
  size_t at = 0;
  while (at < changes.size()) {
    if (!valid(changes[at])) {
      results[at++] = refused();
      continue;
    }
    Change::Kind const kind = changes[at].kind;
    size_t const first = at;
    keys.clear();
    actions.clear();
    for (; at < changes.size() && changes[at].kind == kind && valid(changes[at]); ++at) {
      keys.push_back(wordOf(changes[at].key));
      if (kind == Change::Kind::Write) actions.push_back(wordOf(changes[at].action));
    }
    auto const report = [&](size_t place, int error) { results[first + place] = reported(error); };
    if (kind == Change::Kind::Write) {
      table->writeMany(keys, actions, std::ref(report));
    } else {
      table->eraseMany(keys, std::ref(report));
    }
  }
}

Status KernelTable::clear(TableHandle handle) {
  Table* const table = tableOf(handle);
  return table == nullptr ? refused() : reported(table->clear());
}

Status KernelTable::readRow(TableHandle handle, ByteView key, std::span<U8> action) const {
  Table* const table = tableOf(handle);
  if (table == nullptr || !isKey(key) || !isAction(action)) return refused();
  Word found = 0;
  Status const status = reported(table->read(wordOf(key), found));
  if (status == Status::Ok) std::memcpy(action.data(), &found, sizeof found);
  return status;
}

void KernelTable::prefetch(TableHandle handle, ByteView key) const {
  Table* const table = tableOf(handle);
  if (table != nullptr && isKey(key)) table->hint(wordOf(key));
}

void KernelTable::turnEnded() {
  for (auto const& table : tables_) table->turnEnded();
}

bool KernelTable::read(TableHandle handle, ByteView key, std::span<U8> action) const {
  return readRow(handle, key, action) == Status::Ok;
}

Status KernelTable::walk(TableHandle handle, WalkCursor& cursor, std::span<U8> keys,
                         std::span<U8> actions, size_t& rows) const {
  Table* const table = tableOf(handle);
  return table == nullptr ? refused() : reported(table->walk(cursor, keys, actions, rows));
}

size_t KernelTable::entryCount(TableHandle handle) const {
  Table const* const table = tableOf(handle);
  return table == nullptr ? 0 : table->size();
}

size_t KernelTable::capacity(TableHandle handle) const {
  Table const* const table = tableOf(handle);
  return table == nullptr ? 0 : table->capacity();
}

Status KernelTable::rowHits(TableHandle handle, ByteView key, U64& hits) const {
  Table const* const table = tableOf(handle);
  if (table == nullptr || !isKey(key)) return refused();
  return reported(table->hits(wordOf(key), hits));
}

Status KernelTable::tableHits(TableHandle handle, BfnDriver::TableHits& hits) const {
  Table const* const table = tableOf(handle);
  if (table == nullptr) return refused();
  FrameCounters const counters = table->program().counters();
  hits = {counters.matched(), counters.notMatched()};
  return Status::Ok;
}

Status KernelTable::tableHitsClear(TableHandle handle) {
  Table* const table = tableOf(handle);
  if (table == nullptr) return refused();
  table->program().countersClear();
  return reported(table->hitsClear());
}

}  // namespace BfnKernel
