#pragma once

#include <map>

#include "framework/core/Entity.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace Corvo {

/// The state database inside one process: entities by path, held for as long as the database lives.
/// embeddedSessionFactory() is an agent's way to it.
class Database final : public Kiv::PtrInterface {
 public:
  /// Told with the path when an entity is made.
  static constexpr Kiv::Attr<Kiv::String> kEntity{130};

  Database();
  ~Database() override;

  /// Settles the type of what is, or will be, at `path`. The first to name a type settles it, also
  /// when the entity is not there yet. Throws MountException for the empty path, for a type that is
  /// not known and for another type than the settled one.
  void typeIs(Kiv::String const& path, Kiv::String const& typeName);
  /// The name of the path's type; empty when nobody has named one.
  Kiv::String typeName(Kiv::String const& path) const;

  /// The entity at `path`, or null.
  Kiv::Ptr<Kiv::Entity> entity(Kiv::String const& path) const;
  /// The entity; made by its type's name, its notification on, and announced when it is not there.
  /// Throws MountException as typeIs does, and when the type cannot be made or is not an entity's.
  Kiv::Ptr<Kiv::Entity> entityIs(Kiv::String const& path, Kiv::String const& typeName);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  // The type by name, not by its record: the record goes when its library is unloaded.
  struct Place {
    Kiv::String typeName;
    Kiv::Ptr<Kiv::Entity> entity;
  };

  Place& place(Kiv::String const& path, Kiv::String const& typeName);

  std::map<Kiv::String, Place> places_;
};

}  // namespace Corvo
