// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

#include "client/Responder.h"
#include "host/fork/ForkedTask.h"

/// There is no service, or it has gone; the text says which socket and why.
class NoService : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Ctrl-C while something is waited for, where Host::Interrupt takes it. What was asked for is on
/// its way: the connection is of no use any more.
class Interrupted : public std::runtime_error {
 public:
  Interrupted() : std::runtime_error("interrupted") {}
};

/// A client's connection to the service's control socket. Blocking; what waits throws
/// Interrupted.
class Connection final : public Responder {
 public:
  /// Connects and reads the greeting. Throws NoService, also for a service of another protocol, and
  /// std::system_error for a name that is too long.
  explicit Connection(std::string const& socket);

  /// Whether the service has closed it.
  bool gone() const;
  nlohmann::json const& greeting() const { return greeting_; }
  /// Throws NoService, as do those below.
  void send(nlohmann::json request) override;
  /// Sends what is still kept.
  void flush();
  nlohmann::json receive() override;

 private:
  /// Adds what has come to `in_`.
  void read();

  std::string const name_;
  Host::OwnedDescriptor socket_;
  std::string out_;
  std::string in_;
  size_t read_ = 0;  // of in_
  nlohmann::json greeting_;
};
