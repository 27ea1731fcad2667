// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/support/PluginHost.h"
#include "tests/support/RecordingDriver.h"

namespace BfnTest {

/// How far the agent is up when an event comes.
enum class Stage { None, Created, Stage1, Running };

/// A host with the plug-in and `size` addresses with their lines, rows and neighbours, so that
/// every collection of the plug-in holds that many members or a few.
///
/// VRF "red" (id 7) is on Ethernet1, VRF "blue" (8) on Ethernet2; "red" has the addresses 10.0.1.x,
/// and an own one, 10.0.9.1, whose rows are on its forwarding VLAN.
class Scene {
 public:
  /// `beforeAgent` is called when all records are there and the agent is not.
  Scene(int size, Stage stage, std::function<void(Scene&)> const& beforeAgent = nullptr);
  Scene(Scene const&) = delete;
  Scene& operator=(Scene const&) = delete;
  ~Scene();

  /// Initialises the declared tables with the scene's driver.
  void initializeTables();
  void stage1();

  /// What can be seen of the plug-in: its records and indexes, the chip's rows, how many objects of
  /// each type are live. One line each.
  std::vector<std::string> look() const;
  /// The listing of the show command.
  std::string shown();

  PluginHost host;
  RecordingDriver driver{host.chip};
  Kiv::Ptr<BfnL3::L3IntfRoutingStatus> spare;  ///< for Ethernet1, on another VLAN
  Kiv::Ptr<Routing::Hardware::VrfStatus> spareRoute;
  Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> spareEntry;
  Kiv::Ptr<Pex::L3Status> spareL3;
  Kiv::Ptr<BfnMacRewrite::Input::Config> spareConfig;
  Kiv::Ptr<BfnL3::L3RoutingStatus> sparePorts;
};

/// One thing that happens to the plug-in.
struct FaultEvent {
  char const* name;
  Stage stage;
  void (*run)(Scene& scene);
  /// Takes back what run() leaves when it ends half way, so that it can be run again; null when
  /// running it again is enough.
  void (*undo)(Scene& scene) = nullptr;
  /// Whether later events would end the process, as they must after this one.
  bool last = false;
};

std::vector<FaultEvent> const& faultEvents();

/// Events that touch everything, for the end of a run: what is left deaf or wrong shows in look()
/// after each of them.
std::vector<FaultEvent> const& aftermath();

}  // namespace BfnTest
