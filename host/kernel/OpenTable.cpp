// SPDX-License-Identifier: Apache-2.0
#include "host/kernel/OpenTable.h"

#include <iostream>

#include "kernel/KernelError.h"
#include "kernel/KernelProgram.h"
#include "kernel/KernelTable.h"
#include "kernel/Ports.h"

namespace Host {

namespace {

class KernelHardware final : public HardwareTable {
 public:
  explicit KernelHardware(BfnKernel::KernelOptions const& options)
      : program_(options), table_(program_), ports_(program_) {
    for (std::string const& notice : program_.notices()) std::cerr << notice << '\n';
  }

  BfnDriver::TableDriver& driver() override { return table_; }
  void portIs(std::string const& device, std::optional<Kiv::U16> vlan) override {
    ports_.attach(device, vlan);
  }
  bool portDel(std::string const& device) override { return ports_.detach(device); }
  std::vector<std::pair<std::string, Kiv::U64>> counters() override {
    std::vector<std::pair<std::string, Kiv::U64>> all;
    BfnKernel::FrameCounters const counters = program_.counters();
    for (size_t i = 0; i < BfnKernel::kFrameVerdicts; ++i) {
      auto const verdict = static_cast<mac_rewrite_verdict>(i);
      if (counters.of(verdict) == 0) continue;
      all.emplace_back(BfnKernel::text(verdict), counters.of(verdict));
    }
    return all;
  }
  int eventDescriptor() const override { return ports_.fd(); }
  std::vector<int> readDescriptors() const override {
    if (!program_.exists()) return {};
    return {program_.rows().fd(), program_.hits().fd(), program_.counterMap().fd()};
  }
  void handleEvents() override {
    for (std::string const& line : ports_.handleEvents()) std::cerr << line << '\n';
  }

 private:
  BfnKernel::KernelProgram program_;
  BfnKernel::KernelTable table_;
  BfnKernel::Ports ports_;
};

}  // namespace

std::unique_ptr<HardwareTable> openKernelTable(std::filesystem::path const& directory,
                                               std::optional<size_t> rows) {
  try {
    BfnKernel::KernelOptions options{directory};
    options.rows = rows.value_or(options.rows);
    return std::make_unique<KernelHardware>(options);
  } catch (BfnKernel::Unavailable const& error) {
    throw TableUnavailable(error.what());
  }
}

}  // namespace Host
