// SPDX-License-Identifier: Apache-2.0
#include "framework/collections/ReactorCollection.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/core/Attribute.h"
#include "framework/core/Reactor.h"
#include "framework/core/StateMachine.h"
#include "tests/support/AllocationCount.h"

namespace {

using BfnTest::NoMemory;
using Kiv::makeActive;
using Kiv::Ptr;
using Kiv::U32;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Port final : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<> kSpeed{131};
  explicit Port(U32 number) : number_(number) {}
  U32 number() const { return number_; }
  int speed() const { return speed_(); }
  void speedIs(int speed) { speed_.is(speed); }

 private:
  U32 const number_;
  Kiv::Attribute<kSpeed, int> speed_{*this};
};

class Machine final : public Kiv::StateMachine<Machine> {
 public:
  class KivPort;
  using Ports = Kiv::ReactorCollection<U32, KivPort, 0x77, Port, Machine>;

  Machine() { initializedIs(true); }

  void portIs(Ptr<Port> const& port) { ports.is(port->number(), port, this); }
  void handlePort(U32 number, int speed) {
    log.push_back(std::to_string(number) + "=" + std::to_string(speed));
    auto const copy = action;
    if (copy) copy(number);
  }
  template <class F>
  void kivEachReactor(F f) {
    f(ports);
  }

  Ports ports;
  std::vector<std::string> log;
  std::function<void(U32)> action;
  bool failConstruction = false;
  bool handleAtConstruction = false;
};

class Machine::KivPort final : public Kiv::Reactor<KivPort, Port, Machine> {
 public:
  KivPort(Ptr<Port> const& port, Machine* machine) : Reactor(port, machine) {
    if (machine->failConstruction) throw std::runtime_error("constructor");
    if (machine->handleAtConstruction) handleSpeed();
  }
  void handleSpeed() { owner()->handlePort(notifier()->number(), notifier()->speed()); }
  using Rows = Kiv::Rows<Kiv::On<Port::kSpeed, &KivPort::handleSpeed>>;
};

class ReactorCollectionTest : public ::testing::Test {
 protected:
  Ptr<Machine> machine = makeActive<Machine>();
  Ptr<Port> seven = makeActive<Port>(7u);
  Ptr<Port> eight = makeActive<Port>(8u);
};

TEST_F(ReactorCollectionTest, AMemberGetsAReactorThatIsSwitchedOnAndRunsNoHandler) {
  machine->portIs(seven);
  machine->portIs(eight);
  EXPECT_THAT(machine->log, IsEmpty());
  EXPECT_EQ(machine->ports.size(), 2u);
  EXPECT_TRUE(machine->ports.find(7)->hasNotificationActive());
  seven->speedIs(10);
  eight->speedIs(25);
  EXPECT_THAT(machine->log, ElementsAre("7=10", "8=25"));
}

TEST_F(ReactorCollectionTest, TheSameMemberAgainChangesNothing) {
  machine->portIs(seven);
  auto* const reactor = machine->ports.find(7);
  machine->portIs(seven);
  EXPECT_EQ(machine->ports.find(7), reactor);
  seven->speedIs(10);
  EXPECT_THAT(machine->log, ElementsAre("7=10"));
}

TEST_F(ReactorCollectionTest, AnotherMemberUnderTheKeyRebindsTheReactor) {
  machine->portIs(seven);
  auto* const reactor = machine->ports.find(7);
  auto const other = makeActive<Port>(7u);
  other->speedIs(40);
  machine->portIs(other);
  EXPECT_EQ(machine->ports.find(7), reactor);
  EXPECT_THAT(machine->log, ElementsAre("7=40"));
  seven->speedIs(10);
  EXPECT_THAT(machine->log, ElementsAre("7=40"));
}

TEST_F(ReactorCollectionTest, ARemovedReactorHearsNothing) {
  machine->portIs(seven);
  machine->ports.del(7);
  machine->ports.del(9);
  seven->speedIs(10);
  EXPECT_THAT(machine->log, IsEmpty());
  EXPECT_EQ(machine->ports.find(7), nullptr);
  EXPECT_TRUE(seven->notifieeList().empty());
}

TEST_F(ReactorCollectionTest, DeletingAllRemovesEveryReactor) {
  machine->portIs(seven);
  machine->portIs(eight);
  machine->ports.delAll();
  EXPECT_EQ(machine->ports.size(), 0u);
  EXPECT_TRUE(eight->notifieeList().empty());
}

TEST_F(ReactorCollectionTest, AHandlerMayRemoveItsOwnReactor) {
  machine->portIs(seven);
  machine->action = [this](U32 number) { machine->ports.del(number); };
  seven->speedIs(10);
  seven->speedIs(25);
  EXPECT_THAT(machine->log, ElementsAre("7=10"));
}

TEST_F(ReactorCollectionTest, AHandlerMayRemoveEveryReactor) {
  machine->portIs(seven);
  machine->portIs(eight);
  machine->action = [this](U32) { machine->ports.delAll(); };
  seven->speedIs(10);
  eight->speedIs(10);
  EXPECT_THAT(machine->log, ElementsAre("7=10"));
}

