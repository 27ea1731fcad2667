// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>
#include <unistd.h>
#include <utility>

#include "framework/core/HexDigits.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IpAddr.h"
#include "host/commands/Commands.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/packets/CaptureReader.h"
#include "host/packets/ForwardCapture.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

using BfnChip::AddressBytes;
using BfnChip::MacBytes;
using nlohmann::json;

// The most frames that are listed one by one; the rest is only counted.
constexpr size_t kMaxListed = 1000;

std::string frameMacText(std::optional<BfnChip::MacBytes> const& mac) {
  if (!mac) return "-";
  std::ostringstream out;
  out << Ovra::EthAddr(*mac);
  return out.str();
}

std::string ipText(std::optional<BfnChip::AddressBytes> const& bytes) {
  if (!bytes) return "-";
  std::ostringstream out;
  out << Ovra::IpAddr(Host::Packets::load32(*bytes, 0));
  return out.str();
}

json frameJson(Host::Packets::ForwardedFrame const& frame) {
  return {{"macAfter", frame.macAfter ? json(frameMacText(frame.macAfter)) : json(nullptr)},
          {"macBefore", frame.macBefore ? json(frameMacText(frame.macBefore)) : json(nullptr)},
          {"number", frame.number},
          {"sip", frame.source ? json(ipText(frame.source)) : json(nullptr)},
          {"verdict", Host::Packets::text(frame.verdict)},
          {"vlan", frame.vlan ? json(*frame.vlan) : json(nullptr)}};
}

std::string rowText(Host::Packets::Verdict verdict) {
  if (verdict == Host::Packets::Verdict::Rewritten) return "hit";
  if (verdict == Host::Packets::Verdict::NoMac) return "hit, no MAC";
  return "none, " + std::string(Host::Packets::text(verdict));
}

std::string frameLine(Host::Packets::ForwardedFrame const& frame) {
  char line[128];
  std::snprintf(line, sizeof line, "%5lu  %4s  %-15s  %-17s  %-17s  %s\n", frame.number,
                frame.vlan ? std::to_string(*frame.vlan).c_str() : "-",
                ipText(frame.source).c_str(), frameMacText(frame.macBefore).c_str(),
                frameMacText(frame.macAfter).c_str(), rowText(frame.verdict).c_str());
  return line;
}

json totalsJson(Host::Packets::ForwardTotals const& totals) {
  json verdicts = json::object();
  for (size_t i = 0; i < Host::Packets::kVerdicts; ++i) {
    auto const verdict = static_cast<Host::Packets::Verdict>(i);
    if (totals.of(verdict) != 0) verdicts[Host::Packets::text(verdict)] = totals.of(verdict);
  }
  return {{"bytesIn", totals.bytesIn},     {"bytesOut", totals.bytesOut},
          {"dropped", totals.dropped()},   {"forwarded", totals.forwarded()},
          {"fragments", totals.fragments}, {"frames", totals.frames},
          {"jumbo", totals.jumbo},         {"tagged", totals.tagged},
          {"verdicts", verdicts},          {"withOptions", totals.withOptions}};
}

std::string totalsText(Host::Packets::ForwardTotals const& totals) {
  std::string text = std::to_string(totals.frames) +
                     " frames: " + std::to_string(totals.forwarded()) + " forwarded, of them " +
                     std::to_string(totals.of(Host::Packets::Verdict::Rewritten)) + " rewritten; " +
                     std::to_string(totals.dropped()) + " dropped\n ";
  for (size_t i = 0; i < Host::Packets::kVerdicts; ++i) {
    auto const verdict = static_cast<Host::Packets::Verdict>(i);
    if (totals.of(verdict) == 0) continue;
    text +=
        "  " + std::string(Host::Packets::text(verdict)) + ' ' + std::to_string(totals.of(verdict));
  }
  return text;
}

// Reads a capture to its end, so that a broken one is refused before anything is forwarded.
void checkCapture(std::filesystem::path const& file) {
  Host::Packets::CaptureReader reader(file);
  while (reader.next()) {
  }
}

// The text of an error that begins with the name of one of both files, with an excerpt in its
// place.
std::string withExcerpt(std::string_view error, std::filesystem::path const& in,
                        std::filesystem::path const& out) {
  for (std::filesystem::path const& each : {in, out}) {
    std::string const name = each.string();
    if (error.starts_with(name)) return excerpt(name) + std::string(error.substr(name.size()));
  }
  return std::string(error);
}

