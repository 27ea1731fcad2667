#include "agent/BfnMacRewriteL3Shared.h"
#include "agent/BfnMacRewriteMount.h"
#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"
#include "framework/generic/Type.h"
#include "show/ShowMacRewriteCommandRequestSm.h"

namespace BfnMacRewrite {

namespace {

// What others make by type name: the state database the entities it mounts, the command dispatcher
// the show command, whoever fills the agent's status a record to fill, and a host that opens the
// library at run time the two objects at which it meets it.
Kiv::TypeRegistration const registration{
    &Input::Config::_kivType,
    &Capability::_kivType,
    &Agent::Config::_kivType,
    &Agent::Status::_kivType,
    &BfnMacRewriteMount::_kivType,
    &BfnMacRewriteL3Shared::_kivType,
    &ShowMacRewriteCommandRequestSm::_kivType,
};

}  // namespace

}  // namespace BfnMacRewrite
