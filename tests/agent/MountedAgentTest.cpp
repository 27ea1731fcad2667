// SPDX-License-Identifier: Apache-2.0
#include <concepts>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "framework/corvo/Database.h"
#include "framework/corvo/EmbeddedSession.h"
#include "framework/corvo/Exceptions.h"
#include "tests/support/PluginTest.h"
#include "tests/support/Watcher.h"

// The agent on the embedded state database, beside an operator who writes its configuration and an
// observer of its capability.
namespace {

using BfnMacRewrite::BfnMacRewriteMount;
using BfnMacRewrite::Capability;
using BfnMacRewrite::Input::Config;
using BfnTest::ip;
using BfnTest::mac;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char const* kConfigPath = "vxlan/hardware/srcMacRewrite/config";
constexpr char const* kConfigType = "BfnMacRewrite::Input::Config";
constexpr char const* kCapabilityPath = "vxlan/hardware/srcMacRewrite/capability";
constexpr char const* kCapabilityType = "BfnMacRewrite::Capability";

// What the plug-in has of its configuration cannot be written: its type does not let it.
template <class T>
concept Writable = requires(T& config) {
  config.overlaySrcMacRewriteEntryDelAll();
};
using Mounted =
    std::remove_reference_t<decltype(*std::declval<BfnMacRewriteMount>().bfnMacRewriteCliConfig())>;
static_assert(std::same_as<Mounted, Config const>);
static_assert(Writable<Config> && !Writable<Mounted>);

class MountedAgentTest : public BfnTest::PluginTest {
 protected:
  Kiv::Ptr<Corvo::Database> database = Kiv::makeActive<Corvo::Database>();
  Kiv::Ptr<Corvo::Session> agent = Corvo::embeddedSessionFactory(database);
  Kiv::Ptr<Corvo::Session> outside = Corvo::embeddedSessionFactory(database);
  Kiv::Ptr<Corvo::MountRequest> request = agent->mountRequest();

  MountedAgentTest() {
    host.vrf("red", 7);
    host.port("Ethernet1", 100, 7);
    host.mount->doMount(request, 0);
    request->close();
  }
  void TearDown() override {
    host.mount->bfnMacRewriteCliConfigIs(nullptr);
    host.mount->bfnMacRewriteCapabilityIs(nullptr);
    request.reset();
    agent.reset();
    outside.reset();
    database.reset();
    PluginTest::TearDown();
  }

