// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>

#include "host/language/CommandTable.h"

namespace Host {

class Shell;

/// Carries the lines out in the copy, whose shell it is given; what is refused goes to the stream.
using CarryOut = std::function<void(Shell&, std::ostream&)>;

/// What lines would do to the chip's rows, tried out on a copy of the whole agent. The agent itself
/// is untouched, also when the lines would end it: the copy is a process of its own, its rows are
/// in memory, and it has no file, map or socket of this process. It carries out no line that writes
/// files.
///
/// Gives {added, removed, changed, waiting, dies, error}. Rows are {mac, sip, vlan}; a changed one
/// has its present MAC in "was" as well, one that would wait the reason; they are null when the
/// agent would die. `dies` is then {line, command, text}, where and with which last line, else
/// null. `error` is about the line that would be refused, before which all count, or null.
///
/// Throws std::runtime_error when there can be no copy, or when it is ended from outside.
nlohmann::json whatIf(Shell& shell, CarryOut const& carryOut);

/// The result with what people read. `name` is what was tried.
Answer whatIfAnswer(nlohmann::json const& result, std::string const& name);

CommandGroup whatIfCommands(Shell& shell);

}  // namespace Host
