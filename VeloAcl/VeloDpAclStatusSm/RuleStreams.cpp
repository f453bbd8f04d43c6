#include <Acl/RuleKinds.h>
#include <VeloAcl/VeloDpAclStatusSm/StreamValues.h>

namespace Velo::VeloAcl {

namespace {

/// A rule as traces show it: by its text. That lies elsewhere in memory, and is only read when it is
/// formatted.
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

/// The streams of rules: from the configuration into the rule-id index, and from there into the status. Like
/// all streams (Streams.h) they drop events before the second pass.
namespace Velo::VeloAcl {

using Acl::AclType;
using Kiv::UniqueId;
using Velo::Counter::AclTypeNameTuple;

namespace {

/// The trace texts and filters of the two streams for one kind of rule.
struct RuleStreamRow {
  AclType listType;
  fmt::format_string<const AclType&, const Kelp::String&, const UniqueId&, RuleText> cfg;
  fmt::format_string<const AclType&, const Kelp::String&, const char*> init;
  const char* filterFailed;
  fmt::format_string<size_t> flattening;
};

template <class Rule>
constexpr RuleStreamRow rowOf() = delete;
template <>
constexpr RuleStreamRow rowOf<Acl::IpRuleConfig>() {
  return {
      AclType::ip,
      "ipRuleCfgStream = from( aclConfig.config[].acl[].currCfg.ipRuleById[] ): aclType={} aclName={} uid={} ruleConfig={}",
      "aclIpRuleInitStream = merge( aclConfigStream ): aclType={} aclName={} aclCfg={}",
      "filter( ( ( ( aclType == Acl::AclType::ip() ) && aclCfg ) && ( *aclCfg ).currCfg ) ) failed, terminating pipeline",
      " foreach( currCfg.ipRuleById ) flattening {} elements"};
}
template <>
constexpr RuleStreamRow rowOf<Acl::Ip6RuleConfig>() {
  return {
      AclType::ipv6,
      "ip6RuleCfgStream = from( aclConfig.config[].acl[].currCfg.ip6RuleById[] ): aclType={} aclName={} uid={} ruleConfig={}",
      "aclIp6RuleInitStream = merge( aclConfigStream ): aclType={} aclName={} aclCfg={}",
      "filter( ( ( ( aclType == Acl::AclType::ipv6() ) && aclCfg ) && ( *aclCfg ).currCfg ) ) failed, terminating pipeline",
      " foreach( currCfg.ip6RuleById ) flattening {} elements"};
}
template <>
constexpr RuleStreamRow rowOf<Acl::MacRuleConfig>() {
  return {
      AclType::mac,
      "macRuleCfgStream = from( aclConfig.config[].acl[].currCfg.macRuleById[] ): aclType={} aclName={} uid={} ruleConfig={}",
      "aclMacRuleInitStream = merge( aclConfigStream ): aclType={} aclName={} aclCfg={}",
      "filter( ( ( ( aclType == Acl::AclType::mac() ) && aclCfg ) && ( *aclCfg ).currCfg ) ) failed, terminating pipeline",
      " foreach( currCfg.macRuleById ) flattening {} elements"};
}

}  // namespace

/// The event of a rule that is new or has changed; null: it is gone.
template <class Rule>
void MachineStreams::ruleCfgStream(AclType aclType, const Kelp::String& aclName, const UniqueId& uid,
                                   const Rule* ruleConfig) {
  if (!streaming()) return;
  traceStatus(7, rowOf<Rule>().cfg, std::as_const(aclType), aclName, uid, RuleText{ruleConfig});
  eventToRuleCfgHandlerStream(aclType, aclName, uid, ruleConfig != nullptr);
}

/// Records every rule of a new list, whatever the status says. Removes none.
template <class Rule>
void MachineStreams::ruleInitStream(AclType aclType, const Kelp::String& aclName, const ListCfg& aclCfg) {
  if (!streaming() || listEvents_.overtaken()) return;
  const RuleStreamRow row = rowOf<Rule>();
  traceStatus(7, row.init, std::as_const(aclType), aclName, text(aclCfg));
  const auto rules = aclType == row.listType && aclCfg ? (*aclCfg)->currCfg() : nullptr;
  if (!rules) {
    traceStatus(6, "{}", row.filterFailed);
    return;
  }
  const auto& map = Acl::RuleKind<Rule>::rules(*rules);
  const uint64_t changes = map.changes();
  traceStatus(6, row.flattening, map.size());
  const auto upToDate = [&] {
    return !stopped_ && !listEvents_.overtaken() && (*aclCfg)->currCfg() == rules;
  };
  for (auto at = map.begin(); at && upToDate(); at.next()) {
    traceStatus(9, "Flattening element: {}", at.key());
    localAttrStore_->ruleIdsByAclIs({aclType, aclName})->ruleIdsIs(at.key());
  }
  if (!stopped_ && (!upToDate() || map.changes() != changes)) withdrawRulesGone(aclType, aclName);
}

void MachineStreams::eventToIpRuleCfgStream(AclType aclType, const Kelp::String& aclName, const UniqueId& uid,
                                            const Acl::IpRuleConfig* ruleConfig) {
  ruleCfgStream(aclType, aclName, uid, ruleConfig);
}
void MachineStreams::eventToIp6RuleCfgStream(AclType aclType, const Kelp::String& aclName,
                                             const UniqueId& uid, const Acl::Ip6RuleConfig* ruleConfig) {
  ruleCfgStream(aclType, aclName, uid, ruleConfig);
}
void MachineStreams::eventToMacRuleCfgStream(AclType aclType, const Kelp::String& aclName,
                                             const UniqueId& uid, const Acl::MacRuleConfig* ruleConfig) {
  ruleCfgStream(aclType, aclName, uid, ruleConfig);
}
void MachineStreams::eventToAclIpRuleInitStream(AclType aclType, const Kelp::String& aclName,
                                                const ListCfg& aclCfg) {
  ruleInitStream<Acl::IpRuleConfig>(aclType, aclName, aclCfg);
}
void MachineStreams::eventToAclIp6RuleInitStream(AclType aclType, const Kelp::String& aclName,
                                                 const ListCfg& aclCfg) {
  ruleInitStream<Acl::Ip6RuleConfig>(aclType, aclName, aclCfg);
}
void MachineStreams::eventToAclMacRuleInitStream(AclType aclType, const Kelp::String& aclName,
                                                 const ListCfg& aclCfg) {
  ruleInitStream<Acl::MacRuleConfig>(aclType, aclName, aclCfg);
}

/// Withdraws those recorded rules of a list for which gone(uid) is true.
void MachineStreams::withdrawRules(AclType aclType, const Kelp::String& aclName,
                                   const std::function<bool(const UniqueId&)>& gone) {
  const auto ruleIds = localAttrStore_->ruleIdsByAcl({aclType, aclName});
  if (!ruleIds) return;
  for (auto at = ruleIds->ruleIds().begin(); at && !stopped_; at.next()) {
    const UniqueId uid = at.key();
    if (gone(uid)) eventToRuleCfgHandlerStream(aclType, aclName, uid, false);
  }
}

/// Withdraws the recorded rules that the list does not have. Needed when a handler that was told of one rule
/// has removed others, because the walker that would see that may not exist yet.
void MachineStreams::withdrawRulesGone(AclType aclType, const Kelp::String& aclName) {
  withdrawRules(aclType, aclName, [&](const UniqueId& uid) {
    const auto lists = aclConfig()->config(aclType);
    const auto list = lists ? lists->acl(aclName) : nullptr;
    const auto rules = list ? list->currCfg() : nullptr;
    return !rules ||
           !(rules->ipRuleById().has(uid) || rules->ip6RuleById().has(uid) || rules->macRuleById().has(uid));
  });
}

void MachineStreams::eventToRuleCfgHandlerStream(AclType aclType, const Kelp::String& aclName,
                                                 const UniqueId& uid, bool exists) {
  if (!streaming()) return;
  traceStatus(
      7,
      "ruleCfgHandlerStream = merge( ipRuleCfgStream, ip6RuleCfgStream, macRuleCfgStream ): aclType={} aclName={} uid={} exists={}",
      aclType, aclName, uid, exists);
  const AclTypeNameTuple key{aclType, aclName};
  if (exists) {
    if (!statusOf(aclType, aclName)) {
      traceStatus(
          6,
          "filter( ( aclStatus.status[ aclType ]?.acl?[ aclName ] || ( !exists ) ) ) failed, terminating pipeline");
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
  // A handler that saw the id go may have begun a new set under the key.
  if (ruleIds->ruleIds().empty() && localAttrStore_->ruleIdsByAcl(key) == ruleIds)
    localAttrStore_->ruleIdsByAclDel(key);
}

namespace {
constexpr Into<RuleStatusEntries> intoRuleStatus{
    "into( status.ruleStatus[ uid ] ): inserting k1={}, value={}",
    "into( status.ruleStatus[ uid ] ): deleting k1={}"};
}  // namespace

void MachineStreams::eventToRix_pipeline0(const AclTypeNameTuple& keyTuple, const UniqueId& uid,
                                          bool exists) {
  if (!streaming()) return;
  traceStatus(7, "Line 103: from( ruleIdsByAcl[].ruleIds[] ): keyTuple={} uid={} exists={}", keyTuple, uid,
              exists);
  const auto maybeStatus = statusOf(keyTuple.aclType, keyTuple.aclName);
  if (!maybeStatus) {
    traceStatus(6, "filter( maybeStatus ) failed, terminating pipeline");
    return;
  }
  aclAclStatusPtrRuleStatusOutput_.write(intoRuleStatus, maybeStatus, uid,
                                         exists ? std::optional(freshRuleStatus()) : std::nullopt);
}

}  // namespace Velo::VeloAcl
