#pragma once

#include <Zeb/Attributes.h>

#include <cstdint>

namespace Velo::VeloAcl {

/// How far the machine's scans and polls are. Every write that changes something is published; the machine
/// follows its own copy and runs what waits for the changed field.
class InputSmScanState : public Zeb::Entity {
  ZEB_ENTITY(InputSmScanState, Zeb::Entity)

  // A poll has no copy in progress.
  ZEB_VALUE(bool, copyInCountersIdle, true)
  ZEB_VALUE(bool, copyMacOutCountersIdle, true)
  ZEB_VALUE(bool, copyIpOutCountersIdle, true)
  ZEB_VALUE(bool, copyIp6OutCountersIdle, true)

  // The scan that feeds a stream has finished its current pass.
  ZEB_VALUE(bool, aclIntfConfigStreamScan)
  ZEB_VALUE(bool, aclConfigStreamScan)
  ZEB_VALUE(bool, ip6RuleCfgStreamScan)
  ZEB_VALUE(bool, ipRuleCfgStreamScan)
  ZEB_VALUE(bool, macRuleCfgStreamScan)
  ZEB_VALUE(bool, rix_pipeline0Scan)

  /// All polls idle; kept by handleIdle().
  ZEB_VALUE(bool, idle, true)

  // Per poll the pass last completed and the pass asked for. They differ exactly while one is outstanding.
  ZEB_VALUE(uint64_t, copyIpOutCountersCodefDoneGen)
  ZEB_VALUE(uint64_t, copyIpOutCountersCodefGeneration)
  ZEB_VALUE(uint64_t, copyIp6OutCountersCodefDoneGen)
  ZEB_VALUE(uint64_t, copyIp6OutCountersCodefGeneration)
  ZEB_VALUE(uint64_t, copyInCountersCodefDoneGen)
  ZEB_VALUE(uint64_t, copyInCountersCodefGeneration)
  ZEB_VALUE(uint64_t, copyMacOutCountersCodefDoneGen)
  ZEB_VALUE(uint64_t, copyMacOutCountersCodefGeneration)

 public:
  void copyIpOutCountersCodefGenerationInc() {
    copyIpOutCountersCodefGenerationIs(copyIpOutCountersCodefGeneration() + 1);
  }
  void copyIp6OutCountersCodefGenerationInc() {
    copyIp6OutCountersCodefGenerationIs(copyIp6OutCountersCodefGeneration() + 1);
  }
  void copyInCountersCodefGenerationInc() {
    copyInCountersCodefGenerationIs(copyInCountersCodefGeneration() + 1);
  }
  void copyMacOutCountersCodefGenerationInc() {
    copyMacOutCountersCodefGenerationIs(copyMacOutCountersCodefGeneration() + 1);
  }

  void handleIdle() {
    idleIs(copyInCountersIdle() && copyMacOutCountersIdle() && copyIpOutCountersIdle() &&
           copyIp6OutCountersIdle());
  }
};

/// Which outputs carry everything that the inputs say. `ready` is kept by handleReady(), to be called after
/// each write of another flag.
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
