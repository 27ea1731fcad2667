// SPDX-License-Identifier: Apache-2.0
#include "host/switch/DetachableDriver.h"

#include <gtest/gtest.h>
#include <memory>

#include "framework/driver/ForwardingDriver.h"
#include "tests/driver/DriverConformance.h"

namespace BfnTest {

namespace {

class DetachableUnderTest {
 public:
  static constexpr bool kCountsHits = true;

  explicit DetachableUnderTest(size_t capacity) : chip_(capacity), front_(chip_) {}

  BfnDriver::TableDriver& driver() { return front_; }
  void packet(DriverKey const& key) { look(chip_, key); }

 protected:
  static void look(BfnChip::ChipModel& chip, DriverKey const& key) {
    auto const fields = BfnChip::RewriteLayout::fields(key);
    chip.lookup(fields.vlan, fields.source);
  }

  BfnChip::ChipModel chip_;
  Host::DetachableDriver front_;
};

/// Detached before anything is opened but one table.
class DetachedUnderTest : public DetachableUnderTest {
 public:
  explicit DetachedUnderTest(size_t capacity) : DetachableUnderTest(capacity) {
    front_.open({0, 0, {}, "", BfnChip::ChipModel::kRewriteTable});
    copy_ = front_.copy();
    front_.detach(*copy_);
  }

  void packet(DriverKey const& key) { look(*copy_, key); }

 private:
  std::unique_ptr<BfnChip::ChipModel> copy_;
};

constexpr BfnDriver::TableAddress address(Kiv::U32 session) {
  return {session, 0, {}, "", BfnChip::ChipModel::kRewriteTable};
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(DetachableDriver, DriverConformance, DetachableUnderTest);
INSTANTIATE_TYPED_TEST_SUITE_P(DetachedDriver, DriverConformance, DetachedUnderTest);

TEST(DetachableDriver, DetachedItGoesOnWithTheRowsAndTheChipIsNotTouched) {
  BfnChip::ChipModel chip(10);
  // The chip numbers its handles otherwise than the copy will.
  chip.open(address(1));
  Host::DetachableDriver driver(chip);
  auto const second = *driver.open(address(2));
  auto const third = *driver.open(address(3));
  driver.write(second, driverKey(1), driverAction(1));
  driver.write(third, driverKey(2), driverAction(2));
  auto const copy = driver.copy();
  driver.detach(*copy);
  EXPECT_EQ(BfnDriver::WriteResult::Ok, driver.write(second, driverKey(1), driverAction(9)));
  EXPECT_EQ(BfnDriver::EraseResult::Ok, driver.erase(third, driverKey(2)));
  EXPECT_EQ(BfnDriver::WriteResult::Ok,
            driver.write(*driver.open(address(4)), driverKey(3), driverAction(3)));
  DriverAction action{};
  EXPECT_TRUE(driver.read(third, driverKey(1), action));
  EXPECT_EQ(driverAction(9), action);
  EXPECT_EQ(2u, driver.entryCount(second));
  EXPECT_EQ(10u, driver.capacity(second));
  ASSERT_EQ(2u, chip.rowCount());
  EXPECT_EQ(driverAction(1), chip.rows()[0].action);
  EXPECT_EQ(driverAction(2), chip.rows()[1].action);
}

TEST(DetachableDriver, AnUnknownHandleIsAnErrorWhenDetached) {
  BfnChip::ChipModel chip(10);
  Host::DetachableDriver driver(chip);
  auto const copy = driver.copy();
  driver.detach(*copy);
  EXPECT_EQ(BfnDriver::WriteResult::Error,
            driver.write(BfnDriver::TableHandle{0}, driverKey(1), driverAction(1)));
}

TEST(DetachableDriver, AChipThatCannotBeReadIsNotCopied) {
  class Unreadable final : public BfnDriver::ForwardingDriver {
   public:
    using ForwardingDriver::ForwardingDriver;
    BfnDriver::Status walk(BfnDriver::TableHandle, BfnDriver::WalkCursor&, std::span<Kiv::U8>,
                           std::span<Kiv::U8>, size_t&) const override {
      return BfnDriver::Status::Error;
    }
  };
  BfnChip::ChipModel chip(10);
  Unreadable unreadable(chip);
  Host::DetachableDriver driver(unreadable);
  driver.open(address(1));
  EXPECT_THROW(driver.copy(), std::runtime_error);
}

}  // namespace BfnTest
