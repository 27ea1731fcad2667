// SPDX-License-Identifier: Apache-2.0
#include "framework/l3/L3Status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "framework/generic/Type.h"
#include "tests/framework/l3/KeyLog.h"
#include "tests/support/Watcher.h"

namespace {

using L3::VrfName;
using Pex::L3Status;
using Pex::VrfId;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

VrfName const kRed("red");
VrfName const kBlue("blue");

using L3StatusTest = BfnTest::LoggedRecord<L3Status, L3Status::kVrfNameToId>;

TEST_F(L3StatusTest, IsEmptyAtFirst) {
  EXPECT_EQ(status->vrfNameToId(kRed), nullptr);
  EXPECT_EQ(status->vrfName(VrfId(7)), VrfName());
}

TEST_F(L3StatusTest, EachDirectionIsIndependent) {
  status->vrfNameToIdIs(kRed, VrfId(7));
  EXPECT_EQ(*status->vrfNameToId(kRed), VrfId(7));
  EXPECT_EQ(status->vrfName(VrfId(7)), VrfName());
  EXPECT_THAT(log->changes, ElementsAre("red"));
  status->vrfNameIs(VrfId(8), kBlue);
  EXPECT_EQ(status->vrfName(VrfId(8)), kBlue);
  EXPECT_EQ(status->vrfNameToId(kBlue), nullptr);
  EXPECT_THAT(log->changes, ElementsAre("red", "#259"));
}

TEST_F(L3StatusTest, AnEqualValueOrAnAbsentKeyDoesNotNotify) {
  status->vrfNameToIdIs(kRed, VrfId(7));
  status->vrfNameIs(VrfId(7), kRed);
  log->changes.clear();
  status->vrfNameToIdIs(kRed, VrfId(7));
  status->vrfNameIs(VrfId(7), kRed);
  status->vrfNameToIdDel(kBlue);
  status->vrfNameDel(VrfId(9));
  EXPECT_THAT(log->changes, IsEmpty());
  status->vrfNameToIdIs(kRed, VrfId(8));
  status->vrfNameDel(VrfId(7));
  EXPECT_THAT(log->changes, ElementsAre("red", "#259"));
}

TEST_F(L3StatusTest, AnIdOf0IsAnIdLikeAnyOther) {
  status->vrfIs(VrfName("default"), VrfId(0));
  ASSERT_NE(status->vrfNameToId(VrfName("default")), nullptr);
  EXPECT_EQ(status->vrfName(VrfId(0)), VrfName("default"));
}

TEST_F(L3StatusTest, WhoHearsOfANameFindsTheNameOfItsId) {
  status->vrfIs(kRed, VrfId(7));
  EXPECT_THAT(log->changes, ElementsAre("#259", "red"));
  status->vrfDel(kRed);
  EXPECT_THAT(log->changes, ElementsAre("#259", "red", "red", "#259"));
  EXPECT_EQ(status->vrfName(VrfId(7)), VrfName());
}

TEST_F(L3StatusTest, OfTwoNamesWithOneIdTheLastIsTheIdsName) {
  status->vrfIs(kRed, VrfId(7));
  status->vrfIs(kBlue, VrfId(7));
  EXPECT_EQ(*status->vrfNameToId(kRed), VrfId(7));
  EXPECT_EQ(status->vrfName(VrfId(7)), kBlue);
  status->vrfDel(kRed);
  EXPECT_EQ(status->vrfName(VrfId(7)), kBlue);
  EXPECT_EQ(*status->vrfNameToId(kBlue), VrfId(7));
  status->vrfDel(kBlue);
  EXPECT_EQ(status->vrfName(VrfId(7)), VrfName());
}

TEST_F(L3StatusTest, AnIdWhoseVrfGoesIsNamedByTheSmallestOtherVrfThatHasIt) {
  for (char const* const name : {"violet", "green", "amber", "red"}) {
    status->vrfIs(VrfName(name), VrfId(7));
  }
  status->vrfNameToIdDel(VrfName("amber"));
  log->changes.clear();
  status->vrfDel(kRed);
  EXPECT_EQ(status->vrfName(VrfId(7)), VrfName("green"));
  EXPECT_THAT(log->changes, ElementsAre("red", "#259"));
  status->vrfDel(VrfName("green"));
  EXPECT_EQ(status->vrfName(VrfId(7)), VrfName("violet"));
  status->vrfDel(VrfName("violet"));
  EXPECT_FALSE(status->vrfName().has(VrfId(7)));
}

TEST_F(L3StatusTest, AVrfThatGetsAnotherIdTakesItsNameFromTheOldOne) {
  status->vrfIs(kRed, VrfId(7));
  log->changes.clear();
  status->vrfIs(kRed, VrfId(8));
  EXPECT_EQ(status->vrfName(VrfId(8)), kRed);
  EXPECT_FALSE(status->vrfName().has(VrfId(7)));
  EXPECT_THAT(log->changes, ElementsAre("#259", "red", "#259"));

  status->vrfIs(kBlue, VrfId(8));
  status->vrfIs(kBlue, VrfId(9));
  EXPECT_EQ(status->vrfName(VrfId(8)), kRed);
}

TEST_F(L3StatusTest, AnIdThatAnotherVrfNamesKeepsItsName) {
  status->vrfIs(kRed, VrfId(7));
  status->vrfIs(kBlue, VrfId(7));
  status->vrfIs(kRed, VrfId(8));
  EXPECT_EQ(status->vrfName(VrfId(7)), kBlue);
}

TEST_F(L3StatusTest, AHandlerMayGiveAVrfItsIdBack) {
  status->vrfIs(kRed, VrfId(7));
  status->vrfIs(VrfName("amber"), VrfId(7));
  status->vrfNameIs(VrfId(7), kRed);
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(status);
  watcher->then = [&] {
    watcher->then = nullptr;
    status->vrfNameToIdIs(kRed, VrfId(7));
  };
  status->vrfDel(kRed);
  EXPECT_EQ(status->vrfName(VrfId(7)), kRed);
}

TEST_F(L3StatusTest, AnIdsNameGoesAlsoWhenAHandlerThrows) {
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(status);
  auto const armed = [&] {
    watcher->then = [&] {
      if (watcher->changes.back() == L3Status::kVrfNameToId.id) throw std::runtime_error("handler");
    };
  };
  status->vrfIs(kRed, VrfId(7));
  armed();
  EXPECT_THROW(status->vrfIs(kRed, VrfId(8)), std::runtime_error);
  EXPECT_FALSE(status->vrfName().has(VrfId(7)));
  EXPECT_THROW(status->vrfDel(kRed), std::runtime_error);
  EXPECT_FALSE(status->vrfName().has(VrfId(8)));
}

TEST_F(L3StatusTest, DeletingAnUnknownVrfDoesNothing) {
  status->vrfIs(kRed, VrfId(0));
  log->changes.clear();
  status->vrfDel(kBlue);
  EXPECT_THAT(log->changes, IsEmpty());
  EXPECT_EQ(status->vrfName(VrfId(0)), kRed);
}

TEST_F(L3StatusTest, IsWrittenByAttributeNameToo) {
  Kiv::GenericValue const name[] = {"'red'", "7"};
  status->genericIfAttributeOp(Kiv::GenericOp::Set, "vrfNameToId", name);
  EXPECT_EQ(*status->vrfNameToId(kRed), VrfId(7));
  Kiv::GenericValue const id[] = {"7", "'red'"};
  status->genericIfAttributeOp(Kiv::GenericOp::Set, "vrfName", id);
  EXPECT_EQ(status->vrfName(VrfId(7)), kRed);
}

}  // namespace
