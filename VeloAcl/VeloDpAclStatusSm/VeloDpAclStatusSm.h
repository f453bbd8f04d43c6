#pragma once

#include <VeloAcl/VeloDpAclStatusSm/Polls.h>

#include <memory>

namespace Velo::VeloAcl {

class AclConfigSm3;
class AclIntfConfigSm0;
class RuleIdsByAclSm7;

/// Keeps the published status equal to what the dataplane enforces: lists and bindings, the status of every
/// rule and implicit drop, and the counters, copied once a second.
///
/// A dataflow: walkers (Walkers.h) over configuration and bindings raise keyed events; each enters a stream
/// (Streams.h), which filters it, writes the status and passes it on. Nothing is raised before
/// initialScanDone: the first pass of the scans builds the walkers, the second visits every element again
/// with its event. A status that an earlier machine left is reconciled after that: what no input produced
/// again is deleted (ReconciledOutput.h). Long work runs in tasks and yields.
///
/// Made in layers, each of which knows those below: MachineFrame, MachineOutputs, MachineStreams,
/// MachinePolls, and here the walkers and what happens when.
///
/// The plugin owns the machine; it owns its walkers, local state and tasks. Its destruction leaves the status
/// as it is, doDeleteAll() withdraws it first. One thread.
///
/// Whoever follows the status is told of a write while the machine is in the middle of an event. It may read,
/// follow and leave; change lists, rules, bindings and counters, which is carried out at once, and then the
/// event around it writes no more of what it knew (EventsUnderWay); withdraw or drop the machine, which lives
/// until the write returns. Two things end the process: putting back a list, a type or a direction of
/// bindings that is just being withdrawn (rules in force may be put back), since its walker is still there;
/// and an exception.
class VeloDpAclStatusSm final : public MachinePolls {
  ZEB_ENTITY(VeloDpAclStatusSm, MachinePolls)

 public:
  VeloDpAclStatusSm(const Kelp::Ptr<const Acl::Config>& aclConfig,
                    const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig,
                    const Arguments::Counters& inCounters, const Arguments::Counters& macOutCounters,
                    const Arguments::Counters& ipOutCounters, const Arguments::Counters& ip6OutCounters,
                    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Rix::SmControl& control);
  ~VeloDpAclStatusSm() override;

  /// Starts the machine, once. Stops the process when an argument is null.
  void handleInitialized();
  void handleInitialScanDone() override;
  /// Off is for times in which nothing changes; switched on again, the process ends when something has.
  void hasNotificationActiveIs(bool on);
  /// Withdraws from the status all that the machine derived, and ends it.
  void doDeleteAll();

  // The top walkers.
  const Kelp::Ptr<RuleIdsByAclSm7>& ruleIdsByAclSm7() const { return ruleIdsByAclSm7_; }
  const Kelp::Ptr<AclConfigSm3>& aclConfigSm3() const { return aclConfigSm3_; }
  const Kelp::Ptr<AclIntfConfigSm0>& aclIntfConfigSm0() const { return aclIntfConfigSm0_; }
  void ruleIdsByAclSm7Is();
  void aclConfigSm3Is();
  void aclIntfConfigSm0Is();
  void ruleIdsByAclSm7Del();
  void aclConfigSm3Del();
  void aclIntfConfigSm0Del();

  /// The debug channel, "DpAclStatusVelo".
  static const Zeb::TraceHandle& qtHandle();

 private:
  class ScanStateFollower;

  /// Visits the places of the top walkers, in the order in which these scan.
  template <class Visit>
  void forEachTop(const Visit& visit) {
    visit(ruleIdsByAclSm7_);
    visit(aclConfigSm3_);
    visit(aclIntfConfigSm0_);
  }
  void initialize();
  void createTasks();
  void runSecondPass();
  void startPolls();
  void inputsReady();
  void handleScanStateChange(const Zeb::Attribute& attribute);
  void stop();

  std::unique_ptr<ScanStateFollower> scanStateFollower_;
  friend Kelp::Ptr<RuleIdsByAclSm7> RuleIdsByAclSm7Is(const Kelp::Ptr<const LocalAttrStore>& entity,
                                                      VeloDpAclStatusSm& machine);
  friend Kelp::Ptr<AclConfigSm3> AclConfigSm3Is(const Kelp::Ptr<const Acl::Config>& entity,
                                                VeloDpAclStatusSm& machine);
  friend Kelp::Ptr<AclIntfConfigSm0> AclIntfConfigSm0Is(const Kelp::Ptr<const Acl::IntfConfig>& entity,
                                                        VeloDpAclStatusSm& machine);
  Kelp::Ptr<RuleIdsByAclSm7> ruleIdsByAclSm7_;
  Kelp::Ptr<AclConfigSm3> aclConfigSm3_;
  Kelp::Ptr<AclIntfConfigSm0> aclIntfConfigSm0_;
};

}  // namespace Velo::VeloAcl
