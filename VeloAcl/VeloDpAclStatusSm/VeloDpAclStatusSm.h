#pragma once

#include <Acl/Counters.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Kiv/TaskScheduler.h>
#include <Rix/InReactor.h>
#include <VeloAcl/VeloDpAclStatusSm/CounterPoll.h>
#include <VeloAcl/VeloDpAclStatusSm/EventsUnderWay.h>
#include <VeloAcl/VeloDpAclStatusSm/LocalAttrStore.h>
#include <VeloAcl/VeloDpAclStatusSm/Output.h>
#include <VeloAcl/VeloDpAclStatusSm/OutputKeys.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanState.h>
#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>

#include <functional>
#include <memory>
#include <optional>

namespace Velo::VeloAcl {

class AclConfigSm3;
class AclIntfConfigSm0;
class RuleIdsByAclSm7;
template <class Rules>
struct InitStream;

/// The list of an event, absent when it is gone.
using ListCfg = std::optional<Kelp::Ptr<const Acl::AclConfig>>;

/// Keeps the published status equal to what the dataplane enforces: lists and bindings, the status of every
/// rule and implicit drop, and the counters, copied once a second.
///
/// A dataflow: walkers (Walkers.h) over configuration and bindings raise keyed events; each enters a stream
/// (the eventTo... operations, in Streams.cpp), which filters it, writes the status and passes it on. Nothing
/// is raised before initialScanDone: the first pass of the scans builds the walkers, the second visits every
/// element again with its event. A status that an earlier machine left is reconciled after that: what no
/// input produced again is deleted (Outputs.cpp). Long work runs in tasks and yields.
///
/// The plugin owns the machine; it owns its walkers, local state and tasks. Its destruction leaves the status
/// as it is, doDeleteAll() withdraws it first. One thread.
///
/// Whoever follows the status is told of a write while the machine is in the middle of an event. It may read,
/// follow and leave; change lists, rules, bindings and counters, which is carried out at once, and then the
/// event around it writes no more of what it knew (EventsUnderWay); withdraw or drop the machine, which lives
/// until the write returns. Two things end the process: putting back a list, a type or a direction of
/// bindings that is just being withdrawn (rules in force may be put back), since its walker is still there;
/// and an exception.
class VeloDpAclStatusSm final : public Zeb::Entity {
  ZEB_ENTITY(VeloDpAclStatusSm, Zeb::Entity)

 public:
  using Counters = Velo::Counter::VeloDpAclCounterColl;
  using CounterKey = Velo::Counter::VeloDpAclCounterKey;

  VeloDpAclStatusSm(const Kelp::Ptr<const Acl::Config>& aclConfig,
                    const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig,
                    const Kelp::Ptr<const Counters>& inCounters,
                    const Kelp::Ptr<const Counters>& macOutCounters,
                    const Kelp::Ptr<const Counters>& ipOutCounters,
                    const Kelp::Ptr<const Counters>& ip6OutCounters,
                    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Rix::SmControl& control);
  ~VeloDpAclStatusSm() override;

  // Every argument is mandatory: handleInitialized stops the process when one is null.
  const Kelp::Ptr<const Acl::Config>& aclConfig() const { return aclConfig_; }
  const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig() const { return aclIntfConfig_; }
  const Kelp::Ptr<const Counters>& inCounters() const { return inCounters_; }
  const Kelp::Ptr<const Counters>& macOutCounters() const { return macOutCounters_; }
  const Kelp::Ptr<const Counters>& ipOutCounters() const { return ipOutCounters_; }
  const Kelp::Ptr<const Counters>& ip6OutCounters() const { return ip6OutCounters_; }
  const Kelp::Ptr<Acl::StatusDp>& aclStatus() const { return aclStatus_; }
  const Rix::SmControl& control() const { return control_; }

  /// Starts the machine, once.
  void handleInitialized();
  /// Ends the first pass when all its scans are through, and runs the second.
  void handleInitialScanDone();
  /// Off is for times in which nothing changes; switched on again, the process ends when something has.
  void hasNotificationActiveIs(bool on);
  /// Withdraws from the status all that the machine derived, and ends it.
  void doDeleteAll();

