// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/OverlaySrcMacRewriteTable.h"

#include <array>
#include <string>

#include "framework/core/Exceptions.h"
#include "framework/generic/Describe.h"

namespace BfOverlaySrcMacRewrite {

namespace {

using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::WriteResult;
using Kiv::U32;
using Kiv::U8;

// The chip's form of a row. All numbers are little-endian; there is no padding.
//
//   key:    match type, 1 byte | VLAN, 2 bytes | source address, 4 bytes | valid, 1 byte
//   action: OUI half, 4 bytes | station half, 4 bytes
using Bytes = std::array<U8, 8>;

constexpr U8 byteOf(U32 value, unsigned number) {
  return static_cast<U8>(value >> (8 * number) & 0xff);
}

Bytes serialized(OverlaySrcMacRewriteMatchSpec const& spec) {
  U32 const vlan = spec.vlan();
  U32 const ip = spec.sourceIp();
  return {spec.matchType(), byteOf(vlan, 0), byteOf(vlan, 1), byteOf(ip, 0),
          byteOf(ip, 1),    byteOf(ip, 2),   byteOf(ip, 3),   spec.valid()};
}

Bytes serialized(RewriteOverlaySrcMacActionSpec const& spec) {
  Bytes bytes;
  for (unsigned i = 0; i < 4; ++i) {
    bytes[i] = byteOf(spec.oui(), i);
    bytes[4 + i] = byteOf(spec.station(), i);
  }
  return bytes;
}

U32 numberAt(Bytes const& bytes, size_t at) {
  return U32{bytes[at]} | U32{bytes[at + 1]} << 8 | U32{bytes[at + 2]} << 16 |
         U32{bytes[at + 3]} << 24;
}

BfnDriver::TableHandle opened(BfnDriver::TableDriver* driver,
                              BfnDriver::TableAddress const& address) {
  if (driver == nullptr) throw BfTable::BfTableException("no driver for the table");
  if (auto const handle = driver->open(address)) return *handle;
  throw BfTable::BfTableException("the chip has no table " + std::string(address.table));
}

/// `what`, and what the driver says of the reason.
BfTable::BfTableException failure(std::string what, BfnDriver::TableDriver const& driver) {
  if (!driver.lastError().empty()) what += ": " + driver.lastError();
  return BfTable::BfTableException(what);
}

Kiv::Ptr<BfnTableStatus::Status> statusOf(
    Kiv::Ptr<BfnTableStatusManager::StatusManager> const& manager, Kiv::String const& table) {
  return manager ? manager->statusIs(table) : Kiv::makeActive<BfnTableStatus::Status>(table);
}

}  // namespace

OverlaySrcMacRewriteTable::OverlaySrcMacRewriteTable(
    Kiv::Ptr<MbbSlabKey::SlabKeyManager> const& slabKeyManager,
    Kiv::Ptr<BfnTableStatusManager::StatusManager> const& statusManager,
    BfnDriver::TableDriver* driver, BfnDriver::TableAddress const& address)
    : driver_(driver),
      handle_(opened(driver, address)),
      status_(statusOf(statusManager, kTableName)),
      slabKey_(slabKeyManager ? slabKeyManager->slabKeyIs(kTableName) : 0) {
  countIs();
}

void OverlaySrcMacRewriteTable::entryIs(OverlaySrcMacRewriteTableEntry const& entry) {
  if (!entry) {
    Kiv::throwMutatorArgNullPointerException("BfOverlaySrcMacRewrite::OverlaySrcMacRewriteTable",
                                             0);
  }
  WriteResult const result =
      driver_->write(handle_, serialized(*entry.matchSpec()), serialized(*entry.actionSpec()));
  switch (result) {
    case WriteResult::Ok:
      break;
    case WriteResult::TableFull:
      throw BfTable::BfTableFull("the table overlaySrcMacRewrite is full");
    case WriteResult::NoSysResources:
      throw BfTable::BfNoSysResources("no system resources for the table overlaySrcMacRewrite");
    case WriteResult::Error:
      throw failure("the table overlaySrcMacRewrite could not be written", *driver_);
  }
  countIs();
}

void OverlaySrcMacRewriteTable::entryDel(
    Kiv::Ptr<OverlaySrcMacRewriteMatchSpec const> const& matchSpec) {
  if (!matchSpec) {
    Kiv::throwMutatorArgNullPointerException("BfOverlaySrcMacRewrite::OverlaySrcMacRewriteTable",
                                             0);
  }
  if (driver_->erase(handle_, serialized(*matchSpec)) == EraseResult::Error) {
    throw failure("a row of the table overlaySrcMacRewrite could not be removed", *driver_);
  }
  countIs();
}

OverlaySrcMacRewriteTableEntry OverlaySrcMacRewriteTable::entry(
    Kiv::Ptr<OverlaySrcMacRewriteMatchSpec const> const& matchSpec) const {
  if (!matchSpec) return {};
  std::optional<Action> const found = action(*matchSpec);
  if (!found) return {};
  auto const spec = RewriteOverlaySrcMacActionSpecIs();
  spec->ouiIs(found->oui);
  spec->stationIs(found->station);
  return {matchSpec, spec};
}

std::optional<OverlaySrcMacRewriteTable::Action> OverlaySrcMacRewriteTable::action(
    OverlaySrcMacRewriteMatchSpec const& matchSpec) const {
  Bytes bytes;
  Status read;
  try {
    read = driver_->readRow(handle_, serialized(matchSpec), bytes);
  } catch (...) {  // to a reader, one failure is like the other
    throw BfTable::BfTableException("the table overlaySrcMacRewrite could not be read");
  }
  if (read == Status::NotFound) return std::nullopt;
  if (read != Status::Ok)
    throw failure("the table overlaySrcMacRewrite could not be read", *driver_);
  return Action{numberAt(bytes, 0), numberAt(bytes, 4)};
}

void OverlaySrcMacRewriteTable::prefetch(OverlaySrcMacRewriteMatchSpec const& matchSpec) const {
  driver_->prefetch(handle_, serialized(matchSpec));
}

void OverlaySrcMacRewriteTable::countIs() {
  status_->entryCountIs(static_cast<U32>(driver_->entryCount(handle_)));
}

Kiv::Type const& OverlaySrcMacRewriteTable::_kivType() {
  using T = OverlaySrcMacRewriteTable;
  static Kiv::Type const type("BfOverlaySrcMacRewrite::OverlaySrcMacRewriteTable",
                              &Kiv::Entity::_kivType(),
                              {Kiv::describeConstant<&T::status>("status", kStatus.id),
                               Kiv::describeConstant<&T::slabKey>("slabKey", kSlabKey.id)});
  return type;
}

Kiv::Ptr<OverlaySrcMacRewriteTable> overlaySrcMacRewriteTableFactory(
    Kiv::Ptr<MbbSlabKey::SlabKeyManager> slabKeyManager,
    Kiv::Ptr<BfnTableStatusManager::StatusManager> statusManager, void* dlHandle,
    unsigned int sessionId, unsigned char device, unsigned short pipeId, Kiv::Name profileName) {
  BfnDriver::TableAddress const address{sessionId, device, BfnId::BfnPipeId(pipeId),
                                        profileName.view(), OverlaySrcMacRewriteTable::kTableName};
  return Kiv::makeActive<OverlaySrcMacRewriteTable>(
      slabKeyManager, statusManager, BfnDriver::TableDriver::fromOpaque(dlHandle), address);
}

}  // namespace BfOverlaySrcMacRewrite
