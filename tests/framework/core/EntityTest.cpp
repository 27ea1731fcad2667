// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Entity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>

#include "framework/collections/MemberCollection.h"
#include "framework/generic/Describe.h"
#include "tests/framework/core/Probe.h"
#include "tests/support/AllocationCount.h"

namespace {

using BfnTest::NoMemory;
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

TEST(Entity, UnderASecondParentItStaysThereWhenTheFirstRemovesIt) {
  auto const first = makeActive<Node>(1u);
  auto const second = makeActive<Node>(2u);
  auto const child = first->child().is(3);
  second->child().memberIs(child);
  EXPECT_EQ(child->parent(), second);
  first->child().del(3);
  EXPECT_EQ(child->parent(), second);
  EXPECT_EQ(child->fullName(), "n2/child/n3");
  second->child().del(3);
  EXPECT_EQ(child->parent(), nullptr);
}

TEST(Entity, PutUnderAParentByHandItHasNoneWhenThatOneDies) {
  auto parent = makeActive<Node>(1u);
  auto const child = makeActive<Node>(2u);
  auto const other = makeActive<Node>(3u);
  child->parentIs(parent);
  other->parentIs(parent);
  other->parentIs(child);
  parent.reset();
  EXPECT_EQ(child->parent(), nullptr);
  EXPECT_EQ(child->fullName(), "n2");
  EXPECT_EQ(other->fullName(), "n2//n3");
  child->parentIs(other);
  EXPECT_EQ(child->parent(), other);
}

TEST(Entity, TheDestructorsOfItsMembersFindNoParent) {
  struct Child final : Kiv::Entity {
    Child(U32 number, bool* orphan) : number_(number), orphan_(orphan) {}
    ~Child() override { *orphan_ = parent() == nullptr; }
    U32 number() const { return number_; }
    U32 const number_;
    bool* const orphan_;
  };
  struct Parent final : Kiv::Entity {
    Kiv::MemberCollection<Kiv::Attr<U32>{258}, Child, &Child::number, 5> child{*this};
  };
  bool orphan = false;
  auto parent = makeActive<Parent>();
  parent->child.memberIs(makeActive<Child>(1u, &orphan));
  parent.reset();
  EXPECT_TRUE(orphan);
}

TEST(Entity, EachRealChangeOfItsParentNotifies) {
  BfnTest::Log log;
  auto const root = makeActive<Node>(1u);
  auto const child = makeActive<Node>(2u);
  auto const listener = makeActive<BfnTest::Probe>(child, "parent", &log);
  Ptr<Kiv::Entity> seen;
  listener->action = [&] { seen = child->parent(); };
  child->parentIs(nullptr);
  EXPECT_THAT(log, ::testing::IsEmpty());
  child->parentIs(root);
  child->parentIs(root);
  EXPECT_THAT(log, ::testing::ElementsAre("parent"));
  EXPECT_EQ(seen, root);
  root->child().memberIs(child);
  EXPECT_THAT(log, ::testing::ElementsAre("parent", "parent"));
  root->child().del(2);
  EXPECT_THAT(log, ::testing::ElementsAre("parent", "parent", "parent"));
  EXPECT_EQ(seen, nullptr);
}

TEST(Entity, ACollectionAndTheParentAreBothStoredBeforeEitherNotifies) {
  BfnTest::Log log;
  auto const root = makeActive<Node>(1u);
  auto const child = makeActive<Node>(2u);
  auto const ofRoot = makeActive<BfnTest::Probe>(root, "collection", &log);
  auto const ofChild = makeActive<BfnTest::Probe>(child, "parent", &log);
  ofRoot->action = [&] { EXPECT_EQ(child->parent(), root); };
  ofChild->action = [&] { EXPECT_EQ(root->child().find(2), child.get()); };
  root->child().memberIs(child);
  EXPECT_THAT(log, ::testing::ElementsAre("collection", "parent"));
  // The one that is replaced notifies, too.
  ofRoot->action = [&] { EXPECT_EQ(child->parent(), nullptr); };
  ofChild->action = nullptr;
  root->child().memberIs(makeActive<Node>(2u));
  EXPECT_THAT(log, ::testing::ElementsAre("collection", "parent", "collection", "parent"));
}

TEST(Entity, TheFullNameOfACycleEnds) {
  auto const a = makeActive<Node>(1u);
  auto const b = makeActive<Node>(2u);
  a->parentIs(b);
  b->parentIs(a);
  EXPECT_EQ(a->fullName(), "n2//n1");
  a->parentIs(a);
  EXPECT_EQ(a->fullName(), "n1");
  EXPECT_EQ(b->fullName(), "n1//n2");
}

// There is an entity for every row of the chip.
static_assert(sizeof(Kiv::Entity) <= sizeof(Kiv::PtrInterface) + sizeof(void*));

TEST(Entity, KeepsItsParentWhenItGetsAChildAndWhenItsOwnChildrenLeave) {
  auto const root = makeActive<Node>(1u);
  auto middle = root->child().is(2);
  auto const leaf = middle->child().is(3);
  EXPECT_EQ(leaf->fullName(), "n1/child/n2/child/n3");
  auto const other = makeActive<Node>(4u);
  other->child().memberIs(middle);
  EXPECT_EQ(leaf->fullName(), "n4/child/n2/child/n3");
  other->child().del(2);
  EXPECT_EQ(middle->parent(), nullptr);
  EXPECT_EQ(leaf->parent(), middle);
  EXPECT_EQ(leaf->fullName(), "n2/child/n3");
  root->child().del(2);
  middle.reset();
  EXPECT_EQ(leaf->parent(), nullptr);
}

TEST(Entity, AParentThatDiesLeavesTheChildItsOwnChildren) {
  auto root = makeActive<Node>(1u);
  auto const middle = root->child().is(2);
  auto const leaf = middle->child().is(3);
  root.reset();
  EXPECT_EQ(middle->parent(), nullptr);
  EXPECT_EQ(leaf->fullName(), "n2/child/n3");
}

TEST(Entity, ACycleIsReleasedInAnyOrder) {
  auto a = makeActive<Node>(1u);
  auto b = makeActive<Node>(2u);
  a->parentIs(b);
  b->parentIs(a);
  a.reset();
  EXPECT_EQ(b->parent(), nullptr);
  b->parentIs(b);
  EXPECT_EQ(b->fullName(), "n2");
  b.reset();
}

TEST(Entity, AParentWithoutMemoryChangesNothing) {
  auto const root = makeActive<Node>(1u);
  auto const child = makeActive<Node>(2u);
  {
    NoMemory const none;
    EXPECT_THROW(child->parentIs(root), std::bad_alloc);
    EXPECT_THROW(root->child().memberIs(child), std::bad_alloc);
  }
  EXPECT_EQ(child->parent(), nullptr);
  EXPECT_TRUE(root->child().empty());
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
