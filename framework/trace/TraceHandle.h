// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "framework/core/Types.h"
#include "framework/trace/TraceFile.h"

namespace Kiv {

/// The trace facility of one source file, named after it. It says which levels of the file's trace
/// statements are written as text; the binary trace is always on. KIV_TRACE_FACILITY makes one.
///
/// Handles of one name switch together: a facility may have several files.
///
/// Construction does not fail without memory: the handle then has no file and no level, and cannot
/// be found, until the file's next trace statement registers it.
class TraceHandle {
 public:
  /// Levels are 0 to kLevels - 1. A set of them is a mask with bit n for level n.
  static constexpr unsigned kLevels = 32;
  static constexpr U32 kAllLevels = ~U32{0};

  /// `on`: text at every level from the start. Otherwise what levelsAre() said of the name before,
  /// or else the default levels.
  TraceHandle(char const* name, bool on) noexcept;
  TraceHandle(TraceHandle const&) = delete;
  TraceHandle& operator=(TraceHandle const&) = delete;
  ~TraceHandle();

  std::string_view name() const { return name_; }
  /// Only of a handle that has signed on.
  Ringlog::TraceFile& traceFile() const { return *traceFile_; }
  /// Gives the handle its file and its levels unless it has them. Throws std::bad_alloc, and then
  /// nothing has changed.
  void signOn();

  /// False for a level that does not exist.
  bool enabled(unsigned level) const { return level < kLevels && (levels_ >> level & 1) != 0; }
  U32 levels() const { return levels_; }
  void levelIs(unsigned level, bool on);
  void levelsAre(U32 mask);

  /// The levels of all handles of that name, those not yet made included.
  static void levelsAre(std::string_view name, U32 mask);
  /// The levels of future handles whose names have no levels of their own; none at first.
  static void defaultLevelsIs(U32 mask);

  /// A handle of that name, or null: a handle exists once its file has reached a trace statement.
  static TraceHandle* find(std::string_view name);
  /// Every handle there is, by name. `visit` makes and destroys none.
  static void forEach(std::function<void(TraceHandle&)> const& visit);

 private:
  char const* name_;
  bool on_;
  Ringlog::TraceFile* traceFile_ = nullptr;
  U32 levels_ = 0;
};

}  // namespace Kiv
