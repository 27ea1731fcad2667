#include "framework/core/Entity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/collections/MemberCollection.h"
#include "framework/generic/Describe.h"

namespace {

using Kiv::make;
using Kiv::makeActive;
using Kiv::Ptr;
using Kiv::U32;

class Node final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<U32> kChild{258};

  explicit Node(U32 number) : number_(number) {}

  U32 number() const { return number_; }
  Kiv::Name name() const override {
    return number_ == 0 ? Kiv::Name() : Kiv::Name("n" + std::to_string(number_));
  }
  auto& child() { return child_; }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType() {
    static Kiv::Type const type("Node", &Kiv::Entity::_kivType(),
                                {Kiv::describeCollection<&Node::child_>("child", kChild.id)});
    return type;
  }

 private:
  U32 const number_;
  Kiv::MemberCollection<kChild, Node, &Node::number, 5> child_{*this};
};

TEST(Entity, NumbersItsOwnAttributesFrom130AndLeavesTheTypesThoseFrom258) {
  EXPECT_EQ(Kiv::Entity::kFullName.id, Kiv::kFirstPtrInterfaceAttribute);
  EXPECT_EQ(Kiv::Entity::kParent.id, 131u);
  EXPECT_EQ(Kiv::Entity::kParentAttrName.id, 132u);
  EXPECT_EQ(Kiv::Entity::kEntity.id, 133u);
  EXPECT_EQ(Kiv::kFirstPtrInterfaceAttribute, 130u);
  EXPECT_EQ(Kiv::kFirstEntityAttribute, 258u);
}

TEST(Entity, HasNoParentOfItself) {
  auto const node = make<Node>(3u);
  EXPECT_EQ(node->parent(), nullptr);
  EXPECT_EQ(node->parentAttrName(), "");
  EXPECT_EQ(node->fullName(), "n3");
  EXPECT_EQ(node->entity(), node);
}

TEST(Entity, IsPutUnderTheOwnerOfItsCollection) {
  auto const root = makeActive<Node>(0u);
  auto const child = root->child().is(3);
  auto const grandchild = child->child().is(4);
  EXPECT_EQ(child->parent(), root);
  EXPECT_EQ(child->parentAttrName(), "child");
  EXPECT_EQ(child->fullName(), "/child/n3");
  EXPECT_EQ(grandchild->fullName(), "/child/n3/child/n4");
}

TEST(Entity, APathSkipsTheEmptyName) {
  auto const root = makeActive<Node>(1u);
  EXPECT_EQ(root->child().is(0)->fullName(), "n1/child");
}

TEST(Entity, PointsAtItsParentWithoutOwningIt) {
  auto root = makeActive<Node>(0u);
  auto const child = root->child().is(3);
  EXPECT_EQ(root->kivRefCount(), 1u);
  root.reset();
  EXPECT_EQ(child->parent(), nullptr);
  EXPECT_EQ(child->parentAttrName(), "");
}

TEST(Entity, LosesItsParentWhenItIsRemovedOrReplaced) {
  auto const root = makeActive<Node>(0u);
  auto const removed = root->child().is(3);
  root->child().del(3);
  EXPECT_EQ(removed->parent(), nullptr);
  auto const replaced = root->child().is(4);
  root->child().memberIs(makeActive<Node>(4u));
  EXPECT_EQ(replaced->parent(), nullptr);
}

TEST(Entity, PutUnderAParentByHandHasNoAttributeName) {
  auto const root = makeActive<Node>(1u);
  auto const child = makeActive<Node>(2u);
  child->parentIs(root);
  EXPECT_EQ(child->parent(), root);
  EXPECT_EQ(child->parentAttrName(), "");
  child->parentIs(nullptr);
  EXPECT_EQ(child->parent(), nullptr);
}

TEST(Entity, ANullChildIsRefusedUnderTheNameOfTheOwnersType) {
  auto const root = makeActive<Node>(1u);
  try {
    root->child().memberIs(nullptr);
    FAIL();
  } catch (Kiv::NullPointerException const& exception) {
    EXPECT_STREQ(exception.what(), "Node: attribute 258 must not be null");
  }
}

}  // namespace
