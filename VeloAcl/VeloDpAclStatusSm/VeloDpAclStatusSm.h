#pragma once

#include <VeloAcl/VeloDpAclStatusSm/Polls.h>

#include <memory>
#include <tuple>

namespace Velo::VeloAcl {

class AclConfigSm3;
class AclIntfConfigSm0;
class RuleIdsByAclSm7;

/// Keeps the published status equal to what the dataplane enforces: lists and bindings, the status of every
/// rule and implicit drop, and the counters, which are copied once a second.
///
/// It is a dataflow. Walkers (Walkers.h) over configuration and bindings raise keyed events. An event enters
/// a stream (Streams.h), which filters it, writes the status and passes it on. No event is raised before
/// initialScanDone: the first pass of the scans builds the walkers, the second pass visits every element
/// again with its event. After that a status that an earlier machine has left is reconciled: entries that no
/// input has produced again are deleted (ReconciledOutput.h). Long work runs in tasks and yields.
///
/// It is made of layers, each of which knows those below: MachineFrame, MachineOutputs, MachineStreams,
/// MachinePolls, and this class with the walkers and the order of events.
///
/// The plugin owns the machine. The machine owns its walkers, local state and tasks. Its destructor leaves
/// the status as it is; doDeleteAll() withdraws it first. For one thread.
///
/// A handler that follows the status is told of a write while the machine is in the middle of an event. A
/// handler may
///
/// - read, follow, and stop following;
/// - change lists, rules, bindings and counters: that is carried out at once, and the event around it writes
///   nothing of what it knew before (EventsUnderWay);
/// - withdraw or drop the machine, which lives until the write returns.
///
/// Two things end the process: an exception; and putting back a list, a type, or a direction of bindings that
/// is just being withdrawn, because its walker still exists. (Rules in force may be put back.)
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
  /// It may be off only while nothing changes: if something has changed, the process ends when it is switched
  /// on.
  void hasNotificationActiveIs(bool on);
  /// Withdraws everything from the status that the machine has written, and ends the machine.
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

  /// The places of the top walkers, in the order in which these scan.
  auto tops() { return std::tie(ruleIdsByAclSm7_, aclConfigSm3_, aclIntfConfigSm0_); }
  template <class Visit>
  void forEachTop(const Visit& visit) {
    std::apply([&](auto&... place) { (visit(place), ...); }, tops());
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
