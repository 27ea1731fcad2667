// SPDX-License-Identifier: Apache-2.0
#include "host/service/ServiceCommands.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <optional>
#include <set>
#include <utility>

#include "agent/records/BfnMacRewriteTypes.h"
#include "framework/core/Strep.h"
#include "host/commands/Commands.h"
#include "host/commands/Configuration.h"
#include "host/commands/Doubts.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/service/OperatorChanges.h"
#include "host/service/Version.h"
#include "host/store/RecordForm.h"

namespace Host {

namespace {

using Changes = std::vector<StoreChange>;
using Kind = StoreChange::Kind;
using Kiv::U16;
using Kiv::U32;

// The members of a draft's collections, as changes of the record at a path.
Changes changesOf(std::string const& path, Kiv::PtrInterface const& draft, Kind kind) {
  Changes changes = differenceOf(path, {}, recordForm(draft));
  std::erase_if(changes, [](StoreChange const& change) { return change.key.empty(); });
  for (StoreChange& change : changes) {
    change.kind = kind;
    if (kind == Kind::Del) change.value.clear();
  }
  return changes;
}

// One attribute of a record, as its draft has it.
Changes attributeOf(std::string const& path, Kiv::PtrInterface const& draft,
                    std::string_view attribute) {
  return {{Kind::Set,
           path,
           std::string(attribute),
           "",
           recordForm(draft).at(std::string(attribute)).at(""),
           {},
           {}}};
}

// --- VRFs

// What a mutator that is given that name or id, or both, does to the record, as changes. It is done
// to a part of the record that holds all that such a mutator looks at: the name's id, and whatever
// has one of the ids.
template <class F>
Changes vrfChanges(Inputs const& inputs, std::optional<L3::VrfName> name,
                   std::optional<Pex::VrfId> id, F const& mutate) {
  Pex::L3Status const& all = inputs.vrfs();
  std::set<Pex::VrfId> ids;
  if (id) ids.insert(*id);
  if (Pex::VrfId const* const published = name ? all.vrfNameToId(*name) : nullptr) {
    ids.insert(*published);
  }
  auto const part = Kiv::make<Pex::L3Status>();
  auto walk = all.vrfNameToId().cursor();
  while (auto const* const live = walk.next()) {
    if (ids.contains(live->value)) part->vrfNameToIdIs(live->key, live->value);
  }
  for (Pex::VrfId const each : ids) {
    if (all.vrfName().has(each)) part->vrfNameIs(each, all.vrfName(each));
  }
  RecordForm const before = recordForm(*part);
  mutate(*part);
  return differenceOf(InputPath::kVrfs, before, recordForm(*part));
}

Changes vrfDel(Inputs const& inputs, Arguments const& given) {
  L3::VrfName const name(given.text("vrf"));
  if (given.has("id")) {
    Pex::VrfId const* const id = inputs.vrfs().vrfNameToId(name);
    if (id == nullptr) throw InputError("the VRF has no id");
    if (*id != vrfIdOf(given, "id")) {
      throw InputError("expected the id that the VRF has, " + std::to_string(id->value()));
    }
  }
  return vrfChanges(inputs, name, std::nullopt,
                    [&](Pex::L3Status& status) { status.vrfDel(name); });
}

// --- Routing status

Pex::PortVlanPair routingKey(Arguments const& given) {
  return {Ovra::IntfId(given.text("<INTF>")), static_cast<U16>(given.number("key-vlan"))};
}

Changes routingStatus(Arguments const& given, Kind kind) {
  auto const draft = Kiv::make<BfnL3::L3RoutingStatus>();
  auto const status = Kiv::make<BfnL3::L3IntfRoutingStatus>(routingKey(given));
  status->vlanIdIs(static_cast<U16>(given.number("vlan")));
  status->vrfIdIs(vrfIdOf(given, "vrf-id"));
  draft->l3IntfRoutingStatusIs(status);
  return changesOf(InputPath::routingStatus(given.text("port")), *draft, kind);
}

Changes routingStatusUpdate(Inputs const& inputs, Arguments const& given) {
  std::string const path = InputPath::routingStatus(given.text("port"));
  auto const& all = static_cast<BfnL3::L3RoutingStatus const&>(*inputs.object(path));
  if (all.l3IntfRoutingStatus(routingKey(given)) == nullptr) {
    throw InputError("there is no such routing status");
  }
  return routingStatus(given, Kind::Set);
}

Changes routingStatusDel(Arguments const& given) {
  auto const draft = Kiv::make<BfnL3::L3RoutingStatus>();
  draft->l3IntfRoutingStatusIs(Kiv::make<BfnL3::L3IntfRoutingStatus>(routingKey(given)));
  return changesOf(InputPath::routingStatus(given.text("port")), *draft, Kind::Del);
}

// --- Addresses

Changes address(Arguments const& given, Kind kind) {
  std::string const vrf = Kiv::valueToStrep(vrfIdOf(given, "vrf-id")).stdString();
  std::string value;
  if (kind == Kind::Set) {
    value =
        Kiv::StrepWriter("BfnMacRewrite::Agent::IpAndIntfId")
            .field("ipAddr", given.ip("address"))
            .field("intfId", Ovra::IntfId(given.has("interface") ? given.text("interface") : ""))
            .field("selfIp", given.has("self"))
            .close()
            .stdString();
  }
  return {{kind,
           InputPath::kAddresses,
           "vrfStatus[" + vrf + "].ipAndIntfId",
           Kiv::valueToStrep(given.ip("address")).stdString(),
           std::move(value),
           {},
           {}}};
}

// --- Routes and profiles

Changes route(Arguments const& given, Kind kind) {
  auto const draft = Kiv::make<Routing::Hardware::RouteStatus>();
  auto const status = Kiv::make<Routing::Hardware::VrfStatus>(L3::VrfName(given.text("vrf")));
  if (kind == Kind::Set) {
    status->vrfIdIs(static_cast<U32>(given.number("vrf-id")));
    status->fwdVlanIdIs(static_cast<U32>(given.number("forwarding-vlan")));
  }
  draft->vrfStatusIs(status);
  return changesOf(InputPath::kRoutes, *draft, kind);
}

Changes profile(Arguments const& given, Kind kind) {
  auto const draft = Kiv::make<BfnSystem::SystemStatus>();
  auto const info = draft->profileInfoIs(given.text("profile"));
  if (kind == Kind::Set) {
    info->chipCapabilitiesIs(BfnSystem::ChipCapabilities(
        given.text("supported") == "supported", static_cast<U16>(given.number("table-size"))));
  }
  return changesOf(InputPath::kProfiles, *draft, kind);
}

std::string pathOf(std::string const& input) {
  if (input == "l3-status") return InputPath::kVrfs;
  if (input == "route-status") return InputPath::kRoutes;
  if (input == "system-status") return InputPath::kProfiles;
  if (input == "agent-status") return InputPath::kAddresses;
  if (input == "cli-config") return InputPath::kConfig;
  if (input.ends_with("-status")) {
    return InputPath::routingStatus(input.substr(0, input.find('-')));
  }
  throw InputError("the agent writes that itself");
}

// --- What is done at once, without the store

bool beginsWithOneOf(std::string_view form, std::initializer_list<std::string_view> words) {
  return std::ranges::any_of(words, [&](std::string_view word) { return form.starts_with(word); });
}

bool isLook(std::string_view form) {
  return beginsWithOneOf(form, {"show ", "dump ", "explain ", "audit", "chip counters"});
}
bool isSmall(std::string_view form) {
  return beginsWithOneOf(
      form, {"show log", "show trace", "show capability", "dump log", "dump capability",
             "show reconciler", "dump reconciler", "chip counters"});
}
Refusal refusalOf(Pattern pattern) {
  std::string why = "a service does not take this command; it is one of the laboratory's: ";
  why += pattern.text();
  return {std::move(pattern), std::move(why)};
}

bool needsNoAgent(std::string_view form) {
  return beginsWithOneOf(
      form, {"show log", "show trace", "dump log", "chip counters", "show reconciler",
             "dump reconciler", "show waiting", "dump waiting", "show running-config"});
}

}  // namespace

ServiceCommands::ServiceCommands(Service& service) : service_(service) {
  addTranslations();
  addHostTranslations();
  Switch& host = service.host();
  addServiceCommands();
  take(operatorCommands(host));
  take(traceCommands());
  take(hostCommands(host));
  take(chipCommands(host));
  take(lookCommands(host));
  take(explainCommands(host));
  take(rewriteCommands(host));
  refuseLaboratorys();
}

void ServiceCommands::translate(std::string const& form, Translate translate) {
  translations_[form] = std::move(translate);
}

void ServiceCommands::addTranslations() {
  Inputs& inputs = service_.inputs();
  for (Command const& command : operatorCommands(service_.host()).commands) {
    std::string const& form = command.pattern.text();
    if (!isOperatorLine(splitWords(form))) continue;
    traits_[form].operators = true;
    translate(form, [this](Arguments const& given) {
      return operatorChanges(service_.host(), given.words);
    });
  }
  auto const port = [](Arguments const& given, U16 vlan, Kind kind) -> Changes {
    auto const draft = Kiv::make<ChipPorts>();
    draft->vlanIs(given.text("port"), vlan);
    return changesOf(InputPath::kPorts, *draft, kind);
  };
  translate("chip port <DEVICE> vlan <N>", [port](Arguments const& given) {
    return port(given, static_cast<U16>(given.number("vlan")), Kind::Set);
  });
  translate("chip port <DEVICE> vni-map",
            [port](Arguments const& given) { return port(given, 0, Kind::Set); });
  translate("no chip port <DEVICE>", [port, &inputs](Arguments const& given) {
    if (inputs.ports().vlan().find(given.text("port")) == nullptr) {
      throw InputError("there is no such port");
    }
    return port(given, 0, Kind::Del);
  });
}

void ServiceCommands::addHostTranslations() {
  Inputs& inputs = service_.inputs();
  // `name` and `id`: the keywords before what the form gives; null: it gives none.
  auto const vrfs = [this, &inputs](char const* form, char const* name, char const* id,
                                    auto mutate) {
    translate(form, [&inputs, name, id, mutate](Arguments const& given) {
      L3::VrfName const vrf(name == nullptr ? "" : given.text(name));
      Pex::VrfId const vrfId = id == nullptr ? Pex::VrfId() : vrfIdOf(given, id);
      return vrfChanges(inputs, name == nullptr ? std::nullopt : std::optional(vrf),
                        id == nullptr ? std::nullopt : std::optional(vrfId),
                        [&](Pex::L3Status& status) { mutate(status, vrf, vrfId); });
    });
  };
  using Status = Pex::L3Status;
  using Name = L3::VrfName;
  using Id = Pex::VrfId;
  vrfs("host vrf <VRF> [id <N>]", "vrf", "id",
       [](Status& status, Name name, Id id) { status.vrfIs(name, id); });
  translate("no host vrf <VRF> [id <N>]",
            [&inputs](Arguments const& given) { return vrfDel(inputs, given); });
  vrfs("host vrf-id <N> name <VRF>", "name", "vrf-id",
       [](Status& status, Name name, Id id) { status.vrfNameIs(id, name); });
  vrfs("no host vrf-id <N>", nullptr, "vrf-id",
       [](Status& status, Name, Id id) { status.vrfNameDel(id); });
  vrfs("host vrf-name <VRF> id <N>", "vrf-name", "id",
       [](Status& status, Name name, Id id) { status.vrfNameToIdIs(name, id); });
  vrfs("no host vrf-name <VRF>", "vrf-name", nullptr,
       [](Status& status, Name name, Id) { status.vrfNameToIdDel(name); });
  translate("host routing-status port|vlan|subinterface <INTF> key-vlan <N> [vlan <N> vrf-id <N>]",
            [](Arguments const& given) { return routingStatus(given, Kind::Replace); });
  translate("no host routing-status port|vlan|subinterface <INTF> key-vlan <N>", routingStatusDel);
  translate(
      "host update routing-status port|vlan|subinterface <INTF> key-vlan <N> vlan <N> vrf-id <N>",
      [&inputs](Arguments const& given) { return routingStatusUpdate(inputs, given); });
  translate("host address <IP> vrf-id <N> [interface <INTF> [self]]",
            [](Arguments const& given) { return address(given, Kind::Set); });
  translate("no host address <IP> vrf-id <N>",
            [](Arguments const& given) { return address(given, Kind::Del); });
  translate("no host address vrf-id <N>", [](Arguments const& given) -> Changes {
    return {{Kind::Del,
             InputPath::kAddresses,
             "vrfStatus",
             Kiv::valueToStrep(vrfIdOf(given, "vrf-id")).stdString(),
             {},
             {},
             {}}};
  });
  translate("host route vrf <VRF> [vrf-id <N> forwarding-vlan <N>]",
            [](Arguments const& given) { return route(given, Kind::Set); });
  translate("no host route vrf <VRF>",
            [](Arguments const& given) { return route(given, Kind::Del); });
  translate("host profile <NAME> rewrite supported|unsupported table-size <N>",
            [](Arguments const& given) { return profile(given, Kind::Set); });
  translate("no host profile <NAME>",
            [](Arguments const& given) { return profile(given, Kind::Del); });
  translate("host use profile <NAME>", [](Arguments const& given) {
    auto const draft = Kiv::make<BringUp>();
    draft->activeProfileIs(given.text("profile"));
    return attributeOf(InputPath::kBringUp, *draft, "activeProfile");
  });
  translate(
      "host empty l3-status|port-status|vlan-status|subinterface-status|route-status|cli-config|"
      "capability|agent-config|agent-status|system-status",
      [&inputs](Arguments const& given) {
        std::string const path = pathOf(given.text("l3-status"));
        Changes changes = differenceOf(path, recordForm(*inputs.object(path)), {});
        std::erase_if(changes, [](StoreChange const& change) { return change.key.empty(); });
        return changes;
      });
}

void ServiceCommands::take(CommandGroup group) {
  addDoubts(group, service_.host());
  CommandGroup taken{group.title, {}};
  for (Command& command : group.commands) {
    std::string const form = command.pattern.text();
    Traits traits = traits_[form];
    command.handler = handlerOf(form, std::move(command.handler), traits);
    if (command.handler) {
      traits_[form] = traits;
      taken.commands.push_back(std::move(command));
    } else {
      taken.refused.push_back(refusalOf(command.pattern));
    }
  }
  table_.add(std::move(taken));
}

// What a service does for a command of the laboratory, whose handler is `own`.
Command::Handler ServiceCommands::handlerOf(std::string const& form, Command::Handler own,
                                            Traits& traits) {
  if (isLook(form)) {
    traits.large = !isSmall(form);
    return needsNoAgent(form) ? std::move(own) : withAgent(std::move(own));
  }
  traits.changes = true;
  if (auto const found = translations_.find(form); found != translations_.end()) {
    return [this, make = found->second](Arguments const& given) {
      if (!service_.inputs().made()) throw StoreRefused(service_.because());
      service_.submit(make(given), line_);
      return Answer();
    };
  }
  if (form == "repair") return withAgent(std::move(own));
  if (form.starts_with("trace level ")) return own;
  if (form == "chip clear hits") return withAgent(std::move(own));
  return {};
}

// What a laboratory's own rooms have, which are not part of a service.
void ServiceCommands::refuseLaboratorys() {
  CommandGroup group{"laboratory", {}};
  for (char const* const form :
       {"replace <FILE>", "show differences <FILE>", "commit [confirmed <N>]",
        "checkpoint [<NAME>]", "rollback [<NAME>]", "show checkpoints",
        // NOLINTNEXTLINE(bugprone-suspicious-missing-comma): one form in two lines
        "show vxlan forwarding src-mac rewrite [vrf <VRF>] [src-ip <IP>] [src-mac <MAC>] "
        "[cli-testing] slices [json]",
        "show slice", "packets <TEXT>", "trace packet <N>",
        "generate scale <DIR> vrfs <N> rows <N>", "what-if <FILE>", "load --check <FILE>",
        "expect <COMMAND> contains <JSON>", "expect <COMMAND> one of <JSON>",
        "expect death <MESSAGE> <COMMAND>", "expect stderr <MESSAGE> <COMMAND>",
        "measure <COMMAND>", "brief <COMMAND>", "reset", "clock advance <N>", "print [<TEXT>]",
        "dump language"}) {
    group.refused.push_back(refusalOf(Pattern(form)));
  }
  table_.add(std::move(group));
}

Command::Handler ServiceCommands::withAgent(Command::Handler own) {
  return [this, own = std::move(own)](Arguments const& given) {
    if (service_.state() != Service::State::Running) {
      throw InputError("the agent is not up: " + service_.because());
    }
    return own(given);
  };
}

void ServiceCommands::add(CommandGroup group, bool changes) {
  for (Command const& command : group.commands) {
    traits_[command.pattern.text()].changes = changes;
  }
  table_.add(std::move(group));
}

void ServiceCommands::addServiceCommands() {
  CommandGroup looks{"service", {}};
  auto& look = looks.commands;
  auto const status = [this](Arguments const&) {
    nlohmann::json all = service_.status();
    std::string text = statusText(all);
    return Answer(std::move(all), std::move(text));
  };
  look.emplace_back("status", "whether the agent is up and in sync, and why not", "status", status);
  look.emplace_back("show status", "the same as status", "show status", status);
  look.emplace_back("show version", "the version of the service", "show version",
                    [](Arguments const&) {
                      return Answer({{"version", serviceVersion()}, {"build", HOST_BUILD}},
                                    std::string("BfnMacRewrite ") + serviceVersion());
                    });
  look.emplace_back("help [<COMMAND>]", "the commands, or those that begin so", "help host vrf",
                    [this](Arguments const& given) {
                      std::string const text = table_.help(given.words.subspan(1));
                      return Answer(text, text);
                    });
  add(std::move(looks), false);

  CommandGroup acts{"service, changes", {}};
  auto& act = acts.commands;
  act.emplace_back("host inputs complete|incomplete",
                   "whether the inputs hold all that there is; the agent is brought up then",
                   "host inputs complete", [this](Arguments const& given) {
                     if (!service_.inputs().made()) throw StoreRefused(service_.because());
                     auto const draft = Kiv::make<BringUp>();
                     draft->inputsCompleteIs(given.text("complete") == "complete");
                     service_.submit(attributeOf(InputPath::kBringUp, *draft, "inputsComplete"),
                                     line_);
                     return Answer();
                   });
  act.emplace_back("agent retry", "bring the agent up again after bring-ups that ended in death",
                   "agent retry", [this](Arguments const&) {
                     if (!service_.retry()) throw InputError("the agent is not held");
                     return Answer();
                   });
  act.emplace_back("store accept", "take the store as it is, after its history went back",
                   "store accept", [this](Arguments const&) {
                     if (!service_.accept())
                       throw InputError("the store's history did not go back");
                     return Answer();
                   });
  add(std::move(acts), true);
}

ServiceCommands::Prepared ServiceCommands::prepare(std::span<std::string const> words) const {
  size_t const count = pipeline_.commandWords(words);
  Prepared prepared;
  prepared.filters = pipeline_.stages(words.subspan(count));
  for (auto const& stage : prepared.filters) {
    for (std::string const& word : stage) {
      if (word == "save") throw InputError("files are the client's: expected another filter");
    }
  }
  prepared.found = table_.find(words.subspan(0, count));
  Traits const& traits = traits_.at(prepared.found.command->pattern.text());
  prepared.changes = traits.changes;
  prepared.large = traits.large;
  prepared.operators = traits.operators && prepared.filters.empty();
  return prepared;
}

std::vector<Doubt> ServiceCommands::doubts(Prepared const& prepared) const {
  auto const& [command, arguments] = prepared.found;
  // What is not known yet is no mistake.
  if (!command->doubts || service_.state() != Service::State::Running) return {};
  return command->doubts(arguments);
}

nlohmann::json ServiceCommands::forms() const {
  nlohmann::json groups = nlohmann::json::array();
  for (CommandGroup const& group : table_.groups()) {
    nlohmann::json commands = nlohmann::json::array();
    for (Command const& command : group.commands) {
      commands.push_back({{"form", command.pattern.form()},
                          {"help", command.help},
                          {"example", command.example},
                          {"changes", traits_.at(command.pattern.text()).changes}});
    }
    nlohmann::json refused = nlohmann::json::array();
    for (auto const& [pattern, why] : group.refused) {
      refused.push_back({{"form", pattern.form()}, {"why", why}});
    }
    groups.push_back({{"title", group.title}, {"commands", commands}, {"refused", refused}});
  }
  return groups;
}

Selection ServiceCommands::known(std::string_view kind, std::string_view typed) const {
  Inputs const& inputs = service_.inputs();
  if (!inputs.made()) return {};
  std::set<std::string> values;
  if (kind == "port") {
    for (auto walk = inputs.ports().vlan().cursor(); auto const* const port = walk.next();) {
      values.insert(port->key.stdString());
    }
  } else {
    values = knownValues(inputs.known(service_.host()), kind);
  }
  return beginningWith(typed, std::move(values), kMostKnown);
}

Answer ServiceCommands::run(Prepared const& prepared, std::string_view line) {
  line_ = line;
  Answer answer = prepared.found.command->handler(prepared.found.arguments);
  line_ = {};
  return prepared.filters.empty() ? answer : pipeline_.apply(prepared.filters, std::move(answer));
}

namespace {

std::string timeText(double seconds) {
  auto const whole = static_cast<long long>(seconds);
  std::array<char, 48> text{};
  if (whole < 60) {
    std::snprintf(text.data(), text.size(), "%.1f s", seconds);
  } else if (whole < 86400) {
    std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                  whole % 60);
  } else {
    std::snprintf(text.data(), text.size(), "%lld days", whole / 86400);
  }
  return text.data();
}

}  // namespace

