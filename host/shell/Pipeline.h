// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "host/language/CommandTable.h"

namespace Host {

/// Writes an answer's text to a file, whose folder is made. The answer to that: the number of its
/// lines. Throws InputError.
Answer savedTo(std::string const& file, Answer const& answer);

/// What may follow a command after `|`: its answer is filtered, counted or saved. As many words as
/// possible are the command, so that a `|` that is part of one, or of a text, is no filter.
class Pipeline {
 public:
  /// The commands must outlive the pipeline.
  explicit Pipeline(CommandTable const& commands);
  Pipeline(Pipeline const&) = delete;
  Pipeline& operator=(Pipeline const&) = delete;

  /// The number of words up to the first filter's `|`; all of them when there is none.
  size_t commandWords(std::span<std::string const> words) const;

  /// One filter, checked and ready.
  using Stages = std::vector<std::vector<std::string>>;
  /// The filters of what follows the command, `|` first. Throws InputError for one that is wrong.
  Stages stages(std::span<std::string const> words) const;
  /// What the filters make of an answer. Throws InputError.
  Answer apply(Stages const& stages, Answer answer);
  /// Has the command of a line carried out by its handler; its answer, filtered. Throws InputError,
  /// and what the handler throws.
  Answer answerTo(std::span<std::string const> words);

  /// CommandTable::expanded() and next() for a line that may have filters.
  std::vector<std::string> expanded(std::span<std::string const> words) const;
  std::vector<CommandTable::Next> next(std::span<std::string const> words) const;

 private:
  void addFilters();
  bool isCommand(std::span<std::string const> words) const;

  CommandTable const& commands_;
  CommandTable filters_;
  Answer current_;
};

}  // namespace Host
