// SPDX-License-Identifier: Apache-2.0
// The configuration file, as the program reads it.
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <unistd.h>

#include "tests/daemon/DaemonTest.h"
#include "tests/support/InChild.h"

namespace {

using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

using ConfigurationTest = BfnTest::DaemonTest;

TEST_F(ConfigurationTest, TheConfigurationIsCheckedAsAWhole) {
  std::ofstream(service.file("toml")) << "database = 5\nnonsense = true\n[store]\ndurability = "
                                         "\"never\"\n";
  auto const check = [&] {
    return BfnTest::inChild(STDERR_FILENO, [&] {
      ::execl(SERVICE_PROGRAM, SERVICE_PROGRAM, "--config", service.file("toml").c_str(), "--check",
              static_cast<char*>(nullptr));
      return 127;
    });
  };
  auto const wrong = check();
  EXPECT_TRUE(wrong.exitedWith(2));
  EXPECT_THAT(wrong.text, AllOf(HasSubstr("toml:1: database: expected a string"),
                                HasSubstr("toml:2: there is no option nonsense"),
                                HasSubstr("durability: expected")));
  std::ofstream(service.file("toml")) << "database = \"redis://[\"\ntable = \"wood\"\n"
                                         "writers = [\"no such user\"]\n";
  auto const values = check();
  EXPECT_TRUE(values.exitedWith(2));
  EXPECT_THAT(values.text, AllOf(HasSubstr("table: "), HasSubstr("database: "),
                                 HasSubstr("there is no user no such user")));
  std::ofstream(service.file("toml")) << "trace = 4\n# Zürich\nswitch = \"Z\\u00fcrich\"\n";
  EXPECT_TRUE(check().exitedWith(0));
  for (char const* const text :
       {"trace = 4\nswitch = \"Zürich\"\n", "trace = 4\n\xef\xbb\xb7 = 1\n", "trace = 4\n[",
        "trace = 4\n[a.", "trace = 4\nswitch = \"a"}) {
    std::ofstream(service.file("toml")) << text;
    auto const broken = check();
    EXPECT_TRUE(broken.exitedWith(2)) << text;
    EXPECT_THAT(broken.text, HasSubstr("toml:2: ")) << text;
  }
}

TEST_F(ConfigurationTest, AnEmptyConfigurationHasTheDefaults) {
  std::ofstream(service.file("toml")) << "";
  service.options() = {"--config", service.file("toml")};
  up();
}

TEST_F(ConfigurationTest, AConfigurationThatCannotBeReadIsRefused) {
  for (std::string const& file : {service.file("none"), service.file("")}) {
    auto const tried = BfnTest::inChild(STDERR_FILENO, [&] {
      ::execl(SERVICE_PROGRAM, SERVICE_PROGRAM, "--config", file.c_str(), "--check",
              static_cast<char*>(nullptr));
      return 127;
    });
    EXPECT_TRUE(tried.exitedWith(2)) << file;
    EXPECT_THAT(tried.text, HasSubstr(file)) << file;
  }
}

TEST_F(ConfigurationTest, OptionsInForceAreAConfiguration) {
  up();
  std::ofstream(service.file("toml")) << service.text("show options") << '\n';
  service.stop(SIGTERM);
  service.options() = {"--config", service.file("toml")};
  service.start();
  EXPECT_EQ(service.answer("show options")["switch"], "leaf1");
  std::ostringstream before;
  before << std::ifstream(service.file("toml")).rdbuf();
  EXPECT_EQ(service.text("show options") + '\n', before.str());
}

}  // namespace
