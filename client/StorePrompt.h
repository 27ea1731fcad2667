// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>

#include "client/ClientPrompt.h"
#include "client/StoreEditor.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"

/// A store's configuration as what a prompt is for.
class StorePrompt final : public ClientPrompt {
 public:
  /// The editor must outlive it.
  StorePrompt(StoreEditor& editor, std::string name, Remote::Options options)
      : ClientPrompt(options), editor_(editor), remote_(remoteTo(editor)), name_(std::move(name)) {
    commandsAre({editor.commands(), ownCommands()});
  }

  std::string name() const override { return name_; }
  Host::Selection known(std::string_view kind, std::string_view typed) override {
    return editor_.known(kind, typed);
  }

 private:
  void begin() override { editor_.follow(); }
  void withRemote(std::function<void(Remote&)> const& f) override { f(remote_); }
  nlohmann::json jsonAnswerTo(std::span<std::string const> words) override {
    nlohmann::json const answer = editor_.ask({{"line", Host::lineOf(words)}});
    if (answer.contains("error")) throw Host::InputError(answer["error"].get<std::string>());
    return answer["answer"];
  }

  StoreEditor& editor_;
  Remote remote_;
  std::string const name_;
};
