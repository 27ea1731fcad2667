// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/language/CommandTable.h"

namespace Host {

class Switch;

/// Adds to the commands what is probably a mistake in their lines, as the host is: addresses that
/// no packet can have, names that nothing knows, removals of what is not there. The host must
/// outlive the commands.
void addDoubts(CommandGroup& group, Switch const& host);

}  // namespace Host
