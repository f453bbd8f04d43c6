#pragma once

#include <Kelp/Assert.h>
#include <Kiv/TaskScheduler.h>
#include <Rix/InReactor.h>
#include <Zeb/HashMap2018.h>

#include <array>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

namespace Velo::VeloAcl {

class VeloDpAclStatusSm;

/// One walker's place in one numbered scan.
enum class ScanProgress : uint8_t { notStarted = 0, yielded = 1, complete = 2, firstPassComplete = 3 };

template <class Key>
struct ScanPlace {
  ScanProgress progress = ScanProgress::notStarted;
  std::optional<Key> resumeKey;
  bool inFirstPass = false;  ///< the resume key was saved in the first pass; the second starts over
};

/// Base of the small machines that mirror the nested configuration, one walker for each entity that matters.
/// A walker follows its entity, keeps a child walker for each nested entity, and takes part in numbered scans
/// that visit every element: first to build the tree, without events, then once more with an event each.
///
/// Who owns whom: the machine the top walkers, each walker its children. A walker that was torn down is not
/// active any more and does nothing, however long somebody on the stack still holds it.
///
/// A scan may stop in the middle and go on later, in a run of its scan's task, which the top walker owns. In
/// the second pass only a scan that the top walker drives may stop, since that one comes back; what a reactor
/// makes on the way is scanned to its end at once. So no element's event is lost.
class Walker : public Rix::Gen::InputStateMachine {
 public:
  static constexpr int scanCount = 6;

  bool active() const { return machine_ != nullptr; }
  bool synchronous() const;
  VeloDpAclStatusSm& machine() const { return *machine_; }
  /// The enclosing walker, null for a top walker and for one that was torn down.
  Walker* parent() const { return parent_; }
  void parentIs(Walker* parent) { parent_ = parent; }
  std::string_view name() const { return name_; }

  /// Switches the notification of this walker and everything below it. A change made while it was off ends
  /// the process when it is on again.
  void hasNotificationActiveIs(bool on) override;

  /// Follows the entity from here on and scans it. For whoever makes the walker, once it is where others look
  /// for it.
  void start();

  /// Withdraws all that came from this walker and those below: an event without value for every element that
  /// is still there. Stops the process when a change of the collection has not been handled yet.
  virtual void doDeleteAll() = 0;
  /// Ends this walker and those below without a word: no event, no callback from here on.
  void stop();

  /// Visits the elements in scan `number`, from where it stopped, unless it is complete.
  virtual void scan(int number) = 0;
  virtual bool scanComplete(int number) const = 0;
  /// The task of a scan says that its time is used up.
  bool shouldYield(int number) const;
  /// The task of a scan is the one that runs.
  bool inTask(int number) const;

 protected:
  Walker(std::string_view name, VeloDpAclStatusSm& machine, Walker* parent,
         Kelp::Ptr<const Zeb::Entity> entity);
  ~Walker() override;

  /// A change of the watched entity, for an active walker.
  virtual void dispatch(const Zeb::Change& change) = 0;
  virtual void forEachChild(const std::function<void(Walker&)>& visit) = 0;
  /// Takes note that the collections are as they are.
  virtual void versionsSeen() {}
  /// Another value after any change of what is watched.
  virtual uint64_t mark() const = 0;
  /// What a top walker does when a scan has ended.
  virtual void handleScanDone(int) {}

  bool initialScanDone() const;

  /// "Complete" as far as the current pass goes.
  template <class Key>
  bool placeComplete(const ScanPlace<Key>& place) const {
    return place.progress == ScanProgress::complete ||
           (place.progress == ScanProgress::firstPassComplete && !initialScanDone());
  }

  /// The one way in which collections are scanned: `handle(key)` for each element, then the same scan of the
  /// child that `childOf(key)` gives, if any.
  template <class Map, class Handle, class ChildOf>
  void scanMap(int number, ScanPlace<typename Map::Key>& place, const Map* map, const Handle& handle,
               const ChildOf& childOf);
  /// The same for an attribute with at most one element.
  template <class Handle, class ChildOf>
  void scanSingle(int number, ScanPlace<bool>& place, bool present, const Handle& handle,
                  const ChildOf& childOf);

  /// Top walkers: the tasks of the scans, and whether a scan is being driven just now.
  std::array<Kelp::Ptr<Kiv::TimerTask>, scanCount> tasks_;
  std::array<int, scanCount> driving_{};

 private:
  class ReactorScope;

  void enDispatch(const Zeb::Change& change) final;
  const Walker& top() const { return parent_ ? parent_->top() : *this; }
  Walker& top() { return parent_ ? parent_->top() : *this; }
  const Kelp::Ptr<Kiv::TimerTask>& taskOf(int number) const { return top().tasks_[number]; }
  bool mayYield(int number) const;
  void traceScanStart(bool complete, bool resumed, size_t total) const;
  void traceScanStop(int number, bool forChild, size_t iterations, size_t total) const;
  void scanEnded(int number, bool firstPass, size_t iterations);

  const std::string_view name_;
  VeloDpAclStatusSm* machine_;
  Walker* parent_;
  std::optional<uint64_t> markWhenOff_;  // while notification is off again
};

template <class Map, class Handle, class ChildOf>
void Walker::scanMap(int number, ScanPlace<typename Map::Key>& place, const Map* map, const Handle& handle,
                     const ChildOf& childOf) {
  using Key = typename Map::Key;
  if (!active()) return;
  const Kelp::Ptr<Walker> keep(this);
  const bool firstPass = !initialScanDone();
  const bool resumed = place.progress == ScanProgress::yielded && place.inFirstPass == firstPass;
  traceScanStart(placeComplete(place), resumed, map ? map->size() : 0);
  if (placeComplete(place)) return;
  KELP_ASSERT(map, "en() && \"Sm args can only be null if marked as Optional in the SM type declaration\"");

  const auto stopAt = [&](const Key& key, bool forChild, size_t iterations) {
    place = {ScanProgress::yielded, key, firstPass};
    traceScanStop(number, forChild, iterations, map->size());
  };
  size_t iterations = 0;
  auto at = resumed ? map->from(*place.resumeKey) : map->begin();
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

template <class Handle, class ChildOf>
void Walker::scanSingle(int number, ScanPlace<bool>& place, bool present, const Handle& handle,
                        const ChildOf& childOf) {
  Zeb::HashMap2018<bool, bool> single;
  if (present) single.put(true, true);
  scanMap(
      number, place, &single, [&](bool) { handle(); }, [&](bool) { return childOf(); });
}

}  // namespace Velo::VeloAcl
