#include <VeloAcl/VeloDpAclStatusSm/StreamValues.h>

/// The streams of lists and bindings.
namespace Velo::VeloAcl {

using Acl::AclDirection;
using Acl::AclType;
using Kiv::UniqueId;

Kelp::Ptr<Acl::AclStatus> MachineStreams::statusOf(AclType aclType, const Kelp::String& aclName) const {
  const auto lists = aclStatus()->status(aclType);
  return lists ? lists->acl(aclName) : nullptr;
}

/// A direction without bindings goes in the same step as the last of them, and so does its type.
void MachineStreams::pruneDirection(AclType aclType, AclDirection direction) {
  const auto types = aclStatus()->status(aclType);
  const auto bindings = types ? types->intf(direction) : nullptr;
  if (bindings && bindings->intf().empty()) types->intfDel(direction);
  pruneTypeStatus(aclType);
}

/// A type status without lists and bindings goes in the same step as the last of them.
void MachineStreams::pruneTypeStatus(AclType aclType) {
  const auto lists = aclStatus()->status(aclType);
  if (lists && lists->acl().empty() && lists->intf().empty()) aclStatus()->statusDel(aclType);
}

/// The status of a list that has come. False when the event is over.
bool MachineStreams::publishList(AclType aclType, const Kelp::String& aclName, bool leftOver) {
  if (leftOver) {
    traceStatus(9,
                "aclStatusStatusAclOutput: deleting what an earlier run left of k1={}, k2={}, to begin anew",
                aclType, aclName);
    traceStatus(7, "into( aclStatus.status[ aclType ].acl[ aclName ] ): deleting k1={}, k2={}", aclType,
                aclName);
    aclStatusStatusAclOutput_.drop(*aclStatus()->status(aclType), aclName);
    if (stopped_ || listEvents_.overtaken()) return false;
  }
  Kelp::Ptr<Acl::AclTypeStatus> lists;
  do {
    lists = aclStatus()->statusIs(aclType);
    if (stopped_ || listEvents_.overtaken()) {
      pruneTypeStatus(aclType);
      return false;
    }
    // Whoever was told of a new type may have taken it away again with another list.
  } while (aclStatus()->status(aclType) != lists);
  traceStatus(7, "into( aclStatus.status[ aclType ].acl[ aclName ] ): inserting k1={}, k2={}, value={}",
              aclType, aclName, aclName);
  const auto list = lists->aclIs(aclName);
  if (stopped_ || listEvents_.overtaken()) return false;
  aclStatusStatusAclOutput_.recordIfPending(list);
  return true;
}

void MachineStreams::eventToAclConfigStream(AclType aclType, const Kelp::String& aclName,
                                            const ListCfg& aclCfg) {
  if (!streaming()) return;
  traceStatus(7, "aclConfigStream = from( aclConfig.config[].acl[] ): aclType={} aclName={} aclCfg={}",
              aclType, aclName, text(aclCfg));
  const AclStatusStatusAclOutputKeyType key{aclType, aclName};
  const EventsUnderWay<AclStatusStatusAclOutputKeyType>::Event event(listEvents_, key);
  const bool leftOver = aclStatusStatusAclOutput_.isLeftOver(key);
  const bool isNew = !statusOf(aclType, aclName);
  aclStatusStatusAclOutput_.seenIfPending(key);
  if (aclCfg) {
    if (!publishList(aclType, aclName, leftOver)) return;
    // A list that was taken away while its rules were being recorded has left some, which nobody publishes.
    if (isNew) withdrawRules(aclType, aclName, [](const UniqueId&) { return true; });
  } else if (const auto lists = aclStatus()->status(aclType)) {
    traceStatus(7, "into( aclStatus.status[ aclType ].acl[ aclName ] ): deleting k1={}, k2={}", aclType,
                aclName);
    lists->aclDel(aclName);
    pruneTypeStatus(aclType);
  }
  eventToAclImplicitRuleCfgStream(aclType, aclName, aclCfg);
  eventToAclIpRuleInitStream(aclType, aclName, aclCfg);
  eventToAclMacRuleInitStream(aclType, aclName, aclCfg);
  eventToAclIp6RuleInitStream(aclType, aclName, aclCfg);
}

void MachineStreams::eventToAclIntfConfigStream(AclType aclType, AclDirection direction,
                                                const Nimnet::IntfId& intfId,
                                                const std::optional<Kelp::String>& aclName) {
  if (!streaming()) return;
  traceStatus(7,
              "aclIntfConfigStream = from( aclIntfConfig.config[].intf[].intf[] ): aclType={} direction={} "
              "intfId={} aclName={}",
              aclType, direction, intfId, text(aclName));
  const AclStatusStatusIntfIntfOutputKeyType key{aclType, direction, intfId};
  const EventsUnderWay<AclStatusStatusIntfIntfOutputKeyType>::Event event(bindingEvents_, key);
  aclStatusStatusIntfIntfOutput_.seenIfPending(key);
  if (aclName) return publishBinding(aclType, direction, intfId, *aclName);
  const auto types = aclStatus()->status(aclType);
  const auto bindings = types ? types->intf(direction) : nullptr;
  if (!bindings) return;
  traceStatus(
      7, "into( aclStatus.status[ aclType ].intf[ direction ].intf[ intfId ] ): deleting k1={}, k2={}, k3={}",
      aclType, direction, intfId);
  bindings->intfDel(intfId);
  pruneDirection(aclType, direction);
}

void MachineStreams::publishBinding(AclType aclType, AclDirection direction, const Nimnet::IntfId& intfId,
                                    const Kelp::String& aclName) {
  Kelp::Ptr<Acl::AclIntf> bindings;
  do {
    const auto types = aclStatus()->statusIs(aclType);
    if (!stopped_ && !bindingEvents_.overtaken()) bindings = types->intfIs(direction);
    if (stopped_ || bindingEvents_.overtaken()) return pruneDirection(aclType, direction);
    // Whoever was told of a new direction may have taken it away again with another binding.
  } while (!aclStatus()->status(aclType) || aclStatus()->status(aclType)->intf(direction) != bindings);
  traceStatus(7,
              "into( aclStatus.status[ aclType ].intf[ direction ].intf[ intfId ] ): inserting k1={}, "
              "k2={}, k3={}, value={}",
              aclType, direction, intfId, aclName);
  bindings->intfIs(intfId, aclName);
}

}  // namespace Velo::VeloAcl
