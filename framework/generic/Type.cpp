// SPDX-License-Identifier: Apache-2.0
#include "framework/generic/Type.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

#include "framework/core/Entity.h"
#include "framework/core/Exceptions.h"
#include "framework/generic/Describe.h"

namespace Kiv {

namespace {

std::vector<TypeRegistration const*>& registrations() {
  static auto* all = new std::vector<TypeRegistration const*>;
  return *all;
}

AttributeDescription const& attributeOf(PtrInterface const& object, std::string_view name) {
  AttributeDescription const* const attribute = object.fwkType().attribute(name);
  if (attribute == nullptr) {
    throwRangeException(std::string(object.fwkType().name()) + " has no attribute \"" +
                        std::string(name.substr(0, 100)) + "\"");
  }
  return *attribute;
}

[[noreturn]] void throwUnknownOperation(PtrInterface const& object,
                                        AttributeDescription const& attribute) {
  throwRangeException(std::string(object.fwkType().name()) + "::" + std::string(attribute.name) +
                      " does not know this operation");
}

void printString(std::ostream& out, std::string_view text) {
  out << '"';
  for (char const c : text) {
    auto const byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out << '\\' << c;
    } else if (byte < 0x20 || byte >= 0x7f) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", byte);
      out << escape;
    } else {
      out << c;
    }
  }
  out << '"';
}

void printValue(std::ostream& out, GenericValue const& value) {
  if (value.isNothing()) {
    out << "null";
  } else {
    printString(
        out, value.isStrep() ? std::string_view(value.strep()) : value.object()->fwkType().name());
  }
}

void printCollection(std::ostream& out, Ptr<PtrInterface> const& object,
                     AttributeDescription const& attribute) {
  out << '{';
  char const* comma = "";
  for (auto walk = attribute.iterate(object, attribute); !walk->atEnd(); walk->iterInc()) {
    out << comma;
    comma = ", ";
    printValue(out, walk->iterKey());
    out << ": ";
    if (attribute.kind == AttributeKind::Members) {
      genericPrint(out, *walk->iterObj().object());
    } else {
      printValue(out, walk->iterObj());
    }
  }
  out << '}';
}

void printAttributes(std::ostream& out, Ptr<PtrInterface> const& object, Type const& type,
                     char const*& comma) {
  if (type.base() != nullptr) printAttributes(out, object, *type.base(), comma);
  for (AttributeDescription const& attribute : type.attributes()) {
    if (attribute.kind == AttributeKind::Operation) continue;
    out << comma;
    comma = ", ";
    printString(out, attribute.name);
    out << ": ";
    if (attribute.iterate != nullptr) {
      printCollection(out, object, attribute);
    } else {
      printValue(out, attribute.get(*object, {}));
    }
  }
}

}  // namespace

Type::Type(std::string_view name, Type const* base, std::vector<AttributeDescription> attributes,
           Constructor constructor)
    : name_(name), base_(base), attributes_(std::move(attributes)), constructor_(constructor) {}

AttributeDescription const* Type::attribute(std::string_view name) const {
  for (AttributeDescription const& attribute : attributes_) {
    if (attribute.name == name) return &attribute;
  }
  return base_ == nullptr ? nullptr : base_->attribute(name);
}

AttributeDescription const* Type::attribute(AttributeId id) const {
  if (id == 0) return nullptr;  // operations have no id
  for (AttributeDescription const& attribute : attributes_) {
    if (attribute.id == id) return &attribute;
  }
  return base_ == nullptr ? nullptr : base_->attribute(id);
}

Ptr<PtrInterface> Type::construct(std::span<GenericValue const> arguments) const {
  if (constructor_ == nullptr) {
    throwRangeException(std::string(name_) + " cannot be constructed by name");
  }
  return constructor_(arguments);
}

