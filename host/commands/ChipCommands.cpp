// SPDX-License-Identifier: Apache-2.0
#include "host/commands/Commands.h"
#include "host/dumps/Dumps.h"
#include "host/language/InputError.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

void needTableManager(Switch const& host) {
  if (!host.tableManager()) throw InputError("there is no table manager before stage 1");
}

Answer initializeTable(Switch& host, Arguments const& given) {
  needTableManager(host);
  host.initializeTable(given.text("initialize-table"));
  return {};
}

Answer initializeTables(Switch& host) {
  needTableManager(host);
  unsigned const tables = host.initializeTables();
  return {tables, std::to_string(tables) + (tables == 1 ? " table" : " tables") + " initialised"};
}

BfnChip::Fault faultOf(std::string const& how) {
  using Kind = BfnChip::Fault::Kind;
  Kind const kind = how == "full"           ? Kind::TableFull
                    : how == "no-resources" ? Kind::NoSysResources
                    : how == "other"        ? Kind::Error
                                            : Kind::Exception;
  return {kind, nullptr};
}

HardwareTable& hardware(Switch& host) {
  if (host.hardware() == nullptr) throw InputError("the chip model has no ports");
  return *host.hardware();
}

Answer failWrites(Switch& host, Arguments const& given) {
  host.faults().faults().failNext(given.number("next"), faultOf(given.text("full")));
  return {};
}

Answer failNth(Switch& host, Arguments const& given) {
  host.faults().faults().failNth(given.number("write"), faultOf(given.text("full")));
  return {};
}

Answer failNthEraseOrRead(Switch& host, Arguments const& given) {
  BfnChip::FaultPlan& plan =
      given.text("erase") == "erase" ? host.faults().eraseFaults() : host.faults().readFaults();
  plan.failNth(given.number("<N>"), faultOf(given.text("other")));
  return {};
}

Answer failErasesOrReads(Switch& host, Arguments const& given) {
  BfnChip::FaultPlan& plan =
      given.text("erase") == "erase" ? host.faults().eraseFaults() : host.faults().readFaults();
  plan.failNext(given.number("next"), faultOf(given.text("other")));
  return {};
}

void hitsClear(Switch& host) {
  auto const table = host.table().open({0, 0, {}, "", BfnChip::ChipModel::kRewriteTable});
  if (!table || host.table().tableHitsClear(*table) != BfnDriver::Status::Ok) {
    throw std::runtime_error("the hit counts could not be cleared");
  }
}

Answer clearFaults(Switch& host) {
  host.faults().faults().clear();
  host.faults().eraseFaults().clear();
  host.faults().readFaults().clear();
  return {};
}

Answer waitingIs(Switch& host, Arguments const& given) {
  if (host.reconciler() == nullptr) {
    throw InputError("there is no reconciler; the option --reconcile makes one");
  }
  host.reconciler()->waitingIs(given.text("on") == "on");
  return {};
}

Answer counters(Switch& host) {
  nlohmann::json const all = dumpCounters(host);
  std::string text;
  for (auto const& [word, count] : all.items()) {
    text += (text.empty() ? "" : "\n") + word + ' ' + count.dump();
  }
  return {all, text.empty() ? "no frames" : text};
}

void addPorts(CommandGroup& group, Switch& host) {
  auto& add = group.commands;
  add.emplace_back("chip port <DEVICE> vlan <N:1-4094>",
                   "frames that enter this VXLAN device are looked up, in that VLAN",
                   "chip port vx100 vlan 100", [&host](Arguments const& given) {
                     hardware(host).portIs(given.text("port"),
                                           static_cast<Kiv::U16>(given.number("vlan")));
                     return Answer();
                   });
  add.emplace_back("chip port <DEVICE> vni-map",
                   "the same, in the VLAN of their VNI, else of their tag",
                   "chip port vx100 vni-map", [&host](Arguments const& given) {
                     hardware(host).portIs(given.text("port"), std::nullopt);
                     return Answer();
                   });
  add.emplace_back("no chip port <DEVICE>", "the device is left as it was", "no chip port vx100",
                   [&host](Arguments const& given) {
                     if (!hardware(host).portDel(given.text("port"))) {
                       throw InputError("there is no such port");
                     }
                     return Answer();
                   });
  add.emplace_back("chip counters", "what became of the packets", "chip counters",
                   [&host](Arguments const&) { return counters(host); });
}

}  // namespace

CommandGroup chipCommands(Switch& host) {
  CommandGroup group{"chip", {}};
  auto& add = group.commands;
  add.emplace_back("chip initialize-table", "initialise the declared tables that wait for it",
                   "chip initialize-table",
                   [&host](Arguments const&) { return initializeTables(host); });
  add.emplace_back("chip initialize-table <NAME>", "initialise that table, declared or not",
                   "chip initialize-table overlaySrcMacRewrite",
                   [&host](Arguments const& given) { return initializeTable(host, given); });
  add.emplace_back("chip manual|automatic",
                   "whether tables wait for chip initialize-table after stage 1", "chip manual",
                   [&host](Arguments const& given) {
                     host.manualTablesIs(given.text("manual") == "manual");
                     return Answer();
                   });
  add.emplace_back("chip capacity <N>", "rows that the table takes", "chip capacity 2",
                   [&host](Arguments const& given) {
                     host.capacityIs(given.number("capacity"));
                     return Answer();
                   });
  add.emplace_back("chip resources <N>", "units of the pool that every row takes one of",
                   "chip resources 3", [&host](Arguments const& given) {
                     host.faults().resourcesIs(given.number("resources"));
                     return Answer();
                   });
  add.emplace_back("chip fail next <N> full|no-resources|other|exception",
                   "that many writes from now on fail in this way", "chip fail next 1 full",
                   [&host](Arguments const& given) { return failWrites(host, given); });
  add.emplace_back("chip fail next <N> other|exception erase|read",
                   "that many erases, or reads of a row, from now on fail in this way",
                   "chip fail next 1 other read",
                   [&host](Arguments const& given) { return failErasesOrReads(host, given); });
  add.emplace_back("chip fail write <N:1-4294967295> full|no-resources|other|exception",
                   "the N-th write from now on fails in this way, 1 being the next",
                   "chip fail write 2 full",
                   [&host](Arguments const& given) { return failNth(host, given); });
  add.emplace_back("chip fail erase|read <N:1-4294967295> other|exception",
                   "the N-th erase, or read of a row, from now on fails in this way",
                   "chip fail erase 2 other",
                   [&host](Arguments const& given) { return failNthEraseOrRead(host, given); });
  add.emplace_back("chip clear faults", "no more faults", "chip clear faults",
                   [&host](Arguments const&) { return clearFaults(host); });
  add.emplace_back("chip clear hits", "all hit counts zero", "chip clear hits",
                   [&host](Arguments const&) {
                     hitsClear(host);
                     return Answer();
                   });
  add.emplace_back("chip waiting on|off",
                   "whether rows that the chip refuses wait in the reconciler, on from the start",
                   "chip waiting off",
                   [&host](Arguments const& given) { return waitingIs(host, given); });
  addPorts(group, host);
  return group;
}

}  // namespace Host
