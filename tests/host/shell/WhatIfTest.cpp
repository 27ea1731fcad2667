// SPDX-License-Identifier: Apache-2.0
#include "host/shell/WhatIf.h"

#include <atomic>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <utility>

#include "framework/core/AddressSanitizer.h"
#include "framework/driver/ForwardingDriver.h"
#include "host/dumps/Dumps.h"
#include "host/fork/ForkedTask.h"
#include "tests/host/shell/ShellFixture.h"
#include "tests/support/Seed.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

nlohmann::json tried(Host::Shell& shell, std::string const& lines) {
  return Host::whatIf(shell, [&](Host::Shell& copy, std::ostream& errors) {
    std::istringstream in(lines);
    copy.runStream(in, "tried", errors);
  });
}

class WhatIfTest : public BfnTest::ShellFixture {
 protected:
  WhatIfTest() {
    bringUp();
    printed(
        "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
        "vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:01\n"
        "dump journal\n");
  }
};

TEST_F(WhatIfTest, ItSaysWhichRowsWouldComeGoAndChange) {
  auto const result = tried(
      shell,
      "host address 10.0.0.2 vrf-id 7 interface Ethernet1\n"
      "vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:09\n");
  EXPECT_EQ(R"([{"mac":"00:00:00:00:00:00","sip":"10.0.0.2","vlan":1006}])",
            result["added"].dump());
  EXPECT_EQ(
      R"([{"mac":"02:00:00:00:00:09","sip":"10.0.0.1","vlan":1006,"was":"02:00:00:00:00:01"}])",
      result["changed"].dump());
  EXPECT_EQ("[]", result["removed"].dump());
  EXPECT_EQ("[]", result["waiting"].dump());
  EXPECT_EQ(Host::whatIfAnswer(result, "f").text,
            "VLAN  Source IP        Now                Then\n"
            "1006  10.0.0.2         -                  00:00:00:00:00:00\n"
            "1006  10.0.0.1         02:00:00:00:00:01  02:00:00:00:00:09\n"
            "1 row added, 0 removed, 1 changed, 0 waiting");
  EXPECT_EQ(printed("dump journal"), "[]\n");
}

TEST_F(WhatIfTest, ADeathIsThatOfTheCopyAndNamesTheLine) {
  auto const result = tried(shell,
                            "host vrf blue id 8\n"
                            "host vrf red id 8\n");
  EXPECT_EQ("tried:2", result["dies"]["line"]);
  EXPECT_EQ("host vrf red id 8", result["dies"]["command"]);
  EXPECT_EQ("Failed(!localVrfNameToIdHas( vrfName )) vrfId for red changed from 7 to 8",
            result["dies"]["text"]);
  EXPECT_EQ(Host::whatIfAnswer(result, "f").text,
            "f: the agent would die at tried:2\n"
            "  host vrf red id 8\n"
            "  Failed(!localVrfNameToIdHas( vrfName )) vrfId for red changed from 7 to 8");
  EXPECT_THAT(printed("dump inputs"), Not(HasSubstr("blue")));
}

TEST_F(WhatIfTest, ARefusedLineEndsItAndIsNamed) {
  auto const result = tried(shell,
                            "no host address 10.0.0.1 vrf-id 7\n"
                            "host nothing\n");
  EXPECT_THAT(result["error"].get<std::string>(), StartsWith("tried:2: error: expected"));
  EXPECT_EQ(1u, result["removed"].size());
  EXPECT_THAT(Host::whatIfAnswer(result, "f").text,
              StartsWith("f: refused, what follows is up to there\n  tried:2: error: expected"));
}

TEST_F(WhatIfTest, LinesThatWriteFilesAreRefused) {
  for (char const* const line :
       {"show chip | save rows.txt", "expect show chip | save rows.txt == 1",
        "generate scale . vrfs 1 rows 1", "packets a.pcap b.pcap", "measure what-if f"}) {
    EXPECT_THAT(tried(shell, line)["error"].dump(), HasSubstr("a what-if ")) << line;
  }
}

TEST_F(WhatIfTest, NothingOfItIsPrinted) {
  out.str({});
  tried(shell, "print loud\nchip capacity 0\nhost address 10.0.0.2 vrf-id 7 interface Ethernet1\n");
  EXPECT_EQ("", out.str());
}

// --- A table outside of the process

/// Counts the calls in memory that a forked process shares.
class CountedTable final : public Host::HardwareTable {
 public:
  explicit CountedTable(std::atomic<int>& calls) : driver_(chip_, calls), calls_(calls) {}

