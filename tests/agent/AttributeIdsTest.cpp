// SPDX-License-Identifier: Apache-2.0
// The attribute ids of the plug-in's types. A notifiee that watches an object by id compiles them
// in.
#include <gtest/gtest.h>
#include <string>

#include "agent/BfnMacRewriteAgentSm.h"
#include "agent/BfnMacRewriteL3Shared.h"
#include "agent/BfnMacRewriteMount.h"
#include "config/BfnMacRewriteCliConfigSm.h"
#include "framework/generic/Type.h"
#include "intfstatus/BfnMacRewriteIntfRoutingStatusSm.h"
#include "rewrite/BfnMacRewriteSm.h"
#include "show/ShowMacRewriteCommandRequestSm.h"
#include "show/SortedIpToMac.h"
#include "tablemgr/BfnMacRewriteTableMgr.h"

namespace {

// The attributes that a type declares itself, each as "name id"; operations have no id.
std::string idsOf(Kiv::Type const& type) {
  std::string text;
  for (auto const& attribute : type.attributes()) {
    if (attribute.kind == Kiv::AttributeKind::Operation) continue;
    if (!text.empty()) text += ", ";
    text += std::string(attribute.name) + ' ' + std::to_string(attribute.id);
  }
  return text;
}

TEST(AttributeIds, OfWhatTheAgentAndItsHostShare) {
  EXPECT_EQ(idsOf(BfnMacRewrite::BfnL3Input::_kivType()), "macRewriteEnabled 130");
  EXPECT_EQ(idsOf(BfnMacRewrite::BfnL3Output::_kivType()),
            "profileName 130, profileEntry 131, initMacRewriteTables 132, startMacRewriteSm 133");
  EXPECT_EQ(idsOf(BfnMacRewrite::BfnMacRewriteL3Shared::_kivType()),
            "l3Status 130, l3PortAndLagRoutingStatus 131, l3SubIntfRoutingStatus 132, "
            "vlanIntfRoutingStatus 133, bfnL3Input 134, bfnL3Output 135, initialized 136");
  EXPECT_EQ(idsOf(BfnMacRewrite::BfnMacRewriteMount::_kivType()),
            "bfnMacRewriteCliConfig 130, bfnMacRewriteCapability 131, "
            "bfnMacRewriteAgentConfig 132, bfnMacRewriteAgentStatus 133");
}

TEST(AttributeIds, OfTheStateMachines) {
  EXPECT_EQ(idsOf(BfnMacRewrite::AgentSm::_kivType()),
            "systemStatus 130, profileData 131, agentMount 132, bfnMacRewriteL3Shared 133, "
            "routingHwRouteStatus 134, bfnL3Output 135, intfIdToRoutingStatus 136, "
            "overlaySrcMacRewriteManager 137, overlaySrcMacRewriteCliConfigSm 138, "
            "bfnMacRewriteSm 139, bfnMacRewriteIntfRoutingStatusSm 140, chipCapabilities 141, "
            "initialized 142");
  EXPECT_EQ(idsOf(BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm::_kivType()),
            "overlaySrcMacRewriteCliConfig 130, overlaySrcMacRewriteAgentConfig 131, "
            "l3Status 132, localVrfNameToId 133, initialized 134");
  EXPECT_EQ(idsOf(BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm::_kivType()),
            "l3PortAndLagRoutingStatus 130, vlanIntfRoutingStatus 131, "
            "l3SubIntfRoutingStatus 132, intfIdToRoutingStatus 133, initialized 134");
  EXPECT_EQ(idsOf(BfnMacRewrite::BfnMacRewriteSm::_kivType()),
            "macRewriteStatus 130, overlaySrcMacRewriteAgentConfig 131, "
            "intfIdToRoutingStatus 132, overlaySrcMacRewriteManager 133, l3Status 134, "
            "routingHwRouteStatus 135, localIntfToVrfIp 136, localVrfIpToIntf 137, "
            "fwdVlanIdPerVrf 138, initialized 142");
  EXPECT_EQ(idsOf(BfnMacRewrite::OverlaySrcMacRewriteManager::_kivType()),
            "intfIdToRoutingStatus 264, l3Status 265, matchSpecAndRefCount 266, "
            "overlaySrcMacRewriteTable 267");
  EXPECT_EQ(idsOf(BfnMacRewrite::ShowMacRewriteCommandRequestSm::_kivType()),
            "overlaySrcMacRewriteMgr 152, vrfNameValid 153, vrfName 154, overlaySipValid 155, "
            "overlaySip 156, overlayRewriteSrcMacValid 157, overlayRewriteSrcMac 158, "
            "cliTesting 159, matchSpecIterDone 160, bookmarkMatch 161, bookmarkVrf 162, "
            "initialized 164");
}

TEST(AttributeIds, OfTheRecordsBetweenThem) {
  EXPECT_EQ(idsOf(BfnMacRewrite::IntfIdToRoutingStatus::_kivType()), "l3IntfRoutingStatus 258");
  EXPECT_EQ(idsOf(BfnMacRewrite::VrfIpCollection::_kivType()), "intfId 258, vrfAndIpAddr 259");
  EXPECT_EQ(idsOf(BfnMacRewrite::MatchSpecAndRefCount::_kivType()),
            "ipAndIntfId 258, overlaySrcMacRewriteMatchSpec 259, refCount 260");
  EXPECT_EQ(idsOf(BfnMacRewrite::SortedIpToMac::_kivType()), "vrfName 258");
}

}  // namespace
