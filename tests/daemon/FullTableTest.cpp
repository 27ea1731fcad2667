// SPDX-License-Identifier: Apache-2.0
// More rows are wanted than the kernel's table takes. BFN_FULL_TABLE=long: 70,000 on 65,536.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <optional>
#include <random>
#include <string_view>

#include "tests/daemon/KernelRows.h"
#include "tests/daemon/ServiceProcess.h"
#include "tests/kernel/KernelFixture.h"
#include "tests/support/Seed.h"

namespace {

using BfnTest::KernelRows;
using BfnTest::RowBytes;
using nlohmann::json;
using std::chrono::duration;
using std::chrono::steady_clock;

struct Size {
  size_t rows;
  unsigned wanted;
  unsigned events;
  unsigned restarts;
  unsigned refills;
};

bool isLong() {
  char const* const given = std::getenv("BFN_FULL_TABLE");
  return given != nullptr && std::string_view(given) == "long";
}

std::string addressOf(unsigned number) {
  return "10." + std::to_string(number / 65536) + '.' + std::to_string(number / 256 % 256) + '.' +
         std::to_string(number % 256);
}

// A MAC by its last byte.
std::string macOf(unsigned number) {
  return "02:00:00:00:00:0" + std::to_string(number);
}

// The MAC in a row's action: two numbers of three bytes, each the least byte first.
std::string macIn(RowBytes const& action) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", action[2], action[1], action[0],
                action[6], action[5], action[4]);
  return text;
}

class FullTableTest : public BfnTest::KernelFixture {
 protected:
  Size const size =
      isLong() ? Size{65'536, 70'000, 1'000'000, 100, 1000} : Size{500, 600, 4000, 4, 20};
  unsigned const seed = BfnTest::testSeed();
  std::mt19937 random{seed};
  BfnTest::ServiceProcess service;

  // What an address of this test has: nothing when it is not there.
  struct Address {
    std::optional<unsigned> line;  // the operator's
    std::optional<unsigned> row;   // 0: all-zero; a line that is removed leaves its row
  };
  std::vector<Address> addresses{size.wanted + size.wanted / 20};

  unsigned below(size_t bound) { return static_cast<unsigned>(random() % bound); }

  std::string putAddress(unsigned number) {
    Address& address = addresses[number];
    if (!address.row) address.row = address.line.value_or(0);
    return BfnTest::addressLine(addressOf(number));
  }
  std::string dropAddress(unsigned number) {
    addresses[number].row.reset();
    return "no host address " + addressOf(number) + " vrf-id 7";
  }
  std::string putLine(unsigned number, unsigned mac) {
    Address& address = addresses[number];
    address.line = mac;
    if (address.row) address.row = mac;
    return BfnTest::rewriteLine(addressOf(number), macOf(mac));
  }
  std::string dropLine(unsigned number) {
    addresses[number].line.reset();
    return "no vxlan forwarding match vrf red src-ip " + addressOf(number);
  }
  // About as many addresses come as go: there are always more than rows.
  std::string anEvent() {
    unsigned const number = below(addresses.size());
    switch (below(4)) {
      case 0:
        return addresses[number].line ? dropLine(number) : putLine(number, 1 + below(9));
      case 1:
        return putLine(number, 1 + below(9));
      default:
        if (!addresses[number].row) return putAddress(number);
        return present() > size.wanted - size.wanted / 50 ? dropAddress(number)
                                                          : putLine(number, 1 + below(9));
    }
  }
  size_t present() const { return present_; }
  void count() {
    present_ = static_cast<size_t>(
        std::ranges::count_if(addresses, [](Address const& a) { return a.row.has_value(); }));
  }

