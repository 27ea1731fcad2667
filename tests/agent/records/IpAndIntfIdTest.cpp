// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"
#include "framework/core/Hash.h"
#include "framework/core/Strep.h"

namespace {

using BfnMacRewrite::IpAndMac;
using BfnMacRewrite::Agent::IpAndIntfId;
using Kiv::RangeException;
using Kiv::strepToValue;
using Kiv::String;
using Ovra::IntfId;
using Ovra::IpAddr;

IpAndIntfId value(Kiv::U32 ip, char const* intfId, bool selfIp) {
  return {IpAddr(ip), IntfId(intfId), selfIp};
}

TEST(IpAndIntfId, IsByDefaultAllZeroOnNoInterface) {
  IpAndIntfId const none;
  EXPECT_EQ(none.ipAddr.value(), 0u);
  EXPECT_EQ(none.intfId, IntfId(""));
  EXPECT_FALSE(none.selfIp);
}

TEST(IpAndIntfId, EqualsInAllThreeFieldsOnly) {
  IpAndIntfId const a = value(1, "e1", false);
  EXPECT_EQ(a, value(1, "e1", false));
  EXPECT_FALSE(a == value(2, "e1", false));
  EXPECT_FALSE(a == value(1, "e2", false));
  EXPECT_FALSE(a == value(1, "e1", true));
}

TEST(IpAndIntfId, OrdersByAddressThenInterfaceThenFalseBeforeTrue) {
  EXPECT_LT(value(1, "z", true), value(2, "a", false));
  EXPECT_LT(value(1, "a", true), value(1, "b", false));
  EXPECT_FALSE(value(1, "b", false) < value(1, "a", true));
  EXPECT_LT(value(1, "a", false), value(1, "a", true));
  EXPECT_FALSE(value(1, "a", true) < value(1, "a", false));
  EXPECT_FALSE(value(1, "a", true) < value(1, "a", true));
}

TEST(IpAndIntfId, HashesItsFieldsInOrder) {
  IpAndIntfId const a = value(0x0A00'0001, "Ethernet1", true);
  Kiv::Hash expected(77);
  expected.hashMix(a.ipAddr.hash()).hashMix(a.intfId.hash()).hashMix(true);
  EXPECT_EQ(a.hash(77), expected.result());
  EXPECT_NE(a.hash(77), a.hash(78));
  EXPECT_NE(a.hash(77), value(0x0A00'0001, "Ethernet1", false).hash(77));
  EXPECT_EQ(Kiv::hashSingleAttr(77, a), a.hash(77));
}

TEST(IpAndIntfId, HasAStringFormAndStreamsIt) {
  IpAndIntfId const a = value(0x0A00'0001, "Ethernet1", true);
  char const* const form =
      "Value('BfnMacRewrite::Agent::IpAndIntfId', ** {'ipAddr': 10.0.0.1, "
      "'intfId': 'Ethernet1', 'selfIp': True})";
  EXPECT_EQ(a.valueToStrep(), form);
  std::ostringstream text;
  text << a;
  EXPECT_EQ(text.str(), form);
}

TEST(IpAndIntfId, EveryValueComesBackFromItsStringForm) {
  for (IpAndIntfId const& a :
       {IpAndIntfId(), value(0xFFFF'FFFF, "Port-Channel7.100", true),
        value(1, "it's {'a'}, \"b\", \\ and \n\x01\x7f\xff", false), value(2, "})", true)}) {
    EXPECT_EQ(strepToValue<IpAndIntfId>(a.valueToStrep()), a) << a;
  }
}

std::string parsing(std::string const& text) {
  try {
    (void)strepToValue<IpAndIntfId>(String(text));
  } catch (RangeException const& exception) {
    return exception.what();
  }
  return "";
}

TEST(IpAndIntfId, EachMissingLiteralIsRefused) {
  std::string const form = value(1, "e", true).valueToStrep().stdString();
  for (std::string const& literal :
       {std::string("Value('BfnMacRewrite::Agent::IpAndIntfId', ** {"), std::string("'ipAddr': "),
        std::string(", 'intfId': "), std::string(", 'selfIp': "), std::string("})")}) {
    std::string text = form;
    text.replace(text.find(literal), literal.size(), "");
    EXPECT_NE(parsing(text), "") << text;
  }
  EXPECT_EQ(parsing(form), "");
}

TEST(IpAndIntfId, EveryPrefixAndAnyTrailingTextAreRefused) {
  std::string const form = value(1, "e", true).valueToStrep().stdString();
  for (size_t size = 0; size < form.size(); ++size) EXPECT_NE(parsing(form.substr(0, size)), "");
  EXPECT_NE(parsing(form + " "), "");
  EXPECT_NE(parsing(form + form), "");
}

TEST(IpAndIntfId, ABadFieldIsNamed) {
  std::string const head = "Value('BfnMacRewrite::Agent::IpAndIntfId', ** {";
  using ::testing::StartsWith;
  EXPECT_THAT(parsing(head + "'ipAddr': 1.2.3, 'intfId': 'e', 'selfIp': True})"),
              StartsWith("ipAddr: "));
  EXPECT_THAT(parsing(head + "'ipAddr': 1.2.3.4, 'intfId': e, 'selfIp': True})"),
              StartsWith("intfId: "));
  EXPECT_THAT(parsing(head + "'ipAddr': 1.2.3.4, 'intfId': 'e', 'selfIp': 1})"),
              StartsWith("selfIp: "));
}

TEST(IpAndMac, EqualsInBothFieldsOnlyAndComesBackFromItsStringForm) {
  IpAndMac const a(IpAddr(1), Ovra::ethAddrFromOuiStation(2, 3));
  EXPECT_EQ(a, a);
  EXPECT_FALSE(a == IpAndMac(IpAddr(2), a.mac));
  EXPECT_FALSE(a == IpAndMac(a.ip, Ovra::ethAddrFromOuiStation(2, 4)));
  EXPECT_EQ(strepToValue<IpAndMac>(a.valueToStrep()), a);
  EXPECT_EQ(a.valueToStrep(),
            "Value('BfnMacRewrite::IpAndMac', ** {'ip': 0.0.0.1, 'mac': 00:00:02:00:00:03})");
}

TEST(InputValues, AKeyIsOrderedByVrfThenAddressAndHashedByBoth) {
  BfnMacRewrite::Input::VrfNameAndIp const key(L3::VrfName("red"), Ovra::IpAddr(2));
  BfnMacRewrite::Input::VrfNameAndIp const nextAddress(L3::VrfName("red"), Ovra::IpAddr(3));
  BfnMacRewrite::Input::VrfNameAndIp const nextVrf(L3::VrfName("tan"), Ovra::IpAddr(2));
  EXPECT_FALSE(key < key);
  EXPECT_TRUE(key < nextAddress && nextAddress < nextVrf);
  EXPECT_FALSE(nextAddress < key || nextVrf < nextAddress);
  EXPECT_NE(key.hash(1), nextAddress.hash(1));
  EXPECT_NE(key.hash(1), nextVrf.hash(1));
}

TEST(InputValues, ComeBackFromTheirStringForms) {
  using namespace BfnMacRewrite::Input;
  VrfIpAndMac const line(L3::VrfName("it's, {red}"), IpAddr(1), Ovra::ethAddrFromOuiStation(2, 3));
  EXPECT_EQ(strepToValue<VrfIpAndMac>(line.valueToStrep()), line);
  EXPECT_EQ(strepToValue<VrfNameAndIp>(line.key().valueToStrep()), line.key());
  EXPECT_NE(line.key().hash(1), line.key().hash(2));
  EXPECT_LT(VrfNameAndIp(L3::VrfName("a"), IpAddr(2)), VrfNameAndIp(L3::VrfName("b"), IpAddr(1)));
  EXPECT_LT(VrfNameAndIp(L3::VrfName("a"), IpAddr(1)), VrfNameAndIp(L3::VrfName("a"), IpAddr(2)));
}

}  // namespace
