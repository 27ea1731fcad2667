// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <sstream>

#include "framework/command/CommandDispatcher.h"
#include "framework/core/Strep.h"
#include "framework/log/LogService.h"
#include "host/commands/Commands.h"
#include "host/commands/Configuration.h"
#include "host/commands/SlicedShow.h"
#include "host/dumps/Dumps.h"
#include "host/language/InputError.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

Answer rewriteIs(Switch& host, Arguments const& given) {
  OperatorLine const line = operatorLineOf(given.words);
  configurationLineIs(host, line.key, line.mac.value());
  return {};
}

Answer rewriteDel(Switch& host, Arguments const& given) {
  OperatorLine const line = operatorLineOf(given.words);
  if (line.mac) {
    auto const mac = configuredMac(host, line.key);
    if (!mac) return {};
    if (auto const why = refusal(line, mac); !why.empty()) throw InputError(why);
  }
  configurationLineDel(host, line.key);
  return {};
}

Answer showRewrite(Switch& host, Arguments const& given) {
  std::string output;
  Agent::CommandDispatcher dispatcher(host.clock, 1.0);
  startShow(host, given, dispatcher, output);
  while (dispatcher.commands() > 0) dispatcher.runSlices();
  bool const json = given.has("json");
  nlohmann::json answer = json ? parsedJson(output) : nlohmann::json();
  if (output.ends_with('\n')) output.pop_back();
  return json ? Answer(std::move(answer), output) : Answer(output, output);
}

Answer showRunningConfig(Switch& host) {
  std::string text;
  nlohmann::json lines = nlohmann::json::array();
  for (ConfigLine const& line : configLines(host)) {
    std::string const one = textOf({line.vrfName, line.ip}, line.mac);
    text += (text.empty() ? "" : "\n") + one;
    lines.push_back(one);
  }
  return {lines, text};
}

Answer showCapability(Switch& host) {
  nlohmann::json const capability = dumpCapability(host);
  bool const supported =
      capability.is_object() && capability["overlaySrcMacRewriteSupported"].get<bool>();
  return {capability, std::string("overlay source MAC rewrite: ") +
                          (supported ? "supported" : "not supported")};
}

Answer showTable(Switch& host) {
  nlohmann::json const stats = dumpStats(host);
  if (stats.is_null()) return {stats, "overlaySrcMacRewrite: not initialised"};
  std::string text = "overlaySrcMacRewrite: " + stats["entriesInUse"].dump() + " of " +
                     stats["capacity"].dump() + " entries in use";
  // A profile's table size has 16 bits, and the chip may have been given another size.
  if (size_t const rows = tableCapacity(host); stats["capacity"] != rows) {
    text += "\nthe chip takes " + std::to_string(rows) + " rows";
  }
  return {stats, text};
}

Answer showLog() {
  std::string text;
  for (Kiv::LogMessage const& message : Kiv::LogService::recent()) {
    text += (text.empty() ? "" : "\n") + Kiv::toString(message);
  }
  return {dumpLog(), text};
}

}  // namespace

void startShow(Switch& host, Arguments const& given, Agent::CommandDispatcher& dispatcher,
               std::string& output) {
  if (!host.hasAgent()) throw InputError("there is no agent; host agent create makes one");
  if (!host.tableManager()) {
    throw InputError("there is no table manager; a change of host init-tables makes one");
  }
  bool const json = given.has("json");
  auto const request = Kiv::makeActive<Agent::AgentCommandRequest>(
      0u, static_cast<Kiv::U32>(json ? prettyout::Format::Json : prettyout::Format::Text),
      [&output](std::string_view bytes) {
        output += bytes;
        return bytes.size();
      });
  bool const vrf = given.has("vrf");
  bool const ip = given.has("src-ip");
  // The first src-mac is the keyword of the command itself; a filter's value is no keyword.
  bool const mac = given.has("src-mac") && given.text("src-mac") != "src-mac";
  Kiv::GenericValue const arguments[] = {
      get(host.agent(), "overlaySrcMacRewriteManager"),
      Kiv::GenericValue::of(vrf),
      Kiv::GenericValue(Kiv::valueToStrep(L3::VrfName(vrf ? given.text("vrf") : ""))),
      Kiv::GenericValue::of(ip),
      Kiv::GenericValue(Kiv::valueToStrep(ip ? given.ip("src-ip") : Ovra::IpAddr())),
      Kiv::GenericValue::of(mac),
      Kiv::GenericValue(Kiv::valueToStrep(mac ? given.mac("src-mac") : Ovra::EthAddr())),
      Kiv::GenericValue::of(given.has("cli-testing")),
  };
  dispatcher.commandIs("BfnMacRewrite::ShowMacRewriteCommandRequestSm", request, arguments);
}

CommandGroup sliceCommands(SlicedShow& show) {
  CommandGroup group{"show in slices", {}};
  auto& add = group.commands;
  add.emplace_back(
      "show vxlan forwarding src-mac rewrite [vrf <VRF>] [src-ip <IP>] [src-mac <MAC>] "
      "[cli-testing] slices [json]",
      "the same, of which only the first slice runs; other lines may come before the next one",
      "show vxlan forwarding src-mac rewrite cli-testing slices",
      [&show](Arguments const& given) { return show.start(given); });
  add.emplace_back("show slice", "the next slice, and whether the command has ended", "show slice",
                   [&show](Arguments const&) { return show.next(); });
  return group;
}

CommandGroup operatorCommands(Switch& host) {
  CommandGroup group{"operator", {}};
  auto& add = group.commands;
  add.emplace_back("vxlan forwarding match vrf <VRF> src-ip <IP> action rewrite src-mac <MAC>",
                   "packets of the VRF from that address leave with that source MAC",
                   "vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac "
                   "02:11:22:33:44:55",
                   [&host](Arguments const& given) { return rewriteIs(host, given); });
  add.emplace_back("no vxlan forwarding match vrf <VRF> src-ip <IP> [action rewrite src-mac <MAC>]",
                   "remove that line; a given MAC must be the configured one",
                   "no vxlan forwarding match vrf red src-ip 10.0.0.1",
                   [&host](Arguments const& given) { return rewriteDel(host, given); });
  add.emplace_back(
      "show vxlan forwarding src-mac rewrite [vrf <VRF>] [src-ip <IP>] [src-mac <MAC>] "
      "[cli-testing] [| json]",
      "the programmed rewrites, sorted and filtered; cli-testing yields after every step",
      "show vxlan forwarding src-mac rewrite vrf red | json",
      [&host](Arguments const& given) { return showRewrite(host, given); });
  add.emplace_back("show running-config", "the operator's configuration, sorted",
                   "show running-config",
                   [&host](Arguments const&) { return showRunningConfig(host); });
  add.emplace_back("show capability", "the chip's capability as the plug-in reports it",
                   "show capability", [&host](Arguments const&) { return showCapability(host); });
  add.emplace_back("show hardware table overlaySrcMacRewrite", "the use of the chip's table",
                   "show hardware table overlaySrcMacRewrite",
                   [&host](Arguments const&) { return showTable(host); });
  add.emplace_back("show log", "the log messages so far", "show log",
                   [](Arguments const&) { return showLog(); });
  return group;
}

}  // namespace Host
