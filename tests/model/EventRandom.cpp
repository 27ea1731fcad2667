// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "tests/model/Event.h"

namespace BfnTest {

namespace {

int below(Random& random, int limit) {
  return static_cast<int>(random() % static_cast<unsigned>(limit));
}
bool oneIn(Random& random, int n) {
  return below(random, n) == 0;
}
// Most numbers are fit for a row, so that rows exist.
int vlan(Random& random, int limit) {
  return below(random, oneIn(random, 40) ? limit : kRowVlans);
}
int objectOrNull(Random& random, int count) {
  return oneIn(random, 6) ? kNone : below(random, count);
}
// The objects in use at first get most of the events.
int often0(Random& random, int count) {
  return oneIn(random, 3) ? below(random, count) : 0;
}
int l3(Random& random) {
  return often0(random, kL3);
}
int name(Random& random) {
  return below(random, kNames);
}
int idOf(Random& random, int name) {
  return oneIn(random, 4) ? below(random, kIds) : name;
}
int routing(Random& random) {
  return oneIn(random, 2) ? below(random, kRouting) : 0;
}
int intf(Random& random) {
  return below(random, kIntfs);
}
int keyVlan(Random& random) {
  return often0(random, kKeyVlans);
}
bool watched(Random& random) {
  return oneIn(random, 2);
}
// The first three, of names or of ids, meet each other most.
int oftenFirst(Random& random, int count) {
  return below(random, oneIn(random, 3) ? count : 3);
}
int ip(Random& random) {
  return below(random, kIps);
}
// An address mostly is where it was before: moving it is fatal.
int homeOf(Random& random, int ip) {
  return oneIn(random, 12) ? below(random, kIntfs) : 1 + ip % (kIntfs - 1);
}
int routeVlan(Random& random) {
  return oneIn(random, 5) ? kVlanZero : vlan(random, kVlans);
}
// For the zero address a zero MAC would be the default value.
int macOf(Random& random, int ip) {
  return ip == kZeroIp ? 1 + below(random, kMacs - 1) : below(random, kMacs);
}
int capacity(Random& random) {
  return below(random, static_cast<int>(kCapacity.size()));
}

template <class E>
Event plain(Random&) {
  return E{};
}
template <class E>
Event onKey(Random& random) {
  return E{routing(random), intf(random), keyVlan(random)};
}

Event vrf(Random& random) {
  int const which = name(random);
  return event::Vrf{l3(random), which, idOf(random, which)};
}
Event nameToId(Random& random) {
  int const which = name(random);
  return event::NameToId{l3(random), which, idOf(random, which)};
}
Event idToName(Random& random) {
  int const which = name(random);
  return event::IdToName{l3(random), idOf(random, which), which};
}
Event address(Random& random) {
  int const which = ip(random);
  return event::Address{watched(random), oftenFirst(random, kIds), which, homeOf(random, which),
                        oneIn(random, 3)};
}
Event route(Random& random) {
  int const which = name(random);
  return event::Route{which, idOf(random, which), routeVlan(random)};
}
Event routeId(Random& random) {
  int const which = name(random);
  return event::RouteId{which, idOf(random, which)};
}
Event line(Random& random) {
  int const which = ip(random);
  return event::Line{often0(random, kClis), oftenFirst(random, kNames), which,
                     macOf(random, which)};
}

struct Choice {
  int weight;
  Event (*make)(Random& random);
};

using R = Random&;

constexpr Choice kChoices[] = {
    {8, nameToId},
    {8,
     [](R r) -> Event {
       return event::NameToIdDel{l3(r), name(r)};
     }},
    {8, idToName},
    {4,
     [](R r) -> Event {
       return event::IdToNameDel{l3(r), below(r, kIds)};
     }},
    {25, vrf},
    {14,
     [](R r) -> Event {
       return event::VrfDel{l3(r), name(r)};
     }},
    {90,
     [](R r) -> Event {
       return event::Routing{routing(r), intf(r), keyVlan(r), vlan(r, kIntfVlans), below(r, kIds)};
     }},
    {45, onKey<event::RoutingDel>},
    {12, onKey<event::RoutingAgain>},
    {15,
     [](R r) -> Event {
       return event::RoutingVlan{routing(r), intf(r), keyVlan(r), vlan(r, kIntfVlans)};
     }},
    {3, [](R r) -> Event { return event::RoutingOther{routing(r)}; }},
    {2, [](R r) -> Event { return event::RoutingDelAll{routing(r)}; }},
    {220, address},
    {100,
     [](R r) -> Event {
       return event::AddressDel{watched(r), oftenFirst(r, kIds), ip(r)};
     }},
    {4,
     [](R r) -> Event {
       return event::AddressDelAll{watched(r), oftenFirst(r, kIds)};
     }},
    {8,
     [](R r) -> Event {
       return event::VrfStatus{watched(r), oftenFirst(r, kIds)};
     }},
    {7,
     [](R r) -> Event {
       return event::VrfStatusDel{watched(r), oftenFirst(r, kIds)};
     }},
    {1, [](R r) -> Event { return event::VrfStatusDelAll{watched(r)}; }},
    {45, route},
    {15, routeId},
    {60,
     [](R r) -> Event {
       return event::RouteVlan{name(r), routeVlan(r)};
     }},
    {12, [](R r) -> Event { return event::RouteDel{name(r)}; }},
    {1, plain<event::RouteDelAll>},
    {150, line},
    {80,
     [](R r) -> Event {
       return event::LineDel{often0(r, kClis), oftenFirst(r, kNames), ip(r)};
     }},
    {3, [](R r) -> Event { return event::LineDelAll{often0(r, kClis)}; }},
    {2, [](R r) -> Event { return event::UseL3{objectOrNull(r, kL3)}; }},
    {9,
     [](R r) -> Event {
       return event::UseRouting{below(r, 3), objectOrNull(r, kRouting)};
     }},
    {3, [](R r) -> Event { return event::UseCli{objectOrNull(r, kClis)}; }},
    {3, [](R r) -> Event { return event::UseEntry{below(r, kEntries)}; }},
    {2, plain<event::NewAgentConfig>},
    {1, plain<event::NoAgentConfig>},
    {2, plain<event::NewAgentStatus>},
    {1, plain<event::NoAgentStatus>},
    {2, [](R r) -> Event { return event::UseCapability{!oneIn(r, 3)}; }},
    {3, [](R r) -> Event { return event::ProfileName{!oneIn(r, 3)}; }},
    {3, [](R r) -> Event { return event::Supported{!oneIn(r, 3)}; }},
    {6, plain<event::Create>},
    {3, plain<event::Destroy>},
    {12, plain<event::Stage1>},
    {14, plain<event::Stage2>},
    {5, [](R r) -> Event { return event::Capacity{capacity(r)}; }},
    {4, [](R r) -> Event { return event::Resources{capacity(r)}; }},
    {7,
     [](R r) -> Event {
       return event::FailNext{1 + below(r, 2), below(r, 4)};
     }},
    {5,
     [](R r) -> Event {
       return event::FailNth{1 + below(r, 6), below(r, 4)};
     }},
    {12, plain<event::FaultsClear>},
    {25, [](R r) -> Event { return event::Clock{below(r, static_cast<int>(kClockStep.size()))}; }},
};

Event randomEvent(Random& random) {
  static int const total = [] {
    int sum = 0;
    for (Choice const& each : kChoices) sum += each.weight;
    return sum;
  }();
  int left = below(random, total);
  for (Choice const& each : kChoices) {
    if ((left -= each.weight) < 0) return each.make(random);
  }
  return event::Clock{0};
}

}  // namespace

std::vector<Event> randomSequence(std::uint64_t seed, int length) {
  Random random(seed);
  std::vector<Event> events(static_cast<size_t>(length));
  std::ranges::generate(events, [&random] { return randomEvent(random); });
  // Bring-up in order, each at its own random place of the beginning; later stages are by chance.
  size_t at = random() % 60;
  for (Event const& step :
       {Event(event::Create{}), Event(event::Stage1{}), Event(event::Stage2{})}) {
    at = std::min(at, events.size());
    events.insert(events.begin() + static_cast<std::ptrdiff_t>(at), step);
    at += 1 + random() % 60;
  }
  return events;
}

}  // namespace BfnTest
