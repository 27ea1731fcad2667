// SPDX-License-Identifier: Apache-2.0
#include <memory>
#include <string>

#include "tests/agent/AgentSmStagesTest.h"
#include "tests/support/AllocationFault.h"

// Every allocation of an event fails in turn: the event has then changed nothing that keeps it from
// coming again, or keeps its opposite from coming.
namespace {

using BfnTest::eachAllocationFailing;
using BfnTest::PluginHost;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char const* kMac = "02:00:00:00:00:01";

class WithoutMemoryTest : public BfnTest::AgentSmStagesTest {
 protected:
  // Whatever is made once for the whole process is made before the first allocation that fails.
  void SetUp() override {
    PluginHost first;
    first.bringUp();
    fill(first);
    first.addressDel(7, "10.0.0.1");
    first.rewriteDel("red", "10.0.0.1");
    first.l3Status->vrfDel(L3::VrfName("red"));
    first.portDel("Ethernet1");
    AgentSmStagesTest::SetUp();
  }
  static void fill(PluginHost& world) {
    world.vrf("red", 7);
    world.route("red", 7, 300);
    world.port("Ethernet1", 100, 7);
    world.port("Ethernet2", 200, 7);
    world.address(7, "10.0.0.1", "Ethernet1");
    world.address(7, "10.0.0.2", "Ethernet1", true);
    world.address(7, "10.0.0.3", "Ethernet2");
    world.rewrite("red", "10.0.0.1", kMac);
    world.rewrite("red", "10.0.0.2", kMac);
    world.rewrite("red", "10.0.0.3", kMac);
  }
  /// A host whose interface Ethernet9 has `more` addresses besides, so that the tables of different
  /// worlds grow at different allocations.
  static std::unique_ptr<PluginHost> filled(bool started, unsigned more = 0) {
    auto world = std::make_unique<PluginHost>();
    world->createAgent();
    world->stage1();
    // The chip has had more rows than it will have, so that it grows no more.
    auto const manager = world->agent->overlaySrcMacRewriteManager();
    for (bool const add : {true, false}) {
      for (unsigned i = 0; i < 64; ++i) {
        Ovra::IpAddr const address(0x0b000000 + i);
        Ovra::IntfId const intf("Ethernet1");
        if (add) {
          manager->addEntry(L3::VrfName(), Bridging::VlanId(1), intf, address, Ovra::EthAddr());
        } else {
          manager->deleteEntry(intf, address);
        }
      }
    }
    if (started) world->stage2();
    fill(*world);
    for (unsigned i = 0; i < more; ++i) {
      world->address(7, ("10.0.1." + std::to_string(i)).c_str(), "Ethernet9");
    }
    return world;
  }
  static auto const& records(PluginHost const& world) {
    return world.agent->overlaySrcMacRewriteManager()->matchSpecAndRefCount();
  }
  static void expectEachRowOnce(PluginHost const& world) {
    EXPECT_EQ(records(world).size(), world.rows().size());
    for (auto const& record : records(world)) EXPECT_EQ(record->refCount(), 1);
  }
  static void expectIndexesInStep(PluginHost const& world) {
    auto const& sm = *world.agent->bfnMacRewriteSm();
    size_t pairs = 0;
    for (char const* const intf : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet9"}) {
      auto const collection = sm.localIntfToVrfIp(Ovra::IntfId(intf));
      if (!collection) continue;
      EXPECT_FALSE(collection->vrfAndIpAddr().empty());
      pairs += collection->vrfAndIpAddr().size();
      for (auto const& pair : collection->vrfAndIpAddr()) {
        EXPECT_EQ(sm.localVrfIpToIntf(pair), Ovra::IntfId(intf));
      }
    }
    size_t indexed = 0;
    for (unsigned last = 0; last < 512; ++last) {
      if (sm.localVrfIpToIntf({Pex::VrfId(7), Ovra::IpAddr(0x0a000000 + last)})) ++indexed;
    }
    EXPECT_EQ(indexed, pairs);
  }
};

TEST_F(WithoutMemoryTest, AnAddressThatCouldNotBeAddedCanGoAndComeAgain) {
  size_t failed = 0;
  for (char const* const intf : {"Ethernet1", "Ethernet3", "Ethernet9"}) {
    for (unsigned more = 0; more < 32; ++more) {
      failed += eachAllocationFailing([more] { return filled(true, more); },
                                      [intf](auto& world) { world.address(7, "10.0.0.9", intf); },
                                      [intf](auto& world) {
                                        expectIndexesInStep(world);
                                        world.addressDel(7, "10.0.0.9");
                                        expectIndexesInStep(world);
                                        world.address(7, "10.0.0.9", intf);
                                        expectIndexesInStep(world);
                                        if (std::string(intf) != "Ethernet1")
                                          world.port(intf, 100, 7);
                                        expectIndexesInStep(world);
                                        world.addressDel(7, "10.0.0.9");
                                        for (std::string const& row : world.rows()) {
                                          EXPECT_EQ(row.find(" 10.0.0.9 "), std::string::npos);
                                        }
                                      });
    }
  }
  EXPECT_GT(failed, 200u);
}

TEST_F(WithoutMemoryTest, AVrfThatCouldNotBeAnnouncedIsNotLiveAndCanBeAnnouncedAgain) {
  L3::VrfName const blue("blue");
  auto const translator = [](auto& world) -> auto& {
    return *world.agent->overlaySrcMacRewriteCliConfigSm();
  };
  auto const lines = [](auto& world) {
    auto const record =
        world.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewrite(Pex::VrfId(8));
    return record == nullptr ? 0u : record->ipAndMac().size();
  };
  size_t const failed = eachAllocationFailing(
      [] {
        auto world = filled(true);
        for (char const* const address : {"10.0.0.1", "10.0.0.2", "10.0.0.3"}) {
          world->rewrite("blue", address, kMac);
        }
        return world;
      },
      [](auto& world) { world.vrf("blue", 8); },
      [&](auto& world) {
        bool const live = translator(world).localVrfNameToIdHas(blue);
        EXPECT_EQ(lines(world), live ? 3u : 0u);
        if (!live && world.l3Status->vrfNameToId(blue)) translator(world).handleVrfId(blue);
        world.vrf("blue", 8);
        EXPECT_EQ(lines(world), 3u);
        world.l3Status->vrfDel(blue);
        EXPECT_EQ(lines(world), 0u);
        world.vrf("blue", 9);
      });
  EXPECT_GT(failed, 2u);
}

TEST_F(WithoutMemoryTest, AStageTwoThatFailedLeavesNoRowAndTheNextOneStartsClean) {
  size_t const failed = eachAllocationFailing(
      [] { return filled(false); }, [](auto& world) { world.stage2(); },
      [](auto& world) {
        EXPECT_TRUE(world.agent->bfnMacRewriteSm() || records(world).empty());
        world.stage2();
        EXPECT_TRUE(world.capability->overlaySrcMacRewriteSupported());
        EXPECT_THAT(world.rows(),
                    ElementsAre("100 10.0.0.1 02:00:00:00:00:01", "200 10.0.0.3 02:00:00:00:00:01",
                                "300 10.0.0.2 02:00:00:00:00:01"));
        expectEachRowOnce(world);
        // Everything is watched.
        world.rewrite("red", "10.0.0.1", "02:00:00:00:00:09");
        world.address(7, "10.0.0.4", "Ethernet1");
        world.route("red", 7, 301);
        world.portDel("Ethernet2");
        EXPECT_THAT(world.rows(),
                    ElementsAre("100 10.0.0.1 02:00:00:00:00:09", "100 10.0.0.4 00:00:00:00:00:00",
                                "301 10.0.0.2 02:00:00:00:00:01"));
        for (char const* const address : {"10.0.0.1", "10.0.0.2", "10.0.0.4"}) {
          world.addressDel(7, address);
        }
        EXPECT_THAT(world.rows(), IsEmpty());
      });
  EXPECT_GT(failed, 20u);
}

}  // namespace
