// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "framework/log/LogSeverity.h"

/// Where the service's messages go: to the journal, with their fields, when standard error is
/// connected to it; else to standard error, a line each.
namespace Log {

/// Takes the process's log messages from now on.
void begin();
/// One message of the service itself.
void write(Kiv::LogSeverity severity, std::string const& text);
/// The least severe messages that are written. The default is informational.
void levelIs(Kiv::LogSeverity severity);

}  // namespace Log
