// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/String.h"

namespace Kiv {

/// A string built as printf does, of any length. The format is always a literal of the program,
/// never text from outside. A format that the C library cannot carry out is a fatal error.
[[gnu::format(printf, 1, 2)]] String format(char const* fmt, ...);

}  // namespace Kiv