TEST_F(ReactorCollectionTest, AHandlerMayRemoveItsReactorWhileItIsRebound) {
  machine->portIs(seven);
  machine->action = [this](U32 number) { machine->ports.del(number); };
  auto const other = makeActive<Port>(7u);
  machine->portIs(other);
  EXPECT_EQ(machine->ports.size(), 0u);
  EXPECT_TRUE(other->notifieeList().empty());
}

TEST_F(ReactorCollectionTest, AHandlerMayAddReactors) {
  machine->portIs(seven);
  std::vector<Ptr<Port>> more;
  machine->action = [&](U32) {
    for (U32 i = 100; i < 200; ++i) {
      more.push_back(makeActive<Port>(i));
      machine->portIs(more.back());
    }
  };
  seven->speedIs(10);
  EXPECT_EQ(machine->ports.size(), 101u);
}

TEST_F(ReactorCollectionTest, AReactorWhoseConstructorThrowsIsNotStored) {
  machine->failConstruction = true;
  EXPECT_THROW(machine->portIs(seven), std::runtime_error);
  EXPECT_EQ(machine->ports.size(), 0u);
  EXPECT_TRUE(seven->notifieeList().empty());
  EXPECT_EQ(seven->kivRefCount(), 1u);
  machine->failConstruction = false;
  machine->portIs(seven);
  seven->speedIs(10);
  EXPECT_THAT(machine->log, ElementsAre("7=10"));
}

TEST_F(ReactorCollectionTest, AHandlerOfAConstructionMayLetGoOfTheMachine) {
  machine->handleAtConstruction = true;
  Machine* const raw = machine.get();
  std::vector<std::string> log;
  machine->action = [&](U32) {
    machine.reset();
    log = raw->log;  // it lives until its reactor is in place
  };
  raw->portIs(seven);
  EXPECT_THAT(log, ElementsAre("7=0"));
  EXPECT_TRUE(seven->notifieeList().empty());
  EXPECT_EQ(seven->kivRefCount(), 1u);
}

TEST_F(ReactorCollectionTest, AnExceptionFromAHandlerLeavesTheCollectionUsable) {
  machine->portIs(seven);
  machine->action = [](U32) { throw std::runtime_error("handler"); };
  EXPECT_THROW(seven->speedIs(10), std::runtime_error);
  machine->action = nullptr;
  machine->portIs(eight);
  seven->speedIs(25);
  EXPECT_THAT(machine->log, ElementsAre("7=10", "7=25"));
}

TEST_F(ReactorCollectionTest, TheMachinesSwitchReachesEachReactor) {
  machine->portIs(seven);
  machine->hasNotificationActiveIs(false);
  seven->speedIs(10);
  machine->hasNotificationActiveIs(true);
  EXPECT_THAT(machine->log, IsEmpty());
  seven->speedIs(25);
  EXPECT_THAT(machine->log, ElementsAre("7=25"));
}

TEST_F(ReactorCollectionTest, ZombiesDispatchNothingAlsoWhenTheyAreKept) {
  machine->portIs(seven);
  Ptr<Machine::KivPort> const kept(machine->ports.find(7));
  machine.reset();
  EXPECT_TRUE(kept->kivMarkedForDeletion());
  EXPECT_EQ(kept->owner(), nullptr);
  seven->speedIs(10);
}

TEST_F(ReactorCollectionTest, AReactorWithoutMemoryIsNotStoredAndCanBeAskedForAgain) {
  // Each one is the first notifiee of its port; some make the table grow.
  for (U32 number = 0; number < 40; ++number) {
    auto const port = makeActive<Port>(number);
    bool done = false;
    for (size_t spared = 0; !done; ++spared) {
      NoMemory none(spared);
      try {
        machine->portIs(port);
        done = true;
      } catch (std::bad_alloc const&) {
        none.end();
        EXPECT_EQ(machine->ports.find(number), nullptr);
        EXPECT_TRUE(port->notifieeList().empty());
      }
    }
    machine->log.clear();
    port->speedIs(10);
    EXPECT_THAT(machine->log, ElementsAre(std::to_string(number) + "=10"));
  }
}

TEST_F(ReactorCollectionTest, AHandlerOfAConstructionRunsOnlyWhenTheReactorCanBeStored) {
  machine->handleAtConstruction = true;
  machine->log.reserve(1);
  for (U32 number = 0; number < 40; ++number) {
    auto const port = makeActive<Port>(number);
    auto const failed = BfnTest::failEachAllocation(
        [&] { machine->portIs(port); },
        [&](size_t n) { EXPECT_THAT(machine->log, IsEmpty()) << number << ", " << n; });
    EXPECT_GE(failed, 2u);
    EXPECT_EQ(machine->log.size(), 1u);
    machine->log.clear();
  }
}

}  // namespace
