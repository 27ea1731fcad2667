#pragma once

#include <gtest/gtest.h>
#include <memory>

#include "host/store/MemoryStore.h"
#include "host/store/Store.h"

// What the conformance suite needs of each kind of store: clients of one store, and its faults. A
// fixture without a store of its kind to test says why in `missing`.
namespace BfnTest {

class MemoryFixture {
 public:
  /// Whether several clients may be open at a time.
  static constexpr bool kShared = true;

  std::string missing() const { return {}; }
  std::unique_ptr<Host::Store> open() { return std::make_unique<Host::MemoryStore>(contents_); }
  /// The store is as it is after its process has been started again.
  void restart() {}
  /// Cuts every client's connection; it can be made again.
  void cut() {}
  void awayIs(bool away) { contents_->away = away; }
  /// Changes are refused from now on, or taken again.
  void refusingIs(bool refusing) { contents_->refusal = refusing ? "no room" : ""; }
  /// All changes are forgotten, contents are not.
  void loseChanges() { contents_->events.clear(); }
  /// As after the loss of everything.
  void clear() {
    contents_->records.clear();
    contents_->events.clear();
    contents_->head = {};
  }
  /// Remembers what the store holds, and gives it that back.
  void save() { saved_ = *contents_; }
  void restore() { *contents_ = saved_; }
  /// Puts text there that no codec has seen.
  void putRaw(Host::StoreChange const& change) { (void)open()->submit({&change, 1}); }

 private:
  std::shared_ptr<Host::MemoryStoreContents> contents_ =
      std::make_shared<Host::MemoryStoreContents>();
  Host::MemoryStoreContents saved_;
};

using AllStores = ::testing::Types<MemoryFixture>;

}  // namespace BfnTest
