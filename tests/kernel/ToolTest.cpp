// SPDX-License-Identifier: Apache-2.0
// macrewrite-kernel as it is started by people: what it prints, and its exit status.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/kernel/KernelFixture.h"

namespace {

using BfnTest::outputOf;
using BfnTest::shell;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class ToolTest : public BfnTest::KernelFixture {
 protected:
  void SetUp() override {
    KernelFixture::SetUp();
    if (IsSkipped()) return;
    ASSERT_EQ(shell("ip link add vx0 type vxlan id 10100 dstport 4789 local 127.0.0.1"), 0);
  }
  // The status, and what is printed on either stream.
  int tool(std::string const& words, std::string const& before = "") {
    std::string const file = (directory().parent_path() / "out").string();
    int const status = shell(before + TOOL " " + words + " > " + file + " 2>&1");
    printed_ = outputOf("cat " + file);
    return status;
  }
  int onTable(std::string const& words) { return tool(directory().string() + " " + words); }

  std::string printed_;
};

TEST_F(ToolTest, DeviceIsAttachedShownAndTakenOut) {
  ASSERT_EQ(onTable("attach vx0 vlan 100"), 0) << printed_;
  EXPECT_THAT(printed_, IsEmpty());
  EXPECT_THAT(outputOf("tc filter show dev vx0 egress"), HasSubstr("mac_rewrite"));
  ASSERT_EQ(onTable("vni 10200 vlan 200"), 0) << printed_;
  ASSERT_EQ(onTable("show"), 0) << printed_;
  EXPECT_THAT(printed_, StartsWith("vx0 vlan 100, VNI 10100\nvni 10200 vlan 200\n"
                                   "0 rows of 65536\n"));
  ASSERT_EQ(onTable("remove"), 0) << printed_;
  EXPECT_THAT(outputOf("tc qdisc show dev vx0 clsact"), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(directory()));
}

TEST_F(ToolTest, WhatFailsIsOneLineAndStatusOne) {
  EXPECT_EQ(onTable("attach vx9 vlan 100"), 1);
  EXPECT_EQ(printed_, "macrewrite-kernel: there is no device vx9\n");
  EXPECT_EQ(onTable("detach vx0"), 1);
  EXPECT_EQ(printed_, "macrewrite-kernel: vx0 is not attached\n");
}

TEST_F(ToolTest, HelpAndVersionAreNoWrongUseAndMakeNothing) {
  for (char const* option : {"--help", "-h"}) {
    EXPECT_EQ(tool(option), 0);
    EXPECT_THAT(printed_, StartsWith("Usage: macrewrite-kernel DIRECTORY COMMAND"));
  }
  EXPECT_EQ(tool("--version"), 0);
  EXPECT_THAT(printed_, StartsWith("BfnMacRewrite "));
  EXPECT_FALSE(std::filesystem::exists(directory()));
}

TEST_F(ToolTest, WrongUseIsShownAndMakesNothing) {
  for (char const* words : {"", "frobnicate", "attach", "attach vx0 vlan x", "show all"}) {
    EXPECT_EQ(onTable(words), 2) << words;
    EXPECT_THAT(printed_, StartsWith("Usage: macrewrite-kernel DIRECTORY COMMAND")) << words;
    EXPECT_FALSE(std::filesystem::exists(directory())) << words;
  }
}

TEST_F(ToolTest, MissingRightsAreNamedWithStatusThree) {
  EXPECT_EQ(tool("/mnt/none show", "setpriv --bounding-set -net_admin --inh-caps -all "), 3);
  EXPECT_EQ(printed_, "macrewrite-kernel: the right CAP_NET_ADMIN is missing\n");
  EXPECT_EQ(tool("/mnt/none show", "setpriv --bounding-set -bpf,-sys_admin --inh-caps -all "), 3);
  EXPECT_EQ(printed_, "macrewrite-kernel: the right CAP_BPF is missing\n");
  EXPECT_EQ(tool("/mnt/none show", "setpriv --bounding-set -sys_admin --inh-caps -all "), 3);
  EXPECT_THAT(printed_,
              AllOf(HasSubstr("/mnt/none is on no bpf file system"), HasSubstr("CAP_SYS_ADMIN")));
  // A user namespace has all of them, but not where the kernel asks for them.
  EXPECT_EQ(tool("/mnt/none show", "unshare --user --map-root-user "), 3);
}

TEST_F(ToolTest, TwoRightsAreEnoughOnAFileSystemOfTheUser) {
  ASSERT_EQ(shell("mkdir -p /mnt/table && mount -t bpf -o mode=0700 bpf /mnt/table && "
                  "chown nobody /mnt/table"),
            0);
  std::string const rights = "-all,+bpf,+net_admin ";
  EXPECT_EQ(tool("/mnt/table attach vx0 vlan 100",
                 "setpriv --reuid nobody --clear-groups --inh-caps " + rights + "--ambient-caps " +
                     rights + "--bounding-set " + rights),
            0)
      << printed_;
}

}  // namespace
