// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "chip/RowTable.h"
#include "framework/core/Clock.h"
#include "framework/core/Ptr.h"
#include "framework/driver/TableDriver.h"

namespace Host {

class Batch;

/// Why a row is not in the chip as it is wanted.
enum class WaitReason : Kiv::U8 {
  TableFull,       ///< the table has no room for it
  NoSysResources,  ///< the system lacks what it needs
  Failed,          ///< its write or its removal failed, for any other reason
};

/// Short words for people: "table full", "no resources", "failed".
std::string_view text(WaitReason reason);

/// One change that waits until the chip can make it.
struct WaitingChange {
  BfnChip::KeyBytes key{};
  /// The wanted action; zero for a removal.
  BfnChip::ActionBytes action{};
  bool removal = false;
  WaitReason reason = WaitReason::TableFull;
  /// What the chip's driver said of a failure; empty when it said nothing.
  std::string error;
};

/// How a chip's row differs from what is wanted.
struct Finding {
  enum class Kind : Kiv::U8 { Missing, Extra, Different };

  Kind kind = Kind::Missing;
  BfnChip::KeyBytes key{};
  /// Zero where there is none.
  BfnChip::ActionBytes wanted{};
  BfnChip::ActionBytes installed{};

  friend bool operator==(Finding const&, Finding const&) = default;
};

/// The result of a commit or a repair.
struct Applied {
  /// Ok, or why nothing was done: the chip could not be read, or its driver has no walk.
  BfnDriver::Status status = BfnDriver::Status::Ok;
  size_t inserted = 0;
  size_t overwritten = 0;
  size_t erased = 0;
  /// Changes that were tried or due and wait.
  size_t waiting = 0;
};

/// One table: the rows that are wanted, and what has to happen until the chip holds them.
///
/// Held, it collects. Running, a change goes to the chip at once or, with turns on, at the end of
/// the turn. A change that the chip refuses waits: new rows for room, in the order in which they
/// came; everything else until its retry. See Reconciler, whose part this is.
///
/// Costs 36 bytes a row that is installed; a row that waits about 100 more.
///
/// Errors: with waiting on, only reading calls let an exception of the chip's driver out. Without
/// memory for a new row or for a batch, std::bad_alloc leaves everything as it was. Without memory
/// for a change that is to wait, nothing is thrown: the table is held until a later flush(), which
/// walks the chip and applies the difference.
class ReconciledTable {
 public:
  struct Options {
    /// Whether the chip's refusals are held back from the caller; see Reconciler::waitingIs().
    bool waiting = true;
    /// Whether changes are made at the end of a turn.
    bool turns = false;
  };
  /// Called with the number of rows that wait for room when it is to be reported.
  using Warn = std::function<void(size_t)>;

  /// Chip, clock and options must outlive it.
  ReconciledTable(BfnDriver::TableDriver& chip, Kiv::Clock const& clock, Options const& options,
                  Warn warn);

  /// The handle for calls to the chip; none while the table is not open.
  void handleIs(std::optional<BfnDriver::TableHandle> handle) { handle_ = handle; }
  std::optional<BfnDriver::TableHandle> handle() const { return handle_; }

  bool held() const { return held_; }
  /// Collects from now on, and forgets what was wanted. Changes of the current turn are made first.
  void hold();
  /// Brings the chip to what is wanted, and runs from then on. Extra rows go first; rows that are
  /// there and wanted stay, before new ones get room. Anything but Ok, or an exception: still held,
  /// nothing changed.
  Applied commit();

  BfnDriver::WriteResult write(Kiv::U64 key, Kiv::U64 action);
  BfnDriver::EraseResult erase(Kiv::U64 key);
  /// Removes all rows, the wanted and the chip's.
  BfnDriver::Status clear();

  /// Ends a turn: makes the changes that are pending, lets in what waits when there is room, and
  /// retries what is due.
  void flush();
  /// When flush() has something to retry, by the clock.
  std::optional<double> nextRetry() const;

  /// The chip's count, and what pending changes will make of it.
  size_t entryCount() const;
  size_t wanted() const { return wanted_.size(); }
  /// Rows that wait for room.
  size_t waitingForRoom() const { return queue_.size(); }
  /// Rows whose write or removal failed.
  size_t failed() const { return failures_.size(); }
  /// Those that wait for room in their order, then the failed ones.
  std::vector<WaitingChange> waiting() const;
  /// The one of that key; nothing when it does not wait.
  std::optional<WaitingChange> waiting(Kiv::U64 key) const;

  // For an audit.

  BfnDriver::TableDriver const& chip() const { return chip_; }

