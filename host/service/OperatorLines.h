// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "framework/core/Hash.h"
#include "host/commands/Configuration.h"
#include "host/store/StoreMirror.h"
#include "host/switch/Switch.h"

namespace Host {

/// Lines of the operator's that go into a store together, as one transaction. Each is checked over
/// the configuration as the lines before it leave it. The switch, which has the configuration of
/// the mirror's store, and the mirror must outlive it.
class OperatorLines {
 public:
  OperatorLines(Switch const& host, StoreMirror const& mirror) : host_(&host), mirror_(&mirror) {}

  size_t size() const { return lines_.size(); }
  std::vector<std::string> const& lines() const { return lines_; }

  /// Adds a line, of whose words isOperatorLine() is true. Throws InputError, and has not taken it
  /// then.
  void add(std::span<std::string const> words, std::string line);
  /// Whether other changes have been applied since the first line was added: what was checked may
  /// not hold any more.
  bool stale() const;

  /// What the lines change, readable as it is. Once; no line is added afterwards.
  std::vector<StoreChange> takeChanges();
  /// The number of the line that a change comes from.
  size_t lineOf(size_t change) const { return lineOf_[change]; }

 private:
  struct KeyHash {
    size_t operator()(ConfigurationKey const& key) const {
      return Kiv::hashSingleAttr(Kiv::hashSingleAttr(0, key.first), key.second);
    }
  };

  Switch const* host_;
  StoreMirror const* mirror_;
  Kiv::U64 begun_ = 0;  // after so many changes applied
  std::vector<std::string> lines_;
  std::vector<StoreChange> changes_;
  std::vector<size_t> lineOf_;  // by change
  std::unordered_map<ConfigurationKey, std::optional<Ovra::EthAddr>, KeyHash> configured_;
};

}  // namespace Host
