// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>
#include <sstream>

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

using nlohmann::json;

// The most frames that are listed one by one; the rest is only counted.
constexpr size_t kMaxListed = 1000;

std::string macText(std::optional<BfnChip::MacBytes> const& mac) {
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
  return {{"macAfter", frame.macAfter ? json(macText(frame.macAfter)) : json(nullptr)},
          {"macBefore", frame.macBefore ? json(macText(frame.macBefore)) : json(nullptr)},
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
                ipText(frame.source).c_str(), macText(frame.macBefore).c_str(),
                macText(frame.macAfter).c_str(), rowText(frame.verdict).c_str());
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

Answer packets(Switch& host, std::filesystem::path const& in, Arguments const& given) {
  if (host.hardware() != nullptr) throw InputError("captures go through the chip model only");
  Host::Packets::ForwarderConfig config;
  config.accessVlan = static_cast<Kiv::U16>(given.number("access-vlan", config.accessVlan));
  config.judgeTruncated = given.has("truncated") && given.text("drop") == "by-headers";
  std::filesystem::path const out = given.text("<OUT.pcap>");
  json frames = json::array();
  std::string text = "    #  VLAN  source IP        source MAC before  source MAC after   row\n";
  try {
    checkCapture(in);
    makeFolderOf(out);
    Host::Packets::Forwarder forwarder(host.chip, config);
    forwardOrUncount(host.chip, in, out, forwarder,
                     [&](Host::Packets::ForwardedFrame const& frame) {
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
    throw InputError(withExcerpt(error.what(), in, out));
  }
}

}  // namespace

CommandGroup packetCommands(Switch& host, ResolvePath const& resolve) {
  CommandGroup group{"packets", {}};
  group.commands.emplace_back(
      "packets <IN.pcap> <OUT.pcap> [access-vlan <N:1-4094>] [truncated drop|by-headers]",
      "forward the frames of a capture through the chip and write what leaves; frames without a "
      "tag are in the access VLAN, 1 unless given; frames that the capture cut are dropped, or "
      "judged by the headers that it kept",
      "packets hosts.pcap out.pcap access-vlan 200", [&host, resolve](Arguments const& given) {
        return packets(host, resolve(given.text("packets")), given);
      });
  return group;
}

}  // namespace Host
