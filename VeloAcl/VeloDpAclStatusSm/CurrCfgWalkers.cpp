#include <VeloAcl/VeloDpAclStatusSm/AclWalkers.h>

namespace Velo::VeloAcl {

using Acl::AclType;
using Kiv::UniqueId;

AclSm5::AclSm5(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent, const Kelp::String& aclName)
    : WalkerOf("AclSm5", parent.machine(), &parent, entity), aclName_(aclName) {}
AclSm5::~AclSm5() = default;

ConfigSm4* AclSm5::parentSm() const { return static_cast<ConfigSm4*>(parent()); }
AclType AclSm5::aclType() const { return parentSm()->aclType(); }

Kelp::Ptr<CurrCfgSm6> AclSm5::childSmCurrCfgAclAclSubConfigPtrConstIs(
    const Kelp::Ptr<const Acl::AclSubConfig>& entity) {
  return CurrCfgSm6Is(entity, *this);
}

void AclSm5::handleCurrCfg() {
  if (!active()) return;
  traceStatus(8, "k: {}", aclName_);
  if (child_.get() && child_.get()->en() != en()->currCfg()) childSmCurrCfgAclAclSubConfigPtrConstDel();
  if (!active()) return;
  if (const auto rules = en()->currCfg()) childSmCurrCfgAclAclSubConfigPtrConstIs(rules);
}
void AclSm5::handleCurrCfg2Reactor() { handleCurrCfg2(); }
void AclSm5::handleCurrCfg3Reactor() { handleCurrCfg3(); }
void AclSm5::handleCurrCfg4Reactor() { handleCurrCfg4(); }

void AclSm5::onChildEvent2(const UniqueId& uid) { parentSm()->onChildEvent2(aclName_, uid); }
void AclSm5::onChildEvent3(const UniqueId& uid) { parentSm()->onChildEvent3(aclName_, uid); }
void AclSm5::onChildEvent4(const UniqueId& uid) { parentSm()->onChildEvent4(aclName_, uid); }

void AclSm5::doInputScan() {
  for (int number = 2; number <= 4; ++number) {
    if (active()) scan(number);
  }
}

void AclSm5::scan(int number) {
  KELP_ASSERT(raw(), "en() && \"Sm args can only be null if marked as Optional in the SM type declaration\"");
  scanSingle(
      number, places_[number - 2], static_cast<bool>(raw()->currCfg()), [this] { handleCurrCfg(); },
      [this] { return child_.get(); });
}

void AclSm5::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  childSmCurrCfgAclAclSubConfigPtrConstDel();
}

void AclSm5::dispatch(const Zeb::Change& change) {
  if (!change.is(Acl::AclConfig::currCfgAttribute())) return;
  handleCurrCfg2Reactor();
  handleCurrCfg3Reactor();
  handleCurrCfg4Reactor();
}

CurrCfgSm6::CurrCfgSm6(const Kelp::Ptr<const Acl::AclSubConfig>& entity, AclSm5& parent)
    : WalkerOf("CurrCfgSm6", parent.machine(), &parent, entity) {}
CurrCfgSm6::~CurrCfgSm6() = default;

void CurrCfgSm6::versionsSeen() {
  versions_ = {raw()->ipRuleById().version(), raw()->ip6RuleById().version(), raw()->macRuleById().version()};
}

uint64_t CurrCfgSm6::mark() const {
  return raw()->ipRuleById().changes() + raw()->ip6RuleById().changes() + raw()->macRuleById().changes();
}

void CurrCfgSm6::handleIpRuleById2(const UniqueId& uid) {
  if (!active()) return;
  traceStatus(8, "k: {}", uid);
  versions_[0] = raw()->ipRuleById().version();
  const auto* rule = raw()->ipRuleById(uid);
  machine().eventToIpRuleCfgStream(parentSm()->aclType(), parentSm()->aclName(), uid, rule);
}
void CurrCfgSm6::handleIp6RuleById3(const UniqueId& uid) {
  if (!active()) return;
  traceStatus(8, "k: {}", uid);
  versions_[1] = raw()->ip6RuleById().version();
  const auto* rule = raw()->ip6RuleById(uid);
  machine().eventToIp6RuleCfgStream(parentSm()->aclType(), parentSm()->aclName(), uid, rule);
}
void CurrCfgSm6::handleMacRuleById4(const UniqueId& uid) {
  if (!active()) return;
  traceStatus(8, "k: {}", uid);
  versions_[2] = raw()->macRuleById().version();
  const auto* rule = raw()->macRuleById(uid);
  machine().eventToMacRuleCfgStream(parentSm()->aclType(), parentSm()->aclName(), uid, rule);
}
void CurrCfgSm6::handleIpRuleById2Reactor(const UniqueId& uid) { handleIpRuleById2(uid); }
void CurrCfgSm6::handleIp6RuleById3Reactor(const UniqueId& uid) { handleIp6RuleById3(uid); }
void CurrCfgSm6::handleMacRuleById4Reactor(const UniqueId& uid) { handleMacRuleById4(uid); }

void CurrCfgSm6::doInputScan() {
  for (int number = 2; number <= 4; ++number) {
    if (active()) scan(number);
  }
}

void CurrCfgSm6::scan(int number) {
  auto& place = places_[number - 2];
  switch (number) {
    case 2:
      return scanMap(
          number, place, raw() ? &raw()->ipRuleById() : nullptr,
          [this](const UniqueId& k) { handleIpRuleById2(k); }, noChild);
    case 3:
      return scanMap(
          number, place, raw() ? &raw()->ip6RuleById() : nullptr,
          [this](const UniqueId& k) { handleIp6RuleById3(k); }, noChild);
    default:
      return scanMap(
          number, place, raw() ? &raw()->macRuleById() : nullptr,
          [this](const UniqueId& k) { handleMacRuleById4(k); }, noChild);
  }
}

void CurrCfgSm6::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  KELP_ASSERT(raw()->ipRuleById().version() == versions_[0],
              "We missed notifications that happened to ipRuleById before the enclosing entity got deleted");
  KELP_ASSERT(raw()->ip6RuleById().version() == versions_[1],
              "We missed notifications that happened to ip6RuleById before the enclosing entity got deleted");
  KELP_ASSERT(raw()->macRuleById().version() == versions_[2],
              "We missed notifications that happened to macRuleById before the enclosing entity got deleted");
  if (!initialScanDone()) return;
  forEachLeft(*this, raw()->macRuleById(), [this](const UniqueId& k) { parentSm()->onChildEvent4(k); });
  forEachLeft(*this, raw()->ip6RuleById(), [this](const UniqueId& k) { parentSm()->onChildEvent3(k); });
  forEachLeft(*this, raw()->ipRuleById(), [this](const UniqueId& k) { parentSm()->onChildEvent2(k); });
}

void CurrCfgSm6::dispatch(const Zeb::Change& change) {
  if (change.is(Acl::AclSubConfig::ipRuleByIdAttribute())) {
    handleIpRuleById2Reactor(change.keyAs<UniqueId>());
  } else if (change.is(Acl::AclSubConfig::ip6RuleByIdAttribute())) {
    handleIp6RuleById3Reactor(change.keyAs<UniqueId>());
  } else if (change.is(Acl::AclSubConfig::macRuleByIdAttribute())) {
    handleMacRuleById4Reactor(change.keyAs<UniqueId>());
  }
}

Kelp::Ptr<CurrCfgSm6> CurrCfgSm6Is(const Kelp::Ptr<const Acl::AclSubConfig>& entity, AclSm5& parent) {
  return parent.child_.is(entity, parent);
}

}  // namespace Velo::VeloAcl
