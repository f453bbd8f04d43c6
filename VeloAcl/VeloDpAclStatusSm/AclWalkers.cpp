#include <VeloAcl/VeloDpAclStatusSm/AclWalkers.h>

namespace Velo::VeloAcl {

using Acl::AclType;
using Kiv::UniqueId;

void ConfigSm4::handleAcl1(const Kelp::String& aclName) {
  if (!visits(aclName)) return;
  const auto list = en()->acl(aclName);
  machine().eventToAclConfigStream(key(), aclName, list ? std::optional(list) : std::nullopt);
}
void ConfigSm4::withdraw1(const Kelp::String& aclName) { parentSm()->onChildEvent1(key(), aclName); }

void ConfigSm4::onChildEvent2(const Kelp::String& aclName, const UniqueId& uid) {
  parentSm()->onChildEvent2(key(), aclName, uid);
}
void ConfigSm4::onChildEvent3(const Kelp::String& aclName, const UniqueId& uid) {
  parentSm()->onChildEvent3(key(), aclName, uid);
}
void ConfigSm4::onChildEvent4(const Kelp::String& aclName, const UniqueId& uid) {
  parentSm()->onChildEvent4(key(), aclName, uid);
}

void AclConfigSm3::onChildEvent1(AclType aclType, const Kelp::String& aclName) {
  machine().eventToAclConfigStream(aclType, aclName, std::nullopt);
}
void AclConfigSm3::onChildEvent2(AclType aclType, const Kelp::String& aclName, const UniqueId& uid) {
  machine().eventToIpRuleCfgStream(aclType, aclName, uid, nullptr);
}
void AclConfigSm3::onChildEvent3(AclType aclType, const Kelp::String& aclName, const UniqueId& uid) {
  machine().eventToIp6RuleCfgStream(aclType, aclName, uid, nullptr);
}
void AclConfigSm3::onChildEvent4(AclType aclType, const Kelp::String& aclName, const UniqueId& uid) {
  machine().eventToMacRuleCfgStream(aclType, aclName, uid, nullptr);
}

Kelp::Ptr<AclConfigSm3> AclConfigSm3Is(const Kelp::Ptr<const Acl::Config>& entity,
                                       VeloDpAclStatusSm& machine) {
  return topWalkerIs(machine.aclConfigSm3_, entity, machine);
}
Kelp::Ptr<AclSm5> AclSm5Is(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent,
                           const Kelp::String& aclName) {
  return parent.childIs(entity, aclName);
}

}  // namespace Velo::VeloAcl
