// SPDX-License-Identifier: Apache-2.0
#include "framework/generic/Type.h"
#include "framework/platform/SystemStatus.h"

namespace {

// What the platform publishes, so that a state database can hold it.
Kiv::TypeRegistration const platformRegistration{
    &BfnSystem::SystemStatus::_kivType,
};

}  // namespace
