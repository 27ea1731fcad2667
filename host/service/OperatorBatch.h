// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
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
  explicit OperatorBatch(Service& service) : service_(service) {}

  size_t size() const { return lines_.size(); }
  bool empty() const { return lines_.empty(); }
  void clear();

  /// Adds a line, of whose words isOperatorLine() is true. Throws InputError or StoreRefused, and
  /// has not added it then.
  void add(std::span<std::string const> words, std::string_view line);

  /// What handlers of a line's change have thrown. The change has been made.
  struct Failure {
    size_t line;
    std::exception_ptr thrown;
  };
  /// Puts the changes into the store and applies them. The batch is empty afterwards, also when
  /// this throws StoreError or UnreadableException: nothing has been changed then, but see
  /// StoreAway.
  std::vector<Failure> submit();

 private:
  Service& service_;
  std::vector<std::string> lines_;
  std::vector<StoreChange> changes_;
  std::vector<size_t> lineOf_;  // by change
  std::map<ConfigurationKey, std::optional<Ovra::EthAddr>> configured_;
};

}  // namespace Host
