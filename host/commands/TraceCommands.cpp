// SPDX-License-Identifier: Apache-2.0
// The trace ring, and which traces are written as text, too.
#include <sstream>

#include "framework/trace/Decode.h"
#include "framework/trace/TraceHandle.h"
#include "host/commands/Commands.h"

namespace Host {

namespace {

using Kiv::TraceHandle;

// Levels up to that one are written as text.
Answer traceLevel(Arguments const& given) {
  std::string const level = given.text("level");
  Kiv::U32 const mask =
      level == "off" ? 0 : (Kiv::U32{2} << static_cast<unsigned>(std::stoul(level))) - 1;
  if (!given.has("facility")) {
    TraceHandle::defaultLevelsIs(mask);
    TraceHandle::forEach([mask](TraceHandle& handle) { handle.levelsAre(mask); });
    return {};
  }
  std::string const facility = given.text("facility");
  TraceHandle::levelsAre(facility, mask);
  if (TraceHandle::find(facility) != nullptr) return {};
  return {nullptr, facility + " has not traced yet; the level holds when it does"};
}

Answer showTrace(Arguments const& given) {
  std::string text;
  nlohmann::json lines = nlohmann::json::array();
  auto const last = given.number("last", Ringlog::kAllRecords);
  for (Ringlog::Record const& record : Ringlog::decode(Ringlog::defaultRinglogHandle, last)) {
    std::ostringstream out;
    out << record;
    text += (text.empty() ? "" : "\n") + out.str();
    lines.push_back(record.text);
  }
  return {lines, text};
}

Answer showFacilities() {
  nlohmann::json levels = nlohmann::json::object();
  TraceHandle::forEach([&levels](TraceHandle& handle) {
    nlohmann::json on = nlohmann::json::array();
    for (unsigned level = 0; level < TraceHandle::kLevels; ++level) {
      if (handle.enabled(level)) on.push_back(level);
    }
    levels[std::string(handle.name())] = on;
  });
  std::string text;
  for (auto const& [name, on] : levels.items()) {
    text += (text.empty() ? "" : "\n") + name + ": ";
    // Of a row of levels, the highest says it all.
    text += on.empty() ? "off" : "level " + on.back().dump();
  }
  return {levels, text};
}

}  // namespace

CommandGroup traceCommands() {
  CommandGroup group{"trace", {}};
  auto& add = group.commands;
  add.emplace_back("show trace [last <N>]", "the trace ring, decoded", "show trace last 5",
                   showTrace);
  add.emplace_back("show trace facilities",
                   "the facilities that have traced, and which of their levels are text",
                   "show trace facilities", [](Arguments const&) { return showFacilities(); });
  add.emplace_back("trace level <LEVEL> [facility <NAME>]",
                   "write traces up to that level, 0 to 30, as text on standard error; off: none",
                   "trace level 9", traceLevel);
  return group;
}

}  // namespace Host
