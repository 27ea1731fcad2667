// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

namespace Kiv {

/// Puts a value back into its place at the end of a scope, also when an exception leaves it:
///
///   Kiv::Restore<bool> const outer{running_, running_};
///   running_ = true;
template <class T>
struct Restore {
  T& place;
  T value;

  ~Restore() { place = std::move(value); }
};

}  // namespace Kiv
