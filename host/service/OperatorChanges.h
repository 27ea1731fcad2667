// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/store/Store.h"
#include "host/switch/Switch.h"

namespace Host {

/// What one of the operator's lines, of which isOperatorLine() is true, changes in the store. The
/// switch has the store's configuration. Throws InputError.
std::vector<StoreChange> operatorChanges(Switch const& host, std::span<std::string const> words);

}  // namespace Host