  /// Every output carries what the inputs say.
  bool ready() const { return outputState_ && outputState_->ready(); }
  /// Ready, and no copy of counters in progress.
  bool idle() const { return ready() && (synchronous_ || scanState_->idle()); }
  bool synchronous() const { return synchronous_; }
  bool initialized() const { return initialized_; }
  bool initialScanDone() const { return initialScanDone_; }
  // The machine's own entities, from handleInitialized() on.
  Kelp::Ptr<InputSmScanState> inputSmScanState() { return scanState_.ptr(); }
  Kelp::Ptr<OutputState> outputState() { return outputState_.ptr(); }
  Kelp::Ptr<LocalAttrStore> localAttrStore() { return localAttrStore_.ptr(); }
  const Kelp::Ptr<Kiv::TaskScheduler>& scheduler() const { return scheduler_; }

  // The top walkers.
  const Kelp::Ptr<RuleIdsByAclSm7>& ruleIdsByAclSm7() const { return ruleIdsByAclSm7_; }
  const Kelp::Ptr<AclConfigSm3>& aclConfigSm3() const { return aclConfigSm3_; }
  const Kelp::Ptr<AclIntfConfigSm0>& aclIntfConfigSm0() const { return aclIntfConfigSm0_; }
  void ruleIdsByAclSm7Is();
  void aclConfigSm3Is();
  void aclIntfConfigSm0Is();
  void ruleIdsByAclSm7Del();
  void aclConfigSm3Del();
  void aclIntfConfigSm0Del();

  // Streams, for the walkers; each does nothing before initialScanDone. A rule that is gone is null.
  void eventToAclConfigStream(Acl::AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg);
  void eventToAclIntfConfigStream(Acl::AclType aclType, Acl::AclDirection direction,
                                  const Nimnet::IntfId& intfId, const std::optional<Kelp::String>& aclName);
  void eventToIpRuleCfgStream(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid,
                              const Acl::IpRuleConfig* ruleConfig);
  void eventToIp6RuleCfgStream(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid,
                               const Acl::Ip6RuleConfig* ruleConfig);
  void eventToMacRuleCfgStream(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid,
                               const Acl::MacRuleConfig* ruleConfig);
  void eventToRix_pipeline0(const Velo::Counter::AclTypeNameTuple& keyTuple, const Kiv::UniqueId& uid,
                            bool exists);
  /// For the polls.
  void eventToUpdateCounters(const CounterKey& key, const Velo::Counter::VeloDpAclCounter& counter);

  // Outputs: what runs when something that an output waits for has changed.
  void handleRuleIdsByAclRuleIdsOutputInputReady();
  void handleAclAclStatusPtrImplicitRuleStatusOutputInputReady();
  void handleAclAclStatusPtrImplicitRuleIdOutputInputReady();
  void handleAclAclStatusPtrCounterUpdateTimeOutputInputReady();
  void handleAclStatusStatusAclOutputInputReady();
  void handleAclAclStatusPtrRuleStatusOutputInputReady();
  void handleAclStatusStatusIntfIntfOutputInputReady();
  using Scheduler = Kelp::Ptr<Kiv::TaskScheduler>;
  void aclStatusStatusAclOutputReconciliationTaskIs(const Scheduler& scheduler, int priority,
                                                    const char* name);
  void aclStatusStatusIntfIntfOutputReconciliationTaskIs(const Scheduler& scheduler, int priority,
                                                         const char* name);
  void aclAclStatusPtrRuleStatusOutputReconciliationTaskIs(const Scheduler& scheduler, int priority,
                                                           const char* name);
  void aclAclStatusPtrImplicitRuleIdOutputReconciliationTaskIs(const Scheduler& scheduler, int priority,
                                                               const char* name);
  void aclAclStatusPtrImplicitRuleStatusOutputReconciliationTaskIs(const Scheduler& scheduler, int priority,
                                                                   const char* name);
  void aclStatusStatusAclOutputReconciliationTaskDel();
  void aclStatusStatusIntfIntfOutputReconciliationTaskDel();
  void aclAclStatusPtrRuleStatusOutputReconciliationTaskDel();
  void aclAclStatusPtrImplicitRuleIdOutputReconciliationTaskDel();
  void aclAclStatusPtrImplicitRuleStatusOutputReconciliationTaskDel();

