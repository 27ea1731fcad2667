// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <stdexcept>

#include "host/commands/Commands.h"
#include "host/dumps/Dumps.h"
#include "host/language/InputError.h"
#include "host/reconcile/Audit.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

// The rows in columns, for people.
Answer showChip(Switch& host) {
  nlohmann::json const rows = dumpChip(host);
  std::string text = "VLAN  Source IP        Source MAC         Hits";
  for (nlohmann::json const& row : rows) {
    char line[96];
    std::snprintf(line, sizeof line, "\n%-5u %-16s %-17s %5lu", row["vlan"].get<unsigned>(),
                  row["sip"].get_ref<std::string const&>().c_str(),
                  row["mac"].get_ref<std::string const&>().c_str(),
                  row["hits"].get<unsigned long>());
    text += line;
  }
  text += "\n" + std::to_string(rows.size()) + (rows.size() == 1 ? " row" : " rows");
  return {rows, text};
}

// A row's VLAN and address in columns, or what is above them.
std::string rowColumns(nlohmann::json const& row) {
  char line[64];
  std::snprintf(line, sizeof line, "\n%-5u %-16s ", row["vlan"].get<unsigned>(),
                row["sip"].get_ref<std::string const&>().c_str());
  return line;
}
constexpr char kRowColumns[] = "VLAN  Source IP        ";

Reconciler& reconcilerOf(Switch& host) {
  if (host.reconciler() == nullptr) {
    throw InputError("there is no reconciler; the option --reconcile makes one");
  }
  return *host.reconciler();
}

nlohmann::json waitingOf(Switch& host) {
  reconcilerOf(host);
  return dumpWaiting(host);
}

Answer showWaiting(Switch& host) {
  nlohmann::json const changes = waitingOf(host);
  std::string text = std::string(kRowColumns) + "Source MAC         Waits because";
  for (nlohmann::json const& change : changes) {
    char line[64];
    std::snprintf(line, sizeof line, "%-18s ", change.value("mac", "to be deleted").c_str());
    text += rowColumns(change) + line + change["reason"].get<std::string>();
    if (change.contains("error")) text += ": " + change["error"].get<std::string>();
  }
  return {changes, text + "\n" + counted(changes.size(), "row") + " waiting"};
}

nlohmann::json reconcilerState(Switch& host) {
  reconcilerOf(host);
  return dumpReconciler(host);
}

Answer showReconciler(Switch& host) {
  nlohmann::json const state = reconcilerState(host);
  std::string text = state["wanted"].dump() + (state["wanted"] == 1 ? " row" : " rows") +
                     " wanted, " + state["waitingForRoom"].dump() + " waiting for room, " +
                     state["failed"].dump() + " failed";
  if (state["held"] != nullptr) {
    text += "\nthe chip's rows are held as they are, " + state["held"].get<std::string>();
  }
  return {state, text};
}

// All that differs, in all tables.
struct Audited {
  ReconciledTable* table;
  std::vector<Finding> findings;
};
std::vector<Audited> auditAll(Switch& host) {
  Reconciler const& reconciler = reconcilerOf(host);
  if (auto const why = host.heldBecause()) {
    throw std::runtime_error("the chip's rows are held as they are, " + *why);
  }
  std::vector<Audited> all;
  for (size_t i = 0; i < reconciler.tables(); ++i) {
    Audit audit(reconciler.table(i));
    while (!audit.step()) continue;
    if (audit.status() != BfnDriver::Status::Ok) {
      throw std::runtime_error("the chip's rows could not be read");
    }
    all.push_back({&reconciler.table(i), audit.findings()});
  }
  return all;
}

Answer audit(Switch& host) {
  nlohmann::json findings = nlohmann::json::array();
  for (Audited const& each : auditAll(host)) {
    for (auto& finding : findingsJson(each.findings)) findings.push_back(std::move(finding));
  }
  if (findings.empty()) return {findings, "audit: the chip has the rows that are wanted"};
  std::string text = std::string(kRowColumns) + "Finding    Wanted             In the chip";
  for (nlohmann::json const& finding : findings) {
    char line[96];
    std::snprintf(line, sizeof line, "%-10s %-18s %s",
                  finding["finding"].get_ref<std::string const&>().c_str(),
                  finding.value("wanted", "-").c_str(), finding.value("installed", "-").c_str());
    text += rowColumns(finding) + line;
  }
  return {findings, text + "\naudit: " + counted(findings.size(), "finding")};
}

Answer repair(Switch& host) {
  Applied all;
  for (Audited const& each : auditAll(host)) {
    Applied const one = each.table->repair(each.findings);
    all.inserted += one.inserted;
    all.overwritten += one.overwritten;
    all.erased += one.erased;
    all.waiting += one.waiting;
  }
  return {{{"deleted", all.erased},
           {"inserted", all.inserted},
           {"overwritten", all.overwritten},
           {"waiting", all.waiting}},
          "repair: " + text(all)};
}

}  // namespace

std::string text(Applied const& applied) {
  return counted(applied.inserted, "row") + " inserted, " + std::to_string(applied.overwritten) +
         " overwritten, " + std::to_string(applied.erased) + " deleted, " +
         std::to_string(applied.waiting) + " waiting";
}

CommandGroup lookCommands(Switch& host) {
  CommandGroup group{"look inside", {}};
  auto const add = [&](char const* form, char const* help, auto dump) {
    group.commands.emplace_back(form, help, form,
                                [&host, dump](Arguments const&) { return Answer(dump(host)); });
  };
  add("dump chip", "rows: constant fields, VLAN, source IP, MAC, hits", dumpChip);
  add("dump journal", "chip writes and deletes in order since the last dump, with result",
      dumpJournal);
  add("dump records", "the table manager's records, VLAN of the stored match spec", dumpRecords);
  add("dump indexes", "localVrfIpToIntf, localIntfToVrfIp, fwdVlanIdPerVrf", dumpIndexes);
  add("dump config", "Agent::Config and localVrfNameToId", dumpConfig);
  add("dump inputs", "everything that the plug-in is given", dumpInputs);
  add("dump capability", "the capability record", dumpCapability);
  add("dump stats", "the table's statistics; null before it is initialised", dumpStats);
  add("dump log", "log messages", [](Switch&) { return dumpLog(); });
  add("dump routing-status", "the routing status of all interfaces, merged by interface",
      dumpRoutingStatus);
  add("dump tables", "the tables declared in the active profile, and how many are pending",
      dumpTables);
  add("dump reactors", "how many reactors are registered with each record", dumpReactors);
  add("dump objects", "live framework objects by type", [](Switch&) { return dumpObjects(); });
  add("dump reconciler", "rows that are wanted, and why the chip's are held, if they are",
      reconcilerState);
  add("dump waiting", "changes that the reconciler waits to make, with the reason", waitingOf);
  group.commands.emplace_back(
      "show reconciler", "how many rows are wanted, and why the chip's are held", "show reconciler",
      [&host](Arguments const&) { return showReconciler(host); });
  group.commands.emplace_back("show waiting", "the changes that wait, in columns", "show waiting",
                              [&host](Arguments const&) { return showWaiting(host); });
  group.commands.emplace_back("audit", "compare the chip's rows with those that are wanted",
                              "audit", [&host](Arguments const&) { return audit(host); });
  group.commands.emplace_back("repair", "the same, and make the chip's rows those that are wanted",
                              "repair", [&host](Arguments const&) { return repair(host); });
  group.commands.emplace_back("show chip", "the chip's rows in columns", "show chip",
                              [&host](Arguments const&) { return showChip(host); });
  return group;
}

}  // namespace Host