  BfnDriver::TableDriver& driver() override { return driver_; }
  void portIs(std::string const&, std::optional<Kiv::U16>) override { ++calls_; }
  bool portDel(std::string const&) override { return ++calls_ > 0; }
  std::vector<std::pair<std::string, Kiv::U64>> counters() override {
    ++calls_;
    return {};
  }
  void handleEvents() override { ++calls_; }

 private:
  class Counted final : public BfnDriver::ForwardingDriver {
   public:
    Counted(BfnDriver::TableDriver& next, std::atomic<int>& calls)
        : ForwardingDriver(next), calls_(calls) {}

    std::optional<BfnDriver::TableHandle> open(BfnDriver::TableAddress const& address) override {
      ++calls_;
      return next().open(address);
    }
    BfnDriver::WriteResult write(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                                 BfnDriver::ByteView action) override {
      ++calls_;
      return next().write(table, key, action);
    }
    BfnDriver::EraseResult erase(BfnDriver::TableHandle table, BfnDriver::ByteView key) override {
      ++calls_;
      return next().erase(table, key);
    }
    void apply(BfnDriver::TableHandle table, std::span<BfnDriver::Change const> changes,
               std::span<BfnDriver::Status> results) override {
      ++calls_;
      next().apply(table, changes, results);
    }
    BfnDriver::Status readRow(BfnDriver::TableHandle table, BfnDriver::ByteView key,
                              std::span<Kiv::U8> action) const override {
      ++calls_;
      return next().readRow(table, key, action);
    }
    BfnDriver::Status walk(BfnDriver::TableHandle table, BfnDriver::WalkCursor& cursor,
                           std::span<Kiv::U8> keys, std::span<Kiv::U8> actions,
                           size_t& rows) const override {
      ++calls_;
      return next().walk(table, cursor, keys, actions, rows);
    }
    void turnEnded() override { ++calls_; }

   private:
    std::atomic<int>& calls_;
  };

  BfnChip::ChipModel chip_{100};
  Counted driver_;
  std::atomic<int>& calls_;
};

class WhatIfOutsideTest : public ::testing::TestWithParam<bool> {};

TEST_P(WhatIfOutsideTest, TheCopyReachesNeitherTheTableNorItsDevices) {
  void* const shared = ::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(MAP_FAILED, shared);
  auto& calls = *new (shared) std::atomic<int>(0);
  {
    std::ostringstream out;
    Host::Switch host(Host::Plugin(LAB_PLUGIN),
                      {std::make_unique<CountedTable>(calls), GetParam()});
    Host::Shell shell(host, out);
    std::istringstream lines(
        "host profile routing rewrite supported table-size 1000\n"
        "host use profile routing\n"
        "host agent create\n"
        "host init-tables true\n"
        "host start true\n"
        "host routing-status port Ethernet1 key-vlan 0 vlan 1006 vrf-id 7\n"
        "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n");
    std::ostringstream err;
    ASSERT_EQ(Host::Shell::Done, shell.runStream(lines, "case", err)) << err.str();
    EXPECT_GT(calls, 0);

    // Only the copying itself reads the table, whatever is tried.
    calls = 0;
    EXPECT_EQ(nullptr, tried(shell, "print nothing\n")["error"]);
    int const copying = calls;
    calls = 0;
    auto const result = tried(shell,
                              "host address 10.0.0.2 vrf-id 7 interface Ethernet1\n"
                              "chip port vx100 vlan 100\n"
                              "no chip port vx100\n"
                              "chip counters\n"
                              "show chip\n"
                              "explain vrf-id 7 src-ip 10.0.0.1\n"
                              "host agent destroy\n"
                              "host agent create\n"
                              "host init-tables false\n"
                              "host start false\n"
                              "no host address 10.0.0.1 vrf-id 7\n");
    EXPECT_EQ(copying, calls);
    EXPECT_EQ(nullptr, result["error"]);
    EXPECT_EQ(1u, result["added"].size());
    EXPECT_EQ(1u, result["removed"].size());
    EXPECT_EQ(1u, Host::chipRows(host).size());
  }
  ::munmap(shared, sizeof(std::atomic<int>));
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutReconciler, WhatIfOutsideTest, ::testing::Bool());

// --- Random files

using Random = std::mt19937_64;

