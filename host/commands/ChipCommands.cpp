#include "host/commands/Commands.h"
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

Answer failWrites(Switch& host, Arguments const& given) {
  host.chip.faults().failNext(given.number("next"), faultOf(given.text("full")));
  return {};
}

Answer failErasesOrReads(Switch& host, Arguments const& given) {
  BfnChip::FaultPlan& plan =
      given.text("erase") == "erase" ? host.chip.eraseFaults() : host.chip.readFaults();
  plan.failNext(given.number("next"), faultOf(given.text("other")));
  return {};
}

Answer clear(Switch& host, Arguments const& given) {
  if (given.text("faults") == "hits") {
    host.chip.hitsClear();
  } else {
    host.chip.faults().clear();
    host.chip.eraseFaults().clear();
    host.chip.readFaults().clear();
  }
  return {};
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
                     host.chip.tableIs(BfnChip::ChipModel::kRewriteTable, given.number("capacity"));
                     return Answer();
                   });
  add.emplace_back("chip resources <N>", "units of the pool that every row takes one of",
                   "chip resources 3", [&host](Arguments const& given) {
                     host.chip.resourcesIs(given.number("resources"));
                     return Answer();
                   });
  add.emplace_back("chip fail next <N> full|no-resources|other|exception",
                   "that many writes from now on fail so", "chip fail next 1 full",
                   [&host](Arguments const& given) { return failWrites(host, given); });
  add.emplace_back("chip fail next <N> other|exception erase|read",
                   "that many erases, or reads of a row, from now on fail so",
                   "chip fail next 1 other read",
                   [&host](Arguments const& given) { return failErasesOrReads(host, given); });
  add.emplace_back("chip clear faults|hits", "no more faults; all hit counts zero",
                   "chip clear hits",
                   [&host](Arguments const& given) { return clear(host, given); });
  return group;
}

}  // namespace Host
