// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace Corvo {

/// A mount that the database can never make, for example one of an unknown type. Says which path
/// and why.
class MountException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A write to an entity that is mounted for reading. The entity is as it was, and no
/// notifiee was called.
class ReadOnlyException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Corvo
