// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace Host {

/// Where the installed files are that a program reads at run time. All of it is relative to the
/// running program, so an installed tree, or a build tree, may be anywhere.

/// The plug-in: beside the program, else in the libraries' folder of its prefix, else by its
/// soname, for which dlopen() searches the system's folders.
std::filesystem::path installedPlugin();

/// The folder of the examples. It need not exist.
std::filesystem::path installedExamples();

}  // namespace Host
