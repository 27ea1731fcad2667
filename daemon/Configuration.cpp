// SPDX-License-Identifier: Apache-2.0
#include "daemon/Configuration.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <pwd.h>
#include <sstream>

#include "host/kernel/OpenTable.h"
#include "host/store/StoreError.h"
#include "host/store/StoreUrl.h"

namespace {

/// The parser has come into a state that it takes to be impossible: some texts that are no TOML
/// bring it there.
struct ParserFailed : std::exception {};

[[noreturn]] void parserFailed() {
  throw ParserFailed();
}

}  // namespace

// Where the parser's assumptions do not hold, what follows is undefined: they are checked in every
// build type.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#define TOML_ASSERT(expr) ((expr) ? static_cast<void>(0) : parserFailed())
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")

namespace {

/// Reads one table of the file, and notes what is wrong in it.
class Reader {
 public:
  Reader(std::string file, std::string& faults) : file_(std::move(file)), faults_(faults) {}

  void fault(toml::node const& node, std::string const& what) {
    std::ostringstream line;
    line << file_ << ':' << node.source().begin.line << ": " << what;
    faults_ += (faults_.empty() ? "" : "\n") + line.str();
  }
  void text(char const* name, std::string& to) {
    known_[name] = [this, name, &to](toml::node const& node) {
      if (auto const value = node.value_exact<std::string>()) {
        to = *value;
      } else {
        fault(node, std::string(name) + ": expected a string");
      }
    };
  }
  void flag(char const* name, bool& to) {
    known_[name] = [this, name, &to](toml::node const& node) {
      if (auto const value = node.value_exact<bool>()) {
        to = *value;
      } else {
        fault(node, std::string(name) + ": expected true or false");
      }
    };
  }
  void seconds(char const* name, double& to) {
    known_[name] = [this, name, &to](toml::node const& node) {
      auto const value = node.value<double>();
      if (value && *value >= 0 && *value <= 1e6) {
        to = *value;
      } else {
        fault(node, std::string(name) + ": expected a number of seconds");
      }
    };
  }
  template <class T>
  void number(char const* name, std::int64_t most, std::optional<T>& to) {
    known_[name] = [this, name, most, &to](toml::node const& node) {
      auto const value = node.value_exact<std::int64_t>();
      if (value && *value >= 0 && *value <= most) {
        to = static_cast<T>(*value);
      } else {
        fault(node, std::string(name) + ": expected a number from 0 to " + std::to_string(most));
      }
    };
  }
  void other(char const* name, std::function<void(toml::node const&)> read) {
    known_[name] = std::move(read);
  }
  void texts(char const* name, std::vector<std::string>& to) {
    other(name, [this, name, &to](toml::node const& node) {
      auto const* const list = node.as_array();
      if (list == nullptr) {
        fault(node, std::string(name) + ": expected a list of strings");
        return;
      }
      to.clear();
      for (toml::node const& each : *list) {
        if (auto const value = each.value_exact<std::string>()) {
          to.push_back(*value);
        } else {
          fault(each, std::string(name) + ": expected a string");
        }
      }
    });
  }
  void read(toml::table const& table) {
    for (auto const& [key, node] : table) {
      auto const found = known_.find(std::string(key.str()));
      if (found == known_.end()) {
        fault(node, "there is no option " + std::string(key.str()));
      } else {
        found->second(node);
      }
    }
  }

 private:
  std::string const file_;
  std::string& faults_;
  std::map<std::string, std::function<void(toml::node const&)>> known_;
};

void addStore(Reader& reader, Host::StoreOptions& options, std::string& durability) {
  reader.text("durability", durability);
  reader.text("user", options.user);
  reader.text("secret-file", options.secretFile);
  reader.text("prefix", options.prefix);
  reader.seconds("timeout", options.timeout);
}

// The parser is not defined for every code point that may stand where a key is expected.
void expectAscii(std::string_view text, std::string const& file) {
  size_t number = 0;
  for (size_t at = 0; at < text.size(); ++number) {
    std::string_view const line = text.substr(at, text.find('\n', at) - at);
    at += line.size() + 1;
    size_t const begin = line.find_first_not_of(" \t");
    bool const isComment = begin != std::string_view::npos && line[begin] == '#';
    if (!isComment &&
        std::ranges::any_of(line, [](char c) { return static_cast<unsigned char>(c) > 127; })) {
      throw ConfigurationError(file + ':' + std::to_string(number + 1) +
                               ": a character that is not ASCII is written as \\uXXXX, or in a "
                               "comment that has its line for itself");
    }
  }
}

}  // namespace

