// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "client/Connection.h"

/// Prints the answer to a line, again after each change, in place of the last one on a terminal.
/// Ends when the line fails, with the answer that says so, or when nothing can be printed, with
/// null. Throws NoService and Interrupted.
nlohmann::json watch(Connection& connection, bool json, std::string const& line);
