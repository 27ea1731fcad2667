// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/language/CommandTable.h"
#include "host/shell/Pipeline.h"
#include "host/switch/Switch.h"

namespace Host {

struct ShellOptions {
  /// Each line before it is carried out.
  bool echo = false;
  /// Every answer as a JSON line, {"answer", "command", "file", "line"}.
  bool json = false;
  /// A line that fails is reported, and the next one is carried out.
  bool keepGoing = false;
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

  /// Whether a line said exit.
  bool exited() const { return exited_; }
  /// Shows an answer's text, which ends with a line end, in place of the stream.
  void pagerIs(std::function<void(std::string const&)> pager) { pager_ = std::move(pager); }
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

  /// A file that a command reads: in the folder of the file that holds the command, else in the
  /// working directory. The first of both when it is in neither.
  std::filesystem::path inputPath(std::string const& name) const;
  std::ostream& out() { return out_; }
  ShellOptions const& options() const { return options_; }

 private:
  /// A line failed; the text says where and why.
  struct Failure : std::runtime_error {
    Failure(Status why, std::string const& text) : std::runtime_error(text), status(why) {}
    Status status;
  };
  struct Place {
    std::string name;
    std::filesystem::path folder;
    size_t line = 0;
  };
  static constexpr size_t kMaxDepth = 16;

  void addLanguage();
  template <class F>
  Status guarded(std::ostream& err, F const& run);
  void report(Failure const& failure);
  /// The number of commands carried out.
  size_t readFile(std::filesystem::path const& file);
  size_t readStream(std::istream& in, Place const& place, Kiv::U64 size);
  /// Whether the line was a command. An error of the language becomes a Failure that has its place.
  template <class F>
  bool located(F const& run);
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
  Answer answerTo(std::span<std::string const> words) { return run(prepare(words)); }
  Answer load(Arguments const& given);
  Answer expect(Arguments const& given);
  Answer measure(Arguments const& given);
  void print(Answer const& answer, std::string_view line);
  /// Throws Failure when what was printed cannot be written.
  void flush();

  Switch& host_;
  std::ostream& out_;
  ShellOptions const options_;
  std::function<void(std::string const&)> pager_;
  Recorder recorder_;
  CommandTable table_;
  Pipeline pipeline_{table_};
  Place place_;
  size_t depth_ = 0;
  bool exited_ = false;
  /// Of the current run.
  std::ostream* err_ = nullptr;
  Status firstFailure_ = Done;
};

}  // namespace Host
