// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Pipeline.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <unistd.h>

#include "tests/host/shell/ShellFixture.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class PipelineTest : public BfnTest::ShellFixture {
 protected:
  /// What one line answers in text, without its line end.
  std::string answer(std::string const& line) {
    std::string text = printed(line);
    if (text.ends_with('\n')) text.pop_back();
    return text;
  }
  /// Three configured lines: red, green and blue.
  void configure() {
    int last = 0;
    for (char const* const vrf : {"red", "green", "blue"}) {
      printed(std::string("vxlan forwarding match vrf ") + vrf + " src-ip 10.0.0." +
              std::to_string(++last) + " action rewrite src-mac 02:00:00:00:00:01");
    }
  }
};

TEST_F(PipelineTest, LinesAreSelectedByARegularExpression) {
  configure();
  EXPECT_EQ(answer("show running-config | include vrf red | count"), "1");
  EXPECT_EQ(answer("show running-config | include red|blue | count"), "2");
  EXPECT_EQ(answer("show running-config | exclude ^vxlan.*(red|blue) | include vxlan"),
            "vxlan forwarding match vrf green src-ip 10.0.0.2 action rewrite src-mac "
            "02:00:00:00:00:01");
  EXPECT_EQ(answer("show running-config | begin green | include vxlan | count"), "2");
  EXPECT_EQ(answer("show running-config | include nothing | count"), "0");
}

TEST_F(PipelineTest, TheJsonFormIsTheAnswersOwn) {
  EXPECT_EQ(answer("show capability | json"), answer("dump capability"));
  EXPECT_EQ(run("expect dump capability | json == {}"), Host::Shell::ExpectationFailed);
}

TEST_F(PipelineTest, WithinAnExpectationTheFilteredAnswerIsCompared) {
  configure();
  EXPECT_EQ(run("expect show running-config | include vrf red | count == 1"), Host::Shell::Done)
      << err.str();
  EXPECT_EQ(run("expect show running-config | include vrf red | count == 2"),
            Host::Shell::ExpectationFailed);
}

TEST_F(PipelineTest, APipeInATextIsPartOfIt) {
  EXPECT_EQ(answer("print a | count"), "a | count");
  EXPECT_EQ(answer("brief print a | count"), "a | count");
  EXPECT_EQ(run("expect print a | b == \"a | b\""), Host::Shell::Done) << err.str();
}

TEST_F(PipelineTest, APipeThatACommandHasOfItsOwnStaysItsOwn) {
  bringUp();
  std::string const own = answer("show vxlan forwarding src-mac rewrite | json");
  EXPECT_THAT(own, HasSubstr("vrfs"));
  EXPECT_EQ(answer("show vxlan forwarding src-mac rewrite | json | include vrfs | count"), "1");
}

TEST_F(PipelineTest, HelpAndCommandsOfCommandsAreFiltered) {
  EXPECT_EQ(answer("help | include ^the.language | count"), "1");
  EXPECT_EQ(answer("brief help | count"), answer("help | count"));
}

TEST_F(PipelineTest, AWrongFilterIsRefusedBeforeTheCommandIsCarriedOut) {
  for (auto const* const line :
       {"host vrf red id 7 |", "host vrf red id 7 | shorten", "host vrf red id 7 | count | | count",
        "host vrf red id 7 | count all"}) {
    EXPECT_EQ(run(line), Host::Shell::BadInput) << line;
    EXPECT_THAT(printed("dump inputs"), Not(HasSubstr("red"))) << line;
  }
  EXPECT_EQ(run("show capability | include ["), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("wrong expression ["));
}

TEST_F(PipelineTest, AnAnswerIsSavedToAFile) {
  configure();
  std::string name = (std::filesystem::temp_directory_path() / "pipeline-XXXXXX").string();
  int const file = mkstemp(name.data());
  ASSERT_GE(file, 0);
  close(file);
  EXPECT_EQ(answer("print x"), "x");
  EXPECT_EQ(answer("show running-config | include red | save " + name), name + ": 1 line saved");
  std::ifstream in(name);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}),
            "vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac "
            "02:00:00:00:00:01\n");
  std::filesystem::remove(name);
  EXPECT_EQ(run("show capability | save /dev/full"), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("cannot be written"));
}

}  // namespace
