// SPDX-License-Identifier: Apache-2.0
// Gives any text to the records, as others do: to the parsers of their values, and to each of their
// attributes by name. A text that is read is written in a form that reads back as the same value;
// one that is refused raises RangeException and leaves every record as it was.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"
#include "framework/core/Exceptions.h"
#include "framework/core/Fatal.h"
#include "framework/core/Strep.h"
#include "framework/generic/Type.h"

namespace {

using namespace BfnMacRewrite;
using Kiv::GenericOp;
using Kiv::GenericValue;
using Kiv::makeActive;

template <class... T>
void parseAs(Kiv::String const& text) {
  auto const parse = [&]<class One>(One const*) {
    try {
      One const value = Kiv::strepToValue<One>(text);
      Kiv::String const form = Kiv::valueToStrep(value);
      One const again = Kiv::strepToValue<One>(form);
      KIV_CHECK(again == value, text);
      KIV_CHECK(Kiv::valueToStrep(again) == form, text);
    } catch (Kiv::RangeException const&) {
    }
  };
  (parse(static_cast<T const*>(nullptr)), ...);
}

std::string print(Kiv::PtrInterface const& object) {
  std::ostringstream text;
  Kiv::genericPrint(text, object);
  return text.str();
}

// A record with one member, so that there is something to overwrite and to lose.
struct Records {
  Records() {
    rewrites->ipAndMacIs({kIp, Ovra::EthAddr()});
    addresses->ipAndIntfIdIs({kIp, Ovra::IntfId("Ethernet1"), false});
    input->overlaySrcMacRewriteEntryIs({L3::VrfName("red"), kIp, Ovra::EthAddr()});
  }

  static constexpr Ovra::IpAddr kIp{0x0A00'0001};
  Kiv::Ptr<Agent::Config> config = makeActive<Agent::Config>();
  Kiv::Ptr<Agent::OverlaySrcMacRewrite> rewrites = config->overlaySrcMacRewriteIs(Pex::VrfId(7));
  Kiv::Ptr<Agent::Status> status = makeActive<Agent::Status>();
  Kiv::Ptr<Agent::VrfStatus> addresses = status->vrfStatusIs(Pex::VrfId(7));
  Kiv::Ptr<Input::Config> input = makeActive<Input::Config>();
  Kiv::Ptr<Capability> capability = makeActive<Capability>();
};

// Whether the text changed the record.
bool setByName(Kiv::PtrInterface& record, char const* attribute, Kiv::String const& text) {
  std::string const first = print(record);
  std::string before = first;
  for (GenericOp const what : {GenericOp::Get, GenericOp::Set, GenericOp::Del}) {
    GenericValue const argument(text);
    bool mayChange = what != GenericOp::Get;
    try {
      record.genericIfAttributeOp(what, attribute, {&argument, 1});
    } catch (Kiv::RangeException const&) {
      mayChange = false;
    }
    std::string after = print(record);
    KIV_CHECK(mayChange || after == before, attribute, " ", text);
    before = std::move(after);
  }
  return before != first;
}

bool setAllByName(Records const& records, Kiv::String const& text) {
  bool changed = setByName(*records.rewrites, "ipAndMac", text);
  changed |= setByName(*records.rewrites, "vrfId", text);
  changed |= setByName(*records.config, "overlaySrcMacRewrite", text);
  changed |= setByName(*records.addresses, "ipAndIntfId", text);
  changed |= setByName(*records.status, "vrfStatus", text);
  changed |= setByName(*records.input, "overlaySrcMacRewriteEntry", text);
  return changed | setByName(*records.capability, "overlaySrcMacRewriteSupported", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, size_t size) {
  Kiv::String const text(reinterpret_cast<char const*>(data), size);
  parseAs<IpAndMac, Agent::IpAndIntfId, Input::VrfNameAndIp, Input::VrfIpAndMac>(text);
  // Making the records takes longer than most inputs do.
  static auto records = std::make_unique<Records>();
  if (setAllByName(*records, text)) records = std::make_unique<Records>();
  return 0;
}
