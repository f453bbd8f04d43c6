#pragma once

#include <Zeb/Attributes.h>

#include <cstdint>

namespace Velo::VeloAcl {

/// How far the scans and polls of the machine are. Every write that changes something is published; the
/// machine follows this entity and runs whatever waits for the field that has changed.
class InputSmScanState : public Zeb::Entity {
  ZEB_ENTITY(InputSmScanState, Zeb::Entity)

  // For each poll: whether no copy is in progress.
  ZEB_VALUE(bool, copyInCountersIdle, true)
  ZEB_VALUE(bool, copyMacOutCountersIdle, true)
  ZEB_VALUE(bool, copyIpOutCountersIdle, true)
  ZEB_VALUE(bool, copyIp6OutCountersIdle, true)

  // For each stream: whether the scan that feeds it has finished its current pass.
  ZEB_VALUE(bool, aclIntfConfigStreamScan)
  ZEB_VALUE(bool, aclConfigStreamScan)
  ZEB_VALUE(bool, ip6RuleCfgStreamScan)
  ZEB_VALUE(bool, ipRuleCfgStreamScan)
  ZEB_VALUE(bool, macRuleCfgStreamScan)
  ZEB_VALUE(bool, rix_pipeline0Scan)

  /// Whether all polls are idle; written by handleIdle().
  ZEB_VALUE(bool, idle, true)

  // For each poll: the number of the pass that was completed last, and of the one that was asked for last.
  // They differ while a pass is asked for and not completed.
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

  void handleIdle();
};

}  // namespace Velo::VeloAcl
