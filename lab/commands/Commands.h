#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "lab/language/CommandTable.h"

namespace Lab {

class LabHost;

/// The commands of each kind, acting on a host that must outlive them.
CommandGroup operatorCommands(LabHost& host);
CommandGroup hostCommands(LabHost& host);
CommandGroup chipCommands(LabHost& host);
CommandGroup lookCommands(LabHost& host);
/// Where a file that a command reads is.
using ResolvePath = std::function<std::filesystem::path(std::string const&)>;
CommandGroup packetCommands(LabHost& host, ResolvePath const& resolve);
/// The making of large examples.
CommandGroup scaleCommands();

}  // namespace Lab
