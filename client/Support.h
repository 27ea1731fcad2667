// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>

#include "client/Connection.h"

/// Writes what a support case needs to know of a service as one text: a section for each command
/// that looks at the state as a whole, with its answer or its error. Throws NoService.
void writeSupport(std::ostream& out, Connection& connection);
