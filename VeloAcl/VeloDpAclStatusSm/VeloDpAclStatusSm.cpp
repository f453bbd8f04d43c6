#include <Kelp/Assert.h>
#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <VeloAcl/VeloDpAclStatusSm/Walkers.h>
#include <Zeb/TypeModule.h>

#include <exception>

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
[[maybe_unused, gnu::init_priority(101)]] const DebugChannel debugChannel;

using S = InputSmScanState;
using O = OutputState;
using M = VeloDpAclStatusSm;

const Zeb::TypeModule module("VeloDpAclStatusSm", {
                                                      Zeb::typeEntry(&veloDpAclStatusSmFactory),
                                                      Zeb::typeEntry<InputSmScanState>(),
                                                      Zeb::typeEntry<OutputState>(),
                                                      Zeb::typeEntry<LocalAttrStore>(),
                                                      Zeb::typeEntry<LocalAttrStore::Holder>(),
                                                  });

}  // namespace

/// Runs what waits for a field of the scan state whenever that changes.
class VeloDpAclStatusSm::ScanStateFollower final : public Zeb::Notifiee {
 public:
  explicit ScanStateFollower(VeloDpAclStatusSm& machine) : machine_(machine) {
    machine.scanState_->publisher().subscribe(*this);
  }
  void handleChange(const Zeb::Change& change) override {
    machine_.withMachine([&] { machine_.handleScanStateChange(change.attribute); });
  }

 private:
  VeloDpAclStatusSm& machine_;
};

/// A row of the table of polls: where the state of poll `name`, which copies `input`, is kept.
#define POLL(name, input)                                                                                \
  name##_({#name, #input, &M::input, &S::name##IdleIs, &S::name##CodefDoneGen, &S::name##CodefDoneGenIs, \
           &S::name##CodefGeneration, &S::name##CodefGenerationIs, &S::name##CodefGenerationInc,         \
           &M::name##DuplicateSeen, &M::name##DuplicateSeenIs})

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
      ruleIdsByAclRuleIdsOutput_({.name = "ruleIdsByAclRuleIdsOutput",
                                  .ready = &O::ruleIdsByAclRuleIdsOutputReady,
                                  .readyIs = &O::ruleIdsByAclRuleIdsOutputReadyIs,
                                  .scans = {&S::aclConfigStreamScan, &S::ipRuleCfgStreamScan,
                                            &S::ip6RuleCfgStreamScan, &S::macRuleCfgStreamScan},
                                  .tracesHandler = true}),
      aclAclStatusPtrImplicitRuleStatusOutput_({.name = "aclAclStatusPtrImplicitRuleStatusOutput",
                                                .ready = &O::aclAclStatusPtrImplicitRuleStatusOutputReady,
                                                .readyIs = &O::aclAclStatusPtrImplicitRuleStatusOutputReadyIs,
                                                .scans = {&S::aclConfigStreamScan},
                                                .afterPolls = true}),
      aclAclStatusPtrImplicitRuleIdOutput_({.name = "aclAclStatusPtrImplicitRuleIdOutput",
                                            .ready = &O::aclAclStatusPtrImplicitRuleIdOutputReady,
                                            .readyIs = &O::aclAclStatusPtrImplicitRuleIdOutputReadyIs,
                                            .scans = {&S::aclConfigStreamScan}}),
      aclAclStatusPtrCounterUpdateTimeOutput_({.name = "aclAclStatusPtrCounterUpdateTimeOutput",
                                               .ready = &O::aclAclStatusPtrCounterUpdateTimeOutputReady,
                                               .readyIs = &O::aclAclStatusPtrCounterUpdateTimeOutputReadyIs,
                                               .scans = {},
                                               .afterPolls = true,
                                               .tracesHandler = true}),
      aclStatusStatusAclOutput_({.name = "aclStatusStatusAclOutput",
                                 .ready = &O::aclStatusStatusAclOutputReady,
                                 .readyIs = &O::aclStatusStatusAclOutputReadyIs,
                                 .scans = {&S::aclConfigStreamScan}}),
      aclAclStatusPtrRuleStatusOutput_({.name = "aclAclStatusPtrRuleStatusOutput",
                                        .ready = &O::aclAclStatusPtrRuleStatusOutputReady,
                                        .readyIs = &O::aclAclStatusPtrRuleStatusOutputReadyIs,
                                        .scans = {&S::rix_pipeline0Scan},
                                        .afterRuleIds = true,
                                        .afterPolls = true}),
      aclStatusStatusIntfIntfOutput_({.name = "aclStatusStatusIntfIntfOutput",
                                      .ready = &O::aclStatusStatusIntfIntfOutputReady,
                                      .readyIs = &O::aclStatusStatusIntfIntfOutputReadyIs,
                                      .scans = {&S::aclIntfConfigStreamScan}}),
      POLL(copyIpOutCounters, ipOutCounters),
      POLL(copyIp6OutCounters, ip6OutCounters),
      POLL(copyInCounters, inCounters),
      POLL(copyMacOutCounters, macOutCounters) {}

