// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "framework/core/Types.h"
#include "host/packets/Capture.h"

struct pcap;
struct pcap_dumper;

namespace Host::Packets {

/// Writes a capture file (pcap) of Ethernet frames through libpcap.
///
/// Frames are buffered; they are in the file after `flush` or `close`, and after the destructor,
/// also when an exception ends the writer. What is written stays readable at every flush.
class CaptureWriter {
 public:
  /// Creates the file, or empties the one that is there. Throws CaptureError when it cannot be
  /// written.
  explicit CaptureWriter(std::filesystem::path const& path,
                         TimeUnit timeUnit = TimeUnit::Microseconds);
  CaptureWriter(CaptureWriter const&) = delete;
  CaptureWriter& operator=(CaptureWriter const&) = delete;
  ~CaptureWriter();

  /// Appends a frame; nanoseconds below the file's unit are cut. Throws CaptureError, and nothing
  /// of the frame is in the file, when the time is after the year 2106, the nanoseconds are a
  /// second or more, the frame is longer than kMaxSnapLength or longer than it was on the wire.
  void write(CapturedFrame const& frame);
  /// Throws CaptureError when a frame since the last flush could not be written.
  void flush();
  /// Flushes and closes the file, with the errors of flush. Only the destructor may follow.
  void close();

  /// Frames written so far.
  Kiv::U64 frames() const { return frames_; }

 private:
  struct CloseFormat {
    void operator()(pcap* format) const;
  };
  struct CloseFile {
    void operator()(pcap_dumper* file) const;
  };

  std::string name_;
  TimeUnit timeUnit_;
  std::unique_ptr<pcap, CloseFormat> format_;
  std::unique_ptr<pcap_dumper, CloseFile> file_;
  Kiv::U64 frames_ = 0;
};

}  // namespace Host::Packets
