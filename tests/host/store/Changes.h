// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/store/Store.h"

// Changes in few words, and as text.
namespace BfnTest {

inline Host::StoreChange makeOf(std::string const& path, std::string const& type) {
  return {Host::StoreChange::Kind::Make, path, {}, {}, type, {}, {}};
}
inline Host::StoreChange setOf(std::string const& path, std::string const& collection,
                               std::string const& key, std::string const& value) {
  return {Host::StoreChange::Kind::Set, path, collection, key, value, {}, {}};
}
inline Host::StoreChange delOf(std::string const& path, std::string const& collection,
                               std::string const& key) {
  return {Host::StoreChange::Kind::Del, path, collection, key, {}, {}, {}};
}

/// A line for each event; "lost" when changes are.
inline std::vector<std::string> shown(std::optional<std::vector<Host::StoreEvent>> const& events) {
  if (!events) return {"lost"};
  std::vector<std::string> lines;
  for (auto const& [version, change] : *events) {
    lines.push_back(std::string(name(change.kind)) + " " + change.path + " " + change.collection +
                    " " + change.key + " " + change.value);
  }
  return lines;
}

}  // namespace BfnTest
