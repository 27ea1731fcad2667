// SPDX-License-Identifier: Apache-2.0
#include "host/prompt/SessionLog.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <system_error>

namespace {

using ::testing::ElementsAre;
using ::testing::Optional;

class SessionLogTest : public ::testing::Test {
 protected:
  SessionLogTest() {
    std::string name = (std::filesystem::temp_directory_path() / "session-XXXXXX").string();
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    folder = name;
  }
  ~SessionLogTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }

  std::filesystem::path folder;
};

TEST_F(SessionLogTest, ASessionThatEndedLeavesNothing) {
  {
    Host::SessionLog log(folder / "log");
    log.add("print one");
    log.end();
  }
  Host::SessionLog const log(folder / "log");
  EXPECT_FALSE(log.unfinished());
  EXPECT_THAT(log.lines(), ElementsAre());
}

TEST_F(SessionLogTest, TheLinesOfASessionThatDidNotEndAreKept) {
  {
    Host::SessionLog log(folder / "log");
    log.add("print one");
    log.add("shutdown");
    log.refused();
    log.add("print two");
  }
  Host::SessionLog log(folder / "log");
  ASSERT_TRUE(log.unfinished());
  EXPECT_THAT(log.unfinished()->lines, ElementsAre("print one", "print two"));
  EXPECT_TRUE(std::filesystem::exists(log.unfinished()->file));
  EXPECT_THAT(log.lines(), ElementsAre());
  log.end();
  // Offered once.
  EXPECT_FALSE(Host::SessionLog(folder / "other").unfinished());
}

TEST_F(SessionLogTest, AFileBelongsToOneSessionAtATime) {
  auto first = Host::SessionLog::inFolder(folder);
  auto second = Host::SessionLog::inFolder(folder);
  ASSERT_TRUE(first);
  ASSERT_TRUE(second);
  EXPECT_NE(first->file(), second->file());
  EXPECT_THROW(Host::SessionLog{first->file()}, std::system_error);
  first->add("print one");
  EXPECT_THAT(first->lines(), ElementsAre("print one"));
}

TEST_F(SessionLogTest, AFileThatCannotBeWrittenIsAnError) {
  EXPECT_THROW(Host::SessionLog(folder / "no" / "log"), std::system_error);
  EXPECT_FALSE(Host::SessionLog::inFolder(folder / "no"));
}

TEST_F(SessionLogTest, ReadableByItsOwnerOnly) {
  Host::SessionLog const log(folder / "log");
  EXPECT_EQ(std::filesystem::status(folder / "log").permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

}  // namespace