// Hits count once the output is whole: after a failed write they are as they were.
void forwardOrUncount(BfnChip::ChipModel& chip, std::filesystem::path const& in,
                      std::filesystem::path const& out, Host::Packets::Forwarder& forwarder,
                      Host::Packets::FrameObserver const& observer) {
  BfnChip::ChipModel::HitCounts const hits = chip.hits();
  try {
    Host::Packets::forwardCapture(in, out, forwarder, observer);
  } catch (...) {
    chip.hitsIs(hits);
    throw;
  }
}

AddressBytes addressOf(Ovra::IpAddr ip) {
  AddressBytes bytes{};
  Host::Packets::store32(bytes, 0, ip.value());
  return bytes;
}

MacBytes macOf(Ovra::EthAddr mac) {
  MacBytes bytes{};
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<Kiv::U8>(mac.value() >> (8 * (bytes.size() - 1 - i)) & 0xff);
  }
  return bytes;
}

// What follows the names of the captures. A keyword that is not given leaves what is there.
constexpr char kOptions[] =
    " [access-vlan <N:1-4094>] [truncated drop|by-headers] [outer-src-ip <IP>] "
    "[outer-dst-ip <IP>] [outer-src-mac <MAC>] [outer-dst-mac <MAC>] [vni-base <N:16773121>] "
    "[ttl <N:1-255>] [udp-checksum on|off] [inner-tag keep|strip] [dscp-ecn zero|carry] "
    "[link-local tunnel|drop]";

Host::Packets::ForwarderConfig configOf(Arguments const& given) {
  Host::Packets::ForwarderConfig config;
  auto const chosen = [&](char const* keyword, char const* first, char const* wanted) {
    return given.has(keyword) && given.text(first) == wanted;
  };
  config.accessVlan = static_cast<Kiv::U16>(given.number("access-vlan", config.accessVlan));
  config.judgeTruncated = chosen("truncated", "drop", "by-headers");
  config.stripTag = chosen("inner-tag", "keep", "strip");
  config.carryTypeOfService = chosen("dscp-ecn", "zero", "carry");
  config.dropLinkLocal = chosen("link-local", "tunnel", "drop");
  auto& tunnel = config.tunnel;
  if (given.has("outer-src-ip")) tunnel.source = addressOf(given.ip("outer-src-ip"));
  if (given.has("outer-dst-ip")) tunnel.destination = addressOf(given.ip("outer-dst-ip"));
  if (given.has("outer-src-mac")) tunnel.sourceMac = macOf(given.mac("outer-src-mac"));
  if (given.has("outer-dst-mac")) tunnel.destinationMac = macOf(given.mac("outer-dst-mac"));
  tunnel.vniBase = static_cast<Kiv::U32>(given.number("vni-base", tunnel.vniBase));
  tunnel.timeToLive = static_cast<Kiv::U8>(given.number("ttl", tunnel.timeToLive));
  tunnel.udpChecksum = !chosen("udp-checksum", "on", "off");
  return config;
}

/// Standard input as a file that can be read more than once, as long as this lives.
class InputKept {
 public:
  InputKept() : file_(std::tmpfile()) {
    if (file_ == nullptr) throw InputError("standard input cannot be kept in a file");
    char piece[1 << 16];
    ssize_t count = 0;
    while ((count = ::read(STDIN_FILENO, piece, sizeof piece)) > 0) {
      std::fwrite(piece, 1, static_cast<size_t>(count), file_);
    }
    bool const failed = std::fflush(file_) != 0 || count < 0;
    path_ = "/proc/self/fd/" + std::to_string(::fileno(file_));
    if (failed) {
      std::fclose(file_);
      throw InputError("standard input cannot be kept in a file");
    }
  }
  InputKept(InputKept const&) = delete;
  InputKept& operator=(InputKept const&) = delete;
  ~InputKept() { std::fclose(file_); }

  std::filesystem::path const& path() const { return path_; }

 private:
  std::FILE* file_;
  std::filesystem::path path_;
};

/// The capture that packets read last, and how, for a look at one of its frames.
struct LastCapture {
  std::filesystem::path file;
  std::shared_ptr<InputKept> input;
  Host::Packets::ForwarderConfig config;
};

BfnChip::ChipModel& modelOf(Switch& host) {
  if (host.hardware() != nullptr) throw InputError("captures go through the chip model only");
  return host.chip;
}

