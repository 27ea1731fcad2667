// SPDX-License-Identifier: Apache-2.0
#include "client/StoreEditor.h"

#include "agent/records/BfnMacRewriteInput.h"
#include "framework/core/Clock.h"
#include "host/commands/Commands.h"
#include "host/language/Lexer.h"
#include "host/service/Inputs.h"
#include "host/service/OperatorChanges.h"

StoreEditor::StoreEditor(std::string const& url, Host::StoreOptions const& options)
    : database_(Kiv::makeActive<Corvo::Database>()),
      host_(database_, {}),
      mirror_(Host::openStore(Host::StoreUrl(url), options), database_,
              Kiv::makeActive<Kiv::SteadyClock>()) {
  mirror_.follow();
  if (!mirror_.current()) throw Host::StoreAway(mirror_.status().reason);
  if (!database_->object(Host::InputPath::kConfig)) {
    mirror_.make(Host::InputPath::kConfig,
                 std::string(BfnMacRewrite::Input::Config::_kivType().name()));
  }
  host_.cliConfigIsDatabases();
  addCommands();
}

void StoreEditor::addCommands() {
  Host::CommandGroup group{"operator", {}};
  auto const changes = Host::operatorChanges();
  for (Host::Command& command : Host::operatorCommands(host_).commands) {
    std::string const form = command.pattern.text();
    auto const change = changes.find(form);
    if (change != changes.end()) {
      command.handler = [this, make = change->second](Host::Arguments const& given) {
        auto all = make(*database_->object(Host::InputPath::kConfig), given);
        if (!all.empty()) mirror_.submit(std::move(all));
        return Host::Answer();
      };
    } else if (form != "show running-config") {
      continue;
    }
    group.commands.push_back(std::move(command));
  }
  group.commands.emplace_back("help [<COMMAND>]", "the commands, or those that begin so", "help",
                              [this](Host::Arguments const& given) {
                                std::string const text = table_.help(given.words.subspan(1));
                                return Host::Answer(text, text);
                              });
  table_.add(std::move(group));
}

Host::Answer StoreEditor::run(std::string_view line) {
  mirror_.follow();
  auto const words = table_.expanded(Host::splitWords(line));
  if (words.empty()) return {};
  auto const found = table_.find(words);
  return found.command->handler(found.arguments);
}
