// SPDX-License-Identifier: Apache-2.0
// The service over the kernel's table, under the packets of a host.
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/wait.h>

#include "tests/daemon/KernelRows.h"
#include "tests/daemon/ServiceProcess.h"
#include "tests/kernel/TunnelFixture.h"

namespace {

using BfnTest::outputOf;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

// The row's MAC as tcpdump prints the source of a frame.
constexpr char kRows[] = "02:5e:10:01:02:03 > ";

class ServiceLiveTest : public BfnTest::TunnelFixture {
 protected:
  BfnTest::ServiceProcess service;

  void SetUp() override {
    TunnelFixture::SetUp();
    if (IsSkipped()) return;
    service.options() = {"--table", "kernel:" + directory().string()};
    service.start();
    auto lines = BfnTest::bringUpLines();
    lines[3] = "host routing-status vlan Vlan100 key-vlan 100 vlan 100 vrf-id 7";
    service.lines(lines);
    ASSERT_TRUE(service.reaches("running")) << service.log();
    service.lines({"host address 10.1.0.1 vrf-id 7 interface Vlan100",
                   BfnTest::rewriteLine("10.1.0.1", "02:5e:10:01:02:03"),
                   "chip port vx0 vlan 100"});
  }
  void expectRewritten() const {
    EXPECT_THAT(captured(2, "icmp and src 10.1.0.1", "ping -q -c 2 -i 0.05 10.1.0.2 > /dev/null"),
                AllOf(HasSubstr(kRows), Not(HasSubstr(kNearsOwn))));
  }
};

TEST_F(ServiceLiveTest, InputsThatKillEachBringUpLeaveTheTrafficUntouched) {
  expectRewritten();
  auto const rows = BfnTest::rowsInTheKernel(directory());
  service.stop(SIGTERM);
  std::string const file = service.file("pings");
  auto pings = nearHost_->start("ping -q -c 300 -i 0.01 10.1.0.2 > " + file);
  service.plugin = SERVICE_POISON;
  service.start();
  // The first death may come before the answer does.
  EXPECT_NO_THROW(service.ask("host profile poison rewrite supported table-size 1"));
  service.stop(SIGKILL);
  constexpr unsigned kDeaths = 3;
  for (unsigned death = 0; death < kDeaths; ++death) {
    try {
      service.start();
      int const status = service.wait();
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
    } catch (std::runtime_error const&) {
      // It ended before it answered.
    }
    expectRewritten();
  }
  service.start();
  ASSERT_TRUE(service.reaches("held")) << service.log();
  EXPECT_EQ(service.status()["deaths"], kDeaths);
  EXPECT_THAT(service.status()["agent"]["because"], HasSubstr("The profile is poison"));
  expectRewritten();
  EXPECT_EQ(BfnTest::rowsInTheKernel(directory()), rows);

  service.lines({"no host profile poison"});
  ASSERT_TRUE(service.reaches("running")) << service.log();
  EXPECT_EQ(service.status()["chipChanges"], 0);
  EXPECT_EQ(BfnTest::rowsInTheKernel(directory()), rows);
  // An input that is new reaches the packets.
  service.lines({BfnTest::rewriteLine("10.1.0.1", "02:5e:10:01:02:04")});
  EXPECT_THAT(captured(1, "icmp and src 10.1.0.1", "ping -q -c 1 10.1.0.2 > /dev/null"),
              HasSubstr("02:5e:10:01:02:04 > "));
  EXPECT_EQ(pings.wait(), 0);
  EXPECT_THAT(outputOf("cat " + file), HasSubstr(" 300 received, 0% packet loss"));
}

}  // namespace
