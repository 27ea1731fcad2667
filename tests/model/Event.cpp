#include "tests/model/Event.h"

#include <algorithm>
#include <sstream>

namespace ModelTest {

namespace {

struct Weight {
  Kind kind;
  int weight;
};

constexpr Weight kWeights[] = {
    {Kind::NameToId, 8},      {Kind::NameToIdDel, 8},    {Kind::IdToName, 8},
    {Kind::IdToNameDel, 4},   {Kind::Vrf, 25},           {Kind::VrfDel, 14},
    {Kind::Routing, 90},      {Kind::RoutingDel, 45},    {Kind::RoutingAgain, 12},
    {Kind::RoutingVlan, 15},  {Kind::RoutingOther, 3},   {Kind::RoutingDelAll, 2},
    {Kind::Address, 220},     {Kind::AddressDel, 100},   {Kind::AddressDelAll, 4},
    {Kind::VrfStatus, 8},     {Kind::VrfStatusDel, 7},   {Kind::VrfStatusDelAll, 1},
    {Kind::Route, 45},        {Kind::RouteId, 15},       {Kind::RouteVlan, 60},
    {Kind::RouteDel, 12},     {Kind::RouteDelAll, 1},    {Kind::Line, 150},
    {Kind::LineDel, 80},      {Kind::LineDelAll, 3},     {Kind::UseL3, 2},
    {Kind::UsePorts, 3},      {Kind::UseVlans, 3},       {Kind::UseSubIntfs, 3},
    {Kind::UseCli, 3},        {Kind::UseEntry, 3},       {Kind::NewAgentConfig, 2},
    {Kind::NoAgentConfig, 1}, {Kind::NewAgentStatus, 2}, {Kind::NoAgentStatus, 1},
    {Kind::UseCapability, 2}, {Kind::ProfileName, 3},    {Kind::Supported, 3},
    {Kind::Create, 6},        {Kind::Destroy, 3},        {Kind::Stage1, 12},
    {Kind::Stage2, 14},       {Kind::Capacity, 5},       {Kind::Resources, 4},
    {Kind::FailNext, 7},      {Kind::FailNth, 5},        {Kind::FaultsClear, 12},
    {Kind::Clock, 25},
};

int below(Random& random, int limit) {
  return static_cast<int>(random() % static_cast<unsigned>(limit));
}
bool oneIn(Random& random, int n) {
  return below(random, n) == 0;
}
std::uint8_t byte(int value) {
  return static_cast<std::uint8_t>(value);
}

Kind randomKind(Random& random) {
  static int const total = [] {
    int sum = 0;
    for (Weight const& each : kWeights) sum += each.weight;
    return sum;
  }();
  int left = below(random, total);
  for (Weight const& each : kWeights) {
    if ((left -= each.weight) < 0) return each.kind;
  }
  return Kind::Clock;
}

// Most numbers are fit for a row, so that rows exist.
std::uint8_t randomVlan(Random& random, int limit) {
  return byte(oneIn(random, 40) ? below(random, limit) : below(random, kRowVlans));
}
std::uint8_t randomObject(Random& random, int count) {
  return oneIn(random, 6) ? byte(kNull) : byte(below(random, count));
}
// The objects in use at first get most of the events.
std::uint8_t often0(Random& random, int count) {
  return byte(oneIn(random, 3) ? below(random, count) : 0);
}

Event randomEvent(Random& random) {
  Event event;
  event.kind = randomKind(random);
  switch (event.kind) {
    case Kind::NameToId:
    case Kind::NameToIdDel:
    case Kind::IdToName:
    case Kind::IdToNameDel:
    case Kind::Vrf:
    case Kind::VrfDel:
      event.a = often0(random, kL3);
      event.b = byte(below(random, kNames));
      event.c = oneIn(random, 4) ? byte(below(random, kIds)) : event.b;
      break;
    case Kind::Routing:
    case Kind::RoutingDel:
    case Kind::RoutingAgain:
    case Kind::RoutingVlan:
    case Kind::RoutingOther:
    case Kind::RoutingDelAll:
      event.a = byte(oneIn(random, 2) ? below(random, kRouting) : 0);
      event.b = byte(below(random, kIntfs));
      event.c = often0(random, kKeyVlans);
      event.d = randomVlan(random, kIntfVlans);
      event.e = byte(below(random, kIds));
      break;
    case Kind::Address:
    case Kind::AddressDel:
    case Kind::AddressDelAll:
    case Kind::VrfStatus:
    case Kind::VrfStatusDel:
    case Kind::VrfStatusDelAll:
      event.a = byte(below(random, 2));
      event.b = byte(oneIn(random, 3) ? below(random, kIds) : below(random, 3));
      event.c = byte(below(random, kIps));
      // An address mostly lives where it lived before: moving it is fatal.
      event.d = byte(oneIn(random, 12) ? below(random, kIntfs) : 1 + event.c % (kIntfs - 1));
      event.e = byte(oneIn(random, 3));
      break;
    case Kind::Route:
    case Kind::RouteId:
    case Kind::RouteVlan:
    case Kind::RouteDel:
    case Kind::RouteDelAll:
      event.b = byte(below(random, kNames));
      event.c = oneIn(random, 4) ? byte(below(random, kIds)) : event.b;
      event.d = oneIn(random, 5) ? byte(kVlanZero) : randomVlan(random, kVlans);
      break;
    case Kind::Line:
    case Kind::LineDel:
    case Kind::LineDelAll:
      event.a = often0(random, kClis);
      event.b = byte(oneIn(random, 3) ? below(random, kNames) : below(random, 3));
      event.c = byte(below(random, kIps));
      // For the zero address a zero MAC would be the default value.
      event.d = byte(event.c == kZeroIp ? 1 + below(random, kMacs - 1) : below(random, kMacs));
      break;
    case Kind::UseL3:
      event.a = randomObject(random, kL3);
      break;
    case Kind::UsePorts:
    case Kind::UseVlans:
    case Kind::UseSubIntfs:
      event.a = randomObject(random, kRouting);
      break;
    case Kind::UseCli:
      event.a = randomObject(random, kClis);
      break;
    case Kind::UseEntry:
      event.a = byte(below(random, kEntries));
      break;
    case Kind::UseCapability:
      event.a = oneIn(random, 3) ? kNull : byte(0);
      break;
    case Kind::ProfileName:
    case Kind::Supported:
      event.a = byte(!oneIn(random, 3));
      break;
    case Kind::Capacity:
    case Kind::Resources:
      event.a = byte(below(random, static_cast<int>(kCapacity.size())));
      break;
    case Kind::FailNext:
    case Kind::FailNth:
      event.a = byte(1 + below(random, event.kind == Kind::FailNext ? 2 : 6));
      event.b = byte(below(random, 4));
      break;
    case Kind::Clock:
      event.a = byte(below(random, static_cast<int>(kClockStep.size())));
      break;
    default:
      break;
  }
  return event;
}

std::string object(char const* array, int index) {
  if (index == kNull) return "nullptr";
  return std::string(array) + "[" + std::to_string(index) + "]";
}
std::string name(int index) {
  return std::string("L3::VrfName(\"") + kNameText[index] + "\")";
}
std::string id(int index) {
  return "Pex::VrfId(" + std::to_string(kIdValue[index]) + "u)";
}
std::string ip(int index) {
  return "BfnTest::ip(\"" + ipText(index) + "\")";
}
std::string key(Event const& e) {
  return std::string("{Ovra::IntfId(\"") + kIntfText[e.b] + "\"), " +
         std::to_string(kKeyVlanValue[e.c]) + "}";
}

}  // namespace

std::vector<Event> randomSequence(std::uint64_t seed, int length) {
  Random random(seed);
  std::vector<Event> events(static_cast<std::size_t>(length));
  std::ranges::generate(events, [&random] { return randomEvent(random); });
  // Bring-up in order, each at its own random place of the beginning; later stages are by chance.
  std::size_t at = random() % 60;
  for (Kind const kind : {Kind::Create, Kind::Stage1, Kind::Stage2}) {
    at = std::min(at, events.size());
    events.insert(events.begin() + static_cast<std::ptrdiff_t>(at), Event{kind});
    at += 1 + random() % 60;
  }
  return events;
}

std::string toCode(Event const& e) {
  std::ostringstream out;
  std::string const l3 = "world.l3[" + std::to_string(e.a) + "]->";
  std::string const routing = "world.routing[" + std::to_string(e.a) + "]->";
  std::string const status = "world.status(" + std::to_string(e.a) + ")";
  std::string const cli = "world.cli[" + std::to_string(e.a) + "]->";
  std::string const vrf = "(" + name(e.b) + ", " + id(e.c) + ")";
  switch (e.kind) {
    case Kind::NameToId:
      out << l3 << "vrfNameToIdIs" << vrf;
      break;
    case Kind::NameToIdDel:
      out << l3 << "vrfNameToIdDel(" << name(e.b) << ")";
      break;
    case Kind::IdToName:
      out << l3 << "vrfNameIs(" << id(e.c) << ", " << name(e.b) << ")";
      break;
    case Kind::IdToNameDel:
      out << l3 << "vrfNameDel(" << id(e.c) << ")";
      break;
    case Kind::Vrf:
      out << l3 << "vrfIs" << vrf;
      break;
    case Kind::VrfDel:
      out << l3 << "vrfDel(" << name(e.b) << ")";
      break;
    case Kind::Routing:
      out << "world.routingStatus(" << int{e.a} << ", " << key(e) << ", " << kVlanValue[e.d] << ", "
          << kIdValue[e.e] << "u)";
      break;
    case Kind::RoutingDel:
      out << routing << "l3IntfRoutingStatusDel(" << key(e) << ")";
      break;
    case Kind::RoutingAgain:
      out << routing << "l3IntfRoutingStatusRenotify(" << key(e) << ")";
      break;
    case Kind::RoutingVlan:
      out << "world.routingVlan(" << int{e.a} << ", " << key(e) << ", " << kVlanValue[e.d] << ")";
      break;
    case Kind::RoutingOther:
      out << routing << "routingEnabledIs(!" << routing << "routingEnabled())";
      break;
    case Kind::RoutingDelAll:
      out << routing << "l3IntfRoutingStatusDelAll()";
      break;
    case Kind::Address:
      out << "if (" << status << ") " << status << "->vrfStatusIs(" << id(e.b)
          << ")->ipAndIntfIdIs({" << ip(e.c) << ", Ovra::IntfId(\"" << kIntfText[e.d] << "\"), "
          << (e.e != 0 ? "true" : "false") << "})";
      break;
    case Kind::AddressDel:
      out << "world.addressDel(" << int{e.a} << ", " << id(e.b) << ", " << ip(e.c) << ")";
      break;
    case Kind::AddressDelAll:
      out << "world.addressDelAll(" << int{e.a} << ", " << id(e.b) << ")";
      break;
    case Kind::VrfStatus:
      out << "if (" << status << ") " << status << "->vrfStatusIs(" << id(e.b) << ")";
      break;
    case Kind::VrfStatusDel:
      out << "if (" << status << ") " << status << "->vrfStatusDel(" << id(e.b) << ")";
      break;
    case Kind::VrfStatusDelAll:
      out << "if (" << status << ") " << status << "->vrfStatusDelAll()";
      break;
    case Kind::Route:
      out << "world.route(" << name(e.b) << ", " << kIdValue[e.c] << "u, " << kVlanValue[e.d]
          << ")";
      break;
    case Kind::RouteId:
      out << "world.routeId(" << name(e.b) << ", " << kIdValue[e.c] << "u)";
      break;
    case Kind::RouteVlan:
      out << "world.routeVlan(" << name(e.b) << ", " << kVlanValue[e.d] << ")";
      break;
    case Kind::RouteDel:
      out << "world.routeStatus->vrfStatusDel(" << name(e.b) << ")";
      break;
    case Kind::RouteDelAll:
      out << "world.routeStatus->vrfStatusDelAll()";
      break;
    case Kind::Line:
      out << cli << "overlaySrcMacRewriteEntryIs({" << name(e.b) << ", " << ip(e.c)
          << ", BfnTest::mac(\"" << macText(e.d) << "\")})";
      break;
    case Kind::LineDel:
      out << cli << "overlaySrcMacRewriteEntryDel({" << name(e.b) << ", " << ip(e.c) << "})";
      break;
    case Kind::LineDelAll:
      out << cli << "overlaySrcMacRewriteEntryDelAll()";
      break;
    case Kind::UseL3:
      out << "world.l3Shared->l3StatusIs(" << object("world.l3", e.a) << ")";
      break;
    case Kind::UsePorts:
      out << "world.l3Shared->l3PortAndLagRoutingStatusIs(" << object("world.routing", e.a) << ")";
      break;
    case Kind::UseVlans:
      out << "world.l3Shared->vlanIntfRoutingStatusIs(" << object("world.routing", e.a) << ")";
      break;
    case Kind::UseSubIntfs:
      out << "world.l3Shared->l3SubIntfRoutingStatusIs(" << object("world.routing", e.a) << ")";
      break;
    case Kind::UseCli:
      out << "world.mount->bfnMacRewriteCliConfigIs(" << object("world.cli", e.a) << ")";
      break;
    case Kind::UseEntry:
      out << "world.l3Shared->bfnL3Output()->profileEntryIs(" << object("world.entry", e.a) << ")";
      break;
    case Kind::NewAgentConfig:
      out << "world.newAgentConfig()";
      break;
    case Kind::NoAgentConfig:
      out << "world.mount->bfnMacRewriteAgentConfigDel()";
      break;
    case Kind::NewAgentStatus:
      out << "world.newAgentStatus()";
      break;
    case Kind::NoAgentStatus:
      out << "world.mount->bfnMacRewriteAgentStatusDel()";
      break;
    case Kind::UseCapability:
      out << "world.mount->bfnMacRewriteCapabilityIs("
          << (e.a == kNull ? "nullptr" : "world.capability") << ")";
      break;
    case Kind::ProfileName:
      out << "world.l3Shared->bfnL3Output()->profileNameIs(\"" << (e.a != 0 ? "known" : "unknown")
          << "\")";
      break;
    case Kind::Supported:
      out << "world.supported(" << (e.a != 0 ? "true" : "false") << ")";
      break;
    case Kind::Create:
      out << "world.create()";
      break;
    case Kind::Destroy:
      out << "world.agent = nullptr";
      break;
    case Kind::Stage1:
      out << "world.stage1()";
      break;
    case Kind::Stage2:
      out << "world.stage2()";
      break;
    case Kind::Capacity:
      out << "world.chip.tableIs(BfnChip::ChipModel::kRewriteTable, " << kCapacity[e.a] << ")";
      break;
    case Kind::Resources:
      out << "world.chip.resourcesIs(" << kCapacity[e.a] << ")";
      break;
    case Kind::FailNext:
    case Kind::FailNth:
      out << "world.chip.faults()." << (e.kind == Kind::FailNext ? "failNext(" : "failNth(")
          << int{e.a} << ", {static_cast<BfnChip::Fault::Kind>(" << int{e.b} << "), nullptr})";
      break;
    case Kind::FaultsClear:
      out << "world.chip.faults().clear()";
      break;
    case Kind::Clock:
      out << "world.clock += " << kClockStep[e.a];
      break;
    case Kind::kCount:
      break;
  }
  out << ';';
  return out.str();
}

}  // namespace ModelTest
