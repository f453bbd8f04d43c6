#include <VeloAcl/VeloDpAclStatusSm/NoEscape.h>
#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>
#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <VeloAcl/VeloDpAclStatusSm/Walker.h>

namespace Velo::VeloAcl {

/// While a reactor runs, no scan counts as driven, because walkers that it makes are not visited by any scan
/// that is going on.
class Walker::ReactorScope {
 public:
  explicit ReactorScope(Kelp::Ptr<ScanTasks> scans) : scans_(std::move(scans)), driving_(scans_->driving) {
    scans_->driving.fill(0);
  }
  ~ReactorScope() { scans_->driving = driving_; }
  ReactorScope(const ReactorScope&) = delete;
  ReactorScope& operator=(const ReactorScope&) = delete;

 private:
  const Kelp::Ptr<ScanTasks> scans_;
  const std::array<int, scanCount> driving_;
};

Walker::Walker(std::string_view name, VeloDpAclStatusSm& machine, Walker* parent,
               Kelp::Ptr<const Zeb::Entity> entity)
    : InputStateMachine(std::move(entity)),
      name_(name),
      machine_(&machine),
      parent_(parent),
      scanTasks_(parent ? parent->scanTasks_ : MemSlab::make<ScanTasks>()) {}

Walker::~Walker() = default;

bool Walker::synchronous() const { return !machine_ || machine_->synchronous(); }
bool Walker::initialScanDone() const { return machine_ && machine_->initialScanDone(); }

void Walker::hasNotificationActiveIs(bool on) {
  if (on && !active()) return;
  if (on != hasNotificationActive() && active() && watchedEntity()) {
    if (!on) {
      markWhenOff_ = mark();
    } else if (!markWhenOff_) {
      versionsSeen();
    } else {
      KELP_ASSERT(mark() == *markWhenOff_,
                  fmt::format("what {} watches was changed while its notification was off", name_));
    }
  }
  InputStateMachine::hasNotificationActiveIs(on);
  forEachChild([on](Walker& child) { child.hasNotificationActiveIs(on); });
}

void Walker::start() {
  hasNotificationActiveIs(true);
  initialize();
}

void Walker::stop() {
  if (!active()) return;
  const Kelp::Ptr<Walker> keep(this);
  const Kelp::Ptr<ScanTasks> scans = std::move(scanTasks_);
  if (!parent_) {
    for (auto& task : scans->tasks) {
      if (!task) continue;
      task->dispatchDel(this);
      task = nullptr;
    }
  }
  machine_ = nullptr;
  parent_ = nullptr;
  forEachChild([](Walker& child) { child.stop(); });
  doneIs();
}

void Walker::enDispatch(const Zeb::Change& change) {
  if (!active()) return;
  const Kelp::Ptr<VeloDpAclStatusSm> keep(machine_);
  runWithoutEscape(name_, [&] {
    const ReactorScope scope(scanTasks_);
    dispatch(change);
  });
}

Kiv::TimerTask* Walker::taskOf(int number) const {
  return scanTasks_ ? scanTasks_->tasks[number].get() : nullptr;
}

bool Walker::shouldYield(int number) const {
  Kiv::TimerTask* const task = taskOf(number);
  return task && !synchronous() && task->taskShouldYield();
}

bool Walker::inTask(int number) const {
  Kiv::TimerTask* const task = taskOf(number);
  return task && task->taskCurrentlyRunning();
}

bool Walker::mayYield(int number) const {
  return taskOf(number) && !synchronous() && (!initialScanDone() || scanTasks_->driving[number] > 0);
}

void Walker::traceScanStart(bool complete, bool resumed, size_t total) const {
  traceStatus(9, "{} scan complete: {} resumed: {} scan: {}", name_, complete, resumed, total);
}

void Walker::traceScanStop(int number, bool forChild, size_t iterations, size_t total) const {
  traceStatus(8, "{} {} yielding after {} iterations ({} total items)", name_, forChild ? "child" : "",
              iterations, total);
  const Kelp::Ptr<Kiv::TimerTask> task(taskOf(number));
  if (!task) return;
  task->taskWorkCountInc(iterations);
  task->taskWorkPendingIs(total);
  task->scheduleTask();
}

void Walker::scanEnded(int number, bool firstPass, size_t iterations) {
  if (parent_) {
    traceStatus(9, "{} scan complete. Processed {} children. ", name_, iterations);
    return;
  }
  handleScanDone(number);
  traceStatus(9, "{}{} scan, and parent scan, complete.", name_, firstPass ? " initial" : "");
}

}  // namespace Velo::VeloAcl
