// SPDX-License-Identifier: Apache-2.0
#include "host/switch/Switch.h"

#include <memory>
#include <utility>

#include "framework/core/Fatal.h"
#include "framework/corvo/EmbeddedSession.h"
#include "framework/log/EmitLog.h"
#include "framework/log/LogHandle.h"
#include "framework/platform/TableInitialization.h"

namespace Host {

namespace {

constexpr char kStage2NotRun[] = "stage 2 has not run";

// The limit is the host's, which brings its agent up seldom.
Kiv::LogHandle rowsHeld(
    "BFN_VXLAN_MAC_REWRITE_ROWS_HELD", Kiv::LogSeverity::warning,
    "VXLAN forwarding source MAC address rewrites in the hardware are kept as they are: %s.",
    "The agent has not been brought up as a whole, so the rewrites that it asks for may be too "
    "few. "
    "The hardware keeps those that it has, until the agent has been brought up.",
    "Provide what is missing and start the agent again.", 1.0, 1000.0, false);

}  // namespace

std::string_view routingStatusAttribute(std::string_view which) {
  if (which == "port") return "l3PortAndLagRoutingStatus";
  if (which == "vlan") return "vlanIntfRoutingStatus";
  KIV_CHECK(which == "subinterface", which);
  return "l3SubIntfRoutingStatus";
}

Switch::Switch(Plugin plugin, SwitchTable table)
    : Switch(Kiv::makeActive<Corvo::Database>(), std::move(table)) {
  pluginIs(std::move(plugin));
}

Switch::Switch(Kiv::Ptr<Corvo::Database> database, SwitchTable table)
    : clock(Kiv::makeActive<Kiv::ManualClock>()),
      systemStatus(Kiv::makeActive<BfnSystem::SystemStatus>()),
      profileData(Kiv::makeActive<BfnAgentLib::BfnProfileData>()),
      routeStatus(Kiv::makeActive<Routing::Hardware::RouteStatus>()),
      hardware_(std::move(table.hardware)),
      faults_(chipDriver()),
      recorder_(faults_),
      database_(std::move(database)),
      session_(Corvo::embeddedSessionFactory(database_)) {
  chip.journal().limitIs(0);
  recorder_.clockIs(*clock);
  if (table.reconcile) {
    reconciler_.emplace(this->table(), Kiv::Ptr<Kiv::Clock const>(clock));
    reconciler_->turnsIs(true);
  }
}

void Switch::pluginIs(Plugin plugin) {
  KIV_CHECK(!hasPlugin());
  plugin_.emplace(std::move(plugin));
  cliConfigIsDatabases();
  mount_ = makeByName("BfnMacRewrite::BfnMacRewriteMount");
  l3Shared_ = makeByName("BfnMacRewrite::BfnMacRewriteL3Shared");
  mountAgain();
  set(l3Shared_, "l3Status", {Kiv::makeActive<Pex::L3Status>()});
  for (char const* const which : {"port", "vlan", "subinterface"}) {
    set(l3Shared_, routingStatusAttribute(which), {Kiv::makeActive<BfnL3::L3RoutingStatus>()});
  }
}

BfnDriver::TableDriver& Switch::chipDriver() {
  if (!hardware_) return chip;
  return detachable_.emplace(hardware_->driver());
}

Switch::~Switch() {
  agentDel();
}

void Switch::reset() noexcept {
  if (hardware_) {
    auto& driver = hardware_->driver();
    constexpr Kiv::U32 kOwnSession = ~Kiv::U32{0} - 1;
    if (auto const table =
            driver.open({kOwnSession, 0, {}, "", BfnChip::ChipModel::kRewriteTable})) {
      driver.clear(*table);
    }
    driver.closeSession(kOwnSession);
  }
  KIV_CHECK(hasPlugin());
  Plugin plugin = *plugin_;
  SwitchTable table{std::move(hardware_), reconciler_.has_value()};
  // In place, since everything around it refers to it. Where that fails, there is nothing to go on
  // with.
  std::destroy_at(this);
  std::construct_at(this, std::move(plugin), std::move(table));
}

void Switch::mountAgain() {
  auto const request = session_->mountRequest();
  Kiv::GenericValue const cell("0");
  call(mount_, "doMount", {Kiv::Ptr<Corvo::MountGroup>(request), cell});
  request->close();
  KIV_CHECK(request->mounted());
  call(mount_, "getEntity", {Kiv::Ptr<Corvo::EntityManager>(session_), cell});
}

void Switch::cliConfigIsDatabases() {
  cliConfig_ =
      database_->entityIs("vxlan/hardware/srcMacRewrite/config", "BfnMacRewrite::Input::Config");
}

void Switch::cliConfigIs(Object const& config) {
  cliConfig_ = config;
  set(mount_, "bfnMacRewriteCliConfig", {Kiv::GenericValue(config)});
}

void Switch::agentIs() {
  using BfnMacRewrite::BfnMacRewriteL3Shared;
  using BfnMacRewrite::BfnMacRewriteMount;
  agentDel();
  Kiv::Ptr<BfnMacRewriteMount> const mount(static_cast<BfnMacRewriteMount*>(mount_.get()));
  Kiv::Ptr<BfnMacRewriteL3Shared> const shared(
      static_cast<BfnMacRewriteL3Shared*>(l3Shared_.get()));
  agentHasRoutes_ = routeStatus != nullptr;
  agent_ = plugin_->agentSmFactory()(systemStatus, profileData, mount, shared, routeStatus);
}

void Switch::agentDel() {
  agent_.reset();
  stage2Lacks_ = kStage2NotRun;
  if (reconciler_) reconciler_->hold();
}

BfnDriver::TableDriver& Switch::table() {
  if (reconciler_) return *reconciler_;
  return recorder_;
}

void Switch::capacityIs(size_t rows) {
  if (!hardware_) chip.tableIs(BfnChip::ChipModel::kRewriteTable, rows);
  faults_.capacityIs(rows);
}

namespace {

/// A table in memory, and no devices.
class MemoryTable final : public HardwareTable {
 public:
  explicit MemoryTable(std::unique_ptr<BfnChip::ChipModel> rows) : rows_(std::move(rows)) {}

