#pragma once

#include <ostream>

#include "framework/core/Types.h"

namespace Kiv {

/// The text of one fatal line, flushed to standard error in a single write when the process ends.
/// Use KIV_CHECK rather than this class.
class FatalReport {
 public:
  FatalReport(char const* condition, char const* file, unsigned line, char const* function);
  FatalReport(FatalReport const&) = delete;
  FatalReport& operator=(FatalReport const&) = delete;
  ~FatalReport() = default;

  std::ostream& stream();
  /// Writes the line, without a line end, and fails the C library's assertion.
  [[noreturn]] void die();

 private:
  char const* condition_;
  char const* file_;
  unsigned line_;
  char const* function_;
};

template <class... Pieces>
[[noreturn, gnu::cold, gnu::noinline]] void fatal(char const* condition, char const* file,
                                                  unsigned line, char const* function,
                                                  Pieces const&... pieces) {
  FatalReport report(condition, file, line, function);
  try {
    (void)(report.stream() << ... << numberIfByte(pieces));
  } catch (...) {
    // A piece that cannot be written costs the rest of the sentence; the process ends all the same.
  }
  report.die();
}

/// Fails a check of the framework's own containers and pointers. Same form as KIV_CHECK.
[[noreturn]] void assertFail(char const* condition, char const* file, unsigned line,
                             char const* function, char const* sentence = "");

}  // namespace Kiv

/// Ends the process when `condition` is false, in every build type. The condition is evaluated
/// once. Writes `Failed(<condition>) ` and then the pieces, each by its stream operator and bytes
/// as numbers, to standard error with no line end; then fails the C library's assertion
/// `"<condition>" == nullptr` with file, line and the full function signature (SIGABRT).
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
