// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <span>
#include <string>
#include <vector>

#include "host/service/OperatorLines.h"
#include "host/service/Service.h"

namespace Host {

/// Lines of the operator's that go into the service's store together. Each line's change is an
/// event of its own. The service must outlive the batch.
class OperatorBatch {
 public:
  explicit OperatorBatch(Service& service)
      : service_(&service), lines_(service.host(), service.mirror()) {}

  size_t size() const { return lines_.size(); }
  std::vector<std::string> const& lines() const { return lines_.lines(); }

  /// As OperatorLines::add(); throws StoreRefused, too, and has not taken the line then.
  void add(std::span<std::string const> words, std::string line);
  bool stale() const { return lines_.stale(); }

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
  OperatorLines lines_;
};

}  // namespace Host
