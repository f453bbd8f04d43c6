#include <VeloAcl/VeloDpAclStatusSm/AclWalkers.h>

namespace Velo::VeloAcl {

using Kiv::UniqueId;

void CurrCfgSm6::handleIpRuleById2(const UniqueId& uid) {
  if (!visits<2>(uid)) return;
  machine().eventToIpRuleCfgStream(parentSm()->aclType(), parentSm()->key(), uid, raw()->ipRuleById(uid));
}
void CurrCfgSm6::handleIp6RuleById3(const UniqueId& uid) {
  if (!visits<3>(uid)) return;
  machine().eventToIp6RuleCfgStream(parentSm()->aclType(), parentSm()->key(), uid, raw()->ip6RuleById(uid));
}
void CurrCfgSm6::handleMacRuleById4(const UniqueId& uid) {
  if (!visits<4>(uid)) return;
  machine().eventToMacRuleCfgStream(parentSm()->aclType(), parentSm()->key(), uid, raw()->macRuleById(uid));
}
void CurrCfgSm6::withdraw2(const UniqueId& uid) { parentSm()->onChildEvent2(uid); }
void CurrCfgSm6::withdraw3(const UniqueId& uid) { parentSm()->onChildEvent3(uid); }
void CurrCfgSm6::withdraw4(const UniqueId& uid) { parentSm()->onChildEvent4(uid); }

Acl::AclType AclSm5::aclType() const { return parentSm()->key(); }

void AclSm5::onChildEvent2(const UniqueId& uid) { parentSm()->onChildEvent2(key(), uid); }
void AclSm5::onChildEvent3(const UniqueId& uid) { parentSm()->onChildEvent3(key(), uid); }
void AclSm5::onChildEvent4(const UniqueId& uid) { parentSm()->onChildEvent4(key(), uid); }

}  // namespace Velo::VeloAcl