void readConfiguration(std::string const& file, Configuration& to) {
  std::ifstream in(file);
  // A folder opens, too.
  if (!in || std::filesystem::is_directory(file)) {
    throw ConfigurationError(file + ": cannot be read");
  }
  std::string const text{std::istreambuf_iterator<char>(in), {}};
  readConfiguration(text, file, to);
}

void readConfiguration(std::string_view text, std::string const& file, Configuration& to) {
  expectAscii(text, file);
  std::string faults;
  toml::table table;
  try {
    table = toml::parse(text, file);
  } catch (toml::parse_error const& error) {
    std::ostringstream why;
    why << file << ':' << error.source().begin.line << ": " << error.description();
    throw ConfigurationError(why.str());
  } catch (ParserFailed const&) {
    throw ConfigurationError(file + ": this is not TOML");
  }
  Reader reader(file, faults);
  reader.text("database", to.database);
  reader.text("table", to.table);
  reader.text("control", to.control);
  reader.text("metrics", to.metrics);
  reader.seconds("metrics-interval", to.metricsInterval);
  reader.seconds("audit-interval", to.auditInterval);
  reader.text("plugin", to.plugin);
  reader.text("state", to.state);
  reader.text("switch", to.switchName);
  reader.flag("own-configuration", to.ownConfiguration);
  reader.number("hash-seed", std::numeric_limits<Kiv::U32>::max(), to.hashSeed);
  reader.number("rows", 16'000'000, to.rows);
  reader.number("trace", 30, to.traceLevel);
  reader.texts("writers", to.writers);
  std::string durability;
  reader.other("store", [&](toml::node const& node) {
    if (auto const* const store = node.as_table()) {
      Reader inner(file, faults);
      addStore(inner, to.store, durability);
      inner.read(*store);
      using Durability = Host::StoreOptions::Durability;
      if (durability == "power") {
        to.store.durability = Durability::Power;
      } else if (!durability.empty() && durability != "normal") {
        inner.fault(node, "durability: expected \"normal\" or \"power\"");
      }
    } else {
      reader.fault(node, "store: expected a table");
    }
  });
  reader.read(table);
  if (!faults.empty()) throw ConfigurationError(faults);
}

nlohmann::json optionsOf(Configuration const& with) {
  nlohmann::json all{{"table", with.table},
                     {"control", with.control},
                     {"metrics-interval", with.metricsInterval},
                     {"audit-interval", with.auditInterval},
                     {"plugin", with.plugin},
                     {"state", with.state},
                     {"switch", with.switchName},
                     {"own-configuration", with.ownConfiguration},
                     {"writers", with.writers},
                     {"store.timeout", with.store.timeout}};
  bool const power = with.store.durability == Host::StoreOptions::Durability::Power;
  all["store.durability"] = power ? "power" : "normal";
  for (auto const& [name, value] :
       {std::pair("database", &with.database), std::pair("metrics", &with.metrics),
        std::pair("store.user", &with.store.user), std::pair("store.prefix", &with.store.prefix),
        std::pair("store.secret-file", &with.store.secretFile)}) {
    if (!value->empty()) all[name] = *value;
  }
  if (with.rows) all["rows"] = *with.rows;
  if (with.hashSeed) all["hash-seed"] = *with.hashSeed;
  if (with.traceLevel) all["trace"] = *with.traceLevel;
  return all;
}

std::string faultsOf(Configuration const& with) {
  std::string faults;
  auto const add = [&](std::string const& fault) {
    faults += (faults.empty() ? "" : "\n") + fault;
  };
  if (!Host::isTable(with.table)) {
    add(std::string("table: expected ") + Host::kTableForms + ", not " + with.table);
  }
  if (!with.database.empty()) {
    try {
      Host::StoreUrl const url(with.database);
      if (!Host::hasStore(url.kind))
        add("database: this build has no such stores: " + with.database);
    } catch (std::exception const& error) {
      add(std::string("database: ") + error.what());
    }
  }
  if (!with.store.secretFile.empty()) {
    try {
      Host::readStoreSecret(with.store.secretFile);
    } catch (std::exception const& error) {
      add(std::string("secret-file: ") + error.what());
    }
  }
  if (with.switchName.empty() || with.switchName.find('/') != std::string::npos) {
    add("switch: expected a name without a slash");
  }
  for (std::string const& user : with.writers) {
    if (::getpwnam(user.c_str()) == nullptr) add("writers: there is no user " + user);
  }
  return faults;
}
