// SPDX-License-Identifier: Apache-2.0
#include "tests/support/PluginHost.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "framework/core/Strep.h"

namespace BfnTest {

namespace {

// Reads the chip's bytes by hand: a mistake in the binding's layout shows here.
std::string keyText(BfnChip::KeyBytes const& key) {
  char text[64];
  std::snprintf(text, sizeof text, "%s%u %u.%u.%u.%u", key[0] == 5 && key[7] == 1 ? "" : "?",
                static_cast<unsigned>(key[1] | key[2] << 8), key[3], key[4], key[5], key[6]);
  return text;
}

std::string macText(BfnChip::ActionBytes const& action) {
  char text[32];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", action[2], action[1], action[0],
                action[6], action[5], action[4]);
  return text;
}

}  // namespace

Ovra::IpAddr ip(char const* text) {
  return Kiv::strepToValue<Ovra::IpAddr>(Kiv::String(text));
}
Ovra::EthAddr mac(char const* text) {
  return Kiv::strepToValue<Ovra::EthAddr>(Kiv::String(text));
}

PluginHost::PluginHost(size_t capacity)
    : chip(capacity),
      systemStatus(Kiv::makeActive<BfnSystem::SystemStatus>()),
      profileData(Kiv::makeActive<BfnAgentLib::BfnProfileData>()),
      profileEntry(profileData->profileDataEntryIs(kProfile)),
      mount(Kiv::makeActive<BfnMacRewrite::BfnMacRewriteMount>()),
      cliConfig(Kiv::makeActive<BfnMacRewrite::Input::Config>()),
      capability(Kiv::makeActive<BfnMacRewrite::Capability>()),
      l3Shared(Kiv::makeActive<BfnMacRewrite::BfnMacRewriteL3Shared>()),
      l3Status(Kiv::makeActive<Pex::L3Status>()),
      ports(Kiv::makeActive<BfnL3::L3RoutingStatus>()),
      vlans(Kiv::makeActive<BfnL3::L3RoutingStatus>()),
      subIntfs(Kiv::makeActive<BfnL3::L3RoutingStatus>()),
      routeStatus(Kiv::makeActive<Routing::Hardware::RouteStatus>()) {
  supportedIs(true);
}

PluginHost::~PluginHost() = default;

void PluginHost::connect() {
  mount->bfnMacRewriteCliConfigIs(cliConfig);
  mount->bfnMacRewriteCapabilityIs(capability);
  mount->bfnMacRewriteAgentConfigIs();
  mount->bfnMacRewriteAgentStatusIs();
  l3Shared->l3StatusIs(l3Status);
  l3Shared->l3PortAndLagRoutingStatusIs(ports);
  l3Shared->vlanIntfRoutingStatusIs(vlans);
  l3Shared->l3SubIntfRoutingStatusIs(subIntfs);
  l3Shared->bfnL3Output()->profileNameIs(kProfile);
  l3Shared->bfnL3Output()->profileEntryIs(profileEntry);
}

void PluginHost::agentIs() {
  agent = BfnMacRewrite::agentSmFactory(systemStatus, profileData, mount, l3Shared, routeStatus);
}

void PluginHost::createAgent() {
  connect();
  agentIs();
}

void PluginHost::supportedIs(bool supported) {
  BfnSystem::ChipCapabilities capabilities;
  capabilities.overlaySrcMacRewriteSupported = supported;
  capabilities.overlaySrcMacRewriteTableSize = 1000;
  systemStatus->profileInfoIs(kProfile)->chipCapabilitiesIs(capabilities);
}

void PluginHost::stage1() {
  auto const output = l3Shared->bfnL3Output();
  output->initMacRewriteTablesIs(!output->initMacRewriteTables());
  BfnAgentLib::TableInitialization with;
  with.dlHandle = driver != nullptr ? driver->opaque() : chip.opaque();
  BfnAgentLib::initializeTables(output->profileEntry(), with);
}

void PluginHost::stage2() {
  auto const output = l3Shared->bfnL3Output();
  output->startMacRewriteSmIs(!output->startMacRewriteSm());
}

void PluginHost::bringUp() {
  createAgent();
  stage1();
  stage2();
}

void PluginHost::port(char const* intf, unsigned vlan, unsigned vrfId) {
  auto const status =
      Kiv::makeActive<BfnL3::L3IntfRoutingStatus>(Pex::PortVlanPair(Ovra::IntfId(intf), 0));
  status->vlanIdIs(static_cast<Kiv::U16>(vlan));
  status->vrfIdIs(Pex::VrfId(vrfId));
  ports->l3IntfRoutingStatusIs(status);
}
void PluginHost::portDel(char const* intf) {
  ports->l3IntfRoutingStatusDel(Pex::PortVlanPair(Ovra::IntfId(intf), 0));
}

void PluginHost::address(unsigned vrfId, char const* ipText, char const* intf, bool self) {
  mount->bfnMacRewriteAgentStatus()
      ->vrfStatusIs(Pex::VrfId(vrfId))
      ->ipAndIntfIdIs({ip(ipText), Ovra::IntfId(intf), self});
}
void PluginHost::addressDel(unsigned vrfId, char const* ipText) {
  mount->bfnMacRewriteAgentStatus()->vrfStatusIs(Pex::VrfId(vrfId))->ipAndIntfIdDel(ip(ipText));
}

void PluginHost::route(char const* vrfName, unsigned vrfId, unsigned fwdVlan) {
  L3::VrfName const name(vrfName);
  if (auto* const status = routeStatus->vrfStatus(name)) {
    status->vrfIdIs(vrfId);
    status->fwdVlanIdIs(fwdVlan);
    return;
  }
  auto const status = Kiv::makeActive<Routing::Hardware::VrfStatus>(name);
  status->vrfIdIs(vrfId);
  status->fwdVlanIdIs(fwdVlan);
  routeStatus->vrfStatusIs(status);
}

void PluginHost::rewrite(char const* vrfName, char const* ipText, char const* macText) {
  cliConfig->overlaySrcMacRewriteEntryIs({L3::VrfName(vrfName), ip(ipText), mac(macText)});
}
void PluginHost::rewriteDel(char const* vrfName, char const* ipText) {
  cliConfig->overlaySrcMacRewriteEntryDel({L3::VrfName(vrfName), ip(ipText)});
}

std::vector<std::string> PluginHost::rows() const {
  std::vector<std::string> texts;
  for (BfnChip::Row const& row : chip.rows()) {
    texts.push_back(keyText(row.key) + " " + macText(row.action));
  }
  std::ranges::sort(texts);
  return texts;
}

std::vector<std::string> PluginHost::journal() {
  std::vector<std::string> texts;
  for (BfnChip::JournalEntry const& entry : chip.journal().take()) {
    bool const write = entry.operation == BfnChip::Operation::Write;
    std::string text = (write ? "write " : "erase ") + keyText(entry.key);
    if (write) text += " " + macText(entry.action);
    if (entry.outcome != BfnChip::Outcome::Ok) {
      std::ostringstream outcome;
      outcome << ' ' << entry.outcome;
      text += outcome.str();
    }
    texts.push_back(text);
  }
  return texts;
}

}  // namespace BfnTest
