#include "chip/ChipModel.h"
#include "framework/driver/ForwardingDriver.h"
#include "tests/driver/DriverConformance.h"

// The chip model, and the drivers that forward to it.
namespace BfnTest {

namespace {

class ModelUnderTest {
 public:
  static constexpr bool kCountsHits = true;

  explicit ModelUnderTest(std::size_t capacity) : chip_(capacity) {}

  BfnDriver::TableDriver& driver() { return chip_; }
  void packet(DriverKey const& key) {
    auto const fields = BfnChip::RewriteLayout::fields(key);
    chip_.lookup(fields.vlan, fields.source);
  }

 private:
  BfnChip::ChipModel chip_;
};

class ForwardedModelUnderTest : public ModelUnderTest {
 public:
  explicit ForwardedModelUnderTest(std::size_t capacity)
      : ModelUnderTest(capacity), front_(ModelUnderTest::driver()) {}

  BfnDriver::TableDriver& driver() { return front_; }

 private:
  struct Front final : BfnDriver::ForwardingDriver {
    using ForwardingDriver::ForwardingDriver;
  };
  Front front_;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(ChipModel, DriverConformance, ModelUnderTest);
INSTANTIATE_TYPED_TEST_SUITE_P(ForwardingDriver, DriverConformance, ForwardedModelUnderTest);

}  // namespace BfnTest
