#pragma once

#include <VeloAcl/VeloDpAclStatusSm/Children.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanOperations.h>
#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>
#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <VeloAcl/VeloDpAclStatusSm/Walker.h>

/// What the ten walkers are made of, beside Walker.
namespace Velo::VeloAcl {

/// A walker over an entity of a type.
template <class Entity>
class WalkerOf : public Walker {
 public:
  /// The watched entity.
  Kelp::Ptr<const Entity> en() const {
    return Kelp::Ptr<const Entity>(static_cast<const Entity*>(watchedEntity().get()));
  }

 protected:
  using Walker::Walker;
  const Entity* raw() const { return static_cast<const Entity*>(watchedEntity().get()); }
};

/// A walker that belongs to the machine itself and owns the tasks of its scans.
template <class Entity>
class TopWalker : public WalkerOf<Entity> {
 public:
  ~TopWalker() override;

 protected:
  using WalkerOf<Entity>::WalkerOf;
  /// Runs a scan in its task when that has work queued already, else at once.
  void startScan(int number);
  void driveScan(int number);
  void taskIs(int number, const char* taskName);
  void taskDel(int number);
  void handleScanDone(int number) override;
  /// Tells the machine that a pass of the scan is over.
  virtual void scanFlagIs(int number) = 0;
};

inline constexpr auto noChild = [](const auto&) { return Kelp::Ptr<Walker>(); };

/// A walker's own event for every element that is still there, each without value.
template <class Map, class Emit>
void forEachLeft(const Walker& walker, const Map& map, const Emit& emit) {
  for (auto at = map.begin(); at && walker.active(); at.next()) emit(at.key());
}

template <class Entity>
TopWalker<Entity>::~TopWalker() = default;

template <class Entity>
void TopWalker<Entity>::startScan(int number) {
  const auto& task = this->tasks_[number];
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
  ++this->driving_[number];
  this->scan(number);
  --this->driving_[number];
}

template <class Entity>
void TopWalker<Entity>::taskIs(int number, const char* taskName) {
  if (this->synchronous()) return;
  auto& task = this->tasks_[number];
  task = this->machine().scheduler()->taskIs(this->machine().control().priority, taskName);
  task->dispatchIs([this, number] { driveScan(number); }, this);
}

template <class Entity>
void TopWalker<Entity>::taskDel(int number) {
  const Kelp::Ptr<Kiv::TimerTask> task = std::move(this->tasks_[number]);
  if (!task) return;
  task->dispatchDel(this);
}

template <class Entity>
void TopWalker<Entity>::handleScanDone(int number) {
  if (this->initialScanDone()) taskDel(number);
  scanFlagIs(number);
}

}  // namespace Velo::VeloAcl
