// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace prettyout {

/// A named piece of output: `name` is its key in the structured form, `value` its text in both.
/// It borrows both texts; they have to live until the call that renders it returns. A value may
/// hold any bytes.
struct Attribute {
  std::string_view name;
  std::string_view value;
};

}  // namespace prettyout