  // Seen sets, in use while their output waits for its reconciliation.
  bool aclStatusStatusAclOutputSeenHas(const AclStatusStatusAclOutputKeyType& key) const;
  void aclStatusStatusAclOutputSeenIs(const AclStatusStatusAclOutputKeyType& key);
  bool aclStatusStatusIntfIntfOutputSeenHas(const AclStatusStatusIntfIntfOutputKeyType& key) const;
  void aclStatusStatusIntfIntfOutputSeenIs(const AclStatusStatusIntfIntfOutputKeyType& key);
  const auto& aclAclStatusPtrRuleStatusOutputPtrSeen() const {
    return aclAclStatusPtrRuleStatusOutput_.ptrSeen;
  }
  const auto& aclAclStatusPtrImplicitRuleIdOutputPtrSeen() const {
    return aclAclStatusPtrImplicitRuleIdOutput_.ptrSeen;
  }
  const auto& aclAclStatusPtrImplicitRuleStatusOutputPtrSeen() const {
    return aclAclStatusPtrImplicitRuleStatusOutput_.ptrSeen;
  }

  // Polls: each as its task, as what schedules that, and as one pass; `copy...` is the pass of a machine that
  // runs without tasks. A pass returns false when it yielded.
  void handleCopyInCountersCodefInputReady() { handlePollInputReady(copyInCounters_); }
  void handleCopyMacOutCountersCodefInputReady() { handlePollInputReady(copyMacOutCounters_); }
  void handleCopyIpOutCountersCodefInputReady() { handlePollInputReady(copyIpOutCounters_); }
  void handleCopyIp6OutCountersCodefInputReady() { handlePollInputReady(copyIp6OutCounters_); }
  void handleCopyInCountersCodef() { handlePoll(copyInCounters_); }
  void handleCopyMacOutCountersCodef() { handlePoll(copyMacOutCounters_); }
  void handleCopyIpOutCountersCodef() { handlePoll(copyIpOutCounters_); }
  void handleCopyIp6OutCountersCodef() { handlePoll(copyIp6OutCounters_); }
  bool eventToCopyInCountersInternal(uint64_t generation) { return pollPass(copyInCounters_, generation); }
  bool eventToCopyMacOutCountersInternal(uint64_t generation) {
    return pollPass(copyMacOutCounters_, generation);
  }
  bool eventToCopyIpOutCountersInternal(uint64_t generation) {
    return pollPass(copyIpOutCounters_, generation);
  }
  bool eventToCopyIp6OutCountersInternal(uint64_t generation) {
    return pollPass(copyIp6OutCounters_, generation);
  }
  void copyInCounters() { handlePoll(copyInCounters_); }
  void copyMacOutCounters() { handlePoll(copyMacOutCounters_); }
  void copyIpOutCounters() { handlePoll(copyIpOutCounters_); }
  void copyIp6OutCounters() { handlePoll(copyIp6OutCounters_); }
  void copyInCountersTaskIs(const Scheduler& scheduler, int priority, const char* name);
  void copyMacOutCountersTaskIs(const Scheduler& scheduler, int priority, const char* name);
  void copyIpOutCountersTaskIs(const Scheduler& scheduler, int priority, const char* name);
  void copyIp6OutCountersTaskIs(const Scheduler& scheduler, int priority, const char* name);
  void copyInCountersTaskDel() { copyInCounters_.task.del(); }
  void copyMacOutCountersTaskDel() { copyMacOutCounters_.task.del(); }
  void copyIpOutCountersTaskDel() { copyIpOutCounters_.task.del(); }
  void copyIp6OutCountersTaskDel() { copyIp6OutCounters_.task.del(); }
  // Set from outside, these have the poll's pass start over.
  ZEB_VALUE(bool, copyInCountersDuplicateSeen)
  ZEB_VALUE(bool, copyMacOutCountersDuplicateSeen)
  ZEB_VALUE(bool, copyIpOutCountersDuplicateSeen)
  ZEB_VALUE(bool, copyIp6OutCountersDuplicateSeen)

