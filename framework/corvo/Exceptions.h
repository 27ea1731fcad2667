#pragma once

#include <stdexcept>

namespace Corvo {

/// A mount that the database cannot make: an unknown type, a path that holds another type, a type
/// that it cannot make or replicate. Says which path and why.
class MountException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A write to an entity that is mounted for reading. The entity is as it was and nobody was told.
class ReadOnlyException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Corvo
