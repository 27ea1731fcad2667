// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iostream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/shell/Shell.h"

namespace Host {

namespace {

using nlohmann::json;

/// Whether each part of `expected` is in `found`: the members of an object, the elements of a list
/// in any order, the characters of a text.
bool contains(json const& found, json const& expected) {
  if (expected.is_object() && found.is_object()) {
    return std::ranges::all_of(expected.items(), [&](auto const& member) {
      auto const there = found.find(member.key());
      return there != found.end() && contains(*there, member.value());
    });
  }
  if (expected.is_array() && found.is_array()) {
    return std::ranges::all_of(expected, [&](json const& element) {
      return std::ranges::any_of(found, [&](json const& each) { return contains(each, element); });
    });
  }
  if (expected.is_string() && found.is_string()) {
    return found.get_ref<std::string const&>().find(expected.get_ref<std::string const&>()) !=
           std::string::npos;
  }
  return found == expected;
}

[[noreturn]] void throwErrno(char const* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// What is written to standard error while this lives, in memory; then standard error is what it
/// was before.
class StderrTaken {
 public:
  StderrTaken() : memory_(::memfd_create("stderr", MFD_CLOEXEC)), before_(::dup(STDERR_FILENO)) {
    std::cerr.flush();
    if (memory_ < 0 || before_ < 0 || ::dup2(memory_, STDERR_FILENO) < 0) throwErrno("stderr");
  }
  StderrTaken(StderrTaken const&) = delete;
  StderrTaken& operator=(StderrTaken const&) = delete;
  ~StderrTaken() {
    giveBack();
    ::close(memory_);
  }

  void giveBack() {
    if (before_ < 0) return;
    std::cerr.flush();
    ::dup2(before_, STDERR_FILENO);
    ::close(before_);
    before_ = -1;
  }

  std::string text() const {
    std::string all;
    char piece[4096];
    ssize_t count = 0;
    while ((count = ::pread(memory_, piece, sizeof piece, static_cast<off_t>(all.size()))) > 0) {
      all.append(piece, static_cast<size_t>(count));
    }
    return all;
  }

 private:
  int memory_;
  int before_;
};

// How a process ended.
std::string ending(int status) {
  if (WIFSIGNALED(status)) return "it ended by signal " + std::to_string(WTERMSIG(status));
  return "it lives";
}

}  // namespace

void Shell::addExpectations(std::vector<Command>& add) {
  add.emplace_back("expect <COMMAND> == <JSON>",
                   "carry out the command; the run fails unless it answers that",
                   "expect dump capability == {\"overlaySrcMacRewriteSupported\": true}",
                   [this](Arguments const& given) { return expect(given); });
  add.emplace_back("expect <COMMAND> contains <JSON>",
                   "the same unless all of that is in the answer",
                   "expect dump stats contains {\"entriesInUse\": 2}",
                   [this](Arguments const& given) { return expectContains(given); });
  add.emplace_back("expect <COMMAND> one of <JSON>", "the same unless the answer is in that list",
                   "expect chip initialize-table one of [0, 1]",
                   [this](Arguments const& given) { return expectOneOf(given); });
  add.emplace_back("expect death <MESSAGE> <COMMAND>",
                   "carry out the command in a copy of the process; the run fails unless that dies "
                   "with the message on standard error",
                   "expect death \"Unknown table name\" chip initialize-table other",
                   [this](Arguments const& given) { return expectDeath(given); });
  add.emplace_back(
      "expect stderr <MESSAGE> <COMMAND>",
      "carry out the command; the run fails unless the message comes on standard error",
      "expect stderr remaining host init-tables true",
      [this](Arguments const& given) { return expectStderr(given); });
}

template <class F>
auto Shell::withInner(Arguments const& given, F const& f) {
  auto const inner = table_.find(given.words).command->pattern.innerCommand(given.words);
  return readingFrom(static_cast<size_t>(inner.data() - given.words.data()),
                     [&] { return f(prepare(inner)); });
}

Answer Shell::answerToInner(Arguments const& given) {
  return withInner(given, [&](Prepared const& prepared) { return run(prepared); });
}

json Shell::expectedJson(std::string const& text) {
  json value = parsedJson(text);
  if (value.is_discarded()) throw InputError("expected JSON after ==", {0, {}, {"JSON"}, text});
  return value;
}

void Shell::expectationFailed(std::string const& how, json const& expected,
                              json const& found) const {
  LineError error = errorHere("expectation failed\n  expected: " + how + jsonText(expected) +
                              "\n  found:    " + jsonText(found));
  error.expected = expected;
  error.found = found;
  throw Failure(ExpectationFailed, std::move(error));
}

Answer Shell::expect(Arguments const& given) {
  auto const expected =
      readingFrom(given.words.size() - 1, [&] { return expectedJson(given.words.back()); });
  json const found = answerToInner(given).json;
  if (found != expected) expectationFailed("", expected, found);
  return {};
}

Answer Shell::expectContains(Arguments const& given) {
  auto const expected =
      readingFrom(given.words.size() - 1, [&] { return expectedJson(given.words.back()); });
  json const found = answerToInner(given).json;
  if (!contains(found, expected)) expectationFailed("containing ", expected, found);
  return {};
}

Answer Shell::expectOneOf(Arguments const& given) {
  auto const expected =
      readingFrom(given.words.size() - 1, [&] { return expectedJson(given.words.back()); });
  if (!expected.is_array()) throw InputError("expected a list of answers after one of");
  json const found = answerToInner(given).json;
  if (std::ranges::find(expected, found) == expected.end()) {
    expectationFailed("one of ", expected, found);
  }
  return {};
}

Answer Shell::expectDeath(Arguments const& given) {
  withInner(given, [](Prepared const&) {});
  flush();
  StderrTaken taken;
  pid_t const child = ::fork();
  if (child < 0) throwErrno("fork");
  if (child == 0) {
    // What the copy prints, and how its line ends, is of no interest unless it dies.
    if (int const nowhere = ::open("/dev/null", O_WRONLY); nowhere >= 0) {
      ::dup2(nowhere, STDOUT_FILENO);
    }
    try {
      answerToInner(given);
    } catch (std::exception const&) {
      ::_exit(BadInput);
    }
    ::_exit(Done);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  taken.giveBack();
  std::string const text = taken.text();
  std::string const expected = given.text("death");
  if (WIFSIGNALED(status) && text.find(expected) != std::string::npos) return {};
  expectationFailed("death with ", expected, ending(status) + (text.empty() ? "" : ": " + text));
}

Answer Shell::expectStderr(Arguments const& given) {
  StderrTaken taken;
  answerToInner(given);
  taken.giveBack();
  std::string const text = taken.text();
  std::cerr << text << std::flush;
  std::string const expected = given.text("stderr");
  if (text.find(expected) != std::string::npos) return {};
  expectationFailed("on standard error ", expected, text);
}

}  // namespace Host
