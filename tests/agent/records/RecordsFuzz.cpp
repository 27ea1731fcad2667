// Gives any text to the records, as others do: to the parsers of their values, and to each of their
// attributes by name. A text that is read is written in a form that reads back as the same value;
// one that is refused raises RangeException and leaves every record as it was.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

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

void setByName(Kiv::PtrInterface& record, char const* attribute, Kiv::String const& text) {
  for (GenericOp const what : {GenericOp::Get, GenericOp::Set, GenericOp::Del}) {
    std::string const before = print(record);
    GenericValue const argument(text);
    try {
      record.genericIfAttributeOp(what, attribute, {&argument, 1});
      KIV_CHECK(what != GenericOp::Get || print(record) == before, attribute, " ", text);
    } catch (Kiv::RangeException const&) {
      KIV_CHECK(print(record) == before, attribute, " ", text);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Kiv::String const text(reinterpret_cast<char const*>(data), size);
  parseAs<IpAndMac, Agent::IpAndIntfId, Input::VrfNameAndIp, Input::VrfIpAndMac>(text);
  Records const records;
  setByName(*records.rewrites, "ipAndMac", text);
  setByName(*records.rewrites, "vrfId", text);
  setByName(*records.config, "overlaySrcMacRewrite", text);
  setByName(*records.addresses, "ipAndIntfId", text);
  setByName(*records.status, "vrfStatus", text);
  setByName(*records.input, "overlaySrcMacRewriteEntry", text);
  setByName(*records.capability, "overlaySrcMacRewriteSupported", text);
  return 0;
}
