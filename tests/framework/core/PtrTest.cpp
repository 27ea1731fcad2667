// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Ptr.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <new>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "framework/core/AllocTrack.h"
#include "tests/support/AllocationCount.h"

namespace {

using BfnTest::liveAllocations;
using BfnTest::NoMemory;
using Kiv::AllocTrackTypeInfo;
using Kiv::make;
using Kiv::makeActive;
using Kiv::Ptr;
using Kiv::PtrInterface;
using Kiv::U32;

class Thing : public PtrInterface {
 public:
  explicit Thing(int* deaths = nullptr) : deaths_(deaths) {}
  ~Thing() override {
    if (deaths_ != nullptr) ++*deaths_;
  }
  int value = 7;

 private:
  int* deaths_;
};
class Derived final : public Thing {
 public:
  using Thing::Thing;
};
class Unrelated final : public PtrInterface {};

// Conversions that a pointer must not offer.
static_assert(std::is_convertible_v<Ptr<Derived>, Ptr<Thing>>);
static_assert(std::is_convertible_v<Ptr<Thing>, Ptr<Thing const>>);
static_assert(!std::is_constructible_v<Ptr<Thing>, Ptr<Thing const>>);
static_assert(!std::is_constructible_v<Ptr<Derived>, Ptr<Thing>>);
static_assert(!std::is_constructible_v<Ptr<Thing>, Ptr<Unrelated>>);
static_assert(!std::is_assignable_v<Ptr<Thing>&, Ptr<Thing const>>);
static_assert(!std::is_convertible_v<Thing*, Ptr<Thing>>);
static_assert(!std::is_convertible_v<Ptr<Thing>, Thing*>);
static_assert(!std::is_convertible_v<Ptr<Thing>, bool>);
static_assert(!std::is_convertible_v<Ptr<Thing>, int>);
static_assert(!std::is_constructible_v<Ptr<Thing>, int>);
static_assert(std::is_nothrow_move_constructible_v<Ptr<Thing>>);
static_assert(sizeof(Ptr<Thing>) == sizeof(void*));
static_assert(!std::is_copy_constructible_v<Thing>);
static_assert(!std::is_copy_assignable_v<Thing>);
static_assert(sizeof(std::declval<Thing>().kivRefWord()) == 4);

TEST(Ptr, CopyCountsOneMoreAndDestructionOneLess) {
  Ptr<Thing> const a = make<Thing>();
  EXPECT_EQ(a->kivRefCount(), 1u);
  {
    Ptr<Thing> const b = a;
    EXPECT_EQ(a->kivRefCount(), 2u);
  }
  EXPECT_EQ(a->kivRefCount(), 1u);
}

TEST(Ptr, MoveCountsNothing) {
  Ptr<Thing> a = make<Thing>();
  Ptr<Thing> const b = std::move(a);
  EXPECT_EQ(b->kivRefCount(), 1u);
  EXPECT_EQ(a, nullptr);
}

TEST(Ptr, SelfAssignmentKeepsTheObject) {
  Ptr<Thing> a = make<Thing>();
  Ptr<Thing>& same = a;
  a = same;
  EXPECT_EQ(a->kivRefCount(), 1u);
  a = std::move(same);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->kivRefCount(), 1u);
}

TEST(Ptr, ConvertsToABaseAndToConst) {
  Ptr<Derived> const derived = make<Derived>();
  Ptr<Thing> const thing = derived;
  Ptr<Thing const> constant = thing;
  EXPECT_EQ(constant, derived);
  EXPECT_EQ(derived->kivRefCount(), 3u);
  Ptr<PtrInterface const> const moved = std::move(constant);
  EXPECT_EQ(derived->kivRefCount(), 3u);
  EXPECT_EQ(Kiv::ptrCast<Derived const>(moved), derived);
  EXPECT_EQ(Kiv::ptrCast<Unrelated const>(moved), nullptr);
}

TEST(Ptr, ReleaseAndAdoptCountNothing) {
  int deaths = 0;
  Ptr<Thing> a = make<Thing>(&deaths);
  Thing* const raw = a.release();
  EXPECT_FALSE(a);
  EXPECT_EQ(deaths, 0);
  a = Ptr<Thing>::adopt(raw);
  EXPECT_EQ(a->kivRefCount(), 1u);
  a.reset();
  EXPECT_EQ(deaths, 1);
}

TEST(Ptr, StreamsTheAddress) {
  Ptr<Thing> const a = make<Thing>();
  std::ostringstream text, address;
  text << a;
  address << static_cast<void const*>(a.get());
  EXPECT_EQ(text.str(), address.str());
}

struct Chain final : PtrInterface {
  ~Chain() override {
    if (slot != nullptr) sawNull = *slot == nullptr;
  }
  Ptr<Chain>* slot = nullptr;
  static inline bool sawNull = false;
};

