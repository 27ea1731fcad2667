// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/prompt/PromptTarget.h"
#include "host/shell/Variables.h"

namespace Host {

/// A prompt's target that is a table of commands. Adds variables, help and exit to them.
class TableTarget : public PromptTarget {
 public:
  /// `json`: answers are JSON lines.
  explicit TableTarget(bool json) : json_(json) {}

  Pipeline const& pipeline() const override { return pipeline_; }
  void add(CommandGroup group) override;
  void run(std::string_view line, std::ostream& errors) override;
  bool ended() const override { return ended_; }
  void pagerIs(std::function<void(Answer const&)> pager) override { pager_ = std::move(pager); }

 protected:
  /// Called before a line is looked at. Throws std::exception for a line that cannot be carried
  /// out.
  virtual void begin() {}
  /// The commands that a line may have beside those that were added, in place of earlier ones.
  void commandsAre(std::vector<CommandGroup> groups);

  /// About the line that is carried out.
  void warn(Doubt const& doubt);
  /// An error's text, which ends with a line end, of a line that is carried out all the same.
  void addError(std::string const& text);
  /// Says so at once.
  static void note(std::string const& text);

 private:
  void rebuild();
  void carryOut(std::string_view line);

  bool const json_;
  std::vector<CommandGroup> groups_;
  std::vector<CommandGroup> added_;
  CommandTable table_;
  Pipeline pipeline_{table_};
  std::function<void(Answer const&)> pager_;
  size_t number_ = 0;
  bool ended_ = false;
  Variables variables_;
  std::string_view line_;
  std::ostream* errors_ = nullptr;
};

}  // namespace Host
