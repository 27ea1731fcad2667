// SPDX-License-Identifier: Apache-2.0
#include "client/StoreEditor.h"

#include <memory>
#include <set>
#include <utility>

#include "agent/records/BfnMacRewriteInput.h"
#include "framework/core/Clock.h"
#include "host/commands/Commands.h"
#include "host/commands/Configuration.h"
#include "host/language/Lexer.h"
#include "host/service/Inputs.h"
#include "host/service/OperatorChanges.h"
#include "host/store/ScopedStore.h"

namespace {

std::unique_ptr<Host::Store> storeOf(std::string const& url, Host::StoreOptions const& options,
                                     std::string const& switchName) {
  // Of a switch's own records, or of one for all, only the configuration is of interest.
  std::set<std::string> common;
  std::string prefix = "switch/" + switchName + '/';
  if (switchName.empty()) {
    common.insert(Host::InputPath::kConfig);
    prefix = "operator/";
  }
  return std::make_unique<Host::ScopedStore>(Host::openStore(Host::StoreUrl(url), options),
                                             std::move(prefix), std::move(common));
}

}  // namespace

StoreEditor::StoreEditor(std::string const& url, Host::StoreOptions const& options,
                         std::string const& switchName)
    : database_(Kiv::makeActive<Corvo::Database>()),
      host_(database_, {}),
      mirror_(storeOf(url, options, switchName), database_, Kiv::makeActive<Kiv::SteadyClock>()) {
  mirror_.follow();
  if (!mirror_.current()) throw Host::StoreAway(mirror_.status().reason);
  if (!database_->object(Host::InputPath::kConfig)) {
    mirror_.make(Host::InputPath::kConfig,
                 std::string(BfnMacRewrite::Input::Config::_kivType().name()));
  }
  host_.cliConfigIsDatabases();
  Host::CommandGroup group = commands();
  group.commands.emplace_back("help [<COMMAND>]", "the commands, or those that begin so", "help",
                              [this](Host::Arguments const& given) {
                                std::string const text = table_.help(given.words.subspan(1));
                                return Host::Answer(text, text);
                              });
  table_.add(std::move(group));
}

Host::CommandGroup StoreEditor::commands() {
  Host::CommandGroup group{"operator", {}};
  for (Host::Command& command : Host::operatorCommands(host_).commands) {
    std::string const form = command.pattern.text();
    if (Host::isOperatorLine(Host::splitWords(form))) {
      command.handler = [this](Host::Arguments const& given) {
        auto all = Host::operatorChanges(host_, given.words);
        if (!all.empty()) mirror_.submit(std::move(all));
        return Host::Answer();
      };
    } else if (form != "show running-config") {
      continue;
    }
    group.commands.push_back(std::move(command));
  }
  return group;
}

Host::Selection StoreEditor::known(std::string_view kind, std::string_view typed) const {
  return Host::beginningWith(typed, Host::knownValues(Host::KnownInputs(host_), kind));
}

Host::Answer StoreEditor::run(std::string_view line) {
  mirror_.follow();
  auto const words = table_.expanded(Host::splitWords(line));
  if (words.empty()) return {};
  auto const found = table_.find(words);
  return found.command->handler(found.arguments);
}
