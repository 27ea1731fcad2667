// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/collections/ValueCollection.h"
#include "framework/core/Attribute.h"
#include "framework/core/Entity.h"
#include "framework/core/String.h"

namespace Host {

/// What the platform says about the bring-up of the agent. Written by whoever publishes the inputs.
class BringUp final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, BringUp> kActiveProfile{258};
  static constexpr Kiv::Attr<void, BringUp> kInputsComplete{259};

  /// The name of the hardware profile in use; empty: not known yet.
  Kiv::String const& activeProfile() const { return activeProfile_(); }
  void activeProfileIs(Kiv::String const& name) { activeProfile_.is(name); }
  /// Whether the other inputs hold all that there is. The agent is not brought up before that.
  bool inputsComplete() const { return inputsComplete_(); }
  void inputsCompleteIs(bool complete) { inputsComplete_.is(complete); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::Attribute<kActiveProfile, Kiv::String> activeProfile_{*this};
  Kiv::Attribute<kInputsComplete, bool> inputsComplete_{*this};
};

/// The devices whose packets are looked up in the table, with their VLAN; 0: in the VLAN of the
/// packets' VNI, else of their tag.
class ChipPorts final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<Kiv::String, ChipPorts> kVlan{258};

  auto const& vlan() const { return vlan_; }
  void vlanIs(Kiv::String const& device, Kiv::U16 vlan) { vlan_.set({device, vlan}); }
  void vlanDel(Kiv::String const& device) { vlan_.del(device); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::MapCollection<kVlan, Kiv::String, Kiv::U16, 0x6D0A93F1> vlan_{*this};
};

}  // namespace Host
