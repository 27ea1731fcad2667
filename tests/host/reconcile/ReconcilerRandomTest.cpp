// SPDX-License-Identifier: Apache-2.0
// Random changes, capacities, failures, rows that come and go in the chip, and restarts. At rest
// the chip holds exactly the wanted rows that fit, and a commit makes the difference and no more.
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>

#include "chip/ChipModel.h"
#include "framework/log/LogService.h"
#include "host/reconcile/Audit.h"
#include "host/reconcile/Reconciler.h"
#include "tests/driver/DriverConformance.h"
#include "tests/support/Seed.h"

namespace BfnTest {

namespace {

using BfnDriver::Status;
using BfnDriver::WriteResult;

class RandomRun {
 public:
  explicit RandomRun(Kiv::U32 seed) : random_(seed) {
    Kiv::LogService::reset();
    Kiv::LogService::sinkIs([](Kiv::LogMessage const&) {});
    start();
  }
  ~RandomRun() { Kiv::LogService::sinkIs({}); }

  void run(int steps) {
    for (int i = 0; i < steps && !::testing::Test::HasFailure(); ++i) {
      step();
      if (below(200) == 0) rest();
      if (below(300) == 0) restart();
    }
    rest();
  }

 private:
  static constexpr Kiv::U32 kKeys = 60;

  Kiv::U32 below(Kiv::U32 limit) { return static_cast<Kiv::U32>(random_() % limit); }

  void start() {
    reconciler_ = std::make_unique<Host::Reconciler>(chip_, clock_);
    reconciler_->turnsIs(below(2) == 0);
    table_ = reconciler_->open({1, 0, BfnId::BfnPipeId(0), "p", kTable}).value();
  }

  void write(Kiv::U32 n, Kiv::U32 action) {
    EXPECT_EQ(reconciler_->write(table_, driverKey(n), driverAction(action)), WriteResult::Ok);
    wanted_[driverKey(n)] = driverAction(action);
  }

  void step() {
    Kiv::U32 const n = below(kKeys);
    switch (below(20)) {
      case 0:
        chip_.tableIs(kTable, below(2 * kKeys));
        break;
      case 1:
        chip_.resourcesIs(below(2) == 0 ? BfnChip::ChipModel::kUnlimited : below(kKeys));
        break;
      case 2:
        chip_.faults().failNext(1 + below(3), {kinds_[below(4)], nullptr});
        break;
      case 3:
        chip_.eraseFaults().failNext(1, {kinds_[2 + below(2)], nullptr});
        break;
      case 4:
        reconciler_->flush();
        break;
      case 5:
        clock_->advance(below(5));
        reconciler_->flush();
        break;
      case 6:
        if (below(10) == 0) meddle(n);
        break;
      case 7:
      case 8:
      case 9:
      case 10:
      case 11:
        reconciler_->erase(table_, driverKey(n));
        wanted_.erase(driverKey(n));
        break;
      default:
        write(n, below(4));
    }
  }

  // Another writer of the chip.
  void meddle(Kiv::U32 n) {
    auto const direct = chip_.open({2, 0, BfnId::BfnPipeId(0), "q", kTable}).value();
    std::array<BfnDriver::Change, 1> change;
    DriverKey const key = driverKey(n);
    DriverAction const action = driverAction(77);
    change[0] = {below(2) == 0 ? BfnDriver::Change::Kind::Erase : BfnDriver::Change::Kind::Write,
                 key, action};
    std::array<Status, 1> result;
    chip_.apply(direct, change, result);
  }

  DriverRows chipRows() {
    DriverRows rows;
    for (BfnChip::Row const& row : chip_.rows()) rows.emplace(row.key, row.action);
    return rows;
  }

  void calm() {
    chip_.faults().clear();
    chip_.eraseFaults().clear();
    chip_.resourcesIs(BfnChip::ChipModel::kUnlimited);
  }

  void expectWantedThatFit() {
    DriverRows const rows = chipRows();
    for (auto const& [key, action] : rows) {
      auto const wanted = wanted_.find(key);
      ASSERT_NE(wanted, wanted_.end()) << "a row that is not wanted";
      ASSERT_EQ(wanted->second, action);
    }
    size_t const room = chip_.capacityOf();
    // A capacity lowered below the rows that are there leaves them alone.
    ASSERT_GE(rows.size(), std::min(room, wanted_.size()));
    ASSERT_EQ(reconciler_->failed(), 0u);
    ASSERT_EQ(rows.size() + reconciler_->waitingForRoom(), wanted_.size())
        << rows.size() << " rows, room for " << room;
    ASSERT_EQ(reconciler_->entryCount(table_), rows.size());
  }

  void rest() {
    calm();
    for (int i = 0; i < 4; ++i) {
      clock_->advance(120);
      reconciler_->flush();
    }
    Host::Audit audit(reconciler_->table(0));
    if (!reconciler_->held()) {
      while (!audit.step()) {
      }
      reconciler_->table(0).repair(audit.findings());
      clock_->advance(120);
      reconciler_->flush();
      expectWantedThatFit();
    }
  }

  // A new process over the same chip, which wants the same rows in another order.
  void restart() {
    calm();
    reconciler_.reset();
    start();
    std::map<DriverKey, DriverAction> const wanted = wanted_;
    for (auto const& [key, action] : wanted) {
      reconciler_->write(table_, key, driverAction(0));
      reconciler_->write(table_, key, action);
    }
    DriverRows const before = chipRows();
    size_t difference = 0;
    size_t staying = 0;
    for (auto const& [key, action] : before) {
      auto const it = wanted.find(key);
      if (it == wanted.end() || it->second != action) ++difference;
      if (it != wanted.end()) ++staying;
    }
    size_t const room = chip_.capacityOf() - std::min(chip_.capacityOf(), staying);
    difference += std::min(room, wanted.size() - staying);
    chip_.journal().clear();
    Host::Applied const applied = reconciler_->commit();
    ASSERT_EQ(applied.status, Status::Ok);
    ASSERT_EQ(chip_.journal().size(), difference) << "no more than the difference";
    ASSERT_EQ(applied.inserted + applied.overwritten + applied.erased, difference);
    reconciler_->flush();
    expectWantedThatFit();
  }

  static constexpr char const* kTable = "overlaySrcMacRewrite";
  static constexpr BfnChip::Fault::Kind kinds_[] = {
      BfnChip::Fault::Kind::TableFull, BfnChip::Fault::Kind::NoSysResources,
      BfnChip::Fault::Kind::Error, BfnChip::Fault::Kind::Exception};

  std::mt19937 random_;
  BfnChip::ChipModel chip_{kKeys};
  Kiv::Ptr<Kiv::ManualClock> clock_ = Kiv::makeActive<Kiv::ManualClock>();
  std::unique_ptr<Host::Reconciler> reconciler_;
  BfnDriver::TableHandle table_{};
  std::map<DriverKey, DriverAction> wanted_;
};

TEST(ReconcilerRandom, AtRestTheChipHoldsTheWantedRowsThatFit) {
  for (Kiv::U32 i = 0; i < 20 && !HasFailure(); ++i) {
    Kiv::U32 const seed = testSeed() + i;
    SCOPED_TRACE(seed);
    RandomRun(seed).run(3000);
  }
}

}  // namespace

}  // namespace BfnTest
