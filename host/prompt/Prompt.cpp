// SPDX-License-Identifier: Apache-2.0
#include "host/prompt/Prompt.h"

#include <algorithm>
#include <chrono>
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

constexpr char kPlainPrompt[] = "lab> ";
// Escape sequences stand between two bytes 0x01.
constexpr char kGreenPrompt[] = "\1\x1b[32m\1lab>\1\x1b[0m\1 ";
constexpr char kRed[] = "\x1b[31m";
constexpr char kPlain[] = "\x1b[0m";

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
  explicit LastWords(std::string const& sessionLog) {
    std::string text = KeyReader::kDoNotMark;
    if (!sessionLog.empty()) {
      text += "macrewrite-lab: the lines of this session are in " + sessionLog +
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
  Session(Shell& shell, PromptOptions const& options)
      : shell_(shell),
        colours_(usesColours()),
        log_(openLog(options)),
        lastWords_(log_ ? log_->file().string() : ""),
        editor_(colours_ ? kGreenPrompt : kPlainPrompt,
                {[&shell](std::string_view line) { return completionsOf(line, shell); },
                 [&shell](std::string_view line) { return explanationOf(line, shell); },
                 endsInQuotes, Interrupt::requested, [this] { return runDue(); }}) {
    shell.changes().realTimeIs([] {
      using Clock = std::chrono::steady_clock;
      return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
    });
    shell.pagerIs([this](std::string const& text) {
      shell_.out().flush();
      pager_.show(text);
    });
    if (log_) {
      shell.recorderIs(
          {[this](std::string_view line) { record(line); }, [this] { log_->refused(); }});
    }
    addCommands();
    if (auto const folder = stateFolder(); !folder.empty()) {
      editor_.historyFileIs((folder / "history").string());
    }
  }
  Session(Session const&) = delete;
  Session& operator=(Session const&) = delete;
  ~Session() {
    shell_.pagerIs({});
    shell_.recorderIs({});
    shell_.changes().realTimeIs({});
  }

  void run() {
    offerReplay();
    std::string line;
    while (!shell_.exited()) {
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
    // What was not confirmed does not outlive the session.
    shell_.takeBack();
    if (log_) log_->end();
  }

 private:
  static std::optional<SessionLog> openLog(PromptOptions const& options) {
    if (options.sessionLog.empty()) return SessionLog::inFolder(stateFolder());
    return SessionLog(options.sessionLog);
  }

  // While a line is being typed.
  std::optional<double> runDue() {
    auto const left = shell_.changes().realTimeLeft();
    if (!left || *left > 0) return left;
    LineEditor::hide();
    auto const next = shell_.runDue();
    editor_.redraw();
    return next;
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
      shell_.runLine(line, errors);
    } catch (std::system_error const& error) {
      errors << "error: " << error.what() << '\n';
    }
    std::string text = errors.str();
    if (text.ends_with('\n')) text.pop_back();
    if (!text.empty()) report(text);
  }

  void addCommands() {
    CommandGroup group{"the prompt", {}};
    group.commands.emplace_back("terminal length <N:10000>",
                                "page answers of more lines than that; 0: never",
                                "terminal length 0", [this](Arguments const& given) {
                                  pager_.linesIs(given.number("length"));
                                  return Answer();
                                });
    group.commands.emplace_back(
        "save-case <FILE>", "write a file of commands that repeats this session",
        "save-case case.lab",
        [this](Arguments const& given) { return saveCase(given.text("save-case")); });
    shell_.add(std::move(group));
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
    for (size_t i = 0; i < count && !Interrupt::requested() && !shell_.exited(); ++i) {
      runLine(lines[i]);
    }
  }

  Shell& shell_;
  Interrupt const interrupt_;
  Pager pager_;
  bool const colours_;
  std::optional<SessionLog> log_;
  LastWords const lastWords_;
  LineEditor editor_;
};

}  // namespace

void runPrompt(Shell& shell, PromptOptions const& options) {
  useUtf8();
  Session(shell, options).run();
}

}  // namespace Host