TEST(Ptr, IsEmptyBeforeItReleases) {
  Chain::sawNull = false;
  Ptr<Chain> a = make<Chain>();
  a->slot = &a;
  a.reset();
  EXPECT_TRUE(Chain::sawNull);
}

TEST(Ptr, AssignmentStoresTheNewObjectBeforeTheOldOneDies) {
  struct Old final : PtrInterface {
    ~Old() override { *seen = slot->get(); }
    Ptr<PtrInterface>* slot = nullptr;
    PtrInterface** seen = nullptr;
  };
  PtrInterface* seen = nullptr;
  Ptr<Old> old = make<Old>();
  Ptr<PtrInterface> slot = old;
  old->slot = &slot;
  old->seen = &seen;
  Ptr<PtrInterface> const next = make<Unrelated>();
  old.reset();
  slot = next;
  EXPECT_EQ(seen, next.get());
}

TEST(Ptr, ATemporaryMadeByConstructorOrDestructorIsHarmless) {
  struct Selfish final : PtrInterface {
    explicit Selfish(int* deaths) : deaths_(deaths) { Ptr<Selfish> const self(this); }
    ~Selfish() override {
      Ptr<Selfish> const self(this);
      ++*deaths_;
    }
    int* deaths_;
  };
  int deaths = 0;
  Ptr<Selfish> a = make<Selfish>(&deaths);
  EXPECT_EQ(a->kivRefCount(), 1u);
  a.reset();
  EXPECT_EQ(deaths, 1);
}

TEST(PtrDeathTest, DereferencingNullIsFatal) {
  Ptr<Thing> const null;
  EXPECT_DEATH((void)null->value, "^Failed\\(ptr\\) null Kiv::Ptr dereferenced");
  EXPECT_DEATH((void)(*null).value, "\"ptr\" == nullptr");
}

TEST(PtrInterface, CountsWithBits29And31MaskedOff) {
  int deaths = 0;
  Ptr<Thing> a = make<Thing>(&deaths);
  EXPECT_EQ(a->kivRefWord(), 1u);
  a->hasNotificationActiveIs(true);
  a->kivMarkedForDeletionIs(true);
  EXPECT_EQ(a->kivRefWord(), U32{1} << 31 | U32{1} << 29 | 1u);
  EXPECT_EQ(a->kivRefCount(), 1u);
  EXPECT_TRUE(a->kivMarkedForDeletion());
  EXPECT_TRUE(a->hasNotificationActive());
  a.reset();
  EXPECT_EQ(deaths, 1);
}

TEST(PtrInterface, EachFlagAloneLeavesTheLastReferenceTheLast) {
  for (bool const marked : {false, true}) {
    int deaths = 0;
    Ptr<Thing> a = make<Thing>(&deaths);
    if (marked) {
      a->kivMarkedForDeletionIs(true);
    } else {
      a->hasNotificationActiveIs(true);
    }
    Ptr<Thing> b = a;
    a.reset();
    EXPECT_EQ(deaths, 0);
    b.reset();
    EXPECT_EQ(deaths, 1);
  }
}

TEST(PtrInterface, FlagsGoOffAgain) {
  Ptr<Thing> const a = makeActive<Thing>();
  a->kivMarkedForDeletionIs(true);
  a->hasNotificationActiveIs(false);
  EXPECT_EQ(a->kivRefWord(), U32{1} << 31 | 1u);
  a->kivMarkedForDeletionIs(false);
  EXPECT_EQ(a->kivRefWord(), 1u);
}

TEST(PtrInterface, CountsAtomicallyWhenTheProcessSaysSo) {
  EXPECT_FALSE(Kiv::VFPtrInterface::threadSafePointers_);
  Kiv::VFPtrInterface::threadSafePointers_ = true;
  int deaths = 0;
  Ptr<Thing> a = makeActive<Thing>(&deaths);
  {
    std::vector<Ptr<Thing>> const many(100, a);
    EXPECT_EQ(a->kivRefCount(), 101u);
  }
  EXPECT_EQ(a->kivRefCount(), 1u);
  a->kivMarkedForDeletionIs(true);
  a->kivMarkedForDeletionIs(false);
  EXPECT_EQ(a->kivRefWord(), U32{1} << 29 | 1u);
  a.reset();
  Kiv::VFPtrInterface::threadSafePointers_ = false;
  EXPECT_EQ(deaths, 1);
}

TEST(PtrInterface, ZeroReferencesGoToHandleZeroRef) {
  struct Counted final : PtrInterface {
    explicit Counted(int* zeros) : zeros_(zeros) {}
    void handleZeroRef() override {
      ++*zeros_;
      PtrInterface::handleZeroRef();
    }
    int* zeros_;
  };
  int zeros = 0;
  Ptr<Counted> a = make<Counted>(&zeros);
  a.reset();
  EXPECT_EQ(zeros, 1);
}

