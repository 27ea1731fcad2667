// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "framework/core/Types.h"
#include "host/packets/Capture.h"

struct pcap;

namespace Host::Packets {

/// Reads a capture file (pcap or pcapng) of Ethernet frames, one after another, through libpcap. A
/// file that gzip has compressed is read as what it was.
///
///   CaptureReader reader("in.pcap");
///   while (auto const frame = reader.next()) use(frame->bytes);
class CaptureReader {
 public:
  /// Opens the file. Throws CaptureError when it is missing, empty, no capture, or not of Ethernet
  /// frames.
  explicit CaptureReader(std::filesystem::path const& path);
  CaptureReader(CaptureReader const&) = delete;
  CaptureReader& operator=(CaptureReader const&) = delete;
  ~CaptureReader();

  /// The next frame, nothing at the end of the file. Its bytes are valid until the next call.
  /// Throws CaptureError when the file ends inside a record or a record makes no sense; all frames
  /// before it have been given by then.
  std::optional<CapturedFrame> next();

  /// Frames given so far.
  Kiv::U64 frames() const { return frames_; }
  /// The unit the file has time stamps in. Nanoseconds for a pcapng file, whose unit may change
  /// from interface to interface.
  TimeUnit timeUnit() const { return timeUnit_; }

 private:
  struct Close {
    void operator()(pcap* file) const;
  };

  std::string name_;
  std::unique_ptr<pcap, Close> file_;
  Kiv::U64 frames_ = 0;
  TimeUnit timeUnit_ = TimeUnit::Microseconds;
};

}  // namespace Host::Packets
