// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "framework/core/Types.h"
#include "framework/driver/BfnPipeId.h"

namespace BfnDriver {

/// Bytes of a key or an action, exactly as the chip stores them.
using ByteView = std::span<Kiv::U8 const>;

/// The result of one write.
enum class WriteResult : Kiv::U8 {
  Ok,
  TableFull,       ///< the table has no free slot for a new key
  NoSysResources,  ///< the system lacks what a new row needs beside its slot
  Error,           ///< anything else: unknown handle, key or action of the wrong width
};

/// The result of one erase.
enum class EraseResult : Kiv::U8 { Ok, NotFound, Error };

/// The result of any other call, or of one change among several.
enum class Status : Kiv::U8 {
  Ok,
  NotFound,        ///< there is no such row
  TableFull,       ///< see WriteResult
  NoSysResources,  ///< see WriteResult
  NotSupported,    ///< this driver cannot, or its chip does not count
  Error,           ///< anything else: unknown handle, wrong width, failure of the transport
};

Status statusOf(WriteResult result);
Status statusOf(EraseResult result);
/// The other way; what the narrower result has no word for is its Error.
WriteResult writeResultOf(Status status);
EraseResult eraseResultOf(Status status);

/// Names one table as one session sees it. Given out by TableDriver::open, valid until its session
/// is closed.
enum class TableHandle : Kiv::U32 {};

/// What a caller says about itself and the table when it opens it. Device and table name identify
/// the table; session, pipe and profile only the caller.
struct TableAddress {
  Kiv::U32 session = 0;
  /// Which of the session's chips.
  Kiv::U8 device = 0;
  BfnId::BfnPipeId pipe;
  std::string_view profile;
  std::string_view table;
};

/// One of several changes that are made in one call.
struct Change {
  enum class Kind : Kiv::U8 { Write, Erase };

  Kind kind = Kind::Write;
  ByteView key;
  /// Of a write only.
  ByteView action;
};

/// Where a walk continues; a new one begins at the first row. The meaning of `place` is the
/// driver's. A cursor may be copied, stored and dropped at any time.
struct WalkCursor {
  std::array<Kiv::U64, 2> place{};
  /// The last batch has been given.
  bool ended = false;
};

/// How many packets were looked up in a table.
struct TableHits {
  Kiv::U64 matched = 0;
  Kiv::U64 notMatched = 0;

  friend bool operator==(TableHits const&, TableHits const&) = default;
};

/// The interface that the opaque handle (`Kiv::VoidPtr`), which the platform passes to table
/// bindings, refers to. It moves bytes: what a key or an action means is known to the binding above
/// and to the chip below. docs/driver.md says how to write one.
///
/// Lifetime: the driver is owned by the host and outlives every binding that was given its handle.
/// Threads: all calls come from the host's one event thread.
/// Errors: no call mistakes a failure for an absent row or an empty table. A call that answers
/// Error may say more in lastError(). Any call but apply() may also throw what the transport below
/// throws, except entryCount, capacity, prefetch and lastError, which neither throw nor fail. A
/// call that failed or threw has changed nothing.
///
/// A driver must override what is pure. The rest has defaults: apply() loops, readRow() asks
/// read(), and what the driver has nothing for is NotSupported.
class TableDriver {
 public:
  TableDriver() = default;
  TableDriver(TableDriver const&) = delete;
  TableDriver& operator=(TableDriver const&) = delete;
  virtual ~TableDriver();

  /// Converts this driver to its opaque handle and back. Only a handle made here may be converted
  /// back.
  Kiv::VoidPtr opaque() { return this; }
  static TableDriver* fromOpaque(Kiv::VoidPtr handle) { return static_cast<TableDriver*>(handle); }

  // Sessions.

  /// A handle for the table, or nothing when the chip has no table of that name. Opening the same
  /// address again returns the same handle. Throws when the chip cannot be asked.
  virtual std::optional<TableHandle> open(TableAddress const& address) = 0;
  /// Closes the session's handles: calls with one of them fail as with any unknown handle. Rows
  /// stay. A session that has none: nothing. The default keeps handles for the driver's life.
  virtual void closeSession(Kiv::U32 session);

