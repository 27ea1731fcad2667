#include "agent/BfnMacRewriteL3Shared.h"
#include "agent/BfnMacRewriteMount.h"
#include "framework/generic/Type.h"
#include "show/ShowMacRewriteCommandRequestSm.h"

namespace BfnMacRewrite {

namespace {

// What others make by type name, beside the records: the command dispatcher the show command, and a
// host that opens the library at run time the two objects at which it meets it.
Kiv::TypeRegistration const registration{
    &BfnMacRewriteMount::_kivType,
    &BfnMacRewriteL3Shared::_kivType,
    &ShowMacRewriteCommandRequestSm::_kivType,
};

}  // namespace

}  // namespace BfnMacRewrite
