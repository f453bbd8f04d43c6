#include <VeloAcl/VeloDpAclStatusSm/RuleIdWalkers.h>

namespace Velo::VeloAcl {

using Kiv::UniqueId;

void ValueSm9::handleRuleIds5(const UniqueId& uid) {
  if (!visits(uid)) return;
  machine().eventToRix_pipeline0(parentSm()->key(), uid, raw()->ruleIds(uid));
}
void ValueSm9::withdraw5(const UniqueId& uid) { parentSm()->onChildEvent5(uid); }

void RuleIdsByAclSm8::onChildEvent5(const UniqueId& uid) { parentSm()->onChildEvent5(key(), uid); }

Kelp::Ptr<RuleIdsByAclSm7> RuleIdsByAclSm7Is(const Kelp::Ptr<const LocalAttrStore>& entity,
                                             VeloDpAclStatusSm& machine) {
  return topWalkerIs(machine.ruleIdsByAclSm7_, entity, machine);
}

}  // namespace Velo::VeloAcl
