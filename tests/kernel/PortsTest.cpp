// SPDX-License-Identifier: Apache-2.0
// The program on devices: attached, followed, taken out, and nothing else touched.
#include "kernel/Ports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/bpf.h>
#include <net/if.h>

#include "framework/core/Exceptions.h"
#include "kernel/KernelError.h"
#include "kernel/TcFilter.h"
#include "tests/kernel/KernelFixture.h"

namespace {

using BfnKernel::KernelError;
using BfnKernel::KernelProgram;
using BfnKernel::Port;
using BfnKernel::Ports;
using BfnTest::outputOf;
using BfnTest::shell;
using Kiv::U32;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::ThrowsMessage;

class PortsTest : public BfnTest::KernelFixture {
 protected:
  void SetUp() override {
    KernelFixture::SetUp();
    if (IsSkipped()) return;
    kernel_ = std::make_unique<KernelProgram>(options());
    ports_ = std::make_unique<Ports>(*kernel_);
    vxlanIs("vx0", 10'100);
  }
  static void vxlanIs(std::string const& name, int vni) {
    ASSERT_EQ(shell("ip link add " + name + " type vxlan id " + std::to_string(vni) +
                    " dstport 4789 local 127.0.0.1"),
              0);
  }
  static void goes(std::string const& name) { ASSERT_EQ(shell("ip link del " + name), 0); }
  Port only() {
    auto const ports = ports_->list();
    EXPECT_EQ(ports.size(), 1u);
    return ports.empty() ? Port{} : ports[0];
  }
  // The VLAN and the VNI that the program sees for the device, and nothing when it has none.
  std::optional<std::pair<U32, U32>> entry(std::string const& name) {
    U32 const index = if_nametoindex(name.c_str());
    mac_rewrite_device device{};
    if (kernel_->devices().lookup(&index, &device) != 0) return std::nullopt;
    return std::pair(device.vlan, device.vni);
  }
  size_t entries() {
    size_t count = 0;
    U32 index = 0;
    for (int end = kernel_->devices().nextKey(nullptr, &index); end == 0;
         end = kernel_->devices().nextKey(&index, &index)) {
      ++count;
    }
    return count;
  }
  static std::string qdiscs(std::string const& name) {
    return outputOf("tc qdisc show dev " + name + " clsact");
  }
  static std::string filters(std::string const& name, std::string const& side = "egress") {
    return outputOf("tc filter show dev " + name + " " + side);
  }

  // A filter of another owner, which happens to be the same program.
  std::string otherFilter() const {
    return "bpf da object-pinned " + (directory() / "program").string();
  }

  std::unique_ptr<KernelProgram> kernel_;
  std::unique_ptr<Ports> ports_;
};

TEST_F(PortsTest, AttachedDeviceHasItsVlanAndTheFilter) {
  ports_->attach("vx0", 100);
  Port const port = only();
  EXPECT_EQ(port.device, "vx0");
  EXPECT_EQ(port.vlan, 100);
  EXPECT_EQ(port.vni, 10'100u);
  EXPECT_TRUE(port.present);
  EXPECT_TRUE(port.attached);
  EXPECT_FALSE(port.ipv6Underlay);
  EXPECT_EQ(entry("vx0"), std::pair(100u, 10'100u));
  EXPECT_THAT(filters("vx0"), HasSubstr("name mac_rewrite"));
}

TEST_F(PortsTest, AttachingTwiceIsOnce) {
  ports_->attach("vx0", 100);
  std::string const before = filters("vx0");
  ports_->attach("vx0", 100);
  EXPECT_EQ(filters("vx0"), before);
  EXPECT_EQ(ports_->list().size(), 1u);
  EXPECT_EQ(entries(), 1u);
}

TEST_F(PortsTest, AttachingAgainChangesTheVlan) {
  ports_->attach("vx0", 100);
  ports_->attach("vx0", std::nullopt);
  EXPECT_EQ(only().vlan, std::nullopt);
  EXPECT_EQ(entry("vx0"), std::pair(0u, 10'100u));
}

TEST_F(PortsTest, AttachingAgainPutsBackAFilterThatWasRemoved) {
  ports_->attach("vx0", 100);
  ASSERT_EQ(shell("tc qdisc del dev vx0 clsact"), 0);
  EXPECT_FALSE(only().attached);
  ports_->attach("vx0", 100);
  EXPECT_TRUE(only().attached);
}

TEST_F(PortsTest, DetachingLeavesTheDeviceAsItWas) {
  ports_->attach("vx0", 100);
  EXPECT_TRUE(ports_->detach("vx0"));
  EXPECT_THAT(qdiscs("vx0"), IsEmpty());
  EXPECT_EQ(entries(), 0u);
  EXPECT_THAT(ports_->list(), IsEmpty());
  EXPECT_FALSE(ports_->detach("vx0"));
}

TEST_F(PortsTest, QdiscThatWasThereStays) {
  ASSERT_EQ(shell("tc qdisc add dev vx0 clsact"), 0);
  ports_->attach("vx0", 100);
  ports_->detachAll();
  EXPECT_THAT(qdiscs("vx0"), HasSubstr("clsact"));
  EXPECT_THAT(filters("vx0"), IsEmpty());
}

TEST_F(PortsTest, FiltersOfOthersStayAndTheQdiscWithThem) {
  for (std::string const side : {"egress", "ingress"}) {
    ports_->attach("vx0", 100);
    ASSERT_EQ(shell("tc filter add dev vx0 " + side + " pref 5 " + otherFilter()), 0);
    ports_->detachAll();
    EXPECT_THAT(filters("vx0", side), HasSubstr("pref 5 bpf"));
    EXPECT_THAT(filters("vx0"), Not(HasSubstr("pref 9")));
    ASSERT_EQ(shell("tc qdisc del dev vx0 clsact"), 0);
  }
}

TEST_F(PortsTest, PlaceThatIsAnotherOwnersIsNotTaken) {
  ASSERT_EQ(shell("tc qdisc add dev vx0 clsact && "
                  "tc filter add dev vx0 egress protocol ip pref 9 " +
                  otherFilter()),
            0);
  std::string const before = filters("vx0");
  EXPECT_THAT([&] { ports_->attach("vx0", 100); },
              ThrowsMessage<KernelError>(HasSubstr("is another owner's")));
  EXPECT_EQ(filters("vx0"), before);
  EXPECT_THAT(ports_->list(), IsEmpty());
  EXPECT_EQ(entries(), 0u);
}

TEST_F(PortsTest, DeviceThatGoesAndComesBackIsAttachedAgain) {
  ports_->attach("vx0", 100);
  goes("vx0");
  EXPECT_THAT(ports_->handleEvents(), ElementsAre("vx0 has gone"));
  EXPECT_FALSE(only().present);
  EXPECT_EQ(entries(), 0u);
  vxlanIs("vx0", 10'200);
  EXPECT_THAT(ports_->handleEvents(), ElementsAre("vx0 has come back"));
  EXPECT_TRUE(only().attached);
  EXPECT_EQ(entry("vx0"), std::pair(100u, 10'200u));
  EXPECT_THAT(ports_->handleEvents(), IsEmpty());
}

TEST_F(PortsTest, DeviceThatCameBackBeforeAnyoneLookedIsAttachedAgain) {
  ports_->attach("vx0", 100);
  goes("vx0");
  vxlanIs("vx0", 10'200);
  EXPECT_THAT(ports_->handleEvents(), ElementsAre("vx0 has gone", "vx0 has come back"));
  EXPECT_TRUE(only().attached);
  EXPECT_EQ(entries(), 1u);
}

TEST_F(PortsTest, DeviceIsFollowedAfterEventsWereLost) {
  ports_->attach("vx0", 100);
  goes("vx0");
  ASSERT_EQ(shell("for i in $(seq 1000); do echo link set lo alias $i; done | ip -batch -"), 0);
  vxlanIs("vx0", 10'200);
  ports_->handleEvents();
  EXPECT_TRUE(only().attached);
  EXPECT_EQ(entries(), 1u);
}

TEST_F(PortsTest, DeviceThatGetsAnotherNameIsLetGo) {
  ports_->attach("vx0", 100);
  ASSERT_EQ(shell("ip link set vx0 name vx1"), 0);
  EXPECT_THAT(ports_->handleEvents(), ElementsAre("vx0 has gone"));
  EXPECT_THAT(qdiscs("vx1"), IsEmpty());
  EXPECT_EQ(entries(), 0u);
}

TEST_F(PortsTest, NextProcessFindsWhatWasAttached) {
  vxlanIs("vx1", 10'200);
  ports_->attach("vx0", 100);
  ports_->attach("vx1", 200);
  ports_.reset();
  goes("vx1");
  ports_ = std::make_unique<Ports>(*kernel_);
  auto const ports = ports_->list();
  ASSERT_EQ(ports.size(), 2u);
  EXPECT_TRUE(ports[0].attached);
  EXPECT_EQ(ports[0].vlan, 100);
  EXPECT_FALSE(ports[1].present);
  EXPECT_EQ(entries(), 1u);
  ports_->detachAll();
  EXPECT_THAT(qdiscs("vx0"), IsEmpty());
}

TEST_F(PortsTest, Ipv6UnderlayAndExternalDevicesAreListedAsSuch) {
  ASSERT_EQ(shell("ip link add vx6 type vxlan id 6 dstport 4790 local ::1 remote ::1 && "
                  "ip link add vxe type vxlan external dstport 4791"),
            0);
  ports_->attach("vx6", 6);
  ports_->attach("vxe", std::nullopt);
  auto const ports = ports_->list();
  ASSERT_EQ(ports.size(), 2u);
  EXPECT_TRUE(ports[0].ipv6Underlay);
  EXPECT_EQ(ports[0].vni, 6u);
  EXPECT_EQ(ports[1].vni, 0u);
  EXPECT_EQ(ports[1].vlan, std::nullopt);
  EXPECT_TRUE(ports[1].attached);
}

TEST_F(PortsTest, DeviceThatIsNotThereOrNoTunnelIsRefused) {
  ASSERT_EQ(shell("ip link add br0 type bridge"), 0);
  EXPECT_THAT([&] { ports_->attach("vx9", 100); },
              ThrowsMessage<KernelError>("there is no device vx9"));
  EXPECT_THAT([&] { ports_->attach("br0", 100); },
              ThrowsMessage<KernelError>("br0 is no VXLAN device"));
  EXPECT_THROW(ports_->attach("vx0", 4095), Kiv::RangeException);
  EXPECT_THROW(ports_->attach("vx0", 0), Kiv::RangeException);
  EXPECT_THAT(ports_->list(), IsEmpty());
  EXPECT_THAT(qdiscs("vx0"), IsEmpty());
}

TEST_F(PortsTest, VnisAreKeptForTheNextProcess) {
  ports_->vniIs(10'100, 100);
  ports_->vniIs(10'200, 200);
  ports_->vniIs(10'200, 201);
  EXPECT_TRUE(ports_->vniDel(10'100));
  EXPECT_FALSE(ports_->vniDel(10'100));
  ports_ = std::make_unique<Ports>(*kernel_);
  EXPECT_THAT(ports_->vnis(), ElementsAre(Pair(10'200, 201)));
  EXPECT_THROW(ports_->vniIs(1u << 24, 1), Kiv::RangeException);
}

}  // namespace
