// SPDX-License-Identifier: Apache-2.0
#include "host/commands/Changes.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/host/shell/ShellFixture.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string line(int last, int mac) {
  return "vxlan forwarding match vrf red src-ip 10.0.0." + std::to_string(last) +
         " action rewrite src-mac 02:00:00:00:00:0" + std::to_string(mac) + '\n';
}

class ChangesTest : public BfnTest::ShellFixture {
 protected:
  ChangesTest() { std::filesystem::create_directory(folder); }
  ~ChangesTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }

  std::string fileIs(std::string const& name, std::string const& text) const {
    std::ofstream(folder / name) << text;
    return (folder / name).string();
  }
  std::string configuration() { return printed("show running-config"); }

  std::filesystem::path folder = ::testing::TempDir() + "/changes-" + std::to_string(::getpid());
};

TEST_F(ChangesTest, AFileWithWrongLinesIsNotLoadedAndAllOfThemAreReported) {
  std::string const file =
      fileIs("bad.lab", "print one\nhost vrf red id x\nprint two\nshutdown\n" + line(1, 1));
  EXPECT_EQ(run("load " + file), Host::Shell::BadInput);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(configuration(), "");
  run("load " + file);
  EXPECT_THAT(err.str(), StartsWith(file + ":2: error: expected a number from 0 to 4294967295"));
  EXPECT_THAT(err.str(), HasSubstr('\n' + file + ":4: error: expected "));
}

TEST_F(ChangesTest, ALoadLooksAtTheFilesThatItsFileLoads) {
  fileIs("inner.lab", "print inner\nhost\n");
  std::string const file = fileIs("outer.lab", "print outer\nload inner.lab\n");
  EXPECT_EQ(run("load " + file), Host::Shell::BadInput);
  EXPECT_EQ(out.str(), "");
  EXPECT_THAT(err.str(), StartsWith((folder / "inner.lab").string() + ":2: error: "));
}

TEST_F(ChangesTest, WhatIsLoadedMayBeWrittenByALineBefore) {
  std::string const made = (folder / "made.lab").string();
  std::string const file =
      fileIs("outer.lab", "print print made | save x\nprint \"print made\"\nload " + made + '\n');
  EXPECT_EQ(run("load " + file), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("expected a file of commands that can be read"));
  EXPECT_EQ(run("load --check " + file), Host::Shell::BadInput);
  std::string const writes = fileIs(
      "writes.lab", "generate scale " + folder.string() + " vrfs 1 rows 2\nload operator.cfg\n");
  EXPECT_EQ(run("load " + writes), Host::Shell::Done) << err.str();
}

TEST_F(ChangesTest, WhatFollowsExitIsNotLookedAt) {
  std::string const file = fileIs("exit.lab", "print one\nexit\nnonsense\n");
  EXPECT_EQ(printed("load " + file), "one\n" + file + ": 2 lines accepted\n");
}

TEST_F(ChangesTest, TheLookReportsAWrongCommandWithinACommandAndWrongJson) {
  std::string const file = fileIs(
      "bad.lab", "expect dump chips == []\nexpect dump chip == [\nprint a\nbrief measure dump x\n");
  EXPECT_EQ(run("load --check " + file), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("bad.lab:1: error: expected chip, "));
  EXPECT_THAT(err.str(), HasSubstr("bad.lab:2: error: expected JSON after =="));
  EXPECT_THAT(err.str(), HasSubstr("bad.lab:4: error: expected chip, "));
}

TEST_F(ChangesTest, ACheckCarriesOutNothing) {
  std::string const file = fileIs("good.cfg", "# two\n" + line(1, 1) + line(2, 2));
  EXPECT_EQ(printed("load --check " + file), file + ": 2 lines, none wrong\n");
  EXPECT_EQ(configuration(), "");
}

TEST_F(ChangesTest, AFileThatLoadsItselfTwiceIsRefusedAtOnce) {
  std::string const file = fileIs("self.lab", "load self.lab\nload self.lab\n");
  EXPECT_EQ(run("load --check " + file), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("self.lab:2: error: files are loaded within each other"));
}

