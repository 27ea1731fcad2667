// SPDX-License-Identifier: Apache-2.0
#include "host/prompt/Pager.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

#include "host/shell/Interrupt.h"

namespace Host {

namespace {

constexpr char kProgram[] = "less";
// Leaves what fits on the terminal, keeps colours, and what was shown stays.
constexpr char kCommand[] = "less -FRX";

bool installed(std::string_view program) {
  char const* const path = std::getenv("PATH");
  std::string_view rest = path != nullptr ? path : "";
  while (!rest.empty()) {
    size_t const end = std::min(rest.find(':'), rest.size());
    std::string const file = std::string(rest.substr(0, end)) + '/' + std::string(program);
    if (::access(file.c_str(), X_OK) == 0) return true;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return false;
}

/// A reader that leaves early is no reason to end the process.
class BrokenPipesIgnored {
 public:
  BrokenPipesIgnored() : before_(std::signal(SIGPIPE, SIG_IGN)) {}
  BrokenPipesIgnored(BrokenPipesIgnored const&) = delete;
  BrokenPipesIgnored& operator=(BrokenPipesIgnored const&) = delete;
  ~BrokenPipesIgnored() { std::signal(SIGPIPE, before_); }

 private:
  void (*before_)(int);
};

}  // namespace

Pager::Pager() : hasProgram_(installed(kProgram)) {}

bool Pager::isLong(std::string const& text) const {
  winsize size{};
  bool const known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 1;
  size_t const limit = lines_.value_or(known ? size.ws_row - 1 : 0);
  if (limit == 0) return false;
  size_t const width = known ? size.ws_col : 0;
  size_t rows = 0;
  size_t bytes = 0;
  for (char const c : text) {
    if (c == '\n' || (width > 0 && bytes == width)) {
      if (++rows > limit) return true;
      bytes = 0;
    }
    if (c != '\n') ++bytes;
  }
  return false;
}

void Pager::show(std::string const& text) const {
  if (hasProgram_ && isLong(text)) {
    BrokenPipesIgnored const ignored;
    if (std::FILE* const pager = ::popen(kCommand, "w")) {
      std::fwrite(text.data(), 1, text.size(), pager);
      ::pclose(pager);
      return;
    }
  }
  std::string_view rest = text;
  while (!rest.empty() && !Interrupt::requested()) {
    constexpr size_t kPiece = 4096;
    size_t const end = std::min(rest.find('\n', kPiece), rest.size() - 1) + 1;
    std::fwrite(rest.data(), 1, end, stdout);
    std::fflush(stdout);
    rest.remove_prefix(end);
  }
  // What the terminal echoes of an interrupt does not stay in the prompt's line.
  if (Interrupt::requested()) std::putchar('\n');
}

bool usesColours() {
  char const* const off = std::getenv("NO_COLOR");
  char const* const terminal = std::getenv("TERM");
  return ::isatty(STDOUT_FILENO) == 1 && (off == nullptr || *off == '\0') && terminal != nullptr &&
         std::string_view(terminal) != "dumb";
}

}  // namespace Host
