// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

/// The folder of what outlives a session: $XDG_STATE_HOME/macrewrite, or ~/.local/state/macrewrite;
/// made when it is missing. Empty when there is none.
std::filesystem::path stateFolder();

/// The lines of one session in a file, each there before it is carried out, so that the last one of
/// a session that died is the one that ended it. A file belongs to one process at a time.
class SessionLog {
 public:
  /// What a session left that did not end.
  struct Unfinished {
    std::filesystem::path file;
    std::vector<std::string> lines;
  };

  /// Opens the file. What a session left there that did not end is kept beside it, in a file with
  /// ".unfinished" after its name. Throws std::system_error when it cannot be written, and when
  /// another process has it.
  explicit SessionLog(std::filesystem::path file);
  /// The same with the first file of its kind in the folder that no process has.
  static std::optional<SessionLog> inFolder(std::filesystem::path const& folder);
  SessionLog(SessionLog&&) noexcept;
  SessionLog& operator=(SessionLog&&) = delete;
  ~SessionLog();

  std::filesystem::path const& file() const { return file_; }
  std::optional<Unfinished> const& unfinished() const { return unfinished_; }

  /// Adds a line. Throws std::system_error.
  void add(std::string_view line);
  /// The last line changed nothing.
  void refused();
  /// The session has ended as it should.
  void end();
  /// The lines so far without those that were refused.
  std::vector<std::string> lines() const;

 private:
  std::filesystem::path file_;
  int descriptor_ = -1;
  std::optional<Unfinished> unfinished_;
};

}  // namespace Host
