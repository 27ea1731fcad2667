#pragma once

#include <unordered_map>

#include "framework/core/Notifiee.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace Corvo {

/// Keeps a copy of an object equal to the original, by the descriptions of the type's attributes:
/// scalars, collections of values, and collections of objects, whose members get replicas of their
/// own. Constants, and what a type does not let be written by name, are not copied.
///
/// The replica watches both. What changes in the original is done to the copy at once, through the
/// type's own mutators. A change of the copy that does not come from the original is taken back
/// before anybody else hears of it, and its author gets a ReadOnlyException.
///
/// Ownership: holds both objects. The copy outlives it, and is nobody's copy then.
class Replica {
 public:
  /// Fills `copy`, of the same type as `original` and watched by nobody yet. `name` is what a
  /// ReadOnlyException says of it. Throws MountException when the types differ.
  Replica(Kiv::Ptr<Kiv::PtrInterface const> const& original,
          Kiv::Ptr<Kiv::PtrInterface> const& copy, Kiv::String const& name);
  Replica(Replica const&) = delete;
  Replica& operator=(Replica const&) = delete;
  ~Replica();

  Kiv::Ptr<Kiv::PtrInterface> const& copy() const;

 private:
  class Node;

  Kiv::Ptr<Node> node_;
};

}  // namespace Corvo
