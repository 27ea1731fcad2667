#include "framework/corvo/Database.h"

#include <string>

#include "framework/core/Exceptions.h"
#include "framework/corvo/Exceptions.h"
#include "framework/generic/Type.h"

namespace Corvo {

namespace {

[[noreturn]] void refuse(Kiv::String const& path, std::string const& why) {
  throw MountException("cannot mount \"" + path.stdString() + "\": " + why);
}

Kiv::Ptr<Kiv::Entity> make(Kiv::String const& path, Kiv::String const& typeName) {
  Kiv::Type const* const type = Kiv::Type::find(typeName);
  if (type == nullptr) refuse(path, "unknown type " + typeName.stdString());
  Kiv::Ptr<Kiv::PtrInterface> object;
  try {
    object = type->construct({});
  } catch (Kiv::RangeException const& exception) {
    refuse(path, exception.what());
  }
  auto entity = Kiv::ptrCast<Kiv::Entity>(object);
  if (!entity) refuse(path, typeName.stdString() + " is not the type of an entity");
  return entity;
}

}  // namespace

Database::Database() = default;
Database::~Database() = default;

Database::Place& Database::place(Kiv::String const& path, Kiv::String const& typeName) {
  auto const found = places_.find(path);
  if (found != places_.end()) {
    Place& there = found->second;
    if (there.typeName == typeName) return there;
    refuse(path, "it is of type " + there.typeName.stdString() + ", not " + typeName.stdString());
  }
  if (path.empty()) refuse(path, "the path is empty");
  if (Kiv::Type::find(typeName) == nullptr) refuse(path, "unknown type " + typeName.stdString());
  return places_.emplace(path, Place{typeName, nullptr}).first->second;
}

void Database::typeIs(Kiv::String const& path, Kiv::String const& typeName) {
  place(path, typeName);
}

Kiv::String Database::typeName(Kiv::String const& path) const {
  auto const found = places_.find(path);
  return found == places_.end() ? Kiv::String() : found->second.typeName;
}

Kiv::Ptr<Kiv::Entity> Database::entity(Kiv::String const& path) const {
  auto const found = places_.find(path);
  return found == places_.end() ? nullptr : found->second.entity;
}

Kiv::Ptr<Kiv::Entity> Database::entityIs(Kiv::String const& path, Kiv::String const& typeName) {
  if (Kiv::Ptr<Kiv::Entity> there = entity(path)) {
    typeIs(path, typeName);
    return there;
  }
  Kiv::Ptr<Kiv::Entity> made = make(path, typeName);
  place(path, typeName).entity = made;
  Kiv::String const key = path;
  notify(kEntity.id, &key);
  return made;
}

Kiv::Type const& Database::_kivType() {
  static Kiv::Type const type("Corvo::Database", &Kiv::PtrInterface::_kivType(), {});
  return type;
}

}  // namespace Corvo
