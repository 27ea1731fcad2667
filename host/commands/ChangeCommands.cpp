// SPDX-License-Identifier: Apache-2.0
#include <cstdio>

#include "host/commands/Commands.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"

namespace Host {

namespace {

using nlohmann::json;

json lineJson(ConfigurationKey const& key, std::optional<Ovra::EthAddr> mac) {
  return mac ? json(textOf(key, *mac)) : json(nullptr);
}

// Lines as a difference between files has them.
Answer answerOf(std::vector<ConfigurationChange> const& changes) {
  std::string text;
  std::string marks;
  json list = json::array();
  for (auto const& [key, before, after] : changes) {
    if (before) text += "- " + textOf(key, *before) + '\n';
    if (after) text += "+ " + textOf(key, *after) + '\n';
    marks += before && after ? "~~" : before ? "-" : "+";
    list.push_back({{"after", lineJson(key, after)}, {"before", lineJson(key, before)}});
  }
  size_t added = 0;
  size_t removed = 0;
  for (auto const& change : changes) {
    if (!change.before) ++added;
    if (!change.after) ++removed;
  }
  size_t const changed = changes.size() - added - removed;
  text += std::to_string(added) + (added == 1 ? " line" : " lines") + " added, " +
          std::to_string(changed) + " changed, " + std::to_string(removed) + " removed";
  return {list, text, marks + ' '};
}

Answer commitConfirmed(Changes& changes, Arguments const& given) {
  bool const again = changes.hasWindow();
  auto const seconds = given.number("confirmed");
  changes.windowIs(static_cast<double>(seconds));
  std::string const text = std::string("changes ") + (again ? "still " : "") +
                           "have to be committed within " + std::to_string(seconds) +
                           (seconds == 1 ? " second" : " seconds");
  return {{{"seconds", seconds}}, text};
}

Answer commit(Changes& changes) {
  if (!changes.confirm()) {
    throw InputError("there is nothing to confirm; commit confirmed <SECONDS> opens a window");
  }
  return {};
}

Answer checkpoint(Changes& changes, Arguments const& given) {
  std::string const name =
      changes.checkpointIs(given.has("<NAME>") ? given.text("<NAME>") : std::string());
  return {{{"checkpoint", name}}, "checkpoint " + typedWord(name)};
}

Answer rollback(Changes& changes, Arguments const& given) {
  std::string const name = given.has("<NAME>") ? given.text("<NAME>") : std::string();
  auto const* const to = changes.checkpoint(name);
  if (to == nullptr) {
    throw InputError(name.empty() ? "there is no checkpoint; checkpoint makes one"
                                  : "there is no checkpoint " + excerpt(name));
  }
  return answerOf(changes.become(to->configuration));
}

Answer showCheckpoints(Changes const& changes) {
  json list = json::array();
  std::string text = "Time       Lines  Checkpoint";
  for (auto const& [name, time, configuration] : changes.checkpoints()) {
    list.push_back({{"lines", configuration.size()}, {"name", name}, {"time", time}});
    char columns[48];
    std::snprintf(columns, sizeof columns, "\n%-8.0f %7zu  ", time, configuration.size());
    text += columns + typedWord(name);
  }
  auto const deadline = changes.deadline();
  if (deadline) {
    char end[64];
    std::snprintf(end, sizeof end, "\nchanges have to be committed before %.0f", *deadline);
    text += end;
  }
  return {{{"checkpoints", list}, {"deadline", deadline ? json(*deadline) : json(nullptr)}}, text};
}

}  // namespace

CommandGroup changeCommands(Changes& changes, ReadConfiguration const& read) {
  CommandGroup group{"safe change", {}};
  auto& add = group.commands;
  add.emplace_back("replace <FILE>",
                   "the configuration becomes the operator lines of that file, by the smallest "
                   "difference",
                   "replace operator.cfg", [&changes, read](Arguments const& given) {
                     return answerOf(changes.become(read(given.text("replace"))));
                   });
  add.emplace_back("show differences <FILE>", "what replace would change",
                   "show differences operator.cfg", [&changes, read](Arguments const& given) {
                     return answerOf(changes.differencesTo(read(given.text("differences"))));
                   });
  add.emplace_back("commit confirmed <N:1-86400>",
                   "operator lines from now on are taken back unless commit comes within that many "
                   "seconds",
                   "commit confirmed 60",
                   [&changes](Arguments const& given) { return commitConfirmed(changes, given); });
  add.emplace_back("commit", "operator lines since commit confirmed stay", "commit",
                   [&changes](Arguments const&) { return commit(changes); });
  add.emplace_back("checkpoint [<NAME>]", "keep the configuration under a name, or a number",
                   "checkpoint before-work",
                   [&changes](Arguments const& given) { return checkpoint(changes, given); });
  add.emplace_back("rollback [<NAME>]",
                   "the configuration becomes that of the checkpoint, the newest unless named",
                   "rollback before-work",
                   [&changes](Arguments const& given) { return rollback(changes, given); });
  add.emplace_back("show checkpoints", "the checkpoints, and when changes have to be committed",
                   "show checkpoints",
                   [&changes](Arguments const&) { return showCheckpoints(changes); });
  return group;
}

}  // namespace Host
