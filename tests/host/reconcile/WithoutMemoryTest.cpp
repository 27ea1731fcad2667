// SPDX-License-Identifier: Apache-2.0
// Every allocation of a call fails once. With memory again and time for retries, the chip comes to
// the wanted rows all the same.
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>

#include "chip/ChipModel.h"
#include "framework/log/LogService.h"
#include "host/reconcile/Audit.h"
#include "host/reconcile/Reconciler.h"
#include "tests/driver/DriverConformance.h"
#include "tests/support/AllocationCount.h"

namespace BfnTest {

namespace {

using BfnDriver::WriteResult;
using Kiv::U32;

constexpr char kTable[] = "overlaySrcMacRewrite";

// A chip of 8 rows with rows 1 to 6 in it, and a reconciler that wants 4 to 13.
struct World {
  World() {
    Kiv::LogService::reset();
    Kiv::LogService::sinkIs([](Kiv::LogMessage const&) {});
    auto const direct = chip.open({2, 0, BfnId::BfnPipeId(0), "q", kTable}).value();
    for (U32 n = 1; n <= 6; ++n) chip.write(direct, driverKey(n), driverAction(n));
    for (U32 n = 4; n <= 13; ++n) want(n, n < 6 ? n : 10 * n);
  }
  ~World() { Kiv::LogService::sinkIs({}); }

  /// What is wanted is what was answered Ok.
  void want(U32 n, U32 action) {
    DriverRows then = wanted;
    then.insert_or_assign(driverKey(n), driverAction(action));
    if (reconciler.write(table, driverKey(n), driverAction(action)) == WriteResult::Ok)
      wanted.swap(then);
  }
  void wantNot(U32 n) {
    if (reconciler.erase(table, driverKey(n)) == BfnDriver::EraseResult::Ok)
      wanted.erase(driverKey(n));
  }

  void expectRest() {
    chip.faults().clear();
    chip.eraseFaults().clear();
    if (reconciler.held()) {
      EXPECT_EQ(reconciler.commit().status, BfnDriver::Status::Ok);
    }
    for (int i = 0; i < 4; ++i) {
      clock->advance(120);
      reconciler.flush();
    }
    Host::Audit audit(reconciler.table(0));
    while (!audit.step()) {
    }
    EXPECT_TRUE(audit.findings().empty()) << audit.findings().size() << " findings";
    EXPECT_EQ(chip.rowCount(), std::min<size_t>(8, wanted.size()));
    EXPECT_EQ(chip.rowCount() + reconciler.waitingForRoom(), wanted.size());
    EXPECT_EQ(reconciler.failed(), 0u);
    EXPECT_FALSE(reconciler.table(0).held());
    for (BfnChip::Row const& row : chip.rows()) {
      auto const it = wanted.find(row.key);
      EXPECT_TRUE(it != wanted.end() && it->second == row.action);
    }
  }

  BfnChip::ChipModel chip{8};
  Kiv::Ptr<Kiv::ManualClock> clock = Kiv::makeActive<Kiv::ManualClock>();
  Host::Reconciler reconciler{chip, clock};
  BfnDriver::TableHandle table = reconciler.open({1, 0, BfnId::BfnPipeId(0), "p", kTable}).value();
  DriverRows wanted;
};

// Each allocation of `event` in a world of its own, after `before`.
void eachFailing(std::function<void(World&)> const& before,
                 std::function<void(World&)> const& event) {
  for (size_t n = 1;; ++n) {
    SCOPED_TRACE(n);
    World world;
    before(world);
    failAllocation(n);
    try {
      event(world);
    } catch (std::bad_alloc const&) {
    }
    failAllocation(0);
    bool const failed = allocationFailed();
    world.expectRest();
    if (::testing::Test::HasFailure()) return;
    if (!failed) {
      EXPECT_GT(n, 1u) << "nothing was allocated";
      return;
    }
  }
}

void running(World& world) {
  world.reconciler.commit();
}
void runningInTurns(World& world) {
  world.reconciler.commit();
  world.reconciler.turnsIs(true);
}

TEST(ReconcilerWithoutMemory, ACommitCanBeRepeated) {
  eachFailing([](World&) {}, [](World& world) { world.reconciler.commit(); });
}

TEST(ReconcilerWithoutMemory, ACommitWhoseChangesFailLosesNone) {
  eachFailing(
      [](World& world) {
        world.chip.faults().failNext(4, {BfnChip::Fault::Kind::Error, nullptr});
        world.chip.eraseFaults().failNext(2, {BfnChip::Fault::Kind::Exception, nullptr});
      },
      [](World& world) { world.reconciler.commit(); });
}

TEST(ReconcilerWithoutMemory, ANewRowThatIsToWaitIsNotLost) {
  eachFailing(running, [](World& world) {
    size_t const before = world.reconciler.wanted();
    try {
      world.want(20, 20);
    } catch (std::bad_alloc const&) {
      EXPECT_EQ(world.reconciler.wanted(), before) << "refused, and all the same wanted";
      throw;
    }
  });
}

TEST(ReconcilerWithoutMemory, AChangeThatFailsIsNotLost) {
  eachFailing(
      [](World& world) {
        running(world);
        world.chip.faults().failNext(1, {BfnChip::Fault::Kind::Exception, nullptr});
        world.chip.eraseFaults().failNext(1, {BfnChip::Fault::Kind::Error, nullptr});
      },
      [](World& world) {
        world.want(4, 44);
        world.wantNot(5);
      });
}

TEST(ReconcilerWithoutMemory, ATurnIsMadeLater) {
  eachFailing(
      [](World& world) {
        runningInTurns(world);
        world.chip.faults().failNext(2, {BfnChip::Fault::Kind::Error, nullptr});
        world.chip.eraseFaults().failNext(1, {BfnChip::Fault::Kind::Error, nullptr});
      },
      [](World& world) {
        world.want(4, 44);
        world.wantNot(5);
        world.wantNot(6);
        for (U32 n = 30; n < 40; ++n) world.want(n, n);
        world.reconciler.flush();
      });
}

TEST(ReconcilerWithoutMemory, ARepairCanBeRepeated) {
  eachFailing(
      [](World& world) {
        running(world);
        auto const direct = world.chip.open({2, 0, BfnId::BfnPipeId(0), "q", kTable}).value();
        world.chip.erase(direct, driverKey(4));
        world.chip.write(direct, driverKey(5), driverAction(99));
        world.chip.write(direct, driverKey(99), driverAction(99));
      },
      [](World& world) {
        // Repeated where it ended by an exception.
        for (bool done = false; !done;) {
          try {
            Host::Audit audit(world.reconciler.table(0));
            while (!audit.step()) {
            }
            world.reconciler.table(0).repair(audit.findings());
            done = true;
          } catch (std::bad_alloc const&) {
          }
        }
      });
}

}  // namespace

}  // namespace BfnTest
