// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>

#include "framework/platform/BfTableException.h"
#include "tests/support/PluginTest.h"

// What is left of a row that the chip could not erase, in the whole plug-in.
namespace {

using BfnTest::ip;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FailedErasesTest : public BfnTest::PluginTest {
 protected:
  void SetUp() override {
    host.bringUp();
    host.vrf("red", 7);
    host.port("Ethernet1", 100, 7);
    host.address(7, "10.0.0.1", "Ethernet1");
    host.journal();
  }
  BfnMacRewrite::BfnMacRewriteSm& sm() { return *host.agent->bfnMacRewriteSm(); }
  Kiv::Ptr<BfnMacRewrite::MatchSpecAndRefCount> record() {
    return host.agent->overlaySrcMacRewriteManager()->matchSpecAndRefCount(
        {ip("10.0.0.1"), Ovra::IntfId("Ethernet1"), false});
  }
  void failErase(BfnChip::Fault::Kind kind) {
    host.chip.eraseFaults().failNext(1, {kind, nullptr});
  }
};

TEST_F(FailedErasesTest, TheIndexesAreClearedBeforeTheRowAndTheRecordGoesAfterIt) {
  for (auto const kind : {BfnChip::Fault::Kind::Error, BfnChip::Fault::Kind::Exception}) {
    failErase(kind);
    EXPECT_THROW(host.addressDel(7, "10.0.0.1"), std::runtime_error);
    EXPECT_FALSE(sm().localVrfIpToIntf({Pex::VrfId(7), ip("10.0.0.1")}));
    EXPECT_EQ(sm().localIntfToVrfIp(Ovra::IntfId("Ethernet1")), nullptr);
    EXPECT_EQ(host.rows().size(), 1u);
    ASSERT_TRUE(record());
    EXPECT_EQ(record()->refCount(), 0);
    // The row that was left is adopted, and goes with its reference.
    host.address(7, "10.0.0.1", "Ethernet1");
    EXPECT_EQ(record()->refCount(), 1);
  }
  host.addressDel(7, "10.0.0.1");
  EXPECT_FALSE(record());
  EXPECT_THAT(host.rows(), IsEmpty());
}

TEST_F(FailedErasesTest, AFailureThatTheDriverReportsIsTheBindingsException) {
  failErase(BfnChip::Fault::Kind::Error);
  try {
    host.addressDel(7, "10.0.0.1");
    ADD_FAILURE() << "no exception";
  } catch (BfTable::BfTableException const& exception) {
    EXPECT_STREQ(exception.what(), "a row of the table overlaySrcMacRewrite could not be removed");
  }
  EXPECT_THAT(host.journal(), ElementsAre("erase 100 10.0.0.1 error"));
}

}  // namespace
