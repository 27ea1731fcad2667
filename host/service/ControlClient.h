// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <sys/types.h>

#include "host/fork/ForkedTask.h"
#include "host/service/ControlServer.h"
#include "host/service/OperatorBatch.h"

namespace Host {

/// The statuses of an error's answer.
enum ControlStatus : int { Refused = 1, BadInput = 2 };

/// Answers as lines. `more`: what else is in it, or null.
std::string errorAnswer(nlohmann::json const& id, int status, std::string const& why,
                        nlohmann::json more = nlohmann::json());
std::string answerText(nlohmann::json const& id, bool withoutText, Answer const& answer,
                       nlohmann::json more = nlohmann::json());

/// What is wrong, as an answer has it.
struct ControlError {
  explicit ControlError(std::exception_ptr const& thrown);
  int status = Refused;
  std::string why;
  /// The number of the word that is wrong, where that is known.
  std::optional<size_t> word;
};

// NOLINTNEXTLINE(bugprone-exception-escape): the constructor of an empty json is not noexcept.
struct ControlServer::Client {
  OwnedDescriptor socket;
  uid_t uid = 0;
  bool mayChange = false;
  bool inputEnded = false;
  std::string in;
  std::string out;
  Kiv::U64 failedRun = 0;  // its other requests are skipped
  // Lines that wait for their commit.
  std::optional<OperatorBatch> kept;
  bool keptFailed = false;  // one was wrong; the others are skipped
  std::optional<Kiv::U64> awaits;
  nlohmann::json awaitId = nlohmann::json();
  // A large answer that is being made.
  std::optional<ForkedTask> task;
  nlohmann::json taskId = nlohmann::json();
  size_t taskOutput = 0;
  std::array<EventLoop::SourcePtr, 3> taskSources;
  EventLoop::SourcePtr source;
};

}  // namespace Host
