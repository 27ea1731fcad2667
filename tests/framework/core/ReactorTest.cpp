// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Reactor.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/collections/ReactorSlot.h"
#include "framework/collections/ValueCollection.h"
#include "framework/core/Attribute.h"
#include "framework/core/StateMachine.h"
#include "tests/framework/core/Probe.h"
#include "tests/support/AllocationCount.h"

namespace {

using BfnTest::NoMemory;
using Kiv::Ptr;
using Kiv::U32;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct KeyedValue {
  U32 key = 0;
  U32 value = 0;
  friend bool operator==(KeyedValue const&, KeyedValue const&) = default;
};

class Watched : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<void, Watched> kNumber{130};
  static constexpr Kiv::Attr<U32, Watched> kValues{131};
  static constexpr Kiv::Attr<void, Watched> kOther{132};

  void numberIs(int n) { number_.is(n); }
  int number() const { return number_(); }
  void otherIs(int n) { other_.is(n); }
  auto& values() { return values_; }
  auto const& values() const { return values_; }

 private:
  Kiv::Attribute<kNumber, int> number_{*this};
  Kiv::Attribute<kOther, int> other_{*this};
  Kiv::ValueCollection<kValues, KeyedValue, &KeyedValue::key, 1> values_{*this};
};

class Machine : public Kiv::StateMachine<Machine> {
 public:
  class KivWatched;

  explicit Machine(Ptr<Watched> const& watched, std::vector<std::string>* log);
  ~Machine() override {
    if (onDeath) onDeath();
  }
  static inline std::function<void()> onDeath;

  void handleNumber() { note("number"); }
  void handleValues() { note("values"); }
  void handleValues(U32 key) { note("value " + std::to_string(key)); }
  void note(std::string text) {
    log_->push_back(std::move(text));
    if (auto const then = onNote) then();
  }
  std::function<void()> onNote;

  template <class F>
  void kivEachReactor(F f) {
    f(watched_);
  }
  Kiv::ReactorSlot<KivWatched, Watched, Machine> watched_;

 private:
  std::vector<std::string>* log_;
};

class Machine::KivWatched final : public Kiv::Reactor<KivWatched, Watched, Machine> {
 public:
  using Reactor::Reactor;
  using Rows = Kiv::Rows<Kiv::On<Watched::kNumber, &Machine::handleNumber>,
                         Kiv::On<Watched::kValues, Kiv::keyed<U32>(&Machine::handleValues),
                                 Kiv::whole(&Machine::handleValues)>>;
};

Machine::Machine(Ptr<Watched> const& watched, std::vector<std::string>* log) : log_(log) {
  watched_.is(watched, this);
  initializedIs(true);
}

// What a row may name.
class Narrower final : public Watched {};
using NumberRow = Kiv::On<Watched::kNumber, &Machine::handleNumber>;
using OtherRow = Kiv::On<Watched::kOther, &Machine::handleNumber>;
static_assert(NumberRow::kWatches<Watched> && NumberRow::kWatches<Watched const>);
static_assert(NumberRow::kWatches<Narrower>);
static_assert(!NumberRow::kWatches<Machine> && !NumberRow::kWatches<Kiv::PtrInterface>);
static_assert(Kiv::Rows<NumberRow, OtherRow>::kWatch<Watched>);
static_assert(!Kiv::Rows<NumberRow, OtherRow>::kWatch<Machine>);
static_assert(Kiv::detail::distinctIds<>() && Kiv::detail::distinctIds<130, 131, 132>());
static_assert(!Kiv::detail::distinctIds<130, 131, 130>());

class ReactorTest : public ::testing::Test {
 protected:
  std::vector<std::string> log;
  Ptr<Watched> watched = Kiv::makeActive<Watched>();
  Ptr<Machine> machine = Kiv::makeActive<Machine>(watched, &log);
};

