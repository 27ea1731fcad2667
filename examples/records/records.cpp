// SPDX-License-Identifier: Apache-2.0
// An introduction: the agent's records, and a small state machine that watches them.
//
// A record is an object with attributes. A reactor watches it: a small object that names, row by
// row, which attribute runs which handler. Every handler runs inside the mutator that caused it, so
// what is printed below comes in the order of the changes.
#include <iostream>

#include "agent/records/BfnMacRewriteTypes.h"
#include "framework/collections/ReactorCollection.h"
#include "framework/collections/ReactorSlot.h"
#include "framework/core/Reactor.h"
#include "framework/core/StateMachine.h"
#include "framework/generic/Type.h"

namespace Agent = BfnMacRewrite::Agent;
using Kiv::Ptr;

namespace {

// Says where each address lives. It has one reactor on the status itself, for VRFs, and one on each
// VRF, for addresses.
class Reporter final : public Kiv::StateMachine<Reporter> {
 public:
  class KivStatus;
  class KivVrfStatus;

  explicit Reporter(Ptr<Agent::Status> const& status) {
    status_.is(status, this);
    initializedIs(true);
  }

  void handleVrfStatus(Pex::VrfId vrfId);
  void handleIpAndIntfId(Agent::VrfStatus const& vrf, Ovra::IpAddr ip);

  template <class F>
  void kivEachReactor(F f) {
    f(status_);
    f(vrfStatus_);
  }

 private:
  Kiv::ReactorSlot<KivStatus, Agent::Status, Reporter> status_;
  Kiv::ReactorCollection<Pex::VrfId, KivVrfStatus, 0x51, Agent::VrfStatus, Reporter> vrfStatus_;
};

class Reporter::KivStatus final : public Kiv::Reactor<KivStatus, Agent::Status, Reporter> {
 public:
  using Rows = Kiv::Rows<Kiv::On<Agent::Status::kVrfStatus, &Reporter::handleVrfStatus>>;
};

class Reporter::KivVrfStatus final : public Kiv::Reactor<KivVrfStatus, Agent::VrfStatus, Reporter> {
 public:
  void handleIpAndIntfId(Ovra::IpAddr ip) { owner()->handleIpAndIntfId(*notifier(), ip); }
  using Rows = Kiv::Rows<Kiv::On<Agent::VrfStatus::kIpAndIntfId, &KivVrfStatus::handleIpAndIntfId>>;
};

void Reporter::handleVrfStatus(Pex::VrfId vrfId) {
  Ptr<Agent::VrfStatus> const vrf(status_.notifierRaw()->vrfStatus(vrfId));
  std::cout << "  VRF " << vrfId << (vrf ? " appears\n" : " is gone\n");
  if (vrf) {
    vrfStatus_.is(vrfId, vrf, this);
  } else {
    vrfStatus_.del(vrfId);
  }
}

void Reporter::handleIpAndIntfId(Agent::VrfStatus const& vrf, Ovra::IpAddr ip) {
  std::cout << "  " << ip << " of VRF " << vrf.vrfId();
  if (!vrf.ipAndIntfId().has(ip)) {
    std::cout << " lives nowhere any more\n";
    return;
  }
  Agent::IpAndIntfId const home = vrf.ipAndIntfId(ip);
  std::cout << " lives on " << home.intfId << (home.selfIp ? ", an address of our own\n" : "\n");
}

}  // namespace

int main() {
  auto const status = Kiv::makeActive<Agent::Status>();
  auto reporter = Kiv::makeActive<Reporter>(status);

  std::cout << "An address is learned:\n";
  auto const vrf = status->vrfStatusIs(Pex::VrfId(7));
  Agent::IpAndIntfId const home(Ovra::IpAddr(0x0A00'0001), Ovra::IntfId("Ethernet1"), false);
  vrf->ipAndIntfIdIs(home);

  std::cout << "The same again is no change, so there is no notification:\n";
  vrf->ipAndIntfIdIs(home);

  std::cout << "It moves, set by name as a component outside would do it:\n";
  Kiv::GenericValue const moved(
      "Value('BfnMacRewrite::Agent::IpAndIntfId', ** "
      "{'ipAddr': 10.0.0.1, 'intfId': 'Ethernet2', 'selfIp': True})");
  vrf->genericIfAttributeOp(Kiv::GenericOp::Set, "ipAndIntfId", {&moved, 1});

  std::cout << "The whole record, by the names of its attributes:\n  ";
  Kiv::genericPrint(std::cout, *status);
  std::cout << "\nThe address is forgotten, then the VRF:\n";
  vrf->ipAndIntfIdDel(home.ipAddr);
  status->vrfStatusDel(vrf->vrfId());

  std::cout << "Without the reporter, nothing is printed:\n";
  reporter.reset();
  status->vrfStatusIs(Pex::VrfId(8));
}
