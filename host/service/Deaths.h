// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/core/Types.h"

namespace Host {

/// How an earlier process of the service ended.
struct Death {
  double time = 0;  ///< seconds since 1970
  int signal = 0;
  std::string event;               ///< what was being handled
  std::string text;                ///< the fatal line; empty for a signal that is no failed check
  std::string where;               ///< file, line and function of the check
  std::vector<std::string> trace;  ///< the end of the trace ring
};

/// The service's memory of deaths, in a directory that outlives the process: how the last process
/// that died ended, and how many bring-ups in a row did not come to their end.
///
/// Failed checks and deadly signals are noted from its constructor on, until its destructor. One at
/// a time.
class Deaths {
 public:
  static constexpr unsigned kMaxAttempts = 3;

  /// Makes the directory. What cannot be read in it counts as absent. Throws std::system_error when
  /// the directory cannot be made.
  explicit Deaths(std::filesystem::path directory);
  Deaths(Deaths const&) = delete;
  Deaths& operator=(Deaths const&) = delete;
  ~Deaths();

  std::optional<Death> const& last() const { return last_; }
  /// Whether that was not known before: the process before this one has noted it.
  bool isNew() const { return isNew_; }
  /// Deaths of earlier processes in all.
  Kiv::U64 count() const { return count_; }

  /// Bring-ups in a row before this one that ended in death, with these inputs.
  unsigned attempts(Kiv::U64 inputs) const { return inputs == inputs_ ? attempts_ : 0; }
  /// Bring-ups in a row that ended in death, whatever the inputs were.
  unsigned attempts() const { return allAttempts_; }
  /// A bring-up is about to begin. Throws std::system_error when that cannot be noted.
  void bringUpBegins(Kiv::U64 inputs);
  /// It came to its end.
  void bringUpEnded();

  /// What is being handled from now on. Cheap; cut when it is long.
  static void eventIs(std::string_view event) noexcept;
  /// A forked process notes nothing.
  static void forked() noexcept;

 private:
  void readDeath();
  void readAttempts();

  std::filesystem::path const directory_;
  std::optional<Death> last_;
  bool isNew_ = false;
  Kiv::U64 count_ = 0;
  Kiv::U64 inputs_ = 0;
  unsigned attempts_ = 0;
  unsigned allAttempts_ = 0;
};

}  // namespace Host
