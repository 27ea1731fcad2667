// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "framework/core/AddressSanitizer.h"
#include "host/explain/Explain.h"
#include "tests/model/Event.h"
#include "tests/model/Model.h"
#include "tests/model/Values.h"
#include "tests/model/World.h"
#include "tests/support/Seed.h"

// What is explained of random states, against the reference model of the plug-in: which reason
// there is, and which row, told from the model's tables alone.
namespace {

using namespace BfnTest;
using Host::Reason;

struct Expected {
  Reason reason = Reason::None;
  /// The row's VLAN and MAC.
  std::optional<std::pair<int, int>> row;
};

class Oracle {
 public:
  explicit Oracle(State const& state) : s_(state), m_(state.rewriteMachine) {}

  std::optional<Reason> bringUp() const {
    if (!s_.agent || s_.manager == kNone) return Reason::StageNotRun;
    if (!m_.exists) return s_.copiedSupported ? Reason::StageNotRun : Reason::NotSupported;
    if (!s_.managers[m_.manager].hasTable) return Reason::StageNotRun;
    return std::nullopt;
  }

  Expected ofVrf(int vrfName, int ip) const {
    int id = s_.cliMachine.exists ? s_.cliMachine.live[vrfName] : kNone;
    if (id == kNone && s_.useL3 != kNone) id = s_.l3[s_.useL3].nameToId[vrfName];
    return expected(vrfName, id, ip);
  }

  Expected ofVrfId(int id, int ip) const { return expected(nameOf(id, ip), id, ip); }

  Expected ofRow(int vlan, int ip) const {
    std::optional<Expected> first;
    std::optional<Expected> exact;
    std::optional<Expected> waiting;
    for (int id = 0; m_.exists && id < kIds; ++id) {
      int const intf = m_.intfOf[id][ip];
      if (intf == 0) continue;
      RecordState const& record = s_.managers[m_.manager].record[intf][ip];
      Expected const one = ofVrfId(id, ip);
      if (record.present && record.vlan == vlan) {
        if (!first) first = one;
        int const mac = std::max(line(nameOf(id, ip), ip), 0);
        if (!exact && one.row && one.row->second == mac) exact = one;
      } else if (!record.present && vlanNow(id, intf, ip) == vlan && !waiting) {
        waiting = one;
      }
    }
    if (exact) return *exact;
    if (first) return *first;
    if (waiting) return *waiting;
    int const mac = rowMac(vlan, ip);
    if (mac != kNone) return {Reason::LeftOver, {{vlan, mac}}};
    return {bringUp() ? Reason::StageNotRun : Reason::NoAddress, {}};
  }

 private:
  int line(int vrfName, int ip) const {
    return s_.useCli == kNone || vrfName == kNone ? kNone : s_.cli[s_.useCli][vrfName][ip];
  }
  bool isLive(int vrfName, int id) const {
    return s_.cliMachine.exists && s_.cliMachine.live[vrfName] == id;
  }
  int nameOf(int id, int ip) const {
    int const called = s_.useL3 == kNone ? kNone : s_.l3[s_.useL3].idToName[id];
    if (line(called, ip) != kNone) return called;
    int first = kNone;
    for (int n = 0; n < kNames; ++n) {
      if (!isLive(n, id) || line(n, ip) == kNone) continue;
      if (first == kNone || std::string(kNameText[n]) < kNameText[first]) first = n;
    }
    return first == kNone ? called : first;
  }
  AddressState address(int id, int ip) const {
    return s_.useStatus == kNone ? AddressState{} : s_.status[s_.useStatus].at[id][ip];
  }
  std::int64_t forwarding(int id) const { return std::max<std::int64_t>(m_.fwdVlan[id], 0); }
  bool forwardingUnseen(int id) const {
    for (int n = 0; n < kNames; ++n) {
      RouteState const& route = s_.route[n];
      bool const counts = kIdValue[route.id] != 0 || std::string(kNameText[n]) == "default";
      if (route.serial != 0 && route.id == id && counts && route.vlan != 0) return true;
    }
    return false;
  }
  bool routingUnseen(int intf) const {
    for (int k = 0; k < 3; ++k) {
      int const object = s_.useRouting[k];
      int const watched = s_.intfMachine.exists ? s_.intfMachine.source[k] : kNone;
      if (object == kNone || object == watched) continue;
      for (IntfStatus const& status : s_.routing[object][intf]) {
        if (status.serial != 0) return true;
      }
    }
    return false;
  }
  std::int64_t vlanNow(int id, int intf, int ip) const {
    AddressState const now = address(id, ip);
    if (!now.present || s_.merged[intf].serial == 0) return kNone;
    return now.self ? forwarding(id) : s_.merged[intf].vlan;
  }
  int rowMac(int vlan, int ip) const {
    for (int v = 0; v < kRowVlans; ++v) {
      if (static_cast<int>(kVlanValue[v]) == vlan) return s_.row[v][ip];
    }
    return kNone;
  }
  int translated(int id, int ip) const {
    return m_.config == kNone ? kNone : s_.config[m_.config].mac[id][ip];
  }
  bool isAnothers(int vrfName, int id, int ip, int vlan, int mac) const {
    for (int other = 0; other < kIds; ++other) {
      int const intf = m_.intfOf[other][ip];
      if (other == id || intf == 0) continue;
      RecordState const& record = s_.managers[m_.manager].record[intf][ip];
      if (record.present && record.vlan == vlan && std::max(translated(other, ip), 0) == mac) {
        return true;
      }
    }
    for (int n = 0; n < kNames; ++n) {
      if (n != vrfName && isLive(n, id) && line(n, ip) == mac) return true;
    }
    return false;
  }