  template <class T>
  Kiv::Ptr<T> mountOutside(char const* path, char const* type, char const* mode) {
    auto const own = outside->mountRequest();
    Corvo::Mount mount(path, type, mode);
    mount.handleFlags(mode);
    own->doMount(mount);
    return Kiv::ptrCast<T>(outside->getEntity(path));
  }
  void bringUpOnDatabase() {
    host.mount->getEntity(agent, 0);
    host.cliConfig = Kiv::ptrCast<Config>(agent->getEntity(kConfigPath));
    host.capability = Kiv::ptrCast<Capability>(agent->getEntity(kCapabilityPath));
    host.bringUp();
    host.address(7, "10.0.0.1", "Ethernet1");
  }
};

TEST_F(MountedAgentTest, IsMountedWithoutAConfigurationAndMakesItsCapability) {
  EXPECT_TRUE(request->mounted());
  host.mount->getEntity(agent, 0);
  EXPECT_FALSE(host.mount->bfnMacRewriteCliConfig());
  EXPECT_TRUE(host.mount->bfnMacRewriteCapability());
}

TEST_F(MountedAgentTest, AConfigurationThatComesLateIsInTheChipOnceStage2HasRunAgain) {
  bringUpOnDatabase();
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 00:00:00:00:00:00"));
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(agent);
  watcher->then = [&] {
    host.mount->getEntity(agent, 0);
    host.stage2();
  };
  auto const config = mountOutside<Config>(kConfigPath, kConfigType, "w");
  ASSERT_TRUE(host.mount->bfnMacRewriteCliConfig());
  config->overlaySrcMacRewriteEntryIs(
      {L3::VrfName("red"), ip("10.0.0.1"), mac("02:00:00:00:00:01")});
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:00:00:00:00:01"));
}

TEST(MountedAgent, AMistypedEntityIsNullAndTheOtherMountCompletes) {
  struct Case {
    char const* path;
    char const* type;
  };
  for (Case const& mistyped :
       {Case{kConfigPath, kCapabilityType}, Case{kCapabilityPath, kConfigType}}) {
    SCOPED_TRACE(mistyped.path);
    BfnTest::PluginHost host;
    auto const database = Kiv::makeActive<Corvo::Database>();
    database->entityIs(mistyped.path, mistyped.type);
    auto const session = Corvo::embeddedSessionFactory(database);
    auto const request = session->mountRequest();
    host.mount->doMount(request, 0);
    request->close();
    EXPECT_TRUE(request->mounted());
    host.mount->getEntity(session, 0);
    EXPECT_FALSE(host.mount->bfnMacRewriteCliConfig());
    EXPECT_EQ(host.mount->bfnMacRewriteCapability() != nullptr,
              mistyped.path == std::string(kConfigPath));
    host.cliConfig = nullptr;
    host.capability = host.mount->bfnMacRewriteCapability();
    host.bringUp();
    host.port("Ethernet1", 100, 7);
    host.address(7, "10.0.0.1", "Ethernet1");
    EXPECT_EQ(host.rows().size(), 1u);
  }
}

TEST_F(MountedAgentTest, WhatTheOperatorWritesReachesTheChip) {
  auto const config = mountOutside<Config>(kConfigPath, kConfigType, "w");
  config->overlaySrcMacRewriteEntryIs(
      {L3::VrfName("red"), ip("10.0.0.1"), mac("02:00:00:00:00:01")});
  bringUpOnDatabase();
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:00:00:00:00:01"));
  config->overlaySrcMacRewriteEntryIs(
      {L3::VrfName("red"), ip("10.0.0.1"), mac("02:00:00:00:00:02")});
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:00:00:00:00:02"));
  // A rewrite that is taken back leaves the row, which is written again when the address returns.
  config->overlaySrcMacRewriteEntryDelAll();
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:00:00:00:00:02"));
  host.addressDel(7, "10.0.0.1");
  host.address(7, "10.0.0.1", "Ethernet1");
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 00:00:00:00:00:00"));
}

TEST_F(MountedAgentTest, TheCapabilityReachesWhoMountsIt) {
  mountOutside<Config>(kConfigPath, kConfigType, "w");
  auto const capability = mountOutside<Capability const>(kCapabilityPath, kCapabilityType, "r");
  ASSERT_TRUE(capability);
  EXPECT_FALSE(capability->overlaySrcMacRewriteSupported());
  bringUpOnDatabase();
  EXPECT_TRUE(capability->overlaySrcMacRewriteSupported());
}

TEST_F(MountedAgentTest, AConstCastAwayChangesNeitherTheConfigurationNorTheChip) {
  auto const config = mountOutside<Config>(kConfigPath, kConfigType, "w");
  config->overlaySrcMacRewriteEntryIs(
      {L3::VrfName("red"), ip("10.0.0.1"), mac("02:00:00:00:00:01")});
  bringUpOnDatabase();
  host.journal();
  auto& stolen = const_cast<Config&>(*host.mount->bfnMacRewriteCliConfig());
  EXPECT_THROW(stolen.overlaySrcMacRewriteEntryDelAll(), Corvo::ReadOnlyException);
  EXPECT_THROW(stolen.overlaySrcMacRewriteEntryIs(
                   {L3::VrfName("red"), ip("10.0.0.1"), mac("02:00:00:00:00:09")}),
               Corvo::ReadOnlyException);
  EXPECT_THROW(stolen.overlaySrcMacRewriteEntryIs(
                   {L3::VrfName("blue"), ip("10.0.0.9"), mac("02:00:00:00:00:09")}),
               Corvo::ReadOnlyException);
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(config->overlaySrcMacRewriteEntry().size(), 1u);
  // The replica is whole: the VRF's lines are found when it comes back.
  host.l3Status->vrfDel(L3::VrfName("red"));
  host.vrf("red", 7);
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:00:00:00:00:01"));
}

}  // namespace
