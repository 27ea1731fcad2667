// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "host/commands/Changes.h"
#include "host/commands/SlicedShow.h"
#include "host/language/CommandTable.h"
#include "host/shell/FileLines.h"
#include "host/shell/LineError.h"
#include "host/shell/Pipeline.h"
#include "host/shell/Variables.h"
#include "host/switch/Switch.h"

namespace Host {

struct ShellOptions {
  /// Each line before it is carried out.
  bool echo = false;
  /// Every answer as a JSON line, {"answer", "command", "file", "line"}.
  bool json = false;
  /// A line that fails is reported, and the next one is carried out.
  bool keepGoing = false;
  /// Doubts about lines of files are reported, too; about those of a prompt they always are.
  bool warn = false;
  /// A line that there are doubts about is refused.
  bool strict = false;
  /// Errors show the line, and where in it they are.
  bool carets = false;
};

/// The name and version of this build.
std::string versionText();

/// Reads lines of the command language, has them carried out and prints the answers. Log messages
/// of the plug-in are printed when they come.
///
/// Everything printed is flushed before a command runs, since a fatal check of the plug-in ends the
/// process. One shell at a time: it takes the process's log messages.
class Shell {
 public:
  /// How a run ends.
  enum Status : int { Done = 0, ExpectationFailed = 1, BadInput = 2 };

  /// The host and the stream must outlive the shell.
  Shell(Switch& host, std::ostream& out, ShellOptions const& options = {});
  Shell(Shell const&) = delete;
  Shell& operator=(Shell const&) = delete;
  ~Shell();

  /// Runs every line of a file, or of a stream that is called `name` in errors, up to the first one
  /// that fails, which is reported on `err`. Gives how that one failed, or the first of them.
  Status runFile(std::filesystem::path const& file, std::ostream& err);
  Status runStream(std::istream& in, std::string const& name, std::ostream& err);
  /// One line of a prompt, in which keywords may be shortened.
  Status runLine(std::string_view line, std::ostream& err);
  /// Does what is due by the clocks. Gives the seconds until that is to be called again; nothing
  /// when it need not be.
  std::optional<double> runDue();
  /// Takes back what has not been confirmed, since the session ends.
  void takeBack();

  /// Whether a line said exit.
  bool exited() const { return exited_; }
  /// Shows answers that have a text in place of the stream.
  void pagerIs(std::function<void(Answer const&)> pager) { pager_ = std::move(pager); }
  /// Learns what is carried out: those of a file in place of the line that loads it.
  struct Recorder {
    /// A line that fits the language, before it is carried out.
    std::function<void(std::string_view)> line;
    /// The last line was refused, or its expectation failed.
    std::function<void()> refused;
  };
  void recorderIs(Recorder recorder) { recorder_ = std::move(recorder); }
  /// Adds commands to those that every shell has.
  void add(CommandGroup group) { table_.add(std::move(group)); }
  CommandTable const& table() const { return table_; }
  Pipeline const& pipeline() const { return pipeline_; }
  Switch& host() { return host_; }
  Changes& changes() { return changes_; }

  /// A file that a command reads: in the folder of the file that holds the command, else in the
  /// working directory. The first of both when it is in neither.
  std::filesystem::path inputPath(std::string const& name) const;
  /// Where the line is that is carried out: "operator.cfg:3".
  std::string place() const { return place_.name + ':' + std::to_string(place_.line); }
  std::ostream& out() { return out_; }
  ShellOptions const& options() const { return options_; }

 private:
  /// Lines failed.
  struct Failure : std::runtime_error {
    Failure(Status why, LineError error) : Failure(why, std::vector{std::move(error)}) {}
    Failure(Status why, std::vector<LineError> all)
        : std::runtime_error(all.at(0).text), status(why), errors(std::move(all)) {}
    Status status;
    std::vector<LineError> errors;
  };
  struct Place {
    std::string name;
    std::filesystem::path folder;
    size_t line = 0;
    /// Whether the line is a prompt's.
    bool typed = false;
  };
  static constexpr size_t kMaxDepth = 16;
  /// As long as it lives, lines are those of that file, with variables of their own.
  class Inside {
   public:
    Inside(Shell& shell, Place const& place);
    Inside(Inside const&) = delete;
    Inside& operator=(Inside const&) = delete;
    ~Inside();

   private:
    Shell& shell_;
    Place const outer_;
    Variables variables_;
  };