  Expected expected(int vrfName, int id, int ip) const {
    int const configured = line(vrfName, ip);
    int intf = 0;
    RecordState record;
    std::optional<std::pair<int, int>> row;
    if (id != kNone && m_.exists) {
      intf = m_.intfOf[id][ip];
      if (intf != 0) record = s_.managers[m_.manager].record[intf][ip];
      int const mac = record.present ? rowMac(record.vlan, ip) : kNone;
      if (mac != kNone) row = {record.vlan, mac};
    }
    return {reason(vrfName, id, ip, configured, intf, record, row), row};
  }

  Reason reason(int vrfName, int id, int ip, int configured, int intf, RecordState const& record,
                std::optional<std::pair<int, int>> const& row) const {
    if (auto const missing = bringUp()) return *missing;
    if (id == kNone) return configured == kNone ? Reason::NoLine : Reason::NoVrfId;
    AddressState const now = address(id, ip);
    if (!record.present) {
      if (!now.present) return configured == kNone ? Reason::NoLine : Reason::NoAddress;
      if (m_.status != s_.useStatus) return Reason::Deaf;
      if (now.intf == 0) return Reason::NoInterface;
      if (now.self && forwarding(id) == 0) {
        return forwardingUnseen(id) ? Reason::Deaf : Reason::NoForwardingVlan;
      }
      if (intf != now.intf) return Reason::Deaf;
      if (s_.merged[intf].serial == 0) {
        return routingUnseen(intf) ? Reason::Deaf : Reason::NoRoutingStatus;
      }
      auto const inRange = [](std::int64_t vlan) { return vlan >= 1 && vlan <= 4094; };
      if (!inRange(s_.merged[intf].vlan) || !inRange(vlanNow(id, intf, ip))) {
        return Reason::VlanOutOfRange;
      }
      return s_.rows >= s_.capacity ? Reason::WaitingFull : Reason::WaitingRetry;
    }
    if (!row) return Reason::DeletedFromChip;
    if (!now.present || now.intf != intf || vlanNow(id, intf, ip) != record.vlan) {
      return Reason::LeftOver;
    }
    if (row->second == std::max(configured, 0)) {
      return configured == kNone ? Reason::NoLine : Reason::None;
    }
    if (isAnothers(vrfName, id, ip, row->first, row->second)) return Reason::AnotherVrfsRow;
    return configured == kNone ? Reason::LineRemoved : Reason::LineNotApplied;
  }

