// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/explain/PairFacts.h"

namespace Host {

/// How a configured line becomes a row, or why it does not.
struct Explanation {
  /// One thing on the way from the line to the packet.
  struct Link {
    std::string name;
    /// Empty: there is none.
    std::string value;
    /// Where it comes from, for people: a command that shows or gives it.
    std::string from;
  };

  /// What was asked for: "VRF red, source IP 10.0.0.1".
  std::string subject;
  Reason reason = Reason::None;
  /// The reason as a sentence, or what the row does.
  std::string verdict;
  std::vector<Link> chain;
  /// The chip's row; nothing when there is none.
  struct Row {
    Kiv::U16 vlan = 0;
    Ovra::IpAddr ip;
    InstalledRow installed;
  };
  std::optional<Row> row;

  /// {row, reason, chain}: the row as {hits, mac, sip, vlan} or null, the reason's code or null.
  nlohmann::json json() const;
  /// The same in lines for people, without the last line end.
  std::string text() const;
};

Explanation explained(PairFacts const& facts);
/// The row of that VLAN and address: the pair that it belongs to, or whose it would be. Of several
/// the one whose MAC it has, else the first by VRF id.
Explanation explainedRow(FactFinder const& finder, Kiv::U16 vlan, Ovra::IpAddr ip);

/// The reason as a sentence.
std::string sentenceOf(Reason reason, PairFacts const& facts);

}  // namespace Host
