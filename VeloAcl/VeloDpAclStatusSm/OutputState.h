#pragma once

#include <Zeb/Attributes.h>

namespace Velo::VeloAcl {

/// Which outputs have everything that the inputs say. `ready` is written by handleReady(), which must be
/// called after each write of another flag.
class OutputState : public Zeb::Entity {
  ZEB_ENTITY(OutputState, Zeb::Entity)
  ZEB_VALUE(bool, ruleIdsByAclRuleIdsOutputReady)
  ZEB_VALUE(bool, aclAclStatusPtrImplicitRuleStatusOutputReady)
  ZEB_VALUE(bool, aclAclStatusPtrImplicitRuleIdOutputReady)
  ZEB_VALUE(bool, aclAclStatusPtrCounterUpdateTimeOutputReady)
  ZEB_VALUE(bool, aclStatusStatusAclOutputReady)
  ZEB_VALUE(bool, aclAclStatusPtrRuleStatusOutputReady)
  ZEB_VALUE(bool, aclStatusStatusIntfIntfOutputReady)
  ZEB_VALUE(bool, ready)

 public:
  void handleReady() {
    bool all = true;
    for (const Zeb::AttributeEntry flag : Zeb::attributeTable<OutputState>) {
      if (&flag() != &readyAttribute()) all = all && std::any_cast<bool>(flag().get(*this));
    }
    readyIs(all);
  }
};

}  // namespace Velo::VeloAcl
