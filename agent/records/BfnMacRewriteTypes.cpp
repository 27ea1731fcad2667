// SPDX-License-Identifier: Apache-2.0
#include "agent/records/BfnMacRewriteTypes.h"

#include <ostream>

#include "framework/core/Hash.h"
#include "framework/core/Strep.h"
#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

IpAndMac::IpAndMac(Kiv::String::Iterator& it, Kiv::String::Iterator const& end) {
  Kiv::StrepReader in(it, end, "BfnMacRewrite::IpAndMac");
  ip = in.field<Ovra::IpAddr>("ip");
  mac = in.field<Ovra::EthAddr>("mac");
  in.close();
}

Kiv::String IpAndMac::valueToStrep() const {
  return Kiv::StrepWriter("BfnMacRewrite::IpAndMac").field("ip", ip).field("mac", mac).close();
}

std::ostream& operator<<(std::ostream& out, IpAndMac const& value) {
  return out << value.valueToStrep();
}

namespace Agent {

IpAndIntfId::IpAndIntfId(Kiv::String::Iterator& it, Kiv::String::Iterator const& end) {
  Kiv::StrepReader in(it, end, "BfnMacRewrite::Agent::IpAndIntfId");
  ipAddr = in.field<Ovra::IpAddr>("ipAddr");
  intfId = in.field<Ovra::IntfId>("intfId");
  selfIp = in.field<bool>("selfIp");
  in.close();
}

Kiv::String IpAndIntfId::valueToStrep() const {
  return Kiv::StrepWriter("BfnMacRewrite::Agent::IpAndIntfId")
      .field("ipAddr", ipAddr)
      .field("intfId", intfId)
      .field("selfIp", selfIp)
      .close();
}

std::ostream& operator<<(std::ostream& out, IpAndIntfId const& value) {
  return out << value.valueToStrep();
}

U32 IpAndIntfId::hash(unsigned int seed) const {
  Kiv::Hash hash(seed);
  hash.hashMix(ipAddr.hash());
  hash.hashMix(intfId.hash());
  hash.hashMix(selfIp);
  return hash.result();
}

OverlaySrcMacRewrite::OverlaySrcMacRewrite(Pex::VrfId vrfId) : vrfId_(vrfId) {}

void OverlaySrcMacRewrite::ipAndMacIs(IpAndMac const& value) {
  ipAndMac_.set(value);
}
IpAndMac OverlaySrcMacRewrite::ipAndMacDel(Ovra::IpAddr ip) {
  return ipAndMac_.del(ip);
}
void OverlaySrcMacRewrite::ipAndMacDelAll() {
  ipAndMac_.delAll();
}

Kiv::Type const& OverlaySrcMacRewrite::_kivType() {
  using T = OverlaySrcMacRewrite;
  static Kiv::Type const type(
      "BfnMacRewrite::Agent::OverlaySrcMacRewrite", &Kiv::Entity::_kivType(),
      {Kiv::describeConstant<&T::vrfId>("vrfId", kVrfId.id),
       Kiv::describeCollection<&T::ipAndMac_, &T::ipAndMacIs, &T::ipAndMacDel>("ipAndMac",
                                                                               kIpAndMac.id)});
  return type;
}

Config::Config() = default;

Kiv::Ptr<OverlaySrcMacRewrite> Config::overlaySrcMacRewriteIs(Pex::VrfId vrfId) {
  return overlaySrcMacRewrite_.is(vrfId);
}
void Config::overlaySrcMacRewriteDel(Pex::VrfId vrfId) {
  overlaySrcMacRewrite_.del(vrfId);
}
void Config::overlaySrcMacRewriteDelAll() {
  overlaySrcMacRewrite_.delAll();
}

Kiv::Type const& Config::_kivType() {
  using T = Config;
  static Kiv::Type const type(
      "BfnMacRewrite::Agent::Config", &Kiv::Entity::_kivType(),
      {Kiv::describeCollection<&T::overlaySrcMacRewrite_, &T::overlaySrcMacRewriteIs,
                               &T::overlaySrcMacRewriteDel>("overlaySrcMacRewrite",
                                                            kOverlaySrcMacRewrite.id)},
      Kiv::describeDefault<T>());
  return type;
}

VrfStatus::VrfStatus(Pex::VrfId vrfId) : vrfId_(vrfId) {}

void VrfStatus::ipAndIntfIdIs(IpAndIntfId const& value) {
  ipAndIntfId_.set(value);
}
IpAndIntfId VrfStatus::ipAndIntfIdDel(Ovra::IpAddr ip) {
  return ipAndIntfId_.del(ip);
}
void VrfStatus::ipAndIntfIdDelAll() {
  ipAndIntfId_.delAll();
}

Kiv::Type const& VrfStatus::_kivType() {
  using T = VrfStatus;
  static Kiv::Type const type(
      "BfnMacRewrite::Agent::VrfStatus", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeConstant<&T::vrfId>("vrfId", kVrfId.id),
       Kiv::describeCollection<&T::ipAndIntfId_, &T::ipAndIntfIdIs, &T::ipAndIntfIdDel>(
           "ipAndIntfId", kIpAndIntfId.id)});
  return type;
}

Status::Status() = default;

Kiv::Ptr<VrfStatus> Status::vrfStatusIs(Pex::VrfId vrfId) {
  return vrfStatus_.is(vrfId);
}
void Status::vrfStatusDel(Pex::VrfId vrfId) {
  vrfStatus_.del(vrfId);
}
void Status::vrfStatusDelAll() {
  vrfStatus_.delAll();
}

Kiv::Type const& Status::_kivType() {
  using T = Status;
  static Kiv::Type const type(
      "BfnMacRewrite::Agent::Status", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeCollection<&T::vrfStatus_, &T::vrfStatusIs, &T::vrfStatusDel>("vrfStatus",
                                                                                  kVrfStatus.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace Agent
}  // namespace BfnMacRewrite
