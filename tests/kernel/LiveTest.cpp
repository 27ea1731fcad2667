// SPDX-License-Identifier: Apache-2.0
// Two tunnel ends with a host at each, as they are on any Linux machine: what the far host receives
// when the program sits on the near end's VXLAN device.
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "chip/RewriteLayout.h"
#include "kernel/KernelTable.h"
#include "kernel/Ports.h"
#include "tests/kernel/TunnelFixture.h"
#include "tests/support/RewriteRow.h"

namespace {

using BfnKernel::KernelProgram;
using BfnKernel::KernelTable;
using BfnKernel::Ports;
using BfnTest::OtherHost;
using BfnTest::shell;
using Kiv::U16;
using Kiv::U64;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr U16 kVlan = 100;
constexpr BfnChip::AddressBytes kNear{10, 1, 0, 1};
constexpr BfnChip::MacBytes kRowMac{0x02, 0x5e, 0x10, 0x01, 0x02, 0x03};
// As tcpdump prints the source of a frame.
constexpr char kRows[] = "02:5e:10:01:02:03 > ";

class Live : public BfnTest::TunnelFixture {
 protected:
  void programIs() {
    kernel_ = std::make_unique<KernelProgram>(options());
    table_ = std::make_unique<KernelTable>(*kernel_);
    ports_ = std::make_unique<Ports>(*kernel_);
    auto const handle = *table_->open({0, 0, {}, "", KernelTable::kRewriteTable});
    ASSERT_EQ(
        table_->write(handle, BfnTest::rewriteKey(kVlan, kNear), BfnTest::rewriteAction(kRowMac)),
        BfnDriver::WriteResult::Ok);
  }

  U64 counted(mac_rewrite_verdict verdict) const { return kernel_->counters().of(verdict); }

