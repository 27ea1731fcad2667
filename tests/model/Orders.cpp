// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>

#include "rewrite/VrfIpCollection.h"
#include "tests/model/Values.h"
#include "tests/model/World.h"

namespace BfnTest {

namespace {

template <class Range, class KeyText, size_t N>
void fill(Table<int, N>& order, Range const& range, KeyText const& indexOf) {
  size_t at = 0;
  for (auto const& member : range) {
    if (at == N) break;
    order[at++] = indexOf(member);
  }
  if (at != N) throw std::logic_error("a collection does not hold the whole universe");
}

template <class Value, class Make>
int indexOf(Value const& value, int count, Make const& make) {
  for (int i = 0; i < count; ++i) {
    if (make(i) == value) return i;
  }
  throw std::logic_error("a value outside the universe");
}

}  // namespace

Orders askOrders() {
  auto const nameOf = [](L3::VrfName const& v) { return indexOf(v, kNames, name); };
  auto const idOf = [](Pex::VrfId v) { return indexOf(v, kIds, id); };
  auto const ipOf = [](Ovra::IpAddr v) { return indexOf(v, kIps, [](int i) { return ip(i); }); };
  auto const intfOf = [](Ovra::IntfId v) { return indexOf(v, kIntfs, intf); };
  Orders orders;

  auto const l3 = Kiv::makeActive<Pex::L3Status>();
  auto const route = Kiv::makeActive<Routing::Hardware::RouteStatus>();
  auto const cli = Kiv::makeActive<BfnMacRewrite::Input::Config>();
  for (int n = 0; n < kNames; ++n) {
    l3->vrfNameToIdIs(name(n), Pex::VrfId(1));
    route->vrfStatusIs(name(n));
    for (int i = 0; i < kIps; ++i) cli->overlaySrcMacRewriteEntryIs({name(n), ip(i), mac(1)});
  }
  fill(orders.l3Names, l3->vrfNameToId(), [&](auto const& m) { return nameOf(m.key); });
  fill(orders.hwNames, route->vrfStatus(), [&](auto const& m) { return nameOf(m->vrfName()); });
  fill(orders.lines, cli->overlaySrcMacRewriteEntry(),
       [&](auto const& m) { return nameOf(m.vrfName) * kIps + ipOf(m.ip); });

  auto const routing = Kiv::makeActive<BfnL3::L3RoutingStatus>();
  auto const merged = Kiv::makeActive<BfnMacRewrite::IntfIdToRoutingStatus>();
  for (int i = 0; i < kIntfs; ++i) {
    for (int v = 0; v < kKeyVlans; ++v) {
      merged->l3IntfRoutingStatusIs(intf(i), routing->l3IntfRoutingStatusIs(key(i, v)));
    }
  }
  fill(orders.routing, routing->l3IntfRoutingStatus(), [&](auto const& m) {
    auto const at = m->intfAndVlan();
    return intfOf(at.intfId()) * kKeyVlans +
           indexOf(at.vlanId(), kKeyVlans, [](int v) { return kKeyVlanValue[v]; });
  });
  fill(orders.intfs, merged->l3IntfRoutingStatus(), [&](auto const& m) { return intfOf(m.key); });

  auto const status = Kiv::makeActive<BfnMacRewrite::Agent::Status>();
  auto const pairs = Kiv::makeActive<BfnMacRewrite::VrfIpCollection>(intf(1));
  for (int v = 0; v < kIds; ++v) {
    auto const vrf = status->vrfStatusIs(id(v));
    for (int i = 0; i < kIps; ++i) {
      vrf->ipAndIntfIdIs({ip(i), intf(1), false});
      pairs->vrfAndIpAddrIs({id(v), ip(i)});
    }
  }
  fill(orders.statusVrfs, status->vrfStatus(), [&](auto const& m) { return idOf(m->vrfId()); });
  fill(orders.statusIps, status->vrfStatus(id(0))->ipAndIntfId(),
       [&](auto const& m) { return ipOf(m.ipAddr); });
  fill(orders.pairs, pairs->vrfAndIpAddr(),
       [&](auto const& m) { return idOf(m.vrfId()) * kIps + ipOf(m.ipAddr()); });
  return orders;
}

}  // namespace BfnTest
