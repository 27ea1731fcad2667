// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Entity.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace Kiv {

String Entity::fullName() const {
  std::vector<Entity const*> path;
  for (Entity const* at = this;
       at != nullptr && std::find(path.begin(), path.end(), at) == path.end();
       at = at->parentRaw()) {
    path.push_back(at);
  }
  std::string text = path.back()->name().stdString();
  path.pop_back();
  for (; !path.empty(); path.pop_back()) {
    Name const name = path.back()->name();
    text += "/" + path.back()->parentAttrName().stdString();
    if (!name.empty()) text += "/" + name.stdString();
  }
  return text;
}

void Entity::parentIs(Ptr<Entity> const& parent, AttributeId attribute) {
  if (parent) parent->kivNeedPlace();
  Entity* const before = parentRaw();
  if (parent ? kivParentStore(*parent, attribute)
             : before != nullptr && kivParentDrop(*before, parentAttribute_)) {
    notify(kParent.id);
  }
}

void Entity::makePlace() {
  place_ = new Place{this, place_, 1};
}

void Entity::leavePlace() noexcept {
  Place* const own = place_;
  own->entity = nullptr;
  place_ = std::exchange(own->parent, nullptr);
  release(own);
}

}  // namespace Kiv
