// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include "framework/core/Notifiee.h"

namespace BfnTest {

/// Writes down the changes of one object, and runs `then` at each.
class Watcher final : public Kiv::NotifieeConst {
 public:
  template <class T>
  explicit Watcher(Kiv::Ptr<T> const& object) {
    notifierIs(object);
  }
  void onAttribute(Kiv::AttributeId id, void const*) override {
    changes.push_back(id);
    auto const now = then;  // which may replace itself
    if (now) now();
  }

  std::vector<Kiv::AttributeId> changes;
  std::function<void()> then;
};

}  // namespace BfnTest
