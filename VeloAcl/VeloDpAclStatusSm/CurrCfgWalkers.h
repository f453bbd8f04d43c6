#pragma once

#include <Acl/RuleKinds.h>
#include <VeloAcl/VeloDpAclStatusSm/TreeWalker.h>

/// The walkers over one list and its rules in force.
namespace Velo::VeloAcl {

class AclSm5;
class ConfigSm4;

template <class Rule>
struct RulesInForce {
  using Entity = Acl::AclSubConfig;
  static const auto& elements(const Entity& list) { return Acl::RuleKind<Rule>::rules(list); }
  static const Zeb::Attribute& attribute() { return Acl::RuleKind<Rule>::attribute(); }
};
struct IpRulesInForce : RulesInForce<Acl::IpRuleConfig> {
  static constexpr const char* missed =
      "We missed notifications that happened to ipRuleById before the enclosing entity got deleted";
};
struct Ip6RulesInForce : RulesInForce<Acl::Ip6RuleConfig> {
  static constexpr const char* missed =
      "We missed notifications that happened to ip6RuleById before the enclosing entity got deleted";
};
struct MacRulesInForce : RulesInForce<Acl::MacRuleConfig> {
  static constexpr const char* missed =
      "We missed notifications that happened to macRuleById before the enclosing entity got deleted";
};
class CurrCfgSm6 final
    : public TreeWalker<CurrCfgSm6, Below<AclSm5>, Walks<IpRulesInForce, Ip6RulesInForce, MacRulesInForce>,
                        NoChild, Scans<2, 3, 4>> {
 public:
  static constexpr auto walkerName = "CurrCfgSm6";
  using TreeWalker::TreeWalker;

  void handleIpRuleById2(const Kiv::UniqueId& uid);
  void handleIp6RuleById3(const Kiv::UniqueId& uid);
  void handleMacRuleById4(const Kiv::UniqueId& uid);
  void handleIpRuleById2Reactor(const Kiv::UniqueId& uid) { handleIpRuleById2(uid); }
  void handleIp6RuleById3Reactor(const Kiv::UniqueId& uid) { handleIp6RuleById3(uid); }
  void handleMacRuleById4Reactor(const Kiv::UniqueId& uid) { handleMacRuleById4(uid); }
  void withdraw2(const Kiv::UniqueId& uid);
  void withdraw3(const Kiv::UniqueId& uid);
  void withdraw4(const Kiv::UniqueId& uid);
  using Table = HandlerTable<
      Handlers<&CurrCfgSm6::handleIpRuleById2, &CurrCfgSm6::handleIpRuleById2Reactor, &CurrCfgSm6::withdraw2>,
      Handlers<&CurrCfgSm6::handleIp6RuleById3, &CurrCfgSm6::handleIp6RuleById3Reactor,
               &CurrCfgSm6::withdraw3>,
      Handlers<&CurrCfgSm6::handleMacRuleById4, &CurrCfgSm6::handleMacRuleById4Reactor,
               &CurrCfgSm6::withdraw4>>;
};

struct RulesOfList {
  using Entity = Acl::AclConfig;
  static auto at(const Entity& list) { return list.currCfg(); }
  static SingleElement elements(const Entity& list) { return SingleElement(at(list).get()); }
  static const Zeb::Attribute& attribute() { return Entity::currCfgAttribute(); }
};
class AclSm5 final : public TreeWalker<AclSm5, Below<ConfigSm4, Kelp::String>, Walks<RulesOfList>, CurrCfgSm6,
                                       Scans<2, 3, 4>> {
 public:
  static constexpr auto walkerName = "AclSm5";
  using TreeWalker::TreeWalker;

  Acl::AclType aclType() const;

  Kelp::Ptr<CurrCfgSm6> childSmCurrCfgAclAclSubConfigPtrConstIs(
      const Kelp::Ptr<const Acl::AclSubConfig>& entity) {
    return childIs(entity);
  }
  void childSmCurrCfgAclAclSubConfigPtrConstDel() { childDel(); }

  void handleCurrCfg2() { followNamed(); }
  void handleCurrCfg3() { followNamed(); }
  void handleCurrCfg4() { followNamed(); }
  void handleCurrCfg2Reactor() { handleCurrCfg2(); }
  void handleCurrCfg3Reactor() { handleCurrCfg3(); }
  void handleCurrCfg4Reactor() { handleCurrCfg4(); }
  using Table = HandlerTable<Handlers<&AclSm5::handleCurrCfg2, &AclSm5::handleCurrCfg2Reactor>,
                             Handlers<&AclSm5::handleCurrCfg3, &AclSm5::handleCurrCfg3Reactor>,
                             Handlers<&AclSm5::handleCurrCfg4, &AclSm5::handleCurrCfg4Reactor>>;

  void onChildEvent2(const Kiv::UniqueId& uid);
  void onChildEvent3(const Kiv::UniqueId& uid);
  void onChildEvent4(const Kiv::UniqueId& uid);
};

// The walker for an entity: the present one, which must watch the same entity, or a new one, which is
// started.
Kelp::Ptr<AclSm5> AclSm5Is(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent,
                           const Kelp::String& aclName);
inline Kelp::Ptr<CurrCfgSm6> CurrCfgSm6Is(const Kelp::Ptr<const Acl::AclSubConfig>& entity, AclSm5& parent) {
  return parent.childIs(entity);
}

}  // namespace Velo::VeloAcl
