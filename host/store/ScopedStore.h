// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <set>
#include <string>

#include "host/store/Store.h"

namespace Host {

/// One user's part of a store that several share: its paths lie below a prefix, but for those that
/// are common to all. What lies elsewhere is not seen.
class ScopedStore final : public Store {
 public:
  /// A path P is kept at `prefix` + P; a common one at P.
  ScopedStore(std::unique_ptr<Store> store, std::string prefix, std::set<std::string> common);

  std::string name() const override { return store_->name(); }
  StoreHead head() override { return store_->head(); }
  void begin() override { store_->begin(); }
  StoreSnapshot snapshot() override;
  std::optional<std::vector<StoreEvent>> changes() override;
  StoreVersions submit(std::vector<StoreChange> changes) override;
  std::string claim(std::string const& name, std::string const& owner, unsigned seconds) override {
    return store_->claim(prefix_ + name, owner, seconds);
  }
  int descriptor() override { return store_->descriptor(); }

 private:
  std::string inner(std::string const& path) const;
  /// Nothing for a path that is not seen.
  std::optional<std::string> outer(std::string const& path) const;

  std::unique_ptr<Store> const store_;
  std::string const prefix_;
  std::set<std::string> const common_;
};

}  // namespace Host
