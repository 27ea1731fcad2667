// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/command/AgentCommandRequest.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/String.h"

namespace Agent {

/// What every command machine has: its name and the request that it answers.
class AgentCommandRequestBaseSm : public Kiv::PtrInterface {
 public:
  Kiv::String const& name() const { return name_; }
  /// Never null: a machine made without a request answers one whose output is discarded.
  Kiv::Ptr<AgentCommandRequest const> const& request() const { return request_; }

  Kiv::Type const& fwkType() const override;
  static Kiv::Type const& _kivType();

 protected:
  AgentCommandRequestBaseSm(Kiv::String name, Kiv::Ptr<AgentCommandRequest const> const& request);
  ~AgentCommandRequestBaseSm() override;

 private:
  Kiv::String name_;
  Kiv::Ptr<AgentCommandRequest const> request_;
};

}  // namespace Agent
