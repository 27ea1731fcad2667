// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Fatal.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <streambuf>
#include <unistd.h>
#include <utility>

// The C library declares __assert_fail only where assertions are on; ours are always on.
#undef NDEBUG
#include <assert.h>

namespace Kiv {

namespace {

void writeAll(char const* at, size_t left) noexcept {
  while (left > 0) {
    ssize_t const written = ::write(STDERR_FILENO, at, left);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    at += written;
    left -= static_cast<size_t>(written);
  }
}

/// Collects the line in a buffer of its own and writes it out when that is full.
class ReportBuffer final : public std::streambuf {
 public:
  ReportBuffer() { setp(room_.data(), room_.data() + room_.size()); }

  /// What has not been written out yet, as a C string.
  char const* text() noexcept {
    *(pptr() < epptr() ? pptr() : epptr() - 1) = '\0';
    return pbase();
  }
  void writeOut() noexcept {
    writeAll(pbase(), static_cast<size_t>(pptr() - pbase()));
    setp(room_.data(), room_.data() + room_.size());
  }

 private:
  int_type overflow(int_type c) override {
    writeOut();
    if (!traits_type::eq_int_type(c, traits_type::eof())) sputc(traits_type::to_char_type(c));
    return traits_type::not_eof(c);
  }

  std::array<char, FatalReport::kRoom> room_;
};

/// At most one report is ever made, except for a nested one, so it is shared. It is in static
/// memory and never destroyed: the process may be ending for lack of memory or in the middle of a
/// static destructor.
struct Report {
  ReportBuffer buffer;
  std::ostream stream{&buffer};
};

Report& report() noexcept {
  alignas(Report) static std::byte room[sizeof(Report)];
  static auto* const made = new (room) Report;
  return *made;
}

unsigned openReports = 0;
FatalHook hook = nullptr;

/// The C library builds the text of a failed assertion on the heap, and prints none without memory.
bool hasMemoryForAssertion(size_t textSize) noexcept {
  void* const probe = std::malloc(4 * textSize + 1024);
  std::free(probe);
  return probe != nullptr;
}

}  // namespace

FatalReport::FatalReport(char const* condition, char const* file, unsigned line,
                         char const* function) noexcept
    : condition_(condition),
      file_(file),
      line_(line),
      function_(function),
      isNested_(openReports++ > 0) {
  stream() << (isNested_ ? "\n" : "") << "Failed(" << condition << ") ";
}

std::ostream& FatalReport::stream() noexcept {
  return report().stream;
}

void FatalReport::addUnprintable() noexcept {
  stream().clear();
  stream() << "<cannot be shown>";
}

void FatalReport::callHook() const noexcept {
  FatalHook const call = fatalHookIs(nullptr);
  if (call == nullptr) return;
  static char where[kRoom];
  std::snprintf(where, sizeof where, "%s:%u: %s", file_, line_, function_);
  try {
    call(report().buffer.text(), where);
  } catch (...) {  // the process ends all the same
  }
}

void FatalReport::die() noexcept {
  callHook();
  report().buffer.writeOut();
  static char assertion[kRoom];
  std::snprintf(assertion, sizeof assertion, "\"%s\" == nullptr", condition_);
  if (hasMemoryForAssertion(std::strlen(assertion) + std::strlen(file_) + std::strlen(function_))) {
    __assert_fail(assertion, file_, line_, function_);
  }
  stream() << program_invocation_short_name << ": " << file_ << ':' << line_ << ": " << function_
           << ": Assertion `" << assertion << "' failed.\n";
  report().buffer.writeOut();
  std::abort();
}

FatalHook fatalHookIs(FatalHook newHook) noexcept {
  return std::exchange(hook, newHook);
}

void assertFail(char const* condition, char const* file, unsigned line, char const* function,
                char const* sentence) noexcept {
  fatal(condition, file, line, function, sentence);
}

}  // namespace Kiv