// A second row for one id would never run, and an attribute of another type would read past the
// key: neither compiles.
static_assert(Kiv::detail::distinctIds<258, 259, 130>());
static_assert(!Kiv::detail::distinctIds<258, 259, 258>());

TEST_F(ReactorTest, ConstructionCallsNoHandler) {
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(ReactorTest, AMutationIsDeliveredOnceThoughSwitchedOnTwice) {
  watched->numberIs(3);
  watched->values().set({7, 1});
  EXPECT_THAT(log, ElementsAre("number", "value 7"));
}

TEST_F(ReactorTest, AnUnknownAttributeIsIgnored) {
  watched->otherIs(3);
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(ReactorTest, RebindingRunsTheWholeObjectHandlersOnceInRowOrder) {
  auto const other = Kiv::makeActive<Watched>();
  machine->watched_.is(other, machine.get());
  EXPECT_THAT(log, ElementsAre("number", "values"));
  log.clear();
  machine->watched_.is(other, machine.get());
  watched->numberIs(1);
  EXPECT_THAT(log, IsEmpty());
  other->numberIs(1);
  EXPECT_THAT(log, ElementsAre("number"));
}

TEST_F(ReactorTest, AReactorKeptFromOutsideDispatchesNothingAfterItsMachineDied) {
  auto const reactor = machine->watched_.reactor();
  machine.reset();
  watched->numberIs(9);
  EXPECT_THAT(log, IsEmpty());
  EXPECT_TRUE(reactor->kivMarkedForDeletion());
  EXPECT_EQ(reactor->owner(), nullptr);
}

TEST_F(ReactorTest, ACollectionHandlerGetsTheMembersKeyOnInsertionReplacementAndRemoval) {
  watched->values().set({7, 1});
  watched->values().set({7, 2});
  watched->values().del(7);
  EXPECT_THAT(log, ElementsAre("value 7", "value 7", "value 7"));
}

TEST_F(ReactorTest, ANotificationForACollectionWithoutAKeyIsIgnored) {
  machine->watched_->onAttribute(Watched::kValues.id, nullptr);
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(ReactorTest, AMarkedReactorIgnoresTheAttributesItKnows) {
  machine->watched_->kivMarkedForDeletionIs(true);
  watched->numberIs(1);
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(ReactorTest, RebindingAMarkedReactorRunsNoHandlerButRegisters) {
  auto const other = Kiv::makeActive<Watched>();
  machine->watched_->kivMarkedForDeletionIs(true);
  machine->watched_.is(other, machine.get());
  EXPECT_THAT(log, IsEmpty());
  EXPECT_EQ(machine->watched_.notifier(), other);
  EXPECT_TRUE(machine->watched_->isRegisteredNotifiee());
}

TEST_F(ReactorTest, RebindingToNullRunsNoHandlerAndLeavesTheOldNotifier) {
  machine->watched_.is(nullptr, machine.get());
  watched->numberIs(1);
  EXPECT_THAT(log, IsEmpty());
  EXPECT_TRUE(watched->notifieeList().empty());
  EXPECT_EQ(watched->kivRefCount(), 1u);
}

TEST_F(ReactorTest, RebindingFromNullRunsTheHandlersAndDelivers) {
  machine->watched_.is(nullptr, machine.get());
  machine->watched_.is(watched, machine.get());
  EXPECT_THAT(log, ElementsAre("number", "values"));
  log.clear();
  watched->numberIs(1);
  EXPECT_THAT(log, ElementsAre("number"));
}

TEST_F(ReactorTest, AHandlerThatMarksTheReactorStopsTheHandlersAfterIt) {
  machine->onNote = [this] { machine->watched_->kivMarkedForDeletionIs(true); };
  machine->watched_.is(Kiv::makeActive<Watched>(), machine.get());
  EXPECT_THAT(log, ElementsAre("number"));
}

TEST_F(ReactorTest, AHandlerThatUnbindsDuringARebindStopsTheHandlersAfterIt) {
  machine->onNote = [this] { machine->watched_.is(nullptr, machine.get()); };
  machine->watched_.is(Kiv::makeActive<Watched>(), machine.get());
  EXPECT_THAT(log, ElementsAre("number"));
  EXPECT_FALSE(machine->watched_->isRegisteredNotifiee());
}

TEST_F(ReactorTest, AHandlerThatRebindsDuringARebindGetsEachHandlerForTheLastNotifier) {
  auto const last = Kiv::makeActive<Watched>();
  machine->onNote = [this, last] {
    machine->onNote = nullptr;
    machine->watched_.is(last, machine.get());
  };
  machine->watched_.is(Kiv::makeActive<Watched>(), machine.get());
  EXPECT_THAT(log, ElementsAre("number", "number", "values"));
  log.clear();
  last->numberIs(1);
  EXPECT_THAT(log, ElementsAre("number"));
}

TEST_F(ReactorTest, ARebindBackToTheSameNotifierByAHandlerRunsTheRestForTheLastBindingOnly) {
  auto const other = Kiv::makeActive<Watched>();
  auto const between = Kiv::makeActive<Watched>();
  machine->onNote = [&] {
    machine->onNote = nullptr;
    machine->watched_.is(between, machine.get());
    machine->watched_.is(other, machine.get());
  };
  machine->watched_.is(other, machine.get());
  EXPECT_THAT(log, ElementsAre("number", "number", "values", "number", "values"));
}

TEST_F(ReactorTest, AChangeThatAHandlerMakesDuringARebindIsNotDelivered) {
  auto const other = Kiv::makeActive<Watched>();
  machine->onNote = [&] { other->numberIs(5); };
  machine->watched_.is(other, machine.get());
  EXPECT_THAT(log, ElementsAre("number", "values"));
}

TEST_F(ReactorTest, AHandlerThatThrowsDuringARebindLeavesTheReactorRegistered) {
  auto const other = Kiv::makeActive<Watched>();
  machine->onNote = [] { throw std::runtime_error("handler"); };
  EXPECT_THROW(machine->watched_.is(other, machine.get()), std::runtime_error);
  EXPECT_THAT(log, ElementsAre("number"));
  machine->onNote = nullptr;
  log.clear();
  EXPECT_EQ(machine->watched_.notifier(), other);
  other->numberIs(1);
  EXPECT_THAT(log, ElementsAre("number"));
  EXPECT_TRUE(watched->notifieeList().empty());
}

TEST_F(ReactorTest, AHandlerThatThrowsDuringARebindNeedsNoMemoryToRegisterItsReactor) {
  auto const other = Kiv::makeActive<Watched>();
  std::vector<Ptr<Machine>> more;
  std::vector<std::string> otherLog;
  std::optional<NoMemory> none;
  machine->onNote = [&] {
    // Whatever registers meanwhile does not take the room that is kept for the reactor.
    for (int i = 0; i < 9; ++i) more.push_back(Kiv::makeActive<Machine>(other, &otherLog));
    none.emplace();
    throw 1;
  };
  try {
    machine->watched_.is(other, machine.get());
  } catch (int) {
    none.reset();
    log.push_back("thrown");
  }
  machine->onNote = nullptr;
  other->numberIs(1);
  EXPECT_THAT(log, ElementsAre("number", "thrown", "number"));
}

TEST_F(ReactorTest, ARebindWithoutMemoryChangesNothingAndCanBeRepeated) {
  auto const other = Kiv::makeActive<Watched>();
  {
    NoMemory const none;
    EXPECT_THROW(machine->watched_.is(other, machine.get()), std::bad_alloc);
  }
  EXPECT_EQ(machine->watched_.notifier(), watched);
  watched->numberIs(1);
  EXPECT_THAT(log, ElementsAre("number"));
  log.clear();
  machine->watched_.is(other, machine.get());
  other->numberIs(1);
  EXPECT_THAT(log, ElementsAre("number", "values", "number"));
}

TEST_F(ReactorTest, AFirstReactorWithoutMemoryIsNotStoredAndCanBeAskedForAgain) {
  machine->watched_.del();
  auto const other = Kiv::makeActive<Watched>();
  size_t failures = 0;
  for (bool done = false; !done; ++failures) {
    NoMemory none(failures);
    try {
      machine->watched_.is(other, machine.get());
      done = true;
    } catch (std::bad_alloc const&) {
      none.end();
      EXPECT_FALSE(machine->watched_);
      EXPECT_TRUE(other->notifieeList().empty());
    }
  }
  EXPECT_GE(failures, 2u);  // the reactor, its place in the list, and one run without a failure
  other->numberIs(1);
  EXPECT_THAT(log, ElementsAre("number"));
}

TEST_F(ReactorTest, AReactorThatIsRemovedHearsNothingThoughOthersHoldIt) {
  auto const reactor = machine->watched_.reactor();
  machine->watched_.del();
  watched->numberIs(1);
  machine.reset();
  watched->numberIs(2);
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(ReactorTest, AHandlerMayDropItsReactorDuringARebind) {
  machine->onNote = [this] { machine->watched_.del(); };
  auto const other = Kiv::makeActive<Watched>();
  machine->watched_.is(other, machine.get());
  EXPECT_FALSE(machine->watched_);
  EXPECT_TRUE(other->notifieeList().empty());
}

TEST_F(ReactorTest, AHandlerMayDropItsReactorDuringAChange) {
  machine->onNote = [this] { machine->watched_.del(); };
  watched->numberIs(1);
  watched->numberIs(2);
  EXPECT_THAT(log, ElementsAre("number"));
}

TEST_F(ReactorTest, AnOwnerThatItsHandlerReleasesLivesUntilTheHandlerReturns) {
  machine->onNote = [this] {
    machine.reset();
    log.push_back("released");
  };
  Machine::onDeath = [this] { log.push_back("owner dies"); };
  auto const after = Kiv::makeActive<BfnTest::Probe>(watched, "next", &log);
  watched->numberIs(1);
  Machine::onDeath = nullptr;
  EXPECT_THAT(log, ElementsAre("number", "released", "owner dies", "next"));
  EXPECT_EQ(watched->notifieeList().size(), 1u);
}

TEST_F(ReactorTest,
       AnOwnerThatIsReleasedInANestedNotificationLivesUntilItsOutermostHandlerReturns) {
  machine->onNote = [this] {
    if (log.size() == 1) {
      watched->numberIs(2);
      log.push_back("outer ends");
    } else {
      machine.reset();
      log.push_back("inner ends");
    }
  };
  Machine::onDeath = [this] { log.push_back("owner dies"); };
  watched->numberIs(1);
  Machine::onDeath = nullptr;
  EXPECT_THAT(log, ElementsAre("number", "number", "inner ends", "outer ends", "owner dies"));
}

TEST_F(ReactorTest, AnOwnerThatItsHandlerReleasesDiesWhenTheHandlerThrows) {
  machine->onNote = [this] {
    machine.reset();
    throw std::runtime_error("handler");
  };
  Machine::onDeath = [this] { log.push_back("owner dies"); };
  EXPECT_THROW(watched->numberIs(1), std::runtime_error);
  Machine::onDeath = nullptr;
  EXPECT_THAT(log, ElementsAre("number", "owner dies"));
  EXPECT_TRUE(watched->notifieeList().empty());
}

TEST_F(ReactorTest, AnOwnerThatItsHandlerReleasesMayBeTakenUpAgain) {
  Ptr<Machine> again;
  machine->onNote = [this, &again] {
    auto* const raw = machine.get();
    machine.reset();
    again = Ptr<Machine>(raw);
  };
  watched->numberIs(1);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->kivRefCount(), 1u);
  again->onNote = nullptr;
  watched->numberIs(2);
  EXPECT_THAT(log, ElementsAre("number", "number"));
}

TEST_F(ReactorTest, ANotifieeThatHasDiedInItsCallKeepsNoMachine) {
  auto probe = Kiv::makeActive<BfnTest::Probe>(watched, "probe", &log);
  machine->watched_.del();
  probe->action = [this, &probe] {
    probe.reset();
    machine.reset();
    log.push_back("released");
  };
  Machine::onDeath = [this] { log.push_back("owner dies"); };
  watched->numberIs(1);
  Machine::onDeath = nullptr;
  EXPECT_THAT(log, ElementsAre("probe", "probe has no references", "owner dies", "released"));
}

TEST_F(ReactorTest, AReactorThatItsHandlerDropsLivesUntilTheHandlerReturns) {
  auto const* const reactor = machine->watched_.reactor().get();
  machine->onNote = [this, reactor] {
    machine->watched_.del();
    EXPECT_EQ(reactor->kivRefCount(), 1u);
    EXPECT_EQ(reactor->owner(), machine.get());
    EXPECT_TRUE(reactor->kivMarkedForDeletion());
  };
  watched->numberIs(1);
  EXPECT_TRUE(watched->notifieeList().empty());
}

TEST_F(ReactorTest, AReactorAndItsOwnerAndTheNotifierMayAllGoInOneHandler) {
  auto const* const reactor = machine->watched_.reactor().get();
  machine->onNote = [this, reactor] {
    auto const* const raw = machine.get();
    watched.reset();
    machine->watched_.del();
    machine.reset();
    EXPECT_EQ(reactor->owner(), raw);
    EXPECT_EQ(raw->kivRefCount(), 1u);
    EXPECT_TRUE(reactor->notifierRaw() != nullptr);
  };
  Machine::onDeath = [this] { log.push_back("owner dies"); };
  watched->numberIs(1);
  Machine::onDeath = nullptr;
  EXPECT_THAT(log, ElementsAre("number", "owner dies"));
}

TEST_F(ReactorTest, TheNewNotifierMayBeHeldByTheOldOneAlone) {
  struct Holder final : Watched {
    Ptr<Kiv::PtrInterface const> next;
  };
  auto holder = Kiv::makeActive<Holder>();
  holder->next = watched;
  machine->watched_.is(holder, machine.get());
  Ptr<Kiv::PtrInterface const> const& next = holder->next;
  holder.reset();
  log.clear();
  machine->watched_->notifierIs(next);
  EXPECT_THAT(log, ElementsAre("number", "values"));
  EXPECT_EQ(machine->watched_.notifier(), watched);
}

TEST_F(ReactorTest, ATemporaryPointerToADyingReactorIsHarmless) {
  auto const reactor = machine->watched_.reactor().get();
  EXPECT_EQ(reactor->kivRefCount(), 1u);
  EXPECT_EQ(reactor->actsm(), machine.get());
  machine->watched_.del();
  EXPECT_TRUE(watched->notifieeList().empty());
}

TEST_F(ReactorTest, AnEmptySlotCreatesNothingForNull) {
  Kiv::ReactorSlot<Machine::KivWatched, Watched, Machine> slot;
  slot.is(nullptr, machine.get());
  EXPECT_FALSE(slot);
  EXPECT_EQ(slot.notifier(), nullptr);
  EXPECT_EQ(slot.notifierRaw(), nullptr);
}

using ReactorDeathTest = ReactorTest;

TEST_F(ReactorDeathTest, WatchingAnObjectOfAnotherTypeIsFatal) {
  Ptr<Kiv::PtrInterface const> const wrong = machine;
  EXPECT_DEATH(machine->watched_->notifierIs(wrong), "a reactor cannot watch a ");
}

}  // namespace
