// SPDX-License-Identifier: Apache-2.0
#include "framework/core/StateMachine.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/collections/ReactorSlot.h"
#include "framework/core/Fatal.h"
#include "framework/core/Reactor.h"
#include "tests/framework/core/Probe.h"
#include "tests/support/AllocationCount.h"

namespace {

using BfnTest::Log;
using BfnTest::NoMemory;
using BfnTest::Watched;
using Kiv::makeActive;
using Kiv::Ptr;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Child final : public Kiv::StateMachine<Child> {
 public:
  explicit Child(Log* log) : log_(log) { initializedIs(true); }
  ~Child() override { log_->push_back("child deleted"); }
  template <class F>
  void kivEachReactor(F) {}

 private:
  Log* log_;
};

// Two reactors, a child machine, and a constructor that can be made to fail.
class Machine final : public Kiv::StateMachine<Machine> {
 public:
  class KivFirst;
  class KivSecond;

  Machine(Ptr<Watched> const& first, Ptr<Watched> const& second, Log* log, bool fail = false)
      : log_(log) {
    first_.is(first, this);
    second_.is(second, this);
    if (onConstruction) onConstruction(*this);
    if (fail) throw std::runtime_error("constructor");
    child_ = makeActive<Child>(log);
    initializedIs(true);
  }
  ~Machine() override {
    beforeChildDies_();
    child_.reset();
    log_->push_back("machine deleted");
  }

  void handleFirst() {
    if (!initialized()) return;
    log_->push_back("first");
  }
  void handleSecond() { log_->push_back("second"); }
  void checkInitialized() { KIV_CHECK(initialized()); }
  void beforeChildDiesIs(std::function<void()> f) { beforeChildDies_ = std::move(f); }

  template <class F>
  void kivEachReactor(F f) {
    f(first_);
    f(second_);
  }
  template <class F>
  void kivEachChild(F f) {
    f(child_);
  }

  static inline std::function<void(Machine&)> onConstruction;
  Kiv::ReactorSlot<KivFirst, Watched, Machine> first_;
  Kiv::ReactorSlot<KivSecond, Watched, Machine> second_;
  Ptr<Child> child_;

