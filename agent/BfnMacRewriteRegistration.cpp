// SPDX-License-Identifier: Apache-2.0
#include "agent/BfnMacRewriteL3Shared.h"
#include "agent/BfnMacRewriteMount.h"
#include "framework/generic/Type.h"
#include "show/ShowMacRewriteCommandRequestSm.h"

namespace BfnMacRewrite {

// The types besides the records that others make by name: the show command, made by the command
// dispatcher, and the mount and the shared object, made by a host that opens the library at run
// time.
Kiv::TypeRegistration const registration{
    &BfnMacRewriteMount::_kivType,
    &BfnMacRewriteL3Shared::_kivType,
    &ShowMacRewriteCommandRequestSm::_kivType,
};

}  // namespace BfnMacRewrite
