// SPDX-License-Identifier: Apache-2.0
#include "agent/records/BfnMacRewriteInput.h"

#include <ostream>

#include "framework/core/Hash.h"
#include "framework/core/Strep.h"
#include "framework/generic/Describe.h"

namespace BfnMacRewrite {
namespace Input {

VrfNameAndIp::VrfNameAndIp(Kiv::String::Iterator& it, Kiv::String::Iterator const& end) {
  Kiv::StrepReader in(it, end, "BfnMacRewrite::Input::VrfNameAndIp");
  vrfName = in.field<L3::VrfName>("vrfName");
  ip = in.field<Ovra::IpAddr>("ip");
  in.close();
}

Kiv::String VrfNameAndIp::valueToStrep() const {
  return Kiv::StrepWriter("BfnMacRewrite::Input::VrfNameAndIp")
      .field("vrfName", vrfName)
      .field("ip", ip)
      .close();
}

U32 VrfNameAndIp::hash(unsigned int seed) const {
  Kiv::Hash hash(seed);
  hash.hashMix(vrfName.hash());
  hash.hashMix(ip.hash());
  return hash.result();
}

VrfIpAndMac::VrfIpAndMac(Kiv::String::Iterator& it, Kiv::String::Iterator const& end) {
  Kiv::StrepReader in(it, end, "BfnMacRewrite::Input::VrfIpAndMac");
  vrfName = in.field<L3::VrfName>("vrfName");
  ip = in.field<Ovra::IpAddr>("ip");
  mac = in.field<Ovra::EthAddr>("mac");
  in.close();
}

Kiv::String VrfIpAndMac::valueToStrep() const {
  return Kiv::StrepWriter("BfnMacRewrite::Input::VrfIpAndMac")
      .field("vrfName", vrfName)
      .field("ip", ip)
      .field("mac", mac)
      .close();
}

std::ostream& operator<<(std::ostream& out, VrfNameAndIp const& value) {
  return out << value.valueToStrep();
}

std::ostream& operator<<(std::ostream& out, VrfIpAndMac const& value) {
  return out << value.valueToStrep();
}

Config::Config() = default;
Config::~Config() = default;

void Config::overlaySrcMacRewriteEntryIs(VrfIpAndMac const& value) {
  // The index changes first, so that a handler of the line finds it there.
  VrfNameAndIp const key = value.key();
  if (auto const* const found = keysOfVrf_.find(key.vrfName)) {
    found->value->set(key);
  } else {
    auto const keys = std::make_shared<KeysOfVrf>();
    keys->set(key);
    keysOfVrf_.set({key.vrfName, keys});
  }
  try {
    entries_.set(value);
  } catch (...) {
    // Without memory there is no line, so there is no key either; after a handler that throws there
    // are both.
    if (!entries_.has(key)) overlaySrcMacRewriteEntryDel(key);
    throw;
  }
}

VrfIpAndMac Config::overlaySrcMacRewriteEntryDel(VrfNameAndIp const& key) {
  VrfNameAndIp const own = key;
  if (auto const* const found = keysOfVrf_.find(own.vrfName)) {
    found->value->take(own);
    if (found->value->empty()) keysOfVrf_.take(own.vrfName);
  }
  return entries_.del(own);
}

void Config::overlaySrcMacRewriteEntryDelAll() {
  Kiv::Ptr<Config> const keep(this);
  auto walk = entries_.cursor();
  while (VrfIpAndMac const* const entry = walk.next()) overlaySrcMacRewriteEntryDel(entry->key());
}

Kiv::Type const& Config::_kivType() {
  using T = Config;
  static Kiv::Type const type(
      "BfnMacRewrite::Input::Config", &Kiv::Entity::_kivType(),
      {Kiv::describeCollection<&T::entries_, &T::overlaySrcMacRewriteEntryIs,
                               &T::overlaySrcMacRewriteEntryDel>("overlaySrcMacRewriteEntry",
                                                                 kOverlaySrcMacRewriteEntry.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace Input

}  // namespace BfnMacRewrite
