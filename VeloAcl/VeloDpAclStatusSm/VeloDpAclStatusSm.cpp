#include <VeloAcl/VeloDpAclStatusSm/ScanStateFollower.h>
#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>
#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <VeloAcl/VeloDpAclStatusSm/Walkers.h>

/// Start-up and teardown.
namespace Velo::VeloAcl {

namespace {

/// How many streams the scans of these top walkers feed.
template <class... Sm>
constexpr size_t streamsOf(const std::tuple<Kelp::Ptr<Sm>&...>*) {
  return (std::size(Sm::streamScanIs) + ...);
}

}  // namespace

VeloDpAclStatusSm::VeloDpAclStatusSm(const Kelp::Ptr<const Acl::Config>& aclConfig,
                                     const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig,
                                     const Arguments::Counters& inCounters,
                                     const Arguments::Counters& macOutCounters,
                                     const Arguments::Counters& ipOutCounters,
                                     const Arguments::Counters& ip6OutCounters,
                                     const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Rix::SmControl& control)
    : MachinePolls({aclConfig, aclIntfConfig, inCounters, macOutCounters, ipOutCounters, ip6OutCounters,
                    aclStatus, control}) {
  static_assert(streamsOf(static_cast<decltype(tops())*>(nullptr)) == streamScans.size(),
                "tops() has not all top walkers: their scans feed all streams");
}

VeloDpAclStatusSm::~VeloDpAclStatusSm() {
  nodeFlagSet(Kelp::nodeLive, false);
  stop();
  Rix::Gen::zebDoZombieReactors();
}

const Zeb::TraceHandle& VeloDpAclStatusSm::qtHandle() { return statusTrace(); }

void VeloDpAclStatusSm::handleInitialized() {
  if (initialized_ || stopped_ || scanState_) return;
  withMachine([this] { initialize(); });
}

/// Handlers that follow the status may be told of writes in here: without tasks, or with little to scan, this
/// includes the second pass.
void VeloDpAclStatusSm::initialize() {
  traceStatus(9, "create local SMs");
  if (control().mode == Rix::SmControl::synchronous) synchronous_ = true;
  if (control().mode == Rix::SmControl::asynchronous) synchronous_ = false;
  scanState_ = Zeb::Owned(this, MemSlab::make<InputSmScanState>());
  outputState_ = Zeb::Owned(this, MemSlab::make<OutputState>());
  scanStateFollower_ = std::make_unique<ScanStateFollower>(*this);
  if (!synchronous_) createTasks();
  localAttrStore_ = Zeb::Owned(this, MemSlab::make<LocalAttrStore>());
  checkArguments();
  findPending();  // what it does not get to is found before the first pass ends

  traceStatus(9, "create non-public arg SMs");
  ruleIdsByAclSm7Is();
  aclConfigSm3Is();
  aclIntfConfigSm0Is();
  traceStatus(9, "initialized");
  initialized_ = true;
  inputsReady();
}

void VeloDpAclStatusSm::createTasks() {
  scheduler_ = control().scheduler ? control().scheduler : Kiv::TaskSchedulerRoot::findOrCreateScheduler();
  const int priority = control().priority;
  for (Output* output : outputs()) output->taskIs(scheduler_, priority);
  for (CounterPoll* poll : polls()) poll->taskIs(scheduler_, priority);
}

void VeloDpAclStatusSm::ruleIdsByAclSm7Is() {
  RuleIdsByAclSm7Is(Kelp::Ptr<const LocalAttrStore>(localAttrStore_.ptr()), *this);
}
void VeloDpAclStatusSm::aclConfigSm3Is() { AclConfigSm3Is(aclConfig(), *this); }
void VeloDpAclStatusSm::aclIntfConfigSm0Is() { AclIntfConfigSm0Is(aclIntfConfig(), *this); }

namespace {
const auto stopAndClear = [](auto& walker) {
  const auto held = std::move(walker);
  if (held) held->stop();
};
}  // namespace

void VeloDpAclStatusSm::ruleIdsByAclSm7Del() { stopAndClear(ruleIdsByAclSm7_); }
void VeloDpAclStatusSm::aclConfigSm3Del() { stopAndClear(aclConfigSm3_); }
void VeloDpAclStatusSm::aclIntfConfigSm0Del() { stopAndClear(aclIntfConfigSm0_); }

void VeloDpAclStatusSm::hasNotificationActiveIs(bool on) {
  forEachTop([on](auto& walker) {
    if (walker) walker->hasNotificationActiveIs(on);
  });
}

void VeloDpAclStatusSm::doDeleteAll() {
  withMachine([this] {
    forEachTop([](auto& walker) {
      if (walker) walker->doDeleteAll();
    });
    stop();
  });
}

/// After this nothing runs: tasks and walkers do nothing, even if somebody still holds them.
void VeloDpAclStatusSm::stop() {
  stopped_ = true;
  initialized_ = false;
  for (Output* output : outputs()) output->taskDel();
  for (CounterPoll* poll : polls()) poll->taskDel();
  scanStateFollower_ = nullptr;
  forEachTop(stopAndClear);
}

}  // namespace Velo::VeloAcl
