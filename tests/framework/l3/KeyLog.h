// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "framework/core/Notifiee.h"
#include "framework/core/Ptr.h"

namespace BfnTest {

/// Notes the changes of one collection as "<key>", and those of every other attribute as "#<id>".
template <class Key>
class KeyLog final : public Kiv::NotifieeConst {
 public:
  template <class Owner>
  KeyLog(Kiv::Ptr<Kiv::PtrInterface const> const& notifier, Kiv::Attr<Key, Owner> collection)
      : collection_(collection.id) {
    NotifieeConst::notifierIs(notifier);
  }
  void onAttribute(Kiv::AttributeId id, void const* key) override {
    std::ostringstream text;
    if (id == collection_) {
      text << *static_cast<Key const*>(key);
    } else {
      text << '#' << id;
    }
    changes.push_back(text.str());
  }

  std::vector<std::string> changes;

 private:
  Kiv::AttributeId const collection_;
};

/// A record, and the log of the notifications of its collection A.
template <class Record, Kiv::Attr A>
class LoggedRecord : public ::testing::Test {
 protected:
  using Log = KeyLog<typename decltype(A)::Key>;

  Kiv::Ptr<Record> status = Kiv::makeActive<Record>();
  Kiv::Ptr<Log> log = Kiv::makeActive<Log>(status, A);
};

}  // namespace BfnTest
