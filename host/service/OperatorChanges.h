// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "framework/core/PtrInterface.h"
#include "host/language/Pattern.h"
#include "host/store/Store.h"

namespace Host {

/// What one of the operator's lines changes in the configuration, which has to be the record of
/// the store. Throws InputError.
using OperatorChange =
    std::function<std::vector<StoreChange>(Kiv::PtrInterface& configuration, Arguments const&)>;

/// By the lines' forms.
std::map<std::string, OperatorChange> operatorChanges();

}  // namespace Host
