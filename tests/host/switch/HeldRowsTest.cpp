// SPDX-License-Identifier: Apache-2.0
// What a switch does with its chip's rows when the chip cannot be read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <utility>

#include "framework/driver/ForwardingDriver.h"
#include "framework/log/LogService.h"
#include "host/shell/Shell.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// A chip in memory that is walked or not.
class UnreadableTable final : public Host::HardwareTable {
 public:
  BfnDriver::TableDriver& driver() override { return front_; }
  void portIs(std::string const&, std::optional<Kiv::U16>) override {}
  bool portDel(std::string const&) override { return false; }
  std::vector<std::pair<std::string, Kiv::U64>> counters() override { return {}; }
  void handleEvents() override {}

  void readableIs(bool readable) { front_.readable = readable; }

 private:
  struct Front final : BfnDriver::ForwardingDriver {
    using ForwardingDriver::ForwardingDriver;
    BfnDriver::Status walk(BfnDriver::TableHandle table, BfnDriver::WalkCursor& cursor,
                           std::span<Kiv::U8> keys, std::span<Kiv::U8> actions,
                           size_t& rows) const override {
      if (!readable) return BfnDriver::Status::Error;
      return ForwardingDriver::walk(table, cursor, keys, actions, rows);
    }
    std::string const& lastError() const override {
      static std::string const error = "the bus is down";
      return readable ? ForwardingDriver::lastError() : error;
    }
    bool readable = false;
  };

  BfnChip::ChipModel chip_;
  Front front_{chip_};
};

class HeldRowsTest : public ::testing::Test {
 protected:
  HeldRowsTest() {
    auto table = std::make_unique<UnreadableTable>();
    table_ = table.get();
    host_ = std::make_unique<Host::Switch>(Host::Plugin(LAB_PLUGIN),
                                           Host::SwitchTable{std::move(table), true});
    shell_ = std::make_unique<Host::Shell>(*host_, out_, Host::ShellOptions());
  }

  std::string printed(std::string const& lines) {
    std::istringstream in(lines);
    std::ostringstream err;
    out_.str({});
    EXPECT_EQ(shell_->runStream(in, "case", err), Host::Shell::Done) << err.str();
    return out_.str();
  }

  std::ostringstream out_;
  UnreadableTable* table_ = nullptr;
  std::unique_ptr<Host::Switch> host_;
  std::unique_ptr<Host::Shell> shell_;
};

TEST_F(HeldRowsTest, AreHeldWithTheChipsReasonAndGoInWhenItCanBeRead) {
  printed(
      "host profile routing rewrite supported table-size 1000\n"
      "host use profile routing\n"
      "host agent create\n"
      "host init-tables true\n"
      "host vrf red id 7\n"
      "host routing-status port Ethernet1 key-vlan 0 vlan 1006 vrf-id 7\n"
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n");
  std::string const why = "the chip's rows could not be read: the bus is down";
  EXPECT_THAT(printed("host start true"),
              HasSubstr("\nrows: held as they are in the chip, " + why + '\n'));
  EXPECT_EQ(printed("show reconciler"),
            "1 row wanted, 0 waiting for room, 0 failed\n"
            "the chip's rows are held as they are, " +
                why + '\n');
  std::vector<std::string> texts;
  for (Kiv::LogMessage const& message : Kiv::LogService::recent()) texts.push_back(message.text);
  EXPECT_THAT(texts, ElementsAre(HasSubstr(why)));

  table_->readableIs(true);
  EXPECT_EQ(printed("show reconciler"),
            "1 row wanted, 0 waiting for room, 0 failed\n"
            "the chip's rows are held as they are, " +
                why + '\n');
  EXPECT_EQ(printed("show reconciler"), "1 row wanted, 0 waiting for room, 0 failed\n");
  EXPECT_EQ(printed("expect dump journal == [{\"mac\": \"00:00:00:00:00:00\", \"matchType\": 5, "
                    "\"op\": \"write\", \"result\": \"ok\", \"sip\": \"10.0.0.1\", \"valid\": 1, "
                    "\"vlan\": 1006}]"),
            "");
}

}  // namespace
