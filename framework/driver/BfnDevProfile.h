// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>

namespace BfnDriver {

/// The profile a chip was loaded with, as its driver names it.
class BfnDevProfile {
 public:
  BfnDevProfile() = default;
  explicit BfnDevProfile(std::string name) : name_(std::move(name)) {}

  std::string const& name() const { return name_; }

 private:
  std::string name_;
};

}  // namespace BfnDriver
