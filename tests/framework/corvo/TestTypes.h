// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/Notifiee.h"
#include "framework/core/Ptr.h"
#include "framework/generic/Type.h"
#include "framework/l3/L3Status.h"
#include "framework/l3/RouteStatus.h"

// What the suite's files share. The types that the database makes here: Pex::L3Status, with
// collections of values; Routing::Hardware::RouteStatus, with a collection of objects that have
// numbers. TestTypes.cpp announces a type that cannot be made by name and one that is not an
// entity.
namespace BfnTest {

constexpr char const* kL3StatusType = "Pex::L3Status";
constexpr char const* kRouteStatusType = "Routing::Hardware::RouteStatus";
constexpr char const* kUnmakeableType = "Routing::Hardware::VrfStatus";
constexpr char const* kNoEntityType = "BfnTest::NoEntity";

using Log = std::vector<std::string>;

/// Notes the name of each attribute that changes, after a name of its own, and then does what the
/// test says.
class Changes final : public Kiv::NotifieeConst {
 public:
  Changes(Kiv::Ptr<Kiv::PtrInterface const> const& notifier, std::string name, Log& log)
      : name_(std::move(name)), log_(log) {
    NotifieeConst::notifierIs(notifier);
  }
  void onAttribute(Kiv::AttributeId id, void const*) override {
    Kiv::AttributeDescription const* const attribute = notifierBase()->fwkType().attribute(id);
    log_.push_back(name_ + " " +
                   (attribute == nullptr ? std::to_string(id) : std::string(attribute->name)));
    std::function<void()> const then = action;
    if (then) then();
  }

  std::function<void()> action;

 private:
  std::string const name_;
  Log& log_;
};

/// All that an object holds, as text.
inline std::string textOf(Kiv::PtrInterface const& object) {
  std::ostringstream text;
  Kiv::genericPrint(text, object);
  return text.str();
}

}  // namespace BfnTest
