// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <span>
#include <sstream>
#include <string>

#include "client/Remote.h"
#include "host/prompt/TableTarget.h"

/// A prompt of the client's: has files carried out, and expectations, where its lines are.
class ClientPrompt : public Host::TableTarget {
 protected:
  explicit ClientPrompt(Remote::Options options) : TableTarget(options.json), options_(options) {}

  /// The commands that every prompt of the client has.
  Host::CommandGroup ownCommands();
  /// What prints where load() reads it. The responder must outlive it.
  Remote remoteTo(Responder& responder) { return {responder, out_, errors_, options_}; }
  Remote::Options const& options() const { return options_; }

 private:
  /// Calls `f` with the remote that the prompt's lines go to. Throws std::exception where there is
  /// none.
  virtual void withRemote(std::function<void(Remote&)> const& f) = 0;
  /// The answer to a line of these words, as JSON. Throws std::exception.
  virtual nlohmann::json jsonAnswerTo(std::span<std::string const> words) = 0;

  Host::Answer load(std::string const& file);
  Host::Answer expect(Host::Arguments const& given);

  Remote::Options const options_;
  std::ostringstream out_;
  std::ostringstream errors_;
};
