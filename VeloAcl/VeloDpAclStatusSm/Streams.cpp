#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <Zeb/System.h>

/// The streams: what an event goes through from the walker that raised it to the status that it writes. Every
/// stream drops what comes before the second pass, traces itself at level 7, and a failed filter at level 6.
namespace Velo::VeloAcl {

using Acl::AclDirection;
using Acl::AclType;
using Acl::RuleStatus;
using Kiv::UniqueId;
using Velo::Counter::AclTypeNameTuple;

namespace {

using ListCfg = std::optional<Kelp::Ptr<const Acl::AclConfig>>;

const char* text(const ListCfg& list) { return list ? "present" : "absent"; }
std::string_view text(const std::optional<Kelp::String>& name) {
  return name ? name->view() : std::string_view("absent");
}

RuleStatus freshRuleStatus() { return {0, 0, Zeb::System::currentTime().seconds(), true}; }

constexpr auto dropType = Acl::ImplicitRuleType::drop;

/// A rule in a trace, by its text, which lies elsewhere in memory and is read only when it is formatted.
struct RuleText {
  const Acl::RuleConfig* rule;
};

}  // namespace
}  // namespace Velo::VeloAcl

template <>
struct fmt::formatter<Velo::VeloAcl::RuleText> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(Velo::VeloAcl::RuleText shown, Context& ctx) const {
    const std::string_view text = shown.rule ? shown.rule->text.view() : std::string_view("absent");
    return fmt::formatter<std::string_view>::format(text, ctx);
  }
};

