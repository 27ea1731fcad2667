// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <span>
#include <sstream>
#include <string>

#include "client/Connection.h"
#include "client/Remote.h"
#include "host/prompt/TableTarget.h"

/// A service as what a prompt is for: the forms that it takes, and those of the client's own.
/// Connects again when the service was gone, before the next line; no line is sent twice.
class ServicePrompt final : public Host::TableTarget {
 public:
  /// Throws what Connection does.
  ServicePrompt(std::string socket, Remote::Options options);

  /// The switch's.
  std::string name() const override { return name_; }
  Host::Selection known(std::string_view kind, std::string_view typed) override;

 private:
  struct Link {
    Link(std::string const& socket, Remote::Options options)
        : connection(socket), remote(connection, out, errors, options) {}
    Connection connection;
    std::ostringstream out;
    std::ostringstream errors;
    Remote remote;
  };

  void begin() override;
  /// Connects where that is needed and can be done.
  void connect();
  void takeForms();
  /// What the lines of a service may have beside the service's own.
  Host::CommandGroup ownCommands();
  /// Calls `f(link)`. An error ends the connection; it says whether the line may have changed
  /// something.
  template <class F>
  auto withLink(bool changes, F const& f);
  nlohmann::json ask(std::span<std::string const> words, bool changes);
  Host::Answer answerTo(std::span<std::string const> words, bool changes);
  Host::Answer load(std::string const& file);
  Host::Answer expect(Host::Arguments const& given);
  Host::Answer watched(std::span<std::string const> words);

  std::string const socket_;
  Remote::Options const options_;
  std::string name_;
  std::unique_ptr<Link> link_;
  /// Why there is none.
  std::string lacks_;
  /// The service was gone, and it has not been said that it is back.
  bool lost_ = false;
};
