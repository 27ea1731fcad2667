// SPDX-License-Identifier: Apache-2.0
#include "agent/BfnMacRewriteMount.h"

#include <array>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "framework/generic/Type.h"

namespace {

using BfnMacRewrite::BfnMacRewriteMount;
using ::testing::ElementsAre;
using ::testing::Pair;

constexpr char const* kConfig = "vxlan/hardware/srcMacRewrite/config";
constexpr char const* kCapability = "vxlan/hardware/srcMacRewrite/capability";

/// Writes down what it is asked to mount.
class RecordingGroup final : public Corvo::MountGroup {
 public:
  void doMount(Corvo::Mount const& mount) override {
    std::ostringstream text;
    text << mount.path() << ' ' << mount.typeName() << ' ' << mount.mode() << ' '
         << mount.flags().value() << (mount.filter().filtered() ? " filtered" : "");
    mounts.push_back(text.str());
    if (then) then();
  }
  std::vector<std::string> mounts;
  std::function<void()> then;
};

/// Whatever is put in, and the paths that were asked for.
class FixedEntities final : public Corvo::EntityManager {
 public:
  Kiv::Ptr<Kiv::Entity> getEntity(Kiv::String const& path) const override {
    asked.push_back(path.stdString());
    if (then) then();
    auto const found = entities.find(asked.back());
    return found == entities.end() ? nullptr : found->second;
  }
  std::map<std::string, Kiv::Ptr<Kiv::Entity>> entities;
  mutable std::vector<std::string> asked;
  std::function<void()> then;
};

TEST(BfnMacRewriteMount, IsBornEmpty) {
  auto const mount = Kiv::makeActive<BfnMacRewriteMount>();
  EXPECT_FALSE(mount->bfnMacRewriteCliConfig());
  EXPECT_FALSE(mount->bfnMacRewriteCapability());
  EXPECT_FALSE(mount->bfnMacRewriteAgentConfig());
  EXPECT_FALSE(mount->bfnMacRewriteAgentStatus());
}

TEST(BfnMacRewriteMount, MountsTheConfigurationThenTheCapabilityWhateverTheCell) {
  auto const line = [](char const* path, char const* typeName, char const* mode) {
    Corvo::Mount mount(path, typeName, mode);
    mount.handleFlags(mode);
    std::ostringstream text;
    text << path << ' ' << typeName << ' ' << mode << ' ' << mount.flags().value();
    return text.str();
  };
  for (unsigned short const cellId : std::array<unsigned short, 3>{0, 7, 65535}) {
    auto const group = Kiv::makeActive<RecordingGroup>();
    Kiv::makeActive<BfnMacRewriteMount>()->doMount(group, cellId);
    EXPECT_THAT(group->mounts, ElementsAre(line(kConfig, "BfnMacRewrite::Input::Config", "r"),
                                           line(kCapability, "BfnMacRewrite::Capability", "w")));
  }
}

TEST(BfnMacRewriteMount, TheHostMayLetGoOfTheGroupAtTheFirstMount) {
  auto const recording = Kiv::makeActive<RecordingGroup>();
  Kiv::Ptr<Corvo::MountGroup> group = recording;
  recording->then = [&] { group.reset(); };
  Kiv::makeActive<BfnMacRewriteMount>()->doMount(group, 0);
  EXPECT_FALSE(group);
  EXPECT_EQ(recording->mounts.size(), 2u);
}

TEST(BfnMacRewriteMount, FetchesBothEntitiesAndMakesTheRecordsOnce) {
  auto const mount = Kiv::makeActive<BfnMacRewriteMount>();
  auto const manager = Kiv::makeActive<FixedEntities>();
  auto const config = Kiv::makeActive<BfnMacRewrite::Input::Config>();
  auto const capability = Kiv::makeActive<BfnMacRewrite::Capability>();
  manager->entities = {{kConfig, config}, {kCapability, capability}};
  mount->getEntity(manager, 3);
  EXPECT_THAT(manager->asked, ElementsAre(kConfig, kCapability));
  EXPECT_EQ(mount->bfnMacRewriteCliConfig(), config);
  EXPECT_EQ(mount->bfnMacRewriteCapability(), capability);
  auto const agentConfig = mount->bfnMacRewriteAgentConfig();
  auto const agentStatus = mount->bfnMacRewriteAgentStatus();
  ASSERT_TRUE(agentConfig);
  ASSERT_TRUE(agentStatus);
  EXPECT_TRUE(agentConfig->hasNotificationActive());
  EXPECT_TRUE(agentStatus->hasNotificationActive());
  mount->getEntity(manager, 4);
  EXPECT_EQ(mount->bfnMacRewriteAgentConfig(), agentConfig);
  EXPECT_EQ(mount->bfnMacRewriteAgentStatus(), agentStatus);
}

TEST(BfnMacRewriteMount, TheRecordsAreMadeAfterTheEntitiesAreFetched) {
  auto const mount = Kiv::makeActive<BfnMacRewriteMount>();
  auto const manager = Kiv::makeActive<FixedEntities>();
  manager->then = [&] {
    EXPECT_FALSE(mount->bfnMacRewriteAgentConfig());
    EXPECT_FALSE(mount->bfnMacRewriteAgentStatus());
  };
  mount->getEntity(manager, 0);
  EXPECT_EQ(manager->asked.size(), 2u);
  EXPECT_TRUE(mount->bfnMacRewriteAgentConfig());
}

TEST(BfnMacRewriteMount, ItsAttributesAreKnownByNameAndIdInOrder) {
  std::vector<std::pair<std::string, Kiv::AttributeId>> attributes;
  for (auto const& attribute : BfnMacRewriteMount::_kivType().attributes()) {
    attributes.emplace_back(attribute.name, attribute.id);
  }
  attributes.resize(4);
  EXPECT_THAT(
      attributes,
      ElementsAre(Pair("bfnMacRewriteCliConfig", 130), Pair("bfnMacRewriteCapability", 131),
                  Pair("bfnMacRewriteAgentConfig", 132), Pair("bfnMacRewriteAgentStatus", 133)));
}

TEST(BfnMacRewriteMount, AnAbsentOrMistypedEntityLeavesNullAlsoWhereOneWas) {
  auto const mount = Kiv::makeActive<BfnMacRewriteMount>();
  auto const manager = Kiv::makeActive<FixedEntities>();
  manager->entities = {{kConfig, Kiv::makeActive<BfnMacRewrite::Input::Config>()},
                       {kCapability, Kiv::makeActive<BfnMacRewrite::Capability>()}};
  mount->getEntity(manager, 0);
  manager->entities = {{kConfig, Kiv::makeActive<BfnMacRewrite::Capability>()}};
  mount->getEntity(manager, 0);
  EXPECT_FALSE(mount->bfnMacRewriteCliConfig());
  EXPECT_FALSE(mount->bfnMacRewriteCapability());
  EXPECT_TRUE(mount->bfnMacRewriteAgentConfig());
  EXPECT_TRUE(mount->bfnMacRewriteAgentStatus());
}

TEST(BfnMacRewriteMount, TheRecordsAreDroppedByName) {
  auto const mount = Kiv::makeActive<BfnMacRewriteMount>();
  auto const config = mount->bfnMacRewriteAgentConfigIs();
  auto const status = mount->bfnMacRewriteAgentStatusIs();
  mount->bfnMacRewriteAgentConfigDel();
  EXPECT_FALSE(mount->bfnMacRewriteAgentConfig());
  EXPECT_EQ(mount->bfnMacRewriteAgentStatus(), status);
  mount->bfnMacRewriteAgentStatusDel();
  EXPECT_FALSE(mount->bfnMacRewriteAgentStatus());
  EXPECT_NE(mount->bfnMacRewriteAgentConfigIs(), config);
}

}  // namespace
