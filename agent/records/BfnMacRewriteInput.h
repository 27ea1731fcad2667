// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <memory>

#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Capability.h"
#include "agent/records/Export.h"
#include "framework/collections/ValueCollection.h"
#include "framework/core/Entity.h"
#include "framework/values/VrfName.h"

namespace BfnMacRewrite {

/// The operator's configuration, as in the state database.
namespace Input {

/// The key of one configuration line.
struct BFN_MAC_REWRITE_EXPORT VrfNameAndIp {
  L3::VrfName vrfName;
  Ovra::IpAddr ip;

  VrfNameAndIp() = default;
  VrfNameAndIp(L3::VrfName const& vrf, Ovra::IpAddr ipAddr) : vrfName(vrf), ip(ipAddr) {}
  VrfNameAndIp(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);
  Kiv::String valueToStrep() const;
  U32 hash(unsigned int seed) const;

  friend bool operator==(VrfNameAndIp const&, VrfNameAndIp const&) = default;
  friend bool operator<(VrfNameAndIp const& a, VrfNameAndIp const& b) {
    if (!(a.vrfName == b.vrfName)) return a.vrfName < b.vrfName;
    return a.ip < b.ip;
  }
};

/// One configuration line: "vxlan forwarding match vrf <VRF> src-ip <IP> action rewrite src-mac
/// <M>".
struct BFN_MAC_REWRITE_EXPORT VrfIpAndMac {
  L3::VrfName vrfName;
  Ovra::IpAddr ip;
  Ovra::EthAddr mac;

  VrfIpAndMac() = default;
  VrfIpAndMac(L3::VrfName const& vrf, Ovra::IpAddr ipAddr, Ovra::EthAddr const& ethAddr)
      : vrfName(vrf), ip(ipAddr), mac(ethAddr) {}
  VrfIpAndMac(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);
  Kiv::String valueToStrep() const;
  VrfNameAndIp key() const { return {vrfName, ip}; }

  friend bool operator==(VrfIpAndMac const&, VrfIpAndMac const&) = default;
};

BFN_MAC_REWRITE_EXPORT std::ostream& operator<<(std::ostream& out, VrfNameAndIp const& value);
BFN_MAC_REWRITE_EXPORT std::ostream& operator<<(std::ostream& out, VrfIpAndMac const& value);

/// All configuration lines. Mounted read-only by the agent.
///
/// An index has the keys of each VRF, in the collection's own order, so that a VRF that appears
/// costs time in its own lines only.
class BFN_MAC_REWRITE_EXPORT Config final : public Kiv::Entity {
  static constexpr U32 kEntryConstant = 0x5D17A90B;
  struct Itself {
    VrfNameAndIp operator()(VrfNameAndIp const& key) const { return key; }
  };
  using KeysOfVrf = Kiv::HashMap2018<VrfNameAndIp, Itself{}, kEntryConstant>;

 public:
  static constexpr Kiv::Attr<VrfNameAndIp, Config> kOverlaySrcMacRewriteEntry{258};

  Config();
  ~Config() override;

  /// The line under a key, or null. Valid until the next insertion or removal.
  VrfIpAndMac const* overlaySrcMacRewriteEntry(VrfNameAndIp const& key) const {
    return entries_.find(key);
  }
  auto const& overlaySrcMacRewriteEntry() const { return entries_; }
  /// Inserts or overwrites the line of the value's key and notifies with the key; an equal value:
  /// nothing.
  void overlaySrcMacRewriteEntryIs(VrfIpAndMac const& value);
  /// Removes, notifies and returns the line; absent: a default value and no notification.
  VrfIpAndMac overlaySrcMacRewriteEntryDel(VrfNameAndIp const& key);
  /// Removes every line, each with its notification.
  void overlaySrcMacRewriteEntryDelAll();

  /// Calls `f(key)` for every key of one VRF in the order in which a walk of the whole collection
  /// meets them. `f` may change anything during the walk; the entity must outlive it.
  template <class F>
  void forEachKeyOfVrf(L3::VrfName const& vrfName, F const& f) const {
    auto const* const found = keysOfVrf_.find(vrfName);
    if (found == nullptr) return;
    std::shared_ptr<KeysOfVrf> const keys = found->value;
    KeysOfVrf::Cursor walk(*keys);
    while (VrfNameAndIp const* at = walk.next()) {
      VrfNameAndIp const key = *at;
      f(key);
    }
  }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::ValueCollection<kOverlaySrcMacRewriteEntry, VrfIpAndMac, &VrfIpAndMac::key, kEntryConstant>
      entries_{*this};
  Kiv::HashMap2018Of<L3::VrfName, std::shared_ptr<KeysOfVrf>, 0x1F4E6C39> keysOfVrf_;
};

}  // namespace Input

}  // namespace BfnMacRewrite
