#pragma once

#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>
#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <VeloAcl/VeloDpAclStatusSm/Walker.h>

namespace Velo::VeloAcl {

/// A walker over an entity of one type.
template <class Entity>
class WalkerOf : public Walker {
 public:
  /// The watched entity.
  Kelp::Ptr<const Entity> en() const { return Kelp::Ptr<const Entity>(raw()); }

 protected:
  using Walker::Walker;
  const Entity* raw() const { return static_cast<const Entity*>(watchedEntity().get()); }
};

/// A walker that belongs to the machine itself, and makes the tasks of its scans.
template <class Entity>
class TopWalker : public WalkerOf<Entity> {
 protected:
  using WalkerOf<Entity>::WalkerOf;
  /// Runs a scan at once; but in its task if that is scheduled already.
  void startScan(int number);
  void driveScan(int number);
  void taskIs(int number, const char* taskName);
  void taskDel(int number);
  /// A scan that ends after the first pass deletes its task.
  void handleScanDone(int number) override;
};

template <class Entity>
void TopWalker<Entity>::startScan(int number) {
  const auto& task = this->scanTasks()->tasks[number];
  if (!this->synchronous() && task && task->taskWorkQueued()) {
    task->scheduleTask();
  } else {
    driveScan(number);
  }
}

template <class Entity>
void TopWalker<Entity>::driveScan(int number) {
  if (!this->active()) return;
  const Kelp::Ptr<VeloDpAclStatusSm> keepMachine(&this->machine());
  const Kelp::Ptr<Walker> keep(this);
  const Kelp::Ptr<ScanTasks> scans = this->scanTasks();
  ++scans->driving[number];
  this->scan(number);
  --scans->driving[number];
}

template <class Entity>
void TopWalker<Entity>::taskIs(int number, const char* taskName) {
  if (this->synchronous()) return;
  auto& task = this->scanTasks()->tasks[number];
  task = this->machine().scheduler()->taskIs(this->machine().control().priority, taskName);
  task->dispatchIs([this, number] { driveScan(number); }, this);
}

template <class Entity>
void TopWalker<Entity>::taskDel(int number) {
  if (!this->active()) return;
  const Kelp::Ptr<Kiv::TimerTask> task = std::move(this->scanTasks()->tasks[number]);
  if (task) task->dispatchDel(this);
}

template <class Entity>
void TopWalker<Entity>::handleScanDone(int number) {
  if (this->initialScanDone()) taskDel(number);
}

}  // namespace Velo::VeloAcl
