// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/shell/Shell.h"

namespace Host {

/// What the last word of an unfinished line may become, sorted: keywords, and the VRFs, addresses,
/// interfaces, VRF ids and profiles that the host knows, or files, where one of these is expected.
std::vector<std::string> completionsOf(std::string_view line, Shell& shell);

/// What may follow an unfinished line, or become of its last word: a line each, with what it is
/// for.
std::vector<std::string> explanationOf(std::string_view line, Shell& shell);

/// Whether an unfinished line ends within a quoted word.
bool endsInQuotes(std::string_view line);

struct PromptOptions {
  /// Where the session's lines are kept; empty: in the user's state folder.
  std::string sessionLog;
};

/// Reads lines from the terminal until exit or the end of input, with editing, completion, a
/// history that outlives the process, and a pager for long answers. An error in a line is reported
/// on standard error, and the prompt continues; an interrupt drops the line, or stops the output.
/// The lines are kept in a session log, from which the next prompt can repeat what happened when
/// the process has died.
void runPrompt(Shell& shell, PromptOptions const& options = {});

}  // namespace Host
