// SPDX-License-Identifier: Apache-2.0
#include "host/commands/KnownValues.h"

#include <iterator>
#include <utility>

#include "framework/core/Strep.h"
#include "host/dumps/Dumps.h"
#include "host/language/Lexer.h"

namespace Host {

namespace {

using Values = std::set<std::string>;

template <class T>
std::string inText(T const& value) {
  return Kiv::valueToStrep(value).stdString();
}

// Calls `f(VRF id, address, interface)`, the last two empty for a VRF without addresses.
template <class F>
void forEachAddress(Object const& addresses, F const& f) {
  if (!addresses) return;
  forEach(addresses, "vrfStatus", [&](Kiv::GenericValue const& id, Kiv::GenericValue const& vrf) {
    std::string const number = id.strep().stdString();
    f(number, std::string(), std::string());
    forEach(objectOf(vrf), "ipAndIntfId",
            [&](Kiv::GenericValue const& ip, Kiv::GenericValue const& value) {
              Kiv::String const text = value.strep();
              auto at = text.begin();
              auto const end = text.end();
              Kiv::StrepReader in(at, end, "BfnMacRewrite::Agent::IpAndIntfId");
              in.field<Ovra::IpAddr>("ipAddr");
              f(number, ip.strep().stdString(), in.field<Ovra::IntfId>("intfId").stdString());
            });
  });
}

Values vrfs(KnownInputs const& inputs) {
  Values found;
  for (ConfigLine const& line : configLines(*inputs.host)) found.insert(line.vrfName.stdString());
  if (inputs.vrfs) {
    for (auto const& entry : inputs.vrfs->vrfNameToId()) found.insert(entry.key.stdString());
  }
  if (inputs.routes) {
    for (auto const& vrf : inputs.routes->vrfStatus()) found.insert(vrf->vrfName().stdString());
  }
  return found;
}

Values addresses(KnownInputs const& inputs) {
  Values found;
  for (ConfigLine const& line : configLines(*inputs.host)) found.insert(inText(line.ip));
  forEachAddress(inputs.addresses,
                 [&](auto const&, std::string const& ip, auto const&) { found.insert(ip); });
  return found;
}

Values vrfIds(KnownInputs const& inputs) {
  Values found;
  if (inputs.vrfs) {
    for (auto const& entry : inputs.vrfs->vrfName()) found.insert(inText(entry.key));
  }
  forEachAddress(inputs.addresses,
                 [&](std::string const& id, auto const&, auto const&) { found.insert(id); });
  return found;
}

Values interfaces(KnownInputs const& inputs) {
  Values found;
  for (auto const& all : inputs.interfaces) {
    if (!all) continue;
    for (auto const& status : all->l3IntfRoutingStatus()) {
      found.insert(status->intfAndVlan().intfId().stdString());
    }
  }
  forEachAddress(inputs.addresses,
                 [&](auto const&, auto const&, std::string const& intf) { found.insert(intf); });
  return found;
}

Values profiles(KnownInputs const& inputs) {
  Values found;
  if (!inputs.profiles) return found;
  for (auto const& profile : inputs.profiles->profileInfo()) {
    found.insert(profile->profileName().stdString());
  }
  return found;
}

}  // namespace

std::string_view kindOf(Completion const& place) {
  if (place.slot == "VRF") return "vrf";
  if (place.slot == "IP") return "address";
  if (place.slot == "INTF") return "interface";
  if (place.slot == "DEVICE") return "port";
  if (place.slot == "N" && place.key == "vrf-id") return "vrf-id";
  if (place.slot == "NAME" && place.key == "profile") return "profile";
  return {};
}

KnownInputs::KnownInputs(Switch const& of) : host(&of) {
  if (!of.hasPlugin()) return;
  vrfs = of.l3Status();
  routes = of.routeStatus;
  interfaces = {of.routingStatus("port"), of.routingStatus("vlan"),
                of.routingStatus("subinterface")};
  profiles = of.systemStatus;
  addresses = of.agentStatus();
}

std::set<std::string> knownValues(KnownInputs const& inputs, std::string_view kind) {
  if (kind == "vrf") return vrfs(inputs);
  if (kind == "address") return addresses(inputs);
  if (kind == "interface") return interfaces(inputs);
  if (kind == "vrf-id") return vrfIds(inputs);
  if (kind == "profile") return profiles(inputs);
  return {};
}

Selection beginningWith(std::string_view typed, std::set<std::string> values, size_t most) {
  std::erase_if(values, [&](std::string const& value) {
    return value.empty() || !typedWord(value).starts_with(typed);
  });
  if (values.size() <= most) return {std::move(values), false};
  values.erase(std::next(values.begin(), static_cast<std::ptrdiff_t>(most) - 1),
               std::prev(values.end()));
  return {std::move(values), true};
}

}  // namespace Host
