#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Capability.h"
#include "framework/generic/Type.h"

namespace BfnMacRewrite {

namespace {

// What others make by type name: the state database the entities it mounts, and what fills the
// agent's records from outside, a record to fill.
Kiv::TypeRegistration const registration{
    &Input::Config::_kivType,
    &Capability::_kivType,
    &Agent::Config::_kivType,
    &Agent::Status::_kivType,
};

}  // namespace

}  // namespace BfnMacRewrite