  // Changes.

  /// Stores `action` under `key`, over the one that is there, which keeps the row's hits. Writing a
  /// key that is there needs no room.
  virtual WriteResult write(TableHandle table, ByteView key, ByteView action) = 0;
  virtual EraseResult erase(TableHandle table, ByteView key) = 0;
  /// Makes the changes one by one, in order, and gives the result of each: `results` is as long as
  /// `changes`, anything else is fatal. A failed change does not stop the next ones, and nothing is
  /// thrown: an exception is that change's Error. The default calls write() and erase().
  virtual void apply(TableHandle table, std::span<Change const> changes, std::span<Status> results);
  /// Removes all rows of the table. When it fails, some may be gone.
  virtual Status clear(TableHandle table);

  // Look-up.

  /// Copies the action stored under `key` into `action` (as wide as the chip's action): Ok,
  /// NotFound or Error. `action` is untouched unless Ok. The default reports NotFound when read()
  /// is false.
  virtual Status readRow(TableHandle table, ByteView key, std::span<Kiv::U8> action) const;
  /// readRow() without its reasons: whether it was Ok.
  virtual bool read(TableHandle table, ByteView key, std::span<Kiv::U8> action) const = 0;
  /// A hint that readRow() or write() of this key follows soon; a driver with nothing to fetch
  /// ahead does nothing.
  virtual void prefetch(TableHandle table, ByteView key) const;

  /// The least room, in rows, that a caller of walk() brings along.
  static constexpr size_t kWalkRoom = 64;
  /// Copies the next rows from `cursor` on: their keys one after the other into `keys`, and each
  /// one's action into the same place of `actions`. `rows` is how many they are: as many as fit, or
  /// fewer, also none before the end. Moves the cursor, and marks it ended with the last rows;
  /// a walk that has ended gives none. On failure neither cursor nor `rows` has changed, so that
  /// the call can be repeated. Room for less than kWalkRoom rows may be refused as Error.
  ///
  /// The table may change between two batches. A row that is there all the time comes exactly once,
  /// with the action that it has when its batch is copied. One that comes or goes meanwhile may be
  /// among them or not; one that goes and comes again may come twice. Order is the driver's.
  virtual Status walk(TableHandle table, WalkCursor& cursor, std::span<Kiv::U8> keys,
                      std::span<Kiv::U8> actions, size_t& rows) const;

  // Counts.

  /// Rows in the table, and the most it takes. Zero for an unknown handle. The binding calls these
  /// after every change, so a driver keeps the numbers.
  virtual size_t entryCount(TableHandle table) const = 0;
  virtual size_t capacity(TableHandle table) const = 0;

  /// Packets that matched the row: Ok, NotFound, NotSupported where the chip does not count, or
  /// Error. `hits` is untouched unless Ok.
  virtual Status rowHits(TableHandle table, ByteView key, Kiv::U64& hits) const;
  /// The same for all packets that were looked up in the table, those included whose row has gone.
  virtual Status tableHits(TableHandle table, TableHits& hits) const;
  /// Sets the table's counts and those of its rows to zero.
  virtual Status tableHitsClear(TableHandle table);

  /// The host's event loop has come to the end of a turn. What the driver has copied from the chip,
  /// to answer reads sooner, it must not use any more. A host may never call it: then a driver
  /// copies nothing. Neither throws nor fails.
  virtual void turnEnded();

  /// Why the last call that answered Error did so, for people to read; empty when the driver knows
  /// no more. After apply(): why the last failed change did.
  virtual std::string const& lastError() const;

 protected:
  /// Without the memory to keep it, the text is empty.
  void lastErrorIs(char const* text) const noexcept;

 private:
  mutable std::string lastError_;
};

}  // namespace BfnDriver
