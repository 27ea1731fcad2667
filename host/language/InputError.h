// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace Host {

/// A line cannot be carried out, and nothing of it has been. The text says what was expected.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Host
