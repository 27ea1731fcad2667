// SPDX-License-Identifier: Apache-2.0
#include "tests/kernel/TunnelFixture.h"

namespace BfnTest {

namespace {

int run(OtherHost const* host, std::string const& line) {
  return host != nullptr ? host->shell(line) : shell(line);
}

}  // namespace

void TunnelFixture::on(OtherHost const* host, std::string const& line) {
  ASSERT_EQ(run(host, line), 0) << line;
}

void TunnelFixture::SetUp() {
  KernelFixture::SetUp();
  if (IsSkipped()) return;
  if (shell("which ping tcpdump python3 > /dev/null") != 0) {
    GTEST_SKIP() << "ping, tcpdump or python3 is missing";
  }
  nearHost_ = std::make_unique<OtherHost>();
  farEnd_ = std::make_unique<OtherHost>();
  farHost_ = std::make_unique<OtherHost>();
  auto const wire = [](std::string const& device, OtherHost const* from, std::string const& peer,
                       OtherHost const& to) {
    on(from, "ip link add " + device + " mtu 2000 type veth peer name " + peer +
                 " mtu 2000 netns " + std::to_string(to.pid()));
  };
  wire("under", nullptr, "under", *farEnd_);
  wire("port", nullptr, "eth0", *nearHost_);
  wire("port", farEnd_.get(), "eth0", *farHost_);
  auto const end = [](OtherHost const* host, std::string const& me, std::string const& other) {
    on(host, "ip addr add 192.0.2." + me + "/24 dev under && ip addr add 2001:db8::" + me +
                 "/64 dev under nodad && ip link set under up");
    on(host, "ip link add vx0 type vxlan id 10100 dstport 4789 local 192.0.2." + me +
                 " remote 192.0.2." + other + " && ip link set vx0 mtu 1500");
    on(host,
       "ip link add br0 type bridge mcast_snooping 0 && for d in port vx0; do "
       "ip link set $d master br0 up || exit; done && ip link set br0 up");
  };
  end(nullptr, "1", "2");
  end(farEnd_.get(), "2", "1");
  auto const host = [](OtherHost const& each, std::string const& me) {
    on(&each, "ip link set eth0 mtu 1500 address 02:aa:00:00:00:0" + me +
                  " up && ip addr add 10.1.0." + me + "/24 dev eth0 && ip addr add fd00::" + me +
                  "/64 dev eth0 nodad");
  };
  host(*nearHost_, "1");
  host(*farHost_, "2");
}

std::string TunnelFixture::captured(size_t frames, std::string const& filter,
                                    std::string const& line) const {
  return captured(frames, filter, line, *farHost_, "eth0", nearHost_.get());
}

std::string TunnelFixture::captured(size_t frames, std::string const& filter,
                                    std::string const& line, OtherHost const& where,
                                    std::string const& device, OtherHost const* from) const {
  std::string const file = (directory().parent_path() / "capture").string();
  shell("rm -f " + file + "*");
  auto capture =
      where.start("timeout 20 tcpdump -p -U --immediate-mode -Q in -c " + std::to_string(frames) +
                  " -i " + device + " -w " + file + " \"" + filter + "\" 2> " + file + ".log");
  EXPECT_EQ(shell("i=0; while ! grep -q listening " + file +
                  ".log 2> /dev/null; do sleep 0.02; i=$((i+1)); [ $i -lt 200 ] || exit 1; done"),
            0);
  EXPECT_EQ(run(from, line), 0) << line;
  EXPECT_EQ(capture.wait(), 0) << "too few frames";
  return outputOf("tcpdump -e -n -v -r " + file + " 2> /dev/null");
}

std::string TunnelFixture::sendTagged() {
  return "python3 -c \"import socket; s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); "
         "s.bind((\\\"eth0\\\", 0)); s.send(bytes.fromhex(\\\"02aa0000000202aa000000018100212c0800"
         "4500001c00000000401166cd0a0100010a0100020001000100080000\\\"))\"";
}

}  // namespace BfnTest
