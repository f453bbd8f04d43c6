#pragma once

#include <Acl/Counters.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Kiv/UniqueId.h>
#include <Nimnet/IntfId.h>
#include <Velo/Mirroring.h>
#include <Velo/PacketContext.h>
#include <VeloAcl/VeloPlugin/BoundLists.h>
#include <VeloAcl/VeloPlugin/CounterCache.h>

namespace Velo::VeloAcl {

/// Judges packets by the access lists: finds the lists that are bound to an interface, asks the matcher, and
/// then counts, mirrors and decides. Shared by the plugin and its two steps. It keeps nothing about a packet.
/// It reads configuration, bindings and status directly, so that a change is effective for the next packet.
///
/// Mind the verdicts: the process functions return true for "may continue", shouldDropPkt returns true for
/// "drop".
class DataplaneAclHelper : public Kelp::Node, public Zeb::Reflected {
  ZEB_ENTITY(DataplaneAclHelper, Zeb::Reflected)

 public:
  using Counters = Velo::Counter::VeloDpAclCounterColl;
  using CounterKey = Velo::Counter::VeloDpAclCounterKey;

  DataplaneAclHelper(const Kelp::Ptr<Acl::Config>& aclConfig, const Kelp::Ptr<Acl::IntfConfig>& intfConfig,
                     const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Kelp::Ptr<Counters>& inCounters,
                     const Kelp::Ptr<Counters>& macOutCounters, const Kelp::Ptr<Counters>& ipOutCounters,
                     const Kelp::Ptr<Counters>& ip6OutCounters);
  ~DataplaneAclHelper() override;

  /// Asks all lists of one interface: for a member of a port-channel the lists of the port-channel first,
  /// then its own; on each the MAC list before the IP list. Stops at the first one that drops the packet.
  bool processPkt(const Kelp::Ptr<PacketContext>& ctx, Acl::AclDirection dir, Nimnet::IntfId intf);
  /// Asks the MAC list. A packet without an Ethernet header passes.
  bool processL2Pkt(const Kelp::Ptr<PacketContext>& ctx, Acl::AclDirection dir, Nimnet::IntfId intf);
  /// Asks the IPv4 or IPv6 list. A packet without an IP header passes.
  bool processL3Pkt(const Kelp::Ptr<PacketContext>& ctx, Acl::AclDirection dir, Nimnet::IntfId intf);

  /// Asks one list. The packet passes when no list is bound, or the list does not exist. It must have the
  /// header that the type of list needs. Throws std::range_error when the matched rule has an MPLS label that
  /// is out of range.
  bool shouldDropPkt(const Kelp::Ptr<PacketContext>& ctx, Nimnet::IntfId intf, Acl::AclDirection dir,
                     Acl::AclType type);

  /// The counter of a key, made on first use.
  Kelp::Ptr<Velo::Counter::VeloDpAclCounter> counterForKey(const CounterKey& key);
  /// Counts one packet and sets the counter's time.
  void countPkt(const Kelp::Ptr<const Nimnet::Pkt>& pkt, Acl::AclDirection dir, Acl::AclType type,
                const Kelp::String& aclName, const Kiv::UniqueId& ruleId);

  void mirroringHelperIs(const Kelp::Ptr<MirroringStepHelper>& helper) { mirroringHelper_ = helper; }

  ZEB_HELD(Acl::Config, aclConfig)
  ZEB_HELD(Acl::IntfConfig, intfConfig)
  ZEB_HELD(Acl::StatusDp, aclStatus)
  ZEB_HELD(Counters, inCounters)
  ZEB_HELD(Counters, macOutCounters)
  ZEB_HELD(Counters, ipOutCounters)
  ZEB_HELD(Counters, ip6OutCounters)
  ZEB_HELD(MirroringStepHelper, mirroringHelper)

 private:
  friend class AclBurst;
  struct Lookup;
  /// Reports that a bound list does not exist; `typeKnown`: other lists of its type do.
  static void tellNoList(const Lookup& at, bool typeKnown);
  /// Calls match(&rule, &ruleId), a matcher, and acts on its result.
  template <class Rule, class Match>
  bool dropsBy(const Lookup& at, const Match& match);
  bool dropOnMatch(const Lookup& at, const Acl::RuleConfig& rule, bool deny);
  bool dropOnNoMatch(const Lookup& at);
  /// Counts the packet for a rule; null: for the list's implicit drop. If the packet is only tried, tells its
  /// trial instead.
  void account(const Lookup& at, const Acl::RuleConfig* rule, const Kiv::UniqueId& ruleId);
  const Kelp::Ptr<Counters>& countersFor(Acl::AclDirection dir, Acl::AclType type) const;
  /// A default rule never does.
  template <class Rule>
  static bool denies(const Rule& rule) {
    return rule.action() == Acl::Action::deny && !rule.isEq(Rule());
  }
  /// The id of a list's implicit drop; empty when it has none yet.
  Kiv::UniqueId implicitDropId(Acl::AclType type, const Kelp::String& aclName) const;
  /// The counter of a rule, null when it has still to be made.
  Velo::Counter::VeloDpAclCounter* knownCounter(Acl::AclDirection dir, Acl::AclType type,
                                                const Kelp::String& aclName, const Kiv::UniqueId& ruleId);
  static void countDenied(VeloNamedCounters& counters, uint64_t packets = 1);
  static void countNoMatch(VeloNamedCounters& counters, uint64_t packets = 1);

  BoundLists boundLists_;
  CounterCache counterCache_;
};

Kelp::Ptr<DataplaneAclHelper> dataplaneAclHelperFactory(
    const Kelp::Ptr<Acl::Config>& aclConfig, const Kelp::Ptr<Acl::IntfConfig>& intfConfig,
    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Kelp::Ptr<DataplaneAclHelper::Counters>& inCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& macOutCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& ipOutCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& ip6OutCounters);
Kelp::Ptr<DataplaneAclHelper> DataplaneAclHelperIs(
    const Kelp::Ptr<Acl::Config>& aclConfig, const Kelp::Ptr<Acl::IntfConfig>& intfConfig,
    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Kelp::Ptr<DataplaneAclHelper::Counters>& inCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& macOutCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& ipOutCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& ip6OutCounters);

}  // namespace Velo::VeloAcl
