// SPDX-License-Identifier: Apache-2.0
// The records as others see them: by the names of their attributes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"
#include "framework/core/Format.h"
#include "framework/generic/Type.h"

namespace {

using namespace BfnMacRewrite;
using Kiv::GenericOp;
using Kiv::GenericValue;
using Kiv::makeActive;
using Kiv::Ptr;
using Kiv::PtrInterface;

GenericValue op(Ptr<PtrInterface> const& object, GenericOp what, char const* attribute,
                std::vector<GenericValue> const& arguments = {}) {
  return object->genericIfAttributeOp(what, attribute, arguments);
}
std::string print(PtrInterface const& object) {
  std::ostringstream text;
  Kiv::genericPrint(text, object);
  return text.str();
}

char const* const kHome =
    "Value('BfnMacRewrite::Agent::IpAndIntfId', ** {'ipAddr': 10.0.0.1, 'intfId': 'Ethernet1', "
    "'selfIp': True})";

TEST(RecordsByName, AStatusIsFilledFromStringForms) {
  auto const status = makeActive<Agent::Status>();
  op(status, GenericOp::Set, "vrfStatus", {"7"});
  auto const vrf = op(status, GenericOp::Get, "vrfStatus", {"7"}).writableObject();
  op(vrf, GenericOp::Set, "ipAndIntfId", {kHome});

  Agent::VrfStatus const* const seen = status->vrfStatus(Pex::VrfId(7));
  ASSERT_NE(seen, nullptr);
  EXPECT_EQ(vrf.get(), seen);
  EXPECT_EQ(seen->ipAndIntfId(Ovra::IpAddr(0x0A00'0001)),
            Agent::IpAndIntfId(Ovra::IpAddr(0x0A00'0001), Ovra::IntfId("Ethernet1"), true));
  EXPECT_EQ(op(vrf, GenericOp::Get, "ipAndIntfId", {"10.0.0.1"}).strep(), kHome);
  EXPECT_EQ(op(vrf, GenericOp::Get, "vrfId").strep(), "7");

  auto walk = vrf->genericIfIterator("ipAndIntfId");
  EXPECT_EQ(walk->iterKey().strep(), "10.0.0.1");
  EXPECT_EQ(walk->iterObj().strep(), kHome);
  walk->iterDel();
  EXPECT_TRUE(walk->atEnd());
  EXPECT_TRUE(seen->ipAndIntfId().empty());
  op(status, GenericOp::Del, "vrfStatus", {"7"});
  EXPECT_TRUE(status->vrfStatus().empty());
}

TEST(RecordsByName, WhatIsRefusedChangesNothing) {
  auto const status = makeActive<Agent::Status>();
  auto const vrf = status->vrfStatusIs(Pex::VrfId(7));
  op(vrf, GenericOp::Set, "ipAndIntfId", {kHome});
  std::string const before = print(*status);
  using Kiv::RangeException;
  EXPECT_THROW(op(status, GenericOp::Set, "vrfStatuses", {"8"}), RangeException);
  EXPECT_THROW(op(status, GenericOp::Set, "vrfStatus", {"eight"}), RangeException);
  EXPECT_THROW(op(status, GenericOp::Set, "vrfStatus", {"8", "9"}), RangeException);
  EXPECT_THROW(op(status, GenericOp::Call, "vrfStatus", {"8"}), RangeException);
  EXPECT_THROW(op(vrf, GenericOp::Set, "vrfId", {"8"}), RangeException);
  EXPECT_THROW(op(vrf, GenericOp::Set, "ipAndIntfId", {"10.0.0.2"}), RangeException);
  EXPECT_THROW(op(vrf, GenericOp::Del, "ipAndIntfId", {kHome}), RangeException);
  EXPECT_EQ(print(*status), before);
}

TEST(RecordsByName, EveryRecordPrintsItself) {
  auto const config = makeActive<Agent::Config>();
  config->overlaySrcMacRewriteIs(Pex::VrfId(7))
      ->ipAndMacIs({Ovra::IpAddr(0x0A00'0001), Ovra::ethAddrFromOuiStation(0x020406, 0x08000A)});
  EXPECT_EQ(print(*config),
            R"json({"fullName": "", "parent": null, "parentAttrName": "", )json"
            R"json("entity": "BfnMacRewrite::Agent::Config", "overlaySrcMacRewrite": {"7": )json"
            R"json({"fullName": "/overlaySrcMacRewrite", )json"
            R"json("parent": "BfnMacRewrite::Agent::Config", )json"
            R"json("parentAttrName": "overlaySrcMacRewrite", )json"
            R"json("entity": "BfnMacRewrite::Agent::OverlaySrcMacRewrite", "vrfId": "7", )json"
            R"json("ipAndMac": {"10.0.0.1": "Value('BfnMacRewrite::IpAndMac', ** )json"
            R"json({'ip': 10.0.0.1, 'mac': 02:04:06:08:00:0a})"}}}})json");

  auto const status = makeActive<Agent::Status>();
  op(status->vrfStatusIs(Pex::VrfId(7)), GenericOp::Set, "ipAndIntfId", {kHome});
  EXPECT_EQ(print(*status), Kiv::format(R"({"vrfStatus": {"7": {"vrfId": "7", )"
                                        R"("ipAndIntfId": {"10.0.0.1": "%s"}}}})",
                                        kHome));

  auto const input = makeActive<Input::Config>();
  input->overlaySrcMacRewriteEntryIs({L3::VrfName("red"), Ovra::IpAddr(1), Ovra::EthAddr()});
  EXPECT_EQ(print(*input),
            R"json({"fullName": "", "parent": null, "parentAttrName": "", )json"
            R"json("entity": "BfnMacRewrite::Input::Config", "overlaySrcMacRewriteEntry": )json"
            R"json({"Value('BfnMacRewrite::Input::VrfNameAndIp', ** {'vrfName': 'red', )json"
            R"json('ip': 0.0.0.1})": "Value('BfnMacRewrite::Input::VrfIpAndMac', ** )json"
            R"json({'vrfName': 'red', 'ip': 0.0.0.1, 'mac': 00:00:00:00:00:00})"}})json");

  auto const capability = makeActive<Capability>();
  op(capability, GenericOp::Set, "overlaySrcMacRewriteSupported", {"True"});
  EXPECT_EQ(print(*capability), R"json({"fullName": "", "parent": null, "parentAttrName": "", )json"
                                R"json("entity": "BfnMacRewrite::Capability", )json"
                                R"json("overlaySrcMacRewriteSupported": "True"})json");
}

TEST(RecordsByName, RecordsThatOthersFillAreConstructedByTheirTypes) {
  for (Kiv::Type const* const type : {&Agent::Config::_kivType(), &Agent::Status::_kivType(),
                                      &Input::Config::_kivType(), &Capability::_kivType()}) {
    Ptr<PtrInterface> const made = type->construct({});
    EXPECT_EQ(&made->fwkType(), type);
    EXPECT_TRUE(made->hasNotificationActive());
  }
  EXPECT_THROW((void)Agent::VrfStatus::_kivType().construct({}), Kiv::RangeException);
}

TEST(InputConfig, KnowsTheKeysOfEachVrfInTheOrderOfItsWalk) {
  auto const input = makeActive<Input::Config>();
  for (Kiv::U32 i = 0; i < 200; ++i) {
    L3::VrfName const vrf(i % 3 == 0 ? "red" : "blue");
    input->overlaySrcMacRewriteEntryIs({vrf, Ovra::IpAddr(i), Ovra::EthAddr()});
  }
  for (Kiv::U32 i = 0; i < 200; i += 5) {
    input->overlaySrcMacRewriteEntryDel(
        {L3::VrfName(i % 3 == 0 ? "red" : "blue"), Ovra::IpAddr(i)});
  }
  std::vector<Input::VrfNameAndIp> walked, indexed;
  for (auto const& entry : input->overlaySrcMacRewriteEntry()) {
    if (entry.vrfName == L3::VrfName("red")) walked.push_back(entry.key());
  }
  input->forEachKeyOfVrf(L3::VrfName("red"), [&](auto const& key) { indexed.push_back(key); });
  EXPECT_EQ(indexed, walked);
  input->overlaySrcMacRewriteEntryDelAll();
  input->forEachKeyOfVrf(L3::VrfName("red"), [](auto const&) { FAIL(); });
}

}  // namespace
