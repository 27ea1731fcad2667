#include "framework/core/Fatal.h"

#include <sstream>
#include <string>
#include <unistd.h>

// The C library declares __assert_fail only where assertions are on; ours are always on.
#undef NDEBUG
#include <assert.h>

namespace Kiv {

namespace {

// One fatal report at most is ever made, so the stream can be shared and is never torn down: the
// process may be ending for lack of memory or in the middle of another destructor.
std::ostringstream& reportStream() {
  static auto* stream = new std::ostringstream;
  return *stream;
}

void writeAll(std::string const& text) {
  char const* at = text.data();
  size_t left = text.size();
  while (left > 0) {
    ssize_t const written = ::write(STDERR_FILENO, at, left);
    if (written <= 0) return;
    at += written;
    left -= static_cast<size_t>(written);
  }
}

}  // namespace

FatalReport::FatalReport(char const* condition, char const* file, unsigned line,
                         char const* function)
    : condition_(condition), file_(file), line_(line), function_(function) {
  reportStream().str({});
  reportStream() << "Failed(" << condition << ") ";
}

std::ostream& FatalReport::stream() {
  return reportStream();
}

void FatalReport::die() {
  writeAll(reportStream().str());
  std::string const assertion = std::string("\"") + condition_ + "\" == nullptr";
  __assert_fail(assertion.c_str(), file_, line_, function_);
}

void assertFail(char const* condition, char const* file, unsigned line, char const* function,
                char const* sentence) {
  fatal(condition, file, line, function, sentence);
}

}  // namespace Kiv
