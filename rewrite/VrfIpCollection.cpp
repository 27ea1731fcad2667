#include "rewrite/VrfIpCollection.h"

#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

VrfIpCollection::VrfIpCollection(Ovra::IntfId intfId) : intfId_(intfId) {}

void VrfIpCollection::vrfAndIpAddrIs(Pex::VrfAndIpAddr const& pair) {
  vrfAndIpAddr_.set(pair);
}
void VrfIpCollection::vrfAndIpAddrDel(Pex::VrfAndIpAddr const& pair) {
  vrfAndIpAddr_.take(pair);
}
void VrfIpCollection::vrfAndIpAddrDelAll() {
  vrfAndIpAddr_.clear();
}

Kiv::Type const& VrfIpCollection::_kivType() {
  using T = VrfIpCollection;
  static Kiv::Type const type("BfnMacRewrite::VrfIpCollection", &Kiv::Entity::_kivType(),
                              {Kiv::describeConstant<&T::intfId>("intfId", 258),
                               Kiv::describeCollection<&T::vrfAndIpAddr_>("vrfAndIpAddr", 259)});
  return type;
}

}  // namespace BfnMacRewrite
