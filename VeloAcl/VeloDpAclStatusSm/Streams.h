#pragma once

#include <VeloAcl/VeloDpAclStatusSm/EventsUnderWay.h>
#include <VeloAcl/VeloDpAclStatusSm/Outputs.h>

#include <functional>
#include <optional>

namespace Velo::VeloAcl {

/// The list that an event is about; nothing when the list is gone.
using ListCfg = std::optional<Kelp::Ptr<const Acl::AclConfig>>;

/// The streams of the status machine: the way of a keyed event from the walker or poll that raised it to the
/// status. A stream drops events before the second pass, traces itself at level 7 and a failed filter at
/// level 6, writes, and passes the event on. A write may cause another event about the same thing, which
/// overtakes this one (EventsUnderWay), or stop the machine. So an event asks for that before it writes on.
/// It does not ask before it deletes a parent that is empty then: an empty parent is wrong, whoever has
/// emptied it.
class MachineStreams : public MachineOutputs {
 public:
  // Events of the walkers. The rule is null when it is gone.
  void eventToAclConfigStream(Acl::AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg);
  void eventToAclIntfConfigStream(Acl::AclType aclType, Acl::AclDirection direction,
                                  const Nimnet::IntfId& intfId, const std::optional<Kelp::String>& aclName);
  void eventToIpRuleCfgStream(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid,
                              const Acl::IpRuleConfig* ruleConfig);
  void eventToIp6RuleCfgStream(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid,
                               const Acl::Ip6RuleConfig* ruleConfig);
  void eventToMacRuleCfgStream(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid,
                               const Acl::MacRuleConfig* ruleConfig);
  void eventToRix_pipeline0(const Velo::Counter::AclTypeNameTuple& keyTuple, const Kiv::UniqueId& uid,
                            bool exists);
  /// The event of the polls.
  void eventToUpdateCounters(const CounterKey& key, const Velo::Counter::VeloDpAclCounter& counter);

 protected:
  using MachineOutputs::MachineOutputs;

 private:
  Kelp::Ptr<Acl::AclStatus> statusOf(Acl::AclType aclType, const Kelp::String& aclName) const;

  // Lists and bindings.
  bool publishList(Acl::AclType aclType, const Kelp::String& aclName, bool leftOver);
  void publishBinding(Acl::AclType aclType, Acl::AclDirection direction, const Nimnet::IntfId& intfId,
                      const Kelp::String& aclName);
  void pruneDirection(Acl::AclType aclType, Acl::AclDirection direction);
  void pruneTypeStatus(Acl::AclType aclType);

  // The streams that the event of a list is passed on to.
  void eventToAclImplicitRuleCfgStream(Acl::AclType aclType, const Kelp::String& aclName,
                                       const ListCfg& aclCfg);
  void eventToAclIpRuleInitStream(Acl::AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg);
  void eventToAclIp6RuleInitStream(Acl::AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg);
  void eventToAclMacRuleInitStream(Acl::AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg);

  // Streams of rules, the same for all kinds.
  template <class Rule>
  void ruleCfgStream(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid,
                     const Rule* ruleConfig);
  template <class Rule>
  void ruleInitStream(Acl::AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg);
  void eventToRuleCfgHandlerStream(Acl::AclType aclType, const Kelp::String& aclName,
                                   const Kiv::UniqueId& uid, bool exists);
  void withdrawRules(Acl::AclType aclType, const Kelp::String& aclName,
                     const std::function<bool(const Kiv::UniqueId&)>& gone);
  void withdrawRulesGone(Acl::AclType aclType, const Kelp::String& aclName);

  EventsUnderWay<AclStatusStatusAclOutputKeyType> listEvents_;
  EventsUnderWay<AclStatusStatusIntfIntfOutputKeyType> bindingEvents_;
};

}  // namespace Velo::VeloAcl