  /// The debug channel, "DpAclStatusVelo".
  static const Zeb::TraceHandle& qtHandle() { return statusTrace(); }

 private:
  class ScanStateFollower;

  // Frame.
  void initialize();
  void handleScanStateChange(const Zeb::Attribute& attribute);
  void createTasks();
  void checkArguments() const;
  void stop();
  void withMachine(const std::function<void()>& run);

  // Streams. A subscriber of the status may end the machine in the middle of an event: whoever has written
  // asks before it writes again.
  bool streaming() const { return initialScanDone_ && !stopped_; }
  Kelp::Ptr<Acl::AclStatus> statusOf(Acl::AclType aclType, const Kelp::String& aclName) const;
  bool isLeftOver(Acl::AclType aclType, const Kelp::String& aclName) const;
  bool publishList(Acl::AclType aclType, const Kelp::String& aclName, bool leftOver);
  void publishBinding(Acl::AclType aclType, Acl::AclDirection direction, const Nimnet::IntfId& intfId,
                      const Kelp::String& aclName);
  void pruneDirection(Acl::AclType aclType, Acl::AclDirection direction);
  void pruneTypeStatus(Acl::AclType aclType);
  void eventToAclImplicitRuleCfgStream(Acl::AclType aclType, const Kelp::String& aclName,
                                       const ListCfg& aclCfg);
  void eventToAclIpRuleInitStream(Acl::AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg);
  void eventToAclIp6RuleInitStream(Acl::AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg);
  void eventToAclMacRuleInitStream(Acl::AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg);
  void eventToRuleCfgHandlerStream(Acl::AclType aclType, const Kelp::String& aclName,
                                   const Kiv::UniqueId& uid, bool exists);
  template <class Rules>
  void initRules(Acl::AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg,
                 const InitStream<Rules>& stream);
  void withdrawRules(Acl::AclType aclType, const Kelp::String& aclName,
                     const std::function<bool(const Kiv::UniqueId&)>& gone);
  void withdrawRulesGone(Acl::AclType aclType, const Kelp::String& aclName);

  // Outputs.
  bool setReconciliationPending();
  bool pollComplete(const CounterPoll& poll) const;
  bool pollsComplete() const;
  bool outputInputsComplete(const OutputBase& output);
  void outputReadyIs(OutputBase& output);
  template <class Walk>
  void reconcile(ReconciledOutputBase& output, const Walk& walk);
  template <class Output, class Walk>
  void reconcileWhenComplete(Output& output, const Walk& walk);
  template <class Map, class Seen, class Del>
  std::optional<typename Map::Key> deleteUnseen(DeletionRun& run, const Map& map,
                                                const typename Map::Key* from, const Seen& seen,
                                                const Del& del);
  template <class Key, class WalkType>
  void reconcileKeyed(KeyedOutput<Key>& output, const WalkType& walkType);
  template <class Key, class MapOf, class Del>
  void reconcilePerStatus(PerStatusOutput<Key>& output, const MapOf& mapOf, const Del& del);

  // Polls.
  void handlePollInputReady(CounterPoll& poll);
  void askForPoll(CounterPoll& poll);
  void handlePoll(CounterPoll& poll);
  bool pollPass(CounterPoll& poll, uint64_t generation);

  const Kelp::Ptr<const Acl::Config> aclConfig_;
  const Kelp::Ptr<const Acl::IntfConfig> aclIntfConfig_;
  const Kelp::Ptr<const Counters> inCounters_;
  const Kelp::Ptr<const Counters> macOutCounters_;
  const Kelp::Ptr<const Counters> ipOutCounters_;
  const Kelp::Ptr<const Counters> ip6OutCounters_;
  const Kelp::Ptr<Acl::StatusDp> aclStatus_;
  const Rix::SmControl control_;