TEST_F(ChangesTest, AFileOfOperatorLinesIsAllOrNothing) {
  printed(line(5, 5));
  std::string const before = configuration();
  std::string const file =
      fileIs("bad.cfg", line(1, 1) +
                            "no vxlan forwarding match vrf red src-ip 10.0.0.5 action rewrite "
                            "src-mac 02:00:00:00:00:06\n");
  EXPECT_EQ(run("load " + file), Host::Shell::BadInput);
  EXPECT_EQ(err.str(), file +
                           ":2: error: expected the MAC address that is configured, "
                           "02:00:00:00:00:05\n");
  EXPECT_EQ(configuration(), before);
  EXPECT_EQ(run("load --check " + file), Host::Shell::BadInput);
}

// The MAC of a removal may be that of a line before it.
TEST_F(ChangesTest, OperatorLinesOfAFileAreJudgedInTheirOrder) {
  std::string const removal = "no " + line(1, 1);
  std::string const file = fileIs("good.cfg", line(1, 1) + removal + line(1, 2));
  EXPECT_EQ(printed("load " + file), file + ": 3 lines accepted\n");
  EXPECT_EQ(configuration(), line(1, 2));
}

TEST_F(ChangesTest, AnotherFileRunsInOrderUpToTheLineThatIsRefused) {
  std::string const file = fileIs("mixed.lab", line(1, 1) + "no host vrf red id 1\n" + line(2, 2));
  EXPECT_EQ(run("load " + file), Host::Shell::BadInput);
  EXPECT_EQ(configuration(), line(1, 1));
}

TEST_F(ChangesTest, ReplaceMakesTheSmallestDifference) {
  bringUp();
  for (int i = 1; i <= 3; ++i) {
    printed("host address 10.0.0." + std::to_string(i) + " vrf-id 7 interface Ethernet1\n" +
            line(i, i));
  }
  std::string const file = fileIs("new.cfg", line(1, 1) + line(2, 5) + line(4, 4));
  std::string const expected = "- " + line(3, 3) + "- " + line(2, 2) + "+ " + line(2, 5) + "+ " +
                               line(4, 4) + "1 line added, 1 changed, 1 removed\n";
  EXPECT_EQ(printed("show differences " + file), expected);
  printed("dump journal");
  EXPECT_EQ(printed("replace " + file), expected);
  EXPECT_EQ(configuration(), line(1, 1) + line(2, 5) + line(4, 4));
  // Rows 10.0.0.3, whose line is gone, and 10.0.0.2.
  EXPECT_EQ(run("expect dump journal | json | include 10.0.0.1 | count == 0"), Host::Shell::Done)
      << err.str();
  EXPECT_EQ(printed("replace " + file), "0 lines added, 0 changed, 0 removed\n");
}

TEST_F(ChangesTest, ReplaceRefusesAFileWithAnyOtherLine) {
  printed(line(1, 1));
  std::string const file = fileIs("bad.cfg", line(2, 2) + "print x\n" + line(3, 3) + "vxlan\n");
  EXPECT_EQ(run("replace " + file), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("bad.cfg:2: error: expected a line of the operator's"));
  EXPECT_THAT(err.str(), HasSubstr("bad.cfg:4: error: expected forwarding"));
  EXPECT_EQ(configuration(), line(1, 1));
  EXPECT_EQ(run("replace no-such.cfg"), Host::Shell::BadInput);
}

TEST_F(ChangesTest, ReplaceReadsWhatShowRunningConfigWrites) {
  printed(
      "vxlan forwarding match vrf \"a b\" src-ip 10.0.0.9 action rewrite src-mac "
      "02:00:00:00:00:09\n" +
      line(1, 1));
  std::string const file = (folder / "saved.cfg").string();
  printed("show running-config | save " + file);
  std::string const before = configuration();
  EXPECT_EQ(printed("replace " + file), "0 lines added, 0 changed, 0 removed\n");
  EXPECT_EQ(configuration(), before);
}

