// SPDX-License-Identifier: Apache-2.0
#include "host/service/OperatorChanges.h"

#include "framework/core/Strep.h"
#include "framework/values/VrfName.h"
#include "host/language/InputError.h"
#include "host/service/Inputs.h"

namespace Host {

namespace {

using Kind = StoreChange::Kind;

constexpr char kEntry[] = "overlaySrcMacRewriteEntry";

std::string lineKey(Arguments const& given) {
  return Kiv::StrepWriter("BfnMacRewrite::Input::VrfNameAndIp")
      .field("vrfName", L3::VrfName(given.text("vrf")))
      .field("ip", given.ip("src-ip"))
      .close()
      .stdString();
}

std::string lineValue(Arguments const& given) {
  return Kiv::StrepWriter("BfnMacRewrite::Input::VrfIpAndMac")
      .field("vrfName", L3::VrfName(given.text("vrf")))
      .field("ip", given.ip("src-ip"))
      .field("mac", given.mac("src-mac"))
      .close()
      .stdString();
}

std::vector<StoreChange> added(Kiv::PtrInterface&, Arguments const& given) {
  return {{Kind::Set, InputPath::kConfig, kEntry, lineKey(given), lineValue(given), {}, {}}};
}

std::vector<StoreChange> removed(Kiv::PtrInterface& configuration, Arguments const& given) {
  std::string const key = lineKey(given);
  Kiv::GenericValue const line = get(Object(&configuration), kEntry, {Kiv::String(key)});
  if (line.isNothing()) return {};
  if (given.has("src-mac") && line.strep().view() != lineValue(given)) {
    throw InputError("expected the MAC address that is configured");
  }
  return {{Kind::Del, InputPath::kConfig, kEntry, key, {}, {}, {}}};
}

}  // namespace

std::map<std::string, OperatorChange> operatorChanges() {
  return {
      {"vxlan forwarding match vrf <VRF> src-ip <IP> action rewrite src-mac <MAC>", added},
      {"no vxlan forwarding match vrf <VRF> src-ip <IP> [action rewrite src-mac <MAC>]", removed}};
}

}  // namespace Host
