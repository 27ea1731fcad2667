// SPDX-License-Identifier: Apache-2.0
// What the commands of the reconciler print for people.
#include <gtest/gtest.h>
#include <string>

#include "tests/host/shell/ShellFixture.h"
#include "tests/support/RewriteRow.h"

namespace {

class ReconciledCommandsTest : public BfnTest::ShellFixture {
 protected:
  ReconciledCommandsTest() : ShellFixture({}, true) { bringUp(); }

  // What another program writes into the chip, unknown to the reconciler.
  BfnDriver::TableHandle chipTable() {
    return *host.chip.open({9, 0, {}, "", BfnChip::ChipModel::kRewriteTable});
  }
  void writeChip(BfnChip::AddressBytes const& source, BfnChip::MacBytes const& mac) {
    host.chip.write(chipTable(), BfnTest::rewriteKey(1006, source), BfnTest::rewriteAction(mac));
  }
  void eraseChip(BfnChip::AddressBytes const& source) {
    host.chip.erase(chipTable(), BfnTest::rewriteKey(1006, source));
  }
};

TEST_F(ReconciledCommandsTest, ShowWaitingSaysWhatWaitsForWhat) {
  EXPECT_EQ(printed("show waiting"),
            "VLAN  Source IP        Source MAC         Waits because\n"
            "0 rows waiting\n");
  printed(
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
      "chip fail next 1 exception erase\n"
      "no host address 10.0.0.1 vrf-id 7\n"
      "chip capacity 1\n"
      "host address 10.0.0.2 vrf-id 7 interface Ethernet1\n");
  EXPECT_EQ(printed("show waiting"),
            "VLAN  Source IP        Source MAC         Waits because\n"
            "1006  10.0.0.2         00:00:00:00:00:00  table full\n"
            "1006  10.0.0.1         to be deleted      failed: injected fault of the chip model\n"
            "2 rows waiting\n");
  EXPECT_EQ(printed("show reconciler"), "1 row wanted, 1 waiting for room, 1 failed\n");
}

TEST_F(ReconciledCommandsTest, AuditListsWhatDiffersAndRepairMendsIt) {
  printed(
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
      "host address 10.0.0.2 vrf-id 7 interface Ethernet1\n");
  EXPECT_EQ(printed("audit"), "audit: the chip has the rows that are wanted\n");
  writeChip({10, 0, 0, 1}, {2, 0, 0, 0, 0, 9});
  eraseChip({10, 0, 0, 2});
  writeChip({10, 0, 0, 3}, {2, 0, 0, 0, 0, 3});
  std::string const findings = printed("audit");
  for (char const* line :
       {"VLAN  Source IP        Finding    Wanted             In the chip\n",
        "\n1006  10.0.0.1         different  00:00:00:00:00:00  02:00:00:00:00:09\n",
        "\n1006  10.0.0.2         missing    00:00:00:00:00:00  -\n",
        "\n1006  10.0.0.3         extra      -                  02:00:00:00:00:03\n",
        "\naudit: 3 findings\n"}) {
    EXPECT_NE(findings.find(line), std::string::npos) << line << findings;
  }
  EXPECT_EQ(printed("audit"), findings);
  EXPECT_EQ(printed("repair"), "repair: 1 row inserted, 1 overwritten, 1 deleted, 0 waiting\n");
  EXPECT_EQ(printed("audit"), "audit: the chip has the rows that are wanted\n");
}

TEST_F(ReconciledCommandsTest, ALineThatEndsWithAnExceptionEndsItsTurn) {
  printed(
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
      "dump journal\n"
      "host routing-status port Ethernet2 key-vlan 0 vlan 4095 vrf-id 7\n");
  // The exception's address is indexed, and the line before it in the same turn was written.
  EXPECT_EQ(printed("host address 10.0.0.2 vrf-id 7 interface Ethernet2"),
            "exception: VlanId::value < 1 or > 4094 not allowed\n");
  EXPECT_EQ(host.chip.rowCount(), 1u);
}

}  // namespace
