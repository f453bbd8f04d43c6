#pragma once

#include <Kiv/TaskScheduler.h>
#include <Zeb/Entity.h>

namespace Rix {

/// How a state machine runs.
struct SmControl {
  enum Mode : uint8_t { synchronous = 1, asynchronous = 2, machineDefault = 3 };

  Kelp::Ptr<Kiv::TaskScheduler> scheduler;  ///< null: the machine finds or creates one
  int priority = 0;                         ///< of the machine's tasks
  Kelp::String name;
  uint8_t mode = machineDefault;
  bool traceAll = false;  ///< for machines that thin out their traces

  /// Equal in every field: machines that are made with them behave alike.
  bool operator==(const SmControl&) const = default;
};

namespace Gen {

/// A reference-counted reactor. It follows at most one entity, which it holds, while its notification is on.
/// It keeps itself alive while it handles a change, so that a handler may drop the last reference to it. A
/// reactor that is done handles nothing any further; it is freed in the next sweep (zebDoZombieReactors),
/// because functions of it may still be on the stack.
class InReactor : public Kelp::Node, private Zeb::Notifiee {
 public:
  /// Switches change notification on (the watched entity's publisher has this reactor as a subscriber) or
  /// off.
  virtual void hasNotificationActiveIs(bool on);
  bool hasNotificationActive() const { return nodeFlag(Kelp::nodeNotifying); }

  /// From now on no change is handled. The object stays until the next sweep.
  void doneIs();
  bool done() const { return done_; }

 protected:
  explicit InReactor(Kelp::Ptr<const Zeb::Entity> watched) : watched_(std::move(watched)) {}
  ~InReactor() override = default;

  const Kelp::Ptr<const Zeb::Entity>& watchedEntity() const { return watched_; }
  /// A change of the watched entity.
  virtual void enDispatch(const Zeb::Change& change) = 0;

 private:
  void handleChange(const Zeb::Change& change) final;

  Kelp::Ptr<const Zeb::Entity> watched_;
  bool done_ = false;
};

/// The sweep: releases the reactors that are done. Call it where no reactor is on the stack. Returns their
/// number.
size_t zebDoZombieReactors();

/// A reactor that is part of a machine: initialised once, after construction, by whoever creates it.
class InputStateMachine : public InReactor {
 public:
  /// Runs the first scan, the first time only; call it when the object is complete and referenced. The scan
  /// may let go of the machine.
  void initialize() {
    if (initialized_) return;
    initialized_ = true;
    const Kelp::Ptr<InputStateMachine> keep(this);
    doInputScan();
  }

 protected:
  using InReactor::InReactor;
  virtual void doInputScan() = 0;

 private:
  bool initialized_ = false;
};

}  // namespace Gen
}  // namespace Rix
