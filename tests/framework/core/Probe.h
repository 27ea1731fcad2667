// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/Attribute.h"
#include "framework/core/Notifiee.h"
#include "framework/core/Ptr.h"

namespace BfnTest {

using Log = std::vector<std::string>;

/// A notifier with one scalar attribute.
class Watched : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<> kNumber{130};

  int number() const { return number_(); }
  void numberIs(int number) { number_.is(number); }

 private:
  Kiv::Attribute<kNumber, int> number_{*this};
};

/// A notifiee that notes each call under its name and then does what the test says. It touches
/// nothing of its own after that, so that the test may destroy it.
class Probe final : public Kiv::NotifieeConst {
 public:
  Probe(Kiv::Ptr<Kiv::PtrInterface const> const& notifier, std::string name, Log* log)
      : name_(std::move(name)), log_(log) {
    NotifieeConst::notifierIs(notifier);
  }

  void onAttribute(Kiv::AttributeId, void const*) override {
    log_->push_back(name_);
    std::function<void()> const copy = action;
    if (copy) copy();
  }
  void onNotificationException() override { log_->push_back(name_ + " has thrown"); }
  void onZeroReferences() override {
    log_->push_back(name_ + " has no references");
    Kiv::Ptr<Probe> const temporary(this);
  }

  std::function<void()> action;

 private:
  std::string name_;
  Log* log_;
};

}  // namespace BfnTest
