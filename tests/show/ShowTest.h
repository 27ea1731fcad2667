// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "framework/core/Clock.h"
#include "show/ShowMacRewriteCommandRequestSm.h"
#include "tests/support/PluginTest.h"

namespace BfnTest {

/// A clock on which each reading takes a second. A command with a run time of n seconds therefore
/// ends its slices at every n-th look at the time.
class TickClock final : public Kiv::Clock {
 public:
  double now() const override {
    ++readings;
    return static_cast<double>(readings);
  }
  mutable Kiv::U64 readings = 0;
};

/// What a show command is asked for; null: no such filter.
struct ShowOptions {
  char const* vrf = nullptr;
  char const* sip = nullptr;
  char const* smac = nullptr;
  bool cliTesting = false;
  double maxRunTime = 1e9;
  Kiv::U32 format = 0;
};

/// A test with a host whose agent is up, VRFs with one interface each, and commands on them.
class ShowTest : public PluginTest {
 protected:
  using Sm = BfnMacRewrite::ShowMacRewriteCommandRequestSm;
  using Key = BfnMacRewrite::Agent::IpAndIntfId;

  static constexpr char const* kHeader =
      "\n"
      "VRF name        Source IP            Source MAC          \n"
      "------------------------------------------------------------\n";

  void SetUp() override { host.bringUp(); }
  void TearDown() override {
    clock.reset();
    PluginTest::TearDown();
  }

  /// A VRF and a routed port in it, "Ethernet<id>" on VLAN 100 + id.
  void vrf(std::string const& name, unsigned id) {
    host.vrf(name.c_str(), id);
    host.port(intfOf(id).c_str(), 100 + id, id);
  }
  static std::string intfOf(unsigned id) { return "Ethernet" + std::to_string(id); }
  /// A row in the chip. The MAC is the VRF's own for that address.
  void row(std::string const& vrfName, unsigned id, std::string const& ipText,
           std::string const& macText) {
    host.rewrite(vrfName.c_str(), ipText.c_str(), macText.c_str());
    host.address(id, ipText.c_str(), intfOf(id).c_str());
  }
  /// VRFs blue and red, with two addresses each.
  void blueAndRed() {
    vrf("red", 1);
    vrf("blue", 2);
    row("red", 1, "10.0.0.2", "02:00:00:00:01:02");
    row("red", 1, "10.0.0.1", "02:00:00:00:01:01");
    row("blue", 2, "10.0.0.2", "02:00:00:00:02:02");
    row("blue", 2, "10.0.0.1", "02:00:00:00:02:01");
  }
  static std::string blueAndRedText() {
    return std::string(kHeader) + line("blue", "10.0.0.1", "02:00:00:00:02:01") +
           line("blue", "10.0.0.2", "02:00:00:00:02:02") +
           line("red", "10.0.0.1", "02:00:00:00:01:01") +
           line("red", "10.0.0.2", "02:00:00:00:01:02") + "\n";
  }

  /// One line of the listing, put together column by column.
  static std::string line(std::string const& vrfName, std::string const& ipText,
                          std::string const& macText) {
    return column(vrfName, 15) + " " + column(ipText, 20) + " " + column(macText, 20) + "\n";
  }
  static std::string column(std::string text, size_t width) {
    if (text.size() < width) text.resize(width, ' ');
    return text;
  }

  BfnMacRewrite::OverlaySrcMacRewriteManager& manager() {
    return *host.agent->overlaySrcMacRewriteManager();
  }
  /// The records' keys in the order in which a command walks them.
  std::vector<Key> walkOrder() {
    std::vector<Key> keys;
    for (auto const& record : manager().matchSpecAndRefCount())
      keys.push_back(record->ipAndIntfId());
    return keys;
  }

  /// A command whose output goes to `received`, which starts empty. No trace before it counts.
  Kiv::Ptr<Sm> command(ShowOptions const& options = {}) {
    return command(options, host.agent->overlaySrcMacRewriteManager());
  }
  Kiv::Ptr<Sm> command(ShowOptions const& options,
                       Kiv::Ptr<BfnMacRewrite::OverlaySrcMacRewriteManager> const& tables) {
    received.clear();
    TraceCapture::clear();
    return BfnMacRewrite::showMacRewriteCommandRequestSmFactory(
        "show", request(options.format), options.maxRunTime, clock, tables, options.vrf != nullptr,
        options.vrf == nullptr ? L3::VrfName() : L3::VrfName(options.vrf), options.sip != nullptr,
        options.sip == nullptr ? Ovra::IpAddr() : ip(options.sip), options.smac != nullptr,
        options.smac == nullptr ? Ovra::EthAddr() : mac(options.smac), options.cliTesting);
  }
  Kiv::Ptr<::Agent::AgentCommandRequest const> request(Kiv::U32 format = 0) {
    return Kiv::make<::Agent::AgentCommandRequest const>(7u, format, [this](std::string_view text) {
      received += text;
      return text.size();
    });
  }

  /// Runs a command to its end; the number of slices. `between` is called before each slice but the
  /// first.
  static unsigned run(Kiv::Ptr<Sm> const& sm, std::function<void()> const& between = nullptr) {
    for (unsigned slices = 1; slices < 100'000; ++slices) {
      auto const result = sm->runSlice();
      if (result == ::Agent::SliceResult::Completed) return slices;
      EXPECT_EQ(result, ::Agent::SliceResult::Again);
      if (between) between();
    }
    ADD_FAILURE() << "no end";
    return 0;
  }
  /// The whole output of such a command.
  std::string shown(ShowOptions const& options = {}) {
    run(command(options));
    return received;
  }
  /// The number of looks at the clock in one slice of a command that is driven by hand.
  Kiv::U64 looksOfSlice(Kiv::Ptr<Sm> const& sm) {
    Kiv::U64 const before = clock->readings;
    sm->handleAsyncCommand(7, 0);
    return clock->readings - before;
  }
  /// A printer for a command that is driven by hand.
  void printerIs(Kiv::Ptr<Sm> const& sm) {
    sm->prettyoutPrinterIs(
        Kiv::make<prettyout::Printer>(prettyout::Format::Text, size_t{65'536}, request()->sink()));
  }

  Kiv::Ptr<TickClock> clock = Kiv::make<TickClock>();
  std::string received;
};

}  // namespace BfnTest
