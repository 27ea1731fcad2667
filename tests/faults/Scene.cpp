// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/Scene.h"

#include <sstream>

#include "framework/core/AllocTrack.h"
#include "framework/core/Clock.h"
#include "framework/core/Hash.h"
#include "framework/generic/Type.h"
#include "show/ShowMacRewriteCommandRequestSm.h"

namespace BfnTest {

namespace {

// The order of walks, and with it the outcome of some cases, depends on the process's seed.
[[maybe_unused]] bool const seeded = [] {
  Kiv::HashHelper::hashSeed32Is(1);
  return true;
}();

std::string number(int value) {
  return std::to_string(value);
}

std::string text(char const* what, Kiv::PtrInterface const* object) {
  std::ostringstream out;
  out << what << ' ';
  if (object == nullptr) {
    out << "null";
  } else {
    Kiv::genericPrint(out, *object);
  }
  return out.str();
}

template <class P>
std::string text(char const* what, P const& object) {
  return text(what, static_cast<Kiv::PtrInterface const*>(object ? &*object : nullptr));
}

}  // namespace

Scene::Scene(int size, Stage stage, std::function<void(Scene&)> const& beforeAgent) {
  host.chip.tableIs(BfnChip::ChipModel::kRewriteTable, 1000);
  spare =
      Kiv::makeActive<BfnL3::L3IntfRoutingStatus>(Pex::PortVlanPair(Ovra::IntfId("Ethernet1"), 0));
  spare->vlanIdIs(150);
  spare->vrfIdIs(Pex::VrfId(7));
  spareRoute = Kiv::makeActive<Routing::Hardware::VrfStatus>(L3::VrfName("red"));
  spareRoute->vrfIdIs(7);
  spareRoute->fwdVlanIdIs(350);
  spareEntry = Kiv::makeActive<BfnAgentLib::BfnProfileData>()->profileDataEntryIs(host.kProfile);
  spareL3 = Kiv::makeActive<Pex::L3Status>();
  spareL3->vrfIs(L3::VrfName("red"), Pex::VrfId(7));
  spareConfig = Kiv::makeActive<BfnMacRewrite::Input::Config>();
  spareConfig->overlaySrcMacRewriteEntryIs(
      {L3::VrfName("red"), ip("10.0.1.1"), mac("02:00:00:00:09:01")});
  sparePorts = Kiv::makeActive<BfnL3::L3RoutingStatus>();
  sparePorts->l3IntfRoutingStatusIs(spare);

  host.vrf("red", 7);
  host.vrf("blue", 8);
  host.port("Ethernet1", 100, 7);
  host.port("Ethernet2", 200, 8);
  host.route("red", 7, 300);
  for (int i = 0; i < size; ++i) {
    host.vrf(("vrf" + number(i)).c_str(), 100 + static_cast<unsigned>(i));
    host.port(("Ethernet" + number(10 + i)).c_str(), 400 + static_cast<unsigned>(i), 7);
    host.rewrite("red", ("10.0.1." + number(1 + i)).c_str(), "02:00:00:00:01:01");
  }
  host.connect();
  if (beforeAgent) beforeAgent(*this);
  if (stage != Stage::None) host.agentIs();
  if (stage == Stage::Stage1 || stage == Stage::Running) stage1();
  if (stage == Stage::Running) host.stage2();
  auto const status = host.mount->bfnMacRewriteAgentStatusIs();
  for (int i = 0; i < size; ++i) {
    status->vrfStatusIs(Pex::VrfId(7))
        ->ipAndIntfIdIs(
            {ip(("10.0.1." + number(1 + i)).c_str()), Ovra::IntfId("Ethernet1"), false});
  }
  if (size > 0) {
    status->vrfStatusIs(Pex::VrfId(7))
        ->ipAndIntfIdIs({ip("10.0.9.1"), Ovra::IntfId("Ethernet1"), true});
  }
}

Scene::~Scene() = default;

void Scene::initializeTables() {
  BfnAgentLib::TableInitialization with;
  with.dlHandle = driver.opaque();
  BfnAgentLib::initializeTables(host.l3Shared->bfnL3Output()->profileEntry(), with);
}

void Scene::stage1() {
  auto const output = host.l3Shared->bfnL3Output();
  output->initMacRewriteTablesIs(!output->initMacRewriteTables());
  initializeTables();
}

std::vector<std::string> Scene::look() const {
  std::vector<std::string> lines;
  for (std::string const& row : host.rows()) lines.push_back("row " + row);
  lines.push_back(text("configuration", host.mount->bfnMacRewriteAgentConfig()));
  if (auto const config = host.mount->bfnMacRewriteAgentConfig()) {
    for (auto const& member : config->overlaySrcMacRewrite()) {
      lines.push_back(text("configuration of a VRF", member));
    }
  }
  lines.push_back(text("capability", host.mount->bfnMacRewriteCapability()));
  lines.push_back(text("agent", host.agent));
  if (host.agent) {
    auto const& agent = *host.agent;
    lines.push_back(text("routing status", agent.intfIdToRoutingStatus()));
    lines.push_back(text("manager", agent.overlaySrcMacRewriteManager()));
    lines.push_back(text("translator", agent.overlaySrcMacRewriteCliConfigSm()));
    lines.push_back(text("machine", agent.bfnMacRewriteSm()));
    if (auto const& machine = agent.bfnMacRewriteSm()) {
      lines.push_back(text("the machine's manager", machine->overlaySrcMacRewriteManager()));
    }
  }
  for (auto const& type : Kiv::AllocTrackTypeInfo::snapshot()) {
    if (type.live() == 0) continue;
    lines.push_back("live " + number(static_cast<int>(type.live())) + " of " + type.typeName);
  }
  return lines;
}

std::string Scene::shown() {
  std::string received;
  auto const request =
      Kiv::make<::Agent::AgentCommandRequest const>(7u, 0u, [&received](std::string_view part) {
        received += part;
        return part.size();
      });
  auto const command = BfnMacRewrite::showMacRewriteCommandRequestSmFactory(
      "show", request, 1e9, Kiv::makeActive<Kiv::ManualClock>(),
      host.agent->overlaySrcMacRewriteManager(), false, L3::VrfName(), false, Ovra::IpAddr(), false,
      Ovra::EthAddr(), false);
  while (command->runSlice() == ::Agent::SliceResult::Again) {
  }
  return received;
}

}  // namespace BfnTest
