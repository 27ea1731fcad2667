#include <cstdio>

#include "host/commands/Commands.h"
#include "host/dumps/Dumps.h"
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

}  // namespace

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
  add("dump objects", "live framework objects by type", [](Switch&) { return dumpObjects(); });
  group.commands.emplace_back("show chip", "the chip's rows in columns", "show chip",
                              [&host](Arguments const&) { return showChip(host); });
  return group;
}

}  // namespace Host
