#include <Kelp/Assert.h>
#include <VeloAcl/LoadOrder.h>
#include <VeloAcl/VeloDpAclStatusSm/NoEscape.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanStateFollower.h>
#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <VeloAcl/VeloDpAclStatusSm/Walkers.h>
#include <Zeb/TypeModule.h>

/// The frame: what the machine is made of, start-up and teardown.
namespace Velo::VeloAcl {

const Zeb::TraceHandle& statusTrace() {
  // Destroyed with the library; nobody traces after that.
  static const Zeb::TraceHandle handle("DpAclStatusVelo", "VeloDpAclStatus");
  return handle;
}

namespace {

/// The debug channel is there before any other global of the library, whichever of them traces first.
struct DebugChannel {
  DebugChannel() { statusTrace(); }
};
[[maybe_unused, gnu::init_priority(LoadOrder::debugChannel)]] const DebugChannel debugChannel;

using M = VeloDpAclStatusSm;

[[gnu::init_priority(LoadOrder::statusMachineTypes)]] const Zeb::TypeModule module(
    "VeloDpAclStatusSm", {
                             Zeb::typeEntry(&veloDpAclStatusSmFactory),
                             Zeb::typeEntry<InputSmScanState>(),
                             Zeb::typeEntry<OutputState>(),
                             Zeb::typeEntry<LocalAttrStore>(),
                             Zeb::typeEntry<LocalAttrStore::Holder>(),
                         });

}  // namespace

VeloDpAclStatusSm::~VeloDpAclStatusSm() {
  nodeFlagSet(Kelp::nodeLive, false);
  stop();
  Rix::Gen::zebDoZombieReactors();
}

/// Runs something on behalf of the machine from outside: keeps it alive meanwhile, does nothing once it is
/// stopped, and lets no exception out.
void VeloDpAclStatusSm::withMachine(const std::function<void()>& run) {
  if (stopped_) return;
  const Kelp::Ptr<VeloDpAclStatusSm> keep(this);
  runWithoutEscape("the status machine", run);
}

void VeloDpAclStatusSm::handleInitialized() {
  if (initialized_ || stopped_ || scanState_) return;
  withMachine([this] { initialize(); });
}

/// Whoever follows the status may be told of writes in here: without tasks, or with little to scan, the
/// second pass is part of it.
void VeloDpAclStatusSm::initialize() {
  traceStatus(9, "create local SMs");
  if (control_.mode == Rix::SmControl::synchronous) synchronous_ = true;
  if (control_.mode == Rix::SmControl::asynchronous) synchronous_ = false;
  scanState_ = Zeb::Owned(this, MemSlab::make<InputSmScanState>());
  outputState_ = Zeb::Owned(this, MemSlab::make<OutputState>());
  scanStateFollower_ = std::make_unique<ScanStateFollower>(*this);
  if (!synchronous_) createTasks();
  localAttrStore_ = Zeb::Owned(this, MemSlab::make<LocalAttrStore>());
  checkArguments();
  setReconciliationPending();

  traceStatus(9, "create non-public arg SMs");
  ruleIdsByAclSm7Is();
  aclConfigSm3Is();
  aclIntfConfigSm0Is();
  traceStatus(9, "initialized");
  initialized_ = true;

  const auto run = [this](void (VeloDpAclStatusSm::*handler)()) {
    if (initialized_) (this->*handler)();
  };
  run(&M::handleRuleIdsByAclRuleIdsOutputInputReady);
  run(&M::handleAclAclStatusPtrImplicitRuleStatusOutputInputReady);
  run(&M::handleAclAclStatusPtrImplicitRuleIdOutputInputReady);
  run(&M::handleAclAclStatusPtrCounterUpdateTimeOutputInputReady);
  run(&M::handleAclStatusStatusAclOutputInputReady);
  run(&M::handleAclAclStatusPtrRuleStatusOutputInputReady);
  run(&M::handleAclStatusStatusIntfIntfOutputInputReady);
  run(&M::handleCopyIpOutCountersCodefInputReady);
  run(&M::handleCopyIp6OutCountersCodefInputReady);
  run(&M::handleCopyInCountersCodefInputReady);
  run(&M::handleCopyMacOutCountersCodefInputReady);
}

void VeloDpAclStatusSm::createTasks() {
  scheduler_ = control_.scheduler ? control_.scheduler : Kiv::TaskSchedulerRoot::findOrCreateScheduler();
  const int priority = control_.priority;
  aclAclStatusPtrImplicitRuleStatusOutputReconciliationTaskIs(
      scheduler_, priority, "VeloDpAclStatusSm-aclAclStatusPtrImplicitRuleStatusOutputTask");
  aclAclStatusPtrImplicitRuleIdOutputReconciliationTaskIs(
      scheduler_, priority, "VeloDpAclStatusSm-aclAclStatusPtrImplicitRuleIdOutputTask");
  aclStatusStatusAclOutputReconciliationTaskIs(scheduler_, priority,
                                               "VeloDpAclStatusSm-aclStatusStatusAclOutputTask");
  aclAclStatusPtrRuleStatusOutputReconciliationTaskIs(
      scheduler_, priority, "VeloDpAclStatusSm-aclAclStatusPtrRuleStatusOutputTask");
  aclStatusStatusIntfIntfOutputReconciliationTaskIs(scheduler_, priority,
                                                    "VeloDpAclStatusSm-aclStatusStatusIntfIntfOutputTask");
  copyIpOutCountersTaskIs(scheduler_, priority, "VeloDpAclStatusSm-copyIpOutCountersTask");
  copyIp6OutCountersTaskIs(scheduler_, priority, "VeloDpAclStatusSm-copyIp6OutCountersTask");
  copyInCountersTaskIs(scheduler_, priority, "VeloDpAclStatusSm-copyInCountersTask");
  copyMacOutCountersTaskIs(scheduler_, priority, "VeloDpAclStatusSm-copyMacOutCountersTask");
}

void VeloDpAclStatusSm::checkArguments() const {
  KELP_ASSERT(aclConfig(),
              "aclConfig() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(aclIntfConfig(),
              "aclIntfConfig() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(inCounters(),
              "inCounters() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(macOutCounters(),
              "macOutCounters() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(ipOutCounters(),
              "ipOutCounters() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(ip6OutCounters(),
              "ip6OutCounters() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(aclStatus(),
              "aclStatus() && \"Pointer SM args cannot be null unless they are marked Optional\"");
}

void VeloDpAclStatusSm::ruleIdsByAclSm7Is() {
  RuleIdsByAclSm7Is(Kelp::Ptr<const LocalAttrStore>(localAttrStore_.ptr()), *this);
}
void VeloDpAclStatusSm::aclConfigSm3Is() { AclConfigSm3Is(aclConfig_, *this); }
void VeloDpAclStatusSm::aclIntfConfigSm0Is() { AclIntfConfigSm0Is(aclIntfConfig_, *this); }

namespace {
template <class Sm>
void stopAndClear(Kelp::Ptr<Sm>& walker) {
  const Kelp::Ptr<Sm> held = std::move(walker);
  if (held) held->stop();
}
}  // namespace

void VeloDpAclStatusSm::ruleIdsByAclSm7Del() { stopAndClear(ruleIdsByAclSm7_); }
void VeloDpAclStatusSm::aclConfigSm3Del() { stopAndClear(aclConfigSm3_); }
void VeloDpAclStatusSm::aclIntfConfigSm0Del() { stopAndClear(aclIntfConfigSm0_); }

void VeloDpAclStatusSm::hasNotificationActiveIs(bool on) {
  if (ruleIdsByAclSm7_) ruleIdsByAclSm7_->hasNotificationActiveIs(on);
  if (aclConfigSm3_) aclConfigSm3_->hasNotificationActiveIs(on);
  if (aclIntfConfigSm0_) aclIntfConfigSm0_->hasNotificationActiveIs(on);
}

void VeloDpAclStatusSm::doDeleteAll() {
  withMachine([this] {
    if (ruleIdsByAclSm7_) ruleIdsByAclSm7_->doDeleteAll();
    if (aclConfigSm3_) aclConfigSm3_->doDeleteAll();
    if (aclIntfConfigSm0_) aclIntfConfigSm0_->doDeleteAll();
    stop();
  });
}

/// From here on nothing runs any more: tasks and walkers are silent, whoever still holds them.
void VeloDpAclStatusSm::stop() {
  stopped_ = true;
  initialized_ = false;
  aclAclStatusPtrImplicitRuleStatusOutputReconciliationTaskDel();
  aclAclStatusPtrImplicitRuleIdOutputReconciliationTaskDel();
  aclStatusStatusAclOutputReconciliationTaskDel();
  aclAclStatusPtrRuleStatusOutputReconciliationTaskDel();
  aclStatusStatusIntfIntfOutputReconciliationTaskDel();
  copyIpOutCountersTaskDel();
  copyIp6OutCountersTaskDel();
  copyInCountersTaskDel();
  copyMacOutCountersTaskDel();
  scanStateFollower_ = nullptr;
  ruleIdsByAclSm7Del();
  aclConfigSm3Del();
  aclIntfConfigSm0Del();
}

Kelp::Ptr<VeloDpAclStatusSm> veloDpAclStatusSmFactory(
    const Kelp::Ptr<const Acl::Config>& aclConfig, const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig,
    const Kelp::Ptr<const VeloDpAclStatusSm::Counters>& inCounters,
    const Kelp::Ptr<const VeloDpAclStatusSm::Counters>& macOutCounters,
    const Kelp::Ptr<const VeloDpAclStatusSm::Counters>& ipOutCounters,
    const Kelp::Ptr<const VeloDpAclStatusSm::Counters>& ip6OutCounters,
    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Rix::SmControl& control) {
  const auto machine = MemSlab::make<VeloDpAclStatusSm>(aclConfig, aclIntfConfig, inCounters, macOutCounters,
                                                        ipOutCounters, ip6OutCounters, aclStatus, control);
  machine->handleInitialized();
  return machine;
}

Kelp::Ptr<VeloDpAclStatusSm> VeloDpAclStatusSmIs(
    const Kelp::Ptr<const Acl::Config>& aclConfig, const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig,
    const Kelp::Ptr<const VeloDpAclStatusSm::Counters>& inCounters,
    const Kelp::Ptr<const VeloDpAclStatusSm::Counters>& macOutCounters,
    const Kelp::Ptr<const VeloDpAclStatusSm::Counters>& ipOutCounters,
    const Kelp::Ptr<const VeloDpAclStatusSm::Counters>& ip6OutCounters,
    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Rix::SmControl& control) {
  return veloDpAclStatusSmFactory(aclConfig, aclIntfConfig, inCounters, macOutCounters, ipOutCounters,
                                  ip6OutCounters, aclStatus, control);
}

}  // namespace Velo::VeloAcl