Answer packets(Switch& host, LastCapture& last, Arguments const& given) {
  auto& chip = modelOf(host);
  std::filesystem::path const& in = last.file;
  std::filesystem::path const out = given.text("<OUT.pcap>");
  json frames = json::array();
  std::string text = "    #  VLAN  source IP        source MAC before  source MAC after   row\n";
  try {
    checkCapture(in);
    makeFolderOf(out);
    Host::Packets::Forwarder forwarder(chip, last.config);
    forwardOrUncount(chip, in, out, forwarder, [&](Host::Packets::ForwardedFrame const& frame) {
      if (frame.number > kMaxListed) return;
      frames.push_back(frameJson(frame));
      text += frameLine(frame);
    });
    auto const& totals = forwarder.totals();
    json answer = {{"frames", frames}, {"totals", totalsJson(totals)}};
    if (totals.frames > kMaxListed) {
      text += "  ... and " + std::to_string(totals.frames - kMaxListed) + " more\n";
      answer["framesNotListed"] = totals.frames - kMaxListed;
    }
    return {std::move(answer), text + totalsText(totals)};
  } catch (Host::Packets::CaptureError const& error) {
    std::string const why = error.what();
    if (last.input && why.starts_with(in.string())) {
      throw InputError("standard input" + why.substr(in.string().size()));
    }
    throw InputError(withExcerpt(why, in, out));
  }
}

// --- One frame

std::string hexText(Host::Packets::Bytes bytes) {
  std::string text;
  for (Kiv::U8 const byte : bytes) {
    text += Kiv::kHexDigits[byte >> 4];
    text += Kiv::kHexDigits[byte & 15];
  }
  return text;
}

std::string hexNumber(Kiv::U64 number, int digits) {
  char text[24];
  std::snprintf(text, sizeof text, "%0*lx", digits, static_cast<unsigned long>(number));
  return text;
}

std::string hexDump(Host::Packets::Bytes bytes) {
  constexpr size_t kRow = 16;
  std::string text;
  for (size_t at = 0; at < bytes.size(); at += kRow) {
    auto const row = bytes.subspan(at, std::min(kRow, bytes.size() - at));
    std::string hex;
    std::string characters;
    for (Kiv::U8 const byte : row) {
      hex += hexText({&byte, 1}) + ' ';
      characters += byte >= ' ' && byte < 0x7f ? static_cast<char>(byte) : '.';
    }
    hex.resize(3 * kRow, ' ');
    text.append("\n    ").append(hexNumber(at, 4)).append("  ").append(hex).append(" ");
    text += characters;
  }
  return text;
}

/// What a frame meets on its way, in order.
class Steps {
 public:
  void add(std::string const& step, std::string const& what) {
    list_.push_back({{"step", step}, {"what", what}});
    text_ +=
        "\n  " + step + std::string(step.size() < kWidth ? kWidth - step.size() : 1, ' ') + what;
  }
  json const& list() const { return list_; }
  std::string const& text() const { return text_; }

 private:
  static constexpr size_t kWidth = 14;

  json list_ = json::array();
  std::string text_;
};

void addTag(Steps& steps, Host::Packets::Frame const& frame) {
  if (!frame.tag) {
    steps.add("tag", "none");
    return;
  }
  steps.add("tag", "type " + hexNumber(frame.ethernet.etherType, 4) + ", VLAN " +
                       std::to_string(frame.tag->vlan) + ", priority " +
                       std::to_string(frame.tag->priority) +
                       (frame.doubleTagged ? ", another tag follows" : ""));
}

void addLookup(Steps& steps, BfnChip::ChipModel const& chip,
               Host::Packets::ForwardedFrame const& frame) {
  using Host::Packets::Verdict;
  bool const lookedUp = frame.verdict == Verdict::Rewritten || frame.verdict == Verdict::NoMac ||
                        frame.verdict == Verdict::NoRow;
  if (!lookedUp) {
    steps.add("look-up", "none: " + std::string(text(frame.verdict)));
    return;
  }
  auto const key = BfnChip::unpacked(BfnChip::RewriteLayout::packetKey(*frame.vlan, *frame.source));
  steps.add("look-up", hexText(key));
  for (BfnChip::Row const& row : chip.rows(BfnChip::ChipModel::kRewriteTable)) {
    if (row.key != key) continue;
    steps.add("row", hexText(row.action));
    auto const mac = BfnChip::RewriteLayout::newSourceMac(BfnChip::packed(row.action));
    steps.add("row's MAC",
              frameMacText(mac) + (frame.verdict == Verdict::NoMac ? ", which is none" : ""));
    return;
  }
  steps.add("row", "none");
}

