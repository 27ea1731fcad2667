#pragma once

#include <filesystem>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/language/CommandTable.h"
#include "host/switch/Switch.h"

namespace Host {

struct ShellOptions {
  /// Each line before it is carried out.
  bool echo = false;
  /// Every answer as a JSON line, {"answer", "command", "file", "line"}.
  bool json = false;
};

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
  /// that fails, which is reported on `err`.
  Status runFile(std::filesystem::path const& file, std::ostream& err);
  Status runStream(std::istream& in, std::string const& name, std::ostream& err);
  /// One line of a prompt.
  Status runLine(std::string_view line, std::ostream& err);

  /// Whether a line said exit.
  bool exited() const { return exited_; }
  CommandTable const& table() const { return table_; }
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
    std::size_t line = 0;
  };
  static constexpr std::size_t kMaxDepth = 16;

  void addLanguage();
  template <class F>
  Status guarded(std::ostream& err, F const& run);
  /// The number of commands carried out.
  std::size_t readFile(std::filesystem::path const& file);
  std::size_t readStream(std::istream& in, Place const& place, Kiv::U64 size);
  /// Whether the line was a command.
  bool carryOut(std::string_view line);
  Answer answerTo(std::span<std::string const> words);
  Answer load(Arguments const& given);
  Answer expect(Arguments const& given);
  Answer measure(Arguments const& given);
  void print(Answer const& answer, std::string_view line);
  /// Throws Failure when what was printed cannot be written.
  void flush();

  Switch& host_;
  std::ostream& out_;
  ShellOptions const options_;
  CommandTable table_;
  Place place_;
  std::size_t depth_ = 0;
  bool exited_ = false;
};

}  // namespace Host
