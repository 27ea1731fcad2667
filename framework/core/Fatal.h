// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include "framework/core/Types.h"

namespace Kiv {

/// The text of one fatal line, written to standard error when the process ends: in a single write
/// if it fits kRoom, else in several. Allocates nothing and throws nothing, whatever the pieces do.
/// Use KIV_CHECK rather than this class.
class FatalReport {
 public:
  static constexpr unsigned kRoom = 8192;

  FatalReport(char const* condition, char const* file, unsigned line,
              char const* function) noexcept;
  FatalReport(FatalReport const&) = delete;
  FatalReport& operator=(FatalReport const&) = delete;
  ~FatalReport() = default;

  /// Adds a piece of the sentence. One that throws when it is written is marked as such. While a
  /// check fails within a piece of another one's sentence, pieces are left out.
  template <class Piece>
  void add(Piece const& piece) noexcept {
    if (isNested_) return;
    try {
      stream() << numberIfByte(piece);
    } catch (...) {
      addUnprintable();
    }
  }
  /// Writes the line, without a line end, and fails the C library's assertion.
  [[noreturn]] void die() noexcept;

 private:
  static std::ostream& stream() noexcept;
  static void addUnprintable() noexcept;
  void callHook() const noexcept;

  char const* condition_;
  char const* file_;
  unsigned line_;
  char const* function_;
  bool isNested_;
};

template <class... Pieces>
[[noreturn, gnu::cold, gnu::noinline]] void fatal(char const* condition, char const* file,
                                                  unsigned line, char const* function,
                                                  Pieces const&... pieces) noexcept {
  FatalReport report(condition, file, line, function);
  (report.add(pieces), ...);
  report.die();
}

/// What a host does about a failed check before the process ends, for example to keep its text for
/// the next process. `text` is the fatal line, `where` is "FILE:LINE: FUNCTION". Both are cut when
/// they are long, and valid during the call only. The hook may fail a check itself: it is not
/// called again.
using FatalHook = void (*)(char const* text, char const* where);
/// Replaces the hook; null, as at the start: none. Returns the earlier one.
FatalHook fatalHookIs(FatalHook hook) noexcept;

/// Fails a check of the framework's own containers and pointers. Same form as KIV_CHECK.
[[noreturn]] void assertFail(char const* condition, char const* file, unsigned line,
                             char const* function, char const* sentence = "") noexcept;

}  // namespace Kiv

/// Ends the process when `condition` is false, in every build type. The condition is evaluated
/// once. Writes `Failed(<condition>) ` and then the pieces, each by its stream operator and bytes
/// as numbers, to standard error with no line end; then fails the C library's assertion
/// `"<condition>" == nullptr` with file, line and the full function signature (SIGABRT). Also
/// without memory: the text is built in a static buffer.
///
///   KIV_CHECK(initialized());
///   KIV_CHECK(record != nullptr, "Entry doesn't exist. ", "intfId: ", intfId);
#define KIV_CHECK(condition, ...) KIV_CHECK_AS(condition, #condition __VA_OPT__(, ) __VA_ARGS__)

/// KIV_CHECK whose printed text is given, for a condition that reads differently in the report.
#define KIV_CHECK_AS(condition, text, ...)                             \
  (__builtin_expect(static_cast<bool>(condition), true)                \
       ? static_cast<void>(0)                                          \
       : ::Kiv::fatal(text, __FILE__, static_cast<unsigned>(__LINE__), \
                      __PRETTY_FUNCTION__ __VA_OPT__(, ) __VA_ARGS__))