  BfnChip::RowTable const& wantedRows() const { return wanted_; }
  /// Whether the row is to be in the chip by now: not pending, and not waiting for room.
  static bool isDue(BfnChip::RowTable::Slot const& slot);
  /// Marks of the audit of that number, 1 to kAuditMarks; a row that comes later has the mark of
  /// the newest audit.
  static constexpr Kiv::U64 kAuditMarks = 255;
  Kiv::U64 auditStarted();
  /// The audit met the key in the chip, with that action. A row that waits for room and was written
  /// by another program as it is wanted waits no longer. False when the row looks wrong.
  bool seen(Kiv::U64 key, Kiv::U64 action, Kiv::U64 audit);
  static bool isSeen(BfnChip::RowTable::Slot const& slot, Kiv::U64 audit);
  /// What is wrong with the key now, by the chip and by what is wanted. Throws what the chip's
  /// driver throws.
  std::optional<Finding> compare(Kiv::U64 key) const;
  /// Makes the changes that bring these keys to what is wanted.
  Applied repair(std::span<Finding const> findings);

 private:
  enum class State : Kiv::U8 {
    Collected,  ///< wanted, and not asked of the chip yet
    Installed,
    Queued,              ///< waits for room: the table is full
    QueuedForResources,  ///< waits for room: the system lacks resources
    Failing,             ///< its write failed; in failures_
  };
  /// What the chip has of a key whose changes are pending.
  struct Pending {
    Kiv::U64 key;
    /// The chip's action, when it is known that the row is there with that one.
    std::optional<Kiv::U64> action;
    bool there;
  };
  struct Pause {
    double due = 0;
    double length = 0;
    void restart(double now);
    void grow(double now);
  };
  using Slot = BfnChip::RowTable::Slot;

  static State stateOf(Slot const& slot) { return static_cast<State>(slot.word & 7); }
  static Kiv::U64 sequenceOf(Slot const& slot) { return slot.word >> kSequenceShift; }
  static void stateIs(Slot& slot, State state);
  void allCollected();
  static bool isQueued(Slot const& slot);
  Slot& insertWanted(Kiv::U64 key, Kiv::U64 action);

  /// One call of the chip; what it said of a failure is in error_.
  BfnDriver::Status chipWrite(Kiv::U64 key, Kiv::U64 action);
  BfnDriver::Status chipErase(Kiv::U64 key);
  template <class Call>
  BfnDriver::Status chipCall(Call const& call);
  void errorIs(char const* text) noexcept;
  BfnDriver::WriteResult writeNow(Kiv::U64 key, Kiv::U64 action);
  BfnDriver::EraseResult eraseNow(Kiv::U64 key);
  void pend(Kiv::U64 key, bool there, std::optional<Kiv::U64> action);
  void makePending();

  BfnDriver::Status compareAll(std::vector<Kiv::U64>& extra, std::vector<Kiv::U64>& different);
  std::vector<Kiv::U64> collected() const;

  /// The result of a new row's write, or of an overwrite: installs, queues or fails it. The reason
  /// of a failure is in error_.
  void wrote(Kiv::U64 key, BfnDriver::Status status);
  void enqueue(Slot& slot, BfnDriver::Status status) noexcept;
  void dequeue(Slot& slot);
  void fail(Kiv::U64 key) noexcept;
  /// Why the first row that waits for room does, and so those after it.
  BfnDriver::Status whyQueued() const;
  /// There is no memory to remember what waits: holds what is wanted, until flush() compares it
  /// with the chip again.
  void lose() noexcept;
  void forgetChanges() noexcept;
  /// Whether the chip has the row, which a failed write leaves open. No answer: not there.
  bool isThere(Kiv::U64 key) const;
  void admit();
  void retryFailures();
  void noteQueue();
  /// Makes changes of one kind after the other, in few calls, and takes their results in.
  void applyErases(std::span<Kiv::U64 const> keys, Batch& batch, Applied& applied);
  void applyWrites(std::span<Kiv::U64 const> keys, bool inserts, Batch& batch, Applied& applied);

  static constexpr unsigned kAuditShift = 3;
  static constexpr unsigned kSequenceShift = 11;

  BfnDriver::TableDriver& chip_;
  Kiv::Clock const& clock_;
  Options const& options_;
  Warn warn_;
  std::optional<BfnDriver::TableHandle> handle_;
  bool held_ = true;
  /// Held for lack of memory only.
  bool lost_ = false;
  BfnChip::RowTable wanted_;
  Kiv::U64 sequence_ = 0;
  Kiv::U64 audit_ = 0;
  std::map<Kiv::U64, Kiv::U64> queue_;        // sequence to key
  std::map<Kiv::U64, std::string> failures_;  // key to what the driver said
  Pause room_;
  Pause retry_;
  /// How full the table was when it last refused a row; until that changes, or room_ is due, it is
  /// not asked again.
  struct Fill {
    size_t rows = 0;
    size_t capacity = 0;
    friend bool operator==(Fill const&, Fill const&) = default;
  };
  Fill fill() const;
  size_t insertable() const;
  std::optional<Fill> refusedAt_;
  std::string error_;
  std::vector<Pending> pending_;
  BfnChip::RowTable pendingIndex_;  // key to its place in pending_
  std::ptrdiff_t pendingRows_ = 0;  // by how many rows pending changes will change the count
  size_t warned_ = 0;
  double warnedAt_ = 0;
};

}  // namespace Host
