// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "host/commands/KnownValues.h"
#include "host/language/CommandTable.h"
#include "host/shell/Pipeline.h"

namespace Host {

/// What the lines of a prompt are for: it has their forms, knows names that may be typed in them,
/// and carries them out.
class PromptTarget {
 public:
  PromptTarget() = default;
  PromptTarget(PromptTarget const&) = delete;
  PromptTarget& operator=(PromptTarget const&) = delete;
  virtual ~PromptTarget() = default;

  /// The word before "> ".
  virtual std::string name() const = 0;
  /// The forms of commands and filters.
  virtual Pipeline const& pipeline() const = 0;
  /// Adds commands of the prompt's own.
  virtual void add(CommandGroup group) = 0;
  /// The values of that kind (see kindOf()) that begin with what is typed.
  virtual Selection known(std::string_view kind, std::string_view typed) = 0;

  /// Carries a line out, in which keywords may be shortened. Its answer goes to the pager; warnings
  /// and errors are written to the stream. An interrupt may stop it.
  virtual void run(std::string_view line, std::ostream& errors) = 0;
  /// Whether a line said exit.
  virtual bool ended() const = 0;
  /// Shows answers; with an empty function they are written to standard output.
  virtual void pagerIs(std::function<void(Answer const&)> pager) = 0;

  /// Learns of lines as Shell::Recorder does, where what they do does not outlive the process.
  struct Recorder {
    std::function<void(std::string_view)> line;
    std::function<void()> refused;
  };
  virtual void recorderIs(Recorder const& /*recorder*/) {}

  /// The seconds until runDue() is to be called, while a line is typed; nothing when it need not
  /// be.
  virtual std::optional<double> timeLeft() { return std::nullopt; }
  virtual void runDue() {}
  /// The session ends.
  virtual void leave() {}
};

}  // namespace Host
