#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "framework/core/Types.h"
#include "framework/driver/BfnPipeId.h"

namespace BfnDriver {

/// Bytes of a key or an action, exactly as the chip stores them.
using ByteView = std::span<Kiv::U8 const>;

enum class WriteResult : Kiv::U8 {
  Ok,
  TableFull,       ///< the table has no free slot for a new key
  NoSysResources,  ///< the system lacks what a new row needs beside its slot
  Error,           ///< anything else: unknown handle, key or action of the wrong width
};

enum class EraseResult : Kiv::U8 { Ok, NotFound, Error };

/// Names one table as one session sees it. Given out by TableDriver::open, valid as long as the
/// driver.
enum class TableHandle : Kiv::U32 {};

/// What a caller says about itself and the table when it opens it.
struct TableAddress {
  Kiv::U32 session = 0;
  /// Which of the session's chips.
  Kiv::U8 device = 0;
  BfnId::BfnPipeId pipe;
  std::string_view profile;
  std::string_view table;
};

/// The interface behind the opaque handle (`Kiv::VoidPtr`) that the platform passes to table
/// bindings. It moves bytes: what a key or an action means is known to the binding above and to
/// the chip below.
///
/// The driver is owned by the host and outlives every binding that was given its handle. All calls
/// come from the host's one event thread.
class TableDriver {
 public:
  TableDriver() = default;
  TableDriver(TableDriver const&) = delete;
  TableDriver& operator=(TableDriver const&) = delete;
  virtual ~TableDriver();

  /// The opaque handle that stands for this driver, and the way back. Only a handle made here may
  /// be turned back.
  Kiv::VoidPtr opaque() { return this; }
  static TableDriver* fromOpaque(Kiv::VoidPtr handle) { return static_cast<TableDriver*>(handle); }

  /// A handle for the table, or nothing when the chip has no table of that name. Opening the same
  /// address again returns the same handle.
  virtual std::optional<TableHandle> open(TableAddress const& address) = 0;

  /// Stores `action` under `key`, over what stood there. A failed write changes nothing. May throw
  /// whatever the transport below throws.
  virtual WriteResult write(TableHandle table, ByteView key, ByteView action) = 0;
  virtual EraseResult erase(TableHandle table, ByteView key) = 0;

  /// Copies the action stored under `key` into `action` (as wide as the chip's action). False, and
  /// `action` untouched, when there is no such row.
  virtual bool read(TableHandle table, ByteView key, std::span<Kiv::U8> action) const = 0;

  /// A hint that read() or write() of this key follows soon; a driver with nothing to fetch ahead
  /// does nothing.
  virtual void prefetch(TableHandle table, ByteView key) const;

  /// Rows in the table, and the most it takes. Zero for an unknown handle.
  virtual std::size_t entryCount(TableHandle table) const = 0;
  virtual std::size_t capacity(TableHandle table) const = 0;
};

}  // namespace BfnDriver
