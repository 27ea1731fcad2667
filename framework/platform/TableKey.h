// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "framework/core/Name.h"
#include "framework/core/Types.h"
#include "framework/driver/BfnPipeId.h"

namespace BfnAgentLib {

/// Names one hardware table: on which of the session's chips, in which pipe.
class TableKey {
 public:
  TableKey() = default;
  TableKey(Kiv::Name tableName, Kiv::U8 device, BfnId::BfnPipeId pipeId)
      : tableName_(std::move(tableName)), pipeId_(pipeId), device_(device) {}

  Kiv::Name const& tableName() const { return tableName_; }
  /// Number of the chip.
  Kiv::U8 device() const { return device_; }
  BfnId::BfnPipeId pipeId() const { return pipeId_; }

  friend bool operator==(TableKey const&, TableKey const&) = default;

 private:
  Kiv::Name tableName_;
  BfnId::BfnPipeId pipeId_;
  Kiv::U8 device_ = 0;
};

}  // namespace BfnAgentLib