Type const* Type::find(std::string_view name) {
  for (TypeRegistration const* registration : registrations()) {
    for (TypeRegistration::Record const record : registration->records_) {
      if (record().name() == name) return &record();
    }
  }
  return nullptr;
}

TypeRegistration::TypeRegistration(std::initializer_list<Record> records) : records_(records) {
  registrations().push_back(this);
}

TypeRegistration::~TypeRegistration() {
  std::erase(registrations(), this);
}

void detail::throwArgumentCount(size_t expected, size_t given) {
  throwRangeException(std::to_string(expected) + " arguments expected, " + std::to_string(given) +
                      " given");
}

// What the classes of core/ say by their description is defined here, in the room above.

Type const& PtrInterface::_kivType() {
  static Type const type("Kiv::PtrInterface", nullptr, {});
  return type;
}

Type const& PtrInterface::fwkType() const {
  return _kivType();
}

GenericValue PtrInterface::genericIfAttributeOp(GenericOp op, std::string_view name,
                                                std::span<GenericValue const> arguments) {
  AttributeDescription const& attribute = attributeOf(*this, name);
  bool const collection = attribute.iterate != nullptr;
  auto const expect = [arguments](size_t count) {
    if (arguments.size() != count) detail::throwArgumentCount(count, arguments.size());
  };
  switch (op) {
    case GenericOp::Get:
      if (attribute.get == nullptr) break;
      expect(collection ? 1 : 0);
      return attribute.get(*this, arguments);
    case GenericOp::Set:
      if (collection && attribute.call != nullptr) return attribute.call(*this, arguments);
      if (attribute.set == nullptr) break;
      expect(1);
      attribute.set(*this, arguments[0]);
      return {};
    case GenericOp::Del:
      if (attribute.del == nullptr) break;
      expect(1);
      attribute.del(*this, arguments[0]);
      return {};
    case GenericOp::DelAll:
      if (attribute.del == nullptr) break;
      expect(0);
      for (auto walk = attribute.iterate(Ptr<PtrInterface>(this), attribute); !walk->atEnd();) {
        walk->iterDel();
      }
      return {};
    case GenericOp::Call:
      if (collection || attribute.call == nullptr) break;
      return attribute.call(*this, arguments);
  }
  throwUnknownOperation(*this, attribute);
}

std::unique_ptr<GenericIterator> PtrInterface::genericIfIterator(std::string_view name) {
  AttributeDescription const& attribute = attributeOf(*this, name);
  if (attribute.iterate == nullptr) throwUnknownOperation(*this, attribute);
  return attribute.iterate(Ptr<PtrInterface>(this), attribute);
}

Type const& Entity::_kivType() {
  static Type const type(
      "Kiv::Entity", &PtrInterface::_kivType(),
      {describeConstant<&Entity::fullName>("fullName", kFullName.id),
       describeConstant<&Entity::parent>("parent", kParent.id),
       describeConstant<&Entity::parentAttrName>("parentAttrName", kParentAttrName.id),
       describeConstant<&Entity::entity>("entity", kEntity.id)});
  return type;
}

Type const& Entity::fwkType() const {
  return _kivType();
}

String Entity::parentAttrName() const {
  Entity const* const parent = parentRaw();
  if (parent == nullptr) return {};
  AttributeDescription const* const attribute = parent->fwkType().attribute(parentAttribute_);
  return attribute == nullptr ? String() : String(attribute->name);
}

void throwMutatorArgNullPointerException(PtrInterface const& owner, AttributeId attribute) {
  throwMutatorArgNullPointerException(std::string(owner.fwkType().name()).c_str(), attribute);
}

void genericPrint(std::ostream& out, PtrInterface const& object) {
  // Printing reads only; the walk is shared with the writers and so asks for a writable object.
  Ptr<PtrInterface> const shared(const_cast<PtrInterface*>(&object));
  char const* comma = "";
  out << '{';
  printAttributes(out, shared, object.fwkType(), comma);
  out << '}';
}

}  // namespace Kiv
