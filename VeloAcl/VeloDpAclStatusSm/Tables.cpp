#include <VeloAcl/VeloDpAclStatusSm/ScanStateFollower.h>
#include <VeloAcl/VeloDpAclStatusSm/Walkers.h>

/// The machine's tables: a row an output, with what it waits for, and a row a poll, with where its state is.
/// Both in the order in which they are asked whether they are ready.
namespace Velo::VeloAcl {

namespace {

using S = InputSmScanState;
using O = OutputState;
using M = VeloDpAclStatusSm;

}  // namespace

VeloDpAclStatusSm::VeloDpAclStatusSm(const Kelp::Ptr<const Acl::Config>& aclConfig,
                                     const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig,
                                     const Kelp::Ptr<const Counters>& inCounters,
                                     const Kelp::Ptr<const Counters>& macOutCounters,
                                     const Kelp::Ptr<const Counters>& ipOutCounters,
                                     const Kelp::Ptr<const Counters>& ip6OutCounters,
                                     const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Rix::SmControl& control)
    : Entity("VeloDpAclStatusSm"),
      aclConfig_(aclConfig),
      aclIntfConfig_(aclIntfConfig),
      inCounters_(inCounters),
      macOutCounters_(macOutCounters),
      ipOutCounters_(ipOutCounters),
      ip6OutCounters_(ip6OutCounters),
      aclStatus_(aclStatus),
      control_(control),
      ruleIdsByAclRuleIdsOutput_({.handlerText = "handleRuleIdsByAclRuleIdsOutputInputReady",
                                  .completeText = "Input scans for ruleIdsByAclRuleIdsOutput complete",
                                  .ready = &O::ruleIdsByAclRuleIdsOutputReady,
                                  .readyIs = &O::ruleIdsByAclRuleIdsOutputReadyIs,
                                  .scans = {&S::aclConfigStreamScan, &S::ipRuleCfgStreamScan,
                                            &S::ip6RuleCfgStreamScan, &S::macRuleCfgStreamScan}}),
      aclAclStatusPtrImplicitRuleStatusOutput_(
          {.completeText = "Input scans for aclAclStatusPtrImplicitRuleStatusOutput complete",
           .reconcilingText = "Reconciling aclAclStatusPtrImplicitRuleStatusOutput: {:}",
           .ready = &O::aclAclStatusPtrImplicitRuleStatusOutputReady,
           .readyIs = &O::aclAclStatusPtrImplicitRuleStatusOutputReadyIs,
           .scans = {&S::aclConfigStreamScan},
           .afterPolls = true}),
      aclAclStatusPtrImplicitRuleIdOutput_(
          {.completeText = "Input scans for aclAclStatusPtrImplicitRuleIdOutput complete",
           .reconcilingText = "Reconciling aclAclStatusPtrImplicitRuleIdOutput: {:}",
           .ready = &O::aclAclStatusPtrImplicitRuleIdOutputReady,
           .readyIs = &O::aclAclStatusPtrImplicitRuleIdOutputReadyIs,
           .scans = {&S::aclConfigStreamScan}}),
      aclAclStatusPtrCounterUpdateTimeOutput_(
          {.handlerText = "handleAclAclStatusPtrCounterUpdateTimeOutputInputReady",
           .completeText = "Input scans for aclAclStatusPtrCounterUpdateTimeOutput complete",
           .ready = &O::aclAclStatusPtrCounterUpdateTimeOutputReady,
           .readyIs = &O::aclAclStatusPtrCounterUpdateTimeOutputReadyIs,
           .scans = {},
           .afterPolls = true}),
      aclStatusStatusAclOutput_({.completeText = "Input scans for aclStatusStatusAclOutput complete",
                                 .reconcilingText = "Reconciling aclStatusStatusAclOutput: {:}",
                                 .ready = &O::aclStatusStatusAclOutputReady,
                                 .readyIs = &O::aclStatusStatusAclOutputReadyIs,
                                 .scans = {&S::aclConfigStreamScan}}),
      aclAclStatusPtrRuleStatusOutput_(
          {.completeText = "Input scans for aclAclStatusPtrRuleStatusOutput complete",
           .reconcilingText = "Reconciling aclAclStatusPtrRuleStatusOutput: {:}",
           .ready = &O::aclAclStatusPtrRuleStatusOutputReady,
           .readyIs = &O::aclAclStatusPtrRuleStatusOutputReadyIs,
           .scans = {&S::rix_pipeline0Scan},
           .afterRuleIds = true,
           .afterPolls = true}),
      aclStatusStatusIntfIntfOutput_(
          {.completeText = "Input scans for aclStatusStatusIntfIntfOutput complete",
           .reconcilingText = "Reconciling aclStatusStatusIntfIntfOutput: {:}",
           .ready = &O::aclStatusStatusIntfIntfOutputReady,
           .readyIs = &O::aclStatusStatusIntfIntfOutputReadyIs,
           .scans = {&S::aclIntfConfigStreamScan}}),
      copyIpOutCounters_(
          {.inputReadyText = "handleCopyIpOutCountersCodefInputReady",
           .inputsText = "Inputs for copyIpOutCountersCodef ready",
           .firedText = "copyIpOutCounters = Poll fired",
           .flatteningText = " foreach( ipOutCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( ipOutCounters.counterCollection ) w/key {}, while flattening {} elements",
           .input = &M::ipOutCounters,
           .idleIs = &S::copyIpOutCountersIdleIs,
           .doneGen = &S::copyIpOutCountersCodefDoneGen,
           .doneGenIs = &S::copyIpOutCountersCodefDoneGenIs,
           .generation = &S::copyIpOutCountersCodefGeneration,
           .generationIs = &S::copyIpOutCountersCodefGenerationIs,
           .generationInc = &S::copyIpOutCountersCodefGenerationInc,
           .duplicateSeen = &M::copyIpOutCountersDuplicateSeen,
           .duplicateSeenIs = &M::copyIpOutCountersDuplicateSeenIs}),
      copyIp6OutCounters_(
          {.inputReadyText = "handleCopyIp6OutCountersCodefInputReady",
           .inputsText = "Inputs for copyIp6OutCountersCodef ready",
           .firedText = "copyIp6OutCounters = Poll fired",
           .flatteningText = " foreach( ip6OutCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( ip6OutCounters.counterCollection ) w/key {}, while flattening {} elements",
           .input = &M::ip6OutCounters,
           .idleIs = &S::copyIp6OutCountersIdleIs,
           .doneGen = &S::copyIp6OutCountersCodefDoneGen,
           .doneGenIs = &S::copyIp6OutCountersCodefDoneGenIs,
           .generation = &S::copyIp6OutCountersCodefGeneration,
           .generationIs = &S::copyIp6OutCountersCodefGenerationIs,
           .generationInc = &S::copyIp6OutCountersCodefGenerationInc,
           .duplicateSeen = &M::copyIp6OutCountersDuplicateSeen,
           .duplicateSeenIs = &M::copyIp6OutCountersDuplicateSeenIs}),
      copyInCounters_(
          {.inputReadyText = "handleCopyInCountersCodefInputReady",
           .inputsText = "Inputs for copyInCountersCodef ready",
           .firedText = "copyInCounters = Poll fired",
           .flatteningText = " foreach( inCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( inCounters.counterCollection ) w/key {}, while flattening {} elements",
           .input = &M::inCounters,
           .idleIs = &S::copyInCountersIdleIs,
           .doneGen = &S::copyInCountersCodefDoneGen,
           .doneGenIs = &S::copyInCountersCodefDoneGenIs,
           .generation = &S::copyInCountersCodefGeneration,
           .generationIs = &S::copyInCountersCodefGenerationIs,
           .generationInc = &S::copyInCountersCodefGenerationInc,
           .duplicateSeen = &M::copyInCountersDuplicateSeen,
           .duplicateSeenIs = &M::copyInCountersDuplicateSeenIs}),
      copyMacOutCounters_(
          {.inputReadyText = "handleCopyMacOutCountersCodefInputReady",
           .inputsText = "Inputs for copyMacOutCountersCodef ready",
           .firedText = "copyMacOutCounters = Poll fired",
           .flatteningText = " foreach( macOutCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( macOutCounters.counterCollection ) w/key {}, while flattening {} elements",
           .input = &M::macOutCounters,
           .idleIs = &S::copyMacOutCountersIdleIs,
           .doneGen = &S::copyMacOutCountersCodefDoneGen,
           .doneGenIs = &S::copyMacOutCountersCodefDoneGenIs,
           .generation = &S::copyMacOutCountersCodefGeneration,
           .generationIs = &S::copyMacOutCountersCodefGenerationIs,
           .generationInc = &S::copyMacOutCountersCodefGenerationInc,
           .duplicateSeen = &M::copyMacOutCountersDuplicateSeen,
           .duplicateSeenIs = &M::copyMacOutCountersDuplicateSeenIs}) {}

}  // namespace Velo::VeloAcl
