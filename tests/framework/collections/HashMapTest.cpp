// SPDX-License-Identifier: Apache-2.0
#include "framework/collections/HashMap.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

#include "framework/collections/HashMap2018.h"
#include "framework/core/PtrInterface.h"

namespace {

using Kiv::make;
using Kiv::Ptr;
using Kiv::U32;
using ::testing::ElementsAre;

constexpr U32 kConstant = 0x6B42'3388;

class Member final : public Kiv::PtrInterface {
 public:
  explicit Member(U32 key) : key_(key) {}
  U32 key() const { return key_; }

 private:
  U32 const key_;
};
using Members = Kiv::HashMap<Member, &Member::key, kConstant>;

struct Value {
  U32 key = 0;
  int payload = 0;
  friend bool operator==(Value const&, Value const&) = default;
};
using Values = Kiv::HashMap2018<Value, &Value::key, kConstant>;

static_assert(std::is_same_v<Members::Key, U32>);
static_assert(std::is_same_v<Values::Key, U32>);

TEST(HashMap, FindsMembersByTheKeyTheyCarry) {
  Members map;
  auto const member = make<Member>(7u);
  EXPECT_EQ(map.set(member), nullptr);
  EXPECT_EQ(map.find(7), member.get());
  EXPECT_TRUE(map.has(7));
  EXPECT_FALSE(map.has(8));
  EXPECT_EQ(member->kivRefCount(), 2u);
}

TEST(HashMap, GivesBackWhatItReplacesAndWhatItRemoves) {
  Members map;
  auto const first = make<Member>(7u);
  auto const second = make<Member>(7u);
  map.set(first);
  EXPECT_EQ(map.set(second), first);
  EXPECT_EQ(map.take(7), second);
  EXPECT_EQ(map.take(7), nullptr);
  EXPECT_TRUE(map.empty());
}

// A member's place: hashSingleAttr under the process's seed xor'ed with the collection's constant,
// then its key.
TEST(HashMap, WalksBySeededHashAndKey) {
  U32 const seed = Kiv::HashHelper::hashSeed32() ^ kConstant;
  Members members;
  Values values;
  std::vector<U32> expected;
  for (U32 i = 0; i < 300; ++i) {
    members.set(make<Member>(i));
    values.set({i, 0});
    expected.push_back(i);
  }
  std::sort(expected.begin(), expected.end(), [seed](U32 a, U32 b) {
    U32 const hashA = Kiv::hashSingleAttr(seed, a);
    U32 const hashB = Kiv::hashSingleAttr(seed, b);
    return hashA != hashB ? hashA < hashB : a < b;
  });
  std::vector<U32> membersOrder, valuesOrder;
  for (auto const& member : members) membersOrder.push_back(member->key());
  for (Value const& value : values) valuesOrder.push_back(value.key);
  EXPECT_EQ(membersOrder, expected);
  EXPECT_EQ(valuesOrder, expected);
}

TEST(HashMap2018, ReportsWhatAChangeWas) {
  Values map;
  EXPECT_EQ(map.set({7, 1}), Values::Change::Inserted);
  EXPECT_EQ(map.set({7, 1}), Values::Change::None);
  EXPECT_EQ(map.set({7, 2}), Values::Change::Replaced);
  EXPECT_EQ(map.get(7).payload, 2);
  EXPECT_EQ(map.get(8), Value());
  EXPECT_EQ(map.find(8), nullptr);
  EXPECT_EQ(map.take(7), (Value{7, 2}));
  EXPECT_EQ(map.take(7), std::nullopt);
}

TEST(HashMap2018, HoldsValuesThatDoNotCarryTheirKey) {
  Kiv::HashMap2018Of<U32, int, kConstant> map;
  map.set({7, 1});
  EXPECT_EQ(map.find(7)->value, 1);
}

TEST(HashMap2018, IsEmptyWithoutMemory) {
  Values const map;
  EXPECT_EQ(map.heapBytes(), 0u);
  EXPECT_EQ(map.begin(), map.end());
}

TEST(HashMap2018DeathTest, AValueUnderAnotherKeyIsFatal) {
  Values map;
  EXPECT_DEATH(map.set(8, {7, 1}), "^Failed\\(fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)\\) ");
}

}  // namespace
