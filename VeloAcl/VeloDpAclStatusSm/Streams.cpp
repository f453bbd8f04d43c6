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

/// When a direction has lost its last binding it is deleted in the same step, and so is its type if that is
/// empty then.
void MachineStreams::pruneDirection(AclType aclType, AclDirection direction) {
  const auto types = aclStatus()->status(aclType);
  const auto bindings = types ? types->intf(direction) : nullptr;
  if (bindings && bindings->intf().empty()) types->intfDel(direction);
  pruneTypeStatus(aclType);
}

/// When a type status has lost its last list or binding it is deleted in the same step.
void MachineStreams::pruneTypeStatus(AclType aclType) {
  const auto lists = aclStatus()->status(aclType);
  if (lists && lists->acl().empty() && lists->intf().empty()) aclStatus()->statusDel(aclType);
}

/// Publishes the status of a new list. False when the event is over.
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
    // A handler that was told of the new type may have deleted it again, with another list.
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
    // A list that was deleted while its rules were recorded has left some of them, which nobody would
    // publish.
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
  traceStatus(
      7,
      "aclIntfConfigStream = from( aclIntfConfig.config[].intf[].intf[] ): aclType={} direction={} intfId={} aclName={}",
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
    // A handler that was told of the new direction may have deleted it again, with another binding.
  } while (!aclStatus()->status(aclType) || aclStatus()->status(aclType)->intf(direction) != bindings);
  traceStatus(
      7,
      "into( aclStatus.status[ aclType ].intf[ direction ].intf[ intfId ] ): inserting k1={}, k2={}, k3={}, value={}",
      aclType, direction, intfId, aclName);
  bindings->intfIs(intfId, aclName);
}

}  // namespace Velo::VeloAcl
