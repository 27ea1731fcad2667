// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>

#include "framework/core/Entity.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"
#include "framework/corvo/FanOut.h"
#include "framework/corvo/Session.h"

namespace Corvo {

class Publisher;

/// A session as its Database knows it.
class DatabaseClient : public Session {
 public:
  /// An entity has been made at `path`.
  virtual void handleEntity(Kiv::String const& path) = 0;
  /// The database has gained or lost what it mirrors.
  virtual void handleConnected() {}
};

/// The state database inside one process: entities by path, held for as long as the database lives.
/// An agent gets access through embeddedSessionFactory().
class Database final : public Kiv::PtrInterface {
 public:
  /// Notifies with the path when an entity is made, after all clients have been called.
  static constexpr Kiv::Attr<Kiv::String, Database> kEntity{130};
  static constexpr Kiv::Attr<void, Database> kConnected{131};

  Database();
  ~Database() override;

  /// The name of the type of the entity at `path`; empty when there is none.
  Kiv::String typeName(Kiv::String const& path) const;
  /// The entity at `path`, or null.
  Kiv::Ptr<Kiv::Entity> entity(Kiv::String const& path) const;
  /// The entity; made by its type's name, its notification on, and announced when it is not there.
  /// Throws MountException for the empty path, for a type that is not known, cannot be made or is
  /// not an entity's, and for another type than the entity has.
  ///
  /// An announcement reaches every client, whatever another one throws; the first exception is
  /// rethrown afterwards. The entity is there all the same.
  Kiv::Ptr<Kiv::Entity> entityIs(Kiv::String const& path, Kiv::String const& typeName);

  /// Makes what entityIs() would make, without storing it. Throws as entityIs() does.
  static Kiv::Ptr<Kiv::Entity> make(Kiv::String const& path, Kiv::String const& typeName);
  /// Puts an entity at a path where there is none, and announces it as the other form does.
  void entityIs(Kiv::String const& path, Kiv::Ptr<Kiv::Entity> const& entity) {
    objectIs(path, entity);
  }

  // Records that need not be entities. Sessions mount entities only; another record is reached
  // here, and copied by a Replica.

  /// The record at `path`, entity or not, or null.
  Kiv::Ptr<Kiv::PtrInterface> object(Kiv::String const& path) const;
  /// make() for any type.
  static Kiv::Ptr<Kiv::PtrInterface> makeObject(Kiv::String const& path,
                                                Kiv::String const& typeName);
  /// Puts a record at a path where there is none, and announces it as entityIs() does.
  void objectIs(Kiv::String const& path, Kiv::Ptr<Kiv::PtrInterface> const& object);

  /// Whether this database has all that it mirrors; true for one that mirrors nothing.
  bool connected() const { return connected_; }
  /// Notifies every client of a real change, as an announcement does, and then its own notifiees.
  void connectedIs(bool connected);

  /// Throws MountException for the empty path and for a type that is not known.
  static void check(Kiv::String const& path, Kiv::String const& typeName);

  /// The publisher of the entity at `path`, or null.
  Kiv::Ptr<Publisher> publisher(Kiv::String const& path) const;
  /// A client must be removed before it is destroyed.
  void clientIs(DatabaseClient& client) { clients_.add(&client); }
  void clientDel(DatabaseClient& client) { clients_.remove(&client); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  // The type by name, not by its record: the record is destroyed when its library is unloaded.
  struct Place {
    Kiv::String typeName;
    Kiv::Ptr<Kiv::PtrInterface> object;
    Kiv::Ptr<Publisher> publisher;
  };

  // Calls every client, then the own notifiees. Rethrows the first exception.
  template <class F>
  void announce(F const& call, Kiv::AttributeId attribute, void const* key);

  std::map<Kiv::String, Place> places_;
  FanOut<DatabaseClient> clients_;
  bool connected_ = true;
};

}  // namespace Corvo
