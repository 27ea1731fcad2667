// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/records/Export.h"
#include "framework/collections/HashMap2018.h"
#include "framework/core/Entity.h"
#include "framework/values/IntfId.h"
#include "framework/values/VrfAndIpAddr.h"

namespace BfnMacRewrite {

/// The (VRF, IP) pairs that live on one interface.
class BFN_MAC_REWRITE_EXPORT VrfIpCollection final : public Kiv::Entity {
  struct Itself {
    Pex::VrfAndIpAddr const& operator()(Pex::VrfAndIpAddr const& pair) const { return pair; }
  };

 public:
  using Pairs = Kiv::HashMap2018<Pex::VrfAndIpAddr, Itself{}, 0x71B0D34F>;

  explicit VrfIpCollection(Ovra::IntfId intfId) : intfId_(intfId) {}

  Ovra::IntfId intfId() const { return intfId_; }

  Pairs const& vrfAndIpAddr() const { return vrfAndIpAddr_; }
  /// Present already: nothing.
  void vrfAndIpAddrIs(Pex::VrfAndIpAddr const& pair) { vrfAndIpAddr_.set(pair); }
  /// Absent: nothing.
  void vrfAndIpAddrDel(Pex::VrfAndIpAddr const& pair) { vrfAndIpAddr_.take(pair); }
  void vrfAndIpAddrDelAll() { vrfAndIpAddr_.clear(); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Ovra::IntfId const intfId_;
  Pairs vrfAndIpAddr_;
};

}  // namespace BfnMacRewrite
