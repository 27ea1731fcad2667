// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <span>
#include <string>

#include "client/ClientPrompt.h"
#include "client/Connection.h"

/// A service as what a prompt is for: the forms that it takes, and those of the client's own.
/// Connects again when the service was gone, before the next line; no line is sent twice.
class ServicePrompt final : public ClientPrompt {
 public:
  /// Throws what Connection does.
  ServicePrompt(std::string socket, Remote::Options options);

  /// The switch's.
  std::string name() const override { return name_; }
  Host::Selection known(std::string_view kind, std::string_view typed) override;

 private:
  struct Link {
    explicit Link(ServicePrompt& prompt)
        : connection(prompt.socket_), remote(prompt.remoteTo(connection)) {}
    Connection connection;
    Remote remote;
  };

  void begin() override;
  /// Connects where that is needed and can be done.
  void connect();
  void takeForms();
  void withRemote(std::function<void(Remote&)> const& f) override;
  nlohmann::json jsonAnswerTo(std::span<std::string const> words) override;
  /// Calls `f(link)`. An error ends the connection; it says whether the line may have changed
  /// something.
  template <class F>
  auto withLink(bool changes, F const& f);
  nlohmann::json ask(std::span<std::string const> words, bool changes);
  Host::Answer answerTo(std::span<std::string const> words, bool changes);
  Host::Answer watched(std::span<std::string const> words);

  std::string const socket_;
  std::string name_;
  std::unique_ptr<Link> link_;
  /// Why there is none.
  std::string lacks_;
  /// The service was gone, and it has not been said that it is back.
  bool lost_ = false;
};
