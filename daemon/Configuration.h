// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "framework/core/Types.h"
#include "host/service/ControlProtocol.h"
#include "host/store/OpenStore.h"

/// What the service is to do, from its configuration file and its command line.
struct Configuration {
  std::string database;  ///< URL; empty: an SQLite file in the state directory
  std::string table = "model";
  std::optional<size_t> rows;  ///< of a kernel's table that is made
  std::string control = Host::kControlSocket;
  std::string metrics;  ///< file; empty: none
  double metricsInterval = 15;
  double auditInterval = 300;  ///< seconds; 0: none
  std::string plugin;
  std::string state;
  std::string switchName;
  bool ownConfiguration = false;
  std::optional<Kiv::U32> hashSeed;
  std::optional<unsigned> traceLevel;
  std::vector<std::string> writers;  ///< user names
  Host::StoreOptions store;
};

/// The configuration cannot be used; a line for each thing that is wrong, with its place.
class ConfigurationError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a TOML file into the configuration. Throws ConfigurationError, which names all that is
/// wrong.
void readConfiguration(std::string const& file, Configuration& to);
/// The same of a file's text. Its name is for errors.
void readConfiguration(std::string_view text, std::string const& file, Configuration& to);

/// The options in force, by the names that they have in the file; without those that are not set.
/// Of a secret it has the file's name.
nlohmann::json optionsOf(Configuration const& with);

/// What is wrong with the values, a line each; empty: nothing.
std::string faultsOf(Configuration const& with);
