// SPDX-License-Identifier: Apache-2.0
#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Capability.h"
#include "framework/generic/Type.h"

namespace BfnMacRewrite {

namespace {

// The types that others make by name: the entities that the state database mounts, and the records
// that are filled from outside.
Kiv::TypeRegistration const registration{
    &Input::Config::_kivType,
    &Capability::_kivType,
    &Agent::Config::_kivType,
    &Agent::Status::_kivType,
};

}  // namespace

}  // namespace BfnMacRewrite
