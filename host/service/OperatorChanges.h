// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/commands/Configuration.h"
#include "host/store/Store.h"
#include "host/switch/Switch.h"

namespace Host {

/// What one of the operator's lines changes in the store, where `configured` gives the MAC that its
/// VRF and address have; nothing when it changes nothing. Readable as it is. Throws InputError.
std::optional<StoreChange> operatorChange(
    OperatorLine const& line, std::function<std::optional<Ovra::EthAddr>()> const& configured);

/// The same for the words of a line, of which isOperatorLine() is true, in a switch that has the
/// store's configuration.
std::vector<StoreChange> operatorChanges(Switch const& host, std::span<std::string const> words);

}  // namespace Host