void addOuter(Steps& steps, Host::Packets::Bytes packet) {
  using namespace Host::Packets;
  auto const ethernet = EthernetHeader::read(packet);
  auto const ipv4 = Ipv4Header::read(packet.subspan(EthernetHeader::kSize));
  size_t const udpAt = EthernetHeader::kSize + Ipv4Header::kSize;
  auto const udp = UdpHeader::read(packet.subspan(udpAt));
  auto const vxlan = VxlanHeader::read(packet.subspan(udpAt + UdpHeader::kSize));
  steps.add("outer MACs",
            frameMacText(ethernet->source) + " to " + frameMacText(ethernet->destination));
  steps.add("outer IPv4", ipText(ipv4->source) + " to " + ipText(ipv4->destination) +
                              ", time to live " + std::to_string(ipv4->timeToLive) + ", DSCP " +
                              std::to_string(ipv4->typeOfService >> 2) + ", ECN " +
                              std::to_string(ipv4->typeOfService & 3) + ", length " +
                              std::to_string(ipv4->totalLength));
  steps.add("outer UDP", "port " + std::to_string(udp->sourcePort) + " to " +
                             std::to_string(udp->destinationPort) + ", checksum " +
                             hexNumber(udp->checksum, 4));
  steps.add("VXLAN", "VNI " + std::to_string(vxlan->vni));
}

Answer traceFrame(Switch& host, LastCapture const& last, Kiv::U64 number) {
  auto& chip = modelOf(host);
  if (last.file.empty()) throw InputError("no capture was forwarded; packets does that");
  // A look counts no hit.
  auto const hits = chip.hits();
  try {
    Host::Packets::CaptureReader reader(last.file);
    auto captured = reader.next();
    while (captured && reader.frames() < number) captured = reader.next();
    if (!captured) {
      throw InputError("the capture has " + std::to_string(reader.frames()) + " frames");
    }
    Host::Packets::Forwarder forwarder(chip, last.config);
    auto const result = forwarder.forward(captured->bytes, captured->wireLength);
    chip.hitsIs(hits);
    Steps steps;
    auto const frame = Host::Packets::readFrame(captured->bytes);
    if (frame) addTag(steps, *frame);
    steps.add("VLAN", result.vlan ? std::to_string(*result.vlan) : "none");
    addLookup(steps, chip, result);
    steps.add("source MAC",
              frameMacText(result.macBefore) + " to " + frameMacText(result.macAfter));
    if (!result.packet.empty()) addOuter(steps, result.packet);
    std::string const verdict(text(result.verdict));
    steps.add("so it is",
              std::string(isForwarded(result.verdict) ? "forwarded: " : "dropped: ") + verdict);
    std::string words = "frame " + std::to_string(number) + ", " +
                        std::to_string(captured->wireLength) + " bytes" + steps.text() +
                        "\n  as it came" + hexDump(captured->bytes);
    if (!result.packet.empty()) words += "\n  as it leaves" + hexDump(result.packet);
    return {{{"came", hexText(captured->bytes)},
             {"leaves", result.packet.empty() ? json(nullptr) : json(hexText(result.packet))},
             {"number", number},
             {"steps", steps.list()},
             {"verdict", verdict}},
            words};
  } catch (Host::Packets::CaptureError const& error) {
    chip.hitsIs(hits);
    throw InputError(error.what());
  }
}

}  // namespace

CommandGroup packetCommands(Switch& host, ResolvePath const& resolve) {
  CommandGroup group{"packets", {}};
  auto const last = std::make_shared<LastCapture>();
  group.commands.emplace_back(
      std::string("packets <IN.pcap> <OUT.pcap>") + kOptions,
      "forward the frames of a capture through the chip and write what leaves; frames without a "
      "tag are in the access VLAN, 1 unless given; frames that the capture cut are dropped, or "
      "judged by the headers that it kept",
      "packets hosts.pcap out.pcap access-vlan 200",
      [&host, resolve, last](Arguments const& given) {
        *last = {resolve(given.text("packets")), nullptr, configOf(given)};
        return packets(host, *last, given);
      });
  group.commands.emplace_back(
      std::string("packets --from <IN.pcap> <OUT.pcap>") + kOptions,
      "the same; - is standard input, where the lines come from elsewhere",
      "packets --from - out.pcap", [&host, resolve, last](Arguments const& given) {
        std::string const name = given.text("--from");
        bool const standardInput = name == "-";
        auto input = standardInput ? std::make_shared<InputKept>() : nullptr;
        auto file = standardInput ? input->path() : resolve(name);
        *last = {std::move(file), std::move(input), configOf(given)};
        return packets(host, *last, given);
      });
  group.commands.emplace_back(
      "trace packet <N:1-4294967295>",
      "what a frame of the last capture meets: its tag and VLAN, the bytes that are looked up, the "
      "row, the MAC and the outer headers, beside the frame itself; no hit is counted",
      "trace packet 3", [&host, last](Arguments const& given) {
        return traceFrame(host, *last, given.number("packet"));
      });
  return group;
}

}  // namespace Host
