#include <algorithm>
#include <set>
#include <sstream>

#include "host/dumps/Dumps.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/prompt/Prompt.h"

namespace Host {

namespace {

using nlohmann::json;

void collectVrfs(Switch const& host, std::set<std::string>& found) {
  for (ConfigLine const& line : configLines(host)) found.insert(line.vrfName.stdString());
  if (auto const status = host.l3Status()) {
    for (auto const& entry : status->vrfNameToId()) found.insert(entry.key.stdString());
  }
  if (!host.routeStatus) return;
  for (auto const& vrf : host.routeStatus->vrfStatus()) found.insert(vrf->vrfName().stdString());
}

void collectAddresses(Switch const& host, std::set<std::string>& found) {
  for (ConfigLine const& line : configLines(host)) {
    std::ostringstream text;
    text << line.ip;
    found.insert(text.str());
  }
  json const inputs = dumpInputs(host);
  for (auto const& vrf : inputs["agentStatus"]) {
    for (auto const& [ip, address] : vrf.items()) found.insert(ip);
  }
}

void collectInterfaces(Switch const& host, std::set<std::string>& found) {
  for (char const* const which : {"port", "vlan", "subinterface"}) {
    auto const all = host.routingStatus(which);
    if (!all) continue;
    for (auto const& status : all->l3IntfRoutingStatus()) {
      found.insert(status->intfAndVlan().intfId().stdString());
    }
  }
  json const inputs = dumpInputs(host);
  for (auto const& vrf : inputs["agentStatus"]) {
    for (auto const& address : vrf) found.insert(address["interface"].get<std::string>());
  }
}

}  // namespace

std::vector<std::string> completionsOf(std::string_view line, Shell& shell) {
  std::size_t const begin = line.find_last_of(" \t") + 1;
  std::string_view const typed = line.substr(begin);
  std::vector<std::string> words;
  try {
    words = splitWords(line.substr(0, begin));
  } catch (InputError const&) {
    return {};
  }
  // These are followed by another command.
  constexpr std::string_view kBeforeCommands[] = {"brief", "expect", "help", "measure"};
  std::span<std::string const> before = words;
  while (!before.empty() &&
         std::ranges::find(kBeforeCommands, before[0]) != std::end(kBeforeCommands)) {
    before = before.subspan(1);
  }

  std::set<std::string> found;
  for (std::string const& each : shell.table().completions(before)) {
    if (each == "<VRF>") {
      collectVrfs(shell.host(), found);
    } else if (each == "<IP>") {
      collectAddresses(shell.host(), found);
    } else if (each == "<INTF>") {
      collectInterfaces(shell.host(), found);
    } else if (each[0] != '<') {
      found.insert(each);
    }
  }
  std::vector<std::string> fitting;
  for (std::string const& each : found) {
    if (!each.empty() && quotedWord(each).starts_with(typed)) fitting.push_back(quotedWord(each));
  }
  return fitting;
}

}  // namespace Host
