// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/Types.h"
#include "framework/driver/TableDriver.h"

namespace Host {

/// This machine, process or build lacks what a table needs; one line says what. Programs end with
/// kTableUnavailableStatus.
class TableUnavailable final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
inline constexpr int kTableUnavailableStatus = 3;

/// A table that a switch has in place of the chip model: its driver, the devices whose packets are
/// looked up in it, and what became of them. What it cannot do it throws as std::runtime_error.
class HardwareTable {
 public:
  HardwareTable() = default;
  HardwareTable(HardwareTable const&) = delete;
  HardwareTable& operator=(HardwareTable const&) = delete;
  virtual ~HardwareTable() = default;

  /// Lives as long as this object.
  virtual BfnDriver::TableDriver& driver() = 0;

  /// Packets that leave by that device are looked up, in that VLAN; without one, in the VLAN of
  /// their VNI, else of their tag.
  virtual void portIs(std::string const& device, std::optional<Kiv::U16> vlan) = 0;
  /// False when the device is none of its.
  virtual bool portDel(std::string const& device) = 0;
  /// What became of the packets, by the words of the table in docs/lab.md; none that is 0.
  virtual std::vector<std::pair<std::string, Kiv::U64>> counters() = 0;

  /// Becomes readable when there is something for handleEvents(); -1: nothing tells.
  virtual int eventDescriptor() const { return -1; }
  /// Follows what has happened to the devices since the last call.
  virtual void handleEvents() = 0;

  /// What a forked process needs open to read rows and hits.
  virtual std::vector<int> readDescriptors() const { return {}; }
};

}  // namespace Host
