#include <VeloAcl/VeloDpAclStatusSm/IntfWalkers.h>

namespace Velo::VeloAcl {

void IntfSm2::handleIntf0(const Nimnet::IntfId& intfId) {
  if (!visits(intfId)) return;
  const Kelp::String* bound = en()->intf(intfId);
  machine().eventToAclIntfConfigStream(parentSm()->key(), key(), intfId,
                                       bound ? std::optional(*bound) : std::nullopt);
}
void IntfSm2::withdraw0(const Nimnet::IntfId& intfId) { parentSm()->onChildEvent0(key(), intfId); }

void ConfigSm1::onChildEvent0(Acl::AclDirection direction, const Nimnet::IntfId& intfId) {
  parentSm()->onChildEvent0(key(), direction, intfId);
}

Kelp::Ptr<AclIntfConfigSm0> AclIntfConfigSm0Is(const Kelp::Ptr<const Acl::IntfConfig>& entity,
                                               VeloDpAclStatusSm& machine) {
  return topWalkerIs(machine.aclIntfConfigSm0_, entity, machine);
}

}  // namespace Velo::VeloAcl