TEST_F(ChangesTest, RollbackGoesBackToTheNewestCheckpointOrToTheNamedOne) {
  printed(line(1, 1));
  EXPECT_EQ(printed("checkpoint start"), "checkpoint start\n");
  printed(line(2, 2));
  EXPECT_EQ(printed("checkpoint"), "checkpoint 1\n");
  printed(line(3, 3));
  EXPECT_EQ(printed("rollback"), "- " + line(3, 3) + "0 lines added, 0 changed, 1 removed\n");
  EXPECT_EQ(configuration(), line(1, 1) + line(2, 2));
  printed("rollback start");
  EXPECT_EQ(configuration(), line(1, 1));
  EXPECT_EQ(run("rollback other"), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("there is no checkpoint other"));
  EXPECT_EQ(run("expect show checkpoints == {\"checkpoints\": [{\"lines\": 1, \"name\": \"start\", "
                "\"time\": 0.0}, {\"lines\": 2, \"name\": \"1\", \"time\": 0.0}], \"deadline\": "
                "null}"),
            Host::Shell::Done)
      << err.str();
}

TEST_F(ChangesTest, TheOldestCheckpointMakesRoom) {
  for (size_t i = 0; i <= Host::Changes::kMostCheckpoints; ++i) printed("checkpoint");
  EXPECT_EQ(shell.changes().checkpoints().size(), Host::Changes::kMostCheckpoints);
  EXPECT_EQ(run("rollback 1"), Host::Shell::BadInput);
  EXPECT_EQ(run("rollback 2"), Host::Shell::Done);
}

TEST_F(ChangesTest, WithoutACommitInTimeTheChangesAreTakenBack) {
  printed(line(1, 1));
  EXPECT_EQ(printed("commit confirmed 60"), "changes have to be committed within 60 seconds\n");
  printed(line(1, 2) + line(2, 2));
  EXPECT_EQ(printed("clock advance 59"), "");
  EXPECT_EQ(configuration(), line(1, 2) + line(2, 2));
  EXPECT_EQ(printed("clock advance 1"),
            "log: warning: BFN_VXLAN_MAC_REWRITE_NOT_CONFIRMED: VXLAN forwarding source MAC "
            "address rewrites were not confirmed within 60 seconds: the configuration is what it "
            "was before, lines changed: 2.\n");
  EXPECT_EQ(configuration(), line(1, 1));
  EXPECT_EQ(run("commit"), Host::Shell::BadInput);
}

TEST_F(ChangesTest, ChangesAreTakenBackAtTheEndOfTheirWindowWhenTheClockJumpsOverIt) {
  printed("commit confirmed 60\n" + line(1, 1) + "clock advance 1000");
  EXPECT_EQ(configuration(), "");
  EXPECT_EQ(run("expect dump log | json | include 60.0 | count == 1"), Host::Shell::Done)
      << err.str();
}

TEST_F(ChangesTest, ACommitInTimeKeepsThem) {
  printed("commit confirmed 60\n" + line(1, 1) + "clock advance 59\ncommit\nclock advance 100");
  EXPECT_EQ(configuration(), line(1, 1));
}

TEST_F(ChangesTest, AWindowThatIsGivenAnotherEndGoesBackToItsBeginning) {
  printed("commit confirmed 60\n" + line(1, 1) + "clock advance 50\ncommit confirmed 60\n" +
          line(2, 2) + "clock advance 59");
  EXPECT_EQ(configuration(), line(1, 1) + line(2, 2));
  printed("clock advance 1");
  EXPECT_EQ(configuration(), "");
}

TEST_F(ChangesTest, WhereTimePassesTheWindowEndsByThatTimeToo) {
  double now = 100;
  shell.changes().realTimeIs([&now] { return now; });
  printed("commit confirmed 60\n" + line(1, 1));
  now = 159;
  EXPECT_EQ(shell.runDue(), 1.0);
  EXPECT_EQ(configuration(), line(1, 1));
  now = 160;
  EXPECT_EQ(shell.runDue(), std::nullopt);
  EXPECT_EQ(configuration(), "");
}

TEST_F(ChangesTest, WithoutAConfigurationThereIsNothingToReplaceOrTakeBack) {
  std::string const file = fileIs("new.cfg", line(1, 1));
  EXPECT_EQ(run("host clear cli-config\nreplace " + file), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("there is no cli-config; host replace cli-config makes one"));
  printed("host replace cli-config\ncommit confirmed 5\nhost clear cli-config\nclock advance 5");
  EXPECT_EQ(printed("dump log"), "[]\n");
}

}  // namespace
