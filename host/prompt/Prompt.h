// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/prompt/PromptTarget.h"

namespace Host {

/// What the last word of an unfinished line may become, sorted: keywords, and values that the
/// target knows, or files, where one of these is expected.
std::vector<std::string> completionsOf(std::string_view line, PromptTarget& target);

/// What may follow an unfinished line, or become of its last word: a line each, with what it is
/// for.
std::vector<std::string> explanationOf(std::string_view line, PromptTarget& target);

/// Whether an unfinished line ends within a quoted word.
bool endsInQuotes(std::string_view line);

struct PromptOptions {
  /// The program, as ~/.editrc and the terminal have it.
  std::string program;
  /// The file of the history in the user's state folder.
  std::string history;
  /// Whether there is a session log, for which the target has a recorder.
  bool logged = false;
  /// Where it is; empty: in the user's state folder.
  std::string sessionLog;
};

/// Reads lines from the terminal until exit or the end of input, with editing, completion, a
/// history that outlives the process, and a pager for long answers. An error in a line is reported
/// on standard error, and the prompt continues; an interrupt drops the line, or stops the output.
/// Differences are green, red and yellow where colours may be used. The lines are kept in a session
/// log, where there is one, from which the next prompt can repeat what happened when the process
/// has died.
void runPrompt(PromptTarget& target, PromptOptions const& options);

}  // namespace Host
