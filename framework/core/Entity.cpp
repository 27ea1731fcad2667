#include "framework/core/Entity.h"

#include "framework/generic/Type.h"

namespace Kiv {

String Entity::fullName() const {
  std::string text;
  if (parent_ != nullptr) {
    text = parent_->fullName().stdString() + "/" + parentAttrName().stdString();
    if (name() != Name()) text += "/";
  }
  return String(text + name().stdString());
}

String Entity::parentAttrName() const {
  if (parent_ == nullptr) return {};
  AttributeDescription const* const attribute = parent_->fwkType().attribute(parentAttribute_);
  return attribute == nullptr ? String() : String(attribute->name);
}

void Entity::parentIs(Ptr<Entity> const& parent, AttributeId attribute) {
  parent_ = parent.get();
  parentAttribute_ = parent_ == nullptr ? 0 : attribute;
}

}  // namespace Kiv
