#pragma once

#include <Kelp/Assert.h>
#include <Rix/InReactor.h>
#include <VeloAcl/VeloDpAclStatusSm/Scan.h>

#include <functional>
#include <optional>
#include <string_view>

namespace Velo::VeloAcl {

class VeloDpAclStatusSm;

/// Base of the small machines that mirror the nested configuration: one walker for each entity that matters.
/// A walker follows its entity, keeps a child walker for each nested entity, and takes part in numbered
/// scans. These visit every element twice: first without events, to build the tree, then with an event for
/// each element.
///
/// The machine owns the top walkers, and each walker owns its children. A walker that was torn down is not
/// active and does nothing, even if somebody on the stack still holds it.
///
/// A scan may stop in the middle and continue later, in a run of the scan's task, which the top walker makes.
/// In the second pass only a scan that the top walker drives may stop, because it is continued. A walker that
/// is made by a reactor meanwhile is scanned to its end at once. So the event of no element is lost.
class Walker : public Rix::Gen::InputStateMachine {
 public:
  bool active() const { return machine_ != nullptr; }
  bool synchronous() const;
  VeloDpAclStatusSm& machine() const { return *machine_; }
  /// The enclosing walker, null for a top walker and for one that was torn down.
  Walker* parent() const { return parent_; }
  void parentIs(Walker* parent) { parent_ = parent; }
  std::string_view name() const { return name_; }

  /// Switches the notification of this walker and of everything below it. If something has changed while it
  /// was off, the process ends when it is switched on.
  void hasNotificationActiveIs(bool on) override;

  /// Starts to follow the entity, and scans it. To be called when the walker is in the place where others
  /// look for it.
  void start();

  /// Withdraws everything that came from this walker and those below: an event without a value for every
  /// element that is still there. Ends the process when a change of the collection was not handled before.
  virtual void doDeleteAll() = 0;
  /// Ends this walker and those below silently: without events, and without callbacks from then on.
  void stop();

  /// Visits the elements in scan `number`, from where it has stopped, unless it is complete.
  virtual void scan(int number) = 0;
  virtual bool scanComplete(int number) const = 0;
  /// Whether the task of a scan says that its time is used up.
  bool shouldYield(int number) const;
  /// Whether the task of a scan is running.
  bool inTask(int number) const;

 protected:
  Walker(std::string_view name, VeloDpAclStatusSm& machine, Walker* parent,
         Kelp::Ptr<const Zeb::Entity> entity);
  ~Walker() override;

  /// A change of the watched entity, for an active walker.
  virtual void dispatch(const Zeb::Change& change) = 0;
  virtual void forEachChild(const std::function<void(Walker&)>& visit) = 0;
  /// Remembers the present versions of the collections.
  virtual void versionsSeen() = 0;
  /// A value that is different after any change of what is watched.
  virtual uint64_t mark() const = 0;
  /// What a top walker does when a scan has ended.
  virtual void handleScanDone(int) {}
  /// The tasks of this walker's tree; null when the walker was torn down.
  const Kelp::Ptr<ScanTasks>& scanTasks() const { return scanTasks_; }

  bool initialScanDone() const;

  /// Whether a scan is complete for the current pass.
  template <class Key>
  bool placeComplete(const ScanPlace<Key>& place) const {
    return place.progress == ScanProgress::complete ||
           (place.progress == ScanProgress::firstPassComplete && !initialScanDone());
  }

  /// All scans of elements use this. It calls handle(key) for each element, and then runs the same scan of
  /// the child that childOf(key) returns, if any. `elements` is a collection or a SingleElement; null when
  /// the watched entity is missing.
  template <class Elements, class Handle, class ChildOf>
  void scanElements(int number, ScanPlace<typename Elements::Key>& place, const Elements* elements,
                    const Handle& handle, const ChildOf& childOf);

 private:
  class ReactorScope;

  void enDispatch(const Zeb::Change& change) final;
  /// The task of a scan; null when there is none.
  Kiv::TimerTask* taskOf(int number) const;
  bool mayYield(int number) const;
  void traceScanStart(bool complete, bool resumed, size_t total) const;
  void traceScanStop(int number, bool forChild, size_t iterations, size_t total) const;
  void scanEnded(int number, bool firstPass, size_t iterations);

  const std::string_view name_;
  VeloDpAclStatusSm* machine_;
  Walker* parent_;
  Kelp::Ptr<ScanTasks> scanTasks_;
  std::optional<uint64_t> markWhenOff_;  // mark() when notification was switched off, until it is on again
};

template <class Elements, class Handle, class ChildOf>
void Walker::scanElements(int number, ScanPlace<typename Elements::Key>& place, const Elements* elements,
                          const Handle& handle, const ChildOf& childOf) {
  using Key = typename Elements::Key;
  if (!active()) return;
  const Kelp::Ptr<Walker> keep(this);
  const bool firstPass = !initialScanDone();
  const bool resumed = place.progress == ScanProgress::yielded && place.inFirstPass == firstPass;
  traceScanStart(placeComplete(place), resumed, elements ? elements->size() : 0);
  if (placeComplete(place)) return;
  KELP_ASSERT(elements,
              "en() && \"Sm args can only be null if marked as Optional in the SM type declaration\"");

  const auto stopAt = [&](const Key& key, bool forChild, size_t iterations) {
    place = {ScanProgress::yielded, key, firstPass};
    traceScanStop(number, forChild, iterations, elements->size());
  };
  size_t iterations = 0;
  auto at = resumed ? elements->from(*place.resumeKey) : elements->begin();
  while (at) {
    const Key key = at.key();
    handle(key);
    if (!active()) return;
    if (const Kelp::Ptr<Walker> child = childOf(key)) {
      child->scan(number);
      if (!active()) return;
      if (child->active() && !child->scanComplete(number)) return stopAt(key, true, iterations);
    }
    ++iterations;
    at.next();
    if (at && mayYield(number) && shouldYield(number)) return stopAt(at.key(), false, iterations);
  }
  place = {firstPass ? ScanProgress::firstPassComplete : ScanProgress::complete, std::nullopt, firstPass};
  scanEnded(number, firstPass, iterations);
}

}  // namespace Velo::VeloAcl
