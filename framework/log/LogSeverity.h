// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Types.h"

namespace Kiv {

/// The usual eight levels of system logs, most severe first.
enum class LogSeverity : U8 {
  emergency = 0,
  alert = 1,
  critical = 2,
  error = 3,
  warning = 4,
  notice = 5,
  informational = 6,
  debug = 7
};

/// In lower case: "warning".
char const* name(LogSeverity severity);

}  // namespace Kiv
