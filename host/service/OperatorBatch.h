// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/commands/Configuration.h"
#include "host/service/Service.h"

namespace Host {

/// Lines of the operator's that go into the store together, as one transaction.
///
/// A line is checked over the configuration as the lines before it leave it. Each line's change is
/// an event of its own. The service must outlive the batch.
class OperatorBatch {
 public:
  explicit OperatorBatch(Service& service) : service_(&service) {}

  size_t size() const { return lines_.size(); }
  std::vector<std::string> const& lines() const { return lines_; }

  /// Adds a line, of whose words isOperatorLine() is true. Throws InputError or StoreRefused, and
  /// has not taken it then.
  void add(std::span<std::string const> words, std::string line);
  /// Whether other changes have been applied since the first line was added: what was checked may
  /// not hold any more.
  bool stale() const;

  /// What handlers of a line's change have thrown. The change has been made.
  struct Failure {
    size_t line;
    std::exception_ptr thrown;
  };
  /// Puts the changes into the store and applies them, once. Throws StoreError or
  /// UnreadableException: nothing has been changed then, but see StoreAway.
  std::vector<Failure> submit();

 private:
  Service* service_;
  Kiv::U64 begun_ = 0;  // after so many changes applied
  std::vector<std::string> lines_;
  std::vector<StoreChange> changes_;
  std::vector<size_t> lineOf_;  // by change
  std::map<ConfigurationKey, std::optional<Ovra::EthAddr>> configured_;
};

}  // namespace Host
