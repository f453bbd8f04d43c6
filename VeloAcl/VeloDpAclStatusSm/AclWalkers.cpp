#include <VeloAcl/VeloDpAclStatusSm/AclWalkers.h>

namespace Velo::VeloAcl {

using Acl::AclType;
using Kiv::UniqueId;

AclConfigSm3::AclConfigSm3(const Kelp::Ptr<const Acl::Config>& entity, VeloDpAclStatusSm& machine)
    : TopWalker("AclConfigSm3", machine, nullptr, entity) {
  task1Is();
  task2Is();
  task3Is();
  task4Is();
}
AclConfigSm3::~AclConfigSm3() = default;

void AclConfigSm3::task1Is() { taskIs(1, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask1"); }
void AclConfigSm3::task2Is() { taskIs(2, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask2"); }
void AclConfigSm3::task3Is() { taskIs(3, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask3"); }
void AclConfigSm3::task4Is() { taskIs(4, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask4"); }

Kelp::Ptr<ConfigSm4> AclConfigSm3::childSmConfigAclAclTypeConfigPtrConstIs(
    const Kelp::Ptr<const Acl::AclTypeConfig>& entity, AclType aclType) {
  return children_.is(entity, *this, aclType);
}

void AclConfigSm3::handleConfig(AclType aclType) {
  if (!active()) return;
  traceStatus(8, "k: {}", aclType);
  if (const auto lists = en()->config(aclType)) {
    childSmConfigAclAclTypeConfigPtrConstIs(lists, aclType);
  } else {
    childSmConfigAclAclTypeConfigPtrConstDel(aclType);
  }
}
void AclConfigSm3::handleConfig1Reactor(AclType aclType) { handleConfig1(aclType); }
void AclConfigSm3::handleConfig2Reactor(AclType aclType) { handleConfig2(aclType); }
void AclConfigSm3::handleConfig3Reactor(AclType aclType) { handleConfig3(aclType); }
void AclConfigSm3::handleConfig4Reactor(AclType aclType) { handleConfig4(aclType); }

void AclConfigSm3::onChildEvent1(AclType aclType, const Kelp::String& aclName) {
  machine().eventToAclConfigStream(aclType, aclName, std::nullopt);
}
void AclConfigSm3::onChildEvent2(AclType aclType, const Kelp::String& aclName, const UniqueId& uid) {
  machine().eventToIpRuleCfgStream(aclType, aclName, uid, nullptr);
}
void AclConfigSm3::onChildEvent3(AclType aclType, const Kelp::String& aclName, const UniqueId& uid) {
  machine().eventToIp6RuleCfgStream(aclType, aclName, uid, nullptr);
}
void AclConfigSm3::onChildEvent4(AclType aclType, const Kelp::String& aclName, const UniqueId& uid) {
  machine().eventToMacRuleCfgStream(aclType, aclName, uid, nullptr);
}

void AclConfigSm3::doInputScan() {
  for (int number = 1; number <= 4; ++number) {
    if (active()) startScan(number);
  }
}

void AclConfigSm3::scan(int number) {
  scanMap(
      number, places_[number - 1], raw() ? &raw()->config() : nullptr, [this](AclType k) { handleConfig(k); },
      [this](AclType k) { return children_.find(k); });
}

void AclConfigSm3::scanFlagIs(int number) {
  const auto& flags = machine().inputSmScanState();
  switch (number) {
    case 1:
      flags->aclConfigStreamScanIs(true);
      break;
    case 2:
      flags->ipRuleCfgStreamScanIs(true);
      break;
    case 3:
      flags->ip6RuleCfgStreamScanIs(true);
      break;
    default:
      flags->macRuleCfgStreamScanIs(true);
      break;
  }
}

void AclConfigSm3::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  childSmConfigAclAclTypeConfigPtrConstDelAll();
}

void AclConfigSm3::dispatch(const Zeb::Change& change) {
  if (!change.is(Acl::Config::configAttribute())) return;
  const AclType aclType = change.keyAs<AclType>();
  handleConfig1Reactor(aclType);
  handleConfig2Reactor(aclType);
  handleConfig3Reactor(aclType);
  handleConfig4Reactor(aclType);
}

ConfigSm4::ConfigSm4(const Kelp::Ptr<const Acl::AclTypeConfig>& entity, AclConfigSm3& parent, AclType aclType)
    : WalkerOf("ConfigSm4", parent.machine(), &parent, entity), aclType_(aclType) {}
ConfigSm4::~ConfigSm4() = default;

Kelp::Ptr<AclSm5> ConfigSm4::childSmAclAclAclConfigPtrConstIs(const Kelp::Ptr<const Acl::AclConfig>& entity,
                                                              const Kelp::String& aclName) {
  return children_.is(entity, *this, aclName);
}

void ConfigSm4::handleAcl1(const Kelp::String& aclName) {
  if (!active()) return;
  traceStatus(8, "k: {}", aclName);
  versionsSeen();
  const auto list = en()->acl(aclName);
  machine().eventToAclConfigStream(aclType_, aclName, list ? std::optional(list) : std::nullopt);
}

void ConfigSm4::handleAcl(const Kelp::String& aclName) {
  if (!active()) return;
  traceStatus(8, "k: {}", aclName);
  versionsSeen();
  if (const auto list = en()->acl(aclName)) {
    childSmAclAclAclConfigPtrConstIs(list, aclName);
  } else {
    childSmAclAclAclConfigPtrConstDel(aclName);
  }
}
void ConfigSm4::handleAcl1Reactor(const Kelp::String& aclName) { handleAcl1(aclName); }
void ConfigSm4::handleAcl2Reactor(const Kelp::String& aclName) { handleAcl2(aclName); }
void ConfigSm4::handleAcl3Reactor(const Kelp::String& aclName) { handleAcl3(aclName); }
void ConfigSm4::handleAcl4Reactor(const Kelp::String& aclName) { handleAcl4(aclName); }

void ConfigSm4::onChildEvent2(const Kelp::String& aclName, const UniqueId& uid) {
  parentSm()->onChildEvent2(aclType_, aclName, uid);
}
void ConfigSm4::onChildEvent3(const Kelp::String& aclName, const UniqueId& uid) {
  parentSm()->onChildEvent3(aclType_, aclName, uid);
}
void ConfigSm4::onChildEvent4(const Kelp::String& aclName, const UniqueId& uid) {
  parentSm()->onChildEvent4(aclType_, aclName, uid);
}

void ConfigSm4::doInputScan() {
  for (int number = 1; number <= 4; ++number) {
    if (active()) scan(number);
  }
}

void ConfigSm4::scan(int number) {
  const auto* lists = raw() ? &raw()->acl() : nullptr;
  auto& place = places_[number - 1];
  if (number == 1) {
    scanMap(
        number, place, lists, [this](const Kelp::String& k) { handleAcl1(k); }, noChild);
  } else {
    scanMap(
        number, place, lists, [this](const Kelp::String& k) { handleAcl(k); },
        [this](const Kelp::String& k) { return children_.find(k); });
  }
}

void ConfigSm4::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  CHECK_NOTHING_MISSED("acl", raw()->acl().version(), version_);
  childSmAclAclAclConfigPtrConstDelAll();
  if (!initialScanDone()) return;
  forEachLeft(*this, raw()->acl(), [this](const Kelp::String& k) { parentSm()->onChildEvent1(aclType_, k); });
}

void ConfigSm4::dispatch(const Zeb::Change& change) {
  if (!change.is(Acl::AclTypeConfig::aclAttribute())) return;
  const Kelp::String& aclName = change.keyAs<Kelp::String>();
  handleAcl1Reactor(aclName);
  handleAcl2Reactor(aclName);
  handleAcl3Reactor(aclName);
  handleAcl4Reactor(aclName);
}

AclSm5::AclSm5(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent, const Kelp::String& aclName)
    : WalkerOf("AclSm5", parent.machine(), &parent, entity), aclName_(aclName) {}
AclSm5::~AclSm5() = default;

Kelp::Ptr<CurrCfgSm6> AclSm5::childSmCurrCfgAclAclSubConfigPtrConstIs(
    const Kelp::Ptr<const Acl::AclSubConfig>& entity) {
  if (child_) {
    KELP_ASSERT(child_->en() == entity,
                "a child state machine cannot be instantiated again with another entity");
    child_->parentIs(this);
    return child_;
  }
  const auto child = CurrCfgSm6Is(entity, *this);
  child_ = child;
  child->hasNotificationActiveIs(true);
  child->initialize();
  return child;
}

void AclSm5::childSmCurrCfgAclAclSubConfigPtrConstDel() {
  const auto child = child_;
  if (!child) return;
  child->doDeleteAll();
  child->stop();
  if (child_ == child) child_ = nullptr;
}

void AclSm5::handleCurrCfg() {
  if (!active()) return;
  traceStatus(8, "k: {}", aclName_);
  if (child_ && child_->en() != en()->currCfg()) childSmCurrCfgAclAclSubConfigPtrConstDel();
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
      [this] { return child_; });
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

void AclSm5::forEachChild(const std::function<void(Walker&)>& visit) {
  if (const auto child = child_) visit(*child);
}

CurrCfgSm6::CurrCfgSm6(const Kelp::Ptr<const Acl::AclSubConfig>& entity, AclSm5& parent)
    : WalkerOf("CurrCfgSm6", parent.machine(), &parent, entity) {}
CurrCfgSm6::~CurrCfgSm6() = default;

void CurrCfgSm6::versionsSeen() {
  versions_ = {raw()->ipRuleById().version(), raw()->ip6RuleById().version(), raw()->macRuleById().version()};
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
  CHECK_NOTHING_MISSED("ipRuleById", raw()->ipRuleById().version(), versions_[0]);
  CHECK_NOTHING_MISSED("ip6RuleById", raw()->ip6RuleById().version(), versions_[1]);
  CHECK_NOTHING_MISSED("macRuleById", raw()->macRuleById().version(), versions_[2]);
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

Kelp::Ptr<AclConfigSm3> AclConfigSm3Is(const Kelp::Ptr<const Acl::Config>& entity,
                                       VeloDpAclStatusSm& machine) {
  return MemSlab::make<AclConfigSm3>(entity, machine);
}
Kelp::Ptr<ConfigSm4> ConfigSm4Is(const Kelp::Ptr<const Acl::AclTypeConfig>& entity, AclConfigSm3& parent,
                                 AclType aclType) {
  return MemSlab::make<ConfigSm4>(entity, parent, aclType);
}
Kelp::Ptr<AclSm5> AclSm5Is(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent,
                           const Kelp::String& aclName) {
  return MemSlab::make<AclSm5>(entity, parent, aclName);
}
Kelp::Ptr<CurrCfgSm6> CurrCfgSm6Is(const Kelp::Ptr<const Acl::AclSubConfig>& entity, AclSm5& parent) {
  return MemSlab::make<CurrCfgSm6>(entity, parent);
}

}  // namespace Velo::VeloAcl
