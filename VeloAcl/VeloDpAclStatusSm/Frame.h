#pragma once

#include <Acl/Counters.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Kiv/TaskScheduler.h>
#include <Rix/InReactor.h>
#include <VeloAcl/VeloDpAclStatusSm/LocalAttrStore.h>
#include <VeloAcl/VeloDpAclStatusSm/OutputState.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanState.h>

#include <functional>

namespace Velo::VeloAcl {

/// The entities that a status machine reads, and the status that it writes. Every pointer is mandatory.
struct Arguments {
  using Counters = Kelp::Ptr<const Velo::Counter::VeloDpAclCounterColl>;

  Kelp::Ptr<const Acl::Config> aclConfig;
  Kelp::Ptr<const Acl::IntfConfig> aclIntfConfig;
  Counters inCounters, macOutCounters, ipOutCounters, ip6OutCounters;
  Kelp::Ptr<Acl::StatusDp> aclStatus;
  Rix::SmControl control;
};

/// The lowest layer of the status machine: its arguments, how far it is, and its own entities.
class MachineFrame : public Zeb::Entity {
 public:
  using Counters = Velo::Counter::VeloDpAclCounterColl;
  using CounterKey = Velo::Counter::VeloDpAclCounterKey;
  using Scheduler = Kelp::Ptr<Kiv::TaskScheduler>;

  const Kelp::Ptr<const Acl::Config>& aclConfig() const { return args_.aclConfig; }
  const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig() const { return args_.aclIntfConfig; }
  const Arguments::Counters& inCounters() const { return args_.inCounters; }
  const Arguments::Counters& macOutCounters() const { return args_.macOutCounters; }
  const Arguments::Counters& ipOutCounters() const { return args_.ipOutCounters; }
  const Arguments::Counters& ip6OutCounters() const { return args_.ip6OutCounters; }
  const Kelp::Ptr<Acl::StatusDp>& aclStatus() const { return args_.aclStatus; }
  const Rix::SmControl& control() const { return args_.control; }

  bool synchronous() const { return synchronous_; }
  bool initialized() const { return initialized_; }
  bool initialScanDone() const { return initialScanDone_; }
  /// The machine has ended. A handler that follows the status may end it in the middle of an event, so this
  /// must be asked after a write and before the next one.
  bool stopped() const { return stopped_; }
  /// Events reach the streams.
  bool streaming() const { return initialScanDone_ && !stopped_; }
  /// Every output has what the inputs say.
  bool ready() const { return outputState_ && outputState_->ready(); }
  /// Ready, and no copy of counters in progress.
  bool idle() const { return ready() && (synchronous_ || scanState_->idle()); }

  // The machine's own entities, from handleInitialized() on.
  Kelp::Ptr<InputSmScanState> inputSmScanState() { return scanState_.ptr(); }
  Kelp::Ptr<OutputState> outputState() { return outputState_.ptr(); }
  Kelp::Ptr<LocalAttrStore> localAttrStore() { return localAttrStore_.ptr(); }
  const Scheduler& scheduler() const { return scheduler_; }

  /// Ends the first pass when all its scans are complete, and runs the second.
  virtual void handleInitialScanDone() = 0;
  /// Runs work of the machine that is started from outside. Keeps the machine alive meanwhile, does nothing
  /// when it is stopped, and ends the process at an exception.
  void withMachine(const std::function<void()>& run);

 protected:
  explicit MachineFrame(const Arguments& args) : Entity("VeloDpAclStatusSm"), args_(args) {}
  void checkArguments() const;

  const Arguments args_;
  bool synchronous_ = false;
  bool initialized_ = false;
  bool initialScanDone_ = false;
  bool stopped_ = false;
  Scheduler scheduler_;
  Zeb::Owned<InputSmScanState> scanState_;
  Zeb::Owned<OutputState> outputState_;
  Zeb::Owned<LocalAttrStore> localAttrStore_;
};

}  // namespace Velo::VeloAcl
