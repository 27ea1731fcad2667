// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "agent/records/Export.h"
#include "framework/core/Attribute.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/String.h"
#include "framework/l3/L3RoutingStatus.h"
#include "framework/l3/L3Status.h"
#include "framework/platform/BfnProfileData.h"

namespace BfnMacRewrite {

/// The plug-in's information for the host, which alone reads it.
class BFN_MAC_REWRITE_EXPORT BfnL3Input final : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<void, BfnL3Input> kMacRewriteEnabled{130};

  bool macRewriteEnabled() const { return macRewriteEnabled_(); }
  void macRewriteEnabledIs(bool enabled) { macRewriteEnabled_.is(enabled); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::Attribute<kMacRewriteEnabled, bool> macRewriteEnabled_{*this};
};

/// The host's output to the plug-in: the active hardware profile, and the flags that run its
/// bring-up. Setters notify on a real change only; objects compare by identity, the name by its
/// text.
class BFN_MAC_REWRITE_EXPORT BfnL3Output final : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<void, BfnL3Output> kProfileName{130};
  static constexpr Kiv::Attr<void, BfnL3Output> kProfileEntry{131};
  static constexpr Kiv::Attr<void, BfnL3Output> kInitMacRewriteTables{132};
  static constexpr Kiv::Attr<void, BfnL3Output> kStartMacRewriteSm{133};

  /// The active profile, by its key in the system status.
  Kiv::String const& profileName() const { return profileName_(); }
  void profileNameIs(Kiv::String profileName) { profileName_.is(std::move(profileName)); }
  /// The active profile's data for the table manager.
  Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> const& profileEntry() const { return profileEntry_(); }
  void profileEntryIs(Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> profileEntry) {
    profileEntry_.is(std::move(profileEntry));
  }
  /// A change asks for the rewrite table to be set up.
  bool initMacRewriteTables() const { return initMacRewriteTables_(); }
  void initMacRewriteTablesIs(bool init) { initMacRewriteTables_.is(init); }
  /// A change asks for the rewrite state machines to be started.
  bool startMacRewriteSm() const { return startMacRewriteSm_(); }
  void startMacRewriteSmIs(bool start) { startMacRewriteSm_.is(start); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::Attribute<kProfileName, Kiv::String> profileName_{*this};
  Kiv::Attribute<kProfileEntry, Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry>> profileEntry_{*this};
  Kiv::Attribute<kInitMacRewriteTables, bool> initMacRewriteTables_{*this};
  Kiv::Attribute<kStartMacRewriteSm, bool> startMacRewriteSm_{*this};
};

/// What the plug-in shares with the host L3 agent that loads it: the host's status objects, and the
/// two objects of bring-up, one for each direction. The constructor makes those two and sets
/// `initialized`; the host fills in the rest.
class BFN_MAC_REWRITE_EXPORT BfnMacRewriteL3Shared final : public Kiv::PtrInterface {
 public:
  using RoutingStatus = Kiv::Ptr<BfnL3::L3RoutingStatus>;
  static constexpr Kiv::Attr<void, BfnMacRewriteL3Shared> kL3Status{130};
  static constexpr Kiv::Attr<void, BfnMacRewriteL3Shared> kL3PortAndLagRoutingStatus{131};
  static constexpr Kiv::Attr<void, BfnMacRewriteL3Shared> kL3SubIntfRoutingStatus{132};
  static constexpr Kiv::Attr<void, BfnMacRewriteL3Shared> kVlanIntfRoutingStatus{133};
  static constexpr Kiv::Attr<void, BfnMacRewriteL3Shared> kBfnL3Input{134};
  static constexpr Kiv::Attr<void, BfnMacRewriteL3Shared> kBfnL3Output{135};
  static constexpr Kiv::Attr<void, BfnMacRewriteL3Shared> kInitialized{136};

  BfnMacRewriteL3Shared();
  ~BfnMacRewriteL3Shared() override;

  Kiv::Ptr<Pex::L3Status> const& l3Status() const { return l3Status_(); }
  void l3StatusIs(Kiv::Ptr<Pex::L3Status> l3Status) { l3Status_.is(std::move(l3Status)); }
  RoutingStatus const& l3PortAndLagRoutingStatus() const { return l3PortAndLagRoutingStatus_(); }
  void l3PortAndLagRoutingStatusIs(RoutingStatus v) { l3PortAndLagRoutingStatus_.is(std::move(v)); }
  RoutingStatus const& l3SubIntfRoutingStatus() const { return l3SubIntfRoutingStatus_(); }
  void l3SubIntfRoutingStatusIs(RoutingStatus v) { l3SubIntfRoutingStatus_.is(std::move(v)); }
  RoutingStatus const& vlanIntfRoutingStatus() const { return vlanIntfRoutingStatus_(); }
  void vlanIntfRoutingStatusIs(RoutingStatus v) { vlanIntfRoutingStatus_.is(std::move(v)); }

  Kiv::Ptr<BfnL3Input> const& bfnL3Input() const { return bfnL3Input_(); }
  /// The object; made, with notification on, and announced when it is not there.
  Kiv::Ptr<BfnL3Input> bfnL3InputIs();
  void bfnL3InputDel() { bfnL3Input_.is(nullptr); }
  Kiv::Ptr<BfnL3Output> const& bfnL3Output() const { return bfnL3Output_(); }
  Kiv::Ptr<BfnL3Output> bfnL3OutputIs();
  void bfnL3OutputDel() { bfnL3Output_.is(nullptr); }

  bool initialized() const { return initialized_(); }
  void initializedIs(bool initialized) { initialized_.is(initialized); }
  void handleInitialized();

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::Attribute<kL3Status, Kiv::Ptr<Pex::L3Status>> l3Status_{*this};
  Kiv::Attribute<kL3PortAndLagRoutingStatus, RoutingStatus> l3PortAndLagRoutingStatus_{*this};
  Kiv::Attribute<kL3SubIntfRoutingStatus, RoutingStatus> l3SubIntfRoutingStatus_{*this};
  Kiv::Attribute<kVlanIntfRoutingStatus, RoutingStatus> vlanIntfRoutingStatus_{*this};
  Kiv::Attribute<kBfnL3Input, Kiv::Ptr<BfnL3Input>> bfnL3Input_{*this};
  Kiv::Attribute<kBfnL3Output, Kiv::Ptr<BfnL3Output>> bfnL3Output_{*this};
  Kiv::Attribute<kInitialized, bool> initialized_{*this};
};

}  // namespace BfnMacRewrite