namespace Velo::VeloAcl {

Kelp::Ptr<Acl::AclStatus> VeloDpAclStatusSm::statusOf(AclType aclType, const Kelp::String& aclName) const {
  const auto lists = aclStatus_->status(aclType);
  return lists ? lists->acl(aclName) : nullptr;
}

/// A type status without lists and bindings goes in the same step as the last of them.
void VeloDpAclStatusSm::pruneTypeStatus(AclType aclType) {
  const auto lists = aclStatus_->status(aclType);
  if (lists && lists->acl().empty() && lists->intf().empty()) aclStatus_->statusDel(aclType);
}

// ---- lists and bindings
// ------------------------------------------------------------------------------------

void VeloDpAclStatusSm::eventToAclConfigStream(AclType aclType, const Kelp::String& aclName,
                                               const ListCfg& aclCfg) {
  if (!streaming()) return;
  traceStatus(7, "aclConfigStream = from( aclConfig.config[].acl[] ): aclType={} aclName={} aclCfg={}",
              aclType, aclName, text(aclCfg));
  const bool comesLate = aclStatusStatusAclOutput_.pending &&
                         outputState_->aclAclStatusPtrRuleStatusOutputReady() &&
                         !aclStatusStatusAclOutputSeenHas({aclType, aclName});
  if (aclStatusStatusAclOutput_.pending) aclStatusStatusAclOutputSeenIs({aclType, aclName});
  if (aclCfg) {
    const auto lists = aclStatus_->statusIs(aclType);
    if (stopped_) return;
    traceStatus(7, "into( aclStatus.status[ aclType ].acl[ aclName ] ): inserting k1={}, k2={}, value={}",
                aclType, aclName, aclName);
    const auto list = lists->aclIs(aclName);
    if (aclAclStatusPtrImplicitRuleStatusOutput_.pending)
      aclAclStatusPtrImplicitRuleStatusOutput_.ptrSeen.record(list);
    if (aclAclStatusPtrImplicitRuleIdOutput_.pending)
      aclAclStatusPtrImplicitRuleIdOutput_.ptrSeen.record(list);
    if (aclAclStatusPtrRuleStatusOutput_.pending) aclAclStatusPtrRuleStatusOutput_.ptrSeen.record(list);
    if (comesLate) {
      // An earlier run's status of the list, which was about to go, stays after all; but the rules have been
      // reconciled already, and nobody would look at the old ones in it again.
      for (auto rule = list->ruleStatus().begin(); rule && !stopped_; rule.next())
        list->ruleStatusDel(rule.key());
    }
  } else if (const auto lists = aclStatus_->status(aclType)) {
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

void VeloDpAclStatusSm::eventToAclIntfConfigStream(AclType aclType, AclDirection direction,
                                                   const Nimnet::IntfId& intfId,
                                                   const std::optional<Kelp::String>& aclName) {
  if (!streaming()) return;
  traceStatus(7,
              "aclIntfConfigStream = from( aclIntfConfig.config[].intf[].intf[] ): aclType={} direction={} "
              "intfId={} aclName={}",
              aclType, direction, intfId, text(aclName));
  if (aclStatusStatusIntfIntfOutput_.pending)
    aclStatusStatusIntfIntfOutputSeenIs({aclType, direction, intfId});
  if (aclName) {
    const auto types = aclStatus_->statusIs(aclType);
    const auto bindings = stopped_ ? nullptr : types->intfIs(direction);
    if (stopped_) return pruneTypeStatus(aclType);
    traceStatus(7,
                "into( aclStatus.status[ aclType ].intf[ direction ].intf[ intfId ] ): inserting k1={}, "
                "k2={}, k3={}, value={}",
                aclType, direction, intfId, *aclName);
    bindings->intfIs(intfId, *aclName);
    return;
  }
  const auto types = aclStatus_->status(aclType);
  const auto bindings = types ? types->intf(direction) : nullptr;
  if (!bindings) return;
  traceStatus(
      7, "into( aclStatus.status[ aclType ].intf[ direction ].intf[ intfId ] ): deleting k1={}, k2={}, k3={}",
      aclType, direction, intfId);
  bindings->intfDel(intfId);
  if (bindings->intf().empty()) types->intfDel(direction);
  pruneTypeStatus(aclType);
}

// ---- implicit rules
// ----------------------------------------------------------------------------------------

void VeloDpAclStatusSm::eventToAclImplicitRuleCfgStream(AclType aclType, const Kelp::String& aclName,
                                                        const ListCfg& aclCfg) {
  if (!streaming()) return;
  const bool exists = aclCfg.has_value();
  traceStatus(7, "aclImplicitRuleCfgStream = merge( aclConfigStream ): aclType={} aclName={} exists={}",
              aclType, aclName, exists);
  const auto maybeStatus = statusOf(aclType, aclName);
  if (!exists || !maybeStatus) {
    traceStatus(6, "filter( ( exists && maybeStatus ) ) failed, terminating pipeline");
    return;
  }
  const auto ruleType = dropType;
  const std::optional<UniqueId> id = UniqueId::generateUniqueId();
  if (aclAclStatusPtrImplicitRuleIdOutput_.pending) {
    aclAclStatusPtrImplicitRuleIdOutput_.ptrSeen.add(maybeStatus, {ruleType});
  }
  if (id) {
    traceStatus(7, "into( status.implicitRuleId[ ruleType ] ): inserting k1={}, value={}", ruleType, *id);
    maybeStatus->implicitRuleIdIs(ruleType, *id);
  } else {
    traceStatus(7, "into( status.implicitRuleId[ ruleType ] ): deleting k1={}", ruleType);
    maybeStatus->implicitRuleIdDel(ruleType);
  }
  if (stopped_) return;
  const std::optional<RuleStatus> value = freshRuleStatus();
  if (aclAclStatusPtrImplicitRuleStatusOutput_.pending) {
    aclAclStatusPtrImplicitRuleStatusOutput_.ptrSeen.add(maybeStatus, {ruleType});
  }
  if (value) {
    traceStatus(7, "into( status.implicitRuleStatus[ ruleType ] ): inserting k1={}, value={}", ruleType,
                *value);
    maybeStatus->implicitRuleStatusIs(ruleType, *value);
  } else {
    traceStatus(7, "into( status.implicitRuleStatus[ ruleType ] ): deleting k1={}", ruleType);
    maybeStatus->implicitRuleStatusDel(ruleType);
  }
}

// ---- rules
// -------------------------------------------------------------------------------------------------

void VeloDpAclStatusSm::eventToIpRuleCfgStream(AclType aclType, const Kelp::String& aclName,
                                               const UniqueId& uid, const Acl::IpRuleConfig* ruleConfig) {
  if (!streaming()) return;
  traceStatus(7,
              "ipRuleCfgStream = from( aclConfig.config[].acl[].currCfg.ipRuleById[] ): aclType={} "
              "aclName={} uid={} ruleConfig={}",
              aclType, aclName, uid, RuleText{ruleConfig});
  eventToRuleCfgHandlerStream(aclType, aclName, uid, ruleConfig != nullptr);
}

void VeloDpAclStatusSm::eventToIp6RuleCfgStream(AclType aclType, const Kelp::String& aclName,
                                                const UniqueId& uid, const Acl::Ip6RuleConfig* ruleConfig) {
  if (!streaming()) return;
  traceStatus(7,
              "ip6RuleCfgStream = from( aclConfig.config[].acl[].currCfg.ip6RuleById[] ): aclType={} "
              "aclName={} uid={} ruleConfig={}",
              aclType, aclName, uid, RuleText{ruleConfig});
  eventToRuleCfgHandlerStream(aclType, aclName, uid, ruleConfig != nullptr);
}

void VeloDpAclStatusSm::eventToMacRuleCfgStream(AclType aclType, const Kelp::String& aclName,
                                                const UniqueId& uid, const Acl::MacRuleConfig* ruleConfig) {
  if (!streaming()) return;
  traceStatus(7,
              "macRuleCfgStream = from( aclConfig.config[].acl[].currCfg.macRuleById[] ): aclType={} "
              "aclName={} uid={} ruleConfig={}",
              aclType, aclName, uid, RuleText{ruleConfig});
  eventToRuleCfgHandlerStream(aclType, aclName, uid, ruleConfig != nullptr);
}

/// Records every rule of a list that has just come, whatever the status says; never takes one out.
template <class Rules>
void VeloDpAclStatusSm::initRules(AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg,
                                  AclType listType, const char* typeName, const char* rulesName,
                                  const Rules& rulesOf) {
  const auto rules = aclType == listType && aclCfg ? (*aclCfg)->currCfg() : nullptr;
  if (!rules) {
    traceStatus(
        6,
        "filter( ( ( ( aclType == Acl::AclType::{}() ) && aclCfg ) && ( *aclCfg ).currCfg ) ) failed, "
        "terminating pipeline",
        typeName);
    return;
  }
  const auto& map = rulesOf(*rules);
  traceStatus(6, " foreach( currCfg.{} ) flattening {} elements", rulesName, map.size());
  for (auto at = map.begin(); at && !stopped_; at.next()) {
    traceStatus(9, "Flattening element: {}", at.key());
    localAttrStore_->ruleIdsByAclIs({aclType, aclName})->ruleIdsIs(at.key());
  }
}

void VeloDpAclStatusSm::eventToAclIpRuleInitStream(AclType aclType, const Kelp::String& aclName,
                                                   const ListCfg& aclCfg) {
  if (!streaming()) return;
  traceStatus(7, "aclIpRuleInitStream = merge( aclConfigStream ): aclType={} aclName={} aclCfg={}", aclType,
              aclName, text(aclCfg));
  initRules(
      aclType, aclName, aclCfg, AclType::ip, "ip", "ipRuleById",
      [](const Acl::AclSubConfig& rules) -> auto& { return rules.ipRuleById(); });
}

void VeloDpAclStatusSm::eventToAclIp6RuleInitStream(AclType aclType, const Kelp::String& aclName,
                                                    const ListCfg& aclCfg) {
  if (!streaming()) return;
  traceStatus(7, "aclIp6RuleInitStream = merge( aclConfigStream ): aclType={} aclName={} aclCfg={}", aclType,
              aclName, text(aclCfg));
  initRules(
      aclType, aclName, aclCfg, AclType::ipv6, "ipv6", "ip6RuleById",
      [](const Acl::AclSubConfig& rules) -> auto& { return rules.ip6RuleById(); });
}

void VeloDpAclStatusSm::eventToAclMacRuleInitStream(AclType aclType, const Kelp::String& aclName,
                                                    const ListCfg& aclCfg) {
  if (!streaming()) return;
  traceStatus(7, "aclMacRuleInitStream = merge( aclConfigStream ): aclType={} aclName={} aclCfg={}", aclType,
              aclName, text(aclCfg));
  initRules(
      aclType, aclName, aclCfg, AclType::mac, "mac", "macRuleById",
      [](const Acl::AclSubConfig& rules) -> auto& { return rules.macRuleById(); });
}

void VeloDpAclStatusSm::eventToRuleCfgHandlerStream(AclType aclType, const Kelp::String& aclName,
                                                    const UniqueId& uid, bool exists) {
  if (!streaming()) return;
  traceStatus(
      7,
      "ruleCfgHandlerStream = merge( ipRuleCfgStream, ip6RuleCfgStream, macRuleCfgStream ): aclType={} "
      "aclName={} uid={} exists={}",
      aclType, aclName, uid, exists);
  const AclTypeNameTuple key{aclType, aclName};
  if (exists) {
    if (!statusOf(aclType, aclName)) {
      traceStatus(
          6,
          "filter( ( aclStatus.status[ aclType ]?.acl?[ aclName ] || ( !exists ) ) ) failed, terminating "
          "pipeline");
      return;
    }
    const auto ruleIds = localAttrStore_->ruleIdsByAclIs(key);
    traceStatus(7, "into( ruleIdsByAcl[ key ].ruleIds[ uid ] ): inserting k1={}, k2={}", key, uid);
    ruleIds->ruleIdsIs(uid);
    return;
  }
  const auto ruleIds = localAttrStore_->ruleIdsByAcl(key);
  if (!ruleIds) return;
  traceStatus(7, "into( ruleIdsByAcl[ key ].ruleIds[ uid ] ): deleting k1={}, k2={}", key, uid);
  ruleIds->ruleIdsDel(uid);
  // Whoever saw the id go may have begun another set under the key.
  if (ruleIds->ruleIds().empty() && localAttrStore_->ruleIdsByAcl(key) == ruleIds)
    localAttrStore_->ruleIdsByAclDel(key);
}

void VeloDpAclStatusSm::eventToRix_pipeline0(const AclTypeNameTuple& keyTuple, const UniqueId& uid,
                                             bool exists) {
  if (!streaming()) return;
  traceStatus(7, "Line 103: from( ruleIdsByAcl[].ruleIds[] ): keyTuple={} uid={} exists={}", keyTuple, uid,
              exists);
  const auto maybeStatus = statusOf(keyTuple.aclType, keyTuple.aclName);
  if (!maybeStatus) {
    traceStatus(6, "filter( maybeStatus ) failed, terminating pipeline");
    return;
  }
  auto& output = aclAclStatusPtrRuleStatusOutput_;
  if (exists) {
    const RuleStatus value = freshRuleStatus();
    if (output.pending) output.ptrSeen.add(maybeStatus, {uid});
    traceStatus(7, "into( status.ruleStatus[ uid ] ): inserting k1={}, value={}", uid, value);
    maybeStatus->ruleStatusIs(uid, value);
  } else {
    if (output.pending) output.ptrSeen.add(maybeStatus, {uid});
    traceStatus(7, "into( status.ruleStatus[ uid ] ): deleting k1={}", uid);
    maybeStatus->ruleStatusDel(uid);
  }
}

}  // namespace Velo::VeloAcl