// Allocation is reachable only through make().
template <class T>
concept Newable = requires {
  new T;
};
template <class T>
concept ArrayNewable = requires {
  new T[2];
};
static_assert(!Newable<Thing> && !Newable<Unrelated>);
static_assert(!ArrayNewable<Thing> && !ArrayNewable<Unrelated>);
static_assert(Newable<int> && ArrayNewable<int>);

TEST(PtrInterface, MemoryOfAnObjectComesFromTheHeapAndGoesBack) {
  size_t const before = liveAllocations();
  {
    Ptr<Thing> const a = make<Thing>();
    EXPECT_EQ(liveAllocations(), before + 1);
  }
  EXPECT_EQ(liveAllocations(), before);
  void* const memory = PtrInterface::kivMemAlloc(100);
  EXPECT_EQ(liveAllocations(), before + 1);
  std::memset(memory, 1, 100);
  PtrInterface::kivMemFree(memory);
  EXPECT_EQ(liveAllocations(), before);
  NoMemory const none;
  EXPECT_THROW(PtrInterface::kivMemAlloc(1), std::bad_alloc);
}

TEST(PtrInterfaceDeathTest, AnObjectOnTheStackIsFatalInDebugBuilds) {
  if (!Kiv::kDebugBuild) GTEST_SKIP() << "debug builds check it";
  EXPECT_DEATH({ Unrelated const onStack; },
               "^Failed\\(!onStack\\(this\\)\\) an object that Kiv::make did not make");
}

// The reference word itself: to count up to its limit takes minutes.
U32& refWordOf(PtrInterface const& object);
template <auto kWord>
struct RefWord {
  friend U32& refWordOf(PtrInterface const& object) {
    return const_cast<PtrInterface&>(object).*kWord;
  }
};
template struct RefWord<&PtrInterface::refWord_>;

TEST(PtrInterfaceDeathTest, AReferenceTooManyIsFatalInDebugBuilds) {
  if (!Kiv::kDebugBuild) GTEST_SKIP() << "debug builds check it";
  Ptr<Thing> const a = make<Thing>();
  EXPECT_DEATH(
      {
        refWordOf(*a) = PtrInterface::kMarkedForDeletionBit | ((U32{1} << 29) - 2);
        a->kivRefInc();
        std::cerr << "one more: ";
        a->kivRefInc();
      },
      "^one more: Failed\\(kivRefCount\\(\\) < 2\\^29 - 1\\) too many references to one object");
}

AllocTrackTypeInfo countsOf(std::string const& name) {
  for (AllocTrackTypeInfo const& type : AllocTrackTypeInfo::snapshot()) {
    if (type.typeName.find(name) != std::string::npos) return type;
  }
  return {};
}

class Tracked final : public PtrInterface {
 public:
  explicit Tracked(bool fail) {
    if (fail) throw std::runtime_error("constructor");
  }
};

TEST(AllocTrack, CountsObjectsUnderTheirRunTimeType) {
  AllocTrackTypeInfo const before = countsOf("Tracked");
  {
    Ptr<PtrInterface> const a = make<Tracked>(false);
    Ptr<PtrInterface> const b = make<Tracked>(false);
    EXPECT_EQ(countsOf("Tracked").live(), before.live() + 2);
  }
  AllocTrackTypeInfo const after = countsOf("Tracked");
  EXPECT_EQ(after.allocated, before.allocated + 2);
  EXPECT_EQ(after.deallocated, before.deallocated + 2);
  EXPECT_EQ(after.live(), 0u);
}

TEST(AllocTrack, AnObjectWhoseConstructorThrowsIsNotCounted) {
  AllocTrackTypeInfo const before = countsOf("Tracked");
  EXPECT_THROW((void)make<Tracked>(true), std::runtime_error);
  EXPECT_EQ(countsOf("Tracked").allocated, before.allocated);
}

TEST(AllocTrack, CountsEveryObjectOfSeveralThreads) {
  Kiv::VFPtrInterface::threadSafePointers_ = true;
  AllocTrackTypeInfo const before = countsOf("Tracked");
  constexpr U32 kObjects = 200'000;
  auto const makeMany = [] {
    for (U32 i = 0; i < kObjects; ++i) (void)*make<Tracked>(false);
  };
  std::thread other(makeMany);
  makeMany();
  other.join();
  Kiv::VFPtrInterface::threadSafePointers_ = false;
  EXPECT_EQ(countsOf("Tracked").allocated, before.allocated + 2 * kObjects);
  EXPECT_EQ(countsOf("Tracked").live(), 0u);
}

}  // namespace
