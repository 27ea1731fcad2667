// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/PluginTest.h"

namespace BfnTest {

/// A test of the agent's bring-up: its host is there, the agent is not yet made.
class AgentSmStagesTest : public PluginTest {
 protected:
  void SetUp() override { TraceCapture::clear(); }
  BfnMacRewrite::AgentSm& agent() { return *host.agent; }
  BfnMacRewrite::BfnL3Output& output() { return *host.l3Shared->bfnL3Output(); }
  void profileIs(char const* profile, bool supported, unsigned size = 1000) {
    BfnSystem::ChipCapabilities capabilities;
    capabilities.overlaySrcMacRewriteSupported = supported;
    capabilities.overlaySrcMacRewriteTableSize = static_cast<Kiv::U16>(size);
    host.systemStatus->profileInfoIs(profile)->chipCapabilitiesIs(capabilities);
  }
  /// The references of each row.
  std::vector<unsigned> refCounts() {
    std::vector<unsigned> counts;
    for (auto const& record : agent().overlaySrcMacRewriteManager()->matchSpecAndRefCount()) {
      counts.push_back(record->refCount());
    }
    return counts;
  }
  void row() {
    host.vrf("red", 7);
    host.port("Ethernet1", 100, 7);
    host.address(7, "10.0.0.1", "Ethernet1");
    host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  }
};

}  // namespace BfnTest
