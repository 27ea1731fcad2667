// SPDX-License-Identifier: Apache-2.0
#include "host/shell/WhatIf.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "chip/RewriteLayout.h"
#include "host/dumps/Dumps.h"
#include "host/explain/Explain.h"
#include "host/fork/ForkedTask.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/shell/Shell.h"

namespace Host {

namespace {

using nlohmann::json;

// --- In the copy

/// Refuses what would change more than the agent.
void checkLine(Shell const& copy, std::span<std::string const> words) {
  auto const command = copy.table().innermost(words);
  for (std::string_view const first : {"packets", "generate", "what-if"}) {
    if (!command.empty() && command[0] == first) {
      throw InputError("a what-if carries out no " + std::string(first));
    }
  }
  for (size_t i = 0; i + 1 < words.size(); ++i) {
    if (words[i] == "|" && words[i + 1] == "save") {
      throw InputError("a what-if saves no file");
    }
  }
}

json rowJson(BfnChip::Row const& row) {
  json fields = rowKeyJson(row.key);
  fields["mac"] = macText(row.action);
  return fields;
}

/// The rows that the chip would not have taken.
json waitingRows(Switch& host) {
  json rows = json::array();
  if (host.reconciler() != nullptr) {
    for (json& change : dumpWaiting(host)) {
      if (change["op"] == "delete") continue;
      rows.push_back({{"mac", change["mac"]},
                      {"reason", change["reason"]},
                      {"sip", change["sip"]},
                      {"vlan", change["vlan"]}});
    }
    return rows;
  }
  FactFinder const finder(factSources(host));
  for (Pex::VrfAndIpAddr const& pair : finder.indexed()) {
    PairFacts const facts = finder.ofVrfId(pair.vrfId(), pair.ipAddr());
    Reason const reason = reasonOf(facts);
    if (reason != Reason::WaitingFull && reason != Reason::WaitingRetry) continue;
    std::ostringstream mac;
    std::ostringstream ip;
    mac << facts.macNow();
    ip << facts.ip;
    rows.push_back({{"mac", mac.str()},
                    {"reason", reason == Reason::WaitingFull ? "table full" : "refused"},
                    {"sip", ip.str()},
                    {"vlan", *facts.vlanNow()}});
  }
  return rows;
}

json differences(std::vector<BfnChip::Row> const& before, std::vector<BfnChip::Row> const& after) {
  json added = json::array();
  json removed = json::array();
  json changed = json::array();
  auto const order = [](BfnChip::Row const& row) {
    return BfnChip::RewriteLayout::fields(row.key);
  };
  auto now = before.begin();
  for (BfnChip::Row const& row : after) {
    for (; now != before.end() && order(*now) < order(row); ++now) removed.push_back(rowJson(*now));
    if (now == before.end() || order(row) < order(*now)) {
      added.push_back(rowJson(row));
      continue;
    }
    if (now->action != row.action) {
      changed.push_back(rowJson(row));
      changed.back()["was"] = macText(now->action);
    }
    ++now;
  }
  for (; now != before.end(); ++now) removed.push_back(rowJson(*now));
  return {{"added", added}, {"changed", changed}, {"removed", removed}};
}

/// Each line before it is carried out, so that the last one is the one that has ended the copy; and
/// at last what has changed.
int carryOutInCopy(Switch& host, CarryOut const& carryOut, int out) {
  auto const before = chipRows(host);
  std::ostringstream answers;
  std::ostringstream errors;
  Shell copy(host, answers);
  copy.recorderIs({[&](std::string_view line) {
                     checkLine(copy, splitWords(line));
                     writeAll(out, copy.place() + '\t' + std::string(line) + '\n');
                   },
                   [] {}});
  carryOut(copy, errors);
  json result = differences(before, chipRows(host));
  result["waiting"] = waitingRows(host);
  result["dies"] = nullptr;
  std::string error = errors.str();
  while (error.ends_with('\n')) error.pop_back();
  result["error"] = error.empty() ? json() : json(error);
  writeAll(out, '\t' + jsonText(result) + '\n');
  return 0;
}

// --- In this process

/// The last of what the copy wrote.
std::string lastLine(std::string const& text) {
  if (text.empty()) return text;
  size_t const before = text.rfind('\n', text.size() - 2);
  size_t const begin = before == std::string::npos || text.size() < 2 ? 0 : before + 1;
  return text.substr(begin, text.size() - begin - 1);
}

}  // namespace

json whatIf(Shell& shell, CarryOut const& carryOut) {
  constexpr std::chrono::hours kLongest{1};
  Switch& host = shell.host();
  auto rows = host.tableCopy();
  ForkedTask task = ForkedTask::start([&](int out) {
    host.detach(std::move(rows));
    return carryOutInCopy(host, carryOut, out);
  });
  std::string text;
  ForkedEnd const end = task.finish(kLongest, text);
  std::string const last = lastLine(text);
  if (end.isSuccess()) return parsedJson(last.substr(1));
  if (end.signal == SIGINT) throw std::runtime_error("interrupted");
  if (!end.signal || end.signal == SIGKILL) {
    throw std::runtime_error("the copy of the agent did not come to an end" +
                             (end.errorText.empty() ? "" : ": " + end.errorText));
  }
  size_t const tab = last.find('\t');
  return {{"added", nullptr},
          {"changed", nullptr},
          {"dies",
           {{"command", last.substr(tab + 1)},
            {"line", last.substr(0, tab)},
            {"text", fatalSentence(end.errorText)}}},
          {"error", nullptr},
          {"removed", nullptr},
          {"waiting", nullptr}};
}

namespace {

void addRow(std::string& text, json const& row, std::string const& now, std::string const& then) {
  char line[96];
  std::snprintf(line, sizeof line, "%-5u %-16s %-18s %s\n", row["vlan"].get<unsigned>(),
                row["sip"].get_ref<std::string const&>().c_str(), now.c_str(), then.c_str());
  text += line;
}

/// Adds to the marks, too.
std::string rowsText(json const& result, std::string& marks) {
  std::string text;
  if (result["added"].size() + result["removed"].size() + result["changed"].size() +
          result["waiting"].size() >
      0) {
    text = "VLAN  Source IP        Now                Then\n";
    marks += ' ';
  }
  marks.append(result["added"].size(), '+');
  marks.append(result["removed"].size(), '-');
  marks.append(result["changed"].size(), '~');
  marks.append(result["waiting"].size() + 1, ' ');
  for (json const& row : result["added"]) addRow(text, row, "-", row["mac"].get<std::string>());
  for (json const& row : result["removed"]) addRow(text, row, row["mac"].get<std::string>(), "-");
  for (json const& row : result["changed"]) {
    addRow(text, row, row["was"].get<std::string>(), row["mac"].get<std::string>());
  }
  for (json const& row : result["waiting"]) {
    addRow(text, row, "-",
           row["mac"].get<std::string>() + " waits: " + row["reason"].get<std::string>());
  }
  return text + std::to_string(result["added"].size()) +
         (result["added"].size() == 1 ? " row" : " rows") + " added, " +
         std::to_string(result["removed"].size()) + " removed, " +
         std::to_string(result["changed"].size()) + " changed, " +
         std::to_string(result["waiting"].size()) + " waiting";
}

}  // namespace

Answer whatIfAnswer(json const& result, std::string const& name) {
  if (json const& dies = result["dies"]; !dies.is_null()) {
    return {result, name + ": the agent would die at " + dies["line"].get<std::string>() + "\n  " +
                        dies["command"].get<std::string>() + "\n  " +
                        dies["text"].get<std::string>()};
  }
  std::string text;
  if (json const& error = result["error"]; !error.is_null()) {
    text = name + ": refused, what follows is up to there\n  " + error.get<std::string>() + '\n';
  }
  std::string marks(static_cast<size_t>(std::ranges::count(text, '\n')), ' ');
  text += rowsText(result, marks);
  return {result, text, marks};
}

CommandGroup whatIfCommands(Shell& shell) {
  CommandGroup group{"before it is done", {}};
  group.commands.emplace_back(
      "what-if <FILE>",
      "what load would do to the chip's rows, tried on a copy; the agent is untouched",
      "what-if operator.cfg", [&shell](Arguments const& given) {
        std::string const name = given.text("what-if");
        std::string const line = "load " + quotedWord(shell.inputPath(name).string());
        return whatIfAnswer(whatIf(shell,
                                   [&](Shell& copy, std::ostream& errors) {
                                     std::istringstream in(line);
                                     copy.runStream(in, "what-if", errors);
                                   }),
                            name);
      });
  return group;
}

}  // namespace Host
