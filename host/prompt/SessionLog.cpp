// SPDX-License-Identifier: Apache-2.0
#include "host/prompt/SessionLog.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Host {

namespace {

constexpr std::string_view kEnded = "# ended";
constexpr std::string_view kRefused = "# the line above was refused";

[[noreturn]] void fail(std::filesystem::path const& file) {
  throw std::system_error(errno, std::generic_category(), "session log " + file.string());
}

std::vector<std::string> linesOf(std::filesystem::path const& file) {
  std::ifstream in(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    if (line != kRefused) {
      lines.push_back(std::move(line));
    } else if (!lines.empty()) {
      lines.pop_back();
    }
  }
  return lines;
}

}  // namespace

std::filesystem::path stateFolder() {
  char const* const state = std::getenv("XDG_STATE_HOME");
  char const* const home = std::getenv("HOME");
  std::filesystem::path folder;
  if (state != nullptr && *state == '/') {
    folder = state;
  } else if (home != nullptr && *home == '/') {
    folder = std::filesystem::path(home) / ".local" / "state";
  } else {
    return {};
  }
  folder /= "macrewrite";
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  return error ? std::filesystem::path() : folder;
}

SessionLog::SessionLog(std::filesystem::path file) : file_(std::move(file)) {
  descriptor_ = ::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_APPEND, 0600);
  if (descriptor_ < 0) fail(file_);
  auto lines = linesOf(file_);
  bool const died = !lines.empty() && lines.back() != kEnded;
  std::filesystem::path const kept = file_.string() + ".unfinished";
  if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0 ||
      (died && !std::filesystem::copy_file(file_, kept,
                                           std::filesystem::copy_options::overwrite_existing)) ||
      ::ftruncate(descriptor_, 0) != 0) {
    int const why = errno;
    ::close(descriptor_);
    errno = why;
    fail(file_);
  }
  if (died) unfinished_ = {kept, std::move(lines)};
}

std::optional<SessionLog> SessionLog::inFolder(std::filesystem::path const& folder) {
  constexpr int kMost = 100;
  if (folder.empty()) return std::nullopt;
  for (int number = 0; number < kMost; ++number) {
    try {
      return SessionLog(folder / ("session-" + std::to_string(number) + ".lab"));
    } catch (std::system_error const& error) {
      if (error.code() != std::errc::resource_unavailable_try_again) return std::nullopt;
    }
  }
  return std::nullopt;
}

SessionLog::SessionLog(SessionLog&& other) noexcept
    : file_(std::move(other.file_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      unfinished_(std::move(other.unfinished_)) {}

SessionLog::~SessionLog() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

void SessionLog::add(std::string_view line) {
  std::string const text = std::string(line) + '\n';
  if (::write(descriptor_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    fail(file_);
  }
}

void SessionLog::refused() {
  add(kRefused);
}

void SessionLog::end() {
  add(kEnded);
}

std::vector<std::string> SessionLog::lines() const {
  return linesOf(file_);
}

}  // namespace Host
