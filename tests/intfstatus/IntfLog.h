// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "framework/core/Notifiee.h"
#include "intfstatus/BfnMacRewriteIntfRoutingStatusTypes.h"

namespace BfnTest {

/// Notes each interface that changes in the collection by interface, and then does what the test
/// says.
class IntfLog final : public Kiv::NotifieeConst {
 public:
  explicit IntfLog(Kiv::Ptr<BfnMacRewrite::IntfIdToRoutingStatus const> const& notifier) {
    NotifieeConst::notifierIs(notifier);
  }
  void onAttribute(Kiv::AttributeId id, void const* key) override {
    if (id != BfnMacRewrite::IntfIdToRoutingStatus::kL3IntfRoutingStatus.id || key == nullptr) {
      changes.push_back("#" + std::to_string(id));
      return;
    }
    changes.push_back(static_cast<Ovra::IntfId const*>(key)->stdString());
    std::function<void()> const then = action;
    if (then) then();
  }

  std::vector<std::string> changes;
  std::function<void()> action;
};

}  // namespace BfnTest
