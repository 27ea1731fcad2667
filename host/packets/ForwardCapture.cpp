// SPDX-License-Identifier: Apache-2.0
#include "host/packets/ForwardCapture.h"

#include <system_error>

#include "host/packets/CaptureReader.h"
#include "host/packets/CaptureWriter.h"

namespace Host::Packets {

void forwardCapture(std::filesystem::path const& in, std::filesystem::path const& out,
                    Forwarder& forwarder, FrameObserver const& observer) {
  CaptureReader reader(in);
  std::error_code missing;
  if (std::filesystem::equivalent(in, out, missing)) {
    throw CaptureError(out.string() + ": expected another file than the capture that is read");
  }
  CaptureWriter writer(out, reader.timeUnit());
  while (auto const frame = reader.next()) {
    ForwardedFrame const result = forwarder.forward(frame->bytes, frame->wireLength);
    if (!result.packet.empty()) {
      writer.write({frame->time, result.packet, result.packetWireLength});
    }
    if (observer) observer(result);
  }
  writer.close();
}

}  // namespace Host::Packets
