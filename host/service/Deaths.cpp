// SPDX-License-Identifier: Apache-2.0
#include "host/service/Deaths.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "framework/core/Fatal.h"
#include "framework/trace/Decode.h"

namespace Host {

namespace {

constexpr size_t kTraceLines = 64;
constexpr std::array kSignals{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

// What the process is at, and where its death is noted: in static memory, since a dying process may
// have no other.
std::array<char, 1024> current{};
std::array<char, 4096> deathFile{};
std::array<char, 4096> newFile{};
volatile std::sig_atomic_t noted = 0;

void put(int file, char const* text) noexcept {
  size_t left = std::strlen(text);
  while (left > 0) {
    ssize_t const written = ::write(file, text, left);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text += written;
    left -= static_cast<size_t>(written);
  }
}

void putNumber(int file, char const* name, long long number) noexcept {
  std::array<char, 24> digits{};
  *std::to_chars(digits.data(), digits.data() + digits.size() - 1, number).ptr = '\0';
  put(file, name);
  put(file, digits.data());
  put(file, "\n");
}

// One line, whatever the text holds.
void putLine(int file, char const* name, char const* text) noexcept {
  put(file, name);
  std::array<char, 256> part{};
  while (*text != '\0') {
    size_t used = 0;
    while (*text != '\0' && used + 1 < part.size()) {
      part[used++] = *text == '\n' ? ' ' : *text;
      ++text;
    }
    part[used] = '\0';
    put(file, part.data());
  }
  put(file, "\n");
}

// Called in a signal handler, too: nothing here takes memory or a lock.
int beginNote(int signal) noexcept {
  int const file = ::open(newFile.data(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) return file;
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  putNumber(file, "time ", time.tv_sec);
  putNumber(file, "signal ", signal);
  putLine(file, "event ", current.data());
  return file;
}

void putTrace(int file) {
  std::ostringstream trace;
  for (Ringlog::Record const& record :
       Ringlog::decode(Ringlog::defaultRinglogHandle, kTraceLines)) {
    trace.str("");
    trace << record;
    putLine(file, "trace ", trace.str().c_str());
  }
}

void checkFailed(char const* text, char const* where) {
  noted = 1;
  int const file = beginNote(SIGABRT);
  if (file < 0) return;
  putLine(file, "text ", text);
  putLine(file, "where ", where);
  // In place already, should what follows fail.
  ::rename(newFile.data(), deathFile.data());
  putTrace(file);
  ::close(file);
}

// The end of the trace, after a signal that may have come anywhere: it is decoded by a copy of the
// process, which may crash or wait for a lock that will not be released, and then has a second.
void putTraceByCopy(int file) noexcept {
  pid_t const copy = ::_Fork();
  if (copy == 0) {
    for (int const signal : kSignals) ::signal(signal, SIG_DFL);
    ::signal(SIGALRM, SIG_DFL);
    rlimit const none{};
    ::setrlimit(RLIMIT_CORE, &none);
    sigset_t all;
    ::sigemptyset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    ::alarm(1);
    putTrace(file);
    ::_exit(0);
  }
  while (copy > 0 && ::waitpid(copy, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void signalled(int signal) {
  if (noted == 0) {
    noted = 1;
    if (int const file = beginNote(signal); file >= 0) {
      ::rename(newFile.data(), deathFile.data());
      putTraceByCopy(file);
      ::close(file);
    }
  }
  // The handler is gone: the signal does what it would have done.
  ::raise(signal);
}

void watch(bool on) noexcept {
  Kiv::fatalHookIs(on ? &checkFailed : nullptr);
  struct sigaction action {};
  action.sa_handler = on ? &signalled : SIG_DFL;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
  for (int const signal : kSignals) ::sigaction(signal, &action, nullptr);
}

bool copyPath(std::filesystem::path const& path, std::array<char, 4096>& to) {
  std::string const& text = path.native();
  if (text.size() >= to.size()) return false;
  std::copy_n(text.c_str(), text.size() + 1, to.data());
  return true;
}

}  // namespace

Deaths::Deaths(std::filesystem::path directory) : directory_(std::move(directory)) {
  std::filesystem::create_directories(directory_);
  if (::access(directory_.c_str(), W_OK) != 0) {
    throw std::system_error(errno, std::generic_category(),
                            "nothing can be written to " + directory_.string());
  }
  if (!copyPath(directory_ / "death", deathFile) || !copyPath(directory_ / "death.new", newFile)) {
    throw std::system_error(ENAMETOOLONG, std::generic_category(), directory_.string());
  }
  readDeath();
  readAttempts();
  noted = 0;
  watch(true);
}

Deaths::~Deaths() {
  watch(false);
}

void Deaths::readDeath() {
  std::filesystem::path const total = directory_ / "deaths";
  std::ifstream(total) >> count_;
  std::ifstream in(directory_ / "death");
  if (!in) {
    // The last one that was seen.
    in.open(directory_ / "death.last");
    if (!in) return;
  } else {
    isNew_ = true;
    ++count_;
    std::ofstream(total) << count_ << '\n';
    std::error_code ignored;
    std::filesystem::rename(directory_ / "death", directory_ / "death.last", ignored);
  }
  Death death;
  std::string line;
  while (std::getline(in, line)) {
    size_t const space = line.find(' ');
    if (space == std::string::npos) continue;
    std::string const name = line.substr(0, space);
    std::string value = line.substr(space + 1);
    if (name == "time") {
      death.time = std::strtod(value.c_str(), nullptr);
    } else if (name == "signal") {
      death.signal = static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
    } else if (name == "event") {
      death.event = std::move(value);
    } else if (name == "text") {
      death.text = std::move(value);
    } else if (name == "where") {
      death.where = std::move(value);
    } else if (name == "trace") {
      death.trace.push_back(std::move(value));
    }
  }
  last_ = std::move(death);
}

void Deaths::readAttempts() {
  std::ifstream in(directory_ / "bring-up");
  if (in >> allAttempts_ >> attempts_ >> inputs_) return;
  allAttempts_ = attempts_ = 0;
  inputs_ = 0;
}

void Deaths::bringUpBegins(Kiv::U64 inputs) {
  if (inputs != inputs_) attempts_ = 0;
  inputs_ = inputs;
  std::filesystem::path const file = directory_ / "bring-up";
  std::ofstream out(file);
  out << allAttempts_ + 1 << ' ' << attempts_ + 1 << ' ' << inputs_ << '\n';
  if (!out.flush()) {
    throw std::system_error(errno, std::generic_category(), file.string());
  }
}

void Deaths::bringUpEnded() {
  std::error_code ignored;
  std::filesystem::remove(directory_ / "bring-up", ignored);
  attempts_ = allAttempts_ = 0;
  inputs_ = 0;
}

void Deaths::eventIs(std::string_view event) noexcept {
  size_t const size = std::min(event.size(), current.size() - 1);
  event.copy(current.data(), size);
  current[size] = '\0';
}

void Deaths::forked() noexcept {
  watch(false);
}

}  // namespace Host
