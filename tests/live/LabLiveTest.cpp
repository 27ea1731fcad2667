// SPDX-License-Identifier: Apache-2.0
// The plug-in in the lab writes rows into the kernel's table, and hosts send packets through them:
// what the far host receives, as tcpdump reads it there, and what is left when the lab is killed.
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "tests/kernel/TunnelFixture.h"

namespace {

using BfnTest::outputOf;
using BfnTest::shell;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

// The row's MAC as tcpdump prints the source of a frame.
constexpr char kRows[] = "02:5e:10:01:02:03 > ";

constexpr char kBringUp[] =
    "host profile routing rewrite supported table-size 1000\n"
    "host use profile routing\n"
    "host agent create\n"
    "host init-tables true\n"
    "host vrf red id 7\n"
    "host routing-status vlan Vlan100 key-vlan 100 vlan 100 vrf-id 7\n"
    "host address 10.1.0.1 vrf-id 7 interface Vlan100\n"
    "vxlan forwarding match vrf red src-ip 10.1.0.1 action rewrite src-mac 02:5e:10:01:02:03\n"
    "host start true\n"
    "chip port vx0 vlan 100\n";

/// A lab that reads lines until it is killed, or dies with the test.
class RunningLab {
 public:
  RunningLab(std::string const& table, std::string const& output) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(ends[0], STDIN_FILENO);
      dup2(open(output.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0644), STDOUT_FILENO);
      execl(LAB_PROGRAM, "macrewrite-lab", "--table", table.c_str(), nullptr);
      _exit(127);
    }
    close(ends[0]);
    in_ = ends[1];
  }
  RunningLab(RunningLab const&) = delete;
  RunningLab& operator=(RunningLab const&) = delete;
  ~RunningLab() {
    if (pid_ > 0) kill();
  }

  /// Fewer bytes than a pipe takes, so that it does not wait for the lab.
  void say(std::string const& lines) const {
    ASSERT_EQ(write(in_, lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
  }
  /// Whether it was there to be killed.
  bool kill() {
    ::kill(pid_, SIGKILL);
    int status = 0;
    waitpid(std::exchange(pid_, -1), &status, 0);
    close(in_);
    return WIFSIGNALED(status);
  }

 private:
  pid_t pid_ = -1;
  int in_ = -1;
};

class LabLiveTest : public BfnTest::TunnelFixture {
 protected:
  std::string file(std::string const& name) const {
    return (directory().parent_path() / name).string();
  }
  std::string table() const { return "kernel:" + directory().string(); }

  /// What a lab of its own prints that carries these lines out, which have to pass.
  std::string lab(std::string const& lines) const {
    std::ofstream(file("case.lab")) << lines;
    EXPECT_EQ(shell(LAB_PROGRAM " --table " + table() + " " + file("case.lab") + " > " +
                    file("out") + " 2>&1"),
              0);
    return outputOf("cat " + file("out"));
  }
  /// Waits until the text is in the file. The time limit allows for a lab with sanitizers that
  /// reads 180,000 lines on a busy machine.
  static void waitFor(std::string const& text, std::string const& name) {
    ASSERT_EQ(shell("i=0; while ! grep -q '" + text + "' " + name +
                    " 2> /dev/null; do sleep 0.02; i=$((i+1)); [ $i -lt 5000 ] || exit 1; done"),
              0)
        << outputOf("cat " + name);
  }
};

TEST_F(LabLiveTest, Ipv4OfAnyKindLeavesWithTheRowsMac) {
  lab(kBringUp);
  EXPECT_THAT(captured(3, "icmp", "ping -q -c 3 -i 0.05 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kRows), Not(HasSubstr(kNearsOwn))));
  EXPECT_THAT(captured(1, "src 10.1.0.1 and ip", "ping -q -c 1 -R 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kRows), HasSubstr("options (NOP,RR")));
  EXPECT_THAT(captured(3, "src 10.1.0.1 and ip", "ping -q -c 1 -s 4000 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kRows), Not(HasSubstr(kNearsOwn)), HasSubstr("flags [+]")));
  EXPECT_THAT(captured(1, "icmp", "ping -q -c 1 -M do -s 1472 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kRows), HasSubstr("length 1514")));
  EXPECT_THAT(captured(1, "vlan 300", sendTagged()),
              AllOf(HasSubstr(kRows), HasSubstr("vlan 300, p 1")));
  EXPECT_THAT(
      lab("show chip\nchip counters\n"),
      AllOf(HasSubstr("100   10.1.0.1         02:5e:10:01:02:03     9"), HasSubstr("rewritten 9")));
}

TEST_F(LabLiveTest, ArpAndIpv6KeepTheirMac) {
  lab(kBringUp);
  EXPECT_THAT(captured(1, "arp", "ping -q -c 1 10.1.0.2 > /dev/null"), HasSubstr(kNearsOwn));
  EXPECT_THAT(captured(1, "icmp6 and ip6[40] == 128", "ping -q -c 1 fd00::2 > /dev/null"),
              HasSubstr(kNearsOwn));
  EXPECT_THAT(lab("chip counters\n"), AllOf(HasSubstr("ARP "), HasSubstr("IPv6 ")));
}

TEST_F(LabLiveTest, ADeviceThatIsTakenOutLeavesFramesAlone) {
  lab(kBringUp);
  lab("no chip port vx0\n");
  EXPECT_THAT(captured(2, "icmp", "ping -q -c 2 -i 0.05 10.1.0.2 > /dev/null"),
              AllOf(HasSubstr(kNearsOwn), Not(HasSubstr(kRows))));
}

TEST_F(LabLiveTest, AKilledLabLosesNoPingOfAHundredASecondAndTheNextOneWritesNothing) {
  RunningLab killed(table(), file("killed"));
  killed.say(std::string(kBringUp) + "print ready\n");
  waitFor("^ready", file("killed"));
  auto pings = nearHost_->start("ping -q -c 100 -i 0.01 10.1.0.2 > " + file("pings"));
  shell("sleep 0.4");
  ASSERT_TRUE(killed.kill());
  // Frames meet the row while there is no process.
  EXPECT_THAT(captured(2, "icmp and src 10.1.0.1", "true"),
              AllOf(HasSubstr(kRows), Not(HasSubstr(kNearsOwn))));
  EXPECT_THAT(lab(std::string(kBringUp) + "expect dump journal == []\nshow chip\naudit\n"),
              AllOf(HasSubstr("rows: 0 rows inserted, 0 overwritten, 0 deleted, 0 waiting"),
                    HasSubstr("100   10.1.0.1         02:5e:10:01:02:03"),
                    HasSubstr("audit: the chip has the rows that are wanted")));
  EXPECT_EQ(pings.wait(), 0);
  EXPECT_THAT(outputOf("cat " + file("pings")), HasSubstr(" 100 received, 0% packet loss"));
}

TEST_F(LabLiveTest, ALabKilledAmongItsWritesLosesNoPingAndTheNextOneMendsTheTable) {
  RunningLab killed(table(), file("killed"));
  killed.say(std::string(kBringUp) + "print ready\n");
  waitFor("^ready", file("killed"));
  auto pings = nearHost_->start("ping -q -c 100 -i 0.01 10.1.0.2 > " + file("pings"));
  // Far more than it carries out before it is killed.
  {
    std::ofstream lines(file("many.lab"));
    for (int round = 0; round < 60; ++round) {
      for (int i = 0; i < 900; ++i) {
        lines << (round % 2 == 0 ? "" : "no ") << "host address 10.2." << i / 250 << '.' << i % 250
              << " vrf-id 7" << (round % 2 == 0 ? " interface Vlan100\n" : "\n");
        if (i == 450 && round == 1) lines << "print among them\n";
      }
    }
  }
  killed.say("load " + file("many.lab") + "\nprint all of them\n");
  waitFor("^among them", file("killed"));
  ASSERT_TRUE(killed.kill());
  EXPECT_THAT(outputOf("cat " + file("killed")), Not(HasSubstr("all of them")));
  EXPECT_THAT(lab(std::string(kBringUp) + "expect audit == []\n"),
              HasSubstr("rows: 0 rows inserted, 0 overwritten, "));
  EXPECT_THAT(lab("show chip\n"), AllOf(HasSubstr("\n100   10.1.0.1  "), HasSubstr("\n1 row\n")));
  EXPECT_EQ(pings.wait(), 0);
  EXPECT_THAT(outputOf("cat " + file("pings")), HasSubstr(" 100 received, 0% packet loss"));
}

TEST_F(LabLiveTest, WhatAnotherProgramWroteIsFoundByAnAuditAndMendedByARepair) {
  if (shell("which bpftool > /dev/null") != 0) GTEST_SKIP() << "bpftool is missing";
  RunningLab running(table(), file("running"));
  running.say(std::string(kBringUp) + "print ready\n");
  waitFor("^ready", file("running"));
  auto const update = [this](std::string const& source, std::string const& value) {
    EXPECT_EQ(shell("bpftool map update pinned " + (directory() / "rows").string() +
                    " key hex 05 64 00 " + source + " 01 value hex " + value),
              0);
  };
  update("0a 01 00 01", "01 00 02 00 00 00 00 00");
  update("0a 01 00 09", "01 00 02 00 00 00 00 00");
  running.say("audit\nrepair\naudit\nshow chip\n");
  waitFor("^1 row", file("running"));
  EXPECT_THAT(outputOf("cat " + file("running")),
              AllOf(HasSubstr("10.1.0.1         different  02:5e:10:01:02:03"),
                    HasSubstr("10.1.0.9         extra      -  "), HasSubstr("audit: 2 findings"),
                    HasSubstr("repair: 0 rows inserted, 1 overwritten, 1 deleted, 0 waiting\n"
                              "audit: the chip has the rows that are wanted\n")));
  EXPECT_THAT(captured(1, "icmp", "ping -q -c 1 10.1.0.2 > /dev/null"), HasSubstr(kRows));
}

TEST_F(LabLiveTest, ASecondLabOverTheSameTableIsRefused) {
  RunningLab running(table(), file("running"));
  running.say("print ready\n");
  waitFor("^ready", file("running"));
  EXPECT_EQ(shell(LAB_PROGRAM " --table " + table() + " /dev/null 2> " + file("refused")), 2);
  EXPECT_THAT(outputOf("cat " + file("refused")),
              AllOf(HasSubstr("macrewrite-lab: error: "), HasSubstr(directory().string())));
}

TEST_F(LabLiveTest, ADeviceThatHasGoneAndComeBackIsLookedUpAgainAfterTheNextLine) {
  RunningLab running(table(), file("running"));
  running.say(std::string(kBringUp) + "print ready\n");
  waitFor("^ready", file("running"));
  on(nullptr, "ip link del vx0");
  running.say("print gone\n");
  waitFor("^gone", file("running"));
  on(nullptr,
     "ip link add vx0 type vxlan id 10100 dstport 4789 local 192.0.2.1 remote 192.0.2.2 && "
     "ip link set vx0 mtu 1500 master br0 up");
  running.say("print back\nprint next\n");
  waitFor("^next", file("running"));
  EXPECT_THAT(captured(1, "icmp", "ping -q -c 1 10.1.0.2 > /dev/null"), HasSubstr(kRows));
}

TEST_F(LabLiveTest, ADeviceThatIsNotThereIsAnExceptionAndTheRunContinues) {
  EXPECT_EQ(lab("chip port vx9 vlan 100\nprint next\n"),
            "exception: there is no device vx9\nnext\n");
}

}  // namespace
