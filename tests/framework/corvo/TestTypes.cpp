// SPDX-License-Identifier: Apache-2.0
#include "tests/framework/corvo/TestTypes.h"

#include "framework/generic/Describe.h"

namespace BfnTest {

namespace {

class NoEntity final : public Kiv::PtrInterface {
 public:
  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType() {
    static Kiv::Type const type(kNoEntityType, &PtrInterface::_kivType(), {},
                                Kiv::describeDefault<NoEntity>());
    return type;
  }
};

Kiv::TypeRegistration const registration{
    &Routing::Hardware::VrfStatus::_kivType,
    &NoEntity::_kivType,
};

}  // namespace

}  // namespace BfnTest