std::string randomLine(Random& random) {
  auto const one = [&](auto... choices) {
    std::string const all[] = {choices...};
    return all[random() % sizeof...(choices)];
  };
  std::string const ip = "10.0.0." + std::to_string(random() % 6);
  std::string const vrf = one("red", "blue");
  std::string const id = vrf == "red" ? "7" : "8";
  std::string const intf = "Ethernet" + std::to_string(1 + random() % 2);
  switch (random() % 10) {
    case 0:
    case 1:
      return "vxlan forwarding match vrf " + vrf + " src-ip " + ip +
             " action rewrite src-mac 02:00:00:00:00:0" + std::to_string(random() % 9);
    case 2:
      return "no vxlan forwarding match vrf " + vrf + " src-ip " + ip;
    case 3:
    case 4:
      return "host address " + ip + " vrf-id " + id + " interface " + intf + one("", "", " self");
    case 5:
      return "no host address " + ip + " vrf-id " + id;
    case 6:
      return "host routing-status port " + intf + " key-vlan 0 vlan " + one("100", "200", "5000") +
             " vrf-id " + id;
    case 7:
      return "no host routing-status port " + intf + " key-vlan 0";
    case 8:
      return "host route vrf " + vrf + " vrf-id " + id + " forwarding-vlan " +
             one("0", "300", "400");
    default:
      return one("host vrf ", "no host vrf ") + vrf + (random() % 2 == 0 ? " id " + id : "");
  }
}

using Rows = std::map<std::pair<int, std::string>, std::string>;

Rows rowsOf(nlohmann::json const& list) {
  Rows rows;
  for (auto const& row : list) {
    rows[{row["vlan"].get<int>(), row["sip"].get<std::string>()}] = row["mac"].get<std::string>();
  }
  return rows;
}

class WhatIfRandomTest : public BfnTest::ShellFixture, public ::testing::WithParamInterface<bool> {
 protected:
  WhatIfRandomTest() : ShellFixture({}, GetParam()) { bringUp(); }

  using Status = Host::Shell::Status;

  Status load(std::string const& lines) {
    std::istringstream in(lines);
    err.str({});
    return shell.runStream(in, "tried", err);
  }

  bool died(std::string const& lines) {
    auto task = Host::ForkedTask::start([&](int) {
      load(lines);
      return 0;
    });
    std::string text;
    return task.finish(std::chrono::minutes(1), text).signal == SIGABRT;
  }
};

TEST_P(WhatIfRandomTest, WhatItSaysOfRandomFilesIsWhatLoadingThemDoes) {
#ifdef KIV_ADDRESS_SANITIZER
  constexpr int kFiles = 40;
#else
  constexpr int kFiles = 300;
#endif
  Kiv::U32 const seed = BfnTest::testSeed();
  Random random(seed);
  int deaths = 0;
  int changes = 0;
  int errors = 0;
  printed("chip capacity 4");
  for (int file = 0; file < kFiles && !HasFailure(); ++file) {
    std::string lines;
    for (auto left = 1 + random() % 8; left > 0; --left) lines += randomLine(random) + '\n';
    SCOPED_TRACE("seed " + std::to_string(seed) + ", file " + std::to_string(file) + ":\n" + lines);
    Rows expected = rowsOf(Host::dumpChip(host));
    nlohmann::json const result = tried(shell, lines);
    if (!result["dies"].is_null()) {
      ++deaths;
      EXPECT_TRUE(died(lines));
      EXPECT_EQ(expected, rowsOf(Host::dumpChip(host)));
      continue;
    }
    for (auto const& [row, mac] : rowsOf(result["removed"])) EXPECT_EQ(mac, expected[row]);
    for (auto const& [row, mac] : rowsOf(result["removed"])) expected.erase(row);
    for (auto const& [row, mac] : rowsOf(result["added"])) {
      EXPECT_TRUE(expected.emplace(row, mac).second);
    }
    for (auto const& row : result["changed"]) {
      std::pair const key(row["vlan"].get<int>(), row["sip"].get<std::string>());
      EXPECT_EQ(row["was"], expected[key]);
      expected[key] = row["mac"].get<std::string>();
    }
    changes += result["added"].size() + result["removed"].size() + result["changed"].size() > 0;
    errors += !result["error"].is_null();
    load(lines);
    EXPECT_EQ(err.str().empty(), result["error"].is_null()) << err.str();
    EXPECT_EQ(expected, rowsOf(Host::dumpChip(host)));
  }
  EXPECT_GT(deaths, 0);
  EXPECT_GT(changes, 0);
  EXPECT_GT(errors, 0);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutReconciler, WhatIfRandomTest, ::testing::Bool());

}  // namespace
