// SPDX-License-Identifier: Apache-2.0
// Gives any bytes as a frame to the forwarder, through a chip whose rows the frames of the corpus
// hit. A frame is dropped, or leaves inside a VXLAN packet as it came except for its source MAC.
//
// The first byte says by how much the capture cut the frame; the rest is the frame.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "framework/core/Fatal.h"
#include "host/packets/Forwarder.h"
#include "tests/support/RewriteRow.h"

namespace {

using namespace Host::Packets;

constexpr MacBytes kRowMac{0x02, 0x5e, 0x10, 0x01, 0x02, 0x03};

// Rows for 10.1.2.3 in the VLANs of the corpus.
void writeRows(BfnChip::ChipModel& chip) {
  auto const table = chip.open({0, 0, {}, "profile", BfnChip::ChipModel::kRewriteTable});
  for (Kiv::U16 const vlan : std::initializer_list<Kiv::U16>{1, 100, 300}) {
    KIV_CHECK(chip.write(*table, BfnTest::rewriteKey(vlan, {10, 1, 2, 3}),
                         BfnTest::rewriteAction(kRowMac)) == BfnDriver::WriteResult::Ok);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, size_t size) {
  static BfnChip::ChipModel chip;
  static Forwarder* const forwarder = [] {
    writeRows(chip);
    return new Forwarder(chip);
  }();
  if (size == 0) return 0;
  std::vector<Kiv::U8> frame(data + 1, data + size);
  ForwardedFrame const result = forwarder->forward(frame, frame.size() + data[0]);
  KIV_CHECK(isForwarded(result.verdict) != result.packet.empty(), text(result.verdict));
  (void)readVxlan(frame);
  if (result.packet.empty()) return 0;

  auto const read = readVxlan(result.packet);
  KIV_CHECK(read.has_value());
  KIV_CHECK(data[0] == 0, "a cut frame left");
  KIV_CHECK(read->vxlan.vni == 10'000u + *result.vlan, read->vxlan.vni);
  bool const hit = result.verdict == Verdict::Rewritten;
  KIV_CHECK(result.macAfter == (hit ? kRowMac : result.macBefore));
  storeBytes(frame, EthernetHeader::kSourceAt, *result.macAfter);
  KIV_CHECK(std::ranges::equal(read->inner, frame));
  return 0;
}
