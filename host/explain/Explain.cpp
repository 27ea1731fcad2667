// SPDX-License-Identifier: Apache-2.0
#include "host/explain/Explain.h"

#include <algorithm>
#include <sstream>

namespace Host {

namespace {

using nlohmann::json;

template <class... Pieces>
std::string words(Pieces const&... pieces) {
  std::ostringstream out;
  (out << ... << pieces);
  return out.str();
}

std::string quoted(L3::VrfName const& name) {
  return name.empty() ? "without a name" : std::string(name.view());
}

std::string vrfWords(PairFacts const& facts) {
  std::string text;
  if (facts.vrfName) text = quoted(*facts.vrfName);
  if (facts.vrfId && !text.empty()) text += words(" (id ", *facts.vrfId, ')');
  if (facts.vrfId && text.empty()) text = words("id ", *facts.vrfId);
  return text;
}

class Chain {
 public:
  void add(std::string name, std::string value, std::string from) {
    links_.push_back({std::move(name), std::move(value), std::move(from)});
  }
  std::vector<Explanation::Link> take() { return std::move(links_); }

 private:
  std::vector<Explanation::Link> links_;
};

void addConfiguration(Chain& chain, PairFacts const& facts) {
  chain.add("configured line", facts.line ? words("src-mac ", *facts.line) : "",
            "show running-config");
  std::string id = facts.vrfId ? words(*facts.vrfId) : "";
  if (facts.vrfId && facts.vrfName && !facts.vrfIsLive) id += ", not in use for lines";
  chain.add("VRF id", id, "host vrf");
  chain.add("translated MAC", facts.translated ? words(*facts.translated) : "", "dump config");
}

void addAddress(Chain& chain, PairFacts const& facts) {
  std::string where;
  if (facts.address) {
    where = facts.address->interface ? words("on ", facts.address->interface) : "on no interface";
    if (facts.address->self) where += ", the switch's own";
  }
  chain.add("address", where, "host address");
  chain.add("indexed", facts.indexedOn ? words("on ", facts.indexedOn) : "", "dump indexes");
  static constexpr char const* kKinds[] = {"port", "vlan", "subinterface"};
  std::string status;
  std::string from = "host routing-status";
  if (facts.routingStatus) {
    status = words("VLAN ", facts.routingStatus->vlan, ", VRF id ", facts.routingStatus->vrfId);
    if (facts.routingStatus->source) from += words(' ', kKinds[*facts.routingStatus->source]);
  }
  chain.add("routing status", status, from);
  bool const isUsed = facts.address && facts.address->self;
  std::string forwarding = facts.forwardingVlan != 0 ? words("VLAN ", facts.forwardingVlan) : "";
  if (!forwarding.empty() && !isUsed) forwarding += ", not used: not the switch's own address";
  if (isUsed || !forwarding.empty()) chain.add("forwarding VLAN", forwarding, "host route");
}

void addRow(Chain& chain, PairFacts const& facts) {
  auto const rowWords = [&](Ovra::EthAddr const& mac) {
    return words("VLAN ", facts.record->vlan, ", ", mac);
  };
  chain.add("record",
            facts.record ? words("VLAN ", facts.record->vlan, ", ", facts.record->references,
                                 facts.record->references == 1 ? " reference" : " references")
                         : "",
            "dump records");
  if (facts.wanted && facts.record) chain.add("wanted row", rowWords(*facts.wanted), "reconciler");
  chain.add("installed row", facts.installed && facts.record ? rowWords(facts.installed->mac) : "",
            "show chip");
  if (facts.installed && facts.installed->hits) {
    chain.add("hits", std::to_string(*facts.installed->hits), "show chip");
  }
}

json rowJson(std::optional<Explanation::Row> const& row) {
  if (!row) return nullptr;
  return {{"hits", row->installed.hits ? json(*row->installed.hits) : json(nullptr)},
          {"mac", words(row->installed.mac)},
          {"sip", words(row->ip)},
          {"vlan", row->vlan}};
}

std::string leftOverSentence(PairFacts const& facts) {
  if (!facts.address) {
    return facts.isStatusReplaced
               ? "a row left over: the host's address status was replaced, and this address is not "
                 "in the new one"
               : "a row left over: the VRF's whole address record has gone, which deletes no row";
  }
  if (facts.address->interface != facts.indexedOn) {
    return words("a row left over from ", facts.indexedOn,
                 ": the address is reported elsewhere, and the agent did not take that");
  }
  if (!facts.routingStatus) {
    return words("a row left over: ", facts.indexedOn,
                 " has lost its routing status, but a replaced status had counted one reference "
                 "more");
  }
  if (facts.vlanNow() == 0u) {
    return "a row left over: the address is one of the switch's own now, and its VRF has no "
           "forwarding VLAN";
  }
  return words("a row left over in VLAN ", facts.record->vlan, ": the VLAN is ", *facts.vlanNow(),
               " by now, and a row keeps the one of its first "
               "addition");
}

std::string deafSentence(PairFacts const& facts) {
  if (facts.isStatusReplaced) {
    return "no row: the agent watches another address status than the one in which the host "
           "reports; run stage 2 again (host start)";
  }
  if (facts.isForwardingVlanUnseen) {
    return "no row: the agent does not know the forwarding VLAN that the host has reported; its "
           "route status is not watched, or got its VRF id afterwards";
  }
  if (facts.isRoutingStatusUnseen) {
    return "no row: the interface has routing status in a collection that the agent does not "
           "watch; run stage 2 again (host start)";
  }
  return "no row: the agent has not taken the address; an exception has ended the event that "
         "reported it";
}

std::string waitingSentence(Reason reason, PairFacts const& facts) {
  bool const queued = facts.waiting.has_value();
  if (reason == Reason::WaitingNoResources) {
    return "no row yet: it waits for resources of the system, which are exhausted";
  }
  if (reason == Reason::WaitingFull) {
    return queued ? "no row yet: it waits for room, the chip's table is full"
                  : "no row: the chip's table is full; it is tried again only when the address or "
                    "its routing status is added again";
  }
  if (!queued) {
    return "no row: the chip has refused it; it is tried again only when the address or its "
           "routing status is added again";
  }
  return "no row yet: its write failed and is retried" +
         (facts.waiting->error.empty() ? "" : ": " + facts.waiting->error);
}

std::string presentSentence(PairFacts const& facts) {
  return words("packets from ", facts.ip, " in VLAN ", facts.record->vlan, " leave with ",
               facts.installed->mac);
}

}  // namespace

std::string sentenceOf(Reason reason, PairFacts const& facts) {
  std::string const vrf = vrfWords(facts);
  switch (reason) {
    case Reason::None:
      return presentSentence(facts);
    case Reason::StageNotRun:
    case Reason::NotSupported:
      return "no row: " + facts.lacks.value_or("");
    case Reason::NoLine:
      return facts.installed
                 ? "the row has the all-zero MAC: there is no configured line, packets keep their "
                   "own"
                 : "no row: there is no configured line";
    case Reason::NoVrfId:
      return words("no row: VRF ", vrf, " has no id");
    case Reason::NoAddress:
      return words("no row: ", facts.ip, " is not reported in VRF ", vrf);
    case Reason::NoInterface:
      return words("no row: ", facts.ip, " is reported on no interface");
    case Reason::NoRoutingStatus:
      return words("no row: ", facts.address->interface, " has no routing status");
    case Reason::NoForwardingVlan:
      return words("no row: ", facts.ip, " is one of the switch's own, and VRF ", vrf,
                   " has no forwarding VLAN");
    case Reason::VlanOutOfRange:
      return words("no row: VLAN ",
                   facts.routingStatus->vlan >= 1 && facts.routingStatus->vlan <= 4094
                       ? *facts.vlanNow()
                       : facts.routingStatus->vlan,
                   " is not in 1..4094");
    case Reason::Deaf:
      return deafSentence(facts);
    case Reason::WaitingFull:
    case Reason::WaitingNoResources:
    case Reason::WaitingRetry:
      return waitingSentence(reason, facts);
    case Reason::Held:
      return "no row yet: the chip's rows are held as they are, " + *facts.heldBecause;
    case Reason::DeletedFromChip:
      return "no row: the agent has made it, but it was deleted from the chip, with the row of "
             "another interface in this VLAN or by another program";
    case Reason::LeftOver:
      return leftOverSentence(facts);
    case Reason::AnotherVrfsRow:
      return words("the row has another MAC, that of ", *facts.owner);
    case Reason::LineRemoved:
      return "the row keeps the MAC of a line that was removed";
    case Reason::LineNotApplied:
      return words("the row has another MAC: the line came later and has not reached it",
                   facts.vrfName && !facts.vrfIsLive ? ", its VRF is not in use for lines" : "");
  }
  return {};
}

Explanation explained(PairFacts const& facts) {
  Explanation result;
  result.subject = words("VRF ", vrfWords(facts), ", source IP ", facts.ip);
  result.reason = reasonOf(facts);
  result.verdict = sentenceOf(result.reason, facts);
  Chain chain;
  addConfiguration(chain, facts);
  if (facts.vrfId) {
    addAddress(chain, facts);
    addRow(chain, facts);
  }
  result.chain = chain.take();
  if (facts.installed && facts.record) {
    result.row = {facts.record->vlan, facts.ip, *facts.installed};
  }
  return result;
}

Explanation explainedRow(FactFinder const& finder, Kiv::U16 vlan, Ovra::IpAddr ip) {
  auto const pairs = finder.ofRow(vlan, ip);
  std::string const subject = words("Row of VLAN ", vlan, ", source IP ", ip);
  if (pairs.empty()) {
    Explanation result;
    result.subject = subject;
    auto const installed = finder.installed(vlan, ip);
    auto const lacks = finder.lacks();
    if (installed) {
      result.reason = Reason::LeftOver;
      result.verdict = "a row left over: " + lacks.value_or("no address of the agent leads to it");
      result.row = {vlan, ip, *installed};
    } else {
      PairFacts facts;
      result.reason = lacks ? Reason::StageNotRun : Reason::NoAddress;
      result.verdict = "no row: " + lacks.value_or("no address of the agent leads to it");
    }
    Chain chain;
    chain.add("installed row", installed ? words("VLAN ", vlan, ", ", installed->mac) : "",
              "show chip");
    result.chain = chain.take();
    return result;
  }
  auto const itself = std::ranges::find_if(pairs, [](PairFacts const& facts) {
    return facts.installed && facts.installed->mac == facts.macNow();
  });
  Explanation result = explained(itself == pairs.end() ? pairs.front() : *itself);
  result.subject = subject + ": " + result.subject.substr(0, result.subject.find(", source IP"));
  return result;
}

json Explanation::json() const {
  nlohmann::json links = nlohmann::json::array();
  for (Link const& link : chain) {
    links.push_back(
        {{"from", link.from},
         {"link", link.name},
         {"value", link.value.empty() ? nlohmann::json() : nlohmann::json(link.value)}});
  }
  return {{"chain", links},
          {"reason", reason == Reason::None ? nlohmann::json() : nlohmann::json(codeOf(reason))},
          {"row", rowJson(row)}};
}

std::string Explanation::text() const {
  size_t width = 0;
  for (Link const& link : chain) width = std::max(width, link.value.size());
  std::string text = subject;
  for (Link const& link : chain) {
    std::string const value = link.value.empty() ? "none" : link.value;
    text += "\n  " + link.name + std::string(17 - std::min<size_t>(16, link.name.size()), ' ') +
            value + std::string(std::max(width, size_t{4}) + 2 - value.size(), ' ') + link.from;
  }
  return text + '\n' + verdict;
}

}  // namespace Host
