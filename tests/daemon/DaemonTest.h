// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "client/Connection.h"
#include "tests/daemon/ServiceProcess.h"

namespace BfnTest {

inline constexpr char kMac1[] = "02:00:00:00:00:01";

/// A row of bringUpLines()' VRF, as `show chip` has it.
inline nlohmann::json row(char const* ip, char const* mac = kMac1) {
  return {{"hits", 0}, {"mac", mac}, {"matchType", 5}, {"sip", ip}, {"valid", 1}, {"vlan", 1006}};
}

/// A service of its own for each test.
class DaemonTest : public ::testing::Test {
 protected:
  ServiceProcess service;

  void up() {
    service.start();
    service.lines(bringUpLines());
    ASSERT_TRUE(service.reaches("running")) << service.log();
  }
  void dies() {
    // A status with a VLAN that no row may have, and the address goes before it is corrected.
    service.lines({"host routing-status port Ethernet2 key-vlan 0 vlan 4095 vrf-id 7"});
    service.ask("host address 10.9.9.9 vrf-id 7 interface Ethernet2");
    EXPECT_THROW(service.ask("no host address 10.9.9.9 vrf-id 7"), NoService);
    int const status = service.wait();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
  }
};

}  // namespace BfnTest
