// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/commands/KnownValues.h"
#include "host/language/CommandTable.h"
#include "host/service/Service.h"
#include "host/shell/Pipeline.h"

namespace Host {

/// The lines that a service carries out: the operator's, the host's facts, and what looks at them.
/// Forms are the lab's. What changes an input goes to the store first; what a service has no use
/// for is refused by name.
class ServiceCommands {
 public:
  /// The service must outlive it.
  explicit ServiceCommands(Service& service);
  ServiceCommands(ServiceCommands const&) = delete;
  ServiceCommands& operator=(ServiceCommands const&) = delete;

  CommandTable const& table() const { return table_; }
  Pipeline const& pipeline() const { return pipeline_; }

  /// What a line is for the one who carries it out.
  struct Prepared {
    CommandTable::Found found;
    Pipeline::Stages filters;
    /// It changes something.
    bool changes = false;
    /// It looks at much: better done in a process of its own.
    bool large = false;
    /// It is a line of the operator's, which an OperatorBatch takes, and nothing else.
    bool operators = false;
  };
  /// `words` must outlive it. Throws InputError.
  Prepared prepare(std::span<std::string const> words) const;
  /// Carries it out; `line` is what a death would be noted under. Throws InputError, StoreError,
  /// UnreadableException, and what handlers throw.
  Answer run(Prepared const& prepared, std::string_view line);

  /// What is probably a mistake in the line; nothing while there is no agent.
  std::vector<Doubt> doubts(Prepared const& prepared) const;

  /// The forms that are taken, and those that are refused by name: groups of {title, commands,
  /// refused}, which are {form, help, example, changes} and {form, why}.
  nlohmann::json forms() const;
  /// The values of a kind (see kindOf()) that begin so, kMostKnown of them.
  Selection known(std::string_view kind, std::string_view typed) const;
  static constexpr size_t kMostKnown = 200;

  /// What a service adds: commands of the process, not of the agent.
  void add(CommandGroup group, bool changes);

 private:
  using Changes = std::vector<StoreChange>;
  using Translate = std::function<Changes(Arguments const&)>;
  struct Traits {
    bool changes = false;
    bool large = false;
    bool operators = false;
  };

  void take(CommandGroup group);
  /// None: it is refused.
  Command::Handler handlerOf(std::string const& form, Command::Handler own, Traits& traits);
  void refuseLaboratorys();
  Command::Handler withAgent(Command::Handler own);
  void translate(std::string const& form, Translate translate);
  void addTranslations();
  void addHostTranslations();
  void addServiceCommands();

  Service& service_;
  std::map<std::string, Translate> translations_;
  std::map<std::string, Traits> traits_;  // by form
  std::string_view line_;
  CommandTable table_;
  Pipeline pipeline_{table_};
};

/// The status as people read it, ten lines or so.
std::string statusText(nlohmann::json const& status);

}  // namespace Host