  void carryOut(size_t count_, auto const& line) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < count_; ++i) {
      lines.push_back(line(static_cast<unsigned>(i)));
      if (lines.size() == 400 || i + 1 == count_) {
        service.lines(lines);
        lines.clear();
        count();
      }
    }
  }

  void SetUp() override {
    KernelFixture::SetUp();
    if (IsSkipped()) return;
    service.options() = {"--table", "kernel:" + directory().string(), "--rows",
                         std::to_string(size.rows)};
    service.start();
    service.lines(BfnTest::bringUpLines(65'535));
    ASSERT_TRUE(service.reaches("running")) << service.log();
    carryOut(size.wanted, [this](unsigned i) { return putLine(i, 1 + below(9)); });
    carryOut(size.wanted, [this](unsigned i) { return putAddress(i); });
  }

  KernelRows rows() const { return BfnTest::rowsInTheKernel(directory()); }

  // The table is full of wanted rows, and what it does not hold is named as waiting.
  void expectFull() {
    count();
    KernelRows const there = rows();
    ASSERT_EQ(there.size(), size.rows);
    std::vector<bool> installed(addresses.size());
    for (auto const& [key, value] : there) {
      unsigned const number = (unsigned{key[4]} << 16U) + (unsigned{key[5]} << 8U) + key[6];
      ASSERT_LT(number, addresses.size());
      installed[number] = true;
      ASSERT_TRUE(addresses[number].row) << addressOf(number);
      ASSERT_EQ(macIn(value),
                *addresses[number].row == 0 ? "00:00:00:00:00:00" : macOf(*addresses[number].row))
          << addressOf(number);
    }
    json const status = service.status();
    EXPECT_EQ(status["rows"]["wanted"], present());
    EXPECT_EQ(status["rows"]["waiting"], present() - size.rows);
    json const waiting = service.answer("dump waiting");
    EXPECT_EQ(waiting.size(), present() - size.rows);
    for (json const& row : waiting) {
      unsigned a = 0;
      unsigned b = 0;
      unsigned c = 0;
      ASSERT_EQ(std::sscanf(row["sip"].get<std::string>().c_str(), "10.%u.%u.%u", &a, &b, &c), 3);
      unsigned const number = (a << 16U) + (b << 8U) + c;
      ASSERT_LT(number, addresses.size());
      EXPECT_FALSE(installed[number]) << row;
      EXPECT_TRUE(addresses[number].row) << row;
    }
  }

 private:
  size_t present_ = 0;
};

TEST_F(FullTableTest, WhatDoesNotFitIsNamedAsWaiting) {
  expectFull();
  EXPECT_EQ(service.status()["rows"]["waiting"], size.wanted - size.rows);
}

TEST_F(FullTableTest, EventsOverAFullTableEndInTheWantedRows) {
  SCOPED_TRACE("BFN_TEST_SEED=" + std::to_string(seed));
  carryOut(size.events, [this](unsigned) { return anEvent(); });
  expectFull();
  EXPECT_EQ(service.status()["deaths"], 0);
}

TEST_F(FullTableTest, AFreedRowIsFilledAgain) {
  std::vector<double> milliseconds;
  for (unsigned i = 0; i < size.refills; ++i) {
    // An address whose row is installed.
    auto const there = service.answer("explain row vlan 1006 src-ip " + addressOf(i));
    if (!there.contains("row") || there["row"].is_null()) continue;
    auto const started = steady_clock::now();
    service.ask(dropAddress(i));
    while (service.status()["rows"]["installed"] != size.rows) {
      ASSERT_LT(steady_clock::now() - started, std::chrono::seconds(60));
    }
    milliseconds.push_back(duration<double, std::milli>(steady_clock::now() - started).count());
    service.ask(putAddress(i));
  }
  ASSERT_FALSE(milliseconds.empty());
  expectFull();
  std::ranges::sort(milliseconds);
  std::cout << "a freed row is filled again within " << milliseconds[milliseconds.size() / 2]
            << " ms (median), " << milliseconds.back() << " ms (longest) of " << milliseconds.size()
            << '\n';
}

TEST_F(FullTableTest, ARestartChangesNoMemberOfAFullTable) {
  KernelRows const before = rows();
  std::vector<double> seconds;
  for (unsigned i = 0; i < size.restarts; ++i) {
    service.stop(SIGKILL);
    auto const started = steady_clock::now();
    service.start();
    ASSERT_TRUE(service.reaches("running")) << service.log();
    seconds.push_back(duration<double>(steady_clock::now() - started).count());
    ASSERT_EQ(rows(), before) << "restart " << i;
  }
  expectFull();
  std::ranges::sort(seconds);
  std::cout << "running again after " << seconds[seconds.size() / 2] << " s (median)\n";
}

}  // namespace
