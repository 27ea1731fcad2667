// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <stdexcept>

#include "agent/BfnMacRewriteAgentSm.h"

namespace Host {

/// The plug-in cannot be opened, or is none. The text says which file and why.
class PluginError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The plug-in, opened at run time. The lab is linked against nothing of it: its factory is looked
/// up by name, its records are made and written by name through the generic interface, and of its
/// headers only types and inline accessors are used.
///
/// It stays open to the end of the process: trace records that it has written refer to it.
class Plugin {
 public:
  using AgentSmFactory = decltype(BfnMacRewrite::agentSmFactory);

  /// Throws PluginError.
  explicit Plugin(std::filesystem::path const& file);

  std::filesystem::path const& file() const { return file_; }
  AgentSmFactory& agentSmFactory() const { return *agentSmFactory_; }

 private:
  std::filesystem::path file_;
  AgentSmFactory* agentSmFactory_;
};

}  // namespace Host
