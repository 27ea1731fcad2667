// SPDX-License-Identifier: Apache-2.0
// Puts any text into a store, a line "kind|path|collection|key|value" for each change. Nothing in
// it ends the process that mirrors the store; a process that has followed every change and one that
// reads the store afterwards hold the same.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "agent/records/BfnMacRewriteInput.h"
#include "framework/core/Clock.h"
#include "framework/core/Fatal.h"
#include "framework/log/LogService.h"
#include "host/store/MemoryStore.h"
#include "host/store/StoreMirror.h"
#include "tests/host/store/Changes.h"
#include "tests/host/store/Records.h"

namespace {

using namespace BfnTest;
using Host::StoreChange;

struct Place {
  char const* path;
  char const* type;
};
constexpr Place kPlaces[] = {
    {kConfigPath, kConfigType},       {kCapabilityPath, kCapabilityType},
    {kVrfsPath, kVrfsType},           {kPortsPath, kPortsType},
    {kRoutesPath, kRoutesType},       {kSystemPath, kSystemType},
    {kAddressesPath, kAddressesType},
};

struct Process {
  explicit Process(std::shared_ptr<Host::MemoryStoreContents> const& contents)
      : mirror(std::make_unique<Host::MemoryStore>(contents), database,
               Kiv::makeActive<Kiv::ManualClock>()) {
    mirror.follow();
  }
  std::string text() const {
    std::string all;
    for (Place const& place : kPlaces) all += textOf(*database->object(place.path)) + "\n";
    return all;
  }
  Kiv::Ptr<Corvo::Database> database = Kiv::makeActive<Corvo::Database>();
  Host::StoreMirror mirror;
};

StoreChange changeOf(std::string const& line) {
  std::vector<std::string> fields;
  std::istringstream in(line);
  for (std::string field; fields.size() < 4 && std::getline(in, field, '|');) {
    fields.push_back(field);
  }
  std::string rest;
  std::getline(in, rest, '\0');
  fields.resize(4);
  fields.push_back(rest);
  StoreChange change;
  change.kind = Host::storeChangeKind(fields[0]).value_or(StoreChange::Kind::Set);
  // A digit is one of the records that are there.
  bool const known = fields[1].size() == 1 && fields[1][0] >= '0' && fields[1][0] < '7';
  change.path = known ? kPlaces[fields[1][0] - '0'].path : fields[1];
  change.collection = fields[2];
  change.key = fields[3];
  change.value = fields[4];
  return change;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, size_t size) {
  // Which also links the library of these records.
  KIV_CHECK(Kiv::Type::find(kConfigType) == &BfnMacRewrite::Input::Config::_kivType());
  Kiv::LogService::sinkIs([](Kiv::LogMessage const&) {});
  auto const contents = std::make_shared<Host::MemoryStoreContents>();
  Host::MemoryStore other(contents);
  for (Place const& place : kPlaces) {
    StoreChange const make = makeOf(place.path, place.type);
    other.submit({make});
  }
  Process following(contents);
  std::istringstream in(std::string(reinterpret_cast<char const*>(data), size));
  for (std::string line; std::getline(in, line);) {
    StoreChange change = changeOf(line);
    // What can be read is written as the other processes do.
    auto const record = following.database->object(change.path);
    try {
      if (record) Host::completeChange(change, record->fwkType());
      other.submit({change});
    } catch (Host::UnreadableException const&) {
      other.submit({change});
    } catch (Host::StoreRefused const&) {
    }
    following.mirror.follow();
  }
  Process const fresh(contents);
  KIV_CHECK(following.text() == fresh.text(), following.text(), fresh.text());
  return 0;
}