std::string statusText(nlohmann::json const& status) {
  auto const text = [](nlohmann::json const& value) { return value.get<std::string>(); };
  nlohmann::json const& agent = status["agent"];
  nlohmann::json const& store = status["store"];
  std::string const because = text(agent["because"]);
  std::string lines = "agent    " + text(agent["state"]) + " for " +
                      timeText(agent["since"].get<double>()) +
                      (because.empty() ? "" : ": " + because);
  lines += "\nready    " + std::string(agent["ready"].get<bool>() ? "yes" : "no");
  lines += "\nswitch   " + text(status["switch"]);
  lines += "\nprofile  " + (text(status["profile"]).empty() ? "none" : text(status["profile"]));
  lines += "\ntable    " + text(status["table"]);
  if (status.contains("rows")) {
    nlohmann::json const& rows = status["rows"];
    lines += "\nrows     " + rows["wanted"].dump() + " wanted, " + rows["installed"].dump() +
             " installed, " + rows["waiting"].dump() + " waiting, " + rows["failed"].dump() +
             " failed";
  }
  lines += "\nstore    " + text(store["name"]) + ", " + text(store["state"]) + " for " +
           timeText(store["since"].get<double>()) + ", version " + text(store["version"]);
  if (std::string const why = text(store["because"]); !why.empty()) lines += ": " + why;
  for (auto const& [place, why] : store["unreadable"].items()) {
    lines += "\nleft out " + place + ": " + text(why);
  }
  for (auto const& [device, port] : status["ports"].items()) {
    lines += "\nport     " + device + ", " +
             (port["vlan"].is_null() ? "VLAN by VNI" : "VLAN " + port["vlan"].dump());
    if (port.contains("error")) lines += ": " + text(port["error"]);
  }
  lines += "\nuptime   " + timeText(status["uptime"].get<double>()) + ", " +
           status["deaths"].dump() + " deaths before";
  if (nlohmann::json const& death = status["lastDeath"]; !death.is_null()) {
    std::string const why = text(death["text"]);
    lines += "\nlast     died while it handled \"" + text(death["event"]) +
             "\": " + (why.empty() ? "signal " + death["signal"].dump() : why);
  }
  return lines;
}

}  // namespace Host
