#include <VeloAcl/VeloDpAclStatusSm/StreamValues.h>

namespace Velo::VeloAcl {

namespace {

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
    const std::string_view text = shown.rule ? shown.rule->text().view() : std::string_view("absent");
    return fmt::formatter<std::string_view>::format(text, ctx);
  }
};

/// The streams of rules: from the configuration into the rule-id index, and from there into the status. As
/// all streams (Streams.cpp) they drop what comes before the second pass.
namespace Velo::VeloAcl {

using Acl::AclType;
using Acl::RuleStatus;
using Kiv::UniqueId;
using Velo::Counter::AclTypeNameTuple;

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

/// What the init stream of one kind of list looks at: a row of the three.
template <class Rules>
struct InitStream {
  AclType listType;
  const char* filterFailed;
  const Rules& (Acl::AclSubConfig::*rulesOf)() const;
  fmt::format_string<size_t> flattening;
};

/// Records every rule of a list that has just come, whatever the status says; never takes one out.
template <class Rules>
void VeloDpAclStatusSm::initRules(AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg,
                                  const InitStream<Rules>& stream) {
  const auto rules = aclType == stream.listType && aclCfg ? (*aclCfg)->currCfg() : nullptr;
  if (!rules) {
    traceStatus(6, "{}", stream.filterFailed);
    return;
  }
  const Rules& map = (*rules.*stream.rulesOf)();
  const uint64_t changes = map.changes();
  traceStatus(6, stream.flattening, map.size());
  const auto upToDate = [&] {
    return !stopped_ && !listEvents_.overtaken() && (*aclCfg)->currCfg() == rules;
  };
  for (auto at = map.begin(); at && upToDate(); at.next()) {
    traceStatus(9, "Flattening element: {}", at.key());
    localAttrStore_->ruleIdsByAclIs({aclType, aclName})->ruleIdsIs(at.key());
  }
  if (!stopped_ && (!upToDate() || map.changes() != changes)) withdrawRulesGone(aclType, aclName);
}

/// Of the rules of a list that are recorded, withdraws those of which `gone(uid)` is true.
void VeloDpAclStatusSm::withdrawRules(AclType aclType, const Kelp::String& aclName,
                                      const std::function<bool(const UniqueId&)>& gone) {
  const auto ruleIds = localAttrStore_->ruleIdsByAcl({aclType, aclName});
  if (!ruleIds) return;
  for (auto at = ruleIds->ruleIds().begin(); at && !stopped_; at.next()) {
    const UniqueId uid = at.key();
    if (gone(uid)) eventToRuleCfgHandlerStream(aclType, aclName, uid, false);
  }
}

/// Withdraws the recorded rules that a list does not have. For when rules were taken out by somebody who was
/// told of one of them, while the walker that would see it may not be there yet.
void VeloDpAclStatusSm::withdrawRulesGone(AclType aclType, const Kelp::String& aclName) {
  withdrawRules(aclType, aclName, [&](const UniqueId& uid) {
    const auto lists = aclConfig_->config(aclType);
    const auto list = lists ? lists->acl(aclName) : nullptr;
    const auto rules = list ? list->currCfg() : nullptr;
    return !rules ||
           !(rules->ipRuleById().has(uid) || rules->ip6RuleById().has(uid) || rules->macRuleById().has(uid));
  });
}

void VeloDpAclStatusSm::eventToAclIpRuleInitStream(AclType aclType, const Kelp::String& aclName,
                                                   const ListCfg& aclCfg) {
  if (!streaming() || listEvents_.overtaken()) return;
  traceStatus(7, "aclIpRuleInitStream = merge( aclConfigStream ): aclType={} aclName={} aclCfg={}", aclType,
              aclName, text(aclCfg));
  initRules<Acl::AclSubConfig::ipRuleByIdMap>(
      aclType, aclName, aclCfg,
      {AclType::ip,
       "filter( ( ( ( aclType == Acl::AclType::ip() ) && aclCfg ) && ( *aclCfg ).currCfg ) ) failed, "
       "terminating pipeline",
       &Acl::AclSubConfig::ipRuleById, " foreach( currCfg.ipRuleById ) flattening {} elements"});
}

void VeloDpAclStatusSm::eventToAclIp6RuleInitStream(AclType aclType, const Kelp::String& aclName,
                                                    const ListCfg& aclCfg) {
  if (!streaming() || listEvents_.overtaken()) return;
  traceStatus(7, "aclIp6RuleInitStream = merge( aclConfigStream ): aclType={} aclName={} aclCfg={}", aclType,
              aclName, text(aclCfg));
  initRules<Acl::AclSubConfig::ip6RuleByIdMap>(
      aclType, aclName, aclCfg,
      {AclType::ipv6,
       "filter( ( ( ( aclType == Acl::AclType::ipv6() ) && aclCfg ) && ( *aclCfg ).currCfg ) ) failed, "
       "terminating pipeline",
       &Acl::AclSubConfig::ip6RuleById, " foreach( currCfg.ip6RuleById ) flattening {} elements"});
}

void VeloDpAclStatusSm::eventToAclMacRuleInitStream(AclType aclType, const Kelp::String& aclName,
                                                    const ListCfg& aclCfg) {
  if (!streaming() || listEvents_.overtaken()) return;
  traceStatus(7, "aclMacRuleInitStream = merge( aclConfigStream ): aclType={} aclName={} aclCfg={}", aclType,
              aclName, text(aclCfg));
  initRules<Acl::AclSubConfig::macRuleByIdMap>(
      aclType, aclName, aclCfg,
      {AclType::mac,
       "filter( ( ( ( aclType == Acl::AclType::mac() ) && aclCfg ) && ( *aclCfg ).currCfg ) ) failed, "
       "terminating pipeline",
       &Acl::AclSubConfig::macRuleById, " foreach( currCfg.macRuleById ) flattening {} elements"});
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
