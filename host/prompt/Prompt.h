#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "host/shell/Shell.h"

namespace Host {

/// What the last word of an unfinished line may become, sorted: keywords, and the VRFs, addresses
/// and interfaces that the host knows where one of these is expected.
std::vector<std::string> completionsOf(std::string_view line, Shell& shell);

/// Reads lines from the terminal, with editing, a history of this session and completion by the tab
/// key, until exit or the end of input. An error in a line is reported, and the prompt continues.
void runPrompt(Shell& shell, std::ostream& err);

}  // namespace Host
