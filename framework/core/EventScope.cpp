// SPDX-License-Identifier: Apache-2.0
#include "framework/core/EventScope.h"

namespace Ringlog {

constinit EventScope::State EventScope::state_ = {EventScope::kNoScope, 0};

}  // namespace Ringlog
