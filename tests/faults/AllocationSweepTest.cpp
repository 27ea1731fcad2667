// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/AllocTrack.h"
#include "tests/faults/Long.h"
#include "tests/faults/Scene.h"
#include "tests/support/AllocationCount.h"
#include "tests/support/InChild.h"

// Every allocation of every event fails in turn. Each time in a child of its own: the event with
// its n-th allocation failing, then, without faults, the same event again and everything else that
// may happen to an agent. What can be seen of the plug-in after each step must be what it is when
// no allocation fails, or when the event comes only then: one that throws has changed nothing. No
// process may end, and nothing may be left over.
//
// There are two passes. In the first one, statics that an event makes at its first occurrence
// (trace descriptions, type records) are still to be made, so that their allocations fail too. In
// the second one they are there, so that the blocks of memory that are left over can be counted.
//
// BFN_FAULTS=long in the environment takes every allocation at every size in both passes; without
// it each pass takes each event at one size, the next event at the next one, and of its allocations
// those that takesCase() says.
namespace {

using BfnTest::FaultEvent;
using BfnTest::longRun;
using BfnTest::Scene;

constexpr int kSizes[] = {0, 3, 6, 12};  // hash tables grow when the next member comes

/// Events after which repeating does not give what there would be without the fault, and why. Each
/// of them must fail somewhere in a long run; an entry goes with its reason.
struct Known {
  char const* event;
  char const* why;
};
constexpr char const* kStored =
    "The host's record holds the change when its handlers fail, so repeating it notifies of "
    "nothing; "
    "what comes next is then another event: a status that returns is a replacement, which counts a "
    "reference, and an address without its row may not be removed.";
constexpr char const* kStage2 =
    "A stage 2 that fails half way has written rows and references that the next run writes again.";
constexpr char const* kFirst =
    "The VRF's status is stored when the reactor on it fails, so the address again, or without its "
    "VRF, notifies of nothing; the status must be removed and added again.";
std::vector<Known> const kKnown{
    {"an interface goes and returns", kStored},
    {"an interface of waiting addresses comes", kStored},
    {"a full table refuses an address", kStored},
    {"stage 2 with other ports", kStage2},
    {"stage 2 with another configuration", kStage2},
    {"an address comes", kFirst},
    {"an own address comes", kFirst},
    {"an address without a routed interface comes", kFirst},
    {"an address with its line comes", kFirst},
    {"an address becomes an own one", kFirst},
    {"an address goes", kFirst},
    {"an own address goes", kFirst},
    {"an address goes and returns", kFirst},
    {"all addresses of a VRF go", kFirst},
};

bool isKnown(char const* event) {
  for (Known const& known : kKnown) {
    if (std::string(known.event) == event) return true;
  }
  return false;
}

// Runs an event; the name of what it threw, if anything.
std::string ran(FaultEvent const& event, Scene& scene) {
  try {
    event.run(scene);
  } catch (std::bad_alloc const&) {
    return "std::bad_alloc";
  } catch (std::exception const& exception) {
    return exception.what();
  }
  return "";
}

constexpr int kNothingFailed = 3;
constexpr size_t kNotBefore = ~size_t{0};

// The child's part; n = 0: no allocation fails; kNotBefore: the event does not come before, either.
// Writes what it sees to standard output.
int run(std::unique_ptr<Scene>& scene, FaultEvent const& event, size_t n) {
  size_t const blocksBefore = BfnTest::liveAllocations();
  size_t const callsBefore = BfnTest::allocationCount();
  size_t calls = 0;
  if (n != kNotBefore) {
    BfnTest::failAllocation(n);
    ran(event, *scene);
    calls = BfnTest::allocationCount() - callsBefore;
    bool const failed = BfnTest::allocationFailed();
    BfnTest::failAllocation(0);
    if (n != 0 && !failed) return kNothingFailed;
    if (event.undo != nullptr) event.undo(*scene);
  }
  std::ostringstream out;
  auto const look = [&](char const* after) {
    for (std::string const& line : scene->look()) out << after << ": " << line << '\n';
  };
  std::string const thrown = ran(event, *scene);
  if (!thrown.empty()) out << event.name << " throws " << thrown << '\n';
  look("the event again");
  for (FaultEvent const& next : BfnTest::aftermath()) {
    if (event.last) break;
    std::string const then = ran(next, *scene);
    if (!then.empty()) out << next.name << " throws " << then << '\n';
    look(next.name);
  }
  scene.reset();
  out << "left over: " << Kiv::AllocTrackTypeInfo::liveObjects() << " objects\n";
  std::string const text = std::move(out).str();
  // The scene's own blocks have gone, so the difference is negative.
  auto const blocks = static_cast<long>(BfnTest::liveAllocations() - blocksBefore);
  std::cout << text << "blocks " << blocks << " of " << calls << std::endl;
  return 0;
}

struct Seen {
  std::string text;
  long blocks = 0;         ///< live at the end, more than before
  size_t allocations = 0;  ///< of the event's first run
};

Seen seen(std::string const& output) {
  size_t const at = output.rfind("blocks ");
  if (at == std::string::npos) return {output, 0, 0};
  Seen now{output.substr(0, at), 0, 0};
  std::string of;
  std::istringstream(output.substr(at + 7)) >> now.blocks >> of >> now.allocations;
  return now;
}

std::string firstDifference(std::string const& text, std::string const& expected) {
  std::istringstream is(text), ought(expected);
  std::string line, want;
  while (true) {
    bool const more = static_cast<bool>(std::getline(is, line));
    bool const wanted = static_cast<bool>(std::getline(ought, want));
    if (!more && !wanted) return "no line";
    if (!more) line = "(nothing)";
    if (!wanted) want = "(nothing)";
    if (line != want) return line + "\n      without the fault: " + want;
  }
}

// What is wrong after the n-th allocation failed; empty when all is well.
std::string wrong(BfnTest::ChildEnd const& end, Seen const& reference, bool countBlocks) {
  if (WIFSIGNALED(end.status)) {
    return "the process ends by signal " + std::to_string(WTERMSIG(end.status));
  }
  if (end.exitedWith(kNothingFailed)) return "the event makes fewer allocations than before";
  if (!end.exitedWith(0)) return "the process ends";
  Seen const now = seen(end.text);
  if (now.text != reference.text) return firstDifference(now.text, reference.text);
  if (countBlocks && now.blocks > reference.blocks) {
    return std::to_string(now.blocks - reference.blocks) + " blocks of memory are left over";
  }
  return "";
}

struct Result {
  size_t pairs = 0;
  size_t failing = 0;
  std::string report;
};

// The event and all that follows, in this process, so that every static on the way is made.
void warmUp(FaultEvent const& event) {
  Scene scene(3, event.stage);
  ran(event, scene);
  if (event.undo != nullptr) event.undo(scene);
  ran(event, scene);
  for (FaultEvent const& next : BfnTest::aftermath()) {
    if (event.last) break;
    ran(next, scene);
    scene.look();
  }
}

// `number` is that of the sweep.
Result sweep(FaultEvent const& event, size_t number, int size, bool warm) {
  auto scene = std::make_unique<Scene>(size, event.stage);
  auto const child = [&](size_t n) {
    std::cout.flush();
    return BfnTest::inChild(STDOUT_FILENO, [&] {
      ::alarm(60);
      return run(scene, event, n);
    });
  };
  Result result;
  BfnTest::ChildEnd const unharmed = child(0);
  if (!unharmed.exitedWith(0)) {
    result.failing = 1;
    result.report = "    without a fault the process ends: " + unharmed.text + "\n";
    return result;
  }
  Seen const reference = seen(unharmed.text);
  Seen const onlyThen = seen(child(kNotBefore).text);
  std::string last;
  for (size_t n = 1; n <= reference.allocations; ++n) {
    if (!longRun() && !BfnTest::takesCase(number + n)) continue;
    BfnTest::ChildEnd const end = child(n);
    ++result.pairs;
    std::string const what = wrong(end, reference, warm);
    if (what.empty() || wrong(end, onlyThen, warm).empty()) continue;
    ++result.failing;
    result.report += "    size " + std::to_string(size) + ", allocation " + std::to_string(n) +
                     ": " + (what == last ? "the same" : what) + "\n";
    last = what;
  }
  return result;
}

TEST(AllocationSweep, AnEventWhoseAllocationFailsCanBeRepeated) {
  size_t pairs = 0;
  size_t failing = 0;
  std::string report;
  std::set<std::string> unknown;
  std::set<std::string> failed;
  for (bool const warm : {false, true}) {
    size_t share = warm ? 1 : 0;
    for (FaultEvent const& event : BfnTest::faultEvents()) {
      Result all;
      if (warm) warmUp(event);
      ++share;
      for (size_t i = 0; i < std::size(kSizes); ++i) {
        if (!longRun() && i != share % std::size(kSizes)) continue;
        Result const one = sweep(event, share, kSizes[i], warm);
        all.pairs += one.pairs;
        all.failing += one.failing;
        all.report += one.report;
      }
      pairs += all.pairs;
      failing += all.failing;
      if (all.failing == 0) continue;
      failed.insert(event.name);
      if (isKnown(event.name)) continue;
      unknown.insert(event.name);
      report += std::string("  ") + event.name + (warm ? "" : " for the first time") + ": " +
                std::to_string(all.failing) + " of " + std::to_string(all.pairs) + "\n" +
                all.report;
    }
  }
  std::cout << pairs << " pairs of an event and a failing allocation, " << failing << " fail, of "
            << failed.size() << " events\n";
  EXPECT_GT(pairs, 50u);
  EXPECT_TRUE(unknown.empty()) << report;
  if (!longRun()) return;
  for (Known const& known : kKnown) {
    EXPECT_TRUE(failed.contains(known.event)) << known.event << " does not fail any more";
  }
}

}  // namespace