 private:
  Log* log_;
  std::function<void()> beforeChildDies_ = [] {};
};

class Machine::KivFirst final : public Kiv::Reactor<KivFirst, Watched, Machine> {
 public:
  using Reactor::Reactor;
  using Rows = Kiv::Rows<Kiv::On<Watched::kNumber, &Machine::handleFirst>>;
};
class Machine::KivSecond final : public Kiv::Reactor<KivSecond, Watched, Machine> {
 public:
  using Reactor::Reactor;
  using Rows = Kiv::Rows<Kiv::On<Watched::kNumber, &Machine::handleSecond>>;
};

class StateMachineTest : public ::testing::Test {
 protected:
  Log log;
  Ptr<Watched> first = makeActive<Watched>();
  Ptr<Watched> second = makeActive<Watched>();
};

TEST_F(StateMachineTest, TheFactorysSecondSwitchingOnRegistersNothingTwice) {
  auto const machine = makeActive<Machine>(first, second, &log);
  machine->hasNotificationActiveIs(true);
  first->numberIs(1);
  second->numberIs(1);
  EXPECT_THAT(log, ElementsAre("first", "second"));
}

TEST_F(StateMachineTest, SwitchingOffReachesReactorsAndChildren) {
  auto const machine = makeActive<Machine>(first, second, &log);
  EXPECT_TRUE(machine->child_->hasNotificationActive());
  machine->hasNotificationActiveIs(false);
  EXPECT_FALSE(machine->hasNotificationActive());
  EXPECT_FALSE(machine->child_->hasNotificationActive());
  EXPECT_FALSE(machine->first_->hasNotificationActive());
  first->numberIs(1);
  second->numberIs(1);
  EXPECT_THAT(log, IsEmpty());
  machine->hasNotificationActiveIs(true);
  EXPECT_THAT(log, IsEmpty());
  second->numberIs(2);
  EXPECT_THAT(log, ElementsAre("second"));
}

TEST_F(StateMachineTest, SwitchingToWhatItIsPassesNothingOn) {
  auto const machine = makeActive<Machine>(first, second, &log);
  machine->first_->hasNotificationActiveIs(false);
  machine->hasNotificationActiveIs(true);
  EXPECT_FALSE(machine->first_->isRegisteredNotifiee());
}

TEST_F(StateMachineTest, ZombieReactorsDispatchNothingUntilTheyAreUnmarked) {
  auto const machine = makeActive<Machine>(first, second, &log);
  machine->kivDoZombieReactors(true);
  EXPECT_TRUE(machine->kivMarkedForDeletion());
  EXPECT_TRUE(machine->first_->kivMarkedForDeletion());
  first->numberIs(1);
  second->numberIs(1);
  EXPECT_THAT(log, IsEmpty());
  machine->kivDoZombieReactors(false);
  EXPECT_FALSE(machine->second_->kivMarkedForDeletion());
  second->numberIs(2);
  EXPECT_THAT(log, ElementsAre("second"));
}

TEST_F(StateMachineTest, MarkingAMarkedMachineLeavesItsReactorsAlone) {
  auto const machine = makeActive<Machine>(first, second, &log);
  machine->kivDoZombieReactors(true);
  machine->first_->kivMarkedForDeletionIs(false);
  machine->kivDoZombieReactors(true);
  EXPECT_FALSE(machine->first_->kivMarkedForDeletion());
}

TEST_F(StateMachineTest, ADyingMachineHearsNothingOfWhatItsTeardownChanges) {
  auto machine = makeActive<Machine>(first, second, &log);
  machine->beforeChildDiesIs([this] { first->numberIs(9); });
  machine.reset();
  EXPECT_THAT(log, ElementsAre("child deleted", "machine deleted"));
}

TEST_F(StateMachineTest, TheDestructorMarksAndDisownsReactorsThatOthersHold) {
  auto machine = makeActive<Machine>(first, second, &log);
  auto const kept = machine->second_.reactor();
  machine.reset();
  log.clear();
  EXPECT_TRUE(kept->kivMarkedForDeletion());
  EXPECT_EQ(kept->owner(), nullptr);
  EXPECT_EQ(kept->actsm(), nullptr);
  second->numberIs(1);
  kept->notifierIs(first);
  first->numberIs(1);
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(StateMachineTest, AConstructorThatThrowsLeavesNoReactorRegistered) {
  EXPECT_THROW((void)makeActive<Machine>(first, second, &log, true), std::runtime_error);
  EXPECT_TRUE(first->notifieeList().empty());
  EXPECT_TRUE(second->notifieeList().empty());
  EXPECT_EQ(first->kivRefCount(), 1u);
  first->numberIs(1);
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(StateMachineTest, AConstructorThatThrowsDisownsTheReactorsThatOthersHold) {
  Ptr<Machine::KivFirst> kept;
  Machine::onConstruction = [&kept](Machine& machine) { kept = machine.first_.reactor(); };
  EXPECT_THROW((void)makeActive<Machine>(first, second, &log, true), std::runtime_error);
  Machine::onConstruction = nullptr;
  ASSERT_NE(kept, nullptr);
  EXPECT_EQ(kept->owner(), nullptr);
  EXPECT_TRUE(kept->kivMarkedForDeletion());
  first->numberIs(1);
  EXPECT_THAT(log, IsEmpty());
}

// A reactor whose constructor runs what the test says.
class Slotted final : public Kiv::StateMachine<Slotted> {
 public:
  class KivWatched;
  explicit Slotted(Log* log) : log_(log) {}
  ~Slotted() override { log_->push_back("machine deleted"); }
  void handleNumber() {}
  template <class F>
  void kivEachReactor(F f) {
    f(slot);
  }
  Log* log() const { return log_; }
  std::function<void()> onMake;
  Kiv::ReactorSlot<KivWatched, Watched, Slotted> slot;

 private:
  Log* log_;
};
class Slotted::KivWatched final : public Kiv::Reactor<KivWatched, Watched, Slotted> {
 public:
  KivWatched(Ptr<Watched> const& watched, Slotted* owner) : Reactor(watched, owner) {
    Log* const log = owner->log();
    owner->onMake();
    log->push_back("reactor made");
  }
  using Rows = Kiv::Rows<Kiv::On<Watched::kNumber, &Slotted::handleNumber>>;
};

TEST_F(StateMachineTest, ASlotHoldsItsOwnerWhileItsReactorIsMade) {
  auto machine = makeActive<Slotted>(&log);
  Slotted* const raw = machine.get();
  raw->onMake = [&machine] { machine.reset(); };
  raw->slot.is(first, raw);
  EXPECT_THAT(log, ElementsAre("reactor made", "machine deleted"));
  EXPECT_TRUE(first->notifieeList().empty());
}

TEST_F(StateMachineTest, SwitchingOnWithoutMemoryCanBeRepeated) {
  auto const machine = makeActive<Machine>(first, second, &log);
  machine->hasNotificationActiveIs(false);
  // No room is left in the second list: one more notifiee than it has had.
  auto const other = makeActive<BfnTest::Probe>(second, "other", &log);
  {
    NoMemory const none;
    EXPECT_THROW(machine->hasNotificationActiveIs(true), std::bad_alloc);
  }
  machine->hasNotificationActiveIs(true);
  second->numberIs(1);
  EXPECT_THAT(log, ElementsAre("other", "second"));
}

TEST_F(StateMachineTest, AMachineMayDieInItsOwnHandler) {
  auto machine = makeActive<Machine>(first, second, &log);
  auto const killer = makeActive<BfnTest::Probe>(first, "killer", &log);
  killer->action = [&machine] { machine.reset(); };
  first->numberIs(1);
  EXPECT_THAT(log, ElementsAre("first", "killer", "child deleted", "machine deleted"));
  EXPECT_EQ(first->notifieeList().size(), 1u);
}

TEST_F(StateMachineTest, InitializedIsStoredWithoutNotification) {
  auto const machine = makeActive<Machine>(first, second, &log);
  auto const listener = makeActive<BfnTest::Probe>(machine, "listener", &log);
  machine->initializedIs(false);
  EXPECT_FALSE(machine->initialized());
  EXPECT_THAT(log, IsEmpty());
  first->numberIs(1);
  EXPECT_THAT(log, IsEmpty());
}

// Takes the place of a reactor and records what its machine does to it and how the machine is
// marked by then.
struct Part {
  char const* name;
  Log* log;
  Kiv::PtrInterface const* machine = nullptr;

  void hasNotificationActiveIs(bool) {}
  void kivDoZombieReactors(bool zombie) { note(zombie ? " marked" : " unmarked"); }
  void ownerIs(std::nullptr_t) { note(" disowned"); }
  void note(char const* what) {
    log->push_back(name + std::string(what) + (machine->kivMarkedForDeletion() ? ", dying" : ""));
  }
};
class Ordered final : public Kiv::StateMachine<Ordered> {
 public:
  explicit Ordered(Log* log) : first_{"first", log, this}, second_{"second", log, this} {}
  template <class F>
  void kivEachReactor(F f) {
    f(first_);
    f(second_);
  }

 private:
  Part first_;
  Part second_;
};

TEST(StateMachine, MarksItsReactorsInTheirOrderThenItselfAndDisownsThemLast) {
  Log log;
  auto machine = makeActive<Ordered>(&log);
  machine->kivDoZombieReactors(true);
  machine->kivDoZombieReactors(false);
  EXPECT_THAT(log, ElementsAre("first marked", "second marked", "first unmarked, dying",
                               "second unmarked, dying"));
  log.clear();
  machine.reset();
  EXPECT_THAT(log, ElementsAre("first marked", "second marked", "first disowned, dying",
                               "second disowned, dying"));
}

using StateMachineDeathTest = StateMachineTest;

TEST_F(StateMachineDeathTest, WorkThatNeedsInitialisationAssertsIt) {
  auto const machine = makeActive<Machine>(first, second, &log);
  machine->initializedIs(false);
  EXPECT_DEATH(machine->checkInitialized(),
               "^Failed\\(initialized\\(\\)\\) .*\"initialized\\(\\)\" == nullptr");
}

}  // namespace
