#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "host/language/CommandTable.h"

namespace Host {

class Switch;

/// The commands of each kind, acting on a host that must outlive them.
CommandGroup operatorCommands(Switch& host);
CommandGroup hostCommands(Switch& host);
CommandGroup chipCommands(Switch& host);
CommandGroup lookCommands(Switch& host);
/// Where a file that a command reads is.
using ResolvePath = std::function<std::filesystem::path(std::string const&)>;
CommandGroup packetCommands(Switch& host, ResolvePath const& resolve);
/// The making of large examples.
CommandGroup scaleCommands();

}  // namespace Host
