// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "framework/values/VrfId.h"
#include "host/commands/Changes.h"
#include "host/commands/Configuration.h"
#include "host/language/CommandTable.h"

namespace Agent {
class CommandDispatcher;
}

namespace Host {

class SlicedShow;
class Switch;
struct Applied;

/// The commands of each kind, acting on a host that must outlive them.
CommandGroup operatorCommands(Switch& host);
/// Of this process, whatever it does.
CommandGroup traceCommands();
CommandGroup hostCommands(Switch& host);
/// Adds those that do to an input what only a test does: notifications without a change, another
/// object under the same key, the active profile in parts.
void addInputCommands(CommandGroup& group, Switch& host);
CommandGroup sliceCommands(SlicedShow& show);
/// Has the dispatcher run the plug-in's show command, which appends to `output`. Throws InputError.
void startShow(Switch& host, Arguments const& given, Agent::CommandDispatcher& dispatcher,
               std::string& output);
CommandGroup chipCommands(Switch& host);
CommandGroup lookCommands(Switch& host);
CommandGroup explainCommands(Switch& host);
CommandGroup rewriteCommands(Switch& host);
/// The VRF's id that the words give under this name.
Pex::VrfId vrfIdOf(Arguments const& given, std::string_view key);
/// The number and the word, plural unless the number is one.
std::string counted(size_t count, std::string const& what);
/// What a commit or a repair did, for people.
std::string text(Applied const& applied);
/// Makes the folder, and those that it lies in. Throws InputError.
void makeFolder(std::filesystem::path const& folder);
/// The same for the folder of a file that is about to be written.
inline void makeFolderOf(std::filesystem::path const& file) {
  if (file.has_parent_path()) makeFolder(file.parent_path());
}
/// Finds a file that a command reads.
using ResolvePath = std::function<std::filesystem::path(std::string const&)>;
CommandGroup packetCommands(Switch& host, ResolvePath const& resolve);
/// Reads a file of the operator's lines. Throws InputError.
using ReadConfiguration = std::function<Configuration(std::string const&)>;
CommandGroup changeCommands(Changes& changes, ReadConfiguration const& read);
/// The making of large examples.
CommandGroup scaleCommands();

}  // namespace Host