  bool synchronous_ = false;
  bool initialized_ = false;
  bool initialScanDone_ = false;
  bool stopped_ = false;

  Scheduler scheduler_;
  Zeb::Owned<InputSmScanState> scanState_;
  Zeb::Owned<OutputState> outputState_;
  std::unique_ptr<ScanStateFollower> scanStateFollower_;
  Zeb::Owned<LocalAttrStore> localAttrStore_;
  friend Kelp::Ptr<RuleIdsByAclSm7> RuleIdsByAclSm7Is(const Kelp::Ptr<const LocalAttrStore>& entity,
                                                      VeloDpAclStatusSm& machine);
  friend Kelp::Ptr<AclConfigSm3> AclConfigSm3Is(const Kelp::Ptr<const Acl::Config>& entity,
                                                VeloDpAclStatusSm& machine);
  friend Kelp::Ptr<AclIntfConfigSm0> AclIntfConfigSm0Is(const Kelp::Ptr<const Acl::IntfConfig>& entity,
                                                        VeloDpAclStatusSm& machine);
  Kelp::Ptr<RuleIdsByAclSm7> ruleIdsByAclSm7_;
  Kelp::Ptr<AclConfigSm3> aclConfigSm3_;
  Kelp::Ptr<AclIntfConfigSm0> aclIntfConfigSm0_;

  EventsUnderWay<AclStatusStatusAclOutputKeyType> listEvents_;
  EventsUnderWay<AclStatusStatusIntfIntfOutputKeyType> bindingEvents_;

  // Whether it is known what is to be reconciled, and where the look for it goes on.
  bool pendingFound_ = false;
  std::optional<AclStatusStatusAclOutputKeyType> pendingResumeKey_;

  // The outputs, in the order in which their handlers run, and the polls.
  OutputBase ruleIdsByAclRuleIdsOutput_;
  PerStatusOutput<AclAclStatusPtrImplicitRuleStatusOutputKeyType> aclAclStatusPtrImplicitRuleStatusOutput_;
  PerStatusOutput<AclAclStatusPtrImplicitRuleIdOutputKeyType> aclAclStatusPtrImplicitRuleIdOutput_;
  OutputBase aclAclStatusPtrCounterUpdateTimeOutput_;
  KeyedOutput<AclStatusStatusAclOutputKeyType> aclStatusStatusAclOutput_;
  PerStatusOutput<AclAclStatusPtrRuleStatusOutputKeyType> aclAclStatusPtrRuleStatusOutput_;
  KeyedOutput<AclStatusStatusIntfIntfOutputKeyType> aclStatusStatusIntfIntfOutput_;
  CounterPoll copyIpOutCounters_;
  CounterPoll copyIp6OutCounters_;
  CounterPoll copyInCounters_;
  CounterPoll copyMacOutCounters_;
};

using StatusCounters = Kelp::Ptr<const VeloDpAclStatusSm::Counters>;

/// Makes a machine and starts it.
Kelp::Ptr<VeloDpAclStatusSm> veloDpAclStatusSmFactory(
    const Kelp::Ptr<const Acl::Config>& aclConfig, const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig,
    const StatusCounters& inCounters, const StatusCounters& macOutCounters,
    const StatusCounters& ipOutCounters, const StatusCounters& ip6OutCounters,
    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Rix::SmControl& control);
Kelp::Ptr<VeloDpAclStatusSm> VeloDpAclStatusSmIs(
    const Kelp::Ptr<const Acl::Config>& aclConfig, const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig,
    const StatusCounters& inCounters, const StatusCounters& macOutCounters,
    const StatusCounters& ipOutCounters, const StatusCounters& ip6OutCounters,
    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Rix::SmControl& control);

}  // namespace Velo::VeloAcl
