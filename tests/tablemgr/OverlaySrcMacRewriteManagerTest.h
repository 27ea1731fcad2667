// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "framework/log/LogService.h"
#include "tests/support/PluginTest.h"

namespace BfnTest {

inline constexpr char const* kMac = "02:11:22:33:44:55";
inline constexpr char const* kOtherMac = "02:11:22:33:44:66";

/// A table manager whose table is initialised, and its log.
class OverlaySrcMacRewriteManagerTest : public PluginTest {
 protected:
  void SetUp() override {
    Kiv::LogService::reset();
    Kiv::LogService::clockIs([this] { return clock; });
    Kiv::LogService::sinkIs([this](Kiv::LogMessage const& message) { logged.push_back(message); });
    host.createAgent();
    host.stage1();
    manager = host.agent->overlaySrcMacRewriteManager();
    host.journal();
    TraceCapture::clear();
  }
  void TearDown() override {
    manager.reset();
    PluginTest::TearDown();
    Kiv::LogService::reset();
  }

  PexTypes::TableAddStatus add(char const* intf, char const* ipText, char const* macText = kMac,
                               unsigned vlan = 100, char const* vrfName = "red") {
    return manager->addEntry(L3::VrfName(vrfName), Bridging::VlanId(vlan), Ovra::IntfId(intf),
                             ip(ipText), mac(macText));
  }
  Kiv::Ptr<BfnMacRewrite::MatchSpecAndRefCount> record(char const* intf, char const* ipText) {
    return manager->matchSpecAndRefCount({ip(ipText), Ovra::IntfId(intf), false});
  }
  void failNext(BfnChip::Fault::Kind kind, Kiv::U64 count = 1) {
    host.chip.faults().failNext(count, {kind, nullptr});
  }

  Kiv::Ptr<BfnMacRewrite::OverlaySrcMacRewriteManager> manager;
  std::vector<Kiv::LogMessage> logged;
  double clock = 1000;
};

/// What the table manager writes to standard error when a condition does not hold, as a whole: the
/// line, with no end of its own, runs into the assertion's.
inline auto diesAs(std::string const& condition, std::string const& line) {
  using ::testing::HasSubstr;
  std::string const both = "Failed(" + condition + ") " + line;
  return ::testing::AllOf(HasSubstr(both), HasSubstr("BfnMacRewriteTableMgr"),
                          HasSubstr("\"" + condition + "\" == nullptr"),
                          ::testing::Not(HasSubstr(both + "\n")));
}

}  // namespace BfnTest
