// SPDX-License-Identifier: Apache-2.0
#include "host/commands/Doubts.h"

#include <gmock/gmock.h>

#include "tests/host/shell/ShellFixture.h"

namespace {

using ::testing::HasSubstr;

struct Doubtful {
  char const* line;
  /// Empty: the line is in order.
  char const* doubt;
};
void PrintTo(Doubtful const& doubtful, std::ostream* out) {
  *out << doubtful.line;
}

class DoubtsTest : public BfnTest::ShellFixture {
 protected:
  explicit DoubtsTest(Host::ShellOptions const& options = {.warn = true}) : ShellFixture(options) {
    bringUp();
    printed(
        "host vrf blue id 8\n"
        "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
        "host route vrf red vrf-id 7 forwarding-vlan 200\n"
        "vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:01");
  }
};

class EachDoubtTest : public DoubtsTest, public ::testing::WithParamInterface<Doubtful> {};

TEST_P(EachDoubtTest, IsAWarningAndTheLineIsCarriedOut) {
  EXPECT_EQ(run(GetParam().line), Host::Shell::Done);
  std::string const doubt = GetParam().doubt;
  EXPECT_EQ(err.str(), doubt.empty() ? "" : "case:1: warning: " + doubt + '\n');
}

#define LINE(vrf, ip, mac) \
  "vxlan forwarding match vrf " vrf " src-ip " ip " action rewrite src-mac " mac

INSTANTIATE_TEST_SUITE_P(
    Lines, EachDoubtTest,
    ::testing::Values(
        Doubtful{LINE("red", "10.0.0.2", "02:00:00:00:00:02"), ""},
        Doubtful{LINE("red", "10.0.0.2", "00:00:00:00:00:00"),
                 "the all-zero MAC is none: packets keep their own"},
        Doubtful{LINE("red", "10.0.0.2", "ff:ff:ff:ff:ff:ff"),
                 "no packet comes from the broadcast MAC"},
        Doubtful{LINE("red", "10.0.0.2", "03:00:00:00:00:02"),
                 "no packet comes from the multicast MAC 03:00:00:00:00:02; did you mean "
                 "02:00:00:00:00:02?"},
        Doubtful{LINE("red", "0.1.2.3", "02:00:00:00:00:02"),
                 "no host can have the address 0.1.2.3 of 0.0.0.0/8, which means this network"},
        Doubtful{LINE("red", "127.0.0.1", "02:00:00:00:00:02"),
                 "no host can have the address 127.0.0.1 of 127.0.0.0/8, which is for loopback"},
        Doubtful{LINE("red", "224.0.0.1", "02:00:00:00:00:02"),
                 "no host can have the address 224.0.0.1 of 224.0.0.0/4, which is for multicast"},
        Doubtful{LINE("red", "240.0.0.1", "02:00:00:00:00:02"),
                 "no host can have the address 240.0.0.1 of 240.0.0.0/4, which is reserved"},
        Doubtful{LINE("red", "255.255.255.255", "02:00:00:00:00:02"),
                 "no host can have the address 255.255.255.255, which is for broadcast"},
        Doubtful{LINE("red", "223.255.255.255", "02:00:00:00:00:02"), ""},
        Doubtful{LINE("rad", "10.0.0.2", "02:00:00:00:00:02"),
                 "the host knows no VRF rad; did you mean red?"},
        Doubtful{LINE("yellow", "10.0.0.2", "02:00:00:00:00:02"), "the host knows no VRF yellow"},
        Doubtful{"no " LINE("red", "10.0.0.1", "02:00:00:00:00:01"), ""},
        Doubtful{"no vxlan forwarding match vrf red src-ip 10.0.0.9",
                 "there is no line for vrf red src-ip 10.0.0.9; did you mean vrf red src-ip "
                 "10.0.0.1?"},
        Doubtful{"no vxlan forwarding match vrf yellow src-ip 192.168.1.99",
                 "there is no line for vrf yellow src-ip 192.168.1.99"},
        Doubtful{"show vxlan forwarding src-mac rewrite vrf red", ""},
        Doubtful{"show vxlan forwarding src-mac rewrite vrf bleu",
                 "there is no VRF bleu; did you mean blue?"}));

INSTANTIATE_TEST_SUITE_P(
    Removals, EachDoubtTest,
    ::testing::Values(
        Doubtful{"no host vrf blue", ""},
        Doubtful{"no host vrf blu", "there is no VRF blu; did you mean blue?"},
        Doubtful{"no host vrf-name blu", "there is no VRF blu; did you mean blue?"},
        Doubtful{"no host vrf-id 8", ""}, Doubtful{"no host vrf-id 99", "there is no VRF id 99"},
        Doubtful{"no host routing-status port Ethernet1 key-vlan 0", ""},
        Doubtful{"no host routing-status port Ethernet2 key-vlan 0",
                 "there is no such routing status; did you mean Ethernet1?"},
        Doubtful{"no host routing-status port Ethernet1 key-vlan 7",
                 "there is no such routing status"},
        Doubtful{"no host address 10.0.0.1 vrf-id 7", ""},
        Doubtful{"no host address 10.0.0.2 vrf-id 7",
                 "there is no address 10.0.0.2; did you mean 10.0.0.1?"},
        Doubtful{"no host address 10.0.0.1 vrf-id 9", "there is no address in VRF id 9"},
        Doubtful{"no host address vrf-id 7", ""},
        Doubtful{"no host address vrf-id 9", "there is no address in VRF id 9"},
        Doubtful{"no host route vrf red", ""},
        Doubtful{"no host route vrf read", "there is no status of VRF read; did you mean red?"},
        Doubtful{"host use profile routing", ""},
        Doubtful{"host use profile ruoting",
                 "there is no profile ruoting; did you mean routing?"}));

TEST_F(DoubtsTest, ADoubtAboutTheCommandOfAnExpectationIsReportedToo) {
  EXPECT_EQ(run("expect no host vrf blu == null"), Host::Shell::Done);
  EXPECT_EQ(err.str(), "case:1: warning: there is no VRF blu; did you mean blue?\n");
}

class QuietDoubtsTest : public DoubtsTest {
 protected:
  QuietDoubtsTest() : DoubtsTest(Host::ShellOptions{}) {}
};

TEST_F(QuietDoubtsTest, OfAFileTheyAreNotReportedUnlessAskedForAndOfAPromptTheyAre) {
  EXPECT_EQ(run("no host vrf blu"), Host::Shell::Done);
  EXPECT_EQ(err.str(), "");
  EXPECT_EQ(shell.runLine("no host vrf blu", err), Host::Shell::Done);
  EXPECT_EQ(err.str(), "prompt:1: warning: there is no VRF blu; did you mean blue?\n");
}

class JsonDoubtsTest : public DoubtsTest {
 protected:
  JsonDoubtsTest() : DoubtsTest({.json = true, .warn = true}) {}
};

TEST_F(JsonDoubtsTest, AWarningIsAJsonLineBeforeTheAnswer) {
  EXPECT_EQ(run("no host vrf blu"), Host::Shell::Done);
  EXPECT_EQ(out.str(),
            "{\"file\":\"case\",\"line\":1,\"warning\":\"case:1: warning: there is no VRF blu; did "
            "you mean blue?\"}\n"
            "{\"answer\":null,\"command\":\"no host vrf blu\",\"file\":\"case\",\"line\":1}\n");
}

class StrictDoubtsTest : public DoubtsTest {
 protected:
  StrictDoubtsTest() : DoubtsTest({.strict = true}) {}
};

TEST_F(StrictDoubtsTest, ADoubtfulLineIsRefused) {
  EXPECT_EQ(run(LINE("red", "10.0.0.2", "03:00:00:00:00:02")), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("case:1: error: no packet comes from the multicast MAC"));
  EXPECT_EQ(run("expect show running-config | count == 1"), Host::Shell::Done) << err.str();
}

#undef LINE

}  // namespace