#undef POLL

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
  try {
    run();
  } catch (const std::exception& error) {
    Kelp::fatal(fmt::format("an exception escaped the status machine: {}", error.what()), __FILE__, __LINE__);
  }
}

void VeloDpAclStatusSm::handleInitialized() {
  if (initialized_ || stopped_ || scanState_) return;
  const Kelp::Ptr<VeloDpAclStatusSm> keep(this);
  traceStatus(9, "create local SMs");
  if (control_.mode == Rix::SmControl::synchronous) synchronous_ = true;
  if (control_.mode == Rix::SmControl::asynchronous) synchronous_ = false;
  scanState_ = MemSlab::make<InputSmScanState>();
  outputState_ = MemSlab::make<OutputState>();
  scanStateFollower_ = std::make_unique<ScanStateFollower>(*this);
  if (!synchronous_) createTasks();
  localAttrStore_ = MemSlab::make<LocalAttrStore>();
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

void VeloDpAclStatusSm::setReconciliationPending() {
  bool ruleStatus = false, implicitIds = false, implicitStatus = false, bindings = false;
  for (auto type = aclStatus_->status().begin(); type; type.next()) {
    bindings = bindings || !type.value()->intf().empty();
    for (auto list = type.value()->acl().begin(); list; list.next()) {
      ruleStatus = ruleStatus || !list.value()->ruleStatus().empty();
      implicitIds = implicitIds || !list.value()->implicitRuleId().empty();
      implicitStatus = implicitStatus || !list.value()->implicitRuleStatus().empty();
    }
  }
  aclAclStatusPtrImplicitRuleStatusOutput_.pending = implicitStatus;
  aclAclStatusPtrImplicitRuleIdOutput_.pending = implicitIds;
  aclStatusStatusAclOutput_.pending = !aclStatus_->status().empty();
  aclAclStatusPtrRuleStatusOutput_.pending = ruleStatus;
  aclStatusStatusIntfIntfOutput_.pending = bindings;
}

void VeloDpAclStatusSm::ruleIdsByAclSm7Is() {
  if (ruleIdsByAclSm7_) return;
  ruleIdsByAclSm7_ = MemSlab::make<RuleIdsByAclSm7>(localAttrStore_, *this);
  ruleIdsByAclSm7_->hasNotificationActiveIs(true);
  ruleIdsByAclSm7_->initialize();
}
void VeloDpAclStatusSm::aclConfigSm3Is() {
  if (aclConfigSm3_) return;
  aclConfigSm3_ = AclConfigSm3Is(aclConfig_, *this);
  aclConfigSm3_->hasNotificationActiveIs(true);
  aclConfigSm3_->initialize();
}
void VeloDpAclStatusSm::aclIntfConfigSm0Is() {
  if (aclIntfConfigSm0_) return;
  aclIntfConfigSm0_ = AclIntfConfigSm0Is(aclIntfConfig_, *this);
  aclIntfConfigSm0_->hasNotificationActiveIs(true);
  aclIntfConfigSm0_->initialize();
}

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
