// SPDX-License-Identifier: Apache-2.0
// Gives the same frames to the chip model and to the kernel program over the same rows, and writes
// down what each made of them. oracle.py says what they should have made.
//
// usage: kernel_both_tables ROWS FRAMES OUT DEVICE-VLAN ACCESS-VLAN
//   ROWS    rows of 16 bytes, key and action
//   FRAMES  frames, each after its length in four bytes
//   OUT     for each frame, in order: the model's verdict and the program's, each its length in one
//           byte and its words; what left the model without the outer headers, and what left the
//           program, each after its length in four bytes (none left: 0). Then for each row: hits in
//           the model and in the kernel, eight bytes each.
// Numbers are little-endian. A frame that the kernel does not take for a test goes through a pair
// of devices; the verdict of one that it does not take there either is `not taken`. How many went
// which way is printed.
//
// Exit status: 0; 77 where this cannot run; 1 when something fails.
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <linux/bpf.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <vector>

#include "chip/ChipModel.h"
#include "host/packets/Forwarder.h"
#include "kernel/FileDescriptor.h"
#include "kernel/KernelProgram.h"
#include "kernel/KernelTable.h"
#include "tests/kernel/KernelFixture.h"
#include "tests/kernel/Sandbox.h"

namespace {

using BfnKernel::FrameCounters;
using Kiv::U16;
using Kiv::U32;
using Kiv::U64;
using Kiv::U8;
using Buffer = std::vector<U8>;

constexpr int kSkipped = 77;
constexpr size_t kRowBytes = 16;

void check(bool ok, std::string const& what) {
  if (!ok) throw std::runtime_error(what + ": " + std::strerror(errno));
}

Buffer contents(char const* path) {
  std::ifstream in(path, std::ios::binary);
  check(in.good(), path);
  return {std::istreambuf_iterator<char>(in), {}};
}

template <class T>
void put(std::ostream& out, T number) {
  out.write(reinterpret_cast<char const*>(&number), sizeof number);
}

void putText(std::ostream& out, std::string_view text) {
  put(out, static_cast<U8>(text.size()));
  out << text;
}

void putFrame(std::ostream& out, std::span<U8 const> frame) {
  put(out, static_cast<U32>(frame.size()));
  out.write(reinterpret_cast<char const*>(frame.data()),
            static_cast<std::streamsize>(frame.size()));
}

/// Two devices with a wire between them, the program on the egress of the first.
class Wire {
 public:
  explicit Wire(BfnKernel::KernelProgram const& kernel, U32 vlan) {
    auto const program = (kernel.directory() / "program").string();
    check(BfnTest::shell("ip link add va type veth peer name vb && for d in va vb; do "
                         "echo 1 > /proc/sys/net/ipv6/conf/$d/disable_ipv6; "
                         "ip link set $d mtu 65535 arp off up || exit; done && "
                         "tc qdisc add dev va clsact && "
                         "tc filter add dev va egress bpf da object-pinned " +
                         program) == 0,
          "no pair of devices");
    mac_rewrite_device device{};
    device.vlan = vlan;
    U32 const index = if_nametoindex("va");
    check(kernel.devices().update(&index, &device, BPF_ANY) == 0, "devices");
    in_ = opened("va");
    out_ = opened("vb");
    int const on = 1;
    check(setsockopt(out_.get(), SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) == 0, "auxdata");
    timeval const limit{2, 0};
    check(setsockopt(out_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0, "timeout");
  }

  /// The frame as it comes out; nothing when the kernel does not send it.
  std::optional<Buffer> carry(Buffer const& frame) {
    if (send(in_.get(), frame.data(), frame.size(), 0) < 0) return std::nullopt;
    Buffer bytes(1 << 17);
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(tpacket_auxdata))> control{};
    iovec part{bytes.data(), bytes.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t const length = recvmsg(out_.get(), &message, 0);
    check(length >= 0, "a frame of " + std::to_string(frame.size()) + " bytes was lost");
    bytes.resize(static_cast<size_t>(length));
    // The kernel takes the tag out of what it receives.
    for (cmsghdr* part_of = CMSG_FIRSTHDR(&message); part_of != nullptr;
         part_of = CMSG_NXTHDR(&message, part_of)) {
      if (part_of->cmsg_type != PACKET_AUXDATA) continue;
      tpacket_auxdata data{};
      std::memcpy(&data, CMSG_DATA(part_of), sizeof data);
      if ((data.tp_status & TP_STATUS_VLAN_VALID) == 0) continue;
      std::array<U8, 4> const tag{
          static_cast<U8>(data.tp_vlan_tpid >> 8), static_cast<U8>(data.tp_vlan_tpid),
          static_cast<U8>(data.tp_vlan_tci >> 8), static_cast<U8>(data.tp_vlan_tci)};
      bytes.insert(bytes.begin() + 12, tag.begin(), tag.end());
    }
    return bytes;
  }

 private:
  static BfnKernel::FileDescriptor opened(char const* device) {
    BfnKernel::FileDescriptor packet(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    check(static_cast<bool>(packet), "packet socket");
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(device));
    check(bind(packet.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0,
          device);
    return packet;
  }

  BfnKernel::FileDescriptor in_;
  BfnKernel::FileDescriptor out_;
};

class BothTables {
 public:
  BothTables(Buffer rows, U16 deviceVlan, U16 accessVlan)
      : rows_(std::move(rows)),
        kernel_({BfnTest::enterSandbox() / "bpf", rowCount() + 1}),
        chip_(rowCount() + 1),
        forwarder_(chip_, configOf(accessVlan)),
        wire_(kernel_, deviceVlan) {
    handle_ = *table_.open({0, 0, {}, "", BfnKernel::KernelTable::kRewriteTable});
    auto const inModel = *chip_.open({0, 0, {}, "", BfnChip::ChipModel::kRewriteTable});
    for (size_t i = 0; i < rowCount(); ++i) {
      check(table_.write(handle_, key(i), action(i)) == BfnDriver::WriteResult::Ok &&
                chip_.write(inModel, key(i), action(i)) == BfnDriver::WriteResult::Ok,
            "a row");
    }
    mac_rewrite_device device{};
    device.vlan = deviceVlan;
    U32 const loopback = 1;
    check(kernel_.devices().update(&loopback, &device, BPF_ANY) == 0, "devices");
  }

  void forward(Buffer const& frame, std::ostream& out) {
    auto const inModel = forwarder_.forward(frame);
    Buffer inKernel;
    std::string_view const verdict = throughKernel(frame, inKernel);
    putText(out, Host::Packets::text(inModel.verdict));
    putText(out, verdict);
    size_t const outer = inModel.packet.empty() ? 0 : Host::Packets::VxlanTunnel::kOverhead;
    putFrame(out, inModel.packet.subspan(outer));
    putFrame(out, inKernel);
  }

  void putHits(std::ostream& out) {
    std::vector<BfnChip::Row> const inModel = chip_.rows();
    for (size_t i = 0; i < rowCount(); ++i) {
      auto const row = std::ranges::find_if(
          inModel, [&](BfnChip::Row const& r) { return std::ranges::equal(r.key, key(i)); });
      U64 hits = 0;
      check(row != inModel.end() && table_.rowHits(handle_, key(i), hits) == BfnDriver::Status::Ok,
            "hits");
      put(out, row->hits);
      put(out, hits);
    }
  }

  void report() const {
    std::cout << "by test run " << tested_ << ", through devices " << carried_ << ", not taken "
              << notTaken_ << '\n';
  }

 private:
  static Host::Packets::ForwarderConfig configOf(U16 accessVlan) {
    Host::Packets::ForwarderConfig config;
    config.accessVlan = accessVlan;
    return config;
  }
  size_t rowCount() const { return rows_.size() / kRowBytes; }
  BfnDriver::ByteView key(size_t row) const {
    return BfnDriver::ByteView(rows_).subspan(row * kRowBytes, 8);
  }
  BfnDriver::ByteView action(size_t row) const {
    return BfnDriver::ByteView(rows_).subspan(row * kRowBytes + 8, 8);
  }

  std::string_view throughKernel(Buffer const& frame, Buffer& left) {
    if (auto ran = BfnTest::run(kernel_.fd(), frame)) {
      ++tested_;
      check(ran->result == -1, "a frame that is not passed on");
      left = std::move(ran->frame);
    } else if (auto carried = wire_.carry(frame)) {
      ++carried_;
      left = std::move(*carried);
    } else {
      ++notTaken_;
      return "not taken";
    }
    FrameCounters const now = kernel_.counters();
    std::string_view verdict = "not counted";
    for (size_t i = 0; i < BfnKernel::kFrameVerdicts; ++i) {
      U64 const more = now.byVerdict[i] - before_.byVerdict[i];
      if (more == 0) continue;
      bool const once = more == 1 && verdict == "not counted";
      verdict = once ? BfnKernel::text(static_cast<mac_rewrite_verdict>(i)) : "counted twice";
    }
    before_ = now;
    return verdict;
  }

  Buffer rows_;
  BfnKernel::KernelProgram kernel_;
  BfnKernel::KernelTable table_{kernel_};
  BfnDriver::TableHandle handle_{};
  BfnChip::ChipModel chip_;
  Host::Packets::Forwarder forwarder_;
  Wire wire_;
  FrameCounters before_;
  size_t tested_ = 0;
  size_t carried_ = 0;
  size_t notTaken_ = 0;
};

void run(char** arguments) {
  BothTables tables(contents(arguments[1]), static_cast<U16>(std::stoi(arguments[4])),
                    static_cast<U16>(std::stoi(arguments[5])));
  Buffer const frames = contents(arguments[2]);
  std::ofstream out(arguments[3], std::ios::binary);
  for (size_t at = 0; at < frames.size();) {
    U32 length = 0;
    std::memcpy(&length, &frames[at], sizeof length);
    auto const first = frames.begin() + static_cast<std::ptrdiff_t>(at + sizeof length);
    tables.forward(Buffer(first, first + length), out);
    at += sizeof length + length;
  }
  tables.putHits(out);
  check(out.flush().good(), arguments[3]);
  tables.report();
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 6) return 2;
  try {
    if (auto const& why = BfnTest::whyNot()) {
      std::cout << "skipped: " << *why << '\n';
      return kSkipped;
    }
    run(arguments);
    return 0;
  } catch (std::exception const& error) {
    std::cerr << "kernel_both_tables: " << error.what() << '\n';
    return 1;
  }
}
