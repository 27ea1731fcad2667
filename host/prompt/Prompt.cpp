// SPDX-License-Identifier: Apache-2.0
#include "host/prompt/Prompt.h"

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <langinfo.h>
#include <sstream>
#include <system_error>
#include <unistd.h>

#include "host/commands/Commands.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/prompt/LineEditor.h"
#include "host/prompt/Pager.h"
#include "host/prompt/SessionLog.h"
#include "host/shell/Interrupt.h"

namespace Host {

namespace {

constexpr char kRed[] = "\x1b[31m";
constexpr char kGreen[] = "\x1b[32m";
constexpr char kYellow[] = "\x1b[33m";
constexpr char kPlain[] = "\x1b[0m";

std::string promptOf(std::string const& name, bool colours) {
  // Escape sequences stand between two bytes 0x01.
  if (!colours) return name + "> ";
  return std::string("\1") + kGreen + '\1' + name + ">\1" + kPlain + "\1 ";
}

char const* colourOf(char mark) {
  switch (mark) {
    case '+':
      return kGreen;
    case '-':
      return kRed;
    case '~':
      return kYellow;
    default:
      return nullptr;
  }
}

/// The text with its differences in colours.
std::string painted(Answer const& answer) {
  std::string text;
  size_t line = 0;
  for (std::string_view rest = answer.text; !rest.empty(); ++line) {
    size_t const end = std::min(rest.find('\n'), rest.size());
    char const* const colour = line < answer.marks.size() ? colourOf(answer.marks[line]) : nullptr;
    if (colour != nullptr) text += colour;
    text += rest.substr(0, end);
    if (colour != nullptr) text += kPlain;
    if (end < rest.size()) text += '\n';
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return text;
}

// Lines are UTF-8 whatever the environment says.
void useUtf8() {
  if (std::setlocale(LC_CTYPE, "") == nullptr ||
      std::string_view(::nl_langinfo(CODESET)) != "UTF-8") {
    std::setlocale(LC_CTYPE, "C.UTF-8");
  }
}

/// What is written on standard error when the process is about to die, by a signal's handler.
class LastWords {
 public:
  /// One at a time.
  LastWords(std::string const& program, std::string const& sessionLog) {
    std::string text = KeyReader::kDoNotMark;
    if (!sessionLog.empty()) {
      text += program + ": the lines of this session are in " + sessionLog +
              "; the next prompt offers to replay them\n";
    }
    size_ = text.copy(text_, sizeof text_);
    std::signal(SIGABRT, write);
  }
  LastWords(LastWords const&) = delete;
  LastWords& operator=(LastWords const&) = delete;
  ~LastWords() { std::signal(SIGABRT, SIG_DFL); }

 private:
  static void write(int signal) {
    [[maybe_unused]] auto const written = ::write(STDERR_FILENO, text_, size_);
    std::signal(signal, SIG_DFL);
  }

  static inline char text_[1000];
  static inline size_t size_ = 0;
};

/// One session at the prompt.
class Session {
 public:
  Session(PromptTarget& target, PromptOptions const& options)
      : target_(target),
        colours_(usesColours()),
        log_(openLog(options)),
        lastWords_(options.program, log_ ? log_->file().string() : ""),
        editor_(options.program, promptOf(target.name(), colours_),
                {[&target](std::string_view line) { return completionsOf(line, target); },
                 [&target](std::string_view line) { return explanationOf(line, target); },
                 endsInQuotes, Interrupt::requested, [this] { return runDue(); }}) {
    target.pagerIs([this](Answer const& answer) {
      pager_.show((colours_ ? painted(answer) : answer.text) + '\n');
    });
    if (log_) {
      target.recorderIs(
          {[this](std::string_view line) { record(line); }, [this] { log_->refused(); }});
    }
    addCommands(options.logged);
    if (auto const folder = stateFolder(); !folder.empty()) {
      editor_.historyFileIs((folder / options.history).string());
    }
  }
  Session(Session const&) = delete;
  Session& operator=(Session const&) = delete;
  ~Session() {
    target_.pagerIs({});
    target_.recorderIs({});
  }

  void run() {
    offerReplay();
    std::string line;
    while (!target_.ended()) {
      Interrupt::clear();
      switch (editor_.read(line)) {
        case LineEditor::Result::Line:
          if (line.empty()) continue;
          editor_.addToHistory(line);
          runLine(line);
          continue;
        case LineEditor::Result::Damaged:
          report("error: the terminal sent bytes that are no UTF-8; the line was not carried out");
          continue;
        case LineEditor::Result::Interrupted:
          continue;
        case LineEditor::Result::End:
          break;
      }
      break;
    }
    target_.leave();
    if (log_) log_->end();
  }

 private:
  static std::optional<SessionLog> openLog(PromptOptions const& options) {
    if (!options.logged) return std::nullopt;
    if (options.sessionLog.empty()) return SessionLog::inFolder(stateFolder());
    return SessionLog(options.sessionLog);
  }

  // While a line is being typed.
  std::optional<double> runDue() {
    auto const left = target_.timeLeft();
    if (!left || *left > 0) return left;
    LineEditor::hide();
    target_.runDue();
    editor_.redraw();
    return target_.timeLeft();
  }

  void record(std::string_view line) { log_->add(line); }

  void report(std::string_view text) const {
    std::fflush(stdout);
    bool const red = colours_ && ::isatty(STDERR_FILENO) == 1;
    std::cerr << (red ? kRed : "") << text << (red ? kPlain : "") << std::endl;
  }

  void runLine(std::string_view line) {
    std::ostringstream errors;
    try {
      target_.run(line, errors);
    } catch (std::system_error const& error) {
      errors << "error: " << error.what() << '\n';
    }
    std::string text = errors.str();
    if (text.ends_with('\n')) text.pop_back();
    if (!text.empty()) report(text);
  }

  void addCommands(bool logged) {
    CommandGroup group{"the prompt", {}};
    group.commands.emplace_back("terminal length <N:10000>",
                                "page answers of more lines than that; 0: never",
                                "terminal length 0", [this](Arguments const& given) {
                                  pager_.linesIs(given.number("length"));
                                  return Answer();
                                });
    if (logged) {
      group.commands.emplace_back(
          "save-case <FILE>", "write a file of commands that repeats this session",
          "save-case case.lab",
          [this](Arguments const& given) { return saveCase(given.text("save-case")); });
    }
    target_.add(std::move(group));
  }

  Answer saveCase(std::string const& name) {
    if (!log_) throw InputError("there is no session log to save from");
    auto lines = log_->lines();
    lines.pop_back();  // the line that saves
    makeFolderOf(name);
    std::ofstream file(name);
    for (std::string const& line : lines) file << line << '\n';
    if (!file.flush()) throw InputError(excerpt(name) + " cannot be written");
    return {lines.size(), name + ": " + std::to_string(lines.size()) +
                              (lines.size() == 1 ? " line" : " lines") + " saved"};
  }

  void offerReplay() {
    if (!log_ || !log_->unfinished()) return;
    auto const& [file, lines] = *log_->unfinished();
    report("The last session died in this line:\n  " + lines.back() + "\nIts lines are in " +
           file.string() + '.');
    if (lines.size() < 2) return;
    size_t const count = lines.size() - 1;
    std::printf("Replay the %zu %s before it? [y/N] ", count, count == 1 ? "line" : "lines");
    std::fflush(stdout);
    std::string answer;
    for (char c = 0; ::read(STDIN_FILENO, &c, 1) == 1 && c != '\n';) answer += c;
    if (answer != "y" && answer != "Y" && answer != "yes") return;
    for (size_t i = 0; i < count && !Interrupt::requested() && !target_.ended(); ++i) {
      runLine(lines[i]);
    }
  }

  PromptTarget& target_;
  Interrupt const interrupt_;
  Pager pager_;
  bool const colours_;
  std::optional<SessionLog> log_;
  LastWords const lastWords_;
  LineEditor editor_;
};

}  // namespace

void runPrompt(PromptTarget& target, PromptOptions const& options) {
  useUtf8();
  Session(target, options).run();
}

}  // namespace Host
