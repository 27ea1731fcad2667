// SPDX-License-Identifier: Apache-2.0
// The kernel's table does what every driver has to, and so does the reconciler over it.
#include <linux/bpf.h>
#include <optional>
#include <string>

#include "host/packets/Headers.h"
#include "host/reconcile/Reconciler.h"
#include "kernel/KernelTable.h"
#include "tests/driver/DriverConformance.h"
#include "tests/kernel/KernelFixture.h"
#include "tests/kernel/Sandbox.h"

namespace BfnTest {

namespace {

/// Two devices, each with its table in a directory of its own.
class KernelUnderTest {
 public:
  static constexpr bool kCountsHits = true;

  static std::optional<std::string> whyNot() { return BfnTest::whyNot(); }

  explicit KernelUnderTest(size_t capacity)
      : first_({directory(), capacity}), second_({directory(), capacity}) {
    driver_.deviceIs(0, first_);
    driver_.deviceIs(1, second_);
  }
  ~KernelUnderTest() {
    first_.remove();
    second_.remove();
  }

  BfnDriver::TableDriver& driver() { return driver_; }

  void packet(DriverKey const& key) {
    Kiv::U32 const loopback = 1;
    mac_rewrite_device device{};
    device.vlan = static_cast<Kiv::U32>(key[1] | key[2] << 8);
    ASSERT_EQ(first_.devices().update(&loopback, &device, BPF_ANY), 0);
    std::array<Kiv::U8, 60> frame{};
    frame[12] = 0x08;
    Host::Packets::Ipv4Header header;
    header.totalLength = 46;
    header.source = {key[3], key[4], key[5], key[6]};
    auto const packet = std::span(frame).subspan(14);
    header.write(packet);
    Host::Packets::ipv4ChecksumIs(packet);
    ASSERT_TRUE(BfnTest::run(first_.fd(), frame).has_value());
  }

 private:
  static std::filesystem::path directory() {
    static std::filesystem::path const scratch = BfnTest::enterSandbox();
    static int number = 0;
    return scratch / std::to_string(++number);
  }

  BfnKernel::KernelProgram first_;
  BfnKernel::KernelProgram second_;
  BfnKernel::KernelTable driver_;
};

/// The reconciler over the kernel's table: committed, and with waiting off, so that the answers are
/// the kernel's.
class ReconciledKernelUnderTest {
 public:
  static constexpr bool kCountsHits = true;

  static std::optional<std::string> whyNot() { return BfnTest::whyNot(); }

  explicit ReconciledKernelUnderTest(size_t capacity) : kernel_(capacity) {
    reconciler_.waitingIs(false);
    for (Kiv::U8 device = 0; device < 2; ++device) {
      reconciler_.open(
          {99, device, BfnId::BfnPipeId(0), "", BfnKernel::KernelTable::kRewriteTable});
    }
    reconciler_.commit();
  }

  BfnDriver::TableDriver& driver() { return reconciler_; }
  void packet(DriverKey const& key) { kernel_.packet(key); }

 private:
  KernelUnderTest kernel_;
  Host::Reconciler reconciler_{kernel_.driver(), Kiv::makeActive<Kiv::ManualClock>()};
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Kernel, DriverConformance, KernelUnderTest);
INSTANTIATE_TYPED_TEST_SUITE_P(ReconcilerOverTheKernel, DriverConformance,
                               ReconciledKernelUnderTest);

}  // namespace BfnTest
