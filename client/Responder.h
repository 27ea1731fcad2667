// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <utility>

/// What answers requests as ControlServer describes them: lines, and transactions of lines. A
/// service, or the client itself over a store.
class Responder {
 public:
  Responder() = default;
  Responder(Responder const&) = delete;
  Responder& operator=(Responder const&) = delete;
  virtual ~Responder() = default;

  /// Takes a request, which is carried out at the latest when its answer is received.
  virtual void send(nlohmann::json request) = 0;
  /// The answer to the earliest request that has none yet.
  virtual nlohmann::json receive() = 0;

  nlohmann::json ask(nlohmann::json request) {
    send(std::move(request));
    return receive();
  }
};
