// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <exception>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/faults/Long.h"
#include "tests/faults/Scene.h"
#include "tests/support/InChild.h"
#include "tests/support/Watcher.h"

// Foreign reactors are on everything that the agent touches, before and after its own in each list,
// and on the chip. In the middle of every event, at each of their calls in turn, they make another
// change. The outcome must be that of the two events one after the other, in one order or the
// other, or it is pinned in foreign-outcomes.txt. There must be no memory error in any case.
//
// BFN_FAULTS=long in the environment takes all cases; without it a share of them: of every event
// each second change, at one of its calls, and of these those that takesCase() says.
// BFN_FAULTS=write writes foreign-outcomes.txt again, in the working directory.
namespace {

using BfnTest::FaultEvent;
using BfnTest::Scene;
using BfnTest::Stage;
using BfnTest::Watcher;

constexpr int kSize = 3;

// Reactors on everything; calls `then` at every notification, with the number of calls before.
class Foreign {
 public:
  void watch(char const* name, Kiv::Ptr<Kiv::PtrInterface const> const& object) {
    if (!object) return;
    auto const watcher = Kiv::makeActive<Watcher>(object);
    watcher->then = [this, name] { called(name); };
    watchers_.push_back(watcher);
  }
  void called(char const* name) {
    size_t const number = calls_.size() + 1;
    calls_.emplace_back(name);
    if (then && number == at) then();
  }
  void clear() {
    then = nullptr;
    watchers_.clear();
    calls_.clear();
  }
  std::vector<std::string> const& calls() const { return calls_; }

  /// Called once, at the call of that number.
  std::function<void()> then;
  size_t at = 0;

 private:
  std::vector<std::string> calls_;  // outlives the watchers: what they hold notifies when it goes
  std::vector<Kiv::Ptr<Watcher>> watchers_;
};

void watchInputs(Foreign& foreign, Scene& scene) {
  auto& host = scene.host;
  foreign.watch("output", host.l3Shared->bfnL3Output());
  foreign.watch("VRFs", host.l3Status);
  foreign.watch("ports", host.ports);
  foreign.watch("VLANs", host.vlans);
  foreign.watch("sub-interfaces", host.subIntfs);
  foreign.watch("route status", host.routeStatus);
  foreign.watch("route status of red",
                Kiv::Ptr<Kiv::PtrInterface const>(host.routeStatus->vrfStatus(L3::VrfName("red"))));
  foreign.watch("lines", host.cliConfig);
  foreign.watch("addresses", host.mount->bfnMacRewriteAgentStatus());
  foreign.watch("agent's configuration", host.mount->bfnMacRewriteAgentConfig());
}

void watchAll(Foreign& foreign, Scene& scene) {
  watchInputs(foreign, scene);
  auto& host = scene.host;
  foreign.watch("addresses of red",
                Kiv::Ptr<Kiv::PtrInterface const>(
                    host.mount->bfnMacRewriteAgentStatus()->vrfStatus(Pex::VrfId(7))));
  foreign.watch("agent's configuration of red",
                Kiv::Ptr<Kiv::PtrInterface const>(
                    host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewrite(Pex::VrfId(7))));
  foreign.watch("merged routing status", host.agent->intfIdToRoutingStatus());
  foreign.watch("manager", host.agent->overlaySrcMacRewriteManager());
  foreign.watch("table status",
                host.agent->overlaySrcMacRewriteManager()->overlaySrcMacRewriteTable()->status());
  foreign.watch("declared tables", host.profileEntry->tableList());
  scene.driver.then = [&foreign] { foreign.called("chip"); };
}

// A scene that runs, with foreign reactors on it.
struct Stand {
  Foreign foreign;
  std::unique_ptr<Scene> scene = std::make_unique<Scene>(
      kSize, Stage::Running, [this](Scene& made) { watchInputs(foreign, made); });

  Stand() { watchAll(foreign, *scene); }
};

std::string thrownBy(FaultEvent const& event, Scene& scene) {
  try {
    event.run(scene);
  } catch (std::exception const& exception) {
    return event.name + std::string(" throws ") + exception.what() + "\n";
  }
  return "";
}

std::string looked(Stand& stand) {
  stand.foreign.clear();
  std::string text;
  for (std::string const& line : stand.scene->look()) text += line + '\n';
  return text;
}

// The child's end of a case, or how it ended otherwise.
template <class Body>
std::string outcome(Body const& body) {
  std::cout.flush();
  BfnTest::ChildEnd const end = BfnTest::inChild(STDOUT_FILENO, [&] {
    ::dup2(STDOUT_FILENO, STDERR_FILENO);
    ::alarm(60);
    std::string const text = body();
    std::cout << text << std::flush;
    return 0;
  });
  if (end.exitedWith(0)) return end.text;
  // The condition and the explanation of a fatal check, without the addresses of this process.
  size_t const from = end.text.find("Failed(");
  if (from == std::string::npos) return "dies: " + end.text;
  return "dies: " + end.text.substr(from, end.text.find(')', from) + 1 - from);
}

bool dies(std::string const& text) {
  return text.starts_with("dies: ");
}

struct Case {
  FaultEvent const& event;
  FaultEvent const& change;
  size_t at;
};

std::string runCase(Stand& stand, Case const& each) {
  return outcome([&] {
    stand.foreign.then = [&] { thrownBy(each.change, *stand.scene); };
    stand.foreign.at = stand.foreign.calls().size() + each.at;
    thrownBy(each.event, *stand.scene);
    std::string text = looked(stand);
    stand.scene.reset();
    return text;
  });
}

std::string runBoth(Stand& stand, FaultEvent const& first, FaultEvent const& second) {
  return outcome([&] {
    thrownBy(first, *stand.scene);
    thrownBy(second, *stand.scene);
    std::string text = looked(stand);
    stand.scene.reset();
    return text;
  });
}

std::vector<std::string> callsOf(Stand& stand, FaultEvent const& event) {
  std::string const text = outcome([&] {
    size_t const before = stand.foreign.calls().size();
    thrownBy(event, *stand.scene);
    std::string names;
    for (size_t i = before; i < stand.foreign.calls().size(); ++i) {
      names += stand.foreign.calls()[i] + '\n';
    }
    return names;
  });
  std::vector<std::string> calls;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) calls.push_back(line);
  return calls;
}

