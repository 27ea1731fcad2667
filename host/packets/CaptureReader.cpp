// SPDX-License-Identifier: Apache-2.0
#include "host/packets/CaptureReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <pcap/pcap.h>
#include <unistd.h>
#include <zlib.h>

namespace Host::Packets {

namespace {

using Kiv::U32;
using Kiv::U8;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

[[noreturn]] void fail(std::string const& name, std::string const& what) {
  throw CaptureError(name + ": " + what);
}

struct CloseCompressed {
  void operator()(gzFile_s* file) const { gzclose_r(file); }
};

bool isCompressed(std::array<U8, 4> const& magic) {
  return magic[0] == 0x1f && magic[1] == 0x8b;
}

// What a compressed file was, in a file without a name.
File decompressed(std::string const& name, std::FILE* file) {
  File plain(std::tmpfile());
  int const copy = plain ? ::dup(::fileno(file)) : -1;
  if (copy < 0) fail(name, std::string("cannot be decompressed: ") + std::strerror(errno));
  ::lseek(copy, 0, SEEK_SET);
  std::unique_ptr<gzFile_s, CloseCompressed> const in(gzdopen(copy, "rb"));
  if (!in) fail(name, "cannot be decompressed: no memory");
  char piece[1 << 16];
  int count = 0;
  while ((count = gzread(in.get(), piece, sizeof piece)) > 0) {
    if (std::fwrite(piece, 1, static_cast<size_t>(count), plain.get()) !=
        static_cast<size_t>(count)) {
      fail(name, std::string("cannot be decompressed: ") + std::strerror(errno));
    }
  }
  int error = Z_OK;
  char const* const why = gzerror(in.get(), &error);
  // A file that ends early is an error only of the buffer.
  if (count < 0 || error != Z_OK) fail(name, std::string("expected a whole gzip file: ") + why);
  std::rewind(plain.get());
  return plain;
}

std::string recordName(Kiv::U64 number) {
  return "record " + std::to_string(number);
}

// The first four bytes of a pcap file say in which unit its time stamps are; libpcap converts them
// silently.
TimeUnit timeUnitOf(std::array<U8, 4> const& magic) {
  constexpr std::array<U8, 4> kMicroseconds{0xa1, 0xb2, 0xc3, 0xd4};
  bool const same = magic == kMicroseconds;
  bool const turned = std::equal(magic.rbegin(), magic.rend(), kMicroseconds.begin());
  return same || turned ? TimeUnit::Microseconds : TimeUnit::Nanoseconds;
}

}  // namespace

void CaptureReader::Close::operator()(pcap* file) const {
  pcap_close(file);
}

CaptureReader::CaptureReader(std::filesystem::path const& path) : name_(path.string()) {
  if (std::filesystem::is_directory(path)) fail(name_, "expected a capture file, is a directory");
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    fail(name_, std::string("expected a capture file that can be read: ") + std::strerror(errno));
  }
  std::array<U8, 4> magic{};
  auto const readMagic = [&] {
    if (std::fread(magic.data(), 1, magic.size(), file.get()) == magic.size()) return;
    fail(name_, "expected a capture file, ends before its header");
  };
  readMagic();
  if (isCompressed(magic)) {
    file = decompressed(name_, file.get());
    readMagic();
  }
  if (std::fseek(file.get(), 0, SEEK_SET) != 0) {
    fail(name_, "expected a capture file that can be read from its start again, as a pipe cannot");
  }
  timeUnit_ = timeUnitOf(magic);

  char error[PCAP_ERRBUF_SIZE] = "";
  file_.reset(
      pcap_fopen_offline_with_tstamp_precision(file.get(), PCAP_TSTAMP_PRECISION_NANO, error));
  if (!file_) fail(name_, std::string("expected a capture file (pcap or pcapng): ") + error);
  (void)file.release();  // libpcap closes it from here on

  int const linkType = pcap_datalink(file_.get());
  if (linkType != DLT_EN10MB) {
    char const* linkName = pcap_datalink_val_to_name(linkType);
    fail(name_, "expected Ethernet frames (link type EN10MB), has link type " +
                    (linkName != nullptr ? std::string(linkName) : std::to_string(linkType)));
  }
}

CaptureReader::~CaptureReader() = default;

std::optional<CapturedFrame> CaptureReader::next() {
  pcap_pkthdr* header = nullptr;
  unsigned char const* bytes = nullptr;
  int const result = pcap_next_ex(file_.get(), &header, &bytes);
  if (result == PCAP_ERROR_BREAK) return std::nullopt;
  if (result != 1) {
    fail(name_, "expected a whole " + recordName(frames_ + 1) + ": " + pcap_geterr(file_.get()));
  }
  // Nanoseconds, as asked for when the file was opened, in spite of the member's name.
  auto const nanoseconds = header->ts.tv_usec;
  if (nanoseconds < 0 || nanoseconds >= kNanosecondsPerSecond) {
    fail(name_, "expected a time stamp with less than a second after its seconds in " +
                    recordName(frames_ + 1));
  }
  // libpcap reads the 32 bits of a pcap file as signed.
  auto const seconds = header->ts.tv_sec < 0 ? Kiv::U64{static_cast<U32>(header->ts.tv_sec)}
                                             : static_cast<Kiv::U64>(header->ts.tv_sec);
  ++frames_;
  return CapturedFrame{
      {seconds, static_cast<U32>(nanoseconds)}, Bytes(bytes, header->caplen), header->len};
}

}  // namespace Host::Packets