  std::unique_ptr<KernelProgram> kernel_;
  std::unique_ptr<KernelTable> table_;
  std::unique_ptr<Ports> ports_;
};

TEST_F(Live, FarHostSeesTheHostsOwnMacWithoutTheProgram) {
  EXPECT_THAT(captured(2, "icmp", "ping -q -c 2 -i 0.05 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kNearsOwn), Not(HasSubstr(kRows))));
}

TEST_F(Live, FarHostSeesTheRowsMacAndAnswers) {
  programIs();
  ports_->attach("vx0", kVlan);
  EXPECT_THAT(captured(3, "icmp", "ping -q -c 3 -i 0.05 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kRows), Not(HasSubstr(kNearsOwn))));
  EXPECT_EQ(counted(MAC_REWRITE_REWRITTEN), 3u);
  ports_->detachAll();
  EXPECT_THAT(captured(1, "icmp", "ping -q -c 1 10.1.0.2 > /dev/null"), HasSubstr(kNearsOwn));
}

TEST_F(Live, ArpAndIpv6KeepTheHostsMac) {
  programIs();
  ports_->attach("vx0", kVlan);
  EXPECT_THAT(captured(1, "arp", "ping -q -c 1 10.1.0.2 > /dev/null"), HasSubstr(kNearsOwn));
  EXPECT_THAT(captured(1, "icmp6 and ip6[40] == 128", "ping -q -c 1 fd00::2 > /dev/null"),
              HasSubstr(kNearsOwn));
  EXPECT_GE(counted(MAC_REWRITE_ARP), 1u);
  EXPECT_GE(counted(MAC_REWRITE_IPV6), 1u);
}

TEST_F(Live, FragmentsOptionsAndFramesOfTheMtuAreRewritten) {
  programIs();
  ports_->attach("vx0", kVlan);
  EXPECT_THAT(captured(3, "src 10.1.0.1 and ip", "ping -q -c 1 -s 4000 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kRows), Not(HasSubstr(kNearsOwn)), HasSubstr("flags [+]")));
  EXPECT_THAT(captured(1, "icmp", "ping -q -c 1 -M do -s 1472 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kRows), HasSubstr("length 1514")));
  EXPECT_THAT(captured(1, "src 10.1.0.1 and ip", "ping -q -c 1 -R 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kRows), HasSubstr("options (NOP,RR")));
}

TEST_F(Live, TaggedFrameInADevicesVlanIsRewrittenAndKeepsItsTag) {
  programIs();
  ports_->attach("vx0", kVlan);
  EXPECT_THAT(captured(1, "vlan 300", sendTagged()),
              AllOf(HasSubstr(kRows), HasSubstr("vlan 300, p 1")));
  EXPECT_EQ(counted(MAC_REWRITE_REWRITTEN), 1u);
}

TEST_F(Live, LargeTransferArrivesWholeInSegmentsThatTheKernelCuts) {
  programIs();
  ports_->attach("vx0", kVlan);
  std::string const file = (directory().parent_path() / "data").string();
  ASSERT_EQ(shell("head -c 20000000 /dev/urandom > " + file), 0);
  auto receiver = farHost_->start(
      "timeout 20 python3 -c \"import socket; s = socket.create_server((\\\"\\\", 5001)); "
      "c, _ = s.accept(); f = open(\\\"" +
      file +
      ".in\\\", \\\"wb\\\")\nwhile True:\n"
      " d = c.recv(1 << 20)\n if not d: break\n f.write(d)\"");
  ASSERT_EQ(nearHost_->shell("python3 -c \"import socket, time\nfor i in range(100):\n try:\n"
                             "  s = socket.create_connection((\\\"10.1.0.2\\\", 5001)); break\n"
                             " except OSError: time.sleep(0.05)\ns.sendall(open(\\\"" +
                             file + "\\\", \\\"rb\\\").read())\""),
            0);
  ASSERT_EQ(receiver.wait(), 0);
  EXPECT_EQ(shell("cmp " + file + " " + file + ".in"), 0);
  // Fewer frames than segments of 1,448 bytes: they met the program before they were cut.
  EXPECT_GT(counted(MAC_REWRITE_REWRITTEN), 100u);
  EXPECT_LT(counted(MAC_REWRITE_REWRITTEN), 20'000'000u / 1'448);
}

// A device that takes the VNI from each frame's metadata, as a route with an encapsulation sets it.
TEST_F(Live, VniOfTheFramesMetadataSaysTheVlanOverEitherUnderlay) {
  programIs();
  ports_->vniIs(10'100, kVlan);
  on(nullptr,
     "ip link set vx0 down && ip link del vx0 && ip link add vxe type vxlan external "
     "dstport 4789 && ip link set vxe mtu 1500 address 02:aa:00:00:00:0e up && "
     "ip addr add 10.1.0.1/32 dev vxe");
  ports_->attach("vxe", std::nullopt);
  struct Underlay {
    std::string route;
    std::string far;
  };
  for (Underlay const& underlay :
       {Underlay{"encap ip id 10100 dst 192.0.2.2", "local 192.0.2.2 remote 192.0.2.1"},
        Underlay{"encap ip6 id 10100 dst 2001:db8::2",
                 "udp6zerocsumrx local 2001:db8::2 remote 2001:db8::1"}}) {
    on(farEnd_.get(), "ip link del vx0; ip link add vx0 type vxlan id 10100 dstport 4789 " +
                          underlay.far + " && ip link set vx0 up");
    on(nullptr, "ip route replace 10.1.0.2 " + underlay.route +
                    " dev vxe && "
                    "ip neigh replace 10.1.0.2 lladdr 02:aa:00:00:00:02 dev vxe");
    EXPECT_THAT(captured(1, "icmp", "ping -q -c 1 -W 1 10.1.0.2 > /dev/null; true", *farEnd_, "vx0",
                         nullptr),
                AllOf(HasSubstr(kRows), Not(HasSubstr("02:aa:00:00:00:0e >"))))
        << underlay.route;
  }
  EXPECT_EQ(counted(MAC_REWRITE_NO_VLAN), 0u);
}

TEST_F(Live, TunnelOverIpv6IsTheSame) {
  programIs();
  for (OtherHost const* host :
       {static_cast<OtherHost const*>(nullptr), static_cast<OtherHost const*>(farEnd_.get())}) {
    std::string const ends = host == nullptr ? "local 2001:db8::1 remote 2001:db8::2"
                                             : "local 2001:db8::2 remote 2001:db8::1";
    on(host, "ip link del vx0 && ip link add vx0 type vxlan id 10100 dstport 4789 " + ends +
                 " && ip link set vx0 mtu 1500 master br0 up");
  }
  ports_->attach("vx0", kVlan);
  EXPECT_THAT(captured(2, "icmp", "ping -q -c 2 -i 0.05 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kRows), Not(HasSubstr(kNearsOwn))));
}

// Frames are still forwarded while there is no process, and a ping of a hundred a second loses
// none.
TEST_F(Live, NoPingIsLostWhenTheProcessDiesAndTheNextOneOpensTheTable) {
  std::string const pings = (directory().parent_path() / "pings").string();
  pid_t const child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    programIs();
    ports_->attach("vx0", kVlan);
    auto const running = nearHost_->start("ping -q -c 100 -i 0.01 10.1.0.2 > " + pings);
    while (counted(MAC_REWRITE_REWRITTEN) <= 20) shell("sleep 0.01");
    kill(getpid(), SIGKILL);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));
  kernel_ = std::make_unique<KernelProgram>(options());
  EXPECT_EQ(shell("i=0; while ! grep -q received " + pings +
                  "; do sleep 0.02; i=$((i+1)); [ $i -lt 500 ] || exit 1; done"),
            0);
  EXPECT_THAT(BfnTest::outputOf("cat " + pings), HasSubstr(" 100 received, 0% packet loss"));
  EXPECT_EQ(counted(MAC_REWRITE_REWRITTEN), 100u);
  EXPECT_EQ(counted(MAC_REWRITE_NO_ROW), 0u);
}

}  // namespace
