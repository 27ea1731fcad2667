// SPDX-License-Identifier: Apache-2.0
#include "framework/corvo/Database.h"

#include <exception>
#include <string>

#include "framework/core/Exceptions.h"
#include "framework/core/Fatal.h"
#include "framework/corvo/Exceptions.h"
#include "framework/corvo/Replica.h"
#include "framework/generic/Type.h"

namespace Corvo {

namespace {

[[noreturn]] void refuse(Kiv::String const& path, std::string const& why) {
  throw MountException("cannot mount \"" + path.stdString() + "\": " + why);
}

}  // namespace

Database::Database() = default;
Database::~Database() = default;

void Database::check(Kiv::String const& path, Kiv::String const& typeName) {
  if (path.empty()) refuse(path, "the path is empty");
  if (Kiv::Type::find(typeName) == nullptr) refuse(path, "unknown type " + typeName.stdString());
}

Kiv::Ptr<Kiv::PtrInterface> Database::makeObject(Kiv::String const& path,
                                                 Kiv::String const& typeName) {
  check(path, typeName);
  try {
    return Kiv::Type::find(typeName)->construct({});
  } catch (Kiv::RangeException const& exception) {
    refuse(path, exception.what());
  }
}

Kiv::Ptr<Kiv::Entity> Database::make(Kiv::String const& path, Kiv::String const& typeName) {
  auto entity = Kiv::ptrCast<Kiv::Entity>(makeObject(path, typeName));
  if (!entity) refuse(path, typeName.stdString() + " is not the type of an entity");
  return entity;
}

Kiv::String Database::typeName(Kiv::String const& path) const {
  auto const found = places_.find(path);
  return found == places_.end() ? Kiv::String() : found->second.typeName;
}

Kiv::Ptr<Kiv::PtrInterface> Database::object(Kiv::String const& path) const {
  auto const found = places_.find(path);
  return found == places_.end() ? nullptr : found->second.object;
}

Kiv::Ptr<Kiv::Entity> Database::entity(Kiv::String const& path) const {
  return Kiv::ptrCast<Kiv::Entity>(object(path));
}

Kiv::Ptr<Publisher> Database::publisher(Kiv::String const& path) const {
  auto const found = places_.find(path);
  return found == places_.end() ? nullptr : found->second.publisher;
}

Kiv::Ptr<Kiv::Entity> Database::entityIs(Kiv::String const& path, Kiv::String const& typeName) {
  auto const found = places_.find(path);
  if (found == places_.end()) {
    Kiv::Ptr<Kiv::Entity> made = make(path, typeName);
    entityIs(path, made);
    return made;
  }
  Place const& there = found->second;
  if (there.typeName != typeName) {
    refuse(path, "it is of type " + there.typeName.stdString() + ", not " + typeName.stdString());
  }
  auto entity = Kiv::ptrCast<Kiv::Entity>(there.object);
  if (!entity) refuse(path, typeName.stdString() + " is not the type of an entity");
  return entity;
}

void Database::objectIs(Kiv::String const& path, Kiv::Ptr<Kiv::PtrInterface> const& object) {
  KIV_CHECK(!places_.contains(path), path);
  Kiv::Ptr<Database> const self(this);
  Kiv::String const key = path;
  places_.emplace(
      key, Place{Kiv::String(object->fwkType().name()), object, Kiv::make<Publisher>(object)});
  announce([&key](DatabaseClient& client) { client.handleEntity(key); }, kEntity.id, &key);
}

void Database::connectedIs(bool connected) {
  if (connected == connected_) return;
  Kiv::Ptr<Database> const self(this);
  connected_ = connected;
  announce([](DatabaseClient& client) { client.handleConnected(); }, kConnected.id, nullptr);
}

template <class F>
void Database::announce(F const& call, Kiv::AttributeId attribute, void const* key) {
  std::exception_ptr const thrown = clients_.each(call);
  if (!thrown) {
    notify(attribute, key);
    return;
  }
  try {
    notify(attribute, key);
  } catch (...) {  // not the first
  }
  std::rethrow_exception(thrown);
}

Kiv::Type const& Database::_kivType() {
  static Kiv::Type const type("Corvo::Database", &Kiv::PtrInterface::_kivType(), {});
  return type;
}

}  // namespace Corvo