  void addLanguage();
  void addExpectations(std::vector<Command>& add);
  template <class F>
  Status guarded(std::ostream& err, F const& run);
  template <class F>
  void unattended(F const& run);
  void report(Failure const& failure);
  /// `doubt` is about words of the line that is carried out.
  void warn(Doubt const& doubt);
  /// Counts the commands carried out.
  void readLines(FileLines& lines, Place const& place, size_t& commands);
  /// Whether the line was a command. An error of the language becomes a Failure that has its place.
  template <class F>
  bool located(std::string_view line, F const& run);
  LineError errorHere(std::string const& what) const;
  /// The words with the values of variables; nothing when one is not known yet. Throws InputError.
  std::optional<std::vector<std::string>> wordsOf(std::string_view line) const;
  /// The line of those words for the recorder: a file that it reads is named as it is found from
  /// anywhere.
  std::string recordedLine(std::vector<std::string> words) const;
  /// Whether there was a command. `line` is the words as they were typed.
  bool carryOut(std::vector<std::string> const& words, std::string_view line);
  /// A command and the filters of its answer. Valid as long as the words.
  struct Prepared {
    CommandTable::Found found;
    Pipeline::Stages filters;
  };
  Prepared prepare(std::span<std::string const> words) const;
  Answer run(Prepared const& prepared);
  Answer answerOf(Command const& command, Arguments const& arguments);
  Answer load(Arguments const& given);
  Answer loadCheck(Arguments const& given);
  /// What is known of a file whose lines were looked at.
  struct CheckedFile {
    std::filesystem::file_time_type written;
    /// Every command is a line of the operator's.
    bool operatorOnly = true;
    /// Whether one of these may be refused over some configuration.
    bool mayBeRefused = false;
  };
  /// What a look at a file, and at those that it loads, has found.
  struct Checked {
    std::vector<LineError> errors;
    /// Lines with an error; more than there are errors when they are too many.
    size_t wrong = 0;
    size_t commands = 0;
    bool exits = false;
    /// Of the file that is being looked at, at last of the outermost one.
    CheckedFile top;
    std::vector<std::filesystem::path> open;
    std::map<std::filesystem::path, CheckedFile> files;
  };
  /// `missing`: whether a file to be loaded that cannot be read is an error.
  void check(std::filesystem::path const& file, FileLines& lines, bool missing, Checked& found);
  void checkLine(std::string_view line, bool missing, Checked& found);
  void checkNested(std::filesystem::path const& file, bool missing, Checked& found);
  /// The words of the command that is carried out in the end, without its filters.
  std::span<std::string const> checkCommand(std::span<std::string const> words) const;
  static void throwErrors(Checked& found);
  /// Throws Failure for the first line of the operator's that would be refused.
  void checkOperatorLines(FileLines& lines, std::string const& name);
  void readChecked(FileLines& lines, Place const& place, size_t& commands);
  void readAllOrNothing(FileLines& lines, Place const& place, CheckedFile const& facts,
                        size_t& commands);
  Configuration readConfiguration(std::string const& name);
  void advance(double seconds);
  /// Calls `f` with the command within one. Throws InputError when that is none.
  template <class F>
  auto withInner(Arguments const& given, F const& f);
  /// The answer to it.
  Answer answerToInner(Arguments const& given);
  Answer expect(Arguments const& given);
  Answer expectContains(Arguments const& given);
  Answer expectOneOf(Arguments const& given);
  Answer expectDeath(Arguments const& given);
  Answer expectStderr(Arguments const& given);
  [[noreturn]] void expectationFailed(std::string const& how, nlohmann::json const& expected,
                                      nlohmann::json const& found) const;
  Answer reset();
  void takeLog();
  static nlohmann::json expectedJson(std::string const& text);
  Answer measure(Arguments const& given);
  void print(Answer const& answer, std::string_view line);
  /// Throws Failure when what was printed cannot be written.
  void flush();

  Switch& host_;
  std::ostream& out_;
  ShellOptions const options_;
  std::function<void(Answer const&)> pager_;
  Recorder recorder_;
  CommandTable table_;
  Pipeline pipeline_{table_};
  Changes changes_;
  SlicedShow slicedShow_;
  Place place_;
  /// Of the file that is read, or of the prompt.
  Variables variables_;
  /// The line that is carried out, as it was typed, and the words that were made of it.
  std::string_view source_;
  std::span<std::string const> words_;
  /// Files that were checked with one that is being loaded.
  std::map<std::filesystem::path, CheckedFile> checked_;
  size_t loads_ = 0;
  size_t depth_ = 0;
  bool exited_ = false;
  /// Of the current run.
  std::ostream* err_ = nullptr;
  Status firstFailure_ = Done;
};

}  // namespace Host