  BfnDriver::TableDriver& driver() override { return *rows_; }
  void portIs(std::string const& /*device*/, std::optional<Kiv::U16> /*vlan*/) override {}
  bool portDel(std::string const& /*device*/) override { return true; }
  std::vector<std::pair<std::string, Kiv::U64>> counters() override { return {}; }
  void handleEvents() override {}

 private:
  std::unique_ptr<BfnChip::ChipModel> rows_;
};

}  // namespace

std::unique_ptr<BfnChip::ChipModel> Switch::tableCopy() const {
  return detachable_ ? detachable_->copy() : nullptr;
}

void Switch::detach(std::unique_ptr<BfnChip::ChipModel> copy) {
  if (!detachable_) return;
  detachable_->detach(*copy);
  // Not destroyed: what it would take down belongs to the process that was copied.
  [[maybe_unused]] auto* const outside = hardware_.release();
  hardware_ = std::make_unique<MemoryTable>(std::move(copy));
}

std::optional<std::string> Switch::agentLacks() const {
  for (std::string_view const machine :
       {"bfnMacRewriteIntfRoutingStatusSm", "bfnMacRewriteSm", "overlaySrcMacRewriteCliConfigSm"}) {
    if (!part(machine)) return "there is no " + std::string(machine);
  }
  if (!cliConfig_) return "there is no cli-config";
  if (!agentConfig()) return "there is no agent-config";
  if (!agentStatus()) return "there is no agent-status";
  if (!agentHasRoutes_) return "there is no route-status";
  if (!l3Status()) return "there is no l3-status";
  for (std::string_view const which : {"port", "vlan", "subinterface"}) {
    if (!routingStatus(which)) return "there is no " + std::string(which) + "-status";
  }
  return std::nullopt;
}

std::optional<Applied> Switch::stage2Ended(std::optional<std::string> const& exception) {
  stage2Lacks_ = exception ? "stage 2 ended with an exception: " + *exception : agentLacks();
  auto const applied = commitWhenWhole();
  if (auto const why = heldBecause()) Kiv::emitLog(rowsHeld, *why);
  return applied;
}

std::optional<std::string> Switch::bringUpLacks() const {
  if (!hasAgent()) return "there is no agent";
  if (stage2Lacks_) return stage2Lacks_;
  Object const manager = part("overlaySrcMacRewriteManager");
  if (!manager || !getObject(manager, "overlaySrcMacRewriteTable")) {
    return "the table is not initialised";
  }
  return std::nullopt;
}

std::optional<Applied> Switch::commitWhenWhole() {
  if (!reconciler_ || !reconciler_->held() || bringUpLacks()) return std::nullopt;
  Applied const applied = reconciler_->commit();
  if (applied.status == BfnDriver::Status::Ok) return applied;
  std::string const& why = reconciler_->lastError();
  commitFailed_ = "the chip's rows could not be read" + (why.empty() ? "" : ": " + why);
  return std::nullopt;
}

std::optional<std::string> Switch::heldBecause() const {
  if (!reconciler_ || !reconciler_->held()) return std::nullopt;
  auto const lacks = bringUpLacks();
  return lacks ? lacks : commitFailed_;
}

void Switch::turnEnds() {
  if (hardware_) hardware_->handleEvents();
  if (!reconciler_) return;
  commitWhenWhole();
  reconciler_->flush();
}

Object Switch::bfnL3Output() const {
  return getObject(l3Shared_, "bfnL3Output");
}

void Switch::profileIs(std::string const& name) {
  Object const output = bfnL3Output();
  Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> const entry(profileData->profileDataEntry(name));
  set(output, "profileName", {Kiv::String(name)});
  set(output, "profileEntry", {entry});
}

namespace {

BfnAgentLib::TableInitialization initialization(BfnDriver::TableDriver& table,
                                                Object const& output) {
  BfnAgentLib::TableInitialization with;
  with.dlHandle = table.opaque();
  with.profile = BfnDriver::BfnDevProfile(getText(output, "profileName"));
  return with;
}

}  // namespace

unsigned Switch::initializeTables() {
  Object const output = bfnL3Output();
  auto const entry =
      Kiv::ptrCast<BfnAgentLib::BfnProfileDataEntry>(getObject(output, "profileEntry"));
  return BfnAgentLib::initializeTables(entry, initialization(table(), output));
}

void Switch::initializeTable(std::string const& name) {
  BfnAgentLib::initializeTable(*tableManager(), Kiv::Name(name),
                               initialization(table(), bfnL3Output()));
}

Object Switch::part(std::string_view attribute) const {
  return agent_ ? getObject(agent_, attribute) : nullptr;
}

Kiv::Ptr<BfnAgentLib::BfnTableMgr> Switch::tableManager() const {
  return Kiv::ptrCast<BfnAgentLib::BfnTableMgr>(part("overlaySrcMacRewriteManager"));
}

Kiv::Ptr<Pex::L3Status> Switch::l3Status() const {
  return Kiv::ptrCast<Pex::L3Status>(getObject(l3Shared_, "l3Status"));
}

Kiv::Ptr<BfnL3::L3RoutingStatus> Switch::routingStatus(std::string_view which) const {
  return Kiv::ptrCast<BfnL3::L3RoutingStatus>(getObject(l3Shared_, routingStatusAttribute(which)));
}

}  // namespace Host