// Events of several steps have more orders than two.
bool isOneStep(FaultEvent const& event) {
  static char const* const kSeveral[] = {
      "stage 2 with another manager",
      "a VRF with lines comes",
      "a VRF goes and returns",
      "a VRF goes and returns with another id",
      "an interface of waiting addresses comes",
      "an interface goes and returns",
      "an address with its line comes",
      "an address becomes an own one",
      "an address goes and returns",
  };
  return std::ranges::find(kSeveral, std::string_view(event.name)) == std::end(kSeveral);
}

bool isChange(FaultEvent const& event) {
  static char const* const kChanges[] = {
      "the agent goes",
      "stage 1 with another entry",
      "stage 2 again",
      "stage 2 with another configuration",
      "a VRF goes",
      "a VRF goes and returns",
      "an interface goes",
      "an interface goes and returns",
      "a forwarding VLAN changes",
      "a route status goes",
      "an address comes",
      "an own address comes",
      "an address goes",
      "an address goes and returns",
      "all addresses of a VRF go",
      "the status of a VRF goes",
      "a line comes",
      "a line goes",
      "all lines go",
      "the agent's configuration of a VRF goes",
  };
  return std::ranges::find(kChanges, std::string_view(event.name)) != std::end(kChanges);
}

// The pairs of an event and a change in its middle that end otherwise than one after the other,
// each with the worst of its ends: "<event> | <change>" to "neither order" or "dies: <condition>".
using Ends = std::map<std::string, std::string>;

Ends pinned() {
  Ends ends;
  std::ifstream file(BFN_FOREIGN_OUTCOMES);
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    size_t const at = line.rfind(" | ");
    ends[line.substr(0, at)] = line.substr(at + 3);
  }
  return ends;
}

// Whether a pair may end like this: a death only where this one is pinned.
bool mayEnd(Ends const& expected, std::string const& pair, std::string const& end) {
  auto const found = expected.find(pair);
  return found != expected.end() && (!dies(end) || found->second == end);
}

TEST(ForeignHandlersSweep, AChangeInTheMiddleOfAnEventEndsAsOneAfterTheOtherOrAsPinned) {
  bool const all = BfnTest::longRun() || BfnTest::writesOutcomes();
  Stand stand;
  size_t events = 0;
  size_t cases = 0;
  Ends const expected = pinned();
  Ends ends;
  std::string unexpected;
  for (FaultEvent const& event : BfnTest::faultEvents()) {
    if (event.stage != Stage::Running || !isOneStep(event)) continue;
    std::vector<std::string> const calls = callsOf(stand, event);
    ++events;
    size_t number = 0;
    for (FaultEvent const& change : BfnTest::faultEvents()) {
      if (!isChange(change)) continue;
      size_t const only = number++ % std::max<size_t>(calls.size(), 1) + 1;
      if (!all && (events + number) % 2 == 0) continue;
      std::string const pair = std::string(event.name) + " | " + change.name;
      if (!all && !BfnTest::takesCase(events + number)) continue;
      std::string const one = runBoth(stand, event, change);
      std::string other;  // asked for when it matters
      for (size_t at = 1; at <= calls.size(); ++at) {
        if (!all && at != only) continue;
        ++cases;
        std::string const text = runCase(stand, {event, change, at});
        if (text == one) continue;
        if (other.empty()) other = runBoth(stand, change, event);
        if (text == other) continue;
        std::string const end = dies(text) ? text : "neither order";
        std::string& worst = ends[pair];
        if (worst.empty() || dies(end)) worst = end;
        if (mayEnd(expected, pair, end)) continue;
        unexpected += "  " + pair + ", at call " + std::to_string(at) + ", " + calls[at - 1] +
                      ": " + end + "\n";
      }
    }
  }
  std::cout << cases << " cases; " << ends.size() << " pairs end otherwise than in either order\n";
  EXPECT_GT(cases, 30u);
  if (BfnTest::writesOutcomes()) {
    std::ofstream file("foreign-outcomes.txt");
    for (auto const& [pair, end] : ends) file << pair << " | " << end << '\n';
    return;
  }
  EXPECT_TRUE(unexpected.empty()) << unexpected;
  if (!all) return;
  for (auto const& [pair, end] : expected) {
    EXPECT_EQ(ends.contains(pair) ? ends.at(pair) : "one after the other", end) << pair;
  }
}

}  // namespace
