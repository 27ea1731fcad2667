// SPDX-License-Identifier: Apache-2.0
#include "chip/ChipModel.h"
#include "chip/FaultingDriver.h"
#include "chip/JournalingDriver.h"
#include "framework/driver/ForwardingDriver.h"
#include "tests/driver/DriverConformance.h"

// The chip model, and the drivers that forward to it.
namespace BfnTest {

namespace {

class ModelUnderTest {
 public:
  static constexpr bool kCountsHits = true;

  explicit ModelUnderTest(size_t capacity) : chip_(capacity) {}

  BfnDriver::TableDriver& driver() { return chip_; }
  void packet(DriverKey const& key) {
    auto const fields = BfnChip::RewriteLayout::fields(key);
    chip_.lookup(fields.vlan, fields.source);
  }

 private:
  BfnChip::ChipModel chip_;
};

template <class Front>
class ModelBehind : public ModelUnderTest {
 public:
  explicit ModelBehind(size_t capacity)
      : ModelUnderTest(capacity), front_(ModelUnderTest::driver()) {}

  BfnDriver::TableDriver& driver() { return front_; }

 private:
  Front front_;
};

struct Front final : BfnDriver::ForwardingDriver {
  using ForwardingDriver::ForwardingDriver;
};

/// A chip that takes more rows than are asked for, limited to these.
class LimitedModelUnderTest {
 public:
  static constexpr bool kCountsHits = true;

  explicit LimitedModelUnderTest(size_t capacity) : chip_(capacity + 10), front_(chip_.driver()) {
    front_.capacityIs(capacity);
  }

  BfnDriver::TableDriver& driver() { return front_; }
  void packet(DriverKey const& key) { chip_.packet(key); }

 private:
  ModelUnderTest chip_;
  BfnChip::FaultingDriver front_;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(ChipModel, DriverConformance, ModelUnderTest);
INSTANTIATE_TYPED_TEST_SUITE_P(ForwardingDriver, DriverConformance, ModelBehind<Front>);
INSTANTIATE_TYPED_TEST_SUITE_P(JournalingDriver, DriverConformance,
                               ModelBehind<BfnChip::JournalingDriver>);
INSTANTIATE_TYPED_TEST_SUITE_P(FaultingDriver, DriverConformance,
                               ModelBehind<BfnChip::FaultingDriver>);
INSTANTIATE_TYPED_TEST_SUITE_P(FaultingDriverWithItsCapacity, DriverConformance,
                               LimitedModelUnderTest);

}  // namespace BfnTest
