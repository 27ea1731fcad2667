// SPDX-License-Identifier: Apache-2.0
#include "host/packets/CaptureWriter.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <pcap/pcap.h>

namespace Host::Packets {

namespace {

constexpr Kiv::U32 kNanosecondsPerMicrosecond = 1'000;

}  // namespace

void CaptureWriter::CloseFormat::operator()(pcap* format) const {
  pcap_close(format);
}

void CaptureWriter::CloseFile::operator()(pcap_dumper* file) const {
  pcap_dump_close(file);
}

CaptureWriter::CaptureWriter(std::filesystem::path const& path, TimeUnit timeUnit)
    : name_(path.string()),
      timeUnit_(timeUnit),
      format_(pcap_open_dead_with_tstamp_precision(DLT_EN10MB, static_cast<int>(kMaxSnapLength),
                                                   timeUnit == TimeUnit::Nanoseconds
                                                       ? PCAP_TSTAMP_PRECISION_NANO
                                                       : PCAP_TSTAMP_PRECISION_MICRO)) {
  if (!format_) throw CaptureError(name_ + ": no memory for a capture file");
  // Opened here rather than by libpcap, to which the name "-" is standard output.
  std::FILE* file = std::fopen(name_.c_str(), "wb");
  if (file == nullptr) {
    throw CaptureError(name_ + ": expected a file that can be written: " + std::strerror(errno));
  }
  file_.reset(pcap_dump_fopen(format_.get(), file));
  if (!file_) {
    std::fclose(file);
    throw CaptureError(name_ + ": " + pcap_geterr(format_.get()));
  }
}

CaptureWriter::~CaptureWriter() = default;

void CaptureWriter::write(CapturedFrame const& frame) {
  if (frame.time.seconds > std::numeric_limits<Kiv::U32>::max() ||
      frame.time.nanoseconds >= kNanosecondsPerSecond) {
    throw CaptureError(name_ + ": expected a time of 32 bits of seconds and less than a second");
  }
  if (frame.bytes.size() > kMaxSnapLength || frame.wireLength < frame.bytes.size() ||
      frame.wireLength > std::numeric_limits<Kiv::U32>::max()) {
    throw CaptureError(name_ + ": expected a frame of at most " + std::to_string(kMaxSnapLength) +
                       " bytes and no longer than on the wire");
  }
  pcap_pkthdr header{};
  header.ts.tv_sec = static_cast<decltype(header.ts.tv_sec)>(frame.time.seconds);
  header.ts.tv_usec = timeUnit_ == TimeUnit::Nanoseconds
                          ? static_cast<decltype(header.ts.tv_usec)>(frame.time.nanoseconds)
                          : static_cast<decltype(header.ts.tv_usec)>(frame.time.nanoseconds /
                                                                     kNanosecondsPerMicrosecond);
  header.caplen = static_cast<bpf_u_int32>(frame.bytes.size());
  header.len = static_cast<bpf_u_int32>(frame.wireLength);
  pcap_dump(reinterpret_cast<unsigned char*>(file_.get()), &header, frame.bytes.data());
  ++frames_;
}

void CaptureWriter::flush() {
  bool const failed = pcap_dump_flush(file_.get()) != 0;
  if (failed || std::ferror(pcap_dump_file(file_.get())) != 0) {
    throw CaptureError(name_ + ": expected room for the frames: " + std::strerror(errno));
  }
}

void CaptureWriter::close() {
  flush();
  file_.reset();
}

}  // namespace Host::Packets