  State const& s_;
  RewriteMachine const& m_;
};

Host::FactSources sourcesOf(World& world) {
  Host::FactSources from;
  from.agent = world.agent;
  from.cliConfig = Host::Object(
      const_cast<BfnMacRewrite::Input::Config*>(world.mount->bfnMacRewriteCliConfig().get()));
  from.agentStatus = world.mount->bfnMacRewriteAgentStatus();
  from.l3Status = world.l3Shared->l3Status();
  from.routeStatus = world.routeStatus;
  from.routingStatus = {world.l3Shared->l3PortAndLagRoutingStatus(),
                        world.l3Shared->vlanIntfRoutingStatus(),
                        world.l3Shared->l3SubIntfRoutingStatus()};
  from.table = &world.chip;
  return from;
}

std::string shown(Reason reason, std::optional<std::pair<int, std::string>> const& row) {
  std::ostringstream out;
  out << Host::codeOf(reason);
  if (row) out << " row " << row->first << ' ' << row->second;
  return out.str();
}
std::string shown(Expected const& expected) {
  if (!expected.row) return shown(expected.reason, std::nullopt);
  std::ostringstream mac;
  mac << BfnTest::mac(expected.row->second);
  return shown(expected.reason, std::pair(expected.row->first, mac.str()));
}
std::string shown(Host::Explanation const& explanation) {
  if (!explanation.row) return shown(explanation.reason, std::nullopt);
  std::ostringstream mac;
  mac << explanation.row->installed.mac;
  return shown(explanation.reason, std::pair(int{explanation.row->vlan}, mac.str()));
}

// A build that checks every access gets a share, too small for the rarest reasons.
#ifdef KIV_ADDRESS_SANITIZER
constexpr std::uint64_t kStates = 20'000;
#else
constexpr std::uint64_t kStates = 200'000;
#endif
constexpr std::uint64_t kStatesWithEveryReason = 200'000;

class ExplainRandomTest : public ::testing::Test {
 protected:
  /// One question of each kind about the state.
  void ask(World& world, State const& state, Random& random) {
    int const ip = static_cast<int>(random() % kIps);
    int const vrfName = static_cast<int>(random() % kNames);
    int const vrf = static_cast<int>(random() % kIds);
    int const vlan = static_cast<int>(kVlanValue[random() % kRowVlans]);
    Oracle const oracle(state);
    Host::FactFinder const finder(sourcesOf(world));
    compare(oracle.ofVrf(vrfName, ip),
            explained(finder.ofVrf(BfnTest::name(vrfName), BfnTest::ip(ip))));
    compare(oracle.ofVrfId(vrf, ip), explained(finder.ofVrfId(BfnTest::id(vrf), BfnTest::ip(ip))));
    compare(oracle.ofRow(vlan, ip),
            explainedRow(finder, static_cast<Kiv::U16>(vlan), BfnTest::ip(ip)));
    ++states_;
  }

  void compare(Expected const& expected, Host::Explanation const& found) {
    ++seen_[found.reason];
    EXPECT_EQ(shown(expected), shown(found)) << found.text();
    EXPECT_FALSE(found.verdict.empty());
  }

  std::uint64_t states_ = 0;
  std::map<Reason, std::uint64_t> seen_;
};

TEST_F(ExplainRandomTest, OfRandomStatesTheReasonAndTheRowAreThoseOfTheModel) {
  char const* const wanted = std::getenv("BFN_EXPLAIN_STATES");
  std::uint64_t const states = wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : kStates;
  Orders const orders = askOrders();
  std::uint64_t seed = testSeed();
  while (states_ < states && !HasFailure()) {
    SCOPED_TRACE("sequence of seed " + std::to_string(++seed));
    Random random(seed);
    World world;
    world.chip.journal().limitIs(0);
    Model model(orders);
    Effects effects;
    for (Event const& event : randomSequence(seed, 400)) {
      if (!model.possible(event) || model.apply(event, effects)) continue;
      world.apply(event);
      ask(world, model.state(), random);
      if (HasFailure() || states_ == states) break;
    }
  }
  if (states < kStatesWithEveryReason) return;
  // Only a reconciler has the others.
  for (size_t i = 0; i <= static_cast<size_t>(Host::kLastReason); ++i) {
    auto const reason = static_cast<Reason>(i);
    if (reason == Reason::WaitingNoResources || reason == Reason::Held) continue;
    EXPECT_GT(seen_[reason], 0u) << Host::codeOf(reason) << " was never seen";
  }
}

}  // namespace
