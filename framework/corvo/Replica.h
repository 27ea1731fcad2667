// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <unordered_map>

#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/String.h"

namespace Corvo {

/// Passes the changes of one object, and those of its members, on to all replicas of it: each copy
/// gets every change, whatever the handlers of the others throw. Afterwards the first of their
/// exceptions is rethrown to the mutator's caller.
///
/// Ownership: holds the object.
/// Order: registers with the object in its constructor. A reactor that was registered before that
/// and throws keeps the change from the replicas; so does one that a member already had when its
/// first replica was made.
class Publisher final : public Kiv::PtrInterface {
 public:
  explicit Publisher(Kiv::Ptr<Kiv::PtrInterface const> const& original);
  ~Publisher() override;

  Kiv::Ptr<Kiv::PtrInterface const> const& original() const { return original_; }

 private:
  friend class Replica;
  class Source;

  Kiv::Ptr<Source> source(Kiv::Ptr<Kiv::PtrInterface const> const& object);
  void sourceDel(Source const& source);

  Kiv::Ptr<Kiv::PtrInterface const> const original_;
  std::unordered_map<Kiv::PtrInterface const*, Kiv::Ptr<Source>> sources_;  // by object
};

/// Keeps a copy of an object equal to the original, by the descriptions of the type's attributes:
/// scalars, collections of values, and collections of objects, whose members get replicas of their
/// own. Constants, and what a type does not let be written by name, are not copied.
///
/// What changes in the original is done to the copy at once, through the type's own mutators. A
/// change of the copy that does not come from the original is undone before any other notifiee of
/// the copy is called, and its author gets a ReadOnlyException; so does the one who switches the
/// copy's notification off, which stays on.
///
/// Ownership: holds both objects. The copy outlives it and is no longer updated then.
class Replica {
 public:
  /// Fills `copy`, of the same type as the original and not watched yet, and switches its
  /// notification on. `name` is its name in a ReadOnlyException. Throws MountException when the
  /// types differ.
  Replica(Kiv::Ptr<Publisher> const& publisher, Kiv::Ptr<Kiv::PtrInterface> const& copy,
          Kiv::String const& name);
  /// The same with a publisher of its own.
  Replica(Kiv::Ptr<Kiv::PtrInterface const> const& original,
          Kiv::Ptr<Kiv::PtrInterface> const& copy, Kiv::String const& name);
  Replica(Replica const&) = delete;
  Replica& operator=(Replica const&) = delete;
  ~Replica();

  Kiv::Ptr<Kiv::PtrInterface> const& copy() const;

 private:
  friend class Publisher;
  class Node;

  Kiv::Ptr<Node> node_;
};

}  // namespace Corvo
