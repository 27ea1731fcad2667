#include "intfstatus/BfnMacRewriteIntfRoutingStatusTypes.h"

#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

IntfIdToRoutingStatus::IntfIdToRoutingStatus() = default;

void IntfIdToRoutingStatus::l3IntfRoutingStatusIs(
    Ovra::IntfId intfId, Kiv::Ptr<BfnL3::L3IntfRoutingStatus const> const& status) {
  if (status) {
    l3IntfRoutingStatus_.set({intfId, status});
  } else {
    l3IntfRoutingStatusDel(intfId);
  }
}
void IntfIdToRoutingStatus::l3IntfRoutingStatusDel(Ovra::IntfId intfId) {
  l3IntfRoutingStatus_.del(intfId);
}
void IntfIdToRoutingStatus::l3IntfRoutingStatusDelAll() {
  l3IntfRoutingStatus_.delAll();
}

Kiv::Type const& IntfIdToRoutingStatus::_kivType() {
  using T = IntfIdToRoutingStatus;
  static Kiv::Type const type("BfnMacRewrite::IntfIdToRoutingStatus", &Kiv::Entity::_kivType(),
                              {Kiv::describeCollection<&T::l3IntfRoutingStatus_>(
                                  "l3IntfRoutingStatus", kL3IntfRoutingStatus.id)},
                              Kiv::describeDefault<T>());
  return type;
}

}  // namespace BfnMacRewrite
