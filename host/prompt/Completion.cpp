// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
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

void collectVrfIds(json const& inputs, std::set<std::string>& found) {
  for (auto const& [id, name] : inputs["l3Status"]["idToName"].items()) found.insert(id);
  for (auto const& [id, addresses] : inputs["agentStatus"].items()) found.insert(id);
}

// The files and folders that begin as the typed path does, folders with a slash.
void collectFiles(std::string_view typed, std::set<std::string>& found) {
  size_t const slash = typed.rfind('/') + 1;
  std::string const folder(typed.substr(0, slash));
  std::error_code error;
  std::filesystem::directory_iterator const all(folder.empty() ? "." : folder, error);
  if (error) return;
  for (auto const& entry : all) {
    std::string name = entry.path().filename().string();
    if (name.starts_with('.') && !typed.substr(slash).starts_with('.')) continue;
    if (entry.is_directory(error)) name += '/';
    found.insert(folder + name);
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

void collectValues(Completion const& place, std::string_view typed, Switch const& host,
                   std::set<std::string>& found) {
  if (place.slot == "VRF") {
    collectVrfs(host, found);
  } else if (place.slot == "IP") {
    collectAddresses(host, found);
  } else if (place.slot == "INTF") {
    collectInterfaces(host, found);
  } else if (place.slot == "N" && place.key == "vrf-id") {
    collectVrfIds(dumpInputs(host), found);
  } else if (place.slot == "NAME" && place.key == "profile") {
    json const inputs = dumpInputs(host);
    for (auto const& [name, entry] : inputs["profiles"].items()) found.insert(name);
  } else if (place.slot == "LEVEL") {
    // Those that the plug-in and the framework use.
    found.insert({"0", "4", "9", "off"});
  } else if (place.slot == "FILE" || place.slot == "DIR" || place.slot.ends_with(".pcap")) {
    collectFiles(typed, found);
  }
}

/// An unfinished line: its complete words, in full, and what is typed of the last one.
struct Unfinished {
  std::vector<std::string> words;
  std::string_view typed;
};

size_t lastWordBegin(std::string_view line) {
  bool quoted = false;
  bool escaped = false;
  size_t begin = 0;
  for (size_t at = 0; at < line.size(); ++at) {
    char const c = line[at];
    bool const blank = c == ' ' || c == '\t';
    if (!quoted && blank) {
      begin = at + 1;
    } else if (c == '"' && !escaped && (quoted || at == begin)) {
      quoted = !quoted;
    }
    escaped = quoted && c == '\\' && !escaped;
  }
  return begin;
}

/// Throws InputError.
Unfinished unfinished(std::string_view line, Shell& shell) {
  size_t const begin = lastWordBegin(line);
  return {shell.pipeline().expanded(splitWords(line.substr(0, begin))), line.substr(begin)};
}

}  // namespace

std::vector<std::string> completionsOf(std::string_view line, Shell& shell) {
  std::set<std::string> found;
  std::string_view typed;
  try {
    auto const parsed = unfinished(line, shell);
    typed = parsed.typed;
    for (auto const& [place, help] : shell.pipeline().next(parsed.words)) {
      if (!place.isKeyword()) {
        collectValues(place, typed, shell.host(), found);
      } else if (place.text != CommandTable::kEndOfLine) {
        found.insert(place.text);
      }
    }
  } catch (InputError const&) {
    return {};
  }
  std::vector<std::string> fitting;
  for (std::string const& each : found) {
    if (!each.empty() && typedWord(each).starts_with(typed)) fitting.push_back(typedWord(each));
  }
  return fitting;
}

std::vector<std::string> explanationOf(std::string_view line, Shell& shell) {
  std::vector<CommandTable::Next> fitting;
  std::set<std::string> values;
  size_t width = 0;
  try {
    auto const [words, typed] = unfinished(line, shell);
    for (auto& each : shell.pipeline().next(words)) {
      bool const keyword = each.completion.isKeyword();
      bool const end = each.completion.text == CommandTable::kEndOfLine;
      if (end ? !typed.empty() : keyword && !each.completion.text.starts_with(typed)) continue;
      if (!keyword) collectValues(each.completion, typed, shell.host(), values);
      width = std::max(width, each.completion.text.size());
      fitting.push_back(std::move(each));
    }
    std::erase_if(values, [typed = typed](auto const& value) {
      return value.empty() || !typedWord(value).starts_with(typed);
    });
  } catch (InputError const& error) {
    return {std::string("error: ") + error.what()};
  }
  std::vector<std::string> lines;
  for (auto const& [completion, help] : fitting) {
    std::string text = "  " + completion.text;
    text.append(width + 4 - text.size(), ' ');
    lines.push_back(text + help);
  }
  std::string known;
  for (std::string const& value : values) {
    known += "  ";
    known += typedWord(value);
  }
  if (!known.empty()) lines.push_back("  known:" + known);
  if (lines.empty()) lines.emplace_back("  nothing can come next");
  return lines;
}

bool endsInQuotes(std::string_view line) {
  std::string_view const last = line.substr(lastWordBegin(line));
  if (!last.starts_with('"')) return false;
  try {
    splitWords(last);
  } catch (InputError const&) {
    return true;
  }
  return false;
}

}  // namespace Host
